// Registration with the event handler and with L2PM, retried once a second until accepted.

#include <array>

#include "platform/codec.h"
#include "platform/evtlog.h"
#include "platform/ipc.h"
#include "task/register.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "wire/l2pm.h"

namespace {

constexpr uint32_t kRegWord5 = 0x003c0000;

}  // namespace

int vornRegWithEvtHandler() {
    while (qelEvhSubscribeEvt(vornTcb.evLogKey, 3, CHMGR_CARD_UP, CHMGR_CARD_DOWN,
                              CHMGR_CARD_SHUTDOWN) != 0) {
        vornCount(VORN_CNT_EVH_REG_FAIL);
        taskDelay(sysClkRateGet());
    }
    vornCount(VORN_CNT_EVH_REG_OK);
    return 0;
}

int vornGetL2pmRegistrationTypes(uint32_t* word1, uint32_t* word2, uint32_t* word3, uint32_t* word4,
                                 uint32_t* word5) {
    if (word1 != nullptr && word2 != nullptr && word3 != nullptr && word4 != nullptr &&
        word5 != nullptr)
        *word5 = kRegWord5;
    return 0;
}

int vornRegDeregWithL2PM(int isRegister, uint32_t word1, uint32_t word2, uint32_t word3,
                         uint32_t word4) {
    std::array<uint8_t, VORN_L2PM_REG_LEN> msg{};
    vorn::be::Writer w(msg.data(), msg.size());
    w.u32(VORN_L2PM_REG_KIND_OFF, VORN_L2PM_REG_KIND);
    w.u32(VORN_L2PM_REG_SERVICE_OFF, VORN_SERVICE);
    uint32_t w1 = word1, w2 = word2, w3 = word3, w4 = word4, w5 = 0;
    vornGetL2pmRegistrationTypes(&w1, &w2, &w3, &w4, &w5);
    w.u32(VORN_L2PM_REG_WORD1_OFF, word1);
    w.u32(VORN_L2PM_REG_WORD2_OFF, word2);
    w.u32(VORN_L2PM_REG_WORD3_OFF, word3);
    w.u32(VORN_L2PM_REG_WORD4_OFF, word4);
    w.u32(VORN_L2PM_REG_WORD5_OFF, w5);
    if (isRegister == 1) w.u8(VORN_L2PM_REG_FLAG_OFF, 1);
    for (;;) {
        // The reply of a failed attempt is not cleared; the next exchange overwrites it.
        int rc = vornL2PmIpcSendAndWait(MT_L2PM_REGISTER, msg.data(), VORN_L2PM_REG_LEN);
        vorn::be::Reader rd(msg.data(), msg.size());
        if (rc != -1 && rd.u32(vorn::ipc::kOffMtype) == MT_L2PM_REGISTER &&
            rd.u32(VORN_L2PM_REG_RESULT_OFF) == 0) {
            vornCount(isRegister == 1 ? VORN_CNT_L2PM_REG_OK : VORN_CNT_L2PM_DEREG_OK);
            return 0;
        }
        vornCount(isRegister == 1 ? VORN_CNT_L2PM_REG_FAIL : VORN_CNT_L2PM_DEREG_FAIL);
        taskDelay(sysClkRateGet());
    }
}
