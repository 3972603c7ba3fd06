#include "fatfs/mkfs.h"

#include <cstdio>
#include <ctime>
#include <random>
#include <string>

#include "fatfs/image.h"
#include "fatfs/layout.h"
#include "fatfs/target.h"
#include "platform/cmdline.h"
#include "platform/number.h"

namespace vorn::fatfs {
namespace {

constexpr int kExitRefused = 1;  // mkfs.fat's status for every refusal
constexpr char kProgram[] = "vorn-mkfs";

bool powerOfTwo(uint64_t v) {
    return v != 0 && (v & (v - 1)) == 0;
}

// A take for a number within bounds; with `pow2`, only powers of two.
cmdline::Take number(uint32_t* to, uint64_t min, uint64_t max, const char* noun, bool pow2) {
    return [=](const std::string& value) {
        std::string why;
        uint32_t v = 0;
        if (!vorn::number::parse(value, min, max, noun, &v, &why)) return why;
        if (pow2 && !powerOfTwo(v))
            return std::string(noun) + " " + value + " is not a power of two";
        *to = v;
        return std::string();
    };
}

cmdline::Take fatType(int* to) {
    return [to](const std::string& value) {
        uint32_t v = 0;
        std::string why;
        if (!vorn::number::parse(value, 12, 32, "FAT type", &v, &why) ||
            (v != 12 && v != 16 && v != 32))
            return "bad FAT type '" + value + "': expected 12, 16 or 32";
        *to = static_cast<int>(v);
        return std::string();
    };
}

// Up to 8 hex digits, "0x" before them allowed.
cmdline::Take volumeId(uint32_t* to) {
    return [to](const std::string& value) {
        const bool prefixed = value.rfind("0x", 0) == 0 || value.rfind("0X", 0) == 0;
        const std::string hex = prefixed ? value : "0x" + value;
        uint64_t v = 0;
        switch (vorn::number::read(hex, 0, 0xFFFFFFFF, vorn::number::Radix::DecimalOrHex, &v)) {
            case vorn::number::Status::Ok:
                *to = static_cast<uint32_t>(v);
                return std::string();
            case vorn::number::Status::OutOfRange:
                return "volume id '" + value + "' has more than 8 hex digits";
            default:
                return "bad volume id '" + value + "': expected up to 8 hex digits";
        }
    };
}

// Printable ASCII without the characters DOS names may not hold, 11 at most.
cmdline::Take label(std::array<char, 11>* to) {
    return [to](const std::string& value) {
        if (value.size() > to->size()) return "label '" + value + "' is longer than 11 characters";
        for (char c : value) {
            if (c < 0x20 || c > 0x7E)
                return "label '" + value + "' holds a character other than printable ASCII";
            if (std::string("*?.,;:/\\|+=<>[]\"").find(c) != std::string::npos)
                return "label '" + value + "' holds '" + c +
                       "': none of *?.,;:/\\|+=<>[]\" may stand in a label";
        }
        to->fill(value.empty() ? '\0' : ' ');
        value.copy(to->data(), value.size());
        return std::string();
    };
}

int refuse(const std::string& why) {
    std::fprintf(stderr, "%s: %s\n", kProgram, why.c_str());
    return kExitRefused;
}

uint32_t randomVolumeId() {
    std::random_device rd;
    return rd();
}

}  // namespace

int mkfsMain(int argc, char** argv) {
    Request req;
    bool create = false;
    bool wholeDisk = false;
    bool verbose = false;
    bool haveId = false;
    cmdline::Program prog;
    prog.name = kProgram;
    prog.synopsis = {"[OPTIONS] DEVICE [BLOCK-COUNT]"};
    prog.about =
        "Writes a FAT file system on DEVICE (a partition or a file), with mkfs.fat's options\n"
        "and defaults; BLOCK-COUNT 1024-byte blocks, when given, is the size to use.\n\n";
    prog.options = {
        {"", 'F', "12|16|32", "FAT type (default: from the size)", fatType(&req.fatType)},
        {"", 'n', "LABEL", "volume label, up to 11 characters", label(&req.label)},
        {"", 'i', "VOLUME-ID", "volume id, up to 8 hex digits (default: random)",
         [&](const std::string& v) {
             haveId = true;
             return volumeId(&req.volumeId)(v);
         }},
        {"", 's', "SECTORS", "sectors per cluster: 1, 2, 4, ... 128",
         number(&req.sectorsPerCluster, 1, 128, "sectors per cluster", true)},
        {"", 'S', "BYTES", "logical sector size: 512, 1024, ... 32768",
         number(&req.sectorSize, 512, 32768, "sector size", true)},
        {"", 'r', "ENTRIES", "root directory entries, at least (FAT12, FAT16)",
         number(&req.rootEntries, 16, 32768, "root directory entries", false)},
        {"", 'R', "SECTORS", "reserved sectors, at least",
         number(&req.reservedSectors, 1, 65535, "reserved sectors", false)},
        {"", 'f', "COUNT", "number of FATs, 1..4",
         number(&req.fats, 1, 4, "number of FATs", false)},
        {"", 'C', "", "create DEVICE as a file of BLOCK-COUNT blocks", cmdline::set(&create)},
        {"", 'I', "", "allow a whole disk, not only a partition", cmdline::set(&wholeDisk)},
        {"", 'v', "", "print the layout", cmdline::set(&verbose)},
    };
    const cmdline::Outcome parsed = cmdline::parse(prog, argc, argv);
    if (!parsed.run) {
        if (parsed.status == cmdline::kExitOk) return cmdline::finish(parsed);
        // The first line names the problem; the usage is for --help.
        std::fputs(parsed.err.substr(0, parsed.err.find('\n') + 1).c_str(), stderr);
        return kExitRefused;
    }
    const int operands = argc - parsed.next;
    if (operands < 1 || operands > 2)
        return refuse(operands < 1 ? "no DEVICE given" : "too many operands: DEVICE [BLOCK-COUNT]");
    const std::string path = argv[parsed.next];
    uint64_t blocks = 0;
    if (operands == 2) {
        std::string why;
        if (!vorn::number::parse(argv[parsed.next + 1], 1, UINT64_MAX / 1024, "block count",
                                 &blocks, &why))
            return refuse(why);
    }
    if (!haveId) req.volumeId = randomVolumeId();

    Target target;
    std::string why;
    if (create) {
        if (blocks == 0) return refuse("-C needs a BLOCK-COUNT");
        if (!target.toCreate(path, blocks, &why)) return refuse(why);
    } else if (!target.open(path, blocks, wholeDisk, &why)) {
        return refuse(why);
    }
    Layout layout;
    if (!plan(target.device(), req, &layout, &why)) return refuse(path + ": " + why);
    if (verbose) std::fputs(describe(layout).c_str(), stdout);
    if (create && !target.create(&why)) return refuse(why);
    if (!writeLayout(target.fd(), layout, target.allZero(), std::time(nullptr), &why)) {
        target.removeCreated();
        return refuse(path + ": " + why);
    }
    return 0;
}

}  // namespace vorn::fatfs
