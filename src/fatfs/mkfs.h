// vorn-mkfs: writes a FAT12, FAT16 or FAT32 file system on a device or file, with the options
// and the defaults of mkfs.fat:
//
//   vorn-mkfs [OPTIONS] DEVICE [BLOCK-COUNT]
//
// A bad option, a device that cannot be used or a layout that does not fit gives one line on
// the standard error and exit status 1, and nothing is written (with -C, no file is made).
#pragma once

namespace vorn::fatfs {

// The whole program; returns its exit status.
int mkfsMain(int argc, char** argv);

}  // namespace vorn::fatfs
