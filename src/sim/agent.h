// A simulated line-card agent (service 227, instance = its slot): one per card that is up.
//
// The agent registers with the manager (226.0) once the manager's request queue is there,
// and again whenever the manager goes away and comes back. It acknowledges every SWP
// message the manager sends it and keeps what the accepted ones say: the interfaces and
// their link state, the ring configuration, the line-card types. It answers the ring
// statistics request in place. For every ring the manager designates it for, it runs the
// ring protocol's node (sim/ring_protocol.h): it feeds it the links of the ring's two
// interfaces, the control frames arriving on them and its timers, sends the frames it
// decides through the frame sender the chassis gives it, and reports every change of port
// states and every flush (message 0x6404) over its own SWP queue to the manager.
//
// The files: agent.cc (life, registration, intake, statistics), agent_swp.cc (the queue
// to the manager and the reports), agent_config.cc (the downloads and notification copies),
// agent_ring.cc (the ring nodes and their frames), agent_show.cc (the operator's text and
// JSON).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/codec.h"
#include "sim/commands.h"
#include "sim/endpoint.h"
#include "sim/loop.h"
#include "sim/ring_protocol.h"
#include "wire/agent.h"

namespace vorn::sim {

class Agent : public Source {
public:
    // How many of the last accepted message types the agent keeps in order.
    static constexpr size_t kRecentTypes = 64;

    // The per-ring counters, in the order the statistics answer carries them (bytes 64..87);
    // vornctl names them from the same list (agt::stats::kCounterNames).
    enum Stat : size_t {
        kStatConfigRecords = agt::stats::kConfigRecords,
        kStatLinkDown = agt::stats::kLinkDown,
        kStatLinkUp = agt::stats::kLinkUp,
        kStatRingBroken = agt::stats::kRingBreaks,
        kStatRecords = agt::stats::kStateReports,
        kStatFlushes = agt::stats::kFlushes,
        kStatCount = agt::stats::kCounters
    };
    using Stats = std::array<uint32_t, kStatCount>;

    // A debug setting of a ring, as the manager's debug download (0x6406) left it; one per
    // debug index (event; detail Rx and Tx, Rx, Tx; packet Rx and Tx, Rx, Tx).
    struct DebugSetting {
        bool on = false;
        uint32_t type = 0;   // agt::dbg::kType*
        uint32_t mode = 0;   // agt::dbg::kMode*
        uint32_t count = 0;  // events to print, 0 = no limit
    };
    using RingDebug = std::array<DebugSetting, agt::dbg::kEntries>;

    // What the agent knows of one interface: from the interface download and from the IFM
    // notification copies.
    struct Interface {
        bool operUp = false;
        uint32_t lagIf = 0;         // the port's LAG, 0 when none
        bool vlansPresent = false;  // the download carried a VLAN bitmap for it
    };

    // The intervals of a ring whose records do not carry them: the manager leaves the
    // default values out.
    static constexpr uint16_t kDefaultHelloMs = 500;
    static constexpr uint16_t kDefaultDeadMs = 1500;

    // The last configuration values of one ring, as the records left them.
    struct RingConfig {
        uint16_t action = 0;                // of the last record: agt::rcfg::kAction*
        uint32_t ringAction = 0;            // of the last record: agt::rcfg::kRing*
        uint32_t flags = 0;                 // of the last record: agt::rcfg::kFlag*
        uint16_t desgAgent = agt::kNoSlot;  // the slot that runs the ring
        uint16_t ctrlVlan = 0;
        uint32_t primary = 0;                    // ifIndex
        uint32_t secondary = 0;                  // ifIndex
        std::array<uint8_t, 512> memberVlans{};  // VLAN bitmap, wire order
        uint16_t hello = kDefaultHelloMs;        // milliseconds
        uint16_t dead = kDefaultDeadMs;          // milliseconds
        uint8_t mode = 0;                        // agt::rcfg::kModeMaster or kModeTransit
    };

