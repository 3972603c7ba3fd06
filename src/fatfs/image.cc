#include "fatfs/image.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace vorn::fatfs {
namespace {

constexpr size_t kSignature = 510;         // 0x55 0xAA, in the boot sector and FSInfo
constexpr size_t kFat16Ebr = 36;           // extended boot record after the BPB of FAT12 and FAT16
constexpr size_t kFat32Ebr = 64;           // ... and after FAT32's longer one
constexpr size_t kBootCode = 26;           // the boot code, from the extended boot record
constexpr uint16_t kLoadAddress = 0x7C00;  // where the BIOS puts the boot sector
constexpr uint32_t kRootCluster = 2;
constexpr uint64_t kWriteChunk = 4 << 20;
constexpr uint8_t kAttrVolumeId = 0x08;

// FSInfo
constexpr size_t kFsInfoStructSig = 484;
constexpr size_t kFsInfoFree = 488;
constexpr size_t kFsInfoNextFree = 492;
constexpr size_t kFsInfoTrailSig = 508;

// What the boot stub prints.
constexpr char kMessage[] =
    "This is not a bootable disk.  Please insert a bootable floppy and\r\n"
    "press any key to try again ... \r\n";

// Little-endian fields written into a buffer; a field that would pass the end is not written.
class Le {
public:
    explicit Le(std::vector<uint8_t>& b) : b_(b) {}
    void put(size_t off, uint64_t v, size_t n) {
        if (off > b_.size() || n > b_.size() - off) return;
        for (size_t i = 0; i < n; ++i) b_[off + i] = static_cast<uint8_t>(v >> (8 * i));
    }
    void u8(size_t off, uint32_t v) { put(off, v, 1); }
    void u16(size_t off, uint32_t v) { put(off, v, 2); }
    void u32(size_t off, uint32_t v) { put(off, v, 4); }
    void text(size_t off, const char* s, size_t n) {
        if (off > b_.size() || n > b_.size() - off) return;
        std::memcpy(b_.data() + off, s, n);
    }

private:
    std::vector<uint8_t>& b_;
};

// The boot code of a disk that cannot boot: prints the text at `message` (an address in the
// loaded boot sector) through the BIOS's teletype call, waits for a key, asks the BIOS to boot
// again.
std::array<uint8_t, 29> bootStub(uint16_t message) {
    const auto lo = static_cast<uint8_t>(message & 0xFF);
    const auto hi = static_cast<uint8_t>(message >> 8);
    return {
        0x0E,              //        push cs
        0x1F,              //        pop ds
        0xBE, lo,   hi,    //        mov si, message
        0xAC,              // next:  lodsb
        0x22, 0xC0,        //        and al, al
        0x74, 0x0B,        //        jz key
        0x56,              //        push si
        0xB4, 0x0E,        //        mov ah, 0x0E      teletype output
        0xBB, 0x07, 0x00,  //        mov bx, 0x0007    page 0, light grey
        0xCD, 0x10,        //        int 0x10
        0x5E,              //        pop si
        0xEB, 0xF0,        //        jmp next
        0x32, 0xE4,        // key:   xor ah, ah
        0xCD, 0x16,        //        int 0x16          wait for a key
        0xCD, 0x19,        //        int 0x19          boot again
        0xEB, 0xFE,        //        jmp $
    };
}

std::vector<uint8_t> bootSector(const Layout& l) {
    std::vector<uint8_t> s(l.sectorSize, 0);
    Le w(s);
    const bool fat32 = l.type == FatType::Fat32;
    const size_t ebr = fat32 ? kFat32Ebr : kFat16Ebr;
    const size_t code = ebr + kBootCode;
    w.u8(0, 0xEB);  // jmp short code; nop
    w.u8(1, static_cast<uint32_t>(code - 2));
    w.u8(2, 0x90);
    w.text(3, "mkfs.fat", 8);
    w.u16(11, l.sectorSize);
    w.u8(13, l.sectorsPerCluster);
    w.u16(14, l.reservedSectors);
    w.u8(16, l.fats);
    w.u16(17, l.rootEntries);
    w.u16(19, l.totalSectors < 0x10000 ? l.totalSectors : 0);
    w.u8(21, l.media);
    w.u16(22, fat32 ? 0 : l.fatSectors);
    w.u16(24, l.sectorsPerTrack);
    w.u16(26, l.heads);
    w.u32(28, l.hiddenSectors);
    w.u32(32, l.totalSectors < 0x10000 ? 0 : l.totalSectors);
    if (fat32) {
        w.u32(36, l.fatSectors);
        w.u16(40, 0);  // flags: every FAT is kept up to date
        w.u16(42, 0);  // version 0.0
        w.u32(44, kRootCluster);
        w.u16(48, l.fsInfoSector);
        w.u16(50, l.backupBootSector);
    }
    w.u8(ebr, l.drive);
    w.u8(ebr + 2, 0x29);  // the volume id, label and type follow
    w.u32(ebr + 3, l.volumeId);
    w.text(ebr + 7, l.label.data(), l.label.size());
    const char* type = l.type == FatType::Fat12 ? "FAT12   " : fat32 ? "FAT32   " : "FAT16   ";
    w.text(ebr + 18, type, 8);
    const auto stub = bootStub(static_cast<uint16_t>(kLoadAddress + code + 29));
    std::copy(stub.begin(), stub.end(), s.begin() + static_cast<std::ptrdiff_t>(code));
    w.text(code + stub.size(), kMessage, sizeof(kMessage));
    w.u16(kSignature, 0xAA55);
    return s;
}

std::vector<uint8_t> fsInfoSector(const Layout& l) {
    std::vector<uint8_t> s(l.sectorSize, 0);
    Le w(s);
    w.u32(0, 0x41615252);                 // "RRaA"
    w.u32(kFsInfoStructSig, 0x61417272);  // "rrAa"
    w.u32(kFsInfoFree, l.clusters - 1);   // all but the root directory's
    w.u32(kFsInfoNextFree, kRootCluster);
    w.u32(kFsInfoTrailSig, 0xAA550000);
    return s;
}

// Entries 0 and 1 of a FAT; FAT32 also entry 2, the root directory's single cluster.
std::vector<uint8_t> fatHead(const Layout& l) {
    std::vector<uint8_t> s;
    Le w(s);
    switch (l.type) {
        case FatType::Fat12:
            s.resize(3);
            w.put(0, 0xFFF000u | 0xF00u | l.media, 3);
            break;
        case FatType::Fat16:
            s.resize(4);
            w.u16(0, 0xFF00u | l.media);
            w.u16(2, 0xFFFF);
            break;
        case FatType::Fat32:
            s.resize(12);
            w.u32(0, 0x0FFFFF00u | l.media);
            w.u32(4, 0x0FFFFFFF);
            w.u32(8, 0x0FFFFFF8);
            break;
    }
    return s;
}

// The directory entry of the volume label, stamped with `now` in local time.
std::vector<uint8_t> labelEntry(const Layout& l, std::time_t now) {
    std::vector<uint8_t> e(32, 0);
    Le w(e);
    w.text(0, l.label.data(), l.label.size());
    w.u8(11, kAttrVolumeId);
    std::tm tm{};
    localtime_r(&now, &tm);
    const int year = std::clamp(tm.tm_year + 1900, 1980, 2107);
    const uint32_t time = (static_cast<uint32_t>(tm.tm_hour) << 11) |
                          (static_cast<uint32_t>(tm.tm_min) << 5) |
                          static_cast<uint32_t>(tm.tm_sec / 2);
    const uint32_t date = (static_cast<uint32_t>(year - 1980) << 9) |
                          (static_cast<uint32_t>(tm.tm_mon + 1) << 5) |
                          static_cast<uint32_t>(tm.tm_mday);
    w.u16(14, time);  // created
    w.u16(16, date);
    w.u16(18, date);  // last access
    w.u16(22, time);  // written
    w.u16(24, date);
    return e;
}

bool pwriteAll(int fd, const uint8_t* p, size_t n, uint64_t off, std::string* err) {
    while (n > 0) {
        ssize_t k = ::pwrite(fd, p, n, static_cast<off_t>(off));
        if (k < 0 && errno == EINTR) continue;
        if (k <= 0) {
            *err = std::string("write at byte ") + std::to_string(off) +
                   " failed: " + (k < 0 ? std::strerror(errno) : "nothing written");
            return false;
        }
        p += k;
        n -= static_cast<size_t>(k);
        off += static_cast<uint64_t>(k);
    }
    return true;
}

}  // namespace

