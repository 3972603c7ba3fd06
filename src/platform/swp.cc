// Sliding-window queues over the host IPC: sender queues with go-back-N retransmission,
// and the receiver's sequence check.
//
// Every sender queue lives in one registry, guarded by one mutex, since the manager's tests
// and in-process peers drive queues from several threads. Nothing slow or re-entrant runs
// under that mutex: sends (which may wait on a full peer queue), releasers and error
// callbacks are collected while it is held and run after it is let go. A datagram is
// therefore sent from a copy of the queue's buffer, so a concurrent flush can release the
// buffer at any time without a send reading freed memory. (Two threads working one queue
// at once may therefore send in either order; the receiver's gap check puts that right.)

#include "platform/swp.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/codec.h"
#include "platform/ipc_internal.h"

namespace vorn::host {
namespace {

using Clock = std::chrono::steady_clock;

// The pipe ticks this often while any of its queues has a message in flight.
constexpr auto kTick = std::chrono::milliseconds(10);
// A resend request for the sequence number served this recently is most likely a repeat
// of the same gap report (the receiver sends one per out-of-order message): it is not
// served at once, only noted, and served when this time has passed (see
// serveDeferredResend).
constexpr auto kResendGuard = std::chrono::milliseconds(20);
// Acknowledgements of later messages after which a message in flight goes again.
constexpr uint32_t kLaterAcksBeforeRetransmit = 3;
// Time-outs in a row, without an acknowledgement, after which the owner is told.
constexpr uint32_t kTimeoutsBeforeError = 3;

// True when sequence number a is b or comes after it, allowing for wrap-around.
bool seqAtOrAfter(uint32_t a, uint32_t b) {
    return static_cast<int32_t>(a - b) >= 0;
}

// Owns one descriptor and closes it once.
class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0) close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

// A pipe: the timer descriptor its queues share, and whether it is ticking.
struct Pipe {
    explicit Pipe(int fd) : timer(fd) {}
    Fd timer;
    bool armed = false;
};

// A message the queue owns: the caller's buffer, SWP header written.
struct Message {
    uint32_t seq = 0;
    void* buffer = nullptr;
    uint32_t len = 0;
    Clock::time_point sentAt{};  // last transmission, first or repeated
    uint32_t laterAcks = 0;      // acknowledgements of later messages since then
};

// One sender queue: its parameters, its messages and its counters.
struct Queue {
    uint32_t handle = 0;        // also the stream id on the wire
    int pipefd = -1;            // the pipe whose timer drives retransmission
    uint32_t window = 0;        // messages in flight at most
    Clock::duration rto{};      // retransmission time-out
    QelKey ipcKey = -1;         // data leaves from this key's request queue
    std::string timerPath;      // the owner's timer queue, for the time-out notice
    uint32_t ownQueueId = 0;    // the owner's request queue id, as the notice's source
    uint32_t timerQueueId = 0;  // the owner's timer queue id, as the notice's target
    int peerService = 0;        // the receiver, as shown in the control block
    int peerInstance = 0;
    uint32_t peerQueueId = 0;        // default target of data messages that name none
    QelSwpFreeFn release = nullptr;  // takes back buffers on flush and removal
    QelSwpErrFn onError = nullptr;   // told after kTimeoutsBeforeError time-outs in a row

    uint32_t nextSeq = 1;  // sequence number of the next message enqueued
    uint32_t epoch = 0;    // changes on every flush
    // An acknowledgement of this epoch has come back. Until then only the first message
    // travels: the receiver synchronises on whatever it sees first of a new epoch, so a
    // lost or overtaken message 1 would otherwise be skipped for good.
    bool synced = false;
    std::deque<Message> outstanding;  // in sequence order; removal may leave gaps
    std::deque<Message> held;         // waiting for a window place, in order
    uint32_t timeoutsInARow = 0;      // reset by any acknowledgement of this epoch
    bool resendServed = false;        // lastResendSeq and lastResendAt hold a served request
    bool resendDeferred = false;      // a repeat of it came within the guard time
    uint32_t lastResendSeq = 0;
    Clock::time_point lastResendAt{};
    uint64_t sent = 0;           // first transmissions
    uint64_t retransmitted = 0;  // every later one: time-out, resend request, later acks
    uint64_t acked = 0;          // messages whose acknowledgement freed their place

