// Chassis and redundancy queries, answered from the host options.
#include "platform/chassis.h"

#include <gtest/gtest.h>

#include <vector>

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
    std::vector<uint8_t> want(vorn::chassis::kInfoLen + 4, 0);
    want[2] = 0x08;  // slots 0, 2 and 11: 0x00000805
    want[3] = 0x05;
    want[7] = 0x0C;                                  // 12 slots
    std::fill(want.begin() + 72, want.end(), 0xEE);  // nothing written past the block
    EXPECT_EQ(info, want);

    // A block too short is refused untouched.
    std::vector<uint8_t> shortInfo(vorn::chassis::kInfoLen - 1, 0xEE);
    EXPECT_EQ(qelGetChasInfo(0, 0, shortInfo), 0xFFFFFFFFu);
    EXPECT_EQ(shortInfo, std::vector<uint8_t>(vorn::chassis::kInfoLen - 1, 0xEE));
}

TEST_F(ChassisTest, RedundancyFollowsOptions) {
    for (bool set : {false, true}) {
        vorn::host::mutableOptions().standby = set;
        vorn::host::mutableOptions().peerPair = set;
        EXPECT_EQ(qelHaIsPrimaryRpm(), set ? 0 : 1);
        EXPECT_EQ(qelIsZilEnabled(), set ? 1 : 0);
    }
}

}  // namespace
