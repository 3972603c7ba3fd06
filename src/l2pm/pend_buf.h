// The batched L2PM messages (port states, flushes, instance port ownership): one pending
// 8192-byte buffer per kind, filled record by record and sent whole when it cannot take
// another record. Internal to the L2PM subsystem.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/codec.h"
#include "task/pools.h"

namespace vorn::l2pm {

// What tells the kinds of batched message apart.
struct PendKind {
    uint8_t** pending;                    // the pending-buffer pointer of the kind (pending.h)
    uint32_t mtype;                       // message type it is sent with
    size_t countOff;                      // u32 record count
    uint32_t baseLen;                     // offset of record 0, and the length of an empty message
    uint32_t recLen;                      // record size
    bool hasIds;                          // client id 7 and protocol id 3 at 248 and 252
    void (*dump)(const uint8_t* buffer);  // printed before a full buffer leaves, or null
};

extern const PendKind kPortStateKind;
extern const PendKind kFlushKind;
extern const PendKind kInstOwnKind;

// Records held by a pending buffer, as its count word says.
uint32_t pendCount(const PendKind& k, const uint8_t* buffer);
// Length of a message of n records, never more than the buffer.
uint32_t pendMsgLen(const PendKind& k, uint32_t n);
// The pending buffer with room for one more record: a fresh zeroed one when none is
// pending; a full one is sent first and replaced. Null when no buffer could be taken.
uint8_t* pendBufToFill(const PendKind& k);

// Appends one record: checks the L2PM queue, gets a buffer, lets fill(writer, offset) write
// the record at its offset and bumps the count. Returns the new count, or 0 when nothing was
// appended (logged under the error flag with `fn`).
uint32_t pendAppendImpl(const PendKind& k, const char* fn,
                        void (*fill)(be::Writer&, size_t, const void*), const void* ctx);

template <typename F>
uint32_t pendAppend(const PendKind& k, const char* fn, const F& fill) {
    return pendAppendImpl(
        k, fn,
        [](be::Writer& w, size_t off, const void* c) { (*static_cast<const F*>(c))(w, off); },
        &fill);
}

}  // namespace vorn::l2pm
