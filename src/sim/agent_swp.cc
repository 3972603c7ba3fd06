// The agent's SWP queue to the manager: created when the manager's request queue is there,
// removed when it goes or the agent is silenced, and the reports (0x6404) sent over it.
//
// Report, from byte 124 (after the IPC and SWP headers):
//   124  u32 the agent's slot
//   128  u32 number of records
//   132  20-byte records: 0 u16 ring id, 2 u8 no-syslog, 3 u8 flush on the primary,
//        4 u8 flush on the secondary, 6 u16 primary port, 8 u16 secondary port,
//        12 u32 primary state, 16 u32 secondary state

#include <algorithm>

#include "platform/swp.h"
#include "sim/agent.h"
#include "sim/log.h"
#include "sim/swp_buffers.h"

namespace vorn::sim {

void Agent::createQueue() {
    if (pipeFd_ < 0) return;
    uint32_t handle = swpbuf::createQueueToManager(
        name().c_str(), ipc::kSvcAgent, static_cast<int>(slot_), endpoint_.key(), pipeFd_);
    if (handle == 0) return;  // the next look retries
    handle_ = handle;
    say("%s: SWP queue to 226.0 created (handle %u)", name().c_str(), handle_);
}

void Agent::removeQueue(const char* why) {
    const QelSwpQueueCtrlBlock* cb = host::swpQueueByHandle(handle_);
    uint32_t unacked = cb != nullptr ? cb->outstanding + cb->held : 0;
    qelSwpQueueRemove(handle_);
    say("%s: %s; SWP queue %u to 226.0 removed (%u reports unacknowledged)", name().c_str(), why,
        handle_, unacked);
    handle_ = 0;
}

void Agent::handleAck(const uint8_t* msg) {
    void* freed = nullptr;
    if (qelSwpDequeue(msg, &freed) != 0) {
        malformed("malformed SWP acknowledgement: dropped");
        return;
    }
    if (freed == nullptr) return;  // repeated, or for a queue that is gone
    ++life_.counters.reportsAcked;
    if (swpbuf::give(freed) != 0)
        say("%s: acknowledged buffer was not one of ours", name().c_str());
}

void Agent::handleResend(const uint8_t* msg) {
    ++life_.counters.resendRequests;
    be::Reader rd(msg, swp::kCtrlMsgLen);
    say("%s: manager asks for a resend from SWP seq %u", name().c_str(), rd.u32(swp::kOffSeq));
    qelSwpResend(msg);
}

void Agent::sendPendingReports() {
    namespace rep = agt::report;
    std::vector<Report> records;
    records.swap(life_.pending);
    if (records.empty()) return;
    if (handle_ == 0) {
        life_.counters.recordsLost += records.size();
        say("%s: no SWP queue to 226.0 (is the manager running?): %zu record(s) not reported",
            name().c_str(), records.size());
        return;
    }
    // One event's records go in one message; only more than a message holds are split.
    for (size_t first = 0; first < records.size(); first += rep::kMaxRecords) {
        size_t n = std::min<size_t>(rep::kMaxRecords, records.size() - first);
        size_t len = rep::kOffRecords + rep::kRecLen * n;
        void* buffer = swpbuf::take(len);
        be::Writer w(buffer, len);
        writeOrigin(w, agt::kMtReport, static_cast<uint32_t>(len), ipc::kSvcAgent,
                    static_cast<int>(slot_),
                    qel_getQueueId(ipc::kSvcManager, 0, ipc::kKindRequest));
        w.u32(ipc::kOffSrcSlot, slot_);
        w.u32(rep::kOffSlot, slot_);
        w.u32(rep::kOffCount, static_cast<uint32_t>(n));
        for (size_t i = 0; i < n; ++i) {
            const Report& r = records[first + i];
            size_t off = rep::kOffRecords + rep::kRecLen * i;
            w.u16(off + rep::kOffRingId, r.ringId);
            w.u8(off + rep::kOffNoSyslog, 0);
            w.u8(off + rep::kOffPriFlush, r.priFlush ? 1 : 0);
            w.u8(off + rep::kOffSecFlush, r.secFlush ? 1 : 0);
            w.u16(off + rep::kOffPriPort, r.priPort);
            w.u16(off + rep::kOffSecPort, r.secPort);
            w.u32(off + rep::kOffPriState, r.priState);
            w.u32(off + rep::kOffSecState, r.secState);
        }
        if (qelSwpEnqueue(handle_, buffer, static_cast<int>(len)) != 0) {
            swpbuf::give(buffer);  // the queue did not take it
            life_.counters.recordsLost += n;
            say("%s: the SWP queue refused the report; %zu record(s) lost", name().c_str(), n);
            continue;
        }
        ++life_.counters.reportsSent;
        say("%s: report of %zu record(s) queued to 226.0", name().c_str(), n);
    }
}

}  // namespace vorn::sim
