// End to end: vornsim starts the built vornd on a fresh run directory, the manager comes up
// far enough to answer vornctl's debug-shell query, a second manager or vornsim on the same
// directory is refused, and a SIGTERM to vornsim stops both and leaves no socket behind.
// Every program answers --help, --version and a bad option with the status a script can
// rely on.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "chassis.h"

namespace vorn::e2e {
namespace {

TEST(Startup, TheManagerStartsAnswersTheShellRefusesASecondOneAndStopsCleanly) {
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

    EXPECT_EQ(c.stop(), 0) << c.simLog();
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
        {{VORND_PATH, "--bogus"}, 2, "vornd: unknown option '--bogus'\nusage: vornd"},
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
