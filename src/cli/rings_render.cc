// The rings and the debug settings as the operator reads them, and as JSON documents with the
// same facts under stable names (README.md lists them).

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <sstream>

#include "cli/rings.h"

namespace vorn::cli {
namespace {

namespace st = agt::stats;

// The name the manager gives a ring interface that is not set.
bool noInterface(const std::string& name) {
    return name.empty() || name.rfind("Unknown(0x00000000)", 0) == 0;
}

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// "UP", "DOWN", "-" as words.
std::string statusWords(const std::string& status) {
    if (status == show::kStatusUp) return "up (the ring is complete)";
    if (status == show::kStatusDown) return "down";
    return "not applicable (only a master sees the ring whole)";
}

std::string statusKey(const std::string& status) {
    if (status == show::kStatusUp) return "up";
    if (status == show::kStatusDown) return "down";
    return "none";
}

std::string modeKey(const std::string& mode) {
    return mode.empty() || mode == show::kModeNone ? "none" : lower(mode);
}

std::string joined(const std::vector<std::string>& lines) {
    std::string s;
    for (const std::string& l : lines) s += l;
    return s;
}

Json orNull(uint32_t v) {
    return v == 0 ? Json(nullptr) : Json(v);
}

Json portJson(const std::string& name, const std::string& state) {
    return {{"interface", noInterface(name) ? Json(nullptr) : Json(name)}, {"state", lower(state)}};
}

std::string pad(std::string s, size_t width) {
    if (s.size() < width) s.append(width - s.size(), ' ');
    return s;
}

const char* const kDirections[dbgreq::kSettings] = {nullptr, "both", "rx", "tx",
                                                    "both",  "rx",   "tx"};

}  // namespace

std::string renderDetail(const RingDetail& r) {
    std::ostringstream o;
    auto row = [&o](const char* label, const std::string& value) {
        o << "  " << pad(label, 16) << ": " << value << "\n";
    };
    auto port = [](const std::string& name, const std::string& state) {
        return noInterface(name) ? std::string("none") : name + ", " + lower(state);
    };
    o << "Ring " << r.id << "\n";
    row("Mode", modeKey(r.mode));
    row("Status", statusWords(r.status));
    row("Primary", port(r.primary, r.priState));
    row("Secondary", port(r.secondary, r.secState));
    row("Control VLAN", r.controlVlan == 0 ? "none" : std::to_string(r.controlVlan));
    std::string vlans = joined(r.memberVlanLines);
    row("Member VLANs", vlans.empty() ? "none" : vlans);
    row("Hello interval", std::to_string(r.hello) + " ms");
    row("Dead interval", std::to_string(r.dead) + " ms");
    row("Primary MAC", r.mac.empty() ? "unknown" : r.mac);
    o << "  Counters (from the agent that runs the ring):\n";
    for (size_t i = 0; i < r.counters.size(); ++i)
        o << "    " << pad(st::kCounterNames[i].text, 22) << ": " << r.counters[i] << "\n";
    return o.str();
}

std::string renderSummary(const std::vector<RingSummary>& rings) {
    if (rings.empty()) return "No VORN ring is configured.\n";
    std::vector<std::array<std::string, 5>> rows = {
        {"Ring", "Status", "Mode", "Control VLAN", "Member VLANs"}};
    for (const RingSummary& r : rings) {
        const std::vector<std::string>& lines = r.memberVlanLines;
        rows.push_back({std::to_string(r.id), r.status, r.mode.empty() ? "-" : r.mode,
                        r.controlVlan == 0 ? "-" : std::to_string(r.controlVlan),
                        lines.empty() ? "-" : lines[0]});
        for (size_t i = 1; i < lines.size(); ++i) rows.push_back({"", "", "", "", lines[i]});
    }
    std::array<size_t, 5> width{};
    for (const auto& row : rows)
        for (size_t c = 0; c < row.size(); ++c) width[c] = std::max(width[c], row[c].size());
    std::string out;
    for (const auto& row : rows) {
        std::string line;
        for (size_t c = 0; c < row.size(); ++c)
            line += c + 1 < row.size() ? pad(row[c], width[c] + 2) : row[c];
        out += line + "\n";
    }
    return out;
}

std::string renderDebugging(const std::vector<DebugSetting>& settings) {
    if (settings.empty()) return "No VORN ring debugging is on.\n";
    std::string out = "VORN ring debugging:\n";
    for (const DebugSetting& s : settings)
        out += "  ring " + std::to_string(s.ring) + ": " + settingText(s) + "\n";
    return out;
}

Json detailJson(const std::vector<RingDetail>& rings) {
    Json list = Json::array();
    for (const RingDetail& r : rings) {
        Json counters = Json::object();
        for (size_t i = 0; i < r.counters.size(); ++i)
            counters[st::kCounterNames[i].key] = r.counters[i];
        list.push_back({{"id", r.id},
                        {"mode", modeKey(r.mode)},
                        {"status", statusKey(r.status)},
                        {"primary", portJson(r.primary, r.priState)},
                        {"secondary", portJson(r.secondary, r.secState)},
                        {"control_vlan", orNull(r.controlVlan)},
                        {"member_vlans", joined(r.memberVlanLines)},
                        {"hello_interval_ms", r.hello},
                        {"dead_interval_ms", r.dead},
                        {"primary_mac", r.mac.empty() ? Json(nullptr) : Json(r.mac)},
                        {"counters", counters}});
    }
    return {{"rings", list}};
}

Json summaryJson(const std::vector<RingSummary>& rings) {
    Json list = Json::array();
    for (const RingSummary& r : rings)
        list.push_back({{"id", r.id},
                        {"status", statusKey(r.status)},
                        {"mode", modeKey(r.mode)},
                        {"control_vlan", orNull(r.controlVlan)},
                        {"member_vlans", joined(r.memberVlanLines)}});
    return {{"rings", list}};
}

Json debuggingJson(const std::vector<DebugSetting>& settings) {
    static constexpr const char* kKinds[dbgreq::kSettings] = {
        "event", "detail", "detail", "detail", "packet", "packet", "packet"};
    Json list = Json::array();
    for (const DebugSetting& s : settings) {
        const char* dir = kDirections[s.index];
        list.push_back({{"ring", s.ring},
                        {"kind", kKinds[s.index]},
                        {"direction", dir == nullptr ? Json(nullptr) : Json(dir)},
                        {"count", orNull(s.count)}});
    }
    return {{"debugging", list}};
}

Json runningConfigJson(const std::string& text) {
    Json rings = Json::array();
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        unsigned id = 0;
        char tail = 0;
        int n = std::sscanf(line.c_str(), "protocol vorn %u%c", &id, &tail);
        if (n == 1 || (n == 2 && tail == ' ')) {
            rings.push_back({{"id", id}, {"config", Json::array()}});
            continue;
        }
        size_t first = line.find_first_not_of(' ');
        if (first == std::string::npos || line[first] == '!' || rings.empty()) continue;
        std::string setting = line.substr(first);
        while (!setting.empty() && setting.back() == ' ') setting.pop_back();
        rings.back()["config"].push_back(setting);
    }
    return {{"rings", rings}};
}

}  // namespace vorn::cli
