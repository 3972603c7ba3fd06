// The command line's show, debug and clear requests and the manager's show answer, as the
// manager, vornctl, vornsim and the tests read and write them. Offsets are bytes from the
// start of the message (IPC header included); all multi-byte fields are big-endian.
//
// Show request (MT_NM 6001, 1024 bytes, to 226.0.1):
//   72  u32  request code: kCodeSummary, kCodeDetail or kCodeMemberVlans
//   76  u32  answer size: bytes of display data the client takes (at most kMaxAnswerData)
//   80  u32  number of input parameters (1)
//   84  16   the paging state (below)
// Show answer (MT 6002, sent back to the request's source; header copied, reply flag set):
//   60  i32  status: 0, or -1 (no paging state; an unknown ring in a detail request)
//   64  u32  more follows: 1 while the client is to ask again with the returned state
//   68  16   the paging state
//   84  u32  data length n
//   88  n    display data: fixed-size text records (below)
// Paging state:
//   0   u32  ring id: the ring to show, or for the summary the ring to start from
//   4   u32  member-VLAN cursor: the VLAN the current ring's member-VLAN text resumes at
//   8   u32  single-ring flag: 1 = the summary shows only the ring of offset 0
//   12  u32  continuation flag: 1 while the current ring's member-VLAN text goes on
//
// Debug request (MT_NM, 1024 bytes, codes 0xAAAA detail, 0xBBBB event, 0xCCCC packet):
//   64  u32  ring id (the reply's status word takes its place)
//   68  u8   off flag: 0 turn on, 1 turn off
//   72  u32  debug type (the request code itself)
//   76  u32  debug mode: 0x11 Rx and Tx, 0x01 Rx, 0x10 Tx (0 for event debugging)
//   80  u32  count: events to print, 0 = no limit
// Clear request (MT_NM, 1024 bytes, code 8): u16 ring id at 124, 0 = every ring.
// Undebug all (MT_EVL_UNDEBUG_ALL 2003): the 60-byte header alone; nothing answers it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "wire/agent.h"
#include "wire/cli.h"

namespace vorn::show {

// ---- Request ---------------------------------------------------------------------------------
inline constexpr uint32_t kCodeSummary = nm::kTypeShowSummary;          // 100036
inline constexpr uint32_t kCodeDetail = nm::kTypeShowDetail;            // 100270
inline constexpr uint32_t kCodeMemberVlans = nm::kTypeShowMemberVlans;  // 100271
inline constexpr size_t kOffCode = nm::kOffType;
inline constexpr size_t kOffAnswerSize = 76;
inline constexpr size_t kOffParamCount = 80;
inline constexpr size_t kOffParam = 84;
inline constexpr size_t kMaxAnswerData = 2048;  // the manager's show buffer

// ---- Paging state ----------------------------------------------------------------------------
inline constexpr size_t kPagingLen = 16;
inline constexpr size_t kPagRingId = 0;
inline constexpr size_t kPagCursor = 4;
inline constexpr size_t kPagSingle = 8;
inline constexpr size_t kPagContinuation = 12;
static_assert(kOffParam + kPagingLen <= nm::kLen);

// ---- Answer ----------------------------------------------------------------------------------
inline constexpr uint32_t kMtAnswer = 6002;
inline constexpr size_t kOffStatus = 60;
inline constexpr size_t kOffMore = 64;
inline constexpr size_t kOffPaging = 68;
inline constexpr size_t kOffDataLen = 84;
inline constexpr size_t kOffData = 88;
inline constexpr size_t kMaxAnswerLen = kOffData + kMaxAnswerData;
static_assert(kOffPaging + kPagingLen == kOffDataLen);
static_assert(kMaxAnswerLen <= ipc::kMaxMsgLen);
inline constexpr uint32_t kStatusFailed = 0xFFFFFFFF;  // -1
// The data of the answer to a detail request for a ring that does not exist.
inline constexpr uint32_t kResultNoRing = 19;

// A text field of a record: NUL-terminated within its width, zero-filled.
struct Field {
    size_t off;
    size_t width;
};

// ---- Detail record (code 100270): one ring ---------------------------------------------------
namespace detail {
inline constexpr Field kRingId{0, 9};        // "%3d"
inline constexpr Field kMode{9, 10};         // "Master", "Transit", "None"
inline constexpr Field kStatus{19, 7};       // "UP", "DOWN", "-"
inline constexpr Field kPrimary{26, 26};     // long interface name
inline constexpr Field kPriState{52, 14};    // kPortStateTexts
inline constexpr Field kSecondary{66, 26};   // long interface name
inline constexpr Field kSecState{92, 14};    // kPortStateTexts
inline constexpr Field kCtrlVlan{106, 11};   // "%-3d", empty when none
inline constexpr Field kHello{117, 5};       // milliseconds, "%hu"
inline constexpr Field kDead{122, 5};        // milliseconds, "%hu"
inline constexpr Field kMac{127, 25};        // the primary port's MAC, empty when unknown
inline constexpr size_t kOffCounters = 152;  // six u32: the agent's counters, in kCounterOrder
inline constexpr size_t kLen = 176;
// The answer space a detail record needs.
inline constexpr size_t kNeeds = 181;
// Which of the agent's counters (agt::stats::Counter) each counter word holds: the words of
// the statistics answer at 72, 76, 64, 68, 80 and 84, in that order.
inline constexpr std::array<size_t, agt::stats::kCounters> kCounterOrder = {2, 3, 0, 1, 4, 5};
static_assert(kMac.off + kMac.width == kOffCounters);
static_assert(kOffCounters + 4 * agt::stats::kCounters == kLen);
}  // namespace detail

// ---- Member-VLAN line (code 100271): one line of the detail view's member VLANs -------------
namespace memberline {
inline constexpr size_t kLen = 81;
// The answer space above which a line is added.
inline constexpr size_t kNeedsMoreThan = 85;
}  // namespace memberline

// ---- Summary record (code 100036): one line per ring -----------------------------------------
namespace summary {
inline constexpr Field kRingId{0, 9};         // "%d"; empty on a continuation line
inline constexpr Field kStatus{9, 7};         // "UP", "DOWN", "-"
inline constexpr Field kMode{16, 10};         // "Master", "Transit", or empty
inline constexpr Field kCtrlVlan{26, 11};     // "%d", empty when none
inline constexpr Field kMemberVlans{37, 38};  // member-VLAN text
inline constexpr size_t kLen = 75;
// A page ends when fewer than this many bytes of answer space remain.
inline constexpr size_t kPageEnd = 80;
static_assert(kMemberVlans.off + kMemberVlans.width == kLen);
}  // namespace summary

// Texts of the records.
inline constexpr const char* kModeMaster = "Master";
inline constexpr const char* kModeTransit = "Transit";
inline constexpr const char* kModeNone = "None";
inline constexpr const char* kStatusUp = "UP";
inline constexpr const char* kStatusDown = "DOWN";
inline constexpr const char* kStatusNone = "-";
// Port-state texts by state code 0..3; any other code is "Invalid".
inline constexpr std::array<const char*, 4> kPortStateTexts = {"Disabled", "Preforwarding",
                                                               "Forwarding", "Blocking"};
inline constexpr const char* kPortStateInvalid = "Invalid";

}  // namespace vorn::show

