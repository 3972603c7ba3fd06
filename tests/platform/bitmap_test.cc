// Bitmap scans, AND/DIFF and the VLAN list text.
#include "platform/bitmap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace {

using vorn::bmp::kNoBit;
using vorn::bmp::kVlanBmapBytes;
using Vlans = std::array<uint8_t, kVlanBmapBytes>;

Vlans withBits(std::initializer_list<uint32_t> bits) {
    Vlans b{};
    for (uint32_t n : bits) vorn::bmp::set(b, n);
    return b;
}

std::vector<uint32_t> walk(std::span<const uint8_t> b, uint32_t nbits) {
    std::vector<uint32_t> out;
    for (uint16_t n = GET_FIRST_BIT_BITMAP(b, nbits); n != kNoBit;
         n = GET_NEXT_BIT_BITMAP(b, nbits, n)) {
        out.push_back(n);
    }
    return out;
}

TEST(BitmapTest, BitNumberingIsWireOrderAndScanFindsEveryBitInOrder) {
    // Bits 0 and 7; bit 8; bit 31, the low bit of the first big-endian word; bit 32, the
    // high bit of the second.
    Vlans b = withBits({0, 7, 8, 31, 32, 100, 2047, 2048, 4095});
    EXPECT_EQ(std::vector<uint8_t>(b.begin(), b.begin() + 6),
              (std::vector<uint8_t>{0x81, 0x80, 0x00, 0x01, 0x80, 0x00}));
    EXPECT_EQ(walk(b, 4096), (std::vector<uint32_t>{0, 7, 8, 31, 32, 100, 2047, 2048, 4095}));
    // Every single-bit position, so each byte offset within the eight-byte skip is covered.
    for (uint32_t bit = 0; bit < 4096; ++bit) {
        Vlans one = withBits({bit});
        ASSERT_EQ(GET_FIRST_BIT_BITMAP(one, 4096), bit);
        ASSERT_EQ(GET_NEXT_BIT_BITMAP(one, 4096, bit), kNoBit);
        ASSERT_EQ(GET_NEXT_BIT_BITMAP(one, 4096, 0), bit == 0 ? uint32_t{kNoBit} : bit);
    }
}

TEST(BitmapTest, ScanIsBoundedByNbitsAndBySpan) {
    Vlans b = withBits({31, 32, 897, 4095});
    EXPECT_EQ(walk(b, 898), (std::vector<uint32_t>{31, 32, 897}));
    EXPECT_EQ(walk(b, 897), (std::vector<uint32_t>{31, 32}));
    EXPECT_EQ(GET_FIRST_BIT_BITMAP(b, 31), kNoBit);
    EXPECT_EQ(GET_FIRST_BIT_BITMAP(b, 32), 31);
    EXPECT_EQ(GET_NEXT_BIT_BITMAP(b, 4096, 4095), kNoBit);
    EXPECT_EQ(GET_NEXT_BIT_BITMAP(b, 4096, 0xFFFF), kNoBit);
    EXPECT_EQ(GET_NEXT_BIT_BITMAP(b, 100, 200), kNoBit);

    // nbits larger than the span is clamped to it: the 4-byte span ends at bit 31.
    std::span<const uint8_t> four(b.data(), 4);
    EXPECT_EQ(walk(four, 4096), (std::vector<uint32_t>{31}));
    // Bit 32 of the whole bitmap is bit 0 of the span that starts at byte 4.
    EXPECT_EQ(GET_FIRST_BIT_BITMAP(std::span<const uint8_t>(b).subspan(4), 0xFFFFFFFF), 0);
    EXPECT_EQ(GET_FIRST_BIT_BITMAP({}, 4096), kNoBit);
    EXPECT_EQ(GET_FIRST_BIT_BITMAP(b, 0), kNoBit);
}

// What AND, DIFF and the empty test give over whole bitmaps is what the member-VLAN and
// oper-state tests rely on; here, the edges.
TEST(BitmapTest, EmptyAndAndDiffStopAtTheShortestSpan) {
    EXPECT_FALSE(BITMAP_IS_EMPTY(withBits({4095})));
    EXPECT_TRUE(BITMAP_IS_EMPTY({}));
    const Vlans a = withBits({1, 5, 9, 4095}), b = withBits({5, 9, 10, 4095});
    // Bytes of dst past the shortest of the three stay as they were.
    Vlans dst;
    dst.fill(0xFF);
    BITMAP_AND_BITMAPS(dst, std::span<const uint8_t>(a).first(2), b);
    EXPECT_EQ(std::vector<uint8_t>(dst.begin(), dst.begin() + 3),
              (std::vector<uint8_t>{0x04, 0x40, 0xFF}));  // bits 5 and 9
    std::array<uint8_t, 4> small{};
    BITMAP_DIFF_BITMAPS(small, a, b);
    EXPECT_EQ(small, (std::array<uint8_t, 4>{0x40, 0, 0, 0}));  // bit 1
}

std::string vlanText(const Vlans& b, size_t len = 16384) {
    std::vector<char> out(len + 1, '#');
    int n = convertVlanBitMap2VlanString(b, out.data(), len);
    EXPECT_EQ(static_cast<size_t>(n), std::strlen(out.data()));
    EXPECT_EQ(out[len], '#');  // nothing written past len
    return std::string(out.data());
}

Vlans range(uint32_t first, uint32_t last) {
    Vlans b{};
    for (uint32_t n = first; n <= last; ++n) vorn::bmp::set(b, n);
    return b;
}

TEST(VlanStringTest, RangesCommasAndAShortBuffer) {
    const Vlans mixed = withBits({2, 5, 6, 7, 8, 9, 12});
    const std::pair<Vlans, const char*> cases[] = {{Vlans{}, ""},
                                                   {mixed, "2,5-9,12"},
                                                   {withBits({0, 1, 3}), "0-1,3"},
                                                   {range(0, 4095), "0-4095"},
                                                   {withBits({4094, 4095}), "4094-4095"}};
    for (const auto& [bits, text] : cases) EXPECT_EQ(vlanText(bits), text);
    // A short buffer stops at the last whole entry; 9 fits "2,5-9,12" with its NUL.
    const std::pair<size_t, const char*> cut[] = {{9, "2,5-9,12"}, {8, "2,5-9"}, {6, "2,5-9"},
                                                  {5, "2"},        {2, "2"},     {1, ""}};
    for (auto [len, text] : cut) EXPECT_EQ(vlanText(mixed, len), text) << len;
    char untouched = '#';
    EXPECT_EQ(convertVlanBitMap2VlanString(mixed, &untouched, 0), 0);
    EXPECT_EQ(untouched, '#');

    // Every other VLAN, the longest text there is, fits the manager's buffer.
    Vlans odd{};
    for (uint32_t n = 1; n < 4096; n += 2) vorn::bmp::set(odd, n);
    std::string text = vlanText(odd);
    EXPECT_TRUE(text.starts_with("1,3,5,7,") && text.ends_with(",4093,4095")) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), ','), 2047);
}

}  // namespace
