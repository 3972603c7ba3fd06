// The control VLAN and ring interfaces: the links made between ring, port and VLAN records,
// the refusals, and a change as removal plus add.
#include <gtest/gtest.h>

#include <thread>

#include "config/cfg_fixture.h"

#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

constexpr uint16_t kPri = 134;  // Gi 0/5
constexpr uint16_t kSec = 140;  // Gi 0/11
const std::string kRingLine = "!\r\nprotocol vorn 5  \r\n";
const std::string kIfLine =
    " interface primary GigabitEthernet 0/5 secondary GigabitEthernet 0/11 control-vlan 10 \r\n";

class CtrlVlanTest : public CfgTest {
protected:
    void SetUp() override {
        CfgTest::SetUp();
        create(5);
    }
};

TEST_F(CtrlVlanTest, AddLinksRingPortsAndVlan) {
    // IFM already reported VLAN 10 with the primary tagged in it.
    VornVlanEntry* vlan = vornCreateVlanEntry(vl(10), VORN_CREATOR_IFM);
    ASSERT_NE(vlan, nullptr);
    bmp::set(vlan->taggedPortBmap, kPri);
    auto before = gVornCounters;
    ctrlVlan(5, gi(0, 5), gi(0, 11), 10);

    EXPECT_EQ(gVornCounters[VORN_CNT_CLI_ADD_CTRL_VLAN], before[VORN_CNT_CLI_ADD_CTRL_VLAN] + 1);
    const VornRingEntry& r = *gVornRing[5];
    EXPECT_EQ(r.u4Flags, VORN_RING_CFG_CTRL_VLAN);
    EXPECT_EQ(r.u4CtrlVlanIfIndex, vl(10));
    EXPECT_EQ(r.u2CtrlVlanId, 10);
    EXPECT_EQ(r.u4PriIfIndex, gi(0, 5));
    EXPECT_EQ(r.u4SecIfIndex, gi(0, 11));
    EXPECT_EQ(r.u2PriPortNum, kPri);
    EXPECT_EQ(r.u2SecPortNum, kSec);
    EXPECT_EQ(r.isPriOwned + r.isSecOwned + r.isSecReady, 3);  // a physical secondary is ready
    EXPECT_EQ(r.isPriTagged, 1);
    EXPECT_EQ(r.isSecTagged, 0);
    EXPECT_TRUE(bmp::test(gVornCtrlVlanBmap, 10));
    EXPECT_EQ(vlan->u2CtrlVlanRingId, 5);
    EXPECT_EQ(vlan->isCreatedByRingConf, 1);
    for (uint16_t n : {kPri, kSec}) {
        SCOPED_TRACE(n);
        const VornPortEntry* p = gVornPort[n];
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(p->isCreatedByIfm, 0);
        EXPECT_EQ(p->i2RingCount, 1);
        EXPECT_TRUE(bmp::test(p->ctrlVlanBmap, 10));
        EXPECT_TRUE(bmp::test(p->ringBmap, 5));
    }
    EXPECT_EQ(runningConfig(), kRingLine + kIfLine);

    // The same add again changes nothing.
    const Snapshot once = snapshot();
    ctrlVlan(5, gi(0, 5), gi(0, 11), 10);
    EXPECT_EQ(snapshot(), once);
}

TEST_F(CtrlVlanTest, SecondaryLagIsReadyOnlyWithMembers) {
    for (uint8_t members : {0, 1}) {
        SCOPED_TRACE(static_cast<int>(members));
        VornPortEntry* lag = vornCreatePortEntry(po(3), VORN_CREATOR_RING_CONF);
        ASSERT_NE(lag, nullptr);
        lag->pLagPortList->lastEmptyIndex = members;
        lag->pLagPortList->members[0] = members != 0 ? kPri + 1 : 0;
        ctrlVlan(5, gi(0, 5), po(3), 10);
        EXPECT_EQ(gVornRing[5]->u2SecPortNum, 3);
        EXPECT_EQ(gVornRing[5]->isSecReady, members);
        EXPECT_EQ(runningConfig(), kRingLine +
                                       " interface primary GigabitEthernet 0/5 secondary "
                                       "Port-channel 3 control-vlan 10 \r\n");
        ASSERT_EQ(status(CliReq(vorn::nm::kTypeCtrlVlan, 5).no().ifs(gi(0, 5), po(3), 10)), 0);
        EXPECT_EQ(gVornPort[3], nullptr);  // ring configuration's record went with the ring use
        EXPECT_EQ(gVornRing[5]->isSecReady, 0);
    }
}

