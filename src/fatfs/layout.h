// The layout of a FAT file system: where the boot sector, the FATs, the root directory and the
// data area lie on a device of a given size, planned from the options of the mkfs.fat command
// line. The plan chooses what the options leave open the way Debian's mkfs.fat does, so that
// the same options and volume id give the same boot sector:
//
//   - the standard PC floppy sizes (360, 720, 1200, 1440 and 2880 KiB) get the floppy's
//     geometry, media byte, cluster size and root directory; any other size is a hard disk
//     (media 0xF8, drive 0x80) with a geometry made up from its size when the device gives none;
//   - the sector count is cut to whole tracks;
//   - without -F, a hard disk of 512 MiB or more is FAT32, a smaller one FAT12 when its
//     clusters fit FAT12, else FAT16;
//   - FAT12 and FAT16 start at 4 sectors per cluster, FAT32 takes the cluster size of
//     Microsoft's table by sector count; without -s the cluster size doubles while there are
//     too many clusters for the type;
//   - above 8192 sectors, the reserved sectors, each FAT and the root directory are whole
//     clusters, so that every cluster starts on a multiple of the cluster size.
//
// A plan is only made when everything fits: the cluster count inside the type's legal range,
// every field inside its width. Nothing here touches a device.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace vorn::fatfs {

enum class FatType : uint8_t { Fat12 = 12, Fat16 = 16, Fat32 = 32 };

// What the command line asked for; 0 leaves a number to the plan.
struct Request {
    int fatType = 0;                  // 12, 16 or 32
    uint32_t sectorsPerCluster = 0;   // a power of two 1..128
    uint32_t sectorSize = 0;          // a power of two 512..32768; 0: the device's
    uint32_t rootEntries = 0;         // FAT12 and FAT16: at least this many root entries
    uint32_t reservedSectors = 0;     // at least this many reserved sectors
    uint32_t fats = 2;                // 1..4
    std::array<char, 11> label = {};  // blank-padded; all zero: none ("NO NAME    ")
    uint32_t volumeId = 0;
};

// What is known of the target device.
struct Device {
    uint64_t bytes = 0;         // the size to format
    uint32_t sectorSize = 512;  // its logical sector size
    uint32_t heads = 0;         // its geometry, when it gives one (a block device); 0: none
    uint32_t sectorsPerTrack = 0;
    uint32_t hiddenSectors = 0;  // sectors before it on its disk (a partition's start)
};

inline constexpr std::array<char, 11> kNoLabel = {'N', 'O', ' ', 'N', 'A', 'M',
                                                  'E', ' ', ' ', ' ', ' '};

struct Layout {
    FatType type = FatType::Fat12;
    uint32_t sectorSize = 512;
    uint32_t sectorsPerCluster = 1;
    uint32_t reservedSectors = 1;
    uint32_t fats = 2;
    uint32_t rootEntries = 0;  // 0 for FAT32
    uint32_t fatSectors = 0;   // sectors of one FAT
    uint32_t totalSectors = 0;
    uint32_t clusters = 0;  // data clusters, numbered from 2
    uint8_t media = 0xF8;
    uint8_t drive = 0x80;
    uint16_t heads = 0;
    uint16_t sectorsPerTrack = 0;
    uint32_t hiddenSectors = 0;
    uint16_t fsInfoSector = 0;      // FAT32: 1
    uint16_t backupBootSector = 0;  // FAT32: 6 when the reserved sectors hold it; 0: none
    uint32_t volumeId = 0;
    std::array<char, 11> label = kNoLabel;

    uint32_t rootDirSectors() const { return (rootEntries * 32 + sectorSize - 1) / sectorSize; }
    uint32_t rootDirSector() const { return reservedSectors + fats * fatSectors; }
    uint32_t dataSector() const { return rootDirSector() + rootDirSectors(); }
    // The sectors a format writes: up to the data area, and FAT32's root directory cluster.
    uint32_t metadataSectors() const {
        return dataSector() + (type == FatType::Fat32 ? sectorsPerCluster : 0);
    }
    // A volume label entry goes into the root directory.
    bool hasLabelEntry() const { return label != kNoLabel; }
};

// Plans the layout of `dev` for `req`. False, with one sentence in *err, when no layout fits.
bool plan(const Device& dev, const Request& req, Layout* out, std::string* err);

// The layout in a few lines, for -v.
std::string describe(const Layout& l);

}  // namespace vorn::fatfs
