// The pending ring configuration buffers, one per line card, and the records queued in
// them: single configuration records, and the enable and disable records.

#include <algorithm>
#include <cstring>

#include "agent/agent.h"
#include "platform/codec.h"
#include "task/pools.h"
#include "task/swpq.h"
#include "task/trace.h"
#include "wire/msgtypes.h"

namespace {

namespace rcfg = vorn::rcfg;
using vorn::be::Writer;

// A fresh zeroed message buffer from the variable pool, or null.
uint8_t* takeZeroedBuffer() {
    auto* buf = static_cast<uint8_t*>(vornVarPoolMalloc(VORN_MSG_BUF_SIZE));
    if (buf != nullptr) std::memset(buf, 0, VORN_MSG_BUF_SIZE);
    return buf;
}

// Appends one record for `ring` to the slot's pending buffer, with only the fields of
// `flags` filled (and their bits set in the record's configFlags). `fn` names the caller
// in the allocation-failure line. Returns 0, or -1 when the record could not be queued.
int appendRecord(const char* fn, int slot, const VornRingEntry& ring, uint32_t action,
                 uint32_t flags, uint32_t ringAction, const uint8_t* memberVlans) {
    uint8_t* buf = vornGetLineCardPendBufToFill(slot);
    if (buf == nullptr) {
        VORN_ERR("%s (): Cannot allocate buffer for lineCard %ld\r\n", fn, static_cast<long>(slot));
        return -1;
    }
    Writer w(buf, VORN_MSG_BUF_SIZE);
    uint32_t count = w.reader().u32(rcfg::kOffCount);
    size_t off = rcfg::kOffRecords + size_t{count} * rcfg::kRecLen;
    if (count >= rcfg::kMaxRecords || !w.fits(off, rcfg::kRecLen)) {
        VORN_ERR("%s(): record count %lu of lineCard %ld leaves no room\r\n", fn,
                 static_cast<unsigned long>(count), static_cast<long>(slot));
        return -1;
    }
    uint32_t carried = 0;
    w.u16(off + rcfg::kOffAction, static_cast<uint16_t>(action));
    w.u16(off + rcfg::kOffRingId, ring.u2RingId);
    w.u32(off + rcfg::kOffRingAction, ringAction);
    w.u16(off + rcfg::kOffDesgAgent, ring.u2DesgLineCard);
    if ((flags & VORN_RING_CFG_CTRL_VLAN) != 0) {
        w.u16(off + rcfg::kOffCtrlVlan, ring.u2CtrlVlanId);
        w.u32(off + rcfg::kOffPrimary, ring.u4PriIfIndex);
        w.u32(off + rcfg::kOffSecondary, ring.u4SecIfIndex);
        carried |= VORN_RING_CFG_CTRL_VLAN;
    }
    if ((flags & VORN_RING_CFG_MODE) != 0) {
        w.u8(off + rcfg::kOffMode, ring.u1Mode);
        carried |= VORN_RING_CFG_MODE;
    }
    if ((flags & VORN_RING_CFG_MEMBER_VLAN) != 0 && memberVlans != nullptr) {
        w.bytes(off + rcfg::kOffMemberVlans, memberVlans, VORN_VLAN_BMAP_BYTES);
        carried |= VORN_RING_CFG_MEMBER_VLAN;
    }
    if ((flags & VORN_RING_CFG_HELLO) != 0) {
        w.u16(off + rcfg::kOffHello, ring.u2HelloTime);
        carried |= VORN_RING_CFG_HELLO;
    }
    if ((flags & VORN_RING_CFG_DEAD) != 0) {
        w.u16(off + rcfg::kOffDead, ring.u2DeadTime);
        carried |= VORN_RING_CFG_DEAD;
    }
    w.u32(off + rcfg::kOffCfgFlags, carried);
    w.u32(rcfg::kOffCount, count + 1);
    return 0;
}

// Queues a record without configuration fields for every slot with a queue; stops at the
// first slot whose record cannot be queued.
int sendToEveryAgent(const char* fn, const VornRingEntry& ring, uint32_t action,
                     uint32_t ringAction) {
    for (int slot = 0; slot < VORN_MAX_SLOTS; ++slot) {
        if (vornTcb.vornaSwpHandle[slot] == 0) continue;
        if (appendRecord(fn, slot, ring, action, 0, ringAction, nullptr) != 0) return -1;
    }
    return 0;
}

}  // namespace

uint8_t* vornGetLineCardPendBufToFill(int slot) {
    if (slot < 0 || slot >= VORN_MAX_SLOTS) {
        VORN_ERR("%s(): Invalid Line Card %d\r\n", __func__, slot);
        return nullptr;
    }
    uint8_t*& buf = gapVornAgtBuf[slot];
    if (buf == nullptr) {
        buf = takeZeroedBuffer();
        if (buf == nullptr) return nullptr;
    }
    uint64_t count = vorn::be::Reader(buf, VORN_MSG_BUF_SIZE).u32(rcfg::kOffCount);
    if (rcfg::kRecLen * count + 672 > VORN_MSG_BUF_SIZE) {
        // Full: the buffer leaves now and the record goes into a fresh one.
        if (vornDbgPrint != 0) vornDumpRingCfgBuf(buf);
        uint64_t len =
            std::min<uint64_t>(rcfg::kRecLen * count + rcfg::kOffRecords, VORN_MSG_BUF_SIZE);
        vornSwpSendToAgent(MT_VORN_RING_CFG, buf, static_cast<uint32_t>(len), slot);
        buf = takeZeroedBuffer();
    }
    return buf;
}

int vornSendRingCfgMsgToSingleAgt(int slot, VornRingEntry* ring, uint32_t action, uint32_t flags,
                                  uint32_t ringAction, const uint8_t* memberVlans) {
    if (ring == nullptr || slot < 0 || slot >= VORN_MAX_SLOTS) {
        VORN_ERR("%s(): no ring or invalid lineCard %ld\r\n", __func__, static_cast<long>(slot));
        return -1;
    }
    VORN_DBG(
        "%s(): LC: %ld, RingId: %d, Action: %ld, Flags: 0x%lx, RingAction: %d, "
        "AgtInitDone: %d \r\n",
        __func__, static_cast<long>(slot), ring->u2RingId, static_cast<long>(action),
        static_cast<unsigned long>(flags), static_cast<int>(ringAction),
        static_cast<int>(vornTcb.agtInitDone[slot]));
    if (vornTcb.vornaSwpHandle[slot] == 0) return 0;
    // An agent still in its initial download has nothing running to restart.
    if (ringAction == VORN_RING_ACTION_RESTART && vornTcb.agtInitDone[slot] == 0) {
        ringAction = VORN_RING_ACTION_START;
    }
    return appendRecord(__func__, slot, *ring, action, flags, ringAction, memberVlans);
}

int vornSendRingEnableMsgToAgt(VornRingEntry* ring) {
    if (ring == nullptr) return -1;
    if (ring->u2DesgLineCard == VORN_NO_LINE_CARD) ring->u2DesgLineCard = vornGetDesgLineCard(ring);
    return sendToEveryAgent(__func__, *ring, VORN_RING_CFG_ACTION_ADD, VORN_RING_ACTION_START);
}

int vornSendRingDisableMsgToAgt(VornRingEntry* ring) {
    if (ring == nullptr) return -1;
    return sendToEveryAgent(__func__, *ring, VORN_RING_CFG_ACTION_DEL_CFG, VORN_RING_ACTION_STOP);
}
