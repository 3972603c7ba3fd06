// Port-state and flush messages as L2PM receives them, their batching into full messages,
// and what a ring's port-state/flush result turns into.

#include <fstream>

#include "l2pm/l2pm_test_util.h"
#include "platform/evtlog.h"
#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

using namespace l2pmt;

using PortStateTest = L2pmTest;

TEST_F(PortStateTest, RecordsLeaveAtTheFlushByteExact) {
    L2pmSwpPeer l2pm(l2pmKey_);
    VornVlanBmap vlans = vlanSet({10, 4095}), fwd = vlanSet({10});
    ASSERT_EQ(vornSendPortStateMsgToL2Pm(gi(0, 5), vlans.data(), fwd.data()), 0);
    ASSERT_EQ(vornSendPortStateMsgToL2Pm(po(7), vlans.data(), nullptr), 0);
    ASSERT_EQ(vornSendFlushMsgToL2Pm(4095, gi(11, 63)), 0);
    ASSERT_EQ(vornSendFlushMsgToL2Pm(10, po(128)), 0);
    EXPECT_TRUE(l2pm.quiet()) << "records wait for the flush";
    vornFlushPendingMsgs();

    auto ps = l2pm.next();  // port states leave before the flushes
    ASSERT_EQ(ps.size(), 260u + 2 * 1032);
    const std::pair<size_t, uint8_t> bytes[] = {
        {259, 2},     {260, 0x0A},  {262, 0x05},    // count; Gi 0/5
        {265, 0x20},  {775, 0x01},  {777, 0x20},    // VLAN set 10, 4095; forwarding set 10
        {1292, 0x16}, {1295, 0x07}, {1809, 0x00}};  // Po 7, no forwarding set
    for (auto [off, value] : bytes) EXPECT_EQ(ps[off], value) << "offset " << off;
    EXPECT_EQ(portStateRecs(ps),
              (std::vector<PortStateRec>{{gi(0, 5), {10, 4095}, {10}}, {po(7), {10, 4095}, {}}}));
    // Kind 82, length 24, VLAN 4095 at 12, Gi 11/63 at 16.
    auto fl = l2pm.next();
    ASSERT_EQ(fl.size(), 260u + 2 * 24);
    EXPECT_EQ(Bytes(fl.begin() + 260, fl.begin() + 284),
              hex("00000052 00000018 00000000 0fff 0000 0a0b3f00 00000000"));
    EXPECT_EQ(flushRecs(fl), (std::vector<FlushRec>{{4095, gi(11, 63)}, {10, po(128)}}));
}

TEST_F(PortStateTest, FullBuffersLeaveBeforeTheNextRecord) {
    L2pmSwpPeer l2pm(l2pmKey_);
    VornVlanBmap vlans = vlanSet({100});
    for (uint32_t i = 0; i < 7; ++i) vornSendPortStateMsgToL2Pm(gi(1, i), vlans.data(), nullptr);
    for (uint16_t v = 1; v <= 330; ++v) vornSendFlushMsgToL2Pm(v, gi(0, 1));
    EXPECT_TRUE(l2pm.quiet()) << "7 port states and 330 flushes fit";

    ASSERT_EQ(vornSendPortStateMsgToL2Pm(gi(1, 7), vlans.data(), nullptr), 0);
    ASSERT_EQ(vornSendFlushMsgToL2Pm(331, gi(0, 1)), 0);
    EXPECT_EQ(be::Reader(gpVornL2PmPortStateBuf, 8192).u32(256), 1u) << "a fresh buffer";
    EXPECT_EQ(be::Reader(gpVornL2PmFlushBuf, 8192).u32(256), 1u);

    auto recs = portStateRecs(l2pm.next());  // (which lets the manager flush the rest)
    ASSERT_EQ(recs.size(), 7u);
    EXPECT_EQ(recs[6], (PortStateRec{gi(1, 6), {100}, {}}));
    auto flushes = flushRecs(l2pm.next());
    ASSERT_EQ(flushes.size(), 330u);
    EXPECT_EQ(flushes.back(), (FlushRec{330, gi(0, 1)}));
    EXPECT_EQ(portStateRecs(l2pm.next()), (std::vector<PortStateRec>{{gi(1, 7), {100}, {}}}));
    EXPECT_EQ(flushRecs(l2pm.next()), (std::vector<FlushRec>{{331, gi(0, 1)}}));
}

