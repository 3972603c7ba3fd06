// The ring action of a configuration change, and ring ownership: the port states the manager
// hands to the L2PM relay when it takes or gives up a ring's ports, and when a configuration
// change does either. What L2PM is then sent is the relay's business and is tested with it.

#include <string>
#include <tuple>
#include <vector>

#include "agent_fixture.h"

#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

using W = std::vector<uint32_t>;
constexpr uint16_t kRing = 5;

// One relayed port state: ifIndex, old state, new state, side (1 primary), flush, syslog.
using Relay = std::tuple<uint32_t, uint32_t, uint32_t, int, int, int>;
std::vector<Relay> gRelays;

int recordRelay(VornRingEntry* ring, uint32_t ifIndex, uint32_t oldState, uint32_t newState,
                int side, int flush, int dispSyslog) {
    EXPECT_EQ(ring, gVornRing[kRing]);
    gRelays.emplace_back(ifIndex, oldState, newState, side, flush, dispSyslog);
    return 0;
}

class RingOwnershipTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        gRelays.clear();
        vornSetPortStateRelayForTest(recordRelay);
        ring_ = makeReadyRing(kRing, 10, kPri, kSec, 0);
    }
    void setOper(uint32_t ifIndex, uint16_t state) {
        vornGetPort(vornPortNumOf(ifIndex))->u2OperState = state;
    }
    static constexpr uint32_t kPri = 0x0A000500;  // Gi 0/5
    static constexpr uint32_t kSec = 0x0A000B00;  // Gi 0/11
    VornRingEntry* ring_ = nullptr;
};

TEST_F(RingOwnershipTest, RingActionOfEveryRowOfTheDecision) {
    enum : uint32_t { kNone = 1, kStart = 2, kRestart = 3, kStop = 4 };
    const struct {
        const char* name;
        uint32_t action, flags, old;
        bool ready;
        uint8_t secReady;
        uint32_t want;
    } cases[] = {
        // Without the control VLAN, mode or enable bits nothing can change the running ring.
        {"member VLANs removed", 2, 0x20, 1, true, 1, kNone},
        {"ring deleted (flags 0)", 3, 0x00, 1, true, 1, kNone},
        {"remove from a running ring", 2, 0x01, 1, true, 1, kStop},
        {"remove, old status 1, secondary not ready", 2, 0x02, 1, true, 0, kNone},
        {"remove, old status 2 is not 1", 2, 0x01, 2, true, 1, kNone},
        {"delete with control VLAN bit", 3, 0x01, 0, false, 0, kStop},
        {"set makes the ring run", 1, 0x04, 0, true, 1, kStart},
        {"set, ready but secondary not ready", 1, 0x01, 0, true, 0, kNone},
        {"set, not ready", 1, 0x02, 0, false, 1, kNone},
        {"set on a running ring", 1, 0x02, 1, true, 1, kRestart},
        {"set, old status other than 0 counts as running", 1, 0x02, 7, true, 1, kRestart},
        {"set leaves the secondary not ready", 1, 0x01, 1, true, 0, kStop},
        {"set leaves the ring not ready", 1, 0x01, 1, false, 1, kStop},
        {"unknown action 4", 4, 0x07, 1, true, 1, kNone},
    };
    ring_->isSecReady = 1;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ring_->isPriTagged = c.ready ? 1 : 0;
        ring_->isSecReady = c.secReady;
        EXPECT_EQ(vornUtilGetRingAction(kRing, c.action, c.flags, c.old), c.want);
    }
    // Without a ring record the secondary and the ring count as not ready.
    EXPECT_EQ(vornUtilGetRingAction(9, 2, 0x01, 1), kNone);
    EXPECT_EQ(vornUtilGetRingAction(9, 1, 0x01, 1), kStop);
    EXPECT_EQ(vornUtilGetRingAction(9, 3, 0x01, 0), kStop);
}

TEST_F(RingOwnershipTest, TakeSetsUpPortsForwardingAndDownPortsDisabled) {
    setOper(kPri, 2);
    ring_->u4PriPortState = 3;
    ring_->u4SecPortState = 1;
    vornTakeRingOwnerShip(ring_);
    EXPECT_EQ(gRelays, (std::vector<Relay>{{kPri, 3, 0, 1, 0, 1}, {kSec, 1, 2, 0, 0, 1}}));
    EXPECT_EQ(W({ring_->u4PriPortState, ring_->u4SecPortState, ring_->isRingOwnedByMgr}),
              (W{0, 2, 1}));

    // An invalid port is skipped with its trace; ownership is still taken.
    gRelays.clear();
    ring_->isRingOwnedByMgr = 0;
    ring_->u2PriPortNum = 0;
    vornTakeRingOwnerShip(ring_);
    EXPECT_EQ(gRelays, (std::vector<Relay>{{kSec, 2, 2, 0, 0, 1}}));
    EXPECT_EQ(ring_->isRingOwnedByMgr, 1);
}

