// Mode, enable, timers and description: flags, counters, the reported active-ring count and
// the running-configuration lines. (The order in which the store prints a ring's lines is
// the store's test and, for every command, the end-to-end round trip's.)
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "config/cfg_fixture.h"

namespace vorn::test {
namespace {

const std::string kRingLine = "!\r\nprotocol vorn 5  \r\n";

// One step of a sequence of requests on ring 5 and what it must leave.
struct Step {
    const char* name;
    CliReq req;
    uint32_t status;
    int counter;        // bumped once
    uint32_t flags;     // ring 5's flags after the step
    std::string lines;  // ring 5's lines after its ring line
};

class SettingsTest : public CfgTest {
protected:
    void SetUp() override {
        CfgTest::SetUp();
        create(5);
    }
    void runSteps(std::initializer_list<Step> steps) {
        for (Step s : steps) {
            SCOPED_TRACE(s.name);
            auto before = gVornCounters;
            EXPECT_EQ(status(s.req), s.status);
            auto c = static_cast<size_t>(s.counter);
            EXPECT_EQ(gVornCounters[c], before[c] + 1);
            EXPECT_EQ(gVornRing[5]->u4Flags, s.flags);
            EXPECT_EQ(runningConfig(), kRingLine + s.lines);
        }
    }
};

TEST_F(SettingsTest, Mode) {
    using R = CliReq;
    runSteps(
        {Step{"set master", R(vorn::nm::kTypeMode, 5).mode(1), 0, VORN_CNT_CLI_ADD_MODE, 0x02,
              " mode master \r\n"},
         Step{"change to transit: one line", R(vorn::nm::kTypeMode, 5).mode(2), 0,
              VORN_CNT_CLI_ADD_MODE, 0x02, " mode transit \r\n"},
         Step{"no mode master on a transit ring", R(vorn::nm::kTypeMode, 5).no().mode(1), 2,
              VORN_CNT_CLI_DEL_MODE, 0x02, " mode transit \r\n"},
         Step{"mode 3 has no name", R(vorn::nm::kTypeMode, 5).mode(3), 0, VORN_CNT_CLI_ADD_MODE,
              0x02, " mode transit \r\n"},
         Step{"no mode transit", R(vorn::nm::kTypeMode, 5).no().mode(2), 0, VORN_CNT_CLI_DEL_MODE,
              0, ""},
         Step{"no mode without a mode", R(vorn::nm::kTypeMode, 5).no().mode(2), 0,
              VORN_CNT_CLI_DEL_MODE, 0, ""},
         Step{"missing ring", R(vorn::nm::kTypeMode, 9).mode(1), 0, VORN_CNT_CLI_ADD_MODE, 0, ""}});
    EXPECT_EQ(gVornRing[5]->u1Mode, VORN_MODE_NONE);
}

TEST_F(SettingsTest, EnableCountsActiveRingsOnce) {
    const struct {
        const char* name;
        CliReq req;
        uint16_t active;  // in the reply and in vornActiveRings
        uint32_t flags;
        std::string lines;
    } cases[] = {
        {"no disable", CliReq(vorn::nm::kTypeEnable, 5).no(), 1, 0x04, " no disable \r\n"},
        {"no disable again", CliReq(vorn::nm::kTypeEnable, 5).no(), 1, 0x04, " no disable \r\n"},
        {"no disable on a missing ring", CliReq(vorn::nm::kTypeEnable, 9).no(), 1, 0x04,
         " no disable \r\n"},
        {"disable", CliReq(vorn::nm::kTypeEnable, 5), 0, 0, ""},
        {"disable a disabled ring", CliReq(vorn::nm::kTypeEnable, 5), 0, 0, ""},
    };
    for (auto c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<uint8_t> reply = run(c.req);
        ASSERT_EQ(reply.size(), vorn::nm::kLen);
        be::Reader r(reply.data(), reply.size());
        EXPECT_EQ(r.u32(vorn::nm::kOffReplyStatus), 0u);
        EXPECT_EQ(r.u16(vorn::nm::kOffActiveRings), c.active);
        EXPECT_EQ(vornActiveRings, c.active);
        EXPECT_EQ(gVornRing[5]->u4Flags, c.flags);
        EXPECT_EQ(runningConfig(), kRingLine + c.lines);
    }
}

TEST_F(SettingsTest, TimersBackToTheirDefaultClearTheirFlags) {
    using R = CliReq;
    runSteps({Step{"hello 800", R(vorn::nm::kTypeHello, 5).hello(800), 0, VORN_CNT_CLI_ADD_HELLO,
                   0x08, " timer hello-interval 800 \r\n"},
              Step{"dead 2400", R(vorn::nm::kTypeDead, 5).dead(2400), 0, VORN_CNT_CLI_ADD_DEAD,
                   0x18, " timer hello-interval 800 \r\n timer dead-interval 2400 \r\n"},
              Step{"hello 500", R(vorn::nm::kTypeHello, 5).hello(500), 0, VORN_CNT_CLI_ADD_HELLO,
                   0x10, " timer dead-interval 2400 \r\n"},
              Step{"no hello at 500", R(vorn::nm::kTypeHello, 5).no(), 0, VORN_CNT_CLI_DEL_HELLO,
                   0x10, " timer dead-interval 2400 \r\n"},
              Step{"no dead", R(vorn::nm::kTypeDead, 5).no(), 0, VORN_CNT_CLI_DEL_DEAD, 0, ""},
              Step{"dead 1500 at 1500", R(vorn::nm::kTypeDead, 5).dead(1500), 0,
                   VORN_CNT_CLI_ADD_DEAD, 0, ""},
              Step{"hello 0 is stored", R(vorn::nm::kTypeHello, 5).hello(0), 0,
                   VORN_CNT_CLI_ADD_HELLO, 0x08, " timer hello-interval 0 \r\n"},
              Step{"missing ring", R(vorn::nm::kTypeHello, 9).hello(900), 0, VORN_CNT_CLI_ADD_HELLO,
                   0x08, " timer hello-interval 0 \r\n"}});
    EXPECT_EQ(gVornRing[5]->u2HelloTime, 0);
    EXPECT_EQ(gVornRing[5]->u2DeadTime, VORN_DEFAULT_DEAD);
}

TEST_F(SettingsTest, DescriptionIsCutInTheRecordButNotInTheLine) {
    const std::string longText(300, 'd');
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeDesc, 5).desc(longText)), 0);
    const VornRingEntry& r = *gVornRing[5];
    EXPECT_EQ(strnlen(r.description.data(), r.description.size()), 255u);
    EXPECT_EQ(std::string(r.description.data()), longText.substr(0, 255));
    EXPECT_EQ(r.u4Flags, VORN_RING_CFG_DESC);
    EXPECT_EQ(runningConfig(), kRingLine + " description " + longText + " \r\n");

    ASSERT_EQ(status(CliReq(vorn::nm::kTypeDesc, 5).desc("west side")), 0);
    EXPECT_EQ(std::string(r.description.data()), "west side");
    EXPECT_EQ(runningConfig(), kRingLine + " description west side \r\n");

    // A text without its NUL ends at the end of the request.
    CliReq unterminated(vorn::nm::kTypeDesc, 5);
    std::fill(unterminated.buf().begin() + vorn::nm::kOffDescription, unterminated.buf().end(),
              'x');
    ASSERT_EQ(status(unterminated), 0);
    EXPECT_EQ(runningConfig(), kRingLine + " description " + std::string(400, 'x') + " \r\n");

    // The removal names its own text; the line goes all the same.
    auto before = gVornCounters;
    ASSERT_EQ(status(CliReq(vorn::nm::kTypeDesc, 5).no().desc("other")), 0);
    EXPECT_EQ(gVornCounters[VORN_CNT_CLI_DEL_DESC], before[VORN_CNT_CLI_DEL_DESC] + 1);
    EXPECT_EQ(r.u4Flags, 0u);
    EXPECT_EQ(r.description[0], '\0');
    EXPECT_EQ(runningConfig(), kRingLine);
}

}  // namespace
}  // namespace vorn::test
