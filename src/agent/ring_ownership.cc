// Ring ownership: while a ready ring has no agent able to run it, the manager drives its two
// ports itself (forwarding when up, disabled when down); when an agent can run it again, or
// its essential configuration goes, the ports go back to disabled for the agent to decide.

#include "agent/agent.h"
#include "l2pm/l2pm.h"
#include "ringdb/readiness.h"
#include "task/trace.h"

namespace {

constexpr int kPrimary = 1;
constexpr int kSecondary = 0;
constexpr int kNoFlush = 0;
constexpr int kSyslog = 1;

VornPortStateRelayFn gRelayForTest = nullptr;

int relay(VornRingEntry* ring, uint32_t ifIndex, uint32_t oldState, uint32_t newState, int side) {
    if (gRelayForTest != nullptr) {
        return gRelayForTest(ring, ifIndex, oldState, newState, side, kNoFlush, kSyslog);
    }
    return vornProcPortStateFlush(ring, ifIndex, oldState, newState, side, kNoFlush, kSyslog);
}

// One ring port as ownership sees it.
struct RingPort {
    uint16_t portNum;
    uint32_t ifIndex;
    uint32_t* state;
    int side;
    const char* invalidFmt;
};

RingPort primaryOf(VornRingEntry& ring) {
    return {ring.u2PriPortNum, ring.u4PriIfIndex, &ring.u4PriPortState, kPrimary,
            "%s(): Invalid Primary for Ring %d\r\n"};
}

RingPort secondaryOf(VornRingEntry& ring) {
    return {ring.u2SecPortNum, ring.u4SecIfIndex, &ring.u4SecPortState, kSecondary,
            "%s(): Invalid Secondary for Ring %d\r\n"};
}

bool isUp(const VornPortEntry& port) {
    return port.u2OperState == 1;
}

void takePort(const char* fn, VornRingEntry& ring, const RingPort& p) {
    const VornPortEntry* port = vornGetPort(p.portNum);
    if (port == nullptr) {
        VORN_DBG(p.invalidFmt, fn, ring.u2RingId);
        return;
    }
    uint32_t newState = isUp(*port) ? VORN_PORT_FORW : VORN_PORT_DISABLED;
    relay(&ring, p.ifIndex, *p.state, newState, p.side);
    *p.state = newState;
}

void releasePort(const char* fn, VornRingEntry& ring, const RingPort& p) {
    const VornPortEntry* port = vornGetPort(p.portNum);
    if (port == nullptr) {
        VORN_DBG(p.invalidFmt, fn, ring.u2RingId);
        return;
    }
    // A port that is down carries nothing; only its remembered state is reset.
    if (isUp(*port)) relay(&ring, p.ifIndex, *p.state, VORN_PORT_DISABLED, p.side);
    *p.state = VORN_PORT_DISABLED;
}

}  // namespace

void vornSetPortStateRelayForTest(VornPortStateRelayFn relayFn) {
    gRelayForTest = relayFn;
}

void vornTakeRingOwnerShip(VornRingEntry* ring) {
    if (ring == nullptr) return;
    VORN_DBG("%s(): Ring %d\r\n", __func__, ring->u2RingId);
    takePort(__func__, *ring, primaryOf(*ring));
    takePort(__func__, *ring, secondaryOf(*ring));
    ring->isRingOwnedByMgr = 1;
}

void vornRelinquishRingOwnerShip(VornRingEntry* ring) {
    if (ring == nullptr) return;
    VORN_DBG("%s(): Ring %d\r\n", __func__, ring->u2RingId);
    if (ring->isRingOwnedByMgr != 1) {
        VORN_DBG("Ring %d NOT owned by VORN Mgr.\r\n", ring->u2RingId);
        return;
    }
    releasePort(__func__, *ring, primaryOf(*ring));
    releasePort(__func__, *ring, secondaryOf(*ring));
    // The flag stays set for the life of the ring record: every later relinquish puts the
    // ports back to disabled again.
}

int vornUpdateRingOwnership(uint16_t ringId, uint32_t action, uint32_t flags,
                            uint32_t oldRingConfStatus) {
    VORN_DBG("%s(): RingId: %d, Action: %d, Flags: 0x0%x, oldRingConfStatus = %d\r\n", __func__,
             ringId, static_cast<int>(action), flags, static_cast<int>(oldRingConfStatus));
    VornRingEntry* ring = vornGetRing(ringId);
    if (ring == nullptr) return -1;
    if ((flags & VORN_RING_CFG_MANDATORY) == 0) return 0;
    if (action == VORN_RING_CFG_ACTION_ADD) {
        if (vornRingIsReady(ringId) == 1 && ring->isSecReady == 0) vornTakeRingOwnerShip(ring);
    } else if (action == VORN_RING_CFG_ACTION_DEL_CFG) {
        if (oldRingConfStatus == 1 && ring->isSecReady == 0) vornRelinquishRingOwnerShip(ring);
    }
    return 0;
}

void vornStartRingIfNowReady(VornRingEntry* ring, bool ranBefore) {
    if (ring == nullptr || ranBefore || vornRingIsReady(ring->u2RingId) != 1) return;
    if (ring->isSecReady != 1) {
        vornTakeRingOwnerShip(ring);
    } else {
        vornSendRingEnableMsgToAgt(ring);
    }
}
