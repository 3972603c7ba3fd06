// End to end: ring 5 (primary Gi 0/1, secondary Po 1, control VLAN 10, member VLANs 20-30,
// master), configured with "vornctl -f" from an operator's file, shows in the running
// configuration as the manager keeps it; interface events of the simulated chassis drive it
// through the manager to the forwarding state that L2PM programs; then a manager killed and
// started again under the running chassis rebuilds its interfaces from L2PM's download and
// its rings from the saved startup configuration.

#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "chassis.h"

namespace vorn {
namespace {

using e2e::Chassis;

constexpr int kSettleMs = 10000;

// Ring 5 as an operator writes it: short interface names, comments, blank lines ...
const char* const kRingFive =
    "! ring 5: master on Gi 0/1 and Po 1\n"
    "protocol vorn 5\n"
    " interface primary Gi 0/1 secondary po1 control-vlan 10\n"
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
    " interface primary GigabitEthernet 0/1 secondary Port-channel 1 control-vlan 10",
    " member-vlan 20-30",
    " mode master",
    " timer hello-interval 300",
    " timer dead-interval 900",
    " no disable",
};

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

std::string shell(const Chassis& c, const std::string& function) {
    std::string out;
    return c.ctl(e2e::words("shell " + function), &out) == 0 ? out : "(failed) " + out;
}

// Waits until L2PM's model of the port says that the manager owns it and which of its VLANs
// forward and which block.
::testing::AssertionResult portState(const Chassis& c, const std::string& port,
                                     const std::string& forwarding, const std::string& blocking) {
    return c.shows(
        "sim", "show l2pm port " + port,
        "owned by the manager\n  forwarding: " + forwarding + "\n  blocking: " + blocking + "\n");
}

// The manager's view of the interfaces, without the record addresses.
std::string interfaceRecords(const Chassis& c) {
    std::string all;
    for (const char* f : {"vornPrintPort 0 1 1", "vornPrintPort 0 2 1", "vornPrintPort 1 2 1",
                          "vornPrintLag 1 1", "vornPrintVlan 0 1"})
        all += shell(c, f);
    return std::regex_replace(all, std::regex(R"(\(Addr: 0x[0-9a-fA-F]+\))"), "(Addr)");
}

TEST(IfmRing, InterfaceEventsMoveTheRingAndARestartedManagerRebuildsItsState) {
    Chassis c;
    ASSERT_TRUE(c.startAndWait()) << c.simLog();
    // The VLANs and Po 1 exist before the ring is configured; then both ring interfaces join
    // VLAN 10 and VLANs 20-30 tagged.
    c.run("sim", "vlan 10,20-30");
    c.run("sim", "lag 1");
    std::string file = c.base() + "/ring5.cfg", out;
    std::ofstream(file) << kRingFive;
    ASSERT_EQ(c.ctl({"-f", file}, &out), 0) << out;
    for (const char* ifName : {"Gi 0/1", "Po 1"}) {
        c.run("sim", std::string("vlan 10 add ") + ifName + " tagged");
        c.run("sim", std::string("vlan 20-30 add ") + ifName + " tagged");
    }
    // Both ports down: the manager owns the ring and blocks everything.
    EXPECT_TRUE(portState(c, "Gi 0/1", "none", "10,20-30"));
    EXPECT_TRUE(portState(c, "Po 1", "none", "10,20-30"));
    EXPECT_TRUE(c.shows("shell", "vornPrintRing 5", "Ring Owned by VORN Mgr   : YES"));

    c.run("sim", "port Gi 0/1 up");
    EXPECT_TRUE(portState(c, "Gi 0/1", "10,20-30", "none"));
    EXPECT_TRUE(portState(c, "Po 1", "none", "10,20-30"));

    // An up member makes Po 1 ready and up: the manager gives the ring to the agent of its
    // card (slot 1), which starts it as master. Nothing joins its ports, so no health frame
    // comes back: after the dead-interval the ring is failed and Po 1 forwards as well.
    c.run("sim", "port Gi 1/2 up");
    std::string joined = c.run("sim", "lag 1 add Gi 1/2");
    EXPECT_NE(joined.find("Po 1 is up; 2 IFM records sent"), std::string::npos) << joined;
    EXPECT_TRUE(portState(c, "Gi 0/1", "10,20-30", "none"));
    ASSERT_TRUE(portState(c, "Po 1", "10,20-30", "none"));

    // Saved (with CR LF line ends), the configuration is replayed by a manager killed and
    // started again, which comes back to the same state.
    std::string config;
    ASSERT_EQ(c.ctl({"show", "running-config"}, &config), 0) << config;
    EXPECT_EQ(trimmedLines(config), kRingFiveRunning) << config;
    ASSERT_EQ(c.ctl({"write", "memory"}, &out), 0) << out;
    EXPECT_EQ(trimmedLines(e2e::slurp(c.rundir() + "/startup-config")), kRingFiveRunning);
    const std::string before = interfaceRecords(c);
    for (const char* seen : {"Details for port 130", "Details for port 195", "Details for port 1 ",
                             "Lag members:", " 195,", "Details for vlan 30"})
        ASSERT_NE(before.find(seen), std::string::npos) << seen << " in\n" << before;

    std::smatch pid;
    std::string status = c.run("sim", "status");
    ASSERT_TRUE(std::regex_search(status, pid, std::regex(R"(running, pid (\d+))"))) << status;
    ASSERT_EQ(kill(std::stoi(pid[1]), SIGKILL), 0);
    ASSERT_TRUE(c.shows("sim", "status", "ended: killed by signal 9"));
    std::string started = c.run("sim", "manager start");
    EXPECT_NE(started.find("it will replay"), std::string::npos) << started;

    EXPECT_TRUE(e2e::eventually(
        [&] {
            std::string now;
            return c.ctl({"show", "running-config"}, &now) == 0 && now == config;
        },
        kSettleMs))
        << c.simLog();
    std::string after;
    EXPECT_TRUE(e2e::eventually(
        [&] {
            after = interfaceRecords(c);
            return after == before;
        },
        kSettleMs))
        << "before:\n"
        << before << "after:\n"
        << after;
    // The new manager learned the interfaces from the download, not from IFM notifications.
    EXPECT_EQ(c.counter("IFM Notification"), 0);
    EXPECT_GE(c.counter("L2PM Notification"), 2);
}

}  // namespace
}  // namespace vorn
