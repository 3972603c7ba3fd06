// The VLAN and port records: the port-number rule, the two claimants' lifetimes, IFM's
// add and delete, allocation failures, the STG-instance pool and vornBMapToArray.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "ifm/ifm.h"
#include "platform/bitmap.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "platform/mem.h"
#include "ringdb/ringdb.h"
#include "support/ifidx.h"
#include "support/mgr_fixture.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace vorn::test {
namespace {

using Mac = std::array<uint8_t, 6>;
using W = std::vector<uint32_t>;

// The data of an IFM interface record: ifIndex, attribute word, MAC address at 16.
std::array<uint8_t, 24> ifRec(uint32_t ifIndex, uint32_t attr = 0, Mac mac = {}) {
    std::array<uint8_t, 24> rec{};
    be::Writer w(rec.data(), rec.size());
    w.u32(0, ifIndex);
    w.u32(4, attr);
    w.bytes(16, mac.data(), mac.size());
    return rec;
}

bool tablesEmpty() {
    for (auto* p : gVornVlan)
        if (p != nullptr) return false;
    for (auto* p : gVornPort)
        if (p != nullptr) return false;
    return true;
}

class RecordsTest : public MgrTest {
protected:
    VornRingEntry* makeRing(uint16_t id, uint16_t priPort, uint16_t secPort) {
        auto* ring = vornMakeRecord<VornRingEntry>(
            vornFixedPoolMalloc(VORN_RING_TAG, VORN_RING_BLOCK_SIZE, VORN_RING_MEM_POOL));
        ring->u2RingId = id;
        ring->u2PriPortNum = priPort;
        ring->u2SecPortNum = secPort;
        gVornRing[id] = ring;
        return ring;
    }
    // Blocks in use in the port and VLAN pools, and in the variable partition.
    W blocks() const {
        W out(3, 0);
        for (const auto& row : host::memStats()) {
            if (row.id == VORN_PORT_MEM_POOL && row.size == VORN_PORT_BLOCK_SIZE)
                out[0] = row.inUse;
            if (row.id == VORN_VLAN_MEM_POOL && row.pool.rfind("var", 0) != 0) out[1] = row.inUse;
        }
        out[2] = static_cast<uint32_t>(varBlocksInUse());
        return out;
    }
};

TEST_F(RecordsTest, PortNumberRuleIndexesThePortTableAndIfmDeleteFreesAll) {
    const struct {
        const char* name;
        uint32_t ifIndex;
        uint16_t portNum;  // 0 and 898: outside the table, no record
    } cases[] = {
        {"Po 0", po(0), 0},
        {"Po 1", po(1), 1},
        {"Po 128", po(128), 128},
        {"Gi 0/0", gi(0, 0), 129},
        {"Gi 0/63", gi(0, 63), 192},
        {"Te 1/0", te(1, 0), 193},
        {"Te 11/63", te(11, 63), 896},
        {"Gi 12/0", gi(12, 0), 897},
        {"Gi 12/1", gi(12, 1), 898},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(vornPortNumOf(c.ifIndex), c.portNum);
        VornPortEntry* port = vornCreatePortEntry(c.ifIndex, VORN_CREATOR_IFM);
        const bool inTable = c.portNum != 0 && c.portNum != 898;
        ASSERT_EQ(port != nullptr, inTable);
        if (!inTable) continue;
        EXPECT_EQ(gVornPort[c.portNum], port);
        EXPECT_EQ(port->u4IfIndex, c.ifIndex);
        // A LAG's member list comes with its record, empty.
        const bool isLag = ifmIfIndexToIfType(c.ifIndex) == ifm::kTypeLag;
        ASSERT_EQ(port->pLagPortList != nullptr, isLag);
        if (isLag) {
            EXPECT_EQ(port->pLagPortList->lastEmptyIndex + port->pLagPortList->desgPortNum, 0);
        }
    }
    EXPECT_EQ(blocks(), (W{7, 0, 2}));  // seven ports, two of them with member lists
    // A port's ifIndex carries no VLAN id.
    EXPECT_EQ(vornCreateVlanEntry(gi(0, 1), VORN_CREATOR_RING_CONF), nullptr);
    auto rec = ifRec(gi(0, 1));
    EXPECT_EQ(vornCreateVlan(rec.data(), rec.size()), -1);
    for (const auto& c : cases) {
        rec = ifRec(c.ifIndex);
        if (c.portNum != 0 && c.portNum != 898) {
            EXPECT_EQ(vornDestroyPort(rec.data(), rec.size()), 0);
        }
    }
    EXPECT_TRUE(tablesEmpty());
    EXPECT_EQ(blocks(), (W{0, 0, 0}));
    EXPECT_EQ(gVornErrs[VORN_ERR_MEM_ALLOC], 0u);
}

TEST_F(RecordsTest, VlanLivesWhileEitherClaimantHoldsIt) {
    // Ring configuration makes VLAN 10 first, then IFM reports it.
    VornVlanEntry* vlan = vornCreateVlanEntry(vl(10), VORN_CREATOR_RING_CONF);
    ASSERT_NE(vlan, nullptr);
    vlan->u2CtrlVlanRingId = 5;
    auto rec = ifRec(vl(10), 0xA1B2C3D4);
    vornDbgPrint = 1;
    std::string out = captureStdout([&] { EXPECT_EQ(vornCreateVlan(rec.data(), rec.size()), 0); });
    EXPECT_EQ(out, "vornCreateVlan: Ring (5) Configuration already present on the Vlan 10\r\n");
    EXPECT_EQ(gVornVlan[10], vlan);
    EXPECT_EQ(W({vlan->isCreatedByIfm, vlan->isCreatedByRingConf, vlan->u4IfmAttr}),
              (W{1, 1, 0xA1B2C3D4}));
    vornCheckAndDeleteVlanEntry(10, VORN_CREATOR_RING_CONF);  // the ring is removed
    ASSERT_EQ(gVornVlan[10], vlan);
    EXPECT_EQ(vornDestroyVlan(rec.data(), rec.size()), 0);
    EXPECT_EQ(gVornVlan[10], nullptr);

    // The other order: IFM first, then a ring takes the VLAN as its control VLAN.
    ASSERT_EQ(vornCreateVlan(rec.data(), rec.size()), 0);
    vlan = gVornVlan[10];
    ASSERT_NE(vlan, nullptr);
    vlan->isCreatedByRingConf = 1;
    EXPECT_EQ(vornDestroyVlan(rec.data(), rec.size()), 0);
    ASSERT_EQ(gVornVlan[10], vlan);
    vornCheckAndDeleteVlanEntry(10, VORN_CREATOR_RING_CONF);
    EXPECT_EQ(gVornVlan[10], nullptr);
    EXPECT_EQ(W({gVornCounters[VORN_CNT_ADD_VLAN], gVornCounters[VORN_CNT_DEL_VLAN],
                 gVornErrs[VORN_ERR_DEL_VLAN]}),
              (W{2, 2, 0}));
    EXPECT_EQ(blocks(), (W{0, 0, 0}));
}

TEST_F(RecordsTest, PortOfRingsSurvivesIfmDeleteUntilTheLastRingDropsIt) {
    const uint32_t ifIndex = gi(0, 5);  // port number 134
    const Mac mac = {0x00, 0x01, 0xe8, 0x12, 0x34, 0x56};
    auto rec = ifRec(ifIndex, 0, mac);
    ASSERT_EQ(vornCreatePort(rec.data(), rec.size()), 0);
    VornPortEntry* port = gVornPort[134];
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->macAddr, mac);

