// Interface add and delete, oper state, MAC address and port mode: the records they change
// and the port states they send to L2PM.

#include "ifm_test_util.h"

#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

using namespace l2pmt;
using namespace ifmt;

const uint32_t P = gi(0, 5), Q = gi(0, 6), S = gi(0, 11);

// Port P carries the control VLANs 10 and 20 of rings 1 and 2, their member VLANs (100 and
// 101 for ring 1, whose primary it is; 101 and 102 for ring 2, whose secondary it is) and
// VLAN 300 of no ring. The port is down and owned by the ring configuration.
class OperStateTest : public L2pmTest {
protected:
    void SetUp() override {
        L2pmTest::SetUp();
        port_ = makePort(P, {10, 20, 100, 101, 102, 300});
        ASSERT_TRUE(port_ && makePort(Q, {}) && makePort(S, {}));
        port_->u2OperState = 0;
        port_->isOwnedByRingConf = 1;
        port_->ctrlVlanBmap = vlanSet({10, 20});
        ring1_ = makeRing(1);
        ring2_ = makeRing(2);
        ASSERT_TRUE(ring1_ && ring2_);
        attach(ring1_, 1, P);
        attach(ring1_, 0, Q);
        attach(ring2_, 1, S);
        attach(ring2_, 0, P);
        ring1_->memberVlanBmap = vlanSet({100, 101});
        ring2_->memberVlanBmap = vlanSet({101, 102});
        ring1_->u2DesgLineCard = ring2_->u2DesgLineCard = 3;
    }
    // Ring 1 gets everything readiness asks for.
    void makeRing1Ready() {
        ring1_->u4Flags = VORN_RING_CFG_MANDATORY;
        ring1_->u2CtrlVlanId = 10;
        ASSERT_NE(vornCreateVlanEntry(vl(10), VORN_CREATOR_RING_CONF), nullptr);
        ring1_->isPriOwned = ring1_->isSecOwned = ring1_->isPriTagged = ring1_->isSecTagged = 1;
    }
    std::vector<PortStateRec> sent(L2pmSwpPeer& l2pm) {
        if (gpVornL2PmPortStateBuf == nullptr) return {};
        vornFlushPendingMsgs();
        return portStateRecs(l2pm.next());
    }
    VornPortEntry* port_ = nullptr;
    VornRingEntry *ring1_ = nullptr, *ring2_ = nullptr;
};

TEST_F(OperStateTest, OperUpSettlesEachVlanOnce) {
    L2pmSwpPeer l2pm(l2pmKey_);
    const struct {
        const char* name;
        uint32_t state1, state2;
        uint8_t owned;
        std::vector<PortStateRec> recs;
    } cases[] = {
        // clang-format off
        {"first ring takes the shared VLAN", 2, 3, 1,
         {{P, {10, 20}, {10, 20}}, {P, {100, 101}, {100, 101}}, {P, {102}, {}}, {P, {300}, {300}}}},
        {"a side without state leaves its VLANs to the last record", 4, 1, 1,
         {{P, {10, 20}, {10, 20}}, {P, {101, 102}, {}}, {P, {100, 300}, {100, 300}}}},
        {"ownership not held", 2, 2, 0, {}},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        port_->u2OperState = 0;
        port_->isOwnedByRingConf = c.owned;
        ring1_->u4PriPortState = c.state1;
        ring2_->u4SecPortState = c.state2;
        EXPECT_EQ(vornProcessOperUp(word(P).data(), 4), 0);
        EXPECT_EQ(port_->u2OperState, 1);
        EXPECT_EQ(sent(l2pm), c.recs);
        EXPECT_EQ(ring1_->u4PriPortState, c.state1) << "rings run by an agent keep their state";
    }
}

TEST_F(OperStateTest, OperUpForwardsRingsNoAgentRuns) {
    L2pmSwpPeer l2pm(l2pmKey_);
    makeRing1Ready();
    ring1_->u2DesgLineCard = VORN_NO_LINE_CARD;
    ring1_->u4PriPortState = 3;
    ring2_->u4SecPortState = 3;
    vornProcessOperUp(word(P).data(), 4);
    // Ring 2 has an agent but comes after ring 1 in the walk: it is forwarded as well.
    EXPECT_EQ(std::vector<uint32_t>({ring1_->u4PriPortState, ring2_->u4SecPortState}),
              (std::vector<uint32_t>{2, 2}));
    EXPECT_EQ(sent(l2pm), (std::vector<PortStateRec>{{P, {10, 20}, {10, 20}},
                                                     {P, {100, 101}, {100, 101}},
                                                     {P, {102}, {102}},
                                                     {P, {300}, {300}}}));
}

