// End to end: a ring configured with "vornctl -f" shows up in the running configuration; that
// running configuration, replayed on a fresh chassis (by vornctl -f, or by vornsim from a
// saved startup configuration), gives the same running configuration again; and a refusal of
// the manager reaches the operator as a sentence.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
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
    std::string line;
    while (std::getline(in, line)) {
        line.erase(line.find_last_not_of(" \t\r") + 1);
        out.push_back(line);
    }
    return out;
}

std::string writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

// Starts the chassis, with `startup` as its startup configuration when not empty, and waits
// until its manager answers.
bool bringUp(Chassis& c, const std::string& startup = "") {
    if (!startup.empty()) {
        std::filesystem::create_directory(c.rundir());
        std::filesystem::permissions(c.rundir(), std::filesystem::perms::owner_all);
        writeFile(c.rundir() + "/startup-config", startup);
    }
    c.start({"--vornctl", VORNCTL_PATH});
    return e2e::eventually([&c] { return c.ctl({"shell", "qelIpcStats"}) == 0; }, 20000);
}

std::string runningConfig(const Chassis& c) {
    std::string out;
    return c.ctl({"show", "running-config"}, &out) == 0 ? out : "(failed) " + out;
}

// Ring 5 as an operator writes it: short interface names, comments, blank lines.
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

class ConfigRoundTrip : public ::testing::Test {};

TEST_F(ConfigRoundTrip, ARunningConfigurationReplayedOnAFreshChassisComesBackTheSame) {
    std::string first, out;
    {
        Chassis a;
        ASSERT_TRUE(bringUp(a)) << a.simLog();
        ASSERT_EQ(a.ctl({"-f", writeFile(a.base() + "/ring5.cfg", kRingFive)}, &out), 0) << out;
        first = runningConfig(a);
        EXPECT_EQ(trimmedLines(first), kRingFiveRunning) << first;

        // The manager's refusal, as the operator reads it; nothing changes.
        EXPECT_EQ(a.ctl({"protocol", "vorn", "6", "interface", "primary", "Gi", "0/2",
                         "secondary", "Gi", "1/2", "control-vlan", "10"},
                        &out),
                  1);
        EXPECT_NE(out.find("% Error: VLAN 10 is already the control VLAN of another ring"),
                  std::string::npos)
            << out;
        ASSERT_EQ(a.ctl({"no", "protocol", "vorn", "6"}, &out), 0) << out;
        EXPECT_EQ(runningConfig(a), first);
        ASSERT_EQ(a.ctl({"write", "memory"}, &out), 0) << out;
        EXPECT_EQ(trimmedLines(e2e::slurp(a.rundir() + "/startup-config")), kRingFiveRunning);
    }
    Chassis b;
    ASSERT_TRUE(bringUp(b)) << b.simLog();
    ASSERT_EQ(b.ctl({"-f", writeFile(b.base() + "/saved.cfg", first)}, &out), 0) << out;
    EXPECT_EQ(runningConfig(b), first);
}

TEST_F(ConfigRoundTrip, TheSimulatorReplaysASavedStartupConfiguration) {
    std::string saved, out;
    {
        Chassis a;
        ASSERT_TRUE(bringUp(a)) << a.simLog();
        ASSERT_EQ(a.ctl({"-f", writeFile(a.base() + "/ring5.cfg", kRingFive)}, &out), 0) << out;
        ASSERT_EQ(a.ctl({"write", "memory"}, &out), 0) << out;
        saved = e2e::slurp(a.rundir() + "/startup-config");
    }
    Chassis c;
    ASSERT_TRUE(bringUp(c, saved)) << c.simLog();
    EXPECT_TRUE(e2e::eventually(
        [&c] { return trimmedLines(runningConfig(c)) == kRingFiveRunning; }, 20000))
        << runningConfig(c) << c.simLog();
    EXPECT_NE(c.simLog().find("the startup configuration was replayed"), std::string::npos)
        << c.simLog();
}

}  // namespace
}  // namespace vorn
