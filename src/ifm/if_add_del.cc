// IFM's interface add and delete records of VLANs and ports: IFM's claim on the records,
// and what a port that comes or goes does to the rings that use it.

#include <array>

#include "agent/agent.h"
#include "ifm/ifm.h"
#include "l2pm/l2pm.h"
#include "platform/bitmap.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "ringdb/readiness.h"
#include "ringdb/ringdb.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

constexpr size_t kRecIfIndexOff = 0;
constexpr size_t kRecAttrOff = 4;
constexpr size_t kRecMacOff = 16;

vorn::be::Reader recordReader(const uint8_t* rec, size_t len) {
    return vorn::be::Reader(rec, rec != nullptr ? len : 0);
}

// Reads the ifIndex that every IFM interface record starts with.
bool readIfIndex(const vorn::be::Reader& r, const char* fn, uint32_t* ifIndex) {
    *ifIndex = r.u32(kRecIfIndexOff);
    if (!r.ok()) {
        VORN_ERR("%s: IFM record of %zu bytes holds no ifIndex, dropped\r\n", fn, r.size());
        return false;
    }
    return true;
}

// After IFM reported a port that rings already use and its ownership was taken: marks the
// port owned in each of those rings and starts the rings that thereby became ready.
void vornMarkRingPortOwned(const VornRingBmap& ringBmap, uint16_t portNum) {
    // A copy, so that what the ring-start calls do cannot disturb the walk.
    const VornRingBmap rings = ringBmap;
    for (uint16_t id = GET_FIRST_BIT_BITMAP(rings, VORN_RING_BMAP_BITS); id != vorn::bmp::kNoBit;
         id = GET_NEXT_BIT_BITMAP(rings, VORN_RING_BMAP_BITS, id)) {
        VornRingEntry* ring = vornGetRing(id);
        if (ring == nullptr) continue;
        const bool ranBefore = vornRingRuns(*ring);
        if (ring->u2PriPortNum == portNum) ring->isPriOwned = 1;
        if (ring->u2SecPortNum == portNum) ring->isSecOwned = 1;
        vornStartRingIfNowReady(ring, ranBefore);
    }
}

}  // namespace

int vornCreateVlan(const uint8_t* rec, size_t len) {
    vorn::be::Reader r = recordReader(rec, len);
    uint32_t ifIndex = 0;
    if (!readIfIndex(r, __func__, &ifIndex)) return -1;
    uint32_t attr = r.u32(kRecAttrOff);  // 0 when the record stops after the ifIndex
    vornCount(VORN_CNT_ADD_VLAN);
    uint32_t vlanId = ifmIfIndexToVlanId(ifIndex);
    if (VornVlanEntry* vlan = vornGetVlan(vlanId); vlan != nullptr) {
        // Ring configuration made the record first; IFM now claims it too.
        vlan->isCreatedByIfm = 1;
        vlan->u4IfmAttr = attr;
        VORN_DBG("%s: Ring (%d) Configuration already present on the Vlan %d\r\n", __func__,
                 vlan->u2CtrlVlanRingId, vlanId);
        return 0;
    }
    VornVlanEntry* vlan = vornCreateVlanEntry(ifIndex, VORN_CREATOR_IFM);
    if (vlan == nullptr) {
        VORN_DBG("%s: Cannot create Vlan (%d) node \r\n", __func__, vlanId);
        return -1;
    }
    vlan->u4IfmAttr = attr;
    return 0;
}

int vornDestroyVlan(const uint8_t* rec, size_t len) {
    vorn::be::Reader r = recordReader(rec, len);
    uint32_t ifIndex = 0;
    if (!readIfIndex(r, __func__, &ifIndex)) return -1;
    vornCount(VORN_CNT_DEL_VLAN);
    uint32_t vlanId = ifmIfIndexToVlanId(ifIndex);
    if (vornGetVlan(vlanId) == nullptr) {
        vornCountErr(VORN_ERR_DEL_VLAN);
        return -1;
    }
    vornCheckAndDeleteVlanEntry(static_cast<uint16_t>(vlanId), VORN_CREATOR_IFM);
    return 0;
}

int vornCreatePort(const uint8_t* rec, size_t len) {
    vorn::be::Reader r = recordReader(rec, len);
    uint32_t ifIndex = 0;
    if (!readIfIndex(r, __func__, &ifIndex)) return -1;
    std::array<uint8_t, 6> mac{};
    r.bytes(kRecMacOff, mac.data(), mac.size());  // zero when the record stops earlier
    uint16_t portNum = vornPortNumOf(ifIndex);
    VORN_DBG("%s: u2PortNum %d \r\n", __func__, portNum);
    vornCount(VORN_CNT_ADD_PORT);

    VornPortEntry* port = vornGetPort(portNum);
    if (port == nullptr) {
        port = vornCreatePortEntry(ifIndex, VORN_CREATOR_IFM);
        if (port == nullptr) {
            VORN_DBG("%s: Port: %d creation failure\r\n", __func__, portNum);
            return -1;
        }
        port->macAddr = mac;
        return 0;
    }
    // Ring configuration made the record first; IFM now claims it too.
    port->isCreatedByIfm = 1;
    port->macAddr = mac;
    if (port->i2RingCount == 0 || port->isOwnedByRingConf == 1) return 0;
    int refused = 0;
    if (vornPortOwnership(ifIndex, VORN_PORT_OWN_TAKE, &refused) != 0) {
        VORN_ERR("%s(): Taking Port (%d) ownership failed.\r\n", __func__, portNum);
        return -1;
    }
    port->isOwnedByRingConf = 1;
    vornMarkRingPortOwned(port->ringBmap, portNum);
    return 0;
}

int vornDestroyPort(const uint8_t* rec, size_t len) {
    vorn::be::Reader r = recordReader(rec, len);
    uint32_t ifIndex = 0;
    if (!readIfIndex(r, __func__, &ifIndex)) return -1;
    uint16_t portNum = vornPortNumOf(ifIndex);
    VORN_DBG("%s: u2PortNum %d \r\n", __func__, portNum);
    vornCount(VORN_CNT_DEL_PORT);
    if (vornGetPort(portNum) == nullptr) {
        vornCountErr(VORN_ERR_DEL_PORT);
        return -1;
    }
    for (uint16_t id = VORN_MIN_RING_ID; id <= VORN_MAX_RING_ID; ++id) {
        VornRingEntry* ring = gVornRing[id];
        if (ring == nullptr) continue;
        bool isPri = ring->u2PriPortNum == portNum;
        bool isSec = ring->u2SecPortNum == portNum;
        if (!isPri && !isSec) continue;
        if (vornRingIsReady(id) == 1) {
            if (ring->isSecReady == 1) {
                vornDisableRingOnIfmChange(ring);
            } else {
                vornRelinquishRingOwnerShip(ring);
            }
        }
        if (isPri) {
            ring->isPriOwned = 0;
            ring->isPriTagged = 0;
        }
        if (isSec) {
            ring->isSecOwned = 0;
            ring->isSecTagged = 0;
            ring->isSecReady = 0;
        }
    }
    // Looked up again: stopping a ring must not leave a stale pointer behind.
    VornPortEntry* port = vornGetPort(portNum);
    if (port != nullptr && port->isOwnedByRingConf == 1) {
        int refused = 0;
        vornPortOwnership(ifIndex, VORN_PORT_OWN_RELEASE, &refused);
        port->isOwnedByRingConf = 0;
    }
    vornCheckAndDeletePortEntry(ifIndex, VORN_CREATOR_IFM);
    return 0;
}
