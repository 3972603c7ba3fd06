// Line cards coming up and going down: a card that comes up takes the rings that waited for
// it; the rings of a card that goes down move to another card of their secondary LAG, or are
// driven by the manager until a card can run them again.

#include <cstdio>

#include "agent/agent.h"
#include "l2pm/l2pm.h"
#include "ringdb/readiness.h"
#include "task/msg.h"
#include "task/swpq.h"
#include "task/trace.h"
#include "wire/msgtypes.h"

namespace {

// Reads the slot of a card event into *slot, tracing it with `traceFmt`. False, with the
// error trace, for a slot word above 11: no slot of this chassis.
bool eventSlot(const char* fn, const char* traceFmt, const uint8_t* msg, int* slot) {
    uint32_t word = vornMsgReader(msg).u32(VORN_EVH_SLOT_OFF);
    VORN_DBG(traceFmt, fn, static_cast<int>(word));
    if (word >= static_cast<uint32_t>(VORN_MAX_SLOTS)) {
        VORN_ERR("%s(): Invalid Line Card %d. \r\n", fn, static_cast<int>(word));
        return false;
    }
    *slot = static_cast<int>(word);
    return true;
}

}  // namespace

int vornEventCardUp(uint8_t* msg) {
    static const char* const kFn = "vornEventCardUp";
    int slot = 0;
    if (!eventSlot(kFn, "%s(): Linecard %d\r\n", msg, &slot)) return -1;
    // Active before its agent registers: the selection may already give it rings.
    gVornActiveLineCards[slot] = 1;
    int rc = vornCreateAgent();
    if (rc != 0) {
        VORN_PUTS(vornErrPrint, "Agent Creation failed. \r");
        return rc;
    }
    vornUpdateRingsOnLineCardUp(slot);
    return 0;
}

void vornUpdateRingsOnLineCardUp(int slot) {
    static const char* const kFn = "vornUpdateRingsOnLineCardUp";
    VORN_DBG("%s(): slotId = %d\r\n", kFn, slot);
    for (uint16_t ringId = VORN_MIN_RING_ID; ringId <= VORN_MAX_RING_ID; ++ringId) {
        VornRingEntry* ring = gVornRing[ringId];
        if (ring == nullptr) continue;
        VORN_DBG("%s(): Ring %d present. Designated LC = %d\r\n", kFn, ringId,
                 ring->u2DesgLineCard);
        // Only rings waiting for a card: a ring keeps the card it has, even a card that is down.
        if (ring->u2DesgLineCard != VORN_NO_LINE_CARD || vornGetDesgLineCard(ring) != slot)
            continue;
        vornRelinquishRingOwnerShip(ring);
        ring->isSecReady = 1;
        ring->u2DesgLineCard = static_cast<uint16_t>(slot);
    }
    // Nothing is sent here: the new agent's registration downloads everything.
}

int vornEventCardDown(uint8_t* msg) {
    static const char* const kFn = "vornEventCardDown";
    int slot = 0;
    if (!eventSlot(kFn, "%s(): Linecard = %d\r\n", msg, &slot)) return -1;
    gVornActiveLineCards[slot] = 0;
    // The downed slot's queue goes first, so that nothing below is queued for it.
    vornVornaSwpReset(slot);
    vornTcb.lcType[slot] = 0;
    halVornSendLCTypeToAllAgents();
    // Set once for the whole walk: a ring that stops or starts elsewhere carries its action
    // over to every later ring of this card. Kept as is: the agents expect it.
    uint32_t ringAction = VORN_RING_ACTION_NONE;
    for (uint16_t ringId = VORN_MIN_RING_ID; ringId <= VORN_MAX_RING_ID; ++ringId) {
        VornRingEntry* ring = gVornRing[ringId];
        if (ring == nullptr || ring->u2DesgLineCard != slot) continue;
        uint32_t oldStatus = 0;
        if (vornRingIsReady(ringId) == 1) oldStatus = ring->isSecReady == 1 ? 1 : 0;
        uint16_t newSlot = vornGetNewDesgLineCard(ring, static_cast<uint16_t>(slot));
        if (newSlot == VORN_NO_LINE_CARD) {
            ring->isSecReady = 0;
            ringAction = VORN_RING_ACTION_STOP;
            vornTakeRingOwnerShip(ring);
        } else if (oldStatus == 1) {
            ringAction = VORN_RING_ACTION_START;
        }
        VORN_DBG("   OldAgt: %d, NewAgt: %d, OldRingStatus: %d, RingAction = %d\r\n", slot, newSlot,
                 static_cast<int>(oldStatus), static_cast<int>(ringAction));
        ring->u2DesgLineCard = newSlot;
        for (int other = 0; other < VORN_MAX_SLOTS; ++other) {
            if (vornTcb.vornaSwpHandle[other] == 0) continue;
            vornSendRingCfgMsgToSingleAgt(other, ring, VORN_RING_CFG_ACTION_ADD, 0, ringAction,
                                          nullptr);
        }
    }
    return 0;
}
