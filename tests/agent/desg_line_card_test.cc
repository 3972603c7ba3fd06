// Designated line card selection: the rules S1-S3 in their order, and the replacement card.

#include <string>
#include <vector>

#include "agent_fixture.h"

#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

constexpr uint16_t kRing = 5;
constexpr uint16_t kNone = VORN_NO_LINE_CARD;
// Member-list entries that are not a usable port: 0, a number past the table, and a valid
// number that has no port record.
constexpr int kZero = -1;
constexpr int kPastTable = -2;
constexpr int kNoRecord = -3;

using DesgLineCardTest = AgentTest;

TEST_F(DesgLineCardTest, RulesInOrderAndReplacement) {
    const std::string s1 = "vornGetDesgLineCard(): S1: Ring: 5, Desg Agent: ";
    const std::string s2 = "vornGetDesgLineCard(): S2: Ring: 5, Desg Agent: ";
    const std::string s3 = "vornGetDesgLineCard(): S3: Ring: 5, Desg Agent: ";
    const std::string none = "vornGetDesgLineCard(): Ring: 5, Cannot determing Desg Agent.\r\n";
    const std::string noSec = "vornGetDesgLineCard() Ring 5, Secondary Port not present \r\n";
    const struct {
        const char* name;
        int physSlot;              // >= 0: the secondary is Gi physSlot/0
        bool lagSecondary;         // the secondary is LAG 9 with the members below
        std::vector<int> members;  // slot of each member (member i is Gi slot/(i+1))
        int desgIndex;             // index of the designated member, -1: none (0)
        int used;                  // lastEmptyIndex; -1: the number of members
        std::vector<int> active;
        uint16_t want;
        std::string trace;
        uint16_t excluded;
        uint16_t wantNew;
    } cases[] = {
        // clang-format off
        {"physical port on a card without agent", 3, false, {}, -1, -1, {}, 3, s1 + "3\r\n",
         kNone, kNone},
        {"physical port, agent up", 3, false, {}, -1, -1, {3}, 3, s1 + "3\r\n", 7, kNone},
        {"physical port past the last slot", 12, false, {}, -1, -1, {}, kNone,
         s1 + "12\r\n", kNone, kNone},
        {"no secondary configured", -1, false, {}, -1, -1, {}, kNone, noSec, 1, kNone},
        {"designated member active", -1, true, {5, 2}, 1, -1, {2, 5}, 2, s2 + "2\r\n", 2, 5},
        {"third member is the first on an active card", -1, true, {2, 4, 6, 7}, 0, -1, {6, 7},
         6, s3 + "6\r\n", 6, 7},
        {"unusable members skipped", -1, true, {4, kZero, kPastTable, kNoRecord, 8}, 0, -1,
         {8}, 8, s3 + "8\r\n", 4, 8},
        {"designated member 0 stops the walk", -1, true, {2, 6}, -1, -1, {2, 6}, kNone, none,
         2, 6},
        {"designated member without record", -1, true, {kNoRecord, 6}, 0, -1, {6}, kNone,
         none, 1, 6},
        {"no member on an active card", -1, true, {2, 4}, 0, -1, {}, kNone, none, 1, kNone},
        {"only active card excluded", -1, true, {2, 4}, 0, -1, {4}, 4, s3 + "4\r\n", 4, kNone},
        {"members past the used count ignored", -1, true, {2, 6}, 0, 1, {6}, kNone, none, 1,
         kNone},
        {"empty list", -1, true, {2}, 0, 0, {2}, 2, s2 + "2\r\n", 1, kNone},
        {"used count beyond the list", -1, true, {2, 6}, 0, 200, {6}, 6, s3 + "6\r\n", 1, 6},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        vornInitGlobals();
        VornRingEntry* ring = makeRing(kRing);
        if (c.physSlot >= 0) {
            makePort(gi(c.physSlot, 0));
            ring->u2SecPortNum = giPortNum(c.physSlot, 0);
        }
        if (c.lagSecondary) {
            VornPortEntry* lagPort = makePort(po(9));
            ASSERT_NE(lagPort->pLagPortList, nullptr);
            VornLagPortList& list = *lagPort->pLagPortList;
            for (size_t i = 0; i < c.members.size(); ++i) {
                int slot = c.members[i];
                uint16_t portNum = 0;
                if (slot == kPastTable) portNum = 900;
                if (slot == kNoRecord) portNum = giPortNum(9, 20);
                if (slot >= 0) {
                    makePort(gi(slot, static_cast<uint32_t>(i + 1)));
                    portNum = giPortNum(slot, static_cast<uint32_t>(i + 1));
                }
                list.members[i] = portNum;
            }
            list.desgPortNum = c.desgIndex >= 0 ? list.members[c.desgIndex] : 0;
            list.lastEmptyIndex = static_cast<uint8_t>(c.used >= 0 ? c.used : c.members.size());
            ring->u2SecPortNum = 9;
        }
        for (int slot : c.active) gVornActiveLineCards[slot] = 1;

        vornDbgPrint = 1;
        std::string out = captureStdout([&] { EXPECT_EQ(vornGetDesgLineCard(ring), c.want); });
        EXPECT_EQ(out, c.trace);
        out =
            captureStdout([&] { EXPECT_EQ(vornGetNewDesgLineCard(ring, c.excluded), c.wantNew); });
        EXPECT_EQ(out, "") << "the replacement logs nothing";
        vornDbgPrint = 0;
        EXPECT_EQ(ring->u2DesgLineCard, kNone) << "selection stores nothing";
    }
}

}  // namespace
}  // namespace vorn::test
