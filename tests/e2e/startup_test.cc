// End to end: vornsim starts the built vornd on a fresh run directory, the manager comes up
// far enough to answer vornctl's debug-shell query, and a SIGTERM to vornsim stops both and
// leaves no socket behind.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <string>

#include "chassis.h"

namespace vorn::e2e {
namespace {

TEST(Startup, SimulatorStartsTheManagerWhichAnswersTheShellAndBothStopCleanly) {
    Chassis c;
    c.start({"--cards", "0,3"});
    ASSERT_GT(c.simPid(), 0);

    // The manager answers the shell once it has subscribed and registered.
    std::string answer;
    ASSERT_TRUE(eventually([&] { return c.ctl({"shell", "qelIpcStats"}, &answer) == 0; }, 20000))
        << answer << "\nvornsim said:\n" << c.simLog();
    EXPECT_NE(answer.find("datagrams received"), std::string::npos) << answer;
    EXPECT_EQ(answer.find('\r'), std::string::npos) << "line ends not normalised";

    // The simulator's own view of the same start-up.
    std::string simStatus;
    ASSERT_EQ(c.ctl({"sim", "status"}, &simStatus), 0) << simStatus;
    for (const char* seen : {"subscribers: 226.0 (3 events)", "registrations 1 accepted",
                             "cards: 0,3"})
        EXPECT_NE(simStatus.find(seen), std::string::npos) << seen << "\n" << simStatus;

    int status = c.stop();
    const std::string narration = c.simLog();
    ASSERT_NE(status, -1) << "vornsim did not stop\n" << narration;
    ASSERT_TRUE(WIFEXITED(status)) << narration;
    EXPECT_EQ(WEXITSTATUS(status), 0) << narration;
    for (const char* line : {"evh: subscription from 226.0 for 3 events: accepted",
                             "l2pm: registration from 226.0 (protocol kind 7): accepted",
                             "the manager (pid", "ended: exit status 0"})
        EXPECT_NE(narration.find(line), std::string::npos) << line << "\n" << narration;

    // Nothing of the chassis is left listening in the run directory.
    for (const auto& entry : std::filesystem::directory_iterator(c.rundir()))
        EXPECT_FALSE(entry.is_socket()) << entry.path();
}

}  // namespace
}  // namespace vorn::e2e
