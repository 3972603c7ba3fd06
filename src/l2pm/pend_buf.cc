// The pending buffers of the batched L2PM messages: taking, filling and sending them when full.

#include "l2pm/pend_buf.h"

#include <algorithm>

#include "l2pm/l2pm.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/msgtypes.h"

uint8_t* gpVornL2PmInstPortOwnBuf = nullptr;
uint8_t* gpVornL2PmPortStateBuf = nullptr;
uint8_t* gpVornL2PmFlushBuf = nullptr;

namespace vorn::l2pm {

const PendKind kPortStateKind = {.pending = &gpVornL2PmPortStateBuf,
                                 .mtype = MT_L2PM_PORT_STATE,
                                 .countOff = VORN_L2PM_PS_COUNT_OFF,
                                 .baseLen = VORN_L2PM_PS_BASE_LEN,
                                 .recLen = VORN_L2PM_PS_REC_LEN,
                                 .hasIds = true,
                                 .dump = vornDumpL2PmPerPortStateMsg};
const PendKind kFlushKind = {.pending = &gpVornL2PmFlushBuf,
                             .mtype = MT_L2PM_FLUSH,
                             .countOff = VORN_L2PM_FLUSH_COUNT_OFF,
                             .baseLen = VORN_L2PM_FLUSH_BASE_LEN,
                             .recLen = VORN_L2PM_FLUSH_REC_LEN,
                             .hasIds = true,
                             .dump = nullptr};
const PendKind kInstOwnKind = {.pending = &gpVornL2PmInstPortOwnBuf,
                               .mtype = MT_L2PM_INST_PORT_OWNERSHIP,
                               .countOff = VORN_L2PM_INST_COUNT_OFF,
                               .baseLen = VORN_L2PM_INST_BASE_LEN,
                               .recLen = VORN_L2PM_INST_REC_LEN,
                               .hasIds = false,
                               .dump = halVornDumpL2PmInstPortOwnerShipMsg};

namespace {

// A zeroed buffer with the kind's fixed fields, or null when the pool is empty.
uint8_t* freshBuffer(const PendKind& k) {
    auto* buf = static_cast<uint8_t*>(vornVarPoolMalloc(VORN_MSG_BUF_SIZE));
    if (buf == nullptr) return nullptr;
    be::Writer w(buf, VORN_MSG_BUF_SIZE);
    w.zero(0, VORN_MSG_BUF_SIZE);
    if (k.hasIds) {
        w.u32(VORN_L2PM_CLIENT_ID_OFF, VORN_L2PM_CLIENT_ID);
        w.u32(VORN_L2PM_PROTO_ID_OFF, VORN_L2PM_PROTO_ID);
    }
    return buf;
}

bool hasRoom(const PendKind& k, uint32_t n) {
    return uint64_t{k.baseLen} + uint64_t{k.recLen} * (uint64_t{n} + 1) <= VORN_MSG_BUF_SIZE;
}

}  // namespace

uint32_t pendCount(const PendKind& k, const uint8_t* buffer) {
    return be::Reader(buffer, VORN_MSG_BUF_SIZE).u32(k.countOff);
}

uint32_t pendMsgLen(const PendKind& k, uint32_t n) {
    uint64_t len = uint64_t{k.baseLen} + uint64_t{k.recLen} * n;
    return static_cast<uint32_t>(std::min<uint64_t>(len, VORN_MSG_BUF_SIZE));
}

uint8_t* pendBufToFill(const PendKind& k) {
    uint8_t*& pending = *k.pending;
    if (pending == nullptr) {
        pending = freshBuffer(k);
        return pending;
    }
    uint32_t n = pendCount(k, pending);
    if (hasRoom(k, n)) return pending;
    // Full: it leaves now, and a fresh buffer takes its place.
    uint8_t* full = pending;
    pending = nullptr;
    if (k.dump != nullptr) k.dump(full);
    vornSwpSendToL2Pm(k.mtype, full, pendMsgLen(k, n));
    pending = freshBuffer(k);
    return pending;
}

uint32_t pendAppendImpl(const PendKind& k, const char* fn,
                        void (*fill)(be::Writer&, size_t, const void*), const void* ctx) {
    if (vornTcb.l2pmSwpHandle == 0) {
        VORN_ERR("%s: L2PM SWP queue not created.\r\n", fn);
        return 0;
    }
    uint8_t* buf = pendBufToFill(k);
    if (buf == nullptr) {
        VORN_ERR("%s(): L2PM buffer allocation failed\r\n", fn);
        return 0;
    }
    be::Writer w(buf, VORN_MSG_BUF_SIZE);
    uint32_t n = pendCount(k, buf);
    // pendBufToFill left room for record n; the writer keeps every field inside the buffer.
    fill(w, k.baseLen + size_t{k.recLen} * n, ctx);
    w.u32(k.countOff, n + 1);
    return n + 1;
}

}  // namespace vorn::l2pm
