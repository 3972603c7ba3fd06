// IFM notification intake: the walk over the records and the counters it bumps, malformed
// notifications, the copy to the agents and the dump.

#include <string>

#include "ifm_test_util.h"
#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

using namespace l2pmt;
using namespace ifmt;

const uint32_t kGone = gi(3, 3);  // a port IFM never reported

// The counters the intake bumps, in a fixed order.
constexpr VornCounter kWalked[] = {VORN_CNT_OPER_UP,          VORN_CNT_OPER_DOWN,
                                   VORN_CNT_MAC_CHANGE,       VORN_CNT_PORT_MODE,
                                   VORN_CNT_ADD_VLAN_PORT,    VORN_CNT_DEL_VLAN_PORT,
                                   VORN_CNT_L2PM_END_BLK_CFG, VORN_CNT_L2PM_CFG_COMPLETE};
using Counts = std::array<uint32_t, std::size(kWalked)>;

Counts walkedCounts() {
    Counts c{};
    for (size_t i = 0; i < c.size(); ++i) c[i] = gVornCounters[kWalked[i]];
    return c;
}

using IfmIntakeTest = MgrTest;

TEST_F(IfmIntakeTest, WalkCountsRecordsAndStopsAtTheMessageEdge) {
    // A record whose padding, read as records, would be oper-up records of length 4.
    Bytes padded = Data().u32(kGone);
    for (int i = 0; i < 8; ++i) padded.insert(padded.end(), {0, 3, 0, 4});
    const Bytes bare92 = rec(IFM_TYP_END_BLK_CFG);
    const Bytes every[] = {
        addIfRec(IFM_TYP_ADD_IF, vl(10), 7, {}),
        addIfRec(IFM_TYP_DEL_IF, kGone, 0, {}),
        ifRec(IFM_TYP_OSTATE_UP, kGone),
        ifRec(IFM_TYP_OSTATE_DN, kGone),
        rec(IFM_TYP_ADMIN_UP),
        rec(IFM_TYP_ADMIN_DN),
        rec(IFM_TYP_MACADDR_CHG, Data().u32(kGone).mac({1, 2, 3, 4, 5, 6})),
        rec(IFM_TYP_CHG_PORT_MODE, Data().u32(kGone).u32(2)),
        rec(IFM_TYP_IF_MODE_CHG, Data().u32(kGone).zeros(22)),
        vlanPortRec(IFM_TYP_ADD_VLAN_PORT, vl(10), kGone, 1),
        vlanPortRec(IFM_TYP_DEL_VLAN_PORT, vl(10), kGone, 1),
        vlanListRec(kGone, 1, {vl(10), vl(11)}),
        lagRec(IFM_TYP_ADD_LAG_PORT, po(1), kGone),
        lagRec(IFM_TYP_DEL_LAG_PORT, po(1), kGone),
        bare92,
        rec(L2PM_TYP_INIT_CFG_COMPLETE),
        rec(7, Data().u32(0x00030004)),  // unknown types are stepped over
        rec(200, Data().u32(0x00030004)),
    };
    const struct {
        const char* name;
        Bytes msg;
        Counts counts;    // oper up, down, MAC, mode, VLAN port add, delete, end blk, complete
        const char* err;  // expected in the error output; null: the walk ends normally
    } cases[] = {
        // clang-format off
        {"every type once", notif({std::begin(every), std::end(every)}), {1, 1, 1, 1, 3, 1, 1, 1},
         nullptr},
        {"NumElem 0", notif({ifRec(3, kGone), ifRec(3, kGone)}, 0), {}, nullptr},
        {"NumElem negative", notif({ifRec(3, kGone)}, -1), {}, nullptr},
        {"NumElem below the records", notif({bare92, rec(93), ifRec(3, kGone)}, 2),
         {0, 0, 0, 0, 0, 0, 1, 1}, nullptr},
        {"stepped by the stated length", notif({rec(3, padded), bare92}),
         {1, 0, 0, 0, 0, 0, 1, 0}, nullptr},
        {"records too short for their fields are counted, not applied",
         notif({rec(3), rec(40, Data().u32(vl(10)).u32(kGone))}), {1, 0, 0, 0, 1, 0, 0, 0},
         "too short, dropped"},
        {"NumElem above the records", notif({ifRec(4, kGone), ifRec(4, kGone)}, 5),
         {0, 2, 0, 0, 0, 0, 0, 0}, "ends after 2 records: walk stopped"},
        {"length 0 repeats only as often as 4-byte records would fit",
         notif({rec(92, {}, 0)}, 1000, 0, Bytes(12, 0)), {0, 0, 0, 0, 0, 0, 4, 0},
         "holds at most 4 records: walk stopped"},
        {"length past the end", notif({bare92, rec(3, Data().u32(kGone), 200)}),
         {0, 0, 0, 0, 0, 0, 1, 0}, "(type 3, length 200) at offset 140 passes the end"},
        {"header cut", notif({bare92, rec(92, word(0))}, 3, 0, {0, 3}), {0, 0, 0, 0, 0, 0, 2, 0},
         "ends after 2 records: walk stopped"},
        {"no room for NumElem", cut(notif({}), 100), {},
         "holds no NumElem"},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes msg = c.msg;
        vornTcb.recvEOConf = 0;
        const Counts before = walkedCounts();
        vornErrPrint = 1;
        std::string err = captureStdout([&] { vornProcessIfmNotif(msg.data()); });
        vornErrPrint = 0;
        Counts delta{};
        for (size_t i = 0; i < delta.size(); ++i) delta[i] = walkedCounts()[i] - before[i];
        EXPECT_EQ(delta, c.counts);
        EXPECT_EQ(vornTcb.recvEOConf, c.counts[6] + c.counts[7] > 0 ? 1u : 0u);
        if (c.err != nullptr) {
            EXPECT_NE(err.find(c.err), std::string::npos) << err;
        } else {
            EXPECT_EQ(err.find("walk stopped"), std::string::npos) << err;
        }
        vornFlushPendingMsgs();
    }
}

