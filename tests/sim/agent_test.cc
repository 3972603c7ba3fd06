// The simulated line-card agent as the manager meets it on the wire: its registration, the
// acknowledgement of every SWP message (only accepted ones applied), the receive state that
// a new registration starts afresh, and the ring node's reports (states, port numbers,
// flushes). (Statistics, debug downloads and the card commands that silence and restart an
// agent are run end to end.)

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "platform/swp.h"
#include "sim/agent.h"
#include "sim/swp_buffers.h"
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

constexpr uint32_t kSlot = 1;
constexpr uint32_t kAgentQueue = (227u << 20) | (kSlot << 4) | 1;
constexpr uint32_t kFwd = 2, kBlk = 3, kDis = 0;
constexpr uint32_t kIfm = 10908;  // a copy of an IFM notification

// One record of a ring-configuration message (0x6402).
struct RingRec {
    uint16_t ring = 5;
    uint32_t ringAction = 2;  // 1 none, 2 start, 3 restart, 4 stop
    uint32_t pri = 0, sec = 0;
    uint8_t mode = 1;  // 1 master, 2 transit
    uint16_t desg = kSlot;
    uint16_t action = 1;  // 1 set, 2 remove, 3 delete the ring
};

// Body from byte 124: u32 count, then 544-byte records (0 action, 2 ring, 4 ring action,
// 8 flags, 12 designated slot, 14 control VLAN, 16 primary, 20 secondary, 540 mode).
std::vector<uint8_t> ringCfg(const std::vector<RingRec>& recs, int count = -1) {
    std::vector<uint8_t> b(4 + 544 * recs.size(), 0);
    be::Writer w(b.data(), b.size());
    w.u32(0, count < 0 ? static_cast<uint32_t>(recs.size()) : static_cast<uint32_t>(count));
    for (size_t i = 0; i < recs.size(); ++i) {
        const RingRec& r = recs[i];
        size_t o = 4 + 544 * i;
        w.u16(o, r.action);
        w.u16(o + 2, r.ring);
        w.u32(o + 4, r.ringAction);
        w.u32(o + 8, 0x03);  // control VLAN and interfaces, mode
        w.u16(o + 12, r.desg);
        w.u16(o + 14, 10);
        w.u32(o + 16, r.pri);
        w.u32(o + 20, r.sec);
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

// One record of a report (0x6404).
struct Rec {
    uint16_t ring;
    uint8_t priFlush, secFlush;
    uint16_t priPort, secPort;
    uint32_t priState, secState;
    bool operator==(const Rec&) const = default;
};
std::ostream& operator<<(std::ostream& os, const Rec& r) {
    return os << "{ring " << r.ring << " flush " << +r.priFlush << "/" << +r.secFlush << " ports "
              << r.priPort << "/" << r.secPort << " states " << r.priState << "/" << r.secState
              << "}";
}

class AgentTest : public test::PlatformTest {
protected:
    void SetUp() override {
        mgr_ = std::make_unique<test::FakeManager>();
        std::string err;
        ASSERT_TRUE(agent_.start(&err)) << err;
        loop_.add(&agent_);
    }
    void TearDown() override {
        if (queue_ != 0) qelSwpQueueRemove(queue_);
    }
    // Reads what reached the manager: acknowledgements (handed to the manager's queue),
    // registrations, and reports (acknowledged as the manager does).
    void pump() {
        for (std::vector<uint8_t> m = mgr_->receive(0); !m.empty(); m = mgr_->receive(0)) {
            uint32_t type = u32At(m, 12);
            if (type == 402 || type == 404) {
                acks_.push_back(m);
                void* freed = nullptr;
                if (type == 402 && qelSwpDequeue(m.data(), &freed) == 0 && freed != nullptr)
                    sim::swpbuf::give(freed);
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
    // An SWP message over the manager's own queue, served until the agent has taken it.
    void send(uint32_t mtype, const std::vector<uint8_t>& body) {
        if (queue_ == 0) {
            pipe_ = qelSwpCreatePipe("/qel/pipe/testManagerToAgent");
            ASSERT_EQ(qelSwpQueueCreateQs(0, 0, 10, 25, 226, 0, mgr_->key(), 227, kSlot,
                                          qel_getQueueId(226, 0, 3), 0, 0, nullptr, 0,
                                          sim::swpbuf::give, nullptr, &queue_, pipe_),
                      0);
        }
        size_t len = 124 + body.size();
        void* buf = sim::swpbuf::take(len);
        be::Writer w(buf, len);
        w.u32(8, static_cast<uint32_t>(len));
        w.u32(12, mtype);
        w.u32(44, kQueue226);
        w.u32(56, kAgentQueue);
        w.bytes(124, body.data(), body.size());
        const uint64_t before = agent_.counters().swpAccepted;
        ASSERT_EQ(qelSwpEnqueue(queue_, buf, static_cast<int>(len)), 0);
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
    // Starts the agent's life with the manager: registered, the given ports up.
    void configure(const std::vector<uint32_t>& up) {
        registerAgent();
        std::vector<std::pair<uint32_t, bool>> ports;
        for (uint32_t p : up) ports.push_back({p, true});
        send(0x6403, ifInfo(ports));
    }

    std::unique_ptr<test::FakeManager> mgr_;
    sim::EventLoop loop_;
    sim::Agent agent_{kSlot};
    uint32_t queue_ = 0;
    int pipe_ = -1;
    uint32_t reportState_[2] = {0, 0};
    std::vector<std::vector<uint8_t>> acks_, regs_;
    std::deque<std::vector<uint8_t>> reports_;
};

TEST_F(AgentTest, RegistersWithEachManagerAndStartsItsStreamAfresh) {
    ASSERT_TRUE(serve([&] { return !regs_.empty(); }));
    const std::vector<uint8_t> reg = regs_.front();
    // Length, slot, card address, where the reply is to go, the manager; a line-card type.
    ASSERT_EQ(reg.size(), 72u);
    EXPECT_EQ(words(reg, {8, 36, 40, 44, 56}), (W{72, kSlot, 0x7F000101, kAgentQueue, kQueue226}));
    EXPECT_NE(u32At(reg, 60), 0u);
    registerAgent();  // the reply echoes slot, card address and queue at 48, 52 and 56

    // The manager goes and a new one comes: the agent registers with it once its queue is
    // there, forgets what the earlier one configured, and takes the new stream from 1 even
    // under the old epoch.
    send(0x6402, ringCfg({{.ring = 7, .ringAction = 1}}));
    for (uint32_t seq : {2, 3}) post(0x6408, std::vector<uint8_t>(4), seq, 0x77);
    ASSERT_TRUE(serve([&] { return agent_.rcvState()[0] == 4; }));
    qelSwpQueueRemove(queue_);
    queue_ = 0;
    mgr_.reset();
    agent_.syncWithManager();
    EXPECT_FALSE(agent_.registered());
    mgr_ = std::make_unique<test::FakeManager>();
    registerAgent();  // served until it comes by itself
    EXPECT_TRUE(agent_.rings().empty());
    for (uint32_t epoch : {0x77u, 0x78u}) {
        SCOPED_TRACE(epoch);
        const uint64_t before = agent_.counters().swpAccepted;
        post(0x6408, std::vector<uint8_t>(4), 1, epoch);
        ASSERT_TRUE(serve([&] { return agent_.counters().swpAccepted == before + 1; }));
    }
}

TEST_F(AgentTest, EverySwpMessageIsAcknowledgedAndOnlyAcceptedOnesApplied) {
    registerAgent();
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
        post(msgs[i].first, msgs[i].second, i < 8 ? i + 1 : i == 8 ? 3 : 12, 0x1234);
        ASSERT_TRUE(serve([&] { return acks_.size() == i + 1; })) << i;
    }
    EXPECT_EQ(words(acks_[7], {12, 64, 68, 72}), (W{402, 8, 9, 0x1234}));
    EXPECT_EQ(words(acks_[8], {12, 64}), (W{402, 3}));
    EXPECT_EQ(words(acks_[9], {12, 64}), (W{404, 9}));
    const std::deque<uint32_t> applied = {0x6408, 0x6403, 0x6402, 0x6406,
                                          0x6407, 0x640D, kIfm,   0x6409};
    EXPECT_EQ(agent_.recentTypes(), applied);
    EXPECT_EQ(agent_.rings().count(7), 1u);
    EXPECT_EQ(agent_.rings().count(8), 0u);
    EXPECT_FALSE(agent_.interfaces().at(gi(1, 1)).operUp);
}

TEST_F(AgentTest, RingStartReportsTheStatesOnTheRightPortNumbers) {
    const uint32_t te37 = test::te(3, 7), po5 = test::po(5);
    configure({gi(1, 1), gi(1, 2), te37, po5});
    struct Case {
        const char* what;
        RingRec rec;
        Rec expect;
    };
    const Case cases[] = {
        {"transit on a LAG and a port",
         {.ring = 6, .pri = po5, .sec = gi(1, 2), .mode = 2},
         {6, 0, 0, 5, 195, kFwd, kFwd}},
        {"restart of a master on TenGig",
         {.ring = 7, .ringAction = 3, .pri = te37, .sec = gi(1, 1)},
         {7, 0, 0, 328, 194, kFwd, kBlk}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        // A ring designated to another slot, in a message of its own, runs nothing here:
        // the next report is the designated ring's.
        RingRec elsewhere = c.rec;
        elsewhere.ring = 99;
        elsewhere.desg = 2;
        send(0x6402, ringCfg({elsewhere}));
        send(0x6402, ringCfg({c.rec}));
        EXPECT_EQ(nextReport(), std::vector<Rec>{c.expect});
    }
    EXPECT_FALSE(agent_.rings().at(99).node.running);
}

TEST_F(AgentTest, LinksMoveAMasterAndATransitAndOneEventIsOneReport) {
    const uint32_t m1 = gi(0, 1), m2 = gi(1, 1), t1 = gi(0, 2), t2 = gi(1, 2);
    configure({m1, m2, t1, t2});
    send(0x6402, ringCfg({{.ring = 5, .pri = m1, .sec = m2, .mode = 1},
                          {.ring = 6, .pri = t1, .sec = t2, .mode = 2}}));
    ASSERT_EQ(nextReport().size(), 2u);
    // Ring 5 is the master on ports 130/194, ring 6 the transit on 131/195.
    auto master = [](uint8_t pf, uint8_t sf, uint32_t ps, uint32_t ss) {
        return Rec{5, pf, sf, 130, 194, ps, ss};
    };
    auto transit = [](uint8_t pf, uint8_t sf, uint32_t ps, uint32_t ss) {
        return Rec{6, pf, sf, 131, 195, ps, ss};
    };
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
        {"master secondary up", kIfm, operCopy({{m2, true}}), {master(1, 1, kFwd, kBlk)}},
        {"master primary down, by download", 0x6403, ifInfo({{m1, false}}),
         {master(0, 1, kDis, kFwd)}},
        {"master primary up", kIfm, operCopy({{m1, true}}), {master(1, 1, kFwd, kBlk)}},
        {"transit primary down", kIfm, operCopy({{t1, false}}), {transit(0, 1, kDis, kFwd)}},
        {"transit primary up", kIfm, operCopy({{t1, true}}), {transit(0, 0, kFwd, kFwd)}},
        {"both secondaries in one copy", kIfm, operCopy(Links{{m2, false}, {t2, false}}),
         {master(1, 0, kFwd, kDis), transit(1, 0, kFwd, kDis)}},
        {"an unrelated port beside one that matters", kIfm,
         operCopy(Links{{gi(0, 5), false}, {m2, true}}), {master(1, 1, kFwd, kBlk)}},
        {"master stopped", 0x6402, ringCfg({{.ring = 5, .ringAction = 4, .pri = m1, .sec = m2}}),
         {master(0, 0, kDis, kDis)}},
    };
    // clang-format on
    for (const Step& s : steps) {
        SCOPED_TRACE(s.what);
        send(s.mtype, s.body);
        EXPECT_EQ(nextReport(), s.expect);
    }
    EXPECT_FALSE(agent_.rings().at(5).node.running);
    EXPECT_TRUE(agent_.rings().at(6).node.running);
}

}  // namespace
}  // namespace vorn
