// Entry points that the dispatch hands messages to, and the calls the task spine makes
// into the other subsystems.
#pragma once

#include <cstdint>

// Top level (main loop and dispatch).
int vornMainTask(intptr_t arg1, intptr_t arg2);
[[noreturn]] void vornMainThr();
// One pass of the main loop: waits up to the time-out for the sources and serves at most one
// message from each ready one, in the fixed order. Returns select's result.
int vornMainLoopPass(long timeoutUsec);
int vornInitGlobals();
int vornTaskExit();
int vornCreateAgent();
int vornProcessIpcMsg(uint8_t* msg);
// The receive buffer, holding the last message read.
const uint8_t* vornLastReceivedMsg();
int vornProcessEvhNotif(uint8_t* msg);
int vornProcessL2PmNotif(uint8_t* msg);
int vornProcVornaRegMsgErrHdlr(int error, int slot);

// SWP queues and send-and-wait.
int vornToL2pmCreateSwpQueue();
int vorn2VornaCreateSwpQ(int slot);
void vornVornaSwpReset(int slot);
int vornSwpSendToL2Pm(uint32_t mtype, void* buffer, uint32_t length);
int vornSwpSendToAgent(uint32_t mtype, void* buffer, uint32_t length, int slot);
int vornAgtSendAndWait(uint32_t mtype, int slot, uint32_t length, void* buffer);
int vornL2PmIpcSendAndWait(uint32_t mtype, void* buffer, uint32_t length);
void vornSwpErrFunc(void* queue, int errCode);
void vornVornaSwpErrFun(void* queue, int errCode);

// Registration.
int vornRegWithEvtHandler();
int vornRegDeregWithL2PM(int isRegister, uint32_t word1, uint32_t word2, uint32_t word3,
                         uint32_t word4);
int vornGetL2pmRegistrationTypes(uint32_t* word1, uint32_t* word2, uint32_t* word3,
                                 uint32_t* word4, uint32_t* word5);

// Handlers owned by the other subsystems.
int vornUndebugAll(uint8_t* msg);
int vornProcessCliMsg(uint8_t* msg);
int vornProcessIfmNotif(uint8_t* msg);
int vornProcVornaRegMsg(uint8_t* msg);
int vornProcMsgFromAgt(uint8_t* msg);
int vornEventCardUp(uint8_t* msg);
int vornEventCardDown(uint8_t* msg);
int vornProcessL2PmDnld(uint8_t* msg);
int vornDnldIfInfoToAgt(int slot);
int vornFlushPendingMsgs();

// Peer-pair feature.
int vornZilInit();
int vornProcessZilPeerMsg();
int vornZilPeerRegRetryAndFlushTxBuf();
int vornZilPeerStatusChg(uint8_t* status);
// The inter-chassis-link socket, or -1 while the link is not open.
int vornZilIclSocket();
