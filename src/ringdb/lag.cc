// The member lists of the LAGs: insertion and removal of member ports, and the choice of
// the designated port (the smallest member).
//
// The members occupy members[0] to members[lastEmptyIndex - 1] without holes; a removal
// moves the last member into the hole it leaves. All traces carry the name of the IFM
// handler that asked for the change.

#include <algorithm>

#include "platform/codec.h"
#include "ringdb/ringdb.h"
#include "task/trace.h"

namespace {

// One above the largest port number: the start value of the smallest-member scan.
constexpr uint16_t kNoDesgPort = VORN_MAX_PORT_NUM + 2;

struct LagChange {
    uint16_t lagNum = 0;
    uint16_t memberNum = 0;
    VornPortEntry* lag = nullptr;
    VornPortEntry* member = nullptr;
};

// Reads IFM's LAG-member record and finds both records. Returns false, after the
// "Invalid params" trace, when the LAG or the member has no record or the LAG no list.
bool vornLagResolve(const uint8_t* rec, size_t len, const char* caller, LagChange* c) {
    vorn::be::Reader r(rec, rec != nullptr ? len : 0);
    uint32_t lagIfIndex = r.u32(0);
    uint32_t memberIfIndex = r.u32(4);
    if (!r.ok()) {
        VORN_ERR("%s: LAG member record of %zu bytes is too short, dropped\r\n", caller, r.size());
        return false;
    }
    c->lagNum = vornPortNumOf(lagIfIndex);
    c->memberNum = vornPortNumOf(memberIfIndex);
    VORN_DBG("%s: u2Lag %d, u2PortInLag %d \r\n", caller, c->lagNum, c->memberNum);
    c->lag = vornGetPort(c->lagNum);
    c->member = vornGetPort(c->memberNum);
    if (c->lag == nullptr || c->lag->pLagPortList == nullptr || c->member == nullptr) {
        const void* list = c->lag != nullptr ? c->lag->pLagPortList : nullptr;
        VORN_DBG(
            "%s(): Invalid params: pLag = %p, pLag->lagPortList = %p, "
            "pMemberPort = 0x%x\r\n",
            caller, static_cast<const void*>(c->lag), list, c->memberNum);
        return false;
    }
    return true;
}

// The number of list slots that may hold members, bounded by the list's size.
size_t vornLagUsed(const VornLagPortList& list) {
    return std::min<size_t>(list.lastEmptyIndex, list.members.size());
}

}  // namespace

int vornLagInsertMember(const uint8_t* rec, size_t len, const char* caller) {
    LagChange c;
    if (!vornLagResolve(rec, len, caller, &c)) return -1;
    VornLagPortList& list = *c.lag->pLagPortList;

    auto slot = std::find(list.members.begin(), list.members.end(), uint16_t{0});
    if (slot == list.members.end()) {
        VORN_DBG("%s: LAG member ports limit exceeded. Lag = %d, Port = %d\r\n", caller, c.lagNum,
                 c.memberNum);
        return -1;
    }
    // A repeated notification adds the port a second time; IFM does not send one.
    auto k = static_cast<int>(slot - list.members.begin());
    *slot = c.memberNum;
    list.lastEmptyIndex = static_cast<uint8_t>(k + 1);
    VORN_DBG("%s: inserting in index %d, empty %d \r\n", caller, k, list.lastEmptyIndex);
    c.member->u2LagParent = c.lagNum;
    for (size_t i = 0; i < vornLagUsed(list); ++i) {
        if (list.members[i] != 0) {
            VORN_DBG("index %d: PN %d \r\n", static_cast<int>(i), list.members[i]);
        }
    }
    if (list.desgPortNum == 0 || c.memberNum < list.desgPortNum) list.desgPortNum = c.memberNum;
    VORN_DBG("lastEmptyIndex %d, designatedPort %d\r\n", list.lastEmptyIndex, list.desgPortNum);
    return 0;
}

int vornLagRemoveMember(const uint8_t* rec, size_t len, const char* caller) {
    LagChange c;
    if (!vornLagResolve(rec, len, caller, &c)) return -1;
    VornLagPortList& list = *c.lag->pLagPortList;

    c.member->u2LagParent = 0;
    size_t n = vornLagUsed(list);
    auto end = list.members.begin() + static_cast<std::ptrdiff_t>(n);
    auto hole = std::find(list.members.begin(), end, c.memberNum);
    if (hole != end) {
        auto i = static_cast<size_t>(hole - list.members.begin());
        VORN_DBG("%s: deleting index %d, empty %d \r\n", caller, static_cast<int>(i),
                 static_cast<int>(n));
        list.members[i] = 0;
        if (i < n - 1) {
            list.members[i] = list.members[n - 1];
            list.members[n - 1] = 0;
        }
        list.lastEmptyIndex = static_cast<uint8_t>(n - 1);
    }
    for (size_t i = 0; i < list.members.size(); ++i) {
        if (list.members[i] != 0) {
            VORN_DBG("index %d: PN %d \r\n", static_cast<int>(i), list.members[i]);
        }
    }
    VORN_DBG("lastEmptyIndex %d \r\n", list.lastEmptyIndex);

    // Only the loss of the designated port elects a new one: the smallest remaining member.
    if (list.desgPortNum == c.memberNum) {
        uint16_t smallest = kNoDesgPort;
        for (size_t i = 0; i < vornLagUsed(list); ++i) {
            if (list.members[i] != 0) smallest = std::min(smallest, list.members[i]);
        }
        list.desgPortNum = smallest == kNoDesgPort ? 0 : smallest;
    }
    return 0;
}
