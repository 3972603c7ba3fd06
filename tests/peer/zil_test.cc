// The manager with the peer-pair library: start-up and its refusals, PDUs on the link
// socket, the peer's state, the LAG and ICL associations, and the library's own PDUs.

#include <sys/socket.h>
#include <sys/stat.h>

#include <thread>

#include "platform/ipc_internal.h"
#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

class ZilTest : public MgrTest {
protected:
    void SetUp() override {
        MgrTest::SetUp();
        saved_ = host::options();
        host::mutableOptions().peerPair = true;
        vornTcb.evLogKey = qelEvtOpenlog("VORN", 0, 226, 0);
        vornZilCtrlParams[zil::kWordFlags] = 0;
        evh_ = openPeer(30, 0);
    }
    void TearDown() override {
        host::mutableOptions() = saved_;
        vornZilDeInitIfUp();
        MgrTest::TearDown();
    }
    static void vornZilDeInitIfUp() {
        if (vornZilHdl != 0) qelZilDeReg(vornZilHdl);
        vornZilHdl = 0;
    }
    // Start-up with the event handler answering the subscription (and any unsubscription)
    // with `result`; returns vornZilInit's result, the requests in *seen.
    int init(int32_t result, std::vector<Bytes>* seen, size_t exchanges = 1) {
        std::thread evh = answerInPlace(
            evh_, seen,
            [result](size_t, Bytes& m) {
                be::Writer(m.data(), m.size()).u32(evt::kOffSubResult, uint32_t(result));
            },
            exchanges);
        int rc = vornZilInit();
        evh.join();
        return rc;
    }
    std::string dump() {
        return captureStdout([] { vornZilDebugLibInfo(); });
    }
    // One datagram to the manager's link socket, as arriving on ifIndex.
    void deliver(uint32_t ifIndex, const Bytes& pdu) {
        Bytes d(4 + pdu.size());
        be::Writer(d.data(), d.size()).u32(0, ifIndex);
        std::copy(pdu.begin(), pdu.end(), d.begin() + 4);
        int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un addr;
        socklen_t alen;
        ASSERT_TRUE(host::makeAddr(rundir_.path() + "/peer.icl", &addr, &alen));
        ASSERT_EQ(sendto(fd, d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&addr), alen),
                  ssize_t(d.size()));
        close(fd);
    }
    // The dump's ICL line and LAG lines, "ICL 0x..|LAG n: ..|".
    std::string assoc() {
        std::string d = dump(), out;
        for (size_t at = 0; at < d.size();) {
            size_t end = d.find("\r\n", at);
            std::string line = d.substr(at, end - at);
            if (line.rfind("ZIL ICL ifIndex: ", 0) == 0) out += "ICL " + line.substr(17) + "|";
            if (line.rfind("ZIL LAG ", 0) == 0) out += line.substr(4) + "|";
            at = end + 2;
        }
        return out;
    }
    static std::string hex8(uint32_t v) {
        char b[9];
        std::snprintf(b, sizeof(b), "%08x", v);
        return b;
    }
    host::Options saved_;
    QelKey evh_ = -1;
};

std::vector<uint32_t> subIds(const Bytes& m) {
    be::Reader r(m.data(), m.size());
    std::vector<uint32_t> ids{r.u32(evt::kOffSubOperation)};
    for (uint32_t i = 0; i < r.u32(evt::kOffSubCount); ++i)
        ids.push_back(r.u32(evt::kOffSubIds + 4 * i));
    return ids;
}