    uint32_t inFlightLimit() const { return synced ? window : 1; }
};

// A datagram to send once the registry is let go.
struct Datagram {
    QelKey fromKey = -1;         // it leaves from this key's request queue
    std::string toPath;          // to this socket; empty: routed by target.svce
    std::vector<uint8_t> bytes;  // a copy of the message
};

// Work collected under the registry mutex and done after it is released.
struct Deferred {
    std::vector<Datagram> sends;
    std::vector<std::pair<QelSwpFreeFn, void*>> releases;
    std::vector<std::pair<QelSwpErrFn, void*>> errors;

    void run() {
        for (Datagram& d : sends) {
            int fd = Key_getReqQueue(d.fromKey);
            if (fd < 0) continue;  // the owner closed its endpoint; the timer tries again
            // A missing or full peer is not an error: the message stays in flight.
            if (d.toPath.empty())
                routeSend(fd, d.bytes.data(), d.bytes.size());
            else
                sendDatagram(fd, d.toPath, d.bytes.data(), d.bytes.size(), false);
        }
        for (auto& [release, buffer] : releases)
            if (release != nullptr) release(buffer);
        for (auto& [onError, queue] : errors)
            if (onError != nullptr) onError(queue, swp::kErrTimeout);
    }
};

struct Registry {
    std::mutex mu;
    std::map<int, std::unique_ptr<Pipe>> pipes;         // by timer descriptor
    std::map<uint32_t, std::unique_ptr<Queue>> queues;  // by handle
    uint32_t nextHandle = 1;
};

Registry& reg() {
    static Registry r;
    return r;
}

// A 64-bit finaliser (splitmix64): spreads a few changing bits over the whole word.
uint64_t mix64(uint64_t x) {
    x += 0x9E3779B97F4A7C15ULL;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBULL;
    return x ^ (x >> 31);
}

// The first epoch of a queue. It differs between process lives (clock and pid), so that a
// receiver sees a restarted sender's queue as a new stream even under the same handle.
uint32_t initialEpoch(uint32_t handle) {
    static const uint64_t seed =
        mix64(static_cast<uint64_t>(std::chrono::system_clock::now().time_since_epoch().count()) ^
              (static_cast<uint64_t>(getpid()) << 32));
    uint32_t e = static_cast<uint32_t>(mix64(seed + handle));
    return e == 0 ? 1 : e;
}

uint32_t nextEpoch(uint32_t epoch) {
    return epoch + 1 == 0 ? 1 : epoch + 1;
}

// Writes a control message (acknowledgement, resend request or time-out notice): the IPC
// header with mtype and length, and an SWP header naming stream, epoch and sequence.
std::vector<uint8_t> controlMessage(uint32_t mtype, uint32_t seq, uint32_t stream, uint32_t epoch) {
    std::vector<uint8_t> msg(swp::kCtrlMsgLen, 0);
    be::Writer w(msg.data(), msg.size());
    w.u32(ipc::kOffMlen, static_cast<uint32_t>(swp::kCtrlMsgLen));
    w.u32(ipc::kOffMtype, mtype);
    w.u32(swp::kOffMagic, swp::kMagic);
    w.u32(swp::kOffSeq, seq);
    w.u32(swp::kOffStream, stream);
    w.u32(swp::kOffEpoch, epoch);
    return msg;
}

// The SWP header fields of a control or data message.
struct SwpHeader {
    uint32_t seq = 0;
    uint32_t stream = 0;
    uint32_t epoch = 0;
};

// Reads the SWP header of a received message. Its length is taken from the length word,
// which the receiving IPC library has checked against the datagram. False when the message
// is too short to carry the header or does not carry the SWP magic.
bool parseSwp(const void* msg, SwpHeader* out) {
    if (msg == nullptr) return false;
    be::Reader head(msg, ipc::kOffMlen + 4);
    if (head.u32(ipc::kOffMlen) < swp::kCtrlMsgLen) return false;
    be::Reader rd(msg, swp::kCtrlMsgLen);
    if (rd.u32(swp::kOffMagic) != swp::kMagic) return false;
    out->seq = rd.u32(swp::kOffSeq);
    out->stream = rd.u32(swp::kOffStream);
    out->epoch = rd.u32(swp::kOffEpoch);
    return rd.ok();
}

// Queues a (re)transmission of m from its queue, from a copy of its buffer.
void transmit(Queue& q, Message& m, bool retransmission, Clock::time_point now, Deferred* work) {
    be::Writer w(m.buffer, m.len);
    w.u32(swp::kOffFlags, retransmission ? swp::kFlagRetransmission : 0);
    const auto* p = static_cast<const uint8_t*>(m.buffer);
    work->sends.push_back(Datagram{q.ipcKey, {}, std::vector<uint8_t>(p, p + m.len)});
    m.sentAt = now;
    m.laterAcks = 0;
    if (retransmission)
        ++q.retransmitted;
    else
        ++q.sent;
}

// Counts an acknowledgement of a later message against each message in flight before
// it. The receiver accepts only in order, so such an acknowledgement means the earlier
// message arrived and its own acknowledgement was lost (or is late): after a few, the
// message goes again on its own, so the receiver acknowledges it again, instead of holding
// its window place until the time-out.
void noteLaterAck(Queue& q, std::deque<Message>::iterator acked, Clock::time_point now,
                  Deferred* work) {
    for (auto it = q.outstanding.begin(); it != acked; ++it) {
        if (++it->laterAcks < kLaterAcksBeforeRetransmit) continue;
        transmit(q, *it, true, now, work);
    }
}

// Moves held messages into free window places and sends them.
void sendHeld(Queue& q, Clock::time_point now, Deferred* work) {
    while (!q.held.empty() && q.outstanding.size() < q.inFlightLimit()) {
        q.outstanding.push_back(q.held.front());
        q.held.pop_front();
        transmit(q, q.outstanding.back(), false, now, work);
    }
}

// Hands every buffer of q to its releaser and starts a new epoch at sequence number 1.
void flushLocked(Queue& q, Deferred* work) {
    for (const Message& m : q.outstanding) work->releases.emplace_back(q.release, m.buffer);
    for (const Message& m : q.held) work->releases.emplace_back(q.release, m.buffer);
    q.outstanding.clear();
    q.held.clear();
    q.nextSeq = 1;
    q.epoch = nextEpoch(q.epoch);
    q.synced = false;
    q.timeoutsInARow = 0;
    q.resendServed = false;
    q.resendDeferred = false;
}

// Keeps a pipe ticking while one of its queues has a message in flight. A pipe that falls
// idle is disarmed only from its own tick (disarmIdle, in qelSwpReadPipe): in a steady
// exchange every message would otherwise arm and disarm the timer, two system calls on the
// way of each message.
void updateTimer(Registry& r, int pipefd, bool disarmIdle = false) {
    auto pit = r.pipes.find(pipefd);
    if (pit == r.pipes.end()) return;
    bool busy = false;
    for (const auto& [h, q] : r.queues)
        if (q->pipefd == pipefd && !q->outstanding.empty()) busy = true;
    Pipe& pipe = *pit->second;
    if (busy == pipe.armed || (!busy && !disarmIdle)) return;
    itimerspec spec{};
    if (busy) {
        auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(kTick).count();
        spec.it_interval.tv_nsec = ns;
        spec.it_value.tv_nsec = ns;
    }
    if (timerfd_settime(pipe.timer.get(), 0, &spec, nullptr) == 0) pipe.armed = busy;
}

// Retransmits every message in flight from sequence number seq on, in order. False when
// seq is not in flight (acknowledged meanwhile, or never sent).
bool serveResend(Queue& q, uint32_t seq, Clock::time_point now, Deferred* work) {
    auto it = q.outstanding.begin();
    while (it != q.outstanding.end() && it->seq != seq) ++it;
    if (it == q.outstanding.end()) return false;
    for (; it != q.outstanding.end(); ++it) transmit(q, *it, true, now, work);
    q.resendServed = true;
    q.resendDeferred = false;
    q.lastResendSeq = seq;
    q.lastResendAt = now;
    return true;
}

// Serves a repeated resend request that came within the guard time, once that time has
// passed. Repeats right after a resend are the same gap reported by the messages that
// were already on their way; one that is still unanswered after the guard time means the
// retransmission was lost too, and the receiver has nothing left to send that would ask
// again.
void serveDeferredResend(Queue& q, Clock::time_point now, Deferred* work) {
    if (!q.resendDeferred || now - q.lastResendAt < kResendGuard) return;
    q.resendDeferred = false;
    serveResend(q, q.lastResendSeq, now, work);
}

// Runs the time-out check of one queue: when its oldest message in flight has waited the
// time-out, every message in flight goes again, in order.
void checkTimeout(Queue& q, Clock::time_point now, Deferred* work) {
    // A message's wait starts at its last transmission, so an acknowledgement of the
    // oldest does not make the younger ones time out at once.
    auto oldest =
        std::min_element(q.outstanding.begin(), q.outstanding.end(),
                         [](const Message& a, const Message& b) { return a.sentAt < b.sentAt; });
    if (oldest == q.outstanding.end() || now - oldest->sentAt < q.rto) return;
    for (Message& m : q.outstanding) transmit(q, m, true, now, work);
    if (++q.timeoutsInARow != kTimeoutsBeforeError) return;
    work->errors.emplace_back(q.onError, &q);
    std::vector<uint8_t> notice =
        controlMessage(swp::kMtTimeout, q.outstanding.front().seq, q.handle, q.epoch);
    be::Writer w(notice.data(), notice.size());
    w.u32(ipc::kOffSrcSvce, q.ownQueueId);
    w.u32(ipc::kOffDstSvce, q.timerQueueId);
    work->sends.push_back(Datagram{q.ipcKey, q.timerPath, std::move(notice)});
}

Queue* findQueue(Registry& r, uint32_t handle) {
    auto it = r.queues.find(handle);
    return it == r.queues.end() ? nullptr : it->second.get();
}

// A copy of a queue's control block, valid until a few more calls on this thread: a
// pointer into the queue itself would dangle once the queue is removed.
const QelSwpQueueCtrlBlock* snapshot(const Queue& q) {
    thread_local std::array<QelSwpQueueCtrlBlock, 8> ring{};
    thread_local size_t next = 0;
    QelSwpQueueCtrlBlock& cb = ring[next];
    next = (next + 1) % ring.size();
    cb = QelSwpQueueCtrlBlock{};
    cb.hdl = static_cast<long>(q.handle);
    cb.peerService = q.peerService;
    cb.peerInstance = q.peerInstance;
    cb.nextSeq = q.nextSeq;
    cb.epoch = q.epoch;
    cb.outstanding = static_cast<uint32_t>(q.outstanding.size());
    cb.held = static_cast<uint32_t>(q.held.size());
    cb.timeoutsInARow = q.timeoutsInARow;
    cb.sent = q.sent;
    cb.retransmitted = q.retransmitted;
    cb.acked = q.acked;
    return &cb;
}

}  // namespace

