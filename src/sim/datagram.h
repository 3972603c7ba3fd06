// The datagram sockets the simulator keeps in run directories besides the host IPC's queues
// (the inter-chassis link's, the cables'): one bound at a path that others send to, one
// unbound to send from, and how their bytes and counts read for the operator.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace vorn::sim {

// A datagram socket bound at a path, unlinked when closed.
class BoundSocket {
public:
    // Datagrams read in one go before the loop serves the others again.
    static constexpr int kBatch = 32;

    explicit BoundSocket(std::string path) : path_(std::move(path)) {}
    ~BoundSocket() { close(); }
    BoundSocket(const BoundSocket&) = delete;
    BoundSocket& operator=(const BoundSocket&) = delete;

    // Binds, removing a stale socket file first. False, with the reason in *err, when a live
    // process reads there or the path cannot be bound.
    bool open(std::string* err);
    void close();
    int fd() const { return fd_; }
    const std::string& path() const { return path_; }
    // Reads what waits, at most kBatch datagrams, each into buf; onDatagram gets each one's
    // real length, which is larger than buf when the datagram did not fit (its tail is lost).
    void drain(std::span<uint8_t> buf, const std::function<void(size_t len)>& onDatagram) const;

private:
    std::string path_;
    int fd_ = -1;
};

// An unbound datagram socket that sends to socket paths without waiting.
class SendSocket {
public:
    SendSocket() = default;
    ~SendSocket() { close(); }
    SendSocket(const SendSocket&) = delete;
    SendSocket& operator=(const SendSocket&) = delete;

    bool open(std::string* err);
    void close();
    // Sends one datagram to path; false, with why ("nothing is bound at ...", "... is full"),
    // when it did not go.
    bool sendTo(const std::string& path, std::span<const uint8_t> dgram, std::string* why) const;

private:
    int fd_ = -1;
};

// "05 00 03 ec"
std::string hexBytes(std::span<const uint8_t> bytes);
// "1 PDU", "2 PDUs"
std::string countOf(uint64_t n, const char* what);

}  // namespace vorn::sim
