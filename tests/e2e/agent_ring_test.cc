// End to end: ring 5 (primary Gi 0/1, secondary Gi 1/1, control VLAN 10, member VLANs 20-30,
// master) is run by the agent of slot 1; a link that goes down reaches L2PM as the agent's
// report; a card that goes down hands the ring to the manager, and the card coming back gets
// it again with a full download.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "chassis.h"

namespace vorn {
namespace {

using e2e::Chassis;

constexpr int kSettleMs = 10000;

std::vector<std::string> words(const std::string& first, const std::string& line) {
    std::vector<std::string> out = {first};
    std::istringstream in(line);
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

std::string run(const Chassis& c, const std::string& first, const std::string& line) {
    std::string out;
    EXPECT_EQ(c.ctl(words(first, line), &out), 0) << line << ": " << out;
    return out;
}

// Waits until what `first line` shows holds `want`.
::testing::AssertionResult shows(const Chassis& c, const std::string& first,
                                 const std::string& line, const std::string& want) {
    std::string last;
    if (e2e::eventually(
            [&] {
                last = run(c, first, line);
                return last.find(want) != std::string::npos;
            },
            kSettleMs))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << first << " " << line << ": wanted\n"
                                         << want << "\ngot\n"
                                         << last;
}

TEST(AgentRing, TheDesignatedAgentRunsTheRingAndACardDownHandsItToTheManager) {
    Chassis c;
    c.start({"--vornctl", VORNCTL_PATH});
    ASSERT_TRUE(e2e::eventually([&c] { return c.ctl({"shell", "qelIpcStats"}) == 0; }, 20000))
        << c.simLog();
    for (const char* port : {"Gi 0/1", "Gi 1/1"}) {
        run(c, "sim", std::string("vlan 10,20-30 add ") + port + " tagged");
        run(c, "sim", std::string("port ") + port + " up");
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
    EXPECT_TRUE(shows(c, "sim", "show agents", complete));
    EXPECT_TRUE(shows(c, "sim", "show l2pm",
                      "Gi 0/1: forwarding 10,20-30; blocking none\n"
                      "  Gi 1/1: forwarding 10; blocking 20-30\n"));

    // The primary's link goes down: the master unblocks its secondary and flushes it.
    run(c, "sim", "port Gi 0/1 down");
    EXPECT_TRUE(shows(c, "sim", "show agents",
                      "5     master   Gi 0/1     down  DISABLED  Gi 1/1     up    FORW      "
                      "broken"));
    EXPECT_TRUE(shows(c, "sim", "show l2pm",
                      "Gi 0/1: forwarding none; blocking 10,20-30\n"
                      "  Gi 1/1: forwarding 10,20-30; blocking none\n"));
    EXPECT_TRUE(shows(c, "sim", "show l2pm", "  Gi 1/1: VLANs 20-30\n"));
    run(c, "sim", "port Gi 0/1 up");
    EXPECT_TRUE(shows(c, "sim", "show agents", complete));
    EXPECT_TRUE(shows(c, "shell", "vornGetOperStatus 5", "Ring 5 oper status: 1 (UP)"));

    // The card of the secondary goes down: the ring has no other card, so the manager takes
    // its ports and tells the agents to stop it.
    std::string down = run(c, "sim", "card down 1");
    EXPECT_NE(down.find("agent 227.1 silenced"), std::string::npos) << down;
    EXPECT_TRUE(shows(c, "shell", "vornPrintRing 5", "Designated Line Card        : 12 "));
    EXPECT_TRUE(shows(c, "shell", "vornPrintRing 5", "Ring Owned by VORN Mgr   : YES"));
    EXPECT_TRUE(shows(c, "sim", "show l2pm", "Gi 0/1: forwarding 10,20-30; blocking none\n"));

    // It comes back: a fresh agent registers, gets everything again and runs the ring.
    std::string up = run(c, "sim", "card up 1");
    EXPECT_NE(up.find("agent 227.1 started"), std::string::npos) << up;
    EXPECT_TRUE(shows(c, "sim", "show agents", complete));
    EXPECT_TRUE(shows(c, "sim", "show agents", "START_CFG 1, END_CFG 1"));
    EXPECT_TRUE(shows(c, "shell", "vornPrintRing 5", "Designated Line Card        : 1 "));
    EXPECT_EQ(c.stop(), 0);
}

}  // namespace
}  // namespace vorn
