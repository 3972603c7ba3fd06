// The line-card agents' messages fed to the manager's dispatch (vornProcessIpcMsg), one input
// as one message in the manager's 8192-byte receive buffer. The input's first byte chooses
// the message type (it is overwritten by the header's magic anyway): 0 the registration
// (0x6401), 1 an agent report (0x6404), 2 an event-handler notification (2009: card up,
// down or shut down). The header is fixed as the host library would pass the message on:
// magic, and a length word equal to the input's length (at most 8192).
//
// The bytes of the receive buffer past the message are poisoned under AddressSanitizer, so
// a read beyond the message's length is reported although it stays inside the buffer.
//
// The manager knows two rings, so that reports and downloads find records:
//   ring 1: master, control VLAN 10, member VLANs 20 and 21, primary Gi 0/1 (port 130),
//           secondary Gi 1/1 (port 194), run by the card in slot 1
//   ring 2: transit, control VLAN 11, member VLAN 30, primary Gi 2/1 (port 258),
//           secondary Po 1 (port 1) with the member Gi 3/1 (port 322), run by slot 3
// The agents' and L2PM's request queues exist in this process, so that the manager's queues
// to them can be made; nothing answers on them. Every input starts from the same state:
// afterwards the queues the input made are removed, the one to L2PM is flushed, the sockets
// are drained, and the records and the task block are put back as they were.
//
// Seeds: fuzz/corpus/agent_msgs_fuzz/, written by fuzz/gen_agent_msgs_corpus.py. With
// VORN_FUZZ_TRACE set, the manager's trace lines go to stdout instead of /dev/null.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "agent/agent.h"
#include "agent/pending.h"
#include "config/config.h"
#include "fuzz_support.h"
#include "ifm/ifm.h"
#include "loop/loop.h"
#include "peer/peer.h"
#include "platform/bitmap.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "platform/ipc.h"
#include "platform/swp.h"
#include "ringdb/ringdb.h"
#include "show/show.h"
#include "task/pools.h"
#include "task/register.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/msgtypes.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#include <sanitizer/asan_interface.h>
#define VORN_FUZZ_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define VORN_FUZZ_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#endif
#endif
#ifndef VORN_FUZZ_POISON
#define VORN_FUZZ_POISON(p, n) ((void)(p), (void)(n))
#define VORN_FUZZ_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace {

namespace ifm = vorn::ifm;

uint32_t gi(uint32_t slot, uint32_t port) {
    return ifmCreateIfIndex(ifm::kTypeGigabit, slot, port, 0);
}

VornVlanEntry* makeVlan(uint16_t id, uint16_t ctrlRing) {
    VornVlanEntry* vlan =
        vornCreateVlanEntry(ifmCreateIfIndex(ifm::kTypeVlan, 0, 0, id), VORN_CREATOR_IFM);
    if (vlan == nullptr) abort();
    vlan->u2CtrlVlanRingId = ctrlRing;
    return vlan;
}

// A port (or LAG) up and a tagged member of `vlans`; a ring interface when ringId is set.
VornPortEntry* makePort(uint32_t ifIndex, std::initializer_list<uint16_t> vlans, uint16_t ringId,
                        uint16_t ctrlVlan) {
    VornPortEntry* port = vornCreatePortEntry(ifIndex, VORN_CREATOR_IFM);
    if (port == nullptr) abort();
    port->u2OperState = 1;
    uint16_t portNum = vornPortNumOf(ifIndex);
    for (uint16_t v : vlans) {
        vorn::bmp::set(port->vlanBmap, v);
        VornVlanEntry* vlan = vornGetVlan(v);
        vorn::bmp::set(vlan->portBmap, portNum);
        vorn::bmp::set(vlan->taggedPortBmap, portNum);
    }
    if (ringId != 0) {
        port->isOwnedByRingConf = 1;
        port->i2RingCount = 1;
        vorn::bmp::set(port->ringBmap, ringId);
        vorn::bmp::set(port->ctrlVlanBmap, ctrlVlan);
    }
    return port;
}

