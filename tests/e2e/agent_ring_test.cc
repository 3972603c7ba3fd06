// End to end: ring 5 (primary Gi 0/1, secondary Gi 1/1, control VLAN 10, member VLANs 20-30,
// master) is run by the agent of slot 1; a link that goes down reaches L2PM as the agent's
// report; a card that goes down hands the ring to the manager, and the card coming back gets
// it again with a full download.

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "chassis.h"

namespace vorn {
namespace {

using e2e::Chassis;

TEST(AgentRing, TheDesignatedAgentRunsTheRingAndACardDownHandsItToTheManager) {
    Chassis c;
    ASSERT_TRUE(c.startAndWait()) << c.simLog();
    for (const char* port : {"Gi 0/1", "Gi 1/1"}) {
        c.run("sim", std::string("vlan 10,20-30 add ") + port + " tagged");
        c.run("sim", std::string("port ") + port + " up");
    }
    std::string file = c.base() + "/ring5.cfg", out;
    std::ofstream(file) << "protocol vorn 5\n"
                           " interface primary Gi 0/1 secondary Gi 1/1 control-vlan 10\n"
                           " member-vlan 20-30\n"
                           " mode master\n"
                           " no disable\n";
    ASSERT_EQ(c.ctl({"-f", file}, &out), 0) << out;

    // Started as master by the agent of slot 1: the secondary blocks the member VLANs.
    const std::string complete =
        "5     master   Gi 0/1     up    FORW      Gi 1/1     up    BLOCKING  complete";
    EXPECT_TRUE(c.shows("sim", "show agents", complete));
    EXPECT_TRUE(c.shows("sim", "show l2pm",
                        "Gi 0/1: forwarding 10,20-30; blocking none\n"
                        "  Gi 1/1: forwarding 10; blocking 20-30\n"));

    // The primary's link goes down: the master unblocks its secondary and flushes it.
    c.run("sim", "port Gi 0/1 down");
    EXPECT_TRUE(c.shows("sim", "show agents",
                        "5     master   Gi 0/1     down  DISABLED  Gi 1/1     up    FORW      "
                        "broken"));
    EXPECT_TRUE(c.shows("sim", "show l2pm",
                        "Gi 0/1: forwarding none; blocking 10,20-30\n"
                        "  Gi 1/1: forwarding 10,20-30; blocking none\n"));
    EXPECT_TRUE(c.shows("sim", "show l2pm", "  Gi 1/1: VLANs 20-30\n"));
    c.run("sim", "port Gi 0/1 up");
    EXPECT_TRUE(c.shows("sim", "show agents", complete));
    EXPECT_TRUE(c.shows("shell", "vornGetOperStatus 5", "Ring 5 oper status: 1 (UP)"));

    // The card of the secondary goes down: the ring has no other card, so the manager takes
    // its ports and tells the agents to stop it.
    std::string down = c.run("sim", "card down 1");
    EXPECT_NE(down.find("agent 227.1 silenced"), std::string::npos) << down;
    EXPECT_TRUE(c.shows("shell", "vornPrintRing 5", "Designated Line Card        : 12 "));
    EXPECT_TRUE(c.shows("shell", "vornPrintRing 5", "Ring Owned by VORN Mgr   : YES"));
    EXPECT_TRUE(c.shows("sim", "show l2pm", "Gi 0/1: forwarding 10,20-30; blocking none\n"));

    // It comes back: a fresh agent registers, gets everything again and runs the ring.
    std::string up = c.run("sim", "card up 1");
    EXPECT_NE(up.find("agent 227.1 started"), std::string::npos) << up;
    EXPECT_TRUE(c.shows("sim", "show agents", complete));
    EXPECT_TRUE(c.shows("sim", "show agents", "START_CFG 1, END_CFG 1"));
    EXPECT_TRUE(c.shows("shell", "vornPrintRing 5", "Designated Line Card        : 1 "));
}

}  // namespace
}  // namespace vorn
