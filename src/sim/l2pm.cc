// L2PM: the registration, the intake of the manager's messages, and the status line.
// The sender queue to the manager is in l2pm_swp.cc.

#include "sim/l2pm.h"

#include "platform/swp.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {

constexpr int kBatch = 32;

const char* swpDataName(uint32_t mtype) {
    switch (mtype) {
        case MT_L2PM_INST_PORT_OWNERSHIP:
            return "instance ownership";
        case MT_L2PM_PORT_STATE:
            return "port state";
        case MT_L2PM_FLUSH:
            return "flush";
        case MT_L2PM_VLAN_STG:
            return "VLAN-STG";
        default:
            return "message";
    }
}

}  // namespace

bool L2pm::open(std::string* err) {
    if (!endpoint_.open(err)) return false;
    lastSyncMs_ = -1;  // look for the manager on the next pass
    return true;
}

void L2pm::close() {
    if (handle_ != 0) removeQueue("L2PM's queues are closing");
    endpoint_.close();
    rcvState_ = {0, 0};
    managerRegistered_ = false;
}

void L2pm::wait(Poller& poller) {
    poller.onReadable(endpoint_.requestFd(), [this] { serveRequests(); });
    poller.onReadable(endpoint_.timerFd(), [this] { serveTimer(); });
    poller.onReadable(pipeFd_, [this] { qelSwpReadPipe(pipeFd_); });
    // While there is no queue, look for the manager often; otherwise check it is still there.
    poller.wakeWithin(handle_ == 0 && present() ? 100 : 500);
}

void L2pm::serveRequests() {
    for (int i = 0; i < kBatch; ++i) {
        int n = endpoint_.receive(buf_);
        if (n < 0) return;
        handle(buf_.data(), static_cast<size_t>(n));
    }
}

void L2pm::serveTimer() {
    for (int i = 0; i < kBatch; ++i) {
        int n = endpoint_.receiveTimer(buf_);
        if (n < 0) return;
        MsgHeader h = readHeader(buf_.data(), static_cast<size_t>(n));
        if (h.mtype == swp::kMtTimeout) {
            ++counters_.timeoutNotices;
            say("l2pm: SWP queue to 226.0: no acknowledgement after three time-outs; "
                "still retransmitting");
        } else {
            ++counters_.unexpected;
            say("l2pm: message type %u on the timer queue: dropped", h.mtype);
        }
    }
}

void L2pm::handle(uint8_t* msg, size_t len) {
    MsgHeader h = readHeader(msg, len);
    be::Reader rd(msg, len);
    if (h.mtype == MT_L2PM_REGISTER) {
        handleRegistration(msg, len, h.srcQueue);
    } else if (h.mtype == MT_L2PM_PORT_OWNERSHIP) {
        handleOwnership(msg, len, h.srcQueue);
    } else if ((h.mtype == swp::kMtAck || h.mtype == swp::kMtForcedResend) &&
               len < swp::kCtrlMsgLen) {
        ++counters_.malformed;
        say("l2pm: SWP control message type %u of %zu bytes (expected %zu): dropped", h.mtype, len,
            swp::kCtrlMsgLen);
    } else if (h.mtype == swp::kMtAck) {
        handleAck(msg);
    } else if (h.mtype == swp::kMtForcedResend) {
        handleResend(msg);
    } else if (len >= swp::kCtrlMsgLen && rd.u32(swp::kOffMagic) == swp::kMagic) {
        handleSwpData(msg, len, h.mtype);
    } else {
        ++counters_.unexpected;
        say("l2pm: message type %u (%zu bytes) from %s: not understood, dropped", h.mtype, len,
            queueName(h.srcQueue).c_str());
    }
}