std::vector<Piece> metadataPieces(const Layout& l, std::time_t now) {
    const uint64_t bps = l.sectorSize;
    std::vector<Piece> pieces;
    pieces.push_back({0, bootSector(l)});
    if (l.type == FatType::Fat32) {
        pieces.push_back({l.fsInfoSector * bps, fsInfoSector(l)});
        if (l.backupBootSector != 0) {
            pieces.push_back({l.backupBootSector * bps, pieces[0].bytes});
            if (l.backupBootSector + 1u < l.reservedSectors)
                pieces.push_back({(l.backupBootSector + 1u) * bps, pieces[1].bytes});
        }
    }
    const std::vector<uint8_t> head = fatHead(l);
    for (uint32_t i = 0; i < l.fats; ++i)
        pieces.push_back({(l.reservedSectors + uint64_t{i} * l.fatSectors) * bps, head});
    if (l.hasLabelEntry()) {
        const uint64_t root = l.type == FatType::Fat32 ? l.dataSector() : l.rootDirSector();
        pieces.push_back({root * bps, labelEntry(l, now)});
    }
    return pieces;
}

bool writeLayout(int fd, const Layout& l, bool allZero, std::time_t now, std::string* err) {
    const std::vector<Piece> pieces = metadataPieces(l, now);
    if (allZero) {
        for (const Piece& p : pieces)
            if (!pwriteAll(fd, p.bytes.data(), p.bytes.size(), p.offset, err)) return false;
    } else {
        const uint64_t end = uint64_t{l.metadataSectors()} * l.sectorSize;
        std::vector<uint8_t> buf(std::min(end, kWriteChunk));
        for (uint64_t at = 0; at < end;) {
            const uint64_t n = std::min<uint64_t>(buf.size(), end - at);
            std::fill(buf.begin(), buf.end(), 0);
            for (const Piece& p : pieces) {
                const uint64_t from = std::max(at, p.offset);
                const uint64_t to = std::min(at + n, p.offset + p.bytes.size());
                if (from < to)
                    std::memcpy(buf.data() + (from - at), p.bytes.data() + (from - p.offset),
                                to - from);
            }
            if (!pwriteAll(fd, buf.data(), n, at, err)) return false;
            at += n;
        }
    }
    if (::fsync(fd) != 0) {
        *err = std::string("flush to the disk failed: ") + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace vorn::fatfs
