// End to end: interface events of the simulated chassis drive ring 5 (primary Gi 0/1,
// secondary Po 1, control VLAN 10, member VLANs 20-30, master) through the manager to the
// forwarding state that L2PM programs; and a manager killed and started again under the
// running chassis rebuilds its interfaces from L2PM's download and its rings from the saved
// startup configuration.

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <string>

#include "chassis.h"

namespace vorn {
namespace {

using e2e::Chassis;

constexpr int kSettleMs = 10000;

const char* const kRingFive =
    "protocol vorn 5\n"
    " interface primary Gi 0/1 secondary Po 1 control-vlan 10\n"
    " member-vlan 20-30\n"
    " mode master\n"
    " no disable\n";

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

// The chassis and ring 5 as the tests want them: the VLANs and Po 1 exist before the ring
// is configured, then both ring interfaces join VLAN 10 tagged and VLANs 20-30.
void configureRing(Chassis& c) {
    c.run("sim", "vlan 10,20-30");
    c.run("sim", "lag 1");
    std::string file = c.base() + "/ring5.cfg", out;
    std::ofstream(file) << kRingFive;
    ASSERT_EQ(c.ctl({"-f", file}, &out), 0) << out;
    for (const char* ifName : {"Gi 0/1", "Po 1"}) {
        c.run("sim", std::string("vlan 10 add ") + ifName + " tagged");
        c.run("sim", std::string("vlan 20-30 add ") + ifName + " tagged");
    }
}

TEST(IfmRing, InterfaceEventsMoveTheRingsForwardingState) {
    Chassis c;
    ASSERT_TRUE(c.startAndWait()) << c.simLog();
    configureRing(c);
    // Both ports down: the manager owns the ring and blocks everything.
    EXPECT_TRUE(portState(c, "Gi 0/1", "none", "10,20-30"));
    EXPECT_TRUE(portState(c, "Po 1", "none", "10,20-30"));
    EXPECT_NE(shell(c, "vornPrintRing 5").find("Ring Owned by VORN Mgr   : YES"),
              std::string::npos);

    c.run("sim", "port Gi 0/1 up");
    EXPECT_TRUE(portState(c, "Gi 0/1", "10,20-30", "none"));
    EXPECT_TRUE(portState(c, "Po 1", "none", "10,20-30"));

    c.run("sim", "port gi0/1 down");
    EXPECT_TRUE(portState(c, "Gi 0/1", "none", "10,20-30"));
    c.run("sim", "port gi0/1 up");
    EXPECT_TRUE(portState(c, "Gi 0/1", "10,20-30", "none"));

    // An up member makes Po 1 ready and up: the manager gives the ring to the agent of its
    // card (slot 1), which starts it as master: the primary forwards, the secondary blocks
    // the member VLANs.
    c.run("sim", "port Gi 1/2 up");
    std::string joined = c.run("sim", "lag 1 add Gi 1/2");
    EXPECT_NE(joined.find("Po 1 is up; 2 IFM records sent"), std::string::npos) << joined;
    EXPECT_TRUE(portState(c, "Gi 0/1", "10,20-30", "none"));
    EXPECT_TRUE(portState(c, "Po 1", "10", "20-30"));
    EXPECT_NE(shell(c, "vornPrintRing 5").find("Port Ready               : YES"),
              std::string::npos);
}

// The manager's view of the interfaces, without the record addresses.
std::string interfaceRecords(const Chassis& c) {
    std::string all;
    for (const char* f : {"vornPrintPort 0 1 1", "vornPrintPort 0 2 1", "vornPrintPort 1 2 1",
                          "vornPrintLag 1 1", "vornPrintVlan 0 1"})
        all += shell(c, f);
    return std::regex_replace(all, std::regex(R"(\(Addr: 0x[0-9a-fA-F]+\))"), "(Addr)");
}

TEST(IfmRing, AManagerKilledAndStartedAgainRebuildsItsStateUnderTheRunningChassis) {
    Chassis c;
    ASSERT_TRUE(c.startAndWait()) << c.simLog();
    configureRing(c);
    c.run("sim", "port Gi 0/1 up");
    c.run("sim", "port Gi 1/2 up");
    c.run("sim", "lag 1 add Gi 1/2");
    ASSERT_TRUE(portState(c, "Po 1", "10", "20-30"));  // the agent of slot 1 runs the ring
    std::string out;
    ASSERT_EQ(c.ctl({"write", "memory"}, &out), 0) << out;
    std::string config;
    ASSERT_EQ(c.ctl({"show", "running-config"}, &config), 0) << config;
    const std::string before = interfaceRecords(c);
    for (const char* seen : {"Details for port 130", "Details for port 195", "Details for port 1 ",
                             "Lag members:", " 195,", "Details for vlan 30"})
        ASSERT_NE(before.find(seen), std::string::npos) << seen << " in\n" << before;

    std::smatch pid;
    std::string status = c.run("sim", "status");
    ASSERT_TRUE(std::regex_search(status, pid, std::regex(R"(running, pid (\d+))"))) << status;
    ASSERT_EQ(kill(std::stoi(pid[1]), SIGKILL), 0);
    ASSERT_TRUE(e2e::eventually(
        [&] {
            return c.run("sim", "status").find("ended: killed by signal 9") != std::string::npos;
        },
        kSettleMs));
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
