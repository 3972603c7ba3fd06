// Host edition of the platform's chassis and redundancy queries, answered from the host
// options (--cards, --standby, --peer-pair).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/limits.h"

namespace vorn::chassis {
inline constexpr size_t kInfoLen = 72;
inline constexpr int kSlots = static_cast<int>(limits::kSlots);
inline constexpr int kMaxActivePortPipe = 2;
inline constexpr int kFirstValidPortPipe = 0;

// Reads a comma list of slots ("0,1,5", the value of --cards) into a mask with bit s (value
// 1 << s) set for each slot s. A slot may be repeated; an empty list or item, a blank or a slot
// out of 0..11 is refused with the reason in *err ("slot 12 is out of range 0..11").
bool parseCardList(std::string_view text, uint32_t* mask, std::string* err);
}  // namespace vorn::chassis

// Fills the 72-byte chassis information block; its first 32-bit word holds bit s (value
// 1 << s) for every slot s with a card present. Returns 0, or 0xFFFFFFFF when info is too
// short.
uint32_t qelGetChasInfo(int service, int instance, std::span<uint8_t> info);
int qelGetMaxActivePortPipe();
int qelGetFirstValidPortPipe();
int qelHaIsPrimaryRpm();
int qelIsZilEnabled();
