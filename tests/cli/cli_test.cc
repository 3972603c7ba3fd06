// vornctl: its options and error messages, and the debug-shell path (functions, globals, long
// answers) to a manager stand-in served in this process.

#include "cli/commands.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <thread>

#include "cli/client.h"
#include "platform/ipc.h"
#include "platform/shell.h"
#include "support/rundir.h"

namespace vorn {
namespace {

// Runs vornctl's main on words, returning the exit status and both streams.
struct CtlRun {
    int status;
    std::string out;
    std::string err;
};
CtlRun vornctl(std::vector<std::string> words) {
    words.insert(words.begin(), "vornctl");
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(w.data());
    std::istringstream in;
    std::ostringstream out, err;
    int status = cli::vornctlMain(static_cast<int>(argv.size()), argv.data(), in, out, err);
    return {status, out.str(), err.str()};
}

class VornctlTest : public test::PlatformTest {};

TEST_F(VornctlTest, SaysClearlyWhatIsWrong) {
    const std::string dir = rundir_.path();
    const std::string missing = dir + "/nothing-here";
    const std::string open = dir + "/open-to-all";
    ASSERT_EQ(mkdir(open.c_str(), 0700), 0);
    ASSERT_EQ(chmod(open.c_str(), 0777), 0);
    struct Case {
        std::vector<std::string> words;
        int status;
        std::string inErr;
    };
    const Case cases[] = {
        {{"--rundir", missing, "shell", "qelIpcStats"},
         1,
         "% Error: no manager is running in " + missing},
        {{"--rundir", dir, "sim", "status"}, 1, "% Error: no simulator is running in " + dir},
        {{"--rundir", open, "sim", "status"}, 1, "is writable by other users"},
        {{"--rundir", dir, "sim"}, 2, "% Error: incomplete command; usage: sim COMMAND"},
        {{"--rundir", dir, "!"}, 2, "% Error: no command given"},
        {{"--rundir", dir, "-f", "x", "show"}, 2, "-f FILE takes no command after it ('show')"},
        {{"--rundir", dir, "-f", dir + "/none"}, 2, "cannot read " + dir + "/none"},
        // A command's own words are never read as options of vornctl.
        {{"--rundir", dir, "sim", "-f", "x"}, 1, "% Error: no simulator is running in " + dir},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.inErr);
        CtlRun r = vornctl(c.words);
        EXPECT_EQ(r.status, c.status);
        EXPECT_NE(r.err.find(c.inErr), std::string::npos) << r.err;
        EXPECT_TRUE(r.out.empty()) << r.out;
    }
    // Asking about a directory never creates it.
    EXPECT_NE(access(missing.c_str(), F_OK), 0);
    CtlRun help = vornctl({"--rundir", dir, "help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("protocol vorn <1-255>"), std::string::npos) << help.out;
    // Without a command, input that is not a terminal is replayed: here, nothing.
    CtlRun none = vornctl({"--rundir", dir});
    EXPECT_EQ(none.status, 0) << none.err;
}

// The manager's endpoint with the debug shell, served on a thread of its own.
class ShellServer {
public:
    ShellServer() : key_(qelIpcTmrOpen(226, 0)) {
        qelDdbInit(nullptr);
        thread_ = std::thread([this] {
            std::vector<uint8_t> buf(8192);
            // The owner's receive loop serves shell lines and never hands them to its caller.
            while (!stop_)
                EXPECT_EQ(qelIpcRecvWait(Key_getReqQueue(key_), buf.data(), 8192, 10), -1)
                    << "a shell line leaked to the owner";
        });
    }
    ~ShellServer() {
        stop_ = true;
        thread_.join();
        qelIpcClose(key_);
    }

private:
    QelKey key_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

uint32_t gTestFlag = 0;

TEST_F(VornctlTest, RunsShellFunctionsAndGlobalsAndNormalisesTheirLineEnds) {
    shell::registerFunction(
        "testPrintTwice",
        [](const std::vector<long>& args) {
            for (long a : args) std::printf("value %ld\r\n", a);
            std::printf("done\r\r\n\r");  // a lone CR before a pair, and one at the end
        },
        "prints its arguments");
    shell::registerFunction("testBigOutput", [](const std::vector<long>&) {
        for (int i = 0; i < 2000; ++i) std::printf("line %04d of the big output\r\n", i);
    });
    shell::registerGlobal("testFlag", &gTestFlag);
    ShellServer server;
    const std::string dir = rundir_.path();
    struct Case {
        std::vector<std::string> words;
        int status;
        std::string out;    // exact standard output
        std::string inErr;  // part of the error output ("" for none)
    };
    const Case cases[] = {
        {{"shell", "testPrintTwice", "5", "0x10"}, 0, "value 5\nvalue 16\ndone\n\n\n", ""},
        {{"shell", "noSuchFunction"}, 1, "", "unknown command: noSuchFunction"},
        {{"shell", "testPrintTwice", "five"}, 1, "", "bad argument 'five'"},
        {{"shell", "testFlag", "=", "3"}, 0, "testFlag = 3\n", ""},
        {{"shell", "testFlag"}, 0, "testFlag = 3\n", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.words[1]);
        std::vector<std::string> words = {"--rundir", dir};
        words.insert(words.end(), c.words.begin(), c.words.end());
        CtlRun r = vornctl(words);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.out, c.out);
        if (c.inErr.empty())
            EXPECT_TRUE(r.err.empty()) << r.err;
        else
            EXPECT_NE(r.err.find(c.inErr), std::string::npos) << r.err;
    }
    EXPECT_EQ(gTestFlag, 3u);
    // An answer of many messages comes back whole.
    CtlRun big = vornctl({"--rundir", dir, "shell", "testBigOutput"});
    EXPECT_EQ(big.out.size(), 2000 * 28u);
    EXPECT_TRUE(big.out.ends_with("line 1999 of the big output\n"));
    // The client's own endpoint is gone once it is done.
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        EXPECT_NE(entry.path().filename().string().rfind("40.", 0), 0u) << entry.path();
}

}  // namespace
}  // namespace vorn
