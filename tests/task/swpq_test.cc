// SWP queues to L2PM and agents, the sends over them, send-and-wait, and registration.

#include <array>
#include <atomic>
#include <thread>

#include "support/mgr_fixture.h"

namespace vorn {
namespace {

using test::MgrTest;

class SwpQueueTest : public MgrTest {
protected:
    uint8_t* buffer(uint32_t len = 200) { return static_cast<uint8_t*>(vornVarPoolMalloc(len)); }
};

TEST_F(SwpQueueTest, AgentQueueCreateFlushAndResetAndSendsWithoutAQueue) {
    const uint64_t start = varBlocksInUse();
    vornErrPrint = 1;
    std::string out = captureStdout([] { EXPECT_EQ(vorn2VornaCreateSwpQ(5), -1); });
    EXPECT_EQ(out, "VORN_SWPQ_CREATE_FAILURE_ERROR\r\n");
    EXPECT_EQ(vornTcb.vornaSwpHandle[5], 0u);
    // No queue for the slot: the buffer is dropped and the send reports success;
    // send-and-wait returns at once, with its buffer untouched.
    EXPECT_EQ(vornSwpSendToAgent(MT_VORN_RING_CFG, buffer(), 200, 5), 0);
    EXPECT_EQ(varBlocksInUse(), start);
    std::array<uint8_t, 128> req{};
    req[100] = 0x5a;
    EXPECT_EQ(vornAgtSendAndWait(MT_VORN_RING_STATS, 5, 128, req.data()), 0);
    EXPECT_EQ(req[ipc::kOffMtype + 3], 0) << "header not filled";
    EXPECT_EQ(req[100], 0x5a);
    // The L2PM send frees the buffer when L2PM's address cannot be found.
    out = captureStdout(
        [] { EXPECT_EQ(vornSwpSendToL2Pm(MT_L2PM_FLUSH, vornVarPoolMalloc(300), 300), -1); });
    EXPECT_EQ(out, "vornSwpSendToL2Pm: GetIpAddr for DST failed.\r\n");
    EXPECT_EQ(varBlocksInUse(), start);

    QelKey agent = openPeer(227, 5);
    ASSERT_EQ(vorn2VornaCreateSwpQ(5), 0);
    uint32_t handle = vornTcb.vornaSwpHandle[5];
    ASSERT_NE(handle, 0u);
    ASSERT_EQ(vornSwpSendToAgent(MT_VORN_RING_CFG, buffer(), 200, 5), 0);
    EXPECT_EQ(test::words(recvOn(agent), {ipc::kOffDstCard, ipc::kOffDstSvce, ipc::kOffSenderTask}),
              (std::vector<uint32_t>{0x7F000105, qel_getQueueId(227, 5, 1),
                                     static_cast<uint32_t>(taskIdSelf())}));
    // A second registration flushes the queue under the same handle (its numbering and
    // epoch are the registration test's): the unacknowledged buffer goes back.
    ASSERT_EQ(vorn2VornaCreateSwpQ(5), 0);
    EXPECT_EQ(vornTcb.vornaSwpHandle[5], handle);
    EXPECT_EQ(varBlocksInUse(), start);

    vornTcb.vornaSwpRcvState[5] = {9, 9};
    vornVornaSwpReset(5);
    EXPECT_EQ(vornTcb.vornaSwpHandle[5], 0u);
    EXPECT_EQ(vornTcb.vornaSwpRcvState[5], (VornSwpRcvState{0, 0}));
    EXPECT_EQ(host::swpQueueByHandle(handle), nullptr);
}

TEST_F(SwpQueueTest, ThousandAcknowledgedMessagesToL2pmLeaveNoBufferBehind) {
    QelKey l2pm = openPeer(166, 0);
    createL2pmQueue();
    uint64_t start = varBlocksInUse();
    constexpr int kCount = 1000;
    std::atomic<int> accepted{0};
    test::Bytes first;
    std::thread peer([&] {
        std::array<uint8_t, 8192> m;
        uint32_t state[2] = {0, 0};
        int fd = Key_getReqQueue(l2pm);
        for (int n; accepted < kCount && (n = qelIpcRecvWait(fd, m.data(), 8192, 3000)) >= 0;) {
            if (first.empty()) first.assign(m.begin(), m.begin() + n);
            accepted += qelSwpCkSeqAndAck(m.data(), state, fd) == 0;
        }
    });
    for (int i = 0; i < kCount; ++i) {
        ASSERT_EQ(vornSwpSendToL2Pm(MT_L2PM_PORT_STATE, buffer(8192), 1292), 0);
        // Serve acknowledgements as the main loop does, without waiting when none is there.
        while (vornMainLoopPass(0) > 0) {
        }
    }
    ASSERT_TRUE(test::waitFor(
        [&] {
            return vornMainLoopPass(1000) >= 0 &&
                   gVornCounters[VORN_CNT_SWP_ACK] >= static_cast<uint32_t>(kCount);
        },
        10000));
    peer.join();
    EXPECT_EQ(accepted.load(), kCount);
    EXPECT_EQ(varBlocksInUse(), start);
    const QelSwpQueueCtrlBlock* cb = host::swpQueueByHandle(vornTcb.l2pmSwpHandle);
    ASSERT_NE(cb, nullptr);
    EXPECT_EQ(cb->outstanding + cb->held, 0u);
    // The header of a send to L2PM; the sender task is not set on these.
    EXPECT_EQ(test::words(first, {ipc::kOffMtype, ipc::kOffMlen, ipc::kOffW20, ipc::kOffSrcSlot,
                                  ipc::kOffSrcCard, ipc::kOffSrcSvce, ipc::kOffDstCard,
                                  ipc::kOffDstSvce, ipc::kOffSenderTask, swp::kOffSeq}),
              (std::vector<uint32_t>{MT_L2PM_PORT_STATE, 1292, 0, 0, 0x7F000001,
                                     qel_getQueueId(226, 0, 1), 0x7F000001,
                                     qel_getQueueId(166, 0, 1), 0, 1}));
}

TEST_F(SwpQueueTest, L2pmRegistrationRetriesUntilAccepted) {
    QelKey l2pm = openPeer(166, 0);
    // L2PM refuses, then accepts under another message type, then accepts.
    std::vector<test::Bytes> seen;
    std::thread peer = test::answerInPlace(
        l2pm, &seen,
        [](size_t i, test::Bytes& m) {
            be::Writer(m.data(), m.size()).u32(64, i == 0 ? 3 : 0);
            be::Writer(m.data(), m.size()).u32(ipc::kOffMtype, i == 1 ? 18999 : MT_L2PM_REGISTER);
        },
        3);
    ASSERT_EQ(vornRegDeregWithL2PM(1, 0x807f703f, 0x01000000, 0, 0xb000), 0);
    peer.join();
    EXPECT_EQ(gVornCounters[VORN_CNT_L2PM_REG_FAIL], 2u);
    EXPECT_EQ(gVornCounters[VORN_CNT_L2PM_REG_OK], 1u);

    // Type and length; from 60: result 0, protocol kind 7, service 226, the type words, the
    // register flag in the byte at 120.
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(test::words(seen[0], {ipc::kOffMtype, ipc::kOffMlen, 60, 64, 68, 72, 76, 80, 84, 88,
                                    92, 96, 100, 116, 120}),
              (std::vector<uint32_t>{MT_L2PM_REGISTER, 124, 0, 0, 7, 226, 0, 0x807f703f, 0x01000000,
                                     0, 0x003c0000, 0xb000, 0, 0, 0x01000000}));
}

}  // namespace
}  // namespace vorn
