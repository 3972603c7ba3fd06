// The manager as an application of the peer-pair library.

#include <cstdarg>
#include <cstdio>

#include "peer/peer.h"
#include "platform/chassis.h"
#include "platform/codec.h"
#include "platform/evtlog.h"
#include "platform/ifindex.h"
#include "platform/mem.h"
#include "ringdb/records.h"
#include "ringdb/ringdb.h"
#include "task/pools.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/ifm.h"
#include "wire/msgtypes.h"
#include "wire/peer.h"

namespace {

// The peer-pair events subscribed at start-up, and the pair the unsubscription names.
constexpr uint32_t kZilEvtSubFirst = 0x44800B;
constexpr uint32_t kZilEvtSubSecond = MLAGMGR_PEER_STATUS_NOTIFY;
constexpr uint32_t kZilEvtUnsubFirst = MLAGMGR_PEER_STATUS_NOTIFY;
constexpr uint32_t kZilEvtUnsubSecond = 0x448009;
constexpr uintptr_t kZilStandbyFlag = 0x8;
constexpr uint32_t kZilMemTypeMax = 2;
constexpr uint32_t kPortOperDown = 2;
// The test PDU: an application sub-TLV of this type and length, all zero.
constexpr uint16_t kTestSubTlvType = 50;
constexpr uint16_t kTestSubTlvLen = 1000;
constexpr uint32_t kAllLibDbgBits = 0xFFFFFF;
// Source line numbers the receive errors carry.
constexpr int kLineReadError = 677;
constexpr int kLineNotIcl = 684;

// Runs of the periodic peer-pair work since the last reset.
uint32_t numRuns = 0;

// A callback's word in the registration block.
template <typename F>
uintptr_t callback(F* f) {
    return reinterpret_cast<uintptr_t>(f);
}

void freeDbgBuf() {
    if (gvornZilDbgBuf == nullptr) return;
    qelMC_M_sysMemfree("vornZil", __LINE__, gvornZilDbgBuf);
    gvornZilDbgBuf = nullptr;
}

void unsubscribe() {
    qelEvhUnsubscribeEvt(vornTcb.evLogKey, 2, kZilEvtUnsubFirst, kZilEvtUnsubSecond);
}

// The port record of a LAG the association names, or null after the refusal's trace.
VornPortEntry* lagRecord(const char* fn, uint32_t ifIndex) {
    const auto ul = static_cast<unsigned long>(ifIndex);
    if (ifmIfIndexToIfType(ifIndex) != vorn::ifm::kTypeLag) {
        VORN_TRACE(vornZilDbgPrint, "%s (): IfIndex: 0x%lx not a LAG\r\n", fn, ul);
        return nullptr;
    }
    VornPortEntry* port = vornGetPort(vornPortNumOf(ifIndex));
    if (port == nullptr)
        VORN_TRACE(vornZilDbgPrint, "%s (): LAG not present. IfIndex: 0x%lx\r\n", fn, ul);
    return port;
}

}  // namespace

uint32_t vornZilHdl = 0;
char* gvornZilDbgBuf = nullptr;
std::array<uint8_t, 8192> vornZilBuf{};
vorn::zil::RegBlock vornZilCtrlParams = {
    0x15,
    0,
    0x100C,
    callback(&vornZilProcPeerReg),
    callback(&vornZilProcInfoPduData),
    callback(&vornZilProcZilPairingChg),
    callback(&vornZilProcZilPairOStateChg),
    0,
    callback(&vornZilProcPeerEndInfoExch),
    0,
    callback(&vornZilMemAlloc),
    callback(&vornZilMemFree),
    callback(&vornZilDbg),
    0,
    10,
    0x19000000,
    VORN_SERVICE,
    0,
    0,  // 18: the manager's IPC key, at start-up
    VORN_SERVICE,
    0,
    0,
    callback(&vornZilSwpMalloc),
    0,
    callback(&vornZilSwpFree),
    callback(&vornZilSwpErrFunc),
    8,
    0,  // 27: the SWP pipe, at start-up
    0,  // 28: the event-log key, at start-up
    0x0101E800,
    0x00130000,
};

