// The lab's plan: switch directories, cables, the ring's configuration, and DIR/lab.conf.

#include "lab/lab.h"

#include <algorithm>
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
    return {
        vornsim,         "--rundir",
        switchDir(p, i), "--cards",
        "0,1",           "--timestamps",
        "--link",        std::string(kEastPort) + "=" + switchDir(p, east(p, i)) + ":" + kWestPort,
        "--link",        std::string(kWestPort) + "=" + switchDir(p, west(p, i)) + ":" + kEastPort};
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

namespace {

// A port's end of a cable: its name and state, coloured by what it does to the member VLANs.
std::string portEnd(const char* side, const char* port, const std::string& state) {
    const char* colour = state == "Blocking"        ? "red"
                         : state == "Preforwarding" ? "orange"
                         : state == "Forwarding"    ? "darkgreen"
                                                    : "grey40";
    return std::string(side) + "=<<font color=\"" + colour + "\">" + port + "<br/>" +
           (state.empty() ? "?" : state) + "</font>>";
}

}  // namespace

std::string ringDot(const Plan& p, const std::vector<SwitchState>& states) {
    std::ostringstream d;
    d << "graph ring {\n  layout=circo; mindist=2.2;\n"
      << "  node [shape=box, style=\"rounded,filled\", fillcolor=white, fontname=Helvetica];\n"
      << "  edge [fontname=Helvetica, fontsize=10, penwidth=2];\n";
    auto at = [&](uint32_t i) { return i <= states.size() ? states[i - 1] : SwitchState{}; };
    for (uint32_t i = 1; i <= p.switches; ++i) {
        SwitchState s = at(i);
        d << "  sw" << i << " [label=\"switch " << i << "\\n"
          << (s.ok ? s.mode + (s.status == "-" ? "" : " " + s.status) : "not answering") << "\"";
        if (!s.ok) d << ", fillcolor=grey80";
        if (i == 1) d << ", penwidth=3";
        d << "];\n";
    }
    for (uint32_t i = 1; i <= p.switches; ++i) {
        uint32_t next = east(p, i);
        SwitchState a = at(i), b = at(next);
        bool down = a.east == "Disabled" || b.west == "Disabled" || !a.ok || !b.ok;
        d << "  sw" << i << " -- sw" << next << " [" << portEnd("taillabel", kEastPort, a.east)
          << ", " << portEnd("headlabel", kWestPort, b.west)
          << (down ? ", style=dashed, color=grey60, label=\"down\"" : "") << "];\n";
    }
    d << "}\n";
    return d.str();
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

Recovery recoveryOf(uint64_t first, uint64_t last, const std::vector<std::vector<ProbeRun>>& seen,
                    uint64_t eventNs) {
    Recovery r;
    if (last < first || seen.empty()) return r;
    const uint64_t n = std::min(last - first, kMaxStreamSpan - 1) + 1;
    last = first + n - 1;
    // How many switches saw each id, from the runs as differences.
    std::vector<int64_t> count(n + 1, 0);
    for (const std::vector<ProbeRun>& runs : seen)
        for (const ProbeRun& run : runs) {
            if (run.last < first || run.first > last || run.last < run.first) continue;
            ++count[std::max(run.first, first) - first];
            --count[std::min(run.last, last) - first + 1];
        }
    const auto everyone = static_cast<int64_t>(seen.size());
    int64_t sum = 0;
    uint64_t stop = n;  // the first id that did not reach everyone
    uint64_t back = n;  // the first id that reached everyone after it
    for (uint64_t i = 0; i < n; ++i) {
        sum += count[i];
        const bool reached = sum == everyone;
        if (!reached && back == n) {
            if (!r.interrupted) stop = i;
            r.interrupted = true;
            ++r.missed;
        } else if (reached && r.interrupted && back == n) {
            back = i;
        } else if (!reached) {
            ++r.lostAfter;
            for (size_t sw = 0; sw < seen.size(); ++sw) {
                const bool saw =
                    std::any_of(seen[sw].begin(), seen[sw].end(), [&](const ProbeRun& run) {
                        return run.first <= first + i && first + i <= run.last;
                    });
                if (!saw && std::find(r.lostAt.begin(), r.lostAt.end(), sw) == r.lostAt.end())
                    r.lostAt.push_back(sw);
            }
        }
    }
    if (!r.interrupted) return r;
    if (back == n) {
        r.recovered = false;
        return r;
    }
    // A switch that missed the first lost probe ends a run just before it, and the switch
    // that saw traffic last before it came back starts one at the first probe back: the runs
    // carry the times those probes were injected.
    uint64_t stoppedNs = eventNs, backNs = eventNs;
    for (const std::vector<ProbeRun>& runs : seen)
        for (const ProbeRun& run : runs) {
            if (stop > 0 && run.last == first + stop - 1)
                stoppedNs = std::max(stoppedNs, run.lastSentNs);
            if (run.first == first + back) backNs = run.firstSentNs;
        }
    auto ms = [](uint64_t from, uint64_t to) {
        return to > from ? static_cast<double>(to - from) / 1e6 : 0;
    };
    r.stoppedMs = ms(eventNs, stoppedNs);
    r.ms = ms(stoppedNs, backNs);
    return r;
}

}  // namespace vorn::lab
