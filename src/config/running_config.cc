// The running-configuration lines of the rings in the platform's configuration store.
//
// A line's key is the ring id, the command id and, for the member-VLAN lines only, the line
// index; the store keeps one line per key, so setting an attribute again replaces its line.
// The stored text is the caller's text with one blank behind it.

#include <array>
#include <cstdio>
#include <cstring>
#include <string>

#include "config/cli_request.h"
#include "config/config.h"
#include "platform/cfgstore.h"
#include "platform/ifindex.h"
#include "ringdb/records.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

// Line indexes past the 19 that are always removed exist only for VLAN sets whose list
// text needs more lines; they are removed while they are found, up to the most a list
// text can need.
constexpr uint16_t kMaxMemberVlanLines =
    static_cast<uint16_t>(VORN_VLAN_LIST_TEXT_LEN / VORN_MEMBER_VLAN_PIECE + 1);

QelCfgRecord vornConfigRecord(uint16_t ringId, uint32_t commandId, const char* text,
                              uint16_t lineIndex) {
    QelCfgRecord rec;
    rec.section = QelCfgSection::kRing;
    rec.ringId = ringId;
    rec.commandId = commandId;
    // Only the member-VLAN lines carry the line index in their key.
    rec.lineIndex = commandId == VORN_CFG_CMD_MEMBER_VLAN ? lineIndex : 0;
    rec.text = text != nullptr ? text : "";
    rec.text += ' ';
    return rec;
}

int vornConfigRemoveLine(uint16_t ringId, uint32_t commandId, const char* text,
                         uint16_t lineIndex) {
    if (commandId == VORN_CFG_CMD_MEMBER_VLAN) {
        VORN_PUTS(vornDbgPrint, "ConfigAdd: SET_MEMBER_VLAN \r");
    }
    return qelCfgRemoveExact(vornTcb.pKey, vornConfigRecord(ringId, commandId, text, lineIndex));
}

}  // namespace

int vornConfigAdd(uint16_t ringId, uint32_t commandId, const char* text, uint16_t lineIndex) {
    VORN_DBG("%s \r\n", __func__);
    if (commandId == VORN_CFG_CMD_MEMBER_VLAN) {
        VORN_PUTS(vornDbgPrint, "ConfigAdd: SET_MEMBER_VLAN \r");
    }
    if (qelCfgInsert(vornTcb.pKey, vornConfigRecord(ringId, commandId, text, lineIndex)) != 0) {
        VORN_ERR("%s: Ring %d, command %u: the configuration store refused the line\r\n", __func__,
                 ringId, commandId);
    }
    return 0;
}

int vornConfigRemove(uint16_t ringId, uint32_t commandId, const char* text, uint16_t lineIndex) {
    // A line that is not there is not an error: removals cover lines that may never have
    // been written.
    vornConfigRemoveLine(ringId, commandId, text, lineIndex);
    return 0;
}

int vornConfigRemoveMemberVlans(uint16_t ringId) {
    VORN_DBG("%s \r\n", __func__);
    for (uint16_t index = 0; index < VORN_MEMBER_VLAN_LINES; ++index) {
        vornConfigRemove(ringId, VORN_CFG_CMD_MEMBER_VLAN, " member-vlan ", index);
    }
    // Large sets are written over more than 19 lines; the lines beyond stay no longer than
    // the set they were written for.
    for (uint16_t index = VORN_MEMBER_VLAN_LINES; index < kMaxMemberVlanLines; ++index) {
        if (vornConfigRemoveLine(ringId, VORN_CFG_CMD_MEMBER_VLAN, " member-vlan ", index) != 0)
            break;
    }
    return 0;
}

int vornConfigRemoveAll(uint16_t ringId, uint32_t flags) {
    VORN_DBG("%s \r\n", __func__);
    // The removal texts are filled from the ring record; a ring that is gone leaves them 0.
    VornRingEntry none{};
    const VornRingEntry* ring = vornGetRing(ringId);
    if (ring == nullptr) ring = &none;
    std::array<char, 512> text{};

    if ((flags & VORN_RING_CFG_CTRL_VLAN) != 0) {
        VORN_PUTS(vornDbgPrint, "Control-vlan is being removed \r");
        std::snprintf(text.data(), text.size(),
                      " interface primary GigabitEthernet %d/%d secondary GigabitEthernet "
                      "%d/%d control-vlan %d \r\n",
                      static_cast<int>(ifmIfIndexToSlotId(ring->u4PriIfIndex)),
                      static_cast<int>(ifmIfIndexToPortId(ring->u4PriIfIndex)),
                      static_cast<int>(ifmIfIndexToSlotId(ring->u4SecIfIndex)),
                      static_cast<int>(ifmIfIndexToPortId(ring->u4SecIfIndex)), ring->u2CtrlVlanId);
        vornConfigRemove(ringId, VORN_CFG_CMD_CTRL_VLAN, text.data(), 0);
    }
    if ((flags & VORN_RING_CFG_MODE) != 0) {
        VORN_PUTS(vornDbgPrint, "MODE is being removed \r");
        const char* name = vorn::cfg::vornModeStr(ring->u1Mode);
        if (name == nullptr) {
            VORN_ERR("%s: Ring %d holds mode %d outside the mode table\r\n", __func__, ringId,
                     ring->u1Mode);
            name = "";
        }
        std::snprintf(text.data(), text.size(), "mode %s ", name);
        vornConfigRemove(ringId, VORN_CFG_CMD_MODE, text.data(), 0);
    }
    if ((flags & VORN_RING_CFG_ENABLE) != 0) {
        VORN_PUTS(vornDbgPrint, "Enable is being removed \r");
        vornConfigRemove(ringId, VORN_CFG_CMD_ENABLE, "no disable", 0);
    }
    if ((flags & VORN_RING_CFG_HELLO) != 0) {
        VORN_PUTS(vornDbgPrint, "HEllo timer is being removed \r");
        std::snprintf(text.data(), text.size(), "timer hello-interval %d ", ring->u2HelloTime);
        vornConfigRemove(ringId, VORN_CFG_CMD_HELLO, text.data(), 0);
    }
    if ((flags & VORN_RING_CFG_DEAD) != 0) {
        VORN_PUTS(vornDbgPrint, "Dead Timer is being removed \r");
        std::snprintf(text.data(), text.size(), "timer dead-interval %d ", ring->u2DeadTime);
        vornConfigRemove(ringId, VORN_CFG_CMD_DEAD, text.data(), 0);
    }
    if ((flags & VORN_RING_CFG_DESC) != 0) {
        VORN_PUTS(vornDbgPrint, "Description is being removed \r");
        int len = static_cast<int>(strnlen(ring->description.data(), ring->description.size()));
        std::snprintf(text.data(), text.size(), "description %.*s ", len, ring->description.data());
        vornConfigRemove(ringId, VORN_CFG_CMD_DESC, text.data(), 0);
    }
    if ((flags & VORN_RING_CFG_MEMBER_VLAN) != 0) {
        vornConfigRemoveMemberVlans(ringId);
    }
    VORN_PUTS(vornDbgPrint, "protocol is being removed \r");
    std::snprintf(text.data(), text.size(), "!\r\nprotocol vorn %d ", ringId);
    vornConfigRemove(ringId, VORN_CFG_CMD_RING, text.data(), 0);
    return 0;
}
