// The dispatch of the command line's requests: configuration requests go to their handler
// here, show, debug and clear requests on to subsystem 7. Every request but a show request
// is answered here, once, with the whole 1024-byte buffer and the status copied into the
// reply status word.

#include "config/cli_request.h"
#include "config/config.h"
#include "platform/ipc.h"
#include "show/show.h"
#include "task/handlers.h"
#include "task/msg.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

bool vornIsShowRequest(uint32_t type) {
    return type == VORN_CLI_SHOW_SUMMARY || type == VORN_CLI_SHOW_DETAIL ||
           type == VORN_CLI_SHOW_MEMBER_VLANS;
}

}  // namespace

int vornProcessCliMsg(uint8_t* msg) {
    if (msg == nullptr) return -1;
    // The type is read within the message as received; a show request is the show
    // handler's to check and answer.
    const vorn::be::Reader received = vornMsgReader(msg);
    const uint32_t type = received.u32(VORN_CLI_MSG_TYPE_OFF);
    if (vornIsShowRequest(type)) {
        vorn::cfg::reqSetStatus(msg, 0);
        VORN_DBG("%s \r\n", __func__);
        return vornProcessShowSummary(msg);
    }
    // Every other request carries the full 1024 bytes: the reply sends them all back, and
    // a shorter one would be read from what an earlier message left in the buffer.
    if (received.size() < VORN_CLI_REQ_LEN) {
        VORN_ERR("%s: request type %u of %zu bytes, shorter than %zu, dropped\r\n", __func__, type,
                 received.size(), VORN_CLI_REQ_LEN);
        return -1;
    }

    vorn::cfg::reqSetStatus(msg, 0);
    VORN_DBG("%s \r\n", __func__);
    switch (type) {
        case VORN_CLI_PROTO:
            vornProcessProtoVorn(msg);
            break;
        case VORN_CLI_DESC:
            vornProcessDescription(msg);
            break;
        case VORN_CLI_CTRL_VLAN:
            vornProcessCtrlVlan(msg);
            break;
        case VORN_CLI_MEMBER_VLAN:
            vornProcessMemberVlan(msg);
            break;
        case VORN_CLI_MODE:
            vornProcessMode(msg);
            break;
        case VORN_CLI_ENABLE:
            vornProcessEnable(msg);
            break;
        case VORN_CLI_DEAD:
            vornProcessDeadTimer(msg);
            break;
        case VORN_CLI_HELLO:
            vornProcessHelloTimer(msg);
            break;
        case VORN_CLI_CLEAR_STAT:
            VORN_DBG("%s \r\n", "VORN_CLEAR_STAT");
            vornClearStatCounters(msg);
            break;
        case VORN_CLI_DBG_DETAIL:
        case VORN_CLI_DBG_EVENT:
        case VORN_CLI_DBG_PACKET:
            vorn::cfg::reqSetStatus(msg, static_cast<uint16_t>(vornProcessDbgMsg(msg)));
            break;
        default:
            vornCount(VORN_CNT_CLI_DEFAULT);
            VORN_DBG("%s: Default case. \r\n", __func__);
            break;
    }
    vorn::cfg::reqWriter(msg).u32(VORN_CLI_REPLY_STATUS_OFF, vorn::cfg::reqStatus(msg));
    if (qelIpcReply(vornTcb.ipcKey, msg, static_cast<int>(VORN_CLI_REQ_LEN)) != 0) {
        VORN_ERR("%s: reply to request type %u failed\r\n", __func__, type);
    }
    return 0;
}
