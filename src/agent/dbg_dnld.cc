// Debug-settings records queued for the agents: the pending debug buffer of a slot, and the
// re-download of a ring's settings to the agent that runs it.

#include "agent/agent.h"
#include "agent/pending.h"
#include "platform/codec.h"
#include "ringdb/records.h"
#include "task/pools.h"
#include "task/swpq.h"
#include "task/trace.h"
#include "wire/agent.h"
#include "wire/msgtypes.h"
#include "wire/show.h"

namespace {

namespace dbg = vorn::agt::dbg;
using vorn::be::Reader;
using vorn::be::Writer;

static_assert(dbg::kEntries == VORN_NUM_DBG_TYPES);

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

uint8_t* vornDbgRecordAppend(int slot, uint16_t ringId, size_t* rec) {
    uint8_t* buf = vornGetDbgPendBufToFill(slot);
    if (buf == nullptr) return nullptr;
    const uint32_t count = Reader(buf, VORN_MSG_BUF_SIZE).u32(dbg::kOffCount);
    *rec = dbg::kOffRecords + dbg::kRecLen * count;
    Writer w(buf, VORN_MSG_BUF_SIZE);
    w.u16(*rec + dbg::kOffRingId, ringId);
    w.u32(dbg::kOffCount, count + 1);
    return buf;
}

void vornDbgEntryFill(uint8_t* buf, size_t rec, int index, const VornDbgEntryValues& v) {
    if (buf == nullptr || index < 0 || index >= dbg::kEntries) return;
    const size_t entry = rec + dbg::kOffEntries + dbg::kEntryLen * static_cast<size_t>(index);
    Writer w(buf, VORN_MSG_BUF_SIZE);
    w.u8(entry + dbg::kOffSet, 1);
    w.u8(entry + dbg::kOffOff, v.off);
    w.u32(entry + dbg::kOffType, v.type);
    w.u32(entry + dbg::kOffMode, v.mode);
    w.u32(entry + dbg::kOffCountLimit, v.count);
}

int vornSendDbgMsgOnLCUp(VornRingEntry* ring, uint16_t ringId) {
    if (ring == nullptr || ring->u2DesgLineCard >= VORN_MAX_SLOTS) return -1;
    size_t rec = 0;
    uint8_t* buf = vornDbgRecordAppend(ring->u2DesgLineCard, ringId, &rec);
    if (buf == nullptr) return -1;
    for (int i = 0; i < dbg::kEntries; ++i) {
        const VornDbgEntry& e = ring->dbgCfg[static_cast<size_t>(i)];
        const vorn::dbgreq::Setting& s = vorn::dbgreq::kSettingsByIndex[i];
        if (e.isSet == 1) vornDbgEntryFill(buf, rec, i, {0, s.type, s.mode, e.count});
    }
    return 0;
}
