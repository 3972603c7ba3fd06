// Member VLANs: the three places they are kept, the refusals, and their running-configuration
// lines, split after whole list items.
#include <gtest/gtest.h>

#include <string>

#include "config/cfg_fixture.h"

namespace vorn::test {
namespace {

const std::string kRingLine = "!\r\nprotocol vorn 5  \r\n";

// VLANs first, first + step, ... (count of them).
std::vector<uint16_t> series(uint16_t first, uint16_t step, int count) {
    std::vector<uint16_t> v;
    for (int i = 0; i < count; ++i) v.push_back(static_cast<uint16_t>(first + i * step));
    return v;
}

// The member-VLAN line of a list of single VLANs, as the store prints it.
std::string line(const std::vector<uint16_t>& ids, size_t from, size_t to) {
    std::string s = " member-vlan ";
    for (size_t i = from; i < to; ++i) s += (i > from ? "," : "") + std::to_string(ids[i]);
    return s + " \r\n";
}

class MemberVlanTest : public CfgTest {
protected:
    void SetUp() override {
        CfgTest::SetUp();
        create(5);
    }
};

TEST_F(MemberVlanTest, AddKeepsTheSetInThreePlacesAndRewritesTheLines) {
    ASSERT_NE(vornCreateVlanEntry(vl(201), VORN_CREATOR_IFM), nullptr);
    auto before = gVornCounters;
    members(5, {100, 200, 201, 202});
    members(5, {150, 203});
    EXPECT_EQ(gVornCounters[VORN_CNT_CLI_ADD_MEM_VLAN], before[VORN_CNT_CLI_ADD_MEM_VLAN] + 2);
    const VornRingEntry& r = *gVornRing[5];
    EXPECT_EQ(r.u4Flags, VORN_RING_CFG_MEMBER_VLAN);
    for (uint16_t v : {100, 150, 200, 201, 202, 203}) {
        SCOPED_TRACE(v);
        EXPECT_TRUE(bmp::test(r.memberVlanBmap, v));
        EXPECT_TRUE(bmp::test(gVornMemVlanBmap, v));
        ASSERT_NE(gVornVlan[v], nullptr);
        EXPECT_EQ(gVornVlan[v]->u2MemberVlanRingId, 5);
    }
    EXPECT_EQ(gVornVlan[100]->isCreatedByRingConf, 1);
    EXPECT_EQ(gVornVlan[201]->isCreatedByRingConf, 0);  // IFM's record, used as it is
    EXPECT_EQ(runningConfig(), kRingLine + " member-vlan 100,150,200-203 \r\n");
}

TEST_F(MemberVlanTest, RefusalsAndNoOpsChangeNothing) {
    create(6);
    ctrlVlan(6, gi(0, 1), gi(0, 2), 20);
    members(5, {100, 101});
    const struct {
        const char* name;
        CliReq req;
        uint32_t status;
    } cases[] = {
        {"a control VLAN among valid ones",
         CliReq(vorn::nm::kTypeMemberVlan, 5).vlans({30, 20, 40}), vorn::nm::kStatusMemberIsCtrl},
        {"add to a missing ring", CliReq(vorn::nm::kTypeMemberVlan, 7).vlans({30}),
         vorn::nm::kStatusNoRing},
        {"add to ring 0", CliReq(vorn::nm::kTypeMemberVlan, 0).vlans({30}),
         vorn::nm::kStatusNoRing},
        {"remove VLANs the ring does not have",
         CliReq(vorn::nm::kTypeMemberVlan, 5).no().vlans({102}), 0},
        {"remove from a ring without members", CliReq(vorn::nm::kTypeMemberVlan, 6).no(), 0},
        {"remove from a missing ring", CliReq(vorn::nm::kTypeMemberVlan, 7).no(), 0},
    };
    for (auto c : cases) {
        SCOPED_TRACE(c.name);
        const Snapshot before = snapshot();
        EXPECT_EQ(status(c.req), c.status);
        EXPECT_EQ(snapshot(), before);
    }
}

TEST_F(MemberVlanTest, RemoveSomeThenAll) {
    ASSERT_NE(vornCreateVlanEntry(vl(300), VORN_CREATOR_IFM), nullptr);
    members(5, {100, 200, 201, 300});
    create(6);
    members(6, {400});
    // VLAN 400 is ring 6's; naming it with ring 5's own takes it out of the global set and
    // its record too, while ring 6's bitmap keeps it.
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeMemberVlan, 5).no().vlans({100, 201, 400})), 0);
    EXPECT_EQ(runningConfig(), kRingLine + " member-vlan 200,300 \r\n" +
                                   "!\r\nprotocol vorn 6  \r\n member-vlan 400 \r\n");
    EXPECT_EQ(gVornVlan[100], nullptr);  // only ring configuration held it
    EXPECT_FALSE(bmp::test(gVornMemVlanBmap, 201));
    EXPECT_FALSE(bmp::test(gVornMemVlanBmap, 400));
    EXPECT_EQ(gVornVlan[400], nullptr);
    EXPECT_TRUE(bmp::test(gVornRing[6]->memberVlanBmap, 400));
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeProto, 6).no()), 0);
    EXPECT_EQ(gVornRing[5]->u4Flags, VORN_RING_CFG_MEMBER_VLAN);

    // An empty bitmap removes all of them.
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeMemberVlan, 5).no()), 0);
    EXPECT_EQ(runningConfig(), kRingLine);
    EXPECT_EQ(gVornRing[5]->u4Flags, 0u);
    EXPECT_TRUE(BITMAP_IS_EMPTY(gVornRing[5]->memberVlanBmap));
    EXPECT_TRUE(BITMAP_IS_EMPTY(gVornMemVlanBmap));
    EXPECT_EQ(gVornVlan[200], nullptr);
    ASSERT_NE(gVornVlan[300], nullptr);  // IFM still reports it
    EXPECT_EQ(gVornVlan[300]->u2MemberVlanRingId, 0);
}

