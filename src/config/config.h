// Configuration requests from the command line and the running-configuration lines.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ringdb/records.h"
#include "wire/cli.h"

// Handlers of the configuration requests. Each takes the whole 1024-byte request (the
// IPC header first, fields at the offsets above), sets its status field when it refuses,
// and returns 0. vornProcessCliMsg picks them by message type.
int vornProcessCliMsg(uint8_t* msg);
int vornProcessProtoVorn(uint8_t* request);
int vornProcessProtoMsg(uint8_t* request);
int vornProcessNoProtoMsg(uint8_t* request);
int vornProcessCtrlVlan(uint8_t* request);
int vornAddCtrlVlan(uint8_t* request);
int vornDelCtrlVlan(uint8_t* request);
int vornProcessMemberVlan(uint8_t* request);
int vornAddMemberVlan(uint8_t* request);
int vornDelMemberVlan(uint8_t* request);
int vornProcessMode(uint8_t* request);
int vornAddMode(uint8_t* request);
int vornDelMode(uint8_t* request);
int vornProcessEnable(uint8_t* request);
int vornProcessEnableCli(uint8_t* request);
int vornProcessDisableCli(uint8_t* request);
int vornProcessHelloTimer(uint8_t* request);
int vornAddHelloTimer(uint8_t* request);
int vornDelHelloTimer(uint8_t* request);
int vornProcessDeadTimer(uint8_t* request);
int vornAddDeadTimer(uint8_t* request);
int vornDelDeadTimer(uint8_t* request);
int vornProcessDescription(uint8_t* request);
int vornAddDescription(uint8_t* request);
int vornDelDescription(uint8_t* request);

// Command ids of the running-configuration lines, and the order the store prints them in
// within a ring: 0, 1, 2, 3, 4, 7, 6, 5.
inline constexpr uint32_t VORN_CFG_CMD_RING = 0;
inline constexpr uint32_t VORN_CFG_CMD_DESC = 1;
inline constexpr uint32_t VORN_CFG_CMD_CTRL_VLAN = 2;
inline constexpr uint32_t VORN_CFG_CMD_MEMBER_VLAN = 3;
inline constexpr uint32_t VORN_CFG_CMD_MODE = 4;
inline constexpr uint32_t VORN_CFG_CMD_ENABLE = 5;
inline constexpr uint32_t VORN_CFG_CMD_DEAD = 6;
inline constexpr uint32_t VORN_CFG_CMD_HELLO = 7;

// Member-VLAN lines: " member-vlan " and a piece of at most 267 characters of the VLAN
// list text, in a 281-byte line; vornConfigRemoveMemberVlans always removes line indexes
// 0 to 18.
inline constexpr size_t VORN_MEMBER_VLAN_PIECE = 267;
inline constexpr size_t VORN_MEMBER_VLAN_LINE_LEN = 281;
inline constexpr size_t VORN_VLAN_LIST_TEXT_LEN = 16384;
inline constexpr uint16_t VORN_MEMBER_VLAN_LINES = 19;

// Running-configuration lines (command ids of the configuration store).
int vornConfigAdd(uint16_t ringId, uint32_t commandId, const char* text, uint16_t lineIndex);
int vornConfigRemove(uint16_t ringId, uint32_t commandId, const char* text, uint16_t lineIndex);
int vornConfigRemoveAll(uint16_t ringId, uint32_t flags);
int vornConfigRemoveMemberVlans(uint16_t ringId);
// Writes the member-VLAN lines of a VLAN set, numbered from 1. Returns the number of lines.
int vornConfigAddMemberVlans(uint16_t ringId, const VornVlanBmap& vlans);
// Finds the end of the member-VLAN line piece of `str` that starts at u4Start: *pi4End is
// where the next piece starts from (one before it), *pi4Last the last character of this
// piece; both -1 when u4Start is not inside the text. Pieces break after whole list items
// and are at most 267 characters long.
void vornGetMemberVlanCfgEndIndex(const char* str, uint32_t u4Start, int32_t* pi4End,
                                  int32_t* pi4Last);
