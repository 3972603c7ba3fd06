// The task control block, the event counters and the error tallies of the manager.
#pragma once

#include <array>
#include <cstdint>

#include "platform/chassis.h"
#include "platform/ipc.h"
#include "platform/limits.h"

inline constexpr int VORN_MAX_SLOTS = static_cast<int>(vorn::limits::kSlots);
inline constexpr uint16_t VORN_NO_LINE_CARD = vorn::limits::kSlots;
inline constexpr int VORN_SERVICE = vorn::ipc::kSvcManager;
inline constexpr int VORN_AGENT_SERVICE = vorn::ipc::kSvcAgent;
inline constexpr int VORN_L2PM_SERVICE = vorn::ipc::kSvcL2pm;
inline constexpr int VORN_IFM_SERVICE = vorn::ipc::kSvcIfm;

// One SWP receive record: next expected sequence number (0: not synchronised) and epoch.
using VornSwpRcvState = std::array<uint32_t, 2>;

struct VornTcb {
    QelKey pKey;         // task key from qelTaskStartup
    uint32_t taskId;     // printed by the diagnostics; never filled
    uint32_t ringCount;  // configured rings
    QelKey ipcKey;       // used for every send and send-and-wait
    int32_t service;
    int32_t instance;  // also the owner of the memory partition
    QelKey evLogKey;
    int32_t reqQfd;  // request queue; also used for SWP checks and replies
    int32_t timerQfd;
    uint32_t evtLevel;    // event severity mask
    uint32_t recvEOConf;  // 1 once L2PM's end of configuration arrived
    int32_t swpPipefd;
    uint32_t l2pmSwpHandle;                               // 0 until the queue to L2PM exists
    VornSwpRcvState notifSwpRcvState;                     // shared by IFM and L2PM notifications
    std::array<uint32_t, VORN_MAX_SLOTS> vornaSwpHandle;  // 0: no agent in the slot
    std::array<VornSwpRcvState, VORN_MAX_SLOTS> vornaSwpRcvState;
    std::array<uint32_t, VORN_MAX_SLOTS> lcType;
    // Port-pipe words of each slot's registration, one per port pipe the chassis has.
    std::array<std::array<uint32_t, vorn::chassis::kMaxActivePortPipe>, VORN_MAX_SLOTS> lcPortPipe;
    std::array<uint32_t, VORN_MAX_SLOTS> agtInitDone;
};

extern VornTcb vornTcb;

// The one receive buffer of the main loop: every message is read into it and handled in
// place, so it also holds the last message read (for the diagnostics).
extern std::array<uint8_t, vorn::ipc::kMaxMsgLen> gVornMainIpcBuf;
inline const uint8_t* vornLastReceivedMsg() {
    return gVornMainIpcBuf.data();
}

// Event counters, by index.
enum VornCounter : int {
    VORN_CNT_ADD_VLAN = 0,
    VORN_CNT_DEL_VLAN,
    VORN_CNT_ADD_PORT,
    VORN_CNT_DEL_PORT,
    VORN_CNT_PORT_MODE,
    VORN_CNT_OPER_UP,
    VORN_CNT_OPER_DOWN,
    VORN_CNT_MAC_CHANGE,
    VORN_CNT_ADD_VLAN_PORT,
    VORN_CNT_DEL_VLAN_PORT,
    VORN_CNT_IFM_NOTIF,  // 10
    VORN_CNT_L2PM_NOTIF,
    VORN_CNT_SWP_ACK,
    VORN_CNT_SWP_ACK_TIMEOUT,
    VORN_CNT_NM,
    VORN_CNT_EVH_NOTIF,
    VORN_CNT_IPC_DEFAULT,
    VORN_CNT_L2PM_REG_OK,
    VORN_CNT_L2PM_DEREG_OK,
    VORN_CNT_L2PM_REG_FAIL,
    VORN_CNT_L2PM_DEREG_FAIL,  // 20
    VORN_CNT_L2PM_END_BLK_CFG,
    VORN_CNT_L2PM_CFG_COMPLETE,
    VORN_CNT_EVH_REG_OK,
    VORN_CNT_EVH_REG_FAIL,
    VORN_CNT_EVH_CARD_UP,
    VORN_CNT_EVH_CARD_DOWN,
    VORN_CNT_EVH_CARD_SHUTDOWN,
    VORN_CNT_EVH_DEFAULT,
    VORN_CNT_CLI_PROTO,
    VORN_CNT_CLI_NO_PROTO,  // 30
    VORN_CNT_CLI_ADD_CTRL_VLAN,
    VORN_CNT_CLI_DEL_CTRL_VLAN,
    VORN_CNT_CLI_ADD_MODE,
    VORN_CNT_CLI_DEL_MODE,
    VORN_CNT_CLI_ENABLE,
    VORN_CNT_CLI_DISABLE,
    VORN_CNT_CLI_ADD_MEM_VLAN,
    VORN_CNT_CLI_DEL_MEM_VLAN,
    VORN_CNT_CLI_ADD_HELLO,
    VORN_CNT_CLI_DEL_HELLO,  // 40
    VORN_CNT_CLI_ADD_DEAD,
    VORN_CNT_CLI_DEL_DEAD,
    VORN_CNT_CLI_ADD_DESC,
    VORN_CNT_CLI_DEL_DESC,
    VORN_CNT_CLI_DEFAULT,  // 45
    VORN_NUM_COUNTERS
};
static_assert(VORN_NUM_COUNTERS == 46);

// Error tallies, by index.
enum VornErr : int {
    VORN_ERR_MEM_ALLOC = 0,
    VORN_ERR_ADD_VLAN,  // never bumped
    VORN_ERR_DEL_VLAN,
    VORN_ERR_ADD_PORT,  // never bumped
    VORN_ERR_DEL_PORT,
    VORN_ERR_OSTATE_UP,
    VORN_ERR_OSTATE_DOWN,
    VORN_NUM_ERRS
};
static_assert(VORN_NUM_ERRS == 7);

// Counters and tallies wrap at 2^32 (plain increments).
extern std::array<uint32_t, VORN_NUM_COUNTERS> gVornCounters;
extern std::array<uint32_t, VORN_NUM_ERRS> gVornErrs;

inline void vornCount(VornCounter c) {
    gVornCounters[c]++;
}
inline void vornCountErr(VornErr e) {
    gVornErrs[e]++;
}

int vornClearCounters();
int vornClearErrs();
