// Field access to a configuration request, for the handlers of this subsystem. The request
// is the whole 1024-byte buffer; every field is read and written through the codec, bounded
// by that length.
#pragma once

#include <cstdint>
#include <iterator>
#include <string>

#include "config/config.h"
#include "config/readiness.h"
#include "platform/codec.h"
#include "ringdb/records.h"

namespace vorn::cfg {

inline be::Reader reqReader(const uint8_t* req) {
    return be::Reader(req, req != nullptr ? vorn::nm::kLen : 0);
}
inline be::Writer reqWriter(uint8_t* req) {
    return be::Writer(req, req != nullptr ? vorn::nm::kLen : 0);
}

inline uint16_t reqRingId(const uint8_t* req) {
    return reqReader(req).u16(vorn::nm::kOffRingId);
}
inline bool reqIsNoForm(const uint8_t* req) {
    return reqReader(req).u16(vorn::nm::kOffNoForm) != 0;
}
inline uint16_t reqStatus(const uint8_t* req) {
    return reqReader(req).u16(vorn::nm::kOffStatus);
}
inline void reqSetStatus(uint8_t* req, uint16_t status) {
    reqWriter(req).u16(vorn::nm::kOffStatus, status);
}

// The member-VLAN bitmap of the request.
inline VornVlanBmap reqMemberVlans(const uint8_t* req) {
    VornVlanBmap bmp{};
    reqReader(req).bytes(vorn::nm::kOffMemberVlans, bmp.data(), bmp.size());
    return bmp;
}

// The description text: up to its NUL, and never past the end of the request.
inline std::string reqDescription(const uint8_t* req) {
    auto v = reqReader(req).view(vorn::nm::kOffDescription, vorn::nm::kDescriptionRoom);
    std::string text(v.begin(), v.end());
    if (size_t nul = text.find('\0'); nul != std::string::npos) text.resize(nul);
    return text;
}

// The ring state that the agents compare against after a change: ready and with a ready
// secondary interface.
inline uint32_t vornRingRunStatus(const VornRingEntry& ring) {
    return vornRingRuns(ring) ? 1 : 0;
}

// The name of a mode value, or null for a value outside the mode table.
inline const char* vornModeStr(uint32_t mode) {
    return mode < std::size(gVornModeStrs) ? gVornModeStrs[mode] : nullptr;
}

}  // namespace vorn::cfg

// Unlinks one ring interface from its port record when the ring's control VLAN goes: the
// control VLAN's and the ring's bits, the port's ownership when this was its last ring use
// (given back to L2PM), and the ring configuration's claim on the record.
void vornCfgReleaseRingPort(const VornRingEntry& ring, uint32_t ifIndex, uint16_t portNum);
