#include "platform/number.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace vorn::number {
namespace {

bool isHexPrefixed(std::string_view text) {
    return text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

// The value of one digit in base 10 or 16, or -1 when c is not one.
int digitValue(char c, unsigned base) {
    if (c >= '0' && c <= '9') return c - '0';
    if (base == 16 && c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (base == 16 && c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string bound(uint64_t v, bool hex) {
    if (!hex) return std::to_string(v);
    char buf[24];
    std::snprintf(buf, sizeof(buf), "0x%llx", static_cast<unsigned long long>(v));
    return buf;
}

}  // namespace

Status read(std::string_view text, uint64_t min, uint64_t max, Radix radix, uint64_t* out) {
    unsigned base = 10;
    std::string_view digits = text;
    if (radix == Radix::DecimalOrHex && isHexPrefixed(text)) {
        base = 16;
        digits.remove_prefix(2);
    }
    if (digits.empty()) return Status::NotANumber;
    // Every character is checked before the value counts, so that "99999999999999999999x" is
    // refused as junk rather than as too big.
    uint64_t v = 0;
    bool overflow = false;
    for (char c : digits) {
        int d = digitValue(c, base);
        if (d < 0) return Status::NotANumber;
        if (v > (std::numeric_limits<uint64_t>::max() - static_cast<uint64_t>(d)) / base)
            overflow = true;
        else
            v = v * base + static_cast<uint64_t>(d);
    }
    if (overflow || v < min || v > max) return Status::OutOfRange;
    *out = v;
    return Status::Ok;
}

std::string refusal(Status status, std::string_view text, std::string_view noun, uint64_t min,
                    uint64_t max, Radix radix) {
    bool hex = radix == Radix::DecimalOrHex;
    switch (status) {
        case Status::Ok:
            return "";
        case Status::OutOfRange: {
            bool typedHex = hex && isHexPrefixed(text);
            return std::string(noun) + " " + std::string(text) + " is out of range " +
                   bound(min, typedHex) + ".." + bound(max, typedHex);
        }
        case Status::NotANumber:
            break;
    }
    return "bad " + std::string(noun) + " '" + std::string(text) + "': expected a number " +
           bound(min, false) + ".." + bound(max, false) + (hex ? ", decimal or 0x hex" : "");
}

bool parse(std::string_view text, uint64_t min, uint64_t max, std::string_view noun, uint64_t* out,
           std::string* err, Radix radix) {
    Status s = read(text, min, max, radix, out);
    if (s == Status::Ok) return true;
    *err = refusal(s, text, noun, min, max, radix);
    return false;
}

bool parse(std::string_view text, uint64_t min, uint64_t max, std::string_view noun, uint32_t* out,
           std::string* err, Radix radix) {
    uint64_t v = 0;
    if (!parse(text, min, std::min<uint64_t>(max, std::numeric_limits<uint32_t>::max()), noun, &v,
               err, radix))
        return false;
    *out = static_cast<uint32_t>(v);
    return true;
}

}  // namespace vorn::number
