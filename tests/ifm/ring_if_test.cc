// The ring-interface exchanges with IFM: the notice of ring interfaces and its flags, the
// control-VLAN question, and the stopping of a ring whose interface IFM took away.

#include <cstdio>
#include <optional>
#include <thread>

#include "l2pm/l2pm_test_util.h"
#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

using namespace l2pmt;

const uint32_t P = gi(0, 5), S = gi(0, 11);  // ports 134 and 140

// The header words of every message of the manager to IFM.
void expectIfmHeader(const std::vector<uint8_t>& m, uint32_t len, uint32_t mtype) {
    ASSERT_EQ(m.size(), len);
    be::Reader r(m.data(), m.size());
    const std::pair<size_t, uint32_t> words[] = {
        {8, len},
        {12, mtype},
        {20, 0},
        {28, 0},
        {32, uint32_t(taskIdSelf())},
        {36, 0},
        {40, 0x7F000001},
        {44, 226u << 20 | 1},
        {48, 0},
        {52, 0x7F000001},
        {56, 138u << 20 | 1},
    };
    for (auto [off, value] : words) EXPECT_EQ(r.u32(off), value) << "offset " << off;
}

// Ports P and S exist; rings 7 and 8 may use them.
class RingIfNoticeTest : public MgrTest {
protected:
    void SetUp() override {
        MgrTest::SetUp();
        ASSERT_NE(makePort(P, {}), nullptr);
        ASSERT_NE(makePort(S, {}), nullptr);
        ASSERT_NE(makeRing(7), nullptr);
        ASSERT_NE(makeRing(8), nullptr);
    }
};

