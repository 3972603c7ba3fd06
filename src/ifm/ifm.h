// IFM notifications and the ring-interface exchanges with IFM.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/ipc.h"
#include "ringdb/records.h"

// Ring-interface notice to IFM (plain IPC, 76 bytes, not answered).
inline constexpr uint32_t VORN_IFM_NOTICE_LEN = 76;
inline constexpr size_t VORN_IFM_NOTICE_ACTION_OFF = 60;
inline constexpr size_t VORN_IFM_NOTICE_PRI_OFF = 64;
inline constexpr size_t VORN_IFM_NOTICE_SEC_OFF = 68;
inline constexpr size_t VORN_IFM_NOTICE_FLAGS_OFF = 72;
static_assert(VORN_IFM_NOTICE_ACTION_OFF == vorn::ipc::kHdrLen);
static_assert(VORN_IFM_NOTICE_FLAGS_OFF + 4 == VORN_IFM_NOTICE_LEN);
inline constexpr uint32_t VORN_IFM_RING_IF_ADD = 1;
inline constexpr uint32_t VORN_IFM_RING_IF_DEL = 2;
// Flags of the notice: the secondary port is a ring's secondary interface; the primary is
// the inter-chassis link and a ring's primary interface.
inline constexpr uint32_t VORN_IFM_NOTICE_SEC_RING_IF = 0x80000000;
inline constexpr uint32_t VORN_IFM_NOTICE_ICL_PRI = 0x40000000;

// Control-VLAN question to IFM (72 bytes, answered in place).
inline constexpr uint32_t VORN_IFM_CTRL_VLAN_Q_LEN = 72;
inline constexpr size_t VORN_IFM_CTRL_VLAN_Q_ACTION_OFF = 60;
inline constexpr size_t VORN_IFM_CTRL_VLAN_Q_VLAN_OFF = 64;
inline constexpr size_t VORN_IFM_CTRL_VLAN_Q_REPLY_OFF = 68;
static_assert(VORN_IFM_CTRL_VLAN_Q_REPLY_OFF + 4 == VORN_IFM_CTRL_VLAN_Q_LEN);

// IFM notification (MT_IFM_NOTIF_MSG): the IPC and SWP headers, then NumElem (i32, 0 or
// less: no record), a count shown by the dump, a reserved word, and NumElem records back to
// back. Each record is a 4-byte header (type u16, length u16 of the whole record) and the
// type's data.
inline constexpr size_t VORN_IFM_NUM_ELEM_OFF = 124;
inline constexpr size_t VORN_IFM_COUNT_OFF = 128;
inline constexpr size_t VORN_IFM_RECORDS_OFF = 136;
inline constexpr size_t VORN_IFM_REC_HDR_LEN = 4;
static_assert(VORN_IFM_NUM_ELEM_OFF == vorn::ipc::kSwpBodyOff);

// Record types.
inline constexpr uint16_t IFM_TYP_ADD_IF = 1;
inline constexpr uint16_t IFM_TYP_DEL_IF = 2;
inline constexpr uint16_t IFM_TYP_OSTATE_UP = 3;
inline constexpr uint16_t IFM_TYP_OSTATE_DN = 4;
inline constexpr uint16_t IFM_TYP_ADMIN_UP = 5;
inline constexpr uint16_t IFM_TYP_ADMIN_DN = 6;
inline constexpr uint16_t IFM_TYP_MACADDR_CHG = 10;
inline constexpr uint16_t IFM_TYP_CHG_PORT_MODE = 11;
inline constexpr uint16_t IFM_TYP_IF_MODE_CHG = 25;
inline constexpr uint16_t IFM_TYP_ADD_VLAN_PORT = 40;
inline constexpr uint16_t IFM_TYP_DEL_VLAN_PORT = 41;
inline constexpr uint16_t IFM_TYP_ADD_VLANBMP_PORT = 42;
inline constexpr uint16_t IFM_TYP_ADD_LAG_PORT = 47;
inline constexpr uint16_t IFM_TYP_DEL_LAG_PORT = 48;
inline constexpr uint16_t IFM_TYP_END_BLK_CFG = 92;
inline constexpr uint16_t L2PM_TYP_INIT_CFG_COMPLETE = 93;

