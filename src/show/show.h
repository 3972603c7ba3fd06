// Operator show, debug and clear requests, handed on by the configuration request dispatch.
#pragma once

#include <cstdint>

// Turns every ring's debugging off (the event log's undebug-all).
int vornUndebugAll(uint8_t* msg);
// Answers one show request (codes 100036, 100270, 100271) and sends the answer itself.
int vornProcessShowSummary(uint8_t* request);
// Turns one ring debug setting on or off. Returns 0, or -1 for an unknown ring or type;
// the dispatch replies with the result as the request's status.
int vornProcessDbgMsg(uint8_t* request);
// Forwards a clear-counters request to the agents of the affected rings.
int vornClearStatCounters(uint8_t* request);
