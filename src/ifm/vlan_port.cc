// IFM's VLAN-membership records: a port joins or leaves a VLAN, or joins a list of VLANs.
// The handlers keep both sides of the membership, the ring interfaces' tagged marks in
// their control VLAN, the forwarding state of the new VLAN on the port in L2PM, and start
// or stop a ring whose control VLAN gains or loses one of its interfaces.

#include <array>
#include <span>

#include "agent/agent.h"
#include "ifm/ifm.h"
#include "ifm/ifm_internal.h"
#include "l2pm/l2pm.h"
#include "platform/bitmap.h"
#include "ringdb/ringdb.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

// A VLAN-port record's fields.
struct VlanPort {
    uint32_t vlanIfIndex;
    uint32_t portIfIndex;
    uint16_t tagged;
    uint16_t vlanId;  // valid only once the VLAN record was found
    uint16_t portNum;
};

bool readVlanPort(const uint8_t* rec, size_t len, const char* fn, VlanPort* vp) {
    const vorn::be::Reader r = vorn::ifmrec::dataReader(rec, len);
    vp->vlanIfIndex = r.u32(0);
    vp->portIfIndex = r.u32(VORN_IFM_VP_PORT_OFF);
    vp->tagged = r.u16(VORN_IFM_VP_TAGGED_OFF);
    if (!r.ok()) {
        vorn::ifmrec::tooShort(fn, len);
        return false;
    }
    vp->vlanId = static_cast<uint16_t>(ifmIfIndexToVlanId(vp->vlanIfIndex));
    vp->portNum = vornPortNumOf(vp->portIfIndex);
    return true;
}

// Sets the state of the record's VLAN, and of that VLAN only, on its port in L2PM.
void sendVlanState(const VlanPort& vp, bool forwarding) {
    VornVlanBmap only{};
    vorn::bmp::set(only, vp.vlanId);
    static const VornVlanBmap none{};
    vornSendPortStateMsgToL2Pm(vp.portIfIndex, only.data(), forwarding ? only.data() : none.data());
}

// The port joined the control VLAN of a ring that uses it as a ring interface. Tagged, it
// marks that side tagged, sets the VLAN's state on the port and starts the ring if that
// made it ready. Untagged, the join is undone: a ring interface may only be a tagged member
// of its control VLAN. Returns false when the join was undone.
bool joinCtrlVlan(VornRingEntry* ring, VornPortEntry* port, VornVlanEntry* vlan,
                  const VlanPort& vp) {
    const bool ranBefore = vornRingRuns(*ring);
    if (vp.tagged == 0) {
        VORN_DBG("%s(): Ring (%d) Port (%d) cannot be untagged.\r\n", "vornProcessAddVlanPort",
                 ring->u2RingId, vp.portNum);
        vorn::bmp::clear(port->vlanBmap, vp.vlanId);
        vorn::bmp::clear(vlan->portBmap, vp.portNum);
        return false;
    }
    if (ring->u2PriPortNum == vp.portNum) {
        ring->isPriTagged = 1;
    } else {
        ring->isSecTagged = 1;
    }
    sendVlanState(vp, port->u2OperState == 1);
    vornStartRingIfNowReady(ring, ranBefore);
    return true;
}

// The ring whose control VLAN `vlan` is, when the port is one of its interfaces; else null.
VornRingEntry* ctrlRingOf(const VornVlanEntry& vlan, uint16_t portNum) {
    VornRingEntry* ring = vornGetRing(vlan.u2CtrlVlanRingId);
    if (ring == nullptr || (ring->u2PriPortNum != portNum && ring->u2SecPortNum != portNum)) {
        return nullptr;
    }
    return ring;
}

