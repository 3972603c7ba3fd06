// End to end: vornlab brings up a ring of three switches, a probe reaches every switch once,
// cutting and restoring random cables keeps every switch reachable with no loop, and down
// stops every switch.

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "chassis.h"

namespace vorn {
namespace {

TEST(LabE2e, AThreeSwitchRingRecoversFromEveryCutWithoutALoop) {
    e2e::Chassis base;  // not started: its fresh directory holds the lab
    const std::string dir = base.base() + "/lab";
    auto lab = [&](const std::string& line, std::string* out) {
        std::vector<std::string> argv = {VORNLAB_PATH, "--dir", dir};
        for (const std::string& w : e2e::words(line)) argv.push_back(w);
        return e2e::runToEnd(argv, base.base() + "/lab.out", out);
    };
    std::string out;
    ASSERT_EQ(lab("up 3", &out), 0) << out;
    EXPECT_NE(out.find("ring complete: 3 switches"), std::string::npos) << out;
    EXPECT_EQ(lab("probe 25 2", &out), 0) << out;
    EXPECT_NE(out.find("every switch reached; no loop"), std::string::npos) << out;
    // Cut and restore: 2-3 first, then random cables.
    EXPECT_EQ(lab("cut 2 3", &out), 0) << out;
    EXPECT_EQ(lab("probe 20 2", &out), 0) << out;
    EXPECT_EQ(lab("restore 3 2", &out), 0) << out;
    EXPECT_EQ(lab("--cuts 6 converge", &out), 0) << out;
    EXPECT_NE(out.find("12 events (probe every 1 ms on VLANs 20-29): recovery p50"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("lost after recovery 0; loops 0; not recovered 0"), std::string::npos)
        << out;
    // The master loses every LINK_DOWN: its dead timer finds each cut.
    EXPECT_EQ(lab("--cuts 2 --seed 3 --drop-link-down converge", &out), 0) << out;
    EXPECT_NE(out.find("within dead-interval + hello-interval (200 ms): yes"), std::string::npos)
        << out;
    EXPECT_EQ(lab("cut 2 2", &out), 1) << out;
    EXPECT_EQ(lab("down", &out), 0) << out;
    EXPECT_TRUE(e2e::eventually(
        [&] { return access((dir + "/sw1/cable.sock").c_str(), F_OK) != 0; }, 5000));
    EXPECT_NE(lab("show", &out), 0) << "no lab after down";
}

}  // namespace
}  // namespace vorn
