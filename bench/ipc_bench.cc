// Host IPC and SWP against bare AF_UNIX datagram sockets, side by side:
//   - round trip of a 200-byte message between two endpoints (p50 and p99, microseconds);
//   - throughput of 8192-byte messages, over an SWP queue and over bare sockets.
// Each pair runs in the same process with the peer on a second thread, so both sides of a
// comparison pay the same thread wake-ups. Exits 1 when a ratio misses its goal.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/codec.h"
#include "platform/ipc.h"
#include "platform/mem.h"
#include "platform/swp.h"
#include "wire/msgtypes.h"

namespace {

using namespace vorn;
using Clock = std::chrono::steady_clock;

constexpr int kRoundTrips = 20000;
constexpr int kWarmup = 2000;
constexpr int kThroughputMsgs = 20000;
constexpr size_t kSmall = 200;
constexpr size_t kLarge = 8192;

struct Percentiles {
    double p50;
    double p99;
};

Percentiles percentiles(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return {v[v.size() / 2], v[v.size() * 99 / 100]};
}

double usSince(Clock::time_point t0) {
    return std::chrono::duration<double, std::micro>(Clock::now() - t0).count();
}

// ---- bare sockets -----------------------------------------------------------------------

struct BareSocket {
    int fd = -1;
    sockaddr_un addr{};
    explicit BareSocket(const std::string& path) {
        fd = socket(AF_UNIX, SOCK_DGRAM, 0);
        addr.sun_family = AF_UNIX;
        std::strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
        unlink(path.c_str());
        if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
            std::perror("bind");
            std::exit(2);
        }
        int sz = 4 << 20;
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sz, sizeof(sz));
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &sz, sizeof(sz));
    }
    ~BareSocket() {
        close(fd);
        unlink(addr.sun_path);
    }
    void sendTo(const BareSocket& to, const void* p, size_t n) const {
        sendto(fd, p, n, 0, reinterpret_cast<const sockaddr*>(&to.addr), sizeof(to.addr));
    }
};

std::vector<double> bareRoundTrips(const std::string& dir) {
    BareSocket client(dir + "/bare.client"), server(dir + "/bare.server");
    std::thread echo([&] {
        std::array<uint8_t, kLarge> buf;
        for (int i = 0; i < kRoundTrips + kWarmup; ++i) {
            sockaddr_un from{};
            socklen_t flen = sizeof(from);
            ssize_t n = recvfrom(server.fd, buf.data(), buf.size(), 0,
                                 reinterpret_cast<sockaddr*>(&from), &flen);
            sendto(server.fd, buf.data(), static_cast<size_t>(n), 0,
                   reinterpret_cast<sockaddr*>(&from), flen);
        }
    });
    std::array<uint8_t, kLarge> buf{};
    std::vector<double> rtt;
    for (int i = 0; i < kRoundTrips + kWarmup; ++i) {
        auto t0 = Clock::now();
        client.sendTo(server, buf.data(), kSmall);
        recv(client.fd, buf.data(), buf.size(), 0);
        if (i >= kWarmup) rtt.push_back(usSince(t0));
    }
    echo.join();
    return rtt;
}

double bareThroughput(const std::string& dir) {
    BareSocket tx(dir + "/bare.tx"), rx(dir + "/bare.rx");
    std::thread sink([&] {
        std::array<uint8_t, kLarge> buf;
        for (int i = 0; i < kThroughputMsgs; ++i) recv(rx.fd, buf.data(), buf.size(), 0);
    });
    std::array<uint8_t, kLarge> buf{};
    auto t0 = Clock::now();
    for (int i = 0; i < kThroughputMsgs; ++i) tx.sendTo(rx, buf.data(), buf.size());
    sink.join();
    return kThroughputMsgs / (usSince(t0) / 1e6);
}

// ---- host IPC and SWP -------------------------------------------------------------------