TEST_F(OperStateTest, OperDownBlocksEveryVlanInOneRecord) {
    L2pmSwpPeer l2pm(l2pmKey_);
    makeRing1Ready();
    port_->u2OperState = 1;
    ring1_->u2DesgLineCard = VORN_NO_LINE_CARD;
    ring1_->u4PriPortState = ring2_->u4SecPortState = 2;
    EXPECT_EQ(vornProcessOperDn(word(P).data(), 4), 0);
    EXPECT_EQ(port_->u2OperState, 0);
    // Ring 1 is ready without an agent: disabled; ring 2 is run by an agent: as it was.
    EXPECT_EQ(ring1_->u4PriPortState, 0u);
    EXPECT_EQ(ring2_->u4SecPortState, 2u);
    EXPECT_EQ(sent(l2pm), (std::vector<PortStateRec>{{P, {10, 20, 100, 101, 102, 300}, {}}}));

    port_->isOwnedByRingConf = 0;
    vornProcessOperDn(word(P).data(), 4);
    EXPECT_EQ(gpVornL2PmPortStateBuf, nullptr);

    // Unknown ports count as errors; the management port and VLANs are not ports at all.
    const auto errs = gVornErrs;
    for (uint32_t ifIndex : {gi(7, 7), ma(), vl(10)}) {
        Bytes d = Data().u32(ifIndex);
        vornProcessOperUp(d.data(), d.size());
        vornProcessOperDn(d.data(), d.size());
    }
    EXPECT_EQ(gVornErrs[VORN_ERR_OSTATE_UP] - errs[VORN_ERR_OSTATE_UP], 1u);
    EXPECT_EQ(gVornErrs[VORN_ERR_OSTATE_DOWN] - errs[VORN_ERR_OSTATE_DOWN], 1u);
    EXPECT_EQ(gpVornL2PmPortStateBuf, nullptr);
}

using IfRecordTest = MgrTest;

TEST_F(IfRecordTest, AddDeleteMacAndMode) {
    const Mac mac = {0, 1, 2, 3, 4, 5}, mac2 = {9, 8, 7, 6, 5, 4};
    auto apply = [](int (*handler)(const uint8_t*, size_t), const Bytes& r) {
        return handler(r.data() + 4, r.size() - 4);  // the data behind the record header
    };
    for (uint32_t ifIndex : {ma(), vl(10), P, po(3)})
        apply(vornProcessAddIf, addIfRec(1, ifIndex, ifIndex == vl(10) ? 0x1234 : 0, mac));
    EXPECT_EQ(gVornPort[vornPortNumOf(ma())], nullptr);
    ASSERT_NE(gVornVlan[10], nullptr);
    EXPECT_EQ(gVornVlan[10]->u4IfmAttr, 0x1234u);
    VornPortEntry* port = gVornPort[134];
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->macAddr, mac);
    ASSERT_NE(gVornPort[3], nullptr);
    EXPECT_NE(gVornPort[3]->pLagPortList, nullptr);

    apply(vornProcessMacAddrChg, rec(10, Data().u32(P).mac(mac2)));
    apply(vornProcessPortMode, rec(11, Data().u32(P).u32(7)));
    // Too short: nothing changes.
    EXPECT_EQ(apply(vornProcessMacAddrChg, rec(10, Data().u32(P).u16(0))), -1);
    EXPECT_EQ(apply(vornProcessPortMode, rec(11, Data().u32(P).u16(9))), -1);
    EXPECT_EQ(port->macAddr, mac2);
    EXPECT_EQ(port->u4PortMode, 7u);

    for (uint32_t ifIndex : {ma(), vl(10), P}) apply(vornProcessDelIf, addIfRec(2, ifIndex, 0, {}));
    EXPECT_EQ(gVornVlan[10], nullptr);
    EXPECT_EQ(gVornPort[134], nullptr);
    EXPECT_NE(gVornPort[3], nullptr);
}

}  // namespace
}  // namespace vorn::test
