#include "sim/evh.h"

#include <cstdio>

#include "platform/evtlog.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {

constexpr int kBatch = 32;

std::string plural(uint32_t n, const char* word) {
    return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

}  // namespace

std::string eventName(uint32_t eventId) {
    switch (eventId) {
        case CHMGR_CARD_UP:
            return "CHMGR_CARD_UP";
        case CHMGR_CARD_DOWN:
            return "CHMGR_CARD_DOWN";
        case CHMGR_CARD_SHUTDOWN:
            return "CHMGR_CARD_SHUTDOWN";
        case MLAGMGR_PEER_STATUS_NOTIFY:
            return "MLAGMGR_PEER_STATUS_NOTIFY";
        default:
            break;
    }
    char text[16];
    std::snprintf(text, sizeof(text), "0x%06x", eventId);
    return text;
}

void EventHandler::wait(Poller& poller) {
    poller.onReadable(endpoint_.requestFd(), [this] { serve(); });
}

void EventHandler::serve() {
    for (int i = 0; i < kBatch; ++i) {
        int n = endpoint_.receive(buf_);
        if (n < 0) return;
        handle(buf_.data(), static_cast<size_t>(n));
    }
}

void EventHandler::handle(uint8_t* msg, size_t len) {
    MsgHeader h = readHeader(msg, len);
    if (h.mtype == evt::kMtEvhSubscribe) {
        handleSubscription(msg, len, h.srcQueue);
        return;
    }
    ++counters_.unexpected;
    say("evh: message type %u from %s: not for the event handler, dropped", h.mtype,
        queueName(h.srcQueue).c_str());
}

void EventHandler::handleSubscription(uint8_t* msg, size_t len, uint32_t source) {
    be::Reader rd(msg, len);
    uint32_t op = rd.u32(evt::kOffSubOperation);
    uint32_t count = rd.u32(evt::kOffSubCount);
    // Everything the answer depends on is checked before anything is remembered.
    if (!rd.ok() || (op != evt::kEvhSubscribe && op != evt::kEvhUnsubscribe) ||
        count > evt::kMaxSubIds || !rd.fits(evt::kOffSubIds, 4 * size_t{count})) {
        ++counters_.malformed;
        say("evh: malformed subscription from %s (%zu bytes, operation %u, count %u): dropped",
            queueName(source).c_str(), len, op, count);
        return;
    }
    const char* what = op == evt::kEvhSubscribe ? "subscription" : "unsubscription";
    std::string head =
        std::string(what) + " from " + queueName(source) + " for " + plural(count, "event");
    uint32_t result = kAccepted;
    const char* why = "";
    if (refusing_) {
        result = kRefused;
        why = " (refusing, as told)";
    } else if (source == 0) {
        result = kRefused;
        why = " (no source queue to send events to)";
    }
    if (result == kAccepted) {
        std::set<uint32_t>& ids = subscribers_[source];
        for (uint32_t i = 0; i < count; ++i) {
            uint32_t id = rd.u32(evt::kOffSubIds + 4 * size_t{i});
            if (op == evt::kEvhSubscribe)
                ids.insert(id);
            else
                ids.erase(id);
        }
        if (ids.empty()) subscribers_.erase(source);
        ++counters_.accepted;
    } else {
        ++counters_.refused;
    }
    be::Writer(msg, len).u32(evt::kOffSubResult, result);
    if (!endpoint_.reply(msg, len)) {
        say("evh: %s: the answer could not be sent", head.c_str());
        return;
    }
    say("evh: %s: %s%s", head.c_str(), result == kAccepted ? "accepted" : "refused", why);
}

int EventHandler::sendEvent(uint32_t eventId, uint32_t slot, std::span<const uint32_t> data) {
    int reached = 0;
    const size_t len = evt::kEventLen + 4 * data.size();
    for (const auto& [queue, ids] : subscribers_) {
        if (ids.count(eventId) == 0) continue;
        std::vector<uint8_t> msg(len, 0);
        be::Writer w(msg.data(), msg.size());
        writeOrigin(w, evt::kMtEvhEventNotif, static_cast<uint32_t>(len), 30, 0, queue);
        w.u32(evt::kOffEventId, eventId);
        w.u32(evt::kOffEventSlot, slot);
        for (size_t i = 0; i < data.size(); ++i) w.u32(evt::kEventLen + 4 * i, data[i]);
        if (endpoint_.send(msg.data(), msg.size())) {
            ++counters_.eventsSent;
            ++reached;
            say("evh: %s slot %u sent to %s", eventName(eventId).c_str(), slot,
                queueName(queue).c_str());
        } else {
            ++counters_.sendFailures;
            say("evh: %s slot %u to %s: send failed (is the subscriber gone?)",
                eventName(eventId).c_str(), slot, queueName(queue).c_str());
        }
    }
    return reached;
}

std::string EventHandler::statusLine() const {
    std::string s = "evh 30.0: ";
    s += present() ? (refusing_ ? "present, refusing" : "present, accepting") : "absent";
    s += "; subscribers:";
    if (subscribers_.empty()) s += " none";
    for (const auto& [queue, ids] : subscribers_)
        s += " " + queueName(queue) + " (" + plural(static_cast<uint32_t>(ids.size()), "event") +
             ")";
    s += "; answered " + std::to_string(counters_.accepted) + " accepted, " +
         std::to_string(counters_.refused) + " refused; events sent " +
         std::to_string(counters_.eventsSent);
    return s;
}

}  // namespace vorn::sim
