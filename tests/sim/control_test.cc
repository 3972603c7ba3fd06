// The control protocol: its wire form, the command table, and the whole path from vornctl's
// client through the control endpoint to the chassis and back.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/client.h"
#include "platform/evtlog.h"
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

TEST(ControlWire, RequestsAreReadOnlyWhenWellFormed) {
    std::vector<uint8_t> req;
    ASSERT_TRUE(simctl::encodeRequest("card up 3", 77, (40u << 20) | (5u << 4) | 1, &req));
    ASSERT_EQ(req.size(), 60u + 9 + 1);
    EXPECT_EQ(words(req, {8, 12, 16, 56}), (W{70, 5001, 77, (50u << 20) | 1}));
    std::string cmd, why;
    ASSERT_TRUE(simctl::decodeRequest(req.data(), req.size(), &cmd, &why)) << why;
    EXPECT_EQ(cmd, "card up 3");
    EXPECT_FALSE(simctl::encodeRequest(std::string(1025, 'x'), 1, 0, &req));

    struct Case {
        const char* what;
        std::vector<uint8_t> body;  // bytes from offset 60
    };
    const Case bad[] = {
        {"no body", {}},
        {"no NUL", {'s', 't', 'a', 't', 'u', 's'}},
        {"escape sequence", {'s', 0x1b, '[', '2', 'J', 0}},
    };
    for (const Case& c : bad) {
        SCOPED_TRACE(c.what);
        std::vector<uint8_t> msg(60 + c.body.size(), 0);
        std::copy(c.body.begin(), c.body.end(), msg.begin() + 60);
        EXPECT_FALSE(simctl::decodeRequest(msg.data(), msg.size(), &cmd, &why));
    }
    std::vector<uint8_t> tooLong(60 + 1025 + 1, 'x');
    tooLong.back() = 0;
    EXPECT_FALSE(simctl::decodeRequest(tooLong.data(), tooLong.size(), &cmd, &why));
}

TEST(ControlWire, LongAnswersTravelInPartsAndComeBackWhole) {
    std::vector<uint8_t> req;
    ASSERT_TRUE(simctl::encodeRequest("status", 9, (40u << 20) | 1, &req));
    struct Case {
        size_t textLen;
        size_t parts;
    };
    for (const Case& c : {Case{0, 1}, Case{8120, 1}, Case{8121, 2}, Case{20000, 3}}) {
        SCOPED_TRACE(c.textLen);
        std::string text;
        for (size_t i = 0; i < c.textLen; ++i) text += static_cast<char>('a' + i % 26);
        auto parts = simctl::encodeAnswer(req.data(), simctl::kStatusRefused, text);
        ASSERT_EQ(parts.size(), c.parts);
        std::string back;
        for (size_t i = 0; i < parts.size(); ++i) {
            ASSERT_LE(parts[i].size(), 8192u);
            simctl::AnswerPart p;
            ASSERT_TRUE(simctl::decodeAnswerPart(parts[i].data(), parts[i].size(), &p));
            EXPECT_EQ(p.exchangeId, 9u);
            EXPECT_EQ(p.status, simctl::kStatusRefused);
            EXPECT_EQ(p.more, i + 1 < parts.size());
            EXPECT_EQ(u32At(parts[i], 56), (40u << 20) | 1);  // back to the source
            back += p.text;
        }
        EXPECT_EQ(back, text);
    }
    // A text length that runs past the message is not believed.
    auto parts = simctl::encodeAnswer(req.data(), simctl::kStatusOk, "hello");
    be::Writer(parts[0].data(), parts[0].size()).u32(simctl::kOffTextLen, 6);
    simctl::AnswerPart p;
    EXPECT_FALSE(simctl::decodeAnswerPart(parts[0].data(), parts[0].size(), &p));
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
        {"card up 3", true, "up|3", "ok up"},
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

    sim::CommandTable onlyLong;
    onlyLong.add({"evh refuse", "on|off", "", 1, 1, record("refuse")});
    onlyLong.add({"evh absent", "on|off", "", 1, 1, record("absent")});
    sim::CommandResult r = onlyLong.run("evh");
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.text.find("evh refuse on|off"), std::string::npos) << r.text;
    EXPECT_NE(r.text.find("evh absent on|off"), std::string::npos) << r.text;
}

// The chassis in attach mode (no manager process), driven through vornctl's client.
class ChassisControlTest : public test::PlatformTest {
protected:
    void SetUp() override {
        sim::SimOptions opts;
        opts.rundir = rundir_.path();
        opts.attach = true;
        chassis_ = std::make_unique<sim::ChassisSim>(opts);
        std::string err;
        ASSERT_TRUE(chassis_->start(&err)) << err;
    }
    cli::Answer command(const std::string& line) {
        return whileServing(chassis_->loop(), [&] {
            cli::Client client(rundir_.path());
            return client.sim(line);
        });
    }
    std::unique_ptr<sim::ChassisSim> chassis_;
};

TEST_F(ChassisControlTest, CommandsChangeTheChassisAndSayWhat) {
    FakeManager mgr;
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
        {"evh refuse on", true, "now refuses subscriptions"},
        {"evh absent on", true, "is now absent"},
        {"card up 1", false, "the event handler is absent"},
        {"l2pm refuse on", true, "now refuses registrations"},
        {"status", true, "evh 30.0: absent"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        cli::Answer a = command(c.line);
        EXPECT_TRUE(a.answered) << a.text;
        EXPECT_EQ(a.ok, c.ok);
        EXPECT_NE(a.text.find(c.inAnswer), std::string::npos) << a.text;
    }
    // What the commands did, as the manager sees it (all sent before they were answered):
    // one card event (the unfollowed card-down sent none); the ports of the new card come as
    // IFM notifications, and its agent registers.
    std::vector<std::vector<uint8_t>> events;
    for (std::vector<uint8_t> m = mgr.receive(0); !m.empty(); m = mgr.receive(0)) {
        if (u32At(m, 12) != 10908 && u32At(m, 12) != 0x6401) events.push_back(m);
    }
    ASSERT_EQ(events.size(), 1u);
    ASSERT_EQ(events[0].size(), 72u);
    EXPECT_EQ(words(events[0], {64, 68}), (W{0x118011, 7}));     // card up, slot 7
    EXPECT_EQ(qelEvhSubscribeEvt(evlog, 1, CHMGR_CARD_UP), -1);  // absent
    EXPECT_EQ(chassis_->cardMask(), 0x3u);                       // 7 went up and down again
    EXPECT_TRUE(chassis_->l2pm().refusing());

    // A second chassis on the same run directory is refused; the first one is untouched.
    sim::SimOptions opts;
    opts.rundir = rundir_.path();
    opts.attach = true;
    sim::ChassisSim second(opts);
    std::string err;
    EXPECT_FALSE(second.start(&err));
    EXPECT_NE(err.find("another vornsim"), std::string::npos) << err;

    cli::Answer bye = command("quit");
    EXPECT_TRUE(bye.ok);
    EXPECT_TRUE(chassis_->loop().stopping());
    EXPECT_TRUE(chassis_->shutdown());
    // Every queue of the chassis is gone from the run directory.
    for (const char* q : {"50.0.1", "30.0.1", "166.0.1", "138.0.1", "227.0.1", "227.1.1"})
        EXPECT_FALSE(host::endpointAlive(rundir_.path() + "/" + q)) << q;
}

}  // namespace
}  // namespace vorn
