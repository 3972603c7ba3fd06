// Ring configuration download: what a configuration change means for the running ring (the
// ring action), the change sent to every agent, and the full download to one agent.

#include "agent/agent.h"
#include "ringdb/readiness.h"
#include "task/trace.h"

uint32_t vornUtilGetRingAction(uint16_t ringId, uint32_t action, uint32_t flags,
                               uint32_t oldRingConfStatus) {
    VORN_DBG("%s(): RingId: %d, Action: %d, Flags: 0x0%x, oldRingConfStatus = %d\r\n", __func__,
             ringId, static_cast<int>(action), flags, static_cast<int>(oldRingConfStatus));
    // Only the control VLAN and interfaces, the mode and enabling can change whether the
    // ring runs; anything else is a plain update, whatever the action.
    if ((flags & VORN_RING_CFG_MANDATORY) == 0) return VORN_RING_ACTION_NONE;
    const VornRingEntry* ring = vornGetRing(ringId);
    bool secReady = ring != nullptr && ring->isSecReady == 1;
    switch (action) {
        case VORN_RING_CFG_ACTION_DEL_CFG:
            return oldRingConfStatus == 1 && secReady ? VORN_RING_ACTION_STOP
                                                      : VORN_RING_ACTION_NONE;
        case VORN_RING_CFG_ACTION_DEL_RING:
            return VORN_RING_ACTION_STOP;
        case VORN_RING_CFG_ACTION_ADD: {
            bool runs = vornRingIsReady(ringId) == 1 && secReady;
            if (oldRingConfStatus == 0)
                return runs ? VORN_RING_ACTION_START : VORN_RING_ACTION_NONE;
            return runs ? VORN_RING_ACTION_RESTART : VORN_RING_ACTION_STOP;
        }
        default:
            return VORN_RING_ACTION_NONE;
    }
}

int vornSendRingCfgMsgToAllAgts(VornRingEntry* ring, uint32_t action, uint32_t flags,
                                uint32_t oldRingConfStatus, const uint8_t* memberVlans) {
    if (ring == nullptr) {
        VORN_ERR("%s(): no ring\r\n", __func__);
        return -1;
    }
    VORN_DBG("%s(): RingId: %d, action:%ld, flags: 0x%lx, oldRingConfStatus: %d, pParams: %p\r\n",
             __func__, ring->u2RingId, static_cast<long>(action), static_cast<unsigned long>(flags),
             static_cast<int>(oldRingConfStatus), static_cast<const void*>(memberVlans));
    vornUpdateRingOwnership(ring->u2RingId, action, flags, oldRingConfStatus);
    if (action == VORN_RING_CFG_ACTION_ADD && ring->u2DesgLineCard == VORN_NO_LINE_CARD) {
        ring->u2DesgLineCard = vornGetDesgLineCard(ring);
    }
    for (int slot = 0; slot < VORN_MAX_SLOTS; ++slot) {
        if (vornTcb.vornaSwpHandle[slot] == 0) continue;
        uint32_t ringAction =
            vornUtilGetRingAction(ring->u2RingId, action, flags, oldRingConfStatus);
        // A lost record is logged where it is lost; the other agents still get theirs.
        vornSendRingCfgMsgToSingleAgt(slot, ring, action, flags, ringAction, memberVlans);
    }
    return 0;
}

int vornDnldRingCfgToAgt(int slot) {
    for (uint16_t ringId = VORN_MIN_RING_ID; ringId <= VORN_MAX_RING_ID; ++ringId) {
        VornRingEntry* ring = gVornRing[ringId];
        if (ring == nullptr) continue;
        uint32_t flags = ring->u4Flags;
        const uint8_t* memberVlans =
            (flags & VORN_RING_CFG_MEMBER_VLAN) != 0 ? ring->memberVlanBmap.data() : nullptr;
        uint32_t ringAction = vornUtilGetRingAction(ringId, VORN_RING_CFG_ACTION_ADD, flags, 0);
        vornSendRingCfgMsgToSingleAgt(slot, ring, VORN_RING_CFG_ACTION_ADD, flags, ringAction,
                                      memberVlans);
    }
    return 0;
}
