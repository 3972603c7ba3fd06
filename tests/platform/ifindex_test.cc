// Interface indexes: layout, names, the VLAN-interface list walk and the compressed
// physical/LAG interface list.
#include "platform/ifindex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/wire.h"

namespace {

namespace ifm = vorn::ifm;
using vorn::test::hex;

struct IfCase {
    uint32_t type, slot, port, id;
    uint32_t ifIndex;  // expected raw value
    const char* shortName;
    const char* longName;
};

const IfCase kIfCases[] = {
    {ifm::kTypeGigabit, 0, 1, 0, 0x0A000100, "Gi 0/1", "GigabitEthernet 0/1"},
    {ifm::kTypeGigabit, 11, 63, 0, 0x0A0B3F00, "Gi 11/63", "GigabitEthernet 11/63"},
    {ifm::kTypeTenGigabit, 1, 2, 0, 0x0B010200, "Te 1/2", "TenGigabitEthernet 1/2"},
    {ifm::kTypeManagement, 0, 0, 0, 0x01000000, "Ma 0/0", "ManagementEthernet 0/0"},
    {ifm::kTypeLag, 0, 0, 1, 0x16000001, "Po 1", "Port-channel 1"},
    {ifm::kTypeLag, 0, 0, 128, 0x16000080, "Po 128", "Port-channel 128"},
    {ifm::kTypeVlan, 0, 0, 1, 0x18000001, "Vl 1", "Vlan 1"},
    {ifm::kTypeVlan, 0, 0, 4095, 0x18000FFF, "Vl 4095", "Vlan 4095"},
};

std::string shortName(uint32_t ifIndex) {
    char buf[64];
    return ifmIfIndexToName(ifIndex, buf, sizeof buf);
}
std::string longName(uint32_t ifIndex) {
    char buf[64];
    return ifmIfIndexToLName(ifIndex, buf, sizeof buf);
}

TEST(IfIndexTest, RoundTripsEveryType) {
    for (const IfCase& c : kIfCases) {
        SCOPED_TRACE(c.shortName);
        uint32_t ifIndex = ifmCreateIfIndex(c.type, c.slot, c.port, c.id);
        EXPECT_EQ(ifIndex, c.ifIndex);
        EXPECT_EQ(ifmIfIndexToIfType(ifIndex), c.type);
        bool port = c.type == ifm::kTypeGigabit || c.type == ifm::kTypeTenGigabit ||
                    c.type == ifm::kTypeManagement;
        if (port) {
            EXPECT_EQ(ifmIfIndexToSlotId(ifIndex), c.slot);
            EXPECT_EQ(ifmIfIndexToPortId(ifIndex), c.port);
        }
        EXPECT_EQ(ifmIfIndexToIfNum(ifIndex), port ? 0u : c.id);
        EXPECT_EQ(ifmIfIndexToVlanId(ifIndex), c.type == ifm::kTypeVlan ? c.id : 0u);
        EXPECT_EQ(ifmIfIndexToPlFlag(ifIndex),
                  c.type == ifm::kTypeGigabit || c.type == ifm::kTypeTenGigabit ? 1 : 0);
        EXPECT_EQ(shortName(ifIndex), c.shortName);
        EXPECT_EQ(longName(ifIndex), c.longName);
    }
}

TEST(IfIndexTest, OutOfRangeOrUnknownIndexesAreNamedUnknownAndNamesAreCutToTheBuffer) {
    // LAG 0 and 129, VLAN 0 and 4096, types 7 and 0, slot 12, port 64, the low byte of a
    // port's index set, a LAG with a slot byte.
    for (uint32_t ifIndex : {0x16000000u, 0x16000081u, 0x18000000u, 0x18001000u, 0x07000100u,
                             0x00000000u, 0x0A0C0000u, 0x0A004000u, 0x0A000101u, 0x16010005u}) {
        char want[32];
        std::snprintf(want, sizeof want, "Unknown(0x%08x)", ifIndex);
        EXPECT_EQ(shortName(ifIndex), want);
        EXPECT_EQ(longName(ifIndex), want);
    }
    EXPECT_EQ(ifmCreateIfIndex(7, 1, 1, 1), 0u);
    // A name is cut to its buffer.
    char buf[8] = "xxxxxxx";
    EXPECT_EQ(ifmIfIndexToLName(0x0A000100, buf, 4), buf);
    EXPECT_EQ(std::string(buf, 7), std::string("Gig\0xxx", 7));
    ifmIfIndexToName(0x16000000, buf, sizeof buf);
    EXPECT_STREQ(buf, "Unknown");
    ifmIfIndexToName(0x0A000100, buf, 0);
    EXPECT_STREQ(buf, "Unknown");
}

// The VLAN-interface list: u32 count, then count u32 ifIndexes, big-endian.
std::vector<uint32_t> walk(const std::vector<uint8_t>& list) {
    std::vector<uint32_t> out;
    uint32_t cursor = 0, ifIndex = 0;
    while (ifmVlanIfListGetNextIfIndex(list, &cursor, &ifIndex) == 0) out.push_back(ifIndex);
    return out;
}

TEST(IfIndexTest, VlanListWalkStopsAtCountOrAtTheEndOfTheSpan) {
    using V = std::vector<uint32_t>;
    // Three, and a word past the count that is not read; five claimed, two and a half there.
    const auto three = hex("00000003 1800000A 18000014 18000FFF DEADBEEF");
    EXPECT_EQ(walk(three), (V{0x1800000A, 0x18000014, 0x18000FFF}));
    EXPECT_EQ(walk(hex("00000005 18000001 18000002 1800")), (V{0x18000001, 0x18000002}));
    for (const char* empty : {"00000000", "000000", ""}) EXPECT_TRUE(walk(hex(empty)).empty());
    uint32_t cursor = 0;
    EXPECT_EQ(ifmVlanIfListGetNextIfIndex(three, &cursor, nullptr), -1);
}

struct ListDeleter {
    void operator()(IfmPhysLagIfList* l) const { ifmPhysLagIfListFree(l); }
};
using ListPtr = std::unique_ptr<IfmPhysLagIfList, ListDeleter>;
ListPtr newList(std::initializer_list<uint32_t> ifIndexes = {}) {
    ListPtr list(ifmPhysLagIfListInit());
    for (uint32_t i : ifIndexes) ifmPhysLagIfListAddIfIndex(list.get(), i);
    return list;
}

std::vector<uint32_t> members(const IfmPhysLagIfList* list) {
    std::vector<uint32_t> out;
    for (uint32_t i = ifmPhysLagIfListGetNextIfIndex(list, 0); i != 0;
         i = ifmPhysLagIfListGetNextIfIndex(list, i)) {
        out.push_back(i);
    }
    return out;
}

TEST(PhysLagListTest, KeepsPortsAndLagsSortedAndCompressesAtMost81) {
    // Po 5, Gi 0/1 twice; a VLAN, the management port and LAG 0 are refused. The list keeps
    // ports and LAGs sorted.
    ListPtr list = newList({0x16000005, 0x0A000100, 0x0A000100});
    for (uint32_t other : {0x1800000Au, 0x01000000u, 0x16000000u})
        EXPECT_EQ(ifmPhysLagIfListAddIfIndex(list.get(), other), -1);
    EXPECT_EQ(ifmPhysLagIfListCount(list.get()), 2);
    EXPECT_EQ(ifmPhysLagIfListHasIfIndex(list.get(), 0x0A000100), 1);
    EXPECT_EQ(ifmPhysLagIfListHasIfIndex(list.get(), 0x0A000200), 0);
    std::vector<uint8_t> out(ifm::kCompressedListLen, 0xEE);
    ASSERT_EQ(ifmCompressPhyLagIFList(list.get(), out), 0);
    std::vector<uint8_t> want = hex("00000002 0A000100 16000005");
    want.resize(ifm::kCompressedListLen);  // the rest zero
    EXPECT_EQ(out, want);
    std::vector<uint8_t> shortOut(ifm::kCompressedListLen - 1);
    EXPECT_EQ(ifmCompressPhyLagIFList(list.get(), shortOut), -1);

    // 81 interfaces fill all 328 bytes and come back in order; an 82nd does not fit.
    for (uint32_t port = 0; port < 64; ++port)
        ifmPhysLagIfListAddIfIndex(list.get(), ifmCreateIfIndex(10, 0, port, 0));
    for (uint32_t lag = 1; lag <= 17; ++lag)
        ifmPhysLagIfListAddIfIndex(list.get(), ifmCreateIfIndex(22, 0, 0, lag));
    ASSERT_EQ(ifmPhysLagIfListCount(list.get()), 81);
    ASSERT_EQ(ifmCompressPhyLagIFList(list.get(), out), 0);
    ListPtr back = newList();
    ASSERT_EQ(ifmDeCompressPhyLagIFList(out, back.get()), 0);
    EXPECT_EQ(members(back.get()), members(list.get()));
    ASSERT_EQ(ifmPhysLagIfListAddIfIndex(list.get(), ifmCreateIfIndex(22, 0, 0, 18)), 0);
    EXPECT_EQ(ifmCompressPhyLagIFList(list.get(), out), -1);
}

TEST(PhysLagListTest, DecompressRefusesBadInputAndLeavesListAlone) {
    ListPtr list = newList({0x0A000200});
    std::vector<uint8_t> tooMany = hex("00000052");  // count 82 (the buffer could hold it)
    for (uint8_t i = 0; i < 82; ++i) tooMany.insert(tooMany.end(), {0x0A, 0, i, 0});
    // Too many; two of three entries; a VLAN among them; three bytes.
    for (const auto& bad : {tooMany, hex("00000003 0A000100 16000005"),
                            hex("00000002 0A000100 1800000A"), hex("000000")})
        EXPECT_EQ(ifmDeCompressPhyLagIFList(bad, list.get()), -1);
    EXPECT_EQ(members(list.get()), (std::vector<uint32_t>{0x0A000200}));
    // An input shorter than 328 bytes that holds its whole count is accepted.
    EXPECT_EQ(ifmDeCompressPhyLagIFList(hex("00000001 16000007"), list.get()), 0);
    EXPECT_EQ(members(list.get()), (std::vector<uint32_t>{0x0A000200, 0x16000007}));
}

}  // namespace
