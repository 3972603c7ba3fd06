// The simulated L2PM and IFM as the manager meets them on the wire: the answers in place and
// the malformed requests each drops unanswered. (Events to subscribers, SWP acknowledgements
// and the notification queue are the chassis and agent tests', and run end to end.)

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sim/ifm.h"
#include "sim/l2pm.h"
#include "sim_test_util.h"
#include "support/rundir.h"

namespace vorn {
namespace {

using test::fromManager;
using test::kQueue138;
using test::kQueue166;
using test::u32At;
using test::words;
using W = std::vector<uint32_t>;

constexpr uint32_t kGi01 = 0x0A000100;
constexpr uint32_t kGi11 = 0x0A010100;

class SimPeersTest : public test::PlatformTest {
protected:
    void SetUp() override {
        std::string err;
        ASSERT_TRUE(l2pm_.open(&err)) << err;
        ASSERT_TRUE(ifm_.open(&err)) << err;
        loop_.add(&l2pm_);
        loop_.add(&ifm_);
    }
    int exchange(std::vector<uint8_t>& msg) { return test::exchange(loop_, mgr_, msg); }
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

TEST_F(SimPeersTest, IfmAnswersTheControlVlanQuestionAndDropsShortMessages) {
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
    auto malformed = [&] { return ifm_.counters().malformed; };
    EXPECT_TRUE(dropsUnanswered(fromManager(10956, 68, kQueue138), malformed));
    // A ring-interface notice (11016) shorter than its 76 bytes too. (Whole ones show only in
    // vornsim's own show; the manager's bytes for them are pinned by its IFM tests.)
    EXPECT_TRUE(dropsUnanswered(fromManager(11016, 75, kQueue138), malformed));
}

}  // namespace
}  // namespace vorn