const QelSwpQueueCtrlBlock* swpQueueByHandle(uint32_t handle) {
    Registry& r = reg();
    std::lock_guard<std::mutex> lock(r.mu);
    Queue* q = findQueue(r, handle);
    return q == nullptr ? nullptr : snapshot(*q);
}

void resetSwpForTest() {
    Registry& r = reg();
    std::lock_guard<std::mutex> lock(r.mu);
    r.queues.clear();
    r.pipes.clear();
}

}  // namespace vorn::host

using namespace vorn;
using host::Clock;
using host::Deferred;
using host::Queue;

int qelSwpCreatePipe(const char* /*path*/) {
    int fd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (fd < 0) return -1;
    host::Registry& r = host::reg();
    std::lock_guard<std::mutex> lock(r.mu);
    r.pipes[fd] = std::make_unique<host::Pipe>(fd);
    return fd;
}

int qelSwpReadPipe(int pipefd) {
    Deferred work;
    {
        host::Registry& r = host::reg();
        std::lock_guard<std::mutex> lock(r.mu);
        auto pit = r.pipes.find(pipefd);
        if (pit == r.pipes.end()) return -1;
        // Non-blocking: nothing to read only means the caller polled early.
        uint64_t ticks = 0;
        ssize_t n = read(pit->second->timer.get(), &ticks, sizeof(ticks));
        (void)n;
        auto now = Clock::now();
        for (auto& [h, q] : r.queues)
            if (q->pipefd == pipefd) {
                host::serveDeferredResend(*q, now, &work);
                host::checkTimeout(*q, now, &work);
            }
        host::updateTimer(r, pipefd, true);
    }
    work.run();
    return 0;
}