TEST_F(CtrlVlanTest, RefusalsChangeNothing) {
    create(6);
    ctrlVlan(6, gi(1, 1), gi(1, 2), 20);  // VLAN 20 is ring 6's control VLAN
    members(6, {30});                     // VLAN 30 is a member VLAN
    setIcl(po(9));                        // Po 9 is the peer pair's inter-chassis link
    const struct {
        const char* name;
        bool configured;  // ring 5 has control VLAN 10 on Gi 0/5 and Gi 0/11 first
        CliReq req;
        uint32_t status;
    } cases[] = {
        {"no such ring", false, CliReq(vorn::nm::kTypeCtrlVlan, 7).ifs(gi(0, 5), gi(0, 11), 10), 1},
        {"ring 0", false, CliReq(vorn::nm::kTypeCtrlVlan, 0).ifs(gi(0, 5), gi(0, 11), 10), 1},
        {"same interfaces", false, CliReq(vorn::nm::kTypeCtrlVlan, 5).ifs(gi(0, 5), gi(0, 5), 10),
         11},
        {"same interfaces on a configured ring", true,
         CliReq(vorn::nm::kTypeCtrlVlan, 5).ifs(gi(0, 7), gi(0, 7), 12), 11},
        {"secondary is the ICL", false, CliReq(vorn::nm::kTypeCtrlVlan, 5).ifs(gi(0, 5), po(9), 10),
         20},
        {"ICL on a configured ring", true,
         CliReq(vorn::nm::kTypeCtrlVlan, 5).ifs(gi(0, 5), po(9), 10), 20},
        {"ICL on a missing ring", false,
         CliReq(vorn::nm::kTypeCtrlVlan, 7).ifs(gi(0, 5), po(9), 10), 1},
        {"ICL on both sides", false, CliReq(vorn::nm::kTypeCtrlVlan, 5).ifs(po(9), po(9), 10), 11},
        {"another ring's control VLAN", false,
         CliReq(vorn::nm::kTypeCtrlVlan, 5).ifs(gi(0, 5), gi(0, 11), 20), 6},
        {"change to another ring's control VLAN", true,
         CliReq(vorn::nm::kTypeCtrlVlan, 5).ifs(gi(0, 5), gi(0, 11), 20), 6},
        {"member VLAN", false, CliReq(vorn::nm::kTypeCtrlVlan, 5).ifs(gi(0, 5), gi(0, 11), 30), 7},
        {"change to a member VLAN", true,
         CliReq(vorn::nm::kTypeCtrlVlan, 5).ifs(gi(0, 5), gi(0, 11), 30), 7},
        {"remove naming another primary", true,
         CliReq(vorn::nm::kTypeCtrlVlan, 5).no().ifs(gi(0, 6), gi(0, 11), 10), 3},
        {"remove naming another secondary", true,
         CliReq(vorn::nm::kTypeCtrlVlan, 5).no().ifs(gi(0, 5), gi(0, 12), 10), 4},
        {"remove naming another control VLAN", true,
         CliReq(vorn::nm::kTypeCtrlVlan, 5).no().ifs(gi(0, 5), gi(0, 11), 11), 5},
        {"remove from a ring without one", false,
         CliReq(vorn::nm::kTypeCtrlVlan, 5).no().ifs(gi(0, 5), gi(0, 11), 10), 0},
        {"remove from a missing ring", false,
         CliReq(vorn::nm::kTypeCtrlVlan, 7).no().ifs(gi(0, 5), gi(0, 11), 10), 0},
    };
    for (auto c : cases) {
        SCOPED_TRACE(c.name);
        const bool has = (gVornRing[5]->u4Flags & VORN_RING_CFG_CTRL_VLAN) != 0;
        if (c.configured && !has) ctrlVlan(5, gi(0, 5), gi(0, 11), 10);
        if (!c.configured && has) {
            ASSERT_EQ(status(CliReq(vorn::nm::kTypeCtrlVlan, 5).no().ifs(gi(0, 5), gi(0, 11), 10)),
                      0);
        }
        const Snapshot before = snapshot();
        EXPECT_EQ(status(c.req), c.status);
        EXPECT_EQ(snapshot(), before);
    }
}

