// Forwarding state set in L2PM at once when a ring's configuration changes: a ring interface
// added or removed, member VLANs changed, the ring stopped on one side. Each function works on
// one side of one ring, only for a port owned for ring use, and queues at most one record.

#include <span>

#include "l2pm/l2pm.h"
#include "platform/bitmap.h"
#include "ringdb/records.h"

namespace {

const VornVlanBmap kNoVlans{};

// The port of one side of a ring, when it may be driven for the ring.
const VornPortEntry* ownedSidePort(const VornRingEntry* ring, int side) {
    if (ring == nullptr) return nullptr;
    const VornPortEntry* port = vornGetPort(side == 1 ? ring->u2PriPortNum : ring->u2SecPortNum);
    return port != nullptr && port->isOwnedByRingConf == 1 ? port : nullptr;
}

uint32_t sideIfIndex(const VornRingEntry* ring, int side) {
    return side == 1 ? ring->u4PriIfIndex : ring->u4SecIfIndex;
}

// The ring's VLANs (member VLANs and control VLAN) that the port carries.
VornVlanBmap ringVlansOnPort(const VornRingEntry* ring, const VornPortEntry* port) {
    VornVlanBmap ringVlans = ring->memberVlanBmap;
    vorn::bmp::set(ringVlans, ring->u2CtrlVlanId);
    VornVlanBmap onPort{};
    BITMAP_AND_BITMAPS(onPort, port->vlanBmap, ringVlans);
    return onPort;
}

void queue(uint32_t ifIndex, const VornVlanBmap& vlans, bool forward) {
    vornSendPortStateMsgToL2Pm(ifIndex, vlans.data(), forward ? vlans.data() : kNoVlans.data());
}

}  // namespace

int vornUpdateL2PmOnRingIfAdd(VornRingEntry* ring, int side) {
    const VornPortEntry* port = ownedSidePort(ring, side);
    if (port == nullptr) return 0;
    VornVlanBmap vlans = ringVlansOnPort(ring, port);
    // Every ring VLAN on the port blocks until the agent decides, except the control VLAN,
    // which forwards on a port that is up.
    VornVlanBmap fwd{};
    if (port->u2OperState == 1) vorn::bmp::set(fwd, ring->u2CtrlVlanId);
    vornSendPortStateMsgToL2Pm(sideIfIndex(ring, side), vlans.data(), fwd.data());
    return 0;
}

int vornUpdateL2PmOnRingIfDel(VornRingEntry* ring, int side) {
    const VornPortEntry* port = ownedSidePort(ring, side);
    if (port == nullptr) return 0;
    // A port another ring still uses keeps forwarding while it is up.
    bool forward = port->i2RingCount > 1 && port->u2OperState == 1;
    queue(sideIfIndex(ring, side), ringVlansOnPort(ring, port), forward);
    return 0;
}

int vornUpdateL2PmOnMemberVlanChange(VornRingEntry* ring, int side, const uint8_t* vlanBitmap,
                                     int add) {
    const VornPortEntry* port = ownedSidePort(ring, side);
    if (port == nullptr || (ring->u4Flags & VORN_RING_CFG_CTRL_VLAN) == 0 || vlanBitmap == nullptr)
        return 0;
    VornVlanBmap vlans{};
    BITMAP_AND_BITMAPS(vlans, std::span<const uint8_t>(vlanBitmap, VORN_VLAN_BMAP_BYTES),
                       port->vlanBmap);
    if (BITMAP_IS_EMPTY(vlans)) return 0;
    bool forward;
    if (add == 1) {
        // Added VLANs follow the state the agent gave the ring's port.
        forward = (side == 1 ? ring->u4PriPortState : ring->u4SecPortState) == VORN_PORT_FORW;
    } else {
        // Removed VLANs are no longer the ring's: they forward on a port that is up.
        forward = port->u2OperState == 1;
    }
    queue(port->u4IfIndex, vlans, forward);
    return 0;
}

int vornUpdateL2PmOnRingDisableIfmChange(VornRingEntry* ring, int side) {
    const VornPortEntry* port = ownedSidePort(ring, side);
    if (port == nullptr || (ring->u4Flags & VORN_RING_CFG_MEMBER_VLAN) == 0) return 0;
    VornVlanBmap vlans{};
    BITMAP_AND_BITMAPS(vlans, ring->memberVlanBmap, port->vlanBmap);
    if (BITMAP_IS_EMPTY(vlans)) return 0;
    queue(port->u4IfIndex, vlans, false);
    return 0;
}
