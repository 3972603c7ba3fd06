// Line-card agent traffic through a running manager (a vornd child process). The benchmark
// plays the manager's peers in-process (agent_bench_peers.h) and measures:
//   - the relay of a port-state report, agent -> manager -> L2PM: from the agent's send of a
//     report that flips the primary port of ring 1 between forwarding and blocking to L2PM's
//     receipt of the port-state message it causes (p50, p99), beside a bare two-hop relay of
//     the same bytes over AF_UNIX datagram sockets (a child process forwarding from A to C);
//   - the full download to an agent that registers at full tables (255 rings, 4094 VLANs,
//     the 768 ports of 12 cards): from the registration's send until END_CFG has arrived and
//     been acknowledged, with the messages of the download by type.
// The benchmark, vornd and the bare relay all run on one CPU. The sides of each comparison
// alternate over several rounds and each figure is the median over the rounds. Exits 1 when
// a goal is missed, 2 when the chassis could not be set up.

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "agent_bench_peers.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "platform/swp.h"
#include "sim/ifm_notif.h"
#include "wire/agent.h"
#include "wire/l2pm.h"

namespace {

using namespace vorn;
using bench::Clock;
using bench::Peers;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kRounds = 5;
constexpr int kSamples = 3000;  // per side and round
constexpr int kWarmup = 200;
// Quiet time after each sample, so that each one starts from an idle manager.
constexpr auto kPace = std::chrono::microseconds(150);
constexpr double kRelayGoal = 1.5;
constexpr int kRegistrations = 7;
constexpr double kDownloadGoalMs = 50.0;

constexpr int kAgentSlot = 1;
constexpr uint16_t kRelayRing = 1;

double usBetween(Clock::time_point a, Clock::time_point b) {
    return std::chrono::duration<double, std::micro>(b - a).count();
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

struct Percentiles {
    double p50 = 0;
    double p99 = 0;
};

Percentiles percentiles(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return {v[v.size() / 2], v[v.size() * 99 / 100]};
}

uint32_t gigabit(uint32_t slot, uint32_t port) {
    return ifmCreateIfIndex(ifm::kTypeGigabit, slot, port, 0);
}

uint32_t vlanIf(uint32_t vid) {
    return ifmCreateIfIndex(ifm::kTypeVlan, 0, 0, vid);
}

sim::Mac macOf(uint32_t ifIndex) {
    return {0x02,
            0x00,
            static_cast<uint8_t>(ifIndex >> 24),
            static_cast<uint8_t>(ifIndex >> 16),
            static_cast<uint8_t>(ifIndex >> 8),
            0x01};
}

void writeMac(be::Writer& w, size_t off, uint32_t ifIndex) {
    const sim::Mac mac = macOf(ifIndex);
    w.bytes(off, mac.data(), mac.size());
}

void setVlan(cli::VlanBitmap& b, uint32_t v) {
    b[v / 8] = static_cast<uint8_t>(b[v / 8] | (0x80 >> (v % 8)));
}

[[noreturn]] void die(const std::string& why) {
    std::fprintf(stderr, "agent_bench: %s\n", why.c_str());
    std::exit(2);
}

// ---- a chassis: vornd on a fresh run directory and its peers --------------------------------

struct Chassis {
    Peers peers;
    bench::ManagerChild manager;

    // Opens the peers in DIR, starts vornd on it, and serves until the manager has
    // registered with L2PM and L2PM's queue to it exists.
    Chassis(const std::string& dir, const std::string& cards, int cpu, int pipe)
        : peers(kAgentSlot, pipe) {
        std::string err;
        if (!host::setRunDir(dir, &err) || !peers.open(&err)) die(err);
        if (!manager.start(VORND_PATH, dir, cards, cpu, dir + ".vornd.out", &err)) die(err);
        if (!peers.serveUntil([&] { return peers.l2pm().registered && peers.queueToManager(); },
                              seconds(10)))
            die("the manager on " + dir + " did not register with L2PM (see " + dir +
                ".vornd.out)");
    }

    // Sends notification bodies over L2PM's queue and serves until all are acknowledged.
    void notifyAll(uint32_t mtype, const std::vector<std::vector<uint8_t>>& bodies) {
        for (const auto& body : bodies)
            if (!peers.notify(mtype, body)) die("L2PM's queue refused a notification");
        if (!peers.serveUntil([&] { return peers.notificationsInFlight() == 0; }, seconds(30)))
            die("the manager did not acknowledge L2PM's notifications");
    }

    void configure(const cli::nm::ConfigRequest& req) {
        std::optional<uint32_t> status = peers.configure(req);
        if (!status)
            die("no answer to a configuration request of ring " + std::to_string(req.ringId));
        if (*status != 0)
            die("the manager refused '" + std::string(cli::nm::typeName(req.type)) + "' of ring " +
                std::to_string(req.ringId) + " with status " + std::to_string(*status));
    }

    // Rings are created, given their interfaces, member VLANs and mode, and enabled, in the
    // order an operator types them.
    void configureRing(uint16_t ringId, uint32_t pri, uint32_t sec, uint16_t ctrlVlan,
                       const cli::VlanBitmap& members, uint8_t mode) {
        cli::nm::ConfigRequest r;
        r.ringId = ringId;
        r.type = cli::nm::Type::Protocol;
        configure(r);
        r.type = cli::nm::Type::ControlVlan;
        r.primary = pri;
        r.secondary = sec;
        r.controlVlan = ctrlVlan;
        configure(r);
        r = {};
        r.ringId = ringId;
        r.type = cli::nm::Type::MemberVlan;
        r.memberVlans = members;
        configure(r);
        r.memberVlans = {};
        r.type = cli::nm::Type::Mode;
        r.mode = mode;
        configure(r);
        r.mode = 0;
        r.type = cli::nm::Type::Enable;
        r.noForm = true;  // "no disable"
        configure(r);
    }

    // Registers the agent and serves until its download has ended (END_CFG acknowledged).
    // Returns the time from the registration's send to that moment, in milliseconds.
    double registerAgent() {
        peers.agent().clear();
        Clock::time_point t0 = Clock::now();
        if (!peers.registerAgent()) die("the agent's registration could not be sent");
        if (!peers.serveUntil([&] { return peers.agent().endCfgAckedAt.has_value(); }, seconds(10)))
            die("the agent's download did not end with END_CFG");
        return usBetween(t0, *peers.agent().endCfgAckedAt) / 1000.0;
    }
};

// ---- relay latency ------------------------------------------------------------------------------

// Appends a zeroed record of `len` bytes to a body and returns its offset.
size_t appendRecord(std::vector<uint8_t>& body, size_t len) {
    size_t off = body.size();
    body.resize(off + len, 0);
    return off;
}

be::Writer writerOf(std::vector<uint8_t>& body) {
    return be::Writer(body.data(), body.size());
}

// IFM's view of the relay chassis, in one notification: VLANs 10 and 20-30, and Gi 0/1 and
// Gi 1/1 up and tagged members of all of them.
std::vector<uint8_t> relayIfmNotification() {
    std::vector<sim::IfmRecord> recs;
    auto add = [&](uint16_t type, uint32_t ifIndex, uint32_t other = 0) {
        sim::IfmRecord r;
        r.type = type;
        r.ifIndex = ifIndex;
        r.other = other;
        r.tagged = type == IFM_TYP_ADD_VLAN_PORT;
        if (type == IFM_TYP_ADD_IF && other == 0 && ifmIfIndexToIfType(ifIndex) != ifm::kTypeVlan)
            r.mac = macOf(ifIndex);
        recs.push_back(r);
    };
    std::vector<uint16_t> vlans = {10};
    for (uint16_t v = 20; v <= 30; ++v) vlans.push_back(v);
    const uint32_t ports[] = {gigabit(0, 1), gigabit(1, 1)};
    for (uint16_t v : vlans) add(IFM_TYP_ADD_IF, vlanIf(v));
    for (uint32_t p : ports) add(IFM_TYP_ADD_IF, p);
    for (uint32_t p : ports) add(IFM_TYP_OSTATE_UP, p);
    for (uint32_t p : ports)
        for (uint16_t v : vlans) add(IFM_TYP_ADD_VLAN_PORT, vlanIf(v), p);
    uint32_t count = 0;
    return sim::packIfmNotifications(recs, &count).front();  // the records fit one notification
}

// The bare relay: A and C are sockets of this process, B a child process that forwards every
// datagram it reads to C. With `ackFirst`, B first answers A with a datagram of an SWP
// acknowledgement's size, as the manager acknowledges a report before it handles it.
class BareRelay {
public:
    BareRelay(const std::string& dir, int cpu, bool ackFirst) {
        a_ = bound(dir + "/bare.a", &aAddr_);
        int b = bound(dir + "/bare.b", &bAddr_);
        c_ = bound(dir + "/bare.c", &cAddr_);
        child_ = fork();
        if (child_ < 0) die("fork of the bare relay failed");
        if (child_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            std::array<uint8_t, ipc::kMaxMsgLen> buf;
            for (;;) {
                ssize_t n = recv(b, buf.data(), buf.size(), 0);
                if (n <= 0) continue;
                if (ackFirst)
                    sendto(b, buf.data(), swp::kCtrlMsgLen, 0,
                           reinterpret_cast<const sockaddr*>(&aAddr_), sizeof(aAddr_));
                sendto(b, buf.data(), static_cast<size_t>(n), 0,
                       reinterpret_cast<const sockaddr*>(&cAddr_), sizeof(cAddr_));
            }
        }
        close(b);
        bench::pinToCpu(child_, cpu);
    }
    ~BareRelay() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
        for (const sockaddr_un* addr : {&aAddr_, &bAddr_, &cAddr_}) unlink(addr->sun_path);
        close(a_);
        close(c_);
    }
    BareRelay(const BareRelay&) = delete;
    BareRelay& operator=(const BareRelay&) = delete;
    pid_t pid() const { return child_; }

    // One sample: A sends; C waits as L2PM's queue waits (poll, then read). Returns
    // microseconds, or a negative value when nothing came within a second.
    double sample(const std::vector<uint8_t>& msg) {
        Clock::time_point t0 = Clock::now();
        sendto(a_, msg.data(), msg.size(), 0, reinterpret_cast<const sockaddr*>(&bAddr_),
               sizeof(bAddr_));
        pollfd p{c_, POLLIN, 0};
        if (poll(&p, 1, 1000) != 1) return -1;
        recv(c_, buf_.data(), buf_.size(), 0);
        double us = usBetween(t0, Clock::now());
        while (recv(a_, buf_.data(), buf_.size(), MSG_DONTWAIT) > 0) {
        }
        return us;
    }

private:
    static int bound(const std::string& path, sockaddr_un* addr) {
        int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        *addr = {};
        addr->sun_family = AF_UNIX;
        std::strncpy(addr->sun_path, path.c_str(), sizeof(addr->sun_path) - 1);
        unlink(path.c_str());
        if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(addr), sizeof(*addr)) != 0)
            die("cannot bind " + path);
        return fd;
    }

    int a_ = -1, c_ = -1;
    sockaddr_un aAddr_{}, bAddr_{}, cAddr_{};
    pid_t child_ = -1;
    std::array<uint8_t, ipc::kMaxMsgLen> buf_{};
};

