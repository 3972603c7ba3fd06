// The exchanges with IFM about ring interfaces: stopping a ring whose interface IFM took
// away, telling IFM which ports are ring interfaces, and asking IFM whether a VLAN may be a
// control VLAN.

#include <array>

#include "agent/agent.h"
#include "ifm/ifm.h"
#include "l2pm/l2pm.h"
#include "peer/peer.h"
#include "platform/bitmap.h"
#include "platform/codec.h"
#include "platform/ipc.h"
#include "ringdb/ringdb.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/msgtypes.h"

namespace {

namespace ipc = vorn::ipc;
using vorn::be::Writer;

// How long the control-VLAN question waits for IFM, in 100 ms units.
constexpr int kIfmWait = 50;
// Source line the question's answer is reported with, as the diagnostics know it.
constexpr int kLineReturn = 3150;

constexpr const char* kNoticeFn = "vornNotifRingIfCfgToIFM";

// The header words of a message from this daemon to IFM's request queue.
void fillIfmHeader(Writer& w, uint32_t len, uint32_t mtype) {
    uint32_t addr = 0;
    w.u32(ipc::kOffMlen, len);
    w.u32(ipc::kOffMtype, mtype);
    w.u32(ipc::kOffSenderTask, static_cast<uint32_t>(taskIdSelf()));
    w.u32(ipc::kOffSrcCard, qel_tmeGetPeerIpAddrByName(VORN_SERVICE, 0, &addr));
    w.u32(ipc::kOffSrcSvce, qel_getQueueId(VORN_SERVICE, 0, ipc::kKindRequest));
    w.u32(ipc::kOffDstCard, qel_tmeGetPeerIpAddrByName(VORN_IFM_SERVICE, 0, &addr));
    w.u32(ipc::kOffDstSvce, qel_getQueueId(VORN_IFM_SERVICE, 0, ipc::kKindRequest));
}

// The first ring, by ascending id, among those using the port that has it on the given
// side; 0 when none has.
uint16_t ringWithPortOnSide(const VornPortEntry& port, uint16_t portNum, bool primary) {
    for (uint16_t id = GET_FIRST_BIT_BITMAP(port.ringBmap, VORN_RING_BMAP_BITS);
         id != vorn::bmp::kNoBit;
         id = GET_NEXT_BIT_BITMAP(port.ringBmap, VORN_RING_BMAP_BITS, id)) {
        const VornRingEntry* ring = vornGetRing(id);
        if (ring != nullptr && (primary ? ring->u2PriPortNum : ring->u2SecPortNum) == portNum)
            return id;
    }
    return 0;
}

}  // namespace

int vornDisableRingOnIfmChange(VornRingEntry* ring) {
    if (ring == nullptr) return 0;
    VORN_DBG("%s(): Ring = %d, Flags = 0x%lx, PriPort = %d (%s), SecPort = %d (%s)\r\n", __func__,
             ring->u2RingId, static_cast<unsigned long>(ring->u4Flags), ring->u2PriPortNum,
             vornPortStateName(ring->u4PriPortState), ring->u2SecPortNum,
             vornPortStateName(ring->u4SecPortState));
    vornSendRingDisableMsgToAgt(ring);
    if ((ring->u4Flags & VORN_RING_CFG_MEMBER_VLAN) == 0) {
        VORN_DBG("%s(): Empty Member Vlans list for Ring %d.\r\n", __func__, ring->u2RingId);
    } else {
        // A forwarding side blocks the ring's member VLANs; the others block already.
        if (ring->u4PriPortState == VORN_PORT_FORW) vornUpdateL2PmOnRingDisableIfmChange(ring, 1);
        if (ring->u4SecPortState == VORN_PORT_FORW) vornUpdateL2PmOnRingDisableIfmChange(ring, 0);
    }
    ring->u4PriPortState = VORN_PORT_DISABLED;
    ring->u4SecPortState = VORN_PORT_DISABLED;
    return 0;
}

