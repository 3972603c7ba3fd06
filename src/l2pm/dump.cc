// Dumps of the L2PM-bound messages, field by field, and the VLAN-bitmap printer they use.

#include <algorithm>
#include <array>
#include <cstdio>

#include "l2pm/l2pm.h"
#include "l2pm/pend_buf.h"
#include "platform/bitmap.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "task/trace.h"

namespace {

constexpr const char* kDashes = "------------------------------------------------------\r";

// Walks no more records than the buffer holds; a larger count is reported and cut.
uint32_t recordsToShow(const char* fn, uint32_t claimed, uint32_t fit) {
    if (claimed > fit) {
        VORN_ERR("%s(): %lu records claimed, %lu fit the message\r\n", fn,
                 static_cast<unsigned long>(claimed), static_cast<unsigned long>(fit));
    }
    return std::min(claimed, fit);
}

}  // namespace

void vornPrintVlanBmap(std::span<const uint8_t> bitmap, const char* title) {
    uint16_t vlan = GET_FIRST_BIT_BITMAP(bitmap, VORN_VLAN_BMAP_BITS);
    if (vlan == vorn::bmp::kNoBit) return;
    std::printf("%s", title != nullptr ? title : "");
    for (; vlan != vorn::bmp::kNoBit;
         vlan = GET_NEXT_BIT_BITMAP(bitmap, VORN_VLAN_BMAP_BITS, vlan)) {
        std::printf("%d, ", vlan);
    }
    std::puts("\r");
}

void vornDumpL2PmPerPortStateMsg(const uint8_t* buffer) {
    if (vornL2pmMsgPrint == 0 || buffer == nullptr) return;
    const vorn::l2pm::PendKind& kind = vorn::l2pm::kPortStateKind;
    vorn::be::Reader r(buffer, VORN_MSG_BUF_SIZE);
    uint32_t n = vorn::l2pm::pendCount(kind, buffer);
    VORN_PUTS(vornL2pmMsgPrint, "-------------- L2PM Port State Message ---------------\r");
    VORN_TRACE(vornL2pmMsgPrint, "Client Id    : %d \r\n",
               static_cast<int>(r.u32(VORN_L2PM_CLIENT_ID_OFF)));
    VORN_TRACE(vornL2pmMsgPrint, "Protocol Id  : %d \r\n",
               static_cast<int>(r.u32(VORN_L2PM_PROTO_ID_OFF)));
    // The length the message leaves with; the header's own length word is set by the send.
    VORN_TRACE(vornL2pmMsgPrint, "Message Len  : %d \r\n",
               static_cast<int>(vorn::l2pm::pendMsgLen(kind, n)));
    VORN_TRACE(vornL2pmMsgPrint, "Num Elements : %ld \r\n", static_cast<long>(n));
    uint32_t shown = recordsToShow(__func__, n, VORN_L2PM_PS_MAX_RECS);
    for (uint32_t i = 0; i < shown; ++i) {
        size_t off = VORN_L2PM_PS_BASE_LEN + size_t{VORN_L2PM_PS_REC_LEN} * i;
        std::array<char, 40> name{};
        ifmIfIndexToName(r.u32(off + VORN_PS_REC_IFINDEX_OFF), name.data(), name.size());
        VORN_TRACE(vornL2pmMsgPrint, "   %s\r\n", name.data());
        vornPrintVlanBmap(r.view(off + VORN_PS_REC_VLANS_OFF, VORN_VLAN_BMAP_BYTES), "   Vlans: ");
        vornPrintVlanBmap(r.view(off + VORN_PS_REC_FWD_OFF, VORN_VLAN_BMAP_BYTES),
                          "   Fwd Vlans: ");
    }
    VORN_PUTS(vornL2pmMsgPrint, kDashes);
}

void halVornDumpL2PmInstPortOwnerShipMsg(const uint8_t* buffer) {
    if (vornL2pmMsgPrint == 0 || buffer == nullptr) return;
    vorn::be::Reader r(buffer, VORN_MSG_BUF_SIZE);
    uint32_t n = vorn::l2pm::pendCount(vorn::l2pm::kInstOwnKind, buffer);
    VORN_PUTS(vornL2pmMsgPrint, "-------------- Instance Port Ownership Msg ---------------\r");
    VORN_TRACE(vornL2pmMsgPrint, "numArr : %ld, sizeof (vornPortOwnerShip_s): %zu\r\n",
               static_cast<long>(n), VORN_INST_DUMP_REC_SIZE);
    uint32_t shown = recordsToShow(__func__, n, VORN_L2PM_INST_MAX_RECS);
    for (uint32_t i = 0; i < shown; ++i) {
        size_t off = VORN_L2PM_INST_BASE_LEN + size_t{VORN_L2PM_INST_REC_LEN} * i;
        std::array<char, 40> name{};
        ifmIfIndexToName(r.u32(off + VORN_INST_REC_IFINDEX_OFF), name.data(), name.size());
        VORN_TRACE(vornL2pmMsgPrint, "Index: %d, Action: %s, Instance: %d, Port: %s\r\n",
                   static_cast<int>(i),
                   r.u8(off + VORN_INST_REC_ACTION_OFF) == VORN_INST_PORT_ADD ? "ADD" : "DEL",
                   r.u16(off + VORN_INST_REC_INST_OFF), name.data());
    }
    VORN_PUTS(vornL2pmMsgPrint, kDashes);
}
