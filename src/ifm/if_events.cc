// IFM's per-interface records: interface add and delete, oper state, MAC address and port
// mode. For a port that carries VLANs and whose ownership the manager holds, oper up and
// down tell L2PM which of the port's VLANs forward and which block.

#include <array>

#include "ifm/ifm.h"
#include "ifm/ifm_internal.h"
#include "l2pm/l2pm.h"
#include "platform/bitmap.h"
#include "platform/chassis.h"
#include "ringdb/ringdb.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

using vorn::ifmrec::IfKind;

// Reads the ifIndex every interface record starts with.
bool readIfIndex(const uint8_t* rec, size_t len, const char* fn, uint32_t* ifIndex) {
    const vorn::be::Reader r = vorn::ifmrec::dataReader(rec, len);
    *ifIndex = r.u32(0);
    if (!r.ok()) {
        vorn::ifmrec::tooShort(fn, len);
        return false;
    }
    return true;
}

// The port record of a physical port or LAG, or null.
VornPortEntry* portOf(uint32_t ifIndex) {
    return vornGetPort(vornPortNumOf(ifIndex));
}

}  // namespace

int vornProcessAddIf(const uint8_t* rec, size_t len) {
    VORN_DBG("%s(): ENTRY \r\n", __func__);
    uint32_t ifIndex = 0;
    if (!readIfIndex(rec, len, __func__, &ifIndex)) return -1;
    switch (vorn::ifmrec::classify(ifIndex)) {
        case IfKind::Vlan:
            vornCreateVlan(rec, len);
            break;
        case IfKind::PortOrLag:
            vornCreatePort(rec, len);
            break;
        case IfKind::Management:
        case IfKind::Other:
            break;
    }
    return 0;
}

int vornProcessDelIf(const uint8_t* rec, size_t len) {
    uint32_t ifIndex = 0;
    if (!readIfIndex(rec, len, __func__, &ifIndex)) return -1;
    const IfKind kind = vorn::ifmrec::classify(ifIndex);
    if (kind == IfKind::Management) return 0;
    VORN_DBG("%s(): ENTRY \r\n", __func__);
    if (kind == IfKind::Vlan) {
        vornDestroyVlan(rec, len);
    } else if (kind == IfKind::PortOrLag) {
        vornDestroyPort(rec, len);
    }
    return 0;
}

int vornProcessOperUp(const uint8_t* rec, size_t len) {
    uint32_t ifIndex = 0;
    if (!readIfIndex(rec, len, __func__, &ifIndex)) return -1;
    const IfKind kind = vorn::ifmrec::classify(ifIndex);
    if (kind == IfKind::Management) {
        VORN_DBG("%s(): ETHMGT Up \r\n", __func__);
        return 0;
    }
    if (kind != IfKind::PortOrLag) return 0;
    VORN_DBG("%s(): Port/Lag \r\n", __func__);
    const uint16_t portNum = vornPortNumOf(ifIndex);
    VornPortEntry* port = vornGetPort(portNum);
    if (port == nullptr) {
        vornCountErr(VORN_ERR_OSTATE_UP);
        return 0;
    }
    port->u2OperState = 1;
    if (port->isOwnedByRingConf != 1 || BITMAP_IS_EMPTY(port->vlanBmap)) return 0;

    // The port's VLANs still to settle; each goes to L2PM in exactly one record.
    VornVlanBmap rest = port->vlanBmap;
    const VornVlanBmap none{};
    VornVlanBmap claimed{};
    // The control VLANs of the port's rings forward at once (a record even when none).
    BITMAP_AND_BITMAPS(claimed, port->ctrlVlanBmap, rest);
    vornSendPortStateMsgToL2Pm(ifIndex, claimed.data(), claimed.data());
    BITMAP_DIFF_BITMAPS(rest, rest, claimed);

    // Then each ring's member VLANs, in the state the ring has on this port. While no
    // agent runs a ready ring, the primary route processor forwards its ports itself; once
    // one ring was found so, the later rings of the walk are forwarded too.
    const VornRingBmap rings = port->ringBmap;
    bool promote = false;
    for (uint16_t id = GET_FIRST_BIT_BITMAP(rings, VORN_RING_BMAP_BITS); id != vorn::bmp::kNoBit;
         id = GET_NEXT_BIT_BITMAP(rings, VORN_RING_BMAP_BITS, id)) {
        VornRingEntry* ring = vornGetRing(id);
        if (ring == nullptr) continue;
        if (vornRingIsReady(id) == 1 && ring->u2DesgLineCard == VORN_NO_LINE_CARD &&
            qelHaIsPrimaryRpm() == 1) {
            promote = true;
        }
        uint32_t* state = nullptr;
        if (ring->u2PriPortNum == portNum) {
            state = &ring->u4PriPortState;
        } else if (ring->u2SecPortNum == portNum) {
            state = &ring->u4SecPortState;
        } else {
            continue;
        }
        if (promote) *state = VORN_PORT_FORW;
        // A side with no state to carry leaves its VLANs to the last record.
        if (*state == VORN_PORT_NO_CHANGE) continue;
        BITMAP_AND_BITMAPS(claimed, ring->memberVlanBmap, rest);
        vornSendPortStateMsgToL2Pm(ifIndex, claimed.data(),
                                   *state == VORN_PORT_FORW ? claimed.data() : none.data());
        BITMAP_DIFF_BITMAPS(rest, rest, claimed);
    }
    // The VLANs no ring claimed forward.
    if (!BITMAP_IS_EMPTY(rest)) vornSendPortStateMsgToL2Pm(ifIndex, rest.data(), rest.data());
    return 0;
}

