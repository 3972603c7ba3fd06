// The peers of a manager under measurement, played in the benchmark's own process over the
// host platform library: L2PM (166.0), the event handler (30.0), IFM (138.0), a command-line
// client (40.1) and one line-card agent (227.SLOT). They answer what the manager asks in
// place, acknowledge its SWP messages, and send it what a chassis would: notifications over
// L2PM's SWP queue, configuration requests, an agent's registration and reports. Also the
// manager itself, as a vornd child process pinned to one CPU.
//
// Everything runs on the caller's thread: serveUntil() polls every endpoint and handles what
// arrives, so a test waits for the manager while still answering it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli/request.h"
#include "platform/ipc.h"

namespace vorn::bench {

using Clock = std::chrono::steady_clock;

// Pins the calling process (pid 0) or another one to a single CPU. False on failure.
bool pinToCpu(pid_t pid, int cpu);
// The highest-numbered CPU this process may run on (the one least likely to carry the
// machine's interrupts), or -1.
int lastAllowedCpu();

// CPU time a process (all its threads) has used so far, in microseconds; 0 when unknown.
double cpuUs(pid_t pid);

// vornd as a child process.
class ManagerChild {
public:
    ManagerChild() = default;
    ~ManagerChild() { stop(); }
    ManagerChild(const ManagerChild&) = delete;
    ManagerChild& operator=(const ManagerChild&) = delete;

    // Starts `path --rundir DIR --cards CARDS` with its output in `outPath`, pinned to `cpu`
    // before it runs anything. False, with the reason in *err, when it cannot be started.
    bool start(const std::string& path, const std::string& rundir, const std::string& cards,
               int cpu, const std::string& outPath, std::string* err);
    // SIGTERM, up to two seconds for the clean exit, then SIGKILL.
    void stop();
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
};

// What the agent saw of the manager's messages since the last clear().
struct AgentLog {
    std::map<uint32_t, uint32_t> swpByType;  // accepted SWP messages, by message type
    uint32_t regReplies = 0;
    uint32_t statsRequests = 0;
    uint32_t duplicates = 0;                         // SWP messages seen twice (acknowledged again)
    uint32_t gaps = 0;                               // out of order (resend requested)
    uint32_t ifRecords = 0;                          // interface records of the 0x6403 messages
    uint32_t ringRecords = 0;                        // ring records of the 0x6402 messages
    uint32_t ringsStarted = 0;                       // ... whose ring action is start
    uint64_t bytes = 0;                              // bytes of the accepted SWP messages
    std::optional<Clock::time_point> endCfgAckedAt;  // END_CFG arrived and acknowledged
    std::map<uint32_t, uint32_t> atEndCfg;           // swpByType at that moment
    uint64_t bytesAtEndCfg = 0;                      // bytes at that moment
    void clear() { *this = AgentLog{}; }
    // The SWP messages that came after END_CFG, by type.
    std::map<uint32_t, uint32_t> afterEndCfg() const {
        std::map<uint32_t, uint32_t> after;
        for (const auto& [mtype, n] : swpByType) {
            auto it = atEndCfg.find(mtype);
            uint32_t before = it == atEndCfg.end() ? 0 : it->second;
            if (n > before) after[mtype] = n - before;
        }
        return after;
    }
};

// What L2PM saw: accepted SWP messages from the manager by type, and the rest.
struct L2pmLog {
    bool registered = false;
    uint32_t ownershipRequests = 0;
    std::map<uint32_t, uint64_t> swpByType;
    uint64_t duplicates = 0;
    uint64_t gaps = 0;
};

class Peers {
public:
    // `pipeFd` is the SWP pipe that the peers' sender queues use (one per process).
    Peers(int agentSlot, int pipeFd);
    ~Peers();
    Peers(const Peers&) = delete;
    Peers& operator=(const Peers&) = delete;

    // Opens every endpoint in the current run directory. False, with the reason in *err.
    bool open(std::string* err);
    // Messages no peer expected (of a type it does not serve, or malformed), and SWP time-out
    // notices of the peers' own queues.
    uint64_t unexpected() const { return unexpected_; }

    // Serves every endpoint until done() holds or `limit` has passed; returns done().
    bool serveUntil(const std::function<bool()>& done, Clock::duration limit);
    // Serves every endpoint for `d`.
    void serveFor(Clock::duration d);

    // ---- L2PM ----
    const L2pmLog& l2pm() const { return l2pm_; }
    // Creates L2PM's SWP queue to the manager once the manager's request queue exists.
    bool queueToManager();
    // Sends a notification (10908 or 18402) whose body starts at byte 124 over that queue.
    bool notify(uint32_t mtype, const std::vector<uint8_t>& body);
    // Notifications not yet acknowledged by the manager.
    uint32_t notificationsInFlight() const;
    // Reads only L2PM's request queue, handling each message, until a port-state message
    // (18407) has been accepted; returns when it was read, or nothing after `limit`.
    std::optional<Clock::time_point> awaitPortState(Clock::duration limit);

    // ---- command line ----
    // Sends one configuration request and serves until the manager answers. Returns the
    // answer's status, or nothing when there was no answer within two seconds.
    std::optional<uint32_t> configure(const cli::nm::ConfigRequest& req);

    // ---- agent ----
    AgentLog& agent() { return agent_; }
    // Sends the agent's registration (0x6401) from its request queue.
    bool registerAgent();
    // Creates the agent's SWP queue to the manager (once).
    bool agentQueue();
    // A report message (0x6404) of one record for `ringId`: the primary port's number and
    // state, no secondary half. `noSyslog` asks the manager not to log the change.
    std::vector<uint8_t> report(uint16_t ringId, uint16_t priPort, uint32_t priState,
                                bool noSyslog) const;
    // Sends a whole message (headers included) over the agent's queue; *sentAt is when the
    // enqueue began (the message already copied into the buffer the queue takes).
    bool sendReport(const std::vector<uint8_t>& msg, Clock::time_point* sentAt);
    uint32_t reportsInFlight() const;

private:
    struct Endpoint {
        QelKey key = -1;
        int req = -1;
        int tmr = -1;
    };
    bool openOne(int service, int instance, Endpoint* ep, std::string* err);
    void pollOnce(Clock::duration wait);
    void drain(int fd, void (Peers::*handler)(uint8_t*, size_t, int));
    // Handle one message each; `fd` is the queue it was read from (the answer leaves there).
    void onL2pm(uint8_t* msg, size_t len, int fd);
    void onEvh(uint8_t* msg, size_t len, int fd);
    void onIfm(uint8_t* msg, size_t len, int fd);
    void onCli(uint8_t* msg, size_t len, int fd);
    void onAgent(uint8_t* msg, size_t len, int fd);
    void onTimer(uint8_t* msg, size_t len, int fd);
    void agentSwpData(const uint8_t* msg, size_t len, int fd);

    int slot_;
    int pipeFd_;
    Endpoint l2pmEp_, evhEp_, ifmEp_, cliEp_, agentEp_;
    uint32_t l2pmQueue_ = 0;   // L2PM's SWP queue to the manager
    uint32_t agentQueue_ = 0;  // the agent's SWP queue to the manager
    uint32_t l2pmRcv_[2] = {0, 0};
    uint32_t agentRcv_[2] = {0, 0};
    uint32_t xid_ = 0;
    std::map<uint32_t, uint32_t> cliAnswers_;  // exchange id -> status
    L2pmLog l2pm_;
    AgentLog agent_;
    bool lastWasPortState_ = false;
    uint64_t unexpected_ = 0;
    std::vector<uint8_t> buf_;
};

}  // namespace vorn::bench
