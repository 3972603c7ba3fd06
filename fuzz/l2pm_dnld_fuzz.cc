// L2PM's configuration download fed straight from the fuzzer's input (the whole message,
// headers included; the kind at 248 is forced to a download), followed by a full
// interface-information download built from the records it made. Every record and pending
// buffer is given back after each input, so that inputs do not exhaust the pools.

#include <array>
#include <cstddef>
#include <cstdint>

#include "agent/agent.h"
#include "config/config.h"
#include "fuzz_support.h"
#include "ifm/ifm.h"
#include "loop/loop.h"
#include "peer/peer.h"
#include "platform/codec.h"
#include "ringdb/ringdb.h"
#include "show/show.h"
#include "task/register.h"
#include "task/swpq.h"
#include "wire/msgtypes.h"

namespace {

void releaseRecords() {
    for (int id = 1; id <= VORN_MAX_VLAN_ID; ++id) {
        vornCheckAndDeleteVlanEntry(static_cast<uint16_t>(id), VORN_CREATOR_IFM);
        vornCheckAndDeleteVlanEntry(static_cast<uint16_t>(id), VORN_CREATOR_RING_CONF);
    }
    for (int n = 1; n <= VORN_MAX_PORT_NUM; ++n) {
        VornPortEntry* port = gVornPort[n];
        if (port == nullptr) continue;
        port->i2RingCount = 0;
        vornCheckAndDeletePortEntry(port->u4IfIndex, VORN_CREATOR_IFM);
    }
}

}  // namespace

void vorn::fuzz::setUp() {
    initManager();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vorn::fuzz::MsgBuf& msg = vorn::fuzz::messageBuffer();
    if (!vorn::fuzz::makeMessage(data, size, MT_L2PM_NOTIF, &msg)) return 0;
    vorn::be::Writer(msg.data(), msg.size()).u32(VORN_L2PM_NOTIF_KIND_OFF, VORN_L2PM_NOTIF_DNLD);
    vornProcessL2PmDnld(msg.data());
    vornDnldIfInfoToAgt(0);
    // No queue exists to L2PM or to any agent: the flush gives every pending buffer back.
    vornFlushPendingMsgs();
    releaseRecords();
    return 0;
}
