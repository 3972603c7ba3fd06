// Host edition of IFM's interface-index library.
//
// Layout of an ifIndex (bits): 31-24 type; physical and management ports: 23-16 slot,
// 15-8 port; LAG: 15-0 LAG number (1..128); VLAN: 15-0 VLAN id (1..4095).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vorn::ifm {
inline constexpr uint32_t kTypeManagement = 1;
inline constexpr uint32_t kTypeGigabit = 10;
inline constexpr uint32_t kTypeTenGigabit = 11;
inline constexpr uint32_t kTypeLag = 22;
inline constexpr uint32_t kTypeVlan = 24;
// Compressed physical/LAG interface list: u32 count (at most 81), then count u32 ifIndexes.
inline constexpr size_t kCompressedListLen = 328;
inline constexpr uint32_t kCompressedListMax = 81;
}  // namespace vorn::ifm

uint32_t ifmIfIndexToIfType(uint32_t ifIndex);
uint32_t ifmIfIndexToSlotId(uint32_t ifIndex);
uint32_t ifmIfIndexToPortId(uint32_t ifIndex);
// LAG number or VLAN id; 0 for other types.
uint32_t ifmIfIndexToIfNum(uint32_t ifIndex);
// 1 for GigabitEthernet and TenGigabitEthernet ports, else 0.
int ifmIfIndexToPlFlag(uint32_t ifIndex);
uint32_t ifmIfIndexToVlanId(uint32_t ifIndex);
// Builds an ifIndex: physical and management types use slot and port; LAG and VLAN use id.
uint32_t ifmCreateIfIndex(uint32_t type, uint32_t slot, uint32_t port, uint32_t id);
// Short ("Gi 0/1", "Po 5", "Vl 10") and long ("GigabitEthernet 0/1") names, written into
// out (NUL-terminated, cut to len). Unknown: "Unknown(0x%08x)". Returns out.
char* ifmIfIndexToName(uint32_t ifIndex, char* out, size_t len);
char* ifmIfIndexToLName(uint32_t ifIndex, char* out, size_t len);

// Walks the VLAN-interface list of IFM record type 42 (u32 count n, then n u32 VLAN
// ifIndexes) held in `list`. *cursor starts at 0. Returns 0 and the next ifIndex, or -1 at
// the end of the list, also when the count claims more entries than `list` holds.
int ifmVlanIfListGetNextIfIndex(std::span<const uint8_t> list, uint32_t* cursor, uint32_t* ifIndex);

// A set of physical and LAG ifIndexes, kept in ascending order.
struct IfmPhysLagIfList;
IfmPhysLagIfList* ifmPhysLagIfListInit();
void ifmPhysLagIfListFree(IfmPhysLagIfList* list);
// Returns 0, or -1 for an ifIndex that is neither a physical port nor a LAG.
int ifmPhysLagIfListAddIfIndex(IfmPhysLagIfList* list, uint32_t ifIndex);
int ifmPhysLagIfListHasIfIndex(const IfmPhysLagIfList* list, uint32_t ifIndex);
int ifmPhysLagIfListCount(const IfmPhysLagIfList* list);
// The smallest member above `prev` (0 for the first), or 0 when there is none.
uint32_t ifmPhysLagIfListGetNextIfIndex(const IfmPhysLagIfList* list, uint32_t prev);
// Writes the list in compressed form into out (328 bytes). Returns 0, or -1 when the list
// holds more than 81 interfaces or out is too small.
int ifmCompressPhyLagIFList(const IfmPhysLagIfList* list, std::span<uint8_t> out);
// Reads a compressed list into `list` (adding to it). Returns 0, or -1 when the count is
// above 81 or past the input, or an entry is not a physical or LAG ifIndex.
int ifmDeCompressPhyLagIFList(std::span<const uint8_t> in, IfmPhysLagIfList* list);
