// L2PM's sender queue to the manager: created when the manager's request queue appears,
// removed when it goes, and the notifications sent over it.

#include <chrono>
#include <cstring>

#include "platform/swp.h"
#include "sim/l2pm.h"
#include "sim/log.h"
#include "sim/loop.h"
#include "sim/swp_buffers.h"

namespace vorn::sim {
namespace {

constexpr int kManagerService = ipc::kSvcManager;
constexpr int kOwnService = ipc::kSvcL2pm;
// How often run() looks whether the manager came or went.
constexpr long kSyncIntervalMs = 100;

}  // namespace

L2pm::L2pm() : endpoint_(kOwnService, 0), buf_(ipc::kMaxMsgLen) {
    pipeFd_ = qelSwpCreatePipe("/qel/pipe/simL2pmSwpPipe");
    if (pipeFd_ < 0) say("l2pm: cannot create the SWP pipe; no queue to the manager possible");
}

L2pm::~L2pm() {
    close();
}

void L2pm::run() {
    long now = nowMs();
    if (lastSyncMs_ >= 0 && now - lastSyncMs_ < kSyncIntervalMs) return;
    lastSyncMs_ = now;
    syncWithManager();
}

void L2pm::syncWithManager() {
    bool managerUp = host::endpointAlive(host::queuePath(kManagerService, 0, ipc::kKindRequest));
    if (handle_ == 0 && managerUp && present() && pipeFd_ >= 0)
        createQueue();
    else if (handle_ != 0 && !managerUp)
        removeQueue("the manager's request queue is gone");
}

void L2pm::createQueue() {
    uint32_t handle =
        swpbuf::createQueueToManager("l2pm", kOwnService, 0, endpoint_.key(), pipeFd_);
    if (handle == 0) return;  // the next pass retries
    handle_ = handle;
    say("l2pm: manager 226.0 is up; SWP queue to it created (handle %u)", handle_);
}

void L2pm::removeQueue(const char* why) {
    const QelSwpQueueCtrlBlock* cb = host::swpQueueByHandle(handle_);
    uint32_t unacked = cb != nullptr ? cb->outstanding + cb->held : 0;
    qelSwpQueueRemove(handle_);
    downloadActive_ = false;
    say("l2pm: %s; SWP queue %u to 226.0 removed (%u notifications unacknowledged)", why, handle_,
        unacked);
    handle_ = 0;
    rcvState_ = {0, 0};
    managerRegistered_ = false;
}

bool L2pm::beginDownload(std::string* err) {
    syncWithManager();
    if (handle_ == 0) {
        *err = "no SWP queue to the manager";
        return false;
    }
    const QelSwpQueueCtrlBlock* cb = host::swpQueueByHandle(handle_);
    uint32_t stale = cb != nullptr ? cb->outstanding + cb->held : 0;
    qelSwpQueueFlush(handle_);
    if (stale > 0)
        say("l2pm: %u notifications for the earlier manager dropped from the queue to 226.0",
            stale);
    downloadActive_ = true;
    downloadAckTarget_ = counters_.notifAcked;
    return true;
}

void L2pm::endDownload(uint64_t notifications) {
    downloadAckTarget_ = counters_.notifAcked + notifications;
}

bool L2pm::sendNotification(Notif kind, std::span<const uint8_t> body, std::string* err) {
    auto fail = [err](const std::string& why) {
        if (err != nullptr) *err = why;
        return false;
    };
    if (handle_ == 0) return fail("no SWP queue to the manager (is it running?)");
    if (body.size() > ipc::kMaxMsgLen - ipc::kSwpBodyOff)
        return fail("notification body of " + std::to_string(body.size()) +
                    " bytes does not fit one message");
    size_t len = ipc::kSwpBodyOff + body.size();
    void* buffer = swpbuf::take(len);
    be::Writer w(buffer, len);
    writeOrigin(w, static_cast<uint32_t>(kind), static_cast<uint32_t>(len), kOwnService, 0,
                qel_getQueueId(kManagerService, 0, ipc::kKindRequest));
    if (!body.empty()) w.bytes(ipc::kSwpBodyOff, body.data(), body.size());
    if (qelSwpEnqueue(handle_, buffer, static_cast<int>(len)) != 0) {
        swpbuf::give(buffer);  // the queue did not take it
        return fail("the SWP queue refused the message");
    }
    ++counters_.notifSent;
    say("l2pm: %s notification (type %u, %zu bytes) queued to 226.0",
        kind == Notif::Ifm ? "IFM" : "L2PM", static_cast<uint32_t>(kind), len);
    return true;
}

void L2pm::handleAck(const uint8_t* msg) {
    void* freed = nullptr;
    if (qelSwpDequeue(msg, &freed) != 0) {
        ++counters_.malformed;
        say("l2pm: malformed SWP acknowledgement: dropped");
        return;
    }
    if (freed == nullptr) return;  // repeated, or for a queue that is gone
    ++counters_.notifAcked;
    if (swpbuf::give(freed) != 0) say("l2pm: acknowledged buffer was not one of ours");
}

void L2pm::handleResend(const uint8_t* msg) {
    ++counters_.resendRequests;
    be::Reader rd(msg, swp::kCtrlMsgLen);
    say("l2pm: manager asks for a resend from SWP seq %u", rd.u32(swp::kOffSeq));
    qelSwpResend(msg);
}

}  // namespace vorn::sim
