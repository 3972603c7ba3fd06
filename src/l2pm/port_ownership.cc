// Port ownership with L2PM: the synchronous take/relinquish exchange for one port, and the
// taking of a ring's two interfaces before its configuration is accepted.

#include <array>
#include <memory>
#include <span>

#include "l2pm/l2pm.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "ringdb/ringdb.h"
#include "task/swpq.h"
#include "task/trace.h"
#include "wire/cli.h"
#include "wire/msgtypes.h"

uint32_t gHalVornForcePortOwnerShip = 1;

namespace {

struct ListFree {
    void operator()(IfmPhysLagIfList* list) const { ifmPhysLagIfListFree(list); }
};
using IfList = std::unique_ptr<IfmPhysLagIfList, ListFree>;

// Source lines the list failures are reported with, as the diagnostics know them.
constexpr int kLineListInit = 5913;
constexpr int kLineCompress = 5923;
constexpr int kLineAnswerInit = 5941;
constexpr int kLineDecompress = 5948;

}  // namespace

int vornPortOwnership(uint32_t ifIndex, int action, int* refused) {
    int unused = 0;
    int& refusedOut = refused != nullptr ? *refused : unused;
    refusedOut = 0;
    std::array<uint8_t, VORN_PORT_OWN_LEN> req{};
    std::span<uint8_t> list = std::span(req).subspan(VORN_PORT_OWN_LIST_OFF);

    IfList asked(ifmPhysLagIfListInit());
    if (asked == nullptr) {
        VORN_DBG("%s: %d PortBitMap initilization failure \r\n", __func__, kLineListInit);
        return -1;
    }
    // An interface the list cannot hold would leave the request empty, which L2PM would
    // never refuse: it fails like a list that cannot be compressed.
    if (ifmPhysLagIfListAddIfIndex(asked.get(), ifIndex) != 0 ||
        ifmCompressPhyLagIFList(asked.get(), list) != 0) {
        VORN_DBG("%s: %d PortBitMap Compressing  failure \r\n", __func__, kLineCompress);
        return -1;
    }
    vorn::be::Writer w(req.data(), req.size());
    w.u32(VORN_L2PM_CLIENT_ID_OFF, VORN_L2PM_CLIENT_ID);
    w.u32(VORN_L2PM_PROTO_ID_OFF, VORN_L2PM_PROTO_ID);
    w.u32(VORN_PORT_OWN_ACTION_OFF, static_cast<uint32_t>(action));
    // The result is deliberately not looked at: after a failed exchange the buffer still
    // holds the request's own list and is read as the answer, so a take fails (every port
    // counts as refused) and a relinquish succeeds.
    vornL2PmIpcSendAndWait(MT_L2PM_PORT_OWNERSHIP, req.data(), VORN_PORT_OWN_LEN);

    IfList refusedPorts(ifmPhysLagIfListInit());
    if (refusedPorts == nullptr) {
        VORN_DBG("%s: %d PortBitMap Initilization failure \r\n", __func__, kLineAnswerInit);
        return -1;
    }
    if (ifmDeCompressPhyLagIFList(list, refusedPorts.get()) != 0) {
        VORN_DBG("%s: %d PortBitMap deCompress failure \r\n", __func__, kLineDecompress);
        return -1;
    }
    if (action == VORN_PORT_OWN_TAKE) {
        for (uint32_t p = ifmPhysLagIfListGetNextIfIndex(asked.get(), 0); p != 0;
             p = ifmPhysLagIfListGetNextIfIndex(asked.get(), p)) {
            if (ifmPhysLagIfListHasIfIndex(refusedPorts.get(), p) != 0) {
                refusedOut = -1;
                VORN_ERR("%s: %s ownership of Port (0x%lx) failed\r\n", __func__, "Taking",
                         static_cast<unsigned long>(ifIndex));
                return -1;
            }
        }
    }
    VORN_DBG("%s: %s ownership of Port (0x%lx) \r\n", __func__,
             action == VORN_PORT_OWN_TAKE ? "Took" : "Relinquished",
             static_cast<unsigned long>(ifIndex));
    return 0;
}

namespace {

// How this call came to own one ring interface.
enum class Taken { No, ByIfmRule, ByForce };

// Takes one ring interface when it needs taking. Returns 0, or -1 with *code set (the
// refusal code `refusedCode`, or 14 when the exchange itself failed).
int takeRingInterface(uint32_t ifIndex, uint16_t refusedCode, Taken* taken, uint16_t* code) {
    *taken = Taken::No;
    VornPortEntry* port = vornGetPort(vornPortNumOf(ifIndex));
    if (port == nullptr || port->isOwnedByRingConf != 0) return 0;
    Taken how;
    if (port->isCreatedByIfm == 1) {
        how = Taken::ByIfmRule;
    } else if (gHalVornForcePortOwnerShip == 1) {
        // A port ring configuration made before IFM reported it: taken, but not marked
        // owned, so that IFM's report takes it again for the ring.
        how = Taken::ByForce;
    } else {
        return 0;
    }
    int refused = 0;
    if (vornPortOwnership(ifIndex, VORN_PORT_OWN_TAKE, &refused) != 0) {
        *code =
            refused == -1 ? refusedCode : static_cast<uint16_t>(vorn::nm::kStatusOwnershipFailed);
        return -1;
    }
    if (how == Taken::ByIfmRule) port->isOwnedByRingConf = 1;
    *taken = how;
    return 0;
}

}  // namespace

int vornTakeRingInterfaceOwnership(uint8_t* request, uint32_t priIfIndex, uint32_t secIfIndex) {
    vorn::be::Writer status(request, request != nullptr ? vorn::nm::kLen : 0);
    uint16_t code = 0;
    Taken pri = Taken::No;
    if (takeRingInterface(priIfIndex, vorn::nm::kStatusPrimaryRefused, &pri, &code) != 0) {
        status.u16(vorn::nm::kOffStatus, code);
        return -1;
    }
    Taken sec = Taken::No;
    if (takeRingInterface(secIfIndex, vorn::nm::kStatusSecondaryRefused, &sec, &code) != 0) {
        status.u16(vorn::nm::kOffStatus, code);
        // Neither interface stays taken by this call.
        if (pri != Taken::No) {
            int refused = 0;
            vornPortOwnership(priIfIndex, VORN_PORT_OWN_RELEASE, &refused);
            VornPortEntry* port = vornGetPort(vornPortNumOf(priIfIndex));
            if (pri == Taken::ByIfmRule && port != nullptr) port->isOwnedByRingConf = 0;
        }
        return -1;
    }
    return 0;
}