int vornProcessOperDn(const uint8_t* rec, size_t len) {
    uint32_t ifIndex = 0;
    if (!readIfIndex(rec, len, __func__, &ifIndex)) return -1;
    if (vorn::ifmrec::classify(ifIndex) != IfKind::PortOrLag) return 0;
    VornPortEntry* port = portOf(ifIndex);
    if (port == nullptr) {
        vornCountErr(VORN_ERR_OSTATE_DOWN);
        return 0;
    }
    port->u2OperState = 0;
    if (port->isOwnedByRingConf != 1 || BITMAP_IS_EMPTY(port->vlanBmap)) return 0;

    // A ready ring that no agent runs has its side on this port disabled here.
    for (uint16_t id = VORN_MIN_RING_ID; id <= VORN_MAX_RING_ID; ++id) {
        VornRingEntry* ring = gVornRing[id];
        if (ring == nullptr || ring->u2DesgLineCard != VORN_NO_LINE_CARD ||
            vornRingIsReady(id) != 1) {
            continue;
        }
        if (ring->u4PriIfIndex == ifIndex) {
            ring->u4PriPortState = VORN_PORT_DISABLED;
        } else if (ring->u4SecIfIndex == ifIndex) {
            ring->u4SecPortState = VORN_PORT_DISABLED;
        }
    }
    // Every VLAN of the port blocks, in one record.
    const VornVlanBmap none{};
    vornSendPortStateMsgToL2Pm(ifIndex, port->vlanBmap.data(), none.data());
    return 0;
}

int vornProcessMacAddrChg(const uint8_t* rec, size_t len) {
    const vorn::be::Reader r = vorn::ifmrec::dataReader(rec, len);
    const uint32_t ifIndex = r.u32(0);
    std::array<uint8_t, 6> mac{};
    r.bytes(VORN_IFM_NEW_MAC_OFF, mac.data(), mac.size());
    if (!r.ok()) return vorn::ifmrec::tooShort(__func__, len);
    if (vorn::ifmrec::classify(ifIndex) != IfKind::PortOrLag) return 0;
    if (VornPortEntry* port = portOf(ifIndex); port != nullptr) port->macAddr = mac;
    return 0;
}

int vornProcessPortMode(const uint8_t* rec, size_t len) {
    const vorn::be::Reader r = vorn::ifmrec::dataReader(rec, len);
    const uint32_t ifIndex = r.u32(0);
    const uint32_t mode = r.u32(VORN_IFM_PORT_MODE_OFF);
    if (!r.ok()) return vorn::ifmrec::tooShort(__func__, len);
    if (vorn::ifmrec::classify(ifIndex) != IfKind::PortOrLag) return 0;
    if (VornPortEntry* port = portOf(ifIndex); port != nullptr) port->u4PortMode = mode;
    return 0;
}
