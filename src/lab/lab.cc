// The lab's plan: switch directories, cables, the ring's configuration, and DIR/lab.conf.

#include "lab/lab.h"

#include <sstream>

#include "platform/number.h"

namespace vorn::lab {
namespace {

// The neighbours of switch i in the ring, 1-based.
uint32_t east(const Plan& p, uint32_t i) {
    return i % p.switches + 1;
}
uint32_t west(const Plan& p, uint32_t i) {
    return i == 1 ? p.switches : i - 1;
}

}  // namespace

std::string switchDir(const Plan& p, uint32_t i) {
    return p.dir + "/sw" + std::to_string(i);
}

std::vector<std::string> simArgs(const Plan& p, uint32_t i, const std::string& vornsim) {
    return {vornsim,
            "--rundir",
            switchDir(p, i),
            "--cards",
            "0,1",
            "--link",
            std::string(kEastPort) + "=" + switchDir(p, east(p, i)) + ":" + kWestPort,
            "--link",
            std::string(kWestPort) + "=" + switchDir(p, west(p, i)) + ":" + kEastPort};
}

std::string ringConfig(const Plan& p, uint32_t i) {
    std::ostringstream s;
    s << "protocol vorn " << kRingId << "\n"
      << " interface primary " << kEastPort << " secondary " << kWestPort << " control-vlan "
      << kControlVlan << "\n"
      << " member-vlan " << p.memberVlans << "\n"
      << " mode " << (i == 1 ? "master" : "transit") << "\n"
      << " timer hello-interval " << p.helloMs << "\n"
      << " timer dead-interval " << p.deadMs << "\n"
      << " no disable\n";
    return s.str();
}

std::vector<std::string> vlanCommands(const Plan& p) {
    std::vector<std::string> out;
    for (const char* port : {kEastPort, kWestPort}) {
        out.push_back("vlan " + std::to_string(kControlVlan) + " add " + port + " tagged");
        out.push_back("vlan " + p.memberVlans + " add " + port + " tagged");
    }
    return out;
}

std::string portTowards(const Plan& p, uint32_t a, uint32_t b) {
    if (a == b) return "";
    if (east(p, a) == b) return kEastPort;
    if (west(p, a) == b) return kWestPort;
    return "";
}

std::string renderPlan(const Plan& p) {
    std::ostringstream s;
    s << "switches " << p.switches << "\nmember-vlans " << p.memberVlans << "\nhello " << p.helloMs
      << "\ndead " << p.deadMs << "\n";
    return s.str();
}

bool parsePlan(const std::string& text, Plan* p, std::string* err) {
    std::istringstream in(text);
    std::string key, value;
    while (in >> key >> value) {
        bool ok = true;
        if (key == "switches")
            ok =
                number::parse(value, kMinSwitches, kMaxSwitches, "switch count", &p->switches, err);
        else if (key == "member-vlans")
            p->memberVlans = value;
        else if (key == "hello")
            ok = number::parse(value, 1, 60000, "hello-interval", &p->helloMs, err);
        else if (key == "dead")
            ok = number::parse(value, 1, 60000, "dead-interval", &p->deadMs, err);
        else
            ok = (*err = "unknown setting '" + key + "'").empty();
        if (!ok) return false;
    }
    return true;
}

}  // namespace vorn::lab