TEST_F(MemberVlanTest, LongListsAreSplitAfterWholeItems) {
    // Items of 4 digits and a comma: the character at 267 is a digit, so each line breaks
    // at the comma before it and carries 53 items (264 characters).
    const std::vector<uint16_t> ids = series(1000, 2, 120);
    members(5, ids);
    EXPECT_EQ(runningConfig(),
              kRingLine + line(ids, 0, 53) + line(ids, 53, 106) + line(ids, 106, 120));

    // Taking the first item away moves every break by one item; the third line goes.
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeMemberVlan, 5).no().vlans({1000})), 0);
    const std::vector<uint16_t> rest(ids.begin() + 1, ids.end());
    EXPECT_EQ(runningConfig(),
              kRingLine + line(rest, 0, 53) + line(rest, 53, 106) + line(rest, 106, 119));

    // A set that needs more than 19 lines leaves none behind when the ring goes.
    members(5, series(1000, 2, 1548));  // 1000..4094: 7739 characters, 30 lines
    EXPECT_EQ(host::cfgLineCount(), 31u);
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeProto, 5).no()), 0);
    EXPECT_EQ(host::cfgLineCount(), 0u);
    EXPECT_EQ(runningConfig(), "");
}

TEST(MemberVlanSplitTest, EndAndLastIndexes) {
    const std::string items = [] {  // "1000,1002,...": items at 5k, commas at 5k + 4
        std::string s;
        for (int i = 0; i < 120; ++i) s += (i ? "," : "") + std::to_string(1000 + 2 * i);
        return s;
    }();
    const std::string noBreak(300, '7');
    const std::string blankAt100 = std::string(100, '7') + " " + std::string(200, '7');
    const struct {
        const char* name;
        std::string text;
        uint32_t start;
        int32_t end;
        int32_t last;
    } cases[] = {
        {"start at the end", "1,2", 3, -1, -1},
        {"start past the end", "1,2", 9, -1, -1},
        {"empty text", "", 0, -1, -1},
        {"rest fits", "10,20,30", 3, 7, 7},
        {"rest fits, trailing comma", "10,20,", 0, 5, 4},
        {"comma at 267", std::string(267, '1') + ",2", 0, 267, 266},
        {"blank at 267", std::string(267, '1') + " 2", 0, 267, 267},
        {"NUL at 267", std::string(267, '1'), 0, 267, 267},
        {"NUL at start + 267", "12" + std::string(267, '1'), 2, 269, 269},
        {"walk back to the comma", items, 0, 264, 263},
        {"walk back from a later start", items, 265, 529, 528},
        {"walk back meets a blank", blankAt100, 0, 100, 100},
        {"no break: cut at full length", noBreak, 0, 266, 266},
        {"no break from a later start", noBreak, 10, 276, 276},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        int32_t end = 0;
        int32_t last = 0;
        vornGetMemberVlanCfgEndIndex(c.text.c_str(), c.start, &end, &last);
        EXPECT_EQ(end, c.end);
        EXPECT_EQ(last, c.last);
    }
}

}  // namespace
}  // namespace vorn::test
