// End to end: vornsim starts the built vornd on a fresh run directory, the manager comes up
// far enough to answer vornctl's debug-shell query, and a SIGTERM to vornsim stops both and
// leaves no socket behind.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "chassis.h"

namespace vorn::e2e {
namespace {

using Clock = std::chrono::steady_clock;

TEST(Startup, SimulatorStartsTheManagerWhichAnswersTheShellAndBothStopCleanly) {
    char tmpl[] = "/tmp/vorn-e2e-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string base = tmpl;
    const std::string dir = base + "/run";  // left for vornsim to create
    const std::string simOut = base + "/vornsim.out";
    const std::string ctlOut = base + "/vornctl.out";

    pid_t sim =
        spawn({VORNSIM_PATH, "--rundir", dir, "--vornd", VORND_PATH, "--cards", "0,3"}, simOut);
    ASSERT_GT(sim, 0);

    // The manager answers the shell once it has subscribed and registered.
    std::string answer;
    int status = -1;
    auto deadline = Clock::now() + std::chrono::seconds(20);
    while (Clock::now() < deadline) {
        status = runToEnd({VORNCTL_PATH, "--rundir", dir, "shell", "qelIpcStats"}, ctlOut, &answer);
        if (status == 0)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ASSERT_EQ(status, 0) << answer << "\nvornsim said:\n" << slurp(simOut);
    EXPECT_NE(answer.find("datagrams received"), std::string::npos) << answer;
    EXPECT_EQ(answer.find('\r'), std::string::npos) << "line ends not normalised";

    // The simulator's own view of the same start-up.
    std::string simStatus;
    ASSERT_EQ(runToEnd({VORNCTL_PATH, "--rundir", dir, "sim", "status"}, ctlOut, &simStatus), 0)
        << simStatus;
    EXPECT_NE(simStatus.find("subscribers: 226.0 (3 events)"), std::string::npos) << simStatus;
    EXPECT_NE(simStatus.find("registrations 1 accepted"), std::string::npos) << simStatus;
    EXPECT_NE(simStatus.find("cards: 0,3"), std::string::npos) << simStatus;

    ASSERT_EQ(kill(sim, SIGTERM), 0);
    int simStatusWord = waitEnd(sim, 10000);
    std::string narration = slurp(simOut);
    ASSERT_NE(simStatusWord, -1) << "vornsim did not stop\n" << narration;
    ASSERT_TRUE(WIFEXITED(simStatusWord)) << narration;
    EXPECT_EQ(WEXITSTATUS(simStatusWord), 0) << narration;
    for (const char* line : {"evh: subscription from 226.0 for 3 events: accepted",
                             "l2pm: registration from 226.0 (protocol kind 7): accepted",
                             "the manager (pid", "ended: exit status 0"})
        EXPECT_NE(narration.find(line), std::string::npos) << line << "\n" << narration;

    // Nothing of the chassis is left listening in the run directory.
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        EXPECT_FALSE(entry.is_socket()) << entry.path();
    std::filesystem::remove_all(base);
}

}  // namespace
}  // namespace vorn::e2e
