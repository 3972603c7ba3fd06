// Sets of VLAN ids 1..4095 as the chassis keeps them: the command line's 4096-bit bitmaps in
// wire order (bit v in byte v / 8 under 0x80 >> (v % 8)), so that they go into L2PM's
// download unchanged, read and written as the operator types them ("10,20-30").
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "cli/vlan_list.h"
#include "platform/bitmap.h"

namespace vorn::sim {

using VlanSet = cli::VlanBitmap;
using cli::kMaxVlan;
using cli::kMinVlan;
using cli::vlanCount;

// "10,20-30"; "none" for the empty set.
inline std::string vlanSetText(const VlanSet& vlans) {
    std::string text = cli::vlanListText(vlans);
    return text.empty() ? "none" : text;
}

// Calls fn(vlan) for every VLAN of the set, ascending.
template <typename Fn>
void forEachVlan(const VlanSet& vlans, Fn&& fn) {
    for (uint16_t v = GET_FIRST_BIT_BITMAP(vlans, kMaxVlan + 1); v != bmp::kNoBit;
         v = GET_NEXT_BIT_BITMAP(vlans, kMaxVlan + 1, v))
        fn(v);
}

}  // namespace vorn::sim
