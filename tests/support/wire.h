// The big-endian words of test messages, read the way the receivers read them.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "platform/codec.h"

namespace vorn::test {

using Bytes = std::vector<uint8_t>;

inline uint32_t u32At(const Bytes& m, size_t off) {
    return be::Reader(m.data(), m.size()).u32(off);
}

// The 32-bit words at the given offsets, so that a message's fields are checked in one
// expectation (a read past the message gives 0, as be::Reader does).
inline std::vector<uint32_t> words(const Bytes& m, std::initializer_list<size_t> offsets) {
    std::vector<uint32_t> out;
    for (size_t off : offsets) out.push_back(u32At(m, off));
    return out;
}

// "00 01 0a ff" as bytes: pairs of hex digits, with blanks between pairs as the eye wants
// them.
inline Bytes hex(const char* text) {
    auto digit = [](char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; };
    Bytes out;
    for (const char* p = text; p[0] != '\0' && p[1] != '\0';) {
        if (*p == ' ') {
            ++p;
            continue;
        }
        out.push_back(static_cast<uint8_t>(digit(p[0]) << 4 | digit(p[1])));
        p += 2;
    }
    return out;
}

}  // namespace vorn::test
