// Agent registration and card events: the reply, the order of the download, what the other
// agents learn, and where the rings of a card go when it comes up or goes down.

#include <gtest/gtest.h>

#include <map>

#include "agent/agent_fixture.h"
#include "ifm/ifm_test_util.h"

#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

using W = std::vector<uint32_t>;

class RegistrationTest : public AgentTest {
protected:
    // Opens the endpoint of a test agent (no queue yet: the registration makes it).
    QelKey openAgent(int slot) {
        QelKey k = openPeer(VORN_AGENT_SERVICE, slot);
        agents_[slot] = k;
        rcv_[slot] = {0, 0};
        return k;
    }

    // The registration of `slot`, dispatched as the main loop would.
    void registerAgent(int slot, uint32_t lcType = 0x21) {
        std::vector<uint8_t> msg(VORN_MSG_BUF_SIZE);
        be::Writer w(msg.data(), msg.size());
        w.u32(ipc::kOffMagic, ipc::kMagic);
        w.u32(ipc::kOffMlen, agt::reg::kLen);
        w.u32(ipc::kOffMtype, agt::kMtRegister);
        w.u32(agt::reg::kOffSlot, static_cast<uint32_t>(slot));
        w.u32(agt::reg::kOffValueA, 0x7F000100u + static_cast<uint32_t>(slot));
        w.u32(agt::reg::kOffValueB, qel_getQueueId(VORN_AGENT_SERVICE, slot, 1));
        w.u32(agt::reg::kOffLcType, lcType);
        w.u32(agt::reg::kOffPortPipe, 0xA0);
        w.u32(agt::reg::kOffPortPipe + 4, 0xA1);
        vornProcessIpcMsg(msg.data());
    }

    // What reaches a test agent until `last` arrives (or nothing more comes): every SWP
    // message is acknowledged as an agent does, so the manager's window keeps moving.
    std::vector<Bytes> drain(int slot, uint32_t last, int timeoutMs = 2000) {
        std::vector<Bytes> got;
        for (;;) {
            Bytes m = recvServing(agents_[slot], timeoutMs);
            if (m.empty()) return got;
            if (m.size() >= swp::kCtrlMsgLen && u32At(m, swp::kOffMagic) == swp::kMagic) {
                EXPECT_EQ(
                    qelSwpCkSeqAndAck(m.data(), rcv_[slot].data(), Key_getReqQueue(agents_[slot])),
                    swp::kCkAccepted);
            }
            got.push_back(m);
            if (u32At(m, ipc::kOffMtype) == last) return got;
        }
    }

    static W types(const std::vector<Bytes>& msgs) {
        W out;
        for (const Bytes& m : msgs) out.push_back(u32At(m, ipc::kOffMtype));
        return out;
    }

    std::map<int, QelKey> agents_;
    std::map<int, std::array<uint32_t, 2>> rcv_;
};

TEST_F(RegistrationTest, ReplyThenBracketedDownloadInOrderAndAgainOnReRegistration) {
    const int slot = 4;
    openAgent(slot);
    makePort(gi(slot, 1));
    registerAgent(slot, 0x21);
    std::vector<Bytes> first = drain(slot, agt::kMtEndCfg);
    ASSERT_FALSE(first.empty());
    // The reply: 60 bytes, the manager's identity and the agent's words echoed.
    namespace rr = agt::regreply;
    const Bytes& reply = first.front();
    ASSERT_EQ(reply.size(), rr::kLen);
    EXPECT_EQ(words(reply, {ipc::kOffMtype, ipc::kOffMlen, rr::kOffZero36, rr::kOffRpAddr,
                            rr::kOffMgrQueue, rr::kOffSlot, rr::kOffValueA, rr::kOffValueB}),
              (W{agt::kMtRegister, 60, 0, 0x7F000001, qel_getQueueId(226, 0, 1), 4, 0x7F000104,
                 qel_getQueueId(227, 4, 1)}));
    // Without rings: exactly START_CFG, the interface information and END_CFG after the
    // line-card types.
    ASSERT_EQ(types(first), (W{agt::kMtRegister, agt::kMtLcType, agt::kMtStartCfg, agt::kMtIfInfo,
                               agt::kMtEndCfg}));
    for (const Bytes& m : {first[2], first[4]}) {  // the brackets: a zero body
        EXPECT_EQ(Bytes(m.begin() + ipc::kSwpBodyOff, m.end()),
                  Bytes(agt::kBracketLen - ipc::kSwpBodyOff));
    }
    EXPECT_EQ(gVornActiveLineCards[slot], 1);
    EXPECT_EQ(W({vornTcb.lcType[slot], vornTcb.lcPortPipe[slot][0], vornTcb.lcPortPipe[slot][1],
                 vornTcb.agtInitDone[slot]}),
              (W{0x21, 0xA0, 0xA1, 1}));

    // The same slot registers again with a ring configured: the whole download again, its
    // ring configuration before END_CFG, on the flushed queue (numbers from 1, new epoch).
    makeReadyRing(5, 10, gi(2, 1), gi(3, 1), 0);
    registerAgent(slot);
    std::vector<Bytes> second = drain(slot, agt::kMtEndCfg);
    EXPECT_EQ(types(second), (W{agt::kMtRegister, agt::kMtLcType, agt::kMtStartCfg, agt::kMtIfInfo,
                                agt::kMtRingCfg, agt::kMtEndCfg}));
    ASSERT_GE(second.size(), 2u);
    EXPECT_EQ(u32At(first[1], swp::kOffSeq), 1u);
    EXPECT_EQ(u32At(second[1], swp::kOffSeq), 1u);
    EXPECT_NE(u32At(first[1], swp::kOffEpoch), u32At(second[1], swp::kOffEpoch));
}