void fillHeader(uint8_t* p, size_t len, uint32_t mtype, int dstSvc) {
    be::Writer w(p, len);
    w.u32(ipc::kOffMlen, static_cast<uint32_t>(len));
    w.u32(ipc::kOffMtype, mtype);
    w.u32(ipc::kOffDstSvce, qel_getQueueId(dstSvc, 0, ipc::kKindRequest));
}

std::vector<double> hostRoundTrips() {
    QelKey client = qelIpcTmrOpen(40, 1);
    QelKey server = qelIpcTmrOpen(ipc::kSvcManager, 0);
    std::thread echo([&] {
        std::array<uint8_t, kLarge> buf;
        int fd = Key_getReqQueue(server);
        for (int i = 0; i < kRoundTrips + kWarmup; ++i) {
            int n = qelIpcRecvWait(fd, buf.data(), static_cast<int>(buf.size()), -1);
            qelIpcReply(fd, buf.data(), n);
        }
    });
    std::array<uint8_t, kLarge> buf{};
    int fd = Key_getReqQueue(client);
    std::vector<double> rtt;
    for (int i = 0; i < kRoundTrips + kWarmup; ++i) {
        auto t0 = Clock::now();
        fillHeader(buf.data(), kSmall, MT_NM, ipc::kSvcManager);
        qelIpcSend(fd, buf.data(), kSmall);
        qelIpcRecvWait(fd, buf.data(), static_cast<int>(buf.size()), -1);
        if (i >= kWarmup) rtt.push_back(usSince(t0));
    }
    echo.join();
    qelIpcClose(client);
    qelIpcClose(server);
    return rtt;
}

constexpr uint32_t kPart = 0x530000;
void* benchAlloc(uint32_t size) {
    return qelMC_M_memBlockVarAlloc(__FILE__, __LINE__, 1, size, kPart, 0, 0);
}
int benchFree(void* p) {
    return qelMC_M_memBlockVarFree(__FILE__, __LINE__, p);
}

double swpThroughput() {
    QelKey tx = qelIpcTmrOpen(ipc::kSvcManager, 0);
    QelKey rx = qelIpcTmrOpen(ipc::kSvcL2pm, 0);
    int pipe = qelSwpCreatePipe("/qel/pipe/benchSwpPipe");
    uint32_t handle = 0;
    if (qelSwpQueueCreateQs(0, 0, swp::kWindow, swp::kRtoL2pm, ipc::kSvcManager, 0, tx,
                            ipc::kSvcL2pm, 0,
                            qel_getQueueId(ipc::kSvcManager, 0, ipc::kKindSwpSource), 0, 0,
                            benchAlloc, 0, benchFree, nullptr, &handle, pipe) != 0) {
        std::fprintf(stderr, "SWP queue creation failed\n");
        std::exit(2);
    }
    std::atomic<int> delivered{0};
    std::thread sink([&] {
        std::array<uint8_t, kLarge> buf;
        uint32_t state[2] = {0, 0};
        int fd = Key_getReqQueue(rx);
        while (delivered < kThroughputMsgs) {
            if (qelIpcRecvWait(fd, buf.data(), static_cast<int>(buf.size()), 1000) < 0) break;
            if (qelSwpCkSeqAndAck(buf.data(), state, fd) == swp::kCkAccepted) delivered++;
        }
    });
    std::array<uint8_t, kLarge> ack;
    int fd = Key_getReqQueue(tx);
    int sent = 0, acked = 0;
    auto t0 = Clock::now();
    while (acked < kThroughputMsgs) {
        // Keep the window full and one window's worth held behind it.
        while (sent < kThroughputMsgs && sent - acked < 20) {
            auto* p = static_cast<uint8_t*>(benchAlloc(kLarge));
            fillHeader(p, kLarge, MT_L2PM_INST_PORT_OWNERSHIP, ipc::kSvcL2pm);
            qelSwpEnqueue(handle, p, static_cast<int>(kLarge));
            sent++;
        }
        // Take what is waiting first; block only when nothing is.
        if (qelIpcRecv(fd, ack.data(), static_cast<int>(ack.size()), 0, 0, 0) < 0 &&
            qelIpcRecvWait(fd, ack.data(), static_cast<int>(ack.size()), 50) < 0) {
            qelSwpReadPipe(pipe);
            continue;
        }
        uint32_t mtype = be::Reader(ack.data(), ack.size()).u32(ipc::kOffMtype);
        if (mtype == swp::kMtAck) {
            void* freed = nullptr;
            qelSwpDequeue(ack.data(), &freed);
            if (freed != nullptr) {
                benchFree(freed);
                acked++;
            }
        } else if (mtype == swp::kMtForcedResend) {
            qelSwpResend(ack.data());
        }
    }
    double rate = kThroughputMsgs / (usSince(t0) / 1e6);
    sink.join();
    qelSwpQueueRemove(handle);
    qelIpcClose(tx);
    qelIpcClose(rx);
    return rate;
}

}  // namespace

