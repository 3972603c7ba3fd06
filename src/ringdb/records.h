// The ring, VLAN and port records and their direct-indexed tables.
//
// Records are plain structures taken from the fixed pools; every subsystem reads and
// writes their fields directly. Bitmaps are byte arrays in wire order (bit n in byte n / 8
// under 0x80 >> (n % 8)), so they go to the wire unchanged.
#pragma once

#include <array>
#include <cstdint>
#include <new>
#include <type_traits>

#include "platform/bitmap.h"
#include "platform/limits.h"
#include "task/pools.h"

inline constexpr uint16_t VORN_MIN_RING_ID = vorn::limits::kMinRingId;
inline constexpr uint16_t VORN_MAX_RING_ID = vorn::limits::kMaxRingId;
inline constexpr uint16_t VORN_MAX_VLAN_ID = vorn::limits::kMaxVlan;
inline constexpr uint16_t VORN_MAX_PORT_NUM = 897;
inline constexpr int VORN_RING_TABLE_SIZE = VORN_MAX_RING_ID + 1;
inline constexpr int VORN_VLAN_TABLE_SIZE = VORN_MAX_VLAN_ID + 1;
inline constexpr int VORN_PORT_TABLE_SIZE = 898;
inline constexpr int VORN_NUM_STG_INST = 64;
inline constexpr uint16_t VORN_STG_INST_BASE = 64;
inline constexpr uint16_t VORN_STG_INST_NONE = 128;
inline constexpr int VORN_LAG_MAX_MEMBERS = vorn::limits::kMaxLagMembers;
inline constexpr int VORN_NUM_DBG_TYPES = 7;
inline constexpr int VORN_DESC_LEN = 256;

// Bitmap sizes in bytes.
inline constexpr int VORN_VLAN_BMAP_BYTES = vorn::bmp::kVlanBmapBytes;  // 4096 bits
inline constexpr int VORN_PORT_BMAP_BYTES = 116;                        // 898 bits, in 29 words
inline constexpr int VORN_RING_BMAP_BYTES = 32;                         // 256 bits
inline constexpr uint32_t VORN_VLAN_BMAP_BITS = VORN_VLAN_TABLE_SIZE;
inline constexpr uint32_t VORN_PORT_BMAP_BITS = VORN_PORT_TABLE_SIZE;
inline constexpr uint32_t VORN_RING_BMAP_BITS = VORN_RING_TABLE_SIZE;

using VornVlanBmap = std::array<uint8_t, VORN_VLAN_BMAP_BYTES>;
using VornPortBmap = std::array<uint8_t, VORN_PORT_BMAP_BYTES>;
using VornRingBmap = std::array<uint8_t, VORN_RING_BMAP_BYTES>;

// Configuration flags of a ring; the same bits tell the agents what changed.
inline constexpr uint32_t VORN_RING_CFG_CTRL_VLAN = 0x01;
inline constexpr uint32_t VORN_RING_CFG_MODE = 0x02;
inline constexpr uint32_t VORN_RING_CFG_ENABLE = 0x04;
inline constexpr uint32_t VORN_RING_CFG_HELLO = 0x08;
inline constexpr uint32_t VORN_RING_CFG_DEAD = 0x10;
inline constexpr uint32_t VORN_RING_CFG_MEMBER_VLAN = 0x20;
inline constexpr uint32_t VORN_RING_CFG_DESC = 0x40;
inline constexpr uint32_t VORN_RING_CFG_MANDATORY = 0x07;

inline constexpr uint16_t VORN_DEFAULT_HELLO = 500;
inline constexpr uint16_t VORN_DEFAULT_DEAD = 1500;

// Ring modes.
inline constexpr uint8_t VORN_MODE_NONE = 0;
inline constexpr uint8_t VORN_MODE_MASTER = 1;
inline constexpr uint8_t VORN_MODE_TRANSIT = 2;

// Port states.
inline constexpr uint32_t VORN_PORT_DISABLED = 0;
inline constexpr uint32_t VORN_PORT_PRE_FORW = 1;
inline constexpr uint32_t VORN_PORT_FORW = 2;
inline constexpr uint32_t VORN_PORT_BLOCKING = 3;
inline constexpr uint32_t VORN_PORT_NO_CHANGE = 4;

// Who claims a VLAN or port record.
inline constexpr uint32_t VORN_CREATOR_RING_CONF = 0;
inline constexpr uint32_t VORN_CREATOR_IFM = 1;

struct VornDbgEntry {
    uint32_t isSet;  // 1: this debug type is on for the ring
    uint32_t count;  // packet count limit, where the type has one
};