// One side of the relay comparison in one round: the latencies, and the CPU time the relaying
// process (B, or vornd) used per message.
struct Side {
    std::vector<double> us;
    double cpuUsPerMsg = 0;
};

// A side's figures over the rounds: each the median of the rounds' values.
struct SideFigures {
    Percentiles lat;
    double cpuUsPerMsg = 0;
};

SideFigures overRounds(const std::vector<Side>& rounds) {
    std::vector<double> p50, p99, cpu;
    for (const Side& s : rounds) {
        Percentiles p = percentiles(s.us);
        p50.push_back(p.p50);
        p99.push_back(p.p99);
        cpu.push_back(s.cpuUsPerMsg);
    }
    return {{median(p50), median(p99)}, median(cpu)};
}

struct RelayFigures {
    SideFigures bare, bareAcked, relayed, logged;
    uint64_t reports = 0;
    uint64_t portStates = 0;
    uint64_t unexpected = 0;  // messages the peers did not expect
};

class RelayBench {
public:
    static constexpr uint16_t kPriPort = agt::portNumber(0, 1);

    RelayBench(Chassis& c, std::string dir, int cpu) : c_(c), dir_(std::move(dir)), cpu_(cpu) {}

    // Ring 1 (primary Gi 0/1, secondary Gi 1/1, control VLAN 10, member VLANs 20-30, master,
    // enabled), configured after IFM reported the ports and the agent of slot 1 registered;
    // the primary is then brought to a known state (blocking).
    void setUp() {
        c_.notifyAll(MT_IFM_NOTIF_MSG, {relayIfmNotification()});
        c_.registerAgent();
        c_.peers.agent().clear();
        cli::VlanBitmap members{};
        for (uint32_t v = 20; v <= 30; ++v) setVlan(members, v);
        c_.configureRing(kRelayRing, gigabit(0, 1), gigabit(1, 1), 10, members,
                         cli::nm::kModeMaster);
        if (!c_.peers.serveUntil([&] { return c_.peers.agent().ringsStarted > 0; }, seconds(2)))
            die("ring 1 was configured but the manager did not start it on the agent");
        if (!c_.peers.agentQueue()) die("the agent's queue to the manager could not be made");
        Clock::time_point sent;
        c_.peers.sendReport(c_.peers.report(kRelayRing, kPriPort, agt::kStateBlocking, true),
                            &sent);
        c_.peers.serveFor(milliseconds(100));
        state_ = agt::kStateBlocking;
    }

