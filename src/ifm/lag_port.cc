// IFM's LAG-membership records. A LAG that gains a member makes the rings whose secondary
// interface it is ready on that side, and starts every ring that is ready now but did not
// run; a LAG that loses a member, even its last, stops nothing.

#include "agent/agent.h"
#include "ifm/ifm.h"
#include "ifm/ifm_internal.h"
#include "ringdb/readiness.h"
#include "ringdb/ringdb.h"

int vornProcessAddLagPort(const uint8_t* rec, size_t len) {
    if (vornLagInsertMember(rec, len, __func__) != 0) return -1;
    const uint16_t lagNum = vornPortNumOf(vorn::ifmrec::dataReader(rec, len).u32(0));
    // Every ring is looked at, so that a ring that became ready for another reason since
    // it was last looked at starts here too.
    for (uint16_t id = VORN_MIN_RING_ID; id <= VORN_MAX_RING_ID; ++id) {
        VornRingEntry* ring = gVornRing[id];
        if (ring == nullptr) continue;
        const bool wasReady = vornRingIsReady(id) == 1;
        const uint8_t oldSecReady = ring->isSecReady;
        if (ring->u2SecPortNum == lagNum) ring->isSecReady = 1;
        const bool ranBefore = wasReady && oldSecReady == 1;
        if (ranBefore || vornRingIsReady(id) != 1 || ring->isSecReady != 1) continue;
        // The manager gives the ports back before the agent takes the ring over.
        if (oldSecReady == 0) vornRelinquishRingOwnerShip(ring);
        vornSendRingEnableMsgToAgt(ring);
    }
    return 0;
}

int vornProcessDelLagPort(const uint8_t* rec, size_t len) {
    return vornLagRemoveMember(rec, len, __func__) != 0 ? -1 : 0;
}