TEST_F(ZilTest, StartUpRegistersTheBlockAndTheLinkSocket) {
    host::mutableOptions().standby = true;
    std::vector<Bytes> seen;
    ASSERT_EQ(init(0, &seen), 0);
    ASSERT_NE(vornZilHdl, 0u);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(subIds(seen[0]), (std::vector<uint32_t>{1, 0x44800B, 0x44800E}));
    struct stat st {};
    ASSERT_EQ(stat((rundir_.path() + "/peer.icl").c_str(), &st), 0);
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_NE(gvornZilDbgBuf, nullptr);
    char expected[2048];
    std::snprintf(
        expected, sizeof(expected),
        "ZIL registered: 1\r\nZIL reg word 0: 0x00000015\r\nZIL reg word 1: 0x00000008\r\n"
        "ZIL reg word 2: 0x0000100c\r\nZIL reg word 3: callback\r\nZIL reg word 4: callback\r\n"
        "ZIL reg word 5: callback\r\nZIL reg word 6: callback\r\nZIL reg word 7: 0x00000000\r\n"
        "ZIL reg word 8: callback\r\nZIL reg word 9: 0x00000000\r\nZIL reg word 10: callback\r\n"
        "ZIL reg word 11: callback\r\nZIL reg word 12: callback\r\nZIL reg word 13: 0x00000000\r\n"
        "ZIL reg word 14: 0x0000000a\r\nZIL reg word 15: 0x19000000\r\n"
        "ZIL reg word 16: 0x000000e2\r\nZIL reg word 17: 0x00000000\r\n"
        "ZIL reg word 18: 0x%08x\r\nZIL reg word 19: 0x000000e2\r\n"
        "ZIL reg word 20: 0x00000000\r\nZIL reg word 21: 0x00000000\r\n"
        "ZIL reg word 22: callback\r\nZIL reg word 23: 0x00000000\r\nZIL reg word 24: callback\r\n"
        "ZIL reg word 25: callback\r\nZIL reg word 26: 0x00000008\r\nZIL reg word 27: 0x%08x\r\n"
        "ZIL reg word 28: 0x%08x\r\nZIL reg word 29: 0x0101e800\r\nZIL reg word 30: 0x00130000\r\n"
        "ZIL debug bits: 0x00000000\r\nZIL ICL ifIndex: 0x00000000\r\nZIL peer: DOWN\r\n"
        "ZIL ChkRegTimeOut calls: 0\r\n",
        uint32_t(vornTcb.ipcKey), uint32_t(vornTcb.swpPipefd), uint32_t(vornTcb.evLogKey));
    EXPECT_EQ(dump(), expected);

    vornZilDeInit();
    EXPECT_EQ(vornZilHdl, 0u);
    EXPECT_EQ(gvornZilDbgBuf, nullptr);
    EXPECT_NE(access((rundir_.path() + "/peer.icl").c_str(), F_OK), 0);
    EXPECT_EQ(dump(), "ZIL registered: 0\r\n");
}

TEST_F(ZilTest, StartUpRefusals) {
    vornZilDbgPrint = 1;
    // The feature off: nothing is subscribed or bound (no event handler is listening).
    host::mutableOptions().peerPair = false;
    EXPECT_EQ(captureStdout([] { EXPECT_EQ(vornZilInit(), 0); }), "vornZilInit: Entry\r\n");
    EXPECT_EQ(vornZilHdl, 0u);
    EXPECT_NE(access((rundir_.path() + "/peer.icl").c_str(), F_OK), 0);
    host::mutableOptions().peerPair = true;

    // The event handler refuses: nothing to undo but the buffer.
    std::vector<Bytes> seen;
    std::string out = captureStdout([&] { EXPECT_EQ(init(1, &seen), -1); });
    EXPECT_EQ(out, "vornZilInit: Entry\r\nvornZilInit: ZIL event subscription failed\r\n");
    EXPECT_EQ(gvornZilDbgBuf, nullptr);

    // The link socket's path is taken by a directory: the registration fails and the
    // subscription is undone with its own pair of events.
    ASSERT_EQ(mkdir((rundir_.path() + "/peer.icl").c_str(), 0700), 0);
    seen.clear();
    out = captureStdout([&] { EXPECT_EQ(init(0, &seen, 2), -1); });
    EXPECT_EQ(out, "vornZilInit: Entry\r\nvornZilInit: Registration with ZIL Library failed\r\n");
    EXPECT_EQ(vornZilHdl, 0u);
    EXPECT_EQ(gvornZilDbgBuf, nullptr);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(subIds(seen[1]), (std::vector<uint32_t>{2, 0x44800E, 0x448009}));
    // Every library call with handle 0 refuses.
    EXPECT_EQ(qelZilGetIclSockFd(0), -1);
    EXPECT_EQ(qelZilIclSockOpen(0), 0);
    EXPECT_EQ(vornZilPeerRegRetryAndFlushTxBuf(), -1);
}

