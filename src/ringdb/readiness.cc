// Ring readiness: whether a ring has everything it needs to run.

#include "ringdb/readiness.h"

#include "ringdb/records.h"
#include "task/trace.h"

int vornRingIsReady(uint16_t u2RingId) {
    const VornRingEntry* ring = vornGetRing(u2RingId);
    if (ring == nullptr) {
        VORN_DBG("%s (): Unknown Ring %d\r\n", __func__, u2RingId);
        return 0;
    }
    VORN_DBG(
        "%s(): Ring: %d, Flags: 0x%x, PriPort: %d, SecPort: %d, PriTagged: %d, "
        "SecTagged: %d, PriOwned: %d, SecOwned: %d, SecReady: %d\r\n",
        __func__, ring->u2RingId, ring->u4Flags, ring->u2PriPortNum, ring->u2SecPortNum,
        ring->isPriTagged, ring->isSecTagged, ring->isPriOwned, ring->isSecOwned, ring->isSecReady);

    if ((ring->u4Flags & VORN_RING_CFG_MANDATORY) < VORN_RING_CFG_MANDATORY) {
        VORN_PUTS(vornDbgPrint, "Ring is NOT ready. Mandatory flags not set.\r");
        return 0;
    }
    if (vornGetVlan(ring->u2CtrlVlanId) == nullptr) {
        VORN_DBG("%s (): Ring %d, Control Vlan not created. Vlan = %d \r\n", __func__, u2RingId,
                 ring->u2CtrlVlanId);
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
