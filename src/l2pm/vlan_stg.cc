// The VLAN-STG message: maps a ring's VLANs to its STG instance, or unmaps them.

#include "l2pm/l2pm.h"
#include "platform/codec.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/msgtypes.h"

namespace {
// Fixed words at the end of the message.
constexpr uint32_t kConst1 = 1;
constexpr uint32_t kConst2 = 5;
}  // namespace

int halVornSendVlanStgMsgToL2Pm(uint16_t instance, const uint8_t* vlanBitmap, uint32_t mapFlag) {
    VORN_DBG("%s(): STG Inst = %d and map flag = %d\r\n", __func__, instance,
             static_cast<int>(mapFlag));
    // Without a queue the SWP layer would not take the buffer; none is taken.
    if (vornTcb.l2pmSwpHandle == 0) {
        VORN_ERR("%s: L2PM SWP queue not created.\r\n", __func__);
        return -1;
    }
    auto* buf = static_cast<uint8_t*>(vornVarPoolMalloc(VORN_VLAN_STG_LEN));
    if (buf == nullptr) return -1;
    vorn::be::Writer w(buf, VORN_VLAN_STG_LEN);
    w.zero(0, VORN_VLAN_STG_LEN);
    w.u32(VORN_VLAN_STG_MAP_OFF, mapFlag);
    w.u16(VORN_VLAN_STG_INST_OFF, instance);
    if (vlanBitmap != nullptr) w.bytes(VORN_VLAN_STG_BMAP_OFF, vlanBitmap, VORN_VLAN_BMAP_BYTES);
    w.u32(VORN_VLAN_STG_CONST1_OFF, kConst1);
    w.u32(VORN_VLAN_STG_CONST2_OFF, kConst2);
    vornSwpSendToL2Pm(MT_L2PM_VLAN_STG, buf, VORN_VLAN_STG_LEN);
    return 0;
}
