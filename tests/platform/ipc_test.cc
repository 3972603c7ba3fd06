// Host IPC: endpoints, validation of received datagrams, routing of sends and replies,
// send-and-wait, and the debug shell served on a request queue.

#include <sys/socket.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <cstring>
#include <thread>

#include "platform/codec.h"
#include "platform/files.h"
#include "platform/ipc.h"
#include "platform/shell.h"
#include "support/rundir.h"

namespace vorn {
namespace {

using test::PlatformTest;

// A 60-byte header plus body, with mlen and the target filled in.
std::array<uint8_t, 256> makeMsg(uint32_t mtype, uint32_t len, int dstSvc, int dstInst) {
    std::array<uint8_t, 256> m{};
    be::Writer w(m.data(), m.size());
    w.u32(ipc::kOffMlen, len);
    w.u32(ipc::kOffMtype, mtype);
    w.u32(ipc::kOffDstSvce, qel_getQueueId(dstSvc, dstInst, ipc::kKindRequest));
    return m;
}

// Sends raw bytes to a socket path from an unbound socket, bypassing the host library.
void sendRaw(const std::string& path, const void* data, size_t len) {
    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    std::strncpy(a.sun_path, path.c_str(), sizeof(a.sun_path) - 1);
    ASSERT_EQ(sendto(fd, data, len, 0, reinterpret_cast<sockaddr*>(&a), sizeof(a)),
              static_cast<ssize_t>(len));
    close(fd);
}

using IpcTest = PlatformTest;

TEST_F(IpcTest, MalformedDatagramsAreDroppedAndCounted) {
    QelKey mgr = qelIpcTmrOpen(226, 0);
    ASSERT_GT(mgr, 0);
    std::string path = host::queuePath(226, 0, 1);

    auto good = makeMsg(6001, 100, 226, 0);
    be::Writer(good.data(), good.size()).u32(ipc::kOffMagic, ipc::kMagic);
    auto badMagic = good;
    be::Writer(badMagic.data(), badMagic.size()).u32(ipc::kOffMagic, 0x12345678);
    auto badLen = good;
    be::Writer(badLen.data(), badLen.size()).u32(ipc::kOffMlen, 99);

    sendRaw(path, good.data(), 59);      // shorter than a header
    sendRaw(path, badMagic.data(), 100);  // wrong magic
    sendRaw(path, badLen.data(), 100);    // length word says 99
    sendRaw(path, good.data(), 100);      // the only good one

    std::array<uint8_t, 8192> buf{};
    int fd = Key_getReqQueue(mgr);
    std::vector<int> results;
    for (int i = 0; i < 4; ++i) results.push_back(qelIpcRecv(fd, buf.data(), 8192, 0, 0, 0));
    EXPECT_EQ(results, (std::vector<int>{-1, -1, -1, 100}));
    EXPECT_EQ(qelIpcRecv(fd, buf.data(), 8192, 0, 0, 0), -1) << "nothing left";

    host::IpcStats s = host::ipcStats();
    EXPECT_EQ(s.droppedShort, 1u);
    EXPECT_EQ(s.droppedMagic, 1u);
    EXPECT_EQ(s.droppedLength, 1u);
    EXPECT_EQ(s.received, 1u);
}

TEST_F(IpcTest, SendRoutesByTargetAndReplyReturnsToSource) {
    QelKey mgr = qelIpcTmrOpen(226, 0);
    QelKey cli = qelIpcTmrOpen(40, 7);
    ASSERT_GT(mgr, 0);
    ASSERT_GT(cli, 0);

    auto req = makeMsg(6001, 120, 226, 0);
    be::Writer(req.data(), req.size()).u32(64, 0xabcd);
    ASSERT_EQ(qelIpcSend(cli, req.data(), 120), 0);

    std::array<uint8_t, 8192> buf{};
    ASSERT_EQ(qelIpcRecvWait(Key_getReqQueue(mgr), buf.data(), 8192, 1000), 120);
    be::Reader rd(buf.data(), 120);
    EXPECT_EQ(rd.u32(ipc::kOffMagic), ipc::kMagic);
    EXPECT_EQ(rd.u32(ipc::kOffFlags) & ipc::kFlagReply, 0u);
    EXPECT_EQ(rd.u32(ipc::kOffPid), static_cast<uint32_t>(getpid()));
    EXPECT_EQ(rd.u32(64), 0xabcdu);

    // The reply goes to the source address even though its target words are not changed.
    be::Writer(buf.data(), 120).u32(64, 0x1234);
    ASSERT_EQ(qelIpcReply(mgr, buf.data(), 120), 0);
    std::array<uint8_t, 8192> back{};
    ASSERT_EQ(qelIpcRecvWait(Key_getReqQueue(cli), back.data(), 8192, 1000), 120);
    EXPECT_EQ(be::Reader(back.data(), 120).u32(64), 0x1234u);
    EXPECT_EQ(be::Reader(back.data(), 120).u32(ipc::kOffFlags) & ipc::kFlagReply, 1u);

    // A send to a service nobody opened fails at once.
    auto lost = makeMsg(6001, 80, 138, 0);
    EXPECT_EQ(qelIpcSend(cli, lost.data(), 80), -1);
}

// A responder thread that answers send-and-wait requests in place, optionally sending a
// stale answer (another exchange id) first.
void answerOnce(QelKey key, bool staleFirst, int delayMs) {
    std::array<uint8_t, 8192> buf{};
    int n = qelIpcRecvWait(Key_getReqQueue(key), buf.data(), 8192, 3000);
    if (n < 0) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
    be::Writer w(buf.data(), static_cast<size_t>(n));
    if (staleFirst) {
        uint32_t xid = w.reader().u32(ipc::kOffXid);
        w.u32(ipc::kOffXid, xid + 1000);
        w.u32(64, 0xdead);
        qelIpcReply(key, buf.data(), n);
        w.u32(ipc::kOffXid, xid);
    }
    w.u32(64, 7);
    qelIpcReply(key, buf.data(), n);
}

TEST_F(IpcTest, SendWaitMatchesExchangeAndTimesOut) {
    QelKey mgr = qelIpcTmrOpen(226, 0);
    QelKey l2pm = qelIpcTmrOpen(166, 0);
    ASSERT_GT(mgr, 0);
    ASSERT_GT(l2pm, 0);

    struct Case {
        const char* name;
        bool staleFirst;
        int delayMs;
        int wait;  // in 100 ms
        int rc;
        uint32_t answer;
    } cases[] = {
        {"plain answer", false, 0, 10, 0, 7},
        {"stale answer discarded", true, 0, 10, 0, 7},
        {"answer after the wait", false, 300, 1, -1, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::thread responder(answerOnce, l2pm, c.staleFirst, c.delayMs);
        auto msg = makeMsg(18401, 124, 166, 0);
        uint64_t staleBefore = host::ipcStats().droppedStaleReply;
        EXPECT_EQ(qelIpcSendWait(mgr, msg.data(), 124, c.wait, 18401, 0), c.rc);
        if (c.rc == 0) {
            EXPECT_EQ(be::Reader(msg.data(), 124).u32(64), c.answer);
        }
        responder.join();
        if (c.staleFirst) {
            EXPECT_EQ(host::ipcStats().droppedStaleReply, staleBefore + 1);
        }
        if (c.rc != 0) {
            // The late answer of the timed-out exchange must not satisfy the next one.
            std::thread next(answerOnce, l2pm, false, 0);
            auto again = makeMsg(18401, 124, 166, 0);
            EXPECT_EQ(qelIpcSendWait(mgr, again.data(), 124, 10, 18401, 0), 0);
            EXPECT_EQ(be::Reader(again.data(), 124).u32(64), 7u);
            next.join();
            EXPECT_GE(host::ipcStats().droppedStaleReply, staleBefore + 1);
        }
    }
    // No responder at all: the send itself fails at once.
    auto msg = makeMsg(18403, 124, 138, 0);
    EXPECT_EQ(qelIpcSendWait(mgr, msg.data(), 124, 50, 18403, 0), -1);
}

TEST_F(IpcTest, LiveEndpointIsNotStolenButStaleOneIsReplaced) {
    QelKey first = qelIpcTmrOpen(226, 0);
    ASSERT_GT(first, 0);
    EXPECT_TRUE(host::endpointAlive(host::queuePath(226, 0, 1)));
    EXPECT_EQ(qelIpcTmrOpen(226, 0), -1) << "a live endpoint must not be taken over";

    // A socket file left behind by a dead process is replaced.
    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    std::string stale = host::queuePath(138, 0, 1);
    std::strncpy(a.sun_path, stale.c_str(), sizeof(a.sun_path) - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)), 0);
    close(fd);
    EXPECT_FALSE(host::endpointAlive(stale));
    EXPECT_GT(qelIpcTmrOpen(138, 0), 0);

