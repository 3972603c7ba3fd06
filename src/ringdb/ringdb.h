// The ring database: creation, lookup and deletion of the VLAN and port records, the
// STG-instance pool and the LAG member lists. The records and tables themselves are in
// ringdb/records.h.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/limits.h"
#include "ringdb/records.h"

// Size of the LAG member list block taken from the variable pool.
inline constexpr uint32_t VORN_LAG_LIST_SIZE = 68;
// Digits written by vornBMapToArray: one per bit of a 32-bit value.
inline constexpr int VORN_BMAP_DIGITS = 32;
// The port number a physical port of slot s, port p gets: s * 64 + p + 129.
inline constexpr uint32_t VORN_PORTS_PER_SLOT = vorn::limits::kPortsPerSlot;
inline constexpr uint32_t VORN_PHYS_PORT_BASE = 129;

// The gVornPort index of an interface: a LAG uses its LAG number, a physical port
// slot * 64 + port + 129. The result is cut to 16 bits and is not range-checked.
uint16_t vornPortNumOf(uint32_t ifIndex);

// Creates a VLAN or port record for one claimant (VORN_CREATOR_IFM or
// VORN_CREATOR_RING_CONF) and stores it in its table. Returns the record, or null when the
// id lies outside the table or a pool is exhausted ("Memory allocation errors" is bumped
// for the latter).
VornVlanEntry* vornCreateVlanEntry(uint32_t u4IfIndex, uint32_t u4Creator);
VornPortEntry* vornCreatePortEntry(uint32_t u4IfIndex, uint32_t u4Creator);

// Drops one claimant's claim; the record is freed when no claim is left.
void vornCheckAndDeleteVlanEntry(uint16_t u2VlanId, uint32_t u4Creator);
void vornCheckAndDeletePortEntry(uint32_t u4IfIndex, uint32_t u4Creator);

// Takes the lowest free STG instance (64..127), or returns 128 when all are in use.
uint32_t halVornGetStgInst();
// Gives the ring's STG instance back and sets its u2StgInst to 0. An instance outside
// 64..127 has no slot in gVornStgInst: nothing is cleared and the error flag logs it.
void halVornDelStgInst(VornRingEntry* ring);

// Hash of a member-VLAN set. The agents do not use it, so it is always 0.
uint32_t vornUtilGenerateVlanHash(const VornVlanBmap& memberVlanBmap);

// Writes the binary digits of i4Value as '0' and '1', least significant first, into
// `digits` (cleared first) and their number into *pu4Count; 0 gives the single digit '0'.
// A negative value is taken as its 32-bit pattern and fills all 32 characters.
void vornBMapToArray(int32_t i4Value, std::array<char, VORN_BMAP_DIGITS>& digits,
                     uint32_t* pu4Count);

// Inserts or removes a LAG member, given IFM's LAG-member record (bytes 0-3 the LAG's
// ifIndex, 4-7 the member's ifIndex) and the calling handler's name for the traces.
// Both return -1, changing nothing, when the LAG or the member has no record or the LAG
// has no member list; the insert also refuses a 33rd member. Otherwise they return 0.
int vornLagInsertMember(const uint8_t* rec, size_t len, const char* caller);
int vornLagRemoveMember(const uint8_t* rec, size_t len, const char* caller);

// Operational state of a ring: VORN_OPER_UP for a master whose primary forwards and whose
// secondary blocks (the ring is whole), VORN_OPER_DOWN for any other master and for an unknown
// ring, VORN_OPER_NONE ("-") for a ring that is not a master.
inline constexpr int VORN_OPER_DOWN = 0;
inline constexpr int VORN_OPER_UP = 1;
inline constexpr int VORN_OPER_NONE = 2;
int vornGetOperStatus(uint16_t ringId);
