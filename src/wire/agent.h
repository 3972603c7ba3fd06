// The line-card agent protocol: every message between the manager (226.0) and the agent of
// a slot (227.SLOT), as both sides read and write it. Offsets are bytes from the start of
// the message (IPC header included); all multi-byte fields are big-endian. Messages that
// travel over SWP have their body at byte 124, the others at byte 60.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/ipc.h"
#include "platform/limits.h"

namespace vorn::agt {

// Message types.
inline constexpr uint32_t kMtRegister = 0x6401;  // agent -> manager, and the reply (IPC)
inline constexpr uint32_t kMtRingCfg = 0x6402;   // ring configuration records (SWP)
inline constexpr uint32_t kMtIfInfo = 0x6403;    // interface information records (SWP)
inline constexpr uint32_t kMtReport = 0x6404;    // port states and flushes (agent -> manager, SWP)
inline constexpr uint32_t kMtStatsReq = 0x6405;  // ring statistics, answered in place
inline constexpr uint32_t kMtDbgCfg = 0x6406;    // debug settings (SWP)
inline constexpr uint32_t kMtClearStats = 0x6407;  // clear counters, 128 bytes (SWP)
inline constexpr uint32_t kMtStartCfg = 0x6408;    // 128 zero bytes (SWP)
inline constexpr uint32_t kMtEndCfg = 0x6409;      // 128 zero bytes (SWP)
inline constexpr uint32_t kMtLcType = 0x640D;      // line-card types (SWP)

inline constexpr int kSlots = static_cast<int>(limits::kSlots);
inline constexpr uint16_t kNoSlot = limits::kSlots;  // "no line card"

// ---- Registration (agent -> manager, plain IPC, body at 60) -------------------------------
namespace reg {
inline constexpr size_t kOffSlot = 36;      // u32, the header's source.slot
inline constexpr size_t kOffValueA = 40;    // u32, the card address, echoed
inline constexpr size_t kOffValueB = 44;    // u32, the agent's request queue id, echoed
inline constexpr size_t kOffLcType = 60;    // u32
inline constexpr size_t kOffPortPipe = 64;  // u32 per port pipe
inline constexpr int kPortPipes = 2;        // port pipes an agent reports
inline constexpr size_t kLen = kOffPortPipe + 4 * kPortPipes;  // 72
}  // namespace reg

// ---- Registration reply (manager -> agent, 60 bytes) ---------------------------------------
namespace regreply {
inline constexpr size_t kLen = 60;
inline constexpr size_t kOffTaskId = 32;
inline constexpr size_t kOffZero36 = 36;
inline constexpr size_t kOffRpAddr = 40;    // qel_sysGetIpAddr()
inline constexpr size_t kOffMgrQueue = 44;  // qel_getQueueId(226, 0, 1)
inline constexpr size_t kOffSlot = 48;      // copied from the registration's byte 36
inline constexpr size_t kOffValueA = 52;    // ... byte 40
inline constexpr size_t kOffValueB = 56;    // ... byte 44
static_assert(kOffValueB + 4 == kLen);
}  // namespace regreply

// START_CFG and END_CFG: 128 bytes, zero after the headers.
inline constexpr uint32_t kBracketLen = 128;

// ---- Ring configuration (0x6402): a count at 124, then 544-byte records at 128 -----------
namespace rcfg {
// Record actions.
inline constexpr uint16_t kActionSet = 1;  // also: configuration changed
inline constexpr uint16_t kActionRemove = 2;
inline constexpr uint16_t kActionDeleteRing = 3;
// Ring actions.
inline constexpr uint32_t kRingNone = 1;
inline constexpr uint32_t kRingStart = 2;
inline constexpr uint32_t kRingRestart = 3;
inline constexpr uint32_t kRingStop = 4;
// Configuration flags: what the record carries.
inline constexpr uint32_t kFlagCtrlVlan = 0x01;  // control VLAN, primary and secondary
inline constexpr uint32_t kFlagMode = 0x02;
inline constexpr uint32_t kFlagEnable = 0x04;
inline constexpr uint32_t kFlagHello = 0x08;
inline constexpr uint32_t kFlagDead = 0x10;
inline constexpr uint32_t kFlagMemberVlan = 0x20;
// Modes.
inline constexpr uint8_t kModeMaster = 1;
inline constexpr uint8_t kModeTransit = 2;

inline constexpr size_t kOffAction = 0;        // u16: kAction*
inline constexpr size_t kOffRingId = 2;        // u16
inline constexpr size_t kOffRingAction = 4;    // u32: kRing*
inline constexpr size_t kOffCfgFlags = 8;      // u32: the kFlag* bits carried
inline constexpr size_t kOffDesgAgent = 12;    // u16: designated line card, 12 = none
inline constexpr size_t kOffCtrlVlan = 14;     // u16 (kFlagCtrlVlan)
inline constexpr size_t kOffPrimary = 16;      // u32 ifIndex (kFlagCtrlVlan)
inline constexpr size_t kOffSecondary = 20;    // u32 ifIndex (kFlagCtrlVlan)
inline constexpr size_t kOffMemberVlans = 24;  // 512-byte VLAN bitmap (kFlagMemberVlan)
inline constexpr size_t kOffHello = 536;       // u16 (kFlagHello)
inline constexpr size_t kOffDead = 538;        // u16 (kFlagDead)
inline constexpr size_t kOffMode = 540;        // u8 (kFlagMode), then 3 zero bytes
inline constexpr size_t kRecLen = 544;
inline constexpr size_t kOffCount = 124;  // u32
inline constexpr size_t kOffRecords = 128;
// The manager adds a record only while 544 x count + 672 stays within its 8192-byte buffer:
// 14 fit in one message.
inline constexpr uint32_t kMaxRecords = 14;
static_assert(kRecLen * (kMaxRecords - 1) + 672 <= ipc::kMaxMsgLen);
static_assert(kRecLen * kMaxRecords + 672 > ipc::kMaxMsgLen);
static_assert(kOffRecords + kRecLen * kMaxRecords <= ipc::kMaxMsgLen);
static_assert(kOffMemberVlans + 512 == kOffHello);
static_assert(kOffMode + 1 + 3 == kRecLen);
}  // namespace rcfg

// ---- Interface information (0x6403) ----------------------------------------------------------
// A byte count at 124, a record count at 128, then records from 132: 20 bytes, followed by a
// 512-byte VLAN bitmap when the byte at kOffVlansPresent is 1 (532 bytes in all).
namespace ifinfo {
inline constexpr size_t kOffIfIndex = 0;        // u32: the port or VLAN
inline constexpr size_t kOffAttr = 4;           // u32: a VLAN's IFM attribute word; 0 for a port
inline constexpr size_t kOffLagIf = 8;          // u32: ifIndex of the port's LAG, 0 when none
inline constexpr size_t kOffMac = 12;           // 6 bytes
inline constexpr size_t kOffOperState = 18;     // u8: 1 = up
inline constexpr size_t kOffVlansPresent = 19;  // u8: 1 = the bitmap follows
inline constexpr size_t kOffVlans = 20;         // 512-byte VLAN bitmap
inline constexpr uint32_t kRecLen = 20;
inline constexpr uint32_t kRecWithVlansLen = 532;
inline constexpr size_t kOffByteCount = 124;
inline constexpr size_t kOffCount = 128;
inline constexpr uint32_t kOffRecords = 132;
// Most records one message can hold (all of the short kind).
inline constexpr uint32_t kMaxRecords = (ipc::kMaxMsgLen - kOffRecords) / kRecLen;
static_assert(kMaxRecords == 403);
static_assert(kOffMac + 6 == kOffOperState && kOffVlansPresent + 1 == kRecLen);
static_assert(kOffVlans + 512 == kRecWithVlansLen);
}  // namespace ifinfo

// ---- Agent report (0x6404, agent -> manager over SWP) ---------------------------------------
namespace report {
inline constexpr size_t kOffSlot = 124;     // u32: the sending agent's slot
inline constexpr size_t kOffCount = 128;    // u32: number of records
inline constexpr size_t kOffRecords = 132;  // 20-byte port-state records
// One record.
inline constexpr size_t kOffRingId = 0;     // u16
inline constexpr size_t kOffNoSyslog = 2;   // u8: 1 = do not log the change to the system log
inline constexpr size_t kOffPriFlush = 3;   // u8: 1 = flush on the primary port
inline constexpr size_t kOffSecFlush = 4;   // u8: 1 = flush on the secondary port
inline constexpr size_t kOffPriPort = 6;    // u16: the agent's primary port number, 0 = none
inline constexpr size_t kOffSecPort = 8;    // u16: the agent's secondary port number, 0 = none
inline constexpr size_t kOffPriState = 12;  // u32: port-state code
inline constexpr size_t kOffSecState = 16;  // u32: port-state code
inline constexpr size_t kRecLen = 20;
// Most records one message can hold.
inline constexpr uint32_t kMaxRecords = (ipc::kMaxMsgLen - kOffRecords) / kRecLen;
static_assert(kOffSecState + 4 == kRecLen);
}  // namespace report

// Port-state codes.
inline constexpr uint32_t kStateDisabled = 0;
inline constexpr uint32_t kStatePreForwarding = 1;
inline constexpr uint32_t kStateForwarding = 2;
inline constexpr uint32_t kStateBlocking = 3;
inline constexpr uint32_t kStateNone = 4;  // no state carried: only a flush, or nothing

// ---- Ring statistics (0x6405, plain IPC, answered in place) ---------------------------------
namespace stats {
inline constexpr size_t kLen = 88;
inline constexpr size_t kOffRingId = 60;    // u32
inline constexpr size_t kOffCounters = 64;  // six u32 counters
inline constexpr int kCounters = 6;
static_assert(kOffCounters + 4 * kCounters == kLen);
// What the agents count per ring, in the order of the answer's words (64, 68, ... 84).
enum Counter : size_t {
    kConfigRecords,  // ring-configuration records the agent applied to the ring
    kLinkDown,       // a link of the running ring went down
    kLinkUp,         // ... came up
    kRingBreaks,     // a master saw its complete ring break
    kStateReports,   // port-state records the agent reported for the ring
    kFlushes,        // flushes asked for in those records (one per port)
};
// The counters' names: `key` in JSON documents, `text` for the operator.
struct CounterName {
    const char* key;
    const char* text;
};
inline constexpr CounterName kCounterNames[kCounters] = {
    {"config_records", "Configuration records"},
    {"link_down", "Link down events"},
    {"link_up", "Link up events"},
    {"ring_breaks", "Ring breaks"},
    {"state_reports", "Port-state reports"},
    {"flushes", "Flushes requested"},
};
}  // namespace stats

// ---- Debug settings (0x6406): undebug-all flag at 124, count at 128, 116-byte records ----
namespace dbg {
inline constexpr size_t kOffUndebugAll = 124;  // u32: 1 when the buffer carries an undebug-all
inline constexpr size_t kOffCount = 128;       // u32
inline constexpr size_t kOffRecords = 132;
// One record: the ring id (0 in an undebug-all record), then one entry per debug index.
inline constexpr size_t kOffRingId = 0;  // u16, then 2 zero bytes
inline constexpr size_t kOffEntries = 4;
inline constexpr size_t kEntryLen = 16;
inline constexpr int kEntries = 7;
inline constexpr size_t kRecLen = kOffEntries + kEntryLen * kEntries;  // 116
// An entry.
inline constexpr size_t kOffSet = 0;          // u8: 1 = this entry carries a setting
inline constexpr size_t kOffOff = 1;          // u8: 1 = turn the setting off
inline constexpr size_t kOffType = 4;         // u32: 0xBBBB event, 0xAAAA detail, 0xCCCC packet
inline constexpr size_t kOffMode = 8;         // u32: 0x11 Rx and Tx, 0x01 Rx, 0x10 Tx
inline constexpr size_t kOffCountLimit = 12;  // u32: events to print, 0 = no limit
inline constexpr uint32_t kTypeDetail = 0xAAAA;
inline constexpr uint32_t kTypeEvent = 0xBBBB;
inline constexpr uint32_t kTypePacket = 0xCCCC;
inline constexpr uint32_t kModeBoth = 0x11;
inline constexpr uint32_t kModeRx = 0x01;
inline constexpr uint32_t kModeTx = 0x10;
// Most records one message holds: a record is added to a buffer of `count` records only
// while 116 x count + 248 <= 8192.
inline constexpr uint32_t kMaxRecords = 69;
static_assert(kRecLen == 116);
static_assert(kRecLen * (kMaxRecords - 1) + 248 <= ipc::kMaxMsgLen &&
              kRecLen * kMaxRecords + 248 > ipc::kMaxMsgLen);
}  // namespace dbg

// ---- Clear counters (0x6407, SWP): the ring id, 0 for every ring --------------------------
namespace clear {
inline constexpr size_t kOffRingId = 124;  // u16
inline constexpr uint32_t kLen = 128;
}  // namespace clear

// ---- Line-card types (0x640D): one u32 per slot from 124 -----------------------------------
namespace lctype {
inline constexpr size_t kOffTypes = 124;
inline constexpr uint32_t kLen = 172;
static_assert(kOffTypes + 4 * kSlots == kLen);
}  // namespace lctype

// Port number of a physical port (slot x 64 + port + 129) or of a LAG (its number), as the
// manager and the agents name ring ports in their records.
constexpr uint16_t portNumber(uint32_t slot, uint32_t port) {
    return static_cast<uint16_t>(slot * limits::kPortsPerSlot + port + 129);
}

}  // namespace vorn::agt
