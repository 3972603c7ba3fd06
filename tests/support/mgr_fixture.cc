#include "support/mgr_fixture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

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
    qelZilDeReg(vornZilHdl);
    vornZilHdl = 0;
}

void MgrTest::setIcl(uint32_t ifIndex) {
    if (vornZilHdl == 0) {
        ASSERT_EQ(qelZilRegister(&vornZilCtrlParams, 0, &vornZilHdl, 0), 0);
    }
    ASSERT_EQ(qelZilSetIclIfIndex(vornZilHdl, ifIndex != 0 ? 1 : 2, ifIndex), 0);
}

QelKey MgrTest::openPeer(int service, int instance) {
    QelKey k = qelIpcTmrOpen(service, instance);
    EXPECT_GT(k, 0) << "cannot open peer " << service << "." << instance;
    return k;
}

std::thread answerInPlace(QelKey peer, std::vector<Bytes>* seen,
                          std::function<void(size_t, Bytes&)> edit, size_t count) {
    return std::thread([=] {
        int fd = Key_getReqQueue(peer);
        for (size_t i = 0; i < count; ++i) {
            Bytes m(ipc::kMaxMsgLen);
            int n = qelIpcRecvWait(fd, m.data(), static_cast<int>(m.size()), 5000);
            if (n < 0) return;
            m.resize(static_cast<size_t>(n));
            seen->push_back(m);
            edit(i, m);
            qelIpcReply(fd, m.data(), n);
        }
    });
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

std::vector<uint8_t> MgrTest::serve(QelKey peer, const uint8_t* msg, size_t len, int waitMs) {
    EXPECT_EQ(qelIpcSend(peer, const_cast<uint8_t*>(msg), static_cast<int>(len)), 0);
    std::vector<uint8_t> rx(8192);
    EXPECT_GT(qelIpcRecv(vornTcb.reqQfd, rx.data(), 8192, 0, 0, 0), 0);
    vornProcessIpcMsg(rx.data());
    return recvOn(peer, waitMs);
}

VornRingEntry* MgrTest::makeRing(uint16_t id) {
    auto* ring = vornMakeRecord<VornRingEntry>(
        vornFixedPoolMalloc(VORN_RING_TAG, VORN_RING_BLOCK_SIZE, VORN_RING_MEM_POOL));
    EXPECT_NE(ring, nullptr);
    if (ring == nullptr) return nullptr;
    ring->u2RingId = id;
    ring->u2HelloTime = VORN_DEFAULT_HELLO;
    ring->u2DeadTime = VORN_DEFAULT_DEAD;
    ring->u2DesgLineCard = VORN_NO_LINE_CARD;
    gVornRing[id] = ring;
    return ring;
}

VornPortEntry* MgrTest::makePort(uint32_t ifIndex, std::initializer_list<int> vlans) {
    VornPortEntry* port = vornCreatePortEntry(ifIndex, VORN_CREATOR_IFM);
    EXPECT_NE(port, nullptr);
    if (port == nullptr) return nullptr;
    for (int v : vlans) bmp::set(port->vlanBmap, static_cast<uint32_t>(v));
    port->u2OperState = 1;
    return port;
}

std::string MgrTest::runFile(const std::string& name) const {
    std::ifstream in(rundir_.path() + "/" + name, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
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
