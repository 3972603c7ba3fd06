// The interface arguments of the simulator's commands ("Gi 0/1", "gi0/1", "po5").
#pragma once

#include <span>
#include <string>

#include "cli/syntax.h"
#include "sim/commands.h"

namespace vorn::sim {

// The interface that starts at args[at] (one word or two); *next is the index after it.
inline bool interfaceAt(const CommandTable::Args& args, size_t at, uint32_t* ifIndex, size_t* next,
                        std::string* err) {
    size_t used = 0;
    if (!cli::parseInterface(std::span<const std::string>(args), at, ifIndex, &used, err))
        return false;
    *next = at + used;
    return true;
}

// The interface that makes up all of args[at..].
inline bool interfaceRest(const CommandTable::Args& args, size_t at, uint32_t* ifIndex,
                          std::string* err) {
    size_t next = 0;
    if (!interfaceAt(args, at, ifIndex, &next, err)) return false;
    if (next != args.size()) {
        *err = "unexpected '" + args[next] + "' after the interface";
        return false;
    }
    return true;
}

// "INTERFACE WORD" where WORD is one of two (up or down, cut or restore): *first tells which.
inline bool interfaceThen(const CommandTable::Args& args, const char* usage, const char* one,
                          const char* other, uint32_t* ifIndex, bool* first, std::string* err) {
    size_t next = 0;
    if (!interfaceAt(args, 0, ifIndex, &next, err)) return false;
    if (next + 1 != args.size()) {
        *err = std::string("usage: ") + usage;
        return false;
    }
    *first = args[next] == one;
    if (*first || args[next] == other) return true;
    *err = std::string("expected ") + one + " or " + other + ", not '" + args[next] + "'";
    return false;
}

}  // namespace vorn::sim
