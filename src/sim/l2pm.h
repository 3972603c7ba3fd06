// The simulated layer-2 protocol manager (service 166, instance 0).
//
// It answers the manager's registration and port-ownership requests, acknowledges the
// messages the manager sends it over SWP (counting them by type and keeping the forwarding
// state they describe, l2pm_model.h), and owns the one SWP sender queue to the manager
// (226.0) that carries both the IFM notifications (10908) and its own notifications (18402):
// the two kinds share one sequence space, as the manager keeps one receive state for both.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "sim/endpoint.h"
#include "sim/l2pm_model.h"
#include "sim/loop.h"

namespace vorn::sim {

class L2pm : public Source {
public:
    static constexpr uint32_t kAccepted = 0;
    static constexpr uint32_t kRefused = 1;

    // The two kinds of notification that travel on the queue to the manager.
    enum class Notif : uint32_t { Ifm = MT_IFM_NOTIF_MSG, L2pm = MT_L2PM_NOTIF };

    struct Counters {
        uint64_t registered = 0;     // registrations and deregistrations answered 0
        uint64_t refused = 0;        // answered 1
        uint64_t malformed = 0;      // dropped unanswered
        uint64_t unexpected = 0;     // neither registration, SWP data nor SWP control
        uint64_t swpDuplicates = 0;  // SWP data seen before (acknowledged again)
        uint64_t swpGaps = 0;        // SWP data out of order (resend requested)
        uint64_t notifSent = 0;      // notifications handed to the queue
        uint64_t notifAcked = 0;     // ... and acknowledged by the manager
        uint64_t resendRequests = 0;
        uint64_t timeoutNotices = 0;
    };

    L2pm();
    ~L2pm() override;
    L2pm(const L2pm&) = delete;
    L2pm& operator=(const L2pm&) = delete;

    // Present: the endpoint is open. Going absent also removes the queue to the manager.
    bool open(std::string* err);
    void close();
    bool present() const { return endpoint_.isOpen(); }
    void setRefusing(bool on) { refusing_ = on; }
    bool refusing() const { return refusing_; }

    // Sends a notification to the manager over the queue. `body` is what follows the SWP
    // header (it starts at byte 124 of the message). False, with the reason in *err, when
    // there is no queue (no manager) or the body does not fit one message.
    bool sendNotification(Notif kind, std::span<const uint8_t> body, std::string* err);

    // Called after an accepted registration has been answered: the manager is new and
    // waits for the configuration download.
    void setOnRegistered(std::function<void()> fn) { onRegistered_ = std::move(fn); }
    // Starts a configuration download: makes sure the queue to the manager exists and
    // flushes what it still holds for an earlier manager (the download supersedes it).
    // False, with the reason in *err, when there is no queue.
    bool beginDownload(std::string* err);
    // Marks the download sent: it is pending until the manager has acknowledged the
    // notifications sent since beginDownload().
    void endDownload(uint64_t notifications);
    bool downloadPending() const {
        return downloadActive_ && counters_.notifAcked < downloadAckTarget_;
    }
    // The manager whose request queue is there has registered (and not deregistered): it
    // has reached the end of its start-up and serves its request queue.
    bool managerRegistered() const { return managerRegistered_; }

    // Creates the queue when the manager's request queue has appeared and removes it when
    // the manager has gone. Done on a throttle by run(); callable at any time.
    void syncWithManager();
    uint32_t queueHandle() const { return handle_; }

    const Counters& counters() const { return counters_; }
    // SWP data accepted from the manager, by message type.
    const std::map<uint32_t, uint64_t>& received() const { return received_; }
    // The forwarding state the manager's messages describe, and the port ownership.
    const ForwardingModel& model() const { return model_; }
    ForwardingModel& model() { return model_; }
    std::string statusLine() const;

    void wait(Poller& poller) override;
    void run() override;

private:
    void serveRequests();
    void serveTimer();
    void handle(uint8_t* msg, size_t len);
    void handleRegistration(uint8_t* msg, size_t len, uint32_t source);
    // Answers a port-ownership request in place: the port list of the answer names the
    // ports that were not granted.
    void handleOwnership(uint8_t* msg, size_t len, uint32_t source);
    void handleSwpData(const uint8_t* msg, size_t len, uint32_t mtype);
    // Both take a message already known to hold a whole SWP control message (124 bytes).
    void handleAck(const uint8_t* msg);
    void handleResend(const uint8_t* msg);
    void createQueue();
    void removeQueue(const char* why);

    Endpoint endpoint_;
    int pipeFd_ = -1;
    uint32_t handle_ = 0;                 // 0: no queue to the manager
    std::array<uint32_t, 2> rcvState_{};  // receive state of the manager's SWP messages
    bool refusing_ = false;
    bool managerRegistered_ = false;
    std::function<void()> onRegistered_;
    bool downloadActive_ = false;
    uint64_t downloadAckTarget_ = 0;  // notifAcked once the download is acknowledged
    long lastSyncMs_ = -1;
    std::vector<uint8_t> buf_;
    Counters counters_;
    std::map<uint32_t, uint64_t> received_;
    ForwardingModel model_;
};

}  // namespace vorn::sim
