// IPC endpoints, sends, receives and send-and-wait over UNIX-domain datagram sockets.

#include "platform/ipc.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/codec.h"
#include "platform/ipc_internal.h"

namespace vorn::host {
namespace {

constexpr long kIpcKeyBase = 0x20000000;
// A send to a full peer queue waits at most this long before it counts as lost.
constexpr int kSendTimeoutMs = 200;

struct SocketInfo {
    std::string path;
    sockaddr_un lastSrc{};
    socklen_t lastSrcLen = 0;
};

struct Endpoint {
    int service = 0;
    int instance = 0;
    int reqFd = -1;
    int tmrFd = -1;
    int replyFd = -1;
};

struct Registry {
    std::mutex mu;
    std::map<long, Endpoint> endpoints;  // by IPC key
    std::map<int, SocketInfo> sockets;   // by descriptor
    long nextKey = kIpcKeyBase + 1;
};

Registry& reg() {
    static Registry r;
    return r;
}

struct AtomicStats {
    std::atomic<uint64_t> sent{0}, sendFailed{0}, received{0}, droppedShort{0}, droppedMagic{0},
        droppedLength{0}, droppedStaleReply{0}, shellRequests{0}, deferred{0};
};
AtomicStats& stats() {
    static AtomicStats s;
    return s;
}

// Deferred sends (see setDeferFullSends in ipc.h): per destination path, the datagrams that
// wait for room in its queue, oldest first, each with the socket it is sent from.
struct Deferred {
    int fd;
    sockaddr_un addr;
    socklen_t alen;
    std::vector<uint8_t> bytes;
};
struct Outbox {
    std::mutex mu;
    bool on = false;
    std::map<std::string, std::deque<Deferred>> byDest;
    size_t waiting = 0;
};
Outbox& outbox() {
    static Outbox o;
    return o;
}

std::atomic<bool> gShellService{false};
std::atomic<uint32_t> gNextXid{1};

}  // namespace

bool makeAddr(const std::string& path, sockaddr_un* addr, socklen_t* len) {
    if (path.size() >= sizeof(addr->sun_path)) return false;
    std::memset(addr, 0, sizeof(*addr));
    addr->sun_family = AF_UNIX;
    std::memcpy(addr->sun_path, path.c_str(), path.size() + 1);
    *len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    return true;
}

int bindSocket(const std::string& path) {
    sockaddr_un addr;
    socklen_t alen;
    if (!makeAddr(path, &addr, &alen)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    if (access(path.c_str(), F_OK) == 0) {
        if (endpointAlive(path)) {
            errno = EADDRINUSE;
            return -1;
        }
        unlink(path.c_str());
    }
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), alen) != 0) {
        int e = errno;
        close(fd);
        errno = e;
        return -1;
    }
    int sz = 4 << 20;
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sz, sizeof(sz));
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &sz, sizeof(sz));
    timeval tv{0, kSendTimeoutMs * 1000};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof(tv));
    return fd;
}

