// Bitmap scans and operations in wire order (bit n in byte n / 8, mask 0x80 >> n % 8).
#include "platform/bitmap.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>

namespace {

// The first set bit in [start, limit), limit clamped to the bitmap and to the largest bit
// number a scan can report (0xFFFE, since 0xFFFF means "none"). Zero bytes are skipped
// eight at a time, which is what keeps a walk over a sparse 4096-bit bitmap cheap.
uint16_t scan(std::span<const uint8_t> bmp, uint64_t start, uint64_t limit) {
    limit = std::min({limit, uint64_t{bmp.size()} * 8, uint64_t{vorn::bmp::kNoBit}});
    if (start >= limit) return vorn::bmp::kNoBit;
    const size_t end = static_cast<size_t>((limit + 7) / 8);  // bytes that hold bits < limit
    size_t i = static_cast<size_t>(start / 8);
    uint8_t b = static_cast<uint8_t>(bmp[i] & (0xFFu >> (start % 8)));
    while (b == 0) {
        ++i;
        while (i + 8 <= end) {
            uint64_t word;
            std::memcpy(&word, bmp.data() + i, sizeof word);
            if (word != 0) break;
            i += 8;
        }
        if (i >= end) return vorn::bmp::kNoBit;
        b = bmp[i];
    }
    uint64_t bit = uint64_t{i} * 8 + static_cast<uint64_t>(std::countl_zero(b));
    return bit < limit ? static_cast<uint16_t>(bit) : vorn::bmp::kNoBit;
}

}  // namespace

uint16_t GET_FIRST_BIT_BITMAP(std::span<const uint8_t> bmp, uint32_t nbits) {
    return scan(bmp, 0, nbits);
}

uint16_t GET_NEXT_BIT_BITMAP(std::span<const uint8_t> bmp, uint32_t nbits, uint32_t bit) {
    return scan(bmp, uint64_t{bit} + 1, nbits);
}

bool BITMAP_IS_EMPTY(std::span<const uint8_t> bmp) {
    return std::all_of(bmp.begin(), bmp.end(), [](uint8_t b) { return b == 0; });
}

void BITMAP_AND_BITMAPS(std::span<uint8_t> dst, std::span<const uint8_t> a,
                        std::span<const uint8_t> b) {
    size_t n = std::min({dst.size(), a.size(), b.size()});
    for (size_t i = 0; i < n; ++i) dst[i] = static_cast<uint8_t>(a[i] & b[i]);
}

void BITMAP_DIFF_BITMAPS(std::span<uint8_t> dst, std::span<const uint8_t> a,
                         std::span<const uint8_t> b) {
    size_t n = std::min({dst.size(), a.size(), b.size()});
    for (size_t i = 0; i < n; ++i) dst[i] = static_cast<uint8_t>(a[i] & ~b[i]);
}

// Each run of consecutive bits becomes one entry, "a" or "a-b"; an entry that does not fit
// whole (with its comma and the final NUL) ends the text.
int convertVlanBitMap2VlanString(std::span<const uint8_t> bmp, char* out, size_t len) {
    if (out == nullptr || len == 0) return 0;
    out[0] = '\0';
    const uint32_t nbits = static_cast<uint32_t>(std::min<size_t>(bmp.size() * 8, 0xFFFF));
    size_t used = 0;
    for (uint16_t first = GET_FIRST_BIT_BITMAP(bmp, nbits); first != vorn::bmp::kNoBit;) {
        uint32_t last = first;
        uint16_t next = GET_NEXT_BIT_BITMAP(bmp, nbits, last);
        while (next != vorn::bmp::kNoBit && next == last + 1) {
            last = next;
            next = GET_NEXT_BIT_BITMAP(bmp, nbits, last);
        }
        char entry[16];
        int n = (last == first)
                    ? std::snprintf(entry, sizeof entry, "%s%u", used ? "," : "", unsigned{first})
                    : std::snprintf(entry, sizeof entry, "%s%u-%u", used ? "," : "",
                                    unsigned{first}, last);
        if (used + static_cast<size_t>(n) + 1 > len) break;
        std::memcpy(out + used, entry, static_cast<size_t>(n) + 1);
        used += static_cast<size_t>(n);
        first = next;
    }
    return static_cast<int>(used);
}
