#include "sim/l2pm_model.h"

#include <algorithm>

#include "platform/bitmap.h"
#include "platform/codec.h"
#include "platform/limits.h"

namespace vorn::sim {
namespace {

constexpr uint32_t kMaxVlan = limits::kMaxVlan;

// How many records of recLen fit behind `first` in a message of len bytes, and a note when
// the message claims more.
size_t recordsThatFit(size_t len, size_t first, size_t recLen, uint32_t claimed, uint64_t* bad,
                      std::string* note) {
    size_t fit = len > first ? (len - first) / recLen : 0;
    if (claimed <= fit) return claimed;
    *bad += claimed - fit;
    *note += "; claims " + std::to_string(claimed) + " records, only " + std::to_string(fit) +
             " fit: the rest ignored";
    return fit;
}

std::string plural(size_t n, const char* what) {
    return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

// "; 2 records skipped (why)", counted; "" when none was.
std::string skippedNote(size_t skipped, const char* why, uint64_t* bad) {
    if (skipped == 0) return "";
    *bad += skipped;
    return "; " + plural(skipped, "record") + " skipped (" + why + ")";
}

}  // namespace

bool isPortOrLag(uint32_t ifIndex) {
    uint32_t type = ifIndex >> 24;
    if (type == 10 || type == 11)
        return ((ifIndex >> 16) & 0xFF) <= 11 && ((ifIndex >> 8) & 0xFF) <= 63 &&
               (ifIndex & 0xFF) == 0;
    if (type == 22)
        return (ifIndex & 0x00FF0000) == 0 && (ifIndex & 0xFFFF) >= 1 && (ifIndex & 0xFFFF) <= 128;
    return false;
}

std::string ForwardingModel::apply(uint32_t mtype, const uint8_t* msg, size_t len) {
    switch (mtype) {
        case MT_L2PM_PORT_STATE:
            return applyPortState(msg, len);
        case MT_L2PM_FLUSH:
            return applyFlush(msg, len);
        case MT_L2PM_INST_PORT_OWNERSHIP:
            return applyInstanceOwnership(msg, len);
        case MT_L2PM_VLAN_STG:
            return applyVlanStg(msg, len);
        default:
            return "not a forwarding message";
    }
}

std::string ForwardingModel::applyPortState(const uint8_t* msg, size_t len) {
    be::Reader rd(msg, len);
    if (len < VORN_L2PM_PS_BASE_LEN) {
        ++counters_.malformed;
        return "too short for a port-state message (" + std::to_string(len) + " bytes)";
    }
    ++counters_.portStateMsgs;
    std::string note;
    if (rd.u32(VORN_L2PM_CLIENT_ID_OFF) != VORN_L2PM_CLIENT_ID ||
        rd.u32(VORN_L2PM_PROTO_ID_OFF) != VORN_L2PM_PROTO_ID)
        note += "; client id " + std::to_string(rd.u32(VORN_L2PM_CLIENT_ID_OFF)) +
                ", protocol id " + std::to_string(rd.u32(VORN_L2PM_PROTO_ID_OFF)) +
                " (expected 7 and 3)";
    size_t n = recordsThatFit(len, VORN_L2PM_PS_BASE_LEN, VORN_L2PM_PS_REC_LEN,
                              rd.u32(VORN_L2PM_PS_COUNT_OFF), &counters_.badRecords, &note);
    size_t applied = 0, skipped = 0;
    for (size_t i = 0; i < n; ++i) {
        size_t rec = VORN_L2PM_PS_BASE_LEN + i * VORN_L2PM_PS_REC_LEN;
        uint32_t ifIndex = rd.u32(rec);
        if (!isPortOrLag(ifIndex)) {
            ++skipped;
            continue;
        }
        auto vlans = rd.view(rec + VORN_PS_REC_VLANS_OFF, bmp::kVlanBmapBytes);
        auto fwd = rd.view(rec + VORN_PS_REC_FWD_OFF, bmp::kVlanBmapBytes);
        PortState& port = ports_[ifIndex];
        for (uint32_t v = 1; v <= kMaxVlan; ++v) {
            if (!bmp::test(vlans, v)) continue;
            bmp::set(port.known, v);
            if (bmp::test(fwd, v))
                bmp::set(port.forwarding, v);
            else
                bmp::clear(port.forwarding, v);
        }
        ++applied;
    }
    counters_.portStateRecords += applied;
    return "port states: " + plural(applied, "record") + " applied" +
           skippedNote(skipped, "not for a port", &counters_.badRecords) + note;
}

std::string ForwardingModel::applyFlush(const uint8_t* msg, size_t len) {
    be::Reader rd(msg, len);
    if (len < VORN_L2PM_PS_BASE_LEN) {
        ++counters_.malformed;
        return "too short for a flush message (" + std::to_string(len) + " bytes)";
    }
    ++counters_.flushMsgs;
    std::string note;
    size_t n = recordsThatFit(len, VORN_L2PM_PS_BASE_LEN, VORN_L2PM_FLUSH_REC_LEN,
                              rd.u32(VORN_L2PM_PS_COUNT_OFF), &counters_.badRecords, &note);
    size_t applied = 0, skipped = 0;
    for (size_t i = 0; i < n; ++i) {
        size_t rec = VORN_L2PM_PS_BASE_LEN + i * VORN_L2PM_FLUSH_REC_LEN;
        uint16_t vlan = rd.u16(rec + VORN_FL_REC_VLAN_OFF);
        uint32_t ifIndex = rd.u32(rec + VORN_FL_REC_IFINDEX_OFF);
        if (rd.u32(rec + VORN_FL_REC_KIND_OFF) != VORN_FL_REC_KIND ||
            rd.u32(rec + VORN_FL_REC_LEN_OFF) != VORN_L2PM_FLUSH_REC_LEN || vlan < 1 ||
            vlan > kMaxVlan || !isPortOrLag(ifIndex)) {
            ++skipped;
            continue;
        }
        ++flushes_[{ifIndex, vlan}];
        recent_.push_back({ifIndex, vlan});
        if (recent_.size() > kRecentFlushes) recent_.pop_front();
        ++applied;
    }
    counters_.flushRecords += applied;
    return "flushes: " + plural(applied, "record") + " applied" +
           skippedNote(skipped, "not a flush of a port's VLAN", &counters_.badRecords) + note;
}

std::string ForwardingModel::applyInstanceOwnership(const uint8_t* msg, size_t len) {
    be::Reader rd(msg, len);
    if (len < VORN_L2PM_INST_BASE_LEN) {
        ++counters_.malformed;
        return "too short for an instance-ownership message (" + std::to_string(len) + " bytes)";
    }
    ++counters_.instanceMsgs;
    std::string note;
    size_t n = recordsThatFit(len, VORN_L2PM_INST_BASE_LEN, VORN_L2PM_INST_REC_LEN,
                              rd.u32(VORN_L2PM_INST_COUNT_OFF), &counters_.badRecords, &note);
    size_t applied = 0, skipped = 0;
    for (size_t i = 0; i < n; ++i) {
        size_t rec = VORN_L2PM_INST_BASE_LEN + i * VORN_L2PM_INST_REC_LEN;
        bool add = rd.u8(rec) == 1;
        uint16_t instance = rd.u16(rec + VORN_INST_REC_INST_OFF);
        uint32_t ifIndex = rd.u32(rec + VORN_INST_REC_IFINDEX_OFF);
        if (!isPortOrLag(ifIndex)) {
            ++skipped;
            continue;
        }
        if (add) {
            instancePorts_[instance].insert(ifIndex);
        } else {
            auto it = instancePorts_.find(instance);
            if (it != instancePorts_.end()) {
                it->second.erase(ifIndex);
                if (it->second.empty()) instancePorts_.erase(it);
            }
        }
        ++applied;
    }
    counters_.instanceRecords += applied;
    return "instance ownership: " + plural(applied, "record") + " applied" +
           skippedNote(skipped, "not for a port", &counters_.badRecords) + note;
}

std::string ForwardingModel::applyVlanStg(const uint8_t* msg, size_t len) {
    be::Reader rd(msg, len);
    if (len < VORN_VLAN_STG_LEN) {
        ++counters_.malformed;
        return "too short for a VLAN-STG message (" + std::to_string(len) + " bytes)";
    }
    ++counters_.vlanStgMsgs;
    bool map = rd.u32(VORN_VLAN_STG_MAP_OFF) == 1;
    uint16_t instance = rd.u16(VORN_VLAN_STG_INST_OFF);
    auto vlans = rd.view(VORN_VLAN_STG_BMAP_OFF, bmp::kVlanBmapBytes);
    size_t changed = 0, notThere = 0;
    for (uint32_t v = 1; v <= kMaxVlan; ++v) {
        if (!bmp::test(vlans, v)) continue;
        if (map) {
            vlanInstance_[v] = instance;
            ++changed;
        } else if (vlanInstance_[v] == instance) {
            vlanInstance_[v] = 0;
            ++changed;
        } else {
            ++notThere;
        }
    }
    std::string text = std::string(map ? "VLAN-STG: mapped " : "VLAN-STG: unmapped ") +
                       plural(changed, "VLAN") + (map ? " to" : " from") + " instance " +
                       std::to_string(instance);
    if (notThere > 0) text += "; " + plural(notThere, "VLAN") + " were not in that instance";
    return text;
}

ForwardingModel::VlanBitmap ForwardingModel::vlansOfInstance(uint16_t instance) const {
    VlanBitmap out{};
    for (uint32_t v = 1; v <= kMaxVlan; ++v)
        if (vlanInstance_[v] == instance && instance != 0) bmp::set(out, v);
    return out;
}

std::vector<uint32_t> ForwardingModel::ownership(uint32_t action,
                                                 const std::vector<uint32_t>& ports) {
    ++counters_.ownershipRequests;
    std::vector<uint32_t> notGranted;
    for (uint32_t p : ports) {
        if (action == VORN_PORT_OWN_RELEASE) {
            owned_.erase(p);
        } else if (action != VORN_PORT_OWN_TAKE || !isPortOrLag(p) || refused_.count(p) != 0) {
            notGranted.push_back(p);
        } else {
            owned_.insert(p);
        }
    }
    return notGranted;
}

void ForwardingModel::setRefused(uint32_t ifIndex, bool refused) {
    if (refused)
        refused_.insert(ifIndex);
    else
        refused_.erase(ifIndex);
}

}  // namespace vorn::sim
