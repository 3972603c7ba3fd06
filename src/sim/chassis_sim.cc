#include "sim/chassis_sim.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>

#include "cli/syntax.h"
#include "platform/ifindex.h"
#include "platform/ipc.h"
#include "sim/log.h"
#include "sim/loop.h"

namespace vorn::sim {
namespace {

constexpr int kManagerStopTimeoutMs = 5000;
constexpr long kWatchIntervalMs = 500;

bool managerQueueAlive() {
    return host::endpointAlive(host::queuePath(ipc::kSvcManager, 0, ipc::kKindRequest));
}

// A manager that was killed leaves its sockets behind; those of a child of ours that nobody
// reads any more are removed, so the run directory is left as clean as a clean stop leaves it.
void removeStaleManagerSockets() {
    int removed = 0;
    for (int kind : {ipc::kKindRequest, ipc::kKindTimer, ipc::kKindReply}) {
        std::string path = host::queuePath(ipc::kSvcManager, 0, kind);
        if (access(path.c_str(), F_OK) == 0 && !host::endpointAlive(path) &&
            unlink(path.c_str()) == 0)
            ++removed;
    }
    if (removed > 0) say("vornsim: removed %d stale socket(s) of the manager", removed);
}

}  // namespace

ChassisSim::ChassisSim(SimOptions opts)
    : opts_(std::move(opts)),
      model_(opts_.cardMask, opts_.tenGigMask, opts_.portsPerCard),
      peerLink_(opts_.rundir, opts_.pairWith, [this] { return model_.icl(); }),
      cables_(opts_.rundir, opts_.links),
      probes_(
          [this](uint32_t ifIndex, std::span<const uint8_t> frame) {
              return cables_.send(ifIndex, frame);
          },
          [this](uint16_t vlan, uint64_t sentNs) { return forwardingPorts(vlan, sentNs); },
          (uint64_t{static_cast<uint32_t>(getpid())} << 32) ^
              static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count())),
      cardMask_(opts_.cardMask) {
    registerCommands();
    registerPeerCommands();
    registerModelCommands();
    registerChassisCommands();
    registerManagerCommands();
    registerPeerPairCommands();
    registerCableCommands();
    cables_.setLinkHandler(
        [this](uint32_t ifIndex, bool up) { return publish(model_.setLink(ifIndex, up)).text; });
    cables_.setFrameHandler([this](uint32_t ifIndex, std::span<const uint8_t> frame) {
        const uint64_t loops = probes_.counters().loops;
        if (probes_.onFrame(ifIndex, frame)) {
            if (probes_.counters().loops != loops)
                say("probe: a probe came back on %s: seen twice here, a loop",
                    cli::shortIfName(ifIndex).c_str());
            return;
        }
        for (std::optional<Agent>& a : agents_)
            if (a && a->onFrame(ifIndex, frame)) return;
        bridgeControlFrame(ifIndex, frame);
    });
    l2pm_.setOnRegistered([this] {
        sendDownload();
        // The manager serves its request queue now: the agents register at once.
        for (std::optional<Agent>& a : agents_)
            if (a) a->syncWithManager();
    });
}

void ChassisSim::wireAgent(Agent& a) {
    a.setFrameSender([this](uint32_t ifIndex, std::span<const uint8_t> frame) {
        return cables_.send(ifIndex, frame);
    });
    a.setDropLinkDown(dropLinkDown_);
    a.setFrameCount(&frameCount_);
    a.setBlockCheck([this](uint32_t ifIndex, const std::array<uint8_t, 512>& vlans) {
        return l2pmBlocks(ifIndex, vlans);
    });
}

ChassisSim::~ChassisSim() {
    if (started_) shutdown();
}

