// The simulated L2PM and IFM against the manager's side of the host platform: the answers
// in place, the acknowledgement of the manager's SWP messages, and the one SWP queue that
// carries IFM and L2PM notifications to the manager.

#include "sim/l2pm.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/swp.h"
#include "sim/ifm.h"
#include "sim/swp_buffers.h"
#include "sim_test_util.h"
#include "support/rundir.h"

namespace vorn {
namespace {

using test::FakeManager;
using test::serveUntil;
using test::u32At;
using test::whileServing;

constexpr size_t kMlen = 8;
constexpr size_t kMtype = 12;
constexpr size_t kSrcSvce = 44;
constexpr size_t kDstSvce = 56;
constexpr size_t kSeq = 64;
constexpr size_t kStream = 68;
constexpr size_t kEpoch = 72;
constexpr uint32_t kQueue226 = (226u << 20) | 1;
constexpr uint32_t kQueue166 = (166u << 20) | 1;
constexpr uint32_t kQueue138 = (138u << 20) | 1;

// A message from the manager's request queue to `target`, of len bytes.
std::vector<uint8_t> fromManager(uint32_t mtype, uint32_t len, uint32_t target) {
    std::vector<uint8_t> msg(len, 0);
    be::Writer w(msg.data(), msg.size());
    w.u32(kMlen, len);
    w.u32(kMtype, mtype);
    w.u32(kSrcSvce, kQueue226);
    w.u32(kDstSvce, target);
    return msg;
}

class L2pmTest : public test::PlatformTest {
  protected:
    void SetUp() override {
        std::string err;
        ASSERT_TRUE(l2pm_.open(&err)) << err;
        loop_.add(&l2pm_);
    }
    int exchange(std::vector<uint8_t>& msg, uint32_t mtype) {
        return whileServing(loop_, [&] {
            return qelIpcSendWait(mgr_.key(), msg.data(), static_cast<int>(msg.size()), 3,
                                  static_cast<int>(mtype), 0);
        });
    }

