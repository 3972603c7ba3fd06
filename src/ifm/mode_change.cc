// IFM's interface-mode-change record, which feeds the peer-pair LAG associations.

#include "ifm/ifm.h"
#include "ifm/ifm_internal.h"
#include "peer/peer.h"
#include "task/trace.h"

namespace {

// Only records with this flags word concern the peer pair.
constexpr uint32_t kPeerPairFlags = 0x80;
// Mode types: LAG with the inter-chassis link, and LAG with the peer pair.
constexpr uint32_t kModeIclLag1 = 16;
constexpr uint32_t kModeIclLag2 = 32;
constexpr uint32_t kModeLagZil1 = 4;
constexpr uint32_t kModeLagZil2 = 8;

}  // namespace

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
    if (flags != kPeerPairFlags) return 0;
    if (modeType == kModeIclLag1 || modeType == kModeIclLag2) {
        return vornZilProcIclLagAssoc(ifIndex, modeType);
    }
    if (modeType == kModeLagZil1 || modeType == kModeLagZil2) {
        return vornZilProcLagZilAssoc(ifIndex, static_cast<uint16_t>(value & 0xFFFF), modeType);
    }
    return 0;
}
