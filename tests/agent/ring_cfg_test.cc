// Ring configuration records as a test agent receives them after the flush: the record
// layout, the fields each flag carries, the buffer split, restart-as-start during the
// initial download, enable and disable, drops for slots without a queue and the full
// download.

#include <string>
#include <vector>

#include "agent_fixture.h"

#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

using W = std::vector<uint32_t>;
constexpr uint16_t kRing = 7;
constexpr uint32_t kMsgRingCfg = 0x6402;

// What one record should hold; fields not carried stay zero.
struct Expect {
    uint16_t action;
    uint16_t ringId;
    uint32_t ringAction;
    uint32_t carried;  // configFlags
    uint16_t desg;
    const VornRingEntry* ring;  // source of the carried fields
};

// A record built at the offsets of the record table.
std::vector<uint8_t> record(const Expect& e) {
    std::vector<uint8_t> r(544);
    be::Writer w(r.data(), r.size());
    w.u16(0, e.action);
    w.u16(2, e.ringId);
    w.u32(4, e.ringAction);
    w.u32(8, e.carried);
    w.u16(12, e.desg);
    if (e.carried & 0x01) {
        w.u16(14, e.ring->u2CtrlVlanId);
        w.u32(16, e.ring->u4PriIfIndex);
        w.u32(20, e.ring->u4SecIfIndex);
    }
    if (e.carried & 0x20) w.bytes(24, e.ring->memberVlanBmap.data(), 512);
    if (e.carried & 0x08) w.u16(536, e.ring->u2HelloTime);
    if (e.carried & 0x10) w.u16(538, e.ring->u2DeadTime);
    if (e.carried & 0x02) w.u8(540, e.ring->u1Mode);
    return r;
}

class RingCfgTest : public AgentTest {
protected:
    // Ring 7: control VLAN 100 between Gi 1/2 and Gi 2/3, transit, hello 700, dead 2100,
    // member VLANs 2, 300 and 4095, designated line card 2.
    VornRingEntry* fullRing() {
        VornRingEntry* r = makeRing(kRing);
        r->u2CtrlVlanId = 100;
        r->u4PriIfIndex = gi(1, 2);
        r->u4SecIfIndex = gi(2, 3);
        r->u2PriPortNum = giPortNum(1, 2);
        r->u2SecPortNum = giPortNum(2, 3);
        r->u1Mode = VORN_MODE_TRANSIT;
        r->u2HelloTime = 700;
        r->u2DeadTime = 2100;
        for (uint32_t v : {2, 300, 4095}) bmp::set(r->memberVlanBmap, v);
        r->u2DesgLineCard = 2;
        return r;
    }
    // Flushes and returns the one message the agent gets.
    std::vector<uint8_t> flushAndRecv(QelKey agent) {
        vornFlushPendingMsgs();
        return recvOn(agent);
    }
};

TEST_F(RingCfgTest, FullRecordIsByteExact) {
    QelKey agent = addAgent(3);
    VornRingEntry* ring = fullRing();
    vornDbgPrint = 1;
    std::string out = captureStdout([&] {
        EXPECT_EQ(vornSendRingCfgMsgToSingleAgt(3, ring, 1, 0x7F, 3, ring->memberVlanBmap.data()),
                  0);
    });
    vornDbgPrint = 0;
    EXPECT_EQ(out,
              "vornSendRingCfgMsgToSingleAgt(): LC: 3, RingId: 7, Action: 1, Flags: 0x7f, "
              "RingAction: 3, AgtInitDone: 1 \r\n");
    std::vector<uint8_t> m = flushAndRecv(agent);
    ASSERT_EQ(m.size(), 672u);
    EXPECT_EQ(words(m, {ipc::kOffMlen, ipc::kOffMtype, 124}), (W{672, kMsgRingCfg, 1}));
    // Action set, ring 7, ring action restart, flags 0x01 0x02 0x08 0x10 0x20 (never 0x04 or
    // 0x40), designated agent 2, control VLAN 100, primary Gi 1/2, secondary Gi 2/3; the
    // member VLANs 2, 300 and 4095 from 24; hello 700, dead 2100, mode transit at 536.
    Bytes want = hex("0001 0007 00000003 0000003b 0002 0064 0a010200 0a020300");
    want.resize(536);
    want[24 + 0] = 0x20;
    want[24 + 37] = 0x08;
    want[24 + 511] = 0x01;
    Bytes tail = hex("02bc 0834 02 000000");
    want.insert(want.end(), tail.begin(), tail.end());
    EXPECT_EQ(ringCfgRecord(m, 0), want);
}