    FakeManager mgr_;
    sim::EventLoop loop_;
    sim::L2pm l2pm_;
};

TEST_F(L2pmTest, AnswersTheRegistrationInPlace) {
    struct Case {
        bool refusing;
        uint32_t expectResult;
    };
    for (const Case& c : {Case{false, 0}, Case{true, 1}}) {
        SCOPED_TRACE(c.refusing ? "refusing" : "accepting");
        l2pm_.setRefusing(c.refusing);
        // The registration as the manager builds it: 124 bytes, body from 60.
        std::vector<uint8_t> msg = fromManager(18401, 124, kQueue166);
        be::Writer w(msg.data(), msg.size());
        w.u32(kSrcSvce, 0);     // the manager leaves its source queue unset
        w.u32(64, 0xDEADBEEF);  // result: must be overwritten
        w.u32(68, 7);           // protocol kind
        w.u32(72, 226);         // registering service
        w.u32(80, 0x807f703f);  // registration type words 1, 2, 3, 5, 4
        w.u32(84, 0x01000000);
        w.u32(92, 0x003c0000);
        w.u32(96, 0xb000);
        w.u8(120, 1);  // register
        ASSERT_EQ(exchange(msg, 18401), 0);
        EXPECT_EQ(u32At(msg, kMtype), 18401u);
        EXPECT_EQ(u32At(msg, 64), c.expectResult);
        EXPECT_EQ(u32At(msg, 80), 0x807f703fu);  // the rest comes back as it went
        EXPECT_EQ(u32At(msg, 96), 0xb000u);
    }
    // Too short to be a registration: no answer at all.
    std::vector<uint8_t> shortMsg = fromManager(18401, 68, kQueue166);
    EXPECT_EQ(exchange(shortMsg, 18401), -1);
    EXPECT_EQ(l2pm_.counters().registered, 1u);
    EXPECT_EQ(l2pm_.counters().refused, 1u);
    EXPECT_EQ(l2pm_.counters().malformed, 1u);
}

TEST_F(L2pmTest, AcknowledgesTheManagersSwpMessagesAndCountsThemByType) {
    constexpr uint32_t kStreamId = 9;
    constexpr uint32_t kEpochId = 0x1234;
    struct Case {
        const char* what;
        uint32_t mtype;
        uint32_t seq;
        uint32_t expectReplyType;  // 402 acknowledgement, 404 resend request
        uint32_t expectReplySeq;
    };
    const Case cases[] = {
        {"first of a new stream", 18407, 1, 402, 1},
        {"next in order", 18412, 2, 402, 2},
        {"duplicate", 18412, 2, 402, 2},
        {"gap", 18407, 5, 404, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<uint8_t> msg = fromManager(c.mtype, 124 + 16, kQueue166);
        be::Writer w(msg.data(), msg.size());
        w.u32(60, swp::kMagic);
        w.u32(kSeq, c.seq);
        w.u32(kStream, kStreamId);
        w.u32(kEpoch, kEpochId);
        ASSERT_EQ(qelIpcSend(mgr_.reqFd(), msg.data(), static_cast<int>(msg.size())), 0);
        std::vector<uint8_t> reply;
        ASSERT_TRUE(serveUntil(loop_, [&] { return !(reply = mgr_.receive(20)).empty(); }));
        EXPECT_EQ(u32At(reply, kMtype), c.expectReplyType);
        EXPECT_EQ(u32At(reply, kSeq), c.expectReplySeq);
        EXPECT_EQ(u32At(reply, kStream), kStreamId);
        EXPECT_EQ(u32At(reply, kEpoch), kEpochId);
    }
    const std::map<uint32_t, uint64_t> expected = {{18407, 1}, {18412, 1}};
    EXPECT_EQ(l2pm_.received(), expected);
    EXPECT_EQ(l2pm_.counters().swpDuplicates, 1u);
    EXPECT_EQ(l2pm_.counters().swpGaps, 1u);

    // Neither registration nor SWP: dropped and counted, never acknowledged.
    std::vector<uint8_t> junk = fromManager(18407, 100, kQueue166);
    ASSERT_EQ(qelIpcSend(mgr_.reqFd(), junk.data(), static_cast<int>(junk.size())), 0);
    EXPECT_TRUE(serveUntil(loop_, [&] { return l2pm_.counters().unexpected == 1; }));
    EXPECT_TRUE(mgr_.receive(20).empty());
}

TEST_F(L2pmTest, NotificationsOfBothKindsShareOneQueueAndComeBackWhenAcknowledged) {
    const size_t base = sim::swpbuf::live();
    std::string err;
    EXPECT_FALSE(l2pm_.sendNotification(sim::L2pm::Notif::Ifm, {}, &err));  // no queue yet
    l2pm_.syncWithManager();
    ASSERT_NE(l2pm_.queueHandle(), 0u);

    const std::vector<uint8_t> ifmBody = {0, 0, 0, 42, 1, 2, 3, 4};
    std::vector<uint8_t> l2pmBody(128, 0);
    l2pmBody[127] = 4;  // kind at message offset 248: end of configuration
    ASSERT_TRUE(l2pm_.sendNotification(sim::L2pm::Notif::Ifm, ifmBody, &err)) << err;
    ASSERT_TRUE(l2pm_.sendNotification(sim::L2pm::Notif::L2pm, l2pmBody, &err)) << err;
    EXPECT_EQ(sim::swpbuf::live(), base + 2);

    struct Expect {
        uint32_t mtype;
        uint32_t seq;
        const std::vector<uint8_t>* body;
    };
    uint32_t state[2] = {0, 0};
    uint32_t epoch = 0;
    for (const Expect& e : {Expect{10908, 1, &ifmBody}, Expect{18402, 2, &l2pmBody}}) {
        SCOPED_TRACE(e.mtype);
        // Until the first acknowledgement of a stream only its first message travels; the
        // loop lets L2PM take the acknowledgement and send the next.
        std::vector<uint8_t> msg;
        ASSERT_TRUE(serveUntil(loop_, [&] { return !(msg = mgr_.receive(20)).empty(); }));
        ASSERT_EQ(msg.size(), 124 + e.body->size());
        EXPECT_EQ(u32At(msg, kMlen), msg.size());
        EXPECT_EQ(u32At(msg, kMtype), e.mtype);
        EXPECT_EQ(u32At(msg, kSrcSvce), kQueue166);
        EXPECT_EQ(u32At(msg, kDstSvce), kQueue226);
        EXPECT_EQ(u32At(msg, kSeq), e.seq);
        EXPECT_EQ(u32At(msg, kStream), l2pm_.queueHandle());
        if (epoch != 0) {
            EXPECT_EQ(u32At(msg, kEpoch), epoch);
        }
        epoch = u32At(msg, kEpoch);
        EXPECT_TRUE(std::equal(e.body->begin(), e.body->end(), msg.begin() + 124));
        // The manager's one receive state takes both kinds in order.
        EXPECT_EQ(qelSwpCkSeqAndAck(msg.data(), state, mgr_.reqFd()), swp::kCkAccepted);
    }
    ASSERT_TRUE(serveUntil(loop_, [&] { return l2pm_.counters().notifAcked == 2; }));
    EXPECT_EQ(sim::swpbuf::live(), base);

    // The manager goes away with a notification unacknowledged: the queue goes, and so
    // does the buffer.
    ASSERT_TRUE(l2pm_.sendNotification(sim::L2pm::Notif::Ifm, ifmBody, &err)) << err;
    EXPECT_EQ(sim::swpbuf::live(), base + 1);
    mgr_.close();
    l2pm_.syncWithManager();
    EXPECT_EQ(l2pm_.queueHandle(), 0u);
    EXPECT_EQ(sim::swpbuf::live(), base);
    EXPECT_FALSE(l2pm_.sendNotification(sim::L2pm::Notif::Ifm, ifmBody, &err));
}

TEST_F(L2pmTest, RefusesABodyThatDoesNotFitWithoutKeepingIt) {
    const size_t base = sim::swpbuf::live();
    l2pm_.syncWithManager();
    ASSERT_NE(l2pm_.queueHandle(), 0u);
    std::string err;
    std::vector<uint8_t> fits(8192 - 124), tooBig(8192 - 123);
    EXPECT_FALSE(l2pm_.sendNotification(sim::L2pm::Notif::L2pm, tooBig, &err));
    EXPECT_NE(err.find("does not fit"), std::string::npos);
    EXPECT_EQ(sim::swpbuf::live(), base);
    EXPECT_TRUE(l2pm_.sendNotification(sim::L2pm::Notif::L2pm, fits, &err)) << err;
    EXPECT_EQ(mgr_.receive().size(), 8192u);
}

TEST_F(L2pmTest, IfmAnswersTheControlVlanQuestionAndTakesNotices) {
    sim::Ifm ifm;
    std::string err;
    ASSERT_TRUE(ifm.open(&err)) << err;
    loop_.add(&ifm);

    std::vector<uint8_t> question = fromManager(10956, 76, kQueue138);
    be::Writer(question.data(), question.size()).u32(68, 0xFFFFFFFF);
    be::Writer(question.data(), question.size()).u32(72, 10);
    ASSERT_EQ(exchange(question, 10956), 0);
    EXPECT_EQ(u32At(question, 68), 0u);   // reply code
    EXPECT_EQ(u32At(question, 72), 10u);  // the rest as it went

    std::vector<uint8_t> shortQuestion = fromManager(10956, 68, kQueue138);
    EXPECT_EQ(exchange(shortQuestion, 10956), -1);

    std::vector<uint8_t> notice = fromManager(11016, 80, kQueue138);
    ASSERT_EQ(qelIpcSend(mgr_.reqFd(), notice.data(), static_cast<int>(notice.size())), 0);
    EXPECT_TRUE(serveUntil(loop_, [&] { return ifm.counters().notices == 1; }));
    EXPECT_EQ(ifm.counters().questions, 1u);
    EXPECT_EQ(ifm.counters().malformed, 1u);
    loop_.remove(&ifm);
}

}  // namespace
}  // namespace vorn
