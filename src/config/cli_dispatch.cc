// The dispatch of the command line's requests: configuration requests go to their handler
// here, show, debug and clear requests on to subsystem 7. Every request but a show request
// is answered here, once, with the whole 1024-byte buffer and the status copied into the
// reply status word.

#include "agent/agent.h"
#include "config/cli_request.h"
#include "config/config.h"
#include "platform/ipc.h"
#include "show/show.h"
#include "task/msg.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

bool vornIsShowRequest(uint32_t type) {
    return type == vorn::nm::kTypeShowSummary || type == vorn::nm::kTypeShowDetail ||
           type == vorn::nm::kTypeShowMemberVlans;
}

}  // namespace

int vornProcessCliMsg(uint8_t* msg) {
    if (msg == nullptr) return -1;
    // The type is read within the message as received; a show request is the show
    // handler's to check and answer.
    const vorn::be::Reader received = vornMsgReader(msg);
    const uint32_t type = received.u32(vorn::nm::kOffType);
    if (vornIsShowRequest(type)) {
        // No status is cleared here: a show request's bytes 84 on hold its paging state.
        VORN_DBG("%s \r\n", __func__);
        return vornProcessShowSummary(msg);
    }
    // Every other request carries the full 1024 bytes: the reply sends them all back, and
    // a shorter one would be read from what an earlier message left in the buffer.
    if (received.size() < vorn::nm::kLen) {
        VORN_ERR("%s: request type %u of %zu bytes, shorter than %zu, dropped\r\n", __func__, type,
                 received.size(), vorn::nm::kLen);
        return -1;
    }

    vorn::cfg::reqSetStatus(msg, 0);
    VORN_DBG("%s \r\n", __func__);
    switch (type) {
        case vorn::nm::kTypeProto:
            vornProcessProtoVorn(msg);
            break;
        case vorn::nm::kTypeDesc:
            vornProcessDescription(msg);
            break;
        case vorn::nm::kTypeCtrlVlan:
            vornProcessCtrlVlan(msg);
            break;
        case vorn::nm::kTypeMemberVlan:
            vornProcessMemberVlan(msg);
            break;
        case vorn::nm::kTypeMode:
            vornProcessMode(msg);
            break;
        case vorn::nm::kTypeEnable:
            vornProcessEnable(msg);
            break;
        case vorn::nm::kTypeDead:
            vornProcessDeadTimer(msg);
            break;
        case vorn::nm::kTypeHello:
            vornProcessHelloTimer(msg);
            break;
        case vorn::nm::kTypeClearStat:
            VORN_DBG("%s \r\n", "VORN_CLEAR_STAT");
            vornClearStatCounters(msg);
            break;
        case vorn::nm::kTypeDbgDetail:
        case vorn::nm::kTypeDbgEvent:
        case vorn::nm::kTypeDbgPacket:
            vorn::cfg::reqSetStatus(msg, static_cast<uint16_t>(vornProcessDbgMsg(msg)));
            break;
        default:
            vornCount(VORN_CNT_CLI_DEFAULT);
            VORN_DBG("%s: Default case. \r\n", __func__);
            break;
    }
    vorn::cfg::reqWriter(msg).u32(vorn::nm::kOffReplyStatus, vorn::cfg::reqStatus(msg));
    if (qelIpcReply(vornTcb.ipcKey, msg, static_cast<int>(vorn::nm::kLen)) != 0) {
        VORN_ERR("%s: reply to request type %u failed\r\n", __func__, type);
    }
    return 0;
}
