// The pre-check that guards a ring's control VLAN and interfaces.

#include "config/readiness.h"

#include "l2pm/l2pm.h"
#include "platform/bitmap.h"
#include "platform/codec.h"
#include "ringdb/records.h"

int vornPreCheckRingConfig(uint8_t* request, uint16_t u2OldVlanId, uint16_t u2NewVlanId,
                           uint32_t u4PriIfIndex, uint32_t u4SecIfIndex) {
    vorn::be::Writer status(request, request != nullptr ? vorn::nm::kLen : 0);
    // A ring that keeps its own control VLAN while changing its interfaces passes.
    if (u2NewVlanId != u2OldVlanId && vorn::bmp::test(gVornCtrlVlanBmap, u2NewVlanId)) {
        status.u16(vorn::nm::kOffStatus, vorn::nm::kStatusCtrlVlanInUse);
        return -1;
    }
    if (vorn::bmp::test(gVornMemVlanBmap, u2NewVlanId)) {
        status.u16(vorn::nm::kOffStatus, vorn::nm::kStatusVlanIsMember);
        return -1;
    }
    return vornTakeRingInterfaceOwnership(request, u4PriIfIndex, u4SecIfIndex) == 0 ? 0 : -1;
}
