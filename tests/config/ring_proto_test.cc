// The dispatch of configuration requests (replies, counters, routing) and the creation and
// removal of rings.
#include <gtest/gtest.h>

#include "config/cfg_fixture.h"

#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

using ProtoTest = CfgTest;

uint64_t ringBlocksInUse() {
    for (const auto& row : host::memStats())
        if (row.id == VORN_RING_MEM_POOL) return row.inUse;
    return 0;
}

TEST_F(ProtoTest, CreatingARingTwiceKeepsTheFirstAndRepliesTwice) {
    auto before = gVornCounters;
    CliReq first(vorn::nm::kTypeProto, 5);
    std::vector<uint8_t> reply1 = run(first);
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeHello, 5).hello(800)), 0);
    CliReq again(vorn::nm::kTypeProto, 5);
    std::vector<uint8_t> reply2 = run(again);

    ASSERT_EQ(reply1.size(), vorn::nm::kLen);
    // The reply is the request itself, with the reply flag and status 0.
    EXPECT_TRUE(std::equal(reply1.begin() + ipc::kHdrLen, reply1.end(),
                           first.buf().begin() + ipc::kHdrLen));
    EXPECT_EQ(reply1, reply2);
    const VornRingEntry* ring = gVornRing[5];
    ASSERT_NE(ring, nullptr);
    EXPECT_EQ(ring->u2HelloTime, 800);
    EXPECT_EQ(ring->u2DeadTime, VORN_DEFAULT_DEAD);
    EXPECT_EQ(ring->u2DesgLineCard, VORN_NO_LINE_CARD);
    EXPECT_EQ(ring->u2StgInst, 64);
    EXPECT_EQ(ring->u4Flags, VORN_RING_CFG_HELLO);
    EXPECT_EQ(vornTcb.ringCount, 1u);
    EXPECT_EQ(gVornCounters[VORN_CNT_CLI_PROTO], before[VORN_CNT_CLI_PROTO] + 2);
    EXPECT_EQ(gVornCounters[VORN_CNT_NM], before[VORN_CNT_NM] + 3);
    EXPECT_EQ(runningConfig(), "!\r\nprotocol vorn 5  \r\n timer hello-interval 800 \r\n");
}

