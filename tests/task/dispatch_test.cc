// The main loop's serving order and the dispatch rows: counters, the notification sequence
// check, the event-handler and L2PM second-level dispatch.

#include <array>
#include <string>

#include "support/mgr_fixture.h"

namespace vorn {
namespace {

using test::MgrTest;
using test::u32At;
using W = std::vector<uint32_t>;

class DispatchTest : public MgrTest {
protected:
    // A message of `len` bytes from `peer` to the manager's request queue (or timer queue).
    void send(QelKey peer, uint32_t mtype, std::vector<uint8_t> body = {}, int kind = 1) {
        std::vector<uint8_t> m(ipc::kHdrLen + body.size());
        std::copy(body.begin(), body.end(), m.begin() + ipc::kHdrLen);
        be::Writer w(m.data(), m.size());
        w.u32(ipc::kOffMlen, static_cast<uint32_t>(m.size()));
        w.u32(ipc::kOffMtype, mtype);
        w.u32(ipc::kOffDstSvce, qel_getQueueId(226, 0, kind));
        ASSERT_EQ(qelIpcSend(peer, m.data(), static_cast<int>(m.size())), 0);
    }
    // An SWP-carried notification (IFM or L2PM) with the given sequence number, epoch 5.
    // An IFM notification carries one oper-up record, so that its processing shows in the
    // "Oper Up" counter.
    void sendNotif(QelKey peer, uint32_t mtype, uint32_t seq, uint32_t kind = 0) {
        std::vector<uint8_t> body(300 - ipc::kHdrLen);
        be::Writer w(body.data(), body.size());  // offsets below are message offsets - 60
        auto at = [](size_t off) { return off - ipc::kHdrLen; };
        w.u32(at(swp::kOffMagic), swp::kMagic);
        w.u32(at(swp::kOffSeq), seq);
        w.u32(at(swp::kOffStream), 77);
        w.u32(at(swp::kOffEpoch), 5);
        if (mtype == MT_IFM_NOTIF_MSG) {
            w.u32(at(124), 1);                              // NumElem
            w.u16(at(136), 3);                              // record type: oper up
            w.u16(at(138), 8);                              // record length
            w.u32(at(140), ifmCreateIfIndex(10, 0, 1, 0));  // Gi 0/1
        } else {
            w.u32(at(VORN_L2PM_NOTIF_KIND_OFF), kind);
        }
        send(peer, mtype, body);
    }
    // Serves what is waiting: one pass of the main loop.
    std::string pass() {
        return captureStdout([] { vornMainLoopPass(200000); });
    }
};

TEST_F(DispatchTest, EachTypeAndCardEventReachesItsHandlerUnderItsCounters) {
    QelKey peer = openPeer(40, 1), evh = openPeer(30, 0);
    constexpr uint32_t kEvh = MT_EVH_EVENT_NOTIF;
    vornDbgPrint = 1;
    const struct {
        uint32_t mtype, event;  // event: of a card event (MT_EVH_EVENT_NOTIF)
        std::vector<int> counters;
        const char* handler = "";  // its trace
    } cases[] = {
        {MT_SWP_TIMEOUT, 0, {VORN_CNT_SWP_ACK_TIMEOUT}},
        {MT_SWP_ACK, 0, {VORN_CNT_SWP_ACK}},
        {403, 0, {VORN_CNT_IPC_DEFAULT}},  // between the SWP types: not one of them
        {MT_SWP_FORCED_RESEND, 0, {}},
        {MT_NM, 0, {VORN_CNT_NM}},
        {MT_VORN_AGT_MSG_TO_MGR, 0, {}},
        {12345, 0, {VORN_CNT_IPC_DEFAULT}},
        // Card events count as event-handler notifications too.
        {kEvh, CHMGR_CARD_UP, {VORN_CNT_EVH_CARD_UP}, "vornEventCardUp"},
        {kEvh, CHMGR_CARD_DOWN, {VORN_CNT_EVH_CARD_DOWN}, "vornEventCardDown"},
        {kEvh, CHMGR_CARD_SHUTDOWN, {VORN_CNT_EVH_CARD_SHUTDOWN}, "vornEventCardDown"},
        {kEvh, 0x999999, {VORN_CNT_EVH_DEFAULT}},
    };
    for (const auto& c : cases) {
        auto expected = gVornCounters;
        for (int i : c.counters) expected[static_cast<size_t>(i)]++;
        expected[VORN_CNT_EVH_NOTIF] += c.mtype == kEvh;
        std::vector<uint8_t> body(64);
        if (c.mtype == kEvh) {
            be::Writer w(body.data(), body.size());
            w.u32(VORN_EVH_EVENT_OFF - ipc::kHdrLen, c.event);
            w.u32(VORN_EVH_SLOT_OFF - ipc::kHdrLen, 3);
        }
        send(c.mtype == kEvh ? evh : peer, c.mtype, body);
        EXPECT_NE(pass().find(c.handler), std::string::npos) << c.mtype << " " << c.event;
        EXPECT_EQ(gVornCounters, expected) << c.mtype << " " << c.event;
    }
}

TEST_F(DispatchTest, DuplicateNotificationIsCountedAndAcknowledgedButNotProcessed) {
    QelKey l2pm = openPeer(166, 0);
    vornDbgPrint = 1;
    sendNotif(l2pm, MT_IFM_NOTIF_MSG, 1);
    EXPECT_NE(pass().find("vornProcessIpcMsg: MT_IFM_NOTIF_MSG - SWP success \r\n"),
              std::string::npos);
    sendNotif(l2pm, MT_IFM_NOTIF_MSG, 1);
    EXPECT_EQ(pass().find("SWP"), std::string::npos) << "duplicates are dropped silently";
    sendNotif(l2pm, MT_IFM_NOTIF_MSG, 3);  // a gap: asks for a resend, not processed
    EXPECT_NE(pass().find("vornProcessIpcMsg: MT_IFM_NOTIF_MSG - SWP failure \r\n"),
              std::string::npos);
    EXPECT_EQ(W({gVornCounters[VORN_CNT_IFM_NOTIF], gVornCounters[VORN_CNT_OPER_UP]}), (W{3, 1}));
    // Acknowledgement, acknowledgement again, resend request for 2.
    W got;
    for (int i = 0; i < 3; ++i) {
        auto m = recvOn(l2pm);
        got.insert(got.end(), {u32At(m, ipc::kOffMtype), u32At(m, swp::kOffSeq)});
    }
    EXPECT_EQ(got, (W{MT_SWP_ACK, 1, MT_SWP_ACK, 1, MT_SWP_FORCED_RESEND, 2}));
}

TEST_F(DispatchTest, EndOfConfigurationDownloadsInterfacesOnce) {
    QelKey l2pm = openPeer(166, 0);
    QelKey agent3 = openPeer(227, 3), agent7 = openPeer(227, 7);
    ASSERT_EQ(vorn2VornaCreateSwpQ(3), 0);
    ASSERT_EQ(vorn2VornaCreateSwpQ(7), 0);
    // One VLAN to download, so that each agent gets an interface-information message.
    std::array<uint8_t, 24> vlanAdd{};
    be::Writer(vlanAdd.data(), vlanAdd.size()).u32(0, ifmCreateIfIndex(24, 0, 0, 10));
    vornCreateVlan(vlanAdd.data(), vlanAdd.size());
    for (uint32_t seq : {1, 2}) {
        sendNotif(l2pm, MT_L2PM_NOTIF, seq, VORN_L2PM_NOTIF_EOCONF);
        pass();
    }
    EXPECT_EQ(W({vornTcb.recvEOConf, gVornCounters[VORN_CNT_L2PM_NOTIF]}), (W{1, 2}));
    for (QelKey agent : {agent3, agent7})
        EXPECT_EQ(u32At(recvOn(agent), ipc::kOffMtype), MT_VORN_IF_INFO);
    EXPECT_TRUE(recvOn(agent3, 0).empty()) << "a second end of configuration sent again";
}

TEST_F(DispatchTest, OnePassServesRequestQueueThenTimerQueue) {
    QelKey peer = openPeer(40, 1);
    send(peer, MT_SWP_TIMEOUT, {}, ipc::kKindTimer);
    send(peer, MT_NM, std::vector<uint8_t>(64), ipc::kKindRequest);
    send(peer, MT_NM, std::vector<uint8_t>(64), ipc::kKindRequest);
    vornDbgPrint = 1;
    std::string out = pass();
    size_t req = out.find("vornMainThr: Msg on Request Q \r\n");
    size_t tmr = out.find("vornMainThr: Msg on Timer Q \r\n");
    EXPECT_TRUE(req < tmr && tmr != std::string::npos) << out;
    // At most one message per source per pass: the second request waits for the next pass.
    EXPECT_EQ(W({gVornCounters[VORN_CNT_NM], gVornCounters[VORN_CNT_SWP_ACK_TIMEOUT]}), (W{1, 1}));
    pass();
    EXPECT_EQ(gVornCounters[VORN_CNT_NM], 2u);
    // A pass that finds nothing says nothing.
    EXPECT_EQ(captureStdout([] { EXPECT_EQ(vornMainLoopPass(1000), 0); }), "");
}

}  // namespace
}  // namespace vorn
