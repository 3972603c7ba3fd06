// Designated line card selection: the card that carries a ring's secondary interface runs
// the ring. A plain port gives its own card; a LAG gives the card of its designated member
// if that card's agent is active, else the first member on an active card.

#include <span>

#include "agent/agent.h"
#include "platform/ifindex.h"
#include "task/trace.h"

namespace {

// The slot of a port's interface, as the selection uses it: the low 16 bits of IFM's answer.
uint16_t slotOf(const VornPortEntry& port) {
    return static_cast<uint16_t>(ifmIfIndexToSlotId(port.u4IfIndex));
}

bool isActiveSlot(uint16_t slot) {
    return slot < VORN_MAX_SLOTS && gVornActiveLineCards[slot] == 1;
}

// The LAG of the secondary interface, or null when the secondary is not a LAG with a list.
const VornLagPortList* secondaryLag(const VornPortEntry& sec) {
    if (ifmIfIndexToIfType(sec.u4IfIndex) != vorn::ifm::kTypeLag) return nullptr;
    return sec.pLagPortList;
}

// The used entries of a member list. A count beyond the list's storage is cut to it.
std::span<const uint16_t> usedMembers(const VornLagPortList& lag, const char* fn, uint16_t ringId) {
    size_t used = lag.lastEmptyIndex;
    if (used > lag.members.size()) {
        VORN_ERR("%s(): Ring %d, LAG member count %d beyond its list of %d\r\n", fn, ringId,
                 static_cast<int>(used), static_cast<int>(lag.members.size()));
        used = lag.members.size();
    }
    return {lag.members.data(), used};
}

// The slot of the first member, in list order, whose card is active and is not `excluded`;
// 12 when none is. Zero, out-of-range and unknown members are skipped.
uint16_t firstActiveMemberSlot(std::span<const uint16_t> members, int excluded) {
    for (uint16_t portNum : members) {
        const VornPortEntry* member = vornGetPort(portNum);
        if (member == nullptr) continue;
        uint16_t slot = slotOf(*member);
        if (isActiveSlot(slot) && slot != excluded) return slot;
    }
    return VORN_NO_LINE_CARD;
}

}  // namespace

uint16_t vornGetDesgLineCard(VornRingEntry* ring) {
    if (ring == nullptr) return VORN_NO_LINE_CARD;
    const VornPortEntry* sec = vornGetPort(ring->u2SecPortNum);
    if (sec == nullptr) {
        VORN_DBG("%s() Ring %d, Secondary Port not present \r\n", __func__, ring->u2RingId);
        return VORN_NO_LINE_CARD;
    }
    // S1: a port on one line card is run by that card, whether or not its agent is up.
    if (ifmIfIndexToPlFlag(sec->u4IfIndex) != 0) {
        uint16_t slot = slotOf(*sec);
        VORN_DBG("%s(): S1: Ring: %d, Desg Agent: %d\r\n", __func__, ring->u2RingId, slot);
        if (slot >= VORN_MAX_SLOTS) {
            VORN_ERR("%s(): Ring %d, slot %d of the secondary is no line card\r\n", __func__,
                     ring->u2RingId, slot);
            return VORN_NO_LINE_CARD;
        }
        return slot;
    }
    // The member walk is tried only when the designated member itself is a known port.
    const VornLagPortList* lag = secondaryLag(*sec);
    const VornPortEntry* desgMember = lag != nullptr ? vornGetPort(lag->desgPortNum) : nullptr;
    if (desgMember != nullptr) {
        uint16_t slot = slotOf(*desgMember);
        if (isActiveSlot(slot)) {
            VORN_DBG("%s(): S2: Ring: %d, Desg Agent: %d\r\n", __func__, ring->u2RingId, slot);
            return slot;
        }
        slot = firstActiveMemberSlot(usedMembers(*lag, __func__, ring->u2RingId), -1);
        if (slot != VORN_NO_LINE_CARD) {
            VORN_DBG("%s(): S3: Ring: %d, Desg Agent: %d\r\n", __func__, ring->u2RingId, slot);
            return slot;
        }
    }
    VORN_DBG("%s(): Ring: %d, Cannot determing Desg Agent.\r\n", __func__, ring->u2RingId);
    return VORN_NO_LINE_CARD;
}

uint16_t vornGetNewDesgLineCard(VornRingEntry* ring, uint16_t excludedSlot) {
    if (ring == nullptr) return VORN_NO_LINE_CARD;
    const VornPortEntry* sec = vornGetPort(ring->u2SecPortNum);
    // A plain secondary port has no other card to move to.
    const VornLagPortList* lag = sec != nullptr ? secondaryLag(*sec) : nullptr;
    if (lag == nullptr || lag->lastEmptyIndex == 0) return VORN_NO_LINE_CARD;
    return firstActiveMemberSlot(usedMembers(*lag, __func__, ring->u2RingId), excludedSlot);
}