    // Ring 3 uses it as primary, ring 7 as secondary, as the control-VLAN command leaves
    // them; neither ring is ready.
    VornRingEntry* r3 = makeRing(3, 134, 140);
    VornRingEntry* r7 = makeRing(7, 150, 134);
    for (VornRingEntry* r : {r3, r7}) {
        r->isPriOwned = r->isSecOwned = r->isPriTagged = r->isSecTagged = r->isSecReady = 1;
        bmp::set(port->ringBmap, r->u2RingId);
    }
    port->i2RingCount = 2;
    EXPECT_EQ(vornDestroyPort(rec.data(), rec.size()), 0);
    ASSERT_EQ(gVornPort[134], port);
    EXPECT_EQ(W({port->isCreatedByIfm, uint32_t(port->i2RingCount)}), (W{0, 2}));
    // Only the side that uses this port loses its flags: owned, tagged (and ready).
    auto flags = [](const VornRingEntry* r) {
        return W{r->isPriOwned, r->isPriTagged, r->isSecOwned, r->isSecTagged, r->isSecReady};
    };
    EXPECT_EQ(flags(r3), (W{0, 0, 1, 1, 1}));
    EXPECT_EQ(flags(r7), (W{1, 1, 0, 0, 0}));

    vornCheckAndDeletePortEntry(ifIndex, VORN_CREATOR_RING_CONF);
    ASSERT_EQ(gVornPort[134], port);
    EXPECT_EQ(port->i2RingCount, 1);
    vornCheckAndDeletePortEntry(ifIndex, VORN_CREATOR_RING_CONF);
    EXPECT_EQ(gVornPort[134], nullptr);
    vornCheckAndDeletePortEntry(ifIndex, VORN_CREATOR_RING_CONF);  // nothing left to drop
    EXPECT_EQ(W({gVornCounters[VORN_CNT_DEL_PORT], gVornErrs[VORN_ERR_DEL_PORT]}), (W{1, 0}));

