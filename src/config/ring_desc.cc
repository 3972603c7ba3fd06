// A ring's description: kept on the manager (cut to 255 characters in the record) and
// written whole into the running configuration; the agents never see it.

#include <algorithm>
#include <cstring>
#include <string>

#include "config/cli_request.h"
#include "config/config.h"
#include "ringdb/records.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

std::string descLine(const std::string& text) {
    return " description " + text;
}

}  // namespace

int vornProcessDescription(uint8_t* request) {
    VORN_DBG("%s \r\n", __func__);
    if (vorn::cfg::reqIsNoForm(request)) {
        vornCount(VORN_CNT_CLI_DEL_DESC);
        return vornDelDescription(request);
    }
    vornCount(VORN_CNT_CLI_ADD_DESC);
    return vornAddDescription(request);
}

int vornAddDescription(uint8_t* request) {
    const uint16_t ringId = vorn::cfg::reqRingId(request);
    VORN_DBG("%s ringId = %d \r\n", __func__, ringId);
    VornRingEntry* ring = vornGetRing(ringId);
    if (ring == nullptr) return 0;
    const std::string text = vorn::cfg::reqDescription(request);
    const size_t storedLen = strnlen(ring->description.data(), ring->description.size());
    if ((ring->u4Flags & VORN_RING_CFG_DESC) != 0 && storedLen == text.size() &&
        text.compare(0, storedLen, ring->description.data(), storedLen) == 0) {
        return 0;
    }
    const size_t keep = std::min(text.size(), ring->description.size() - 1);
    ring->description.fill('\0');
    std::memcpy(ring->description.data(), text.data(), keep);
    ring->u4Flags |= VORN_RING_CFG_DESC;
    // The line carries the text as received, not cut.
    vornConfigAdd(ringId, VORN_CFG_CMD_DESC, descLine(text).c_str(), 0);
    return 0;
}

int vornDelDescription(uint8_t* request) {
    const uint16_t ringId = vorn::cfg::reqRingId(request);
    VORN_DBG("%s ringId = %d \r\n", __func__, ringId);
    VornRingEntry* ring = vornGetRing(ringId);
    if (ring == nullptr || (ring->u4Flags & VORN_RING_CFG_DESC) == 0) return 0;
    ring->description.fill('\0');
    ring->u4Flags &= ~VORN_RING_CFG_DESC;
    // Named with the text of the removal request, not the stored one.
    vornConfigRemove(ringId, VORN_CFG_CMD_DESC,
                     descLine(vorn::cfg::reqDescription(request)).c_str(), 0);
    return 0;
}
