// The L2PM records that follow ring changes: ring interface added or removed, member VLANs
// changed, the ring stopped on one side.

#include <functional>
#include <optional>

#include "l2pm/l2pm_test_util.h"
#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

using namespace l2pmt;

const uint32_t P = gi(0, 5), S = gi(0, 11);

// Ring 5: control VLAN 5, member VLANs 10, 20, 30; primary Gi 0/5 carries 5, 10, 20, 40 and
// secondary Gi 0/11 carries 5, 30; both up and owned for ring use. The cases change the
// records, so the members are public.
class RingUpdatesTest : public L2pmTest {
public:
    void SetUp() override {
        L2pmTest::SetUp();
        ASSERT_NE(ring = makeRing(5), nullptr);
        ASSERT_NE(pri = makePort(P, {}), nullptr);
        ASSERT_NE(sec = makePort(S, {}), nullptr);
    }
    struct Case {
        const char* name;
        std::function<void(RingUpdatesTest&)> change;
        std::function<void(VornRingEntry*)> call;
        std::optional<PortStateRec> rec;  // none: nothing is queued
    };
    void run(const std::vector<Case>& cases) {
        L2pmSwpPeer l2pm(l2pmKey_);
        for (const Case& c : cases) {
            SCOPED_TRACE(c.name);
            *ring = VornRingEntry{};
            ring->u2RingId = 5;
            attach(ring, 1, P);
            attach(ring, 0, S);
            ring->u2CtrlVlanId = 5;
            ring->memberVlanBmap = vlanSet({10, 20, 30});
            ring->u4Flags = VORN_RING_CFG_CTRL_VLAN | VORN_RING_CFG_MEMBER_VLAN;
            ring->u4PriPortState = ring->u4SecPortState = VORN_PORT_BLOCKING;
            pri->vlanBmap = vlanSet({5, 10, 20, 40});
            sec->vlanBmap = vlanSet({5, 30});
            for (VornPortEntry* p : {pri, sec}) {
                p->isOwnedByRingConf = 1;
                p->u2OperState = 1;
                p->i2RingCount = 1;
            }
            c.change(*this);
            c.call(ring);
            if (!c.rec) {
                EXPECT_EQ(gpVornL2PmPortStateBuf, nullptr);
                continue;
            }
            vornFlushPendingMsgs();
            EXPECT_EQ(portStateRecs(l2pm.next()), std::vector<PortStateRec>{*c.rec});
        }
    }
    VornRingEntry* ring = nullptr;
    VornPortEntry* pri = nullptr;
    VornPortEntry* sec = nullptr;
};

void same(RingUpdatesTest&) {}
void priDown(RingUpdatesTest& t) {
    t.pri->u2OperState = 0;
}
void priShared(RingUpdatesTest& t) {
    t.pri->i2RingCount = 2;
}
void priNotOwned(RingUpdatesTest& t) {
    t.pri->isOwnedByRingConf = 0;
}
void priForwards(RingUpdatesTest& t) {
    t.ring->u4PriPortState = VORN_PORT_FORW;
}
void secCarriesOnly5(RingUpdatesTest& t) {
    t.sec->vlanBmap = vlanSet({5});
}

TEST_F(RingUpdatesTest, RingInterfaceAddedAndRemoved) {
    auto add = [](int side) {
        return [side](VornRingEntry* r) { vornUpdateL2PmOnRingIfAdd(r, side); };
    };
    auto del = [](int side) {
        return [side](VornRingEntry* r) { vornUpdateL2PmOnRingIfDel(r, side); };
    };
    run({
        {"added, up: control VLAN forwards", same, add(1), PortStateRec{P, {5, 10, 20}, {5}}},
        {"added, down: all block", priDown, add(1), PortStateRec{P, {5, 10, 20}, {}}},
        {"added, secondary", same, add(0), PortStateRec{S, {5, 30}, {5}}},
        {"added, nothing of the ring on the port", [](RingUpdatesTest& t) { t.sec->vlanBmap = {}; },
         add(0), PortStateRec{S, {}, {5}}},
        {"added, not owned", priNotOwned, add(1), std::nullopt},
        {"added, no port", [](RingUpdatesTest& t) { t.ring->u2PriPortNum = 0; }, add(1),
         std::nullopt},
        {"removed, shared and up: forward", priShared, del(1),
         PortStateRec{P, {5, 10, 20}, {5, 10, 20}}},
        {"removed, this ring's alone: block", same, del(1), PortStateRec{P, {5, 10, 20}, {}}},
        {"removed, shared but down: block",
         [](RingUpdatesTest& t) {
             priShared(t);
             priDown(t);
         },
         del(1), PortStateRec{P, {5, 10, 20}, {}}},
        {"removed, not owned", priNotOwned, del(1), std::nullopt},
    });
}

TEST_F(RingUpdatesTest, MemberVlansChangedAndRingStopped) {
    auto change = [](int side, int add) {
        return [side, add](VornRingEntry* r) {
            VornVlanBmap changed = vlanSet({10, 30, 40});
            vornUpdateL2PmOnMemberVlanChange(r, side, changed.data(), add);
        };
    };
    auto stop = [](int side) {
        return [side](VornRingEntry* r) { vornUpdateL2PmOnRingDisableIfmChange(r, side); };
    };
    run({
        {"added, forwarding", priForwards, change(1, 1), PortStateRec{P, {10, 40}, {10, 40}}},
        {"added, blocking", same, change(1, 1), PortStateRec{P, {10, 40}, {}}},
        {"added, secondary's own state", priForwards, change(0, 1), PortStateRec{S, {30}, {}}},
        {"removed, up: forward", same, change(1, 0), PortStateRec{P, {10, 40}, {10, 40}}},
        {"removed, down: block", priDown, change(1, 0), PortStateRec{P, {10, 40}, {}}},
        {"no control VLAN", [](RingUpdatesTest& t) { t.ring->u4Flags = VORN_RING_CFG_MEMBER_VLAN; },
         change(1, 1), std::nullopt},
        {"changed VLANs not on the port", secCarriesOnly5, change(0, 0), std::nullopt},
        {"stopped: member VLANs block", same, stop(1), PortStateRec{P, {10, 20}, {}}},
        {"stopped, no member VLANs", [](RingUpdatesTest& t) { t.ring->u4Flags = 1; }, stop(1),
         std::nullopt},
        {"stopped, no member VLAN on the port", secCarriesOnly5, stop(0), std::nullopt},
        {"stopped, not owned", priNotOwned, stop(1), std::nullopt},
    });
}

}  // namespace
}  // namespace vorn::test
