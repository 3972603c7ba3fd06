// Sets of VLAN ids 1..4095 as the chassis keeps them: 4096-bit bitmaps in wire order (bit v
// in byte v / 8 under 0x80 >> (v % 8)), so that they go into L2PM's download unchanged.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/bitmap.h"
#include "platform/limits.h"

namespace vorn::sim {

using VlanSet = std::array<uint8_t, bmp::kVlanBmapBytes>;

inline constexpr uint32_t kMinVlan = limits::kMinVlan;
inline constexpr uint32_t kMaxVlan = limits::kMaxVlan;

// Parses "10", "20-30" or a comma list of both ("10,20-30"). False, with a message that
// names the bad item, for an empty item, a bad number, a VLAN outside 1..4095 or a range
// whose first VLAN is above its last; *out is then left as it was.
bool parseVlanSet(std::string_view text, VlanSet* out, std::string* err);

// "10,20-30"; "none" for the empty set.
std::string vlanSetText(const VlanSet& vlans);

size_t vlanCount(const VlanSet& vlans);

// Calls fn(vlan) for every VLAN of the set, ascending.
template <typename Fn>
void forEachVlan(const VlanSet& vlans, Fn&& fn) {
    for (uint16_t v = GET_FIRST_BIT_BITMAP(vlans, kMaxVlan + 1); v != bmp::kNoBit;
         v = GET_NEXT_BIT_BITMAP(vlans, kMaxVlan + 1, v))
        fn(v);
}

}  // namespace vorn::sim
