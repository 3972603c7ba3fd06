// End to end: a refusal of a configuration command reaches the operator as a sentence with
// a failing exit status, and changes nothing: not the running configuration, not the
// manager's rings, not what L2PM was sent, not the ports the manager owns.

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "chassis.h"

namespace vorn::e2e {
namespace {

// What the refusals must leave as it was.
struct Snapshot {
    std::string runningConfig;
    std::string rings;       // vornPrintRing 0, without record addresses
    std::string l2pmGot;     // the SWP messages L2PM acknowledged, by type
    std::string ownedPorts;  // the ports L2PM handed to the manager
    bool operator==(const Snapshot&) const = default;
};

std::string lineWith(const std::string& text, const std::string& start) {
    size_t at = text.find(start);
    if (at == std::string::npos) return "";
    return text.substr(at, text.find('\n', at) - at);
}

Snapshot snapshot(const Chassis& c) {
    Snapshot s;
    c.ctl({"show", "running-config"}, &s.runningConfig);
    c.ctl({"shell", "vornPrintRing", "0"}, &s.rings);
    s.rings = std::regex_replace(s.rings, std::regex("\\(Addr: [^)]*\\)"), "");
    std::string status, l2pm;
    c.ctl({"sim", "status"}, &status);
    s.l2pmGot = lineWith(status, "got over SWP:");
    c.ctl({"sim", "show", "l2pm"}, &l2pm);
    s.ownedPorts = lineWith(l2pm, "ports owned by the manager:");
    return s;
}

TEST(ConfigRefusal, EachRefusalIsASentenceAndChangesNothing) {
    Chassis c;
    c.start();
    ASSERT_TRUE(eventually([&] { return c.counter("L2PM reg success") == 1; }, 10000))
        << c.simLog();
    for (const char* line :
         {"protocol vorn 5 interface primary Gi 0/1 secondary Gi 1/1 control-vlan 10",
          "protocol vorn 5 member-vlan 20-30", "protocol vorn 6", "sim l2pm refuse-port Gi 0/3",
          "sim l2pm refuse-port Gi 1/4", "sim ifm refuse-vlan 50"}) {
        std::string out;
        ASSERT_EQ(c.ctl(words(line), &out), 0) << line << ": " << out;
    }

    // The refusals of the manager alone, each with its sentence, are covered by the unit
    // tests; these involve the peers, whose state must not change either.
    struct Case {
        const char* line;  // after "protocol vorn 6"
        const char* sentence;
        // IFM is asked about the control VLAN only after the ring interfaces were taken from
        // L2PM, and its refusal does not give them back: they stay owned.
        bool keepsPortsTaken = false;
    } cases[] = {
        {"interface primary Gi 0/2 secondary Gi 1/2 control-vlan 10",
         "VLAN 10 is already the control VLAN of another ring"},
        {"interface primary Gi 0/3 secondary Gi 1/3 control-vlan 40",
         "L2PM refused to hand over the primary interface"},
        {"interface primary Gi 0/4 secondary Gi 1/4 control-vlan 40",
         "L2PM refused to hand over the secondary interface"},
        {"interface primary Gi 0/5 secondary Gi 1/5 control-vlan 50",
         "VLAN 50 cannot be a control VLAN: the interface manager refused it", true},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.line);
        Snapshot before = snapshot(c);
        std::string out;
        EXPECT_EQ(c.ctl(words(std::string("protocol vorn 6 ") + k.line), &out), 1) << out;
        EXPECT_NE(out.find(std::string("% Error: ") + k.sentence), std::string::npos) << out;
        Snapshot after = snapshot(c);
        EXPECT_EQ(after.runningConfig, before.runningConfig);
        EXPECT_EQ(after.rings, before.rings);
        EXPECT_EQ(after.l2pmGot, before.l2pmGot);
        if (!k.keepsPortsTaken) {
            EXPECT_EQ(after.ownedPorts, before.ownedPorts);
        }
    }

    // Values out of range never reach the manager.
    std::string out;
    EXPECT_EQ(c.ctl({"protocol", "vorn", "256"}, &out), 2);
    EXPECT_NE(out.find("256"), std::string::npos) << out;
}

}  // namespace
}  // namespace vorn::e2e