namespace {

void dropDeferredFrom(int fd) {
    Outbox& o = outbox();
    std::lock_guard<std::mutex> lock(o.mu);
    for (auto& [dest, q] : o.byDest) {
        const size_t before = q.size();
        std::erase_if(q, [fd](const Deferred& d) { return d.fd == fd; });
        o.waiting -= before - q.size();
    }
}

void closeSocketLocked(Registry& r, int fd) {
    if (fd < 0) return;
    dropDeferredFrom(fd);
    auto it = r.sockets.find(fd);
    if (it != r.sockets.end()) {
        unlink(it->second.path.c_str());
        r.sockets.erase(it);
    }
    close(fd);
}

// This process's id, asked of the kernel once (and again in a forked child).
std::atomic<pid_t> gOwnPid{0};

uint32_t ownPid() {
    pid_t pid = gOwnPid.load(std::memory_order_relaxed);
    if (pid == 0) {
        static std::once_flag once;
        std::call_once(once, [] { pthread_atfork(nullptr, nullptr, [] { gOwnPid = 0; }); });
        pid = getpid();
        gOwnPid.store(pid, std::memory_order_relaxed);
    }
    return static_cast<uint32_t>(pid);
}

void stampHeader(void* buf, size_t len, bool reply) {
    be::Writer w(buf, len);
    w.u32(ipc::kOffMagic, ipc::kMagic);
    uint32_t flags = w.reader().u32(ipc::kOffFlags);
    flags = reply ? (flags | ipc::kFlagReply) : (flags & ~ipc::kFlagReply);
    w.u32(ipc::kOffFlags, flags);
    w.u32(ipc::kOffPid, ownPid());
    w.u32(ipc::kOffW28, 0);
}

ssize_t sendNow(int fd, const sockaddr_un& addr, socklen_t alen, const void* buf, size_t len,
                int flags) {
    ssize_t n;
    do {
        n = sendto(fd, buf, len, MSG_NOSIGNAL | flags, reinterpret_cast<const sockaddr*>(&addr),
                   alen);
    } while (n < 0 && errno == EINTR);
    return n;
}

// Sends at once, or, in a process that defers, queues the datagram behind those already
// waiting for the same destination or when the destination's queue is full.
int sendOrDefer(int fd, const sockaddr_un& addr, socklen_t alen, const void* buf, size_t len) {
    Outbox& o = outbox();
    std::lock_guard<std::mutex> lock(o.mu);
    std::deque<Deferred>& q = o.byDest[std::string(addr.sun_path)];
    if (q.empty()) {
        ssize_t n = sendNow(fd, addr, alen, buf, len, MSG_DONTWAIT);
        if (n == static_cast<ssize_t>(len)) {
            stats().sent++;
            return 0;
        }
        if (n >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
            stats().sendFailed++;
            return -1;
        }
    }
    const auto* bytes = static_cast<const uint8_t*>(buf);
    q.push_back({fd, addr, alen, std::vector<uint8_t>(bytes, bytes + len)});
    ++o.waiting;
    stats().deferred++;
    return 0;
}

int sendToAddr(int fd, const sockaddr_un& addr, socklen_t alen, void* buf, size_t len, bool reply,
               bool mayDefer = true) {
    if (len < ipc::kHdrLen || len > ipc::kMaxMsgLen) {
        stats().sendFailed++;
        errno = EMSGSIZE;
        return -1;
    }
    stampHeader(buf, len, reply);
    if (mayDefer && outbox().on) return sendOrDefer(fd, addr, alen, buf, len);
    if (sendNow(fd, addr, alen, buf, len, 0) != static_cast<ssize_t>(len)) {
        stats().sendFailed++;
        return -1;
    }
    stats().sent++;
    return 0;
}

}  // namespace

std::string queuePath(int service, int instance, int kind) {
    return options().rundir + "/" + std::to_string(service) + "." + std::to_string(instance) + "." +
           std::to_string(kind);
}

std::string queuePath(uint32_t queueId) {
    int kind = ipc::queueKind(queueId);
    if (kind == ipc::kKindSwpSource || kind == 0) kind = ipc::kKindRequest;
    return queuePath(ipc::queueService(queueId), ipc::queueInstance(queueId), kind);
}

bool endpointAlive(const std::string& path) {
    sockaddr_un addr;
    socklen_t alen;
    if (!makeAddr(path, &addr, &alen)) return false;
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    bool alive = connect(fd, reinterpret_cast<sockaddr*>(&addr), alen) == 0;
    close(fd);
    return alive;
}

QelKey findIpcKey(int service, int instance) {
    Registry& r = reg();
    std::lock_guard<std::mutex> lock(r.mu);
    for (const auto& [key, ep] : r.endpoints)
        if (ep.service == service && ep.instance == instance) return key;
    return -1;
}

int sendDatagram(int fd, const std::string& path, void* buf, size_t len, bool reply) {
    sockaddr_un addr;
    socklen_t alen;
    if (!makeAddr(path, &addr, &alen)) {
        stats().sendFailed++;
        errno = ENAMETOOLONG;
        return -1;
    }
    return sendToAddr(fd, addr, alen, buf, len, reply);
}

