// VLAN and LAG membership: what a port joining or leaving a VLAN or a LAG does to the
// records, to L2PM and to the rings that use it.

#include "ifm_test_util.h"

#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

using namespace l2pmt;
using namespace ifmt;

using W = std::vector<uint32_t>;
const uint32_t P = gi(0, 5), S = gi(0, 11), O = gi(1, 1);

// Ring 5 has control VLAN 10 and member VLAN 100 on primary P and secondary S, all up and
// owned; O is an owned port of no ring. VLANs 10, 50 and 100 exist.
class MembershipTest : public L2pmTest {
protected:
    void SetUp() override {
        L2pmTest::SetUp();
        for (uint32_t ifIndex : {P, S, O}) {
            VornPortEntry* port = makePort(ifIndex, {});
            ASSERT_NE(port, nullptr);
            port->isOwnedByRingConf = 1;
        }
        for (int v : {10, 50, 100}) {
            ASSERT_NE(vornCreateVlanEntry(vl(v), VORN_CREATOR_IFM), nullptr);
        }
        ring_ = makeRing(5);
        ASSERT_NE(ring_, nullptr);
        attach(ring_, 1, P);
        attach(ring_, 0, S);
        ring_->u4Flags = VORN_RING_CFG_MANDATORY | VORN_RING_CFG_MEMBER_VLAN;
        ring_->u2CtrlVlanId = 10;
        gVornVlan[10]->u2CtrlVlanRingId = 5;
        ring_->memberVlanBmap = vlanSet({100});
        ring_->isPriOwned = ring_->isSecOwned = 1;
        for (uint32_t ifIndex : {P, S}) port(ifIndex)->ctrlVlanBmap = vlanSet({10});
    }
    static VornPortEntry* port(uint32_t ifIndex) { return gVornPort[vornPortNumOf(ifIndex)]; }
    static int addVlanPort(int vlan, uint32_t portIf, uint16_t tagged) {
        Bytes d = Data().u32(vl(vlan)).u32(portIf).u16(tagged);
        return vornProcessAddVlanPort(d.data(), d.size());
    }
    static int delVlanPort(int vlan, uint32_t portIf) {
        Bytes d = Data().u32(vl(vlan)).u32(portIf).u16(1);
        return vornProcessDelVlanPort(d.data(), d.size());
    }
    // Whether the port is a member of the VLAN, in both directions, and tagged.
    static std::array<bool, 3> membership(int vlan, uint32_t portIf) {
        uint16_t num = vornPortNumOf(portIf);
        return {bmp::test(port(portIf)->vlanBmap, vlan), bmp::test(gVornVlan[vlan]->portBmap, num),
                bmp::test(gVornVlan[vlan]->taggedPortBmap, num)};
    }
    std::vector<PortStateRec> sent(L2pmSwpPeer& l2pm) {
        if (gpVornL2PmPortStateBuf == nullptr) return {};
        vornFlushPendingMsgs();
        return portStateRecs(l2pm.next());
    }
    QelKey addAgent() {
        QelKey agent = openPeer(VORN_AGENT_SERVICE, 0);
        EXPECT_EQ(vorn2VornaCreateSwpQ(0), 0);
        return agent;
    }
    VornRingEntry* ring_ = nullptr;
};

