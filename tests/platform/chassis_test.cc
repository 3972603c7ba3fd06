// Chassis and redundancy queries, answered from the host options.
#include "platform/chassis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "platform/codec.h"
#include "platform/ipc.h"
#include "support/rundir.h"

namespace {

class ChassisTest : public vorn::test::PlatformTest {
protected:
    void SetUp() override { saved_ = vorn::host::options(); }
    void TearDown() override { vorn::host::mutableOptions() = saved_; }
    vorn::host::Options saved_;
};

TEST_F(ChassisTest, InfoBlockCarriesCardBitmapAndSlotCount) {
    vorn::host::mutableOptions().cards = (1u << 0) | (1u << 2) | (1u << 11);
    std::vector<uint8_t> info(vorn::chassis::kInfoLen + 4, 0xEE);
    ASSERT_EQ(qelGetChasInfo(0, 0, info), 0u);
    const std::vector<uint8_t> head = {
        0x00, 0x00, 0x08, 0x05,  // slots 0, 2 and 11
        0x00, 0x00, 0x00, 0x0C,  // 12 slots
    };
    EXPECT_TRUE(std::equal(head.begin(), head.end(), info.begin()));
    EXPECT_TRUE(std::all_of(info.begin() + 8, info.begin() + 72, [](uint8_t b) { return b == 0; }));
    EXPECT_EQ(info[72], 0xEE);  // nothing written past the block
}

TEST_F(ChassisTest, DefaultCardsAndShortBlock) {
    vorn::host::mutableOptions().cards = 0x3;
    std::vector<uint8_t> info(vorn::chassis::kInfoLen);
    ASSERT_EQ(qelGetChasInfo(0, 0, info), 0u);
    EXPECT_EQ(vorn::be::Reader(info).u32(0), 0x3u);

    std::vector<uint8_t> shortInfo(vorn::chassis::kInfoLen - 1, 0xEE);
    EXPECT_EQ(qelGetChasInfo(0, 0, shortInfo), 0xFFFFFFFFu);
    EXPECT_TRUE(
        std::all_of(shortInfo.begin(), shortInfo.end(), [](uint8_t b) { return b == 0xEE; }));
}

TEST_F(ChassisTest, RedundancyFollowsOptions) {
    EXPECT_EQ(qelGetMaxActivePortPipe(), 2);
    EXPECT_EQ(qelGetFirstValidPortPipe(), 0);
    vorn::host::mutableOptions().standby = false;
    vorn::host::mutableOptions().peerPair = false;
    EXPECT_EQ(qelHaIsPrimaryRpm(), 1);
    EXPECT_EQ(qelIsZilEnabled(), 0);
    vorn::host::mutableOptions().standby = true;
    vorn::host::mutableOptions().peerPair = true;
    EXPECT_EQ(qelHaIsPrimaryRpm(), 0);
    EXPECT_EQ(qelIsZilEnabled(), 1);
}

}  // namespace
