// The simulated event handler, L2PM and IFM as the manager meets them on the wire: the
// answers in place, the events sent to subscribers, the acknowledgement of the manager's SWP
// messages (only accepted ones feed the forwarding model), the one SWP queue that carries IFM
// and L2PM notifications to the manager, and the malformed requests each drops unanswered.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "platform/evtlog.h"
#include "platform/swp.h"
#include "sim/evh.h"
#include "sim/ifm.h"
#include "sim/l2pm.h"
#include "sim/swp_buffers.h"
#include "sim_test_util.h"
#include "support/rundir.h"

namespace vorn {
namespace {

using test::fromManager;
using test::kQueue138;
using test::kQueue166;
using test::kQueue226;
using test::serveUntil;
using test::u32At;
using test::whileServing;
using test::words;
using W = std::vector<uint32_t>;

constexpr uint32_t kQueue30 = (30u << 20) | 1;  // 30.0.1
constexpr uint32_t kGi01 = 0x0A000100;
constexpr uint32_t kGi11 = 0x0A010100;

class SimPeersTest : public test::PlatformTest {
protected:
    void SetUp() override {
        evlog_ = qelEvtOpenlog("VORN", 0, 226, 0);
        std::string err;
        ASSERT_TRUE(evh_.open(&err)) << err;
        ASSERT_TRUE(l2pm_.open(&err)) << err;
        ASSERT_TRUE(ifm_.open(&err)) << err;
        loop_.add(&evh_);
        loop_.add(&l2pm_);
        loop_.add(&ifm_);
    }
    int exchange(std::vector<uint8_t>& msg) { return test::exchange(loop_, mgr_, msg); }
    // Sends msg without waiting and returns the first message back (empty: none came).
    std::vector<uint8_t> post(std::vector<uint8_t> msg) {
        EXPECT_EQ(qelIpcSend(mgr_.reqFd(), msg.data(), static_cast<int>(msg.size())), 0);
        std::vector<uint8_t> reply;
        serveUntil(loop_, [&] { return !(reply = mgr_.receive(0)).empty(); });
        return reply;
    }
    template <typename F>
    ::testing::AssertionResult dropsUnanswered(std::vector<uint8_t> msg, F dropped) {
        return test::dropsUnanswered(loop_, mgr_, std::move(msg), dropped);
    }

