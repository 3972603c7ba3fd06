// The control protocol: its answers in parts, the command table, and the whole path from
// vornctl's client through the control endpoint to the chassis and back; in-process, the
// road of a change and of a registration to a manager's request queue.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/client.h"
#include "platform/evtlog.h"
#include "platform/swp.h"
#include "sim/chassis_sim.h"
#include "sim/commands.h"
#include "sim_test_util.h"
#include "support/rundir.h"
#include "wire/simctl.h"

namespace vorn {
namespace {

using test::FakeManager;
using test::u32At;
using test::words;
using W = std::vector<uint32_t>;
using test::whileServing;

TEST(ControlWire, RequestsAndLongAnswersComeBackWhole) {
    std::vector<uint8_t> req;
    std::string cmd, why;
    ASSERT_TRUE(simctl::encodeRequest("card up 3", 9, (40u << 20) | 1, &req));
    ASSERT_TRUE(simctl::decodeRequest(req.data(), req.size(), &cmd, &why)) << why;
    EXPECT_EQ(cmd, "card up 3");
    EXPECT_FALSE(simctl::encodeRequest(std::string(1025, 'x'), 1, 0, &req));
    // Robustness against malformed requests is left to fuzz/simctl_fuzz.cc; this refusal
    // is of well-formed text that would garble the log.
    std::vector<uint8_t> escape;
    ASSERT_TRUE(simctl::encodeRequest("s\x1b[2J", 1, 0, &escape));
    EXPECT_FALSE(simctl::decodeRequest(escape.data(), escape.size(), &cmd, &why));

    using Case = std::pair<size_t, size_t>;  // text length, parts
    for (auto [textLen, nParts] : {Case{0, 1}, Case{8120, 1}, Case{8121, 2}, Case{20000, 3}}) {
        SCOPED_TRACE(textLen);
        std::string text;
        for (size_t i = 0; i < textLen; ++i) text += static_cast<char>('a' + i % 26);
        auto parts = simctl::encodeAnswer(req.data(), simctl::kStatusRefused, text);
        ASSERT_EQ(parts.size(), nParts);
        std::string back;
        for (size_t i = 0; i < parts.size(); ++i) {
            ASSERT_LE(parts[i].size(), 8192u);
            simctl::AnswerPart p;
            ASSERT_TRUE(simctl::decodeAnswerPart(parts[i].data(), parts[i].size(), &p));
            EXPECT_EQ(p.exchangeId, 9u);
            EXPECT_EQ(p.status, simctl::kStatusRefused);
            EXPECT_EQ(p.more, i + 1 < parts.size());
            back += p.text;
        }
        EXPECT_EQ(back, text);
    }
}

TEST(CommandTable, MatchesTheLongestRunOfWordsAndChecksArguments) {
    sim::CommandTable table;
    std::vector<std::string> seen;
    auto record = [&seen](const std::string& tag) {
        return [&seen, tag](const sim::CommandTable::Args& args) {
            std::string s = tag;
            for (const auto& a : args) s += "|" + a;
            seen.push_back(s);
            return sim::done("ok " + tag);
        };
    };
    table.add({"card up", "SLOT", "", 1, 1, record("up")});
    table.add({"card", "NAME [MORE]", "", 1, 2, record("card")});
    table.add({"status", "", "", 0, 0, record("status")});

    struct Case {
        const char* line;
        bool ok;
        const char* ran;       // "" when no handler may run
        const char* inAnswer;  // part of the answer
    };
    const Case cases[] = {
        {"  CARD\tUp 3 ", true, "up|3", "ok up"},  // blanks, tabs and case do not matter
        {"card upx 3", true, "card|upx|3", "ok card"},
        {"card up", false, "", "usage: card up SLOT"},  // the longer row is meant
        {"status now", false, "", "usage: status"},
        {"stat", false, "", "unknown command 'stat'"},
        {"", false, "", "empty command"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        seen.clear();
        sim::CommandResult r = table.run(c.line);
        EXPECT_EQ(r.ok, c.ok);
        EXPECT_NE(r.text.find(c.inAnswer), std::string::npos) << r.text;
        if (*c.ran == '\0')
            EXPECT_TRUE(seen.empty());
        else
            EXPECT_EQ(seen, std::vector<std::string>{c.ran});
    }
}

// The chassis in attach mode (no manager process), with the test as its manager, driven
// through vornctl's client.
class ChassisTest : public test::PlatformTest {
protected:
    void SetUp() override {
        sim::SimOptions opts;
        opts.rundir = rundir_.path();
        opts.attach = true;
        opts.portsPerCard = 2;
        chassis_ = std::make_unique<sim::ChassisSim>(opts);
        std::string err;
        ASSERT_TRUE(chassis_->start(&err)) << err;
        mgr_ = std::make_unique<FakeManager>();
        ASSERT_TRUE(test::serveUntil(chassis_->loop(),
                                     [&] { return chassis_->l2pm().queueHandle() != 0; }));
    }
    cli::Answer command(const std::string& line) {
        return whileServing(chassis_->loop(), [&] {
            cli::Client client(rundir_.path());
            return client.sim(line);
        });
    }
    // The next message to the manager that is not an agent's registration.
    std::vector<uint8_t> receive() {
        std::vector<uint8_t> msg;
        test::serveUntil(chassis_->loop(), [&] {
            msg = mgr_->receive(0);
            return !msg.empty() && u32At(msg, 12) != 0x6401;
        });
        return msg;
    }

    std::unique_ptr<sim::ChassisSim> chassis_;
    std::unique_ptr<FakeManager> mgr_;
};

TEST_F(ChassisTest, CommandsChangeTheChassisAndSayWhat) {
    QelKey evlog = qelEvtOpenlog("VORN", 0, 226, 0);
    ASSERT_EQ(
        whileServing(chassis_->loop(), [&] { return qelEvhSubscribeEvt(evlog, 1, CHMGR_CARD_UP); }),
        0);

    struct Case {
        const char* line;
        bool ok;
        const char* inAnswer;
    };
    const Case cases[] = {
        {"card up 7", true, "CHMGR_CARD_UP for slot 7 sent to 1 subscriber"},
        {"card down 7", true, "no subscriber follows it"},
        {"card up 12", false, "slot 12 is out of range 0..11"},
        {"evh absent on", true, "is now absent"},
        {"card up 1", false, "the event handler is absent"},
        {"l2pm refuse-port Gi 12/1", false, "slot 12 is out of range 0..11 in 'Gi 12/1'"},
        {"ifm refuse-vlan 12 code 0x1", true, "answers 0x00000001 when VLAN 12"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        cli::Answer a = command(c.line);
        EXPECT_TRUE(a.answered) << a.text;
        EXPECT_EQ(a.ok, c.ok);
        EXPECT_NE(a.text.find(c.inAnswer), std::string::npos) << a.text;
    }
    // As the manager sees it (all sent before the answers): one card event, for slot 7 (the
    // unfollowed card-down sent none), besides the new card's IFM notifications and agent.
    std::vector<std::vector<uint8_t>> events;
    for (std::vector<uint8_t> m = mgr_->receive(0); !m.empty(); m = mgr_->receive(0)) {
        if (u32At(m, 12) != 10908 && u32At(m, 12) != 0x6401) events.push_back(m);
    }
    ASSERT_EQ(events.size(), 1u);
    // CHMGR_CARD_UP for slot 7, from the event handler's queue 30.0.1.
    EXPECT_EQ(words(events[0], {8, 12, 44, 56, 64, 68}),
              (W{72, 2009, (30u << 20) | 1, test::kQueue226, 0x118011, 7}));
    EXPECT_EQ(qelEvhSubscribeEvt(evlog, 1, CHMGR_CARD_UP), -1);  // absent
    EXPECT_EQ(chassis_->cardMask(), 0x3u);                       // 7 went up and down again

    cli::Answer bye = command("quit");
    EXPECT_TRUE(bye.ok);
    EXPECT_TRUE(chassis_->loop().stopping());
    EXPECT_TRUE(chassis_->shutdown());
}

TEST_F(ChassisTest, ChangesGoOutAsIfmNotificationsAndARegistrationGetsTheDownload) {
    sim::CommandResult r = chassis_->commands().run("vlan 10 add gi 0/1 tagged");
    ASSERT_TRUE(r.ok) << r.text;
    std::vector<uint8_t> ifm = receive();
    EXPECT_EQ(words(ifm, {12, 124}), (W{10908, 2}));
    const uint32_t oldEpoch = u32At(ifm, 72);  // not acknowledged: the manager died

    std::vector<uint8_t> reg = test::l2pmRegistration();
    ASSERT_EQ(test::exchange(chassis_->loop(), *mgr_, reg, 10), 0);
    // The download: VLAN 10, Gi 0/0, Gi 0/1, Gi 1/0, Gi 1/1. It starts a new stream: the
    // notification the earlier manager did not acknowledge is dropped, not resent before it.
    std::vector<uint8_t> dnld = receive();
    EXPECT_EQ(words(dnld, {12, 248, 252, 256, 64}), (W{18402, 2, 5, 0x1800000A, 1}));
    EXPECT_NE(u32At(dnld, 72), oldEpoch);
    // The end of configuration follows once the new stream is acknowledged.
    uint32_t state[2] = {0, 0};
    EXPECT_EQ(qelSwpCkSeqAndAck(dnld.data(), state, mgr_->reqFd()), 0);
    std::vector<uint8_t> eoc = receive();
    EXPECT_EQ(words(eoc, {12, 248, 64}), (W{18402, 4, 2}));
    EXPECT_TRUE(chassis_->l2pm().downloadPending());
    EXPECT_EQ(qelSwpCkSeqAndAck(eoc.data(), state, mgr_->reqFd()), 0);
    EXPECT_TRUE(
        test::serveUntil(chassis_->loop(), [&] { return !chassis_->l2pm().downloadPending(); }));
}

}  // namespace
}  // namespace vorn
