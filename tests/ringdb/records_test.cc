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

namespace {

using vorn::test::MgrTest;
using vorn::test::gi;
using vorn::test::te;
using vorn::test::po;
using vorn::test::vl;
namespace ifm = vorn::ifm;


using Mac = std::array<uint8_t, 6>;

// The data of an IFM interface record: ifIndex, attribute word, MAC address at 16.
std::array<uint8_t, 24> ifRec(uint32_t ifIndex, uint32_t attr = 0, Mac mac = {}) {
    std::array<uint8_t, 24> rec{};
    vorn::be::Writer w(rec.data(), rec.size());
    w.u32(0, ifIndex);
    w.u32(4, attr);
    w.bytes(16, mac.data(), mac.size());
    return rec;
}

// Blocks in use in the fixed pool `poolId`.
uint64_t poolInUse(uint32_t poolId, uint32_t blockSize) {
    for (const auto& row : vorn::host::memStats()) {
        if (row.id == poolId && row.size == blockSize && row.pool.rfind("var", 0) != 0) {
            return row.inUse;
        }
    }
    ADD_FAILURE() << "no pool 0x" << std::hex << poolId;
    return 0;
}

VornRingEntry* makeRing(uint16_t id, uint16_t priPort, uint16_t secPort) {
    auto* ring = vornMakeRecord<VornRingEntry>(
        vornFixedPoolMalloc(VORN_RING_TAG, VORN_RING_BLOCK_SIZE, VORN_RING_MEM_POOL));
    ring->u2RingId = id;
    ring->u2PriPortNum = priPort;
    ring->u2SecPortNum = secPort;
    gVornRing[id] = ring;
    return ring;
}

bool tablesEmpty() {
    for (auto* p : gVornVlan) {
        if (p != nullptr) return false;
    }
    for (auto* p : gVornPort) {
        if (p != nullptr) return false;
    }
    return true;
}

using RecordsTest = MgrTest;

TEST_F(RecordsTest, PortNumberRuleIndexesThePortTableAndIfmDeleteFreesAll) {
    const struct {
        const char* name;
        uint32_t ifIndex;
        uint16_t portNum;  // 0 and 898: outside the table, no record
    } cases[] = {
        {"Po 0", po(0), 0},          {"Po 1", po(1), 1},         {"Po 128", po(128), 128},
        {"Gi 0/0", gi(0, 0), 129},   {"Gi 0/63", gi(0, 63), 192}, {"Te 1/0", te(1, 0), 193},
        {"Te 11/63", te(11, 63), 896}, {"Gi 12/0", gi(12, 0), 897}, {"Gi 12/1", gi(12, 1), 898},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(vornPortNumOf(c.ifIndex), c.portNum);
        VornPortEntry* port = vornCreatePortEntry(c.ifIndex, VORN_CREATOR_IFM);
        if (c.portNum == 0 || c.portNum == 898) {
            EXPECT_EQ(port, nullptr);
            continue;
        }
        ASSERT_NE(port, nullptr);
        EXPECT_EQ(gVornPort[c.portNum], port);
        EXPECT_EQ(port->u4IfIndex, c.ifIndex);
        // A LAG's member list comes with its record, empty.
        const bool isLag = ifmIfIndexToIfType(c.ifIndex) == ifm::kTypeLag;
        ASSERT_EQ(port->pLagPortList != nullptr, isLag);
        if (isLag) {
            EXPECT_EQ(port->pLagPortList->lastEmptyIndex + port->pLagPortList->desgPortNum, 0);
        }
    }
    EXPECT_EQ(varBlocksInUse(), 2u);  // the two LAG member lists
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
    EXPECT_EQ(poolInUse(VORN_PORT_MEM_POOL, VORN_PORT_BLOCK_SIZE), 0u);
    EXPECT_EQ(poolInUse(VORN_VLAN_MEM_POOL, VORN_VLAN_BLOCK_SIZE), 0u);
    EXPECT_EQ(varBlocksInUse(), 0u);
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
    EXPECT_EQ(vlan->isCreatedByIfm + vlan->isCreatedByRingConf, 2);
    EXPECT_EQ(vlan->u4IfmAttr, 0xA1B2C3D4u);

    vornCheckAndDeleteVlanEntry(10, VORN_CREATOR_RING_CONF);  // the ring is removed
    ASSERT_EQ(gVornVlan[10], vlan);
    EXPECT_EQ(vlan->isCreatedByRingConf, 0);
    EXPECT_EQ(vornDestroyVlan(rec.data(), rec.size()), 0);
    EXPECT_EQ(gVornVlan[10], nullptr);

    // The other order: IFM first, then a ring takes the VLAN as its control VLAN.
    ASSERT_EQ(vornCreateVlan(rec.data(), rec.size()), 0);
    vlan = gVornVlan[10];
    ASSERT_NE(vlan, nullptr);
    EXPECT_EQ(vlan->isCreatedByRingConf, 0);
    vlan->isCreatedByRingConf = 1;
    EXPECT_EQ(vornDestroyVlan(rec.data(), rec.size()), 0);
    ASSERT_EQ(gVornVlan[10], vlan);
    vornCheckAndDeleteVlanEntry(10, VORN_CREATOR_RING_CONF);
    EXPECT_EQ(gVornVlan[10], nullptr);

    EXPECT_EQ(gVornCounters[VORN_CNT_ADD_VLAN] + gVornCounters[VORN_CNT_DEL_VLAN], 4u);
    EXPECT_EQ(gVornErrs[VORN_ERR_DEL_VLAN], 0u);
    EXPECT_EQ(poolInUse(VORN_VLAN_MEM_POOL, VORN_VLAN_BLOCK_SIZE), 0u);
}

TEST_F(RecordsTest, PortOfTwoRingsSurvivesIfmDeleteUntilBothRingsDropIt) {
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
        vorn::bmp::set(port->ringBmap, r->u2RingId);
    }
    port->i2RingCount = 2;

