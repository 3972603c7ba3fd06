#include "fatfs/target.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vorn::fatfs {
namespace {

constexpr uint64_t kBlock = 1024;

std::string failed(const std::string& what, const std::string& path) {
    return what + " " + path + ": " + std::strerror(errno);
}

// A block device is a partition when sysfs gives it a partition number.
bool isPartition(dev_t rdev) {
    std::string p = "/sys/dev/block/" + std::to_string(major(rdev)) + ":" +
                    std::to_string(minor(rdev)) + "/partition";
    return ::access(p.c_str(), F_OK) == 0;
}

}  // namespace

Target::~Target() {
    if (fd_ >= 0) ::close(fd_);
}

bool Target::open(const std::string& path, uint64_t blocks, bool wholeDisk, std::string* err) {
    path_ = path;
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
        *err = failed("cannot open", path) + (errno == ENOENT ? " (-C creates a file)" : "");
        return false;
    }
    const bool block = S_ISBLK(st.st_mode);
    if (!block && !S_ISREG(st.st_mode)) {
        *err = path + " is neither a block device nor a file";
        return false;
    }
    if (block && !wholeDisk && !isPartition(st.st_rdev)) {
        *err = path + " is a whole disk, not a partition (-I formats it whole)";
        return false;
    }
    // O_EXCL on a block device: refused while it is mounted or otherwise in use.
    fd_ = ::open(path.c_str(), O_RDWR | O_CLOEXEC | (block ? O_EXCL : 0));
    if (fd_ < 0) {
        *err = failed("cannot open", path);
        return false;
    }
    uint64_t bytes = static_cast<uint64_t>(st.st_size);
    if (block) {
        int sector = 0;
        hd_geometry geo{};
        if (::ioctl(fd_, BLKGETSIZE64, &bytes) != 0) {
            *err = failed("cannot read the size of", path);
            return false;
        }
        if (::ioctl(fd_, BLKSSZGET, &sector) == 0 && sector > 0)
            dev_.sectorSize = static_cast<uint32_t>(sector);
        if (::ioctl(fd_, HDIO_GETGEO, &geo) == 0) {
            dev_.heads = geo.heads;
            dev_.sectorsPerTrack = geo.sectors;
            dev_.hiddenSectors = static_cast<uint32_t>(geo.start);
        }
    }
    if (blocks != 0) {
        if (blocks > bytes / kBlock) {
            *err = path + " holds " + std::to_string(bytes / kBlock) +
                   " blocks of 1024 bytes, not " + std::to_string(blocks);
            return false;
        }
        bytes = blocks * kBlock;
    }
    dev_.bytes = bytes;
    return true;
}

bool Target::toCreate(const std::string& path, uint64_t blocks, std::string* err) {
    path_ = path;
    struct stat st {};
    if (::lstat(path.c_str(), &st) == 0) {
        *err = path + " exists: -C makes a new file";
        return false;
    }
    dev_.bytes = blocks * kBlock;
    return true;
}

bool Target::create(std::string* err) {
    fd_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd_ < 0) {
        *err = failed("cannot create", path_);
        return false;
    }
    created_ = true;
    if (::ftruncate(fd_, static_cast<off_t>(dev_.bytes)) != 0) {
        *err = failed("cannot size", path_);
        removeCreated();
        return false;
    }
    return true;
}

void Target::removeCreated() {
    if (!created_) return;
    ::unlink(path_.c_str());
    ::close(fd_);
    fd_ = -1;
    created_ = false;
}

}  // namespace vorn::fatfs
