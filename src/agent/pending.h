// Pending message buffers: what one transaction has queued for the agents and for L2PM,
// sent together by vornFlushPendingMsgs at the end of every dispatch.
#pragma once

#include <array>
#include <cstdint>

#include "task/tcb.h"

// Per slot: ring configuration, interface information and debug settings.
extern std::array<uint8_t*, VORN_MAX_SLOTS> gapVornAgtBuf;
extern std::array<uint8_t*, VORN_MAX_SLOTS> gapVornIfDnldBuf;
extern std::array<uint8_t*, VORN_MAX_SLOTS> gapVornDbgDnldBuf;
// L2PM: instance port ownership, port states, flushes.
extern uint8_t* gpVornL2PmInstPortOwnBuf;
extern uint8_t* gpVornL2PmPortStateBuf;
extern uint8_t* gpVornL2PmFlushBuf;

// 1: an agent on that slot has registered and its SWP queue exists.
extern std::array<int32_t, VORN_MAX_SLOTS> gVornActiveLineCards;

// Record counts and fixed parts of the pending messages, for their lengths.
inline constexpr size_t VORN_IF_DNLD_COUNT_OFF = 124;     // byte count of the records
inline constexpr uint32_t VORN_IF_DNLD_BASE_LEN = 132;
inline constexpr size_t VORN_RING_CFG_COUNT_OFF = 124;
inline constexpr uint32_t VORN_RING_CFG_BASE_LEN = 128;
inline constexpr uint32_t VORN_RING_CFG_REC_LEN = 544;
inline constexpr size_t VORN_DBG_COUNT_OFF = 128;
inline constexpr uint32_t VORN_DBG_BASE_LEN = 132;
inline constexpr uint32_t VORN_DBG_REC_LEN = 116;
inline constexpr size_t VORN_L2PM_INST_COUNT_OFF = 124;
inline constexpr uint32_t VORN_L2PM_INST_BASE_LEN = 128;
inline constexpr uint32_t VORN_L2PM_INST_REC_LEN = 8;
inline constexpr size_t VORN_L2PM_PS_COUNT_OFF = 256;
inline constexpr uint32_t VORN_L2PM_PS_BASE_LEN = 260;
inline constexpr uint32_t VORN_L2PM_PS_REC_LEN = 1032;
inline constexpr size_t VORN_L2PM_FLUSH_COUNT_OFF = 256;
inline constexpr uint32_t VORN_L2PM_FLUSH_BASE_LEN = 260;
inline constexpr uint32_t VORN_L2PM_FLUSH_REC_LEN = 24;

int vornFlushPendingMsgs();
