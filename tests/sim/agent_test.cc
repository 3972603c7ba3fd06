// The simulated line-card agent as the manager meets it on the wire: its registration, the
// acknowledgement of every SWP message (only accepted ones applied), the receive state that
// a new registration starts afresh, the ring node's reports (states, port numbers, flushes),
// and its ring protocol: health frames, a ring failed for want of them, LINK_DOWN frames
// dropped by a faulty switch. (Statistics, debug downloads and the card commands that silence and
// restart an agent are run end to end.)

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "platform/swp.h"
#include "sim/agent.h"
#include "sim/ring_protocol.h"
#include "sim_test_util.h"
#include "support/ifidx.h"
#include "support/rundir.h"

namespace vorn {
namespace {

using test::gi;
using test::kQueue226;
using test::u32At;
using test::words;
using W = std::vector<uint32_t>;
namespace rp = sim::ringproto;

constexpr uint32_t kSlot = 1;
constexpr uint32_t kAgentQueue = (227u << 20) | (kSlot << 4) | 1;
constexpr uint32_t kFwd = 2, kBlk = 3, kDis = 0, kPre = 1;
constexpr uint32_t kIfm = 10908;  // a copy of an IFM notification

// One record of a ring-configuration message (0x6402).
struct RingRec {
    uint16_t ring = 5;
    uint32_t ringAction = 2;  // 1 none, 2 start, 3 restart, 4 stop
    uint32_t pri = 0, sec = 0;
    uint8_t mode = 1;  // 1 master, 2 transit
    uint16_t desg = kSlot;
    uint16_t action = 1;                   // 1 set, 2 remove, 3 delete the ring
    uint16_t hello = 60000, dead = 60000;  // no timer in the way unless a test wants one
};

// Body from byte 124: u32 count, then 544-byte records (0 action, 2 ring, 4 ring action,
// 8 flags, 12 designated slot, 14 control VLAN, 16 primary, 20 secondary, 536 hello,
// 538 dead, 540 mode).
std::vector<uint8_t> ringCfg(const std::vector<RingRec>& recs) {
    std::vector<uint8_t> b(4 + 544 * recs.size(), 0);
    be::Writer w(b.data(), b.size());
    w.u32(0, static_cast<uint32_t>(recs.size()));
    for (size_t i = 0; i < recs.size(); ++i) {
        const RingRec& r = recs[i];
        size_t o = 4 + 544 * i;
        w.u16(o, r.action);
        w.u16(o + 2, r.ring);
        w.u32(o + 4, r.ringAction);
        w.u32(o + 8, 0x1B);  // control VLAN and interfaces, mode, hello, dead
        w.u16(o + 12, r.desg);
        w.u16(o + 14, 10);
        w.u32(o + 16, r.pri);
        w.u32(o + 20, r.sec);
        w.u16(o + 536, r.hello);
        w.u16(o + 538, r.dead);
        w.u8(o + 540, r.mode);
    }
    return b;
}

// Interface information (0x6403) from 124: u32 byte count, u32 count, 20-byte records
// (0 ifIndex, 18 oper state).
std::vector<uint8_t> ifInfo(const std::vector<std::pair<uint32_t, bool>>& ports) {
    std::vector<uint8_t> b(8 + 20 * ports.size(), 0);
    be::Writer w(b.data(), b.size());
    w.u32(0, static_cast<uint32_t>(20 * ports.size()));
    w.u32(4, static_cast<uint32_t>(ports.size()));
    for (size_t i = 0; i < ports.size(); ++i) {
        w.u32(8 + 20 * i, ports[i].first);
        w.u8(8 + 20 * i + 18, ports[i].second ? 1 : 0);
    }
    return b;
}

// An IFM notification copy (10908) from 124: NumElem, Count, reserved, then 8-byte oper
// records (u16 type 3 up / 4 down, u16 length 8, u32 ifIndex).
std::vector<uint8_t> operCopy(const std::vector<std::pair<uint32_t, bool>>& links) {
    std::vector<uint8_t> b(12 + 8 * links.size(), 0);
    be::Writer w(b.data(), b.size());
    w.u32(0, static_cast<uint32_t>(links.size()));
    for (size_t i = 0; i < links.size(); ++i) {
        w.u16(12 + 8 * i, links[i].second ? 3 : 4);
        w.u16(12 + 8 * i + 2, 8);
        w.u32(12 + 8 * i + 4, links[i].first);
    }
    return b;
}

// One record of a report (0x6404): ring, primary and secondary flush, port numbers, states.
using Rec = std::tuple<uint16_t, uint8_t, uint8_t, uint16_t, uint16_t, uint32_t, uint32_t>;

// The frames the agent sends, as the cables would take them.
struct Sent {
    uint32_t ifIndex;
    std::vector<uint8_t> bytes;
    rp::Frame frame;
    long atMs;
};

class AgentTest : public test::PlatformTest {
protected:
    void SetUp() override {
        mgr_ = std::make_unique<test::FakeManager>();
        std::string err;
        ASSERT_TRUE(agent_.start(&err)) << err;
        loop_.add(&agent_);
        agent_.setFrameSender([this](uint32_t ifIndex, std::span<const uint8_t> b) {
            rp::Frame f;
            EXPECT_TRUE(rp::decodeFrame(b, f));
            sent_.push_back({ifIndex, {b.begin(), b.end()}, f, sim::nowMs()});
            return true;
        });
    }
    // How many frames of a type the agent sent out of a port.
    size_t sentOut(uint32_t ifIndex, rp::FrameType type) const {
        return std::count_if(sent_.begin(), sent_.end(), [&](const Sent& x) {
            return x.ifIndex == ifIndex && x.frame.type == type;
        });
    }
    // Reads what reached the manager: acknowledgements (handed to the manager's queue),
    // registrations, and reports (acknowledged as the manager does).
    void pump() {
        for (std::vector<uint8_t> m = mgr_->receive(0); !m.empty(); m = mgr_->receive(0)) {
            uint32_t type = u32At(m, 12);
            if (type == 402 || type == 404) {
                acks_.push_back(m);
            } else if (type == 0x6401) {
                regs_.push_back(m);
            } else if (type == 0x6404) {
                EXPECT_EQ(qelSwpCkSeqAndAck(m.data(), reportState_, mgr_->reqFd()), 0);
                reports_.push_back(m);
            }
        }
    }
    template <typename F>
    bool serve(F cond) {
        return test::serveUntil(loop_, [&] {
            pump();
            return cond();
        });
    }
    // Takes the registration and answers it as the manager does: 48 slot, 52 A, 56 B.
    void registerAgent() {
        ASSERT_TRUE(serve([&] { return !regs_.empty(); }));
        std::vector<uint8_t> reply = test::fromManager(0x6401, 60, kAgentQueue);
        be::Writer w(reply.data(), reply.size());
        for (size_t off : {48, 52, 56}) w.u32(off, u32At(regs_.front(), off - 12));
        regs_.clear();
        ASSERT_EQ(qelIpcSend(mgr_->reqFd(), reply.data(), 60), 0);
        ASSERT_TRUE(serve([&] { return agent_.registered(); }));
    }
    // An SWP message by hand, so that sequence number and epoch are the test's to choose.
    void post(uint32_t mtype, const std::vector<uint8_t>& body, uint32_t seq, uint32_t epoch) {
        std::vector<uint8_t> m = test::fromManager(mtype, 124 + body.size(), kAgentQueue);
        be::Writer w(m.data(), m.size());
        w.u32(60, swp::kMagic);
        w.u32(64, seq);
        w.u32(68, 9);  // stream
        w.u32(72, epoch);
        w.bytes(124, body.data(), body.size());
        ASSERT_EQ(qelIpcSend(mgr_->reqFd(), m.data(), static_cast<int>(m.size())), 0);
    }
    // The next SWP message of the test's stream, served until the agent has taken it.
    void send(uint32_t mtype, const std::vector<uint8_t>& body) {
        const uint64_t before = agent_.counters().swpAccepted;
        post(mtype, body, ++seq_, 0x55);
        ASSERT_TRUE(serve([&] { return agent_.counters().swpAccepted == before + 1; }));
    }
    // The records of the next report.
    std::vector<Rec> nextReport() {
        if (!serve([&] { return !reports_.empty(); })) return {};
        std::vector<uint8_t> m = reports_.front();
        reports_.pop_front();
        be::Reader rd(m.data(), m.size());
        EXPECT_EQ(words(m, {56, 124}), (W{kQueue226, kSlot}));
        EXPECT_EQ(m.size(), 132 + 20 * rd.u32(128));
        std::vector<Rec> out;
        for (size_t o = 132; o + 20 <= m.size(); o += 20)
            out.push_back({rd.u16(o), rd.u8(o + 3), rd.u8(o + 4), rd.u16(o + 6), rd.u16(o + 8),
                           rd.u32(o + 12), rd.u32(o + 16)});
        return out;
    }

