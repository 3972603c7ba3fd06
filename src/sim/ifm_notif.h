// IFM's notifications to the manager (message type 10908) and the records they carry.
//
// Notification body, from byte 124 of the message (after the IPC and SWP headers):
//   124  i32 NumElem: the number of records that follow
//   128  u32 Count: the number of this notification among those IFM sent, from 1
//   132  u32 reserved, zero
//   136  the records, back to back
// Record: 0 u16 type, 2 u16 length of the whole record, then by type:
//   1 interface added, 2 interface deleted (28 bytes):
//        4 ifIndex; 8 u32 attribute word (0); 12-19 zero; 20 MAC address (6); 26-27 zero
//   3 oper up, 4 oper down (8 bytes): 4 ifIndex
//   40 port added to a VLAN, 41 port removed from a VLAN (16 bytes):
//        4 VLAN ifIndex; 8 port ifIndex; 12 u16 tagged (1) or untagged (0); 14-15 zero
//   42 port added to a list of VLANs (20 + 4n bytes):
//        4 port ifIndex; 8 u16 tagged; 10-15 zero; 16 u32 n; 20 n VLAN ifIndexes
//   47 port added to a LAG, 48 port removed from a LAG (12 bytes):
//        4 LAG ifIndex; 8 member port ifIndex
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/ipc.h"

namespace vorn::sim {

using Mac = std::array<uint8_t, 6>;

namespace ifmrec {
inline constexpr uint16_t kAddIf = 1;
inline constexpr uint16_t kDelIf = 2;
inline constexpr uint16_t kOperUp = 3;
inline constexpr uint16_t kOperDown = 4;
inline constexpr uint16_t kAddVlanPort = 40;
inline constexpr uint16_t kDelVlanPort = 41;
inline constexpr uint16_t kAddVlanListPort = 42;
inline constexpr uint16_t kAddLagPort = 47;
inline constexpr uint16_t kDelLagPort = 48;

inline constexpr size_t kIfLen = 28;
inline constexpr size_t kOperLen = 8;
inline constexpr size_t kVlanPortLen = 16;
inline constexpr size_t kVlanListHeadLen = 20;
inline constexpr size_t kLagPortLen = 12;

inline constexpr size_t kOffNumElem = ipc::kSwpBodyOff;  // 124
inline constexpr size_t kOffCount = 128;
inline constexpr size_t kOffRecords = 136;
// What one notification holds, after the headers.
inline constexpr size_t kMaxBody = ipc::kMaxMsgLen - ipc::kSwpBodyOff;
inline constexpr size_t kRecordsSpace = kMaxBody - (kOffRecords - kOffNumElem);
// The most VLANs one type-42 record lists; larger sets take several records.
inline constexpr size_t kMaxListVlans = 1000;
static_assert(kVlanListHeadLen + 4 * kMaxListVlans <= kRecordsSpace);
}  // namespace ifmrec

// One record, before it is written. Which fields count depends on the type (see above).
struct IfmRecord {
    uint16_t type = 0;
    // Types 1-4: the interface. 40, 41: the VLAN. 42: the port. 47, 48: the LAG.
    uint32_t ifIndex = 0;
    // 40, 41: the port. 47, 48: the member.
    uint32_t other = 0;
    bool tagged = false;          // 40, 41, 42
    Mac mac{};                    // 1, 2
    std::vector<uint16_t> vlans;  // 42: VLAN ids, at most ifmrec::kMaxListVlans

    bool operator==(const IfmRecord&) const = default;
};

// The record's length on the wire.
size_t ifmRecordLength(const IfmRecord& rec);

// Packs records, in order, into as few notification bodies as hold them (each at most
// ifmrec::kMaxBody bytes, to be sent from byte 124 of a message). *count is the Count of the
// last notification IFM sent; each body takes the next number.
std::vector<std::vector<uint8_t>> packIfmNotifications(const std::vector<IfmRecord>& records,
                                                       uint32_t* count);

// "oper up Gi 0/1", "Gi 0/1 added to VLAN 10 tagged": one record for the log.
std::string describeIfmRecord(const IfmRecord& rec);

}  // namespace vorn::sim
