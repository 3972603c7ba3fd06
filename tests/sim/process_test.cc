// vornsim's command line and the manager as a child process: how a start that cannot work is
// reported, and how the child's end is told apart.

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "sim/manager_proc.h"
#include "sim/options.h"
#include "support/rundir.h"

namespace vorn {
namespace {

sim::ParseOutcome parse(std::vector<std::string> words, sim::SimOptions* opts,
                        std::string* message) {
    words.insert(words.begin(), "vornsim");
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(w.data());
    return sim::parseOptions(static_cast<int>(argv.size()), argv.data(), opts, message);
}

TEST(SimOptions, ParsesWhatItKnowsAndNamesWhatItDoesNot) {
    struct Case {
        std::vector<std::string> words;
        sim::ParseOutcome outcome;
        uint32_t cardMask;
        const char* inMessage;
    };
    const Case cases[] = {
        {{}, sim::ParseOutcome::Run, 0x3, ""},
        {{"--cards", "0,5,11", "--attach", "--no-evh"}, sim::ParseOutcome::Run, 0x821, ""},
        {{"--cards", "1,1"}, sim::ParseOutcome::Run, 0x2, ""},
        {{"--cards", "12"}, sim::ParseOutcome::Error, 0, "bad --cards list '12'"},
        {{"--cards", "0x3"}, sim::ParseOutcome::Error, 0, "bad --cards list"},
        {{"--rundir"}, sim::ParseOutcome::Error, 0, "option --rundir needs a value"},
        {{"--te-cards", "1", "--ports", "64"}, sim::ParseOutcome::Run, 0x3, ""},
        {{"--ports", "65"}, sim::ParseOutcome::Error, 0, "--ports 65 is out of range 1..64"},
        {{"--turbo"}, sim::ParseOutcome::Error, 0, "unknown option '--turbo'"},
        {{"--help"}, sim::ParseOutcome::Help, 0, "usage: vornsim"},
        {{"--attach", "now"}, sim::ParseOutcome::Error, 0, "unexpected argument 'now'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.words.empty() ? "(none)" : c.words[0] + " ...");
        sim::SimOptions opts;
        std::string message;
        EXPECT_EQ(parse(c.words, &opts, &message), c.outcome);
        EXPECT_NE(message.find(c.inMessage), std::string::npos) << message;
        if (c.outcome == sim::ParseOutcome::Run) {
            EXPECT_EQ(opts.cardMask, c.cardMask);
            EXPECT_FALSE(opts.rundir.empty());
        }
    }
    EXPECT_EQ(sim::cardListText(0x821), "0,5,11");
    EXPECT_EQ(sim::cardListText(0), "none");
}

TEST(ManagerProcess, ReportsAStartThatCannotWorkAndHowTheChildEnded) {
    sim::ManagerProcess p;
    std::string err;
    EXPECT_FALSE(p.start("/nonexistent/vornd", {}, &err));
    EXPECT_NE(err.find("No such file"), std::string::npos) << err;
    EXPECT_FALSE(p.running());

    // A stopped script first says, through a file, that its trap is set.
    const std::string ready = testing::TempDir() + "vornsim-ready-" + std::to_string(getpid());
    const std::string settled = "; : > " + ready + "; while :; do sleep 0.01; done";
    struct Case {
        std::string script;  // run by /bin/sh -c
        bool stopIt;         // false: let it end and reap it
        bool expectClean;
        const char* expectEnd;
    };
    const Case cases[] = {
        {"exit 3", false, false, "exit status 3"},
        {"kill -KILL $$", false, false, "killed by signal 9"},
        {"trap 'exit 0' TERM" + settled, true, true, "exit status 0"},
        {"trap '' TERM" + settled, true, false, "killed by signal 9"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.script);
        ASSERT_TRUE(p.start("/bin/sh", {"-c", c.script}, &err)) << err;
        EXPECT_TRUE(p.running());
        std::string how;
        bool clean = false;
        if (c.stopIt) {
            ASSERT_TRUE(test::waitFor([&] { return access(ready.c_str(), F_OK) == 0; }, 10000));
            unlink(ready.c_str());
            // Time enough for a loaded machine to run the trap before the SIGKILL.
            how = p.stop(2000, &clean);
        } else {
            ASSERT_TRUE(test::waitFor([&] { return p.reap(&how); }, 10000));
        }
        EXPECT_EQ(clean, c.expectClean);
        EXPECT_NE(how.find(c.expectEnd), std::string::npos) << how;
        EXPECT_FALSE(p.running());
        EXPECT_EQ(p.lastEnd(), how);
    }
}

}  // namespace
}  // namespace vorn
