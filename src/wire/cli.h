// The command line's requests to the manager (MT_NM, 6001): configuration, show, debug and
// clear, each 1024 bytes to the manager's request queue 226.0.1 and answered with the same
// 1024 bytes, the reply flag set and the status at offset 64. Shared by the manager and
// vornctl; tests pin the offsets byte by byte.
//
// Body (offsets from the start of the message, big-endian):
//   64  u32  reply status (written by the manager)
//   72  u32  request type (kType* below)
//   80  u16  command word (unused by configuration requests; 0)
//   82  u16  no-form flag: 0 the command as typed, 1 its "no" form
//   84  u16  status of a configuration handler (0 on the way in; kStatus* below)
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

#include <cstddef>
#include <cstdint>

namespace vorn::nm {

inline constexpr size_t kLen = 1024;
inline constexpr uint32_t kMtNm = 6001;
// The manager's answer to a show request.
inline constexpr uint32_t kMtDisplay = 6002;

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
inline constexpr size_t kDescriptionRoom = kLen - kOffDescription;
static_assert(kOffMemberVlans + 512 == kOffDescription);
// The longest description the switch keeps; the request has room for it and its NUL.
inline constexpr size_t kMaxDescription = 255;
static_assert(kMaxDescription + 1 <= kDescriptionRoom);

// Request types (offset 72).
inline constexpr uint32_t kTypeProto = 0;  // create or remove a ring
inline constexpr uint32_t kTypeDesc = 1;
inline constexpr uint32_t kTypeCtrlVlan = 2;  // control VLAN with the two interfaces
inline constexpr uint32_t kTypeMemberVlan = 3;
inline constexpr uint32_t kTypeMode = 4;
inline constexpr uint32_t kTypeEnable = 5;  // "disable" and "no disable"
inline constexpr uint32_t kTypeDead = 6;
inline constexpr uint32_t kTypeHello = 7;
inline constexpr uint32_t kTypeClearStat = 8;
inline constexpr uint32_t kTypeDbgDetail = 0xAAAA;
inline constexpr uint32_t kTypeDbgEvent = 0xBBBB;
inline constexpr uint32_t kTypeDbgPacket = 0xCCCC;
inline constexpr uint32_t kTypeShowSummary = 100036;
inline constexpr uint32_t kTypeShowDetail = 100270;
inline constexpr uint32_t kTypeShowMemberVlans = 100271;

// Modes (offset 92).
inline constexpr uint8_t kModeMaster = 1;
inline constexpr uint8_t kModeTransit = 2;

// Status codes of the configuration handlers (offset 84).
enum Status : uint16_t {
    kStatusOk = 0,
    kStatusNoRing = 1,            // ring id out of range, or no such ring
    kStatusModeDiffers = 2,       // the mode to remove is not the ring's mode
    kStatusPrimaryDiffers = 3,    // removal names another primary interface
    kStatusSecondaryDiffers = 4,  // ... another secondary interface
    kStatusCtrlVlanDiffers = 5,   // ... another control VLAN
    kStatusCtrlVlanInUse = 6,     // the VLAN is another ring's control VLAN
    kStatusVlanIsMember = 7,      // the VLAN is a member VLAN of a ring
    kStatusMemberIsCtrl = 8,      // a member VLAN to add is a control VLAN
    kStatusPrimaryRefused = 9,    // L2PM refused the primary interface
    kStatusSecondaryRefused = 10,
    kStatusSameInterface = 11,    // primary and secondary are the same interface
    kStatusOwnershipFailed = 14,  // ownership could not be taken for another reason
    kStatusIfmRefused = 18,       // the interface manager refused the control VLAN
    kStatusSecondaryIsIcl = 20,   // the secondary is the peer pair's inter-chassis link
};

}  // namespace vorn::nm