int main() {
    char tmpl[] = "/tmp/vorn-bench-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) return 2;
    std::string dir = tmpl;
    std::string err;
    if (!host::setRunDir(dir, &err)) {
        std::fprintf(stderr, "%s\n", err.c_str());
        return 2;
    }

    const uint32_t classes[] = {100, 68, 8192, 588, 260};
    qelMC_qel_memPartVarInit(kPart, 0, classes, 5);

    // Alternate the two sides of each comparison over several rounds and keep the median of
    // each figure, so a burst of load on the machine does not decide the ratio.
    constexpr int kRounds = 3;
    std::vector<double> bareP50, bareP99, hostP50, hostP99, bareRates, swpRates;
    for (int round = 0; round < kRounds; ++round) {
        Percentiles b = percentiles(bareRoundTrips(dir));
        Percentiles h = percentiles(hostRoundTrips());
        bareP50.push_back(b.p50);
        bareP99.push_back(b.p99);
        hostP50.push_back(h.p50);
        hostP99.push_back(h.p99);
        bareRates.push_back(bareThroughput(dir));
        swpRates.push_back(swpThroughput());
    }
    std::filesystem::remove_all(dir);
    auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    Percentiles bare{median(bareP50), median(bareP99)};
    Percentiles hostRt{median(hostP50), median(hostP99)};
    double bareRate = median(bareRates);
    double swpRate = median(swpRates);

    double rttRatio = hostRt.p50 / bare.p50;
    double rateRatio = swpRate / bareRate;
    std::printf("round trip, %zu-byte message (%d samples a round, median of %d rounds)\n", kSmall,
                kRoundTrips, kRounds);
    std::printf("  %-22s p50 %7.2f us   p99 %7.2f us\n", "bare AF_UNIX", bare.p50, bare.p99);
    std::printf("  %-22s p50 %7.2f us   p99 %7.2f us\n", "host IPC", hostRt.p50, hostRt.p99);
    std::printf("  ratio host/bare        p50 %7.2f      p99 %7.2f       (goal: p50 <= 1.30)\n",
                rttRatio, hostRt.p99 / bare.p99);
    std::printf("throughput, %zu-byte messages (%d messages a round, median of %d rounds)\n",
                kLarge, kThroughputMsgs, kRounds);
    std::printf("  %-22s %10.0f msg/s\n", "bare AF_UNIX", bareRate);
    std::printf("  %-22s %10.0f msg/s\n", "SWP queue (window 10)", swpRate);
    std::printf("  ratio SWP/bare         %7.2f                         (goal: >= 0.50)\n",
                rateRatio);
    bool ok = rttRatio <= 1.3 && rateRatio >= 0.5;
    std::printf("%s\n", ok ? "goals met" : "GOALS MISSED");
    return ok ? 0 : 1;
}
