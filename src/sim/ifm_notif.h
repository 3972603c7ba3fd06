// IFM's notifications to the manager (MT_IFM_NOTIF_MSG): records of the model's changes,
// packed into notification bodies. The layouts are those of wire/ifm.h.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/ipc.h"
#include "wire/ifm.h"
#include "wire/peer.h"

namespace vorn::sim {

using Mac = std::array<uint8_t, 6>;

namespace ifmrec {
// What one notification holds, after the headers.
inline constexpr size_t kMaxBody = ipc::kMaxMsgLen - ipc::kSwpBodyOff;
inline constexpr size_t kRecordsSpace = kMaxBody - (VORN_IFM_RECORDS_OFF - VORN_IFM_NUM_ELEM_OFF);
// The most VLANs one type-42 record lists; larger sets take several records.
inline constexpr size_t kMaxListVlans = 1000;
static_assert(VORN_IFM_VL_REC_HEAD_LEN + 4 * kMaxListVlans <= kRecordsSpace);
}  // namespace ifmrec

// One record, before it is written. Which fields count depends on the type (see above).
struct IfmRecord {
    uint16_t type = 0;
    // Types 1-4, 25: the interface. 40, 41: the VLAN. 42: the port. 47, 48: the LAG.
    uint32_t ifIndex = 0;
    // 40, 41: the port. 47, 48: the member. 25: the value (a peer-pair id, or 0).
    uint32_t other = 0;
    uint32_t modeType = 0;        // 25 (its flags word is always the peer pair's)
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

// "joins peer-pair port channel 7", "becomes the inter-chassis link": a mode change.
std::string modeChangeText(uint32_t modeType, uint32_t value);

// "oper up Gi 0/1", "Gi 0/1 added to VLAN 10 tagged": one record for the log.
std::string describeIfmRecord(const IfmRecord& rec);

}  // namespace vorn::sim
