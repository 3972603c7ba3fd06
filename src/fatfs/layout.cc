#include "fatfs/layout.h"

#include <algorithm>
#include <cstdio>
#include <limits>
#include <vector>

namespace vorn::fatfs {
namespace {

constexpr uint64_t kFat32FromBytes = uint64_t{512} << 20;  // the smallest default FAT32 disk
constexpr uint64_t kAlignAbove = 8192;                     // sectors; smaller disks are packed
constexpr uint64_t kMinDataBytes = 32 * 1024;              // a smaller data area is refused
constexpr uint32_t kMaxSectorsPerCluster = 128;
constexpr uint32_t kFat32Reserved = 32;
constexpr uint32_t kDefaultRootEntries = 512;
constexpr uint32_t kDirEntry = 32;

// The standard PC floppies, by size.
struct Floppy {
    uint64_t kib;
    uint8_t media;
    uint16_t sectorsPerTrack;
    uint16_t heads;
    uint32_t sectorsPerCluster;
    uint32_t rootEntries;
};
constexpr Floppy kFloppies[] = {
    {360, 0xFD, 9, 2, 2, 112},   {720, 0xF9, 9, 2, 2, 112},   {1200, 0xF9, 15, 2, 1, 224},
    {1440, 0xF0, 18, 2, 1, 224}, {2880, 0xF0, 36, 2, 2, 224},
};

// The geometry given to a disk that tells none, by its sector count: tracks of 16 or 32
// sectors up to 512 MiB, then 63-sector tracks with the heads doubled whenever the disk would
// pass 1024 cylinders.
struct Geometry {
    uint64_t upToSectors;
    uint16_t sectorsPerTrack;
    uint16_t heads;
};
constexpr Geometry kGeometries[] = {
    {4096, 16, 2},
    {32768, 32, 2},
    {65536, 32, 4},
    {262144, 32, 8},
    {524288, 32, 16},
    {1024 * 16 * 63, 63, 16},
    {1024 * 32 * 63, 63, 32},
    {1024 * 64 * 63, 63, 64},
    {1024 * 128 * 63, 63, 128},
};
constexpr Geometry kLargest = {0, 63, 255};

// Microsoft's table of FAT32 cluster sizes, by sector count.
struct ClusterSize {
    uint64_t upToSectors;
    uint32_t sectorsPerCluster;
};
constexpr ClusterSize kFat32Clusters[] = {
    {532480, 1}, {16777216, 8}, {33554432, 16}, {67108864, 32}};
constexpr uint32_t kFat32LargestCluster = 64;

// The legal cluster counts of each type. FAT12 stops below 4085 and FAT16 below 65525, as the
// FAT format documents it; FAT16 starts at 4087, not 4085, because Microsoft's older documents
// put the FAT12 limit there and a FAT16 volume must be read as FAT16 by both rules.
struct Range {
    uint64_t min;
    uint64_t max;
};
Range clusterRange(FatType t) {
    switch (t) {
        case FatType::Fat12:
            return {1, 4084};
        case FatType::Fat16:
            return {4087, 65524};
        case FatType::Fat32:
            return {65525, 0x0FFFFFF5};
    }
    return {0, 0};
}

uint64_t roundUp(uint64_t v, uint64_t to) {
    return (v + to - 1) / to * to;
}

const Floppy* floppyOf(uint64_t bytes) {
    for (const Floppy& f : kFloppies)
        if (f.kib * 1024 == bytes) return &f;
    return nullptr;
}

Geometry geometryOf(uint64_t sectors) {
    for (const Geometry& g : kGeometries)
        if (sectors <= g.upToSectors) return g;
    return kLargest;
}

uint32_t fat32ClusterOf(uint64_t sectors) {
    for (const ClusterSize& c : kFat32Clusters)
        if (sectors <= c.upToSectors) return c.sectorsPerCluster;
    return kFat32LargestCluster;
}

// Where a FAT32 volume keeps the copy of its boot sector: sector 6, or as far in as the
// reserved sectors allow, behind the FSInfo sector; none with only two reserved sectors.
uint16_t backupSectorOf(uint32_t reserved) {
    if (reserved >= 7) return 6;
    if (reserved >= 3) return static_cast<uint16_t>(std::max<uint32_t>(2, reserved - 2));
    return 0;
}

// One try: the layout of one FAT type at one cluster size.
struct Trial {
    bool fits = false;  // every field within its width and the overhead within the disk
    std::string why;    // when !fits
    uint64_t clusters = 0;
};

// Fills in l's reserved sectors, root directory, FAT size and cluster count for l->type and
// l->sectorsPerCluster on l->totalSectors.
Trial fill(Layout* l, const Request& req, uint32_t defaultRoot, bool align) {
    Trial t;
    const uint64_t spc = l->sectorsPerCluster;
    const uint64_t bps = l->sectorSize;
    const bool fat32 = l->type == FatType::Fat32;
    uint64_t reserved = req.reservedSectors ? req.reservedSectors : (fat32 ? kFat32Reserved : 1);
    uint64_t rootEntries = fat32 ? 0 : req.rootEntries ? req.rootEntries : defaultRoot;
    uint64_t rootSectors = (rootEntries * kDirEntry + bps - 1) / bps;
    if (align) {
        // The root directory fills its clusters.
        reserved = roundUp(reserved, spc);
        rootSectors = roundUp(rootSectors, spc);
        rootEntries = rootSectors * bps / kDirEntry;
    }
    if (reserved > 0xFFFF) {
        t.why = std::to_string(reserved) + " reserved sectors pass the limit of 65535";
        return t;
    }
    if (rootEntries > 0xFFFF) {
        t.why = "a root directory of " + std::to_string(rootEntries) +
                " entries passes the limit of 65535";
        return t;
    }
    const uint64_t total = l->totalSectors;
    if (total <= reserved + rootSectors) {
        t.why = "the disk is too small: " + std::to_string(total) +
                " sectors leave no room after the reserved sectors and the root directory";
        return t;
    }
    // The FAT size follows from an estimate of the clusters it must map; the clusters are then
    // what is left after the FATs, no more than the FAT can map.
    const uint64_t bits = static_cast<uint64_t>(l->type);
    const uint64_t avail = total - reserved - rootSectors;
    const uint64_t estimate = avail * bps * 8 / (spc * bps * 8 + l->fats * bits);
    uint64_t fatSectors = ((estimate + 2) * bits + bps * 8 - 1) / (bps * 8);
    if (align) fatSectors = roundUp(fatSectors, spc);
    if (!fat32 && fatSectors > 0xFFFF) {
        t.why = "a FAT of " + std::to_string(fatSectors) + " sectors passes the limit of 65535";
        return t;
    }
    const uint64_t fatsTotal = l->fats * fatSectors;
    uint64_t clusters = avail > fatsTotal ? (avail - fatsTotal) / spc : 0;
    clusters = std::min(clusters, fatSectors * bps * 8 / bits - 2);
    l->reservedSectors = static_cast<uint32_t>(reserved);
    l->rootEntries = static_cast<uint32_t>(rootEntries);
    l->fatSectors = static_cast<uint32_t>(fatSectors);
    l->clusters = static_cast<uint32_t>(std::min<uint64_t>(clusters, 0xFFFFFFFF));
    t.fits = true;
    t.clusters = clusters;
    return t;
}

std::string typeName(FatType t) {
    return "FAT" + std::to_string(static_cast<int>(t));
}

}  // namespace

bool plan(const Device& dev, const Request& req, Layout* out, std::string* err) {
    Layout l;
    l.sectorSize = req.sectorSize ? req.sectorSize : std::max<uint32_t>(512, dev.sectorSize);
    if (l.sectorSize < dev.sectorSize) {
        *err = "sector size " + std::to_string(l.sectorSize) + " is below the device's " +
               std::to_string(dev.sectorSize);
        return false;
    }
    l.fats = req.fats;
    l.volumeId = req.volumeId;
    if (req.label != std::array<char, 11>{}) l.label = req.label;
    l.hiddenSectors = dev.hiddenSectors;

    const uint64_t raw = dev.bytes / l.sectorSize;
    const Floppy* floppy = floppyOf(dev.bytes);
    Geometry g = geometryOf(raw);
    if (floppy != nullptr) {
        g = {0, floppy->sectorsPerTrack, floppy->heads};
        l.media = floppy->media;
        l.drive = 0x00;
    } else if (dev.heads != 0 && dev.sectorsPerTrack != 0 && dev.heads <= 0xFFFF &&
               dev.sectorsPerTrack <= 0xFFFF) {
        g = {0, static_cast<uint16_t>(dev.sectorsPerTrack), static_cast<uint16_t>(dev.heads)};
    }
    l.heads = g.heads;
    l.sectorsPerTrack = g.sectorsPerTrack;
    const uint64_t total = raw - raw % g.sectorsPerTrack;
    if (total > 0xFFFFFFFF) {
        *err = "the disk is too large: " + std::to_string(total) +
               " sectors, a FAT file system counts at most 4294967295";
        return false;
    }
    if (total == 0) {
        *err = "the disk is too small: " + std::to_string(dev.bytes) + " bytes";
        return false;
    }
    l.totalSectors = static_cast<uint32_t>(total);
    const bool align = total > kAlignAbove;

    std::vector<FatType> types;
    if (req.fatType != 0)
        types = {static_cast<FatType>(req.fatType)};
    else if (floppy == nullptr && raw * l.sectorSize >= kFat32FromBytes)
        types = {FatType::Fat32};
    else
        types = {FatType::Fat12, FatType::Fat16};
    if (types.front() == FatType::Fat32 && req.reservedSectors == 1) {
        *err = "FAT32 needs at least 2 reserved sectors";
        return false;
    }

    uint32_t spc = req.sectorsPerCluster;
    if (spc == 0) {
        if (floppy != nullptr)
            spc = floppy->sectorsPerCluster;
        else if (types.front() == FatType::Fat32)
            spc = fat32ClusterOf(raw);
        else
            spc = 4;
    }
    const uint32_t defaultRoot = floppy != nullptr ? floppy->rootEntries : kDefaultRootEntries;
    for (;;) {
        bool tooMany = false;
        std::string why;
        for (FatType type : types) {
            Layout trial = l;
            trial.type = type;
            trial.sectorsPerCluster = spc;
            Trial t = fill(&trial, req, defaultRoot, align);
            if (!t.fits) {
                why = t.why;
                continue;
            }
            Range r = clusterRange(type);
            if (t.clusters >= r.min && t.clusters <= r.max) {
                l = trial;
                why.clear();
                break;
            }
            tooMany = tooMany || t.clusters > r.max;
            why = std::to_string(t.clusters) + " clusters of " + std::to_string(spc) +
                  (spc == 1 ? " sector" : " sectors") + " do not fit " + typeName(type) + " (" +
                  std::to_string(r.min) + ".." + std::to_string(r.max) + ")";
        }
        if (why.empty()) break;
        if (!tooMany || req.sectorsPerCluster != 0 || spc >= kMaxSectorsPerCluster) {
            *err = why;
            return false;
        }
        spc *= 2;
    }

    // The data area must hold at least 32 KiB of the disk as it was before it was cut to
    // whole tracks.
    const uint64_t overhead = l.dataSector();
    if (raw < overhead || (raw - overhead) * l.sectorSize < kMinDataBytes) {
        *err = "the disk is too small: " + std::to_string(dev.bytes / 1024) +
               " KiB leave less than 32 KiB for data";
        return false;
    }
    if (l.type == FatType::Fat32) {
        l.fsInfoSector = 1;
        l.backupBootSector = backupSectorOf(l.reservedSectors);
    }
    *out = l;
    return true;
}

std::string describe(const Layout& l) {
    char buf[512];
    std::snprintf(buf, sizeof(buf),
                  "%s, %u sectors of %u bytes (%u heads, %u sectors per track, %u hidden)\n"
                  "media 0x%02x, drive 0x%02x, volume id %08x\n"
                  "%u reserved sectors, %u FATs of %u sectors, %u root directory entries\n"
                  "%u clusters of %u sectors, data from sector %u\n",
                  typeName(l.type).c_str(), l.totalSectors, l.sectorSize, l.heads,
                  l.sectorsPerTrack, l.hiddenSectors, l.media, l.drive, l.volumeId,
                  l.reservedSectors, l.fats, l.fatSectors, l.rootEntries, l.clusters,
                  l.sectorsPerCluster, l.dataSector());
    return buf;
}

}  // namespace vorn::fatfs
