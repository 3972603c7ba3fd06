// The receiving side of the sliding-window queues against a live queue: the receiver's
// sequence check (qelSwpCkSeqAndAck), and the sender's handling of acknowledgements
// (qelSwpDequeue) and resend requests (qelSwpResend), with messages in flight and held.
//
// A sender queue (window 4) runs from L2PM's endpoint (166.0) to the manager's (226.0),
// both in this process. Every input starts on a flushed queue (a new epoch, numbering from
// 1) and a receiver that has not synchronised. Input: byte 0 is the number of messages
// enqueued first (modulo 24, so that some are held); then steps of 19 bytes each:
//   0   op: bits 0-4 modulo 7 choose the step, bit 7 the queue's own stream id, bit 6 its
//       current epoch, bit 5 a sequence number 1..32 (else the fields as given)
//   1   u16 the message's length (taken into 60..8192; the length word, apart from the
//       20 bytes the input gives)
//   3   u32 sequence number, 7 u32 stream id, 11 u32 epoch, 15 u32 SWP flags
// Steps: 0 an acknowledgement (402) to qelSwpDequeue; 1 a resend request (404) to
// qelSwpResend; 2 a data message to the receiver's qelSwpCkSeqAndAck; 3 the data messages
// the queue has sent so far, in order, through the receiver's check; 4 the acknowledgements
// and resend requests the receiver has sent so far, back to the sender; 5 one more message
// enqueued; 6 the queue's timer work (qelSwpReadPipe).
// What arrives on the two endpoints is collected after every step (at most 64 of each are
// kept, the oldest dropped), so that no socket fills. Message bytes past the length are
// poisoned under AddressSanitizer. Buffers come from malloc: the queue gives them back
// through its releaser on the flush that ends every input, or through qelSwpDequeue, so a
// buffer lost by the queue is a leak that LeakSanitizer reports.
//
// Seeds: fuzz/corpus/swp_fuzz/, written by fuzz/gen_swp_corpus.py.

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <utility>
#include <vector>

#include "fuzz_support.h"
#include "platform/codec.h"
#include "platform/ipc.h"
#include "platform/swp.h"
#include "wire/msgtypes.h"

namespace {

namespace ipc = vorn::ipc;
namespace swp = vorn::swp;

constexpr int kSender = ipc::kSvcL2pm;
constexpr int kReceiver = ipc::kSvcManager;
constexpr uint32_t kDataLen = 160;
// A window smaller than the chassis's: a socket holds only about ten datagrams, and this
// process reads its two only between calls, while one call may send a whole window again
// (a resend request, a time-out) on top of new messages. A send to a full socket waits.
constexpr int kWindow = 4;
constexpr size_t kStepLen = 19;
constexpr size_t kMaxHeld = 64;
constexpr size_t kMaxFirst = 24;

enum Step { kAck, kResend, kData, kDeliverData, kDeliverCtl, kEnqueue, kTimer, kSteps };
constexpr uint8_t kLiveStream = 0x80;
constexpr uint8_t kLiveEpoch = 0x40;
constexpr uint8_t kSmallSeq = 0x20;

QelKey gSender = -1;
QelKey gReceiver = -1;
int gPipe = -1;
uint32_t gHandle = 0;

int release(void* buffer) {
    std::free(buffer);
    return 0;
}

void onError(void*, int) {}

void enqueue() {
    auto* buf = static_cast<uint8_t*>(std::calloc(1, kDataLen));
    if (buf == nullptr) abort();
    vorn::be::Writer w(buf, kDataLen);
    w.u32(ipc::kOffMlen, kDataLen);
    w.u32(ipc::kOffMtype, MT_L2PM_NOTIF);
    if (qelSwpEnqueue(gHandle, buf, static_cast<int>(kDataLen)) != 0) abort();
}

using Held = std::deque<std::vector<uint8_t>>;

// Moves what waits on a queue into `held`, keeping the newest kMaxHeld.
void collect(int qfd, Held* held) {
    static vorn::fuzz::MsgBuf rx;
    for (int n; (n = qelIpcRecv(qfd, rx.data(), static_cast<int>(rx.size()), 0, 0, 0)) >= 0;) {
        held->emplace_back(rx.begin(), rx.begin() + n);
        if (held->size() > kMaxHeld) held->pop_front();
    }
}

// Copies a held message into the buffer with the bytes past it poisoned.
const uint8_t* place(const std::vector<uint8_t>& m, vorn::fuzz::MsgBuf* buf) {
    vorn::fuzz::unpoison(buf);
    std::copy(m.begin(), m.end(), buf->begin());
    vorn::fuzz::poisonPast(buf, m.size());
    return buf->data();
}

void dequeue(const uint8_t* msg) {
    void* freed = nullptr;
    qelSwpDequeue(msg, &freed);
    std::free(freed);
}

}  // namespace

