// Ring readiness: pure predicates on the ring records.
#pragma once

#include <cstdint>

#include "ringdb/records.h"

// Returns 1 when the ring has its mandatory configuration and both ring interfaces exist,
// are owned by the ring and are tagged in its control VLAN; else 0. isSecReady does not
// change the answer. Only debug traces; nothing else changes.
int vornRingIsReady(uint16_t u2RingId);

// True when the ring is ready and its secondary interface too: an agent runs the ring.
inline bool vornRingRuns(const VornRingEntry& ring) {
    return vornRingIsReady(ring.u2RingId) == 1 && ring.isSecReady == 1;
}
