// The message types of the chassis, by the names the manager uses, and the chassis manager's
// card events; one list for the manager, vornsim, vornctl, tests and benchmarks. Types owned
// by a platform service (SWP, the event handler) or by a message family with a header of its
// own (agents, the command line) are named here and defined there.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/evtlog.h"
#include "platform/swp.h"
#include "wire/agent.h"
#include "wire/cli.h"

inline constexpr uint32_t MT_SWP_TIMEOUT = vorn::swp::kMtTimeout;
inline constexpr uint32_t MT_SWP_ACK = vorn::swp::kMtAck;
inline constexpr uint32_t MT_SWP_FORCED_RESEND = vorn::swp::kMtForcedResend;
inline constexpr uint32_t MT_EVL_UNDEBUG_ALL = vorn::evt::kMtUndebugAll;
inline constexpr uint32_t MT_EVH_EVENT_NOTIF = vorn::evt::kMtEvhEventNotif;
inline constexpr uint32_t MT_NM = vorn::nm::kMtNm;
inline constexpr uint32_t MT_NM_DISPLAY = vorn::nm::kMtDisplay;
inline constexpr uint32_t MT_IFM_NOTIF_MSG = 10908;
inline constexpr uint32_t MT_IFM_CTRL_VLAN_QUERY = 10956;
inline constexpr uint32_t MT_IFM_RING_IF_NOTICE = 11016;
inline constexpr uint32_t MT_L2PM_REGISTER = 18401;
inline constexpr uint32_t MT_L2PM_NOTIF = 18402;
inline constexpr uint32_t MT_L2PM_PORT_OWNERSHIP = 18403;
inline constexpr uint32_t MT_L2PM_INST_PORT_OWNERSHIP = 18406;  // 0x47E6
inline constexpr uint32_t MT_L2PM_PORT_STATE = 18407;           // 0x47E7
inline constexpr uint32_t MT_L2PM_FLUSH = 18412;                // 0x47EC
inline constexpr uint32_t MT_L2PM_VLAN_STG = 18476;
inline constexpr uint32_t MT_VORN_VORNA_REGISTER = vorn::agt::kMtRegister;  // 25601
inline constexpr uint32_t MT_VORN_RING_CFG = vorn::agt::kMtRingCfg;
inline constexpr uint32_t MT_VORN_IF_INFO = vorn::agt::kMtIfInfo;
inline constexpr uint32_t MT_VORN_AGT_MSG_TO_MGR = vorn::agt::kMtReport;  // 25604
inline constexpr uint32_t MT_VORN_RING_STATS = vorn::agt::kMtStatsReq;
inline constexpr uint32_t MT_VORN_DBG_CFG = vorn::agt::kMtDbgCfg;
inline constexpr uint32_t MT_VORN_CLEAR_STAT_TO_AGT = vorn::agt::kMtClearStats;
inline constexpr uint32_t MT_VORN_LC_TYPE = vorn::agt::kMtLcType;  // 25613

// Chassis-manager and peer-pair events, as the event handler numbers them; the event
// notification (MT_EVH_EVENT_NOTIF) carries the id and the slot at the offsets of
// vorn::evt.
inline constexpr uint32_t CHMGR_CARD_UP = 0x118011;
inline constexpr uint32_t CHMGR_CARD_DOWN = 0x118012;
inline constexpr uint32_t CHMGR_CARD_SHUTDOWN = 0x118013;
inline constexpr uint32_t MLAGMGR_PEER_STATUS_NOTIFY = 0x44800e;
inline constexpr size_t VORN_EVH_EVENT_OFF = vorn::evt::kOffEventId;
inline constexpr size_t VORN_EVH_SLOT_OFF = vorn::evt::kOffEventSlot;
