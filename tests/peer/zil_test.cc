// The manager with the peer-pair library: start-up and its refusals, PDUs on the link
// socket, the peer's state, the LAG and ICL associations, and the library's own PDUs.

#include <sys/socket.h>
#include <sys/stat.h>

#include <cstdarg>
#include <thread>

#include "platform/ipc_internal.h"
#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

std::string fmt(const char* f, ...) __attribute__((format(printf, 1, 2)));
std::string fmt(const char* f, ...) {
    char b[512];
    va_list ap;
    va_start(ap, f);
    std::vsnprintf(b, sizeof(b), f, ap);
    va_end(ap);
    return b;
}

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
        MgrTest::TearDown();
    }
    // Start-up with the event handler answering `exchanges` subscriptions with `result`.
    int init(int32_t result = 0, size_t exchanges = 1) {
        std::thread evh = answerInPlace(
            evh_, &evhSeen_,
            [result](size_t, Bytes& m) {
                be::Writer(m.data(), m.size()).u32(evt::kOffSubResult, uint32_t(result));
            },
            exchanges);
        int rc = vornZilInit();
        evh.join();
        return rc;
    }
    // Registered, with Po 3 (a port record) the ICL.
    void initWithIcl() {
        ASSERT_EQ(init(), 0);
        ASSERT_NE(makePort(po(3)), nullptr);
        ASSERT_EQ(vornZilProcIclLagAssoc(po(3), 16), 0);
    }
    // The dump's lines that start with one of the prefixes, each ending in "|".
    std::string dump(std::initializer_list<std::string> prefixes = {""}) {
        std::string d = captureStdout([] { vornZilDebugLibInfo(); }), out;
        for (size_t at = 0, end; (end = d.find("\r\n", at)) != std::string::npos; at = end + 2)
            for (const std::string& p : prefixes)
                if (d.compare(at, p.size(), p) == 0) out += d.substr(at, end - at) + "|";
        return out;
    }
    // One datagram to the manager's link socket.
    void sendToLink(const Bytes& d) {
        int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un addr;
        socklen_t alen;
        ASSERT_TRUE(host::makeAddr(rundir_.path() + "/peer.icl", &addr, &alen));
        EXPECT_EQ(sendto(fd, d.data(), d.size(), 0, reinterpret_cast<sockaddr*>(&addr), alen),
                  ssize_t(d.size()));
        close(fd);
    }
    // The event handler's i-th request: operation, then the ids.
    std::vector<uint32_t> subIds(size_t i) {
        const Bytes& m = evhSeen_.at(i);
        be::Reader r(m.data(), m.size());
        std::vector<uint32_t> ids{r.u32(evt::kOffSubOperation)};
        for (uint32_t k = 0; k < r.u32(evt::kOffSubCount); ++k)
            ids.push_back(r.u32(evt::kOffSubIds + 4 * k));
        return ids;
    }
    bool linkSocketThere() const {
        return access((rundir_.path() + "/peer.icl").c_str(), F_OK) == 0;
    }
    host::Options saved_;
    QelKey evh_ = -1;
    std::vector<Bytes> evhSeen_;
};

TEST_F(ZilTest, StartUpRegistersTheBlockAndTheLinkSocket) {
    host::mutableOptions().standby = true;
    ASSERT_EQ(init(), 0);
    ASSERT_NE(vornZilHdl, 0u);
    EXPECT_EQ(subIds(0), (std::vector<uint32_t>{1, 0x44800B, 0x44800E}));
    struct stat st {};
    ASSERT_EQ(stat((rundir_.path() + "/peer.icl").c_str(), &st), 0);
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_NE(gvornZilDbgBuf, nullptr);
    constexpr int64_t C = -1;  // a callback
    const int64_t words[zil::kRegWords] = {0x15,
                                           8,
                                           0x100C,
                                           C,
                                           C,
                                           C,
                                           C,
                                           0,
                                           C,
                                           0,
                                           C,
                                           C,
                                           C,
                                           0,
                                           10,
                                           0x19000000,
                                           0xE2,
                                           0,
                                           vornTcb.ipcKey,
                                           0xE2,
                                           0,
                                           0,
                                           C,
                                           0,
                                           C,
                                           C,
                                           8,
                                           vornTcb.swpPipefd,
                                           vornTcb.evLogKey,
                                           0x0101E800,
                                           0x00130000};
    std::string expected = "ZIL registered: 1|";
    for (size_t i = 0; i < zil::kRegWords; ++i)
        expected += words[i] == C ? fmt("ZIL reg word %zu: callback|", i)
                                  : fmt("ZIL reg word %zu: 0x%08x|", i, uint32_t(words[i]));
    expected +=
        "ZIL debug bits: 0x00000000|ZIL ICL ifIndex: 0x00000000|ZIL peer: DOWN|"
        "ZIL ChkRegTimeOut calls: 0|";
    EXPECT_EQ(dump(), expected);

    vornZilDeInit();
    EXPECT_EQ(vornZilHdl, 0u);
    EXPECT_EQ(gvornZilDbgBuf, nullptr);
    EXPECT_FALSE(linkSocketThere());
    EXPECT_EQ(dump(), "ZIL registered: 0|");
}

