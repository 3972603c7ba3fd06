// IFM notifications fed straight to the intake (vornProcessIfmNotif), over a manager that
// knows one ring with its ports and VLANs, so that the handlers' ring paths are reached.
// Every print flag is on (into /dev/null) so that the dump and the traces run too. The
// message is copied into a buffer of exactly its length: a read past it is a finding.
//
// Seeds: fuzz/corpus/ifm_intake_fuzz/, written by fuzz/gen_ifm_intake_corpus.py.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "agent/agent.h"
#include "agent/pending.h"
#include "config/config.h"
#include "fuzz_support.h"
#include "ifm/ifm.h"
#include "loop/loop.h"
#include "peer/peer.h"
#include "platform/bitmap.h"
#include "platform/ifindex.h"
#include "ringdb/ringdb.h"
#include "show/show.h"
#include "task/pools.h"
#include "task/register.h"
#include "task/swpq.h"
#include "task/trace.h"
#include "wire/msgtypes.h"

namespace {

// Ring 1: control VLAN 10, member VLANs 20 and 21, primary Gi 0/1, secondary Po 1. Gi 0/2
// exists as a port of no ring. The seeds use the same interfaces.
void makeRing() {
    const uint32_t pri = ifmCreateIfIndex(vorn::ifm::kTypeGigabit, 0, 1, 0);
    const uint32_t sec = ifmCreateIfIndex(vorn::ifm::kTypeLag, 0, 0, 1);
    auto* ring = vornMakeRecord<VornRingEntry>(
        vornFixedPoolMalloc(VORN_RING_TAG, VORN_RING_BLOCK_SIZE, VORN_RING_MEM_POOL));
    if (ring == nullptr) abort();
    ring->u2RingId = 1;
    ring->u1Mode = VORN_MODE_MASTER;
    ring->u4Flags = VORN_RING_CFG_MANDATORY | VORN_RING_CFG_MEMBER_VLAN;
    ring->u2CtrlVlanId = 10;
    ring->u4CtrlVlanIfIndex = ifmCreateIfIndex(vorn::ifm::kTypeVlan, 0, 0, 10);
    ring->u2DesgLineCard = VORN_NO_LINE_CARD;
    ring->isPriOwned = ring->isSecOwned = 1;
    vorn::bmp::set(ring->memberVlanBmap, 20);
    vorn::bmp::set(ring->memberVlanBmap, 21);
    gVornRing[1] = ring;
    for (uint16_t v : {10, 20, 21}) {
        VornVlanEntry* vlan = vornCreateVlanEntry(ifmCreateIfIndex(vorn::ifm::kTypeVlan, 0, 0, v),
                                                  VORN_CREATOR_RING_CONF);
        if (vlan == nullptr) abort();
        if (v == 10) vlan->u2CtrlVlanRingId = 1;
    }
    vorn::bmp::set(gVornCtrlVlanBmap, 10);
    for (uint32_t ifIndex : {pri, sec}) {
        VornPortEntry* port = vornCreatePortEntry(ifIndex, VORN_CREATOR_RING_CONF);
        if (port == nullptr) abort();
        port->isOwnedByRingConf = 1;
        port->i2RingCount = 1;
        vorn::bmp::set(port->ringBmap, 1);
        vorn::bmp::set(port->ctrlVlanBmap, 10);
    }
    ring->u4PriIfIndex = pri;
    ring->u4SecIfIndex = sec;
    ring->u2PriPortNum = vornPortNumOf(pri);
    ring->u2SecPortNum = vornPortNumOf(sec);
    if (vornCreatePortEntry(ifmCreateIfIndex(vorn::ifm::kTypeGigabit, 0, 2, 0), VORN_CREATOR_IFM) ==
        nullptr) {
        abort();
    }
}

}  // namespace

void vorn::fuzz::setUp() {
    vorn::fuzz::initManager();
    if (std::freopen("/dev/null", "w", stdout) == nullptr) abort();
    vornDbgPrint = vornErrPrint = vornMsgPrint = vornZilDbgPrint = 1;
    makeRing();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vorn::fuzz::MsgBuf& buf = vorn::fuzz::messageBuffer();
    if (!vorn::fuzz::makeMessage(data, size, MT_IFM_NOTIF_MSG, &buf)) return 0;
    std::vector<uint8_t> msg(buf.begin(),
                             buf.begin() + static_cast<std::ptrdiff_t>(std::min(size, buf.size())));
    vornProcessIfmNotif(msg.data());
    vornFlushPendingMsgs();
    return 0;
}
