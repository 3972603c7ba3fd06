// The peer-pair integration: the manager's registration with the peer-pair library, the
// control PDUs of the inter-chassis link (ICL), the peer's up and down events, and the
// association of LAGs with the peer pair and with the ICL. The manager keeps no pairing state
// of its own beyond the library's handle.
#pragma once

#include <array>
#include <cstdint>

#include "platform/zil.h"

// The library's handle, 0 while not registered.
extern uint32_t vornZilHdl;
// The library's debug text buffer (2040 bytes while registered, else null).
inline constexpr size_t VORN_ZIL_DBG_BUF_LEN = 2040;
extern char* gvornZilDbgBuf;
// The receive buffer of ICL PDUs.
extern std::array<uint8_t, 8192> vornZilBuf;
// The registration block handed to the library.
extern vorn::zil::RegBlock vornZilCtrlParams;

// Start-up: 0 (also with the feature off) or -1.
int vornZilInit();
// Undoes the registration.
void vornZilDeInit();
// Reads one PDU from the ICL socket and hands it to the library; its result, or -1.
int vornProcessZilPeerMsg();
// The loop's periodic peer-pair work (registration retry and transmit flush).
int vornZilPeerRegRetryAndFlushTxBuf(uint32_t ignored = 0, uint32_t arg = 0);
// The peer-status event's data: u32 status at 4, u32 role at 8.
int vornZilPeerStatusChg(uint8_t* event);
// IFM's interface-mode-change records: a LAG with the ICL (mode types 16 and 32) and a LAG
// with the peer pair (4 and 8, zilId the low 16 bits of the record's value).
int vornZilProcIclLagAssoc(uint32_t ifIndex, uint32_t action);
int vornZilProcLagZilAssoc(uint32_t ifIndex, uint16_t zilId, uint32_t modeType);

// Callbacks of the registration block.
int vornZilProcPeerReg();
int vornZilProcInfoPduData(uint8_t* data);
int vornZilProcZilPairingChg();
int vornZilProcZilPairOStateChg();
int vornZilProcPeerEndInfoExch();
void* vornZilMemAlloc(uint32_t type, uint32_t size);
void vornZilMemFree(uint32_t type, void* block);
void* vornZilSwpMalloc(uint32_t size);
void vornZilSwpFree(void* block);
int vornZilSwpErrFunc(uint32_t a, uint32_t b, uint32_t c);
void vornZilDbg(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Handlers the library may call that are not in the block.
int vornZilProcAppPduData(uint8_t* data);
void vornZilProcPeerDown();

// Debug-shell functions: send a test application PDU to the peer, turn on every library
// debug bit, dump the library's state.
int vornTestAppPduToPeer();
int vornZilSetLibDbgBits();
int vornZilDebugLibInfo();