    // IFM's record: ring uses that were never there stop at zero, and it stays for IFM.
    ASSERT_EQ(vornCreatePort(rec.data(), rec.size()), 0);
    vornCheckAndDeletePortEntry(ifIndex, VORN_CREATOR_RING_CONF);
    ASSERT_NE(gVornPort[134], nullptr);
    EXPECT_EQ(gVornPort[134]->i2RingCount, 0);
    EXPECT_EQ(vornDestroyPort(rec.data(), rec.size()), 0);  // no ring uses it: freed at once
    EXPECT_EQ(gVornPort[134], nullptr);
    EXPECT_EQ(blocks(), (W{0, 0, 0}));
}

TEST_F(RecordsTest, IfmAddOfAPortMadeByRingConfigurationClaimsTheSameRecord) {
    VornPortEntry* port = vornCreatePortEntry(po(9), VORN_CREATOR_RING_CONF);
    ASSERT_NE(port, nullptr);
    VornLagPortList* list = port->pLagPortList;
    // Ownership is already held, so nothing is asked of L2PM.
    port->i2RingCount = 1;
    port->isOwnedByRingConf = 1;
    const Mac mac = {0xde, 0xad, 0xbe, 0xef, 0x00, 0x09};
    auto rec = ifRec(po(9), 0, mac);
    ASSERT_EQ(vornCreatePort(rec.data(), rec.size()), 0);
    EXPECT_EQ(gVornPort[9], port);
    EXPECT_EQ(port->pLagPortList, list);
    EXPECT_EQ(port->macAddr, mac);
    EXPECT_EQ(
        W({port->isCreatedByIfm, uint32_t(port->i2RingCount), gVornCounters[VORN_CNT_ADD_PORT]}),
        (W{1, 1, 1}));
    EXPECT_EQ(blocks(), (W{1, 0, 1}));  // no second member list
}

TEST_F(RecordsTest, RecordsThatCannotBeReadOrFoundChangeNothing) {
    // Deletes of what has no record are counted as errors.
    const struct {
        int (*destroy)(const uint8_t*, size_t);
        uint32_t ifIndex;
    } unknown[] = {{vornDestroyVlan, vl(20)},
                   {vornDestroyVlan, vl(0)},
                   {vornDestroyPort, gi(3, 3)},
                   {vornDestroyPort, gi(12, 1)}};  // port 898
    for (const auto& c : unknown) {
        auto rec = ifRec(c.ifIndex);
        EXPECT_EQ(c.destroy(rec.data(), rec.size()), -1) << std::hex << c.ifIndex;
    }
    EXPECT_EQ(W({gVornCounters[VORN_CNT_DEL_VLAN], gVornErrs[VORN_ERR_DEL_VLAN],
                 gVornCounters[VORN_CNT_DEL_PORT], gVornErrs[VORN_ERR_DEL_PORT]}),
              (W{2, 2, 2, 2}));

    // The L2PM download hands over a VLAN record that holds only the ifIndex; a port record
    // cut inside the MAC address gives a zero address.
    vornClearCounters();
    auto vlanRec = ifRec(vl(30), 0x55);
    ASSERT_EQ(vornCreateVlan(vlanRec.data(), 4), 0);
    ASSERT_NE(gVornVlan[30], nullptr);
    EXPECT_EQ(gVornVlan[30]->u4IfmAttr, 0u);
    auto portRec = ifRec(gi(1, 1), 0, {1, 2, 3, 4, 5, 6});
    ASSERT_EQ(vornCreatePort(portRec.data(), 20), 0);
    ASSERT_NE(gVornPort[194], nullptr);
    EXPECT_EQ(gVornPort[194]->macAddr, Mac{});
    // Without a whole ifIndex nothing is done, not even counted.
    EXPECT_EQ(vornCreatePort(portRec.data(), 3), -1);
    EXPECT_EQ(vornDestroyVlan(vlanRec.data(), 0), -1);
    EXPECT_EQ(vornCreateVlan(nullptr, 24), -1);
    EXPECT_EQ(W({gVornCounters[VORN_CNT_ADD_PORT], gVornCounters[VORN_CNT_DEL_VLAN],
                 gVornCounters[VORN_CNT_ADD_VLAN]}),
              (W{1, 0, 1}));
    EXPECT_NE(gVornVlan[30], nullptr);
}

