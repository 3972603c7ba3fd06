// The ring action of a configuration change: every row of the decision, in its order.

#include <string>

#include "agent_fixture.h"
#include "task/trace.h"

namespace vorn::test {
namespace {

constexpr uint16_t kRing = 5;

using RingActionTest = AgentTest;

TEST_F(RingActionTest, EveryRowOfTheDecision) {
    enum : uint32_t { kNone = 1, kStart = 2, kRestart = 3, kStop = 4 };
    const struct {
        const char* name;
        uint32_t action;
        uint32_t flags;
        uint32_t old;
        bool ready;
        uint8_t secReady;
        uint32_t want;
    } cases[] = {
        // Without the control VLAN, mode or enable bits nothing can change the running ring.
        {"hello interval of a running ring", 1, 0x08, 1, true, 1, kNone},
        {"dead interval of a running ring", 1, 0x10, 1, true, 1, kNone},
        {"member VLANs removed", 2, 0x20, 1, true, 1, kNone},
        {"description", 1, 0x40, 1, true, 1, kNone},
        {"ring deleted (flags 0)", 3, 0x00, 1, true, 1, kNone},
        // Remove.
        {"remove from a running ring", 2, 0x01, 1, true, 1, kStop},
        {"remove, old status 1, secondary not ready", 2, 0x02, 1, true, 0, kNone},
        {"remove, old status 0", 2, 0x04, 0, true, 1, kNone},
        {"remove, old status 2 is not 1", 2, 0x01, 2, true, 1, kNone},
        // Ring deleted with a configuration bit.
        {"delete with control VLAN bit", 3, 0x01, 0, false, 0, kStop},
        // Set, ring not running before.
        {"set makes the ring run", 1, 0x04, 0, true, 1, kStart},
        {"set, ready but secondary not ready", 1, 0x01, 0, true, 0, kNone},
        {"set, not ready", 1, 0x02, 0, false, 1, kNone},
        // Set, ring running before.
        {"set on a running ring", 1, 0x02, 1, true, 1, kRestart},
        {"set, old status other than 0 counts as running", 1, 0x02, 7, true, 1, kRestart},
        {"set leaves the secondary not ready", 1, 0x01, 1, true, 0, kStop},
        {"set leaves the ring not ready", 1, 0x01, 1, false, 1, kStop},
        // Unknown actions.
        {"action 0", 0, 0x07, 1, true, 1, kNone},
        {"action 4", 4, 0x07, 1, true, 1, kNone},
    };
    VornRingEntry* ring = makeReadyRing(kRing, 10, gi(0, 5), gi(0, 11), 1);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ring->isPriTagged = c.ready ? 1 : 0;
        ring->isSecReady = c.secReady;
        EXPECT_EQ(vornUtilGetRingAction(kRing, c.action, c.flags, c.old), c.want);
    }
}

TEST_F(RingActionTest, UnknownRingAndTrace) {
    // Without a ring record the secondary counts as not ready and the ring as not ready.
    EXPECT_EQ(vornUtilGetRingAction(9, 2, 0x01, 1), 1u);
    EXPECT_EQ(vornUtilGetRingAction(9, 1, 0x01, 0), 1u);
    EXPECT_EQ(vornUtilGetRingAction(9, 1, 0x01, 1), 4u);
    EXPECT_EQ(vornUtilGetRingAction(9, 3, 0x01, 0), 4u);

    vornDbgPrint = 1;
    std::string out = captureStdout([] { vornUtilGetRingAction(9, 1, 0x08, 1); });
    EXPECT_EQ(out,
              "vornUtilGetRingAction(): RingId: 9, Action: 1, Flags: 0x08, "
              "oldRingConfStatus = 1\r\n");
}

}  // namespace
}  // namespace vorn::test
