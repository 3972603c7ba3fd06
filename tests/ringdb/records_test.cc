// The VLAN and port records: the port-number rule, the two claimants' lifetimes, IFM's
// add and delete, allocation failures, the STG-instance pool and vornBMapToArray.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

#include "support/mgr_fixture.h"

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
    auto none = [](const auto& table) {
        return std::all_of(table.begin(), table.end(), [](const void* p) { return p == nullptr; });
    };
    return none(gVornVlan) && none(gVornPort);
}

class RecordsTest : public MgrTest {
protected:
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
    // Port numbers 0 and 898 lie outside the table: no record.
    const std::pair<uint32_t, uint16_t> cases[] = {
        {po(0), 0},      {po(1), 1},        {po(128), 128},   {gi(0, 0), 129}, {gi(0, 63), 192},
        {te(1, 0), 193}, {te(11, 63), 896}, {gi(12, 0), 897}, {gi(12, 1), 898}};
    for (auto [ifIndex, portNum] : cases) {
        SCOPED_TRACE(portNum);
        EXPECT_EQ(vornPortNumOf(ifIndex), portNum);
        VornPortEntry* port = vornCreatePortEntry(ifIndex, VORN_CREATOR_IFM);
        const bool inTable = portNum != 0 && portNum != 898;
        ASSERT_EQ(port != nullptr, inTable);
        if (!inTable) continue;
        EXPECT_EQ(gVornPort[portNum], port);
        EXPECT_EQ(port->u4IfIndex, ifIndex);
    }
    EXPECT_EQ(blocks(), (W{7, 0, 2}));  // seven ports, the two LAGs with member lists
    // A port's ifIndex carries no VLAN id.
    EXPECT_EQ(vornCreateVlanEntry(gi(0, 1), VORN_CREATOR_RING_CONF), nullptr);
    auto rec = ifRec(gi(0, 1));
    EXPECT_EQ(vornCreateVlan(rec.data(), rec.size()), -1);
    for (auto [ifIndex, portNum] : cases) {
        rec = ifRec(ifIndex);
        EXPECT_EQ(vornDestroyPort(rec.data(), rec.size()), portNum % 898 == 0 ? -1 : 0);
    }
    EXPECT_TRUE(tablesEmpty());
    EXPECT_EQ(blocks(), (W{0, 0, 0}));
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
    EXPECT_EQ(W({vlan->isCreatedByIfm, vlan->isCreatedByRingConf, vlan->u4IfmAttr}),
              (W{1, 1, 0xA1B2C3D4}));
    vornCheckAndDeleteVlanEntry(10, VORN_CREATOR_RING_CONF);  // the ring is removed
    ASSERT_EQ(gVornVlan[10], vlan);
    EXPECT_EQ(vornDestroyVlan(rec.data(), rec.size()), 0);
    EXPECT_EQ(gVornVlan[10], nullptr);