int routeSend(int fd, void* buf, size_t len, bool mayDefer) {
    be::Reader rd(buf, len);
    uint32_t target = rd.u32(ipc::kOffDstSvce);
    if (!rd.ok() || target == 0) {
        stats().sendFailed++;
        errno = EDESTADDRREQ;
        return -1;
    }
    // Built in place: this is the path of every originated message.
    int kind = ipc::queueKind(target);
    if (kind == ipc::kKindSwpSource || kind == 0) kind = ipc::kKindRequest;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    int n =
        std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s/%d.%d.%d", options().rundir.c_str(),
                      ipc::queueService(target), ipc::queueInstance(target), kind);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(addr.sun_path)) {
        stats().sendFailed++;
        errno = ENAMETOOLONG;
        return -1;
    }
    auto alen =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + static_cast<size_t>(n) + 1);
    return sendToAddr(fd, addr, alen, buf, len, false, mayDefer);
}

int sendToLastSource(int fd, void* buf, size_t len, bool reply) {
    sockaddr_un addr;
    socklen_t alen;
    {
        Registry& r = reg();
        std::lock_guard<std::mutex> lock(r.mu);
        auto it = r.sockets.find(fd);
        if (it == r.sockets.end() || it->second.lastSrcLen == 0) {
            stats().sendFailed++;
            errno = EDESTADDRREQ;
            return -1;
        }
        addr = it->second.lastSrc;
        alen = it->second.lastSrcLen;
    }
    return sendToAddr(fd, addr, alen, buf, len, reply);
}

int resolveSocket(long qfdOrKey) {
    Registry& r = reg();
    std::lock_guard<std::mutex> lock(r.mu);
    if (qfdOrKey > kIpcKeyBase) {
        auto it = r.endpoints.find(qfdOrKey);
        return it == r.endpoints.end() ? -1 : it->second.reqFd;
    }
    if (qfdOrKey < 0 || qfdOrKey > INT32_MAX) return -1;
    int fd = static_cast<int>(qfdOrKey);
    return r.sockets.count(fd) != 0 ? fd : -1;
}

int msLeft(std::chrono::steady_clock::time_point deadline) {
    auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

int recvValidated(int fd, void* buf, size_t len, int timeoutMs) {
    thread_local std::array<uint8_t, ipc::kMaxMsgLen> scratch;
    using Clock = std::chrono::steady_clock;
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs);
    for (;;) {
        if (timeoutMs > 0) {
            // A wait that has run out still looks once at what is already there.
            pollfd p{fd, POLLIN, 0};
            int pr = poll(&p, 1, msLeft(deadline));
            if (pr < 0 && errno == EINTR) continue;
            if (pr <= 0) return -1;
        }
        sockaddr_un src{};
        socklen_t slen = sizeof(src);
        // Waiting for ever is a plain blocking read; otherwise poll above said when to read.
        int flags = MSG_TRUNC | (timeoutMs < 0 ? 0 : MSG_DONTWAIT);
        ssize_t n = recvfrom(fd, scratch.data(), scratch.size(), flags,
                             reinterpret_cast<sockaddr*>(&src), &slen);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN && timeoutMs > 0) continue;
            return -1;
        }
        be::Reader rd(scratch.data(), std::min(static_cast<size_t>(n), scratch.size()));
        if (static_cast<size_t>(n) < ipc::kHdrLen) {
            stats().droppedShort++;
        } else if (rd.u32(ipc::kOffMagic) != ipc::kMagic) {
            stats().droppedMagic++;
        } else if (static_cast<size_t>(n) > ipc::kMaxMsgLen ||
                   rd.u32(ipc::kOffMlen) != static_cast<uint32_t>(n)) {
            stats().droppedLength++;
        } else {
            stats().received++;
            {
                Registry& r = reg();
                std::lock_guard<std::mutex> lock(r.mu);
                auto it = r.sockets.find(fd);
                if (it != r.sockets.end()) {
                    it->second.lastSrc = src;
                    it->second.lastSrcLen = slen;
                }
            }
            size_t copy = std::min(static_cast<size_t>(n), len);
            std::memcpy(buf, scratch.data(), copy);
            return static_cast<int>(n);
        }
        if (timeoutMs == 0) return -1;
    }
}

