// Host edition of the peer-pair library (libqelzil): one application per process registers
// with a block of parameters and callbacks and gets a handle; the library owns the
// inter-chassis-link (ICL) socket DIR/peer.icl, counts the control PDUs handed to it, follows
// the peer's state, keeps the ICL and the LAG-to-pair map, and sends its own PDUs to
// DIR/peer.tx.
//
// Link socket datagrams, both ways: u32 ifIndex (the interface the PDU arrived on, or the ICL
// it leaves by), then the PDU. Every call given handle 0 (or a handle that is no longer
// registered) changes nothing and returns -1; qelZilGetIclIfIndex then returns 0.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vorn::zil {

// The registration block: 31 words in the library's published order. A word holds a number,
// or, in the callback positions, a function's address (0 when there is none).
inline constexpr size_t kRegWords = 31;
using RegBlock = std::array<uintptr_t, kRegWords>;
inline constexpr size_t kWordFlags = 1;
inline constexpr size_t kWordInfoPdu = 4;
// Word positions that hold callbacks.
inline constexpr std::array<size_t, 11> kCallbackWords = {3, 4, 5, 6, 8, 10, 11, 12, 22, 24, 25};
// The information-PDU callback (word 4): called with each control PDU; its result is the
// result of qelZilProcCtrlPdu.
using InfoPduFn = int (*)(uint8_t* pdu);

// Peer status event data: u32 status at 4 (1 up, 2 and 3 down), u32 role at 8.
inline constexpr size_t kOffPeerStatus = 4;
inline constexpr size_t kOffPeerRole = 8;
inline constexpr uint32_t kPeerUp = 1;

// The PDU the library sends from its transmit buffer: u8 type, u8 0, u16 byte length of the
// sub-TLVs, then the sub-TLVs (u16 type, u16 length, the data).
inline constexpr uint8_t kAppPduType = 5;
inline constexpr size_t kPduHdrLen = 4;
inline constexpr size_t kSubTlvHdrLen = 4;
// The most sub-TLV bytes one PDU carries: with its header and the ifIndex word it still fits
// a receiver's 8192-byte buffer.
inline constexpr size_t kMaxTxBytes = 8192 - 4 - kPduHdrLen;

// The library's datagram sockets in the run directory: the link it reads, and where its own
// PDUs go.
inline constexpr const char* kIclSocket = "peer.icl";
inline constexpr const char* kTxSocket = "peer.tx";

// Actions of qelZilSetIclIfIndex and qelZilProcZilLagMap.
inline constexpr int kActionSet = 1;
inline constexpr int kActionClear = 2;

// Flags value of qelRecvfrom that reads without waiting.
inline constexpr int kRecvDontWait = 64;

}  // namespace vorn::zil

// Registers the application: copies the block, binds DIR/peer.icl (replacing a stale socket
// file) and sets *handle. Returns 0, or -1 with *handle untouched (cannot bind, or an
// application is registered already).
int qelZilRegister(const vorn::zil::RegBlock* block, int flags, uint32_t* handle, int options);
// Tells the peer the application is gone: closes and removes the link socket.
int qelZilDeReg(uint32_t handle);
// The link socket's descriptor, or -1.
int qelZilGetIclSockFd(uint32_t handle);
// Non-zero once the link socket is open (the flag the main loop tests).
int qelZilIclSockOpen(uint32_t handle);
uint32_t qelZilGetIclIfIndex(uint32_t handle);
// Action 1 sets the ICL's ifIndex, action 2 clears it.
int qelZilSetIclIfIndex(uint32_t handle, int action, uint32_t ifIndex);
// Counts the PDU under its first byte and hands it to the information-PDU callback.
int qelZilProcCtrlPdu(uint32_t handle, uint8_t* pdu);
// Peer up with the role at byte 8 of the event data; peer down.
int qelZilProcPeerUp(uint32_t handle, const uint8_t* event);
int qelZilProcPeerDown(uint32_t handle);
// Action 1 maps the LAG to (zilId, down), replacing an earlier entry; action 2 removes it.
int qelZilProcZilLagMap(uint32_t handle, int action, uint32_t lag, uint32_t zilId, uint32_t down);
int qelZilSetDbgBits(uint32_t handle, uint32_t bits, int on);
// Appends a sub-TLV to the transmit buffer; -1 while the peer is down or when it does not fit.
int qelZilTxAppBufAddSubTlv(uint32_t handle, uint16_t type, uint16_t len, const uint8_t* data,
                            int flags);
// The library's periodic work: counts the call, sends the transmit buffer as one PDU.
int qelZilChkRegTimeOut(uint32_t handle, uint32_t arg);
// An SWP error on the ICL's queues, reported by the application.
int qelZilIclSwpErrCB(uint32_t handle, uint32_t a, uint32_t b, uint32_t c);
// Prints the library's state, one "\r\n" line each.
int qelZilDumpCb(uint32_t handle);

// Reads one link datagram from fd: the PDU (at most len bytes) into buf and the ifIndex it
// arrived on into *ifIndex. Returns the PDU's length, or -1 (nothing to read, or a datagram
// shorter than its ifIndex word).
int qelRecvfrom(int fd, void* buf, int len, int flags, uint32_t* ifIndex);