    RelayFigures run() {
        std::vector<Side> bare, bareAcked, relayed, logged;
        RelayFigures f;
        uint64_t before = portStates();
        for (int round = 0; round < kRounds; ++round) {
            bare.push_back(bareSide(false));
            bareAcked.push_back(bareSide(true));
            relayed.push_back(managerSide(true, &f.reports));
            logged.push_back(managerSide(false, &f.reports));
        }
        f.portStates = portStates() - before;
        f.unexpected = c_.peers.unexpected();
        f.bare = overRounds(bare);
        f.bareAcked = overRounds(bareAcked);
        f.relayed = overRounds(relayed);
        f.logged = overRounds(logged);
        return f;
    }

private:
    uint64_t portStates() const {
        const auto& byType = c_.peers.l2pm().swpByType;
        auto it = byType.find(MT_L2PM_PORT_STATE);
        return it == byType.end() ? 0 : it->second;
    }

    Side bareSide(bool ackFirst) {
        BareRelay relay(dir_, cpu_, ackFirst);
        std::vector<uint8_t> msg =
            c_.peers.report(kRelayRing, kPriPort, agt::kStateForwarding, true);
        Side side;
        double cpu0 = bench::cpuUs(relay.pid());
        for (int i = 0; i < kWarmup + kSamples; ++i) {
            double t = relay.sample(msg);
            if (t < 0) die("the bare relay lost a datagram");
            if (i >= kWarmup) side.us.push_back(t);
            c_.peers.serveFor(kPace);
        }
        side.cpuUsPerMsg = (bench::cpuUs(relay.pid()) - cpu0) / (kWarmup + kSamples);
        return side;
    }

