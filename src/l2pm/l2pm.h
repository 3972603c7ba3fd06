// Messages to and from L2PM: port ownership, instance ownership, VLAN-STG mapping, port
// states and flushes, and the L2PM updates that follow ring changes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/ifindex.h"
#include "ringdb/records.h"
#include "task/pools.h"
#include "task/tcb.h"

inline constexpr int VORN_PORT_OWN_TAKE = 0;
inline constexpr int VORN_PORT_OWN_RELEASE = 1;

// The pending L2PM messages of one transaction: instance port ownership, port states,
// flushes; each sent whole by the flush at the end of the dispatch.
extern uint8_t* gpVornL2PmInstPortOwnBuf;
extern uint8_t* gpVornL2PmPortStateBuf;
extern uint8_t* gpVornL2PmFlushBuf;
// Record counts and fixed parts of those messages, for their lengths.
inline constexpr size_t VORN_L2PM_INST_COUNT_OFF = 124;
inline constexpr uint32_t VORN_L2PM_INST_BASE_LEN = 128;
inline constexpr uint32_t VORN_L2PM_INST_REC_LEN = 8;
inline constexpr size_t VORN_L2PM_PS_COUNT_OFF = 256;
inline constexpr uint32_t VORN_L2PM_PS_BASE_LEN = 260;
inline constexpr uint32_t VORN_L2PM_PS_REC_LEN = 1032;
inline constexpr size_t VORN_L2PM_FLUSH_COUNT_OFF = 256;
inline constexpr uint32_t VORN_L2PM_FLUSH_BASE_LEN = 260;
inline constexpr uint32_t VORN_L2PM_FLUSH_REC_LEN = 24;

// Forces port ownership to be taken also for ports that IFM has not reported (a shell global).
extern uint32_t gHalVornForcePortOwnerShip;

// ---- Wire layouts -----------------------------------------------------------------------

// Port-state and flush messages: IPC and SWP headers, reserved bytes up to 247, then the
// client id, the protocol id and the record count (VORN_L2PM_PS_COUNT_OFF below).
inline constexpr size_t VORN_L2PM_CLIENT_ID_OFF = 248;
inline constexpr size_t VORN_L2PM_PROTO_ID_OFF = 252;
inline constexpr uint32_t VORN_L2PM_CLIENT_ID = 7;
inline constexpr uint32_t VORN_L2PM_PROTO_ID = 3;

// Port-state record (1032 bytes).
inline constexpr size_t VORN_PS_REC_IFINDEX_OFF = 0;
inline constexpr size_t VORN_PS_REC_VLANS_OFF = 4;  // VLANs whose state the record sets
inline constexpr size_t VORN_PS_REC_FWD_OFF = 516;  // those of them that forward
inline constexpr size_t VORN_PS_REC_RESERVED_OFF = 1028;
static_assert(VORN_PS_REC_VLANS_OFF + VORN_VLAN_BMAP_BYTES == VORN_PS_REC_FWD_OFF);
static_assert(VORN_PS_REC_FWD_OFF + VORN_VLAN_BMAP_BYTES == VORN_PS_REC_RESERVED_OFF);
static_assert(VORN_PS_REC_RESERVED_OFF + 4 == VORN_L2PM_PS_REC_LEN);
static_assert(VORN_L2PM_PS_COUNT_OFF == VORN_L2PM_PROTO_ID_OFF + 4);
static_assert(VORN_L2PM_PS_BASE_LEN == VORN_L2PM_PS_COUNT_OFF + 4);
// Seven records fit one message; an eighth would pass the buffer.
inline constexpr uint32_t VORN_L2PM_PS_MAX_RECS = 7;
static_assert(VORN_L2PM_PS_BASE_LEN + VORN_L2PM_PS_MAX_RECS * VORN_L2PM_PS_REC_LEN == 7484);
static_assert(VORN_L2PM_PS_BASE_LEN + (VORN_L2PM_PS_MAX_RECS + 1) * VORN_L2PM_PS_REC_LEN >
              VORN_MSG_BUF_SIZE);

