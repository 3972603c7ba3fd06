// Host edition of the platform's chassis and redundancy queries, answered from the host
// options (--cards, --standby, --peer-pair).
#pragma once

#include <cstdint>
#include <span>

namespace vorn::chassis {
inline constexpr size_t kInfoLen = 72;
inline constexpr int kSlots = 12;
inline constexpr int kMaxActivePortPipe = 2;
inline constexpr int kFirstValidPortPipe = 0;
}  // namespace vorn::chassis

// Fills the 72-byte chassis information block; its first 32-bit word holds bit s (value
// 1 << s) for every slot s with a card present. Returns 0, or 0xFFFFFFFF when info is too
// short.
uint32_t qelGetChasInfo(int service, int instance, std::span<uint8_t> info);
int qelGetMaxActivePortPipe();
int qelGetFirstValidPortPipe();
int qelHaIsPrimaryRpm();
int qelIsZilEnabled();
