// A ring's hello and dead intervals. A value other than the default is configuration (a
// flag and a running-configuration line); the default is none. The agents are always told
// with action 1, set, since the interval has a value either way.

#include <array>
#include <cstdio>

#include "agent/agent.h"
#include "config/cli_request.h"
#include "config/config.h"
#include "ringdb/records.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

// What distinguishes the two intervals.
struct VornTimer {
    uint16_t VornRingEntry::*field;
    size_t requestOff;
    uint16_t defaultValue;
    uint32_t flag;
    uint32_t commandId;
    const char* setText;     // the line when set, before the value
    const char* removeText;  // the line of the "no" command, before the value
};

constexpr VornTimer kHello{&VornRingEntry::u2HelloTime, vorn::nm::kOffHello,
                           VORN_DEFAULT_HELLO,          VORN_RING_CFG_HELLO,
                           VORN_CFG_CMD_HELLO,          " timer hello-interval ",
                           "timer hello-interval "};
constexpr VornTimer kDead{&VornRingEntry::u2DeadTime, vorn::nm::kOffDead, VORN_DEFAULT_DEAD,
                          VORN_RING_CFG_DEAD,         VORN_CFG_CMD_DEAD,  " timer dead-interval ",
                          "timer dead-interval "};

// A timer line: its words and the value.
std::array<char, 64> timerText(const char* words, uint16_t value) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%s%d", words, value);
    return text;
}

void vornSetTimer(VornRingEntry& ring, const VornTimer& t, uint16_t value) {
    if (value == ring.*t.field) return;
    ring.*t.field = value;
    auto text = timerText(t.setText, value);
    if (value == t.defaultValue) {
        ring.u4Flags &= ~t.flag;
        vornConfigRemove(ring.u2RingId, t.commandId, text.data(), 0);
    } else {
        ring.u4Flags |= t.flag;
        vornConfigAdd(ring.u2RingId, t.commandId, text.data(), 0);
    }
    vornSendRingCfgMsgToAllAgts(&ring, VORN_RING_CFG_ACTION_ADD, t.flag, 0, nullptr);
}

void vornResetTimer(VornRingEntry& ring, const VornTimer& t) {
    if (ring.*t.field == t.defaultValue) return;
    ring.*t.field = t.defaultValue;
    ring.u4Flags &= ~t.flag;
    auto text = timerText(t.removeText, t.defaultValue);
    vornConfigRemove(ring.u2RingId, t.commandId, text.data(), 0);
    vornSendRingCfgMsgToAllAgts(&ring, VORN_RING_CFG_ACTION_ADD, t.flag, 0, nullptr);
}

}  // namespace

int vornProcessHelloTimer(uint8_t* request) {
    VORN_DBG("%s \r\n", __func__);
    if (vorn::cfg::reqIsNoForm(request)) {
        vornCount(VORN_CNT_CLI_DEL_HELLO);
        return vornDelHelloTimer(request);
    }
    vornCount(VORN_CNT_CLI_ADD_HELLO);
    return vornAddHelloTimer(request);
}

int vornAddHelloTimer(uint8_t* request) {
    const uint16_t ringId = vorn::cfg::reqRingId(request);
    VORN_DBG("%s ringId = %d \r\n", __func__, ringId);
    if (VornRingEntry* ring = vornGetRing(ringId); ring != nullptr) {
        vornSetTimer(*ring, kHello, vorn::cfg::reqReader(request).u16(kHello.requestOff));
    }
    return 0;
}

int vornDelHelloTimer(uint8_t* request) {
    if (VornRingEntry* ring = vornGetRing(vorn::cfg::reqRingId(request)); ring != nullptr) {
        vornResetTimer(*ring, kHello);
    }
    return 0;
}

int vornProcessDeadTimer(uint8_t* request) {
    VORN_DBG("%s \r\n", __func__);
    if (vorn::cfg::reqIsNoForm(request)) {
        vornCount(VORN_CNT_CLI_DEL_DEAD);
        return vornDelDeadTimer(request);
    }
    vornCount(VORN_CNT_CLI_ADD_DEAD);
    return vornAddDeadTimer(request);
}

int vornAddDeadTimer(uint8_t* request) {
    const uint16_t ringId = vorn::cfg::reqRingId(request);
    VORN_DBG("%s ringId = %d \r\n", __func__, ringId);
    if (VornRingEntry* ring = vornGetRing(ringId); ring != nullptr) {
        vornSetTimer(*ring, kDead, vorn::cfg::reqReader(request).u16(kDead.requestOff));
    }
    return 0;
}

int vornDelDeadTimer(uint8_t* request) {
    const uint16_t ringId = vorn::cfg::reqRingId(request);
    VORN_DBG("%s ringId = %d \r\n", __func__, ringId);
    if (VornRingEntry* ring = vornGetRing(ringId); ring != nullptr) vornResetTimer(*ring, kDead);
    return 0;
}
