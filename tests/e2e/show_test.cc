// End to end: what an operator sees of 255 rings through vornctl (every ring once across the
// manager's pages, as text and as JSON), debugging of ring 5 in vornctl, DIR/debug-config and
// the agent, and its counters cleared in the agent and in the show.

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

TEST(ShowE2e, RingsDebuggingAndCountersAsAnOperatorSeesThem) {
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
           " member-vlan 20-30\n mode master\n no disable\n";
    cfg.close();
    ASSERT_EQ(c.ctl({"-f", file}, &out), 0) << out;
    EXPECT_TRUE(
        c.shows("show", "vorn ring 5", "Primary         : GigabitEthernet 0/1, forwarding"));

    // Every ring once across the pages, in the text and in the JSON.
    std::map<int, int> ids = idsInSummary(c.run("show", "vorn ring summary"));
    EXPECT_EQ(ids.size(), 255u);
    for (const auto& [id, n] : ids) EXPECT_EQ(n, 1) << "ring " << id;
    ASSERT_EQ(c.ctl({"--json", "show", "vorn", "ring", "summary"}, &out), 0);
    nlohmann::json doc = nlohmann::json::parse(out);
    ASSERT_EQ(doc.at("rings").size(), 255u);
    EXPECT_EQ(doc.at("rings").at(4), nlohmann::json::parse(R"({"id": 5, "status": "up",
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

    // A link that goes down and up is counted by the agent; clearing ring 5 zeroes it.
    c.run("sim", "port Gi 0/1 down");
    c.run("sim", "port Gi 0/1 up");
    EXPECT_TRUE(c.shows("show", "vorn ring 5", "Link up events        : 1"));
    c.run("clear", "vorn counters ring 5");
    EXPECT_TRUE(c.shows("show", "vorn ring 5", "Link up events        : 0"));
    ASSERT_EQ(c.ctl({"--json", "sim", "show", "agents"}, &out), 0);
    const nlohmann::json agents = nlohmann::json::parse(out);
    for (const auto& agent : agents.at("agents"))
        for (const auto& ring : agent.value("rings", nlohmann::json::array()))
            if (ring.at("id") == 5) {
                EXPECT_EQ(ring.at("counters").at("link_up"), 0);
            }
    EXPECT_EQ(c.stop(), 0);
}

}  // namespace
}  // namespace vorn
