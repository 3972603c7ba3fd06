// Operator show, debug and clear requests, handed on by the configuration request dispatch,
// and the event log's undebug-all.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "ringdb/records.h"
#include "wire/agent.h"

// The manager's show buffer: the display data of one answer.
inline constexpr size_t VORN_CLI_SHOW_BUF_SIZE = 2048;
// The statistics request and its answer, as vornGetRingStatistics fills them.
using VornRingStats = std::array<uint8_t, vorn::agt::stats::kLen>;

// Answers one show request (codes 100036, 100270, 100271) and sends the answer itself.
int vornProcessShowSummary(uint8_t* request);
// Appends the detail record of a ring to buffer[used...]. Returns the new number of bytes
// used, or -1 for an unknown ring or a record that does not fit.
int vornFillRingInfo(uint32_t ringId, const VornRingStats& statistics, std::span<uint8_t> buffer,
                     int used);
// Appends the summary record of a ring: on a continuation line (*continuation non-zero on
// entry) only its member-VLAN text, from *cursor. Both are left as vornFillMemberVlan leaves
// them. Returns the new number of bytes used, or -1 as vornFillRingInfo.
int vornFillRingInfoSummary(uint32_t ringId, uint32_t* continuation, uint32_t* cursor,
                            std::span<uint8_t> buffer, int used);
// Writes the ring's member VLANs from *cursor (0: from VLAN 1) into text, NUL-terminated, as
// "2,5-9,12". When the text is full it ends the line with ",", sets *cursor to the VLAN the
// next line starts at and *continuation to 1; once VLAN 4095 is handled both are 0. Returns
// the length written.
int vornFillMemberVlan(uint32_t ringId, uint32_t* cursor, uint32_t* continuation,
                       std::span<char> text);
// Zeroes the statistics and asks the agent of the ring's designated line card for them; a
// ring without one, or an agent that does not answer, leaves them zero. Returns 0, or -1 when
// the agent was asked and did not answer.
int vornGetRingStatistics(const VornRingEntry* ring, VornRingStats& statistics);

// Turns one ring debug setting on or off. Returns 0, or -1 for an unknown ring or type;
// the dispatch replies with the result as the request's status.
int vornProcessDbgMsg(uint8_t* request);
// One debug setting as a request carries it.
struct VornDbgRequest {
    uint32_t ringId = 0;
    uint8_t off = 0;  // 1: turn off
    uint32_t type = 0;
    uint32_t mode = 0;
    uint32_t count = 0;
};
// The debug index (0..6) of a type and mode, or -1 for an unknown type.
int vornDebugIndex(uint32_t type, uint32_t mode);
// Adds or removes the configuration entry of the ring's setting `index` and syncs the store.
void vornDebugAddRemoveConfig(int index, const VornDbgRequest& request, const VornRingEntry& ring);
// Queues one debug-download record for the agent of `slot`: the entry `index` from the
// request, or for index 7 the undebug-all record. Returns 0, or -1 when no buffer was had.
int vornFillAndSendDbgBuf(int slot, const VornDbgRequest& request, int index);
// Turns every ring's debugging off in the agents (the event log's undebug-all).
int vornUndebugAll(uint8_t* msg);
// The header line above the per-ring debug entries in the configuration.
void vornDebugHeaderInsert();
void vornDebugHeaderRemove();

// Forwards a clear-counters request to the agents of the affected rings.
int vornClearStatCounters(uint8_t* request);
