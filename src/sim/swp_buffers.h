// Message buffers handed to the simulator's SWP sender queues.
//
// A queue owns a buffer from the enqueue until the far end acknowledges it (the buffer then
// comes back from qelSwpDequeue) or until the queue is flushed or removed (the buffer then
// comes back through the releaser, a plain function without context). Every buffer is
// therefore taken from, and given back to, this one ledger, which can also say how many
// are still out: a number that must match the messages in flight.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vorn::sim::swpbuf {

// A zeroed buffer of len bytes, or null when len is 0.
void* take(size_t len);
// Gives a buffer back. Returns 0, or -1 (and changes nothing) for a pointer the ledger
// never handed out or already took back.
int give(void* buffer);
// Buffers handed out and not yet given back.
size_t live();

// Creates a sender queue of service.instance (whose IPC key is `key`) to the manager's
// request queue 226.0.1, with this ledger's buffers and the simulator's window (10) and
// retransmission time-out (2.5 s), its timer work signalled on pipeFd. Returns the handle;
// 0 when the manager's queue is gone again (the caller retries later) or creation failed
// (said in the log, under `who`).
uint32_t createQueueToManager(const char* who, int service, int instance, long key, int pipeFd);

}  // namespace vorn::sim::swpbuf
