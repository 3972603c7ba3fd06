// Creation and deletion of the VLAN and port records, IFM's interface add and delete,
// the STG-instance pool and two small utilities.
//
// A VLAN or port record has two independent claimants, IFM and the ring configuration,
// and lives while either still claims it. A port's ring claim is a count, because a port
// can be a ring interface of several rings.

#include "agent/agent.h"
#include "config/readiness.h"
#include "ifm/ifm.h"
#include "l2pm/l2pm.h"
#include "platform/bitmap.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
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
        bool wasRunning = vornRingIsReady(id) == 1 && ring->isSecReady == 1;
        if (ring->u2PriPortNum == portNum) ring->isPriOwned = 1;
        if (ring->u2SecPortNum == portNum) ring->isSecOwned = 1;
        if (!wasRunning && vornRingIsReady(id) == 1) {
            if (ring->isSecReady != 1) {
                vornTakeRingOwnerShip(ring);
            } else {
                vornSendRingEnableMsgToAgt(ring);
            }
        }
    }
}

}  // namespace

uint16_t vornPortNumOf(uint32_t ifIndex) {
    if (ifmIfIndexToIfType(ifIndex) == vorn::ifm::kTypeLag) {
        return static_cast<uint16_t>(ifmIfIndexToIfNum(ifIndex));
    }
    return static_cast<uint16_t>(ifmIfIndexToSlotId(ifIndex) * VORN_PORTS_PER_SLOT +
                                 ifmIfIndexToPortId(ifIndex) + VORN_PHYS_PORT_BASE);
}

VornVlanEntry* vornCreateVlanEntry(uint32_t u4IfIndex, uint32_t u4Creator) {
    uint32_t vlanId = ifmIfIndexToVlanId(u4IfIndex);
    // A record stored outside 1..4095 could never be found again or would lie past the
    // table, so none is made.
    if (vlanId == 0 || vlanId > VORN_MAX_VLAN_ID) {
        VORN_ERR("%s: Vlan id %u of ifIndex 0x%x out of range, no record made\r\n", __func__,
                 vlanId, u4IfIndex);
        return nullptr;
    }
    auto* vlan = vornMakeRecord<VornVlanEntry>(
        vornFixedPoolMalloc(VORN_VLAN_TAG, VORN_VLAN_BLOCK_SIZE, VORN_VLAN_MEM_POOL));
    if (vlan == nullptr) {
        vornCountErr(VORN_ERR_MEM_ALLOC);
        return nullptr;
    }
    vlan->isCreatedByIfm = u4Creator == VORN_CREATOR_IFM ? 1 : 0;
    vlan->isCreatedByRingConf = u4Creator == VORN_CREATOR_RING_CONF ? 1 : 0;
    vlan->u4IfIndex = u4IfIndex;
    vlan->u4IfmAttr = 0;
    gVornVlan[vlanId] = vlan;
    return vlan;
}

VornPortEntry* vornCreatePortEntry(uint32_t u4IfIndex, uint32_t u4Creator) {
    uint16_t portNum = vornPortNumOf(u4IfIndex);
    VORN_DBG("%s: u2PortNum %d \r\n", __func__, portNum);
    if (!vornIsValidPortNum(portNum)) {
        VORN_ERR("%s: port number %d of ifIndex 0x%x out of range, no record made\r\n",
                 __func__, portNum, u4IfIndex);
        return nullptr;
    }
    auto* port = vornMakeRecord<VornPortEntry>(
        vornFixedPoolMalloc(VORN_PORT_TAG, VORN_PORT_BLOCK_SIZE, VORN_PORT_MEM_POOL));
    if (port == nullptr) {
        VORN_DBG("%s: Mem allocation failure %d \r\n", __func__, portNum);
        vornCountErr(VORN_ERR_MEM_ALLOC);
        return nullptr;
    }
    if (ifmIfIndexToIfType(u4IfIndex) == vorn::ifm::kTypeLag) {
        VORN_DBG("%s: LAG %d \r\n", __func__, portNum);
        port->pLagPortList =
            vornMakeRecord<VornLagPortList>(vornVarPoolMalloc(VORN_LAG_LIST_SIZE));
        if (port->pLagPortList == nullptr) {
            // The port block stays taken and unrecorded; that is how the manager has
            // always behaved on this path.
            VORN_DBG("%s: Port list Mem allocation failure %d \r\n", __func__, portNum);
            vornCountErr(VORN_ERR_MEM_ALLOC);
            return nullptr;
        }
    }
    port->u4IfIndex = u4IfIndex;
    port->isCreatedByIfm = u4Creator == VORN_CREATOR_IFM ? 1 : 0;
    port->isOwnedByRingConf = 0;
    port->i2RingCount = 0;
    gVornPort[portNum] = port;
    return port;
}