    // Reports that flip the primary, each answered by one port-state message to L2PM.
    Side managerSide(bool noSyslog, uint64_t* reports) {
        Side side;
        double cpu0 = bench::cpuUs(c_.manager.pid());
        for (int i = 0; i < kWarmup + kSamples; ++i) {
            state_ = state_ == agt::kStateForwarding ? agt::kStateBlocking : agt::kStateForwarding;
            std::vector<uint8_t> msg = c_.peers.report(kRelayRing, kPriPort, state_, noSyslog);
            Clock::time_point t0;
            if (!c_.peers.sendReport(msg, &t0)) die("the agent's queue refused a report");
            std::optional<Clock::time_point> t1 = c_.peers.awaitPortState(seconds(1));
            if (!t1) die("a report brought no port-state message to L2PM within a second");
            ++*reports;
            if (i >= kWarmup) side.us.push_back(usBetween(t0, *t1));
            if (!c_.peers.serveUntil([&] { return c_.peers.reportsInFlight() == 0; }, seconds(1)))
                die("the manager did not acknowledge a report");
            c_.peers.serveFor(kPace);
        }
        side.cpuUsPerMsg = (bench::cpuUs(c_.manager.pid()) - cpu0) / (kWarmup + kSamples);
        return side;
    }

    Chassis& c_;
    std::string dir_;
    int cpu_;
    uint32_t state_ = agt::kStateBlocking;
};

// ---- full download ------------------------------------------------------------------------------