TEST_F(ProtoTest, RefusedCreationsMakeNothing) {
    const struct {
        const char* name;
        uint16_t ringId;
        bool failAlloc;
        uint32_t memErrs;
        const char* errLine;
    } cases[] = {
        {"ring 0", 0, false, 0,
         "_qelAssert: (u2RingId >= VORN_MIN_RING_ID) && (u2RingId <= VORN_MAX_RING_ID), "
         "file vornTask, line 2542\r\n"},
        {"ring 256", 256, false, 0,
         "_qelAssert: (u2RingId >= VORN_MIN_RING_ID) && (u2RingId <= VORN_MAX_RING_ID), "
         "file vornTask, line 2542\r\n"},
        {"no ring block", 9, true, 1, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        if (c.failAlloc) host::memFailNextForTest(VORN_RING_MEM_POOL, 0, 1);
        auto errs = gVornErrs;
        vornErrPrint = 1;
        int64_t st = -2;
        std::string out =
            captureStdout([&] { st = status(CliReq(vorn::nm::kTypeProto, c.ringId)); });
        vornErrPrint = 0;
        EXPECT_EQ(st, 0);  // the reply says success
        EXPECT_EQ(out, c.errLine);
        EXPECT_EQ(gVornErrs[VORN_ERR_MEM_ALLOC], errs[VORN_ERR_MEM_ALLOC] + c.memErrs);
        for (const VornRingEntry* r : gVornRing) EXPECT_EQ(r, nullptr);
        EXPECT_EQ(gVornStgInst[0], 0u);
        EXPECT_EQ(vornTcb.ringCount, 0u);
        EXPECT_EQ(runningConfig(), "");
    }
}

TEST_F(ProtoTest, RemovingAMissingRingRepliesOneAndChangesNothing) {
    create(5);
    const Snapshot before = snapshot();
    for (uint16_t id : {uint16_t{6}, uint16_t{0}, uint16_t{256}}) {
        SCOPED_TRACE(id);
        CliReq req = CliReq(vorn::nm::kTypeProto, id).no();
        std::vector<uint8_t> reply = run(req);
        ASSERT_EQ(reply.size(), vorn::nm::kLen);
        be::Reader r(reply.data(), reply.size());
        EXPECT_EQ(r.u32(vorn::nm::kOffReplyStatus), vorn::nm::kStatusNoRing);
        EXPECT_EQ(r.u16(vorn::nm::kOffStatus), vorn::nm::kStatusNoRing);
        EXPECT_EQ(snapshot(), before);
        EXPECT_EQ(vornTcb.ringCount, 1u);
    }
}

TEST_F(ProtoTest, RemovalReportsRingCountsAlsoForARingNeverEnabled) {
    create(1);
    create(2);
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeEnable, 2).no()), 0);  // "no disable"
    ASSERT_EQ(vornActiveRings, 1);
    CliReq req = CliReq(vorn::nm::kTypeProto, 1).no();
    std::vector<uint8_t> reply = run(req);
    be::Reader r(reply.data(), reply.size());
    EXPECT_EQ(r.u32(vorn::nm::kOffReplyStatus), 0u);
    EXPECT_EQ(r.u16(vorn::nm::kOffConfiguredRings), 1);
    EXPECT_EQ(r.u16(vorn::nm::kOffActiveRings), 0);  // ring 1 was never enabled
    EXPECT_EQ(gVornRing[1], nullptr);
    EXPECT_EQ(gVornStgInst[0], 0u);  // ring 1's instance is free again
    EXPECT_EQ(gVornStgInst[1], 65u);
    EXPECT_EQ(runningConfig(), "!\r\nprotocol vorn 2  \r\n no disable \r\n");
}

TEST_F(ProtoTest, RemovingARingUndoesAllItsConfiguration) {
    create(5);
    // An IFM-reported member VLAN stays when the ring goes; one made for the ring stays too,
    // with its ring id cleared, until IFM deletes it.
    ASSERT_NE(vornCreateVlanEntry(vl(300), VORN_CREATOR_IFM), nullptr);
    ctrlVlan(5, gi(0, 5), gi(0, 11), 10);
    members(5, {200, 300});
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeMode, 5).mode(VORN_MODE_MASTER)), 0);
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeEnable, 5).no()), 0);
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeHello, 5).hello(700)), 0);
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeDead, 5).dead(2100)), 0);
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeDesc, 5).desc("east")), 0);
    ASSERT_EQ(gVornRing[5]->u4Flags, 0x7Fu);
    ASSERT_EQ(ringBlocksInUse(), 1u);

    CliReq req = CliReq(vorn::nm::kTypeProto, 5).no();
    std::vector<uint8_t> reply = run(req);
    be::Reader r(reply.data(), reply.size());
    EXPECT_EQ(r.u32(vorn::nm::kOffReplyStatus), 0u);
    EXPECT_EQ(r.u16(vorn::nm::kOffConfiguredRings), 0);
    EXPECT_EQ(r.u16(vorn::nm::kOffActiveRings), 0);
    EXPECT_EQ(gVornRing[5], nullptr);
    EXPECT_EQ(ringBlocksInUse(), 0u);
    EXPECT_EQ(runningConfig(), "");
    EXPECT_EQ(host::cfgLineCount(), 0u);
    EXPECT_TRUE(BITMAP_IS_EMPTY(gVornCtrlVlanBmap));
    EXPECT_TRUE(BITMAP_IS_EMPTY(gVornMemVlanBmap));
    EXPECT_EQ(gVornVlan[10], nullptr);  // the control VLAN only ring configuration used
    EXPECT_EQ(gVornPort[134], nullptr);
    EXPECT_EQ(gVornPort[140], nullptr);
    for (uint16_t v : {200, 300}) {
        SCOPED_TRACE(v);
        ASSERT_NE(gVornVlan[v], nullptr);
        EXPECT_EQ(gVornVlan[v]->u2MemberVlanRingId, 0);
    }
    EXPECT_EQ(gVornStgInst[0], 0u);
}

