// End to end: three chassis cabled into ring 5 (primary Gi 0/1 to the next chassis' secondary
// Gi 1/1; control VLAN 10, member VLANs 20-29; chassis 1 the master). The agents' health
// frames cross the cables and the master's secondary blocks. A cable cut between the two
// transits makes the master's secondary forward: at once on their LINK_DOWN frames, or, with
// the master dropping them, when its dead timer runs out. Restored, the ring is complete again.

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <memory>
#include <string>

#include "chassis.h"

namespace vorn {
namespace {

using e2e::Chassis;

// How many times `what` occurs in `text`.
size_t occurrences(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

TEST(RingCableE2e, ACutBetweenTransitsUnblocksTheMastersSecondaryWithOrWithoutLinkDown) {
    std::array<std::unique_ptr<Chassis>, 3> sw;
    for (auto& c : sw) c = std::make_unique<Chassis>();
    for (size_t i = 0; i < sw.size(); ++i) {
        const Chassis& next = *sw[(i + 1) % sw.size()];
        const Chassis& prev = *sw[(i + sw.size() - 1) % sw.size()];
        sw[i]->start({"--vornctl", VORNCTL_PATH, "--link", "Gi 0/1=" + next.rundir() + ":Gi 1/1",
                      "--link", "Gi 1/1=" + prev.rundir() + ":Gi 0/1"});
    }
    for (size_t i = 0; i < sw.size(); ++i) {
        Chassis& c = *sw[i];
        ASSERT_TRUE(e2e::eventually(
            [&] {
                return c.ctl({"shell", "qelIpcStats"}) == 0;
            },
            20000))
            << c.simLog();
        for (const char* port : {"Gi 0/1", "Gi 1/1"})
            c.run("sim", std::string("vlan 10,20-29 add ") + port + " tagged");
        const std::string file = c.base() + "/ring.cfg";
        std::ofstream(file)
            << "protocol vorn 5\n interface primary Gi 0/1 secondary Gi 1/1 "
               "control-vlan 10\n member-vlan 20-29\n mode "
            << (i == 0 ? "master" : "transit")
            << "\n timer hello-interval 50\n timer dead-interval 300\n no disable\n";
        std::string out;
        ASSERT_EQ(c.ctl({"-f", file}, &out), 0) << out;
    }
    const Chassis& master = *sw[0];
    const std::string complete = "Gi 1/1     up    BLOCKING  COMPLETE";
    const std::string failed = "Gi 1/1     up    FORW      FAILED";
    ASSERT_TRUE(master.shows("sim", "show agents", complete)) << master.simLog();
    for (size_t i = 1; i < sw.size(); ++i)
        EXPECT_TRUE(sw[i]->shows("sim", "show agents", "FORW      LINKS_UP"));

    // The failure's cause is in the master's log: the frame, or its timer.
    const struct {
        const char* drop;
        const char* cause;
    } cases[] = {{"off", "ring 5 LINK_DOWN on Gi"}, {"on", "ring 5 timer: FAILED"}};
    for (const auto& k : cases) {
        SCOPED_TRACE(k.drop);
        master.run("sim", std::string("ring drop-link-down ") + k.drop);
        const size_t before = occurrences(master.simLog(), k.cause);
        sw[1]->run("sim", "cable Gi 0/1 cut");
        EXPECT_TRUE(master.shows("sim", "show l2pm", "Gi 1/1: forwarding 10,20-29"));
        EXPECT_TRUE(master.shows("sim", "show agents", failed));
        EXPECT_EQ(occurrences(master.simLog(), k.cause), before + 1) << master.simLog();
        sw[1]->run("sim", "cable Gi 0/1 restore");
        EXPECT_TRUE(master.shows("sim", "show agents", complete));
        EXPECT_TRUE(master.shows("sim", "show l2pm", "Gi 1/1: forwarding 10; blocking 20-29"));
    }

    // A transit whose ring is disabled runs no node, but bridges the control VLAN like any
    // other: the master's health frames still come round, for longer than a dead-interval.
    master.run("sim", "ring drop-link-down off");
    const std::string file = sw[1]->base() + "/off.cfg";
    std::ofstream(file) << "protocol vorn 5\n disable\n";
    ASSERT_EQ(sw[1]->ctl({"-f", file}), 0);
    EXPECT_TRUE(sw[1]->shows("sim", "show agents", "1 ring (1 designated here, 0 running)"));
    // The bridge's counts: frames bridged, and frames not bridged again (sender and number
    // seen before).
    const auto bridgeCounts = [&] {
        std::string out;
        sw[1]->ctl({"sim", "show cables"}, &out);
        const std::string bridged = "control frames bridged (no ring running here took them): ";
        const std::string seen = "; seen before, not bridged again: ";
        const size_t at = out.find(bridged), seenAt = out.find(seen);
        if (at == std::string::npos || seenAt == std::string::npos) return std::pair{0ul, 0ul};
        return std::pair{std::stoul(out.substr(at + bridged.size())),
                         std::stoul(out.substr(seenAt + seen.size()))};
    };
    const auto bridgedReaches = [&](unsigned long n) {
        return e2e::eventually([&] { return bridgeCounts().first >= n; }, 5000);
    };
    EXPECT_TRUE(bridgedReaches(12));
    EXPECT_TRUE(master.shows("sim", "show agents", complete)) << master.simLog();

    // The master's node restarts twice (a new hello-interval, then the old one) while the
    // transit bridges: its frames keep the switch's numbering, none is taken for one the
    // bridge has seen, and the master never misses its health for a dead-interval.
    const size_t timerFailures = occurrences(master.simLog(), "ring 5 timer: FAILED");
    const size_t restarts = occurrences(master.simLog(), "ring 5 restarted as master");
    const std::string masterFile = master.base() + "/hello.cfg";
    for (int hello : {60, 50}) {
        std::ofstream(masterFile) << "protocol vorn 5\n timer hello-interval " << hello << "\n";
        std::string out;
        ASSERT_EQ(master.ctl({"-f", masterFile}, &out), 0) << out;
        EXPECT_TRUE(bridgedReaches(bridgeCounts().first + 16));  // two dead-intervals
    }
    EXPECT_EQ(occurrences(master.simLog(), "ring 5 restarted as master"), restarts + 2);
    EXPECT_EQ(occurrences(master.simLog(), "ring 5 timer: FAILED"), timerFailures);
    EXPECT_EQ(bridgeCounts().second, 0u);
    EXPECT_TRUE(master.shows("sim", "show agents", complete)) << master.simLog();
    for (auto& c : sw) EXPECT_EQ(c->stop(), 0);
}

}  // namespace
}  // namespace vorn
