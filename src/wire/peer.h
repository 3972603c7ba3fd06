// What the peer pair puts on the wire besides the peer-pair library's own PDUs: the
// peer-status event of the event handler, IFM's interface-mode-change record, and the names
// of the datagram sockets of the inter-chassis link. Shared by the manager, vornsim and tests.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/zil.h"
#include "wire/ifm.h"
#include "wire/msgtypes.h"

// The peer-status event (MLAGMGR_PEER_STATUS_NOTIFY in an MT_EVH_EVENT_NOTIF): the event
// data starts at the slot word (byte 68); the status is data byte 4, the role data byte 8.
inline constexpr size_t VORN_PEER_EVENT_DATA_OFF = VORN_EVH_SLOT_OFF;
inline constexpr size_t VORN_PEER_STATUS_DATA_OFF = vorn::zil::kOffPeerStatus;
inline constexpr size_t VORN_PEER_ROLE_DATA_OFF = vorn::zil::kOffPeerRole;
inline constexpr size_t VORN_PEER_STATUS_OFF = VORN_PEER_EVENT_DATA_OFF + VORN_PEER_STATUS_DATA_OFF;
inline constexpr size_t VORN_PEER_ROLE_OFF = VORN_PEER_EVENT_DATA_OFF + VORN_PEER_ROLE_DATA_OFF;
inline constexpr uint32_t VORN_PEER_EVENT_LEN = VORN_PEER_ROLE_OFF + 4;
static_assert(VORN_PEER_STATUS_OFF == 72 && VORN_PEER_ROLE_OFF == 76 && VORN_PEER_EVENT_LEN == 80);
inline constexpr uint32_t VORN_PEER_STATUS_UP = vorn::zil::kPeerUp;
inline constexpr uint32_t VORN_PEER_STATUS_DOWN = 2;
// Statuses 2 and 3 both mean the peer is down.
inline constexpr bool vornPeerStatusIsDown(uint32_t status) {
    return status == VORN_PEER_STATUS_DOWN || status == 3;
}
// The role a peer comes up with when none is named.
inline constexpr uint32_t VORN_PEER_DEFAULT_ROLE = 1;

// Interface-mode-change record (IFM_TYP_IF_MODE_CHG; its flags and mode types are in
// wire/ifm.h): the data ends with the mode type, so the whole record is 30 bytes.
inline constexpr size_t VORN_IFM_MODE_CHG_REC_LEN =
    VORN_IFM_REC_HDR_LEN + VORN_IFM_MODE_TYPE_OFF + 4;
static_assert(VORN_IFM_MODE_CHG_REC_LEN == 30);
// Peer-pair ids the manager accepts.
inline constexpr uint32_t VORN_ZIL_MIN_ID = 1;
inline constexpr uint32_t VORN_ZIL_MAX_ID = 129;

// The inter-chassis link on a host: datagrams of a u32 ifIndex (the ICL the PDU travels on)
// and the PDU. The manager reads those that arrive at DIR/peer.icl and sends its own to
// DIR/peer.tx.
inline constexpr const char* VORN_PEER_ICL_SOCKET = vorn::zil::kIclSocket;
inline constexpr const char* VORN_PEER_TX_SOCKET = vorn::zil::kTxSocket;
inline constexpr size_t VORN_PEER_DGRAM_IFINDEX_OFF = 0;
inline constexpr size_t VORN_PEER_DGRAM_PDU_OFF = 4;
inline constexpr size_t VORN_PEER_MAX_DGRAM = vorn::ipc::kMaxMsgLen;
inline constexpr size_t VORN_PEER_MAX_PDU = VORN_PEER_MAX_DGRAM - VORN_PEER_DGRAM_PDU_OFF;