// ---- Debug and clear requests ----------------------------------------------------------------
namespace vorn::dbgreq {
inline constexpr size_t kOffRingId = 64;  // u32
inline constexpr size_t kOffOff = 68;     // u8
inline constexpr size_t kOffType = 72;    // u32, the request code
inline constexpr size_t kOffMode = 76;    // u32
inline constexpr size_t kOffCount = 80;   // u32
static_assert(kOffType == nm::kOffType);
inline constexpr uint32_t kTypeDetail = agt::dbg::kTypeDetail;
inline constexpr uint32_t kTypeEvent = agt::dbg::kTypeEvent;
inline constexpr uint32_t kTypePacket = agt::dbg::kTypePacket;
inline constexpr uint32_t kModeBoth = agt::dbg::kModeBoth;
inline constexpr uint32_t kModeRx = agt::dbg::kModeRx;
inline constexpr uint32_t kModeTx = agt::dbg::kModeTx;
inline constexpr uint32_t kModeEvent = 0;  // what vornctl sends for event debugging
// The seven settings a ring can hold (the debug index): type, mode and the text of its
// line in the configuration (DIR/debug-config), with the ring id. A line of a setting with
// a count ends in " (count N)". The lines stand under kHeader.
struct Setting {
    uint32_t type;
    uint32_t mode;
    const char* text;
};
inline constexpr int kSettings = agt::dbg::kEntries;
inline constexpr Setting kSettingsByIndex[kSettings] = {
    {kTypeEvent, kModeEvent, " VORN ring %d event debugging is on"},
    {kTypeDetail, kModeBoth, " VORN ring %d detail debugging is on for both Rx Tx"},
    {kTypeDetail, kModeRx, " VORN ring %d detail debugging is on for Rx"},
    {kTypeDetail, kModeTx, " VORN ring %d detail debugging is on for Tx"},
    {kTypePacket, kModeBoth, " VORN ring %d packet debugging is on for both Rx Tx"},
    {kTypePacket, kModeRx, " VORN ring %d packet debugging is on for Rx"},
    {kTypePacket, kModeTx, " VORN ring %d packet debugging is on for Tx"},
};
inline constexpr const char* kCountSuffix = " (count %ld)";
inline constexpr const char* kHeader = "VORN:";
}  // namespace vorn::dbgreq

namespace vorn::clearreq {
inline constexpr size_t kOffRingId = ipc::kSwpBodyOff;  // u16 at 124, 0 = every ring
static_assert(kOffRingId + 2 <= nm::kLen);
}  // namespace vorn::clearreq
