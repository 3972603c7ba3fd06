// vorn-mkfs: writes a FAT file system on a device or file.

#include "fatfs/mkfs.h"

int main(int argc, char** argv) {
    return vorn::fatfs::mkfsMain(argc, argv);
}
