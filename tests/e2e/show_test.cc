// End to end: ring 5 (primary Gi 0/1, secondary Gi 1/1, control VLAN 10, member VLANs 20-30,
// master, hello 100 ms, dead 300 ms) among 255 rings. What an operator sees of the rings through
// vornctl (every ring once across the manager's pages, as text and as JSON); the agent of slot 1
// runs ring 5 (nothing joins its two ports: a lone switch, whose ring fails for want of health
// frames), and a link that goes down reaches L2PM as its report; debugging of ring 5 in vornctl,
// DIR/debug-config and the agent; its counters cleared; a card that goes down hands the ring to the
// manager, and the card coming back gets it again with a full download.

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "chassis.h"

namespace vorn {
namespace {

using e2e::Chassis;
using e2e::words;

std::map<int, int> idsInSummary(const std::string& text) {
    std::map<int, int> ids;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (!line.empty() && std::isdigit(static_cast<unsigned char>(line[0])))
            ++ids[std::stoi(line)];
    return ids;
}

TEST(ShowE2e, RingsAgentDebuggingCountersAndACardAsAnOperatorSeesThem) {
    Chassis c;
    ASSERT_TRUE(c.startAndWait()) << c.simLog();
    for (const char* port : {"Gi 0/1", "Gi 1/1"}) {
        c.run("sim", std::string("vlan 10,20-30 add ") + port + " tagged");
        c.run("sim", std::string("port ") + port + " up");
    }
    EXPECT_EQ(c.run("show", "debugging"), "No VORN ring debugging is on.\n");

    std::string file = c.base() + "/rings.cfg", out;
    std::ofstream cfg(file);
    for (int id = 1; id <= 255; ++id) cfg << "protocol vorn " << id << "\n";
    cfg << "protocol vorn 5\n interface primary Gi 0/1 secondary Gi 1/1 control-vlan 10\n"
           " member-vlan 20-30\n mode master\n timer hello-interval 100\n"
           " timer dead-interval 300\n no disable\n";
    cfg.close();
    ASSERT_EQ(c.ctl({"-f", file}, &out), 0) << out;
    EXPECT_TRUE(
        c.shows("show", "vorn ring 5", "Primary         : GigabitEthernet 0/1, forwarding"));
    // Started as master by the agent of slot 1. No health frame comes back to the secondary
    // (no cable joins the ports): after the dead-interval the ring is failed and the
    // secondary forwards the member VLANs too, as a lone switch should.
    const std::string failed =
        "5     master   Gi 0/1     up    FORW      Gi 1/1     up    FORW      FAILED";
    EXPECT_TRUE(c.shows("sim", "show agents", failed));
    EXPECT_TRUE(c.shows("sim", "show l2pm",
                        "Gi 0/1: forwarding 10,20-30; blocking none\n"
                        "  Gi 1/1: forwarding 10,20-30; blocking none\n"));

    // Every ring once across the pages, in the text and in the JSON.
    std::map<int, int> ids = idsInSummary(c.run("show", "vorn ring summary"));
    EXPECT_EQ(ids.size(), 255u);
    for (const auto& [id, n] : ids) EXPECT_EQ(n, 1) << "ring " << id;
    ASSERT_EQ(c.ctl({"--json", "show", "vorn", "ring", "summary"}, &out), 0);
    nlohmann::json doc = nlohmann::json::parse(out);
    ASSERT_EQ(doc.at("rings").size(), 255u);
    EXPECT_EQ(doc.at("rings").at(4), nlohmann::json::parse(R"({"id": 5, "status": "down",
        "mode": "master", "control_vlan": 10, "member_vlans": "20-30"})"));
    ASSERT_EQ(c.ctl({"--json", "show", "vorn", "ring"}, &out), 0);
    EXPECT_EQ(nlohmann::json::parse(out).at("rings").size(), 255u);

    // Debugging shows in vornctl, in DIR/debug-config and in the designated agent (slot 1);
    // undebug all clears all three.
    c.run("debug", "vorn ring 5 packet tx count 3");
    const std::string setting = "ring 5: packet debugging for Tx (count 3)";
    EXPECT_NE(c.run("show", "debugging").find(setting), std::string::npos);
    EXPECT_NE(e2e::slurp(c.rundir() + "/debug-config")
                  .find(" VORN ring 5 packet debugging is on for Tx (count 3)\r\n"),
              std::string::npos);
    EXPECT_TRUE(c.shows("sim", "show agents", setting));
    c.run("undebug", "all");
    EXPECT_EQ(c.run("show", "debugging"), "No VORN ring debugging is on.\n");
    EXPECT_EQ(e2e::slurp(c.rundir() + "/debug-config"), "");
    EXPECT_TRUE(c.shows("sim", "show agents", "debugging:      none"));

    // The primary's link goes down: only the secondary forwards.
    c.run("sim", "port Gi 0/1 down");
    EXPECT_TRUE(c.shows("sim", "show agents",
                        "5     master   Gi 0/1     down  DISABLED  Gi 1/1     up    FORW      "
                        "FAILED"));
    EXPECT_TRUE(c.shows("sim", "show l2pm",
                        "Gi 0/1: forwarding none; blocking 10,20-30\n"
                        "  Gi 1/1: forwarding 10,20-30; blocking none\n"));
    EXPECT_TRUE(c.shows("sim", "show l2pm", "  Gi 1/1: VLANs 20-30\n"));
    // Back up, it waits PRE-FORW for a ring complete that never comes, and then forwards.
    c.run("sim", "port Gi 0/1 up");
    EXPECT_TRUE(c.shows("sim", "show agents", "Gi 0/1     up    PRE-FORW"));
    EXPECT_TRUE(c.shows("sim", "show agents", failed));
    EXPECT_TRUE(c.shows("shell", "vornGetOperStatus 5", "Ring 5 oper status: 0 (DOWN)"));
    // The agent counted the link coming up; clearing ring 5 zeroes it.
    EXPECT_TRUE(c.shows("show", "vorn ring 5", "Link up events        : 1"));
    c.run("clear", "vorn counters ring 5");
    EXPECT_TRUE(c.shows("show", "vorn ring 5", "Link up events        : 0"));

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
    EXPECT_TRUE(c.shows("sim", "show agents", failed));
    EXPECT_TRUE(c.shows("sim", "show agents", "START_CFG 1, END_CFG 1"));
    EXPECT_TRUE(c.shows("shell", "vornPrintRing 5", "Designated Line Card        : 1 "));
    EXPECT_EQ(c.stop(), 0);
}

}  // namespace
}  // namespace vorn
