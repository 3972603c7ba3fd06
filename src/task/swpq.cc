// SWP queues to L2PM and to the agents, the sends over them, and the two blocking
// request/reply calls.

#include <cstdio>

#include "platform/codec.h"
#include "platform/ipc.h"
#include "platform/swp.h"
#include "task/pools.h"
#include "task/register.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

using vorn::be::Writer;
namespace ipc = vorn::ipc;

constexpr int kL2pmWait = 50;
constexpr int kAgentWait = 1;
constexpr uint32_t kAddrFailed = 0xFFFFFFFF;

Writer hdr(void* buffer) {
    return Writer(buffer, ipc::kHdrLen);
}

int createQueue(int peerService, int peerInstance, int rto, QelSwpErrFn onError, uint32_t* handle) {
    return qelSwpQueueCreateQs(vornTcb.evLogKey, 0, vorn::swp::kWindow, rto, VORN_SERVICE, 0,
                               vornTcb.ipcKey, peerService, peerInstance,
                               qel_getQueueId(VORN_SERVICE, 0, 3), 0, 0, vornSwpMalloc, 0,
                               vornSwpFree, onError, handle, vornTcb.swpPipefd);
}

}  // namespace

int vornToL2pmCreateSwpQueue() {
    return createQueue(VORN_L2PM_SERVICE, 0, vorn::swp::kRtoL2pm, vornSwpErrFunc,
                       &vornTcb.l2pmSwpHandle);
}

int vorn2VornaCreateSwpQ(int slot) {
    if (slot < 0 || slot >= VORN_MAX_SLOTS) return -1;
    if (vornTcb.vornaSwpHandle[slot] != 0) {
        // The agent registered again: start its queue afresh.
        VORN_DBG("%s(): No LC in slot\r\n", "vorn2VornaCreateSwpQ");
        qelSwpQueueFlush(vornTcb.vornaSwpHandle[slot]);
        return 0;
    }
    if (createQueue(VORN_AGENT_SERVICE, slot, vorn::swp::kRtoAgent, vornVornaSwpErrFun,
                    &vornTcb.vornaSwpHandle[slot]) == vorn::swp::kCreatePeerMissing) {
        VORN_PUTS(vornErrPrint, "VORN_SWPQ_CREATE_FAILURE_ERROR\r");
        return -1;
    }
    return 0;
}

void vornVornaSwpReset(int slot) {
    if (slot < 0 || slot >= VORN_MAX_SLOTS) return;
    if (vornTcb.vornaSwpHandle[slot] != 0) qelSwpQueueRemove(vornTcb.vornaSwpHandle[slot]);
    vornTcb.vornaSwpRcvState[slot] = {0, 0};
    vornTcb.vornaSwpHandle[slot] = 0;
}

int vornSwpSendToL2Pm(uint32_t mtype, void* buffer, uint32_t length) {
    static const char* const kFn = "vornSwpSendToL2Pm";
    uint32_t tmp = 0;
    Writer w = hdr(buffer);
    w.u32(ipc::kOffMtype, mtype);
    w.u32(ipc::kOffMlen, length);
    w.u32(ipc::kOffW20, 0);
    w.u32(ipc::kOffSrcSlot, 0);
    w.u32(ipc::kOffSrcSvce, qel_getQueueId(VORN_SERVICE, 0, 1));
    uint32_t src = qel_tmeGetPeerIpAddrByName(VORN_SERVICE, 0, &tmp);
    w.u32(ipc::kOffSrcCard, src);
    if (src == kAddrFailed) {
        VORN_ERR("%s: GetIpAddr for SRC failed.\r\n", kFn);
        vornVarPoolFree(buffer);
        return -1;
    }
    w.u32(ipc::kOffDstSlot, 0);
    w.u32(ipc::kOffDstSvce, qel_getQueueId(VORN_L2PM_SERVICE, 0, 1));
    uint32_t dst = qel_tmeGetPeerIpAddrByName(VORN_L2PM_SERVICE, 0, &tmp);
    w.u32(ipc::kOffDstCard, dst);
    if (dst == kAddrFailed) {
        VORN_ERR("%s: GetIpAddr for DST failed.\r\n", kFn);
        vornVarPoolFree(buffer);
        return -1;
    }
    // Anything but -1 is success here, unlike the agent send.
    if (qelSwpEnqueue(vornTcb.l2pmSwpHandle, buffer, static_cast<int>(length)) == -1) {
        VORN_ERR("%s: qelIpcSend failed. \r\n", kFn);
        return -1;
    }
    return 0;
}

