// LAG member lists: insertion order, compaction on removal, the designated port, the
// 32-member limit and refused notifications.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "support/mgr_fixture.h"

namespace {

using vorn::test::MgrTest;
using W = std::vector<uint32_t>;
using vorn::test::po;
namespace ifm = vorn::ifm;

constexpr const char* kAdd = "vornProcessAddLagPort";
constexpr const char* kDel = "vornProcessDelLagPort";

// The GigabitEthernet ifIndex whose port number is n (n >= 129).
uint32_t phys(uint16_t n) {
    return ifmCreateIfIndex(ifm::kTypeGigabit, (n - 129u) / 64, (n - 129u) % 64, 0);
}

std::array<uint8_t, 8> lagRec(uint32_t lagIfIndex, uint32_t memberIfIndex) {
    std::array<uint8_t, 8> rec{};
    vorn::be::Writer w(rec.data(), rec.size());
    w.u32(0, lagIfIndex);
    w.u32(4, memberIfIndex);
    return rec;
}

class LagTest : public MgrTest {
protected:
    void SetUp() override {
        MgrTest::SetUp();
        lag_ = vornCreatePortEntry(po(1), VORN_CREATOR_IFM);
        ASSERT_NE(lag_, nullptr);
        ASSERT_NE(lag_->pLagPortList, nullptr);
    }
    VornPortEntry* member(uint16_t n) {
        if (gVornPort[n] == nullptr) vornCreatePortEntry(phys(n), VORN_CREATOR_IFM);
        return gVornPort[n];
    }
    int add(uint16_t n) {
        member(n);
        auto rec = lagRec(po(1), phys(n));
        return vornLagInsertMember(rec.data(), rec.size(), kAdd);
    }
    int del(uint16_t n) {
        auto rec = lagRec(po(1), phys(n));
        return vornLagRemoveMember(rec.data(), rec.size(), kDel);
    }
    // The members as the list holds them, up to the first free slot.
    std::vector<uint16_t> members() const {
        std::vector<uint16_t> v;
        for (uint16_t m : lag_->pLagPortList->members) {
            if (m == 0) break;
            v.push_back(m);
        }
        return v;
    }
    const VornLagPortList& list() const { return *lag_->pLagPortList; }

    VornPortEntry* lag_ = nullptr;
};

TEST_F(LagTest, MembersKeepArrivalOrderRepeatsAndRemovalMovesTheLastIntoTheHole) {
    for (uint16_t n : {200, 150, 300}) ASSERT_EQ(add(n), 0);
    EXPECT_EQ(members(), (std::vector<uint16_t>{200, 150, 300}));
    EXPECT_EQ(W({list().lastEmptyIndex, list().desgPortNum}), (W{3, 150}));  // the smallest
    for (uint16_t n : {150, 200, 300}) EXPECT_EQ(gVornPort[n]->u2LagParent, 1) << n;
    // 200 is not the designated port: it stays; 150 is: the smallest left takes over.
    const struct {
        uint16_t gone;
        std::vector<uint16_t> left;
        uint32_t desg;
    } steps[] = {{200, {300, 150}, 150}, {150, {300}, 300}, {300, {}, 0}};
    for (const auto& [gone, left, desg] : steps) {
        EXPECT_EQ(del(gone), 0);
        EXPECT_EQ(members(), left);
        EXPECT_EQ(W({list().lastEmptyIndex, list().desgPortNum, gVornPort[gone]->u2LagParent}),
                  (W{uint32_t(left.size()), desg, 0}))
            << gone;
    }
    for (uint16_t m : list().members) EXPECT_EQ(m, 0);

    // A repeated notification adds the member twice; a removal takes one copy.
    ASSERT_EQ(add(150), 0);
    ASSERT_EQ(add(150), 0);
    EXPECT_EQ(members(), (std::vector<uint16_t>{150, 150}));
    ASSERT_EQ(del(150), 0);
    EXPECT_EQ(members(), (std::vector<uint16_t>{150}));
    EXPECT_EQ(list().desgPortNum, 150);
    // Removing a port that is not a member only clears its LAG parent.
    member(300)->u2LagParent = 1;
    const VornLagPortList before = list();
    EXPECT_EQ(del(300), 0);
    EXPECT_EQ(gVornPort[300]->u2LagParent, 0);
    EXPECT_EQ(std::memcmp(&list(), &before, sizeof(before)), 0);
}

TEST_F(LagTest, TheThirtyThirdMemberIsRefused) {
    // Added from the highest number down, so every insert changes the designated port.
    for (uint16_t n = 160; n >= 129; --n) ASSERT_EQ(add(n), 0) << n;
    EXPECT_EQ(W({list().lastEmptyIndex, list().desgPortNum}), (W{32, 129}));
    const VornLagPortList before = list();
    vornDbgPrint = 1;
    std::string out = captureStdout([&] { EXPECT_EQ(add(161), -1); });
    EXPECT_NE(out.find("vornProcessAddLagPort: LAG member ports limit exceeded. Lag = 1, "
                       "Port = 161\r\n"),
              std::string::npos)
        << out;
    EXPECT_EQ(std::memcmp(&list(), &before, sizeof(before)), 0);
    EXPECT_EQ(gVornPort[161]->u2LagParent, 0);
    // Once a member leaves, the newcomer takes the last slot.
    ASSERT_EQ(del(129), 0);
    EXPECT_EQ(list().desgPortNum, 130);
    ASSERT_EQ(add(161), 0);
    EXPECT_EQ(W({list().members[31], list().lastEmptyIndex}), (W{161, 32}));
}

TEST_F(LagTest, RefusedNotificationsChangeNothing) {
    ASSERT_EQ(add(200), 0);
    VornPortEntry* plain = member(150);  // a physical port: it has no member list
    const struct {
        uint32_t lagIfIndex, memberIfIndex;
        size_t len;
        const char* traceEnd;  // how the "Invalid params" line ends; null: no such line
    } cases[] = {
        {po(2), phys(200), 8, "pMemberPort = 0xc8\r\n"},      // a LAG without a record
        {po(1), phys(400), 8, "pMemberPort = 0x190\r\n"},     // a member without a record
        {po(1), phys(898), 8, "pMemberPort = 0x382\r\n"},     // member number 898
        {po(0), phys(200), 8, "pMemberPort = 0xc8\r\n"},      // LAG number 0
        {phys(150), phys(200), 8, "pMemberPort = 0xc8\r\n"},  // a LAG record without a list
        {po(1), phys(200), 7, nullptr},                       // the record too short
    };
    const VornLagPortList before = list();
    vornDbgPrint = 1;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.traceEnd == nullptr ? "too short" : c.traceEnd);
        auto rec = lagRec(c.lagIfIndex, c.memberIfIndex);
        for (auto* op : {vornLagInsertMember, vornLagRemoveMember}) {
            std::string out = captureStdout([&] { EXPECT_EQ(op(rec.data(), c.len, kAdd), -1); });
            const bool invalid =
                out.find("vornProcessAddLagPort(): Invalid params: pLag = ") != std::string::npos;
            EXPECT_TRUE(c.traceEnd == nullptr ? out.empty() : invalid && out.ends_with(c.traceEnd))
                << out;
            EXPECT_EQ(std::memcmp(&list(), &before, sizeof(before)), 0);
            EXPECT_EQ(W({gVornPort[200]->u2LagParent, plain->u2LagParent}), (W{1, 0}));
            EXPECT_EQ(plain->pLagPortList, nullptr);
        }
    }
}

}  // namespace