TEST_F(ZilTest, StartUpRefusals) {
    vornZilDbgPrint = 1;
    // The feature off: nothing is subscribed or bound.
    host::mutableOptions().peerPair = false;
    EXPECT_EQ(captureStdout([] { EXPECT_EQ(vornZilInit(), 0); }), "vornZilInit: Entry\r\n");
    EXPECT_FALSE(linkSocketThere());
    host::mutableOptions().peerPair = true;
    // The event handler refuses: nothing to undo but the buffer.
    EXPECT_EQ(captureStdout([&] { EXPECT_EQ(init(1), -1); }),
              "vornZilInit: Entry\r\nvornZilInit: ZIL event subscription failed\r\n");
    EXPECT_EQ(gvornZilDbgBuf, nullptr);
    // The link socket's path is a directory: the registration fails and the subscription is
    // undone, with its own pair of events.
    ASSERT_EQ(mkdir((rundir_.path() + "/peer.icl").c_str(), 0700), 0);
    EXPECT_EQ(captureStdout([&] { EXPECT_EQ(init(0, 2), -1); }),
              "vornZilInit: Entry\r\nvornZilInit: Registration with ZIL Library failed\r\n");
    EXPECT_EQ(vornZilHdl, 0u);
    EXPECT_EQ(gvornZilDbgBuf, nullptr);
    EXPECT_EQ(subIds(2), (std::vector<uint32_t>{2, 0x44800E, 0x448009}));
    // With handle 0 the loop has no link socket and the periodic work refuses.
    EXPECT_EQ(qelZilIclSockOpen(0), 0);
    EXPECT_EQ(vornZilPeerRegRetryAndFlushTxBuf(), -1);
}

TEST_F(ZilTest, PdusAreCountedOnlyFromTheIcl) {
    initWithIcl();
    vornZilDbgPrint = 1;
    const std::string taken =
        "vornZilProcInfoPduData: Entry Received pduType %d\r\n"
        "vornZilProcInfoPduData: Exit\r\n";
    const struct {
        Bytes dgram;  // ifIndex, then the PDU
        int rc;
        std::string trace;
    } cases[] = {
        {{0x16, 0, 0, 3, 7, 1, 2}, 0, fmt(taken.c_str(), 7)},
        {{0x16, 0, 0, 4, 9},
         -1,
         fmt("vornProcessZilPeerMsg: 684 ZIL PDU received on IfIndex %u", po(4))},
        {{0x16, 0, 0, 3, 7}, 0, fmt(taken.c_str(), 7)},
        {{0x16, 0, 0, 3}, 0, fmt(taken.c_str(), 0)},  // no type byte: type 0, not the last one's
        {{0x16, 0}, -1, "vornProcessZilPeerMsg: 677 Socket read error"},  // short of its ifIndex
        {{}, -1, "vornProcessZilPeerMsg: 677 Socket read error"},         // nothing to read
    };
    for (const auto& c : cases) {
        if (!c.dgram.empty()) sendToLink(c.dgram);
        EXPECT_EQ(captureStdout([&] { EXPECT_EQ(vornProcessZilPeerMsg(), c.rc); }), c.trace);
    }
    EXPECT_EQ(dump({"ZIL PDU"}), "ZIL PDU type 0: 1|ZIL PDU type 7: 2|");
}