// Flush record (24 bytes).
inline constexpr size_t VORN_FL_REC_KIND_OFF = 0;
inline constexpr size_t VORN_FL_REC_LEN_OFF = 4;
inline constexpr size_t VORN_FL_REC_VLAN_OFF = 12;  // u16
inline constexpr size_t VORN_FL_REC_IFINDEX_OFF = 16;
inline constexpr uint32_t VORN_FL_REC_KIND = 82;
static_assert(VORN_FL_REC_IFINDEX_OFF + 8 == VORN_L2PM_FLUSH_REC_LEN);
static_assert(VORN_L2PM_FLUSH_BASE_LEN == VORN_L2PM_PS_BASE_LEN);
inline constexpr uint32_t VORN_L2PM_FLUSH_MAX_RECS = 330;
static_assert(VORN_L2PM_FLUSH_BASE_LEN + VORN_L2PM_FLUSH_MAX_RECS * VORN_L2PM_FLUSH_REC_LEN ==
              8180);
static_assert(VORN_L2PM_FLUSH_BASE_LEN + (VORN_L2PM_FLUSH_MAX_RECS + 1) * VORN_L2PM_FLUSH_REC_LEN >
              VORN_MSG_BUF_SIZE);

// Port-ownership request (588 bytes), answered in place.
inline constexpr uint32_t VORN_PORT_OWN_LEN = 588;
inline constexpr size_t VORN_PORT_OWN_ACTION_OFF = 256;
inline constexpr size_t VORN_PORT_OWN_LIST_OFF = 260;  // compressed interface list
static_assert(VORN_PORT_OWN_LIST_OFF + vorn::ifm::kCompressedListLen == VORN_PORT_OWN_LEN);

// Instance-port-ownership message: record count at VORN_L2PM_INST_COUNT_OFF, 8-byte
// records from offset 128: action (u8), zero (u8), STG instance (u16), port ifIndex (u32).
inline constexpr size_t VORN_INST_REC_ACTION_OFF = 0;
inline constexpr size_t VORN_INST_REC_INST_OFF = 2;
inline constexpr size_t VORN_INST_REC_IFINDEX_OFF = 4;
inline constexpr uint8_t VORN_INST_PORT_ADD = 1;
inline constexpr uint32_t VORN_L2PM_INST_MAX_RECS = 1008;
static_assert(VORN_INST_REC_IFINDEX_OFF + 4 == VORN_L2PM_INST_REC_LEN);
static_assert(VORN_L2PM_INST_BASE_LEN + VORN_L2PM_INST_MAX_RECS * VORN_L2PM_INST_REC_LEN ==
              VORN_MSG_BUF_SIZE);
// The record size the instance-ownership dump prints (the size of the message's fixed part).
inline constexpr size_t VORN_INST_DUMP_REC_SIZE = 128;

// VLAN-STG message (652 bytes).
inline constexpr uint32_t VORN_VLAN_STG_LEN = 652;
inline constexpr size_t VORN_VLAN_STG_MAP_OFF = 124;
inline constexpr size_t VORN_VLAN_STG_INST_OFF = 128;  // u16, then two reserved bytes
inline constexpr size_t VORN_VLAN_STG_BMAP_OFF = 132;
inline constexpr size_t VORN_VLAN_STG_CONST1_OFF = 644;  // always 1
inline constexpr size_t VORN_VLAN_STG_CONST2_OFF = 648;  // always 5
static_assert(VORN_VLAN_STG_BMAP_OFF + VORN_VLAN_BMAP_BYTES == VORN_VLAN_STG_CONST1_OFF);
static_assert(VORN_VLAN_STG_CONST2_OFF + 4 == VORN_VLAN_STG_LEN);

// Line-card-type message to the agents (172 bytes): lcType[12] from offset 124.
inline constexpr uint32_t VORN_LC_TYPE_LEN = 172;
inline constexpr size_t VORN_LC_TYPE_OFF = 124;
static_assert(VORN_LC_TYPE_OFF + 4 * VORN_MAX_SLOTS == VORN_LC_TYPE_LEN);

