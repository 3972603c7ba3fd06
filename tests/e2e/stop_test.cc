// End to end: SIGTERM reaches the manager in the middle of a burst of configuration
// requests; it ends cleanly between two messages and leaves a whole running configuration,
// the lines of every request it answered and nothing torn.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include "chassis.h"

namespace vorn::e2e {
namespace {

TEST(Stop, SigtermDuringABurstLeavesAWholeRunningConfig) {
    Chassis c;
    ASSERT_TRUE(c.startAndWait()) << c.simLog();
    std::string file = c.base() + "/burst.cfg";
    {
        std::ofstream out(file);
        for (int ring = 1; ring <= 255; ++ring) {
            out << "protocol vorn " << ring << "\n description ring " << ring
                << " of the burst\n timer hello-interval 300\n timer dead-interval 900\n";
        }
    }
    pid_t burst =
        spawn({VORNCTL_PATH, "--rundir", c.rundir(), "-f", file}, c.base() + "/burst.out");
    // The manager's pid is in its lock file; the signal goes once the burst is under way.
    std::string lock = c.rundir() + "/226.0.lock";
    ASSERT_TRUE(
        eventually([&] { return slurp(c.rundir() + "/running-config").size() > 2000; }, 20000));
    pid_t manager = static_cast<pid_t>(std::stol(slurp(lock)));
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
}

}  // namespace
}  // namespace vorn::e2e