    EXPECT_EQ(qelIpcClose(first), 0);
    EXPECT_NE(access(host::queuePath(226, 0, 1).c_str(), F_OK), 0) << "socket unlinked";
}

TEST_F(IpcTest, PeerAddressesFollowTheRunDirectory) {
    uint32_t out = 0;
    EXPECT_EQ(qel_tmeGetPeerIpAddrByName(227, 3, &out), 0xFFFFFFFFu);
    EXPECT_EQ(out, 0xFFFFFFFFu);
    ASSERT_GT(qelIpcTmrOpen(227, 3), 0);
    ASSERT_GT(qelIpcTmrOpen(166, 0), 0);
    EXPECT_EQ(qel_tmeGetPeerIpAddrByName(227, 3, &out), 0x7F000103u);
    EXPECT_EQ(qel_tmeGetPeerIpAddrByName(166, 0, &out), 0x7F000001u);
    EXPECT_EQ(qel_getQueueId(227, 3, 1), (227u << 20) | (3u << 4) | 1u);
}

TEST(RunDirTest, RefusesWhatAnotherUserCouldSubvert) {
    char tmpl[] = "/tmp/vorn-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string base = tmpl;
    struct Case {
        const char* name;
        std::function<std::string()> make;  // returns the run directory to try
        const char* refusal;                // null: accepted
    } cases[] = {
        {"private directory", [&] { mkdir((base + "/ok").c_str(), 0700); return base + "/ok"; },
         nullptr},
        {"absent: created", [&] { return base + "/fresh"; }, nullptr},
        {"group-writable",
         [&] {
             mkdir((base + "/g").c_str(), 0700);
             chmod((base + "/g").c_str(), 0770);
             return base + "/g";
         },
         "is writable by other users"},
        {"writable by others",
         [&] {
             mkdir((base + "/o").c_str(), 0700);
             chmod((base + "/o").c_str(), 0707);
             return base + "/o";
         },
         "is writable by other users"},
        {"symbolic link to a private directory",
         [&] {
             symlink((base + "/ok").c_str(), (base + "/link").c_str());
             return base + "/link";
         },
         "is a symbolic link"},
        {"a file", [&] { close(creat((base + "/file").c_str(), 0600)); return base + "/file"; },
         "is not a directory"},
        {"owned by another user",
         [&] {
             mkdir((base + "/foreign").c_str(), 0700);
             // Only root can give a directory away; elsewhere the case checks nothing new.
             if (chown((base + "/foreign").c_str(), 65534, 65534) != 0) return base + "/ok";
             return base + "/foreign";
         },
         geteuid() == 0 ? "belongs to user 65534" : nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string dir = c.make();
        std::string err;
        bool ok = host::setRunDir(dir, &err);
        if (c.refusal == nullptr) {
            EXPECT_TRUE(ok) << err;
            struct stat st {};
            ASSERT_EQ(lstat(dir.c_str(), &st), 0);
            EXPECT_EQ(st.st_mode & 0777, 0700u);
        } else {
            EXPECT_FALSE(ok);
            EXPECT_NE(err.find("run directory " + dir + " " ), std::string::npos) << err;
            EXPECT_NE(err.find(c.refusal), std::string::npos) << err;
        }
    }
    std::string cleanup = "rm -rf " + base;
    ASSERT_EQ(std::system(cleanup.c_str()), 0);
}

TEST(RunDirTest, AtomicWriteReplacesWholeOrNothing) {
    char tmpl[] = "/tmp/vorn-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string path = std::string(tmpl) + "/running-config";
    std::string err;
    ASSERT_TRUE(host::writeFileAtomic(path, "old\r\n", &err)) << err;
    ASSERT_TRUE(host::writeFileAtomic(path, "new line\r\n", &err)) << err;
    std::ifstream in(path);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, "new line\r\n");
    struct stat st {};
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    // A write that cannot happen leaves the file as it was and says where it failed.
    EXPECT_FALSE(host::writeFileAtomic(std::string(tmpl) + "/no/such/file", "x", &err));
    EXPECT_NE(err.find("/no/such/file"), std::string::npos) << err;
    std::string cleanup = "rm -rf " + std::string(tmpl);
    ASSERT_EQ(std::system(cleanup.c_str()), 0);
}

uint32_t gTestFlag = 0;
int gLastArg = 0;
int printArgs(int a, int b) {
    gLastArg = a;
    std::printf("a=%d b=%d\r\n", a, b);
    return 0;
}

TEST_F(IpcTest, ShellServesFunctionsGlobalsAndUnknownNames) {
    QelKey mgr = qelIpcTmrOpen(226, 0);
    QelKey cli = qelIpcTmrOpen(40, 9);
    ASSERT_GT(mgr, 0);
    qelDdbInit(nullptr);
    shell::registerFunction("printArgs", printArgs);
    shell::registerFunction("bigOutput", [](const std::vector<long>&) {
        for (int i = 0; i < 2000; ++i) std::printf("line %04d of the big output\r\n", i);
    });
    shell::registerGlobal("testFlag", &gTestFlag);

    // The owner's receive loop serves shell lines and never hands them to its caller.
    std::atomic<bool> stop{false};
    std::thread owner([&] {
        std::array<uint8_t, 8192> buf{};
        while (!stop) {
            int n = qelIpcRecvWait(Key_getReqQueue(mgr), buf.data(), 8192, 20);
            EXPECT_EQ(n, -1) << "a shell line leaked to the owner";
        }
    });

    struct Case {
        const char* line;
        std::string expect;
    } cases[] = {
        {"printArgs 5 0x10", "a=5 b=16\r\n"},
        {"noSuchThing 1", "unknown command: noSuchThing\n"},
        {"testFlag = 3", "testFlag = 3\n"},
        {"testFlag", "testFlag = 3\n"},
        {"printArgs five", "bad argument 'five' to printArgs: expected an integer\n"},
    };
    for (const Case& c : cases) {
        std::string out;
        ASSERT_TRUE(shell::query(cli, 226, 0, c.line, &out)) << c.line;
        EXPECT_EQ(out, c.expect) << c.line;
    }
    EXPECT_EQ(gTestFlag, 3u);
    EXPECT_EQ(gLastArg, 5);

    std::string big;
    ASSERT_TRUE(shell::query(cli, 226, 0, "bigOutput", &big));
    EXPECT_EQ(big.size(), 2000u * std::strlen("line 0000 of the big output\r\n"));
    const std::string last = "line 1999 of the big output\r\n";
    EXPECT_EQ(big.substr(big.size() - last.size()), last);

    std::string mem;
    ASSERT_TRUE(shell::query(cli, 226, 0, "qelIpcStats", &mem));
    EXPECT_NE(mem.find("shell requests"), std::string::npos);
    stop = true;
    owner.join();
}

}  // namespace
}  // namespace vorn
