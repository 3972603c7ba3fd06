// Host edition of the platform's sliding-window queues (SWP).
//
// A sender queue numbers its messages 1, 2, 3 ..., keeps at most `window` of them in
// flight, holds the rest in order, and retransmits every outstanding message (go-back-N)
// when the oldest one has waited the retransmission time-out. The receiver side is the
// sequence check qelSwpCkSeqAndAck, which acknowledges what it accepts and asks for a
// resend when it sees a gap. Acknowledgements, resend requests and time-out notices travel
// as ordinary messages (402, 404, 401) and come back to the owner through its queues.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/ipc.h"

namespace vorn::swp {

// SWP header, at offsets 60-123 of every SWP message.
inline constexpr uint32_t kMagic = 0x53575031;  // "SWP1"
inline constexpr size_t kOffMagic = 60;
inline constexpr size_t kOffSeq = 64;
inline constexpr size_t kOffStream = 68;
inline constexpr size_t kOffEpoch = 72;
inline constexpr size_t kOffFlags = 76;
inline constexpr uint32_t kFlagRetransmission = 0x1;
inline constexpr size_t kCtrlMsgLen = 124;

// The chassis's sender queues: window, and retransmission time-out in units of 100 ms for the
// queues to L2PM and to the agents.
inline constexpr int kWindow = 10;
inline constexpr int kRtoL2pm = 25;
inline constexpr int kRtoAgent = 30;

inline constexpr uint32_t kMtTimeout = 401;
inline constexpr uint32_t kMtAck = 402;
inline constexpr uint32_t kMtForcedResend = 404;

// Results of qelSwpCkSeqAndAck.
inline constexpr int kCkAccepted = 0;
inline constexpr int kCkNotSwp = 1;
inline constexpr int kCkGap = 5;
inline constexpr int kCkDuplicate = 6;

// Result of qelSwpQueueCreateQs when the peer's request queue does not exist.
inline constexpr int kCreatePeerMissing = 4;

// Error code passed to the error callback after three time-outs in a row.
inline constexpr int kErrTimeout = 1;

}  // namespace vorn::swp

using QelSwpAllocFn = void* (*)(uint32_t size);
using QelSwpFreeFn = int (*)(void* buffer);
using QelSwpErrFn = void (*)(void* queue, int errCode);

// What qelSwpGetQueueCtrlBlock shows of a queue.
struct QelSwpQueueCtrlBlock {
    long hdl;  // the queue's handle (also its stream id)
    int peerService;
    int peerInstance;
    uint32_t nextSeq;  // sequence number of the next new message
    uint32_t epoch;
    uint32_t outstanding;  // messages sent and not yet acknowledged
    uint32_t held;         // messages waiting for a window place
    uint32_t timeoutsInARow;
    uint64_t sent;
    uint64_t retransmitted;
    uint64_t acked;
};

// Creates the descriptor on which the library signals timer work; `path` is a name only.
int qelSwpCreatePipe(const char* path);
// Drains the pipe and runs the retransmission and time-out work of every queue signalled
// on it (error callbacks run here, on the caller's thread). Returns 0.
int qelSwpReadPipe(int pipefd);

// Creates a sender queue. window: messages in flight; rto: retransmission time-out in
// units of 100 ms. Fills *handle (non-zero) and returns 0; returns 4 when the peer's
// request queue does not exist, -1 on bad arguments.
int qelSwpQueueCreateQs(QelKey evLogKey, int, int window, int rto, int ownService, int ownInstance,
                        QelKey ipcKey, int peerService, int peerInstance, uint32_t srcQueueId, int,
                        int, QelSwpAllocFn alloc, int, QelSwpFreeFn release, QelSwpErrFn onError,
                        uint32_t* handle, int pipefd);
// Frees every outstanding and held buffer through the releaser, restarts numbering at 1
// and changes the epoch. Returns 0, or -1 for an unknown handle.
int qelSwpQueueFlush(uint32_t handle);
// As a flush, then destroys the queue.
int qelSwpQueueRemove(uint32_t handle);
// Takes the buffer (len bytes, IPC header filled by the caller) and sends it when the
// window has room, or holds it in order. Returns 0, or -1 for an unknown handle (the buffer
// then stays the caller's).
int qelSwpEnqueue(uint32_t handle, void* buffer, int len);
// Handles an acknowledgement (mtype 402): frees the window place of the acknowledged
// message, hands its buffer back in *freed (null for an unknown or repeated
// acknowledgement) and sends held messages. Returns 0, or -1 for a malformed message.
int qelSwpDequeue(const void* ackMsg, void** freed);
// Handles a resend request (mtype 404): retransmits from the requested sequence number.
int qelSwpResend(const void* msg);
// Receiver side; state is {next expected sequence number (0: not synchronised), epoch}.
// The acknowledgement or resend request leaves from `fd` to the message's source address
// (the last address read on fd). Results: see vorn::swp::kCk*.
int qelSwpCkSeqAndAck(const void* msg, uint32_t state[2], int fd);
// The control block of a queue (as passed to the error callback), or null.
const QelSwpQueueCtrlBlock* qelSwpGetQueueCtrlBlock(void* queue);

namespace vorn::host {
// Host extension: the control block by handle, or null.
const QelSwpQueueCtrlBlock* swpQueueByHandle(uint32_t handle);
// Destroys every queue and pipe without releasing buffers (tests only).
void resetSwpForTest();
}  // namespace vorn::host
