// Operator show, debug and clear requests, handed on by the configuration request dispatch.
#pragma once

#include <cstdint>

// Answers one show request (codes 100036, 100270, 100271) and sends the answer itself.
int vornProcessShowSummary(uint8_t* request);
// Turns one ring debug setting on or off. Returns 0, or -1 for an unknown ring or type;
// the dispatch replies with the result as the request's status.
int vornProcessDbgMsg(uint8_t* request);
// Forwards a clear-counters request to the agents of the affected rings.
int vornClearStatCounters(uint8_t* request);

struct VornRingEntry;
// The slot's pending debug buffer with room for one more record (a full one is sent first),
// or null when no buffer could be had.
uint8_t* vornGetDbgPendBufToFill(int slot);
// Queues one record with every debug setting of the ring that is on, for the agent of its
// designated line card; the record goes even when no setting is on. Returns 0, or -1 when the
// ring has no designated line card or no buffer could be had.
int vornSendDbgMsgOnLCUp(VornRingEntry* ring, uint16_t ringId);
