// L2PM's configuration download: once a manager has registered, L2PM replays the chassis to
// it in notifications 18402 of kind 2 and ends with one of kind 4 (end of configuration),
// so that a manager started under a running chassis builds the state it would have built
// from every IFM notification.
//
// Notification body, from byte 124 of the message:
//   124-247  zero
//   248  u32 kind: 2 download, 4 end of configuration
//   252  i32 number of records (0 in the end of configuration)
//   256  records, back to back
// VLAN record (144 bytes): 0 VLAN ifIndex; the rest zero.
// Port or LAG record (144 bytes, or 1680 when it carries a VLAN bitmap):
//   0    u32 ifIndex
//   4    u32 ifIndex of the LAG the port is a member of; 0 when none
//   22   u32 oper status: 16 up, 0 down
//   26   6   MAC address
//   33   u8  1: tagged member of the VLANs of the bitmap; 0: untagged
//   50   u8  1: the VLAN bitmap is present (and the record is 1680 bytes long)
//   144  512 VLAN bitmap, bit v in byte v / 8 under 0x80 >> (v % 8)
//   656-1679 zero
// The records come in this order: the VLANs, ascending; the LAGs, ascending; the physical
// ports, ascending (by ifIndex: slot, then port). A LAG thus exists before its members join
// it, and every VLAN before its members. One record carries one tagging, so a port that is
// both a tagged and an untagged member has two records: the first with its tagged VLANs, its
// oper status and its LAG, the second with its untagged VLAN only (oper status 0, LAG 0), so
// that the manager does not replay the oper state and the LAG membership twice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/ipc.h"
#include "sim/chassis_model.h"

namespace vorn::sim::dnld {

inline constexpr uint32_t kKindDownload = 2;
inline constexpr uint32_t kKindEndOfConfig = 4;
inline constexpr size_t kOffKind = 248;
inline constexpr size_t kOffCount = 252;
inline constexpr size_t kOffRecords = 256;
inline constexpr size_t kShortLen = 144;
inline constexpr size_t kLongLen = 1680;
inline constexpr size_t kRecLag = 4;
inline constexpr size_t kRecOper = 22;
inline constexpr size_t kRecMac = 26;
inline constexpr size_t kRecTagged = 33;
inline constexpr size_t kRecHasVlans = 50;
inline constexpr size_t kRecVlans = 144;
inline constexpr uint32_t kOperUp = 16;
inline constexpr uint32_t kOperDown = 0;
static_assert(kRecVlans == kShortLen && kRecVlans + 512 + 1024 == kLongLen);
static_assert(kOffRecords + 4 * kLongLen <= ipc::kMaxMsgLen);

// One record, before it is written.
struct Record {
    uint32_t ifIndex = 0;
    uint32_t lag = 0;
    bool operUp = false;
    Mac mac{};
    bool tagged = false;
    bool hasVlans = false;
    VlanSet vlans{};

    bool operator==(const Record&) const = default;
};

// The records of the whole chassis, in download order.
std::vector<Record> records(const ChassisModel& m);
// Packs records, in order, into download bodies (kind 2), each at most 8068 bytes, to be
// sent from byte 124 of a message. No records: no bodies.
std::vector<std::vector<uint8_t>> pack(const std::vector<Record>& recs);
// The body of the end of configuration (kind 4).
std::vector<uint8_t> endOfConfig();

}  // namespace vorn::sim::dnld