TEST_F(IfmIntakeTest, EveryNotificationIsCopiedToEachAgent) {
    const Bytes msg = notif({ifRec(IFM_TYP_OSTATE_UP, kGone)}, 0, 0x1234);
    const uint64_t inUse = varBlocksInUse();
    vornProcessIfmNotif(Bytes(msg).data());
    EXPECT_EQ(varBlocksInUse(), inUse) << "no agent, no copy";

    const int slots[] = {2, 5};
    std::vector<QelKey> agents;
    for (int slot : slots) {
        agents.push_back(openPeer(VORN_AGENT_SERVICE, slot));
        ASSERT_EQ(vorn2VornaCreateSwpQ(slot), 0);
    }
    vornProcessIfmNotif(Bytes(msg).data());
    for (QelKey agent : agents) {
        const std::vector<uint8_t> got = recvOn(agent);
        ASSERT_EQ(got.size(), msg.size());
        be::Reader r(got.data(), got.size());
        EXPECT_EQ(r.u32(ipc::kOffMtype), MT_IFM_NOTIF_MSG);
        EXPECT_EQ(r.u32(ipc::kOffMlen), msg.size());
        EXPECT_TRUE(
            std::equal(msg.begin() + ipc::kSwpBodyOff, msg.end(), got.begin() + ipc::kSwpBodyOff));
        EXPECT_TRUE(recvOn(agent, 0).empty()) << "one copy per agent";
    }
}

TEST_F(IfmIntakeTest, DumpNamesEachRecord) {
    const Mac mac = {0x00, 0x1e, 0xc9, 0xaa, 0x0b, 0xff};
    const Bytes msg = notif(
        {
            addIfRec(IFM_TYP_ADD_IF, gi(0, 5), 0, mac),
            ifRec(IFM_TYP_OSTATE_DN, po(3)),
            rec(IFM_TYP_MACADDR_CHG, Data().u32(gi(1, 2)).mac(mac)),
            rec(IFM_TYP_CHG_PORT_MODE, Data().u32(gi(0, 5)).u32(2)),
            vlanPortRec(IFM_TYP_ADD_VLAN_PORT, vl(10), gi(0, 5), 1),
            vlanPortRec(IFM_TYP_DEL_VLAN_PORT, vl(10), gi(0, 5), 0),
            lagRec(IFM_TYP_ADD_LAG_PORT, po(3), gi(0, 5)),
            rec(IFM_TYP_END_BLK_CFG),
            rec(L2PM_TYP_INIT_CFG_COMPLETE),
            rec(IFM_TYP_IF_MODE_CHG, Data().u32(gi(0, 5)).zeros(22)),
        },
        {}, 0xbeef);
    EXPECT_EQ(captureStdout([&] { vornDumpIfmMsg(msg.data()); }), "");
    vornMsgPrint = 1;
    std::string dump = captureStdout([&] { vornDumpIfmMsg(msg.data()); });
    // The end-of-block record is named as a LAG-port deletion and the interface-mode change
    // (type 25) is left unnamed, as the manager always did.
    for (const char* line :
         {"NumElem : 10, Count : 0xbeef\r\nMsg 1:\r\n   Msg Type :  IFM_TYP_ADD_IF\r\n"
          "   IfName   :  Gi 0/5\r\n   Mac Addr :  0:1e:c9:aa:b:ff \r\n",
          "   Mode     :  2\r\n", "   PortName :  Gi 0/5\r\n   Tagged   :  NO\r\n",
          "Msg 8:\r\n   Msg Type :  IFM_TYP_DEL_LAG_PORT\r\n"
          "Msg 9:\r\n   Msg Type :  L2PM_TYP_INIT_CFG_COMPLETE\r\n"
          "Msg 10:\r\nLen in Msg = 274, Actual Len = 274\r\n"})
        EXPECT_NE(dump.find(line), std::string::npos) << line << " in:\n" << dump;
    vornMsgPrint = 0;
}

}  // namespace
}  // namespace vorn::test
