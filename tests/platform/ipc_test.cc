// Host IPC: validation of received datagrams, routing of sends and replies,
// send-and-wait and the run directory's policy. (The debug shell served on a request queue is
// vornctl's shell test's.)

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "platform/codec.h"
#include "platform/ipc.h"
#include "support/rundir.h"
#include "support/wire.h"

namespace vorn {
namespace {

using test::PlatformTest;
using W = std::vector<uint32_t>;

// A 60-byte header plus body, with mlen and the target filled in.
std::vector<uint8_t> makeMsg(uint32_t mtype, uint32_t len, int dstSvc, int dstInst) {
    std::vector<uint8_t> m(256);
    be::Writer w(m.data(), m.size());
    w.u32(ipc::kOffMlen, len);
    w.u32(ipc::kOffMtype, mtype);
    w.u32(ipc::kOffDstSvce, qel_getQueueId(dstSvc, dstInst, ipc::kKindRequest));
    return m;
}

// A datagram of the first len bytes of m, sent from an unbound socket to a socket path,
// bypassing the host library.
void sendRaw(const std::string& path, const std::vector<uint8_t>& m, size_t len) {
    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un a{.sun_family = AF_UNIX, .sun_path = {}};
    std::strncpy(a.sun_path, path.c_str(), sizeof(a.sun_path) - 1);
    ASSERT_EQ(sendto(fd, m.data(), len, 0, reinterpret_cast<sockaddr*>(&a), sizeof(a)),
              static_cast<ssize_t>(len));
    close(fd);
}

using IpcTest = PlatformTest;

TEST_F(IpcTest, MalformedDatagramsAreDroppedSendsRouteByTargetAndRepliesReturnToSource) {
    QelKey mgr = qelIpcTmrOpen(226, 0);
    ASSERT_GT(mgr, 0);
    std::string path = host::queuePath(226, 0, 1);
    auto good = makeMsg(6001, 100, 226, 0);
    be::Writer(good.data(), good.size()).u32(ipc::kOffMagic, ipc::kMagic);
    auto badMagic = good, badLen = good;
    be::Writer(badMagic.data(), badMagic.size()).u32(ipc::kOffMagic, 0x12345678);
    be::Writer(badLen.data(), badLen.size()).u32(ipc::kOffMlen, 99);
    sendRaw(path, good, 59);       // shorter than a header
    sendRaw(path, badMagic, 100);  // wrong magic
    sendRaw(path, badLen, 100);    // length word says 99
    sendRaw(path, good, 100);      // the only good one

    std::vector<uint8_t> buf(8192);
    std::vector<int> results;
    for (int i = 0; i < 5; ++i)
        results.push_back(qelIpcRecv(Key_getReqQueue(mgr), buf.data(), 8192, 0, 0, 0));
    EXPECT_EQ(results, (std::vector<int>{-1, -1, -1, 100, -1}));
    host::IpcStats s = host::ipcStats();
    EXPECT_EQ(W({uint32_t(s.droppedShort), uint32_t(s.droppedMagic), uint32_t(s.droppedLength),
                 uint32_t(s.received)}),
              (W{1, 1, 1, 1}));

    // A send routes by its target; the reply returns to the source.
    QelKey cli = qelIpcTmrOpen(40, 7);
    ASSERT_GT(cli, 0);
    auto req = makeMsg(6001, 120, 226, 0);
    be::Writer(req.data(), req.size()).u32(64, 0xabcd);
    ASSERT_EQ(qelIpcSend(cli, req.data(), 120), 0);
    ASSERT_EQ(qelIpcRecvWait(Key_getReqQueue(mgr), buf.data(), 8192, 1000), 120);
    buf.resize(120);
    // Magic, no reply flag, the sender's pid, the body as sent.
    EXPECT_EQ(test::words(buf, {ipc::kOffMagic, ipc::kOffFlags, ipc::kOffPid, 64}),
              (W{ipc::kMagic, 0, static_cast<uint32_t>(getpid()), 0xabcd}));

    // The reply goes to the source address even though its target words are not changed.
    be::Writer(buf.data(), 120).u32(64, 0x1234);
    ASSERT_EQ(qelIpcReply(mgr, buf.data(), 120), 0);
    std::vector<uint8_t> back(8192);
    ASSERT_EQ(qelIpcRecvWait(Key_getReqQueue(cli), back.data(), 8192, 1000), 120);
    EXPECT_EQ(test::words(back, {64, ipc::kOffFlags}), (W{0x1234, ipc::kFlagReply}));

    // A send to a service nobody opened fails at once.
    auto lost = makeMsg(6001, 80, 138, 0);
    EXPECT_EQ(qelIpcSend(cli, lost.data(), 80), -1);
}

TEST_F(IpcTest, SendWaitTimesOutAndALateAnswerDoesNotSatisfyTheNextExchange) {
    QelKey mgr = qelIpcTmrOpen(226, 0);
    QelKey l2pm = qelIpcTmrOpen(166, 0);
    ASSERT_TRUE(mgr > 0 && l2pm > 0);
    // Answers one request in place with 7 at 64, once `go` is set when it is given.
    auto answerOnce = [l2pm](std::atomic<bool>* go) {
        std::array<uint8_t, 8192> buf{};
        int n = qelIpcRecvWait(Key_getReqQueue(l2pm), buf.data(), 8192, 3000);
        if (n < 124) return;
        while (go != nullptr && !*go) std::this_thread::yield();
        be::Writer(buf.data(), 124).u32(64, 7);
        qelIpcReply(l2pm, buf.data(), n);
    };
    // An answer that comes after the wait (100 ms) fails the exchange; it is dropped as
    // stale when it arrives during the next one, which takes its own answer.
    std::atomic<bool> timedOut{false};
    std::thread late(answerOnce, &timedOut);
    auto msg = makeMsg(18401, 124, 166, 0);
    EXPECT_EQ(qelIpcSendWait(mgr, msg.data(), 124, 1, 18401, 0), -1);
    timedOut = true;
    late.join();
    uint64_t stale = host::ipcStats().droppedStaleReply;
    std::thread next(answerOnce, nullptr);
    auto again = makeMsg(18401, 124, 166, 0);
    EXPECT_EQ(qelIpcSendWait(mgr, again.data(), 124, 10, 18401, 0), 0);
    EXPECT_EQ(be::Reader(again.data(), 124).u32(64), 7u);
    next.join();
    EXPECT_EQ(host::ipcStats().droppedStaleReply, stale + 1);
}

TEST(RunDirTest, RefusesWhatAnotherUserCouldSubvert) {
    char tmpl[] = "/tmp/vorn-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string base = tmpl;
    for (auto [name, mode] : {std::pair{"/ok", 0700}, {"/g", 0770}, {"/foreign", 0700}}) {
        mkdir((base + name).c_str(), 0700);
        chmod((base + name).c_str(), static_cast<mode_t>(mode));
    }
    symlink((base + "/ok").c_str(), (base + "/link").c_str());
    close(creat((base + "/file").c_str(), 0600));
    // Only root can give a directory away; elsewhere the case checks nothing new.
    const bool root = chown((base + "/foreign").c_str(), 65534, 65534) == 0;
    // (directory, refusal); null: accepted.
    const std::pair<const char*, const char*> cases[] = {
        {"/ok", nullptr},
        {"/fresh", nullptr},  // absent: created
        {"/g", "is writable by other users"},
        {"/link", "is a symbolic link"},
        {"/file", "exists and is not a directory"},
        {"/foreign", root ? "belongs to user 65534" : nullptr}};
    for (auto [name, refusal] : cases) {
        const std::string path = base + name;
        std::string err;
        bool ok = host::setRunDir(path, &err);
        EXPECT_EQ(ok, refusal == nullptr) << err;
        struct stat st {};
        EXPECT_TRUE(ok ? lstat(path.c_str(), &st) == 0 && (st.st_mode & 0777) == 0700
                       : err.find("run directory " + path + " " + (refusal ? refusal : "")) !=
                             std::string::npos)
            << path << ": " << err;
    }
    ASSERT_EQ(std::system(("rm -rf " + base).c_str()), 0);
}

}  // namespace
}  // namespace vorn
