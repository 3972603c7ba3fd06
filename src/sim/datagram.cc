#include "sim/datagram.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/ipc.h"

namespace vorn::sim {
namespace {

bool makeAddr(const std::string& path, sockaddr_un* addr) {
    std::memset(addr, 0, sizeof(*addr));
    addr->sun_family = AF_UNIX;
    if (path.size() >= sizeof(addr->sun_path)) return false;
    std::memcpy(addr->sun_path, path.c_str(), path.size() + 1);
    return true;
}

int datagramSocket() {
    return socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

}  // namespace

bool BoundSocket::open(std::string* err) {
    if (fd_ >= 0) return true;
    sockaddr_un addr;
    if (!makeAddr(path_, &addr)) {
        *err = "the socket path " + path_ + " is too long";
        return false;
    }
    if (host::endpointAlive(path_)) {
        *err = "another process reads " + path_;
        return false;
    }
    ::unlink(path_.c_str());  // a stale socket file of an earlier run
    int fd = datagramSocket();
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        *err = "cannot bind " + path_ + ": " + std::strerror(errno);
        if (fd >= 0) ::close(fd);
        return false;
    }
    fd_ = fd;
    return true;
}

void BoundSocket::close() {
    if (fd_ < 0) return;
    ::close(fd_);
    ::unlink(path_.c_str());
    fd_ = -1;
}

void BoundSocket::drain(std::span<uint8_t> buf,
                        const std::function<void(size_t len)>& onDatagram) const {
    for (int i = 0; i < kBatch && fd_ >= 0; ++i) {
        // MSG_TRUNC: the datagram's real length, to find one too long for the buffer.
        ssize_t n = recv(fd_, buf.data(), buf.size(), MSG_TRUNC);
        if (n < 0) return;
        onDatagram(static_cast<size_t>(n));
    }
}

bool SendSocket::open(std::string* err) {
    if (fd_ >= 0) return true;
    fd_ = datagramSocket();
    if (fd_ >= 0) return true;
    *err = std::string("no socket to send datagrams from: ") + std::strerror(errno);
    return false;
}

void SendSocket::close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

bool SendSocket::sendTo(const std::string& path, std::span<const uint8_t> dgram,
                        std::string* why) const {
    sockaddr_un addr;
    if (fd_ < 0 || !makeAddr(path, &addr)) {
        *why = fd_ < 0 ? "the socket is closed" : "the socket path " + path + " is too long";
        return false;
    }
    if (sendto(fd_, dgram.data(), dgram.size(), 0, reinterpret_cast<sockaddr*>(&addr),
               sizeof(addr)) == static_cast<ssize_t>(dgram.size()))
        return true;
    if (errno == ENOENT || errno == ECONNREFUSED)
        *why = "nothing is bound at " + path;
    else if (errno == EAGAIN || errno == EWOULDBLOCK)
        *why = "the socket at " + path + " is full";
    else
        *why = "cannot send to " + path + ": " + std::strerror(errno);
    return false;
}

std::string hexBytes(std::span<const uint8_t> bytes) {
    std::string s;
    char byte[4];
    for (uint8_t b : bytes) {
        std::snprintf(byte, sizeof(byte), "%02x", b);
        s += (s.empty() ? "" : " ") + std::string(byte);
    }
    return s;
}

std::string countOf(uint64_t n, const char* what) {
    return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

}  // namespace vorn::sim
