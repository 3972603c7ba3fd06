// Unsigned numbers typed by a person: option values on a command line, arguments of the debug
// shell, words of vornctl's and vornsim's commands. One reader for all of them, so that every
// program refuses the same things (an empty word, a sign, a blank, anything after the digits, a
// number past the bounds however many digits it has) with the same sentence, naming the value,
// what it was meant to be and the bounds.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vorn::number {

enum class Radix {
    Decimal,       // digits 0-9 only
    DecimalOrHex,  // also "0x" or "0X" followed by hex digits of either case
};

enum class Status {
    Ok,
    NotANumber,  // empty, a sign, a blank, a letter, "0x" without digits, trailing junk
    OutOfRange,  // a well-formed number below min or above max, overflow included
};

// Reads all of `text` as one number. Ok: *out holds it, and min <= *out <= max. Otherwise *out
// is left as it was.
Status read(std::string_view text, uint64_t min, uint64_t max, Radix radix, uint64_t* out);

// The sentence that refuses `text`, naming it by `noun`:
//   OutOfRange: "ring id 300 is out of range 1..255" (the bounds in hex when the text was hex)
//   NotANumber: "bad ring id 'x': expected a number 1..255" (", decimal or 0x hex" added when
//               the radix allows hex)
// Empty for Ok.
std::string refusal(Status status, std::string_view text, std::string_view noun, uint64_t min,
                    uint64_t max, Radix radix);

// read() and refusal() in one: true with *out set, or false with the sentence in *err.
// The 32-bit form never takes a bound above 0xFFFFFFFF: a larger max is lowered to it.
bool parse(std::string_view text, uint64_t min, uint64_t max, std::string_view noun, uint32_t* out,
           std::string* err, Radix radix = Radix::Decimal);
bool parse(std::string_view text, uint64_t min, uint64_t max, std::string_view noun, uint64_t* out,
           std::string* err, Radix radix = Radix::Decimal);

}  // namespace vorn::number