    std::unique_ptr<test::FakeManager> mgr_;
    sim::EventLoop loop_;
    sim::Agent agent_{kSlot};
    uint32_t seq_ = 0;
    uint32_t reportState_[2] = {0, 0};
    std::vector<std::vector<uint8_t>> acks_, regs_;
    std::deque<std::vector<uint8_t>> reports_;
    std::vector<Sent> sent_;
};

TEST_F(AgentTest, RegistersAcknowledgesEverySwpMessageAndStartsAfreshWithEachManager) {
    ASSERT_TRUE(serve([&] { return !regs_.empty(); }));
    const std::vector<uint8_t> reg = regs_.front();
    // Length, slot, card address, where the reply is to go, the manager; a line-card type.
    ASSERT_EQ(reg.size(), 72u);
    EXPECT_EQ(words(reg, {8, 36, 40, 44, 56}), (W{72, kSlot, 0x7F000101, kAgentQueue, kQueue226}));
    EXPECT_NE(u32At(reg, 60), 0u);
    registerAgent();  // the reply echoes slot, card address and queue at 48, 52 and 56

    // Every type in order, then a duplicate and a gap. (What the receiver's check answers is
    // the SWP tests'; here, that every message reaches it and only accepted ones apply.)
    const std::vector<uint8_t> bracket(4, 0), ring8 = ringCfg({{.ring = 8, .ringAction = 1}});
    const std::pair<uint32_t, std::vector<uint8_t>> msgs[] = {
        {0x6408, bracket},
        {0x6403, ifInfo({{gi(1, 1), true}})},
        {0x6402, ringCfg({{.ring = 7, .ringAction = 1}})},
        {0x6406, bracket},
        {0x6407, bracket},
        {0x640D, std::vector<uint8_t>(48, 0)},
        {kIfm, operCopy({{gi(1, 1), false}})},
        {0x6409, bracket},
        {0x6402, ring8},  // seq 3 again: a duplicate
        {0x6402, ring8},  // seq 12: a gap
    };
    for (uint32_t i = 0; i < std::size(msgs); ++i) {
        post(msgs[i].first, msgs[i].second, i < 8 ? i + 1 : i == 8 ? 3 : 12, 0x55);
        ASSERT_TRUE(serve([&] { return acks_.size() == i + 1; })) << i;
    }
    EXPECT_EQ(words(acks_[7], {12, 64, 68, 72}), (W{402, 8, 9, 0x55}));
    const std::deque<uint32_t> applied = {0x6408, 0x6403, 0x6402, 0x6406,
                                          0x6407, 0x640D, kIfm,   0x6409};
    EXPECT_EQ(agent_.recentTypes(), applied);
    EXPECT_EQ(agent_.rings().count(7), 1u);

    // The manager goes and a new one comes: the agent registers with it once its queue is
    // there, forgets what the earlier one configured, and takes the new stream from 1 even
    // under the old epoch.
    mgr_.reset();
    agent_.syncWithManager();
    mgr_ = std::make_unique<test::FakeManager>();
    registerAgent();  // served until it comes by itself
    EXPECT_TRUE(agent_.rings().empty());
    send(0x6408, bracket);  // number 1 of epoch 0x55
}

TEST_F(AgentTest, RingsStartOnTheirPortNumbersAndLinksMoveThemOneReportPerEvent) {
    const uint32_t m1 = test::te(3, 7), m2 = gi(1, 1), t1 = test::po(5), t2 = gi(1, 2);
    registerAgent();
    send(0x6403, ifInfo({{m1, true}, {m2, true}, {t1, true}, {t2, true}}));
    // A ring designated to another slot, in a message of its own, runs nothing here: the
    // next report is that of the two rings for this slot, the master's by a restart.
    send(0x6402, ringCfg({{.ring = 99, .pri = m1, .sec = m2, .desg = 2}}));
    send(0x6402, ringCfg({{.ring = 5, .ringAction = 3, .pri = m1, .sec = m2, .mode = 1},
                          {.ring = 6, .pri = t1, .sec = t2, .mode = 2}}));
    // Ring 5 is the master on ports 328 (TenGig 3/7) and 194, ring 6 the transit on 5 (a
    // LAG) and 195.
    auto master = [](uint8_t pf, uint8_t sf, uint32_t ps, uint32_t ss) {
        return Rec{5, pf, sf, 328, 194, ps, ss};
    };
    auto transit = [](uint8_t pf, uint8_t sf, uint32_t ps, uint32_t ss) {
        return Rec{6, pf, sf, 5, 195, ps, ss};
    };
    // The transit waits for the master's word before it forwards; so does every port restored
    // while its node's other link is up (nothing here sends a health frame back).
    EXPECT_EQ(nextReport(),
              (std::vector<Rec>{master(0, 0, kFwd, kBlk), transit(0, 0, kPre, kPre)}));
    using Links = std::vector<std::pair<uint32_t, bool>>;
    struct Step {
        const char* what;
        uint32_t mtype;
        std::vector<uint8_t> body;
        std::vector<Rec> expect;
    };
    // clang-format off
    const Step steps[] = {
        {"master secondary down", kIfm, operCopy({{m2, false}}), {master(1, 0, kFwd, kDis)}},
        {"master secondary up", kIfm, operCopy({{m2, true}}), {master(0, 0, kFwd, kPre)}},
        {"master primary down, by download", 0x6403, ifInfo({{m1, false}}),
         {master(0, 1, kDis, kFwd)}},
        {"master primary up", kIfm, operCopy({{m1, true}}), {master(0, 0, kPre, kFwd)}},
        {"transit primary down", kIfm, operCopy({{t1, false}}), {transit(0, 1, kDis, kFwd)}},
        {"transit primary up", kIfm, operCopy({{t1, true}}), {transit(0, 0, kPre, kFwd)}},
        {"both secondaries in one copy", kIfm, operCopy(Links{{m2, false}, {t2, false}}),
         {master(1, 0, kFwd, kDis), transit(1, 0, kFwd, kDis)}},
        {"an unrelated port beside one that matters", kIfm,
         operCopy(Links{{gi(0, 5), false}, {m2, true}}), {master(0, 0, kFwd, kPre)}},
        {"master stopped", 0x6402, ringCfg({{.ring = 5, .ringAction = 4, .pri = m1, .sec = m2}}),
         {master(0, 0, kDis, kDis)}},
    };
    // clang-format on
    for (const Step& s : steps) {
        SCOPED_TRACE(s.what);
        send(s.mtype, s.body);
        EXPECT_EQ(nextReport(), s.expect);
    }
    EXPECT_FALSE(agent_.rings().at(5).node.running || agent_.rings().at(99).node.running);
}

// A master on two up links, hello 50 ms, dead 150 ms: HEALTH out of its primary every hello;
// its own HEALTH back on the secondary completes the ring and keeps the secondary blocked for
// as long as it comes; none back within the dead-interval fails the ring (secondary forwards,
// both ports flush, FLUSH out of both).
TEST_F(AgentTest, MasterSendsHealthEveryHelloAndBlocksItsSecondaryOnlyWhileItComesBack) {
    const uint32_t pri = gi(1, 1), sec = gi(1, 2);
    registerAgent();
    send(0x6403, ifInfo({{pri, true}, {sec, true}}));
    send(0x6402, ringCfg({{.pri = pri, .sec = sec, .hello = 50, .dead = 150}}));
    auto master = [](uint8_t flush, uint32_t secState) {
        return std::vector<Rec>{{5, flush, flush, 194, 195, kFwd, secState}};
    };
    EXPECT_EQ(nextReport(), master(0, kBlk));

    // The first HEALTH handed back completes the ring; the next eight (twice the
    // dead-interval) change nothing.
    size_t next = 0, healths = 0;
    long lastAt = 0, firstAt = 0;
    size_t echoed = 0;
    auto echo = [&](size_t upTo) {
        return serve([&] {
            for (; next < sent_.size(); ++next) {
                const Sent x = sent_[next];  // a copy: onFrame may send and grow sent_
                if (x.frame.type != rp::FrameType::kHealth) continue;
                if (++healths > upTo) return true;
                EXPECT_EQ(x.ifIndex, pri);
                EXPECT_EQ(x.frame.sender, agent_.switchId());
                // One per hello-interval, on a schedule of its own: a HEALTH sent late does
                // not move the next one, so only the count since the first is bounded.
                if (echoed++ == 0) firstAt = x.atMs;
                EXPECT_GE(x.atMs - firstAt, 49 * static_cast<long>(echoed - 1)) << echoed;
                EXPECT_TRUE(agent_.onFrame(sec, x.bytes));
                lastAt = x.atMs;
            }
            return false;
        });
    };
    ASSERT_TRUE(echo(1));
    EXPECT_EQ(nextReport(), master(1, kBlk));
    EXPECT_EQ(sentOut(pri, rp::FrameType::kRingComplete), 1u);
    ASSERT_TRUE(echo(9));
    EXPECT_TRUE(reports_.empty());
    // The echo stops: the ring fails, no sooner than a dead-interval after the last one.
    EXPECT_EQ(nextReport(), master(1, kFwd));
    EXPECT_GE(sim::nowMs() - lastAt, 150);
    EXPECT_EQ(sentOut(pri, rp::FrameType::kFlush) + sentOut(sec, rp::FrameType::kFlush), 2u);
    EXPECT_EQ(agent_.rings().at(5).stats[sim::Agent::kStatRingBroken], 1u);
}

// A faulty switch drops the LINK_DOWN frames its transit sends and those its master receives;
// a good one passes them, and the master fails the ring on them at once.
TEST_F(AgentTest, DropLinkDownLosesTheTransitsLinkDownAndTheMastersToo) {
    const uint32_t m1 = gi(1, 1), m2 = gi(1, 2), t1 = gi(1, 3), t2 = gi(1, 4);
    registerAgent();
    send(0x6403, ifInfo({{m1, true}, {m2, true}, {t1, true}, {t2, true}}));
    uint8_t linkDown[rp::kFrameLen];
    rp::encodeFrame({rp::FrameType::kLinkDown, 5, 10, agent_.switchId() + 1, 1}, linkDown);
    for (const bool drop : {false, true}) {
        SCOPED_TRACE(drop ? "dropping" : "passing");
        agent_.setDropLinkDown(drop);
        send(0x6402, ringCfg({{.ring = 5, .ringAction = 3, .pri = m1, .sec = m2},
                              {.ring = 6, .ringAction = 3, .pri = t1, .sec = t2, .mode = 2}}));
        ASSERT_EQ(nextReport().size(), 2u);
        sent_.clear();
        send(kIfm, operCopy({{t1, false}}));
        EXPECT_EQ(nextReport(), (std::vector<Rec>{{6, 0, 1, 196, 197, kDis, kFwd}}));
        EXPECT_EQ(sentOut(t2, rp::FrameType::kLinkDown), drop ? 0u : 1u);
        EXPECT_TRUE(agent_.onFrame(m1, linkDown));
        if (!drop) {
            EXPECT_EQ(nextReport(), (std::vector<Rec>{{5, 1, 1, 194, 195, kFwd, kFwd}}));
        }
        EXPECT_EQ(agent_.rings().at(5).node.secState, drop ? kBlk : kFwd);
        EXPECT_EQ(agent_.counters().linkDownDropped, drop ? 2u : 0u);
        send(kIfm, operCopy({{t1, true}}));
        EXPECT_EQ(nextReport().size(), 1u);
    }
    // Frames of a ring not running on the port, or not ring frames at all, are left to others.
    EXPECT_FALSE(agent_.onFrame(t1, linkDown));
    EXPECT_FALSE(agent_.onFrame(m1, std::vector<uint8_t>(rp::kFrameLen, 0)));
}

// A ring on a LAG: its frames leave by a member whose link is up, and one arriving on any
// member is the LAG's.
TEST_F(AgentTest, ARingOnALagSendsByAnUpMemberAndHearsOnAnyMember) {
    const uint32_t lag = test::po(5), down = gi(1, 3), up = gi(1, 4), sec = gi(1, 5);
    registerAgent();
    std::vector<uint8_t> info = ifInfo({{lag, true}, {down, false}, {up, true}, {sec, true}});
    be::Writer w(info.data(), info.size());
    for (size_t rec : {1u, 2u}) w.u32(8 + 20 * rec + agt::ifinfo::kOffLagIf, lag);
    send(0x6403, info);
    send(0x6402, ringCfg({{.ring = 6, .ringAction = 3, .pri = lag, .sec = sec, .mode = 2}}));
    ASSERT_EQ(nextReport().size(), 1u);
    sent_.clear();
    send(kIfm, operCopy({{sec, false}}));
    EXPECT_EQ(nextReport().size(), 1u);
    ASSERT_EQ(sent_.size(), 1u);
    EXPECT_EQ(sentOut(up, rp::FrameType::kLinkDown), 1u);
    uint8_t flush[rp::kFrameLen];
    rp::encodeFrame({rp::FrameType::kFlush, 6, 10, agent_.switchId() + 1, 1}, flush);
    EXPECT_TRUE(agent_.onFrame(up, flush));
    EXPECT_FALSE(agent_.onFrame(gi(1, 6), flush));  // no member of the ring's interfaces
}

}  // namespace
}  // namespace vorn
