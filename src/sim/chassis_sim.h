// The simulated chassis: the peers of the manager (event handler, L2PM, IFM), the control
// endpoint, the chassis model (cards, ports, VLANs, LAGs), and the manager itself as a child
// process, all served by one event loop. Every change of the model reaches the manager as
// IFM notifications; a manager that registers with L2PM gets the whole model as L2PM's
// configuration download. Every card that is up has a line-card agent (sim/agent.h); a card
// that goes down or is shut down silences its agent, and a card that comes up starts a fresh
// one. When it starts a manager and the run directory holds a startup configuration, it
// replays that file through vornctl once the manager has its interfaces. Its end of the
// inter-chassis link (sim/peer_link.h) takes the manager's peer-pair PDUs and, paired with
// another chassis, carries them across. Its cables (sim/cables.h) join its ports to ports of
// other chassis; a cabled port's link follows its cable. The agents' ring frames go out over
// the cables, and a frame a cable brings is offered to the agents: the one running a ring on
// that port (or its LAG) takes it, whichever slot it is in.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>

#include "sim/agent.h"
#include "sim/cables.h"
#include "sim/chassis_model.h"
#include "sim/commands.h"
#include "sim/control.h"
#include "sim/evh.h"
#include "sim/ifm.h"
#include "sim/l2pm.h"
#include "sim/loop.h"
#include "sim/manager_proc.h"
#include "sim/options.h"
#include "sim/peer_link.h"
#include "sim/probes.h"

namespace vorn::sim {

class ChassisSim : public Source {
public:
    // The host platform's run directory must already be set to opts.rundir.
    explicit ChassisSim(SimOptions opts);
    ~ChassisSim() override;
    ChassisSim(const ChassisSim&) = delete;
    ChassisSim& operator=(const ChassisSim&) = delete;

    // Opens the control endpoint and the peers and, unless attached, starts the manager.
    // False, with the reason in *err, when the chassis cannot come up; whatever was opened
    // is closed again.
    bool start(std::string* err);
    // Serves until a quit command or a stop signal, then shuts down. Returns the exit
    // status of the simulator: 0 when everything ended cleanly, 1 when the manager had
    // ended on its own, did not stop cleanly, or could not be stopped.
    int serve();
    // Ends serve() after the current pass.
    void requestStop(const std::string& why);
    // Stops the manager (when it is our child) and closes every endpoint. Returns true when
    // the manager, if any, ended cleanly at our request.
    bool shutdown();
    // SIGTERM and SIGINT ask for a stop; SIGCHLD collects the manager's end.
    void onSignal(int sig);

    EventLoop& loop() { return loop_; }
    CommandTable& commands() { return commands_; }
    EventHandler& evh() { return evh_; }
    L2pm& l2pm() { return l2pm_; }
    Ifm& ifm() { return ifm_; }
    PeerLink& peerLink() { return peerLink_; }
    Cables& cables() { return cables_; }
    const Probes& probes() const { return probes_; }
    const ChassisModel& chassis() const { return model_; }
    uint32_t cardMask() const { return cardMask_; }
    std::string statusText() const;
    // Every agent, as "sim show agents" shows them.
    std::string agentsText() const;
    Json agentsJson() const;

