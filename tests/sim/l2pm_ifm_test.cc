// The simulated L2PM and IFM as the manager meets them on the wire: the answers in place,
// the acknowledgement of the manager's SWP messages (only accepted ones feed the forwarding
// model), the one SWP queue that carries IFM and L2PM notifications to the manager, and the
// simulator commands that steer and show all of it.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "platform/swp.h"
#include "sim/chassis_sim.h"
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
using test::words;
using W = std::vector<uint32_t>;

constexpr uint32_t kGi01 = 0x0A000100;
constexpr uint32_t kGi11 = 0x0A010100;

class L2pmIfmTest : public test::PlatformTest {
protected:
    void SetUp() override {
        std::string err;
        ASSERT_TRUE(l2pm_.open(&err)) << err;
        ASSERT_TRUE(ifm_.open(&err)) << err;
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
    sim::EventLoop loop_;
    sim::L2pm l2pm_;
    sim::Ifm ifm_;
};

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

TEST_F(L2pmIfmTest, RegistrationAndOwnershipAreAnsweredInPlace) {
    for (bool refusing : {false, true}) {
        SCOPED_TRACE(refusing ? "refusing" : "accepting");
        l2pm_.setRefusing(refusing);
        // The registration as the manager builds it: 124 bytes, body from 60.
        std::vector<uint8_t> msg = fromManager(18401, 124, kQueue166);
        be::Writer w(msg.data(), msg.size());
        w.u32(44, 0);           // the manager leaves its source queue unset
        w.u32(64, 0xDEADBEEF);  // result: must be overwritten
        w.u32(72, 226);         // registering service
        w.u32(80, 0x807f703f);  // registration type words
        w.u32(96, 0xb000);
        w.u8(120, 1);  // register
        ASSERT_EQ(exchange(msg), 0);
        // The result; the rest comes back as it went.
        EXPECT_EQ(words(msg, {64, 80, 96}), (W{refusing ? 1u : 0u, 0x807f703f, 0xb000}));
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
        ASSERT_EQ(msg.size(), 588u);
        Ports listed;
        for (uint32_t i = 0; i < u32At(msg, 260) && i < 81; ++i)
            listed.push_back(u32At(msg, 264 + 4 * i));
        EXPECT_EQ(listed, c.notGranted);
        // The rest comes back as it went; the list holds nothing beyond its count.
        EXPECT_EQ(words(msg, {248, 256, 584}), (W{7, c.action, 0}));
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

TEST_F(L2pmIfmTest, SwpMessagesAreAcknowledgedAndOnlyAcceptedOnesChangeTheModel) {
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
        // A flush over SWP: 60 magic, 64 sequence, 68 stream, 72 epoch; one flush record.
        std::vector<uint8_t> msg = fromManager(18412, 260 + 24, kQueue166);
        be::Writer w(msg.data(), msg.size());
        w.u32(60, swp::kMagic);
        w.u32(64, c.seq);
        w.u32(68, 9);
        w.u32(72, 0x1234);
        w.u32(248, 7);
        w.u32(252, 3);
        w.u32(256, 1);
        w.u32(260, 82);  // kind
        w.u32(264, 24);  // length
        w.u16(272, 20);  // VLAN
        w.u32(276, kGi01);
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

TEST_F(L2pmIfmTest, NotificationsOfBothKindsShareOneQueueAndComeBackWhenAcknowledged) {
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
    uint32_t epoch = 0;
    uint32_t seq = 1;
    using Expect = std::pair<uint32_t, const std::vector<uint8_t>*>;
    for (auto [mtype, body] : {Expect{10908, &ifmBody}, Expect{18402, &l2pmBody}}) {
        SCOPED_TRACE(mtype);
        // Until the first acknowledgement of a stream only its first message travels.
        std::vector<uint8_t> msg;
        ASSERT_TRUE(serveUntil(loop_, [&] { return !(msg = mgr_.receive(20)).empty(); }));
        ASSERT_EQ(msg.size(), 124 + body->size());
        // Length, type, from L2PM to the manager, the sequence number in its stream.
        EXPECT_EQ(words(msg, {8, 12, 44, 56, 64, 68}), (W{uint32_t(msg.size()), mtype, kQueue166,
                                                          kQueue226, seq++, l2pm_.queueHandle()}));
        if (epoch != 0) {
            EXPECT_EQ(u32At(msg, 72), epoch);
        }
        epoch = u32At(msg, 72);
        EXPECT_TRUE(std::equal(body->begin(), body->end(), msg.begin() + 124));
        // The manager's one receive state takes both kinds in order.
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

TEST_F(L2pmIfmTest, IfmAnswersTheControlVlanQuestionAndTakesNotices) {
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
    EXPECT_NE(ifm_.describe().find("configured: primary Gi 0/1, secondary Gi 1/1, secondary is "
                                   "a ring's secondary"),
              std::string::npos)
        << ifm_.describe();
}

TEST_F(L2pmIfmTest, SimulatorCommandsSteerAndShowTheModels) {
    sim::SimOptions opts;
    opts.rundir = rundir_.path();
    sim::ChassisSim chassis(opts);  // not started: its peers are only used for commands
    struct Case {
        const char* command;
        bool ok;
        const char* inText;
    };
    const Case cases[] = {
        {"l2pm refuse-port Gi 0/5", true, "L2PM now refuses the ownership of GigabitEthernet 0/5"},
        {"show l2pm port gi0/5", true, "not owned by the manager; L2PM refuses to hand it over"},
        {"no l2pm refuse-port GigabitEthernet 0/5", true, "grants the ownership"},
        {"l2pm refuse-port Gi 12/1", false, "slot 12 is out of range 0..11 in 'Gi 12/1'"},
        {"show l2pm vlan 4096", false, "VLAN 4096 is out of range 1..4095"},
        {"ifm refuse-vlan 12 code 0x1", true, "answers 0x00000001 when VLAN 12"},
        {"ifm refuse-vlan 12 cod 1", false, "usage: ifm refuse-vlan VLAN [code CODE]"},
        {"show ifm", true, "VLANs refused: 12 (0x00000001)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.command);
        sim::CommandResult r = chassis.commands().run(c.command);
        EXPECT_EQ(r.ok, c.ok);
        EXPECT_NE(r.text.find(c.inText), std::string::npos) << r.text;
    }
}

}  // namespace
}  // namespace vorn
