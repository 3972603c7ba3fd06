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
              (std::vector<std::string>{"vs", "--rundir", "/l/sw1", "--cards", "0,1",
                                        "--timestamps", "--link", "Gi 0/1=/l/sw2:Gi 1/1", "--link",
                                        "Gi 1/1=/l/sw3:Gi 0/1"}));
    EXPECT_EQ(simArgs(p, 3, "vs")[7], "Gi 0/1=/l/sw1:Gi 1/1");
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

// Runs of three switches over probe ids 100..109, injected 1 ms apart from 1000 ms on; the
// event happens at 1002 ms (probe 102).
TEST(LabPlan, RecoveryIsWhenTheFirstProbeReachedEverySwitchAgain) {
    constexpr uint64_t kMs = 1000000, kEvent = 1002 * kMs;
    auto run = [](uint64_t a, uint64_t b) {
        return ProbeRun{a, (900 + a) * kMs, b, (900 + b) * kMs};
    };
    const std::vector<ProbeRun> all = {run(100, 109)};
    const struct {
        const char* name;
        std::vector<std::vector<ProbeRun>> seen;
        bool interrupted, recovered;
        double stoppedMs, ms;
        uint64_t missed, lostAfter;
    } cases[] = {
        {"nothing missed", {all, all, all}, false, true, 0, 0, 0, 0},
        {"one switch misses 103-105",
         {all, {run(100, 102), run(106, 109)}, all},
         true,
         true,
         0,
         4,
         3,
         0},
        {"the later of two resumptions counts",
         {{run(100, 102), run(105, 109)}, {run(100, 102), run(107, 109)}, all},
         true,
         true,
         0,
         5,
         4,
         0},
        {"traffic stops after the event, as on a restore",
         {all, all, {run(100, 106), run(109, 109)}},
         true,
         true,
         4,
         3,
         2,
         0},
        {"never resumes", {all, {run(100, 106)}, all}, true, false, 0, 0, 3, 0},
        {"lost again after recovery",
         {all, {run(100, 102), run(105, 106), run(108, 109)}, all},
         true,
         true,
         0,
         3,
         2,
         1},
        {"missed before the event: no negative time",
         {{run(101, 109)}, all, all},
         true,
         true,
         0,
         0,
         1,
         0},
        {"runs outside the span are cut to it",
         {{run(90, 120)}, all, all},
         false,
         true,
         0,
         0,
         0,
         0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Recovery r = recoveryOf(100, 109, c.seen, kEvent);
        EXPECT_EQ(r.interrupted, c.interrupted);
        EXPECT_EQ(r.recovered, c.recovered);
        EXPECT_DOUBLE_EQ(r.stoppedMs, c.stoppedMs);
        EXPECT_DOUBLE_EQ(r.ms, c.ms);
        EXPECT_EQ(r.missed, c.missed);
        EXPECT_EQ(r.lostAfter, c.lostAfter);
        EXPECT_EQ(r.lostAt, c.lostAfter > 0 ? std::vector<size_t>{1} : std::vector<size_t>{});
    }
}

}  // namespace
}  // namespace vorn::lab