void countStaleReply() {
    stats().droppedStaleReply++;
}

void serveShellFor(int ms) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    std::vector<pollfd> watched;
    {
        Registry& r = reg();
        std::lock_guard<std::mutex> lock(r.mu);
        for (const auto& [key, ep] : r.endpoints) watched.push_back({ep.reqFd, POLLIN, 0});
    }
    // The stop event ends the wait: the caller then stops the program.
    if (stopEventFd() >= 0) watched.push_back({stopEventFd(), POLLIN, 0});
    std::array<uint8_t, ipc::kMaxMsgLen> buf;
    for (int left = ms; left > 0; left = msLeft(deadline)) {
        if (watched.empty()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(left));
            return;
        }
        if (poll(watched.data(), watched.size(), left) <= 0) continue;
        for (size_t i = 0; i < watched.size();) {
            if ((watched[i].revents & POLLIN) == 0) {
                ++i;
                continue;
            }
            if (watched[i].fd == stopEventFd()) return;
            std::array<uint8_t, 16> head{};
            ssize_t n = recv(watched[i].fd, head.data(), head.size(), MSG_PEEK | MSG_DONTWAIT);
            be::Reader rd(head.data(), n > 0 ? static_cast<size_t>(n) : 0);
            bool wellFormed = n >= 16 && rd.u32(ipc::kOffMagic) == ipc::kMagic;
            if (!wellFormed || rd.u32(ipc::kOffMtype) == ipc::kMtShellRequest) {
                // Shell lines are served now; malformed datagrams are dropped and counted.
                int got = recvValidated(watched[i].fd, buf.data(), buf.size(), 0);
                if (got > 0) serveShellRequest(watched[i].fd, buf.data(), static_cast<size_t>(got));
                watched[i].revents = 0;
                continue;
            }
            // Any other message waits at the head of its queue for the owner's own receive;
            // this queue is not watched again during this wait.
            watched.erase(watched.begin() + static_cast<long>(i));
        }
    }
}

void unlinkAllSockets() {
    Registry& r = reg();
    // No lock: the clean exit must not wait on a thread that holds it. Paths are only
    // read here, and the process ends right after.
    for (const auto& [fd, info] : r.sockets) unlink(info.path.c_str());
}

void enableShellService(bool on) {
    gShellService = on;
}
bool shellServiceEnabled() {
    return gShellService;
}

IpcStats ipcStats() {
    AtomicStats& s = stats();
    return IpcStats{s.sent,         s.sendFailed,    s.received,          s.droppedShort,
                    s.droppedMagic, s.droppedLength, s.droppedStaleReply, s.shellRequests,
                    s.deferred};
}

void setDeferFullSends(bool on) {
    Outbox& o = outbox();
    std::lock_guard<std::mutex> lock(o.mu);
    o.on = on;
}

size_t flushDeferredSends() {
    Outbox& o = outbox();
    std::lock_guard<std::mutex> lock(o.mu);
    for (auto& [dest, q] : o.byDest) {
        while (!q.empty()) {
            const Deferred& d = q.front();
            ssize_t n = sendNow(d.fd, d.addr, d.alen, d.bytes.data(), d.bytes.size(), MSG_DONTWAIT);
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;  // still full
            if (n == static_cast<ssize_t>(d.bytes.size()))
                stats().sent++;
            else
                stats().sendFailed++;  // the peer went away
            q.pop_front();
            --o.waiting;
        }
    }
    return o.waiting;
}

void countShellRequest() {
    stats().shellRequests++;
}

