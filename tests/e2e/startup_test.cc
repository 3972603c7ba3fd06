// End to end: vornsim starts the built vornd on a fresh run directory, the manager comes up
// far enough to answer vornctl's debug-shell query, and a SIGTERM to vornsim stops both and
// leaves no socket behind. Every program answers --help, --version and a bad option with the
// status a script can rely on.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <string>
#include <vector>

#include "chassis.h"

namespace vorn::e2e {
namespace {

TEST(Startup, SimulatorStartsTheManagerWhichAnswersTheShellAndBothStopCleanly) {
    Chassis c;
    c.start({"--cards", "0,3"});
    ASSERT_GT(c.simPid(), 0);

    // The manager answers the shell once it has subscribed and registered.
    std::string answer;
    ASSERT_TRUE(eventually(
        [&] {
            return c.ctl({"shell", "qelIpcStats"}, &answer) == 0;
        },
        20000))
        << answer << "\nvornsim said:\n"
        << c.simLog();
    EXPECT_NE(answer.find("datagrams received"), std::string::npos) << answer;
    EXPECT_EQ(answer.find('\r'), std::string::npos) << "line ends not normalised";

    // The simulator's own view of the same start-up.
    std::string simStatus;
    ASSERT_EQ(c.ctl({"sim", "status"}, &simStatus), 0) << simStatus;
    for (const char* seen :
         {"subscribers: 226.0 (3 events)", "registrations 1 accepted", "cards: 0,3"})
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

TEST(Startup, EveryProgramAnswersHelpVersionAndABadOptionWithItsStatus) {
    Chassis c;  // for its directory only
    struct Case {
        std::vector<std::string> argv;
        int status;
        std::string starts;  // what the output starts with
    };
    const Case cases[] = {
        {{VORND_PATH, "--rundir", c.rundir(), "--help"}, 0, "usage: vornd [--rundir DIR]"},
        {{VORND_PATH, "--version"}, 0, "vornd (vorn) "},
        {{VORND_PATH, "--bogus"}, 2, "vornd: unknown option '--bogus'\nusage: vornd"},
        {{VORND_PATH, "--cards", "12"}, 2, "vornd: bad --cards list '12': slot 12 is out of"},
        {{VORNSIM_PATH, "--help"}, 0, "usage: vornsim [--rundir DIR]"},
        {{VORNSIM_PATH, "--version"}, 0, "vornsim (vorn) "},
        {{VORNSIM_PATH, "--rundir"}, 2, "vornsim: option --rundir needs a value (DIR)\nusage:"},
        {{VORNCTL_PATH, "--version"}, 0, "vornctl (vorn) "},
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