    // The ring node of a ring designated here: the values it was started with, its protocol
    // node, and the port states it last reported.
    struct Node {
        bool running = false;
        uint8_t mode = 0;
        uint32_t primary = 0;
        uint32_t secondary = 0;
        uint16_t ctrlVlan = 0;
        uint16_t hello = 0;
        uint16_t dead = 0;
        std::optional<ringproto::RingNode> proto;  // while running
        uint32_t priState = agt::kStateDisabled;
        uint32_t secState = agt::kStateDisabled;
    };

    struct Ring {
        RingConfig cfg;
        Node node;
        Stats stats{};
    };

    // One port-state record of a report, before it is written.
    struct Report {
        uint16_t ringId = 0;
        bool priFlush = false;
        bool secFlush = false;
        uint16_t priPort = 0;
        uint16_t secPort = 0;
        uint32_t priState = agt::kStateNone;
        uint32_t secState = agt::kStateNone;
    };

    struct Counters {
        uint64_t registrationsSent = 0;
        uint64_t registrationsAnswered = 0;  // replies that echo this agent
        uint64_t badReplies = 0;             // replies that do not: ignored
        uint64_t swpAccepted = 0;            // SWP messages accepted and applied
        uint64_t swpDuplicates = 0;          // seen before: acknowledged again, not applied
        uint64_t swpGaps = 0;                // out of order: resend asked, not applied
        uint64_t malformed = 0;              // messages and records dropped as unreadable
        uint64_t unexpected = 0;             // message types an agent does not take
        uint64_t statsAnswered = 0;
        uint64_t reportsSent = 0;   // 0x6404 messages queued to the manager
        uint64_t reportsAcked = 0;  // ... and acknowledged
        uint64_t recordsLost = 0;   // records that had no queue to go on
        uint64_t resendRequests = 0;
        uint64_t timeoutNotices = 0;
        uint64_t framesSent = 0;       // ring control frames the frame sender took
        uint64_t framesUnsent = 0;     // ... that it refused, or with no sender to take them
        uint64_t framesReceived = 0;   // control frames taken by a running ring
        uint64_t linkDownDropped = 0;  // LINK_DOWN frames dropped on purpose (drop-link-down)
    };

    // Sends a frame out of a physical port; false when it could not go (no cable, cut).
    using FrameSender = std::function<bool(uint32_t ifIndex, std::span<const uint8_t> frame)>;

    // What the configuration downloads have got to.
    enum class Download { None, Running, Complete };

    explicit Agent(uint32_t slot);
    ~Agent() override;
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    // Opens the agent's queues with a fresh state (a running agent is silenced first and
    // forgets everything) and registers as soon as the manager is there. False, with the
    // reason in *err, when the queues cannot be opened.
    bool start(std::string* err);
    // Closes the queues and the SWP queue to the manager: the agent answers nothing more.
    void silence();
    bool active() const { return endpoint_.isOpen(); }

    uint32_t slot() const { return slot_; }
    // The registration went out and no answer has come yet.
    bool registering() const { return life_.managerSeen && !life_.registered; }
    bool registered() const { return life_.registered; }
    // Receive state of the manager's SWP messages: next expected sequence number, epoch.
    const std::array<uint32_t, 2>& rcvState() const { return life_.rcvState; }
    uint32_t queueHandle() const { return handle_; }
    const Counters& counters() const { return life_.counters; }
    // Accepted SWP messages by type, and the last kRecentTypes types in order.
    const std::map<uint32_t, uint64_t>& received() const { return life_.received; }
    const std::deque<uint32_t>& recentTypes() const { return life_.recent; }
    const std::map<uint32_t, Interface>& interfaces() const { return life_.interfaces; }
    const std::map<uint16_t, Ring>& rings() const { return life_.rings; }
    const std::array<uint32_t, agt::kSlots>& lineCardTypes() const { return life_.lcTypes; }
    // The rings with a debug setting on.
    const std::map<uint16_t, RingDebug>& debugging() const { return life_.debug; }
    Download download() const { return life_.download; }

