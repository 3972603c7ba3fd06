// The pre-check that guards a ring's control VLAN and interfaces (readiness itself is a
// predicate of the ring database).
#pragma once

#include <cstddef>
#include <cstdint>

#include "config/config.h"
#include "ringdb/readiness.h"

// Checks that a ring may use u2NewVlanId as its control VLAN (it may keep its own,
// u2OldVlanId) and takes ownership of the two interfaces. Returns 0, or -1 with the
// reason in the request's status field. `request` is the whole 1024-byte CLI request.
int vornPreCheckRingConfig(uint8_t* request, uint16_t u2OldVlanId, uint16_t u2NewVlanId,
                           uint32_t u4PriIfIndex, uint32_t u4SecIfIndex);
