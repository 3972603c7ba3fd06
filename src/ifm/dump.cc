// The diagnostic dump of an IFM notification, printed while message printing is on.

#include <array>
#include <span>

#include "ifm/ifm.h"
#include "ifm/ifm_internal.h"
#include "platform/ifindex.h"
#include "task/msg.h"
#include "task/trace.h"

namespace {

using vorn::ifmrec::Record;

constexpr const char* kFn = "vornDumpIfmMsg";
constexpr const char* kMacTitle = "   Mac Addr : ";

// The dump's view of a record type: its type line, and the data bytes its fields need.
struct DumpKind {
    const char* typeLine;  // printed with puts (the text ends in "\r")
    size_t need;
};

// Types whose records the dump prints; others get only their "Msg" line.
bool dumpKindOf(uint16_t type, DumpKind* kind) {
    switch (type) {
        case IFM_TYP_ADD_IF:
            *kind = {"   Msg Type :  IFM_TYP_ADD_IF\r", VORN_IFM_IF_LEN};
            return true;
        case IFM_TYP_DEL_IF:
            *kind = {"   Msg Type :  IFM_TYP_DEL_IF\r", VORN_IFM_IF_LEN};
            return true;
        case IFM_TYP_OSTATE_UP:
            *kind = {"   Msg Type :  IFM_TYP_OSTATE_UP\r", 4};
            return true;
        case IFM_TYP_OSTATE_DN:
            *kind = {"   Msg Type :  IFM_TYP_OSTATE_DN\r", 4};
            return true;
        case IFM_TYP_MACADDR_CHG:
            *kind = {"   Msg Type :  IFM_TYP_MACADDR_CHG\r", VORN_IFM_MAC_CHG_LEN};
            return true;
        case IFM_TYP_CHG_PORT_MODE:
            *kind = {"   Msg Type :  IFM_TYP_CHG_PORT_MODE\r", VORN_IFM_PORT_MODE_LEN};
            return true;
        case IFM_TYP_ADD_VLAN_PORT:
            *kind = {"   Msg Type :  IFM_TYP_ADD_VLAN_PORT\r", VORN_IFM_VLAN_PORT_LEN};
            return true;
        case IFM_TYP_DEL_VLAN_PORT:
            *kind = {"   Msg Type :  IFM_TYP_DEL_VLAN_PORT\r", VORN_IFM_VLAN_PORT_LEN};
            return true;
        case IFM_TYP_ADD_LAG_PORT:
            *kind = {"   Msg Type :  IFM_TYP_ADD_LAG_PORT\r", VORN_IFM_LAG_PORT_LEN};
            return true;
        case IFM_TYP_DEL_LAG_PORT:
        case IFM_TYP_END_BLK_CFG:  // the end-of-block record has always shown this text
            *kind = {"   Msg Type :  IFM_TYP_DEL_LAG_PORT\r",
                     type == IFM_TYP_END_BLK_CFG ? 0 : VORN_IFM_LAG_PORT_LEN};
            return true;
        case L2PM_TYP_INIT_CFG_COMPLETE:
            *kind = {"   Msg Type :  L2PM_TYP_INIT_CFG_COMPLETE\r", 0};
            return true;
        default:
            return false;
    }
}

const char* nameOf(uint32_t ifIndex, std::array<char, 64>& buf) {
    return ifmIfIndexToName(ifIndex, buf.data(), buf.size());
}

void dumpRecord(const Record& rec) {
    VORN_TRACE(vornMsgPrint, "Msg %d:\r\n", rec.number);
    DumpKind kind{};
    if (!dumpKindOf(rec.type, &kind)) return;
    VORN_PUTS(vornMsgPrint, kind.typeLine);
    if (rec.dataLen < kind.need) {
        VORN_ERR("%s(): Msg %d of %d bytes too short for its fields\r\n", kFn, rec.number,
                 rec.length);
        return;
    }
    const vorn::be::Reader d(rec.data, rec.dataLen);
    const std::span<const uint8_t> data(rec.data, rec.dataLen);
    std::array<char, 64> name{};
    std::array<char, 64> name2{};
    switch (rec.type) {
        case IFM_TYP_ADD_IF:
        case IFM_TYP_DEL_IF:
            VORN_TRACE(vornMsgPrint, "   IfName   :  %s\r\n", nameOf(d.u32(0), name));
            vornPrintMacAddr(data.subspan(VORN_IFM_IF_MAC_OFF, 6), kMacTitle);
            break;
        case IFM_TYP_OSTATE_UP:
        case IFM_TYP_OSTATE_DN:
            VORN_TRACE(vornMsgPrint, "   IfName   :  %s\r\n", nameOf(d.u32(0), name));
            break;
        case IFM_TYP_MACADDR_CHG:
            VORN_TRACE(vornMsgPrint, "   IfName   :  %s\r\n", nameOf(d.u32(0), name));
            vornPrintMacAddr(data.subspan(VORN_IFM_NEW_MAC_OFF, 6), kMacTitle);
            break;
        case IFM_TYP_CHG_PORT_MODE:
            VORN_TRACE(vornMsgPrint, "   IfName   :  %s\r\n", nameOf(d.u32(0), name));
            VORN_TRACE(vornMsgPrint, "   Mode     :  %ld\r\n",
                       static_cast<long>(d.u32(VORN_IFM_PORT_MODE_OFF)));
            break;
        case IFM_TYP_ADD_VLAN_PORT:
        case IFM_TYP_DEL_VLAN_PORT:
            VORN_TRACE(vornMsgPrint, "   VlanName :  %s\r\n", nameOf(d.u32(0), name));
            VORN_TRACE(vornMsgPrint, "   PortName :  %s\r\n",
                       nameOf(d.u32(VORN_IFM_VP_PORT_OFF), name2));
            VORN_TRACE(vornMsgPrint, "   Tagged   :  %s\r\n",
                       d.u16(VORN_IFM_VP_TAGGED_OFF) != 0 ? "YES" : "NO");
            break;
        case IFM_TYP_ADD_LAG_PORT:
        case IFM_TYP_DEL_LAG_PORT:
            VORN_TRACE(vornMsgPrint, "   Lag Name :  %s\r\n", nameOf(d.u32(0), name));
            VORN_TRACE(vornMsgPrint, "   PortName :  %s\r\n",
                       nameOf(d.u32(VORN_IFM_LAG_MEMBER_OFF), name2));
            break;
        default:
            break;
    }
}

}  // namespace

void vornDumpIfmMsg(const uint8_t* msg) {
    if (vornMsgPrint == 0 || msg == nullptr) return;
    const vorn::be::Reader r = vornMsgReader(msg);
    const int32_t numElem = r.i32(VORN_IFM_NUM_ELEM_OFF);
    VORN_TRACE(vornMsgPrint, "NumElem : %d, Count : 0x%x\r\n", numElem, r.u32(VORN_IFM_COUNT_OFF));
    const uint64_t actual = vorn::ifmrec::walkRecords(r, numElem, kFn, dumpRecord);
    const uint32_t lenWord = vorn::be::Reader(msg, vorn::ipc::kHdrLen).u32(vorn::ipc::kOffMlen);
    VORN_TRACE(vornMsgPrint, "Len in Msg = %d, Actual Len = %ld\r\n", static_cast<int>(lenWord),
               static_cast<long>(actual));
}