struct VornRingEntry {
    uint16_t u2RingId;
    uint32_t u4PriIfIndex;       // primary ring interface (0 = none)
    uint32_t u4SecIfIndex;       // secondary ring interface (0 = none)
    uint16_t u2PriPortNum;       // port number of the primary interface
    uint16_t u2SecPortNum;       // port number of the secondary interface
    uint32_t u4CtrlVlanIfIndex;  // interface index of the control VLAN
    uint16_t u2CtrlVlanId;
    uint8_t isPriOwned;  // 1: the primary port is owned by the ring
    uint8_t isSecOwned;
    uint8_t isSecReady;   // 1: the secondary interface is ready
    uint8_t isPriTagged;  // 1: the primary port is tagged in the control VLAN
    uint8_t isSecTagged;
    uint32_t u4PriPortState;  // as the agent reported it
    uint32_t u4SecPortState;
    VornVlanBmap memberVlanBmap;
    uint16_t u2HelloTime;     // default 500
    uint16_t u2DeadTime;      // default 1500
    uint8_t u1Mode;           // VORN_MODE_*
    uint16_t u2DesgLineCard;  // designated line card; 12 = none
    uint32_t u4Flags;         // VORN_RING_CFG_*
    uint16_t u2StgInst;       // 64..127; 128 = none could be had; 0 after release
    std::array<char, VORN_DESC_LEN> description;  // NUL-terminated
    std::array<VornDbgEntry, VORN_NUM_DBG_TYPES> dbgCfg;
    uint16_t u2VlanHash;       // never set
    uint8_t isRingOwnedByMgr;  // 1: the manager holds the ring's ports towards L2PM
};

struct VornVlanEntry {
    uint32_t u4IfIndex;
    uint32_t u4IfmAttr;           // attribute word of IFM's interface-add record
    VornPortBmap portBmap;        // member ports, by port number
    VornPortBmap taggedPortBmap;  // tagged member ports
    uint16_t u2CtrlVlanRingId;    // ring whose control VLAN this is (0 = none)
    uint8_t isCreatedByIfm;
    uint8_t isCreatedByRingConf;
    uint16_t u2MemberVlanRingId;  // ring for which this is a member VLAN (0 = none)
};

struct VornLagPortList {
    uint16_t desgPortNum;                                // smallest member port number; 0 = none
    std::array<uint16_t, VORN_LAG_MAX_MEMBERS> members;  // compact, 0 = free
    uint8_t lastEmptyIndex;                              // number of members
    uint8_t spare;
};

struct VornPortEntry {
    uint32_t u4IfIndex;
    uint32_t u4PortMode;   // port mode from IFM
    uint16_t u2OperState;  // 1 = up
    std::array<uint8_t, 6> macAddr;
    VornVlanBmap vlanBmap;      // VLANs the port is a member of
    VornVlanBmap ctrlVlanBmap;  // control VLANs of rings using the port
    VornRingBmap ringBmap;      // rings using the port as a ring interface
    uint8_t isCreatedByIfm;
    uint8_t isOwnedByRingConf;      // 1: ownership taken from L2PM for ring use
    int16_t i2RingCount;            // ring-interface uses of the port
    uint16_t u2LagParent;           // port number of the LAG this port is a member of
    VornLagPortList* pLagPortList;  // LAG records only
};

static_assert(std::is_trivially_copyable_v<VornRingEntry>);
static_assert(std::is_trivially_copyable_v<VornVlanEntry>);
static_assert(std::is_trivially_copyable_v<VornPortEntry>);
static_assert(sizeof(VornRingEntry) <= VORN_RING_BLOCK_SIZE);
static_assert(sizeof(VornVlanEntry) <= VORN_VLAN_BLOCK_SIZE);
static_assert(sizeof(VornPortEntry) <= VORN_PORT_BLOCK_SIZE);
static_assert(sizeof(VornLagPortList) == 68);

// Starts the lifetime of a zeroed record in a pool block.
template <typename T>
T* vornMakeRecord(void* block) {
    return block == nullptr ? nullptr : new (block) T{};
}

extern std::array<VornRingEntry*, VORN_RING_TABLE_SIZE> gVornRing;
extern std::array<VornVlanEntry*, VORN_VLAN_TABLE_SIZE> gVornVlan;
extern std::array<VornPortEntry*, VORN_PORT_TABLE_SIZE> gVornPort;
extern VornVlanBmap gVornCtrlVlanBmap;  // control VLANs of all rings
extern VornVlanBmap gVornMemVlanBmap;   // member VLANs of all rings
extern std::array<uint32_t, VORN_NUM_STG_INST> gVornStgInst;
extern uint16_t vornActiveRings;
extern const char* const gVornModeStrs[3];

// Range tests on the 16-bit value minus one: 0 and values above the maximum both fail.
inline bool vornIsValidRingId(uint32_t id) {
    return static_cast<uint16_t>(id - 1) <= VORN_MAX_RING_ID - 1;
}
inline bool vornIsValidVlanId(uint32_t id) {
    return static_cast<uint16_t>(id - 1) <= VORN_MAX_VLAN_ID - 1;
}
inline bool vornIsValidPortNum(uint32_t n) {
    return static_cast<uint16_t>(n - 1) <= VORN_MAX_PORT_NUM - 1;
}

inline VornRingEntry* vornGetRing(uint32_t id) {
    return vornIsValidRingId(id) ? gVornRing[static_cast<uint16_t>(id)] : nullptr;
}
inline VornVlanEntry* vornGetVlan(uint32_t id) {
    return vornIsValidVlanId(id) ? gVornVlan[static_cast<uint16_t>(id)] : nullptr;
}
inline VornPortEntry* vornGetPort(uint32_t n) {
    return vornIsValidPortNum(n) ? gVornPort[static_cast<uint16_t>(n)] : nullptr;
}
