// "protocol vorn <id>" and its "no" form: the creation of a ring record with its defaults,
// and the removal of a ring with everything that hangs off it.

#include <array>
#include <cstdio>

#include "agent/agent.h"
#include "agent/pending.h"
#include "config/cli_request.h"
#include "config/config.h"
#include "ifm/ifm.h"
#include "l2pm/l2pm.h"
#include "platform/bitmap.h"
#include "ringdb/ringdb.h"
#include "task/pools.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

using vorn::cfg::reqRingId;
using vorn::cfg::reqSetStatus;
using vorn::cfg::reqWriter;

// The platform's assertion of the ring-creation path: reported under the error flag; the
// caller refuses the request afterwards.
void vornCfgAssert(const char* expr, const char* file, int line) {
    VORN_ERR("_qelAssert: %s, file %s, line %d\r\n", expr, file, line);
}

}  // namespace

void vornCfgReleaseRingPort(const VornRingEntry& ring, uint32_t ifIndex, uint16_t portNum) {
    VornPortEntry* port = vornGetPort(portNum);
    if (port == nullptr) return;
    vorn::bmp::clear(port->ctrlVlanBmap, ring.u2CtrlVlanId);
    vorn::bmp::clear(port->ringBmap, ring.u2RingId);
    if (port->i2RingCount == 1 && port->isOwnedByRingConf == 1) {
        int refused = 0;
        if (vornPortOwnership(ifIndex, VORN_PORT_OWN_RELEASE, &refused) == 0) {
            port->isOwnedByRingConf = 0;
        }
    }
    vornCheckAndDeletePortEntry(ifIndex, VORN_CREATOR_RING_CONF);
}

int vornProcessProtoVorn(uint8_t* request) {
    VORN_DBG("%s \r\n", __func__);
    if (vorn::cfg::reqIsNoForm(request)) {
        vornCount(VORN_CNT_CLI_NO_PROTO);
        return vornProcessNoProtoMsg(request);
    }
    vornCount(VORN_CNT_CLI_PROTO);
    return vornProcessProtoMsg(request);
}

int vornProcessProtoMsg(uint8_t* request) {
    uint16_t ringId = reqRingId(request);
    VORN_DBG("%s ringId = %d \r\n", __func__, ringId);
    if (!vornIsValidRingId(ringId)) {
        vornCfgAssert("(u2RingId >= VORN_MIN_RING_ID) && (u2RingId <= VORN_MAX_RING_ID)",
                      "vornTask", 2542);
        return 0;
    }
    // Creating an existing ring keeps its configuration.
    if (gVornRing[ringId] != nullptr) return 0;

    auto* ring = vornMakeRecord<VornRingEntry>(
        vornFixedPoolMalloc(VORN_RING_TAG, VORN_RING_BLOCK_SIZE, VORN_RING_MEM_POOL));
    if (ring == nullptr) {
        vornCountErr(VORN_ERR_MEM_ALLOC);
        return 0;
    }
    ring->u2RingId = ringId;
    ring->u2HelloTime = VORN_DEFAULT_HELLO;
    ring->u2DeadTime = VORN_DEFAULT_DEAD;
    ring->u2DesgLineCard = VORN_NO_LINE_CARD;
    ring->u1Mode = VORN_MODE_NONE;
    ring->u4PriPortState = VORN_PORT_DISABLED;
    ring->u4SecPortState = VORN_PORT_DISABLED;
    ring->isRingOwnedByMgr = 0;
    ring->u4Flags = 0;
    ring->u2StgInst = static_cast<uint16_t>(halVornGetStgInst());
    gVornRing[ringId] = ring;

    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "!\r\nprotocol vorn %d ", ringId);
    vornConfigAdd(ringId, VORN_CFG_CMD_RING, text.data(), 0);
    vornTcb.ringCount++;
    return 0;
}

int vornProcessNoProtoMsg(uint8_t* request) {
    uint16_t ringId = reqRingId(request);
    VORN_DBG("%s ringId = %d \r\n", __func__, ringId);
    VornRingEntry* ring = vornGetRing(ringId);
    if (ring == nullptr) {
        reqSetStatus(request, vorn::nm::kStatusNoRing);
        return 0;
    }
    const uint32_t flags = ring->u4Flags;

    if ((flags & VORN_RING_CFG_CTRL_VLAN) != 0) {
        halVornSendInstPortOwnerShipToL2Pm(0, ring->u2StgInst, ring->u4PriIfIndex);
        halVornSendInstPortOwnerShipToL2Pm(0, ring->u2StgInst, ring->u4SecIfIndex);
        vornUpdateL2PmOnRingIfDel(ring, 1);
        vornUpdateL2PmOnRingIfDel(ring, 0);
        vorn::bmp::clear(gVornCtrlVlanBmap, ring->u2CtrlVlanId);
        if (VornVlanEntry* vlan = vornGetVlan(ring->u2CtrlVlanId); vlan != nullptr) {
            vlan->u2CtrlVlanRingId = 0;
            vornCheckAndDeleteVlanEntry(ring->u2CtrlVlanId, VORN_CREATOR_RING_CONF);
        }
        vornCfgReleaseRingPort(*ring, ring->u4PriIfIndex, ring->u2PriPortNum);
        vornCfgReleaseRingPort(*ring, ring->u4SecIfIndex, ring->u2SecPortNum);
    }
    // Also for a ring that never had interfaces: IFM hears of both indexes 0.
    vornNotifRingIfCfgToIFM(ring->u4PriIfIndex, ring->u4SecIfIndex, 2);

    if ((flags & VORN_RING_CFG_MEMBER_VLAN) != 0) {
        if (!BITMAP_IS_EMPTY(ring->memberVlanBmap)) {
            halVornSendVlanStgMsgToL2Pm(ring->u2StgInst, ring->memberVlanBmap.data(), 0);
        }
        // A copy to walk, since the walk clears the ring's bits. The VLAN records stay:
        // one that ring configuration created lives until IFM deletes it.
        const VornVlanBmap members = ring->memberVlanBmap;
        for (uint16_t v = GET_FIRST_BIT_BITMAP(members, VORN_VLAN_BMAP_BITS);
             v != vorn::bmp::kNoBit; v = GET_NEXT_BIT_BITMAP(members, VORN_VLAN_BMAP_BITS, v)) {
            vorn::bmp::clear(gVornMemVlanBmap, v);
            vorn::bmp::clear(ring->memberVlanBmap, v);
            if (VornVlanEntry* vlan = vornGetVlan(v); vlan != nullptr) vlan->u2MemberVlanRingId = 0;
        }
    }

    halVornDelStgInst(ring);
    vornSendRingCfgMsgToAllAgts(ring, VORN_RING_CFG_ACTION_DEL_RING, 0, 0, nullptr);
    vornConfigRemoveAll(ringId, flags);

    gVornRing[ringId] = nullptr;
    if (vornFixedPoolFree(ring) != 0) {
        VORN_ERR("%s: freeing the record of Ring %d failed\r\n", __func__, ringId);
    }
    vornTcb.ringCount--;
    vornActiveRings--;  // also for a ring that was never enabled
    vorn::be::Writer w = reqWriter(request);
    w.u16(vorn::nm::kOffConfiguredRings, static_cast<uint16_t>(vornTcb.ringCount));
    w.u16(vorn::nm::kOffActiveRings, vornActiveRings);

    if (vornTcb.ringCount == 0) vornFlushPendingMsgs();
    return 0;
}
