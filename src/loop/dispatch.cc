// The top-level dispatch of every received message, and the second-level dispatch of
// event-handler and L2PM notifications. Each message is one transaction: the handlers
// append to pending buffers, and the dispatch flushes them once at the end.

#include <poll.h>

#include <cstdio>

#include "agent/agent.h"
#include "config/config.h"
#include "ifm/ifm.h"
#include "loop/loop.h"
#include "peer/peer.h"
#include "platform/cfgstore.h"
#include "platform/swp.h"
#include "show/show.h"
#include "task/msg.h"
#include "task/pools.h"
#include "task/register.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/msgtypes.h"

namespace {

// Sequence check of a notification from L2PM's queue (IFM and L2PM notifications share
// one receive state).
int checkNotifSeq(uint8_t* msg) {
    return qelSwpCkSeqAndAck(msg, vornTcb.notifSwpRcvState.data(), vornTcb.reqQfd);
}

// Host adaptation: the configuration store writes the files changed so far now that a
// message is done, unless more messages already wait on the request queue (at most 32 in a
// row): a burst of changes costs one write. The shell's qelCfgCommit and the clean stop
// write whatever is left.
void commitConfigStore() {
    constexpr int kMaxDeferred = 32;
    static int deferred = 0;
    pollfd waiting{Key_getSocketFd(vornTcb.reqQfd), POLLIN, 0};
    bool more = waiting.fd >= 0 && poll(&waiting, 1, 0) > 0 && (waiting.revents & POLLIN) != 0;
    if (more && ++deferred < kMaxDeferred) return;
    deferred = 0;
    vorn::host::cfgStoreCommit();
}

}  // namespace

int vornProcessIpcMsg(uint8_t* msg) {
    static const char* const kFn = "vornProcessIpcMsg";
    switch (vornMsgType(msg)) {
        case MT_SWP_TIMEOUT:
            vornCount(VORN_CNT_SWP_ACK_TIMEOUT);
            VORN_DBG("%s: MT_SWP_TIMEOUT \r\n", kFn);
            break;
        case MT_SWP_ACK: {
            vornCount(VORN_CNT_SWP_ACK);
            void* freed = nullptr;
            qelSwpDequeue(msg, &freed);
            if (freed != nullptr) vornVarPoolFree(freed);
            break;
        }
        case MT_SWP_FORCED_RESEND:
            VORN_DBG("%s: MT_SWP_FORCED_RESEND \r\n", kFn);
            qelSwpResend(msg);
            break;
        case MT_EVL_UNDEBUG_ALL:
            VORN_DBG("%s: MT_EVL_UNDEBUG_ALL \r\n", kFn);
            vornUndebugAll(msg);
            break;
        case MT_EVH_EVENT_NOTIF:
            vornCount(VORN_CNT_EVH_NOTIF);
            VORN_DBG("%s: MT_EVH_EVENT_NOTIF \r\n", kFn);
            vornProcessEvhNotif(msg);
            break;
        case MT_NM:
            vornCount(VORN_CNT_NM);
            VORN_DBG("%s: MT_NM \r\n", kFn);
            vornProcessCliMsg(msg);
            break;
        case MT_IFM_NOTIF_MSG: {
            vornCount(VORN_CNT_IFM_NOTIF);
            VORN_DBG("%s: MT_IFM_NOTIF_MSG \r\n", kFn);
            int rc = checkNotifSeq(msg);
            if (rc == vorn::swp::kCkAccepted) {
                VORN_DBG("%s: MT_IFM_NOTIF_MSG - SWP success \r\n", kFn);
                vornProcessIfmNotif(msg);
            } else if (rc != vorn::swp::kCkDuplicate) {
                VORN_DBG("%s: MT_IFM_NOTIF_MSG - SWP failure \r\n", kFn);
            }
            break;
        }
        case MT_L2PM_NOTIF:
            vornCount(VORN_CNT_L2PM_NOTIF);
            VORN_DBG("%s: MT_L2PM_NOTIF \r\n", kFn);
            vornProcessL2PmNotif(msg);
            break;
        case MT_VORN_VORNA_REGISTER: {
            VORN_PUTS(vornDbgPrint, "case MT_VORN_VORNA_REGISTER:\r");
            int rc = vornProcVornaRegMsg(msg);
            if (rc != 0) {
                uint32_t slot = vornMsgReader(msg).u32(vorn::ipc::kOffSrcSlot);
                vornProcVornaRegMsgErrHdlr(rc, static_cast<int>(slot));
            }
            break;
        }
        case MT_VORN_AGT_MSG_TO_MGR:
            VORN_DBG("%s: MT_VORN_AGT_MSG_TO_MGR \r\n", kFn);
            vornProcMsgFromAgt(msg);
            break;
        default:
            vornCount(VORN_CNT_IPC_DEFAULT);
            VORN_DBG("%s: default \r\n", kFn);
            break;
    }
    int rc = vornFlushPendingMsgs();
    commitConfigStore();
    return rc;
}

