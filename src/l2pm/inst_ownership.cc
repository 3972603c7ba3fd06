// Instance port ownership: which ports belong to a ring's STG instance, batched for L2PM.

#include "l2pm/l2pm.h"
#include "l2pm/pend_buf.h"
#include "task/trace.h"

uint8_t* vornGetL2PmInstPortOwnerShipPendBufToFill() {
    return vorn::l2pm::pendBufToFill(vorn::l2pm::kInstOwnKind);
}

int halVornSendInstPortOwnerShipToL2Pm(uint32_t action, uint16_t instance, uint32_t ifIndex) {
    uint32_t n = vorn::l2pm::pendAppend(
        vorn::l2pm::kInstOwnKind, __func__, [&](vorn::be::Writer& w, size_t off) {
            // The action travels in one byte: 1 adds the port, anything else deletes it.
            w.u8(off + VORN_INST_REC_ACTION_OFF, static_cast<uint8_t>(action));
            w.u16(off + VORN_INST_REC_INST_OFF, instance);
            w.u32(off + VORN_INST_REC_IFINDEX_OFF, ifIndex);
        });
    if (n == 0) return -1;
    VORN_DBG("%s(): Filled record %d.\r\n", __func__, static_cast<int>(n));
    return 0;
}
