#include "cli/vlan_list.h"

#include "cli/syntax.h"
#include "platform/bitmap.h"
#include "platform/number.h"

namespace vorn::cli {
namespace {

// Parses one VLAN id of an item; `item` is the whole item, for the message.
bool parseVlan(std::string_view word, std::string_view item, uint32_t* out, std::string* err) {
    std::string why;
    if (number::parse(word, kMinVlan, kMaxVlan, "VLAN", out, &why)) return true;
    *err = why + (word == item ? "" : " in '" + std::string(item) + "'");
    return false;
}

}  // namespace

bool parseVlanList(std::string_view text, VlanBitmap* out, std::string* err) {
    if (text.empty()) {
        *err = "the VLAN list is empty (e.g. 20-30,40)";
        return false;
    }
    VlanBitmap vlans{};
    size_t pos = 0;
    for (;;) {
        size_t comma = text.find(',', pos);
        std::string_view item =
            text.substr(pos, comma == std::string_view::npos ? comma : comma - pos);
        if (item.empty()) {
            *err = "bad VLAN list '" + std::string(text) + "': an item is empty";
            return false;
        }
        size_t dash = item.find('-');
        uint32_t lo = 0, hi = 0;
        if (dash == std::string_view::npos) {
            if (!parseVlan(item, item, &lo, err)) return false;
            hi = lo;
        } else {
            if (!parseVlan(item.substr(0, dash), item, &lo, err) ||
                !parseVlan(item.substr(dash + 1), item, &hi, err))
                return false;
            if (lo > hi) {
                *err = "bad VLAN range '" + std::string(item) + "': " + std::to_string(lo) +
                       " is above " + std::to_string(hi);
                return false;
            }
        }
        for (uint32_t v = lo; v <= hi; ++v) bmp::set(vlans, v);
        if (comma == std::string_view::npos) break;
        pos = comma + 1;
    }
    *out = vlans;
    return true;
}

std::string vlanListText(const VlanBitmap& vlans) {
    // 4095 VLANs in the worst spread ("1,3,5,...") need under 10 characters each.
    std::string text(4096 * 6, '\0');
    int n = convertVlanBitMap2VlanString(vlans, text.data(), text.size());
    text.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return text;
}

size_t vlanCount(const VlanBitmap& vlans) {
    size_t n = 0;
    for (uint8_t b : vlans)
        for (; b != 0; b = static_cast<uint8_t>(b & (b - 1))) ++n;
    return n;
}

}  // namespace vorn::cli