int vornProcessEvhNotif(uint8_t* msg) {
    static const char* const kFn = "vornProcessEvhNotif";
    vorn::be::Reader rd = vornMsgReader(msg);
    switch (rd.u32(VORN_EVH_EVENT_OFF)) {
        case CHMGR_CARD_UP:
            vornCount(VORN_CNT_EVH_CARD_UP);
            VORN_DBG("%s: CHMGR_CARD_UP: slotId = %d \r\n", kFn,
                     static_cast<int>(rd.u32(VORN_EVH_SLOT_OFF)));
            return vornEventCardUp(msg);
        case CHMGR_CARD_DOWN:
            vornCount(VORN_CNT_EVH_CARD_DOWN);
            VORN_DBG("%s: CHMGR_CARD_DOWN \r\n", kFn);
            return vornEventCardDown(msg);
        case CHMGR_CARD_SHUTDOWN:
            // A shutdown is handled exactly as a card down, under a counter of its own.
            vornCount(VORN_CNT_EVH_CARD_SHUTDOWN);
            VORN_DBG("%s: CHMGR_CARD_SHUTDOWN \r\n", kFn);
            return vornEventCardDown(msg);
        case MLAGMGR_PEER_STATUS_NOTIFY:
            VORN_TRACE(vornZilDbgPrint, "%s() MLAGMGR_PEER_STATUS_NOTIFY \r\n", kFn);
            return vornZilPeerStatusChg(msg + VORN_EVH_SLOT_OFF);
        default:
            vornCount(VORN_CNT_EVH_DEFAULT);
            VORN_DBG("%s: default \r\n", kFn);
            return 0;
    }
}

int vornProcessL2PmNotif(uint8_t* msg) {
    static const char* const kFn = "vornProcessL2PmNotif";
    int rc = checkNotifSeq(msg);
    if (rc == vorn::swp::kCkDuplicate) return 0;
    if (rc != vorn::swp::kCkAccepted) {
        VORN_DBG("%s: MT_L2PM_NOTIF - SWP failure \r\n", kFn);
        return -1;
    }
    VORN_DBG("%s: MT_L2PM_NOTIF - SWP success \r\n", kFn);
    switch (vornMsgReader(msg).u32(VORN_L2PM_NOTIF_KIND_OFF)) {
        case VORN_L2PM_NOTIF_DNLD:
            return vornProcessL2PmDnld(msg);
        case VORN_L2PM_NOTIF_EOCONF: {
            if (vornTcb.recvEOConf == 1) return 0;
            vornTcb.recvEOConf = 1;
            int result = 0;
            // Every slot with an agent is tried, also after a failure.
            for (int slot = 0; slot < VORN_MAX_SLOTS; ++slot) {
                if (vornTcb.vornaSwpHandle[slot] != 0 && vornDnldIfInfoToAgt(slot) == -1)
                    result = -1;
            }
            return result;
        }
        default:
            return 0;
    }
}

int vornProcVornaRegMsgErrHdlr(int error, int slot) {
    VORN_DBG("%s(): for slot %d fails with error %d\r\n", "vornProcVornaRegMsgErrHdlr", slot,
             error);
    return 0;
}
