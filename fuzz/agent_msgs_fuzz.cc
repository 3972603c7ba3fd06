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
// The manager knows the two rings of makeTwoRings (fuzz_support.h), so that reports and
// downloads find records.
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

namespace {

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
    for (QelKey key : gPeers) vorn::fuzz::drain(Key_getReqQueue(key));
    vorn::fuzz::drain(vornTcb.reqQfd);
    vorn::fuzz::drain(vornTcb.timerQfd);
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

void vorn::fuzz::setUp() {
    vorn::fuzz::initManager();
    vorn::fuzz::quietStdout();
    vornDbgPrint = vornErrPrint = vornMsgPrint = vornZilDbgPrint = 1;
    // The manager's own queues, its SWP pipe, and the peers its queues go to.
    vorn::fuzz::openManagerQueues();
    gPeers.push_back(qelIpcTmrOpen(VORN_L2PM_SERVICE, 0));
    for (int slot = 0; slot < VORN_MAX_SLOTS; ++slot)
        gPeers.push_back(qelIpcTmrOpen(VORN_AGENT_SERVICE, slot));
    if (std::find(gPeers.begin(), gPeers.end(), -1) != gPeers.end() ||
        vornToL2pmCreateSwpQueue() != 0) {
        abort();
    }
    vorn::fuzz::makeTwoRings("agent_msgs_fuzz");
    takeSnapshot();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The manager's receive buffer, as aligned as the main loop's own.
    vorn::fuzz::MsgBuf& buf = vorn::fuzz::messageBuffer();
    if (size == 0) return 0;
    if (!vorn::fuzz::makeMessage(data, size, messageType(data[0]), &buf)) return 0;
    vorn::fuzz::poisonPast(&buf, size);
    vornProcessIpcMsg(buf.data());
    restore();
    return 0;
}
