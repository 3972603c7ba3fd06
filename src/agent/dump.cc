// Dump of a ring configuration buffer to an agent, record by record.

#include <array>
#include <cstdio>

#include "agent/agent.h"
#include "l2pm/l2pm.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "task/msg.h"
#include "task/trace.h"

namespace {

namespace rcfg = vorn::rcfg;
using vorn::be::Reader;

constexpr size_t kNameLen = 64;

}  // namespace

// Ring configuration buffers are dumped under message printing (at the flush) or debug
// printing (when a full buffer leaves early).
#define VORN_DUMP(...) VORN_TRACE(vornMsgPrint | vornDbgPrint, __VA_ARGS__)

void vornDumpRingCfgBuf(const uint8_t* buf) {
    if (buf == nullptr) return;
    Reader rd(buf, VORN_MSG_BUF_SIZE);
    uint32_t count = rd.u32(rcfg::kOffCount);
    VORN_DUMP("Num Elements : %ld \r\n", static_cast<long>(count));
    // A count beyond what the buffer can hold is dumped only as far as the buffer goes.
    uint32_t shown = count;
    if (count > rcfg::kMaxRecords) {
        VORN_ERR("%s(): %lu records claimed, %lu fit in the buffer\r\n", __func__,
                 static_cast<unsigned long>(count), static_cast<unsigned long>(rcfg::kMaxRecords));
        shown = rcfg::kMaxRecords;
    }
    for (uint32_t i = 0; i < shown; ++i) {
        vornDumpRingInfoNode(buf + rcfg::kOffRecords + size_t{i} * rcfg::kRecLen);
    }
}

void vornDumpRingInfoNode(const uint8_t* node) {
    if (node == nullptr) return;
    Reader rd(node, rcfg::kRecLen);
    std::array<char, kNameLen> pri{};
    std::array<char, kNameLen> sec{};
    ifmIfIndexToName(rd.u32(rcfg::kOffPrimary), pri.data(), pri.size());
    ifmIfIndexToName(rd.u32(rcfg::kOffSecondary), sec.data(), sec.size());
    VORN_DUMP("\t ringId      : %d\r\n", rd.u16(rcfg::kOffRingId));
    VORN_DUMP("\t action      : %d\r\n", rd.u16(rcfg::kOffAction));
    VORN_DUMP("\t ringAction  : %d\r\n", static_cast<int>(rd.u32(rcfg::kOffRingAction)));
    VORN_DUMP("\t configFlags : 0x%lx\r\n", static_cast<unsigned long>(rd.u32(rcfg::kOffCfgFlags)));
    VORN_DUMP("\t mode        : %d \r\n", rd.u8(rcfg::kOffMode));
    VORN_DUMP("\t helloTime   : %d \r\n", rd.u16(rcfg::kOffHello));
    VORN_DUMP("\t deadTime    : %d \r\n", rd.u16(rcfg::kOffDead));
    VORN_DUMP("\t desgAgent   : %d\r\n", rd.u16(rcfg::kOffDesgAgent));
    VORN_DUMP("\t controlVlan : %d\r\n", rd.u16(rcfg::kOffCtrlVlan));
    VORN_DUMP("\t primary     : %s\r\n", pri.data());
    VORN_DUMP("\t secondary   : %s\r\n", sec.data());
}

// Messages from the agents are dumped under agent-message printing, checked inside.
#define VORN_AGT_DUMP(...) VORN_TRACE(vornAgtMsgPrint, __VA_ARGS__)

void vornDumpAgtMsgToMgrBuf(const uint8_t* msg) {
    if (msg == nullptr || vornAgtMsgPrint == 0) return;
    namespace rpt = vorn::agt::report;
    Reader rd = vornMsgReader(msg);
    uint32_t count = rd.u32(rpt::kOffCount);
    VORN_AGT_DUMP("Agt (%ld) msg rcvd. Num Elements : %ld\r\n",
                  static_cast<long>(rd.u32(rpt::kOffSlot)), static_cast<long>(count));
    for (uint32_t i = 0; i < count; ++i) {
        size_t off = rpt::kOffRecords + size_t{i} * rpt::kRecLen;
        // Only records that lie wholly within the message are shown.
        if (off + rpt::kRecLen > rd.size()) break;
        VORN_AGT_DUMP("Record : %ld\r\n", static_cast<long>(i));
        vornDumpPortStateFlushNode(msg + off);
    }
}

void vornDumpPortStateFlushNode(const uint8_t* node) {
    if (node == nullptr) return;
    namespace rpt = vorn::agt::report;
    Reader rd(node, rpt::kRecLen);
    struct Half {
        const char* title;
        size_t portOff;
        size_t stateOff;
        size_t flushOff;
    };
    const Half halves[] = {
        {"   Primary    : %d\r\n", rpt::kOffPriPort, rpt::kOffPriState, rpt::kOffPriFlush},
        {"   Secondary  : %d\r\n", rpt::kOffSecPort, rpt::kOffSecState, rpt::kOffSecFlush},
    };
    VORN_AGT_DUMP("   RingId     : %d\r\n", rd.u16(rpt::kOffRingId));
    for (const Half& h : halves) {
        VORN_AGT_DUMP(h.title, rd.u16(h.portOff));
        VORN_AGT_DUMP("     Port State : %s\r\n", vornPortStateName(rd.u32(h.stateOff)));
        if (rd.u8(h.flushOff) == 1) VORN_PUTS(vornAgtMsgPrint, "     Flush      : YES\r");
    }
}
