// VLAN lists as the operator writes them ("20-30,40") and as the running configuration
// prints them, to and from the 4096-bit VLAN bitmap of the configuration request.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/bitmap.h"
#include "platform/limits.h"

namespace vorn::cli {

inline constexpr uint32_t kMinVlan = limits::kMinVlan;
inline constexpr uint32_t kMaxVlan = limits::kMaxVlan;

// Bit v in byte v / 8 under the mask 0x80 >> (v % 8): the wire order of the request.
using VlanBitmap = std::array<uint8_t, bmp::kVlanBmapBytes>;

// Parses a comma list of VLAN ids and ranges ("20-30,40", "7"). False, with a message that
// names the bad item, for an empty item, a bad number, a VLAN outside 1..4095 or a range whose
// first VLAN is above its last; *out is then left as it was.
bool parseVlanList(std::string_view text, VlanBitmap* out, std::string* err);

// The list text of a bitmap, ascending, with ranges: "20-30,40"; "" when it is empty.
std::string vlanListText(const VlanBitmap& vlans);

// The number of VLANs in a bitmap.
size_t vlanCount(const VlanBitmap& vlans);

}  // namespace vorn::cli