TEST_F(RingCfgTest, EachFlagCarriesItsFieldsOnly) {
    QelKey agent = addAgent(3);
    VornRingEntry* ring = fullRing();
    const struct {
        uint32_t flags;
        bool withVlans;
        uint32_t carried;
    } cases[] = {
        {0x01, true, 0x01},  {0x02, true, 0x02}, {0x04, true, 0x00},  {0x08, true, 0x08},
        {0x10, true, 0x10},  {0x20, true, 0x20}, {0x20, false, 0x00}, {0x40, true, 0x00},
        {0x7F, false, 0x1B}, {0x00, true, 0x00},
    };
    uint32_t ringAction = 1;
    for (const auto& c : cases) {
        const uint8_t* vlans = c.withVlans ? ring->memberVlanBmap.data() : nullptr;
        ASSERT_EQ(vornSendRingCfgMsgToSingleAgt(3, ring, 2, c.flags, ringAction, vlans), 0);
        ringAction = ringAction % 4 + 1;
    }
    std::vector<uint8_t> m = flushAndRecv(agent);
    ASSERT_EQ(m.size(), 128u + 544u * std::size(cases));
    ringAction = 1;
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(ringCfgRecord(m, i), record({2, kRing, ringAction, cases[i].carried, 2, ring}));
        ringAction = ringAction % 4 + 1;
    }
}

TEST_F(RingCfgTest, FifteenthRecordStartsANewMessage) {
    QelKey agent = addAgent(3);
    std::vector<VornRingEntry*> rings;
    for (uint16_t id = 1; id <= 15; ++id) rings.push_back(makeRing(id));
    for (int i = 0; i < 14; ++i) {
        ASSERT_EQ(vornSendRingCfgMsgToSingleAgt(3, rings[i], 1, 0x08, 1, nullptr), 0);
    }
    EXPECT_TRUE(recvOn(agent, 0).empty()) << "fourteen records still fit";
    ASSERT_EQ(vornSendRingCfgMsgToSingleAgt(3, rings[14], 1, 0x08, 1, nullptr), 0);

    std::vector<uint8_t> first = recvOn(agent);
    ASSERT_EQ(first.size(), 7744u);
    EXPECT_EQ(words(first, {ipc::kOffMlen, 124}), (W{7744, 14}));
    for (size_t i = 0; i < 14; ++i) {
        EXPECT_EQ(ringCfgRecord(first, i),
                  record({1, static_cast<uint16_t>(i + 1), 1, 0x08, 12, rings[i]}));
    }
    // The second message leaves once the agent has acknowledged the first.
    ackAsAgent(agent, first);
    vornFlushPendingMsgs();
    std::vector<uint8_t> second = recvServing(agent);
    ASSERT_EQ(second.size(), 672u);
    EXPECT_EQ(ringCfgRecord(second, 0), record({1, 15, 1, 0x08, 12, rings[14]}));
}

TEST_F(RingCfgTest, SlotsWithoutQueueGetNothing) {
    VornRingEntry* ring = fullRing();
    // No queue when the record is made: nothing is queued.
    EXPECT_EQ(vornSendRingCfgMsgToSingleAgt(4, ring, 1, 0x01, 1, nullptr), 0);
    EXPECT_EQ(gapVornAgtBuf[4], nullptr);

    // The queue goes away before the flush: the records are dropped, not kept.
    QelKey agent = addAgent(5);
    ASSERT_EQ(vornSendRingCfgMsgToSingleAgt(5, ring, 1, 0x01, 1, nullptr), 0);
    ASSERT_NE(gapVornAgtBuf[5], nullptr);
    vornVornaSwpReset(5);
    uint64_t held = varBlocksInUse();
    vornFlushPendingMsgs();
    EXPECT_EQ(gapVornAgtBuf[5], nullptr);
    EXPECT_EQ(varBlocksInUse(), held - 1) << "the buffer went back to the pool";
    EXPECT_TRUE(recvOn(agent, 0).empty());

    // Invalid slots are refused without touching any table.
    EXPECT_EQ(vornSendRingCfgMsgToSingleAgt(12, ring, 1, 0x01, 1, nullptr), -1);
    EXPECT_EQ(vornSendRingCfgMsgToSingleAgt(-1, ring, 1, 0x01, 1, nullptr), -1);
    EXPECT_EQ(vornGetLineCardPendBufToFill(12), nullptr);
}

