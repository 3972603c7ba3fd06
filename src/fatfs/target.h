// The device or file a format goes to: what it is, how large, and its descriptor. Finding out
// writes nothing; a file to create is only made once the layout is known to fit.
#pragma once

#include <cstdint>
#include <string>

#include "fatfs/layout.h"

namespace vorn::fatfs {

class Target {
public:
    Target() = default;
    ~Target();
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    // Opens an existing block device or file for writing and learns its size and, for a
    // block device, its sector size, geometry and start. `blocks` 1024-byte blocks, when not
    // 0, is the size to format (no more than there is). A block device must not be in use, and
    // must be a partition unless `wholeDisk`.
    bool open(const std::string& path, uint64_t blocks, bool wholeDisk, std::string* err);
    // Takes a file of `blocks` 1024-byte blocks that create() will make; it must not exist.
    bool toCreate(const std::string& path, uint64_t blocks, std::string* err);
    // Makes the file of toCreate(): new, mode 0666 less the umask, all zero.
    bool create(std::string* err);
    // Removes the file create() made (after a failed write).
    void removeCreated();

    int fd() const { return fd_; }
    const Device& device() const { return dev_; }
    // Every byte is zero: the file was made by create().
    bool allZero() const { return created_; }

private:
    std::string path_;
    int fd_ = -1;
    bool created_ = false;
    Device dev_;
};

}  // namespace vorn::fatfs
