// Helpers of the simulator's tests: a manager stand-in (the endpoint 226.0 opened by the
// test) and a way to make a blocking call while the simulator's loop serves.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <future>
#include <string>
#include <vector>

#include "platform/codec.h"
#include "platform/ipc.h"
#include "sim/loop.h"
#include "sim/vlan_set.h"
#include "support/wire.h"

namespace vorn::test {

// Runs `call` on a thread of its own while the loop serves on this one; returns its result.
// The calls used here all give up by themselves (send-and-wait time-outs).
template <typename F>
auto whileServing(sim::EventLoop& loop, F call) {
    auto result = std::async(std::launch::async, call);
    while (result.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready)
        loop.runOnce(5);
    return result.get();
}

// Serves passes of the loop until cond holds or timeoutMs passes.
template <typename F>
bool serveUntil(sim::EventLoop& loop, F cond, int timeoutMs = 2000) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!cond()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        loop.runOnce(5);
    }
    return true;
}

// A datagram socket of the test, bound at a path the simulator sends to (the manager's link
// socket, a far end's cable socket) or not (a sender).
struct TestSocket {
    explicit TestSocket(const std::string& bindAt = "") {
        EXPECT_TRUE(bindAt.empty() || bind(fd, addr(bindAt), sizeof(sockaddr_un)) == 0) << bindAt;
    }
    ~TestSocket() { close(fd); }
    static sockaddr* addr(const std::string& path) {
        static sockaddr_un a;
        a = sockaddr_un{AF_UNIX, {}};
        std::strncpy(a.sun_path, path.c_str(), sizeof(a.sun_path) - 1);
        return reinterpret_cast<sockaddr*>(&a);
    }
    void sendTo(const std::string& path, const std::vector<uint8_t>& d) const {
        EXPECT_EQ(sendto(fd, d.data(), d.size(), 0, addr(path), sizeof(sockaddr_un)),
                  static_cast<ssize_t>(d.size()));
    }
    // Serves the loop until a datagram waits, then reads it (empty: none came).
    std::vector<uint8_t> receive(sim::EventLoop& loop) const {
        pollfd p{fd, POLLIN, 0};
        serveUntil(loop, [&] { return poll(&p, 1, 0) == 1; });
        std::vector<uint8_t> d(9000);
        d.resize(std::max<ssize_t>(recv(fd, d.data(), d.size(), MSG_DONTWAIT), 0));
        return d;
    }
    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
};

// The manager's endpoint, opened by the test.
class FakeManager {
public:
    FakeManager() : key_(qelIpcTmrOpen(ipc::kSvcManager, 0)), buf_(ipc::kMaxMsgLen) {
        EXPECT_GE(key_, 0);
    }
    ~FakeManager() { close(); }
    void close() {
        if (key_ >= 0) qelIpcClose(key_);
        key_ = -1;
    }
    QelKey key() const { return key_; }
    int reqFd() const { return Key_getReqQueue(key_); }
    // Waits up to timeoutMs for a message on the request queue; empty on time-out.
    std::vector<uint8_t> receive(int timeoutMs = 1000) {
        int n = qelIpcRecvWait(reqFd(), buf_.data(), static_cast<int>(buf_.size()), timeoutMs);
        if (n < 0) return {};
        return std::vector<uint8_t>(buf_.begin(), buf_.begin() + n);
    }

private:
    QelKey key_;
    std::vector<uint8_t> buf_;
};

// The VLAN set of a list the test knows to be good.
inline sim::VlanSet vlans(const char* text) {
    sim::VlanSet set{};
    std::string err;
    EXPECT_TRUE(cli::parseVlanList(text, &set, &err)) << err;
    return set;
}

constexpr uint32_t kQueue226 = (226u << 20) | 1;
constexpr uint32_t kQueue166 = (166u << 20) | 1;
constexpr uint32_t kQueue138 = (138u << 20) | 1;

// msg as sent from the manager's request queue to `target`: length at 8, type at 12, source
// queue at 44, destination queue at 56 (written out here so a wrong constant shows up).
inline std::vector<uint8_t> fromManager(uint32_t mtype, std::vector<uint8_t> msg, uint32_t target) {
    be::Writer w(msg.data(), msg.size());
    w.u32(8, static_cast<uint32_t>(msg.size()));
    w.u32(12, mtype);
    w.u32(44, kQueue226);
    w.u32(56, target);
    return msg;
}
inline std::vector<uint8_t> fromManager(uint32_t mtype, size_t len, uint32_t target) {
    return fromManager(mtype, std::vector<uint8_t>(len, 0), target);
}

// The manager's registration with L2PM (124 bytes): it leaves its source queue unset;
// 72 the registering service, 120 1: register.
inline std::vector<uint8_t> l2pmRegistration() {
    std::vector<uint8_t> msg = fromManager(18401, 124, kQueue166);
    be::Writer w(msg.data(), msg.size());
    w.u32(44, 0);
    w.u32(72, 226);
    w.u8(120, 1);
    return msg;
}

// The manager's send-and-wait of msg, answered in place, while the loop serves.
inline int exchange(sim::EventLoop& loop, FakeManager& mgr, std::vector<uint8_t>& msg,
                    int waitSecs = 3) {
    const int mtype = static_cast<int>(u32At(msg, 12));
    return whileServing(loop, [&] {
        return qelIpcSendWait(mgr.key(), msg.data(), static_cast<int>(msg.size()), waitSecs, mtype,
                              0);
    });
}

// Sends msg from the manager's request queue and serves the loop until the peer's counter
// of dropped messages has grown by one. Nothing may have come back: an answer would be
// waiting by then.
template <typename F>
::testing::AssertionResult dropsUnanswered(sim::EventLoop& loop, FakeManager& mgr,
                                           std::vector<uint8_t> msg, F dropped) {
    const uint64_t before = dropped();
    if (qelIpcSend(mgr.reqFd(), msg.data(), static_cast<int>(msg.size())) != 0)
        return ::testing::AssertionFailure() << "not sent";
    if (!serveUntil(loop, [&] { return dropped() == before + 1; }))
        return ::testing::AssertionFailure() << "not counted as dropped";
    std::vector<uint8_t> answer = mgr.receive(0);
    if (!answer.empty())
        return ::testing::AssertionFailure() << "answered with type " << u32At(answer, 12);
    return ::testing::AssertionSuccess();
}

}  // namespace vorn::test
