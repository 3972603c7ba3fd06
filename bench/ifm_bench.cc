// The manager's IFM intake of VLAN membership: VLAN-list records (up to 1000 VLANs each)
// packed into notifications as the simulator packs them, sent over a real SWP queue from an
// L2PM endpoint on a second thread and served by the manager's own main-loop pass on this one.
//
// Two scenarios: a whole chassis's membership at start of day (every port of 12 cards and
// every LAG in VLANs 1-4094, no port owned by a ring yet), and the same VLANs added to ports
// that rings own, where every pair also sends the VLAN's state to L2PM. Beside them, in the
// same run, two floors: the bare socket throughput of the same messages between two threads,
// and decoding the same records into the same membership bitmaps in a tight loop.

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
constexpr uint16_t kFirstVlan = 1;
constexpr uint16_t kLastVlan = 4094;
constexpr double kGoalPairsPerSec = 15e6;
constexpr double kGoalChassisMs = 250;

double secondsSince(Clock::time_point t0) {
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

// Every port of the chassis: the GigabitEthernet ports of 12 cards, then the LAGs.
std::vector<uint32_t> allPorts() {
    std::vector<uint32_t> out;
    for (uint32_t slot = 0; slot < limits::kSlots; ++slot)
        for (uint32_t port = 0; port < limits::kPortsPerSlot; ++port)
            out.push_back(ifmCreateIfIndex(ifm::kTypeGigabit, slot, port, 0));
    for (uint32_t lag = limits::kMinLag; lag <= limits::kMaxLag; ++lag)
        out.push_back(ifmCreateIfIndex(ifm::kTypeLag, 0, 0, lag));
    return out;
}

// Full messages (headers zeroed; the SWP queue fills them) adding every VLAN to the ports.
std::vector<std::vector<uint8_t>> buildMessages(const std::vector<uint32_t>& ports,
                                                uint64_t* records) {
    std::vector<sim::IfmRecord> recs;
    *records = 0;
    for (uint32_t port : ports) {
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

// The manager as start-up leaves it, with the VLANs and the ports reported by IFM and up.
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
    for (uint32_t port : allPorts()) {
        be::Writer(rec.data(), rec.size()).u32(0, port);
        vornCreatePort(rec.data(), rec.size());
        vornGetPort(vornPortNumOf(port))->u2OperState = 1;
    }
}

// Forgets every membership, so that each round applies the same changes afresh.
void clearMembership() {
    for (VornPortEntry* p : gVornPort)
        if (p != nullptr) p->vlanBmap.fill(0);
    for (VornVlanEntry* v : gVornVlan)
        if (v != nullptr) v->portBmap.fill(0), v->taggedPortBmap.fill(0);
}

// The floor: the same records decoded into the same membership bitmaps (the port's VLANs,
// the VLAN's ports and tagged ports) with nothing else done. Returns pairs per second.
double decodeRate(const std::vector<std::vector<uint8_t>>& msgs, uint64_t records) {
    std::vector<VornVlanBmap> portVlans(VORN_PORT_TABLE_SIZE);
    std::vector<VornPortBmap> vlanPorts(VORN_VLAN_TABLE_SIZE), vlanTagged(VORN_VLAN_TABLE_SIZE);
    uint64_t pairs = 0;
    auto t0 = Clock::now();
    for (const auto& m : msgs) {
        be::Reader r(m.data(), m.size());
        size_t off = VORN_IFM_RECORDS_OFF;
        for (int32_t i = 0, n = r.i32(VORN_IFM_NUM_ELEM_OFF); i < n; ++i) {
            const size_t len = r.u16(off + 2);
            const size_t data = off + VORN_IFM_REC_HDR_LEN;
            const uint16_t portNum = vornPortNumOf(r.u32(data));
            const bool tagged = r.u16(data + VORN_IFM_VL_TAGGED_OFF) != 0;
            const uint32_t count = r.u32(data + VORN_IFM_VL_LIST_OFF);
            for (uint32_t k = 0; k < count; ++k) {
                const uint32_t vlan =
                    ifmIfIndexToVlanId(r.u32(data + VORN_IFM_VL_LIST_OFF + 4 + 4 * k));
                bmp::set(portVlans[portNum], vlan);
                bmp::set(vlanPorts[vlan], portNum);
                if (tagged) bmp::set(vlanTagged[vlan], portNum);
                ++pairs;
            }
            off += len;
        }
    }
    double secs = secondsSince(t0);
    if (pairs != records) std::exit(3);
    return static_cast<double>(pairs) / secs;
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

struct Figures {
    double intake = 0, bare = 0, floor = 0;  // pairs per second, medians
};

Figures measure(const std::string& dir, const std::vector<std::vector<uint8_t>>& msgs,
                uint64_t records) {
    std::vector<double> intake, bare, floor;
    for (int r = 0; r < kRounds; ++r) {
        clearMembership();
        intake.push_back(intakeRate(msgs, records));
        bare.push_back(bareRate(dir, msgs, records));
        floor.push_back(decodeRate(msgs, records));
    }
    auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    return {median(intake), median(bare), median(floor)};
}

size_t averageSize(const std::vector<std::vector<uint8_t>>& msgs) {
    size_t bytes = 0;
    for (const auto& m : msgs) bytes += m.size();
    return bytes / msgs.size();
}

}  // namespace

int main() {
    char tmpl[] = "/tmp/vorn-ifmbench-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) return 2;
    std::string dir = tmpl, err;
    if (!host::setRunDir(dir, &err)) return 2;
    setUpManager();

    uint64_t records = 0;
    const std::vector<uint32_t> ports = allPorts();
    std::vector<std::vector<uint8_t>> msgs = buildMessages(ports, &records);
    Figures chassis = measure(dir, msgs, records);
    std::printf(
        "IFM intake, a whole chassis's membership at start of day: %zu ports and LAGs in VLANs "
        "%u-%u, %llu VLAN-port pairs in %zu notifications of %zu bytes on average (median of "
        "%d rounds)\n",
        ports.size(), kFirstVlan, kLastVlan, static_cast<unsigned long long>(records), msgs.size(),
        averageSize(msgs), kRounds);
    std::printf("  %-44s %12.0f pairs/s\n", "floor: decoding into the bitmaps, no I/O",
                chassis.floor);
    std::printf("  %-44s %12.0f pairs/s\n", "bare AF_UNIX, same messages", chassis.bare);
    std::printf("  %-44s %12.0f pairs/s  %.2f of the floor  (goal: >= %.0f million)\n",
                "manager intake over SWP", chassis.intake, chassis.intake / chassis.floor,
                kGoalPairsPerSec / 1e6);
    const double chassisMs = 1000.0 * static_cast<double>(records) / chassis.intake;
    std::printf("  whole chassis applied in %.0f ms  (goal: < %.0f ms)\n", chassisMs,
                kGoalChassisMs);

    // The sixteen ports of cards 0 and 1, owned by rings: every pair also sets the VLAN's state
    // on the port in L2PM (a 1032-byte port-state record).
    std::vector<uint32_t> owned(ports.begin(), ports.begin() + 8);
    owned.insert(owned.end(), ports.begin() + limits::kPortsPerSlot,
                 ports.begin() + limits::kPortsPerSlot + 8);
    for (uint32_t p : owned) vornGetPort(vornPortNumOf(p))->isOwnedByRingConf = 1;
    uint64_t ownedRecords = 0;
    std::vector<std::vector<uint8_t>> ownedMsgs = buildMessages(owned, &ownedRecords);
    Figures o = measure(dir, ownedMsgs, ownedRecords);
    std::printf(
        "IFM intake on %zu ring-owned ports, each pair also sending a port state to L2PM: "
        "%llu pairs\n",
        owned.size(), static_cast<unsigned long long>(ownedRecords));
    std::printf("  %-44s %12.0f pairs/s  %.2f of the floor\n", "manager intake over SWP", o.intake,
                o.intake / o.floor);
    std::filesystem::remove_all(dir);

    const bool met = chassis.intake >= kGoalPairsPerSec && chassisMs < kGoalChassisMs;
    if (!met) std::printf("GOAL MISSED: IFM intake\n");
    return met ? 0 : 1;
}
