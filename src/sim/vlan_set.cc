#include "sim/vlan_set.h"

#include "cli/syntax.h"
#include "platform/number.h"

namespace vorn::sim {

bool parseVlanSet(std::string_view text, VlanSet* out, std::string* err) {
    VlanSet set{};
    if (text.empty()) {
        *err = "a VLAN list is missing (e.g. 10, 20-30 or 10,20-30)";
        return false;
    }
    size_t pos = 0;
    for (;;) {
        size_t comma = text.find(',', pos);
        std::string_view item =
            text.substr(pos, comma == std::string_view::npos ? comma : comma - pos);
        if (item.empty()) {
            *err = "empty item in the VLAN list '" + std::string(text) + "'";
            return false;
        }
        size_t dash = item.find('-');
        uint32_t lo = 0, hi = 0;
        if (!number::parse(item.substr(0, dash), kMinVlan, kMaxVlan, "VLAN", &lo, err))
            return false;
        hi = lo;
        if (dash != std::string_view::npos &&
            !number::parse(item.substr(dash + 1), kMinVlan, kMaxVlan, "VLAN", &hi, err))
            return false;
        if (lo > hi) {
            *err = "bad VLAN range '" + std::string(item) + "': " + std::to_string(lo) +
                   " is above " + std::to_string(hi);
            return false;
        }
        for (uint32_t v = lo; v <= hi; ++v) bmp::set(set, v);
        if (comma == std::string_view::npos) break;
        pos = comma + 1;
    }
    *out = set;
    return true;
}

std::string vlanSetText(const VlanSet& vlans) {
    // Each VLAN takes at most five characters and a separator.
    std::string text(6 * (kMaxVlan + 1), '\0');
    int n = convertVlanBitMap2VlanString(vlans, text.data(), text.size());
    text.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return text.empty() ? "none" : text;
}

size_t vlanCount(const VlanSet& vlans) {
    size_t n = 0;
    forEachVlan(vlans, [&n](uint16_t) { ++n; });
    return n;
}

}  // namespace vorn::sim