int qelSwpQueueCreateQs(QelKey /*evLogKey*/, int, int window, int rto, int ownService,
                        int ownInstance, QelKey ipcKey, int peerService, int peerInstance,
                        uint32_t /*srcQueueId*/, int, int, QelSwpAllocFn /*alloc*/, int,
                        QelSwpFreeFn release, QelSwpErrFn onError, uint32_t* handle, int pipefd) {
    if (handle == nullptr || window < 1 || rto < 1 || Key_getReqQueue(ipcKey) < 0) return -1;
    // Checked before the registry is locked: it makes a socket and connects.
    if (!host::endpointAlive(host::queuePath(peerService, peerInstance, ipc::kKindRequest)))
        return swp::kCreatePeerMissing;

    auto q = std::make_unique<Queue>();
    q->window = static_cast<uint32_t>(window);
    q->rto = std::chrono::milliseconds(100) * rto;
    q->ipcKey = ipcKey;
    q->timerPath = host::queuePath(ownService, ownInstance, ipc::kKindTimer);
    q->ownQueueId = qel_getQueueId(ownService, ownInstance, ipc::kKindRequest);
    q->timerQueueId = qel_getQueueId(ownService, ownInstance, ipc::kKindTimer);
    q->peerService = peerService;
    q->peerInstance = peerInstance;
    q->peerQueueId = qel_getQueueId(peerService, peerInstance, ipc::kKindRequest);
    q->release = release;
    q->onError = onError;
    q->pipefd = pipefd;

    host::Registry& r = host::reg();
    std::lock_guard<std::mutex> lock(r.mu);
    if (r.pipes.count(pipefd) == 0) return -1;
    while (r.nextHandle == 0 || r.queues.count(r.nextHandle) != 0) ++r.nextHandle;
    q->handle = r.nextHandle++;
    q->epoch = host::initialEpoch(q->handle);
    *handle = q->handle;
    r.queues[q->handle] = std::move(q);
    return 0;
}

