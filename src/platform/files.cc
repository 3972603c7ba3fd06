#include "platform/files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace vorn::host {
namespace {

std::string why(const std::string& what, const std::string& path) {
    return what + " " + path + ": " + std::strerror(errno);
}

std::string dirOf(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

bool checkRunDir(const std::string& dir, std::string* err) {
    struct stat st {};
    if (lstat(dir.c_str(), &st) != 0) {
        if (errno != ENOENT || mkdir(dir.c_str(), 0700) != 0) {
            *err = why("cannot create run directory", dir);
            return false;
        }
        if (lstat(dir.c_str(), &st) != 0) {
            *err = why("cannot use run directory", dir);
            return false;
        }
    }
    if (S_ISLNK(st.st_mode)) {
        *err = "run directory " + dir + " is a symbolic link; refusing to use it";
        return false;
    }
    if (!S_ISDIR(st.st_mode)) {
        *err = "run directory " + dir + " exists and is not a directory";
        return false;
    }
    if (st.st_uid != geteuid()) {
        *err = "run directory " + dir + " belongs to user " + std::to_string(st.st_uid) +
               ", not to this user (" + std::to_string(geteuid()) + "); refusing to use it";
        return false;
    }
    if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        *err = "run directory " + dir + " is writable by other users; refusing to use it";
        return false;
    }
    return true;
}

bool writeFileAtomic(const std::string& path, std::string_view content, std::string* err,
                     FileSync sync) {
    const bool toDisk = sync == FileSync::kToDisk;
    std::string dir = dirOf(path);
    std::string tmp = path + ".tmp." + std::to_string(getpid());
    // A stale temporary file of an earlier process with our pid goes first.
    unlink(tmp.c_str());
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | kRunDirOpenFlags, 0600);
    if (fd < 0) {
        *err = why("cannot create", tmp);
        return false;
    }
    size_t done = 0;
    bool ok = true;
    while (ok && done < content.size()) {
        ssize_t n = write(fd, content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR) continue;
        ok = n > 0;
        if (ok) done += static_cast<size_t>(n);
    }
    ok = ok && (!toDisk || fdatasync(fd) == 0);
    int savedErrno = errno;
    ok = close(fd) == 0 && ok;
    if (ok && rename(tmp.c_str(), path.c_str()) != 0) {
        ok = false;
        savedErrno = errno;
    }
    if (!ok) {
        errno = savedErrno;
        *err = why("cannot write", path);
        unlink(tmp.c_str());
        return false;
    }
    if (!toDisk) return true;
    // The rename itself reaches the disk with the directory.
    int dfd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        fsync(dfd);
        close(dfd);
    }
    return true;
}

std::string besideUs(const std::string& program) {
    std::array<char, 4096> exe{};
    ssize_t n = readlink("/proc/self/exe", exe.data(), exe.size() - 1);
    if (n <= 0) return program;
    std::string path(exe.data(), static_cast<size_t>(n));
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? program : path.substr(0, slash + 1) + program;
}

}  // namespace vorn::host