int vornSwpSendToAgent(uint32_t mtype, void* buffer, uint32_t length, int slot) {
    static const char* const kFn = "vornSwpSendToAgent";
    if (slot < 0 || slot >= VORN_MAX_SLOTS || vornTcb.vornaSwpHandle[slot] == 0) {
        // Messages to a slot without an agent are dropped silently.
        VORN_DBG("%s(): swp Handle is NULL\r\n", kFn);
        vornVarPoolFree(buffer);
        return 0;
    }
    uint32_t tmp = 0;
    Writer w = hdr(buffer);
    w.u32(ipc::kOffMtype, mtype);
    w.u32(ipc::kOffMlen, length);
    w.u32(ipc::kOffW20, 0);
    w.u32(ipc::kOffSenderTask, static_cast<uint32_t>(taskIdSelf()));
    w.u32(ipc::kOffSrcSlot, 0);
    w.u32(ipc::kOffSrcSvce, qel_getQueueId(VORN_SERVICE, 0, 1));
    uint32_t src = qel_sysGetIpAddr();
    w.u32(ipc::kOffSrcCard, src);
    if (src == kAddrFailed) {
        VORN_ERR("%s(): SRC IP Get failed.\r\n", kFn);
        vornVarPoolFree(buffer);
        return -1;
    }
    w.u32(ipc::kOffDstSlot, 0);
    w.u32(ipc::kOffDstSvce, qel_getQueueId(VORN_AGENT_SERVICE, slot, 1));
    uint32_t dst = qel_tmeGetPeerIpAddrByName(VORN_AGENT_SERVICE, slot, &tmp);
    w.u32(ipc::kOffDstCard, dst);
    if (dst == kAddrFailed) {
        VORN_ERR("%s(): DST IP Get failed.\r\n", kFn);
        vornVarPoolFree(buffer);
        return -1;
    }
    if (qelSwpEnqueue(vornTcb.vornaSwpHandle[slot], buffer, static_cast<int>(length)) != 0) {
        VORN_ERR("%s: SWP Send failed for linecard %d\r\n", kFn, slot);
        return -1;
    }
    return 0;
}

int vornAgtSendAndWait(uint32_t mtype, int slot, uint32_t length, void* buffer) {
    if (slot < 0 || slot >= VORN_MAX_SLOTS || vornTcb.vornaSwpHandle[slot] == 0) return 0;
    uint32_t tmp = 0;
    Writer w = hdr(buffer);
    w.u32(ipc::kOffMtype, mtype);
    w.u32(ipc::kOffSenderTask, static_cast<uint32_t>(taskIdSelf()));
    w.u32(ipc::kOffMlen, length);
    w.u32(ipc::kOffW20, 0);
    w.u32(ipc::kOffSrcSlot, 0);
    w.u32(ipc::kOffSrcCard, qel_sysGetIpAddr());
    w.u32(ipc::kOffDstSlot, 0);
    uint32_t dst = qel_tmeGetPeerIpAddrByName(VORN_AGENT_SERVICE, slot, &tmp);
    w.u32(ipc::kOffDstCard, dst);
    if (dst == kAddrFailed) {
        VORN_DBG("%s : tme GetIP return %d \r\n", "vornAgtSendAndWait", -1);
        return -1;
    }
    w.u32(ipc::kOffDstSvce, qel_getQueueId(VORN_AGENT_SERVICE, slot, 1));
    if (qelIpcSendWait(vornTcb.ipcKey, buffer, static_cast<int>(length), kAgentWait,
                       static_cast<int>(mtype), 0) == -1) {
        VORN_DBG("%s: failed to send out a ipc msg \r\n", "vornAgtSendAndWait");
        return -1;
    }
    return 0;
}

int vornL2PmIpcSendAndWait(uint32_t mtype, void* buffer, uint32_t length) {
    static const char* const kFn = "vornL2PmIpcSendAndWait";
    uint32_t tmp = 0;
    Writer w = hdr(buffer);
    w.u32(ipc::kOffMtype, mtype);
    w.u32(ipc::kOffMlen, length);
    w.u32(ipc::kOffW20, 0);
    w.u32(ipc::kOffSrcSlot, 0);
    uint32_t src = qel_tmeGetPeerIpAddrByName(VORN_SERVICE, 0, &tmp);
    w.u32(ipc::kOffSrcCard, src);
    if (src == kAddrFailed) {
        VORN_ERR("%s: SRC IPAddrGet failed\r\n", kFn);
        return -1;
    }
    w.u32(ipc::kOffDstSvce, qel_getQueueId(VORN_L2PM_SERVICE, 0, 1));
    w.u32(ipc::kOffDstSlot, 0);
    uint32_t dst = qel_tmeGetPeerIpAddrByName(VORN_L2PM_SERVICE, 0, &tmp);
    w.u32(ipc::kOffDstCard, dst);
    if (dst == kAddrFailed) {
        VORN_ERR("%s: DST IPAddrGet failed\r\n", kFn);
        return -1;
    }
    if (qelIpcSendWait(vornTcb.ipcKey, buffer, static_cast<int>(length), kL2pmWait,
                       static_cast<int>(mtype), 0) == -1) {
        VORN_ERR("%s: qelIpcSendWait failed\r\n", kFn);
        return -1;
    }
    return 0;
}

void vornSwpErrFunc(void* queue, int errCode) {
    VORN_DBG("stpSwpErrFunc: swp_Q = %p errCode = %d\r\n", queue, errCode);
}

void vornVornaSwpErrFun(void* queue, int errCode) {
    VORN_DBG("%s: got a swp timeout ", "vornVornaSwpErrFun");
    const QelSwpQueueCtrlBlock* cb = qelSwpGetQueueCtrlBlock(queue);
    if (cb == nullptr) return;
    VORN_DBG(" for q Hdl %ld \r\n", cb->hdl);
    // Recovery happens on card down; here the stuck queue is only reported.
    for (uint32_t handle : vornTcb.vornaSwpHandle) {
        if (static_cast<long>(handle) == cb->hdl) VORN_PUTS(vornErrPrint, "Recover memory \r");
    }
}