bool ChassisSim::start(std::string* err) {
    const std::string& dir = opts_.rundir;
    if (opts_.vorndPath.empty()) opts_.vorndPath = defaultVorndPath();
    // A manager that cannot be run is found out before anything is opened.
    if (!opts_.attach && access(opts_.vorndPath.c_str(), X_OK) != 0) {
        *err = "cannot run the manager " + opts_.vorndPath + ": " + std::strerror(errno) +
               " (--vornd PATH names another)";
        return false;
    }
    if (!opts_.attach && managerQueueAlive()) {
        *err = "a manager is already running in " + dir + "; use --attach to work with it";
        return false;
    }
    if (!control_.open(err)) {
        *err += " (is another vornsim running on " + dir + "?)";
        return false;
    }
    started_ = true;
    // One thread serves every peer of the chassis: it must never stop reading while a
    // manager waits for it, so a send to a full queue waits in the process, not in the call.
    host::setDeferFullSends(true);
    say("vornsim: chassis in %s, cards %s; control endpoint 50.0 open", dir.c_str(),
        cardListText(cardMask_).c_str());
    evh_.setRefusing(opts_.evhRefuse);
    l2pm_.setRefusing(opts_.l2pmRefuse);
    struct Peer {
        const char* name;
        bool absent;
        std::function<bool(std::string*)> open;
        bool refusing;
    };
    Peer peers[] = {
        {"evh 30.0", opts_.evhAbsent, [this](std::string* e) { return evh_.open(e); },
         opts_.evhRefuse},
        {"l2pm 166.0", opts_.l2pmAbsent, [this](std::string* e) { return l2pm_.open(e); },
         opts_.l2pmRefuse},
        {"ifm 138.0", false, [this](std::string* e) { return ifm_.open(e); }, false},
    };
    for (Peer& p : peers) {
        if (p.absent) {
            say("vornsim: %s absent, as told", p.name);
            continue;
        }
        if (!p.open(err)) {
            shutdown();
            return false;
        }
        say("vornsim: %s present%s", p.name, p.refusing ? ", refusing, as told" : "");
    }
    if (!peerLink_.open(err)) {
        shutdown();
        return false;
    }
    say("vornsim: inter-chassis link open; %s", peerLink_.statusLine().c_str());
    if (!cables_.open(err)) {
        shutdown();
        return false;
    }
    for (Source* s : std::initializer_list<Source*>{&control_, &evh_, &l2pm_, &ifm_, &peerLink_,
                                                    &cables_, this})
        loop_.add(s);
    linkCabledPorts();
    // The agents of the cards that are up; each registers once the manager is there and
    // has registered with L2PM, the last step of its start-up.
    managerUp_ = managerQueueAlive();
    attachedToServing_ = opts_.attach && managerUp_;
    for (uint32_t slot = 0; slot < agt::kSlots; ++slot) {
        if ((cardMask_ & (1u << slot)) == 0) continue;
        bool ok = false;
        std::string what = startAgent(slot, &ok);
        if (!ok) {
            *err = what;
            shutdown();
            return false;
        }
    }
    if (opts_.attach) {
        say("vornsim: attached; %s",
            managerUp_ ? "manager 226.0 is up" : "no manager yet; waiting for 226.0 to appear");
        return true;
    }
    registrationsBefore_ = l2pm_.counters().registered;
    if (!startManager(err)) {
        shutdown();
        return false;
    }
    planReplay();
    return true;
}

bool ChassisSim::startManager(std::string* err) {
    const std::string& path = opts_.vorndPath;
    // A manager started under a running chassis finds the cards that are up now.
    std::string cards = cardMask_ != 0 ? cardListText(cardMask_) : opts_.cards;
    std::vector<std::string> args{"--rundir", opts_.rundir, "--cards", cards};
    if (opts_.peerPair) args.emplace_back("--peer-pair");
    if (!manager_.start(path, args, err)) return false;
    say("vornsim: started the manager %s --rundir %s --cards %s%s (pid %d)", path.c_str(),
        opts_.rundir.c_str(), cards.c_str(), opts_.peerPair ? " --peer-pair" : "",
        static_cast<int>(manager_.pid()));
    return true;
}

int ChassisSim::serve() {
    loop_.run();
    bool clean = shutdown();
    return clean && !managerEndedAlone_ ? 0 : 1;
}

void ChassisSim::requestStop(const std::string& why) {
    if (!loop_.stopping()) say("vornsim: stopping (%s)", why.c_str());
    loop_.stop();
}