TEST_F(ZilTest, PdusAreCountedOnlyFromTheIcl) {
    std::vector<Bytes> seen;
    ASSERT_EQ(init(0, &seen), 0);
    ASSERT_NE(makePort(po(3)), nullptr);
    ASSERT_EQ(vornZilProcIclLagAssoc(po(3), 16), 0);
    vornZilDbgPrint = 1;
    const struct {
        uint32_t ifIndex;
        Bytes pdu;
        int rc;
        std::string trace;
    } cases[] = {
        {po(3),
         {7, 1, 2},
         0,
         "vornZilProcInfoPduData: Entry Received pduType 7\r\nvornZilProcInfoPduData: Exit\r\n"},
        {po(4),
         {9},
         -1,
         "vornProcessZilPeerMsg: 684 ZIL PDU received on IfIndex " + std::to_string(po(4))},
        {po(3),
         {7},
         0,
         "vornZilProcInfoPduData: Entry Received pduType 7\r\nvornZilProcInfoPduData: Exit\r\n"},
        {po(3),
         {},
         0,
         "vornZilProcInfoPduData: Entry Received pduType 0\r\nvornZilProcInfoPduData: Exit\r\n"},
    };
    for (const auto& c : cases) {
        deliver(c.ifIndex, c.pdu);
        std::string out = captureStdout([&] { EXPECT_EQ(vornProcessZilPeerMsg(), c.rc); });
        EXPECT_EQ(out, c.trace);
    }
    // A datagram too short for its ifIndex word, then nothing at all.
    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un addr;
    socklen_t alen;
    ASSERT_TRUE(host::makeAddr(rundir_.path() + "/peer.icl", &addr, &alen));
    ASSERT_EQ(sendto(fd, "ab", 2, 0, reinterpret_cast<sockaddr*>(&addr), alen), 2);
    close(fd);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(captureStdout([] { EXPECT_EQ(vornProcessZilPeerMsg(), -1); }),
                  "vornProcessZilPeerMsg: 677 Socket read error");
    vornZilDbgPrint = 0;
    std::string d = dump();
    EXPECT_NE(d.find("ZIL PDU type 0: 1\r\nZIL PDU type 7: 2\r\nZIL ChkRegTimeOut"),
              std::string::npos)
        << d;
}

