// The bytes of a fresh FAT file system and their writing. A format writes the metadata area
// only: the reserved sectors (boot sector; for FAT32 also the FSInfo sector and the backup
// copies of both), every FAT, the root directory (FAT32: its first cluster). The data area is
// left as it is. Everything in the metadata area is zero except a few pieces:
//
//   boot sector    jump, OEM name "mkfs.fat", BIOS parameter block, extended boot record,
//                  a boot stub that says the disk cannot boot, signature 0x55 0xAA at 510
//   FSInfo         FAT32: signatures, free cluster count, next free cluster
//   backups        FAT32: boot sector and FSInfo again at the backup boot sector
//   FAT heads      entry 0 (the media byte), entry 1 (end of chain); FAT32: entry 2, the root
//                  directory's cluster, end of chain
//   label entry    the volume label, when there is one, first in the root directory
//
// All multi-byte fields are little-endian.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "fatfs/layout.h"

namespace vorn::fatfs {

// Bytes that differ from zero, at a byte offset of the device.
struct Piece {
    uint64_t offset = 0;
    std::vector<uint8_t> bytes;
};

// The pieces of the metadata area of `l`, by offset; `now` stamps the label entry.
std::vector<Piece> metadataPieces(const Layout& l, std::time_t now);

// Writes the metadata area of `l` to fd and flushes it to the disk: the whole area, zeros and
// pieces, in writes of up to 4 MiB; or, when the device is known to be all zero (a file just
// created), the pieces alone. False with the reason in *err.
bool writeLayout(int fd, const Layout& l, bool allZero, std::time_t now, std::string* err);

}  // namespace vorn::fatfs