TEST_F(PortStateTest, NoQueueOrNoBufferLosesTheRecordOnly) {
    L2pmSwpPeer l2pm(l2pmKey_);
    vornErrPrint = 1;
    uint32_t handle = vornTcb.l2pmSwpHandle;
    vornTcb.l2pmSwpHandle = 0;
    std::string out = captureStdout([] { EXPECT_EQ(vornSendFlushMsgToL2Pm(5, gi(0, 1)), -1); });
    EXPECT_EQ(out, "vornSendFlushMsgToL2Pm: L2PM SWP queue not created.\r\n");
    EXPECT_EQ(gpVornL2PmFlushBuf, nullptr);
    vornTcb.l2pmSwpHandle = handle;

    // No memory for the buffer after a full one: the full one still leaves.
    for (uint32_t i = 0; i < 7; ++i) vornSendPortStateMsgToL2Pm(gi(0, i), nullptr, nullptr);
    host::memFailNextForTest(VORN_MEM_PART_ID, VORN_MSG_BUF_SIZE, 1);
    out = captureStdout(
        [] { EXPECT_EQ(vornSendPortStateMsgToL2Pm(gi(0, 7), nullptr, nullptr), -1); });
    EXPECT_EQ(out, "vornSendPortStateMsgToL2Pm(): L2PM buffer allocation failed\r\n");
    EXPECT_EQ(gpVornL2PmPortStateBuf, nullptr);
    EXPECT_EQ(portStateRecs(l2pm.next()).size(), 7u);
}

// Ring 5 with member VLANs 10, 20, 30 and control VLAN 5 on Gi 0/5, which carries 5, 10, 20
// and 40: its records name 10 and 20 only.
class ProcPortStateTest : public L2pmTest {
protected:
    void SetUp() override {
        L2pmTest::SetUp();
        ring_ = makeRing(5);
        ASSERT_NE(ring_, nullptr);
        ring_->memberVlanBmap = vlanSet({10, 20, 30});
        ring_->u2CtrlVlanId = 5;
        ASSERT_NE(makePort(gi(0, 5), {5, 10, 20, 40}), nullptr);
    }
    VornRingEntry* ring_ = nullptr;
};

TEST_F(ProcPortStateTest, StateChangesAndFlushes) {
    L2pmSwpPeer l2pm(l2pmKey_);
    enum Rec { None, Forward, Block };
    const struct {
        uint32_t from, to;
        int flush;
        Rec rec;
    } cases[] = {
        {3, 1, 1, None}, {0, 3, 1, None},  {1, 2, 1, Forward}, {4, 2, 1, Forward},
        {2, 4, 1, None}, {2, 0, 1, Block}, {2, 2, 1, None},    {2, 3, 0, Block},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.from << " -> " << c.to << " flush " << c.flush);
        EXPECT_EQ(vornProcPortStateFlush(ring_, gi(0, 5), c.from, c.to, 1, c.flush, 0), 0);
        vornFlushPendingMsgs();
        if (c.rec != None) {
            auto fwd = c.rec == Forward ? std::vector<int>{10, 20} : std::vector<int>{};
            EXPECT_EQ(portStateRecs(l2pm.next()),
                      (std::vector<PortStateRec>{{gi(0, 5), {10, 20}, fwd}}));
        }
        if (c.flush == 1) {  // also for state 4
            EXPECT_EQ(flushRecs(l2pm.next()),
                      (std::vector<FlushRec>{{10, gi(0, 5)}, {20, gi(0, 5)}}));
        }
    }
    EXPECT_TRUE(l2pm.quiet());

    EXPECT_EQ(vornProcPortStateFlush(ring_, gi(0, 9), 3, 2, 1, 1, 0), -1);  // no such port
    EXPECT_TRUE(l2pm.quiet());
}

TEST_F(ProcPortStateTest, SyslogEventOnlyForMasterRingsWhenAsked) {
    vornTcb.evLogKey = qelEvtOpenlog("VORN", 0, 226, 0);
    ASSERT_EQ(qelEvtSetSeverityLevel(vornTcb.evLogKey, 0xFFFFFFFF), 0);
    const struct {
        uint8_t mode;
        uint32_t from, to;
        int side, dispSyslog;
        std::string event;  // empty: none
    } cases[] = {
        {VORN_MODE_MASTER, 3, 1, 1, 1, "Primary interface Gi 0/5 is now Pre-Forwarding"},
        {VORN_MODE_MASTER, 1, 2, 0, 1, "Secondary interface Gi 0/5 is now Forwarding"},
        {VORN_MODE_MASTER, 2, 2, 1, 1, ""},
        {VORN_MODE_MASTER, 2, 4, 1, 1, ""},
        {VORN_MODE_MASTER, 1, 2, 1, 0, ""},
        {VORN_MODE_TRANSIT, 1, 2, 1, 1, ""},
    };
    size_t seen = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << int(c.mode) << ": " << c.from << " -> " << c.to);
        ring_->u1Mode = c.mode;
        vornProcPortStateFlush(ring_, gi(0, 5), c.from, c.to, c.side, 0, c.dispSyslog);
        std::ifstream in(rundir_.path() + "/events.log");
        std::vector<std::string> lines;
        for (std::string l; std::getline(in, l);) lines.push_back(l);
        ASSERT_EQ(lines.size(), seen + (c.event.empty() ? 0 : 1));
        if (!c.event.empty()) {
            EXPECT_NE(lines.back().find("%VORN-5: PORTSTATE: Ring 5: " + c.event),
                      std::string::npos);
        }
        seen = lines.size();
    }
}

}  // namespace
}  // namespace vorn::test
