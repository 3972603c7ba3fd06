// SWP queues to L2PM and to the agents, the sends over them, and the two blocking
// request/reply calls.
#pragma once

#include <cstdint>

int vornToL2pmCreateSwpQueue();
int vorn2VornaCreateSwpQ(int slot);
void vornVornaSwpReset(int slot);
int vornSwpSendToL2Pm(uint32_t mtype, void* buffer, uint32_t length);
int vornSwpSendToAgent(uint32_t mtype, void* buffer, uint32_t length, int slot);
int vornAgtSendAndWait(uint32_t mtype, int slot, uint32_t length, void* buffer);
int vornL2PmIpcSendAndWait(uint32_t mtype, void* buffer, uint32_t length);
void vornSwpErrFunc(void* queue, int errCode);
void vornVornaSwpErrFun(void* queue, int errCode);
