#include "agent_bench_peers.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "platform/codec.h"
#include "platform/evtlog.h"
#include "platform/swp.h"
#include "wire/agent.h"
#include "wire/ifm.h"
#include "wire/l2pm.h"

namespace vorn::bench {
namespace {

constexpr int kManager = ipc::kSvcManager;
constexpr int kL2pm = ipc::kSvcL2pm;
constexpr int kAgent = ipc::kSvcAgent;
constexpr int kCliInstance = 1;
int releaseBuffer(void* buffer) {
    std::free(buffer);
    return 0;
}

// A heap copy of msg, for a sender queue to own (and give back through releaseBuffer).
void* queueCopy(const std::vector<uint8_t>& msg) {
    void* p = std::malloc(msg.size());
    if (p != nullptr) std::memcpy(p, msg.data(), msg.size());
    return p;
}

// Serves an acknowledgement or a resend request of one of the peers' sender queues. False
// when the message is neither.
bool serveSwpControl(uint32_t mtype, uint8_t* msg, size_t len) {
    if (len < swp::kCtrlMsgLen) return false;
    if (mtype == swp::kMtAck) {
        void* freed = nullptr;
        if (qelSwpDequeue(msg, &freed) == 0 && freed != nullptr) releaseBuffer(freed);
        return true;
    }
    if (mtype == swp::kMtForcedResend) {
        qelSwpResend(msg);
        return true;
    }
    return false;
}

// Hands a copy of msg to an SWP queue. False when no buffer could be had or the queue
// refused it (the copy is then given back).
bool enqueueCopy(uint32_t handle, const std::vector<uint8_t>& msg) {
    void* buffer = queueCopy(msg);
    if (buffer == nullptr) return false;
    if (qelSwpEnqueue(handle, buffer, static_cast<int>(msg.size())) != 0) {
        releaseBuffer(buffer);
        return false;
    }
    return true;
}

// Messages of a queue not acknowledged yet, sent or held.
uint32_t inFlight(uint32_t handle) {
    const QelSwpQueueCtrlBlock* cb = host::swpQueueByHandle(handle);
    return cb != nullptr ? cb->outstanding + cb->held : 0;
}

// The header of a message a peer originates, from its request queue to the manager's.
void writeHeader(be::Writer& w, uint32_t mtype, size_t len, int service, int instance) {
    uint32_t tmp = 0;
    w.u32(ipc::kOffMlen, static_cast<uint32_t>(len));
    w.u32(ipc::kOffMtype, mtype);
    w.u32(ipc::kOffSrcCard, qel_tmeGetPeerIpAddrByName(service, instance, &tmp));
    w.u32(ipc::kOffSrcSvce, qel_getQueueId(service, instance, ipc::kKindRequest));
    w.u32(ipc::kOffDstCard, ipc::kLoopbackAddr);
    w.u32(ipc::kOffDstSvce, qel_getQueueId(kManager, 0, ipc::kKindRequest));
}

}  // namespace

bool pinToCpu(pid_t pid, int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    return sched_setaffinity(pid, sizeof(set), &set) == 0;
}

int lastAllowedCpu() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof(set), &set) != 0) return -1;
    for (int cpu = CPU_SETSIZE - 1; cpu >= 0; --cpu)
        if (CPU_ISSET(cpu, &set)) return cpu;
    return -1;
}

double cpuUs(pid_t pid) {
    clockid_t clock;
    timespec ts{};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &ts) != 0) return 0;
    return static_cast<double>(ts.tv_sec) * 1e6 + static_cast<double>(ts.tv_nsec) / 1e3;
}

// ---- the manager's process ---------------------------------------------------------------

bool ManagerChild::start(const std::string& path, const std::string& rundir,
                         const std::string& cards, int cpu, const std::string& outPath,
                         std::string* err) {
    std::vector<std::string> args = {path, "--rundir", rundir, "--cards", cards};
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (out < 0) {
        *err = outPath + ": " + std::strerror(errno);
        return false;
    }
    pid_t pid = fork();
    if (pid < 0) {
        *err = std::string("fork: ") + std::strerror(errno);
        ::close(out);
        return false;
    }
    if (pid == 0) {
        // Only async-signal-safe calls between fork and exec. The manager goes when the
        // benchmark goes, however it ends.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        dup2(out, 1);
        dup2(out, 2);
        execv(argv[0], argv.data());
        _exit(127);
    }
    ::close(out);
    pid_ = pid;
    // The child inherits this process's CPU; it is pinned by its pid as well, so that it
    // stays on `cpu` whatever this process's own affinity is.
    if (!pinToCpu(pid_, cpu)) {
        *err = std::string("cannot pin vornd to CPU ") + std::to_string(cpu);
        stop();
        return false;
    }
    return true;
}

