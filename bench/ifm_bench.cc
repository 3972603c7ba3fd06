// The manager's IFM intake: VLAN-port adds on owned ports, packed into notifications as the
// simulator packs them (VLAN lists of up to 1000 VLANs, whole records per 8192-byte
// message), sent over a real SWP queue from an L2PM endpoint on a second thread and served by
// the manager's own main-loop pass on this one. Beside it, the bare socket throughput of the
// same messages between two threads. Prints records per second for both and their ratio.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "agent/agent.h"
#include "config/config.h"
#include "ifm/ifm.h"
#include "loop/loop.h"
#include "peer/peer.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "platform/ipc.h"
#include "platform/mem.h"
#include "platform/swp.h"
#include "ringdb/records.h"
#include "ringdb/ringdb.h"
#include "show/show.h"
#include "sim/ifm_notif.h"
#include "task/pools.h"
#include "task/register.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "wire/msgtypes.h"

namespace {

using namespace vorn;
using Clock = std::chrono::steady_clock;

constexpr int kRounds = 3;
constexpr uint16_t kFirstVlan = 2;
constexpr uint16_t kLastVlan = 4001;

double secondsSince(Clock::time_point t0) {
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

// The sixteen GigabitEthernet ports of cards 0 and 1.
std::vector<uint32_t> ports() {
    std::vector<uint32_t> out;
    for (uint32_t slot = 0; slot < 2; ++slot)
        for (uint32_t port = 0; port < 8; ++port)
            out.push_back(ifmCreateIfIndex(ifm::kTypeGigabit, slot, port, 0));
    return out;
}

// Full messages (headers zeroed; the SWP queue fills them) adding every VLAN to every port.
std::vector<std::vector<uint8_t>> buildMessages(uint64_t* records) {
    std::vector<sim::IfmRecord> recs;
    *records = 0;
    for (uint32_t port : ports()) {
        for (uint32_t first = kFirstVlan; first <= kLastVlan; first += sim::ifmrec::kMaxListVlans) {
            sim::IfmRecord r;
            r.type = IFM_TYP_ADD_VLANBMP_PORT;
            r.ifIndex = port;
            r.tagged = true;
            for (uint32_t v = first; v <= std::min<uint32_t>(kLastVlan, first + 999); ++v)
                r.vlans.push_back(static_cast<uint16_t>(v));
            *records += r.vlans.size();
            recs.push_back(std::move(r));
        }
    }
    uint32_t count = 0;
    std::vector<std::vector<uint8_t>> msgs;
    for (auto& body : sim::packIfmNotifications(recs, &count)) {
        std::vector<uint8_t> m(ipc::kSwpBodyOff + body.size());
        std::copy(body.begin(), body.end(), m.begin() + ipc::kSwpBodyOff);
        be::Writer w(m.data(), m.size());
        w.u32(ipc::kOffMlen, static_cast<uint32_t>(m.size()));
        w.u32(ipc::kOffMtype, MT_IFM_NOTIF_MSG);
        w.u32(ipc::kOffDstSvce, qel_getQueueId(ipc::kSvcManager, 0, ipc::kKindRequest));
        msgs.push_back(std::move(m));
    }
    return msgs;
}

// The manager as start-up leaves it, with the VLANs and the ports reported by IFM, the ports
// up and owned by ring configuration.
void setUpManager() {
    vornTcb = VornTcb{};
    vornTcb.ipcKey = qelIpcTmrOpen(ipc::kSvcManager, 0);
    vornTcb.reqQfd = Key_getReqQueue(vornTcb.ipcKey);
    vornTcb.timerQfd = Key_getTmrQueue(vornTcb.ipcKey);
    if (vornCreateMemPools() != 0) std::exit(2);
    vornTcb.swpPipefd = qelSwpCreatePipe("/qel/pipe/vornSwpPipe");
    vornInitGlobals();
    std::array<uint8_t, 28> rec{};
    for (uint32_t v = kFirstVlan; v <= kLastVlan; ++v) {
        be::Writer(rec.data(), rec.size()).u32(0, ifmCreateIfIndex(ifm::kTypeVlan, 0, 0, v));
        vornCreateVlan(rec.data(), rec.size());
    }
    for (uint32_t port : ports()) {
        be::Writer(rec.data(), rec.size()).u32(0, port);
        vornCreatePort(rec.data(), rec.size());
        VornPortEntry* p = vornGetPort(vornPortNumOf(port));
        p->isOwnedByRingConf = 1;
        p->u2OperState = 1;
    }
}

void* l2pmAlloc(uint32_t size) {
    return qelMC_M_sysMalloc(__FILE__, __LINE__, size);
}
int l2pmFree(void* p) {
    return qelMC_M_sysMemfree(__FILE__, __LINE__, p);
}

// L2PM's side: sends every message over its SWP queue to the manager and serves the acks.
void sendAll(QelKey l2pm, const std::vector<std::vector<uint8_t>>& msgs, std::atomic<bool>* stop) {
    int pipe = qelSwpCreatePipe("/qel/pipe/benchL2pmPipe");
    uint32_t handle = 0;
    if (qelSwpQueueCreateQs(0, 0, swp::kWindow, swp::kRtoL2pm, ipc::kSvcL2pm, 0, l2pm,
                            ipc::kSvcManager, 0,
                            qel_getQueueId(ipc::kSvcL2pm, 0, ipc::kKindSwpSource), 0, 0, l2pmAlloc,
                            0, l2pmFree, nullptr, &handle, pipe) != 0)
        std::exit(2);
    size_t next = 0;
    std::array<uint8_t, 8192> in;
    int fd = Key_getReqQueue(l2pm);
    while (!*stop) {
        // Keep a window's worth queued behind the one in flight.
        const QelSwpQueueCtrlBlock* cb = host::swpQueueByHandle(handle);
        while (next < msgs.size() && cb != nullptr && cb->outstanding + cb->held < 20) {
            auto* b = static_cast<uint8_t*>(l2pmAlloc(static_cast<uint32_t>(msgs[next].size())));
            std::memcpy(b, msgs[next].data(), msgs[next].size());
            qelSwpEnqueue(handle, b, static_cast<int>(msgs[next].size()));
            ++next;
            cb = host::swpQueueByHandle(handle);
        }
        if (qelIpcRecvWait(fd, in.data(), 8192, 5) < 0) {
            qelSwpReadPipe(pipe);
            continue;
        }
        uint32_t mtype = be::Reader(in.data(), in.size()).u32(ipc::kOffMtype);
        void* freed = nullptr;
        if (mtype == swp::kMtAck && qelSwpDequeue(in.data(), &freed) == 0 && freed != nullptr)
            l2pmFree(freed);
        else if (mtype == swp::kMtForcedResend)
            qelSwpResend(in.data());
    }
    qelSwpQueueRemove(handle);
}

double intakeRate(const std::vector<std::vector<uint8_t>>& msgs, uint64_t records) {
    QelKey l2pm = qelIpcTmrOpen(ipc::kSvcL2pm, 0);
    std::atomic<bool> stop{false};
    uint32_t start = gVornCounters[VORN_CNT_ADD_VLAN_PORT];
    auto t0 = Clock::now();
    std::thread sender(sendAll, l2pm, std::cref(msgs), &stop);
    while (gVornCounters[VORN_CNT_ADD_VLAN_PORT] - start < records) vornMainLoopPass(20000);
    double secs = secondsSince(t0);
    stop = true;
    sender.join();
    qelIpcClose(l2pm);
    return static_cast<double>(records) / secs;
}

double bareRate(const std::string& dir, const std::vector<std::vector<uint8_t>>& msgs,
                uint64_t records) {
    auto bound = [](const std::string& path, sockaddr_un* a) {
        int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
        a->sun_family = AF_UNIX;
        std::strncpy(a->sun_path, path.c_str(), sizeof(a->sun_path) - 1);
        unlink(path.c_str());
        if (bind(fd, reinterpret_cast<sockaddr*>(a), sizeof(*a)) != 0) std::exit(2);
        return fd;
    };
    sockaddr_un txa{}, rxa{};
    int tx = bound(dir + "/bare.tx", &txa), rx = bound(dir + "/bare.rx", &rxa);
    std::thread sink([&] {
        std::array<uint8_t, 8192> buf;
        for (size_t i = 0; i < msgs.size(); ++i) recv(rx, buf.data(), buf.size(), 0);
    });
    auto t0 = Clock::now();
    for (const auto& m : msgs)
        sendto(tx, m.data(), m.size(), 0, reinterpret_cast<sockaddr*>(&rxa), sizeof(rxa));
    sink.join();
    double secs = secondsSince(t0);
    close(tx);
    close(rx);
    return static_cast<double>(records) / secs;
}

}  // namespace

int main() {
    char tmpl[] = "/tmp/vorn-ifmbench-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) return 2;
    std::string dir = tmpl, err;
    if (!host::setRunDir(dir, &err)) return 2;
    setUpManager();

    uint64_t records = 0;
    std::vector<std::vector<uint8_t>> msgs = buildMessages(&records);
    size_t bytes = 0;
    for (const auto& m : msgs) bytes += m.size();

    std::vector<double> intake, bare;
    for (int r = 0; r < kRounds; ++r) {
        intake.push_back(intakeRate(msgs, records));
        bare.push_back(bareRate(dir, msgs, records));
    }
    std::filesystem::remove_all(dir);
    std::sort(intake.begin(), intake.end());
    std::sort(bare.begin(), bare.end());
    double in = intake[intake.size() / 2], b = bare[bare.size() / 2];

    std::printf(
        "IFM intake: %llu VLAN-port adds on 16 owned ports, in %zu notifications of "
        "%zu bytes on average (median of %d rounds)\n",
        static_cast<unsigned long long>(records), msgs.size(), bytes / msgs.size(), kRounds);
    std::printf("  %-30s %12.0f records/s\n", "bare AF_UNIX, same messages", b);
    std::printf("  %-30s %12.0f records/s\n", "manager intake over SWP", in);
    std::printf("  ratio intake/bare              %12.3f\n", in / b);
    return 0;
}
