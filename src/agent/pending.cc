// The pending-message flush: per slot interface information, ring configuration and debug
// settings, then the L2PM buffers, each sent whole or, without a queue, dropped.

#include "agent/pending.h"

#include <algorithm>

#include "agent/agent.h"
#include "l2pm/l2pm.h"
#include "platform/codec.h"
#include "task/pools.h"
#include "task/swpq.h"
#include "task/trace.h"
#include "wire/msgtypes.h"

std::array<uint8_t*, VORN_MAX_SLOTS> gapVornAgtBuf{};
std::array<uint8_t*, VORN_MAX_SLOTS> gapVornIfDnldBuf{};
std::array<uint8_t*, VORN_MAX_SLOTS> gapVornDbgDnldBuf{};
std::array<int32_t, VORN_MAX_SLOTS> gVornActiveLineCards{};

namespace {

constexpr const char* kFn = "vornFlushPendingMsgs";

// Length of a pending message from its record count, never more than its buffer.
uint32_t pendingLen(const uint8_t* buf, size_t countOff, uint32_t base, uint32_t recLen) {
    uint64_t count = vorn::be::Reader(buf, VORN_MSG_BUF_SIZE).u32(countOff);
    uint64_t len = base + count * recLen;
    return static_cast<uint32_t>(std::min<uint64_t>(len, VORN_MSG_BUF_SIZE));
}

struct AgentBuffer {
    std::array<uint8_t*, VORN_MAX_SLOTS>* slots;
    const char* presentFmt;
    uint32_t mtype;
    size_t countOff;
    uint32_t base;
    uint32_t recLen;
    void (*dump)(const uint8_t* buf);  // printed under message printing; null: not printed
};

struct L2pmBuffer {
    uint8_t** buf;
    const char* presentFmt;
    uint32_t mtype;
    size_t countOff;
    uint32_t base;
    uint32_t recLen;
    void (*dump)(const uint8_t* buf);  // guarded by its own flag inside; null: none
};

}  // namespace

int vornFlushPendingMsgs() {
    const AgentBuffer agentBuffers[] = {
        {&gapVornIfDnldBuf, "%s() If Dnld Cfg present for LC: %ld.\r\n", MT_VORN_IF_INFO,
         VORN_IF_DNLD_COUNT_OFF, VORN_IF_DNLD_BASE_LEN, 1, vornDumpIfDnldBuf},
        {&gapVornAgtBuf, "%s() Ring Cfg present for LC: %ld.\r\n", MT_VORN_RING_CFG,
         VORN_RING_CFG_COUNT_OFF, VORN_RING_CFG_BASE_LEN, VORN_RING_CFG_REC_LEN,
         vornDumpRingCfgBuf},
        {&gapVornDbgDnldBuf, "%s() Debug Cfg present for LC: %ld.\r\n", MT_VORN_DBG_CFG,
         VORN_DBG_COUNT_OFF, VORN_DBG_BASE_LEN, VORN_DBG_REC_LEN, nullptr},
    };
    for (int slot = 0; slot < VORN_MAX_SLOTS; ++slot) {
        for (const AgentBuffer& b : agentBuffers) {
            uint8_t*& buf = (*b.slots)[slot];
            if (buf == nullptr) continue;
            VORN_DBG(b.presentFmt, kFn, static_cast<long>(slot));
            if (vornTcb.vornaSwpHandle[slot] != 0) {
                VORN_DBG("%s() SWP queue created for LC: %ld.\r\n", kFn, static_cast<long>(slot));
                if (vornMsgPrint != 0 && b.dump != nullptr) b.dump(buf);
                uint32_t len = pendingLen(buf, b.countOff, b.base, b.recLen);
                vornSwpSendToAgent(b.mtype, buf, len, slot);
            } else {
                vornVarPoolFree(buf);
            }
            buf = nullptr;
        }
    }
    const L2pmBuffer l2pmBuffers[] = {
        {&gpVornL2PmInstPortOwnBuf, "%s() Instance Port ownership msg present.\r\n",
         MT_L2PM_INST_PORT_OWNERSHIP, VORN_L2PM_INST_COUNT_OFF, VORN_L2PM_INST_BASE_LEN,
         VORN_L2PM_INST_REC_LEN, halVornDumpL2PmInstPortOwnerShipMsg},
        {&gpVornL2PmPortStateBuf, "%s() L2 PM port state msg present.\r\n", MT_L2PM_PORT_STATE,
         VORN_L2PM_PS_COUNT_OFF, VORN_L2PM_PS_BASE_LEN, VORN_L2PM_PS_REC_LEN,
         vornDumpL2PmPerPortStateMsg},
        {&gpVornL2PmFlushBuf, "%s() L2 PM Flush msg present.\r\n", MT_L2PM_FLUSH,
         VORN_L2PM_FLUSH_COUNT_OFF, VORN_L2PM_FLUSH_BASE_LEN, VORN_L2PM_FLUSH_REC_LEN, nullptr},
    };
    for (const L2pmBuffer& b : l2pmBuffers) {
        if (*b.buf == nullptr) continue;
        VORN_DBG(b.presentFmt, kFn);
        if (vornTcb.l2pmSwpHandle != 0) {
            VORN_DBG("%s() SWP queue with L2PM present.\r\n", kFn);
            if (b.dump != nullptr) b.dump(*b.buf);
            vornSwpSendToL2Pm(b.mtype, *b.buf, pendingLen(*b.buf, b.countOff, b.base, b.recLen));
        } else {
            vornVarPoolFree(*b.buf);
        }
        *b.buf = nullptr;
    }
    return 0;
}
