// The line-card-type table, sent to every agent that has a queue.

#include "l2pm/l2pm.h"
#include "platform/codec.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/msgtypes.h"

int halVornSendLCTypeToAllAgents() {
    for (int slot = 0; slot < VORN_MAX_SLOTS; ++slot) {
        if (vornTcb.vornaSwpHandle[slot] == 0) continue;
        auto* buf = static_cast<uint8_t*>(vornVarPoolMalloc(vorn::agt::lctype::kLen));
        if (buf == nullptr) {
            // The later slots go without the table until the next occasion.
            VORN_ERR("%s(): Buffer alloc failed. LineCard = %d\r\n", __func__, slot);
            return -1;
        }
        vorn::be::Writer w(buf, vorn::agt::lctype::kLen);
        w.zero(0, vorn::agt::lctype::kLen);
        for (size_t i = 0; i < vornTcb.lcType.size(); ++i) {
            w.u32(vorn::agt::lctype::kOffTypes + 4 * i, vornTcb.lcType[i]);
        }
        vornSwpSendToAgent(MT_VORN_LC_TYPE, buf, vorn::agt::lctype::kLen, slot);
    }
    return 0;
}
