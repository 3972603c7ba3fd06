// Agent reports: each half of a record is matched against the ring's port and relayed, the
// stored state follows the report, and nothing of a message that fails its sequence check
// or claims more than it holds is applied past its edge.

#include <gtest/gtest.h>

#include "agent/agent_fixture.h"
#include "l2pm/l2pm_test_util.h"

#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

namespace rpt = agt::report;
using Bytes = std::vector<uint8_t>;

struct Rec {
    uint16_t ringId;
    uint16_t priPort;
    uint32_t priState;
    uint8_t priFlush;
    uint16_t secPort;
    uint32_t secState;
    uint8_t secFlush;
};

class ReportTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        // Records for L2PM are gathered only while its queue exists.
        openPeer(VORN_L2PM_SERVICE, 0);
        createL2pmQueue();
        ring_ = makeRing(5);
        ring_->memberVlanBmap = l2pmt::vlanSet({20, 21});
        makePort(gi(0, 1), {10, 20, 21});
        makePort(gi(1, 1), {10, 20, 21});
        l2pmt::attach(ring_, 1, gi(0, 1));
        l2pmt::attach(ring_, 0, gi(1, 1));
    }

    // A report from `slot` as the next message of its SWP stream; `count` overrides the
    // record count it claims.
    Bytes report(int slot, const std::vector<Rec>& recs, std::optional<uint32_t> count = {}) {
        Bytes m(rpt::kOffRecords + rpt::kRecLen * recs.size());
        be::Writer w(m.data(), m.size());
        w.u32(ipc::kOffMlen, static_cast<uint32_t>(m.size()));
        w.u32(ipc::kOffMtype, agt::kMtReport);
        w.u32(swp::kOffMagic, swp::kMagic);
        w.u32(swp::kOffSeq, ++seq_);
        w.u32(swp::kOffStream, 7);
        w.u32(swp::kOffEpoch, 1);
        w.u32(rpt::kOffSlot, static_cast<uint32_t>(slot));
        w.u32(rpt::kOffCount, count.value_or(static_cast<uint32_t>(recs.size())));
        for (size_t i = 0; i < recs.size(); ++i) {
            size_t off = rpt::kOffRecords + rpt::kRecLen * i;
            const Rec& r = recs[i];
            w.u16(off + rpt::kOffRingId, r.ringId);
            w.u8(off + rpt::kOffPriFlush, r.priFlush);
            w.u8(off + rpt::kOffSecFlush, r.secFlush);
            w.u16(off + rpt::kOffPriPort, r.priPort);
            w.u16(off + rpt::kOffSecPort, r.secPort);
            w.u32(off + rpt::kOffPriState, r.priState);
            w.u32(off + rpt::kOffSecState, r.secState);
        }
        return m;
    }

    // Records pending for L2PM: (port-state records, flush records).
    static std::pair<uint32_t, uint32_t> pendingL2pm() {
        auto count = [](const uint8_t* buf, size_t off) {
            return buf == nullptr ? 0u : be::Reader(buf, VORN_MSG_BUF_SIZE).u32(off);
        };
        return {count(gpVornL2PmPortStateBuf, VORN_L2PM_PS_COUNT_OFF),
                count(gpVornL2PmFlushBuf, VORN_L2PM_FLUSH_COUNT_OFF)};
    }

    VornRingEntry* ring_ = nullptr;
    uint32_t seq_ = 0;
};

constexpr uint16_t kPri = agt::portNumber(0, 1);  // Gi 0/1: 130
constexpr uint16_t kSec = agt::portNumber(1, 1);  // Gi 1/1: 194

