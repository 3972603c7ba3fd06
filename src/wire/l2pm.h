// The manager's messages to and from L2PM: registration, L2PM's notifications (its
// configuration download among them), port and instance ownership, port states and
// flushes, and the VLAN-to-STG mapping. Shared by the manager, vornsim's L2PM, tests and
// benchmarks; tests pin the bytes. Offsets count from the start of the message, IPC header
// included; multi-byte fields are big-endian.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/bitmap.h"
#include "platform/ifindex.h"
#include "platform/ipc.h"
#include "wire/msgtypes.h"

// ---- Registration (MT_L2PM_REGISTER, 124 bytes, answered in place) --------------------------
// 64 i32 L2PM's answer (0 accepted); 68 protocol kind; 72 service; 80, 84, 88, 96 the
// registration words 1 to 4 and 92 word 5 (this order); 120 u8 1 registers, 0 deregisters.
inline constexpr uint32_t VORN_L2PM_REG_LEN = 124;
inline constexpr size_t VORN_L2PM_REG_RESULT_OFF = 64;
inline constexpr size_t VORN_L2PM_REG_KIND_OFF = 68;
inline constexpr size_t VORN_L2PM_REG_SERVICE_OFF = 72;
inline constexpr size_t VORN_L2PM_REG_WORD1_OFF = 80;
inline constexpr size_t VORN_L2PM_REG_WORD2_OFF = 84;
inline constexpr size_t VORN_L2PM_REG_WORD3_OFF = 88;
inline constexpr size_t VORN_L2PM_REG_WORD5_OFF = 92;
inline constexpr size_t VORN_L2PM_REG_WORD4_OFF = 96;
inline constexpr size_t VORN_L2PM_REG_FLAG_OFF = 120;
inline constexpr uint32_t VORN_L2PM_REG_KIND = 7;  // the ring protocol
static_assert(VORN_L2PM_REG_FLAG_OFF < VORN_L2PM_REG_LEN);

// ---- Notifications (MT_L2PM_NOTIF, over SWP) -------------------------------------------------
// 248 u32 kind: 2 a configuration download, 4 its end.
inline constexpr size_t VORN_L2PM_NOTIF_KIND_OFF = 248;
inline constexpr uint32_t VORN_L2PM_NOTIF_DNLD = 2;
inline constexpr uint32_t VORN_L2PM_NOTIF_EOCONF = 4;

// Configuration download: 252 i32 number of records (0 or less: none), 256 the records,
// back to back. Every record starts with the interface's ifIndex; a VLAN's or the
// management port's record is 144 bytes, only the ifIndex read; a port's or LAG's is 144
// bytes, or 1680 with its VLAN bitmap:
//   0 u32 ifIndex; 4 u32 ifIndex of the LAG the port is a member of (0: none);
//   22 u32 oper status (16 up, 0 down); 26 MAC address (6); 33 u8 1: tagged member of the
//   VLANs of the bitmap, 0: untagged; 50 u8 1: the bitmap at 144 is present; 144 the
//   4096-bit VLAN bitmap; 656-1679 zero.
inline constexpr size_t VORN_L2PM_DNLD_COUNT_OFF = 252;
inline constexpr size_t VORN_L2PM_DNLD_RECORDS_OFF = 256;
inline constexpr size_t VORN_L2PM_DNLD_SHORT_LEN = 144;
inline constexpr size_t VORN_L2PM_DNLD_LONG_LEN = 1680;
inline constexpr size_t VORN_L2PM_DNLD_LAG_OFF = 4;
inline constexpr size_t VORN_L2PM_DNLD_OPER_OFF = 22;
inline constexpr size_t VORN_L2PM_DNLD_MAC_OFF = 26;
inline constexpr size_t VORN_L2PM_DNLD_TAGGED_OFF = 33;
inline constexpr size_t VORN_L2PM_DNLD_HAS_VLANS_OFF = 50;
inline constexpr size_t VORN_L2PM_DNLD_VLANS_OFF = 144;
inline constexpr uint32_t VORN_L2PM_DNLD_OPER_UP = 16;
inline constexpr uint32_t VORN_L2PM_DNLD_OPER_DOWN = 0;
static_assert(VORN_L2PM_NOTIF_KIND_OFF + 4 == VORN_L2PM_DNLD_COUNT_OFF &&
              VORN_L2PM_DNLD_COUNT_OFF + 4 == VORN_L2PM_DNLD_RECORDS_OFF);