TEST_F(RingOwnershipTest, RelinquishDisablesAndStaysOwned) {
    vornRelinquishRingOwnerShip(ring_);  // not owned: nothing to give up
    EXPECT_TRUE(gRelays.empty());

    // A port that is down is not relayed but its state is reset all the same.
    ring_->isRingOwnedByMgr = 1;
    ring_->u4PriPortState = 2;
    ring_->u4SecPortState = 2;
    setOper(kSec, 2);
    vornRelinquishRingOwnerShip(ring_);
    EXPECT_EQ(gRelays, (std::vector<Relay>{{kPri, 2, 0, 1, 0, 1}}));
    // Once taken, the ownership flag stays set.
    EXPECT_EQ(W({ring_->u4PriPortState, ring_->u4SecPortState, ring_->isRingOwnedByMgr}),
              (W{0, 0, 1}));

    // Every later relinquish runs again.
    gRelays.clear();
    ring_->u2SecPortNum = 898;  // past the port table: skipped
    vornRelinquishRingOwnerShip(ring_);
    EXPECT_EQ(gRelays, (std::vector<Relay>{{kPri, 0, 0, 1, 0, 1}}));
}

TEST_F(RingOwnershipTest, ConfigurationChanges) {
    enum Effect { kNothing, kTake, kRelinquish };
    const struct {
        const char* name;
        uint32_t action;
        uint32_t flags;
        uint32_t old;
        bool ready;
        uint8_t secReady;
        Effect effect;
    } cases[] = {
        {"set, ready, no agent can run it", 1, 0x01, 0, true, 0, kTake},
        {"enable of a running ring", 1, 0x04, 1, true, 0, kTake},
        {"set, an agent runs it", 1, 0x07, 0, true, 1, kNothing},
        {"set, not ready", 1, 0x01, 0, false, 0, kNothing},
        {"hello interval", 1, 0x08, 0, true, 0, kNothing},
        {"member VLANs removed", 2, 0x20, 1, true, 0, kNothing},
        {"remove from a ready ring", 2, 0x01, 1, true, 0, kRelinquish},
        {"remove, readiness now is not asked", 2, 0x04, 1, false, 0, kRelinquish},
        {"remove from a ring that was not ready", 2, 0x01, 0, true, 0, kNothing},
        {"remove, an agent runs it", 2, 0x02, 1, true, 1, kNothing},
        {"ring deleted", 3, 0x01, 1, true, 0, kNothing},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        gRelays.clear();
        ring_->isPriTagged = c.ready ? 1 : 0;
        ring_->isSecReady = c.secReady;
        ring_->isRingOwnedByMgr = 1;  // so that a relinquish shows
        ring_->u4PriPortState = ring_->u4SecPortState = 3;
        EXPECT_EQ(vornUpdateRingOwnership(kRing, c.action, c.flags, c.old), 0);
        std::vector<Relay> want;
        if (c.effect == kTake) want = {{kPri, 3, 2, 1, 0, 1}, {kSec, 3, 2, 0, 0, 1}};
        if (c.effect == kRelinquish) want = {{kPri, 3, 0, 1, 0, 1}, {kSec, 3, 0, 0, 0, 1}};
        EXPECT_EQ(gRelays, want);
    }
    gRelays.clear();
    EXPECT_EQ(vornUpdateRingOwnership(6, 1, 0x01, 0), -1);
    EXPECT_EQ(vornUpdateRingOwnership(0, 1, 0x01, 0), -1);
    EXPECT_TRUE(gRelays.empty());
}

TEST_F(RingOwnershipTest, ChangeToAllAgentsTakesOwnershipFirst) {
    QelKey agent = addAgent(0);
    vornDbgPrint = 1;
    std::string out = captureStdout(
        [&] { EXPECT_EQ(vornSendRingCfgMsgToAllAgts(ring_, 1, 0x04, 0, nullptr), 0); });
    vornDbgPrint = 0;
    EXPECT_EQ(ring_->isRingOwnedByMgr, 1);
    EXPECT_EQ(gRelays, (std::vector<Relay>{{kPri, 0, 2, 1, 0, 1}, {kSec, 0, 2, 0, 0, 1}}));
    size_t owned = out.find("vornTakeRingOwnerShip(): Ring 5\r\n");
    ASSERT_NE(owned, std::string::npos) << out;
    EXPECT_LT(owned, out.find("vornSendRingCfgMsgToSingleAgt(): LC: 0")) << out;
    // The ring waits for a card: the agents are told of the change without a start.
    vornFlushPendingMsgs();
    std::vector<uint8_t> m = recvOn(agent);
    ASSERT_EQ(m.size(), 672u);
    EXPECT_EQ(u32At(m, 128 + 4), 1u) << "ring action: none";
}

}  // namespace
}  // namespace vorn::test
