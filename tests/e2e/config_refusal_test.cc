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

std::string lineWith(const std::string& text, const std::string& start) {
    size_t at = text.find(start);
    if (at == std::string::npos) return "";
    return text.substr(at, text.find('\n', at) - at);
}

// What a refusal must leave as it was: the running configuration, the manager's rings
// (without record addresses), the SWP messages L2PM acknowledged, by type, and (with `ports`)
// the ports L2PM handed to the manager.
std::string snapshot(const Chassis& c, bool ports) {
    std::string config, rings, status, l2pm;
    c.ctl({"show", "running-config"}, &config);
    c.ctl({"shell", "vornPrintRing", "0"}, &rings);
    c.ctl({"sim", "status"}, &status);
    c.ctl({"sim", "show", "l2pm"}, &l2pm);
    return config + std::regex_replace(rings, std::regex("\\(Addr: [^)]*\\)"), "") +
           lineWith(status, "got over SWP:") +
           (ports ? lineWith(l2pm, "ports owned by the manager:") : "");
}

TEST(ConfigRefusal, EachRefusalIsASentenceAndChangesNothing) {
    Chassis c;
    ASSERT_TRUE(c.startAndWait()) << c.simLog();
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
        const std::string before = snapshot(c, !k.keepsPortsTaken);
        std::string out;
        EXPECT_EQ(c.ctl(words(std::string("protocol vorn 6 ") + k.line), &out), 1) << out;
        EXPECT_NE(out.find(std::string("% Error: ") + k.sentence), std::string::npos) << out;
        EXPECT_EQ(snapshot(c, !k.keepsPortsTaken), before);
    }
}

}  // namespace
}  // namespace vorn::e2e
