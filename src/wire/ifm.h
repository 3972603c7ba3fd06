// The manager's exchanges with IFM: IFM's notifications and their records, the
// ring-interface notice and the control-VLAN question. Shared by the manager, vornsim (whose
// IFM writes what the manager reads), tests and benchmarks; tests pin the bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/ipc.h"
#include "wire/msgtypes.h"

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
inline constexpr uint32_t VORN_IFM_CTRL_VLAN_ACQUIRE = 1;  // the VLAN becomes a control VLAN
inline constexpr uint32_t VORN_IFM_CTRL_VLAN_RELEASE = 2;  // it stops being one
// IFM's answer when the VLAN may not be a control VLAN.
inline constexpr uint32_t VORN_IFM_CTRL_VLAN_REFUSED = 0x8A000141;

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
// Only records with these flags concern the peer pair; their mode types: a LAG joins (value:
// the peer-pair id) or leaves a peer-pair port channel, becomes or stops being the
// inter-chassis link.
inline constexpr uint32_t VORN_IFM_MODE_PEER_PAIR_FLAGS = 0x80;
inline constexpr uint32_t VORN_IFM_MODE_LAG_ZIL_JOIN = 4;
inline constexpr uint32_t VORN_IFM_MODE_LAG_ZIL_LEAVE = 8;
inline constexpr uint32_t VORN_IFM_MODE_ICL_SET = 16;
inline constexpr uint32_t VORN_IFM_MODE_ICL_CLEAR = 32;
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

// Whole records (header included) as IFM writes them: interface add and delete (the data
// padded to 24 bytes), oper up and down, VLAN port, the head of a VLAN-list record (each
// listed VLAN adds 4 bytes), LAG member.
inline constexpr size_t VORN_IFM_IF_REC_LEN = 28;
inline constexpr size_t VORN_IFM_OPER_REC_LEN = VORN_IFM_REC_HDR_LEN + 4;
inline constexpr size_t VORN_IFM_VLAN_PORT_REC_LEN = 16;
inline constexpr size_t VORN_IFM_VL_REC_HEAD_LEN = VORN_IFM_REC_HDR_LEN + VORN_IFM_VL_LIST_OFF + 4;
inline constexpr size_t VORN_IFM_LAG_PORT_REC_LEN = VORN_IFM_REC_HDR_LEN + VORN_IFM_LAG_PORT_LEN;
static_assert(VORN_IFM_REC_HDR_LEN + VORN_IFM_IF_LEN <= VORN_IFM_IF_REC_LEN);
static_assert(VORN_IFM_REC_HDR_LEN + VORN_IFM_VLAN_PORT_LEN <= VORN_IFM_VLAN_PORT_REC_LEN);
static_assert(VORN_IFM_VL_REC_HEAD_LEN == 20 && VORN_IFM_LAG_PORT_REC_LEN == 12);
