// SWP queues to L2PM and agents, the sends over them, send-and-wait, and registration.

#include <array>
#include <atomic>
#include <thread>

#include "platform/codec.h"
#include "platform/mem.h"
#include "platform/swp.h"
#include "support/mgr_fixture.h"
#include "agent/agent.h"
#include "config/config.h"
#include "ifm/ifm.h"
#include "loop/loop.h"
#include "peer/peer.h"
#include "show/show.h"
#include "task/register.h"
#include "task/swpq.h"
#include "task/msgtypes.h"
#include "task/pools.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace vorn {
namespace {

using test::MgrTest;

class SwpQueueTest : public MgrTest {
protected:
    uint8_t* buffer(uint32_t len = 200) {
        return static_cast<uint8_t*>(vornVarPoolMalloc(len));
    }
};

TEST_F(SwpQueueTest, L2pmSendFillsTheHeader) {
    QelKey l2pm = openPeer(166, 0);
    createL2pmQueue();
    uint8_t* b = buffer();
    ASSERT_EQ(vornSwpSendToL2Pm(MT_L2PM_PORT_STATE, b, 200), 0);
    auto m = recvOn(l2pm);
    ASSERT_EQ(m.size(), 200u);
    be::Reader rd(m.data(), m.size());
    EXPECT_EQ(rd.u32(ipc::kOffMtype), MT_L2PM_PORT_STATE);
    EXPECT_EQ(rd.u32(ipc::kOffMlen), 200u);
    EXPECT_EQ(rd.u32(ipc::kOffW20), 0u);
    EXPECT_EQ(rd.u32(ipc::kOffSrcSlot), 0u);
    EXPECT_EQ(rd.u32(ipc::kOffSrcCard), 0x7F000001u);
    EXPECT_EQ(rd.u32(ipc::kOffSrcSvce), qel_getQueueId(226, 0, 1));
    EXPECT_EQ(rd.u32(ipc::kOffDstCard), 0x7F000001u);
    EXPECT_EQ(rd.u32(ipc::kOffDstSvce), qel_getQueueId(166, 0, 1));
    EXPECT_EQ(rd.u32(ipc::kOffSenderTask), 0u) << "not set on sends to L2PM";
    EXPECT_EQ(rd.u32(swp::kOffSeq), 1u);
}

TEST_F(SwpQueueTest, SendsToMissingAgentsAndAddressFailures) {
    uint64_t start = varBlocksInUse();
    // No queue for the slot: the buffer is dropped and the send reports success.
    EXPECT_EQ(vornSwpSendToAgent(MT_VORN_RING_CFG, buffer(), 200, 4), 0);
    EXPECT_EQ(varBlocksInUse(), start);
    // No queue: send-and-wait returns at once, with the buffer untouched.
    std::array<uint8_t, 128> req{};
    req[100] = 0x5a;
    EXPECT_EQ(vornAgtSendAndWait(MT_VORN_RING_STATS, 4, 128, req.data()), 0);
    EXPECT_EQ(req[ipc::kOffMtype + 3], 0) << "header not filled";
    EXPECT_EQ(req[100], 0x5a);

    // The L2PM send frees the buffer when L2PM's address cannot be found.
    vornErrPrint = 1;
    std::string out = captureStdout([] {
        EXPECT_EQ(vornSwpSendToL2Pm(MT_L2PM_FLUSH,
                                    vornVarPoolMalloc(300), 300),
                  -1);
    });
    EXPECT_EQ(out, "vornSwpSendToL2Pm: GetIpAddr for DST failed.\r\n");
    EXPECT_EQ(varBlocksInUse(), start);
}

TEST_F(SwpQueueTest, AgentQueueCreateFlushAndReset) {
    vornErrPrint = 1;
    std::string out = captureStdout([] { EXPECT_EQ(vorn2VornaCreateSwpQ(5), -1); });
    EXPECT_EQ(out, "VORN_SWPQ_CREATE_FAILURE_ERROR\r\n");
    EXPECT_EQ(vornTcb.vornaSwpHandle[5], 0u);

    QelKey agent = openPeer(227, 5);
    ASSERT_EQ(vorn2VornaCreateSwpQ(5), 0);
    uint32_t handle = vornTcb.vornaSwpHandle[5];
    ASSERT_NE(handle, 0u);
    ASSERT_EQ(vornSwpSendToAgent(MT_VORN_RING_CFG, buffer(), 200, 5), 0);
    auto first = recvOn(agent);
    ASSERT_FALSE(first.empty());
    be::Reader rd(first.data(), first.size());
    EXPECT_EQ(rd.u32(ipc::kOffDstCard), 0x7F000105u);
    EXPECT_EQ(rd.u32(ipc::kOffDstSvce), qel_getQueueId(227, 5, 1));
    EXPECT_EQ(rd.u32(ipc::kOffSenderTask), static_cast<uint32_t>(taskIdSelf()));
    uint32_t epoch = rd.u32(swp::kOffEpoch);

    // A second registration flushes the queue: same handle, numbering from 1, new epoch.
    uint64_t held = varBlocksInUse();
    ASSERT_EQ(vorn2VornaCreateSwpQ(5), 0);
    EXPECT_EQ(vornTcb.vornaSwpHandle[5], handle);
    EXPECT_EQ(varBlocksInUse(), held - 1) << "the unacknowledged buffer was released";
    ASSERT_EQ(vornSwpSendToAgent(MT_VORN_RING_CFG, buffer(), 200, 5), 0);
    auto second = recvOn(agent);
    ASSERT_FALSE(second.empty());
    EXPECT_EQ(be::Reader(second.data(), second.size()).u32(swp::kOffSeq), 1u);
    EXPECT_NE(be::Reader(second.data(), second.size()).u32(swp::kOffEpoch), epoch);

    vornTcb.vornaSwpRcvState[5] = {9, 9};
    vornVornaSwpReset(5);
    EXPECT_EQ(vornTcb.vornaSwpHandle[5], 0u);
    EXPECT_EQ(vornTcb.vornaSwpRcvState[5], (VornSwpRcvState{0, 0}));
    EXPECT_EQ(host::swpQueueByHandle(handle), nullptr);
}

TEST_F(SwpQueueTest, ThousandAcknowledgedMessagesLeaveNoBufferBehind) {
    QelKey l2pm = openPeer(166, 0);
    createL2pmQueue();
    uint64_t start = varBlocksInUse();
    constexpr int kCount = 1000;
    std::atomic<int> accepted{0};
    std::thread peer([&] {
        std::array<uint8_t, 8192> m;
        uint32_t state[2] = {0, 0};
        int fd = Key_getReqQueue(l2pm);
        while (accepted < kCount) {
            if (qelIpcRecvWait(fd, m.data(), 8192, 3000) < 0) return;
            if (qelSwpCkSeqAndAck(m.data(), state, fd) == 0) accepted++;
        }
    });
    for (int i = 0; i < kCount; ++i) {
        uint8_t* b = buffer(8192);
        ASSERT_NE(b, nullptr);
        ASSERT_EQ(vornSwpSendToL2Pm(MT_L2PM_PORT_STATE, b, 1292), 0);
        // Serve acknowledgements as the main loop does, without waiting when none is there.
        while (vornMainLoopPass(0) > 0) {
        }
    }
    ASSERT_TRUE(test::waitFor(
        [&] {
            vornMainLoopPass(1000);
            return gVornCounters[VORN_CNT_SWP_ACK] >= static_cast<uint32_t>(kCount);
        },
        10000));
    peer.join();
    EXPECT_EQ(accepted.load(), kCount);
    EXPECT_EQ(varBlocksInUse(), start);
    const QelSwpQueueCtrlBlock* cb = host::swpQueueByHandle(vornTcb.l2pmSwpHandle);
    ASSERT_NE(cb, nullptr);
    EXPECT_EQ(cb->outstanding + cb->held, 0u);
}

// An L2PM peer that answers registrations with the given results and types, in turn.
void answerRegistrations(QelKey l2pm, std::vector<std::pair<uint32_t, uint32_t>> answers) {
    std::array<uint8_t, 8192> m;
    for (auto [result, mtype] : answers) {
        int n = qelIpcRecvWait(Key_getReqQueue(l2pm), m.data(), 8192, 5000);
        if (n < 0) return;
        be::Writer w(m.data(), static_cast<size_t>(n));
        w.u32(64, result);
        w.u32(ipc::kOffMtype, mtype);
        qelIpcReply(l2pm, m.data(), n);
    }
}

TEST_F(SwpQueueTest, L2pmRegistrationRetriesUntilAccepted) {
    QelKey l2pm = openPeer(166, 0);
    std::array<uint8_t, 8192> seen{};
    std::thread peer([&] {
        // Keep a copy of the first request to check its layout.
        int n = qelIpcRecvWait(Key_getReqQueue(l2pm), seen.data(), 8192, 5000);
        if (n < 0) return;
        std::array<uint8_t, 8192> m = seen;
        be::Writer(m.data(), 124).u32(64, 3);  // refused
        qelIpcReply(l2pm, m.data(), n);
        answerRegistrations(l2pm, {{0, 18999},  // accepted, but a different message type
                                   {0, MT_L2PM_REGISTER}});
    });
    ASSERT_EQ(vornRegDeregWithL2PM(1, 0x807f703f, 0x01000000, 0, 0xb000), 0);
    peer.join();
    EXPECT_EQ(gVornCounters[VORN_CNT_L2PM_REG_FAIL], 2u);
    EXPECT_EQ(gVornCounters[VORN_CNT_L2PM_REG_OK], 1u);

    be::Reader rd(seen.data(), 124);
    EXPECT_EQ(rd.u32(ipc::kOffMtype), MT_L2PM_REGISTER);
    EXPECT_EQ(rd.u32(ipc::kOffMlen), 124u);
    const std::pair<size_t, uint32_t> words[] = {
        {60, 0},           {64, 0},          {68, 7},       {72, 226},     {76, 0},
        {80, 0x807f703f},  {84, 0x01000000}, {88, 0},       {92, 0x003c0000}, {96, 0xb000},
        {100, 0},          {116, 0},         {120, 0x01000000},
    };
    for (auto [off, value] : words) EXPECT_EQ(rd.u32(off), value) << "offset " << off;
}

}  // namespace
}  // namespace vorn
