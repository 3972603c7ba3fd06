#include "support/mgr_fixture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "agent/agent.h"
#include "agent/pending.h"
#include "config/config.h"
#include "ifm/ifm.h"
#include "l2pm/l2pm.h"
#include "loop/loop.h"
#include "peer/peer.h"
#include "platform/mem.h"
#include "platform/swp.h"
#include "ringdb/records.h"
#include "show/show.h"
#include "task/pools.h"
#include "task/register.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace vorn::test {

void MgrTest::SetUp() {
    vornTcb = VornTcb{};
    vornDbgPrint = vornErrPrint = vornMsgPrint = vornAgtMsgPrint = vornL2pmMsgPrint = 0;
    vornZilDbgPrint = 0;
    vornTcb.service = VORN_SERVICE;
    vornTcb.ipcKey = qelIpcTmrOpen(VORN_SERVICE, 0);
    ASSERT_GT(vornTcb.ipcKey, 0);
    vornTcb.reqQfd = Key_getReqQueue(vornTcb.ipcKey);
    vornTcb.timerQfd = Key_getTmrQueue(vornTcb.ipcKey);
    ASSERT_EQ(vornCreateMemPools(), 0);
    vornTcb.swpPipefd = qelSwpCreatePipe("/qel/pipe/vornSwpPipe");
    vornInitGlobals();
    // What start-up's reset leaves alone (a fresh process starts with them zero).
    gVornStgInst.fill(0);
    vornActiveRings = 0;
    gHalVornForcePortOwnerShip = 1;
    gapVornDbgDnldBuf.fill(nullptr);
    gpVornL2PmInstPortOwnBuf = gpVornL2PmPortStateBuf = gpVornL2PmFlushBuf = nullptr;
}

void MgrTest::TearDown() {
    vornDbgPrint = vornErrPrint = 0;
}

QelKey MgrTest::openPeer(int service, int instance) {
    QelKey k = qelIpcTmrOpen(service, instance);
    EXPECT_GT(k, 0) << "cannot open peer " << service << "." << instance;
    return k;
}

void MgrTest::createL2pmQueue() {
    ASSERT_EQ(vornToL2pmCreateSwpQueue(), 0);
}

std::vector<uint8_t> MgrTest::recvOn(QelKey peer, int timeoutMs) {
    std::vector<uint8_t> buf(8192);
    int n = qelIpcRecvWait(Key_getReqQueue(peer), buf.data(), 8192, timeoutMs);
    if (n < 0) return {};
    buf.resize(static_cast<size_t>(n));
    return buf;
}

uint64_t MgrTest::varBlocksInUse() const {
    uint64_t n = 0;
    for (const auto& row : host::memStats())
        if (row.id == VORN_MEM_PART_ID && row.pool.rfind("var", 0) == 0) n += row.inUse;
    return n;
}

std::string captureStdoutImpl(void (*thunk)(void*), void* ctx) {
    std::fflush(stdout);
    int mfd = memfd_create("capture", MFD_CLOEXEC);
    int saved = dup(STDOUT_FILENO);
    dup2(mfd, STDOUT_FILENO);
    thunk(ctx);
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    std::string out;
    char chunk[4096];
    off_t pos = 0;
    for (ssize_t n; (n = pread(mfd, chunk, sizeof(chunk), pos)) > 0; pos += n) out.append(chunk, n);
    close(mfd);
    return out;
}

}  // namespace vorn::test
