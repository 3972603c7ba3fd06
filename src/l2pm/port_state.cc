// Port-state and flush records for L2PM, and the turning of a ring's port-state/flush result
// into those records.

#include <array>

#include "l2pm/l2pm.h"
#include "l2pm/pend_buf.h"
#include "platform/bitmap.h"
#include "platform/evtlog.h"
#include "platform/ifindex.h"
#include "ringdb/ringdb.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

using vorn::be::Writer;
using vorn::l2pm::kFlushKind;
using vorn::l2pm::kPortStateKind;

using IfName = std::array<char, 40>;

IfName ifName(uint32_t ifIndex) {
    IfName name{};
    ifmIfIndexToName(ifIndex, name.data(), name.size());
    return name;
}

}  // namespace

const char* vornPortStateName(uint32_t state) {
    switch (state) {
        case VORN_PORT_DISABLED:
            return "DISABLED";
        case VORN_PORT_PRE_FORW:
            return "PRE-FORW";
        case VORN_PORT_FORW:
            return "FORW";
        case VORN_PORT_BLOCKING:
            return "BLOCKING";
        default:
            return "INVALID";
    }
}

const char* vornPortStateSyslogWord(uint32_t state) {
    switch (state) {
        case VORN_PORT_DISABLED:
            return "Disabled";
        case VORN_PORT_PRE_FORW:
            return "Pre-Forwarding";
        case VORN_PORT_FORW:
            return "Forwarding";
        case VORN_PORT_BLOCKING:
            return "Blocking";
        default:
            return "Invalid";
    }
}

uint8_t* vornGetL2PmPortStatePendBufToFill() {
    return vorn::l2pm::pendBufToFill(kPortStateKind);
}

uint8_t* vornGetL2PmFlushPendBufToFill() {
    return vorn::l2pm::pendBufToFill(kFlushKind);
}

int vornSendPortStateMsgToL2Pm(uint32_t ifIndex, const uint8_t* vlanSet, const uint8_t* fwdSet) {
    uint32_t n = vorn::l2pm::pendAppend(kPortStateKind, __func__, [&](Writer& w, size_t off) {
        w.u32(off + VORN_PS_REC_IFINDEX_OFF, ifIndex);
        // The fresh record is zero: a null set stays empty.
        if (vlanSet != nullptr) w.bytes(off + VORN_PS_REC_VLANS_OFF, vlanSet, VORN_VLAN_BMAP_BYTES);
        if (fwdSet != nullptr) w.bytes(off + VORN_PS_REC_FWD_OFF, fwdSet, VORN_VLAN_BMAP_BYTES);
    });
    if (n == 0) return -1;
    VORN_DBG("%s(): Filled record %d.\r\n", __func__, static_cast<int>(n));
    return 0;
}

int vornSendFlushMsgToL2Pm(uint16_t vlanId, uint32_t ifIndex) {
    uint32_t n = vorn::l2pm::pendAppend(kFlushKind, __func__, [&](Writer& w, size_t off) {
        w.u32(off + VORN_FL_REC_KIND_OFF, VORN_FL_REC_KIND);
        w.u32(off + VORN_FL_REC_LEN_OFF, VORN_L2PM_FLUSH_REC_LEN);
        w.u16(off + VORN_FL_REC_VLAN_OFF, vlanId);
        w.u32(off + VORN_FL_REC_IFINDEX_OFF, ifIndex);
    });
    if (n == 0) return -1;
    VORN_TRACE(vornL2pmMsgPrint, "Filling FLUSH msg to L2PM: Num entries = %d\r\n",
               static_cast<int>(n));
    VORN_TRACE(vornL2pmMsgPrint, "   Vlan Id: %d, Port: %s\r\n", vlanId, ifName(ifIndex).data());
    VORN_DBG("%s(): Filled record %d\r\n", __func__, static_cast<int>(n));
    return 0;
}

int vornProcPortStateFlush(VornRingEntry* ring, uint32_t ifIndex, uint32_t oldState,
                           uint32_t newState, int side, int flush, int dispSyslog) {
    const char* sideName = side == 1 ? "Primary" : "Secondary";
    int ringId = ring != nullptr ? ring->u2RingId : 0;
    IfName name = ifName(ifIndex);
    VORN_DBG(
        "%s(): Ring: %d, Port: %s, oldPortState = %s, newPortState = %s, %s, Flush = %s, "
        "dispSyslog = %d\r\n",
        __func__, ringId, name.data(), vornPortStateName(oldState), vornPortStateName(newState),
        sideName, flush == 1 ? "Yes" : "No", dispSyslog);

    uint16_t portNum = vornPortNumOf(ifIndex);
    const VornPortEntry* port = vornGetPort(portNum);
    if (port == nullptr || ring == nullptr) {
        VORN_ERR("%s(): Invalid Port %d, RingId = %d\r\n", __func__, portNum, ringId);
        return -1;
    }

    VornVlanBmap ringVlans{};  // the ring's member VLANs that the port carries
    BITMAP_AND_BITMAPS(ringVlans, ring->memberVlanBmap, port->vlanBmap);

    int result = 0;
    if (newState != VORN_PORT_NO_CHANGE) {
        if (ring->u1Mode == VORN_MODE_MASTER && newState != oldState && dispSyslog == 1) {
            qelSysErr(vornTcb.evLogKey, vorn::evt::kEvRingPortState, sideName, name.data(),
                      vornPortStateSyslogWord(newState), ringId);
        }
        // Only entering or leaving forwarding changes what L2PM programs.
        static const VornVlanBmap kNone{};
        if (oldState == VORN_PORT_FORW && newState != VORN_PORT_FORW) {
            result = vornSendPortStateMsgToL2Pm(ifIndex, ringVlans.data(), kNone.data());
        } else if (oldState != VORN_PORT_FORW && newState == VORN_PORT_FORW) {
            result = vornSendPortStateMsgToL2Pm(ifIndex, ringVlans.data(), ringVlans.data());
        }
    }

    if (flush == 1) {
        for (uint16_t v = GET_FIRST_BIT_BITMAP(ringVlans, VORN_VLAN_BMAP_BITS);
             v != vorn::bmp::kNoBit; v = GET_NEXT_BIT_BITMAP(ringVlans, VORN_VLAN_BMAP_BITS, v)) {
            if (vornSendFlushMsgToL2Pm(v, ifIndex) != 0) result = -1;
        }
    }
    return result;
}
