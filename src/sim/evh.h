// The simulated event handler (service 30, instance 0): it answers the subscriptions of the
// manager, remembers who follows which events, and sends the chassis-manager card events and
// the peer-status event when the operator asks for them.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "sim/endpoint.h"
#include "sim/loop.h"
#include "wire/msgtypes.h"

namespace vorn::sim {

// "CHMGR_CARD_UP", ..., "MLAGMGR_PEER_STATUS_NOTIFY", or the id in hex.
std::string eventName(uint32_t eventId);

class EventHandler : public Source {
public:
    // Answer words of a subscription.
    static constexpr uint32_t kAccepted = 0;
    static constexpr uint32_t kRefused = 1;

    struct Counters {
        uint64_t accepted = 0;    // subscriptions and unsubscriptions answered 0
        uint64_t refused = 0;     // answered 1
        uint64_t malformed = 0;   // dropped unanswered
        uint64_t unexpected = 0;  // other message types, dropped
        uint64_t eventsSent = 0;
        uint64_t sendFailures = 0;  // a subscriber's queue could not be reached
    };
    // Subscriber request queue id -> the event ids it follows.
    using Subscribers = std::map<uint32_t, std::set<uint32_t>>;

    EventHandler() : endpoint_(ipc::kSvcEventHandler, 0), buf_(ipc::kMaxMsgLen) {}

    // Present: the endpoint is open and answers. Absent: it is closed, so subscriptions
    // find nobody. The subscribers are kept across an absence.
    bool open(std::string* err) { return endpoint_.open(err); }
    void close() { endpoint_.close(); }
    bool present() const { return endpoint_.isOpen(); }
    // While refusing, every subscription is answered 1 and nothing is remembered.
    void setRefusing(bool on) { refusing_ = on; }
    bool refusing() const { return refusing_; }

    // Sends the event to every subscriber that follows it, with the data words after the
    // slot word (none for the card events). Returns how many it reached.
    int sendEvent(uint32_t eventId, uint32_t slot, std::span<const uint32_t> data = {});

    const Counters& counters() const { return counters_; }
    const Subscribers& subscribers() const { return subscribers_; }
    // One status line for the operator.
    std::string statusLine() const;

    void wait(Poller& poller) override;

private:
    void serve();
    void handle(uint8_t* msg, size_t len);
    void handleSubscription(uint8_t* msg, size_t len, uint32_t source);

    Endpoint endpoint_;
    std::vector<uint8_t> buf_;
    bool refusing_ = false;
    Subscribers subscribers_;
    Counters counters_;
};

}  // namespace vorn::sim
