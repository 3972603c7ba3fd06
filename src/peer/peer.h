// The peer-pair integration: the calls the rest of the manager makes into it.
#pragma once

#include <cstdint>

int vornZilInit();
int vornProcessZilPeerMsg();
int vornZilPeerRegRetryAndFlushTxBuf();
int vornZilPeerStatusChg(uint8_t* status);
// The inter-chassis-link socket, or -1 while the link is not open.
int vornZilIclSocket();
// The ifIndex of the inter-chassis link; 0 when there is none.
uint32_t vornZilGetIclIfIndex();
// The peer-pair associations that IFM's interface-mode-change record feeds: of a LAG with
// the inter-chassis link (mode types 16 and 32), and of a LAG with the peer pair (4 and 8,
// with the low 16 bits of the record's value).
int vornZilProcIclLagAssoc(uint32_t ifIndex, uint32_t modeType);
int vornZilProcLagZilAssoc(uint32_t ifIndex, uint16_t value, uint32_t modeType);