TEST_F(RegistrationTest, OnlyTheOtherAgentsLearnTheNewDesignatedCard) {
    openAgent(1);
    registerAgent(1);
    drain(1, agt::kMtEndCfg);
    // Ring 5 runs on slot 0 (its secondary is there); slot 0's agent registers next.
    VornRingEntry* ring = makeReadyRing(5, 10, gi(1, 1), gi(0, 1), 1);
    ring->u2DesgLineCard = 0;
    openAgent(0);
    registerAgent(0);
    std::vector<Bytes> own = drain(0, agt::kMtDbgCfg);
    // The registering agent gets its download, then the ring's debug settings, and no
    // designated-card record.
    EXPECT_EQ(types(own), (W{agt::kMtRegister, agt::kMtLcType, agt::kMtStartCfg, agt::kMtIfInfo,
                             agt::kMtRingCfg, agt::kMtEndCfg, agt::kMtDbgCfg}));
    const QelSwpQueueCtrlBlock* cb = host::swpQueueByHandle(vornTcb.vornaSwpHandle[0]);
    ASSERT_NE(cb, nullptr);
    EXPECT_EQ(cb->nextSeq, own.size());  // the reply is no SWP message: nothing else was sent

    // The other agent: the new line-card types, then one record: action 1, no flags, ring
    // action 1, designated card 0.
    std::vector<Bytes> other = drain(1, agt::kMtRingCfg);
    ASSERT_EQ(types(other), (W{agt::kMtLcType, agt::kMtRingCfg}));
    const Bytes& m = other.back();
    EXPECT_EQ(u32At(m, agt::rcfg::kOffCount), 1u);
    Bytes want(544);
    be::Writer w(want.data(), want.size());
    w.u16(agt::rcfg::kOffAction, 1);
    w.u16(agt::rcfg::kOffRingId, 5);
    w.u32(agt::rcfg::kOffRingAction, 1);
    EXPECT_EQ(ringCfgRecord(m, 0), want);  // no flags, designated card 0
}

TEST_F(RegistrationTest, SlotOutsideTheChassisIsRefused) {
    openAgent(3);
    vornDbgPrint = 1;
    std::vector<uint8_t> msg(VORN_MSG_BUF_SIZE);
    be::Writer w(msg.data(), msg.size());
    w.u32(ipc::kOffMlen, agt::reg::kLen);
    w.u32(ipc::kOffMtype, agt::kMtRegister);
    w.u32(agt::reg::kOffSlot, 12);
    w.u32(ipc::kOffSrcSlot, 12);
    w.u32(agt::reg::kOffValueB, qel_getQueueId(VORN_AGENT_SERVICE, 3, 1));
    std::string out = captureStdout([&] { vornProcessIpcMsg(msg.data()); });
    EXPECT_NE(out.find("vornProcVornaRegMsgErrHdlr(): for slot 12 fails with error -1"),
              std::string::npos)
        << out;
    for (int s = 0; s < VORN_MAX_SLOTS; ++s) EXPECT_EQ(vornTcb.vornaSwpHandle[s], 0u) << s;
}

// Card events, dispatched without the flush so that the queued records can be read.
Bytes cardEvent(uint32_t slot) {
    Bytes m(VORN_MSG_BUF_SIZE);
    be::Writer w(m.data(), m.size());
    w.u32(ipc::kOffMlen, 72);
    w.u32(VORN_EVH_SLOT_OFF, slot);
    return m;
}