void vornCheckAndDeleteVlanEntry(uint16_t u2VlanId, uint32_t u4Creator) {
    VornVlanEntry* vlan = vornGetVlan(u2VlanId);
    if (vlan == nullptr) return;
    if (u4Creator == VORN_CREATOR_IFM) {
        vlan->isCreatedByIfm = 0;
    } else {
        vlan->isCreatedByRingConf = 0;
    }
    if (vlan->isCreatedByIfm != 0 || vlan->isCreatedByRingConf != 0) return;
    if (vornFixedPoolFree(vlan) != 0) {
        VORN_ERR("%s: freeing the record of Vlan %d failed\r\n", __func__, u2VlanId);
    }
    gVornVlan[u2VlanId] = nullptr;
}

void vornCheckAndDeletePortEntry(uint32_t u4IfIndex, uint32_t u4Creator) {
    uint16_t portNum = vornPortNumOf(u4IfIndex);
    VORN_DBG("%s: u2PortNum %d \r\n", __func__, portNum);
    VornPortEntry* port = vornGetPort(portNum);
    if (port == nullptr) return;
    if (u4Creator == VORN_CREATOR_IFM) {
        port->isCreatedByIfm = 0;
    } else {
        if (port->i2RingCount > 0) port->i2RingCount--;
        if (port->isCreatedByIfm != 0) return;
    }
    if (port->i2RingCount != 0) return;
    if (port->pLagPortList != nullptr && vornVarPoolFree(port->pLagPortList) != 0) {
        VORN_ERR("%s: freeing the member list of port %d failed\r\n", __func__, portNum);
    }
    if (vornFixedPoolFree(port) != 0) {
        VORN_ERR("%s: freeing the record of port %d failed\r\n", __func__, portNum);
    }
    gVornPort[portNum] = nullptr;
}

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

uint32_t halVornGetStgInst() {
    for (size_t i = 0; i < gVornStgInst.size(); ++i) {
        if (gVornStgInst[i] == 0) {
            gVornStgInst[i] = static_cast<uint32_t>(i) + VORN_STG_INST_BASE;
            return gVornStgInst[i];
        }
    }
    return VORN_STG_INST_NONE;
}

void halVornDelStgInst(VornRingEntry* ring) {
    if (ring == nullptr) return;
    // A ring that could get no instance holds 128, and one already released holds 0;
    // neither has a word in the table, so nothing is cleared for them.
    uint32_t index = uint32_t{ring->u2StgInst} - VORN_STG_INST_BASE;
    if (index < gVornStgInst.size()) {
        gVornStgInst[index] = 0;
    } else {
        VORN_ERR("%s: Ring %d holds STG instance %d outside the pool, nothing cleared\r\n",
                 __func__, ring->u2RingId, ring->u2StgInst);
    }
    ring->u2StgInst = 0;
}

uint32_t vornUtilGenerateVlanHash(const VornVlanBmap& /*memberVlanBmap*/) { return 0; }

void vornBMapToArray(int32_t i4Value, std::array<char, VORN_BMAP_DIGITS>& digits,
                     uint32_t* pu4Count) {
    digits.fill('\0');
    auto value = static_cast<uint32_t>(i4Value);
    uint32_t count = 0;
    do {
        digits[count++] = (value & 1u) != 0 ? '1' : '0';
        value >>= 1;
    } while (value != 0 && count < digits.size());
    if (pu4Count != nullptr) *pu4Count = count;
}
