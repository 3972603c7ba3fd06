#include "cli/client.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/codec.h"
#include "platform/shell.h"
#include "wire/simctl.h"

namespace vorn::cli {
namespace {

constexpr int kCliService = ipc::kSvcCli;
// Instances tried after pid % 65536 when that one is taken by a live process.
constexpr int kInstanceTries = 16;

// The socket paths of the open endpoint, for the signal handler: a client stopped with
// Ctrl-C while it waits still removes its sockets. Fixed arrays, since the handler may
// only make async-signal-safe calls.
std::array<std::array<char, 128>, 3> gSocketPaths{};

extern "C" void removeSocketsAndExit(int sig) {
    for (auto& p : gSocketPaths)
        if (p[0] != '\0') unlink(p.data());
    _exit(128 + sig);
}

void rememberSockets(int instance) {
    const int kinds[] = {ipc::kKindRequest, ipc::kKindTimer, ipc::kKindReply};
    for (size_t i = 0; i < 3; ++i) {
        std::string path = host::queuePath(kCliService, instance, kinds[i]);
        if (path.size() < gSocketPaths[i].size())
            std::memcpy(gSocketPaths[i].data(), path.c_str(), path.size() + 1);
    }
    struct sigaction sa {};
    sa.sa_handler = removeSocketsAndExit;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

void forgetSockets() {
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    for (auto& p : gSocketPaths) p[0] = '\0';
}

bool startsWith(const std::string& s, const char* prefix) {
    return s.rfind(prefix, 0) == 0;
}

// "5 s", "0.3 s"
std::string seconds(int ms) {
    if (ms % 1000 == 0) return std::to_string(ms / 1000) + " s";
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f s", ms / 1000.0);
    return text;
}

}  // namespace

std::string normaliseLineEnds(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\r') {
            out += text[i];
            continue;
        }
        out += '\n';
        if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
    }
    return out;
}