TEST_F(ProtoTest, RemovingTheLastRingFlushesThePendingBuffers) {
    create(1);
    create(2);
    // Pending ring configuration for a slot without an agent: the flush drops it.
    auto pend = [] {
        gapVornAgtBuf[3] = static_cast<uint8_t*>(vornVarPoolMalloc(VORN_MSG_BUF_SIZE));
    };
    std::array<uint8_t, 8192> rx{};
    auto removeDirect = [&](uint16_t id) {
        CliReq req = CliReq(vorn::nm::kTypeProto, id).no();
        std::copy(req.buf().begin(), req.buf().end(), rx.begin());
        vornProcessCliMsg(rx.data());  // without the dispatch, which flushes anyway
    };
    pend();
    removeDirect(1);
    EXPECT_NE(gapVornAgtBuf[3], nullptr);  // a ring is left
    removeDirect(2);
    EXPECT_EQ(gapVornAgtBuf[3], nullptr);
    EXPECT_EQ(vornTcb.ringCount, 0u);
    EXPECT_EQ(varBlocksInUse(), 0u);
}

TEST_F(ProtoTest, DispatchCountsAndTracesRequestsOfEveryOtherType) {
    // (Show and debug requests reach their handlers in the show tests.)
    const struct {
        uint32_t type;
        int counter;  // -1: none besides "NM count"
        const char* trace;
    } cases[] = {
        {9, VORN_CNT_CLI_DEFAULT, "vornProcessCliMsg \r\nvornProcessCliMsg: Default case. \r\n"},
        {vorn::nm::kTypeClearStat, -1, "vornProcessCliMsg \r\nVORN_CLEAR_STAT \r\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.type);
        auto expected = gVornCounters;
        expected[VORN_CNT_NM]++;
        if (c.counter >= 0) expected[static_cast<size_t>(c.counter)]++;
        CliReq req(c.type, 5);
        std::vector<uint8_t> reply;
        vornDbgPrint = 1;
        std::string out = captureStdout([&] { reply = run(req); });
        vornDbgPrint = 0;
        ASSERT_EQ(reply.size(), vorn::nm::kLen);
        EXPECT_EQ(be::Reader(reply.data(), reply.size()).u32(vorn::nm::kOffReplyStatus), 0u);
        EXPECT_EQ(out.rfind("vornProcessIpcMsg: MT_NM \r\n" + std::string(c.trace), 0), 0u) << out;
        EXPECT_EQ(gVornCounters, expected);
    }
}

TEST_F(ProtoTest, ShortRequestIsDroppedWithoutReply) {
    CliReq req(vorn::nm::kTypeProto, 5);
    be::Writer(req.buf().data(), req.buf().size()).u32(ipc::kOffMlen, 200);
    ASSERT_EQ(qelIpcSend(cli_, req.buf().data(), 200), 0);
    std::vector<uint8_t> rx(8192, 0xEE);  // what an earlier message left behind
    ASSERT_EQ(qelIpcRecv(vornTcb.reqQfd, rx.data(), 8192, 0, 0, 0), 200);
    vornProcessIpcMsg(rx.data());
    EXPECT_TRUE(recvOn(cli_, 0).empty());
    EXPECT_EQ(gVornRing[5], nullptr);
    EXPECT_EQ(gVornCounters[VORN_CNT_CLI_PROTO], 0u);
}

}  // namespace
}  // namespace vorn::test
