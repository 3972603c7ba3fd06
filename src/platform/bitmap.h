// Bitmaps in wire order: bit n lives in byte n / 8 under the mask 0x80 >> (n % 8), which is
// the platform's big-endian 32-bit word layout, so bitmaps go to the wire unchanged.
// Every operation is bounded by the span it is given.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vorn::bmp {
inline constexpr uint16_t kNoBit = 0xFFFF;
inline constexpr size_t kVlanBmapBytes = 512;  // 4096 bits
}  // namespace vorn::bmp

// First set bit below nbits (clamped to the bitmap's size), or 0xFFFF.
uint16_t GET_FIRST_BIT_BITMAP(std::span<const uint8_t> bmp, uint32_t nbits);
// First set bit after `bit` and below nbits, or 0xFFFF.
uint16_t GET_NEXT_BIT_BITMAP(std::span<const uint8_t> bmp, uint32_t nbits, uint32_t bit);
bool BITMAP_IS_EMPTY(std::span<const uint8_t> bmp);
// dst = a AND b, over the shortest of the three.
void BITMAP_AND_BITMAPS(std::span<uint8_t> dst, std::span<const uint8_t> a,
                        std::span<const uint8_t> b);
// dst = a AND NOT b, over the shortest of the three.
void BITMAP_DIFF_BITMAPS(std::span<uint8_t> dst, std::span<const uint8_t> a,
                         std::span<const uint8_t> b);
// The VLAN list text of a 4096-bit bitmap, ascending, ranges and commas ("2,5-9,12"),
// written into out (NUL-terminated; cut at a whole entry when out is too small). Returns
// the length written.
int convertVlanBitMap2VlanString(std::span<const uint8_t> bmp, char* out, size_t len);

namespace vorn::bmp {
inline bool test(std::span<const uint8_t> b, uint32_t n) {
    return n / 8 < b.size() && (b[n / 8] & (0x80u >> (n % 8))) != 0;
}
inline void set(std::span<uint8_t> b, uint32_t n) {
    if (n / 8 < b.size()) b[n / 8] = static_cast<uint8_t>(b[n / 8] | (0x80u >> (n % 8)));
}
inline void clear(std::span<uint8_t> b, uint32_t n) {
    if (n / 8 < b.size()) b[n / 8] = static_cast<uint8_t>(b[n / 8] & ~(0x80u >> (n % 8)));
}
}  // namespace vorn::bmp
