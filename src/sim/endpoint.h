// One service instance of the simulated chassis: its request, timer and reply queues in the
// run directory, opened and closed as a unit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/codec.h"
#include "platform/ipc.h"

namespace vorn::sim {

class Endpoint {
public:
    Endpoint(int service, int instance) : service_(service), instance_(instance) {}
    ~Endpoint() { close(); }
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    // Opens the queues. False, with the reason in *err, when they cannot be made (another
    // live process holds them, or the run directory is unusable).
    bool open(std::string* err);
    // Closes the queues and unlinks their sockets; nothing happens when already closed.
    void close();
    bool isOpen() const { return key_ >= 0; }

    int service() const { return service_; }
    int instance() const { return instance_; }
    QelKey key() const { return key_; }
    int requestFd() const;  // -1 while closed
    int timerFd() const;    // -1 while closed
    uint32_t requestQueueId() const;
    std::string name() const;  // "166.0"

    // Reads one waiting message from the request (or timer) queue into buf, which must hold
    // ipc::kMaxMsgLen bytes. Returns its length, or -1 when nothing valid was waiting.
    int receive(std::vector<uint8_t>& buf) const { return receiveFrom(requestFd(), buf); }
    int receiveTimer(std::vector<uint8_t>& buf) const { return receiveFrom(timerFd(), buf); }
    // Answers the last message read from the request queue: sends len bytes of msg back to
    // its source with the reply flag set.
    bool reply(uint8_t* msg, size_t len) const;
    // Originates a message from the request queue to the queue named by its target.svce.
    bool send(uint8_t* msg, size_t len) const;

private:
    static int receiveFrom(int fd, std::vector<uint8_t>& buf);
    int service_;
    int instance_;
    QelKey key_ = -1;
};

// Fills the IPC header of a message this chassis originates: length, type, source (the
// request queue of srcService.srcInstance) and target (a request queue id). Words the host
// library owns (magic, flags, pid) are left to the send.
void writeOrigin(be::Writer& w, uint32_t mtype, uint32_t len, int srcService, int srcInstance,
                 uint32_t targetQueueId);

// Reads the common header words of a received message.
struct MsgHeader {
    uint32_t mlen = 0;
    uint32_t mtype = 0;
    uint32_t srcQueue = 0;  // source.svce
};
MsgHeader readHeader(const uint8_t* msg, size_t len);

}  // namespace vorn::sim
