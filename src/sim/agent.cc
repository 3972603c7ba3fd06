// The agent's life: start and silence, the registration with the manager, the intake of
// the manager's messages and the statistics answer.

#include "sim/agent.h"

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>

#include <unistd.h>

#include "platform/swp.h"
#include "sim/log.h"
#include "sim/loop.h"

namespace vorn::sim {
namespace {

constexpr int kBatch = 32;
// While the manager is missing, the agent looks for it (and registers) every 500 ms;
// while it is there, it checks every 100 ms that it still is, so that a restarted manager
// is met with a new registration.
constexpr long kRetryMs = 500;
constexpr long kWatchMs = 100;
// The line-card type an agent reports: fixed per slot, never 0.
constexpr uint32_t kLineCardTypeBase = 0x10;

uint32_t managerQueue() {
    return qel_getQueueId(ipc::kSvcManager, 0, ipc::kKindRequest);
}

}  // namespace

Agent::Agent(uint32_t slot)
    : slot_(slot),
      endpoint_(ipc::kSvcAgent, static_cast<int>(slot)),
      switchId_(static_cast<uint32_t>(getpid())),
      buf_(ipc::kMaxMsgLen) {
    std::string pipe = "/qel/pipe/simAgent" + std::to_string(slot) + "SwpPipe";
    pipeFd_ = qelSwpCreatePipe(pipe.c_str());
    if (pipeFd_ < 0)
        say("%s: cannot create the SWP pipe; no reports to the manager possible", name().c_str());
}

Agent::~Agent() {
    silence();
}

std::string Agent::name() const {
    return "agent " + std::to_string(slot_);
}

bool Agent::start(std::string* err) {
    if (active()) silence();
    life_ = Life{};
    if (!endpoint_.open(err)) return false;
    say("%s: started on 227.%u", name().c_str(), slot_);
    syncWithManager();
    life_.nextSyncMs = nowMs() + (life_.managerSeen ? kWatchMs : kRetryMs);
    return true;
}

void Agent::silence() {
    if (!active()) return;
    if (handle_ != 0) removeQueue("the agent is silenced");
    endpoint_.close();
    life_.managerSeen = false;
    life_.registered = false;
    say("%s: silenced; its queues are closed", name().c_str());
}

void Agent::wait(Poller& poller) {
    if (!active()) return;
    poller.onReadable(endpoint_.requestFd(), [this] { serveRequests(); });
    poller.onReadable(endpoint_.timerFd(), [this] { serveTimer(); });
    poller.onReadable(pipeFd_, [this] { qelSwpReadPipe(pipeFd_); });
    const long now = nowMs();
    const int64_t next = std::min<int64_t>(life_.nextSyncMs, nextRingDeadline());
    poller.wakeWithin(static_cast<int>(std::max<int64_t>(0, next - now)));
}

void Agent::run() {
    if (!active()) return;
    serveRingTimers();
    confirmBlocks();
    long now = nowMs();
    if (now < life_.nextSyncMs) return;
    syncWithManager();
    life_.nextSyncMs = now + (life_.managerSeen ? kWatchMs : kRetryMs);
}

void Agent::syncWithManager() {
    if (!active()) return;
    bool up = host::endpointAlive(host::queuePath(managerQueue()));
    if (!up) {
        if (life_.managerSeen || handle_ != 0) managerGone();
        return;
    }
    if (handle_ == 0) createQueue();
    if (!life_.managerSeen && (!gate_ || gate_())) sendRegistration();
}

void Agent::managerGone() {
    life_.managerSeen = false;
    life_.registered = false;
    if (handle_ != 0) removeQueue("the manager's request queue is gone");
    say("%s: manager 226.0 went away; it registers again when the manager is back", name().c_str());
}

void Agent::forgetConfiguration() {
    size_t rings = life_.rings.size(), interfaces = life_.interfaces.size();
    for (auto& [id, ring] : life_.rings)
        if (ring.node.running) dropNode(id, ring, "the manager is new");
    life_.rings.clear();
    life_.interfaces.clear();
    life_.debug.clear();
    life_.lcTypes = {};
    life_.download = Download::None;
    if (rings + interfaces > 0)
        say("%s: forgets what the earlier manager configured (%zu rings, %zu interfaces)",
            name().c_str(), rings, interfaces);
}

void Agent::sendRegistration() {
    // A new registration begins a new stream from a new manager: numbering starts afresh
    // and what the earlier manager configured is downloaded again.
    life_.rcvState = {0, 0};
    life_.registered = false;
    forgetConfiguration();

    uint8_t msg[agt::reg::kLen] = {};
    be::Writer w(msg, sizeof(msg));
    writeOrigin(w, agt::kMtRegister, agt::reg::kLen, ipc::kSvcAgent, static_cast<int>(slot_),
                managerQueue());
    const uint32_t cardAddr = ipc::kCardAddrBase + slot_;
    w.u32(agt::reg::kOffSlot, slot_);
    w.u32(agt::reg::kOffValueA, cardAddr);
    w.u32(agt::reg::kOffValueB, endpoint_.requestQueueId());
    w.u32(agt::reg::kOffLcType, kLineCardTypeBase + slot_ % 2);
    // Port pipes are numbered from 1 on every card.
    for (int p = 0; p < agt::reg::kPortPipes; ++p)
        w.u32(agt::reg::kOffPortPipe + 4 * static_cast<size_t>(p), static_cast<uint32_t>(p + 1));
    if (!endpoint_.send(msg, sizeof(msg))) {
        say("%s: the registration could not be sent to 226.0; retrying", name().c_str());
        return;
    }
    life_.managerSeen = true;
    ++life_.counters.registrationsSent;
    say("%s: registering with 226.0 (card address 0x%08x, queue 227.%u)", name().c_str(), cardAddr,
        slot_);
}

void Agent::serveRequests() {
    for (int i = 0; i < kBatch && active(); ++i) {
        int n = endpoint_.receive(buf_);
        if (n < 0) return;
        handle(buf_.data(), static_cast<size_t>(n));
    }
}

void Agent::serveTimer() {
    for (int i = 0; i < kBatch && active(); ++i) {
        int n = endpoint_.receiveTimer(buf_);
        if (n < 0) return;
        MsgHeader h = readHeader(buf_.data(), static_cast<size_t>(n));
        if (h.mtype == swp::kMtTimeout) {
            ++life_.counters.timeoutNotices;
            say("%s: SWP queue to 226.0: no acknowledgement after three time-outs; still "
                "retransmitting",
                name().c_str());
        } else {
            ++life_.counters.unexpected;
            say("%s: message type %u on the timer queue: dropped", name().c_str(), h.mtype);
        }
    }
}

void Agent::handle(uint8_t* msg, size_t len) {
    MsgHeader h = readHeader(msg, len);
    be::Reader rd(msg, len);
    if (h.mtype == agt::kMtRegister) {
        handleRegistrationReply(msg, len);
    } else if (h.mtype == agt::kMtStatsReq) {
        handleStatsRequest(msg, len);
    } else if ((h.mtype == swp::kMtAck || h.mtype == swp::kMtForcedResend) &&
               len < swp::kCtrlMsgLen) {
        malformed("SWP control message type %u of %zu bytes (expected %zu): dropped", h.mtype, len,
                  swp::kCtrlMsgLen);
    } else if (h.mtype == swp::kMtAck) {
        handleAck(msg);
    } else if (h.mtype == swp::kMtForcedResend) {
        handleResend(msg);
    } else if (len >= swp::kCtrlMsgLen && rd.u32(swp::kOffMagic) == swp::kMagic) {
        handleSwpData(msg, len, h.mtype);
    } else {
        ++life_.counters.unexpected;
        say("%s: message type 0x%x (%zu bytes) from %s: not understood, dropped", name().c_str(),
            h.mtype, len, queueName(h.srcQueue).c_str());
    }
}

void Agent::handleRegistrationReply(const uint8_t* msg, size_t len) {
    if (len < agt::regreply::kLen) {
        malformed("registration reply of %zu bytes (expected %zu): dropped", len,
                  agt::regreply::kLen);
        return;
    }
    if (!life_.managerSeen) {
        ++life_.counters.badReplies;
        say("%s: registration reply while no registration is outstanding: ignored", name().c_str());
        return;
    }
    be::Reader rd(msg, len);
    uint32_t slot = rd.u32(agt::regreply::kOffSlot);
    uint32_t a = rd.u32(agt::regreply::kOffValueA);
    uint32_t b = rd.u32(agt::regreply::kOffValueB);
    if (slot != slot_ || a != ipc::kCardAddrBase + slot_ || b != endpoint_.requestQueueId()) {
        ++life_.counters.badReplies;
        say("%s: registration reply for slot %u, card 0x%08x, queue %s is not ours: ignored",
            name().c_str(), slot, a, queueName(b).c_str());
        return;
    }
    life_.registered = true;
    ++life_.counters.registrationsAnswered;
    say("%s: registered with 226.0", name().c_str());
}

void Agent::handleStatsRequest(uint8_t* msg, size_t len) {
    if (len < agt::stats::kLen) {
        malformed("statistics request of %zu bytes (expected %zu): dropped, not answered", len,
                  agt::stats::kLen);
        return;
    }
    be::Reader rd(msg, len);
    uint32_t ringId = rd.u32(agt::stats::kOffRingId);
    Stats stats{};
    auto it =
        ringId <= 0xFFFF ? life_.rings.find(static_cast<uint16_t>(ringId)) : life_.rings.end();
    if (it != life_.rings.end()) stats = it->second.stats;
    be::Writer w(msg, len);
    for (size_t i = 0; i < stats.size(); ++i) w.u32(agt::stats::kOffCounters + 4 * i, stats[i]);
    if (!endpoint_.reply(msg, len)) {
        say("%s: statistics of ring %u: the answer could not be sent", name().c_str(), ringId);
        return;
    }
    ++life_.counters.statsAnswered;
    say("%s: statistics of ring %u answered%s", name().c_str(), ringId,
        it == life_.rings.end() ? " (an unknown ring: all zero)" : "");
}

void Agent::handleSwpData(const uint8_t* msg, size_t len, uint32_t mtype) {
    be::Reader rd(msg, len);
    uint32_t seq = rd.u32(swp::kOffSeq);
    int rc = qelSwpCkSeqAndAck(msg, life_.rcvState.data(), endpoint_.requestFd());
    if (rc == swp::kCkDuplicate) {
        ++life_.counters.swpDuplicates;
        say("%s: %s, SWP seq %u: duplicate, acknowledged again", name().c_str(),
            agentMessageName(mtype).c_str(), seq);
        return;
    }
    if (rc == swp::kCkGap) {
        ++life_.counters.swpGaps;
        say("%s: %s, SWP seq %u: out of order, resend asked from %u", name().c_str(),
            agentMessageName(mtype).c_str(), seq, life_.rcvState[0]);
        return;
    }
    if (rc != swp::kCkAccepted) {
        ++life_.counters.unexpected;
        say("%s: type 0x%x: not a valid SWP message, dropped", name().c_str(), mtype);
        return;
    }
    ++life_.counters.swpAccepted;
    ++life_.received[mtype];
    life_.recent.push_back(mtype);
    if (life_.recent.size() > kRecentTypes) life_.recent.pop_front();
    apply(mtype, rd);
    sendPendingReports();
}

void Agent::malformed(const char* fmt, ...) {
    char text[512];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(text, sizeof(text), fmt, ap);
    va_end(ap);
    ++life_.counters.malformed;
    say("%s: %s", name().c_str(), text);
}

}  // namespace vorn::sim
