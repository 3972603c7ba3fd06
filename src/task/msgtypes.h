// Message types the manager sends and receives, and the event ids it follows.
#pragma once

#include <cstdint>

#include "wire/agent.h"

inline constexpr uint32_t MT_SWP_TIMEOUT = 401;
inline constexpr uint32_t MT_SWP_ACK = 402;
inline constexpr uint32_t MT_SWP_FORCED_RESEND = 404;
inline constexpr uint32_t MT_EVL_UNDEBUG_ALL = 2003;
inline constexpr uint32_t MT_EVH_EVENT_NOTIF = 2009;
inline constexpr uint32_t MT_NM = 6001;
inline constexpr uint32_t MT_NM_DISPLAY = 6002;
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
inline constexpr uint32_t MT_VORN_VORNA_REGISTER = 25601;  // 0x6401
inline constexpr uint32_t MT_VORN_RING_CFG = 0x6402;
inline constexpr uint32_t MT_VORN_IF_INFO = 0x6403;
inline constexpr uint32_t MT_VORN_AGT_MSG_TO_MGR = 25604;  // 0x6404
inline constexpr uint32_t MT_VORN_RING_STATS = 0x6405;
inline constexpr uint32_t MT_VORN_DBG_CFG = 0x6406;
inline constexpr uint32_t MT_VORN_LC_TYPE = 25613;  // 0x640D

// L2PM notification kinds (u32 at offset 248).
inline constexpr uint32_t VORN_L2PM_NOTIF_DNLD = 2;
inline constexpr uint32_t VORN_L2PM_NOTIF_EOCONF = 4;
inline constexpr size_t VORN_L2PM_NOTIF_KIND_OFF = 248;

// Event-handler events.
inline constexpr uint32_t CHMGR_CARD_UP = 0x118011;
inline constexpr uint32_t CHMGR_CARD_DOWN = 0x118012;
inline constexpr uint32_t CHMGR_CARD_SHUTDOWN = 0x118013;
inline constexpr uint32_t MLAGMGR_PEER_STATUS_NOTIFY = 0x44800e;
inline constexpr size_t VORN_EVH_EVENT_OFF = 64;
inline constexpr size_t VORN_EVH_SLOT_OFF = 68;

static_assert(MT_VORN_VORNA_REGISTER == vorn::agt::kMtRegister &&
              MT_VORN_RING_CFG == vorn::agt::kMtRingCfg &&
              MT_VORN_IF_INFO == vorn::agt::kMtIfInfo &&
              MT_VORN_AGT_MSG_TO_MGR == vorn::agt::kMtReport &&
              MT_VORN_RING_STATS == vorn::agt::kMtStatsReq &&
              MT_VORN_DBG_CFG == vorn::agt::kMtDbgCfg && MT_VORN_LC_TYPE == vorn::agt::kMtLcType);
