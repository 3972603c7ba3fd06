// Instance port ownership, VLAN-STG and line-card-type messages as their receivers get them,
// and the dumps of the batched L2PM messages.

#include "l2pm/l2pm_test_util.h"
#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

using namespace l2pmt;

using L2pmMessagesTest = L2pmTest;

std::vector<uint8_t> body(const std::vector<uint8_t>& m) {
    return {m.begin() + std::min<size_t>(124, m.size()), m.end()};
}

TEST_F(L2pmMessagesTest, InstancePortOwnership) {
    L2pmSwpPeer l2pm(l2pmKey_);
    ASSERT_EQ(halVornSendInstPortOwnerShipToL2Pm(1, 64, gi(0, 5)), 0);
    ASSERT_EQ(halVornSendInstPortOwnerShipToL2Pm(0x107, 0x1234, po(3)), 0);
    vornFlushPendingMsgs();
    auto m = l2pm.next();
    EXPECT_EQ(be::Reader(m.data(), m.size()).u32(ipc::kOffMtype), 18406u);
    // numArr 2; add Gi 0/5 to instance 64; the action's low byte only, Po 3 to 0x1234.
    EXPECT_EQ(body(m), hex("00000002  01 00 0040 0a000500  07 00 1234 16000003"));

    // Record 1009 sends the first 1008, dumped first with 128 as the "record size".
    for (uint32_t i = 0; i < 1008; ++i)
        halVornSendInstPortOwnerShipToL2Pm(i % 2, 64, gi(i / 64 % 12, i % 64));
    EXPECT_TRUE(l2pm.quiet());
    vornL2pmMsgPrint = 1;
    std::string out =
        captureStdout([] { EXPECT_EQ(halVornSendInstPortOwnerShipToL2Pm(1, 127, po(1)), 0); });
    const std::string head =
        "-------------- Instance Port Ownership Msg ---------------\r\n"
        "numArr : 1008, sizeof (vornPortOwnerShip_s): 128\r\n"
        "Index: 0, Action: DEL, Instance: 64, Port: Gi 0/0\r\n";
    const std::string tail =
        "Index: 1007, Action: ADD, Instance: 64, Port: Gi 3/47\r\n"
        "------------------------------------------------------\r\n";
    EXPECT_EQ(out.substr(0, head.size()), head);
    EXPECT_EQ(out.substr(out.size() - std::min(out.size(), tail.size())), tail);
    auto full = l2pm.next();
    ASSERT_EQ(full.size(), 8192u);
    EXPECT_EQ(be::Reader(full.data(), full.size()).u32(124), 1008u);
}

TEST_F(L2pmMessagesTest, VlanStgMessageLeavesAtOnce) {
    L2pmSwpPeer l2pm(l2pmKey_);
    VornVlanBmap vlans = vlanSet({1, 100, 4095});
    for (uint32_t mapFlag : {1u, 0u}) {
        ASSERT_EQ(halVornSendVlanStgMsgToL2Pm(70, vlans.data(), mapFlag), 0);
        auto m = l2pm.next();
        ASSERT_EQ(m.size(), 652u);
        EXPECT_EQ(words(m, {ipc::kOffMtype, 124, 128, 644, 648}),
                  (std::vector<uint32_t>{18476, mapFlag, 70u << 16, 1, 5}));
        EXPECT_EQ(std::vector<uint8_t>(m.begin() + 132, m.begin() + 644),
                  std::vector<uint8_t>(vlans.begin(), vlans.end()));
    }
    host::memFailNextForTest(VORN_MEM_PART_ID, VORN_MSG_BUF_SIZE, 1);
    EXPECT_EQ(halVornSendVlanStgMsgToL2Pm(70, vlans.data(), 1), -1);
    uint64_t inUse = varBlocksInUse();
    vornTcb.l2pmSwpHandle = 0;
    EXPECT_EQ(halVornSendVlanStgMsgToL2Pm(70, vlans.data(), 1), -1);
    EXPECT_EQ(varBlocksInUse(), inUse) << "no buffer is taken without a queue";
}

TEST_F(L2pmMessagesTest, LineCardTypesToEveryAgentWithAQueue) {
    QelKey agent1 = openPeer(227, 1), agent3 = openPeer(227, 3);
    ASSERT_EQ(vorn2VornaCreateSwpQ(1), 0);
    ASSERT_EQ(vorn2VornaCreateSwpQ(3), 0);
    for (size_t i = 0; i < 12; ++i) vornTcb.lcType[i] = static_cast<uint32_t>(0x01020300 + i);
    ASSERT_EQ(halVornSendLCTypeToAllAgents(), 0);
    for (QelKey agent : {agent1, agent3}) {
        auto m = recvOn(agent);
        ASSERT_EQ(m.size(), 172u);
        EXPECT_EQ(u32At(m, ipc::kOffMtype), 25613u);
        for (size_t i = 0; i < 12; ++i) EXPECT_EQ(u32At(m, 124 + 4 * i), 0x01020300 + i);
    }
    // No memory for slot 1: slot 3 goes without the table too.
    vornErrPrint = 1;
    host::memFailNextForTest(VORN_MEM_PART_ID, 260, 1);
    std::string out = captureStdout([] { EXPECT_EQ(halVornSendLCTypeToAllAgents(), -1); });
    EXPECT_EQ(out, "halVornSendLCTypeToAllAgents(): Buffer alloc failed. LineCard = 1\r\n");
    EXPECT_TRUE(recvOn(agent3, 0).empty());
}

TEST_F(L2pmMessagesTest, PortStateDump) {
    VornVlanBmap vlans = vlanSet({10, 20, 4095}), fwd = vlanSet({20}), none{};
    vornSendPortStateMsgToL2Pm(gi(0, 5), vlans.data(), fwd.data());
    vornSendPortStateMsgToL2Pm(po(9), vlans.data(), none.data());
    const uint8_t* pending = gpVornL2PmPortStateBuf;
    EXPECT_EQ(captureStdout([pending] { vornDumpL2PmPerPortStateMsg(pending); }), "");
    vornL2pmMsgPrint = 1;
    std::string dump = captureStdout([pending] { vornDumpL2PmPerPortStateMsg(pending); });
    for (const char* line : {"Message Len  : 2324 \r\nNum Elements : 2 \r\n   Gi 0/5\r\n",
                             "   Fwd Vlans: 20, \r\n   Po 9\r\n   Vlans: 10, 20, 4095, \r\n---"})
        EXPECT_NE(dump.find(line), std::string::npos) << line << " in:\n" << dump;
    // A buffer that fills up is dumped before it leaves.
    for (uint32_t i = 0; i < 5; ++i) vornSendPortStateMsgToL2Pm(gi(1, i), none.data(), none.data());
    std::string out =
        captureStdout([&] { vornSendPortStateMsgToL2Pm(gi(2, 0), none.data(), none.data()); });
    EXPECT_NE(out.find("Message Len  : 7484 \r\nNum Elements : 7 \r\n"), std::string::npos) << out;
}

}  // namespace
}  // namespace vorn::test