void ManagerChild::stop() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    int status = 0;
    auto deadline = Clock::now() + std::chrono::seconds(2);
    while (waitpid(pid_, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    pid_ = -1;
}

// ---- endpoints and the serving loop ----------------------------------------------------------

Peers::Peers(int agentSlot, int pipeFd)
    : slot_(agentSlot), pipeFd_(pipeFd), buf_(ipc::kMaxMsgLen) {}

Peers::~Peers() {
    if (l2pmQueue_ != 0) qelSwpQueueRemove(l2pmQueue_);
    if (agentQueue_ != 0) qelSwpQueueRemove(agentQueue_);
    for (Endpoint* ep : {&l2pmEp_, &evhEp_, &ifmEp_, &cliEp_, &agentEp_})
        if (ep->key >= 0) qelIpcClose(ep->key);
}

bool Peers::openOne(int service, int instance, Endpoint* ep, std::string* err) {
    ep->key = qelIpcTmrOpen(service, instance);
    if (ep->key < 0) {
        *err = "cannot open the queues of " + std::to_string(service) + "." +
               std::to_string(instance) + ": " + std::strerror(errno);
        return false;
    }
    ep->req = Key_getReqQueue(ep->key);
    ep->tmr = Key_getTmrQueue(ep->key);
    return true;
}

bool Peers::open(std::string* err) {
    return openOne(kL2pm, 0, &l2pmEp_, err) && openOne(ipc::kSvcEventHandler, 0, &evhEp_, err) &&
           openOne(ipc::kSvcIfm, 0, &ifmEp_, err) &&
           openOne(ipc::kSvcCli, kCliInstance, &cliEp_, err) &&
           openOne(kAgent, slot_, &agentEp_, err);
}

bool Peers::serveUntil(const std::function<bool()>& done, Clock::duration limit) {
    auto deadline = Clock::now() + limit;
    while (!done()) {
        auto left = deadline - Clock::now();
        if (left <= Clock::duration::zero()) return done();
        pollOnce(std::min<Clock::duration>(left, std::chrono::milliseconds(20)));
    }
    return true;
}

void Peers::serveFor(Clock::duration d) {
    auto deadline = Clock::now() + d;
    for (auto left = d; left > Clock::duration::zero(); left = deadline - Clock::now())
        pollOnce(left);
}

void Peers::drain(int fd, void (Peers::*handler)(uint8_t*, size_t, int)) {
    for (;;) {
        int n = qelIpcRecv(fd, buf_.data(), static_cast<int>(buf_.size()), 0, 0, 0);
        if (n < 0) return;
        (this->*handler)(buf_.data(), static_cast<size_t>(n), fd);
    }
}

void Peers::pollOnce(Clock::duration wait) {
    struct Source {
        int fd;
        void (Peers::*handler)(uint8_t*, size_t, int);
    };
    const Source sources[] = {
        {l2pmEp_.req, &Peers::onL2pm},   {agentEp_.req, &Peers::onAgent},
        {evhEp_.req, &Peers::onEvh},     {ifmEp_.req, &Peers::onIfm},
        {cliEp_.req, &Peers::onCli},     {l2pmEp_.tmr, &Peers::onTimer},
        {agentEp_.tmr, &Peers::onTimer},
    };
    constexpr size_t kSources = sizeof(sources) / sizeof(sources[0]);
    pollfd fds[kSources + 1];
    for (size_t i = 0; i < kSources; ++i) fds[i] = {sources[i].fd, POLLIN, 0};
    fds[kSources] = {pipeFd_, POLLIN, 0};
    auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(wait).count();
    timespec ts{static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
    if (ppoll(fds, kSources + 1, &ts, nullptr) <= 0) return;
    for (size_t i = 0; i < kSources; ++i)
        if ((fds[i].revents & POLLIN) != 0) drain(sources[i].fd, sources[i].handler);
    if ((fds[kSources].revents & POLLIN) != 0) qelSwpReadPipe(pipeFd_);
}

void Peers::onTimer(uint8_t*, size_t, int) {
    // SWP time-out notices of the peers' own queues: the manager did not acknowledge in
    // time. The queues keep retransmitting; the figures show the cost.
    ++unexpected_;
}

// ---- L2PM --------------------------------------------------------------------------------

void Peers::onL2pm(uint8_t* msg, size_t len, int fd) {
    be::Reader rd(msg, len);
    uint32_t mtype = rd.u32(ipc::kOffMtype);
    lastWasPortState_ = false;
    if (mtype == MT_L2PM_REGISTER) {
        be::Writer(msg, len).u32(VORN_L2PM_REG_RESULT_OFF, 0);
        qelIpcReply(fd, msg, static_cast<int>(len));
        l2pm_.registered = true;
    } else if (mtype == MT_L2PM_PORT_OWNERSHIP && len >= VORN_PORT_OWN_LEN) {
        // Every port is granted: the list of ports not granted is empty.
        be::Writer(msg, len).u32(VORN_PORT_OWN_LIST_OFF, 0);
        qelIpcReply(fd, msg, static_cast<int>(len));
        ++l2pm_.ownershipRequests;
    } else if (serveSwpControl(mtype, msg, len)) {
        // an acknowledgement or resend request of our own queue: done
    } else if (len >= swp::kCtrlMsgLen && rd.u32(swp::kOffMagic) == swp::kMagic) {
        int rc = qelSwpCkSeqAndAck(msg, l2pmRcv_, fd);
        if (rc == swp::kCkAccepted) {
            ++l2pm_.swpByType[mtype];
            lastWasPortState_ = mtype == MT_L2PM_PORT_STATE;
        } else if (rc == swp::kCkDuplicate) {
            ++l2pm_.duplicates;
        } else if (rc == swp::kCkGap) {
            ++l2pm_.gaps;
        }
    } else {
        ++unexpected_;
    }
}

bool Peers::queueToManager() {
    if (l2pmQueue_ != 0) return true;
    if (!host::endpointAlive(host::queuePath(kManager, 0, ipc::kKindRequest))) return false;
    return qelSwpQueueCreateQs(0, 0, swp::kWindow, swp::kRtoL2pm, kL2pm, 0, l2pmEp_.key, kManager,
                               0, qel_getQueueId(kL2pm, 0, ipc::kKindSwpSource), 0, 0, nullptr, 0,
                               releaseBuffer, nullptr, &l2pmQueue_, pipeFd_) == 0;
}

bool Peers::notify(uint32_t mtype, const std::vector<uint8_t>& body) {
    if (!queueToManager() || ipc::kSwpBodyOff + body.size() > ipc::kMaxMsgLen) return false;
    std::vector<uint8_t> msg(ipc::kSwpBodyOff + body.size());
    std::memcpy(msg.data() + ipc::kSwpBodyOff, body.data(), body.size());
    be::Writer w(msg.data(), msg.size());
    writeHeader(w, mtype, msg.size(), kL2pm, 0);
    return enqueueCopy(l2pmQueue_, msg);
}

uint32_t Peers::notificationsInFlight() const {
    return inFlight(l2pmQueue_);
}

std::optional<Clock::time_point> Peers::awaitPortState(Clock::duration limit) {
    auto deadline = Clock::now() + limit;
    for (;;) {
        int left = static_cast<int>(
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count());
        if (left <= 0) return std::nullopt;
        int n = qelIpcRecvWait(l2pmEp_.req, buf_.data(), static_cast<int>(buf_.size()), left);
        if (n < 0) continue;
        Clock::time_point at = Clock::now();
        onL2pm(buf_.data(), static_cast<size_t>(n), l2pmEp_.req);
        if (lastWasPortState_) return at;
    }
}

// ---- event handler, IFM, command line ------------------------------------------------------

void Peers::onEvh(uint8_t* msg, size_t len, int fd) {
    if (be::Reader(msg, len).u32(ipc::kOffMtype) != evt::kMtEvhSubscribe) {
        ++unexpected_;
        return;
    }
    be::Writer(msg, len).u32(evt::kOffSubResult, 0);
    qelIpcReply(fd, msg, static_cast<int>(len));
}

void Peers::onIfm(uint8_t* msg, size_t len, int fd) {
    uint32_t mtype = be::Reader(msg, len).u32(ipc::kOffMtype);
    if (mtype == MT_IFM_CTRL_VLAN_QUERY) {
        // Any VLAN may become a control VLAN.
        be::Writer(msg, len).u32(VORN_IFM_CTRL_VLAN_Q_REPLY_OFF, 0);
        qelIpcReply(fd, msg, static_cast<int>(len));
    } else if (mtype != MT_IFM_RING_IF_NOTICE) {
        ++unexpected_;
    }
}

void Peers::onCli(uint8_t* msg, size_t len, int) {
    cli::nm::Reply reply;
    uint32_t xid = be::Reader(msg, len).u32(ipc::kOffXid);
    if (cli::nm::decodeReply(msg, len, xid, &reply))
        cliAnswers_[xid] = reply.status;
    else
        ++unexpected_;
}

std::optional<uint32_t> Peers::configure(const cli::nm::ConfigRequest& req) {
    uint32_t xid = ++xid_;
    auto msg = cli::nm::encode(req, xid, qel_getQueueId(ipc::kSvcCli, kCliInstance, 1));
    if (qelIpcSend(cliEp_.req, msg.data(), static_cast<int>(msg.size())) != 0) return std::nullopt;
    if (!serveUntil([&] { return cliAnswers_.count(xid) != 0; }, std::chrono::seconds(2)))
        return std::nullopt;
    uint32_t status = cliAnswers_[xid];
    cliAnswers_.erase(xid);
    return status;
}

// ---- agent -----------------------------------------------------------------------------------

bool Peers::registerAgent() {
    std::vector<uint8_t> msg(agt::reg::kLen);
    be::Writer w(msg.data(), msg.size());
    writeHeader(w, agt::kMtRegister, msg.size(), kAgent, slot_);
    w.u32(agt::reg::kOffSlot, static_cast<uint32_t>(slot_));
    w.u32(agt::reg::kOffLcType, 1);
    return qelIpcSend(agentEp_.req, msg.data(), static_cast<int>(msg.size())) == 0;
}

bool Peers::agentQueue() {
    if (agentQueue_ != 0) return true;
    return qelSwpQueueCreateQs(0, 0, swp::kWindow, swp::kRtoAgent, kAgent, slot_, agentEp_.key,
                               kManager, 0, qel_getQueueId(kAgent, slot_, ipc::kKindSwpSource), 0,
                               0, nullptr, 0, releaseBuffer, nullptr, &agentQueue_, pipeFd_) == 0;
}

std::vector<uint8_t> Peers::report(uint16_t ringId, uint16_t priPort, uint32_t priState,
                                   bool noSyslog) const {
    namespace rep = agt::report;
    std::vector<uint8_t> msg(rep::kOffRecords + rep::kRecLen);
    be::Writer w(msg.data(), msg.size());
    writeHeader(w, agt::kMtReport, msg.size(), kAgent, slot_);
    w.u32(ipc::kOffSrcSlot, static_cast<uint32_t>(slot_));
    w.u32(rep::kOffSlot, static_cast<uint32_t>(slot_));
    w.u32(rep::kOffCount, 1);
    size_t rec = rep::kOffRecords;
    w.u16(rec + rep::kOffRingId, ringId);
    w.u8(rec + rep::kOffNoSyslog, noSyslog ? 1 : 0);
    w.u16(rec + rep::kOffPriPort, priPort);
    w.u16(rec + rep::kOffSecPort, 0);
    w.u32(rec + rep::kOffPriState, priState);
    w.u32(rec + rep::kOffSecState, agt::kStateNone);
    return msg;
}

bool Peers::sendReport(const std::vector<uint8_t>& msg, Clock::time_point* sentAt) {
    if (!agentQueue()) return false;
    *sentAt = Clock::now();
    return enqueueCopy(agentQueue_, msg);
}

uint32_t Peers::reportsInFlight() const {
    return inFlight(agentQueue_);
}

void Peers::onAgent(uint8_t* msg, size_t len, int fd) {
    be::Reader rd(msg, len);
    uint32_t mtype = rd.u32(ipc::kOffMtype);
    if (mtype == agt::kMtRegister) {
        ++agent_.regReplies;
    } else if (mtype == agt::kMtStatsReq && len >= agt::stats::kLen) {
        be::Writer(msg, len).zero(agt::stats::kOffCounters, 4 * agt::stats::kCounters);
        qelIpcReply(fd, msg, static_cast<int>(len));
        ++agent_.statsRequests;
    } else if (serveSwpControl(mtype, msg, len)) {
        // an acknowledgement or resend request of our own queue: done
    } else if (len >= swp::kCtrlMsgLen && rd.u32(swp::kOffMagic) == swp::kMagic) {
        agentSwpData(msg, len, fd);
    } else {
        ++unexpected_;
    }
}

void Peers::agentSwpData(const uint8_t* msg, size_t len, int fd) {
    int rc = qelSwpCkSeqAndAck(msg, agentRcv_, fd);
    if (rc == swp::kCkDuplicate) ++agent_.duplicates;
    if (rc == swp::kCkGap) ++agent_.gaps;
    if (rc != swp::kCkAccepted) return;
    be::Reader rd(msg, len);
    uint32_t mtype = rd.u32(ipc::kOffMtype);
    ++agent_.swpByType[mtype];
    agent_.bytes += len;
    if (mtype == agt::kMtIfInfo) {
        agent_.ifRecords += rd.u32(agt::ifinfo::kOffCount);
    } else if (mtype == agt::kMtRingCfg) {
        namespace rcfg = agt::rcfg;
        uint32_t count = rd.u32(rcfg::kOffCount);
        agent_.ringRecords += count;
        for (uint32_t i = 0; i < count && i < rcfg::kMaxRecords; ++i) {
            size_t rec = rcfg::kOffRecords + rcfg::kRecLen * i;
            if (rd.u32(rec + rcfg::kOffRingAction) == rcfg::kRingStart) ++agent_.ringsStarted;
        }
    } else if (mtype == agt::kMtEndCfg) {
        agent_.endCfgAckedAt = Clock::now();
        agent_.atEndCfg = agent_.swpByType;
        agent_.bytesAtEndCfg = agent_.bytes;
    }
}

}  // namespace vorn::bench
