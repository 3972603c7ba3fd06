// End to end: vornsim starts the built vornd on a fresh run directory, the manager comes up
// far enough to answer vornctl's debug-shell query, and a second manager or vornsim on the
// same directory is refused. SIGTERM reaches the manager in the middle of a burst of
// configuration requests: it ends cleanly between two messages and leaves a whole running
// configuration, the lines of every request it answered, nothing torn and no socket; a
// SIGTERM to vornsim then stops it. Every program answers --help, --version and a bad option
// with the status a script can rely on.

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "chassis.h"

namespace vorn::e2e {
namespace {

TEST(Startup, TheManagerStartsRefusesASecondOneAndStopsCleanlyInABurst) {
    Chassis c;
    c.start({"--cards", "0,3"});
    // The manager answers the shell once it has subscribed and registered.
    std::string answer;
    auto answers = [&] { return c.ctl({"shell", "qelIpcStats"}, &answer) == 0; };
    ASSERT_TRUE(eventually(answers, 20000)) << answer << "\nvornsim said:\n" << c.simLog();
    EXPECT_NE(answer.find("datagrams received"), std::string::npos) << answer;
    EXPECT_EQ(answer.find('\r'), std::string::npos) << "line ends not normalised";
    std::string simStatus;
    ASSERT_EQ(c.ctl({"sim", "status"}, &simStatus), 0) << simStatus;
    for (const char* seen :
         {"subscribers: 226.0 (3 events)", "registrations 1 accepted", "cards: 0,3"})
        EXPECT_NE(simStatus.find(seen), std::string::npos) << seen << "\n" << simStatus;

    // A second manager or vornsim on the same run directory says why it will not start, and
    // leaves the first ones their queues.
    std::string out;
    EXPECT_EQ(runToEnd({VORND_PATH, "--rundir", c.rundir()}, c.base() + "/out", &out), 2);
    EXPECT_NE(out.find("already runs service 226.0"), std::string::npos) << out;
    const std::string sim = VORNSIM_PATH;
    EXPECT_EQ(runToEnd({sim, "--rundir", c.rundir(), "--attach"}, c.base() + "/out", &out), 1);
    EXPECT_NE(out.find("another vornsim"), std::string::npos) << out;
    EXPECT_EQ(c.ctl({"shell", "qelIpcStats"}), 0) << "the first manager no longer answers";
    EXPECT_EQ(c.ctl({"sim", "status"}), 0) << "the first vornsim no longer answers";

    std::string file = c.base() + "/burst.cfg";
    {
        std::ofstream burst(file);
        for (int ring = 1; ring <= 255; ++ring) {
            burst << "protocol vorn " << ring << "\n description ring " << ring
                  << " of the burst\n timer hello-interval 300\n timer dead-interval 900\n";
        }
    }
    pid_t burst =
        spawn({VORNCTL_PATH, "--rundir", c.rundir(), "-f", file}, c.base() + "/burst.out");
    // The manager's pid is in its lock file; the signal goes once the burst is under way.
    ASSERT_TRUE(
        eventually([&] { return slurp(c.rundir() + "/running-config").size() > 2000; }, 20000));
    pid_t manager = static_cast<pid_t>(std::stol(slurp(c.rundir() + "/226.0.lock")));
    ASSERT_EQ(kill(manager, SIGTERM), 0);
    ASSERT_TRUE(eventually([&] { return kill(manager, 0) != 0; }, 10000)) << "the manager lives";
    kill(burst, SIGTERM);  // its next request would only wait for an answer
    waitEnd(burst, 5000);

    // Whole lines only, each one of the burst's, and every ring complete but the last.
    std::string text = slurp(c.rundir() + "/running-config");
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.substr(text.size() - 2), "\r\n") << "the file ends inside a line";
    const std::regex line(
        R"((!|protocol vorn \d+|description ring \d+ of the burst|timer hello-interval 300|timer dead-interval 900) *)");
    std::istringstream in(text);
    int rings = 0;
    for (std::string l; std::getline(in, l);) {
        ASSERT_FALSE(l.empty());
        ASSERT_EQ(l.back(), '\r') << l;
        l.pop_back();
        size_t first = l.find_first_not_of(' ');
        EXPECT_TRUE(std::regex_match(l.substr(first), line)) << "not a line of the burst: " << l;
        rings += l.rfind("protocol vorn ", 0) == 0 ? 1 : 0;
    }
    EXPECT_GT(rings, 0);
    EXPECT_TRUE(
        eventually([&] { return c.simLog().find(": exit status 0") != std::string::npos; }, 5000))
        << c.simLog();

    // The manager ended alone, which vornsim's status says (its clean stop of a running
    // manager is the show test's); neither leaves a socket behind.
    EXPECT_EQ(c.stop(), 1 << 8) << c.simLog();
    for (const auto& entry : std::filesystem::directory_iterator(c.rundir()))
        EXPECT_FALSE(entry.is_socket()) << entry.path();
}

TEST(Startup, EveryProgramAnswersHelpVersionAndABadOptionWithItsStatus) {
    Chassis c;  // for its directory only
    struct Case {
        std::vector<std::string> argv;
        int status;
        std::string starts;  // what the output starts with
    };
    const Case cases[] = {
        {{VORND_PATH, "--rundir", c.rundir(), "--help"}, 0, "usage: vornd [--rundir DIR]"},
        {{VORND_PATH, "--cards", "12"}, 2, "vornd: bad --cards list '12': slot 12 is out of"},
        {{VORNSIM_PATH, "--version"}, 0, "vornsim (vorn) "},
        {{VORNSIM_PATH, "--cards", "0x3"}, 2, "vornsim: bad --cards list '0x3'"},
        {{VORNSIM_PATH, "--ports", "65"}, 2, "vornsim: --ports 65 is out of range 1..64"},
        {{VORNCTL_PATH, "-x", "show", "running-config"}, 2, "vornctl: unknown option '-x'"},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.argv[0] + " " + k.argv.back());
        std::string out;
        EXPECT_EQ(runToEnd(k.argv, c.base() + "/out", &out), k.status);
        EXPECT_EQ(out.rfind(k.starts, 0), 0u) << out;
    }
    EXPECT_FALSE(std::filesystem::exists(c.rundir())) << "a refused start made its directory";
}

}  // namespace
}  // namespace vorn::e2e