TEST_F(ZilTest, PeerStatusAndTheTestPduToThePeer) {
    initWithIcl();
    int tx = host::bindSocket(rundir_.path() + "/peer.tx");  // where the library's PDUs go
    ASSERT_GE(tx, 0);
    vornZilDbgPrint = 1;
    EXPECT_EQ(captureStdout([] { EXPECT_EQ(vornTestAppPduToPeer(), -1); }),
              "Error sending PDU\r\n");
    const struct {
        uint32_t status, role;
        std::string trace, peer;
    } cases[] = {
        {1, 2, "ZIL Peer UP: Role 2\r\n", "ZIL peer: UP role 2|"},
        {0, 5, "", "ZIL peer: UP role 2|"},
        {4, 5, "", "ZIL peer: UP role 2|"},
        {3, 0, "ZIL Peer DOWN\r\n", "ZIL peer: DOWN|"},
        {1, 7, "ZIL Peer UP: Role 7\r\n", "ZIL peer: UP role 7|"},
        {2, 0, "ZIL Peer DOWN\r\n", "ZIL peer: DOWN|"},
        {1, 1, "ZIL Peer UP: Role 1\r\n", "ZIL peer: UP role 1|"},
    };
    for (const auto& c : cases) {
        Bytes event{0, 0, 0, 0, 0, 0, 0, uint8_t(c.status), 0, 0, 0, uint8_t(c.role)};
        EXPECT_EQ(captureStdout([&] { EXPECT_EQ(vornZilPeerStatusChg(event.data()), 0); }),
                  c.trace);
        EXPECT_EQ(dump({"ZIL peer"}), c.peer);
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
    EXPECT_EQ(dump({"ZIL ChkRegTimeOut"}), "ZIL ChkRegTimeOut calls: 2|");
    close(tx);
}

TEST_F(ZilTest, LagAndIclAssociationsInTheirOrderOfChecks) {
    ASSERT_EQ(init(), 0);
    ASSERT_NE(makePort(po(3)), nullptr);
    makePort(po(4))->u2OperState = 2;
    ASSERT_NE(makePort(gi(0, 1)), nullptr);
    const char* lz = "vornZilProcLagZilAssoc";
    const char* il = "vornZilProcIclLagAssoc";
    const std::string po3 = "ZIL LAG 3: zilId 7 down 0|", noIcl = "ZIL ICL ifIndex: 0x00000000|";
    const struct {
        bool icl;
        uint32_t ifIndex, zilId, mode;
        std::string refusal;  // the trace after the entry line
        std::string after;    // the dump's ICL and LAG lines; "" for a refusal
    } cases[] = {
        {false, po(3), 129, 4, "", noIcl + "ZIL LAG 3: zilId 129 down 0|"},
        {false, po(4), 1, 4, "", noIcl + "ZIL LAG 3: zilId 129 down 0|ZIL LAG 4: zilId 1 down 1|"},
        {false, po(3), 7, 4, "", noIcl + po3 + "ZIL LAG 4: zilId 1 down 1|"},
        {false, po(4), 130, 4, fmt("%s (): Invalid ZilId. ZilId: 130\r\n", lz), ""},
        {false, po(4), 0, 8, fmt("%s (): Invalid ZilId. ZilId: 0\r\n", lz), ""},
        {false, po(4), 1, 8, "", noIcl + po3},
        {false, gi(0, 1), 1, 4, fmt("%s (): IfIndex: 0x%x not a LAG\r\n", lz, gi(0, 1)), ""},
        {false, po(5), 130, 4, fmt("%s (): LAG not present. IfIndex: 0x%x\r\n", lz, po(5)), ""},
        {false, po(3), 1, 16, fmt("%s (): Invlaid Mode(16) for IfIndex: 0x%x\r\n", lz, po(3)), ""},
        {true, po(3), 0, 16, "", fmt("ZIL ICL ifIndex: 0x%08x|", po(3)) + po3},
        {true, po(5), 0, 16, fmt("%s (): LAG not present. IfIndex: 0x%x\r\n", il, po(5)), ""},
        {true, gi(0, 1), 0, 16, fmt("%s (): IfIndex: 0x%x not a LAG\r\n", il, gi(0, 1)), ""},
        {true, po(3), 0, 8, fmt("%s (): Invlaid Mode(8) for IfIndex: 0x%x\r\n", il, po(3)), ""},
        {true, po(3), 0, 32, "", noIcl + po3},
    };
    std::string state = dump({"ZIL ICL", "ZIL LAG"});
    for (const auto& c : cases) {
        std::string entry = c.icl
                                ? fmt("%s (): IfIndex: 0x%x, Action: %u\r\n", il, c.ifIndex, c.mode)
                                : fmt("%s (): IfIndex: 0x%x, zilId: %u, modeType: %u\r\n", lz,
                                      c.ifIndex, c.zilId, c.mode);
        SCOPED_TRACE(entry);
        vornZilDbgPrint = 1;
        std::string out = captureStdout([&] {
            int rc = c.icl ? vornZilProcIclLagAssoc(c.ifIndex, c.mode)
                           : vornZilProcLagZilAssoc(c.ifIndex, uint16_t(c.zilId), c.mode);
            EXPECT_EQ(rc, c.refusal.empty() ? 0 : -1);
        });
        vornZilDbgPrint = 0;
        EXPECT_EQ(out, entry + c.refusal);
        if (c.refusal.empty()) state = c.after;
        EXPECT_EQ(dump({"ZIL ICL", "ZIL LAG"}), state) << "a refusal changes nothing";
    }
}

}  // namespace
}  // namespace vorn::test
