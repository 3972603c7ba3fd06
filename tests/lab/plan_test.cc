// The lab's plan: which ports are cabled to which, the ring each switch gets, lab.conf.

#include <gtest/gtest.h>

#include <algorithm>

#include "lab/lab.h"

namespace vorn::lab {
namespace {

TEST(LabPlan, CablesCloseTheRingAndEachEndNamesTheOther) {
    Plan p;
    p.dir = "/l";
    p.switches = 3;
    EXPECT_EQ(simArgs(p, 1, "vs"),
              (std::vector<std::string>{"vs", "--rundir", "/l/sw1", "--cards", "0,1", "--link",
                                        "Gi 0/1=/l/sw2:Gi 1/1", "--link", "Gi 1/1=/l/sw3:Gi 0/1"}));
    EXPECT_EQ(simArgs(p, 3, "vs")[6], "Gi 0/1=/l/sw1:Gi 1/1");
    const struct {
        uint32_t a, b;
        const char* port;
    } cases[] = {
        {1, 2, "Gi 0/1"}, {2, 1, "Gi 1/1"}, {3, 1, "Gi 0/1"}, {1, 3, "Gi 1/1"}, {2, 2, ""}};
    for (const auto& c : cases) EXPECT_EQ(portTowards(p, c.a, c.b), c.port) << c.a << "-" << c.b;
    p.switches = 4;
    EXPECT_EQ(portTowards(p, 1, 3), "") << "not neighbours in a ring of four";
}

TEST(LabPlan, OneMasterAndTheLabConfRoundTrip) {
    Plan p{"/l", 5, "20-29,40", 60, 200};
    EXPECT_NE(ringConfig(p, 1).find(" mode master\n"), std::string::npos);
    EXPECT_NE(ringConfig(p, 2).find(" mode transit\n"), std::string::npos);
    EXPECT_NE(ringConfig(p, 2).find(" interface primary Gi 0/1 secondary Gi 1/1 control-vlan 10\n"),
              std::string::npos);
    Plan q{"/l"};
    std::string err;
    ASSERT_TRUE(parsePlan(renderPlan(p), &q, &err)) << err;
    EXPECT_EQ(renderPlan(q), renderPlan(p));
    EXPECT_FALSE(parsePlan("switches 99\n", &q, &err));
    EXPECT_EQ(err, "switch count 99 is out of range 2..32");
    EXPECT_FALSE(parsePlan("colour blue\n", &q, &err));
}

TEST(LabPlan, TheDrawingMarksTheMasterBlockingPortsAndDownCables) {
    Plan p{"/l", 3};
    std::string dot = ringDot(p, {{true, "Master", "UP", "Forwarding", "Blocking"},
                                  {true, "Transit", "-", "Disabled", "Forwarding"},
                                  SwitchState{}});
    EXPECT_NE(dot.find("sw1 [label=\"switch 1\\nMaster UP\", penwidth=3]"), std::string::npos)
        << dot;
    EXPECT_NE(dot.find("sw3 [label=\"switch 3\\nnot answering\", fillcolor=grey80]"),
              std::string::npos);
    // 3-1: switch 1's west blocks; 2-3: switch 2's east is down; 1-2: both ends forward.
    EXPECT_NE(dot.find("headlabel=<<font color=\"red\">Gi 1/1<br/>Blocking</font>>"),
              std::string::npos);
    EXPECT_NE(dot.find("sw2 -- sw3 [taillabel=<<font color=\"grey40\">Gi 0/1<br/>Disabled"),
              std::string::npos);
    EXPECT_EQ(
        dot.find("sw1 -- sw2 [taillabel=<<font color=\"darkgreen\">Gi 0/1<br/>Forwarding</font>>, "
                 "headlabel=<<font color=\"darkgreen\">Gi 1/1<br/>Forwarding</font>>];"),
        dot.find("sw1 -- sw2"));
    // 2-3 (a port down) and 3-1 (a switch not answering) are drawn down; 1-2 is whole.
    size_t dashed = 0;
    for (size_t at = dot.find("style=dashed"); at != std::string::npos;
         at = dot.find("style=dashed", at + 1))
        ++dashed;
    EXPECT_EQ(dashed, 2u);
}

}  // namespace
}  // namespace vorn::lab
