// Agent registration: the reply, the queue to the agent, and the full download bracketed by
// START_CFG and END_CFG; and the agents of the cards present at start-up.

#include <array>
#include <cstdio>

#include "agent/agent.h"
#include "l2pm/l2pm.h"
#include "platform/chassis.h"
#include "platform/ipc.h"
#include "ringdb/ringdb.h"
#include "task/msg.h"
#include "task/pools.h"
#include "task/swpq.h"
#include "task/trace.h"
#include "wire/msgtypes.h"

namespace {

namespace reg = vorn::agt::reg;
namespace regreply = vorn::agt::regreply;
using vorn::be::Writer;

// Sends the 60-byte registration reply: the manager's identity and the three words the
// agent sent, so that the agent can match the answer to its registration.
void sendRegReply(const vorn::be::Reader& rd) {
    std::array<uint8_t, regreply::kLen> reply{};
    Writer w(reply.data(), reply.size());
    w.u32(vorn::ipc::kOffMlen, regreply::kLen);
    w.u32(vorn::ipc::kOffMtype, MT_VORN_VORNA_REGISTER);
    w.u32(regreply::kOffTaskId, static_cast<uint32_t>(taskIdSelf()));
    w.u32(regreply::kOffZero36, 0);
    w.u32(regreply::kOffRpAddr, qel_sysGetIpAddr());
    w.u32(regreply::kOffMgrQueue, qel_getQueueId(VORN_SERVICE, 0, 1));
    w.u32(regreply::kOffSlot, rd.u32(reg::kOffSlot));
    w.u32(regreply::kOffValueA, rd.u32(reg::kOffValueA));
    w.u32(regreply::kOffValueB, rd.u32(reg::kOffValueB));
    if (qelIpcSend(vornTcb.reqQfd, reply.data(), regreply::kLen) == -1) {
        VORN_PUTS(vornDbgPrint, "ERROR: Reply Reg Message from VORNAGT\r");
    }
}

// START_CFG or END_CFG: 128 zero bytes of the given type.
int sendBracket(const char* fn, uint32_t mtype, const char* sentFmt, int slot) {
    auto* buf = static_cast<uint8_t*>(vornVarPoolMalloc(vorn::agt::kBracketLen));
    if (buf == nullptr) {
        VORN_ERR("%s(): Mem allocation failed. Linecard = %ld\r\n", fn, static_cast<long>(slot));
        return -1;
    }
    Writer(buf, vorn::agt::kBracketLen).zero(0, vorn::agt::kBracketLen);
    vornSwpSendToAgent(mtype, buf, vorn::agt::kBracketLen, slot);
    VORN_DBG(sentFmt, fn, slot);
    return 0;
}

}  // namespace

// The platform starts a card's agent itself; the manager keeps this as its hook.
int vornCreateAgent() {
    return 0;
}

int vornSendStartCfgMsg(int slot) {
    return sendBracket("vornSendStartCfgMsg", vorn::agt::kMtStartCfg,
                       "%s(): Sent START_CFG msg to Agt %d\r\n", slot);
}

int vornSendEndCfgMsg(int slot) {
    return sendBracket("vornSendEndCfgMsg", vorn::agt::kMtEndCfg,
                       "%s(): Sent END_CFG msg to Agt %d\r\n", slot);
}

int vornProcVornaRegMsg(uint8_t* msg) {
    static const char* const kFn = "vornProcVornaRegMsg";
    vorn::be::Reader rd = vornMsgReader(msg);
    uint32_t slotWord = rd.u32(reg::kOffSlot);
    VORN_DBG("Entered %s(): Agent: %d. \r\n", kFn, static_cast<int>(slotWord));
    // 1. The reply goes first; a failed reply does not stop the registration.
    sendRegReply(rd);
    // The slot indexes every per-slot table below: a slot outside the chassis goes no further.
    if (slotWord >= static_cast<uint32_t>(VORN_MAX_SLOTS)) {
        VORN_ERR("%s(): Invalid Line Card %d. \r\n", kFn, static_cast<int>(slotWord));
        return -1;
    }
    int slot = static_cast<int>(slotWord);
    // 2. Line-card type and port-pipe words, kept for the platform.
    vornTcb.lcType[slot] = rd.u32(reg::kOffLcType);
    for (int pipe = qelGetFirstValidPortPipe(); pipe < qelGetMaxActivePortPipe(); ++pipe) {
        if (pipe < 0 || static_cast<size_t>(pipe) >= vornTcb.lcPortPipe[slot].size()) continue;
        vornTcb.lcPortPipe[slot][static_cast<size_t>(pipe)] =
            rd.u32(reg::kOffPortPipe + 4 * static_cast<size_t>(pipe));
    }
    // 3. The queue to the agent (flushed and renumbered when the agent registers again).
    if (vorn2VornaCreateSwpQ(slot) == -1) {
        VORN_DBG("SWP Creation to VORNAGT slot %d failed.\r\n", slot);
        return -1;
    }
    gVornActiveLineCards[slot] = 1;
    halVornSendLCTypeToAllAgents();
    vornUpdateRingsOnLineCardUp(slot);
    // 7-12. The full download, bracketed; the flush makes every record queued for it leave
    // before END_CFG.
    vornSendStartCfgMsg(slot);
    vornTcb.agtInitDone[slot] = 0;
    vornDnldIfInfoToAgt(slot);
    vornDnldRingCfgToAgt(slot);
    vornTcb.agtInitDone[slot] = 1;
    vornFlushPendingMsgs();
    vornSendEndCfgMsg(slot);
    // 13. The other agents learn that this card now runs its rings; its rings' debug
    // settings follow.
    for (uint16_t ringId = VORN_MIN_RING_ID; ringId <= VORN_MAX_RING_ID; ++ringId) {
        VornRingEntry* ring = gVornRing[ringId];
        if (ring == nullptr || ring->u2DesgLineCard != slot) continue;
        for (int other = 0; other < VORN_MAX_SLOTS; ++other) {
            if (other == slot || vornTcb.vornaSwpHandle[other] == 0) continue;
            vornSendRingCfgMsgToSingleAgt(other, ring, VORN_RING_CFG_ACTION_ADD, 0,
                                          VORN_RING_ACTION_NONE, nullptr);
        }
        vornSendDbgMsgOnLCUp(ring, ringId);
    }
    vornFlushPendingMsgs();
    VORN_DBG("Exiting %s(). \r\n", kFn);
    return 0;
}

int vornInitAgents() {
    std::array<uint8_t, vorn::chassis::kInfoLen> info{};
    if (qelGetChasInfo(vornTcb.service, vornTcb.instance, info) == 0xFFFFFFFF) return -1;
    uint32_t cards = vorn::be::Reader(info.data(), info.size()).u32(0);
    std::array<char, VORN_BMAP_DIGITS> present{};
    uint32_t count = 0;
    vornBMapToArray(static_cast<int32_t>(cards), present, &count);
    for (uint32_t slot = 0; slot < count && slot < present.size(); ++slot) {
        if (present[slot] == '1' && vornCreateAgent() == -1) return -1;
    }
    return 0;
}