void L2pm::handleRegistration(uint8_t* msg, size_t len, uint32_t source) {
    be::Reader rd(msg, len);
    if (len < VORN_L2PM_REG_LEN) {
        ++counters_.malformed;
        say("l2pm: registration of %zu bytes (expected %zu): dropped", len,
            size_t{VORN_L2PM_REG_LEN});
        return;
    }
    uint32_t service = rd.u32(VORN_L2PM_REG_SERVICE_OFF);
    bool registering = rd.u8(VORN_L2PM_REG_FLAG_OFF) == 1;
    // The manager sends its registration without a source queue; it is always instance 0
    // of the service it names.
    std::string from = source != 0 ? queueName(source) : std::to_string(service) + ".0";
    uint32_t result = refusing_ ? kRefused : kAccepted;
    be::Writer(msg, len).u32(VORN_L2PM_REG_RESULT_OFF, result);
    const char* what = registering ? "registration" : "deregistration";
    if (!endpoint_.reply(msg, len)) {
        say("l2pm: %s from %s: the answer could not be sent", what, from.c_str());
        return;
    }
    if (result == kAccepted)
        ++counters_.registered;
    else
        ++counters_.refused;
    say("l2pm: %s from %s (protocol kind %u): %s", what, from.c_str(),
        rd.u32(VORN_L2PM_REG_KIND_OFF),
        result == kAccepted ? "accepted" : "refused (refusing, as told)");
    if (result == kAccepted) managerRegistered_ = registering;
    if (result != kAccepted || !registering) return;
    // A registering manager is a new one: its SWP stream to us starts afresh, and it waits
    // for the configuration download.
    rcvState_ = {0, 0};
    if (onRegistered_) onRegistered_();
}

void L2pm::handleSwpData(const uint8_t* msg, size_t len, uint32_t mtype) {
    be::Reader rd(msg, len);
    uint32_t seq = rd.u32(swp::kOffSeq);
    uint32_t source = rd.u32(ipc::kOffSrcSvce);
    int rc = qelSwpCkSeqAndAck(msg, rcvState_.data(), endpoint_.requestFd());
    if (rc == swp::kCkAccepted) {
        ++received_[mtype];
        // Only a message seen for the first time changes the model; a duplicate is the same
        // message again.
        std::string applied = model_.apply(mtype, msg, len);
        say("l2pm: %s (type %u, %zu bytes) from %s, SWP seq %u: acknowledged; %s",
            swpDataName(mtype), mtype, len, queueName(source).c_str(), seq, applied.c_str());
    } else if (rc == swp::kCkDuplicate) {
        ++counters_.swpDuplicates;
        say("l2pm: type %u from %s, SWP seq %u: duplicate, acknowledged again", mtype,
            queueName(source).c_str(), seq);
    } else if (rc == swp::kCkGap) {
        ++counters_.swpGaps;
        say("l2pm: type %u from %s, SWP seq %u: out of order, resend asked from %u", mtype,
            queueName(source).c_str(), seq, rcvState_[0]);
    } else {
        ++counters_.unexpected;
        say("l2pm: type %u from %s: not a valid SWP message, dropped", mtype,
            queueName(source).c_str());
    }
}

std::string L2pm::statusLine() const {
    std::string s = "l2pm 166.0: ";
    s += present() ? (refusing_ ? "present, refusing" : "present, accepting") : "absent";
    s += "; registrations " + std::to_string(counters_.registered) + " accepted, " +
         std::to_string(counters_.refused) + " refused";
    if (handle_ == 0) {
        s += "; no SWP queue to 226.0";
    } else {
        const QelSwpQueueCtrlBlock* cb = vorn::host::swpQueueByHandle(handle_);
        s += "; SWP queue to 226.0: handle " + std::to_string(handle_);
        if (cb != nullptr)
            s += ", next seq " + std::to_string(cb->nextSeq) + ", in flight " +
                 std::to_string(cb->outstanding) + ", held " + std::to_string(cb->held) +
                 ", retransmitted " + std::to_string(cb->retransmitted);
    }
    s += "; notifications sent " + std::to_string(counters_.notifSent) + ", acknowledged " +
         std::to_string(counters_.notifAcked) + "; got over SWP:";
    if (received_.empty()) s += " nothing";
    for (const auto& [mtype, n] : received_)
        s += " " + std::to_string(mtype) + " x" + std::to_string(n);
    return s;
}

}  // namespace vorn::sim
