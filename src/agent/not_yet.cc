// Entry points of this subsystem that are not built yet: each says so under the error flag
// and changes nothing. Entries leave this file as they land.

#include "agent/agent.h"
#include "task/handlers.h"
#include "task/not_yet.h"
#include "task/tcb.h"

int vornProcVornaRegMsg(uint8_t*) { return vornNotHandledYet("vornProcVornaRegMsg"); }
int vornProcMsgFromAgt(uint8_t*) { return vornNotHandledYet("vornProcMsgFromAgt"); }
int vornEventCardUp(uint8_t*) { return vornNotHandledYet("vornEventCardUp"); }
int vornEventCardDown(uint8_t*) { return vornNotHandledYet("vornEventCardDown"); }
