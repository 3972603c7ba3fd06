// The configuration request of the command line: one 1024-byte MT_NM (6001) message to the
// manager's request queue 226.0.1, answered with the same 1024 bytes, the reply flag set and
// the status at offset 64. This is the command line's own definition of the layout; it is
// kept independent of the manager's so that each checks the other.
//
// Body (offsets from the start of the message, big-endian):
//   64  u32  reply status (written by the manager)
//   72  u32  request type: which setting the request carries (Type below)
//   80  u16  command word (unused by configuration requests; 0)
//   82  u16  no-form flag: 0 the command as typed, 1 its "no" form
//   84  u16  status (0 on the way in)
//   86  u16  configured rings (written by the manager on ring removal)
//   88  u16  active rings (written by the manager on enable, disable and ring removal)
//   90  u16  ring id 1..255
//   92  u8   mode: 1 master, 2 transit
//   94  u16  hello interval, milliseconds
//   96  u16  dead interval, milliseconds
//   100 u32  primary interface ifIndex
//   104 u32  secondary interface ifIndex
//   108 u32  control VLAN, as a VLAN ifIndex
//   112 512  member VLANs, 4096-bit bitmap
//   624 char description, NUL-terminated
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "cli/vlan_list.h"

namespace vorn::cli::nm {

inline constexpr size_t kLen = 1024;
inline constexpr uint32_t kMtNm = 6001;

inline constexpr size_t kOffReplyStatus = 64;
inline constexpr size_t kOffType = 72;
inline constexpr size_t kOffCommandWord = 80;
inline constexpr size_t kOffNoForm = 82;
inline constexpr size_t kOffStatus = 84;
inline constexpr size_t kOffConfiguredRings = 86;
inline constexpr size_t kOffActiveRings = 88;
inline constexpr size_t kOffRingId = 90;
inline constexpr size_t kOffMode = 92;
inline constexpr size_t kOffHello = 94;
inline constexpr size_t kOffDead = 96;
inline constexpr size_t kOffPrimary = 100;
inline constexpr size_t kOffSecondary = 104;
inline constexpr size_t kOffCtrlVlan = 108;
inline constexpr size_t kOffMemberVlans = 112;
inline constexpr size_t kOffDescription = 624;
static_assert(kOffMemberVlans + sizeof(VlanBitmap) == kOffDescription);

// The longest description the switch keeps; the request has room for it and its NUL.
inline constexpr size_t kMaxDescription = 255;
static_assert(kOffDescription + kMaxDescription + 1 <= kLen);

// Request types (offset 72).
enum class Type : uint32_t {
    Protocol = 0,  // create or remove a ring
    Description = 1,
    ControlVlan = 2,  // control VLAN with the primary and secondary interfaces
    MemberVlan = 3,
    Mode = 4,
    Enable = 5,  // "disable" and "no disable"
    DeadTimer = 6,
    HelloTimer = 7,
};

inline constexpr uint8_t kModeMaster = 1;
inline constexpr uint8_t kModeTransit = 2;

// What one configuration command asks of the manager. Fields a type does not use stay 0.
struct ConfigRequest {
    Type type = Type::Protocol;
    bool noForm = false;
    uint16_t ringId = 0;
    uint8_t mode = 0;
    uint16_t hello = 0;
    uint16_t dead = 0;
    uint32_t primary = 0;
    uint32_t secondary = 0;
    uint16_t controlVlan = 0;  // the VLAN id; the request carries its ifIndex
    VlanBitmap memberVlans{};
    std::string description;  // at most kMaxDescription characters
};

// The request as it goes on the wire, from the client's request queue srcQueueId to 226.0.1,
// with exchange id xid.
std::array<uint8_t, kLen> encode(const ConfigRequest& req, uint32_t xid, uint32_t srcQueueId);

// The manager's answer to one request.
struct Reply {
    uint32_t status = 0;
    uint16_t configuredRings = 0;
    uint16_t activeRings = 0;
};

// Reads the answer to exchange xid from a message of len bytes. False when the message is not
// that answer: another type, no reply flag, another exchange, or not a whole request.
bool decodeReply(const uint8_t* msg, size_t len, uint32_t xid, Reply* out);

// "the command 'mode master'" style names of a request type, for messages.
const char* typeName(Type type);

}  // namespace vorn::cli::nm