// Record data layouts (offsets from the first byte after the record header).
// Interface add and delete: ifIndex, attribute word (add, kept for a VLAN), MAC address.
inline constexpr size_t VORN_IFM_IF_ATTR_OFF = 4;
inline constexpr size_t VORN_IFM_IF_MAC_OFF = 16;
inline constexpr size_t VORN_IFM_IF_LEN = VORN_IFM_IF_MAC_OFF + 6;
// MAC address change: ifIndex, new MAC address. Port mode change: ifIndex, mode (u32).
inline constexpr size_t VORN_IFM_NEW_MAC_OFF = 4;
inline constexpr size_t VORN_IFM_MAC_CHG_LEN = VORN_IFM_NEW_MAC_OFF + 6;
inline constexpr size_t VORN_IFM_PORT_MODE_OFF = 4;
inline constexpr size_t VORN_IFM_PORT_MODE_LEN = VORN_IFM_PORT_MODE_OFF + 4;
// Interface mode change: ifIndex, value, flags, and the mode type (not aligned).
inline constexpr size_t VORN_IFM_MODE_VALUE_OFF = 4;
inline constexpr size_t VORN_IFM_MODE_FLAGS_OFF = 8;
inline constexpr size_t VORN_IFM_MODE_TYPE_OFF = 22;
// VLAN port add and delete: VLAN ifIndex, port ifIndex, tagged (u16, non-zero: tagged).
inline constexpr size_t VORN_IFM_VP_PORT_OFF = 4;
inline constexpr size_t VORN_IFM_VP_TAGGED_OFF = 8;
inline constexpr size_t VORN_IFM_VLAN_PORT_LEN = VORN_IFM_VP_TAGGED_OFF + 2;
// Port added to a list of VLANs: port ifIndex, tagged (u16), and from VORN_IFM_VL_LIST_OFF
// the VLAN-interface list (u32 count, then the VLAN ifIndexes).
inline constexpr size_t VORN_IFM_VL_TAGGED_OFF = 4;
inline constexpr size_t VORN_IFM_VL_LIST_OFF = 12;
// LAG member add and delete: LAG ifIndex, member ifIndex.
inline constexpr size_t VORN_IFM_LAG_MEMBER_OFF = 4;
inline constexpr size_t VORN_IFM_LAG_PORT_LEN = VORN_IFM_LAG_MEMBER_OFF + 4;

// Consumes one notification: copies it to every agent, then walks its records and hands
// each to its handler. The walk never leaves the message (its validated length) and never
// takes more steps than the message could hold 4-byte records; where NumElem or a record
// length says otherwise it stops and says so under the error flag.
int vornProcessIfmNotif(uint8_t* msg);

// IFM's interface-added and interface-deleted notifications for a VLAN and for a
// physical port or LAG. `rec` is the record's data: bytes 0-3 the ifIndex, 4-7 the
// attribute word, 16-21 the MAC address; fields beyond `len` read as zero. Each returns 0,
// or -1 when the record is too short to hold an ifIndex or the notification failed.
int vornCreateVlan(const uint8_t* rec, size_t len);
int vornCreatePort(const uint8_t* rec, size_t len);
int vornDestroyVlan(const uint8_t* rec, size_t len);
int vornDestroyPort(const uint8_t* rec, size_t len);

// L2PM's configuration download (an L2PM notification of kind 2): its interface, VLAN and
// LAG records rebuild the records as IFM's would.
int vornProcessL2PmDnld(uint8_t* msg);

// Sends a copy of the notification, exactly as long as it is, to every registered agent,
// after dumping it. Returns 0.
int vornSendIfmMsgToAgt(const uint8_t* msg);
// Prints the notification and its records while vornMsgPrint is set.
void vornDumpIfmMsg(const uint8_t* msg);

// Handlers of IFM's records, also run by L2PM's configuration download. `rec` is the
// record's data (the bytes after the 4-byte record header, big-endian) and `len` its size.
// A record too short for the fields its handler reads is dropped, said under the error
// flag, and -1 is returned (the interface add lets the attribute word and MAC address
// read as zero, as vornCreateVlan and vornCreatePort do). Otherwise they return 0; the
// callers ignore the result.
int vornProcessAddIf(const uint8_t* rec, size_t len);
int vornProcessDelIf(const uint8_t* rec, size_t len);
int vornProcessOperUp(const uint8_t* rec, size_t len);
int vornProcessOperDn(const uint8_t* rec, size_t len);
int vornProcessMacAddrChg(const uint8_t* rec, size_t len);
int vornProcessPortMode(const uint8_t* rec, size_t len);
int vornProcessAddVlanPort(const uint8_t* rec, size_t len);
int vornProcessDelVlanPort(const uint8_t* rec, size_t len);
int vornProcessAddVlanBmpPort(const uint8_t* rec, size_t len);
int vornProcessAddLagPort(const uint8_t* rec, size_t len);
int vornProcessDelLagPort(const uint8_t* rec, size_t len);
// The interface-mode-change record feeds the peer-pair LAG associations; returns what the
// peer-pair handler returned, or 0 when none ran.
int vornProcessIfmIfModeChgMsg(const uint8_t* rec, size_t len);

// Stops a running ring whose interface IFM took away. Returns 0.
int vornDisableRingOnIfmChange(VornRingEntry* ring);
// Tells IFM which ports are ring interfaces: action 1 add, 2 remove. Returns 0 when the
// notice was sent or none was due, -1 for an unknown port or action or a failed send.
int vornNotifRingIfCfgToIFM(uint32_t priIfIndex, uint32_t secIfIndex, uint32_t action);
// The same, with the inter-chassis link's ifIndex given (0: there is none).
int vornNotifRingIfCfgToIFMWithIcl(uint32_t priIfIndex, uint32_t secIfIndex, uint32_t action,
                                   uint32_t iclIfIndex);
// Asks IFM whether a VLAN may serve as a control VLAN (action 1) or releases it (2);
// returns IFM's reply code, or -1 when the exchange failed.
int vornIfmRMirrReqInfo(uint16_t vlanId, uint32_t action);
