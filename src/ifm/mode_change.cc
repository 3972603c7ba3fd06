// IFM's interface-mode-change record, which feeds the peer-pair LAG associations.

#include "ifm/ifm.h"
#include "ifm/ifm_internal.h"
#include "peer/peer.h"
#include "task/trace.h"

int vornProcessIfmIfModeChgMsg(const uint8_t* rec, size_t len) {
    if (rec == nullptr) return 0;
    const vorn::be::Reader r(rec, len);
    const uint32_t ifIndex = r.u32(0);
    const uint32_t value = r.u32(VORN_IFM_MODE_VALUE_OFF);
    const uint32_t flags = r.u32(VORN_IFM_MODE_FLAGS_OFF);
    const uint32_t modeType = r.u32(VORN_IFM_MODE_TYPE_OFF);
    if (!r.ok()) {
        vorn::ifmrec::tooShort(__func__, len);
        return 0;
    }
    VORN_TRACE(vornZilDbgPrint, "%s (): IfIndex: 0x%lx, flags: %x Value: %ld, ModeType: %ld\r\n",
               __func__, static_cast<unsigned long>(ifIndex), flags, static_cast<long>(value),
               static_cast<long>(modeType));
    if (flags != VORN_IFM_MODE_PEER_PAIR_FLAGS) return 0;
    if (modeType == VORN_IFM_MODE_ICL_SET || modeType == VORN_IFM_MODE_ICL_CLEAR) {
        return vornZilProcIclLagAssoc(ifIndex, modeType);
    }
    if (modeType == VORN_IFM_MODE_LAG_ZIL_JOIN || modeType == VORN_IFM_MODE_LAG_ZIL_LEAVE) {
        return vornZilProcLagZilAssoc(ifIndex, static_cast<uint16_t>(value & 0xFFFF), modeType);
    }
    return 0;
}
