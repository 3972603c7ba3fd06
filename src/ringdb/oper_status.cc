// The operational state of a ring as show and the debug shell give it.

#include "ringdb/ringdb.h"
#include "task/trace.h"

int vornGetOperStatus(uint16_t ringId) {
    VORN_DBG("%s ringId = %d \r\n", "vornGetOperStatus", ringId);
    const VornRingEntry* ring = vornGetRing(ringId);
    if (ring == nullptr) return VORN_OPER_DOWN;
    // Only a master knows whether its ring is whole: a transit node has no state of its own.
    if (ring->u1Mode != VORN_MODE_MASTER) return VORN_OPER_NONE;
    bool whole =
        ring->u4PriPortState == VORN_PORT_FORW && ring->u4SecPortState == VORN_PORT_BLOCKING;
    return whole ? VORN_OPER_UP : VORN_OPER_DOWN;
}
