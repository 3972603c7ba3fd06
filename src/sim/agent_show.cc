// The agents as text for the operator ("vornctl sim show agents", "sim status") and as JSON.

#include <cstdio>

#include "cli/rings.h"
#include "cli/syntax.h"
#include "platform/swp.h"
#include "sim/agent.h"

namespace vorn::sim {
namespace {

namespace rc = agt::rcfg;

std::string plural(uint64_t n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string hex(uint32_t v, int width = 0) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%0*x", width, v);
    return text;
}

const char* linkWord(const std::map<uint32_t, Agent::Interface>& interfaces, uint32_t ifIndex) {
    auto it = interfaces.find(ifIndex);
    if (it == interfaces.end()) return "up?";  // never described by the manager: taken to be up
    return it->second.operUp ? "up" : "down";
}

// The ring protocol's state of the node ("COMPLETE", "PRE_FORWARDING", ...), "stopped".
const char* protocolState(const Agent::Node& n) {
    return n.proto ? ringproto::nodeStateName(n.proto->state()) : "stopped";
}

std::string ringTable(const Agent& a) {
    std::string s;
    char line[200];
    const char* fmt = "  %-5s %-8s %-10s %-5s %-9s %-10s %-5s %-9s %-15s %-8s %s\n";
    std::snprintf(line, sizeof(line), fmt, "ring", "mode", "primary", "link", "state", "secondary",
                  "link", "state", "protocol", "reports", "flushes");
    s += line;
    for (const auto& [id, ring] : a.rings()) {
        const Agent::Node& n = ring.node;
        if (!n.running) continue;
        std::snprintf(line, sizeof(line), fmt, std::to_string(id).c_str(),
                      n.mode == rc::kModeMaster ? "master" : "transit",
                      cli::shortIfName(n.primary).c_str(), linkWord(a.interfaces(), n.primary),
                      portStateName(n.priState).c_str(), cli::shortIfName(n.secondary).c_str(),
                      linkWord(a.interfaces(), n.secondary), portStateName(n.secState).c_str(),
                      protocolState(n), std::to_string(ring.stats[Agent::kStatRecords]).c_str(),
                      std::to_string(ring.stats[Agent::kStatFlushes]).c_str());
        s += line;
    }
    return s;
}

// A ring's debug settings in the words of vornctl's "show debugging".
std::vector<cli::DebugSetting> debugSettings(uint16_t ringId, const Agent::RingDebug& ring) {
    std::vector<cli::DebugSetting> out;
    for (size_t i = 0; i < ring.size(); ++i)
        if (ring[i].on) out.push_back({ringId, static_cast<int>(i), ring[i].count});
    return out;
}

}  // namespace

std::string portStateName(uint32_t state) {
    switch (state) {
        case agt::kStateDisabled:
            return "DISABLED";
        case agt::kStatePreForwarding:
            return "PRE-FORW";
        case agt::kStateForwarding:
            return "FORW";
        case agt::kStateBlocking:
            return "BLOCKING";
        case agt::kStateNone:
            return "NONE";
        default:
            return std::to_string(state);
    }
}

std::string agentMessageName(uint32_t mtype) {
    switch (mtype) {
        case agt::kMtRingCfg:
            return "ring configuration";
        case agt::kMtIfInfo:
            return "interface information";
        case agt::kMtDbgCfg:
            return "debug settings";
        case agt::kMtClearStats:
            return "clear counters";
        case agt::kMtStartCfg:
            return "START_CFG";
        case agt::kMtEndCfg:
            return "END_CFG";
        case agt::kMtLcType:
            return "line-card types";
        case 10908:
            return "IFM notification copy";
        default:
            return "type " + hex(mtype);
    }
}

std::string Agent::describe() const {
    std::string s =
        "agent 227." + std::to_string(slot_) + " (slot " + std::to_string(slot_) + "): ";
    if (!active()) return s + "silent (card down or shut down): its queues are closed\n";
    const Counters& c = life_.counters;
    if (life_.registered)
        s += "registered with 226.0";
    else if (life_.managerSeen)
        s += "registration sent to 226.0, no answer yet";
    else
        s += "not registered: waiting for the manager 226.0";
    s += " (" + plural(c.registrationsAnswered, "registration", "registrations") + " answered)\n";

    s += "  SWP from 226.0: ";
    s += life_.rcvState[0] == 0 ? std::string("not synchronised")
                                : "next expected seq " + std::to_string(life_.rcvState[0]) +
                                      ", epoch " + hex(life_.rcvState[1]);
    s += "; " + std::to_string(c.swpAccepted) + " accepted, " +
         plural(c.swpDuplicates, "duplicate", "duplicates") + ", " + std::to_string(c.swpGaps) +
         " out of order\n";

    s += "  SWP to 226.0:   ";
    const QelSwpQueueCtrlBlock* cb = handle_ != 0 ? host::swpQueueByHandle(handle_) : nullptr;
    if (cb == nullptr)
        s += "no queue";
    else
        s += "handle " + std::to_string(handle_) + ", next seq " + std::to_string(cb->nextSeq) +
             ", in flight " + std::to_string(cb->outstanding) + ", held " +
             std::to_string(cb->held);
    s += "; " + plural(c.reportsSent, "report", "reports") + " sent, " +
         std::to_string(c.reportsAcked) + " acknowledged";
    if (c.recordsLost > 0) s += ", " + plural(c.recordsLost, "record", "records") + " lost";
    s += "\n";

    size_t down = 0;
    for (const auto& [ifIndex, entry] : life_.interfaces)
        down += agentPortNumber(ifIndex) != 0 && !entry.operUp ? 1 : 0;
    size_t here = 0, running = 0;
    for (const auto& [id, ring] : life_.rings) {
        here += ring.cfg.desgAgent == slot_ ? 1 : 0;
        running += ring.node.running ? 1 : 0;
    }
    const char* download = life_.download == Download::Complete  ? "complete"
                           : life_.download == Download::Running ? "being downloaded"
                                                                 : "none yet";
    s += "  configuration:  " + std::string(download) + "; " +
         plural(life_.interfaces.size(), "interface", "interfaces") + " (" +
         plural(down, "link", "links") + " down), " + plural(life_.rings.size(), "ring", "rings") +
         " (" + std::to_string(here) + " designated here, " + std::to_string(running) +
         " running)\n";

    s += "  received:       ";
    if (life_.received.empty()) s += "nothing";
    bool first = true;
    for (const auto& [mtype, n] : life_.received) {
        s += (first ? "" : ", ") + agentMessageName(mtype) + " " + std::to_string(n);
        first = false;
    }
    s += "\n";
    s += "  dropped:        " + std::to_string(c.malformed) + " malformed, " +
         std::to_string(c.unexpected) + " unexpected; statistics answered " +
         std::to_string(c.statsAnswered) + "\n";
    s += "  ring frames:    " + std::to_string(c.framesSent) + " sent, " +
         std::to_string(c.framesUnsent) + " not sent (no cable), " +
         std::to_string(c.framesReceived) + " received; drop-link-down " +
         (dropLinkDown_ ? "on" : "off") + " (" + std::to_string(c.linkDownDropped) + " dropped)\n";
    if (running > 0) s += ringTable(*this);
    s += "  debugging:      ";
    if (life_.debug.empty()) s += "none";
    for (const auto& [id, ring] : life_.debug) {
        s += (id == life_.debug.begin()->first ? "ring " : "; ring ") + std::to_string(id) + ":";
        bool firstSetting = true;
        for (const cli::DebugSetting& d : debugSettings(id, ring)) {
            s += (firstSetting ? " " : ", ") + cli::settingText(d);
            firstSetting = false;
        }
    }
    return s + "\n";
}

Json Agent::toJson() const {
    Json j = {{"slot", slot_}};
    if (!active()) {
        j["state"] = "silent";
        return j;
    }
    const Counters& c = life_.counters;
    j["state"] = life_.registered ? "registered" : life_.managerSeen ? "registering" : "waiting";
    j["registrations_answered"] = c.registrationsAnswered;
    j["swp_from_manager"] = {
        {"next_seq", life_.rcvState[0] == 0 ? Json(nullptr) : Json(life_.rcvState[0])},
        {"epoch", life_.rcvState[1]},
        {"accepted", c.swpAccepted},
        {"duplicates", c.swpDuplicates},
        {"out_of_order", c.swpGaps}};
    const QelSwpQueueCtrlBlock* cb = handle_ != 0 ? host::swpQueueByHandle(handle_) : nullptr;
    j["swp_to_manager"] = {{"handle", cb == nullptr ? Json(nullptr) : Json(handle_)},
                           {"next_seq", cb == nullptr ? 0 : cb->nextSeq},
                           {"in_flight", cb == nullptr ? 0 : cb->outstanding},
                           {"held", cb == nullptr ? 0 : cb->held},
                           {"reports_sent", c.reportsSent},
                           {"reports_acknowledged", c.reportsAcked},
                           {"records_lost", c.recordsLost}};
    const char* download = life_.download == Download::Complete  ? "complete"
                           : life_.download == Download::Running ? "running"
                                                                 : "none";
    j["download"] = download;
    Json received = Json::object();
    for (const auto& [mtype, n] : life_.received) received[agentMessageName(mtype)] = n;
    j["received"] = received;
    j["dropped"] = {{"malformed", c.malformed}, {"unexpected", c.unexpected}};
    j["statistics_answered"] = c.statsAnswered;
    j["ring_frames"] = {{"sent", c.framesSent},
                        {"not_sent", c.framesUnsent},
                        {"received", c.framesReceived},
                        {"drop_link_down", dropLinkDown_},
                        {"link_down_dropped", c.linkDownDropped}};
    Json interfaces = Json::array();
    for (const auto& [ifIndex, entry] : life_.interfaces)
        interfaces.push_back({{"interface", cli::longIfName(ifIndex)}, {"up", entry.operUp}});
    j["interfaces"] = interfaces;
    Json rings = Json::array();
    for (const auto& [id, ring] : life_.rings) {
        const Node& n = ring.node;
        Json counters = Json::object();
        for (size_t i = 0; i < ring.stats.size(); ++i)
            counters[agt::stats::kCounterNames[i].key] = ring.stats[i];
        auto port = [this](uint32_t ifIndex, uint32_t state) {
            return Json{
                {"interface", ifIndex == 0 ? Json(nullptr) : Json(cli::longIfName(ifIndex))},
                {"link", linkWord(life_.interfaces, ifIndex)},
                {"state", portStateName(state)}};
        };
        rings.push_back({{"id", id},
                         {"designated_slot", ring.cfg.desgAgent},
                         {"running", n.running},
                         {"mode", n.mode == rc::kModeMaster    ? "master"
                                  : n.mode == rc::kModeTransit ? "transit"
                                                               : "none"},
                         {"primary", port(n.primary, n.priState)},
                         {"secondary", port(n.secondary, n.secState)},
                         {"protocol", protocolState(n)},
                         {"counters", counters}});
    }
    j["rings"] = rings;
    std::vector<cli::DebugSetting> settings;
    for (const auto& [id, ring] : life_.debug) {
        auto more = debugSettings(id, ring);
        settings.insert(settings.end(), more.begin(), more.end());
    }
    j["debugging"] = cli::debuggingJson(settings)["debugging"];
    return j;
}

std::string Agent::statusLine() const {
    std::string s = "agent 227." + std::to_string(slot_) + ": ";
    if (!active()) return s + "silent";
    s += life_.registered ? "registered" : life_.managerSeen ? "registering" : "waiting for 226.0";
    size_t running = 0;
    for (const auto& [id, ring] : life_.rings) running += ring.node.running ? 1 : 0;
    s += "; " + std::to_string(life_.counters.swpAccepted) + " SWP messages taken; " +
         plural(life_.rings.size(), "ring", "rings") + " configured, " + std::to_string(running) +
         " running here; " + plural(life_.counters.reportsSent, "report", "reports") + " sent";
    return s;
}

}  // namespace vorn::sim