TEST_F(CtrlVlanTest, InterfaceSideRefusalRepliesEighteen) {
    std::vector<Bytes> asked;  // IFM refuses the VLAN, answering in place
    std::thread peer = answerInPlace(openPeer(138, 0), &asked, [](size_t, Bytes& m) {
        be::Writer(m.data(), m.size()).u32(68, VORN_IFM_CTRL_VLAN_REFUSED);
    });
    const Snapshot before = snapshot();
    EXPECT_EQ(status(CliReq(vorn::nm::kTypeCtrlVlan, 5).ifs(gi(0, 5), gi(0, 11), 10)),
              vorn::nm::kStatusIfmRefused);
    peer.join();
    EXPECT_EQ(snapshot(), before);
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(words(asked[0], {60, 64}), (std::vector<uint32_t>{1, 10})) << "add VLAN 10";
}

TEST_F(CtrlVlanTest, ChangingTheControlVlanRebuildsTheConfiguration) {
    ctrlVlan(5, gi(0, 5), gi(0, 11), 10);
    auto before = gVornCounters;
    ctrlVlan(5, gi(0, 5), gi(0, 11), 40);
    // The change ran as one add with a removal inside it.
    EXPECT_EQ(gVornCounters[VORN_CNT_CLI_ADD_CTRL_VLAN], before[VORN_CNT_CLI_ADD_CTRL_VLAN] + 1);
    EXPECT_EQ(gVornCounters[VORN_CNT_CLI_DEL_CTRL_VLAN], before[VORN_CNT_CLI_DEL_CTRL_VLAN]);
    EXPECT_EQ(gVornRing[5]->u2CtrlVlanId, 40);
    EXPECT_FALSE(bmp::test(gVornCtrlVlanBmap, 10));
    EXPECT_TRUE(bmp::test(gVornCtrlVlanBmap, 40));
    EXPECT_EQ(gVornVlan[10], nullptr);
    ASSERT_NE(gVornVlan[40], nullptr);
    EXPECT_EQ(gVornVlan[40]->u2CtrlVlanRingId, 5);
    for (uint16_t n : {kPri, kSec}) {
        SCOPED_TRACE(n);
        ASSERT_NE(gVornPort[n], nullptr);
        EXPECT_EQ(gVornPort[n]->i2RingCount, 1);
        EXPECT_FALSE(bmp::test(gVornPort[n]->ctrlVlanBmap, 10));
        EXPECT_TRUE(bmp::test(gVornPort[n]->ctrlVlanBmap, 40));
    }
    EXPECT_EQ(runningConfig(),
              kRingLine +
                  " interface primary GigabitEthernet 0/5 secondary GigabitEthernet 0/11 "
                  "control-vlan 40 \r\n");
}

TEST_F(CtrlVlanTest, PortSharedByTwoRingsSurvivesOneRemoval) {
    create(6);
    ctrlVlan(5, gi(0, 5), gi(0, 11), 10);
    ctrlVlan(6, gi(0, 11), gi(0, 12), 20);  // Gi 0/11: secondary of 5, primary of 6
    ASSERT_EQ(gVornPort[kSec]->i2RingCount, 2);
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeCtrlVlan, 5).no().ifs(gi(0, 5), gi(0, 11), 10)), 0);
    const VornPortEntry* shared = gVornPort[kSec];
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(shared->i2RingCount, 1);
    EXPECT_FALSE(bmp::test(shared->ringBmap, 5));
    EXPECT_TRUE(bmp::test(shared->ringBmap, 6));
    EXPECT_FALSE(bmp::test(shared->ctrlVlanBmap, 10));
    EXPECT_TRUE(bmp::test(shared->ctrlVlanBmap, 20));
    EXPECT_EQ(gVornPort[kPri], nullptr);
    const VornRingEntry& r = *gVornRing[5];
    EXPECT_EQ(r.u4Flags, 0u);
    EXPECT_EQ(r.u4PriIfIndex + r.u4SecIfIndex + r.u4CtrlVlanIfIndex, 0u);
    EXPECT_EQ(r.u2PriPortNum + r.u2SecPortNum + r.u2CtrlVlanId, 0);
    EXPECT_EQ(r.isPriOwned + r.isSecOwned + r.isSecReady + r.isPriTagged + r.isSecTagged, 0);
    EXPECT_EQ(runningConfig(),
              kRingLine +
                  "!\r\nprotocol vorn 6  \r\n interface primary GigabitEthernet 0/11 "
                  "secondary GigabitEthernet 0/12 control-vlan 20 \r\n");
}

}  // namespace
}  // namespace vorn::test
