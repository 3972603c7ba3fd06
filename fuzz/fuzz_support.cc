#include "fuzz_support.h"

#include <stdlib.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <string>

#include "agent/pending.h"
#include "loop/loop.h"
#include "platform/bitmap.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "platform/ipc.h"
#include "platform/swp.h"
#include "ringdb/records.h"
#include "ringdb/ringdb.h"
#include "task/pools.h"
#include "task/register.h"
#include "task/tcb.h"

namespace vorn::fuzz {

MsgBuf& messageBuffer() {
    alignas(8) static MsgBuf buf{};
    unpoison(&buf);
    return buf;
}

void initRunDir() {
    static bool done = false;
    if (done) return;
    done = true;
    // On a memory file system when there is one: the sockets are made and removed often.
    char shm[] = "/dev/shm/vorn-fuzz-XXXXXX";
    char tmp[] = "/tmp/vorn-fuzz-XXXXXX";
    char* tmpl = mkdtemp(shm) != nullptr ? shm : tmp;
    if (tmpl == tmp && mkdtemp(tmp) == nullptr) abort();
    std::string err;
    if (!host::setRunDir(tmpl, &err)) abort();
    static const std::string dir = tmpl;
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    });
}

void initManager() {
    static bool done = false;
    if (done) return;
    done = true;
    initRunDir();
    vornTcb = VornTcb{};
    if (vornCreateMemPools() != 0) abort();
    vornInitGlobals();
}

void openManagerQueues() {
    vornTcb.ipcKey = qelIpcTmrOpen(VORN_SERVICE, 0);
    vornTcb.reqQfd = Key_getReqQueue(vornTcb.ipcKey);
    vornTcb.timerQfd = Key_getTmrQueue(vornTcb.ipcKey);
    vornTcb.swpPipefd = qelSwpCreatePipe("/qel/pipe/vornSwpPipe");
    if (vornTcb.ipcKey < 0 || vornTcb.swpPipefd < 0) abort();
}

void quietStdout() {
    if (std::getenv("VORN_FUZZ_TRACE") == nullptr &&
        std::freopen("/dev/null", "w", stdout) == nullptr)
        abort();
}

bool makeMessage(const uint8_t* data, size_t size, uint32_t mtype, MsgBuf* msg) {
    if (size < ipc::kHdrLen) return false;
    size_t len = std::min(size, msg->size());
    msg->fill(0);
    std::memcpy(msg->data(), data, len);
    be::Writer w(msg->data(), len);
    w.u32(ipc::kOffMagic, ipc::kMagic);
    w.u32(ipc::kOffMlen, static_cast<uint32_t>(len));
    w.u32(ipc::kOffMtype, mtype);
    return true;
}

size_t makeSizedMessage(const uint8_t* data, size_t size, uint32_t mtype, MsgBuf* msg) {
    if (size < 2) return 0;
    size_t len = std::clamp<size_t>(be::Reader(data, 2).u16(0), ipc::kHdrLen, msg->size());
    msg->fill(0);
    std::memcpy(msg->data(), data + 2, std::min(size - 2, len));
    be::Writer w(msg->data(), len);
    w.u32(ipc::kOffMagic, ipc::kMagic);
    w.u32(ipc::kOffMlen, static_cast<uint32_t>(len));
    w.u32(ipc::kOffMtype, mtype);
    return len;
}

void poisonPast(MsgBuf* msg, size_t len) {
    len = std::min(len, msg->size());
    VORN_FUZZ_POISON(msg->data() + len, msg->size() - len);
}

void unpoison(MsgBuf* msg) {
    VORN_FUZZ_UNPOISON(msg->data(), msg->size());
}

int passToManager(QelKey client, int instance, MsgBuf* msg, size_t len) {
    be::Writer w(msg->data(), len);
    w.u32(ipc::kOffSrcSvce, qel_getQueueId(ipc::kSvcCli, instance, ipc::kKindRequest));
    w.u32(ipc::kOffDstSvce, qel_getQueueId(VORN_SERVICE, 0, ipc::kKindRequest));
    if (qelIpcSend(client, msg->data(), static_cast<int>(len)) != 0) abort();
    msg->fill(0);
    poisonPast(msg, len);
    return qelIpcRecv(vornTcb.reqQfd, msg->data(), static_cast<int>(msg->size()), 0, 0, 0);
}

void drain(int qfd) {
    static MsgBuf sink;
    while (qelIpcRecv(qfd, sink.data(), static_cast<int>(sink.size()), 0, 0, 0) >= 0) {
    }
}

namespace {

uint32_t gi(uint32_t slot, uint32_t port) {
    return ifmCreateIfIndex(ifm::kTypeGigabit, slot, port, 0);
}

uint32_t lag(uint32_t id) {
    return ifmCreateIfIndex(ifm::kTypeLag, 0, 0, id);
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
        bmp::set(port->vlanBmap, v);
        VornVlanEntry* vlan = vornGetVlan(v);
        bmp::set(vlan->portBmap, portNum);
        bmp::set(vlan->taggedPortBmap, portNum);
    }
    if (ringId != 0) {
        port->isOwnedByRingConf = 1;
        port->i2RingCount = 1;
        bmp::set(port->ringBmap, ringId);
        bmp::set(port->ctrlVlanBmap, ctrlVlan);
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
        bmp::set(ring->memberVlanBmap, v);
        bmp::set(gVornMemVlanBmap, v);
        vornGetVlan(v)->u2MemberVlanRingId = id;
    }
    bmp::set(gVornCtrlVlanBmap, ctrlVlan);
    gVornRing[id] = ring;
    ++vornTcb.ringCount;
}

}  // namespace

void makeTwoRings(const char* caller) {
    makeVlan(10, 1);
    makeVlan(11, 2);
    for (uint16_t v : {20, 21, 30}) makeVlan(v, 0);
    makePort(gi(0, 1), {10, 20, 21}, 1, 10);
    makePort(gi(1, 1), {10, 20, 21}, 1, 10);
    makePort(gi(2, 1), {11, 30}, 2, 11);
    makePort(lag(1), {11, 30}, 2, 11);
    makePort(gi(3, 1), {11, 30}, 0, 0);
    // Gi 3/1 joins Po 1 (record: LAG ifIndex, member ifIndex).
    std::array<uint8_t, 8> rec{};
    be::Writer w(rec.data(), rec.size());
    w.u32(0, lag(1));
    w.u32(4, gi(3, 1));
    if (vornLagInsertMember(rec.data(), rec.size(), caller) != 0) abort();
    makeRing(1, VORN_MODE_MASTER, 10, {20, 21}, gi(0, 1), gi(1, 1), 1);
    makeRing(2, VORN_MODE_TRANSIT, 11, {30}, gi(2, 1), lag(1), 3);
    gVornActiveLineCards[1] = gVornActiveLineCards[3] = 1;
}

}  // namespace vorn::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vorn::fuzz::setUp();
    return 0;
}