    EXPECT_EQ(vornDestroyPort(rec.data(), rec.size()), 0);
    ASSERT_EQ(gVornPort[134], port);
    EXPECT_EQ(port->isCreatedByIfm, 0);
    EXPECT_EQ(port->i2RingCount, 2);
    // Only the side that uses this port loses its flags: owned, tagged (and ready).
    auto flags = [](const VornRingEntry* r) {
        return std::array<int, 5>{r->isPriOwned, r->isPriTagged, r->isSecOwned, r->isSecTagged,
                                  r->isSecReady};
    };
    EXPECT_EQ(flags(r3), (std::array<int, 5>{0, 0, 1, 1, 1}));
    EXPECT_EQ(flags(r7), (std::array<int, 5>{1, 1, 0, 0, 0}));

    vornCheckAndDeletePortEntry(ifIndex, VORN_CREATOR_RING_CONF);
    ASSERT_EQ(gVornPort[134], port);
    EXPECT_EQ(port->i2RingCount, 1);
    vornCheckAndDeletePortEntry(ifIndex, VORN_CREATOR_RING_CONF);
    EXPECT_EQ(gVornPort[134], nullptr);
    EXPECT_EQ(poolInUse(VORN_PORT_MEM_POOL, VORN_PORT_BLOCK_SIZE), 0u);
    vornCheckAndDeletePortEntry(ifIndex, VORN_CREATOR_RING_CONF);  // nothing left to drop
    EXPECT_EQ(gVornCounters[VORN_CNT_DEL_PORT], 1u);
    EXPECT_EQ(gVornErrs[VORN_ERR_DEL_PORT], 0u);
}

