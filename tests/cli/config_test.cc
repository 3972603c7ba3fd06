// vornctl's configuration commands against a manager stand-in: the manager's refusals as
// sentences, a manager that does not answer, the replay of files (checked whole before the
// first request, stopped at the first refusal), and the running configuration shown and
// saved. (A saved running configuration replayed as it stands is covered end to end.)

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "nm_manager.h"
#include "support/rundir.h"

namespace vorn {
namespace {

// The requests the manager got, as "RING type TYPE [no]" (their fields are the request
// tests' business).
std::vector<std::string> summaries(const test::NmManager& mgr) {
    std::vector<std::string> out;
    for (const auto& m : mgr.requests()) {
        be::Reader rd(m.data(), m.size());
        out.push_back(std::to_string(rd.u16(90)) + " type " + std::to_string(rd.u32(72)) +
                      (rd.u16(82) != 0 ? " no" : ""));
    }
    return out;
}

class ConfigTest : public test::PlatformTest {
protected:
    std::string file(const std::string& name, const std::string& text) {
        std::string path = rundir_.path() + "/" + name;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
    std::string slurp(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }
    std::ostringstream out_, err_;
};

TEST_F(ConfigTest, RefusalsAreSaidAsSentencesAndChangeNoContext) {
    std::atomic<int64_t> status{0};
    test::NmManager mgr([&status](const test::NmManager::Request&) { return status.load(); });
    cli::Cli cli(rundir_.path(), out_, err_, 2000);
    ASSERT_EQ(cli.runLine("protocol vorn 5"), cli::kExitOk);
    struct Case {
        uint32_t status;
        const char* line;
        const char* sentence;
    };
    const Case cases[] = {
        {1, "member-vlan 20", "ring 5 does not exist; create it first with 'protocol vorn 5'"},
        {2, "no mode transit", "ring 5 is not in mode transit; its mode was left as it is"},
        {3, "no interface primary Gi 0/2 secondary Gi 1/1 control-vlan 10",
         "GigabitEthernet 0/2 is not the primary interface of ring 5"},
        {4, "no interface primary Gi 0/1 secondary te1/2 control-vlan 10",
         "TenGigabitEthernet 1/2 is not the secondary interface of ring 5"},
        {5, "no interface primary Gi 0/1 secondary Gi 1/1 control-vlan 11",
         "VLAN 11 is not the control VLAN of ring 5"},
        {7, "interface primary Gi 0/1 secondary Gi 1/1 control-vlan 20",
         "VLAN 20 is a member VLAN of a ring and cannot be a control VLAN"},
        {8, "member-vlan 10", "VLAN 10 is the control VLAN of a ring and cannot be a member VLAN"},
        {8, "member-vlan 10-12,40",
         "VLANs 10-12,40 include the control VLAN of a ring, which cannot be a member VLAN; no "
         "VLAN was added"},
        {10, "interface primary Gi 0/1 secondary po5 control-vlan 10",
         "L2PM refused to hand over the secondary interface Port-channel 5"},
        {11, "interface primary gi0/1 secondary Gi 0/1 control-vlan 10",
         "the primary and the secondary interface are the same (GigabitEthernet 0/1)"},
        {14, "interface primary Gi 0/1 secondary Gi 1/1 control-vlan 10",
         "the ring interfaces GigabitEthernet 0/1 and GigabitEthernet 1/1 could not be taken "
         "over from L2PM"},
        {20, "interface primary Gi 0/1 secondary po5 control-vlan 10",
         "the secondary interface Port-channel 5 is the inter-chassis link of the peer pair and "
         "cannot carry a ring"},
        {99, "mode master", "the manager refused the 'mode' command of ring 5 (status 99)"},
        {1, "protocol vorn 6", "ring 6 does not exist"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        status = c.status;
        err_.str("");
        EXPECT_EQ(cli.runLine(c.line), cli::kExitFailed);
        EXPECT_EQ(err_.str(), std::string("% Error: ") + c.sentence + "\n");
        // A refused command leaves the operator where they were.
        EXPECT_EQ(cli.context(), (cli::Context{cli::Mode::Ring, 5}));
    }
    EXPECT_EQ(mgr.requests().size(), 1 + std::size(cases));
    EXPECT_TRUE(out_.str().empty()) << out_.str();
}

TEST_F(ConfigTest, AManagerThatIsMissingOrSilentIsNamed) {
    const std::string dir = rundir_.path();
    {
        cli::Cli cli(dir, out_, err_, 300);
        EXPECT_EQ(cli.runLine("protocol vorn 5"), cli::kExitFailed);
        EXPECT_EQ(err_.str(), "% Error: no manager is running in " + dir + "\n");
    }
    err_.str("");
    test::NmManager silent([](const test::NmManager::Request&) { return -1; });
    cli::Cli cli(dir, out_, err_, 300);
    EXPECT_EQ(cli.runLine("protocol vorn 5"), cli::kExitFailed);
    EXPECT_EQ(err_.str(), "% Error: the manager in " + dir +
                              " did not answer within 0.3 s; the command may or may not have "
                              "taken effect\n");
    EXPECT_EQ(cli.context(), cli::Context{});
    EXPECT_EQ(silent.requests().size(), 1u);
}

TEST_F(ConfigTest, ABadLineInAFileIsFoundBeforeAnythingIsSent) {
    test::NmManager mgr;
    cli::Cli cli(rundir_.path(), out_, err_, 2000);
    struct Case {
        std::string text;
        const char* inErr;
    };
    const Case cases[] = {
        {"protocol vorn 5\n mode master\n\n timer hello-interval 20\n no disable\n",
         "hello-interval 20 is out of range 50..2000\n% F line 4: 'timer hello-interval 20': "
         "nothing was applied"},
        {"! a comment\nmode master\n",
         "'mode master' is a command of a ring's context: enter one first with 'protocol vorn "
         "<1-255>'\n% F line 2"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        err_.str("");
        std::istringstream in(c.text);
        EXPECT_EQ(cli.replay(in, "F"), cli::kExitUsage);
        EXPECT_NE(err_.str().find(c.inErr), std::string::npos) << err_.str();
        EXPECT_TRUE(mgr.requests().empty());
    }
}

TEST_F(ConfigTest, TheFirstRefusalStopsAReplayAndNamesItsLine) {
    // The fourth request (the mode) is refused.
    std::atomic<int> seen{0};
    test::NmManager mgr([&seen](const test::NmManager::Request&) { return ++seen == 4 ? 2 : 0; });
    cli::Cli cli(rundir_.path(), out_, err_, 2000);
    std::string path = file("cfg",
                            "protocol vorn 5\n member-vlan 20\n\n ! note\n"
                            " timer dead-interval 900\n no mode master\n no disable\n");
    EXPECT_EQ(cli.replay(path), cli::kExitFailed);
    EXPECT_EQ(err_.str(), "% Error: ring 5 is not in mode master; its mode was left as it is\n% " +
                              path +
                              " line 6: 'no mode master': replay stopped here; the 3 command "
                              "lines before it were applied\n");
    EXPECT_EQ(summaries(mgr),
              (std::vector<std::string>{"5 type 0", "5 type 3", "5 type 6", "5 type 4 no"}));
}

TEST_F(ConfigTest, RunningConfigurationIsShownNormalisedAndSavedWhole) {
    const std::string dir = rundir_.path();
    {
        cli::Cli cli(dir, out_, err_, 2000);
        EXPECT_EQ(cli.runLine("show running-config"), cli::kExitFailed);
        EXPECT_EQ(err_.str(), "% Error: there is no running configuration in " + dir +
                                  " (no manager is running there)\n");
        err_.str("");
        EXPECT_EQ(cli.runLine("write memory"), cli::kExitFailed);
        EXPECT_NE(err_.str().find("nothing was saved"), std::string::npos);
    }
    test::NmManager mgr;
    cli::Cli cli(dir, out_, err_, 2000);
    err_.str("");
    // A manager that has not been configured yet: an empty running configuration.
    EXPECT_EQ(cli.runLine("show running-config"), cli::kExitOk) << err_.str();
    EXPECT_EQ(out_.str(), "");

    const std::string text = "!\r\nprotocol vorn 5  \r\n mode master \r\n no disable \r\n";
    file("running-config", text);
    file("startup-config", "old");
    EXPECT_EQ(cli.runLine("show running-config"), cli::kExitOk);
    EXPECT_EQ(out_.str(), "!\nprotocol vorn 5  \n mode master \n no disable \n");
    out_.str("");
    EXPECT_EQ(cli.runLine("write memory"), cli::kExitOk) << err_.str();
    EXPECT_EQ(out_.str(),
              "Saved the running configuration (4 lines) to " + dir + "/startup-config\n");
    EXPECT_EQ(slurp(dir + "/startup-config"), text);
    struct stat st {};
    ASSERT_EQ(stat((dir + "/startup-config").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    for (const auto& e : std::filesystem::directory_iterator(dir))
        EXPECT_EQ(e.path().filename().string().find(".tmp."), std::string::npos) << e.path();

    // A startup configuration that cannot be replaced stays as it was.
    std::filesystem::remove(dir + "/startup-config");
    std::filesystem::create_directory(dir + "/startup-config");
    err_.str("");
    EXPECT_EQ(cli.runLine("write memory"), cli::kExitFailed);
    EXPECT_NE(err_.str().find("the startup configuration was left as it was"), std::string::npos)
        << err_.str();
    EXPECT_TRUE(std::filesystem::is_directory(dir + "/startup-config"));
    for (const auto& e : std::filesystem::directory_iterator(dir))
        EXPECT_EQ(e.path().filename().string().find(".tmp."), std::string::npos) << e.path();
    EXPECT_TRUE(mgr.requests().empty());
}

}  // namespace
}  // namespace vorn
