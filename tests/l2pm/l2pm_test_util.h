// Helpers of the L2PM and IFM tests: records, VLAN sets, an L2PM end of the SWP queue, and
// readers of the port-state and flush messages that check their fixed layout.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

#include "support/mgr_fixture.h"

namespace vorn::test::l2pmt {

inline VornVlanBmap vlanSet(std::initializer_list<int> ids) {
    VornVlanBmap b{};
    for (int v : ids) bmp::set(b, static_cast<uint32_t>(v));
    return b;
}
inline std::vector<int> vlanList(std::span<const uint8_t> b) {
    std::vector<int> out;
    for (uint32_t v = 0; v < b.size() * 8; ++v)
        if (bmp::test(b, v)) out.push_back(static_cast<int>(v));
    return out;
}

// Makes ifIndex the ring's primary (side 1) or secondary interface.
inline void attach(VornRingEntry* ring, int side, uint32_t ifIndex) {
    uint16_t num = vornPortNumOf(ifIndex);
    (side == 1 ? ring->u4PriIfIndex : ring->u4SecIfIndex) = ifIndex;
    (side == 1 ? ring->u2PriPortNum : ring->u2SecPortNum) = num;
    if (VornPortEntry* port = vornGetPort(num)) {
        bmp::set(port->ringBmap, ring->u2RingId);
        port->i2RingCount++;
    }
}

// A manager with its SWP queue to a test L2PM.
class L2pmTest : public test::MgrTest {
protected:
    void SetUp() override {
        MgrTest::SetUp();
        l2pmKey_ = openPeer(166, 0);
        createL2pmQueue();
    }
    QelKey l2pmKey_ = -1;
};

// L2PM's end of the manager's SWP queue: each message taken is acknowledged and the manager
// run until it has consumed the acknowledgement, so that its window never fills up.
class L2pmSwpPeer {
public:
    explicit L2pmSwpPeer(QelKey key) : fd_(Key_getReqQueue(key)) {}
    std::vector<uint8_t> next(int timeoutMs = 1000) {
        std::vector<uint8_t> m(ipc::kMaxMsgLen);
        int n = qelIpcRecvWait(fd_, m.data(), static_cast<int>(m.size()), timeoutMs);
        if (n < 0) return {};
        m.resize(static_cast<size_t>(n));
        EXPECT_EQ(qelSwpCkSeqAndAck(m.data(), state_, fd_), swp::kCkAccepted);
        while (vornMainLoopPass(0) > 0) {
        }
        return m;
    }
    // Nothing waiting: what the manager sends leaves before its call returns, so this holds
    // without waiting.
    bool quiet() { return next(0).empty(); }

private:
    int fd_;
    uint32_t state_[2] = {0, 0};
};

struct PortStateRec {
    uint32_t ifIndex;
    std::vector<int> vlans, fwd;
    bool operator==(const PortStateRec&) const = default;
};
struct FlushRec {
    uint16_t vlan;
    uint32_t ifIndex;
    bool operator==(const FlushRec&) const = default;
};

// Checks the fixed part of a port-state (recLen 1032) or flush (24) message; returns its count.
inline uint32_t checkBatched(const std::vector<uint8_t>& m, uint32_t mtype, uint32_t recLen) {
    be::Reader r(m.data(), m.size());
    uint32_t n = r.u32(256);
    EXPECT_EQ(r.u32(ipc::kOffMtype), mtype);
    EXPECT_EQ(m.size(), 260u + recLen * n);
    EXPECT_EQ(r.u32(ipc::kOffMlen), m.size());
    EXPECT_EQ(r.u32(248), 7u) << "client id";
    EXPECT_EQ(r.u32(252), 3u) << "protocol id";
    for (size_t off = 124; off < 248; ++off) EXPECT_EQ(r.u8(off), 0) << "reserved " << off;
    return r.fits(260, size_t{recLen} * n) ? n : 0;
}

inline std::vector<PortStateRec> portStateRecs(const std::vector<uint8_t>& m) {
    std::vector<PortStateRec> out;
    be::Reader r(m.data(), m.size());
    uint32_t n = checkBatched(m, 18407, 1032);
    for (size_t off = 260; off < 260 + 1032 * size_t{n}; off += 1032) {
        EXPECT_EQ(r.u32(off + 1028), 0u) << "reserved word at " << off + 1028;
        out.push_back(
            {r.u32(off), vlanList(r.view(off + 4, 512)), vlanList(r.view(off + 516, 512))});
    }
    return out;
}

inline std::vector<FlushRec> flushRecs(const std::vector<uint8_t>& m) {
    std::vector<FlushRec> out;
    be::Reader r(m.data(), m.size());
    uint32_t n = checkBatched(m, 18412, 24);
    for (size_t off = 260; off < 260 + 24 * size_t{n}; off += 24) {
        EXPECT_EQ(r.u32(off) << 8 | r.u32(off + 4), (82u << 8) | 24u) << "kind, length at " << off;
        EXPECT_EQ(r.u32(off + 8) | r.u16(off + 14) | r.u32(off + 20), 0u) << "reserved at " << off;
        out.push_back({r.u16(off + 12), r.u32(off + 16)});
    }
    return out;
}

}  // namespace vorn::test::l2pmt