TEST_F(RecordsTest, RingCountStopsAtZeroAndIfmClaimKeepsTheRecord) {
    auto rec = ifRec(gi(2, 0));  // port number 257
    ASSERT_EQ(vornCreatePort(rec.data(), rec.size()), 0);
    VornPortEntry* port = gVornPort[257];
    ASSERT_NE(port, nullptr);
    vornCheckAndDeletePortEntry(gi(2, 0), VORN_CREATOR_RING_CONF);
    vornCheckAndDeletePortEntry(gi(2, 0), VORN_CREATOR_RING_CONF);
    ASSERT_EQ(gVornPort[257], port);
    EXPECT_EQ(port->i2RingCount, 0);
    EXPECT_EQ(vornDestroyPort(rec.data(), rec.size()), 0);  // no ring uses it: freed at once
    EXPECT_EQ(gVornPort[257], nullptr);

    // A port that only ring configuration made goes with its last ring use.
    port = vornCreatePortEntry(gi(2, 0), VORN_CREATOR_RING_CONF);
    ASSERT_NE(port, nullptr);
    EXPECT_EQ(port->isCreatedByIfm, 0);
    port->i2RingCount = 1;
    vornCheckAndDeletePortEntry(gi(2, 0), VORN_CREATOR_RING_CONF);
    EXPECT_EQ(gVornPort[257], nullptr);
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
    EXPECT_EQ(port->isCreatedByIfm + port->i2RingCount, 2);
    EXPECT_EQ(port->macAddr, mac);
    EXPECT_EQ(gVornCounters[VORN_CNT_ADD_PORT], 1u);
    EXPECT_EQ(varBlocksInUse(), 1u);  // no second member list
}

TEST_F(RecordsTest, DeletesOfUnknownInterfacesAreCounted) {
    const struct {
        const char* name;
        int (*destroy)(const uint8_t*, size_t);
        uint32_t ifIndex;
        VornCounter counter;
        VornErr err;
    } cases[] = {
        {"absent VLAN", vornDestroyVlan, vl(20), VORN_CNT_DEL_VLAN, VORN_ERR_DEL_VLAN},
        {"VLAN id 0", vornDestroyVlan, vl(0), VORN_CNT_DEL_VLAN, VORN_ERR_DEL_VLAN},
        {"absent port", vornDestroyPort, gi(3, 3), VORN_CNT_DEL_PORT, VORN_ERR_DEL_PORT},
        {"port 898", vornDestroyPort, gi(12, 1), VORN_CNT_DEL_PORT, VORN_ERR_DEL_PORT},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        vornClearCounters();
        vornClearErrs();
        auto rec = ifRec(c.ifIndex);
        EXPECT_EQ(c.destroy(rec.data(), rec.size()), -1);
        EXPECT_EQ(gVornCounters[c.counter], 1u);
        EXPECT_EQ(gVornErrs[c.err], 1u);
    }
}

TEST_F(RecordsTest, ShortRecordsReadMissingFieldsAsZero) {
    // The L2PM download hands over a VLAN record that holds only the ifIndex.
    auto vlanRec = ifRec(vl(30), 0x55);
    ASSERT_EQ(vornCreateVlan(vlanRec.data(), 4), 0);
    ASSERT_NE(gVornVlan[30], nullptr);
    EXPECT_EQ(gVornVlan[30]->u4IfmAttr, 0u);
    // A port record cut inside the MAC address gives a zero address.
    auto portRec = ifRec(gi(1, 1), 0, {1, 2, 3, 4, 5, 6});
    ASSERT_EQ(vornCreatePort(portRec.data(), 20), 0);
    ASSERT_NE(gVornPort[194], nullptr);
    EXPECT_EQ(gVornPort[194]->macAddr, Mac{});
    // Without a whole ifIndex nothing is done, not even counted.
    vornClearCounters();
    EXPECT_EQ(vornCreatePort(portRec.data(), 3), -1);
    EXPECT_EQ(vornDestroyVlan(vlanRec.data(), 0), -1);
    EXPECT_EQ(vornCreateVlan(nullptr, 24), -1);
    EXPECT_EQ(gVornCounters[VORN_CNT_ADD_PORT] + gVornCounters[VORN_CNT_DEL_VLAN] +
                  gVornCounters[VORN_CNT_ADD_VLAN],
              0u);
    EXPECT_NE(gVornVlan[30], nullptr);
}

