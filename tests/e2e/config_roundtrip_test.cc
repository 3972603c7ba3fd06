// End to end: a ring configured with "vornctl -f" shows up in the running configuration, a
// refusal of the manager reaches the operator as a sentence, and the running configuration,
// saved and replayed by vornsim on a fresh chassis, gives the same running configuration
// again.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "chassis.h"

namespace vorn {
namespace {

using e2e::Chassis;

// The lines of a text with the blanks at their ends taken off.
std::vector<std::string> trimmedLines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        line.erase(line.find_last_not_of(" \t\r") + 1);
        out.push_back(line);
    }
    return out;
}

std::string runningConfig(const Chassis& c) {
    std::string out;
    return c.ctl({"show", "running-config"}, &out) == 0 ? out : "(failed) " + out;
}

// Ring 5 as an operator writes it: short interface names, comments, blank lines ...
const char* const kRingFive =
    "! ring 5: master on Gi 0/1 and Gi 1/1\n"
    "protocol vorn 5\n"
    " interface primary Gi 0/1 secondary gi1/1 control-vlan 10\n"
    "\n"
    " member-vlan 20-30\n"
    " mode master\n"
    " timer hello-interval 300\n"
    " timer dead-interval 900\n"
    " description ring five\n"
    " no disable\n";

// ... and as the manager keeps it.
const std::vector<std::string> kRingFiveRunning = {
    "!",
    "protocol vorn 5",
    " description ring five",
    " interface primary GigabitEthernet 0/1 secondary GigabitEthernet 1/1 control-vlan 10",
    " member-vlan 20-30",
    " mode master",
    " timer hello-interval 300",
    " timer dead-interval 900",
    " no disable",
};

TEST(ConfigRoundTrip, ARunningConfigurationSavedAndReplayedOnAFreshChassisComesBackTheSame) {
    std::string first, saved, out;
    {
        Chassis a;
        ASSERT_TRUE(a.startAndWait()) << a.simLog();
        const std::string file = a.base() + "/ring5.cfg";
        std::ofstream(file) << kRingFive;
        ASSERT_EQ(a.ctl({"-f", file}, &out), 0) << out;
        first = runningConfig(a);
        EXPECT_EQ(trimmedLines(first), kRingFiveRunning) << first;

        // The manager's refusal, as the operator reads it; nothing changes.
        EXPECT_EQ(a.ctl(e2e::words("protocol vorn 6 interface primary Gi 0/2 secondary Gi 1/2 "
                                   "control-vlan 10"),
                        &out),
                  1);
        EXPECT_NE(out.find("% Error: VLAN 10 is already the control VLAN of another ring"),
                  std::string::npos)
            << out;
        ASSERT_EQ(a.ctl({"no", "protocol", "vorn", "6"}, &out), 0) << out;
        EXPECT_EQ(runningConfig(a), first);
        ASSERT_EQ(a.ctl({"write", "memory"}, &out), 0) << out;
        saved = e2e::slurp(a.rundir() + "/startup-config");
        EXPECT_EQ(trimmedLines(saved), kRingFiveRunning);
    }
    // vornsim replays the saved file (its CR LF line ends as written) with vornctl -f.
    Chassis b;
    ASSERT_TRUE(b.startAndWait(saved)) << b.simLog();
    EXPECT_TRUE(e2e::eventually([&] { return runningConfig(b) == first; }, 20000))
        << runningConfig(b) << b.simLog();
    EXPECT_NE(b.simLog().find("the startup configuration was replayed"), std::string::npos)
        << b.simLog();
}

}  // namespace
}  // namespace vorn
