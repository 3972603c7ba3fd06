// The manager's task: start-up in its fixed order, then one thread serving every message.

#include <sys/select.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "agent/agent.h"
#include "agent/pending.h"
#include "config/config.h"
#include "ifm/ifm.h"
#include "loop/loop.h"
#include "peer/peer.h"
#include "platform/chassis.h"
#include "platform/evtlog.h"
#include "platform/ipc.h"
#include "platform/swp.h"
#include "ringdb/records.h"
#include "show/show.h"
#include "task/pools.h"
#include "task/register.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

constexpr uint32_t kEvtLevelAll = 0x1ffffff;
constexpr const char* kSwpPipePath = "/qel/pipe/vornSwpPipe";
constexpr int kSelectWidth = 2048;

}  // namespace

int vornTaskExit() {
    return 0;
}

int vornInitGlobals() {
    gVornActiveLineCards.fill(0);
    gVornRing.fill(nullptr);
    gVornVlan.fill(nullptr);
    gVornPort.fill(nullptr);
    gapVornAgtBuf.fill(nullptr);
    gapVornIfDnldBuf.fill(nullptr);
    gVornCtrlVlanBmap.fill(0);
    gVornMemVlanBmap.fill(0);
    vornClearCounters();
    vornClearErrs();
    return 0;
}

int vornMainTask(intptr_t arg1, intptr_t arg2) {
    VORN_DBG("%s \r\n", "vornMainTask");
    vornTcb = VornTcb{};
    vornTcb.pKey = qelTaskStartup(arg1, arg2, 0);
    if (vornTcb.pKey == -1) {
        std::perror("vornMainTask: qelTaskStartup");
        vornTaskExit();
        return -1;
    }
    vornTcb.notifSwpRcvState = {0, 0};
    vornTcb.service = qelTaskGetServiceByKey(vornTcb.pKey);
    vornTcb.instance = qelTaskGetInstanceByKey(vornTcb.pKey);
    vornTcb.evLogKey = qelEvtOpenlog("VORN", 0, VORN_SERVICE, 0);
    if (vornTcb.evLogKey == -1) {
        std::perror("vornMainTask: qelEvtOpenlog");
        vornTaskExit();
        return -1;
    }
    if (qelEvtSetSeverityLevel(vornTcb.evLogKey, kEvtLevelAll) == -1) {
        std::perror("vornMainTask: qelEvtSetSeverityLevel");
        vornTaskExit();
        return -1;
    }
    vornTcb.ipcKey = qelIpcTmrOpen(VORN_SERVICE, vornTcb.instance);
    if (vornTcb.ipcKey == -1) {
        vornTaskExit();
        return -1;
    }
    vornTcb.evtLevel = kEvtLevelAll;
    vornTcb.reqQfd = Key_getReqQueue(vornTcb.ipcKey);
    vornTcb.timerQfd = Key_getTmrQueue(vornTcb.ipcKey);
    if (vornCreateMemPools() != 0) {
        std::perror("vornMainTask: vornCreateMemPools()");
        vornTaskExit();
        return -1;
    }
    const uint32_t reg[4] = {1, 0, 0, 0};
    qelEvtRegisterSvce(vornTcb.evLogKey, reg);
    vornTcb.swpPipefd = qelSwpCreatePipe(kSwpPipePath);
    while (vornToL2pmCreateSwpQueue() != 0) taskDelay(sysClkRateGet());
    vornInitGlobals();
    // The agents of the cards present now; each registers on its own when it is up.
    if (vornInitAgents() != 0) VORN_ERR("%s: vornInitAgents failed\r\n", "vornMainTask");
    vornMainThr();
}

int vornMainLoopPass(long timeoutUsec) {
    fd_set readSet;
    FD_ZERO(&readSet);
    int reqFd = Key_getSocketFd(vornTcb.reqQfd);
    int tmrFd = Key_getSocketFd(vornTcb.timerQfd);
    int pipeFd = vornTcb.swpPipefd;
    int iclFd = -1;
    // Descriptors beyond the select width cannot be watched; they are left out rather than
    // written past the end of the set.
    auto add = [&readSet](int fd) {
        if (fd >= 0 && fd < FD_SETSIZE) FD_SET(fd, &readSet);
    };
    add(reqFd);
    add(tmrFd);
    add(pipeFd);
    // Host adaptation: SIGTERM and SIGINT arrive as this event, served between messages.
    int stopFd = vorn::host::stopEventFd();
    add(stopFd);
    if (qelIsZilEnabled() != 0) {
        iclFd = qelZilGetIclSockFd(vornZilHdl);
        add(iclFd);
    }
    timeval timeout{0, timeoutUsec};
    int n = select(std::min(kSelectWidth, FD_SETSIZE), &readSet, nullptr, nullptr, &timeout);
    auto ready = [&readSet](int fd) {
        return fd >= 0 && fd < FD_SETSIZE && FD_ISSET(fd, &readSet);
    };
    if (n > 0) {
        if (ready(reqFd)) {
            VORN_DBG("%s: Msg on Request Q \r\n", "vornMainThr");
            if (qelIpcRecv(vornTcb.reqQfd, gVornMainIpcBuf.data(), 8192, 0, 0, 0) != -1)
                vornProcessIpcMsg(gVornMainIpcBuf.data());
        }
        if (ready(tmrFd)) {
            VORN_DBG("%s: Msg on Timer Q \r\n", "vornMainThr");
            if (qelIpcRecv(vornTcb.timerQfd, gVornMainIpcBuf.data(), 8192, 0, 0, 0) != -1)
                vornProcessIpcMsg(gVornMainIpcBuf.data());
        }
        if (ready(pipeFd)) {
            VORN_DBG("%s: Msg on SWP Pipe Q \r\n", "vornMainThr");
            qelSwpReadPipe(vornTcb.swpPipefd);
        }
        if (qelIsZilEnabled() != 0 && qelZilIclSockOpen(vornZilHdl) != 0 && ready(iclFd))
            vornProcessZilPeerMsg();
        if (ready(stopFd)) vorn::host::stopNow();
    } else if (n == -1 && errno != EINTR) {
        VORN_DBG("%s: select failed with errno(%d)\r\n", "vornMainThr", errno);
    }
    if (qelIsZilEnabled() != 0) vornZilPeerRegRetryAndFlushTxBuf();
    return n;
}

void vornMainThr() {
    gVornMainIpcBuf.fill(0);
    qelTaskReady(vornTcb.pKey);
    vornRegWithEvtHandler();
    vornRegDeregWithL2PM(1, 0x807f703f, 0x01000000, 0, 0xb000);
    vornZilInit();
    for (;;) vornMainLoopPass(20000);
}
