// Pending message buffers: what one transaction has queued for the agents and for L2PM,
// sent together by vornFlushPendingMsgs at the end of every dispatch.
#pragma once

#include <array>
#include <cstdint>

#include "l2pm/l2pm.h"
#include "task/tcb.h"
#include "wire/agent.h"

// Per slot: ring configuration, interface information and debug settings.
extern std::array<uint8_t*, VORN_MAX_SLOTS> gapVornAgtBuf;
extern std::array<uint8_t*, VORN_MAX_SLOTS> gapVornIfDnldBuf;
extern std::array<uint8_t*, VORN_MAX_SLOTS> gapVornDbgDnldBuf;

// 1: an agent on that slot has registered and its SWP queue exists.
extern std::array<int32_t, VORN_MAX_SLOTS> gVornActiveLineCards;

// Record counts and fixed parts of the pending messages, for their lengths.
inline constexpr size_t VORN_IF_DNLD_COUNT_OFF = vorn::agt::ifinfo::kOffByteCount;
inline constexpr uint32_t VORN_IF_DNLD_BASE_LEN = vorn::agt::ifinfo::kOffRecords;
inline constexpr size_t VORN_RING_CFG_COUNT_OFF = vorn::agt::rcfg::kOffCount;
inline constexpr uint32_t VORN_RING_CFG_BASE_LEN = vorn::agt::rcfg::kOffRecords;
inline constexpr uint32_t VORN_RING_CFG_REC_LEN = vorn::agt::rcfg::kRecLen;
inline constexpr size_t VORN_DBG_COUNT_OFF = vorn::agt::dbg::kOffCount;
inline constexpr uint32_t VORN_DBG_BASE_LEN = vorn::agt::dbg::kOffRecords;
inline constexpr uint32_t VORN_DBG_REC_LEN = vorn::agt::dbg::kRecLen;

int vornFlushPendingMsgs();
