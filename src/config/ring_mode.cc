// A ring's mode (master or transit) and whether it is enabled ("no disable"). Both are part
// of the mandatory configuration, so the agents are told with the readiness before the
// change, and the enabled rings are counted in vornActiveRings.

#include <array>
#include <cstdio>

#include "agent/agent.h"
#include "config/cli_request.h"
#include "config/config.h"
#include "config/readiness.h"
#include "ringdb/records.h"
#include "task/tcb.h"
#include "task/trace.h"

int vornProcessMode(uint8_t* request) {
    VORN_DBG("%s \r\n", __func__);
    if (vorn::cfg::reqIsNoForm(request)) {
        vornCount(VORN_CNT_CLI_DEL_MODE);
        return vornDelMode(request);
    }
    vornCount(VORN_CNT_CLI_ADD_MODE);
    return vornAddMode(request);
}

int vornAddMode(uint8_t* request) {
    const uint16_t ringId = vorn::cfg::reqRingId(request);
    const uint8_t mode = vorn::cfg::reqReader(request).u8(vorn::nm::kOffMode);
    VORN_DBG("%s ringId = %d \r\n", __func__, ringId);
    VornRingEntry* ring = vornGetRing(ringId);
    if (ring == nullptr) return 0;
    const char* name = vorn::cfg::vornModeStr(mode);
    if (name == nullptr) {
        VORN_ERR("%s: Ring %d, mode %d has no name, refused\r\n", __func__, ringId, mode);
        return 0;
    }
    const uint32_t oldStatus = vorn::cfg::vornRingRunStatus(*ring);
    if ((ring->u4Flags & VORN_RING_CFG_MODE) != 0 && ring->u1Mode == mode) return 0;

    ring->u1Mode = mode;
    ring->u4Flags |= VORN_RING_CFG_MODE;
    vornSendRingCfgMsgToAllAgts(ring, VORN_RING_CFG_ACTION_ADD, VORN_RING_CFG_MODE, oldStatus,
                                nullptr);
    // A change of mode replaces the line of the old one: both have the same key.
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), " mode %s", name);
    vornConfigAdd(ringId, VORN_CFG_CMD_MODE, text.data(), 0);
    return 0;
}

int vornDelMode(uint8_t* request) {
    const uint16_t ringId = vorn::cfg::reqRingId(request);
    const uint8_t mode = vorn::cfg::reqReader(request).u8(vorn::nm::kOffMode);
    VORN_DBG("%s ringId = %d \r\n", __func__, ringId);
    VornRingEntry* ring = vornGetRing(ringId);
    if (ring == nullptr || (ring->u4Flags & VORN_RING_CFG_MODE) == 0) return 0;
    if (mode != ring->u1Mode) {
        vorn::cfg::reqSetStatus(request, vorn::nm::kStatusModeDiffers);
        return 0;
    }
    const uint32_t ready = static_cast<uint32_t>(vornRingIsReady(ringId));
    ring->u1Mode = VORN_MODE_NONE;
    ring->u4Flags &= ~VORN_RING_CFG_MODE;
    vornSendRingCfgMsgToAllAgts(ring, VORN_RING_CFG_ACTION_DEL_CFG, VORN_RING_CFG_MODE, ready,
                                nullptr);
    // The requested mode equals the ring's, which only the mode set stored: it has a name.
    const char* name = vorn::cfg::vornModeStr(mode);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "mode %s ", name != nullptr ? name : "");
    vornConfigRemove(ringId, VORN_CFG_CMD_MODE, text.data(), 0);
    return 0;
}

int vornProcessEnable(uint8_t* request) {
    // The "no disable" command is the no form.
    if (vorn::cfg::reqIsNoForm(request)) {
        vornCount(VORN_CNT_CLI_ENABLE);
        vornProcessEnableCli(request);
    } else {
        vornCount(VORN_CNT_CLI_DISABLE);
        vornProcessDisableCli(request);
    }
    vorn::cfg::reqWriter(request).u16(vorn::nm::kOffActiveRings, vornActiveRings);
    return 0;
}

int vornProcessEnableCli(uint8_t* request) {
    const uint16_t ringId = vorn::cfg::reqRingId(request);
    VORN_DBG("%s ringId = %d \r\n", __func__, ringId);
    VornRingEntry* ring = vornGetRing(ringId);
    if (ring == nullptr || (ring->u4Flags & VORN_RING_CFG_ENABLE) != 0) return 0;
    const uint32_t oldStatus = vorn::cfg::vornRingRunStatus(*ring);
    ring->u4Flags |= VORN_RING_CFG_ENABLE;
    vornSendRingCfgMsgToAllAgts(ring, VORN_RING_CFG_ACTION_ADD, VORN_RING_CFG_ENABLE, oldStatus,
                                nullptr);
    vornActiveRings++;
    vornConfigAdd(ringId, VORN_CFG_CMD_ENABLE, " no disable", 0);
    return 0;
}

int vornProcessDisableCli(uint8_t* request) {
    const uint16_t ringId = vorn::cfg::reqRingId(request);
    VORN_DBG("%s ringId = %d \r\n", __func__, ringId);
    VornRingEntry* ring = vornGetRing(ringId);
    if (ring == nullptr || (ring->u4Flags & VORN_RING_CFG_ENABLE) == 0) return 0;
    const uint32_t ready = static_cast<uint32_t>(vornRingIsReady(ringId));
    ring->u4Flags &= ~VORN_RING_CFG_ENABLE;
    vornSendRingCfgMsgToAllAgts(ring, VORN_RING_CFG_ACTION_DEL_CFG, VORN_RING_CFG_ENABLE, ready,
                                nullptr);
    vornActiveRings--;
    vornConfigRemove(ringId, VORN_CFG_CMD_ENABLE, "no disable", 0);
    return 0;
}
