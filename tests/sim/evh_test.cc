// The simulated event handler against the manager's side of the host platform: the
// subscription answer, the events it sends, and what it does with malformed requests.

#include "sim/evh.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/evtlog.h"
#include "sim_test_util.h"
#include "support/rundir.h"

namespace vorn {
namespace {

using test::FakeManager;
using test::u32At;
using test::whileServing;

// Offsets written out here, so that a wrong constant in the simulator shows up.
constexpr size_t kMlen = 8;
constexpr size_t kMtype = 12;
constexpr size_t kSrcSvce = 44;
constexpr size_t kDstSvce = 56;
constexpr uint32_t kQueue226 = (226u << 20) | 1;  // 226.0.1
constexpr uint32_t kQueue30 = (30u << 20) | 1;    // 30.0.1

class EvhTest : public test::PlatformTest {
protected:
    void SetUp() override {
        evlog_ = qelEvtOpenlog("VORN", 0, 226, 0);
        loop_.add(&evh_);
    }
    int subscribe(std::vector<uint32_t> ids, bool unsubscribe = false) {
        return whileServing(loop_, [&] {
            if (ids.size() == 3)
                return unsubscribe ? qelEvhUnsubscribeEvt(evlog_, 3, ids[0], ids[1], ids[2])
                                   : qelEvhSubscribeEvt(evlog_, 3, ids[0], ids[1], ids[2]);
            return unsubscribe ? qelEvhUnsubscribeEvt(evlog_, 1, ids[0])
                               : qelEvhSubscribeEvt(evlog_, 1, ids[0]);
        });
    }

    FakeManager mgr_;
    QelKey evlog_ = -1;
    sim::EventLoop loop_;
    sim::EventHandler evh_;
};

TEST_F(EvhTest, AnswersSubscriptionsAsToldAndRemembersOnlyAccepted) {
    struct Case {
        const char* what;
        bool present;
        bool refusing;
        int expectRc;  // what qelEvhSubscribeEvt returns to the manager
        bool remembered;
    };
    const Case cases[] = {
        {"accepting", true, false, 0, true},
        {"refusing", true, true, 1, false},
        {"absent", false, false, -1, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::string err;
        if (c.present) {
            ASSERT_TRUE(evh_.open(&err)) << err;
        }
        evh_.setRefusing(c.refusing);
        EXPECT_EQ(subscribe({CHMGR_CARD_UP, CHMGR_CARD_DOWN, CHMGR_CARD_SHUTDOWN}), c.expectRc);
        ASSERT_EQ(evh_.subscribers().count(kQueue226), c.remembered ? 1u : 0u);
        if (c.remembered) {
            EXPECT_EQ(evh_.subscribers().at(kQueue226).size(), 3u);
            // Start the next case from an empty table.
            EXPECT_EQ(subscribe({CHMGR_CARD_UP, CHMGR_CARD_DOWN, CHMGR_CARD_SHUTDOWN}, true), 0);
        }
        EXPECT_TRUE(evh_.subscribers().empty());
        evh_.close();
    }
    EXPECT_EQ(evh_.counters().accepted, 2u);  // one subscription, one unsubscription
    EXPECT_EQ(evh_.counters().refused, 1u);
}

TEST_F(EvhTest, SendsAnEventOnlyToThoseWhoFollowIt) {
    std::string err;
    ASSERT_TRUE(evh_.open(&err)) << err;
    ASSERT_EQ(subscribe({CHMGR_CARD_DOWN}), 0);

    EXPECT_EQ(evh_.sendEvent(CHMGR_CARD_DOWN, 5), 1);
    std::vector<uint8_t> msg = mgr_.receive();
    ASSERT_EQ(msg.size(), 72u);
    // CHMGR_CARD_DOWN for slot 5.
    EXPECT_EQ(test::words(msg, {kMlen, kMtype, kSrcSvce, kDstSvce, 60, 64, 68}),
              (std::vector<uint32_t>{72, 2009, kQueue30, kQueue226, 0, 0x118012, 5}));

    // Not followed: nothing is sent (a send would be waiting before sendEvent returns).
    EXPECT_EQ(evh_.sendEvent(CHMGR_CARD_UP, 5), 0);
    EXPECT_TRUE(mgr_.receive(0).empty());

    // A subscriber that went away costs a failed send, counted, and nothing else.
    mgr_.close();
    EXPECT_EQ(evh_.sendEvent(CHMGR_CARD_DOWN, 6), 0);
    EXPECT_EQ(evh_.counters().sendFailures, 1u);
    EXPECT_EQ(evh_.counters().eventsSent, 1u);
}

TEST_F(EvhTest, DropsMalformedSubscriptionsUnanswered) {
    std::string err;
    ASSERT_TRUE(evh_.open(&err)) << err;
    struct Case {
        const char* what;
        uint32_t len;  // bytes sent
        uint32_t operation;
        uint32_t count;
    };
    const Case cases[] = {
        {"too short for the count", 64, 1, 0},
        {"ids run past the message", 80, 1, 3},
        {"count beyond 64", 72 + 4 * 65, 1, 65},
        {"unknown operation", 76, 3, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<uint8_t> msg(c.len, 0);
        be::Writer w(msg.data(), msg.size());
        w.u32(kMlen, c.len);
        w.u32(kMtype, 2005);
        w.u32(kSrcSvce, kQueue226);
        w.u32(kDstSvce, kQueue30);
        w.u32(64, c.operation);
        w.u32(68, c.count);
        for (uint32_t off = 72; off + 4 <= c.len; off += 4) w.u32(off, CHMGR_CARD_UP);
        EXPECT_TRUE(
            test::dropsUnanswered(loop_, mgr_, msg, [&] { return evh_.counters().malformed; }));
    }
    EXPECT_TRUE(evh_.subscribers().empty());
}

}  // namespace
}  // namespace vorn