constexpr uint32_t kCards = limits::kSlots;
constexpr uint32_t kPortsPerCard = limits::kPortsPerSlot;
constexpr int kRings = limits::kMaxRingId;
constexpr uint16_t kFirstVlan = 1;
constexpr uint16_t kLastVlan = 4094;
constexpr int kVlansPerRing = 16;  // the control VLAN, then 15 member VLANs
constexpr uint16_t kFirstFreeVlan = kFirstVlan + kVlansPerRing * kRings;  // no ring uses it
static_assert(kFirstFreeVlan <= kLastVlan);

// Ring i (0-based) of the full tables: control VLAN 1 + 16i, member VLANs the next 15;
// primary on port 2(i / 12) of card i % 12, secondary on the next port of the next card.
// No two rings share a port.
struct FullRing {
    uint16_t id;
    uint16_t ctrlVlan;
    uint32_t primary;
    uint32_t secondary;
};

FullRing fullRing(int i) {
    auto row = static_cast<uint32_t>(2 * (i / static_cast<int>(kCards)));
    auto card = static_cast<uint32_t>(i) % kCards;
    return {static_cast<uint16_t>(i + 1), static_cast<uint16_t>(kFirstVlan + kVlansPerRing * i),
            gigabit(card, row), gigabit((card + 1) % kCards, row + 1)};
}

// The VLANs each port carries: its ring's 16, or for a port of no ring the VLANs of no ring.
std::vector<cli::VlanBitmap> portVlans() {
    std::vector<cli::VlanBitmap> vlans(kCards * kPortsPerCard);
    auto index = [](uint32_t ifIndex) {
        return ifmIfIndexToSlotId(ifIndex) * kPortsPerCard + ((ifIndex >> 8) & 0xFF);
    };
    std::vector<bool> inRing(vlans.size(), false);
    for (int i = 0; i < kRings; ++i) {
        FullRing r = fullRing(i);
        for (uint32_t port : {r.primary, r.secondary}) {
            inRing[index(port)] = true;
            for (int k = 0; k < kVlansPerRing; ++k) setVlan(vlans[index(port)], r.ctrlVlan + k);
        }
    }
    for (size_t p = 0; p < vlans.size(); ++p)
        if (!inRing[p])
            for (uint32_t v = kFirstFreeVlan; v <= kLastVlan; ++v) setVlan(vlans[p], v);
    return vlans;
}

// A notification body (it starts at byte 124 of the message) of the given kind, no records.
std::vector<uint8_t> dnldBody(uint32_t kind) {
    std::vector<uint8_t> body(VORN_L2PM_DNLD_RECORDS_OFF - ipc::kSwpBodyOff, 0);
    writerOf(body).u32(VORN_L2PM_NOTIF_KIND_OFF - ipc::kSwpBodyOff, kind);
    return body;
}

// L2PM's download of the full tables: every VLAN, then every port, up and a tagged member of
// its VLANs, as many records to a notification as fit.
std::vector<std::vector<uint8_t>> fullDownload(uint32_t* records) {
    constexpr size_t kCountOff = VORN_L2PM_DNLD_COUNT_OFF - ipc::kSwpBodyOff;
    constexpr size_t kMaxBody = ipc::kMaxMsgLen - ipc::kSwpBodyOff;
    std::vector<std::vector<uint8_t>> bodies;
    *records = 0;
    // A zeroed record in the last body (a new one when it is full); returns its offset.
    auto record = [&](size_t len) {
        if (bodies.empty() || bodies.back().size() + len > kMaxBody)
            bodies.push_back(dnldBody(VORN_L2PM_NOTIF_DNLD));
        size_t off = appendRecord(bodies.back(), len);
        be::Writer w = writerOf(bodies.back());
        w.u32(kCountOff, w.reader().u32(kCountOff) + 1);
        ++*records;
        return off;
    };
    for (uint32_t v = kFirstVlan; v <= kLastVlan; ++v) {
        size_t off = record(VORN_L2PM_DNLD_SHORT_LEN);
        writerOf(bodies.back()).u32(off, vlanIf(v));
    }
    std::vector<cli::VlanBitmap> vlans = portVlans();
    for (uint32_t card = 0; card < kCards; ++card) {
        for (uint32_t port = 0; port < kPortsPerCard; ++port) {
            uint32_t ifIndex = gigabit(card, port);
            size_t off = record(VORN_L2PM_DNLD_LONG_LEN);
            be::Writer w = writerOf(bodies.back());
            w.u32(off, ifIndex);
            w.u32(off + VORN_L2PM_DNLD_OPER_OFF, VORN_L2PM_DNLD_OPER_UP);
            writeMac(w, off + VORN_L2PM_DNLD_MAC_OFF, ifIndex);
            w.u8(off + VORN_L2PM_DNLD_TAGGED_OFF, 1);
            w.u8(off + VORN_L2PM_DNLD_HAS_VLANS_OFF, 1);
            const cli::VlanBitmap& b = vlans[card * kPortsPerCard + port];
            w.bytes(off + VORN_L2PM_DNLD_VLANS_OFF, b.data(), b.size());
        }
    }
    return bodies;
}

