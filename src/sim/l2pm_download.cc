#include "sim/l2pm_download.h"

#include "platform/codec.h"
#include "platform/ifindex.h"

namespace vorn::sim::dnld {
namespace {

// Offsets are of the message; a body starts at its byte 124.
constexpr size_t kBodyOff = ipc::kSwpBodyOff;
constexpr size_t kMaxBody = ipc::kMaxMsgLen - kBodyOff;

size_t lengthOf(const Record& r) {
    return r.hasVlans ? VORN_L2PM_DNLD_LONG_LEN : VORN_L2PM_DNLD_SHORT_LEN;
}

std::vector<uint8_t> startBody(uint32_t kind) {
    std::vector<uint8_t> body(VORN_L2PM_DNLD_RECORDS_OFF - kBodyOff, 0);
    be::Writer(body.data(), body.size()).u32(VORN_L2PM_NOTIF_KIND_OFF - kBodyOff, kind);
    return body;
}

void write(const Record& r, be::Writer& w, size_t off) {
    w.u32(off, r.ifIndex);
    if (ifmIfIndexToIfType(r.ifIndex) == ifm::kTypeVlan) return;
    w.u32(off + VORN_L2PM_DNLD_LAG_OFF, r.lag);
    w.u32(off + VORN_L2PM_DNLD_OPER_OFF,
          r.operUp ? VORN_L2PM_DNLD_OPER_UP : VORN_L2PM_DNLD_OPER_DOWN);
    w.bytes(off + VORN_L2PM_DNLD_MAC_OFF, r.mac.data(), r.mac.size());
    w.u8(off + VORN_L2PM_DNLD_TAGGED_OFF, r.tagged ? 1 : 0);
    w.u8(off + VORN_L2PM_DNLD_HAS_VLANS_OFF, r.hasVlans ? 1 : 0);
    if (r.hasVlans) w.bytes(off + VORN_L2PM_DNLD_VLANS_OFF, r.vlans.data(), r.vlans.size());
}

// The records of one port or LAG: one per tagging it has, or one without VLANs.
void portRecords(const ChassisModel& m, const ChassisModel::Interface& i,
                 std::vector<Record>* out) {
    Record first;
    first.ifIndex = i.ifIndex;
    first.lag = i.lag;
    first.operUp = m.operUp(i.ifIndex);
    first.mac = ChassisModel::macOf(i.ifIndex);
    bool tagged = vlanCount(i.tagged) != 0;
    bool untagged = vlanCount(i.untagged) != 0;
    first.hasVlans = tagged || untagged;
    first.tagged = tagged;
    first.vlans = tagged ? i.tagged : i.untagged;
    out->push_back(first);
    if (tagged && untagged) {
        Record second;
        second.ifIndex = i.ifIndex;
        second.mac = first.mac;
        second.hasVlans = true;
        second.vlans = i.untagged;
        out->push_back(second);
    }
}

}  // namespace

std::vector<Record> records(const ChassisModel& m) {
    std::vector<Record> out;
    forEachVlan(m.vlans(), [&out](uint16_t v) {
        Record r;
        r.ifIndex = ifmCreateIfIndex(ifm::kTypeVlan, 0, 0, v);
        out.push_back(r);
    });
    for (bool lags : {true, false})
        for (const auto& [ifIndex, i] : m.interfaces())
            if ((ifmIfIndexToIfType(ifIndex) == ifm::kTypeLag) == lags) portRecords(m, i, &out);
    return out;
}

std::vector<std::vector<uint8_t>> pack(const std::vector<Record>& recs) {
    std::vector<std::vector<uint8_t>> bodies;
    int32_t inBody = 0;
    for (const Record& r : recs) {
        size_t len = lengthOf(r);
        if (bodies.empty() || bodies.back().size() + len > kMaxBody) {
            bodies.push_back(startBody(VORN_L2PM_NOTIF_DNLD));
            inBody = 0;
        }
        std::vector<uint8_t>& body = bodies.back();
        size_t off = body.size();
        body.resize(off + len, 0);
        be::Writer w(body.data(), body.size());
        write(r, w, off);
        w.u32(VORN_L2PM_DNLD_COUNT_OFF - kBodyOff, static_cast<uint32_t>(++inBody));
    }
    return bodies;
}

std::vector<uint8_t> endOfConfig() {
    return startBody(VORN_L2PM_NOTIF_EOCONF);
}

}  // namespace vorn::sim::dnld