TEST_F(RecordsTest, AllocationFailureCountsAndLeavesTablesUnchanged) {
    const struct {
        const char* name;
        uint32_t poolId;
        uint32_t classSize;
        uint32_t ifIndex;
        int (*create)(const uint8_t*, size_t);
        const char* trace;        // the line that names the failure
        uint64_t portBlocksLeft;  // the LAG-list failure keeps its port block
    } cases[] = {
        {"VLAN pool", VORN_VLAN_MEM_POOL, 0, vl(10), vornCreateVlan,
         "vornCreateVlan: Cannot create Vlan (10) node \r\n", 0},
        {"port pool", VORN_PORT_MEM_POOL, VORN_PORT_BLOCK_SIZE, gi(0, 5), vornCreatePort,
         "vornCreatePortEntry: Mem allocation failure 134 \r\n", 0},
        {"LAG list", VORN_MEM_PART_ID, VORN_LAG_LIST_SIZE, po(5), vornCreatePort,
         "vornCreatePortEntry: Port list Mem allocation failure 5 \r\n", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        vornClearErrs();
        vorn::host::memFailNextForTest(c.poolId, c.classSize, 1);
        auto rec = ifRec(c.ifIndex);
        vornDbgPrint = 1;
        std::string out = captureStdout([&] { EXPECT_EQ(c.create(rec.data(), rec.size()), -1); });
        vornDbgPrint = 0;
        EXPECT_NE(out.find(c.trace), std::string::npos) << out;
        EXPECT_EQ(gVornErrs[VORN_ERR_MEM_ALLOC], 1u);
        EXPECT_EQ(gVornErrs[VORN_ERR_ADD_VLAN] + gVornErrs[VORN_ERR_ADD_PORT], 0u);
        EXPECT_TRUE(tablesEmpty());
        EXPECT_EQ(poolInUse(VORN_PORT_MEM_POOL, VORN_PORT_BLOCK_SIZE), c.portBlocksLeft);
        EXPECT_EQ(poolInUse(VORN_VLAN_MEM_POOL, VORN_VLAN_BLOCK_SIZE), 0u);
        EXPECT_EQ(varBlocksInUse(), 0u);
    }
}

TEST_F(RecordsTest, StgInstancesAreTheLowestFreeAndOnlyPoolWordsAreCleared) {
    for (uint32_t i = 0; i < VORN_NUM_STG_INST; ++i) {
        ASSERT_EQ(halVornGetStgInst(), VORN_STG_INST_BASE + i);
    }
    const auto full = gVornStgInst;
    EXPECT_EQ(halVornGetStgInst(), VORN_STG_INST_NONE);
    EXPECT_EQ(gVornStgInst, full);

    VornRingEntry* ring = makeRing(1, 0, 0);
    // 128: no instance could be had; 0: already released; 63 and 0xFFFF: outside the
    // pool. None has a word to clear; the sanitizer build catches a write past the table.
    for (uint16_t inst : {uint16_t{128}, uint16_t{0}, uint16_t{63}, uint16_t{0xFFFF}}) {
        SCOPED_TRACE(inst);
        ring->u2StgInst = inst;
        vornErrPrint = 1;
        std::string out = captureStdout([&] { halVornDelStgInst(ring); });
        vornErrPrint = 0;
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
    const struct {
        int32_t value;
        std::string digits;
    } cases[] = {
        {0, "0"},
        {1, "1"},
        {6, "011"},
        {0x801, "100000000001"},
        {0x7FFFFFFF, std::string(31, '1')},
        {-1, std::string(32, '1')},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        std::array<char, VORN_BMAP_DIGITS> digits;
        digits.fill('x');  // the array is cleared before the digits go in
        uint32_t count = 99;
        vornBMapToArray(c.value, digits, &count);
        EXPECT_EQ(count, c.digits.size());
        EXPECT_EQ(std::string(digits.data(), count), c.digits);
        for (size_t i = count; i < digits.size(); ++i) EXPECT_EQ(digits[i], '\0') << i;
    }
}

}  // namespace