void makeRing(uint16_t id, uint8_t mode, uint16_t ctrlVlan, std::initializer_list<uint16_t> members,
              uint32_t pri, uint32_t sec, uint16_t desgSlot) {
    auto* ring = vornMakeRecord<VornRingEntry>(
        vornFixedPoolMalloc(VORN_RING_TAG, VORN_RING_BLOCK_SIZE, VORN_RING_MEM_POOL));
    if (ring == nullptr) abort();
    ring->u2RingId = id;
    ring->u1Mode = mode;
    ring->u4Flags = VORN_RING_CFG_MANDATORY | VORN_RING_CFG_MEMBER_VLAN;
    ring->u2CtrlVlanId = ctrlVlan;
    ring->u4CtrlVlanIfIndex = ifmCreateIfIndex(ifm::kTypeVlan, 0, 0, ctrlVlan);
    ring->u4PriIfIndex = pri;
    ring->u4SecIfIndex = sec;
    ring->u2PriPortNum = vornPortNumOf(pri);
    ring->u2SecPortNum = vornPortNumOf(sec);
    ring->isPriOwned = ring->isSecOwned = ring->isSecReady = 1;
    ring->isPriTagged = ring->isSecTagged = 1;
    ring->u2HelloTime = VORN_DEFAULT_HELLO;
    ring->u2DeadTime = VORN_DEFAULT_DEAD;
    ring->u2DesgLineCard = desgSlot;
    ring->u2StgInst = static_cast<uint16_t>(halVornGetStgInst());
    for (uint16_t v : members) {
        vorn::bmp::set(ring->memberVlanBmap, v);
        vorn::bmp::set(gVornMemVlanBmap, v);
        vornGetVlan(v)->u2MemberVlanRingId = id;
    }
    vorn::bmp::set(gVornCtrlVlanBmap, ctrlVlan);
    gVornRing[id] = ring;
}

void makeRings() {
    makeVlan(10, 1);
    makeVlan(11, 2);
    for (uint16_t v : {20, 21, 30}) makeVlan(v, 0);
    makePort(gi(0, 1), {10, 20, 21}, 1, 10);
    makePort(gi(1, 1), {10, 20, 21}, 1, 10);
    makePort(gi(2, 1), {11, 30}, 2, 11);
    makePort(ifmCreateIfIndex(ifm::kTypeLag, 0, 0, 1), {11, 30}, 2, 11);
    makePort(gi(3, 1), {11, 30}, 0, 0);
    // Gi 3/1 joins Po 1 (record: LAG ifIndex, member ifIndex).
    std::array<uint8_t, 8> lag{};
    vorn::be::Writer w(lag.data(), lag.size());
    w.u32(0, ifmCreateIfIndex(ifm::kTypeLag, 0, 0, 1));
    w.u32(4, gi(3, 1));
    if (vornLagInsertMember(lag.data(), lag.size(), "agent_msgs_fuzz") != 0) abort();
    makeRing(1, VORN_MODE_MASTER, 10, {20, 21}, gi(0, 1), gi(1, 1), 1);
    makeRing(2, VORN_MODE_TRANSIT, 11, {30}, gi(2, 1), ifmCreateIfIndex(ifm::kTypeLag, 0, 0, 1), 3);
    gVornActiveLineCards[1] = gVornActiveLineCards[3] = 1;
}

// The peers' queues that the manager sends to: L2PM and every agent.
std::vector<QelKey> gPeers;

// The state every input starts from.
struct Snapshot {
    VornTcb tcb;
    std::array<int32_t, VORN_MAX_SLOTS> activeLineCards;
    std::vector<std::pair<VornRingEntry*, VornRingEntry>> rings;
    std::vector<std::pair<VornVlanEntry*, VornVlanEntry>> vlans;
    std::vector<std::pair<VornPortEntry*, VornPortEntry>> ports;
    std::vector<std::pair<VornLagPortList*, VornLagPortList>> lags;
};
Snapshot gStart;

