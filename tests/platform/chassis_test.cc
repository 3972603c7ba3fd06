// The chassis query, answered from the host options.
#include "platform/chassis.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/ipc.h"
#include "support/rundir.h"
#include "support/wire.h"

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
    std::vector<uint8_t> want = vorn::test::hex("00000805 0000000C");  // slots 0, 2, 11 of 12
    want.resize(vorn::chassis::kInfoLen, 0);
    want.resize(vorn::chassis::kInfoLen + 4, 0xEE);  // nothing written past the block
    EXPECT_EQ(info, want);

    // A block too short is refused untouched.
    std::vector<uint8_t> shortInfo(vorn::chassis::kInfoLen - 1, 0xEE);
    EXPECT_EQ(qelGetChasInfo(0, 0, shortInfo), 0xFFFFFFFFu);
    EXPECT_EQ(shortInfo, std::vector<uint8_t>(vorn::chassis::kInfoLen - 1, 0xEE));
}

}  // namespace
