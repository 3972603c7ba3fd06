// Debug-settings records queued for the agents: the pending debug buffer of a slot, and the
// re-download of a ring's settings to the agent that runs it.

#include <array>

#include "agent/agent.h"
#include "agent/pending.h"
#include "platform/codec.h"
#include "ringdb/records.h"
#include "task/pools.h"
#include "task/swpq.h"
#include "task/trace.h"
#include "wire/agent.h"
#include "wire/msgtypes.h"

namespace {

namespace dbg = vorn::agt::dbg;
using vorn::be::Reader;
using vorn::be::Writer;

static_assert(dbg::kEntries == VORN_NUM_DBG_TYPES);

// The debug type and mode of each debug index, as the agents know them.
struct DbgIndex {
    uint32_t type;
    uint32_t mode;
};
constexpr std::array<DbgIndex, dbg::kEntries> kIndexes = {{
    {dbg::kTypeEvent, 0},
    {dbg::kTypeDetail, dbg::kModeBoth},
    {dbg::kTypeDetail, dbg::kModeRx},
    {dbg::kTypeDetail, dbg::kModeTx},
    {dbg::kTypePacket, dbg::kModeBoth},
    {dbg::kTypePacket, dbg::kModeRx},
    {dbg::kTypePacket, dbg::kModeTx},
}};

}  // namespace

uint8_t* vornGetDbgPendBufToFill(int slot) {
    if (slot < 0 || slot >= VORN_MAX_SLOTS) return nullptr;
    uint8_t*& pending = gapVornDbgDnldBuf[static_cast<size_t>(slot)];
    if (pending != nullptr) {
        uint32_t count = Reader(pending, VORN_MSG_BUF_SIZE).u32(dbg::kOffCount);
        // A full buffer leaves now; the record goes into a fresh one.
        if (count >= dbg::kMaxRecords) {
            vornSwpSendToAgent(MT_VORN_DBG_CFG, pending,
                               VORN_DBG_BASE_LEN + VORN_DBG_REC_LEN * count, slot);
            pending = nullptr;
        }
    }
    if (pending == nullptr) {
        auto* buf = static_cast<uint8_t*>(vornVarPoolMalloc(VORN_MSG_BUF_SIZE));
        if (buf == nullptr) {
            VORN_ERR("%s(): Buffer alloc failed. LineCard = %ld\r\n", "vornFillAndSendDbgBuf",
                     static_cast<long>(slot));
            return nullptr;
        }
        Writer(buf, VORN_MSG_BUF_SIZE).zero(0, VORN_MSG_BUF_SIZE);
        pending = buf;
    }
    return pending;
}

int vornSendDbgMsgOnLCUp(VornRingEntry* ring, uint16_t ringId) {
    if (ring == nullptr || ring->u2DesgLineCard >= VORN_MAX_SLOTS) return -1;
    int slot = ring->u2DesgLineCard;
    uint8_t* buf = vornGetDbgPendBufToFill(slot);
    if (buf == nullptr) return -1;
    Writer w(buf, VORN_MSG_BUF_SIZE);
    uint32_t count = Reader(buf, VORN_MSG_BUF_SIZE).u32(dbg::kOffCount);
    size_t rec = dbg::kOffRecords + dbg::kRecLen * count;
    w.u16(rec + dbg::kOffRingId, ringId);
    for (size_t i = 0; i < kIndexes.size(); ++i) {
        if (ring->dbgCfg[i].isSet != 1) continue;
        size_t entry = rec + dbg::kOffEntries + dbg::kEntryLen * i;
        w.u8(entry + dbg::kOffSet, 1);
        w.u8(entry + dbg::kOffOff, 0);
        w.u32(entry + dbg::kOffType, kIndexes[i].type);
        w.u32(entry + dbg::kOffMode, kIndexes[i].mode);
        w.u32(entry + dbg::kOffCountLimit, ring->dbgCfg[i].count);
    }
    w.u32(dbg::kOffCount, count + 1);
    return 0;
}
