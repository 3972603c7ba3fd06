// The command line's requests fed to the manager's dispatch (vornProcessIpcMsg): every
// configuration request, show, debug and clear, and undebug all. One input is one datagram
// from a command-line client (40.1) to the manager's request queue, read there by the host
// library into the manager's 8192-byte receive buffer, so that the replies and show answers
// go back to the client, which drops them.
//
// Input: byte 0 chooses the request; bytes 1-2 are the message's length (taken into
// 60..8192), apart from the input's size, so that a short input makes a whole 1024-byte
// request; the bytes after them are the message from offset 0, zero-filled up to the
// length. The header is the host library's: magic, the length word, and the message type.
// Byte 0 modulo 17: 0-7 the configuration requests (ring, description, control VLAN with
// the interfaces, member VLANs, mode, disable, dead and hello interval), 8 clear, 9-11 debug
// (0xAAAA, 0xBBBB, 0xCCCC), 12-14 show (100036, 100270, 100271) with the request type written
// at offset 72; 15 undebug all (2003); 16 an MT_NM request of the type the input holds.
// The bytes of the buffer past the message are poisoned under AddressSanitizer.
//
// The manager knows the two rings of makeTwoRings (fuzz_support.h) and ring 3, created
// without interfaces by a configuration request. L2PM's queue is made
// and L2PM then goes away, so that an ownership exchange fails at once instead of waiting
// for an answer; no agent, IFM or event handler is there either. After every input the
// queue to L2PM is flushed, and then every message buffer must have been given back (else
// the target aborts: a leak); the pools, tables, configuration store and task block are
// then made afresh with the two rings, so every input starts from the same state.
//
// Seeds: fuzz/corpus/cli_requests_fuzz/, written by fuzz/gen_cli_requests_corpus.py.

#include <array>
#include <cstdio>
#include <cstdlib>

#include "agent/agent.h"
#include "agent/pending.h"
#include "config/config.h"
#include "fuzz_support.h"
#include "l2pm/l2pm.h"
#include "loop/loop.h"
#include "platform/cfgstore.h"
#include "platform/codec.h"
#include "platform/ipc.h"
#include "platform/mem.h"
#include "platform/swp.h"
#include "ringdb/ringdb.h"
#include "task/pools.h"
#include "task/register.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/cli.h"
#include "wire/msgtypes.h"

namespace {

namespace nm = vorn::nm;

constexpr uint32_t kRequestTypes[] = {
    nm::kTypeProto,       nm::kTypeDesc,       nm::kTypeCtrlVlan,       nm::kTypeMemberVlan,
    nm::kTypeMode,        nm::kTypeEnable,     nm::kTypeDead,           nm::kTypeHello,
    nm::kTypeClearStat,   nm::kTypeDbgDetail,  nm::kTypeDbgEvent,       nm::kTypeDbgPacket,
    nm::kTypeShowSummary, nm::kTypeShowDetail, nm::kTypeShowMemberVlans};
constexpr size_t kTypes = std::size(kRequestTypes);
constexpr size_t kUndebugAll = kTypes;
constexpr size_t kSelectors = kTypes + 2;  // ... and an MT_NM request as it stands

constexpr int kClient = 1;
QelKey gCli = -1;
VornTcb gStartTcb;

// Blocks of the variable partition in use other than the port records' LAG member lists:
// the message buffers.
uint64_t messageBuffersInUse() {
    uint64_t n = 0;
    for (const auto& row : vorn::host::memStats())
        if (row.id == VORN_MEM_PART_ID && row.pool.rfind("var", 0) == 0) n += row.inUse;
    for (const VornPortEntry* port : gVornPort)
        if (port != nullptr && port->pLagPortList != nullptr) --n;
    return n;
}

// The manager as start-up leaves it, with the two rings.
void makeState() {
    if (vornCreateMemPools() != 0) abort();
    vornInitGlobals();
    gVornStgInst.fill(0);
    vornActiveRings = 0;
    gapVornDbgDnldBuf.fill(nullptr);
    gpVornL2PmInstPortOwnBuf = gpVornL2PmPortStateBuf = gpVornL2PmFlushBuf = nullptr;
    vornTcb = gStartTcb;
    vorn::fuzz::makeTwoRings("cli_requests_fuzz");
    // Ring 3, created as "protocol vorn 3" creates it: no interfaces yet.
    std::array<uint8_t, nm::kLen> create{};
    vorn::be::Writer w(create.data(), create.size());
    w.u32(vorn::ipc::kOffMlen, nm::kLen);
    w.u32(vorn::ipc::kOffMtype, MT_NM);
    w.u32(nm::kOffType, nm::kTypeProto);
    w.u16(nm::kOffRingId, 3);
    vornProcessCliMsg(create.data());
}

// Checks that the input left no message buffer behind, then starts afresh.
void restore() {
    qelSwpQueueFlush(vornTcb.l2pmSwpHandle);
    vorn::fuzz::drain(Key_getReqQueue(gCli));
    vorn::fuzz::drain(vornTcb.reqQfd);
    vorn::fuzz::drain(vornTcb.timerQfd);
    if (uint64_t held = messageBuffersInUse(); held != 0) {
        std::fflush(stdout);
        std::fprintf(stderr, "cli_requests_fuzz: %llu message buffers not given back\n",
                     static_cast<unsigned long long>(held));
        qelMemShow();
        std::fflush(stdout);
        abort();
    }
    vorn::host::resetMemForTest();
    vorn::host::resetCfgStoreForTest();
    makeState();
}

}  // namespace

void vorn::fuzz::setUp() {
    vorn::fuzz::initManager();
    vorn::fuzz::quietStdout();
    vornDbgPrint = vornErrPrint = vornMsgPrint = vornL2pmMsgPrint = vornZilDbgPrint = 1;
    vorn::fuzz::openManagerQueues();
    QelKey l2pm = qelIpcTmrOpen(VORN_L2PM_SERVICE, 0);
    if (l2pm < 0 || vornToL2pmCreateSwpQueue() != 0) abort();
    qelIpcClose(l2pm);
    gCli = qelIpcTmrOpen(vorn::ipc::kSvcCli, kClient);
    if (gCli < 0) abort();
    gStartTcb = vornTcb;
    vorn::host::resetMemForTest();
    makeState();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vorn::fuzz::MsgBuf& buf = vorn::fuzz::messageBuffer();
    if (size < 3) return 0;
    const size_t selector = data[0] % kSelectors;
    const uint32_t mtype = selector == kUndebugAll ? MT_EVL_UNDEBUG_ALL : MT_NM;
    const size_t len = vorn::fuzz::makeSizedMessage(data + 1, size - 1, mtype, &buf);
    vorn::be::Writer w(buf.data(), len);
    if (selector < kTypes) w.u32(nm::kOffType, kRequestTypes[selector]);
    // Through the sockets, as the client's datagram: the manager's replies find the client.
    if (vorn::fuzz::passToManager(gCli, kClient, &buf, len) != static_cast<int>(len)) abort();
    vornProcessIpcMsg(buf.data());
    restore();
    return 0;
}
