// Clear counters: the ring counters live on the agents, so a clear request for one ring or
// for all is forwarded, at once and not through the pending buffers, to the agent of every
// line card that runs an affected ring.

#include <array>

#include "platform/codec.h"
#include "ringdb/records.h"
#include "show/show.h"
#include "task/pools.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/show.h"

int vornClearStatCounters(uint8_t* request) {
    static const char* const kFn = "vornClearStatCounters";
    namespace cl = vorn::agt::clear;
    if (request == nullptr) return -1;
    const uint16_t ringId =
        vorn::be::Reader(request, vorn::nm::kLen).u16(vorn::clearreq::kOffRingId);
    std::array<bool, VORN_MAX_SLOTS> marked{};
    int first = 0, last = VORN_MAX_SLOTS - 1;
    if (ringId != 0) {
        const VornRingEntry* ring = vornGetRing(ringId);
        if (ring == nullptr) {
            VORN_ERR("%s() Invalid Ring Id: %d\r\n", kFn, ringId);
            return -1;
        }
        if (ring->u2DesgLineCard >= VORN_NO_LINE_CARD) return 0;  // no agent counts for it
        first = last = ring->u2DesgLineCard;
        marked[ring->u2DesgLineCard] = true;
    } else {
        for (uint32_t id = VORN_MIN_RING_ID; id <= VORN_MAX_RING_ID; ++id) {
            const VornRingEntry* ring = gVornRing[id];
            if (ring != nullptr && ring->u2DesgLineCard < VORN_NO_LINE_CARD)
                marked[ring->u2DesgLineCard] = true;
        }
    }
    for (int slot = first; slot <= last; ++slot) {
        if (!marked[static_cast<size_t>(slot)] || vornTcb.vornaSwpHandle[slot] == 0) continue;
        auto* buf = static_cast<uint8_t*>(vornVarPoolMalloc(cl::kLen));
        if (buf == nullptr) {
            VORN_DBG("%s(): Cannot allocate buffer of size %ld  to send IFM msg to Agent. \r\n",
                     kFn, static_cast<long>(cl::kLen));
            continue;
        }
        vorn::be::Writer w(buf, cl::kLen);
        w.zero(0, cl::kLen);
        w.u16(cl::kOffRingId, ringId);
        vornSwpSendToAgent(vorn::agt::kMtClearStats, buf, cl::kLen, slot);
    }
    return 0;
}
