#include "cli/params.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>
#include <span>

#include "cli/syntax.h"
#include "platform/number.h"

namespace vorn::cli {
namespace {

constexpr ParamInfo kParams[] = {
    {Param::RingId, "RING", "<1-255>", "ring id"},
    {Param::Vlan, "VLAN", "<1-4095>", "VLAN id"},
    {Param::VlanList, "VLANS", "VLAN-LIST", "VLAN ids and ranges, e.g. 20-30,40"},
    {Param::Interface, "IF", "INTERFACE",
     "GigabitEthernet or TenGigabitEthernet SLOT/PORT, or Port-channel NUMBER "
     "(e.g. Gi 0/1, po5)"},
    {Param::Hello, "HELLO", "<50-2000>", "hello interval in milliseconds"},
    {Param::Dead, "DEAD", "<50-6000>", "dead interval in milliseconds"},
    {Param::Description, "TEXT", "LINE", "the description, up to 255 characters"},
    {Param::Count, "COUNT", "<1-4294967295>", "how many events to print"},
    {Param::Line, "LINE", "LINE", "the rest of the line"},
};

std::string_view trimRight(std::string_view s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
    return s;
}

ParamResult number(const Word& w, uint32_t lo, uint32_t hi, const char* what, Param param) {
    ParamResult r;
    r.value.param = param;
    r.ok = vorn::number::parse(w.text, lo, hi, what, &r.value.number, &r.error);
    r.used = r.ok ? 1 : 0;
    return r;
}

}  // namespace

const ParamInfo* findParam(std::string_view name) {
    for (const ParamInfo& p : kParams)
        if (name == p.name) return &p;
    return nullptr;
}

const ParamInfo& paramInfo(Param param) {
    for (const ParamInfo& p : kParams)
        if (p.param == param) return p;
    return kParams[std::size(kParams) - 1];
}

bool takesRestOfLine(Param param) {
    return param == Param::Description || param == Param::Line;
}

ParamResult parseParam(Param param, const std::vector<Word>& words, size_t at,
                       std::string_view line) {
    ParamResult r;
    r.value.param = param;
    if (at >= words.size()) {
        r.error = std::string(paramInfo(param).form) + " is missing";
        return r;
    }
    const Word& w = words[at];
    switch (param) {
        case Param::RingId:
            return number(w, kMinRingId, kMaxRingId, "ring id", param);
        case Param::Vlan:
            return number(w, kMinVlan, kMaxVlan, "VLAN", param);
        case Param::Hello:
            return number(w, kMinHello, kMaxHello, "hello-interval", param);
        case Param::Dead:
            return number(w, kMinDead, kMaxDead, "dead-interval", param);
        case Param::Count:
            return number(w, 1, UINT32_MAX, "count", param);
        case Param::VlanList:
            r.ok = parseVlanList(w.text, &r.value.vlans, &r.error);
            r.used = r.ok ? 1 : 0;
            return r;
        case Param::Interface: {
            std::vector<std::string> texts;
            for (size_t i = at; i < words.size() && i < at + 2; ++i) texts.push_back(words[i].text);
            r.ok = parseInterface(std::span<const std::string>(texts), 0, &r.value.number, &r.used,
                                  &r.error);
            // A type word alone at the end ("Gi"): its number has not been typed yet.
            r.needMore = !r.ok && texts.size() == 1 && detail::findIfType(texts[0]) != nullptr &&
                         !std::isdigit(static_cast<unsigned char>(texts[0].back()));
            return r;
        }
        case Param::Description:
        case Param::Line: {
            std::string_view rest = trimRight(line.substr(std::min(w.begin, line.size())));
            if (param == Param::Description && rest.size() > nm::kMaxDescription) {
                r.error = "the description is " + std::to_string(rest.size()) +
                          " characters long; at most " + std::to_string(nm::kMaxDescription) +
                          " are allowed";
                return r;
            }
            // The text is shown again in the running configuration, where a control
            // character would garble the operator's terminal.
            for (char c : rest) {
                auto u = static_cast<unsigned char>(c);
                if ((u < 0x20 && c != '\t') || u == 0x7F) {
                    char hex[8];
                    std::snprintf(hex, sizeof(hex), "0x%02x", u);
                    r.error = std::string("the text holds the control character ") + hex;
                    return r;
                }
            }
            r.ok = true;
            r.used = words.size() - at;
            r.value.text = std::string(rest);
            return r;
        }
    }
    r.error = "unknown parameter";
    return r;
}

std::vector<std::string> interfaceTypesStartingWith(std::string_view partial) {
    std::vector<std::string> out;
    for (const IfType& t : kIfTypes) {
        std::string_view name = t.longName;
        if (partial.size() > name.size()) continue;
        bool prefix = true;
        for (size_t i = 0; i < partial.size() && prefix; ++i)
            prefix = std::tolower(static_cast<unsigned char>(partial[i])) ==
                     std::tolower(static_cast<unsigned char>(name[i]));
        if (prefix) out.emplace_back(name);
    }
    return out;
}

}  // namespace vorn::cli
