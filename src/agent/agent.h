// The line-card agents: designated line card, ring configuration records queued for the
// agents, ring ownership.
#pragma once

#include <cstddef>
#include <cstdint>

#include "agent/pending.h"
#include "ringdb/records.h"

// Ring configuration record actions.
inline constexpr uint32_t VORN_RING_CFG_ACTION_ADD = 1;  // also: configuration changed
inline constexpr uint32_t VORN_RING_CFG_ACTION_DEL_CFG = 2;
inline constexpr uint32_t VORN_RING_CFG_ACTION_DEL_RING = 3;
// Ring actions.
inline constexpr uint32_t VORN_RING_ACTION_NONE = 1;
inline constexpr uint32_t VORN_RING_ACTION_START = 2;
inline constexpr uint32_t VORN_RING_ACTION_RESTART = 3;
inline constexpr uint32_t VORN_RING_ACTION_STOP = 4;

// Ring configuration record (544 bytes, big-endian), as queued for the agents. Fields
// that a record does not carry stay zero.
namespace vorn::rcfg {
inline constexpr size_t kOffAction = 0;        // u16: VORN_RING_CFG_ACTION_*
inline constexpr size_t kOffRingId = 2;        // u16
inline constexpr size_t kOffRingAction = 4;    // u32: VORN_RING_ACTION_*
inline constexpr size_t kOffCfgFlags = 8;      // u32: the VORN_RING_CFG_* bits carried
inline constexpr size_t kOffDesgAgent = 12;    // u16: designated line card, 12 = none
inline constexpr size_t kOffCtrlVlan = 14;     // u16 (VORN_RING_CFG_CTRL_VLAN)
inline constexpr size_t kOffPrimary = 16;      // u32 ifIndex (VORN_RING_CFG_CTRL_VLAN)
inline constexpr size_t kOffSecondary = 20;    // u32 ifIndex (VORN_RING_CFG_CTRL_VLAN)
inline constexpr size_t kOffMemberVlans = 24;  // 512-byte bitmap (VORN_RING_CFG_MEMBER_VLAN)
inline constexpr size_t kOffHello = 536;       // u16 (VORN_RING_CFG_HELLO)
inline constexpr size_t kOffDead = 538;        // u16 (VORN_RING_CFG_DEAD)
inline constexpr size_t kOffMode = 540;        // u8 (VORN_RING_CFG_MODE), then 3 zero bytes
inline constexpr size_t kRecLen = 544;
// The buffer of a 0x6402 message: header space, the record count, the records.
inline constexpr size_t kOffCount = 124;
inline constexpr size_t kOffRecords = 128;
inline constexpr uint32_t kMaxRecords = 14;
static_assert(kOffMemberVlans + VORN_VLAN_BMAP_BYTES == kOffHello);
static_assert(kOffMode + 1 + 3 == kRecLen);
static_assert(kRecLen == VORN_RING_CFG_REC_LEN && kOffCount == VORN_RING_CFG_COUNT_OFF);
static_assert(kOffRecords == VORN_RING_CFG_BASE_LEN);
// A record is added only while 544 x count + 672 stays within the buffer: 14 fit.
static_assert(kRecLen * (kMaxRecords - 1) + 672 <= VORN_MSG_BUF_SIZE);
static_assert(kRecLen * kMaxRecords + 672 > VORN_MSG_BUF_SIZE);
static_assert(kOffRecords + kRecLen * kMaxRecords <= VORN_MSG_BUF_SIZE);
}  // namespace vorn::rcfg

// Interface-information record (20 bytes, big-endian), followed by a 512-byte VLAN bitmap
// when the byte at kOffVlansPresent is 1 (532 bytes in all), and the buffer of a 0x6403
// message that carries such records back to back.
namespace vorn::ifinfo {
inline constexpr size_t kOffIfIndex = 0;       // u32: the port or VLAN
inline constexpr size_t kOffAttr = 4;          // u32: a VLAN's IFM attribute word; 0 for a port
inline constexpr size_t kOffLagIf = 8;         // u32: ifIndex of the port's LAG, 0 when none
inline constexpr size_t kOffMac = 12;          // 6 bytes
inline constexpr size_t kOffOperState = 18;    // u8: 1 = up
inline constexpr size_t kOffVlansPresent = 19; // u8: 1 = the bitmap follows
inline constexpr size_t kOffVlans = 20;        // 512-byte VLAN bitmap
inline constexpr uint32_t kRecLen = 20;
inline constexpr uint32_t kRecWithVlansLen = 532;
// The buffer: header space, the byte count of the records, the record count, the records.
inline constexpr size_t kOffByteCount = 124;
inline constexpr size_t kOffCount = 128;
inline constexpr uint32_t kOffRecords = 132;
// Most records the record area can hold (all of the short kind).
inline constexpr uint32_t kMaxRecords = (VORN_MSG_BUF_SIZE - kOffRecords) / kRecLen;
static_assert(kOffMac + 6 == kOffOperState && kOffVlansPresent + 1 == kRecLen);
static_assert(kOffVlans + VORN_VLAN_BMAP_BYTES == kRecWithVlansLen);
static_assert(kOffByteCount == VORN_IF_DNLD_COUNT_OFF && kOffRecords == VORN_IF_DNLD_BASE_LEN);
static_assert(kMaxRecords == 403);
}  // namespace vorn::ifinfo

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

// Ring ownership.
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
// One 544-byte ring configuration record.
void vornDumpRingInfoNode(const uint8_t* node);
// An interface-information buffer, printed while message printing is on.
void vornDumpIfDnldBuf(const uint8_t* buf);
// One interface-information record of `len` bytes (20, or 532 with its VLAN bitmap).
void vornDumpIfInfoNode(const uint8_t* node, size_t len);
