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

}  // namespace vorn::test