int qelSwpQueueFlush(uint32_t handle) {
    Deferred work;
    {
        host::Registry& r = host::reg();
        std::lock_guard<std::mutex> lock(r.mu);
        Queue* q = host::findQueue(r, handle);
        if (q == nullptr) return -1;
        host::flushLocked(*q, &work);
        host::updateTimer(r, q->pipefd);
    }
    work.run();
    return 0;
}

int qelSwpQueueRemove(uint32_t handle) {
    Deferred work;
    {
        host::Registry& r = host::reg();
        std::lock_guard<std::mutex> lock(r.mu);
        Queue* q = host::findQueue(r, handle);
        if (q == nullptr) return -1;
        host::flushLocked(*q, &work);
        int pipefd = q->pipefd;
        r.queues.erase(handle);
        host::updateTimer(r, pipefd);
    }
    work.run();
    return 0;
}

int qelSwpEnqueue(uint32_t handle, void* buffer, int len) {
    if (buffer == nullptr || len < static_cast<int>(swp::kCtrlMsgLen) ||
        len > static_cast<int>(ipc::kMaxMsgLen))
        return -1;
    Deferred work;
    {
        host::Registry& r = host::reg();
        std::lock_guard<std::mutex> lock(r.mu);
        Queue* q = host::findQueue(r, handle);
        if (q == nullptr) return -1;
        host::Message m{q->nextSeq++, buffer, static_cast<uint32_t>(len), {}};
        be::Writer w(buffer, m.len);
        // A message that names no target goes to the queue's peer.
        if (w.reader().u32(ipc::kOffDstSvce) == 0) w.u32(ipc::kOffDstSvce, q->peerQueueId);
        w.u32(swp::kOffMagic, swp::kMagic);
        w.u32(swp::kOffSeq, m.seq);
        w.u32(swp::kOffStream, q->handle);
        w.u32(swp::kOffEpoch, q->epoch);
        w.u32(swp::kOffFlags, 0);
        w.zero(swp::kOffFlags + 4, swp::kCtrlMsgLen - (swp::kOffFlags + 4));
        q->held.push_back(m);
        host::sendHeld(*q, Clock::now(), &work);
        host::updateTimer(r, q->pipefd);
    }
    work.run();
    return 0;
}