    test::FakeManager mgr_;
    QelKey evlog_ = -1;
    sim::EventLoop loop_;
    sim::EventHandler evh_;
    sim::L2pm l2pm_;
    sim::Ifm ifm_;
};

// An absent event handler's answer is tested with the chassis's commands (control_test.cc).
TEST_F(SimPeersTest, SendsAnEventOnlyToThoseWhoseSubscriptionItAcceptedAndWhoFollowIt) {
    auto subscribe = [&] {
        return whileServing(loop_, [&] { return qelEvhSubscribeEvt(evlog_, 1, CHMGR_CARD_DOWN); });
    };
    evh_.setRefusing(true);
    EXPECT_EQ(subscribe(), 1);
    EXPECT_EQ(evh_.sendEvent(CHMGR_CARD_DOWN, 5), 0);  // the refused one is not remembered
    evh_.setRefusing(false);
    ASSERT_EQ(subscribe(), 0);

    EXPECT_EQ(evh_.sendEvent(CHMGR_CARD_DOWN, 5), 1);
    std::vector<uint8_t> msg = mgr_.receive();
    // CHMGR_CARD_DOWN for slot 5.
    EXPECT_EQ(words(msg, {8, 12, 44, 56, 64, 68}), (W{72, 2009, kQueue30, kQueue226, 0x118012, 5}));

    // Not followed: nothing is sent (a send would be waiting before sendEvent returns).
    EXPECT_EQ(evh_.sendEvent(CHMGR_CARD_UP, 5), 0);
    EXPECT_TRUE(mgr_.receive(0).empty());

    // A subscriber that went away costs a failed send, counted, and nothing else.
    mgr_.close();
    EXPECT_EQ(evh_.sendEvent(CHMGR_CARD_DOWN, 6), 0);
    EXPECT_EQ(evh_.counters().sendFailures, 1u);
    EXPECT_EQ(evh_.counters().eventsSent, 1u);
}

// Port-ownership request (18403, 588 bytes): 248 client id 7, 252 protocol id 3, 256 action
// (0 take, 1 give back), 260 the port list: u32 count, then the ifIndexes.
std::vector<uint8_t> ownershipRequest(uint32_t action, const std::vector<uint32_t>& ports,
                                      size_t len = 588) {
    std::vector<uint8_t> msg = fromManager(18403, len, kQueue166);
    be::Writer w(msg.data(), msg.size());
    w.u32(248, 7);
    w.u32(252, 3);
    w.u32(256, action);
    w.u32(260, static_cast<uint32_t>(ports.size()));
    for (size_t i = 0; i < ports.size(); ++i) w.u32(264 + 4 * i, ports[i]);
    return msg;
}

TEST_F(SimPeersTest, RegistrationAndOwnershipAreAnsweredInPlace) {
    for (bool refusing : {false, true}) {
        SCOPED_TRACE(refusing ? "refusing" : "accepting");
        l2pm_.setRefusing(refusing);
        std::vector<uint8_t> msg = test::l2pmRegistration();
        be::Writer(msg.data(), msg.size()).u32(64, 0xDEADBEEF);  // the result, overwritten
        ASSERT_EQ(exchange(msg), 0);
        EXPECT_EQ(u32At(msg, 64), refusing ? 1u : 0u);
    }
    l2pm_.setRefusing(false);
    auto malformed = [&] { return l2pm_.counters().malformed; };
    // Too short to be a registration: no answer at all.
    EXPECT_TRUE(dropsUnanswered(fromManager(18401, 68, kQueue166), malformed));
    EXPECT_EQ(W({uint32_t(l2pm_.counters().registered), uint32_t(l2pm_.counters().refused)}),
              (W{1, 1}));

    l2pm_.model().setRefused(kGi11, true);
    using Ports = std::vector<uint32_t>;
    struct Case {
        const char* what;
        uint32_t action;
        Ports ports, notGranted;
    };
    const Case cases[] = {
        {"take a port", 0, {kGi01}, {}},
        {"take a refused port", 0, {kGi11}, {kGi11}},
        {"take a VLAN interface", 0, {0x1800000A}, {0x1800000A}},
        {"give a port back", 1, {kGi01}, {}},
        {"give back a port never owned", 1, {kGi11}, {}},
        {"unknown action grants nothing", 7, {kGi01}, {kGi01}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<uint8_t> msg = ownershipRequest(c.action, c.ports);
        be::Writer(msg.data(), msg.size()).u32(584, 0xA5A5A5A5);  // the list's last word
        ASSERT_EQ(exchange(msg), 0);
        Ports listed;
        for (uint32_t i = 0; i < u32At(msg, 260) && i < 81; ++i)
            listed.push_back(u32At(msg, 264 + 4 * i));
        EXPECT_EQ(listed, c.notGranted);
        EXPECT_EQ(u32At(msg, 584), 0u);  // nothing left beyond the count
    }
    EXPECT_TRUE(l2pm_.model().owned().empty());
    EXPECT_EQ(l2pm_.model().counters().ownershipRequests, std::size(cases));

    // Requests that cannot be read are not answered at all: the manager's exchange fails.
    std::vector<uint8_t> tooMany = ownershipRequest(0, {kGi01});
    be::Writer(tooMany.data(), tooMany.size()).u32(260, 82);
    EXPECT_TRUE(dropsUnanswered(ownershipRequest(0, {kGi01}, 587), malformed));
    EXPECT_TRUE(dropsUnanswered(tooMany, malformed));
    EXPECT_TRUE(l2pm_.model().owned().empty());
}

TEST_F(SimPeersTest, SwpMessagesAreAcknowledgedAndOnlyAcceptedOnesChangeTheModel) {
    struct Case {
        const char* what;
        uint32_t seq;
        uint32_t replyType;  // 402 acknowledgement, 404 resend request
        uint32_t replySeq;
    };
    const Case cases[] = {
        {"first of a new stream", 1, 402, 1},
        {"next in order", 2, 402, 2},
        {"duplicate", 2, 402, 2},
        {"gap", 5, 404, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        // A flush over SWP: 60 magic, 64 sequence, 68 stream, 72 epoch.
        std::vector<uint8_t> msg = fromManager(18412, test::flushMsg({{82, 20, kGi01}}), kQueue166);
        be::Writer w(msg.data(), msg.size());
        w.u32(60, swp::kMagic);
        w.u32(64, c.seq);
        w.u32(68, 9);
        w.u32(72, 0x1234);
        EXPECT_EQ(words(post(msg), {12, 64, 68, 72}), (W{c.replyType, c.replySeq, 9, 0x1234}));
    }
    EXPECT_EQ((l2pm_.received()), (std::map<uint32_t, uint64_t>{{18412, 2}}));
    EXPECT_EQ(l2pm_.counters().swpDuplicates, 1u);
    EXPECT_EQ(l2pm_.counters().swpGaps, 1u);
    EXPECT_EQ(l2pm_.model().flushes().at({kGi01, 20}), 2u);

    // Neither registration nor SWP: dropped and counted, never acknowledged.
    EXPECT_TRUE(dropsUnanswered(fromManager(18407, 100, kQueue166),
                                [&] { return l2pm_.counters().unexpected; }));
}

TEST_F(SimPeersTest, NotificationsOfBothKindsShareOneQueueAndComeBackWhenAcknowledged) {
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

    uint32_t state[2] = {0, 0};
    using Expect = std::pair<uint32_t, const std::vector<uint8_t>*>;
    for (auto [mtype, body] : {Expect{10908, &ifmBody}, Expect{18402, &l2pmBody}}) {
        SCOPED_TRACE(mtype);
        // Until the first acknowledgement of a stream only its first message travels.
        std::vector<uint8_t> msg;
        ASSERT_TRUE(serveUntil(loop_, [&] { return !(msg = mgr_.receive(20)).empty(); }));
        ASSERT_EQ(msg.size(), 124 + body->size());
        EXPECT_EQ(u32At(msg, 12), mtype);
        EXPECT_TRUE(std::equal(body->begin(), body->end(), msg.begin() + 124));
        // The manager's one receive state takes both kinds in order, in one stream.
        EXPECT_EQ(qelSwpCkSeqAndAck(msg.data(), state, mgr_.reqFd()), swp::kCkAccepted);
    }
    ASSERT_TRUE(serveUntil(loop_, [&] { return l2pm_.counters().notifAcked == 2; }));
    EXPECT_EQ(sim::swpbuf::live(), base);

    // A body that does not fit a message is refused without keeping a buffer.
    std::vector<uint8_t> fits(8192 - 124), tooBig(8192 - 123);
    EXPECT_FALSE(l2pm_.sendNotification(sim::L2pm::Notif::L2pm, tooBig, &err));
    EXPECT_NE(err.find("does not fit"), std::string::npos);
    EXPECT_EQ(sim::swpbuf::live(), base);
    ASSERT_TRUE(l2pm_.sendNotification(sim::L2pm::Notif::L2pm, fits, &err)) << err;
    EXPECT_EQ(mgr_.receive().size(), 8192u);

    // The manager goes away with it unacknowledged: the queue goes, and so does the buffer.
    EXPECT_EQ(sim::swpbuf::live(), base + 1);
    mgr_.close();
    l2pm_.syncWithManager();
    EXPECT_EQ(l2pm_.queueHandle(), 0u);
    EXPECT_EQ(sim::swpbuf::live(), base);
    EXPECT_FALSE(l2pm_.sendNotification(sim::L2pm::Notif::Ifm, ifmBody, &err));
}

TEST_F(SimPeersTest, IfmAnswersTheControlVlanQuestionAndTakesNotices) {
    ifm_.refuseVlan(10);
    ifm_.refuseVlan(12, 1);
    struct Case {
        uint32_t action;  // 1 becomes a control VLAN, 2 stops being one
        uint32_t vlan;
        uint32_t answer;
    };
    const Case cases[] = {{1, 10, 0x8A000141}, {1, 11, 0}, {1, 12, 1}, {2, 10, 0}, {2, 11, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.vlan);
        // The question (10956, 72 bytes): 60 action, 64 VLAN, 68 the answer.
        std::vector<uint8_t> q = fromManager(10956, 72, kQueue138);
        be::Writer w(q.data(), q.size());
        w.u32(60, c.action);
        w.u32(64, c.vlan);
        w.u32(68, 0xFFFFFFFF);
        ASSERT_EQ(exchange(q), 0);
        EXPECT_EQ(words(q, {64, 68}), (W{c.vlan, c.answer}));
    }
    EXPECT_TRUE(ifm_.controlVlans().empty());  // 11 was granted, then given up
    EXPECT_EQ(ifm_.counters().refusals, 2u);
    EXPECT_TRUE(dropsUnanswered(fromManager(10956, 68, kQueue138),
                                [&] { return ifm_.counters().malformed; }));

    // Ring-interface notices (11016, 76 bytes): 60 action, 64 primary, 68 secondary, 72 flags.
    std::vector<uint8_t> n = fromManager(11016, 76, kQueue138);
    be::Writer nw(n.data(), n.size());
    nw.u32(60, 1);
    nw.u32(64, kGi01);
    nw.u32(68, kGi11);
    nw.u32(72, 0x80000000);
    std::vector<uint8_t> cut(n.begin(), n.end() - 1);
    be::Writer(cut.data(), cut.size()).u32(8, 75);
    for (auto* m : {&n, &cut})
        ASSERT_EQ(qelIpcSend(mgr_.reqFd(), m->data(), static_cast<int>(m->size())), 0);
    ASSERT_TRUE(serveUntil(loop_, [&] { return ifm_.counters().malformed == 2; }));
    ASSERT_EQ(ifm_.notices().size(), 1u);
    EXPECT_EQ(ifm_.notices()[0].secondary, kGi11);
}

}  // namespace
}  // namespace vorn
