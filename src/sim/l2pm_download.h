// L2PM's configuration download: once a manager has registered, L2PM replays the chassis to
// it in notifications 18402 of kind 2 and ends with one of kind 4 (end of configuration),
// so that a manager started under a running chassis builds the state it would have built
// from every IFM notification. The layout is in wire/l2pm.h.
//
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
#include "wire/l2pm.h"

namespace vorn::sim::dnld {

static_assert(VORN_L2PM_DNLD_RECORDS_OFF + 4 * VORN_L2PM_DNLD_LONG_LEN <= ipc::kMaxMsgLen);

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
