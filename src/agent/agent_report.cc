// Port-state and flush reports of the agents: each record is matched against the ring's
// configured ports and relayed to L2PM.
//
// Agent-to-manager message (0x6404, over the agent's SWP queue):
//   0    IPC and SWP headers (the sequence is checked against the slot's receive state)
//   124  u32 slot of the sending agent
//   128  u32 number of records
//   132  20-byte records: 0 u16 ring id, 2 u8 no-syslog, 3 u8 primary flush, 4 u8 secondary
//        flush, 6 u16 primary port number, 8 u16 secondary port number, 12 u32 primary
//        state, 16 u32 secondary state
// The walk never goes past the message's length, whatever the count claims.

#include <cstdio>

#include "agent/agent.h"
#include "l2pm/l2pm.h"
#include "platform/swp.h"
#include "task/msg.h"
#include "task/trace.h"

namespace {

namespace rpt = vorn::agt::report;
using vorn::be::Reader;

// One half of a record: the agent's port number, its state and its flush flag.
struct ReportedPort {
    uint16_t portNum;
    uint32_t state;
    uint8_t flush;
};

// The ring's own view of one of its ports.
struct RingSide {
    uint16_t portNum;
    uint32_t ifIndex;
    uint32_t* state;
    int side;  // 1 primary, 0 secondary
    const char* mismatchFmt;
};

// Relays one half of a record. Returns -1 when the relay failed.
int applySide(const char* fn, VornRingEntry& ring, const RingSide& own, const ReportedPort& rep,
              int dispSyslog) {
    if (rep.portNum == 0) return 0;
    if (rep.portNum != own.portNum) {
        // The agent's view of the ring is stale: this half is not applied.
        VORN_ERR(own.mismatchFmt, fn, ring.u2RingId, own.portNum, rep.portNum,
                 static_cast<int>(rep.state), rep.flush);
        return 0;
    }
    int rc = vornProcPortStateFlush(&ring, own.ifIndex, *own.state, rep.state, own.side, rep.flush,
                                    dispSyslog);
    // The stored state follows the report even when the relay failed.
    if (rep.state != VORN_PORT_NO_CHANGE) *own.state = rep.state;
    return rc != 0 ? -1 : 0;
}

// Records the message holds within its length, at most the count it claims.
uint32_t recordsInMessage(const char* fn, const Reader& rd, uint32_t claimed) {
    uint32_t room = rd.size() > rpt::kOffRecords
                        ? static_cast<uint32_t>((rd.size() - rpt::kOffRecords) / rpt::kRecLen)
                        : 0;
    if (claimed <= room) return claimed;
    VORN_ERR("%s(): %lu records claimed, %lu in the message of %lu bytes\r\n", fn,
             static_cast<unsigned long>(claimed), static_cast<unsigned long>(room),
             static_cast<unsigned long>(rd.size()));
    return room;
}

}  // namespace

int vornProcMsgFromAgt(uint8_t* msg) {
    static const char* const kFn = "vornProcMsgFromAgt";
    Reader rd = vornMsgReader(msg);
    uint32_t slot = rd.u32(rpt::kOffSlot);
    // The slot picks the receive state: a slot outside the chassis has none.
    if (slot >= static_cast<uint32_t>(VORN_MAX_SLOTS)) {
        VORN_ERR("%s: SWP failure for Agent (%ld) Que, RC: %d\r\n", kFn, static_cast<long>(slot),
                 -1);
        return -1;
    }
    int rc = qelSwpCkSeqAndAck(msg, vornTcb.vornaSwpRcvState[slot].data(), vornTcb.reqQfd);
    if (rc != vorn::swp::kCkAccepted) {
        if (rc == vorn::swp::kCkDuplicate) {
            VORN_ERR("%s: SWP failure for Agent (%ld) Que, RC = SWP_FAILURE_SEQ\r\n", kFn,
                     static_cast<long>(slot));
        } else {
            VORN_ERR("%s: SWP failure for Agent (%ld) Que, RC: %d\r\n", kFn,
                     static_cast<long>(slot), rc);
        }
        return -1;
    }
    vornDumpAgtMsgToMgrBuf(msg);
    uint32_t count = recordsInMessage(kFn, rd, rd.u32(rpt::kOffCount));
    int result = 0;
    for (uint32_t i = 0; i < count; ++i) {
        size_t rec = rpt::kOffRecords + size_t{i} * rpt::kRecLen;
        uint16_t ringId = rd.u16(rec + rpt::kOffRingId);
        if (!vornIsValidRingId(ringId) || gVornRing[ringId] == nullptr) continue;
        VornRingEntry& ring = *gVornRing[ringId];
        int dispSyslog = rd.u8(rec + rpt::kOffNoSyslog) == 1 ? 0 : 1;
        const RingSide primary{ring.u2PriPortNum, ring.u4PriIfIndex, &ring.u4PriPortState, 1,
                               "%s(): Primary port mismatch for Ring %d. Mgr Port (%d), Agent "
                               "Port (%d), Port State (%d), isFlush (%d)\r\n"};
        const RingSide secondary{ring.u2SecPortNum, ring.u4SecIfIndex, &ring.u4SecPortState, 0,
                                 "%s(): Secondary port mismatch for Ring %d. Mgr Port (%d), "
                                 "Agent Port (%d), Port State (%d), isFlush (%d)\r\n"};
        const ReportedPort pri{rd.u16(rec + rpt::kOffPriPort), rd.u32(rec + rpt::kOffPriState),
                               rd.u8(rec + rpt::kOffPriFlush)};
        const ReportedPort sec{rd.u16(rec + rpt::kOffSecPort), rd.u32(rec + rpt::kOffSecState),
                               rd.u8(rec + rpt::kOffSecFlush)};
        if (applySide(kFn, ring, primary, pri, dispSyslog) != 0) result = -1;
        if (applySide(kFn, ring, secondary, sec, dispSyslog) != 0) result = -1;
    }
    return result;
}