TEST_F(ReportTest, EachStateCodeAndEachHalf) {
    const struct {
        const char* name;
        Rec rec;
        uint32_t wantPri, wantSec;
        std::pair<uint32_t, uint32_t> wantL2pm;  // port-state and flush records
        bool mismatchLogged;
    } cases[] = {
        // From DISABLED: only entering forwarding reaches L2PM.
        {"primary FORW", {5, kPri, 2, 0, 0, 0, 0}, 2, 0, {1, 0}, false},
        {"primary PRE-FORW", {5, kPri, 1, 0, 0, 0, 0}, 1, 0, {0, 0}, false},
        {"primary BLOCKING", {5, kPri, 3, 0, 0, 0, 0}, 3, 0, {0, 0}, false},
        {"primary DISABLED", {5, kPri, 0, 0, 0, 0, 0}, 0, 0, {0, 0}, false},
        {"primary code 7 stored as sent", {5, kPri, 7, 0, 0, 0, 0}, 7, 0, {0, 0}, false},
        // State 4 carries no state: the flush goes, the stored state stays.
        {"state 4 with flush", {5, kPri, 4, 1, 0, 0, 0}, 0, 0, {0, 2}, false},
        {"secondary only", {5, 0, 2, 0, kSec, 2, 1}, 0, 2, {1, 2}, false},
        {"primary mismatch, secondary applied",
         {5, kPri + 1, 2, 1, kSec, 2, 0},
         0,
         2,
         {1, 0},
         true},
        {"unknown ring skipped", {6, kPri, 2, 1, kSec, 2, 1}, 0, 0, {0, 0}, false},
        {"ring id 0 skipped", {0, kPri, 2, 1, kSec, 2, 1}, 0, 0, {0, 0}, false},
    };
    vornErrPrint = 1;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ring_->u4PriPortState = ring_->u4SecPortState = VORN_PORT_DISABLED;
        vornFlushPendingMsgs();
        Bytes m = report(1, {c.rec});
        int rc = 0;
        std::string out = captureStdout([&] { rc = vornProcMsgFromAgt(m.data()); });
        EXPECT_EQ(rc, 0);
        EXPECT_EQ(ring_->u4PriPortState, c.wantPri);
        EXPECT_EQ(ring_->u4SecPortState, c.wantSec);
        EXPECT_EQ(pendingL2pm(), c.wantL2pm);
        bool logged =
            out.find(
                "vornProcMsgFromAgt(): Primary port mismatch for Ring 5. Mgr "
                "Port (130), Agent Port (131), Port State (2), isFlush (1)") != std::string::npos;
        EXPECT_EQ(logged, c.mismatchLogged) << out;
    }
}

TEST_F(ReportTest, FailedChecksApplyNothing) {
    vornErrPrint = 1;
    Rec forward{5, kPri, 2, 1, kSec, 3, 0};
    Bytes first = report(1, {forward});
    ASSERT_EQ(vornProcMsgFromAgt(first.data()), 0);
    ASSERT_EQ(ring_->u4PriPortState, 2u);
    ring_->u4PriPortState = VORN_PORT_DISABLED;
    vornFlushPendingMsgs();
    std::string out = captureStdout([&] { EXPECT_EQ(vornProcMsgFromAgt(first.data()), -1); });
    EXPECT_NE(out.find("vornProcMsgFromAgt: SWP failure for Agent (1) Que, RC = SWP_FAILURE_SEQ"),
              std::string::npos)
        << out;
    seq_ += 3;  // a gap
    Bytes gap = report(1, {forward});
    out = captureStdout([&] { EXPECT_EQ(vornProcMsgFromAgt(gap.data()), -1); });
    EXPECT_NE(out.find("SWP failure for Agent (1) Que, RC: 5"), std::string::npos) << out;
    Bytes badSlot = report(12, {forward});
    EXPECT_EQ(vornProcMsgFromAgt(badSlot.data()), -1);
    EXPECT_EQ(ring_->u4PriPortState, VORN_PORT_DISABLED);
    EXPECT_EQ(pendingL2pm(), (std::pair<uint32_t, uint32_t>{0, 0}));
}

TEST_F(ReportTest, CountBeyondTheMessageStopsAtItsEnd) {
    // Slot 2's stream: the first message synchronises it.
    Bytes empty = report(2, {});
    EXPECT_EQ(vornProcMsgFromAgt(empty.data()), 0);
    vornErrPrint = 1;
    Bytes m = report(2, {{5, kPri, 2, 0, kSec, 3, 0}}, 0x10000000);
    int rc = 0;
    std::string out = captureStdout([&] { rc = vornProcMsgFromAgt(m.data()); });
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(ring_->u4PriPortState, 2u);
    EXPECT_EQ(ring_->u4SecPortState, 3u);
    EXPECT_NE(out.find("vornProcMsgFromAgt(): 268435456 records claimed, 1 in the message of "
                       "152 bytes"),
              std::string::npos)
        << out;
}

TEST_F(ReportTest, OperStatusOfAMasterFollowsItsPortStates) {
    const struct {
        uint8_t mode;
        uint32_t pri, sec;
        int want;
    } cases[] = {
        {VORN_MODE_MASTER, 2, 3, VORN_OPER_UP},   {VORN_MODE_MASTER, 2, 2, VORN_OPER_DOWN},
        {VORN_MODE_MASTER, 0, 3, VORN_OPER_DOWN}, {VORN_MODE_TRANSIT, 2, 3, VORN_OPER_NONE},
        {VORN_MODE_NONE, 2, 3, VORN_OPER_NONE},
    };
    for (const auto& c : cases) {
        ring_->u1Mode = c.mode;
        ring_->u4PriPortState = c.pri;
        ring_->u4SecPortState = c.sec;
        EXPECT_EQ(vornGetOperStatus(5), c.want) << int(c.mode) << " " << c.pri << " " << c.sec;
    }
    EXPECT_EQ(vornGetOperStatus(6), VORN_OPER_DOWN);
    EXPECT_EQ(vornGetOperStatus(256), VORN_OPER_DOWN);
}

}  // namespace
}  // namespace vorn::test