struct DownloadFigures {
    double p50Ms = 0, minMs = 0, maxMs = 0;
    bench::AgentLog log;        // of the last registration
    uint64_t unexpected = 0;    // messages the peers did not expect
    bool sameEveryTime = true;  // every registration had the same download
    uint32_t l2pmRecords = 0;
    size_t l2pmMessages = 0;
    double setUpSec = 0;
};

DownloadFigures runDownload(Chassis& c) {
    DownloadFigures f;
    Clock::time_point t0 = Clock::now();
    std::vector<std::vector<uint8_t>> bodies = fullDownload(&f.l2pmRecords);
    f.l2pmMessages = bodies.size() + 1;
    bodies.push_back(dnldBody(VORN_L2PM_NOTIF_EOCONF));
    c.notifyAll(MT_L2PM_NOTIF, bodies);
    for (int i = 0; i < kRings; ++i) {
        FullRing r = fullRing(i);
        cli::VlanBitmap members{};
        for (int k = 1; k < kVlansPerRing; ++k) setVlan(members, r.ctrlVlan + k);
        c.configureRing(r.id, r.primary, r.secondary, r.ctrlVlan, members,
                        i % 2 == 0 ? cli::nm::kModeMaster : cli::nm::kModeTransit);
    }
    c.peers.serveUntil([&] { return c.peers.notificationsInFlight() == 0; }, seconds(5));
    f.setUpSec = std::chrono::duration<double>(Clock::now() - t0).count();

    std::vector<double> ms;
    for (int i = 0; i < kRegistrations; ++i) {
        ms.push_back(c.registerAgent());
        if (i > 0 && c.peers.agent().atEndCfg != f.log.atEndCfg) f.sameEveryTime = false;
        // What follows END_CFG, then a quiet manager before the next registration.
        c.peers.serveFor(milliseconds(50));
        f.log = c.peers.agent();
    }
    f.unexpected = c.peers.unexpected();
    std::sort(ms.begin(), ms.end());
    f.p50Ms = ms[ms.size() / 2];
    f.minMs = ms.front();
    f.maxMs = ms.back();
    return f;
}

// "0x6403 x63" for each type of the log, in ascending type order; "none" for no message.
std::string byType(const std::map<uint32_t, uint32_t>& counts) {
    if (counts.empty()) return "none";
    std::string s;
    char item[48];
    for (const auto& [mtype, n] : counts) {
        std::snprintf(item, sizeof(item), "%s0x%04X x%u", s.empty() ? "" : ", ", mtype, n);
        s += item;
    }
    return s;
}

}  // namespace

