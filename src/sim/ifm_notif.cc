#include "sim/ifm_notif.h"

#include "cli/syntax.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "sim/vlan_set.h"

namespace vorn::sim {
namespace {

using namespace ifmrec;

// Offsets inside a body (which starts at byte 124 of the message).
constexpr size_t kBodyNumElem = VORN_IFM_NUM_ELEM_OFF - ipc::kSwpBodyOff;
constexpr size_t kBodyCount = VORN_IFM_COUNT_OFF - ipc::kSwpBodyOff;
constexpr size_t kBodyRecords = VORN_IFM_RECORDS_OFF - ipc::kSwpBodyOff;

// Whole-record offsets of the fields (the data follows the 4-byte record header).
constexpr size_t kRecType = 0;
constexpr size_t kRecLen = 2;
constexpr size_t kRecIf = VORN_IFM_REC_HDR_LEN;
constexpr size_t kRecAttr = kRecIf + VORN_IFM_IF_ATTR_OFF;
constexpr size_t kRecMac = kRecIf + VORN_IFM_IF_MAC_OFF;
constexpr size_t kRecPort = kRecIf + VORN_IFM_VP_PORT_OFF;  // VLAN port, LAG member
constexpr size_t kRecTagged = kRecIf + VORN_IFM_VP_TAGGED_OFF;
constexpr size_t kRecListTagged = kRecIf + VORN_IFM_VL_TAGGED_OFF;
constexpr size_t kRecListCount = kRecIf + VORN_IFM_VL_LIST_OFF;
constexpr size_t kRecList = kRecListCount + 4;
constexpr size_t kRecModeValue = kRecIf + VORN_IFM_MODE_VALUE_OFF;
constexpr size_t kRecModeFlags = kRecIf + VORN_IFM_MODE_FLAGS_OFF;
constexpr size_t kRecModeType = kRecIf + VORN_IFM_MODE_TYPE_OFF;  // not aligned
static_assert(kRecPort == kRecIf + VORN_IFM_LAG_MEMBER_OFF);

void writeRecord(const IfmRecord& rec, be::Writer& w, size_t off) {
    size_t len = ifmRecordLength(rec);
    w.u16(off + kRecType, rec.type);
    w.u16(off + kRecLen, static_cast<uint16_t>(len));
    w.u32(off + kRecIf, rec.ifIndex);
    switch (rec.type) {
        case IFM_TYP_ADD_IF:
        case IFM_TYP_DEL_IF:
            w.u32(off + kRecAttr, 0);
            w.bytes(off + kRecMac, rec.mac.data(), rec.mac.size());
            break;
        case IFM_TYP_ADD_VLAN_PORT:
        case IFM_TYP_DEL_VLAN_PORT:
            w.u32(off + kRecPort, rec.other);
            w.u16(off + kRecTagged, rec.tagged ? 1 : 0);
            break;
        case IFM_TYP_ADD_VLANBMP_PORT:
            w.u16(off + kRecListTagged, rec.tagged ? 1 : 0);
            w.u32(off + kRecListCount, static_cast<uint32_t>(rec.vlans.size()));
            for (size_t i = 0; i < rec.vlans.size(); ++i)
                w.u32(off + kRecList + 4 * i, ifmCreateIfIndex(ifm::kTypeVlan, 0, 0, rec.vlans[i]));
            break;
        case IFM_TYP_ADD_LAG_PORT:
        case IFM_TYP_DEL_LAG_PORT:
            w.u32(off + kRecPort, rec.other);
            break;
        case IFM_TYP_IF_MODE_CHG:
            w.u32(off + kRecModeValue, rec.other);
            w.u32(off + kRecModeFlags, VORN_IFM_MODE_PEER_PAIR_FLAGS);
            w.u32(off + kRecModeType, rec.modeType);  // the codec writes it byte by byte
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

std::string modeChangeText(uint32_t modeType, uint32_t value) {
    switch (modeType) {
        case VORN_IFM_MODE_LAG_ZIL_JOIN:
            return "joins peer-pair port channel " + std::to_string(value);
        case VORN_IFM_MODE_LAG_ZIL_LEAVE:
            return "leaves peer-pair port channel " + std::to_string(value);
        case VORN_IFM_MODE_ICL_SET:
            return "becomes the inter-chassis link";
        case VORN_IFM_MODE_ICL_CLEAR:
            return "stops being the inter-chassis link";
        default:
            return "mode type " + std::to_string(modeType) + ", value " + std::to_string(value);
    }
}

size_t ifmRecordLength(const IfmRecord& rec) {
    switch (rec.type) {
        case IFM_TYP_ADD_IF:
        case IFM_TYP_DEL_IF:
            return VORN_IFM_IF_REC_LEN;
        case IFM_TYP_ADD_VLAN_PORT:
        case IFM_TYP_DEL_VLAN_PORT:
            return VORN_IFM_VLAN_PORT_REC_LEN;
        case IFM_TYP_ADD_VLANBMP_PORT:
            return VORN_IFM_VL_REC_HEAD_LEN + 4 * rec.vlans.size();
        case IFM_TYP_ADD_LAG_PORT:
        case IFM_TYP_DEL_LAG_PORT:
            return VORN_IFM_LAG_PORT_REC_LEN;
        case IFM_TYP_IF_MODE_CHG:
            return VORN_IFM_MODE_CHG_REC_LEN;
        default:
            return VORN_IFM_OPER_REC_LEN;
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
        case IFM_TYP_ADD_IF:
            return "interface " + name + " added";
        case IFM_TYP_DEL_IF:
            return "interface " + name + " deleted";
        case IFM_TYP_OSTATE_UP:
            return "oper up " + name;
        case IFM_TYP_OSTATE_DN:
            return "oper down " + name;
        case IFM_TYP_ADD_VLAN_PORT:
            return other + " added to " + name + tagging;
        case IFM_TYP_DEL_VLAN_PORT:
            return other + " removed from " + name + tagging;
        case IFM_TYP_ADD_VLANBMP_PORT: {
            VlanSet set{};
            for (uint16_t v : rec.vlans) bmp::set(set, v);
            return name + " added to VLANs " + vlanSetText(set) + tagging;
        }
        case IFM_TYP_ADD_LAG_PORT:
            return other + " added to " + name;
        case IFM_TYP_DEL_LAG_PORT:
            return other + " removed from " + name;
        case IFM_TYP_IF_MODE_CHG:
            return "mode change of " + name + ": " + modeChangeText(rec.modeType, rec.other);
        default:
            return "record type " + std::to_string(rec.type) + " for " + name;
    }
}

}  // namespace vorn::sim