int qelSwpDequeue(const void* ackMsg, void** freed) {
    if (freed == nullptr) return -1;
    *freed = nullptr;
    host::SwpHeader ack;
    if (!host::parseSwp(ackMsg, &ack)) return -1;
    Deferred work;
    {
        host::Registry& r = host::reg();
        std::lock_guard<std::mutex> lock(r.mu);
        Queue* q = host::findQueue(r, ack.stream);
        if (q == nullptr || q->epoch != ack.epoch) return 0;
        // Any acknowledgement of this epoch shows the receiver is there and synchronised.
        q->timeoutsInARow = 0;
        q->synced = true;
        auto now = Clock::now();
        for (auto it = q->outstanding.begin(); it != q->outstanding.end(); ++it) {
            if (it->seq != ack.seq) continue;
            *freed = it->buffer;
            host::noteLaterAck(*q, it, now, &work);
            q->outstanding.erase(it);
            ++q->acked;
            break;
        }
        host::sendHeld(*q, now, &work);
        host::updateTimer(r, q->pipefd);
    }
    work.run();
    return 0;
}

int qelSwpResend(const void* msg) {
    host::SwpHeader req;
    if (!host::parseSwp(msg, &req)) return -1;
    Deferred work;
    {
        host::Registry& r = host::reg();
        std::lock_guard<std::mutex> lock(r.mu);
        Queue* q = host::findQueue(r, req.stream);
        if (q == nullptr || q->epoch != req.epoch) return 0;
        auto now = Clock::now();
        if (q->resendServed && q->lastResendSeq == req.seq &&
            now - q->lastResendAt < host::kResendGuard) {
            q->resendDeferred = true;
            return 0;
        }
        host::serveResend(*q, req.seq, now, &work);
    }
    work.run();
    return 0;
}

int qelSwpCkSeqAndAck(const void* msg, uint32_t state[2], int fd) {
    host::SwpHeader data;
    if (state == nullptr || !host::parseSwp(msg, &data)) return swp::kCkNotSwp;
    int result = swp::kCkAccepted;
    uint32_t mtype = swp::kMtAck;
    uint32_t seq = data.seq;
    if (state[0] == 0 || state[1] != data.epoch || data.seq == state[0]) {
        state[0] = data.seq + 1;
        state[1] = data.epoch;
    } else if (!host::seqAtOrAfter(data.seq, state[0])) {
        result = swp::kCkDuplicate;
    } else {
        result = swp::kCkGap;
        mtype = swp::kMtForcedResend;
        seq = state[0];
    }
    std::vector<uint8_t> reply = host::controlMessage(mtype, seq, data.stream, data.epoch);
    // The reply travels the other way: its source is the data message's destination.
    be::Reader in(msg, ipc::kHdrLen);
    be::Writer out(reply.data(), reply.size());
    out.u32(ipc::kOffSrcSlot, in.u32(ipc::kOffDstSlot));
    out.u32(ipc::kOffSrcCard, in.u32(ipc::kOffDstCard));
    out.u32(ipc::kOffSrcSvce, in.u32(ipc::kOffDstSvce));
    out.u32(ipc::kOffDstSlot, in.u32(ipc::kOffSrcSlot));
    out.u32(ipc::kOffDstCard, in.u32(ipc::kOffSrcCard));
    out.u32(ipc::kOffDstSvce, in.u32(ipc::kOffSrcSvce));
    int sock = host::resolveSocket(fd);
    if (sock >= 0) host::sendToLastSource(sock, reply.data(), reply.size(), true);
    return result;
}

const QelSwpQueueCtrlBlock* qelSwpGetQueueCtrlBlock(void* queue) {
    host::Registry& r = host::reg();
    std::lock_guard<std::mutex> lock(r.mu);
    // The pointer is only compared, never followed, until it is known to be a live queue.
    for (const auto& [h, q] : r.queues)
        if (q.get() == queue) return host::snapshot(*q);
    return nullptr;
}