    // Looks whether the manager came or went: registers with a manager whose request queue
    // has appeared, and forgets one whose queue is gone. Done on a throttle by run();
    // callable at any time.
    void syncWithManager();
    // With a gate, the agent registers only while it also holds. The chassis uses it to wait
    // until the manager serves its request queue: a registration that arrives during the
    // manager's start-up would wait at the head of that queue, ahead of the shell requests
    // the host library answers meanwhile.
    void setRegistrationGate(std::function<bool()> gate) { gate_ = std::move(gate); }

    // Where the ring nodes' frames go out. Without one, they are counted unsent: a ring whose
    // ports are joined by nothing hears nothing back.
    void setFrameSender(FrameSender sender) { sender_ = std::move(sender); }
    // Whether the forwarding plane blocks every VLAN of a bitmap (wire order) on a port or
    // LAG. A master announces its secondary blocked only once this says so; without a check,
    // at once.
    using BlockCheck = std::function<bool(uint32_t ifIndex, const std::array<uint8_t, 512>& vlans)>;
    void setBlockCheck(BlockCheck check) { blockCheck_ = std::move(check); }
    // A frame that arrived on a physical port. True when it is a control frame a ring running
    // here took (the port or its LAG is one of the ring's interfaces); false for anything
    // else, which is left to others.
    bool onFrame(uint32_t ifIndex, std::span<const uint8_t> frame);
    // The id this agent's nodes put in their frames; it tells a master its own health frames.
    // Every chassis of a ring needs its own (the default: the process id).
    void setSwitchId(uint32_t id) { switchId_ = id; }
    uint32_t switchId() const { return switchId_; }
    // The count that numbers the frames its nodes originate (ringproto::Config::frameCount):
    // the chassis', shared by all its agents; it must outlive the agent. Without one, each
    // node counts its own.
    void setFrameCount(uint32_t* count) { frameCount_ = count; }
    // A faulty switch for the lab: drops every LINK_DOWN frame its nodes would send or pass
    // on and every one arriving here, so that a master on it, or beyond it, learns of a cut
    // link only from its health frames no longer coming back.
    void setDropLinkDown(bool on) { dropLinkDown_ = on; }
    bool dropLinkDown() const { return dropLinkDown_; }

    // The operator's text (agent_show.cc): everything, and one line for the status; and the
    // same facts as one JSON object.
    std::string describe() const;
    Json toJson() const;
    std::string statusLine() const;

    void wait(Poller& poller) override;
    void run() override;

private:
    // Everything one life of the agent holds; start() begins a new one.
    struct Life {
        bool managerSeen = false;  // its request queue was there at the last look
        bool registered = false;
        std::array<uint32_t, 2> rcvState{};
        Counters counters;
        std::map<uint32_t, uint64_t> received;
        std::deque<uint32_t> recent;
        std::map<uint32_t, Interface> interfaces;
        std::map<uint16_t, Ring> rings;
        std::map<uint16_t, RingDebug> debug;
        std::array<uint32_t, agt::kSlots> lcTypes{};
        Download download = Download::None;
        std::vector<Report> pending;  // records of the message being applied
        long nextSyncMs = 0;
    };

    // agent.cc
    void serveRequests();
    void serveTimer();
    void handle(uint8_t* msg, size_t len);
    void sendRegistration();
    void handleRegistrationReply(const uint8_t* msg, size_t len);
    void handleStatsRequest(uint8_t* msg, size_t len);
    void handleSwpData(const uint8_t* msg, size_t len, uint32_t mtype);
    void managerGone();
    // Forgets what the manager configured (rings stop without a report).
    void forgetConfiguration();

