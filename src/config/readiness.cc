// Ring readiness and the control-VLAN pre-check.

#include "config/readiness.h"

#include "l2pm/l2pm.h"
#include "platform/bitmap.h"
#include "platform/codec.h"
#include "ringdb/records.h"
#include "task/trace.h"

int vornRingIsReady(uint16_t u2RingId) {
    const VornRingEntry* ring = vornGetRing(u2RingId);
    if (ring == nullptr) {
        VORN_DBG("%s (): Unknown Ring %d\r\n", __func__, u2RingId);
        return 0;
    }
    VORN_DBG("%s(): Ring: %d, Flags: 0x%x, PriPort: %d, SecPort: %d, PriTagged: %d, "
             "SecTagged: %d, PriOwned: %d, SecOwned: %d, SecReady: %d\r\n",
             __func__, ring->u2RingId, ring->u4Flags, ring->u2PriPortNum, ring->u2SecPortNum,
             ring->isPriTagged, ring->isSecTagged, ring->isPriOwned, ring->isSecOwned,
             ring->isSecReady);

    if ((ring->u4Flags & VORN_RING_CFG_MANDATORY) < VORN_RING_CFG_MANDATORY) {
        VORN_PUTS(vornDbgPrint, "Ring is NOT ready. Mandatory flags not set.\r");
        return 0;
    }
    if (vornGetVlan(ring->u2CtrlVlanId) == nullptr) {
        VORN_DBG("%s (): Ring %d, Control Vlan not created. Vlan = %d \r\n", __func__,
                 u2RingId, ring->u2CtrlVlanId);
        return 0;
    }
    if (ring->isPriTagged == 0 || ring->isSecTagged == 0) {
        VORN_PUTS(vornDbgPrint, "Ring is NOT ready. Ports not tagged.\r");
        return 0;
    }
    // vornGetPort refuses port number 0 and numbers beyond the table.
    bool priOk = vornGetPort(ring->u2PriPortNum) != nullptr && ring->isPriOwned == 1;
    bool secOk = vornGetPort(ring->u2SecPortNum) != nullptr && ring->isSecOwned == 1;
    if (!priOk || !secOk) {
        VORN_PUTS(vornDbgPrint, "Ring is NOT ready. Port config not complete.\r");
        return 0;
    }
    if (ring->isSecReady == 0) {
        VORN_PUTS(vornDbgPrint, "Ring is NOT ready. isSecReady not set.\r");
    } else {
        VORN_PUTS(vornDbgPrint, "Ring is ready.\r");
    }
    return 1;
}

int vornPreCheckRingConfig(uint8_t* request, uint16_t u2OldVlanId, uint16_t u2NewVlanId,
                           uint32_t u4PriIfIndex, uint32_t u4SecIfIndex) {
    vorn::be::Writer status(request, request != nullptr ? VORN_CLI_REQ_LEN : 0);
    // A ring that keeps its own control VLAN while changing its interfaces passes.
    if (u2NewVlanId != u2OldVlanId && vorn::bmp::test(gVornCtrlVlanBmap, u2NewVlanId)) {
        status.u16(VORN_CLI_STATUS_OFF, VORN_CLI_ERR_CTRL_VLAN_IN_USE);
        return -1;
    }
    if (vorn::bmp::test(gVornMemVlanBmap, u2NewVlanId)) {
        status.u16(VORN_CLI_STATUS_OFF, VORN_CLI_ERR_MEMBER_VLAN);
        return -1;
    }
    return vornTakeRingInterfaceOwnership(request, u4PriIfIndex, u4SecIfIndex) == 0 ? 0 : -1;
}
