// Entry points of this subsystem that are not built yet: each says so under the error flag
// and changes nothing. Entries leave this file as they land.

#include "task/handlers.h"
#include "task/not_yet.h"

int vornZilPeerStatusChg(uint8_t*) { return vornNotHandledYet("vornZilPeerStatusChg"); }
int vornProcessZilPeerMsg() { return vornNotHandledYet("vornProcessZilPeerMsg"); }
// Without the peer-pair feature there is nothing to start and no periodic work.
int vornZilInit() { return 0; }
int vornZilPeerRegRetryAndFlushTxBuf() { return 0; }
int vornZilIclSocket() { return -1; }