// Applies one VLAN-port add whose record was read.
int addVlanPort(const VlanPort& vp) {
    VornVlanEntry* vlan = vornGetVlan(vp.vlanId);
    if (vlan == nullptr) {
        VORN_DBG("%s(): Vlan (%d) not created for Port (%d) addition\r\n", "vornProcessAddVlanPort",
                 vp.vlanId, vp.portNum);
        return 0;
    }
    VornPortEntry* port = vornGetPort(vp.portNum);
    if (port == nullptr) {
        VORN_DBG("%s(): Port (%d) not created for Port addition to Vlan (%d) \r\n",
                 "vornProcessAddVlanPort", vp.portNum, vp.vlanId);
        return 0;
    }
    vorn::bmp::set(port->vlanBmap, vp.vlanId);
    vorn::bmp::set(vlan->portBmap, vp.portNum);
    if (vp.tagged != 0) vorn::bmp::set(vlan->taggedPortBmap, vp.portNum);

    if (const uint16_t ctrlRingId = vlan->u2CtrlVlanRingId; ctrlRingId != 0) {
        VORN_DBG("%d is ctrlVlanId for Ring = %d \r\n", vp.vlanId, ctrlRingId);
        if (VornRingEntry* ring = vornGetRing(ctrlRingId); ring != nullptr) {
            VORN_DBG("Successfully retrieved Ring with id %d \r\n", ctrlRingId);
            if (ring->u2PriPortNum == vp.portNum || ring->u2SecPortNum == vp.portNum) {
                VORN_DBG("%d is pri or secondary for Ring \r\n", vp.portNum);
                if (!joinCtrlVlan(ring, port, vlan, vp)) return 0;
            }
        }
    }
    if (port->isOwnedByRingConf != 1) return 0;

    // A member VLAN of a ring that uses the port as an interface takes that side's state; a
    // VLAN that is neither a control VLAN of the port nor a member VLAN of one of its rings
    // follows the port's oper state.
    bool unclaimed = !vorn::bmp::test(port->ctrlVlanBmap, vp.vlanId);
    const VornRingBmap rings = port->ringBmap;
    for (uint16_t id = GET_FIRST_BIT_BITMAP(rings, VORN_RING_BMAP_BITS); id != vorn::bmp::kNoBit;
         id = GET_NEXT_BIT_BITMAP(rings, VORN_RING_BMAP_BITS, id)) {
        const VornRingEntry* ring = vornGetRing(id);
        if (ring == nullptr || !vorn::bmp::test(ring->memberVlanBmap, vp.vlanId)) continue;
        unclaimed = false;
        if (ring->u2PriPortNum == vp.portNum) {
            sendVlanState(vp, ring->u4PriPortState == VORN_PORT_FORW);
        } else if (ring->u2SecPortNum == vp.portNum) {
            sendVlanState(vp, ring->u4SecPortState == VORN_PORT_FORW);
        }
    }
    if (unclaimed) sendVlanState(vp, port->u2OperState == 1);
    return 0;
}

}  // namespace

int vornProcessAddVlanPort(const uint8_t* rec, size_t len) {
    VORN_DBG("%s(): ENTRY \r\n", __func__);
    VlanPort vp{};
    if (!readVlanPort(rec, len, __func__, &vp)) return -1;
    return addVlanPort(vp);
}

int vornProcessDelVlanPort(const uint8_t* rec, size_t len) {
    VORN_DBG("%s(): Entry \r\n", __func__);
    VlanPort vp{};
    if (!readVlanPort(rec, len, __func__, &vp)) return -1;
    VornPortEntry* port = vornGetPort(vp.portNum);
    if (port == nullptr) {
        VORN_ERR("%s() VlanId (%d). Unknown port (%d)\r\n", __func__, vp.vlanId, vp.portNum);
        return 0;
    }
    VornVlanEntry* vlan = vornGetVlan(vp.vlanId);
    if (vlan == nullptr) {
        VORN_ERR("%s() Unknown VlanId (%d). Port (%d)\r\n", __func__, vp.vlanId, vp.portNum);
        return 0;
    }
    vorn::bmp::clear(port->vlanBmap, vp.vlanId);
    vorn::bmp::clear(vlan->portBmap, vp.portNum);
    vorn::bmp::clear(vlan->taggedPortBmap, vp.portNum);

    // A ring interface leaving its control VLAN stops the ring. No port state is sent.
    VornRingEntry* ring = ctrlRingOf(*vlan, vp.portNum);
    if (ring == nullptr) return 0;
    VORN_DBG("%s: disabling ring %d, vlan %d, port %d \r\n", __func__, ring->u2RingId, vp.vlanId,
             vp.portNum);
    const bool wasReady = vornRingIsReady(ring->u2RingId) == 1;
    if (ring->u2PriPortNum == vp.portNum) ring->isPriTagged = 0;
    if (ring->u2SecPortNum == vp.portNum) ring->isSecTagged = 0;
    if (wasReady) {
        if (ring->isSecReady == 1) {
            vornDisableRingOnIfmChange(ring);
        } else {
            vornRelinquishRingOwnerShip(ring);
        }
    }
    return 0;
}

int vornProcessAddVlanBmpPort(const uint8_t* rec, size_t len) {
    const vorn::be::Reader r = vorn::ifmrec::dataReader(rec, len);
    const uint32_t portIfIndex = r.u32(0);
    const uint16_t tagged = r.u16(VORN_IFM_VL_TAGGED_OFF);
    if (!r.ok()) return vorn::ifmrec::tooShort(__func__, len);
    // The list is what the record holds from its offset on; the walk stays inside it.
    const std::span<const uint8_t> list =
        len > VORN_IFM_VL_LIST_OFF
            ? std::span(rec + VORN_IFM_VL_LIST_OFF, len - VORN_IFM_VL_LIST_OFF)
            : std::span<const uint8_t>();
    uint32_t cursor = 0;
    // Each VLAN of the list is one VLAN-port add, as vornProcessAddVlanPort applies it.
    VlanPort vp{0, portIfIndex, tagged, 0, vornPortNumOf(portIfIndex)};
    while (ifmVlanIfListGetNextIfIndex(list, &cursor, &vp.vlanIfIndex) == 0) {
        vornCount(VORN_CNT_ADD_VLAN_PORT);
        VORN_DBG("%s(): ENTRY \r\n", "vornProcessAddVlanPort");
        vp.vlanId = static_cast<uint16_t>(ifmIfIndexToVlanId(vp.vlanIfIndex));
        addVlanPort(vp);
    }
    return 0;
}
