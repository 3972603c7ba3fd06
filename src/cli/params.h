// The parameters of the grammar: how each is shown in help and how it is read from the words
// of a line, with its bounds checked and a message that names a bad value.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "cli/grammar.h"
#include "platform/limits.h"

namespace vorn::cli {

inline constexpr uint32_t kMinRingId = limits::kMinRingId;
inline constexpr uint32_t kMaxRingId = limits::kMaxRingId;
inline constexpr uint32_t kMinHello = 50;
inline constexpr uint32_t kMaxHello = 2000;
inline constexpr uint32_t kMinDead = 50;
inline constexpr uint32_t kMaxDead = 6000;

struct ParamInfo {
    Param param;
    const char* name;  // in syntax strings: "RING"
    const char* form;  // in help: "<1-255>"
    const char* help;
};

// The parameter named `name` in a syntax string, or null.
const ParamInfo* findParam(std::string_view name);
const ParamInfo& paramInfo(Param param);
// TEXT and LINE take the rest of the line.
bool takesRestOfLine(Param param);

struct ParamResult {
    bool ok = false;
    size_t used = 0;  // words taken
    Value value;
    std::string error;
    // The words ran out in the middle of the parameter (an interface type word without
    // its number): help can still say what comes next.
    bool needMore = false;
};

// Reads parameter `param` from words[at...]; `line` is the text the words were split from
// (the rest-of-line parameters take it as typed, blanks included).
ParamResult parseParam(Param param, const std::vector<Word>& words, size_t at,
                       std::string_view line);

// The interface type names that begin with `partial` (any case), for completion.
std::vector<std::string> interfaceTypesStartingWith(std::string_view partial);

}  // namespace vorn::cli