void takeSnapshot() {
    gStart.tcb = vornTcb;
    gStart.activeLineCards = gVornActiveLineCards;
    for (VornRingEntry* r : gVornRing)
        if (r != nullptr) gStart.rings.emplace_back(r, *r);
    for (VornVlanEntry* v : gVornVlan)
        if (v != nullptr) gStart.vlans.emplace_back(v, *v);
    for (VornPortEntry* p : gVornPort) {
        if (p == nullptr) continue;
        gStart.ports.emplace_back(p, *p);
        if (p->pLagPortList != nullptr) gStart.lags.emplace_back(p->pLagPortList, *p->pLagPortList);
    }
}

void drain(int fd) {
    static std::array<uint8_t, 8192> sink;
    while (qelIpcRecv(fd, sink.data(), static_cast<int>(sink.size()), 0, 0, 0) >= 0) {
    }
}

// Puts the manager back into the state of gStart. The handlers fed here make no records
// and free none, so every record is still where it was.
void restore() {
    for (int slot = 0; slot < VORN_MAX_SLOTS; ++slot) vornVornaSwpReset(slot);
    qelSwpQueueFlush(vornTcb.l2pmSwpHandle);
    vornTcb = gStart.tcb;
    gVornActiveLineCards = gStart.activeLineCards;
    for (auto& [p, v] : gStart.rings) *p = v;
    for (auto& [p, v] : gStart.vlans) *p = v;
    for (auto& [p, v] : gStart.ports) *p = v;
    for (auto& [p, v] : gStart.lags) *p = v;
    for (QelKey key : gPeers) drain(Key_getReqQueue(key));
    drain(vornTcb.reqQfd);
    drain(vornTcb.timerQfd);
}

void setUp() {
    static bool done = false;
    if (done) return;
    done = true;
    vorn::fuzz::initManager();
    // VORN_FUZZ_TRACE=1 keeps the manager's trace lines, for reading what a reproducer does.
    if (std::getenv("VORN_FUZZ_TRACE") == nullptr &&
        std::freopen("/dev/null", "w", stdout) == nullptr)
        abort();
    vornDbgPrint = vornErrPrint = vornMsgPrint = vornZilDbgPrint = 1;
    // The manager's own queues, its SWP pipe, and the peers its queues go to.
    vornTcb.ipcKey = qelIpcTmrOpen(VORN_SERVICE, 0);
    vornTcb.reqQfd = Key_getReqQueue(vornTcb.ipcKey);
    vornTcb.timerQfd = Key_getTmrQueue(vornTcb.ipcKey);
    vornTcb.swpPipefd = qelSwpCreatePipe("/qel/pipe/vornSwpPipe");
    gPeers.push_back(qelIpcTmrOpen(VORN_L2PM_SERVICE, 0));
    for (int slot = 0; slot < VORN_MAX_SLOTS; ++slot)
        gPeers.push_back(qelIpcTmrOpen(VORN_AGENT_SERVICE, slot));
    if (vornTcb.ipcKey < 0 || vornTcb.swpPipefd < 0 ||
        std::find(gPeers.begin(), gPeers.end(), -1) != gPeers.end() ||
        vornToL2pmCreateSwpQueue() != 0) {
        abort();
    }
    makeRings();
    takeSnapshot();
}

uint32_t messageType(uint8_t selector) {
    switch (selector % 3) {
        case 0:
            return MT_VORN_VORNA_REGISTER;
        case 1:
            return MT_VORN_AGT_MSG_TO_MGR;
        default:
            return MT_EVH_EVENT_NOTIF;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    setUp();
    // The manager's receive buffer, as aligned as the main loop's own.
    alignas(8) static std::array<uint8_t, 8192> buf{};
    if (size == 0) return 0;
    VORN_FUZZ_UNPOISON(buf.data(), buf.size());
    if (!vorn::fuzz::makeMessage(data, size, messageType(data[0]), &buf)) return 0;
    size_t len = std::min(size, buf.size());
    VORN_FUZZ_POISON(buf.data() + len, buf.size() - len);
    vornProcessIpcMsg(buf.data());
    VORN_FUZZ_UNPOISON(buf.data(), buf.size());
    restore();
    return 0;
}