bool ChassisSim::shutdown() {
    if (!started_) return true;
    started_ = false;
    bool clean = true;
    replayPending_ = false;
    if (replay_.running()) {
        bool ignored = false;
        say("vornsim: stopping the replay of the startup configuration: %s",
            replay_.stop(kManagerStopTimeoutMs, &ignored).c_str());
    }
    if (manager_.running()) {
        int pid = static_cast<int>(manager_.pid());
        say("vornsim: stopping the manager (pid %d) with SIGTERM", pid);
        std::string how = manager_.stop(kManagerStopTimeoutMs, &clean);
        say("vornsim: the manager (pid %d) ended: %s%s", pid, how.c_str(),
            clean ? "" : " (it did not stop cleanly)");
        if (!clean) removeStaleManagerSockets();
    }
    l2pm_.close();
    evh_.close();
    ifm_.close();
    peerLink_.close();
    cables_.close();
    control_.close();
    for (Source* s : std::initializer_list<Source*>{&control_, &evh_, &l2pm_, &ifm_, &peerLink_,
                                                    &cables_, this})
        loop_.remove(s);
    for (std::optional<Agent>& a : agents_) {
        if (!a) continue;
        a->silence();
        loop_.remove(&*a);
    }
    say("vornsim: endpoints closed, sockets removed");
    return clean;
}

void ChassisSim::onSignal(int sig) {
    if (sig == SIGCHLD) {
        reapManager();
        reapReplay();
        return;
    }
    requestStop(sig == SIGINT ? "SIGINT" : sig == SIGTERM ? "SIGTERM" : "signal");
}

void ChassisSim::reapManager() {
    int pid = static_cast<int>(manager_.pid());
    std::string how;
    if (!manager_.reap(&how)) return;
    managerEndedAlone_ = true;
    say("vornsim: the manager (pid %d) ended on its own: %s; the chassis stays up "
        "('vornctl sim quit' ends it)",
        pid, how.c_str());
    removeStaleManagerSockets();
}

void ChassisSim::wait(Poller& poller) {
    poller.wakeWithin(static_cast<int>(kWatchIntervalMs));
    if (streamDueMs_ >= 0) poller.wakeWithin(streamDueMs_);
}

void ChassisSim::run() {
    watchCabledPorts();
    streamDueMs_ = probes_.runStream();
    startReplayWhenReady();
    long now = nowMs();
    if (lastWatchMs_ >= 0 && now - lastWatchMs_ < kWatchIntervalMs) return;
    lastWatchMs_ = now;
    bool up = managerQueueAlive();
    if (up == managerUp_) return;
    managerUp_ = up;
    attachedToServing_ = attachedToServing_ && up;
    say("vornsim: manager 226.0 %s",
        up ? "is up (its request queue answers)" : "went away (its request queue is gone)");
}

std::string ChassisSim::statusText() const {
    std::string s = "vornsim on " + opts_.rundir + "\n";
    s += "manager: ";
    if (manager_.running())
        s += "running, pid " + std::to_string(manager_.pid()) + ", started by vornsim";
    else if (!manager_.lastEnd().empty())
        s += "ended: " + manager_.lastEnd();
    else
        s += opts_.attach ? "attached, not started by vornsim" : "not running";
    s += managerUp_ ? "; request queue 226.0 up\n" : "; request queue 226.0 down\n";
    s += "cards: " + cardListText(cardMask_) + "\n";
    size_t ports = 0, up = 0, lags = 0;
    for (const auto& [ifIndex, entry] : model_.interfaces()) {
        bool lag = ifmIfIndexToIfType(ifIndex) == ifm::kTypeLag;
        lags += lag ? 1 : 0;
        ports += lag ? 0 : 1;
        up += !lag && model_.operUp(ifIndex) ? 1 : 0;
    }
    s += "chassis: " + std::to_string(ports) + " ports (" + std::to_string(up) + " up), " +
         std::to_string(lags) + (lags == 1 ? " port-channel" : " port-channels") + ", VLANs " +
         vlanSetText(model_.vlans()) + "; IFM notifications sent " + std::to_string(ifmCount_) +
         "\n";
    s += evh_.statusLine() + "\n";
    s += l2pm_.statusLine() + "\n";
    s += ifm_.statusLine() + "\n";
    s += peerLink_.statusLine() + "\n";
    s += cables_.statusLine() + "\n";
    for (const std::optional<Agent>& a : agents_)
        if (a) s += a->statusLine() + "\n";
    return s;
}

std::string ChassisSim::agentsText() const {
    std::string s;
    for (const std::optional<Agent>& a : agents_)
        if (a) s += a->describe();
    return s.empty() ? "no line-card agents: no card has been up\n" : s;
}

Json ChassisSim::agentsJson() const {
    Json agents = Json::array();
    for (const std::optional<Agent>& a : agents_)
        if (a) agents.push_back(a->toJson());
    return {{"agents", agents}};
}

}  // namespace vorn::sim