    // The other order: IFM first, then a ring takes the VLAN as its control VLAN.
    ASSERT_EQ(vornCreateVlan(rec.data(), rec.size()), 0);
    ASSERT_NE(vlan = gVornVlan[10], nullptr);
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
    auto rec = ifRec(ifIndex);
    ASSERT_EQ(vornCreatePort(rec.data(), rec.size()), 0);
    VornPortEntry* port = gVornPort[134];
    ASSERT_NE(port, nullptr);
    // Ring 3 uses it as primary, ring 7 as secondary, as the control-VLAN command leaves
    // them; neither ring is ready.
    VornRingEntry* r3 = makeRing(3);
    VornRingEntry* r7 = makeRing(7);
    r3->u2PriPortNum = r7->u2SecPortNum = 134;
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
    // (The rings dropping it one by one is the control-VLAN tests'.) The last drop and one
    // more: counted once, no error.
    port->i2RingCount = 1;
    for (int i = 0; i < 2; ++i) vornCheckAndDeletePortEntry(ifIndex, VORN_CREATOR_RING_CONF);
    EXPECT_EQ(gVornPort[134], nullptr);
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

TEST_F(RecordsTest, IfmAddOfALagMadeByRingConfigurationClaimsTheSameRecordAndList) {
    VornPortEntry* port = vornCreatePortEntry(po(9), VORN_CREATOR_RING_CONF);
    ASSERT_NE(port, nullptr);
    VornLagPortList* list = port->pLagPortList;
    auto rec = ifRec(po(9), 0, {0xde, 0xad, 0xbe, 0xef, 0x00, 0x09});
    ASSERT_EQ(vornCreatePort(rec.data(), rec.size()), 0);
    EXPECT_TRUE(gVornPort[9] == port && port->pLagPortList == list && port->macAddr[5] == 9);
    EXPECT_EQ(W({port->isCreatedByIfm, gVornCounters[VORN_CNT_ADD_PORT]}), (W{1, 1}));
    EXPECT_EQ(blocks(), (W{1, 0, 1}));  // no second member list
}

TEST_F(RecordsTest, RecordsThatCannotBeReadOrFoundChangeNothing) {
    // Deletes of what has no record (port 898 has none ever) are counted as errors.
    for (uint32_t ifIndex : {vl(20), vl(0), gi(3, 3), gi(12, 1)}) {
        auto rec = ifRec(ifIndex);
        auto destroy = ifIndex == vl(20) || ifIndex == vl(0) ? vornDestroyVlan : vornDestroyPort;
        EXPECT_EQ(destroy(rec.data(), rec.size()), -1) << std::hex << ifIndex;
    }
    EXPECT_EQ(W({gVornCounters[VORN_CNT_DEL_VLAN], gVornErrs[VORN_ERR_DEL_VLAN],
                 gVornCounters[VORN_CNT_DEL_PORT], gVornErrs[VORN_ERR_DEL_PORT]}),
              (W{2, 2, 2, 2}));

    // A port record cut inside the MAC address gives a zero address; without a whole
    // ifIndex nothing is done, not even counted.
    vornClearCounters();
    auto portRec = ifRec(gi(1, 1), 0, {1, 2, 3, 4, 5, 6});
    ASSERT_EQ(vornCreatePort(portRec.data(), 20), 0);
    ASSERT_NE(gVornPort[194], nullptr);
    EXPECT_EQ(gVornPort[194]->macAddr, Mac{});
    EXPECT_EQ(vornCreatePort(portRec.data(), 3), -1);
    EXPECT_EQ(vornDestroyPort(portRec.data(), 0), -1);
    EXPECT_EQ(vornCreateVlan(nullptr, 24), -1);
    EXPECT_EQ(W({gVornCounters[VORN_CNT_ADD_PORT], gVornCounters[VORN_CNT_DEL_PORT],
                 gVornCounters[VORN_CNT_ADD_VLAN]}),
              (W{1, 0, 0}));
    EXPECT_NE(gVornPort[194], nullptr);
}

TEST_F(RecordsTest, AllocationFailureCountsAndLeavesTablesUnchanged) {
    const struct {
        uint32_t poolId, classSize, ifIndex;
        const char* trace;  // the line that names the failure
    } cases[] = {
        {VORN_VLAN_MEM_POOL, 0, vl(10), "vornCreateVlan: Cannot create Vlan (10) node \r\n"},
        {VORN_PORT_MEM_POOL, VORN_PORT_BLOCK_SIZE, gi(0, 5),
         "vornCreatePortEntry: Mem allocation failure 134 \r\n"},
        {VORN_MEM_PART_ID, VORN_LAG_LIST_SIZE, po(5),
         "vornCreatePortEntry: Port list Mem allocation failure 5 \r\n"}};
    vornDbgPrint = 1;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.trace);
        vornClearErrs();
        host::memFailNextForTest(c.poolId, c.classSize, 1);
        auto rec = ifRec(c.ifIndex);
        auto create = c.ifIndex == vl(10) ? vornCreateVlan : vornCreatePort;
        std::string out = captureStdout([&] { EXPECT_EQ(create(rec.data(), rec.size()), -1); });
        EXPECT_NE(out.find(c.trace), std::string::npos) << out;
        EXPECT_EQ(W({gVornErrs[VORN_ERR_MEM_ALLOC], gVornErrs[VORN_ERR_ADD_VLAN],
                     gVornErrs[VORN_ERR_ADD_PORT]}),
                  (W{1, 0, 0}));
        EXPECT_TRUE(tablesEmpty());
        // The LAG-list failure keeps its port block (in the pool, for the next add).
        EXPECT_EQ(blocks(), (W{c.ifIndex == po(5) ? 1u : 0u, 0, 0}));
    }
}

TEST_F(RecordsTest, StgInstancesAreTheLowestFreeAndOnlyPoolWordsAreCleared) {
    for (uint32_t i = 0; i < VORN_NUM_STG_INST; ++i)
        ASSERT_EQ(halVornGetStgInst(), VORN_STG_INST_BASE + i);
    const auto full = gVornStgInst;
    EXPECT_EQ(halVornGetStgInst(), VORN_STG_INST_NONE);
    // 128: no instance could be had; 0: already released; 63 and 0xFFFF: outside the
    // pool. None has a word to clear; the sanitizer build catches a write past the table.
    VornRingEntry ring{};
    vornErrPrint = 1;
    for (uint16_t inst : {128, 0, 63, 0xFFFF}) {
        ring.u2StgInst = inst;
        std::string out = captureStdout([&] { halVornDelStgInst(&ring); });
        EXPECT_TRUE(ring.u2StgInst == 0 && gVornStgInst == full) << inst;
        EXPECT_NE(out.find("halVornDelStgInst"), std::string::npos) << out;
    }
    ring.u2StgInst = 100;
    halVornDelStgInst(&ring);
    EXPECT_EQ(W({ring.u2StgInst, gVornStgInst[36], halVornGetStgInst()}), (W{0, 0, 100}));
}

TEST_F(RecordsTest, BMapToArrayWritesBinaryDigitsLowestFirst) {
    const std::pair<int32_t, std::string> cases[] = {
        {0, "0"}, {1, "1"}, {6, "011"}, {0x801, "100000000001"}, {-1, std::string(32, '1')}};
    for (const auto& [value, want] : cases) {
        std::array<char, VORN_BMAP_DIGITS> digits;
        digits.fill('x');  // the array is cleared before the digits go in
        uint32_t count = 99;
        vornBMapToArray(value, digits, &count);
        EXPECT_EQ(count, want.size()) << value;
        EXPECT_EQ(std::string(digits.data(), digits.size()),
                  want + std::string(digits.size() - want.size(), '\0'))
            << value;
    }
}

}  // namespace
}  // namespace vorn::test
