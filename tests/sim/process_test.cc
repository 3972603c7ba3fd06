// The manager as vornsim's child process: how a start that cannot work is reported, and how
// the child's end is told apart. (vornsim's options are tested end to end, startup_test.cc.)

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "sim/manager_proc.h"
#include "support/rundir.h"

namespace vorn {
namespace {

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