TEST_F(RecordsTest, AllocationFailureCountsAndLeavesTablesUnchanged) {
    const struct {
        const char* name;
        uint32_t poolId;
        uint32_t classSize;
        uint32_t ifIndex;
        int (*create)(const uint8_t*, size_t);
        const char* trace;  // the line that names the failure
        W blocks;           // the LAG-list failure keeps its port block
    } cases[] = {
        {"VLAN pool",
         VORN_VLAN_MEM_POOL,
         0,
         vl(10),
         vornCreateVlan,
         "vornCreateVlan: Cannot create Vlan (10) node \r\n",
         {0, 0, 0}},
        {"port pool",
         VORN_PORT_MEM_POOL,
         VORN_PORT_BLOCK_SIZE,
         gi(0, 5),
         vornCreatePort,
         "vornCreatePortEntry: Mem allocation failure 134 \r\n",
         {0, 0, 0}},
        {"LAG list",
         VORN_MEM_PART_ID,
         VORN_LAG_LIST_SIZE,
         po(5),
         vornCreatePort,
         "vornCreatePortEntry: Port list Mem allocation failure 5 \r\n",
         {1, 0, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        vornClearErrs();
        host::memFailNextForTest(c.poolId, c.classSize, 1);
        auto rec = ifRec(c.ifIndex);
        vornDbgPrint = 1;
        std::string out = captureStdout([&] { EXPECT_EQ(c.create(rec.data(), rec.size()), -1); });
        vornDbgPrint = 0;
        EXPECT_NE(out.find(c.trace), std::string::npos) << out;
        EXPECT_EQ(W({gVornErrs[VORN_ERR_MEM_ALLOC], gVornErrs[VORN_ERR_ADD_VLAN],
                     gVornErrs[VORN_ERR_ADD_PORT]}),
                  (W{1, 0, 0}));
        EXPECT_TRUE(tablesEmpty());
        EXPECT_EQ(blocks(), c.blocks);
    }
}

TEST_F(RecordsTest, StgInstancesAreTheLowestFreeAndOnlyPoolWordsAreCleared) {
    for (uint32_t i = 0; i < VORN_NUM_STG_INST; ++i)
        ASSERT_EQ(halVornGetStgInst(), VORN_STG_INST_BASE + i);
    const auto full = gVornStgInst;
    EXPECT_EQ(halVornGetStgInst(), VORN_STG_INST_NONE);
    EXPECT_EQ(gVornStgInst, full);

    VornRingEntry* ring = makeRing(1, 0, 0);
    // 128: no instance could be had; 0: already released; 63 and 0xFFFF: outside the
    // pool. None has a word to clear; the sanitizer build catches a write past the table.
    vornErrPrint = 1;
    for (uint16_t inst : {uint16_t{128}, uint16_t{0}, uint16_t{63}, uint16_t{0xFFFF}}) {
        SCOPED_TRACE(inst);
        ring->u2StgInst = inst;
        std::string out = captureStdout([&] { halVornDelStgInst(ring); });
        EXPECT_EQ(ring->u2StgInst, 0);
        EXPECT_EQ(gVornStgInst, full);
        EXPECT_NE(out.find("halVornDelStgInst"), std::string::npos) << out;
    }
    ring->u2StgInst = 100;
    halVornDelStgInst(ring);
    EXPECT_EQ(ring->u2StgInst, 0);
    EXPECT_EQ(gVornStgInst[36], 0u);
    EXPECT_EQ(halVornGetStgInst(), 100u);
}

TEST_F(RecordsTest, BMapToArrayWritesBinaryDigitsLowestFirst) {
    const std::pair<int32_t, std::string> cases[] = {
        {0, "0"}, {1, "1"}, {6, "011"}, {0x801, "100000000001"}, {-1, std::string(32, '1')},
    };
    for (const auto& [value, want] : cases) {
        SCOPED_TRACE(value);
        std::array<char, VORN_BMAP_DIGITS> digits;
        digits.fill('x');  // the array is cleared before the digits go in
        uint32_t count = 99;
        vornBMapToArray(value, digits, &count);
        EXPECT_EQ(std::string(digits.data(), count), want);
        EXPECT_EQ(std::string(digits.data() + count, digits.size() - count),
                  std::string(digits.size() - count, '\0'));
    }
}

}  // namespace
}  // namespace vorn::test