int vornNotifRingIfCfgToIFM(uint32_t priIfIndex, uint32_t secIfIndex, uint32_t action) {
    uint16_t priNum = vornPortNumOf(priIfIndex);
    uint16_t secNum = vornPortNumOf(secIfIndex);
    const uint32_t iclIfIndex = qelZilGetIclIfIndex(vornZilHdl);
    VORN_TRACE(vornZilDbgPrint, "%s, PriIfIndex: %ld secIfIndex: %ld action: %d \r\n", kNoticeFn,
               static_cast<long>(priIfIndex), static_cast<long>(secIfIndex),
               static_cast<int>(action));
    const VornPortEntry* secPort = vornGetPort(secNum);
    if (secPort == nullptr) {
        VORN_TRACE(vornZilDbgPrint, "%s(): port(%ld) doeds not Exist \r\n", kNoticeFn,
                   static_cast<long>(secIfIndex));
        return -1;
    }
    const VornPortEntry* priPort = vornGetPort(priNum);
    if (priPort == nullptr) {
        VORN_TRACE(vornZilDbgPrint, "%s(): port(%ld) doeds not Exist \r\n", kNoticeFn,
                   static_cast<long>(priIfIndex));
        return -1;
    }
    // No ICL (0) is never an interface.
    bool priIsIcl = iclIfIndex != 0 && priIfIndex == iclIfIndex;

    uint32_t flags = 0;
    if (action == VORN_IFM_RING_IF_ADD) {
        flags = VORN_IFM_NOTICE_SEC_RING_IF | (priIsIcl ? VORN_IFM_NOTICE_ICL_PRI : 0);
    } else if (action == VORN_IFM_RING_IF_DEL) {
        // A port that other rings still use the same way stays a ring interface for IFM.
        if (uint16_t id = ringWithPortOnSide(*secPort, secNum, false); id != 0) {
            VORN_TRACE(vornZilDbgPrint, "%s() PortNum(%d) is secodanry interface of Ring(%d) \r\n",
                       kNoticeFn, secNum, id);
            flags |= VORN_IFM_NOTICE_SEC_RING_IF;
        }
        if (priIsIcl) {
            if (uint16_t id = ringWithPortOnSide(*priPort, priNum, true); id != 0) {
                VORN_TRACE(vornZilDbgPrint, "%s() ICL PortNum(%d) is Part of Ring(%d) \r\n",
                           kNoticeFn, priNum, id);
                flags |= VORN_IFM_NOTICE_ICL_PRI;
            }
        }
        if (flags == (VORN_IFM_NOTICE_SEC_RING_IF | VORN_IFM_NOTICE_ICL_PRI)) {
            VORN_TRACE(vornZilDbgPrint, "%s(): NoCahnge in Ring Ifs \r\n", kNoticeFn);
            return 0;
        }
    } else {
        VORN_TRACE(vornZilDbgPrint, "%s() Invlaid ACtion: %d \r\n", kNoticeFn,
                   static_cast<int>(action));
        return -1;
    }

    std::array<uint8_t, VORN_IFM_NOTICE_LEN> msg{};
    Writer w(msg.data(), msg.size());
    fillIfmHeader(w, VORN_IFM_NOTICE_LEN, MT_IFM_RING_IF_NOTICE);
    w.u32(VORN_IFM_NOTICE_ACTION_OFF, action);
    w.u32(VORN_IFM_NOTICE_PRI_OFF, priIfIndex);
    w.u32(VORN_IFM_NOTICE_SEC_OFF, secIfIndex);
    w.u32(VORN_IFM_NOTICE_FLAGS_OFF, flags);
    if (qelIpcSend(vornTcb.reqQfd, msg.data(), static_cast<int>(msg.size())) == -1) {
        VORN_TRACE(vornZilDbgPrint, "%s: qelIpcSend failed\r\n", kNoticeFn);
        return -1;
    }
    VORN_TRACE(vornZilDbgPrint, " %s() Exit! \r\n", kNoticeFn);
    return 0;
}

int vornIfmRMirrReqInfo(uint16_t vlanId, uint32_t action) {
    VORN_DBG("%s, vlan %d, action %d\n", __func__, vlanId, static_cast<int>(action));
    std::array<uint8_t, VORN_IFM_CTRL_VLAN_Q_LEN> msg{};
    Writer w(msg.data(), msg.size());
    fillIfmHeader(w, VORN_IFM_CTRL_VLAN_Q_LEN, MT_IFM_CTRL_VLAN_QUERY);
    w.u32(VORN_IFM_CTRL_VLAN_Q_ACTION_OFF, action);
    w.u32(VORN_IFM_CTRL_VLAN_Q_VLAN_OFF, vlanId);
    w.u32(VORN_IFM_CTRL_VLAN_Q_REPLY_OFF, 0);
    if (qelIpcSendWait(vornTcb.ipcKey, msg.data(), static_cast<int>(msg.size()), kIfmWait,
                       static_cast<int>(MT_IFM_CTRL_VLAN_QUERY), 0) == -1) {
        VORN_ERR("%s: qelIpcSend failed\r\n", __func__);
        return -1;
    }
    int rc = vorn::be::Reader(msg.data(), msg.size()).i32(VORN_IFM_CTRL_VLAN_Q_REPLY_OFF);
    VORN_DBG("returns %s %d rc %d\n", __func__, kLineReturn, rc);
    return rc;
}