TEST_F(MembershipTest, VlanJoinSetsMembershipAndForwardingState) {
    L2pmSwpPeer l2pm(l2pmKey_);
    using Recs = std::vector<PortStateRec>;
    const struct {
        const char* name;
        int vlan;
        uint32_t portIf;
        uint16_t tagged, oper;
        uint8_t owned;
        uint32_t priState;
        Recs recs;
    } cases[] = {
        {"VLAN of no ring on an up port forwards", 50, O, 1, 1, 1, 0, {{O, {50}, {50}}}},
        {"on a down port it blocks", 50, O, 0, 0, 1, 0, {{O, {50}, {}}}},
        {"ownership not held: nothing sent", 50, O, 1, 1, 0, 0, {}},
        {"member VLAN follows a forwarding ring side", 100, P, 1, 1, 1, 2, {{P, {100}, {100}}}},
        {"member VLAN follows a blocking ring side", 100, P, 1, 1, 1, 3, {{P, {100}, {}}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        port(c.portIf)->u2OperState = c.oper;
        port(c.portIf)->isOwnedByRingConf = c.owned;
        ring_->u4PriPortState = c.priState;
        EXPECT_EQ(addVlanPort(c.vlan, c.portIf, c.tagged), 0);
        EXPECT_EQ(membership(c.vlan, c.portIf), (std::array<bool, 3>{true, true, c.tagged != 0}));
        EXPECT_EQ(sent(l2pm), c.recs);
        EXPECT_EQ(delVlanPort(c.vlan, c.portIf), 0);
        EXPECT_EQ(membership(c.vlan, c.portIf), (std::array<bool, 3>{}));
        EXPECT_EQ(gpVornL2PmPortStateBuf, nullptr) << "a VLAN leaving sends nothing";
    }

    // Unknown VLANs and ports change nothing; the list form adds each VLAN it holds.
    EXPECT_EQ(addVlanPort(51, O, 1), 0);
    EXPECT_EQ(addVlanPort(50, gi(9, 9), 1), 0);
    EXPECT_TRUE(BITMAP_IS_EMPTY(port(O)->vlanBmap));
    port(O)->isOwnedByRingConf = 1;
    const uint32_t added = gVornCounters[VORN_CNT_ADD_VLAN_PORT];
    const Bytes list = vlanListRec(O, 1, {vl(50), vl(51), vl(100)});
    EXPECT_EQ(vornProcessAddVlanBmpPort(list.data() + 4, list.size() - 4), 0);
    EXPECT_EQ(gVornCounters[VORN_CNT_ADD_VLAN_PORT] - added, 3u);
    EXPECT_EQ(vlanList(port(O)->vlanBmap), (std::vector<int>{50, 100}));
    EXPECT_EQ(sent(l2pm), (Recs{{O, {50}, {50}}, {O, {100}, {100}}}));
}

TEST_F(MembershipTest, RingInterfacesJoinTheControlVlanTaggedOnly) {
    L2pmSwpPeer l2pm(l2pmKey_);
    // Tagged in: primary, secondary; owned by the manager; the two port states.
    auto state = [this] {
        return W{ring_->isPriTagged, ring_->isSecTagged, ring_->isRingOwnedByMgr,
                 ring_->u4PriPortState, ring_->u4SecPortState};
    };
    EXPECT_EQ(addVlanPort(10, P, 0), 0);
    EXPECT_EQ(membership(10, P), (std::array<bool, 3>{})) << "no trace of an untagged join";
    EXPECT_EQ(state(), (W{0, 0, 0, 0, 0}));
    EXPECT_EQ(gpVornL2PmPortStateBuf, nullptr);
    // Not ready with one interface.
    EXPECT_EQ(addVlanPort(10, P, 1), 0);
    EXPECT_EQ(state(), (W{1, 0, 0, 0, 0}));
    EXPECT_EQ(sent(l2pm), (std::vector<PortStateRec>{{P, {10}, {10}}}));
    // The second interface makes the ring ready; with the secondary not ready the manager
    // drives both ports itself.
    EXPECT_EQ(addVlanPort(10, S, 1), 0);
    EXPECT_EQ(state(), (W{1, 1, 1, 2, 2}));
    vornFlushPendingMsgs();
    std::vector<PortStateRec> recs = portStateRecs(l2pm.next());
    ASSERT_FALSE(recs.empty());
    EXPECT_EQ(recs[0], (PortStateRec{S, {10}, {10}}));
    // The secondary leaving the control VLAN gives the ports back.
    EXPECT_EQ(delVlanPort(10, S), 0);
    EXPECT_EQ(state(), (W{1, 0, 1, 0, 0}));
}

TEST_F(MembershipTest, AgentRingStartsAndStopsWithItsControlVlan) {
    QelKey agent = addAgent();
    ring_->isSecReady = 1;
    ASSERT_EQ(addVlanPort(10, P, 1), 0);
    EXPECT_TRUE(queuedRingActions(0).empty());
    ASSERT_EQ(addVlanPort(10, S, 1), 0);
    EXPECT_EQ(queuedRingActions(0), (std::vector<std::pair<int, int>>{{5, 2}}));
    EXPECT_EQ(ring_->isRingOwnedByMgr, 0);
    // A port of no ring leaving changes membership only; a ring interface stops the ring.
    ASSERT_EQ(delVlanPort(50, O), 0);
    ASSERT_EQ(delVlanPort(10, P), 0);
    EXPECT_EQ(queuedRingActions(0), (std::vector<std::pair<int, int>>{{5, 2}, {5, 4}}));
    EXPECT_EQ(ring_->isPriTagged, 0);
    qelIpcClose(agent);
}

TEST_F(MembershipTest, LagMemberReadiesSecondaryAndStartsRing) {
    QelKey agent = addAgent();
    const uint32_t lagIf = po(4), m1 = gi(2, 1), m2 = gi(2, 2);
    for (uint32_t ifIndex : {lagIf, m1, m2}) ASSERT_NE(makePort(ifIndex, {}), nullptr);
    // Ring 6 on P and LAG 4, ready but for its secondary; the manager drives its ports.
    VornRingEntry* ring = makeRing(6);
    attach(ring, 1, P);
    attach(ring, 0, lagIf);
    ring->u4Flags = VORN_RING_CFG_MANDATORY;
    ring->u2CtrlVlanId = 50;
    ring->isPriOwned = ring->isSecOwned = ring->isPriTagged = ring->isSecTagged = 1;
    ring->isRingOwnedByMgr = 1;
    ring->u4PriPortState = ring->u4SecPortState = 2;

    auto lagOp = [lagIf](int (*handler)(const uint8_t*, size_t), uint32_t member) {
        Bytes d = Data().u32(lagIf).u32(member);
        return handler(d.data(), d.size());
    };
    using Actions = std::vector<std::pair<int, int>>;
    // The secondary ready, the ports given back, the ring started on its agent.
    EXPECT_EQ(lagOp(vornProcessAddLagPort, m1), 0);
    EXPECT_EQ(
        W({ring->isSecReady, ring->u4PriPortState, ring->u4SecPortState, port(m1)->u2LagParent}),
        (W{1, 0, 0, 4}));
    EXPECT_EQ(queuedRingActions(0), (Actions{{6, 2}}));

    EXPECT_EQ(lagOp(vornProcessAddLagPort, m2), 0);
    EXPECT_EQ(queuedRingActions(0), (Actions{{6, 2}})) << "already running";
    EXPECT_EQ(lagOp(vornProcessDelLagPort, m1), 0);
    EXPECT_EQ(lagOp(vornProcessDelLagPort, m2), 0);
    EXPECT_EQ(port(lagIf)->pLagPortList->lastEmptyIndex, 0);
    EXPECT_EQ(ring->isSecReady, 1) << "losing members stops nothing";
    EXPECT_EQ(queuedRingActions(0), (Actions{{6, 2}}));

    Bytes noLag = Data().u32(po(9)).u32(m1);
    EXPECT_EQ(vornProcessAddLagPort(noLag.data(), noLag.size()), -1);
    qelIpcClose(agent);
}

}  // namespace
}  // namespace vorn::test
