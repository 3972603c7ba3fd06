// vornlab: a lab of simulated switches joined in a ring. Switch i (1..N) is a vornsim with
// its manager and two cards in DIR/swI; its port Gi 0/1 (east) is cabled to Gi 1/1 (west) of
// switch i+1, and the last switch's east to the first's west. Every switch runs ring 1 with
// control VLAN 10 on those two ports (primary east, secondary west); switch 1 is the master.
//
// The lab's plan is kept in DIR/lab.conf, so that later commands (cut, show, down) find the
// switches of a lab that `up` started.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vorn::lab {

inline constexpr uint32_t kMinSwitches = 2;
inline constexpr uint32_t kMaxSwitches = 32;
inline constexpr uint16_t kRingId = 1;
inline constexpr uint16_t kControlVlan = 10;
inline constexpr const char* kEastPort = "Gi 0/1";
inline constexpr const char* kWestPort = "Gi 1/1";

struct Plan {
    std::string dir;
    uint32_t switches = 4;
    std::string memberVlans = "20-29";
    uint32_t helloMs = 50;
    uint32_t deadMs = 150;
};

// The run directory of switch i (1-based).
std::string switchDir(const Plan& p, uint32_t i);
// The vornsim command line of switch i.
std::vector<std::string> simArgs(const Plan& p, uint32_t i, const std::string& vornsim);
// The configuration switch i gets through vornctl -f.
std::string ringConfig(const Plan& p, uint32_t i);
// The simulator commands that make the ring's VLANs on switch i's ring ports.
std::vector<std::string> vlanCommands(const Plan& p);
// The port of switch a that is cabled to switch b, or "" when the two are not neighbours.
std::string portTowards(const Plan& p, uint32_t a, uint32_t b);

// What one switch's manager shows of the ring; ok false when it could not be asked.
struct SwitchState {
    bool ok = false;
    std::string mode{}, status{};  // "Master" / "Transit"; "UP", "DOWN", "-"
    std::string east{},
        west{};  // port states: "Forwarding", "Blocking", "Preforwarding", "Disabled"
};
// The ring as a Graphviz graph (switches in a circle, the cables between them): the master
// drawn bold, blocking ports red, pre-forwarding ports orange, a cable with a port down
// dashed and grey, a switch that did not answer grey. states[i - 1] is switch i.
std::string ringDot(const Plan& p, const std::vector<SwitchState>& states);

// One switch's sightings of a probe stream: consecutive ids it saw, with the times (ns of
// the monotonic clock) the first and the last of them were injected.
struct ProbeRun {
    uint64_t first = 0, firstSentNs = 0, last = 0, lastSentNs = 0;
};
// What a probe stream with ids [first, last] shows of an event at eventNs. Traffic stops at
// the event, or later: a restored link costs nothing until the master blocks its secondary
// again, which it does when its health frame has come round. So the recovery time runs from
// the later of the event and the injection of the last probe that reached every switch
// before the interruption.
struct Recovery {
    bool interrupted = false;      // some probe missed some switch
    bool recovered = true;         // from some probe on, every probe reached every switch
    double ms = 0;                 // from the interruption to when that probe was injected
    double stoppedMs = 0;          // from the event to the interruption
    uint64_t missed = 0;           // probes that missed a switch, before that probe
    uint64_t lostAfter = 0;        // ... and after it: traffic lost once more
    std::vector<size_t> lostAt{};  // the switches (indexes into seen) that lost it
};
// seen[i] holds switch i's runs. Spans of more than kMaxStreamSpan ids are cut to it.
inline constexpr uint64_t kMaxStreamSpan = 1u << 20;
Recovery recoveryOf(uint64_t first, uint64_t last, const std::vector<std::vector<ProbeRun>>& seen,
                    uint64_t eventNs);

// DIR/lab.conf: written by `up`, read by the other commands.
std::string renderPlan(const Plan& p);
bool parsePlan(const std::string& text, Plan* p, std::string* err);

}  // namespace vorn::lab
