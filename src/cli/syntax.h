// Words of the operator's syntax that vornctl and vornsim share: interface names (numbers are
// read by platform/number.h). An interface is accepted in its long and short form, with or without
// the blank ("GigabitEthernet 0/1", "Gi 0/1", "gi0/1", "TenGigabitEthernet 1/2", "Port-channel 5",
// "po5"; the type word may be any unambiguous prefix of the long name) and turned into its
// ifIndex. Every refusal names the value that was wrong.
//
// Header-only, because the simulator's commands take the same names and the simulator does
// not link the command line's library.
#pragma once

#include <cctype>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/ifindex.h"
#include "platform/limits.h"
#include "platform/number.h"

namespace vorn::cli {

inline constexpr uint32_t kMaxSlot = limits::kMaxSlot;
inline constexpr uint32_t kMaxPort = limits::kMaxPort;
inline constexpr uint32_t kMinLag = limits::kMinLag;
inline constexpr uint32_t kMaxLag = limits::kMaxLag;

// One kind of interface that can carry a ring.
struct IfType {
    const char* longName;   // "GigabitEthernet"
    const char* shortName;  // "Gi"
    uint32_t type;          // the ifIndex type (bits 31-24)
    bool lag;               // true: a number follows; false: SLOT/PORT follows
};

inline constexpr IfType kIfTypes[] = {
    {"GigabitEthernet", "Gi", ifm::kTypeGigabit, false},
    {"TenGigabitEthernet", "Te", ifm::kTypeTenGigabit, false},
    {"Port-channel", "Po", ifm::kTypeLag, true},
};

namespace detail {

// True when `text` is a decimal number, whatever its size.
inline bool isNumber(std::string_view text) {
    uint64_t unused = 0;
    return number::read(text, 0, UINT64_MAX, number::Radix::Decimal, &unused) !=
           number::Status::NotANumber;
}

// Reads the slot, port or port-channel number `text` of the interface `shown`; false with
// "slot 12 is out of range 0..11 in 'Gi 12/1'" when it is out of range.
inline bool inRange(std::string_view text, uint32_t lo, uint32_t hi, const char* what,
                    const std::string& shown, uint32_t* out, std::string* err) {
    if (number::parse(text, lo, hi, what, out, err)) return true;
    *err += " in '" + shown + "'";
    return false;
}

// The interface type whose long name starts with `word` (any case); null when none or when
// the word is too short to tell the types apart.
inline const IfType* findIfType(std::string_view word) {
    const IfType* found = nullptr;
    for (const IfType& t : kIfTypes) {
        std::string_view name = t.longName;
        if (word.empty() || word.size() > name.size()) continue;
        bool prefix = true;
        for (size_t i = 0; i < word.size() && prefix; ++i)
            prefix = std::tolower(static_cast<unsigned char>(word[i])) ==
                     std::tolower(static_cast<unsigned char>(name[i]));
        if (!prefix) continue;
        if (found != nullptr) return nullptr;
        found = &t;
    }
    return found;
}

}  // namespace detail

// Parses the interface that starts at words[at]: either one word ("gi0/1", "po5") or a type
// word followed by its number ("Gi" "0/1"). On success *ifIndex is set and *used says how many
// words it took (1 or 2).
inline bool parseInterface(std::span<const std::string> words, size_t at, uint32_t* ifIndex,
                           size_t* used, std::string* err) {
    if (at >= words.size()) {
        *err = "an interface is missing (e.g. GigabitEthernet 0/1, Gi 0/1, po5)";
        return false;
    }
    const std::string& first = words[at];
    size_t split = 0;
    while (split < first.size() &&
           (std::isalpha(static_cast<unsigned char>(first[split])) || first[split] == '-'))
        ++split;
    std::string_view typeWord = std::string_view(first).substr(0, split);
    std::string_view tail = std::string_view(first).substr(split);
    std::string shown = first;
    size_t n = 1;
    if (tail.empty() && at + 1 < words.size() && !typeWord.empty()) {
        tail = words[at + 1];
        shown += " " + words[at + 1];
        n = 2;
    }
    const IfType* t = detail::findIfType(typeWord);
    if (t == nullptr) {
        *err = "unknown interface '" + shown +
               "': ring interfaces are GigabitEthernet SLOT/PORT, TenGigabitEthernet "
               "SLOT/PORT or Port-channel NUMBER";
        return false;
    }
    if (tail.empty()) {
        *err = std::string("interface '") + first + "' needs " +
               (t->lag ? "a number, e.g. Port-channel 5"
                       : "SLOT/PORT, e.g. " + std::string(t->longName) + " 0/1");
        return false;
    }
    if (t->lag) {
        uint32_t lag = 0;
        if (!detail::isNumber(tail)) {
            *err = "bad interface '" + shown + "': expected Port-channel NUMBER, e.g. po5";
            return false;
        }
        if (!detail::inRange(tail, kMinLag, kMaxLag, "port-channel number", shown, &lag, err))
            return false;
        *ifIndex = ifmCreateIfIndex(t->type, 0, 0, lag);
        *used = n;
        return true;
    }
    size_t slash = tail.find('/');
    std::string_view slotText = tail.substr(0, slash);
    std::string_view portText = slash == std::string_view::npos ? "" : tail.substr(slash + 1);
    uint32_t slot = 0, port = 0;
    // Both halves are numbers before either range counts: "Gi 12/x" is a bad name.
    if (!detail::isNumber(slotText) || !detail::isNumber(portText)) {
        *err = "bad interface '" + shown + "': expected " + t->longName + " SLOT/PORT, e.g. " +
               t->shortName + " 0/1";
        return false;
    }
    if (!detail::inRange(slotText, 0, kMaxSlot, "slot", shown, &slot, err) ||
        !detail::inRange(portText, 0, kMaxPort, "port", shown, &port, err))
        return false;
    *ifIndex = ifmCreateIfIndex(t->type, slot, port, 0);
    *used = n;
    return true;
}

// The long name of an ifIndex ("GigabitEthernet 0/1", "Port-channel 5").
inline std::string longIfName(uint32_t ifIndex) {
    char name[48];
    return ifmIfIndexToLName(ifIndex, name, sizeof(name));
}

// The short name of an ifIndex ("Gi 0/1", "Po 5").
inline std::string shortIfName(uint32_t ifIndex) {
    char name[48];
    return ifmIfIndexToName(ifIndex, name, sizeof(name));
}

}  // namespace vorn::cli
