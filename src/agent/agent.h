// The line-card agents: designated line card, ring configuration records queued for the
// agents, ring ownership.
#pragma once

#include <cstddef>
#include <cstdint>

#include "agent/pending.h"
#include "ringdb/records.h"
#include "task/pools.h"
#include "wire/agent.h"

// Ring configuration record actions and ring actions, under the manager's names.
inline constexpr uint32_t VORN_RING_CFG_ACTION_ADD = vorn::agt::rcfg::kActionSet;
inline constexpr uint32_t VORN_RING_CFG_ACTION_DEL_CFG = vorn::agt::rcfg::kActionRemove;
inline constexpr uint32_t VORN_RING_CFG_ACTION_DEL_RING = vorn::agt::rcfg::kActionDeleteRing;
inline constexpr uint32_t VORN_RING_ACTION_NONE = vorn::agt::rcfg::kRingNone;
inline constexpr uint32_t VORN_RING_ACTION_START = vorn::agt::rcfg::kRingStart;
inline constexpr uint32_t VORN_RING_ACTION_RESTART = vorn::agt::rcfg::kRingRestart;
inline constexpr uint32_t VORN_RING_ACTION_STOP = vorn::agt::rcfg::kRingStop;

// The agent protocol's record layouts, under the names this subsystem has always used.
namespace vorn {
namespace rcfg = agt::rcfg;
namespace ifinfo = agt::ifinfo;
}  // namespace vorn
static_assert(vorn::rcfg::kOffMemberVlans + VORN_VLAN_BMAP_BYTES == vorn::rcfg::kOffHello);
static_assert(VORN_MSG_BUF_SIZE == vorn::ipc::kMaxMsgLen);
// Handlers of the agents' messages and of the card events, as the dispatch hands them over.
int vornProcVornaRegMsg(uint8_t* msg);
int vornProcMsgFromAgt(uint8_t* msg);
int vornEventCardUp(uint8_t* msg);
int vornEventCardDown(uint8_t* msg);
// Start-up and card-up hook of the platform's agent creation; always 0.
int vornCreateAgent();

// Agent registration and the download bracket. vornProcVornaRegMsg returns 0, or -1 when the
// slot is not one of the chassis or the queue to the agent could not be made; the bracket
// senders return 0, or -1 when no buffer could be had.
int vornSendStartCfgMsg(int slot);
int vornSendEndCfgMsg(int slot);
// Start-up: an agent for every card present. Returns 0, or -1.
int vornInitAgents();

// Card up: rings that wait for a card (designated line card 12) and that this slot can run
// are handed back to the agents and given this slot.
void vornUpdateRingsOnLineCardUp(int slot);

// Designated line card of a ring: a slot 0..11, or 12 when none can be chosen.
uint16_t vornGetDesgLineCard(VornRingEntry* ring);
uint16_t vornGetNewDesgLineCard(VornRingEntry* ring, uint16_t excludedSlot);

// Ring configuration download.
uint8_t* vornGetLineCardPendBufToFill(int slot);
int vornSendRingCfgMsgToSingleAgt(int slot, VornRingEntry* ring, uint32_t action, uint32_t flags,
                                  uint32_t ringAction, const uint8_t* memberVlans);
int vornSendRingCfgMsgToAllAgts(VornRingEntry* ring, uint32_t action, uint32_t flags,
                                uint32_t oldRingConfStatus, const uint8_t* memberVlans);
uint32_t vornUtilGetRingAction(uint16_t ringId, uint32_t action, uint32_t flags,
                               uint32_t oldRingConfStatus);
int vornSendRingEnableMsgToAgt(VornRingEntry* ring);
int vornSendRingDisableMsgToAgt(VornRingEntry* ring);
int vornDnldRingCfgToAgt(int slot);

// Interface-information download. vornFillAndSendIfInfo appends one record to the slot's
// pending buffer, sending a full buffer first: the 20 bytes of `record`, and when its byte
// 19 is 1 the 512 bytes of `vlanBitmap` behind them; `recordLength` (20 or 532) is the room
// the record needs. Returns 0, or -1 when no buffer could be had (the record is lost).
int vornFillAndSendIfInfo(int slot, const uint8_t* record, const uint8_t* vlanBitmap,
                          uint32_t recordLength);
// Queues the records of every VLAN, then every port, for one agent. Returns 0.
int vornDnldIfInfoToAgt(int slot);

// Debug settings for the agents.
// The slot's pending debug buffer with room for one more record (a full one is sent first),
// or null when no buffer could be had.
uint8_t* vornGetDbgPendBufToFill(int slot);
// Appends a record for `ringId` with no entry set to the slot's pending debug buffer: the
// buffer, with the record's offset in *rec, or null when no buffer could be had.
uint8_t* vornDbgRecordAppend(int slot, uint16_t ringId, size_t* rec);
// Sets entry `index` (0..6) of the record at `rec` with these values.
struct VornDbgEntryValues {
    uint8_t off;  // 1: the setting goes off
    uint32_t type;
    uint32_t mode;
    uint32_t count;
};
void vornDbgEntryFill(uint8_t* buf, size_t rec, int index, const VornDbgEntryValues& v);
// Queues one record with every debug setting of the ring that is on, for the agent of its
// designated line card; the record goes even when no setting is on. Returns 0, or -1 when the
// ring has no designated line card or no buffer could be had.
int vornSendDbgMsgOnLCUp(VornRingEntry* ring, uint16_t ringId);

// Ring ownership.
// Starts a ring that did not run before a change (ranBefore false) and is ready after it:
// the manager takes its ports while the secondary interface is not ready, else the agents
// are told to start it. The one place where a change of ports or VLANs starts a ring.
void vornStartRingIfNowReady(VornRingEntry* ring, bool ranBefore);
void vornTakeRingOwnerShip(VornRingEntry* ring);
void vornRelinquishRingOwnerShip(VornRingEntry* ring);
int vornUpdateRingOwnership(uint16_t ringId, uint32_t action, uint32_t flags,
                            uint32_t oldRingConfStatus);
// Test seam: ring ownership hands its port states to `relay` instead of
// vornProcPortStateFlush; null restores vornProcPortStateFlush.
using VornPortStateRelayFn = int (*)(VornRingEntry* ring, uint32_t ifIndex, uint32_t oldState,
                                     uint32_t newState, int side, int flush, int dispSyslog);
void vornSetPortStateRelayForTest(VornPortStateRelayFn relay);

// Dumps of agent-bound buffers (8192 bytes each). A ring configuration buffer is printed
// while message or debug printing is on.
void vornDumpRingCfgBuf(const uint8_t* buf);
// A message from an agent (its whole receive buffer), printed while agent-message printing
// is on, and one of its 20-byte port-state records.
void vornDumpAgtMsgToMgrBuf(const uint8_t* msg);
void vornDumpPortStateFlushNode(const uint8_t* node);
// One 544-byte ring configuration record.
void vornDumpRingInfoNode(const uint8_t* node);
// An interface-information buffer, printed while message printing is on.
void vornDumpIfDnldBuf(const uint8_t* buf);
// One interface-information record of `len` bytes (20, or 532 with its VLAN bitmap).
void vornDumpIfInfoNode(const uint8_t* node, size_t len);