TEST_F(RingIfNoticeTest, NoticeBytesAndFlags) {
    QelKey ifm = openPeer(138, 0);
    ASSERT_EQ(vornNotifRingIfCfgToIFM(P, S, 1), 0);
    auto m = recvOn(ifm);
    expectIfmHeader(m, 76, 11016);
    be::Reader r(m.data(), m.size());
    EXPECT_EQ(std::vector<uint32_t>({r.u32(60), r.u32(64), r.u32(68), r.u32(72)}),
              std::vector<uint32_t>({1, P, S, 0x80000000}));

    enum Use { None = 0, SSecOf7 = 1, SPriOf7 = 2, PPriOf8 = 4 };
    const struct {
        const char* name;
        uint32_t action;
        bool pIsIcl;
        int uses;
        std::optional<uint32_t> flags;  // none: no notice
    } cases[] = {
        {"added, primary is the ICL", 1, true, None, 0xC0000000},
        {"removed, ports free", 2, false, None, 0},
        {"removed, S another ring's secondary", 2, false, SSecOf7, 0x80000000},
        {"removed, S another ring's primary", 2, false, SPriOf7, 0},
        {"removed, ICL another ring's primary", 2, true, PPriOf8, 0x40000000},
        {"removed, P another ring's primary, no ICL", 2, false, PPriOf8, 0},
        {"removed, both still used", 2, true, SSecOf7 | PPriOf8, std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (uint32_t ifIndex : {P, S}) vornGetPort(vornPortNumOf(ifIndex))->ringBmap = {};
        if (c.uses & SSecOf7) attach(gVornRing[7], 0, S);
        if (c.uses & SPriOf7) attach(gVornRing[7], 1, S);
        if (c.uses & PPriOf8) attach(gVornRing[8], 1, P);
        setIcl(c.pIsIcl ? P : 0);
        EXPECT_EQ(vornNotifRingIfCfgToIFM(P, S, c.action), 0);
        auto notice = recvOn(ifm, c.flags ? 1000 : 0);
        ASSERT_EQ(notice.size(), c.flags ? 76u : 0u);
        if (c.flags) {
            EXPECT_EQ(be::Reader(notice.data(), 76).u32(72), *c.flags);
        }
        gVornRing[7]->u2PriPortNum = gVornRing[7]->u2SecPortNum = gVornRing[8]->u2PriPortNum = 0;
    }
}

TEST_F(RingIfNoticeTest, RefusalsAndTraces) {
    vornZilDbgPrint = 1;
    const uint32_t unknown = gi(3, 3);
    const struct {
        uint32_t pri, sec, action;
        std::string trace;
    } cases[] = {
        {P, unknown, 1, "vornNotifRingIfCfgToIFM(): port(167969536) doeds not Exist \r\n"},
        {unknown, S, 2, "vornNotifRingIfCfgToIFM(): port(167969536) doeds not Exist \r\n"},
        {P, S, 3, "vornNotifRingIfCfgToIFM() Invlaid ACtion: 3 \r\n"},
        {P, S, 1, "vornNotifRingIfCfgToIFM: qelIpcSend failed\r\n"},  // no IFM
    };
    for (const auto& c : cases) {
        std::string out =
            captureStdout([&] { EXPECT_EQ(vornNotifRingIfCfgToIFM(c.pri, c.sec, c.action), -1); });
        char head[128];
        std::snprintf(head, sizeof(head),
                      "vornNotifRingIfCfgToIFM, PriIfIndex: %ld secIfIndex: %ld action: %d \r\n",
                      long(c.pri), long(c.sec), int(c.action));
        EXPECT_EQ(out, head + c.trace);
    }
}

using CtrlVlanQuestionTest = MgrTest;

TEST_F(CtrlVlanQuestionTest, AnsweredRefusedAndFailed) {
    QelKey ifm = openPeer(138, 0);
    const struct {
        uint16_t vlan;
        uint32_t action, answer;
    } cases[] = {{10, 1, 0}, {4095, 1, 0x8A000141}, {10, 2, 0}};
    for (const auto& c : cases) {
        std::vector<Bytes> seen;
        std::thread peer = answerInPlace(ifm, &seen, [&](size_t, Bytes& m) {
            be::Writer(m.data(), m.size()).u32(68, c.answer);
        });
        EXPECT_EQ(vornIfmRMirrReqInfo(c.vlan, c.action), static_cast<int>(c.answer));
        peer.join();
        ASSERT_EQ(seen.size(), 1u);
        expectIfmHeader(seen[0], 72, 10956);
        EXPECT_EQ(words(seen[0], {60, 64, 68}), (std::vector<uint32_t>{c.action, c.vlan, 0}));
    }
    qelIpcClose(ifm);
    vornErrPrint = 1;
    std::string out = captureStdout([] { EXPECT_EQ(vornIfmRMirrReqInfo(10, 1), -1); });
    EXPECT_EQ(out, "vornIfmRMirrReqInfo: qelIpcSend failed\r\n");
}

using DisableRingTest = L2pmTest;

TEST_F(DisableRingTest, ForwardingSidesBlockAndStatesReset) {
    L2pmSwpPeer l2pm(l2pmKey_);
    // Ring 5 with member VLANs 10 and 20 over P (carrying 10, 20, 30) and S (20).
    VornRingEntry* ring = makeRing(5);
    VornPortEntry* pri = makePort(P, {10, 20, 30});
    ASSERT_TRUE(ring && pri && makePort(S, {20}));
    attach(ring, 1, P);
    attach(ring, 0, S);
    vornGetPort(vornPortNumOf(S))->isOwnedByRingConf = 1;
    const struct {
        const char* name;
        uint32_t priState, secState, flags;
        uint8_t priOwned;
        std::vector<PortStateRec> recs;
    } cases[] = {
        {"primary forwards, secondary blocks", 2, 3, 0x21, 1, {{P, {10, 20}, {}}}},
        {"both forward", 2, 2, 0x21, 1, {{P, {10, 20}, {}}, {S, {20}, {}}}},
        {"neither forwards", 1, 0, 0x21, 1, {}},
        {"no member VLANs", 2, 2, 0x01, 1, {}},
        {"primary not owned", 2, 3, 0x21, 0, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ring->u4PriPortState = c.priState;
        ring->u4SecPortState = c.secState;
        ring->u4Flags = c.flags;
        ring->memberVlanBmap = vlanSet({10, 20});
        pri->isOwnedByRingConf = c.priOwned;
        EXPECT_EQ(vornDisableRingOnIfmChange(ring), 0);
        EXPECT_EQ(ring->u4PriPortState | ring->u4SecPortState, 0u);
        if (c.recs.empty()) {
            EXPECT_EQ(gpVornL2PmPortStateBuf, nullptr);
        } else {
            vornFlushPendingMsgs();
            EXPECT_EQ(portStateRecs(l2pm.next()), c.recs);
        }
    }
    ring->u4Flags = 0x07;
    ring->u4PriPortState = 2;
    vornDbgPrint = 1;
    std::string out = captureStdout([ring] { vornDisableRingOnIfmChange(ring); });
    EXPECT_EQ(out.find("vornDisableRingOnIfmChange(): Ring = 5, Flags = 0x7, PriPort = 134 (FORW), "
                       "SecPort = 140 (DISABLED)\r\n"),
              0u)
        << out;
    EXPECT_NE(out.find("vornDisableRingOnIfmChange(): Empty Member Vlans list for Ring 5.\r\n"),
              std::string::npos)
        << out;
}

}  // namespace
}  // namespace vorn::test