// ---- Port-state codes ---------------------------------------------------------------------

// Short name of a port-state code for traces and dumps ("DISABLED", "PRE-FORW", "FORW",
// "BLOCKING"; "INVALID" for any other code).
const char* vornPortStateName(uint32_t state);
// The word the port-state event carries ("Disabled", "Pre-Forwarding", "Forwarding",
// "Blocking"; "Invalid" for any other code).
const char* vornPortStateSyslogWord(uint32_t state);

// ---- Port ownership and STG instance ------------------------------------------------------

// Takes (action 0) or relinquishes (1) a port from L2PM. *refused is -1 when L2PM refused a
// take. Returns 0 or -1.
int vornPortOwnership(uint32_t ifIndex, int action, int* refused);
// Takes the two ring interfaces before a ring's configuration is accepted; on failure
// stores 9, 10 or 14 in the request's status field and returns -1. `request` is the whole
// 1024-byte configuration request.
int vornTakeRingInterfaceOwnership(uint8_t* request, uint32_t priIfIndex, uint32_t secIfIndex);
// Appends one record to the pending instance-port-ownership message. Returns 0 or -1.
int halVornSendInstPortOwnerShipToL2Pm(uint32_t action, uint16_t instance, uint32_t ifIndex);
uint8_t* vornGetL2PmInstPortOwnerShipPendBufToFill();
// Maps (mapFlag 1) or unmaps (0) the VLANs of a 512-byte bitmap to an STG instance, at once.
// Returns 0, or -1 when no message could be sent.
int halVornSendVlanStgMsgToL2Pm(uint16_t instance, const uint8_t* vlanBitmap, uint32_t mapFlag);
// Sends the line-card types to every agent with a queue. Returns 0, or -1 on a buffer shortage.
int halVornSendLCTypeToAllAgents();

// ---- Port states and flushes ----------------------------------------------------------------

// Appends one port-state record; vlanSet and fwdSet are 512-byte VLAN bitmaps, copied (a null
// one counts as empty). Returns 0, or -1 when nothing was appended.
int vornSendPortStateMsgToL2Pm(uint32_t ifIndex, const uint8_t* vlanSet, const uint8_t* fwdSet);
int vornSendFlushMsgToL2Pm(uint16_t vlanId, uint32_t ifIndex);
// The pending buffer with room for one more record (a full one is sent first), or null.
uint8_t* vornGetL2PmPortStatePendBufToFill();
uint8_t* vornGetL2PmFlushPendBufToFill();
// Turns one port-state/flush result of a ring into L2PM records; side 1 is the primary.
// Returns 0, or -1 when the port is unknown or a record could not be appended.
int vornProcPortStateFlush(VornRingEntry* ring, uint32_t ifIndex, uint32_t oldState,
                           uint32_t newState, int side, int flush, int dispSyslog);

// ---- Dumps (printed only while vornL2pmMsgPrint is set) ---------------------------------------

// Both read a pending 8192-byte message buffer.
void vornDumpL2PmPerPortStateMsg(const uint8_t* buffer);
void halVornDumpL2PmInstPortOwnerShipMsg(const uint8_t* buffer);
// Prints `title` and the set VLANs of a 4096-bit bitmap as "%d, " each, then ends the line;
// an empty bitmap prints nothing at all.
void vornPrintVlanBmap(std::span<const uint8_t> bitmap, const char* title);

// ---- L2PM updates on ring changes; side 1 is the primary interface ------------------------

int vornUpdateL2PmOnRingIfAdd(VornRingEntry* ring, int side);
int vornUpdateL2PmOnRingIfDel(VornRingEntry* ring, int side);
int vornUpdateL2PmOnMemberVlanChange(VornRingEntry* ring, int side, const uint8_t* vlanBitmap,
                                     int add);
int vornUpdateL2PmOnRingDisableIfmChange(VornRingEntry* ring, int side);