    // agent_swp.cc
    void createQueue();
    void removeQueue(const char* why);
    // Both take a message already known to hold a whole SWP control message (124 bytes).
    void handleAck(const uint8_t* msg);
    void handleResend(const uint8_t* msg);
    // Sends the records collected while applying one message, all in one report.
    void sendPendingReports();

    // agent_config.cc: applying an accepted message. `rd` covers the whole message.
    void apply(uint32_t mtype, const be::Reader& rd);
    void applyInterfaceInfo(const be::Reader& rd);
    void applyRingConfig(const be::Reader& rd);
    void applyIfmCopy(const be::Reader& rd);
    void applyLineCardTypes(const be::Reader& rd);
    void applyClearStats(const be::Reader& rd);
    void applyDebugSettings(const be::Reader& rd);
    // Stores an interface's link state; a change on a ring interface moves its rings.
    void setLink(uint32_t ifIndex, bool up, const char* source);
    void malformed(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

    // agent_ring.cc
    void applyRingRecord(const be::Reader& rec);
    // A link of a ring interface changed: every running ring on it tells its node.
    // `source` names where the news came from, for the log.
    void onLinkChange(uint32_t ifIndex, bool up, const char* source);
    // Gives the node one input and carries out what it decides: frames go out, port states
    // and flushes become one record (always one when `report` is set). `what` is for the log.
    void drive(uint16_t ringId, Ring& ring, bool report, const std::string& what,
               const std::function<ringproto::Actions(ringproto::RingNode&, int64_t)>& input);
    void sendFrame(const Node& n, ringproto::Side side, const ringproto::Frame& f);
    // The ring interface a physical port belongs to: its LAG, or the port itself.
    uint32_t ringInterfaceOf(uint32_t ifIndex) const;
    // The physical port a frame for a ring interface goes out of: a LAG's first member whose
    // link is up, or the port itself; 0 when there is none.
    uint32_t egressPort(uint32_t ringIf) const;
    // The ring nodes' timers: the earliest deadline, and serving those reached.
    int64_t nextRingDeadline() const;
    void serveRingTimers();
    // Tells each master waiting for its secondary's block whether it holds now.
    void confirmBlocks();
    // Builds the node from the configuration and starts it on the links as they are.
    void startNode(uint16_t ringId, Ring& ring, bool restart);
    void stopNode(uint16_t ringId, Ring& ring);
    // Stops without a report: the ring is deleted here or designated elsewhere.
    void dropNode(uint16_t ringId, Ring& ring, const std::string& why);
    // Takes over changed values of a running ring (ring action "none").
    void updateNode(uint16_t ringId, Ring& ring);
    // The link state the node uses: an interface the manager never described counts as up.
    bool linkUp(uint32_t ifIndex) const;
    // Queues a record of the node's current states for the report of this message.
    void report(uint16_t ringId, Ring& ring, bool priFlush, bool secFlush);

    std::string name() const;  // "agent 1"

    uint32_t slot_;
    Endpoint endpoint_;
    int pipeFd_ = -1;
    uint32_t handle_ = 0;  // 0: no SWP queue to the manager
    std::function<bool()> gate_;
    BlockCheck blockCheck_;
    FrameSender sender_;
    uint32_t switchId_;
    uint32_t* frameCount_ = nullptr;
    bool dropLinkDown_ = false;
    std::vector<uint8_t> buf_;
    Life life_;
};

// Port number of a ring interface as agent records carry it: a physical port's
// slot x 64 + port + 129, a LAG's number, 0 for anything else.
uint16_t agentPortNumber(uint32_t ifIndex);
// "DISABLED", "PRE-FORW", "FORW", "BLOCKING", "NONE", or the code.
std::string portStateName(uint32_t state);
// "ring configuration", "START_CFG", ...: a message type the agent takes.
std::string agentMessageName(uint32_t mtype);

}  // namespace vorn::sim