void printIpcStats() {
    IpcStats s = ipcStats();
    std::printf("IPC statistics\r\n");
    std::printf("  datagrams sent          : %llu\r\n", (unsigned long long)s.sent);
    std::printf("  sends failed            : %llu\r\n", (unsigned long long)s.sendFailed);
    std::printf("  datagrams received      : %llu\r\n", (unsigned long long)s.received);
    std::printf("  dropped, too short      : %llu\r\n", (unsigned long long)s.droppedShort);
    std::printf("  dropped, bad magic      : %llu\r\n", (unsigned long long)s.droppedMagic);
    std::printf("  dropped, bad length     : %llu\r\n", (unsigned long long)s.droppedLength);
    std::printf("  dropped, stale reply    : %llu\r\n", (unsigned long long)s.droppedStaleReply);
    std::printf("  shell requests          : %llu\r\n", (unsigned long long)s.shellRequests);
    std::printf("  sends deferred          : %llu\r\n", (unsigned long long)s.deferred);
}

void resetIpcForTest() {
    Registry& r = reg();
    std::lock_guard<std::mutex> lock(r.mu);
    for (auto& [fd, info] : r.sockets) {
        unlink(info.path.c_str());
        close(fd);
    }
    r.sockets.clear();
    r.endpoints.clear();
    AtomicStats& s = stats();
    s.sent = s.sendFailed = s.received = s.droppedShort = s.droppedMagic = s.droppedLength =
        s.droppedStaleReply = s.shellRequests = s.deferred = 0;
    gShellService = false;
    {
        Outbox& o = outbox();
        std::lock_guard<std::mutex> outboxLock(o.mu);
        o.on = false;
        o.byDest.clear();
        o.waiting = 0;
    }
}

}  // namespace vorn::host

using namespace vorn;

QelKey qelIpcTmrOpen(int service, int instance) {
    host::Registry& r = host::reg();
    std::lock_guard<std::mutex> lock(r.mu);
    host::Endpoint ep;
    ep.service = service;
    ep.instance = instance;
    int* fds[] = {&ep.reqFd, &ep.tmrFd, &ep.replyFd};
    const int kinds[] = {ipc::kKindRequest, ipc::kKindTimer, ipc::kKindReply};
    for (int i = 0; i < 3; ++i) {
        std::string path = host::queuePath(service, instance, kinds[i]);
        int fd = host::bindSocket(path);
        if (fd < 0) {
            int e = errno;
            for (int j = 0; j < i; ++j) host::closeSocketLocked(r, *fds[j]);
            errno = e;
            return -1;
        }
        *fds[i] = fd;
        r.sockets[fd].path = path;
    }
    long key = r.nextKey++;
    r.endpoints[key] = ep;
    return key;
}

int qelIpcClose(QelKey ipcKey) {
    host::Registry& r = host::reg();
    std::lock_guard<std::mutex> lock(r.mu);
    auto it = r.endpoints.find(ipcKey);
    if (it == r.endpoints.end()) return -1;
    host::closeSocketLocked(r, it->second.reqFd);
    host::closeSocketLocked(r, it->second.tmrFd);
    host::closeSocketLocked(r, it->second.replyFd);
    r.endpoints.erase(it);
    return 0;
}

namespace {
int endpointFd(QelKey key, int host::Endpoint::*field) {
    host::Registry& r = host::reg();
    std::lock_guard<std::mutex> lock(r.mu);
    auto it = r.endpoints.find(key);
    return it == r.endpoints.end() ? -1 : it->second.*field;
}
}  // namespace

int Key_getReqQueue(QelKey ipcKey) {
    return endpointFd(ipcKey, &host::Endpoint::reqFd);
}
int Key_getTmrQueue(QelKey ipcKey) {
    return endpointFd(ipcKey, &host::Endpoint::tmrFd);
}
int Key_getReplySocket(QelKey ipcKey) {
    return endpointFd(ipcKey, &host::Endpoint::replyFd);
}
int Key_getSocketFd(int qfd) {
    return qfd;
}