Client::Client(std::string rundir, int timeoutMs)
    : rundir_(std::move(rundir)),
      timeoutMs_(timeoutMs),
      nextExchange_(static_cast<uint32_t>(getpid()) << 16 | 1) {
    // An absent directory means nothing runs there; it is not created just to find that out.
    struct stat st {};
    if (stat(rundir_.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        dirError_ = "no such run directory";
        return;
    }
    // The platform's run directory is set once; a process that set it already keeps it.
    dirUsable_ = host::options().rundir == rundir_ || host::setRunDir(rundir_, &dirError_);
    if (!dirUsable_) dirProblem_ = dirError_;
}

Client::~Client() {
    if (key_ < 0) return;
    qelIpcClose(key_);
    forgetSockets();
}

bool Client::peerRunning(int service, int instance) const {
    return dirUsable_ && host::endpointAlive(host::queuePath(service, instance, ipc::kKindRequest));
}

bool Client::connect(std::string* err) {
    if (key_ >= 0) return true;
    if (!dirUsable_) {
        *err = dirError_;
        return false;
    }
    int first = static_cast<int>(getpid() % 65536);
    for (int i = 0; i < kInstanceTries; ++i) {
        int instance = (first + i) % 65536;
        key_ = qelIpcTmrOpen(kCliService, instance);
        if (key_ >= 0) {
            instance_ = instance;
            rememberSockets(instance);
            return true;
        }
    }
    *err = "cannot open a command-line endpoint (service 40) in " + rundir_ + ": " +
           std::strerror(errno);
    return false;
}

Answer Client::shell(const std::string& line) {
    Answer a;
    if (!connect(&a.text)) return a;
    std::string out;
    if (!shell::query(key_, ipc::kSvcManager, 0, line, &out, timeoutMs_)) {
        a.text = "the manager in " + rundir_ + " did not answer within " + seconds(timeoutMs_) +
                 " (it serves the shell only after it has registered with the event "
                 "handler and L2PM)";
        return a;
    }
    a.answered = true;
    a.text = normaliseLineEnds(out);
    // The shell's own refusals; anything else is the function's output.
    a.ok = !startsWith(a.text, "unknown command: ") && !startsWith(a.text, "bad argument '") &&
           !startsWith(a.text, "bad value for ");
    return a;
}

Answer Client::sim(const std::string& command) {
    Answer a;
    if (!connect(&a.text)) return a;
    uint32_t xid = nextExchange_++;
    std::vector<uint8_t> req;
    if (!simctl::encodeRequest(command, xid,
                               qel_getQueueId(kCliService, instance_, ipc::kKindRequest), &req)) {
        a.text =
            "the command is longer than " + std::to_string(simctl::kMaxCommandLen) + " characters";
        return a;
    }
    // The request leaves from the request queue, and the answer comes back to it.
    if (qelIpcSend(Key_getReqQueue(key_), req.data(), static_cast<int>(req.size())) != 0) {
        a.text = "the simulator in " + rundir_ + " could not be reached";
        return a;
    }
    bool done = awaitAnswer([&](const uint8_t* msg, size_t len) {
        simctl::AnswerPart part;
        if (!simctl::decodeAnswerPart(msg, len, &part) || part.exchangeId != xid) return false;
        a.text += part.text;
        if (part.more) return false;
        a.ok = part.status == simctl::kStatusOk;
        return true;
    });
    if (!done) {
        a.ok = false;
        a.text = "the simulator in " + rundir_ + " did not answer within " + seconds(timeoutMs_);
        return a;
    }
    a.answered = true;
    return a;
}

uint32_t Client::ownQueue() const {
    return qel_getQueueId(kCliService, instance_, ipc::kKindRequest);
}

bool Client::exchange(Request msg, const std::function<bool(const uint8_t*, size_t)>& take,
                      std::string* err) {
    if (!connect(err)) return false;
    if (qelIpcSend(Key_getReqQueue(key_), msg.data(), static_cast<int>(msg.size())) != 0) {
        *err = "the manager in " + rundir_ + " could not be reached";
        return false;
    }
    if (awaitAnswer(take)) return true;
    *err = "the manager in " + rundir_ + " did not answer within " + seconds(timeoutMs_);
    return false;
}

ConfigAnswer Client::request(const std::function<Request(uint32_t xid, uint32_t srcQueue)>& make) {
    ConfigAnswer a;
    if (!connect(&a.error)) return a;
    uint32_t xid = nextExchange_++;
    // The answer is the message with the reply flag and this exchange id; one that cannot
    // be read as the whole request is reported, not waited out.
    size_t answerLen = 0;
    bool readable = false;
    bool done = exchange(
        make(xid, ownQueue()),
        [&](const uint8_t* m, size_t len) {
            be::Reader rd(m, len);
            if ((rd.u32(ipc::kOffFlags) & ipc::kFlagReply) == 0 || rd.u32(ipc::kOffXid) != xid ||
                rd.u32(ipc::kOffMtype) != nm::kMtNm)
                return false;
            answerLen = len;
            readable = nm::decodeReply(m, len, xid, &a.reply);
            return true;
        },
        &a.error);
    if (!done) {
        a.error += "; the command may or may not have taken effect";
        return a;
    }
    if (!readable) {
        a.error = "the manager's answer (" + std::to_string(answerLen) + " bytes, expected " +
                  std::to_string(nm::kLen) +
                  ") could not be read; the command may or may not have taken effect";
        return a;
    }
    a.answered = true;
    return a;
}

ConfigAnswer Client::configure(const nm::ConfigRequest& req) {
    return request([&req](uint32_t xid, uint32_t src) { return nm::encode(req, xid, src); });
}

bool Client::showPage(uint32_t code, const Paging& paging, ShowPage* page, std::string* err) {
    if (!connect(err)) return false;
    uint32_t xid = nextExchange_++;
    return exchange(
        encodeShow(code, paging, xid, ownQueue()),
        [&](const uint8_t* m, size_t len) { return decodeShowAnswer(m, len, xid, page); }, err);
}

bool Client::notify(uint32_t mtype, std::string* err) {
    if (!connect(err)) return false;
    std::array<uint8_t, ipc::kHdrLen> msg{};
    be::Writer w(msg.data(), msg.size());
    w.u32(ipc::kOffMlen, ipc::kHdrLen);
    w.u32(ipc::kOffMtype, mtype);
    w.u32(ipc::kOffSrcCard, ipc::kLoopbackAddr);
    w.u32(ipc::kOffSrcSvce, ownQueue());
    w.u32(ipc::kOffDstCard, ipc::kLoopbackAddr);
    w.u32(ipc::kOffDstSvce, ipc::queueId(ipc::kSvcManager, 0, ipc::kKindRequest));
    if (qelIpcSend(Key_getReqQueue(key_), msg.data(), static_cast<int>(msg.size())) != 0) {
        *err = "the manager in " + rundir_ + " could not be reached";
        return false;
    }
    return true;
}

bool Client::awaitAnswer(const std::function<bool(const uint8_t* msg, size_t len)>& take) {
    using Clock = std::chrono::steady_clock;
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs_);
    std::vector<uint8_t> buf(ipc::kMaxMsgLen);
    int fd = Key_getReqQueue(key_);
    for (;;) {
        auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return false;
        int n =
            qelIpcRecvWait(fd, buf.data(), static_cast<int>(buf.size()), static_cast<int>(left));
        if (n >= 0 && take(buf.data(), static_cast<size_t>(n))) return true;
    }
}

}  // namespace vorn::cli
