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
#include "wire/l2pm.h"

// The pending L2PM messages of one transaction: instance port ownership, port states,
// flushes; each sent whole by the flush at the end of the dispatch.
extern uint8_t* gpVornL2PmInstPortOwnBuf;
extern uint8_t* gpVornL2PmPortStateBuf;
extern uint8_t* gpVornL2PmFlushBuf;
// Forces port ownership to be taken also for ports that IFM has not reported (a shell global).
extern uint32_t gHalVornForcePortOwnerShip;

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
