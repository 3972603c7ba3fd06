#include "sim/ifm_notif.h"

#include "cli/syntax.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "sim/vlan_set.h"

namespace vorn::sim {
namespace {

using namespace ifmrec;

// Offsets inside a body (which starts at byte 124 of the message).
constexpr size_t kBodyNumElem = kOffNumElem - ipc::kSwpBodyOff;
constexpr size_t kBodyCount = kOffCount - ipc::kSwpBodyOff;
constexpr size_t kBodyRecords = kOffRecords - ipc::kSwpBodyOff;

// Record offsets.
constexpr size_t kRecType = 0;
constexpr size_t kRecLen = 2;
constexpr size_t kRecIf = 4;
constexpr size_t kRecAttr = 8;
constexpr size_t kRecMac = 20;
constexpr size_t kRecPort = 8;     // VLAN port, LAG port
constexpr size_t kRecTagged = 12;  // VLAN port
constexpr size_t kRecListTagged = 8;
constexpr size_t kRecListCount = 16;
constexpr size_t kRecList = 20;
static_assert(kRecMac + 6 <= kIfLen && kRecTagged + 2 <= kVlanPortLen);

void writeRecord(const IfmRecord& rec, be::Writer& w, size_t off) {
    size_t len = ifmRecordLength(rec);
    w.u16(off + kRecType, rec.type);
    w.u16(off + kRecLen, static_cast<uint16_t>(len));
    w.u32(off + kRecIf, rec.ifIndex);
    switch (rec.type) {
        case kAddIf:
        case kDelIf:
            w.u32(off + kRecAttr, 0);
            w.bytes(off + kRecMac, rec.mac.data(), rec.mac.size());
            break;
        case kAddVlanPort:
        case kDelVlanPort:
            w.u32(off + kRecPort, rec.other);
            w.u16(off + kRecTagged, rec.tagged ? 1 : 0);
            break;
        case kAddVlanListPort:
            w.u16(off + kRecListTagged, rec.tagged ? 1 : 0);
            w.u32(off + kRecListCount, static_cast<uint32_t>(rec.vlans.size()));
            for (size_t i = 0; i < rec.vlans.size(); ++i)
                w.u32(off + kRecList + 4 * i, ifmCreateIfIndex(ifm::kTypeVlan, 0, 0, rec.vlans[i]));
            break;
        case kAddLagPort:
        case kDelLagPort:
            w.u32(off + kRecPort, rec.other);
            break;
        default:
            break;
    }
}

std::vector<uint8_t> startBody(uint32_t number) {
    std::vector<uint8_t> body(kBodyRecords, 0);
    be::Writer(body.data(), body.size()).u32(kBodyCount, number);
    return body;
}

}  // namespace

size_t ifmRecordLength(const IfmRecord& rec) {
    switch (rec.type) {
        case kAddIf:
        case kDelIf:
            return kIfLen;
        case kAddVlanPort:
        case kDelVlanPort:
            return kVlanPortLen;
        case kAddVlanListPort:
            return kVlanListHeadLen + 4 * rec.vlans.size();
        case kAddLagPort:
        case kDelLagPort:
            return kLagPortLen;
        default:
            return kOperLen;
    }
}

std::vector<std::vector<uint8_t>> packIfmNotifications(const std::vector<IfmRecord>& records,
                                                       uint32_t* count) {
    std::vector<std::vector<uint8_t>> bodies;
    int32_t inBody = 0;
    for (const IfmRecord& rec : records) {
        size_t len = ifmRecordLength(rec);
        if (bodies.empty() || bodies.back().size() + len > kMaxBody) {
            bodies.push_back(startBody(++*count));
            inBody = 0;
        }
        std::vector<uint8_t>& body = bodies.back();
        size_t off = body.size();
        body.resize(off + len, 0);
        be::Writer w(body.data(), body.size());
        writeRecord(rec, w, off);
        w.u32(kBodyNumElem, static_cast<uint32_t>(++inBody));
    }
    return bodies;
}

std::string describeIfmRecord(const IfmRecord& rec) {
    std::string name = cli::shortIfName(rec.ifIndex);
    std::string other = rec.other != 0 ? cli::shortIfName(rec.other) : "";
    const char* tagging = rec.tagged ? " tagged" : " untagged";
    switch (rec.type) {
        case kAddIf:
            return "interface " + name + " added";
        case kDelIf:
            return "interface " + name + " deleted";
        case kOperUp:
            return "oper up " + name;
        case kOperDown:
            return "oper down " + name;
        case kAddVlanPort:
            return other + " added to " + name + tagging;
        case kDelVlanPort:
            return other + " removed from " + name + tagging;
        case kAddVlanListPort: {
            VlanSet set{};
            for (uint16_t v : rec.vlans) bmp::set(set, v);
            return name + " added to VLANs " + vlanSetText(set) + tagging;
        }
        case kAddLagPort:
            return other + " added to " + name;
        case kDelLagPort:
            return other + " removed from " + name;
        default:
            return "record type " + std::to_string(rec.type) + " for " + name;
    }
}

}  // namespace vorn::sim
