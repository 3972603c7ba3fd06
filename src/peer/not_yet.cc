// The peer-pair integration is not built yet. Without the feature (no --peer-pair) there is
// nothing to start, no link socket and no interface is the inter-chassis link; every entry
// that would act for the feature refuses.

#include "task/not_yet.h"
#include "peer/peer.h"
#include "platform/chassis.h"

int vornZilPeerStatusChg(uint8_t*) {
    return vornNotBuiltYet("vornZilPeerStatusChg");
}
int vornProcessZilPeerMsg() {
    return vornNotBuiltYet("vornProcessZilPeerMsg");
}
int vornZilInit() {
    return qelIsZilEnabled() != 0 ? vornNotBuiltYet("vornZilInit") : 0;
}
int vornZilPeerRegRetryAndFlushTxBuf() {
    return 0;
}
int vornZilIclSocket() {
    return -1;
}
int vornZilProcIclLagAssoc(uint32_t, uint32_t) {
    return vornNotBuiltYet("vornZilProcIclLagAssoc");
}
int vornZilProcLagZilAssoc(uint32_t, uint16_t, uint32_t) {
    return vornNotBuiltYet("vornZilProcLagZilAssoc");
}
uint32_t vornZilGetIclIfIndex() {
    if (qelIsZilEnabled() != 0) vornNotBuiltYet("vornZilGetIclIfIndex");
    return 0;
}