    // Watches the manager's request queue and reports when it comes and goes.
    void wait(Poller& poller) override;
    void run() override;

private:
    void registerCommands();
    void registerPeerCommands();
    void registerModelCommands();
    void registerChassisCommands();
    void registerManagerCommands();
    void registerPeerPairCommands();  // peer_commands.cc
    void registerCableCommands();
    // The cabled ports that forward a VLAN: cable whole, link up, a member of the VLAN, and
    // not blocked for it by L2PM.
    // What makes a cabled port forward a VLAN (its cable and link, its VLANs, L2PM's state),
    // and when it last began to forward one it did not.
    struct PortWatch {
        bool carrying = false;  // the cable is whole and the link up
        VlanSet tagged{}, untagged{};
        VlanSet known{}, forwarding{};  // L2PM's
        uint64_t openedNs = 0;
        bool forwards(uint16_t vlan) const;
        bool sameInputs(const PortWatch& o) const;
    };
    // cable_commands.cc. The cabled ports a probe sent at sentNs floods on: those that forward
    // its VLAN now and did so when it was sent. A switch's frames cross a ring in microseconds,
    // the simulation's in milliseconds, as long as its control plane takes to act; a frame is
    // therefore not carried by a port that began forwarding after it was sent, which on a
    // switch it would have reached long before.
    std::vector<uint32_t> forwardingPorts(uint16_t vlan, uint64_t sentNs);
    void watchCabledPorts();
    // A ring control frame that no ring running here took crosses the switch as any frame of
    // its VLAN does. A switch that runs no node of the ring (its agent gone with its card,
    // its manager driving the ports) still bridges the control VLAN, so that the master's
    // health frames come round and it keeps its secondary blocked. Each frame is bridged
    // once: with no master running to stop it, one would otherwise go round for ever.
    void bridgeControlFrame(uint32_t ifIndex, std::span<const uint8_t> frame);
    // Whether L2PM's state forwards a VLAN on a port; whether it blocks every VLAN of a bitmap
    // that a port carries.
    bool l2pmForwards(uint32_t ifIndex, uint16_t vlan) const;
    bool l2pmBlocks(uint32_t ifIndex, const std::array<uint8_t, 512>& vlans) const;
    // Brings the link of every port with a whole cable up, as plugging it in does.
    void linkCabledPorts();
    // Tells the manager about a change of the chassis model (IFM notifications over L2PM's
    // queue) and answers the operator.
    CommandResult publish(ChassisModel::Change change);
    // L2PM's configuration download of the whole model, then the end of configuration.
    void sendDownload();
    CommandResult cardEvent(uint32_t eventId, const CommandTable::Args& args);
    // "lag N zil ID|none" (args as the lag command has them).
    CommandResult lagZil(uint32_t lag, const CommandTable::Args& args);
    // Why no event can be sent while the event handler is absent.
    static std::string evhAbsentText();
    // ": no subscriber follows it; nothing sent" or " sent to 2 subscribers".
    static std::string reachedText(int reached);
    // Start (afresh) or silence the agent of a slot; both say what happened.
    std::string startAgent(uint32_t slot, bool* ok);
    std::string silenceAgent(uint32_t slot);
    // Gives an agent the chassis' frame sender (its cables) and drop-link-down setting.
    void wireAgent(Agent& a);
    bool startManager(std::string* err);
    void reapManager();
    // The replay of DIR/startup-config (startup_replay.cc): noted when the manager starts,
    // run once the manager has registered with L2PM (its last step before it serves
    // requests), and its end reported.
    void planReplay();
    void startReplayWhenReady();
    void reapReplay();

    SimOptions opts_;
    EventLoop loop_;
    CommandTable commands_;
    ControlServer control_{commands_};
    EventHandler evh_;
    L2pm l2pm_;
    Ifm ifm_;
    ChassisModel model_;
    PeerLink peerLink_;
    Cables cables_;
    Probes probes_;
    // Numbers the control frames of every agent's ring nodes (Agent::setFrameCount); declared
    // before the agents, so it outlives them.
    uint32_t frameCount_ = 0;
    // One agent per slot, made when its card first comes up and kept (silenced when the card
    // goes down) so that the loop never calls into a destroyed one.
    std::array<std::optional<Agent>, agt::kSlots> agents_;
    uint32_t ifmCount_ = 0;  // Count of the last IFM notification
    uint32_t cardMask_;
    bool dropLinkDown_ = false;  // "ring drop-link-down": every agent drops LINK_DOWN frames
    bool managerUp_ = false;     // its request queue was alive at the last look
    // Attached to a manager that was up before us: it registered with L2PM long ago, so the
    // agents need not wait for that. Ends when that manager goes.
    bool attachedToServing_ = false;
    long lastWatchMs_ = -1;
    int streamDueMs_ = -1;                 // until the probe stream's next probe; -1: no stream
    std::map<uint32_t, PortWatch> watch_;  // by cabled port
    static constexpr size_t kBridgedKept = 1024;
    std::set<std::pair<uint32_t, uint32_t>> bridged_;         // (sender, sequence) of frames
    std::deque<std::pair<uint32_t, uint32_t>> bridgedOrder_;  // ... oldest first
    uint64_t controlFramesBridged_ = 0;
    uint64_t controlFramesSeen_ = 0;  // not bridged again: this (sender, sequence) was
    bool managerEndedAlone_ = false;
    bool started_ = false;
    bool replayPending_ = false;
    uint64_t registrationsBefore_ = 0;  // L2PM registrations accepted before the manager started
    ManagerProcess replay_;             // vornctl -f DIR/startup-config
    ManagerProcess manager_;            // last: stopped first on destruction
};

}  // namespace vorn::sim
