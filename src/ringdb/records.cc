// Creation and deletion of the VLAN and port records, the STG-instance pool and two small
// utilities.
//
// A VLAN or port record has two independent claimants, IFM and the ring configuration,
// and lives while either still claims it. A port's ring claim is a count, because a port
// can be a ring interface of several rings.

#include "platform/bitmap.h"
#include "platform/ifindex.h"
#include "ringdb/ringdb.h"
#include "task/tcb.h"
#include "task/trace.h"

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
        VORN_ERR("%s: port number %d of ifIndex 0x%x out of range, no record made\r\n", __func__,
                 portNum, u4IfIndex);
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
        port->pLagPortList = vornMakeRecord<VornLagPortList>(vornVarPoolMalloc(VORN_LAG_LIST_SIZE));
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

uint32_t vornUtilGenerateVlanHash(const VornVlanBmap& /*memberVlanBmap*/) {
    return 0;
}

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
