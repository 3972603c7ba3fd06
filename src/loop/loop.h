// The manager's task: start-up, the main loop, and the top-level dispatch of every message
// with the second-level dispatch of event-handler and L2PM notifications.
#pragma once

#include <cstdint>

int vornMainTask(intptr_t arg1, intptr_t arg2);
[[noreturn]] void vornMainThr();
// One pass of the main loop: waits up to the time-out for the sources and serves at most one
// message from each ready one, in the fixed order. Returns select's result.
int vornMainLoopPass(long timeoutUsec);
int vornInitGlobals();
int vornTaskExit();
int vornProcessIpcMsg(uint8_t* msg);
int vornProcessEvhNotif(uint8_t* msg);
int vornProcessL2PmNotif(uint8_t* msg);
int vornProcVornaRegMsgErrHdlr(int error, int slot);