int vornZilInit() {
    VORN_TRACE(vornZilDbgPrint, "%s: Entry\r\n", __func__);
    vornZilHdl = 0;
    if (qelIsZilEnabled() == 0) return 0;
    gvornZilDbgBuf =
        static_cast<char*>(qelMC_M_sysMalloc("vornZil", __LINE__, VORN_ZIL_DBG_BUF_LEN));
    if (gvornZilDbgBuf == nullptr) {
        std::perror("Memory allocation failed for log buf");
        return -1;
    }
    if (qelEvhSubscribeEvt(vornTcb.evLogKey, 2, kZilEvtSubFirst, kZilEvtSubSecond) != 0) {
        VORN_TRACE(vornZilDbgPrint, "%s: ZIL event subscription failed\r\n", __func__);
        freeDbgBuf();
        return -1;
    }
    vornZilCtrlParams[18] = static_cast<uintptr_t>(vornTcb.ipcKey);
    vornZilCtrlParams[27] = static_cast<uintptr_t>(vornTcb.swpPipefd);
    vornZilCtrlParams[28] = static_cast<uintptr_t>(vornTcb.evLogKey);
    if (qelHaIsPrimaryRpm() == 0) vornZilCtrlParams[vorn::zil::kWordFlags] |= kZilStandbyFlag;
    if (qelZilRegister(&vornZilCtrlParams, 0, &vornZilHdl, 0) == 0) {
        VORN_TRACE(vornZilDbgPrint, "%s: Exit\r\n", __func__);
        return 0;
    }
    VORN_TRACE(vornZilDbgPrint, "%s: Registration with ZIL Library failed\r\n", __func__);
    unsubscribe();
    vornZilHdl = 0;
    freeDbgBuf();
    return -1;
}

void vornZilDeInit() {
    qelZilProcPeerDown(vornZilHdl);
    qelZilDeReg(vornZilHdl);
    vornZilHdl = 0;
    unsubscribe();
    freeDbgBuf();
}

int vornProcessZilPeerMsg() {
    uint32_t ifIndex = 0;
    int n = qelRecvfrom(qelZilGetIclSockFd(vornZilHdl), vornZilBuf.data(),
                        static_cast<int>(vornZilBuf.size()), vorn::zil::kRecvDontWait, &ifIndex);
    if (n < 0) {
        VORN_TRACE(vornZilDbgPrint, "%s: %d Socket read error", __func__, kLineReadError);
        return -1;
    }
    if (ifIndex != qelZilGetIclIfIndex(vornZilHdl)) {
        VORN_TRACE(vornZilDbgPrint, "%s: %d ZIL PDU received on IfIndex %ld", __func__, kLineNotIcl,
                   static_cast<long>(ifIndex));
        return -1;
    }
    // An empty PDU has no type byte of its own: it reads as type 0, never as the last one's.
    if (n == 0) vornZilBuf[0] = 0;
    return qelZilProcCtrlPdu(vornZilHdl, vornZilBuf.data());
}

int vornZilPeerRegRetryAndFlushTxBuf(uint32_t, uint32_t arg) {
    numRuns = 0;
    return qelZilChkRegTimeOut(vornZilHdl, arg);
}

int vornZilPeerStatusChg(uint8_t* event) {
    if (event == nullptr) return 0;
    const vorn::be::Reader r(event, VORN_PEER_ROLE_DATA_OFF + 4);
    const uint32_t status = r.u32(VORN_PEER_STATUS_DATA_OFF);
    if (status == VORN_PEER_STATUS_UP) {
        VORN_TRACE(vornZilDbgPrint, "ZIL Peer UP: Role %d\r\n",
                   static_cast<int>(r.u32(VORN_PEER_ROLE_DATA_OFF)));
        qelZilProcPeerUp(vornZilHdl, event);
    } else if (vornPeerStatusIsDown(status)) {
        VORN_PUTS(vornZilDbgPrint, "ZIL Peer DOWN\r");
        qelZilProcPeerDown(vornZilHdl);
    }
    return 0;
}

int vornZilProcLagZilAssoc(uint32_t ifIndex, uint16_t zilId, uint32_t modeType) {
    const auto ul = static_cast<unsigned long>(ifIndex);
    VORN_TRACE(vornZilDbgPrint, "%s (): IfIndex: 0x%lx, zilId: %d, modeType: %ld\r\n", __func__, ul,
               zilId, static_cast<long>(modeType));
    const VornPortEntry* lag = lagRecord(__func__, ifIndex);
    if (lag == nullptr) return -1;
    if (zilId < VORN_ZIL_MIN_ID || zilId > VORN_ZIL_MAX_ID) {
        VORN_TRACE(vornZilDbgPrint, "%s (): Invalid ZilId. ZilId: %d\r\n", __func__, zilId);
        return -1;
    }
    const uint32_t down = lag->u2OperState == kPortOperDown ? 1 : 0;
    const uint32_t lagNum = ifmIfIndexToIfNum(ifIndex) & 0xFFFF;
    if (modeType == VORN_IFM_MODE_LAG_ZIL_JOIN || modeType == VORN_IFM_MODE_LAG_ZIL_LEAVE) {
        int action = modeType == VORN_IFM_MODE_LAG_ZIL_JOIN ? vorn::zil::kActionSet
                                                            : vorn::zil::kActionClear;
        qelZilProcZilLagMap(vornZilHdl, action, lagNum, zilId, down);
        return 0;
    }
    VORN_TRACE(vornZilDbgPrint, "%s (): Invlaid Mode(%ld) for IfIndex: 0x%lx\r\n", __func__,
               static_cast<long>(modeType), ul);
    return -1;
}