void vorn::fuzz::setUp() {
    vorn::fuzz::initRunDir();
    gSender = qelIpcTmrOpen(kSender, 0);
    gReceiver = qelIpcTmrOpen(kReceiver, 0);
    gPipe = qelSwpCreatePipe("/qel/pipe/fuzz");
    if (gSender < 0 || gReceiver < 0 || gPipe < 0 ||
        qelSwpQueueCreateQs(0, 0, kWindow, swp::kRtoL2pm, kSender, 0, gSender, kReceiver, 0,
                            qel_getQueueId(kSender, 0, ipc::kKindSwpSource), 0, 0, nullptr, 0,
                            release, onError, &gHandle, gPipe) != 0) {
        abort();
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vorn::fuzz::MsgBuf& buf = vorn::fuzz::messageBuffer();
    if (size == 0) return 0;
    uint32_t rxState[2] = {0, 0};
    Held dataHeld, ctlHeld;
    for (size_t i = 0; i < data[0] % kMaxFirst; ++i) enqueue();
    const int rxFd = Key_getReqQueue(gReceiver);
    const int txFd = Key_getReqQueue(gSender);
    for (size_t at = 1; at + kStepLen <= size; at += kStepLen) {
        vorn::be::Reader in(data + at, kStepLen);
        const uint8_t op = in.u8(0);
        const QelSwpQueueCtrlBlock* cb = vorn::host::swpQueueByHandle(gHandle);
        uint32_t seq = (op & kSmallSeq) != 0 ? 1 + in.u32(3) % 32 : in.u32(3);
        uint32_t stream = (op & kLiveStream) != 0 ? gHandle : in.u32(7);
        uint32_t epoch = (op & kLiveEpoch) != 0 && cb != nullptr ? cb->epoch : in.u32(11);
        const auto step = static_cast<Step>((op & 0x1F) % kSteps);
        if (step <= kData) {
            static constexpr uint32_t kTypes[] = {MT_SWP_ACK, MT_SWP_FORCED_RESEND, MT_L2PM_NOTIF};
            size_t len = std::clamp<size_t>(in.u16(1), ipc::kHdrLen, buf.size());
            vorn::fuzz::unpoison(&buf);
            buf.fill(0);
            vorn::be::Writer w(buf.data(), len);
            w.u32(ipc::kOffMagic, ipc::kMagic);
            w.u32(ipc::kOffMlen, static_cast<uint32_t>(len));
            w.u32(ipc::kOffMtype, kTypes[step]);
            w.u32(swp::kOffMagic, swp::kMagic);
            w.u32(swp::kOffSeq, seq);
            w.u32(swp::kOffStream, stream);
            w.u32(swp::kOffEpoch, epoch);
            w.u32(swp::kOffFlags, in.u32(15));
            vorn::fuzz::poisonPast(&buf, len);
        }
        switch (step) {
            case kAck:
                dequeue(buf.data());
                break;
            case kResend:
                qelSwpResend(buf.data());
                break;
            case kData:
                qelSwpCkSeqAndAck(buf.data(), rxState, rxFd);
                break;
            case kDeliverData:
                for (Held now = std::exchange(dataHeld, {}); const auto& m : now) {
                    qelSwpCkSeqAndAck(place(m, &buf), rxState, rxFd);
                    collect(txFd, &ctlHeld);
                }
                break;
            case kDeliverCtl:
                for (Held now = std::exchange(ctlHeld, {}); const auto& m : now) {
                    const uint8_t* msg = place(m, &buf);
                    uint32_t mtype = vorn::be::Reader(msg, m.size()).u32(ipc::kOffMtype);
                    if (mtype == MT_SWP_ACK) dequeue(msg);
                    if (mtype == MT_SWP_FORCED_RESEND) qelSwpResend(msg);
                    collect(rxFd, &dataHeld);
                }
                break;
            case kEnqueue:
                enqueue();
                break;
            default:
                qelSwpReadPipe(gPipe);
                break;
        }
        vorn::fuzz::unpoison(&buf);
        collect(rxFd, &dataHeld);
        collect(txFd, &ctlHeld);
    }
    qelSwpQueueFlush(gHandle);
    vorn::fuzz::drain(rxFd);
    vorn::fuzz::drain(txFd);
    vorn::fuzz::drain(Key_getTmrQueue(gSender));
    return 0;
}