TEST_F(RegistrationTest, CardDownMovesRingsOrTakesTheirPorts) {
    // Slot 0 goes down. Ring 5's secondary is a plain port there: no replacement. Ring 6 (not
    // running yet) has LAG 1 as secondary, with a member on slot 0 and one on slot 2: it
    // moves to slot 2, yet is sent ring action 4, carried over from ring 5. Ring 7 runs
    // elsewhere.
    addAgent(0);
    addAgent(2);
    VornRingEntry* r5 = makeReadyRing(5, 10, gi(1, 1), gi(0, 1), 1);
    r5->u2DesgLineCard = 0;
    makePort(gi(0, 2));
    makePort(gi(2, 2));
    VornRingEntry* r6 = makeReadyRing(6, 11, gi(1, 3), po(1), 0);
    r6->u2DesgLineCard = 0;
    VornPortEntry* po = vornGetPort(1);
    ASSERT_NE(po, nullptr);
    ASSERT_NE(po->pLagPortList, nullptr);
    po->pLagPortList->members[0] = giPortNum(0, 2);
    po->pLagPortList->members[1] = giPortNum(2, 2);
    po->pLagPortList->desgPortNum = giPortNum(0, 2);
    po->pLagPortList->lastEmptyIndex = 2;
    VornRingEntry* r7 = makeReadyRing(7, 12, gi(1, 4), gi(2, 4), 1);
    r7->u2DesgLineCard = 2;
    vornTcb.lcType[0] = 0x21;

    Bytes ev = cardEvent(0);
    ASSERT_EQ(vornEventCardDown(ev.data()), 0);
    EXPECT_EQ(W({uint32_t(gVornActiveLineCards[0]), vornTcb.vornaSwpHandle[0], vornTcb.lcType[0]}),
              (W{0, 0, 0}));
    // Designated card, secondary ready, owned by the manager.
    auto state = [](const VornRingEntry* r) {
        return W{r->u2DesgLineCard, r->isSecReady, r->isRingOwnedByMgr};
    };
    EXPECT_EQ(state(r5), (W{VORN_NO_LINE_CARD, 0, 1}));
    EXPECT_EQ(state(r6), (W{2, 0, 0}));
    EXPECT_EQ(state(r7), (W{2, 1, 0}));
    // Only the live agent is told, and only of the rings that moved.
    EXPECT_TRUE(ifmt::queuedRingActions(0).empty());
    EXPECT_EQ(ifmt::queuedRingActions(2), (std::vector<std::pair<int, int>>{{5, 4}, {6, 4}}));

    // A ready ring that moves gets ring action 2 when nothing stopped before it.
    vornFlushPendingMsgs();
    ASSERT_EQ(vorn2VornaCreateSwpQ(0), 0);
    gVornActiveLineCards[0] = 1;
    r6->isSecReady = 1;
    Bytes ev2 = cardEvent(2);
    ASSERT_EQ(vornEventCardDown(ev2.data()), 0);
    EXPECT_EQ(r6->u2DesgLineCard, 0);
    EXPECT_EQ(r7->u2DesgLineCard, VORN_NO_LINE_CARD);
    EXPECT_EQ(ifmt::queuedRingActions(0), (std::vector<std::pair<int, int>>{{6, 2}, {7, 4}}));

    Bytes bad = cardEvent(12);
    EXPECT_EQ(vornEventCardDown(bad.data()), -1);
    EXPECT_EQ(vornEventCardUp(bad.data()), -1);
}

TEST_F(RegistrationTest, CardUpGivesWaitingRingsToTheCard) {
    // Ring 5 waits for slot 3 (its secondary is there), owned by the manager; ring 6 keeps the
    // card it has, although that card is down; ring 7's secondary is on another card.
    VornRingEntry* r5 = makeReadyRing(5, 10, gi(1, 1), gi(3, 1), 0);
    r5->isRingOwnedByMgr = 1;
    r5->u4SecPortState = VORN_PORT_FORW;
    VornRingEntry* r6 = makeReadyRing(6, 11, gi(1, 2), gi(3, 2), 0);
    r6->u2DesgLineCard = 4;
    VornRingEntry* r7 = makeReadyRing(7, 12, gi(1, 3), gi(5, 3), 0);
    Bytes ev = cardEvent(3);
    ASSERT_EQ(vornEventCardUp(ev.data()), 0);
    EXPECT_EQ(gVornActiveLineCards[3], 1);
    // Ring 5's secondary state is handed back for the agent to decide.
    EXPECT_EQ(W({r5->u2DesgLineCard, r5->isSecReady, r5->u4SecPortState}),
              (W{3, 1, VORN_PORT_DISABLED}));
    EXPECT_EQ(W({r6->u2DesgLineCard, r7->u2DesgLineCard}), (W{4, VORN_NO_LINE_CARD}));
}

}  // namespace
}  // namespace vorn::test
