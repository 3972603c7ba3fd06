// Entry points of this subsystem that are not built yet: each says so under the error flag
// and changes nothing. Entries leave this file as they land.

#include "peer/peer.h"
#include "task/not_yet.h"

int vornZilPeerStatusChg(uint8_t*) { return vornNotHandledYet("vornZilPeerStatusChg"); }
int vornProcessZilPeerMsg() { return vornNotHandledYet("vornProcessZilPeerMsg"); }
// Without the peer-pair feature there is nothing to start and no periodic work.
int vornZilInit() { return 0; }
int vornZilPeerRegRetryAndFlushTxBuf() { return 0; }
int vornZilIclSocket() { return -1; }
// The LAG associations that IFM's interface-mode-change records feed.
int vornZilProcIclLagAssoc(uint32_t, uint32_t) {
    return vornNotHandledYet("vornZilProcIclLagAssoc");
}
int vornZilProcLagZilAssoc(uint32_t, uint16_t, uint32_t) {
    return vornNotHandledYet("vornZilProcLagZilAssoc");
}

// Until the peer-pair integration answers from its library handle, no interface is the ICL.
uint32_t vornZilGetIclIfIndex() {
    vornNotHandledYet("vornZilGetIclIfIndex");
    return 0;
}
