// IFM notifications and the ring-interface exchanges with IFM.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/ipc.h"
#include "ringdb/records.h"

// Ring-interface notice to IFM (plain IPC, 76 bytes, not answered).
inline constexpr uint32_t VORN_IFM_NOTICE_LEN = 76;
inline constexpr size_t VORN_IFM_NOTICE_ACTION_OFF = 60;
inline constexpr size_t VORN_IFM_NOTICE_PRI_OFF = 64;
inline constexpr size_t VORN_IFM_NOTICE_SEC_OFF = 68;
inline constexpr size_t VORN_IFM_NOTICE_FLAGS_OFF = 72;
static_assert(VORN_IFM_NOTICE_ACTION_OFF == vorn::ipc::kHdrLen);
static_assert(VORN_IFM_NOTICE_FLAGS_OFF + 4 == VORN_IFM_NOTICE_LEN);
inline constexpr uint32_t VORN_IFM_RING_IF_ADD = 1;
inline constexpr uint32_t VORN_IFM_RING_IF_DEL = 2;
// Flags of the notice: the secondary port is a ring's secondary interface; the primary is
// the inter-chassis link and a ring's primary interface.
inline constexpr uint32_t VORN_IFM_NOTICE_SEC_RING_IF = 0x80000000;
inline constexpr uint32_t VORN_IFM_NOTICE_ICL_PRI = 0x40000000;

// Control-VLAN question to IFM (72 bytes, answered in place).
inline constexpr uint32_t VORN_IFM_CTRL_VLAN_Q_LEN = 72;
inline constexpr size_t VORN_IFM_CTRL_VLAN_Q_ACTION_OFF = 60;
inline constexpr size_t VORN_IFM_CTRL_VLAN_Q_VLAN_OFF = 64;
inline constexpr size_t VORN_IFM_CTRL_VLAN_Q_REPLY_OFF = 68;
static_assert(VORN_IFM_CTRL_VLAN_Q_REPLY_OFF + 4 == VORN_IFM_CTRL_VLAN_Q_LEN);

// Stops a running ring whose interface IFM took away. Returns 0.
int vornDisableRingOnIfmChange(VornRingEntry* ring);
// Tells IFM which ports are ring interfaces: action 1 add, 2 remove. Returns 0 when the
// notice was sent or none was due, -1 for an unknown port or action or a failed send.
int vornNotifRingIfCfgToIFM(uint32_t priIfIndex, uint32_t secIfIndex, uint32_t action);
// The same, with the inter-chassis link's ifIndex given (0: there is none).
int vornNotifRingIfCfgToIFMWithIcl(uint32_t priIfIndex, uint32_t secIfIndex, uint32_t action,
                                   uint32_t iclIfIndex);
// Asks IFM whether a VLAN may serve as a control VLAN (action 1) or releases it (2);
// returns IFM's reply code, or -1 when the exchange failed.
int vornIfmRMirrReqInfo(uint16_t vlanId, uint32_t action);

// The inter-chassis link's ifIndex as the peer-pair library reports it; 0 when there is
// none. Belongs to the peer-pair integration.
uint32_t vornZilGetIclIfIndex();