int main() {
    int cpu = bench::lastAllowedCpu();
    if (const char* env = std::getenv("AGENT_BENCH_CPU")) cpu = std::atoi(env);
    if (cpu < 0 || !bench::pinToCpu(0, cpu)) die("cannot pin the benchmark to one CPU");
    signal(SIGPIPE, SIG_IGN);

    char tmpl[] = "/tmp/vorn-agentbench-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) die("cannot make a temporary directory");
    const std::string base = tmpl;
    const int pipe = qelSwpCreatePipe("/qel/pipe/agentBenchPipe");
    if (pipe < 0) die("cannot create the SWP pipe");

    RelayFigures relay;
    {
        Chassis c(base + "/relay", "0,1", cpu, pipe);
        RelayBench b(c, base, cpu);
        b.setUp();
        relay = b.run();
    }
    DownloadFigures dl;
    {
        Chassis c(base + "/download", "0,1,2,3,4,5,6,7,8,9,10,11", cpu, pipe);
        dl = runDownload(c);
    }
    std::filesystem::remove_all(base);

    const double r50 = relay.relayed.lat.p50 / relay.bare.lat.p50;
    const double r99 = relay.relayed.lat.p99 / relay.bare.lat.p99;
    std::printf(
        "port-state report relay, agent -> manager -> L2PM (ring 1's primary flipped "
        "between FORW and BLOCKING)\n");
    std::printf(
        "  %d samples per side and round, median of %d rounds; the benchmark, vornd and "
        "the bare relay on CPU %d\n",
        kSamples, kRounds, cpu);
    std::printf("  %-40s %8s %8s %9s %9s %12s\n", "", "p50 us", "p99 us", "p50/bare", "p99/bare",
                "B CPU us/msg");
    auto row = [&](const char* what, const SideFigures& f, const char* note) {
        std::printf("  %-40s %8.2f %8.2f %9.2f %9.2f %12.2f%s%s\n", what, f.lat.p50, f.lat.p99,
                    f.lat.p50 / relay.bare.lat.p50, f.lat.p99 / relay.bare.lat.p99, f.cpuUsPerMsg,
                    *note != 0 ? "  " : "", note);
    };
    char goal[40];
    std::snprintf(goal, sizeof(goal), "(goal: <= %.2f at both)", kRelayGoal);
    row("bare AF_UNIX two-hop relay, A -> B -> C", relay.bare, "");
    row("bare relay, B acknowledging A first", relay.bareAcked, "");
    row("manager relay (B = vornd), no-syslog set", relay.relayed, goal);
    row("manager relay, change logged", relay.logged, "(+ the master's event-log line)");
    std::printf(
        "  port-state messages (18407) at L2PM: %llu for %llu reports; messages the "
        "peers did not expect: %llu\n",
        static_cast<unsigned long long>(relay.portStates),
        static_cast<unsigned long long>(relay.reports),
        static_cast<unsigned long long>(relay.unexpected));

    uint32_t messages = 0;
    for (const auto& [mtype, n] : dl.log.atEndCfg) messages += n;
    std::printf("full download to an agent registering at full tables\n");
    std::printf("  tables: %d rings of 15 member VLANs, VLANs %d-%d, %u ports on %u cards\n",
                kRings, kFirstVlan, kLastVlan, kCards * kPortsPerCard, kCards);
    std::printf(
        "  set up in %.2f s: L2PM download of %u records in %zu messages, %d "
        "configuration requests\n",
        dl.setUpSec, dl.l2pmRecords, dl.l2pmMessages, 5 * kRings);
    std::printf(
        "  registration sent to END_CFG acknowledged: p50 %.2f ms, min %.2f, max %.2f "
        "over %d registrations  (goal: < %.0f ms)\n",
        dl.p50Ms, dl.minMs, dl.maxMs, kRegistrations, kDownloadGoalMs);
    std::printf("  download: %u SWP messages, %.1f KiB: %s\n", messages,
                static_cast<double>(dl.log.bytesAtEndCfg) / 1024.0,
                byType(dl.log.atEndCfg).c_str());
    std::printf("            %u interface records, %u ring records (%u starting their ring)\n",
                dl.log.ifRecords, dl.log.ringRecords, dl.log.ringsStarted);
    std::printf("            %s; after END_CFG: %s; messages the peers did not expect: %llu\n",
                dl.sameEveryTime ? "the same on every registration"
                                 : "DIFFERENT FROM ONE REGISTRATION TO THE NEXT",
                byType(dl.log.afterEndCfg()).c_str(),
                static_cast<unsigned long long>(dl.unexpected));

    std::string missed;
    if (r50 > kRelayGoal || r99 > kRelayGoal) missed += " relay latency ratio;";
    if (relay.portStates != relay.reports) missed += " one port-state message per report;";
    if (dl.p50Ms >= kDownloadGoalMs) missed += " download time;";
    if (!dl.sameEveryTime) missed += " the same download on every registration;";
    std::printf("%s%s\n", missed.empty() ? "goals met" : "GOALS MISSED:", missed.c_str());
    return missed.empty() ? 0 : 1;
}
