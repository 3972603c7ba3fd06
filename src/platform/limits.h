// The chassis and protocol limits every program of the chassis shares: slots and ports of the
// line cards, port-channels, VLANs and rings.
#pragma once

#include <cstdint>

namespace vorn::limits {

inline constexpr uint32_t kSlots = 12;  // line-card slots 0..11; 12 means "no line card"
inline constexpr uint32_t kMaxSlot = kSlots - 1;
inline constexpr uint32_t kPortsPerSlot = 64;  // ports 0..63 of a card
inline constexpr uint32_t kMaxPort = kPortsPerSlot - 1;
inline constexpr uint32_t kMinLag = 1;  // port-channels 1..128
inline constexpr uint32_t kMaxLag = 128;
inline constexpr uint32_t kMaxLagMembers = 32;
inline constexpr uint32_t kMinVlan = 1;  // VLANs 1..4095
inline constexpr uint32_t kMaxVlan = 4095;
inline constexpr uint32_t kMinRingId = 1;  // rings 1..255
inline constexpr uint32_t kMaxRingId = 255;

}  // namespace vorn::limits