static_assert(VORN_L2PM_DNLD_VLANS_OFF == VORN_L2PM_DNLD_SHORT_LEN &&
              VORN_L2PM_DNLD_VLANS_OFF + vorn::bmp::kVlanBmapBytes + 1024 ==
                  VORN_L2PM_DNLD_LONG_LEN);

// Record counts and fixed parts of the instance-ownership, port-state and flush messages.
inline constexpr size_t VORN_L2PM_INST_COUNT_OFF = 124;
inline constexpr uint32_t VORN_L2PM_INST_BASE_LEN = 128;
inline constexpr uint32_t VORN_L2PM_INST_REC_LEN = 8;
inline constexpr size_t VORN_L2PM_PS_COUNT_OFF = 256;
inline constexpr uint32_t VORN_L2PM_PS_BASE_LEN = 260;
inline constexpr uint32_t VORN_L2PM_PS_REC_LEN = 1032;
inline constexpr size_t VORN_L2PM_FLUSH_COUNT_OFF = 256;
inline constexpr uint32_t VORN_L2PM_FLUSH_BASE_LEN = 260;
inline constexpr uint32_t VORN_L2PM_FLUSH_REC_LEN = 24;

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
static_assert(VORN_PS_REC_VLANS_OFF + vorn::bmp::kVlanBmapBytes == VORN_PS_REC_FWD_OFF);
static_assert(VORN_PS_REC_FWD_OFF + vorn::bmp::kVlanBmapBytes == VORN_PS_REC_RESERVED_OFF);
static_assert(VORN_PS_REC_RESERVED_OFF + 4 == VORN_L2PM_PS_REC_LEN);
static_assert(VORN_L2PM_PS_COUNT_OFF == VORN_L2PM_PROTO_ID_OFF + 4);
static_assert(VORN_L2PM_PS_BASE_LEN == VORN_L2PM_PS_COUNT_OFF + 4);
// Seven records fit one message; an eighth would pass the buffer.
inline constexpr uint32_t VORN_L2PM_PS_MAX_RECS = 7;
static_assert(VORN_L2PM_PS_BASE_LEN + VORN_L2PM_PS_MAX_RECS * VORN_L2PM_PS_REC_LEN == 7484);
static_assert(VORN_L2PM_PS_BASE_LEN + (VORN_L2PM_PS_MAX_RECS + 1) * VORN_L2PM_PS_REC_LEN >
              vorn::ipc::kMaxMsgLen);

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
              vorn::ipc::kMaxMsgLen);

// Port-ownership request (588 bytes), answered in place: the action (take or release) and
// the ports, a compressed interface list; the answer lists the ports not granted.
inline constexpr int VORN_PORT_OWN_TAKE = 0;
inline constexpr int VORN_PORT_OWN_RELEASE = 1;
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
              vorn::ipc::kMaxMsgLen);
// The record size the instance-ownership dump prints (the size of the message's fixed part).
inline constexpr size_t VORN_INST_DUMP_REC_SIZE = 128;

// VLAN-STG message (652 bytes).
inline constexpr uint32_t VORN_VLAN_STG_LEN = 652;
inline constexpr size_t VORN_VLAN_STG_MAP_OFF = 124;
inline constexpr size_t VORN_VLAN_STG_INST_OFF = 128;  // u16, then two reserved bytes
inline constexpr size_t VORN_VLAN_STG_BMAP_OFF = 132;
inline constexpr size_t VORN_VLAN_STG_CONST1_OFF = 644;  // always 1
inline constexpr size_t VORN_VLAN_STG_CONST2_OFF = 648;  // always 5
static_assert(VORN_VLAN_STG_BMAP_OFF + vorn::bmp::kVlanBmapBytes == VORN_VLAN_STG_CONST1_OFF);
static_assert(VORN_VLAN_STG_CONST2_OFF + 4 == VORN_VLAN_STG_LEN);