namespace {
// Receives one message and serves it here when it is a debug-shell line.
int receive(int qfd, void* buf, int len, int timeoutMs) {
    if (buf == nullptr || len <= 0) return -1;
    int fd = host::resolveSocket(qfd);
    if (fd < 0) return -1;
    int n = host::recvValidated(fd, buf, static_cast<size_t>(len), timeoutMs);
    if (n < 0) return -1;
    be::Reader rd(buf, std::min(n, len));
    if (host::shellServiceEnabled() && rd.u32(ipc::kOffMtype) == ipc::kMtShellRequest) {
        host::serveShellRequest(fd, buf, static_cast<size_t>(std::min(n, len)));
        return -1;
    }
    return std::min(n, len);
}
}  // namespace

int qelIpcRecv(int qfd, void* buf, int len, int, int, int) {
    return receive(qfd, buf, len, 0);
}

int qelIpcRecvWait(int qfd, void* buf, int len, int timeoutMs) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        int n = receive(qfd, buf, len, timeoutMs > 0 ? host::msLeft(deadline) : timeoutMs);
        if (n >= 0 || timeoutMs == 0) return n;
        // A served shell line or a dropped datagram: keep waiting for a message.
        if (timeoutMs > 0 && host::msLeft(deadline) == 0) return -1;
    }
}

int qelIpcSend(long qfdOrKey, void* buf, int len) {
    int fd = host::resolveSocket(qfdOrKey);
    if (fd < 0 || buf == nullptr || len <= 0) return -1;
    return host::routeSend(fd, buf, static_cast<size_t>(len));
}

int qelIpcReply(long qfdOrKey, void* buf, int len) {
    int fd = host::resolveSocket(qfdOrKey);
    if (fd < 0 || buf == nullptr || len <= 0) return -1;
    return host::sendToLastSource(fd, buf, static_cast<size_t>(len), true);
}

int qelIpcSendWait(QelKey ipcKey, void* buf, int len, int wait, int /*mtype*/, int) {
    if (buf == nullptr || len < static_cast<int>(ipc::kHdrLen)) return -1;
    int fd = Key_getReplySocket(ipcKey);
    if (fd < 0) return -1;
    uint32_t xid = host::gNextXid.fetch_add(1);
    if (xid == 0) xid = host::gNextXid.fetch_add(1);
    be::Writer w(buf, static_cast<size_t>(len));
    w.u32(ipc::kOffXid, xid);
    // Sent at once even in a process that defers: the answer is waited for right here.
    if (host::routeSend(fd, buf, static_cast<size_t>(len), false) != 0) return -1;

    using Clock = std::chrono::steady_clock;
    auto deadline = Clock::now() + std::chrono::milliseconds(100L * std::max(wait, 0));
    std::array<uint8_t, ipc::kMaxMsgLen> reply;
    for (;;) {
        int left = host::msLeft(deadline);
        int n = host::recvValidated(fd, reply.data(), reply.size(), std::max(left, 1));
        if (n < 0) {
            if (left == 0) return -1;
            continue;
        }
        be::Reader rd(reply.data(), static_cast<size_t>(n));
        if ((rd.u32(ipc::kOffFlags) & ipc::kFlagReply) == 0 || rd.u32(ipc::kOffXid) != xid) {
            host::countStaleReply();
            continue;
        }
        std::memcpy(buf, reply.data(), std::min(static_cast<size_t>(n), static_cast<size_t>(len)));
        return 0;
    }
}

uint32_t qel_getQueueId(int service, int instance, int kind) {
    return ipc::queueId(service, instance, kind);
}

uint32_t qel_tmeGetPeerIpAddrByName(int service, int instance, uint32_t* out) {
    uint32_t addr = 0xFFFFFFFF;
    // A request queue this process holds open exists without asking the file system.
    bool own = host::findIpcKey(service, instance) >= 0;
    if (own || access(host::queuePath(service, instance, ipc::kKindRequest).c_str(), F_OK) == 0) {
        addr = service == ipc::kSvcAgent ? ipc::kCardAddrBase + static_cast<uint32_t>(instance)
                                         : ipc::kLoopbackAddr;
    }
    if (out != nullptr) *out = addr;
    return addr;
}

uint32_t qel_sysGetIpAddr() {
    return ipc::kLoopbackAddr;
}