int vornZilProcIclLagAssoc(uint32_t ifIndex, uint32_t action) {
    const auto ul = static_cast<unsigned long>(ifIndex);
    VORN_TRACE(vornZilDbgPrint, "%s (): IfIndex: 0x%lx, Action: %ld\r\n", __func__, ul,
               static_cast<long>(action));
    const VornPortEntry* lag = lagRecord(__func__, ifIndex);
    if (lag == nullptr) return -1;
    if (action == VORN_IFM_MODE_ICL_SET) {
        qelZilSetIclIfIndex(vornZilHdl, vorn::zil::kActionSet, lag->u4IfIndex);
        return 0;
    }
    if (action == VORN_IFM_MODE_ICL_CLEAR) {
        qelZilSetIclIfIndex(vornZilHdl, vorn::zil::kActionClear, 0);
        return 0;
    }
    VORN_TRACE(vornZilDbgPrint, "%s (): Invlaid Mode(%ld) for IfIndex: 0x%lx\r\n", __func__,
               static_cast<long>(action), ul);
    return -1;
}

int vornZilProcPeerReg() {
    VORN_TRACE(vornZilDbgPrint, "%s: Entry\r\n", __func__);
    return 0;
}

int vornZilProcInfoPduData(uint8_t* data) {
    // A null PDU has no type to read: refused before anything is printed.
    if (data == nullptr) return -1;
    VORN_TRACE(vornZilDbgPrint, "%s: Entry Received pduType %d\r\n", __func__, data[0]);
    VORN_TRACE(vornZilDbgPrint, "%s: Exit\r\n", __func__);
    return 0;
}

int vornZilProcZilPairingChg() {
    return 0;
}
int vornZilProcZilPairOStateChg() {
    return 0;
}
int vornZilProcPeerEndInfoExch() {
    return 0;
}

void* vornZilMemAlloc(uint32_t type, uint32_t size) {
    if (type > kZilMemTypeMax) return nullptr;
    return qelMC_M_sysMalloc("vornZil", __LINE__, size);
}

void vornZilMemFree(uint32_t type, void* block) {
    if (type > kZilMemTypeMax) {
        VORN_TRACE(vornZilDbgPrint, "Invlaid type: %d \r\n", static_cast<int>(type));
        return;
    }
    qelMC_M_sysMemfree("vornZil", __LINE__, block);
}

void* vornZilSwpMalloc(uint32_t size) {
    return vornVarPoolMalloc(size);
}

void vornZilSwpFree(void* block) {
    vornVarPoolFree(block);
}

int vornZilSwpErrFunc(uint32_t a, uint32_t b, uint32_t c) {
    return qelZilIclSwpErrCB(vornZilHdl, a, b, c);
}

void vornZilDbg(const char* format, ...) {
    if (format == nullptr || format[0] == '\0' || gvornZilDbgBuf == nullptr) return;
    va_list ap;
    va_start(ap, format);
    int n = std::vsnprintf(gvornZilDbgBuf, VORN_ZIL_DBG_BUF_LEN, format, ap);
    va_end(ap);
    if (n > 0) VORN_TRACE(vornZilDbgPrint, "%s: %s \r\n", __func__, gvornZilDbgBuf);
}

int vornZilProcAppPduData(uint8_t* data) {
    VORN_TRACE(vornZilDbgPrint, "%s: Entry\r\n", __func__);
    if (data == nullptr) {
        VORN_TRACE(vornZilDbgPrint, "%s: Null appPduData\r\n", __func__);
        return -1;
    }
    VORN_TRACE(vornZilDbgPrint, "%s: Exit\r\n", __func__);
    return 0;
}

void vornZilProcPeerDown() {}

int vornTestAppPduToPeer() {
    static const std::array<uint8_t, kTestSubTlvLen> zeros{};
    if (qelZilTxAppBufAddSubTlv(vornZilHdl, kTestSubTlvType, kTestSubTlvLen, zeros.data(), 0) !=
        0) {
        std::puts("Error sending PDU\r");
        return -1;
    }
    return 0;
}

int vornZilSetLibDbgBits() {
    return qelZilSetDbgBits(vornZilHdl, kAllLibDbgBits, 1);
}

int vornZilDebugLibInfo() {
    return qelZilDumpCb(vornZilHdl);
}