TEST_F(RingCfgTest, ToAllAgentsWithRestartAsStartDuringInitialDownload) {
    QelKey running = addAgent(1, 1);
    QelKey loading = addAgent(2, 0);
    VornRingEntry* ring = makeReadyRing(kRing, 100, gi(1, 2), gi(2, 3), 1);
    ring->u1Mode = VORN_MODE_MASTER;
    VornRingEntry* other = makeRing(8);
    other->u2SecPortNum = giPortNum(2, 3);
    // A mode change of a running ring: a restart, except for the agent still loading.
    ASSERT_EQ(vornSendRingCfgMsgToAllAgts(ring, 1, 0x02, 1, nullptr), 0);
    EXPECT_EQ(ring->u2DesgLineCard, 2) << "chosen from the secondary Gi 2/3";
    // Removing the control VLAN of a ring with no designated card chooses none.
    ASSERT_EQ(vornSendRingCfgMsgToAllAgts(other, 2, 0x01, 0, nullptr), 0);
    EXPECT_EQ(other->u2DesgLineCard, VORN_NO_LINE_CARD);
    // Enable and disable carry no fields; enable chooses a designated card, disable not.
    ring->u2DesgLineCard = VORN_NO_LINE_CARD;
    ASSERT_EQ(vornSendRingEnableMsgToAgt(ring), 0);
    EXPECT_EQ(ring->u2DesgLineCard, 2);
    ASSERT_EQ(vornSendRingDisableMsgToAgt(other), 0);
    EXPECT_EQ(other->u2DesgLineCard, VORN_NO_LINE_CARD);

    vornFlushPendingMsgs();
    for (QelKey agent : {running, loading}) {
        std::vector<uint8_t> m = recvOn(agent);
        ASSERT_EQ(m.size(), 128u + 4 * 544u);
        EXPECT_EQ(ringCfgRecord(m, 0),
                  record({1, kRing, agent == running ? 3u : 2u, 0x02, 2, ring}));
        EXPECT_EQ(ringCfgRecord(m, 1), record({2, 8, 1, 0x01, 12, other}));
        EXPECT_EQ(ringCfgRecord(m, 2), record({1, kRing, 2, 0, 2, ring}));
        EXPECT_EQ(ringCfgRecord(m, 3), record({2, 8, 4, 0, 12, other}));
    }
}

TEST_F(RingCfgTest, BufferExhaustionLosesTheRecord) {
    addAgent(1);
    addAgent(6);
    VornRingEntry* ring = fullRing();
    vornErrPrint = 1;
    host::memFailNextForTest(VORN_MEM_PART_ID, VORN_MSG_BUF_SIZE, 1);
    std::string out = captureStdout([&] { EXPECT_EQ(vornSendRingEnableMsgToAgt(ring), -1); });
    EXPECT_EQ(out, "vornSendRingEnableMsgToAgt (): Cannot allocate buffer for lineCard 1\r\n");
    // The first failing slot ends the walk: slot 6 gets nothing either.
    EXPECT_EQ(gapVornAgtBuf[1], nullptr);
    EXPECT_EQ(gapVornAgtBuf[6], nullptr);
}

TEST_F(RingCfgTest, FullDownloadInRingOrder) {
    QelKey agent = addAgent(4, 0);
    // Ring 3 runs: every flag, member VLANs, designated line card 4.
    VornRingEntry* r3 = makeReadyRing(3, 100, gi(4, 1), gi(4, 2), 1);
    r3->u4Flags = 0x7F;
    r3->u1Mode = VORN_MODE_MASTER;
    bmp::set(r3->memberVlanBmap, 20);
    r3->u2DesgLineCard = 4;
    // Ring 200 has its mandatory flags but is not ready (primary untagged).
    VornRingEntry* r200 = makeReadyRing(200, 101, gi(5, 1), gi(5, 2), 1);
    r200->isPriTagged = 0;
    // Ring 9: only a hello interval; its member VLAN bitmap is not sent without the flag.
    VornRingEntry* r9 = makeRing(9);
    r9->u4Flags = VORN_RING_CFG_HELLO;
    bmp::set(r9->memberVlanBmap, 30);

    EXPECT_EQ(vornDnldRingCfgToAgt(4), 0);
    std::vector<uint8_t> m = flushAndRecv(agent);
    ASSERT_EQ(m.size(), 128u + 3 * 544u);
    EXPECT_EQ(ringCfgRecord(m, 0), record({1, 3, 2, 0x3B, 4, r3}));
    EXPECT_EQ(ringCfgRecord(m, 1), record({1, 9, 1, 0x08, 12, r9}));
    EXPECT_EQ(ringCfgRecord(m, 2), record({1, 200, 1, 0x03, 12, r200}));
}

}  // namespace
}  // namespace vorn::test