TEST_F(ZilTest, PeerStatusAndTheTestPduToThePeer) {
    std::vector<Bytes> seen;
    ASSERT_EQ(init(0, &seen), 0);
    ASSERT_NE(makePort(po(3)), nullptr);
    ASSERT_EQ(vornZilProcIclLagAssoc(po(3), 16), 0);
    // What the library sends arrives at DIR/peer.tx.
    int tx = host::bindSocket(rundir_.path() + "/peer.tx");
    ASSERT_GE(tx, 0);
    vornZilDbgPrint = 1;
    EXPECT_EQ(captureStdout([] { EXPECT_EQ(vornTestAppPduToPeer(), -1); }),
              "Error sending PDU\r\n");
    const struct {
        uint32_t status, role;
        std::string trace, peer;
    } cases[] = {
        {1, 2, "ZIL Peer UP: Role 2\r\n", "ZIL peer: UP role 2"},
        {0, 5, "", "ZIL peer: UP role 2"},
        {4, 5, "", "ZIL peer: UP role 2"},
        {3, 0, "ZIL Peer DOWN\r\n", "ZIL peer: DOWN"},
        {1, 7, "ZIL Peer UP: Role 7\r\n", "ZIL peer: UP role 7"},
        {2, 0, "ZIL Peer DOWN\r\n", "ZIL peer: DOWN"},
        {1, 1, "ZIL Peer UP: Role 1\r\n", "ZIL peer: UP role 1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.status);
        Bytes event(12);
        be::Writer(event.data(), event.size()).u32(4, c.status);
        be::Writer(event.data(), event.size()).u32(8, c.role);
        EXPECT_EQ(captureStdout([&] { EXPECT_EQ(vornZilPeerStatusChg(event.data()), 0); }),
                  c.trace);
        EXPECT_NE(dump().find(c.peer + "\r\n"), std::string::npos);
    }
    // Peer up: two test sub-TLVs leave together in one PDU on the next pass of the loop.
    EXPECT_EQ(vornTestAppPduToPeer(), 0);
    EXPECT_EQ(vornTestAppPduToPeer(), 0);
    EXPECT_EQ(vornZilPeerRegRetryAndFlushTxBuf(), 0);
    EXPECT_EQ(vornZilPeerRegRetryAndFlushTxBuf(), 0);  // nothing left to send
    Bytes got(8192);
    ssize_t n = recv(tx, got.data(), got.size(), MSG_DONTWAIT);
    ASSERT_EQ(n, 4 + 4 + 2 * 1004);
    be::Reader r(got.data(), size_t(n));
    EXPECT_EQ((std::vector<uint32_t>{r.u32(0), r.u8(4), r.u8(5), r.u16(6), r.u16(8), r.u16(10),
                                     r.u16(1012), r.u16(1014)}),
              (std::vector<uint32_t>{po(3), 5, 0, 2008, 50, 1000, 50, 1000}));
    EXPECT_LT(recv(tx, got.data(), got.size(), MSG_DONTWAIT), 0);
    EXPECT_NE(dump().find("ZIL ChkRegTimeOut calls: 2\r\n"), std::string::npos);
    close(tx);
}

TEST_F(ZilTest, LagAndIclAssociationsInTheirOrderOfChecks) {
    std::vector<Bytes> seen;
    ASSERT_EQ(init(0, &seen), 0);
    ASSERT_NE(makePort(po(3)), nullptr);
    makePort(po(4))->u2OperState = 2;
    ASSERT_NE(makePort(gi(0, 1)), nullptr);
    enum Refusal { None, NotLag, Absent, BadZil, BadMode };
    const struct {
        bool icl;
        uint32_t ifIndex, zilId, mode;
        Refusal refusal;
        std::string after;  // the dump's ICL and LAG lines
    } cases[] = {
        {false, po(3), 129, 4, None, "ICL 0x00000000|LAG 3: zilId 129 down 0|"},
        {false, po(4), 1, 4, None, "ICL 0x00000000|LAG 3: zilId 129 down 0|LAG 4: zilId 1 down 1|"},
        {false, po(3), 7, 4, None, "ICL 0x00000000|LAG 3: zilId 7 down 0|LAG 4: zilId 1 down 1|"},
        {false, po(4), 130, 4, BadZil, ""},
        {false, po(4), 0, 8, BadZil, ""},
        {false, po(4), 1, 8, None, "ICL 0x00000000|LAG 3: zilId 7 down 0|"},
        {false, gi(0, 1), 1, 4, NotLag, ""},
        {false, po(5), 130, 4, Absent, ""},
        {false, po(3), 1, 16, BadMode, ""},
        {true, po(3), 0, 16, None, "ICL 0x" + hex8(po(3)) + "|LAG 3: zilId 7 down 0|"},
        {true, po(5), 0, 16, Absent, ""},
        {true, gi(0, 1), 0, 16, NotLag, ""},
        {true, po(3), 0, 8, BadMode, ""},
        {true, po(3), 0, 32, None, "ICL 0x00000000|LAG 3: zilId 7 down 0|"},
    };
    std::string state = assoc();
    for (const auto& c : cases) {
        const char* fn = c.icl ? "vornZilProcIclLagAssoc" : "vornZilProcLagZilAssoc";
        const auto ul = static_cast<unsigned long>(c.ifIndex);
        char line[2][200] = {};
        if (c.icl)
            std::snprintf(line[0], 200, "%s (): IfIndex: 0x%lx, Action: %ld\r\n", fn, ul,
                          long(c.mode));
        else
            std::snprintf(line[0], 200, "%s (): IfIndex: 0x%lx, zilId: %d, modeType: %ld\r\n", fn,
                          ul, int(c.zilId), long(c.mode));
        if (c.refusal == NotLag)
            std::snprintf(line[1], 200, "%s (): IfIndex: 0x%lx not a LAG\r\n", fn, ul);
        if (c.refusal == Absent)
            std::snprintf(line[1], 200, "%s (): LAG not present. IfIndex: 0x%lx\r\n", fn, ul);
        if (c.refusal == BadZil)
            std::snprintf(line[1], 200, "%s (): Invalid ZilId. ZilId: %d\r\n", fn, int(c.zilId));
        if (c.refusal == BadMode)
            std::snprintf(line[1], 200, "%s (): Invlaid Mode(%ld) for IfIndex: 0x%lx\r\n", fn,
                          long(c.mode), ul);
        SCOPED_TRACE(line[0]);
        vornZilDbgPrint = 1;
        std::string out = captureStdout([&] {
            int rc = c.icl ? vornZilProcIclLagAssoc(c.ifIndex, c.mode)
                           : vornZilProcLagZilAssoc(c.ifIndex, uint16_t(c.zilId), c.mode);
            EXPECT_EQ(rc, c.refusal == None ? 0 : -1);
        });
        vornZilDbgPrint = 0;
        EXPECT_EQ(out, std::string(line[0]) + line[1]);
        if (c.refusal == None) state = c.after;
        EXPECT_EQ(assoc(), state) << "a refusal changes nothing";
    }
}

}  // namespace
}  // namespace vorn::test
