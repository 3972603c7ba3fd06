// What the shell offers while a line is typed: '?' help and tab completion from the same
// tree that parses the line, in the context the operator is in; and the grammar's refusal of
// rows that would make the table ambiguous.

#include "cli/grammar.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "nm_manager.h"
#include "support/rundir.h"

namespace vorn {
namespace {

class ShellHelpTest : public test::PlatformTest {
protected:
    // The words of the help lines, in order ("  mode   the ring's..." -> "mode").
    static std::vector<std::string> helpWords(const std::string& text) {
        std::vector<std::string> out;
        std::istringstream in(text);
        std::string word, rest;
        while (in >> word) {
            out.push_back(word);
            std::getline(in, rest);
        }
        return out;
    }
    std::ostringstream out_, err_;
};

TEST_F(ShellHelpTest, QuestionMarkAndTabOfferWhatMayComeNext) {
    test::NmManager mgr;
    cli::Cli cli(rundir_.path(), out_, err_, 2000);
    using V = std::vector<std::string>;
    struct Case {
        bool inRing;
        const char* before;
        V words;  // the first word of each help line; {} with free text
    };
    const Case cases[] = {
        {false,
         "",
         {"clear", "debug", "end", "exit", "help", "no", "protocol", "shell", "show", "sim",
          "undebug", "write"}},
        {false, "pro", {"protocol"}},
        {false, "protocol vorn ", {"<1-255>"}},
        {false, "no ", {"debug", "protocol"}},
        {true, "mode ", {"master", "transit"}},
        {true, "d", {"debug", "description", "disable"}},
        {true, "timer ", {"dead-interval", "hello-interval"}},
        {true, "timer hello-interval 300 ", {"<cr>"}},
        {true, "interface primary ", {"INTERFACE"}},
        {true, "interface primary Gi ", {"SLOT/PORT"}},
        {true, "interface primary Gi 0/1 ", {"secondary"}},
        {true, "no member-vlan ", {"VLAN-LIST", "<cr>"}},
        {true, "description ", {"LINE"}},
        {true, "description a ring", {}},  // '?' is part of the text
        {true, "shell vornPrintRing", {}},
        {true, "mode mister ", {"%"}},  // an error line
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.inRing ? "ring: " : "top: ") + c.before);
        if (c.inRing && cli.context().mode != cli::Mode::Ring) {
            ASSERT_EQ(cli.runLine("protocol vorn 5"), cli::kExitOk);
        }
        std::string help = cli.helpText(c.before);
        EXPECT_EQ(helpWords(help), c.words) << help;
    }
    // In a ring's context the ring's commands come first, then the others.
    std::vector<std::string> ringTop = helpWords(cli.helpText(""));
    for (const char* w : {"interface", "member-vlan", "mode", "timer", "disable", "protocol"})
        EXPECT_NE(std::find(ringTop.begin(), ringTop.end(), w), ringTop.end()) << w;
    EXPECT_NE(cli.helpText("mode mister ")
                  .find("unknown word 'mister'; expected master or "
                        "transit"),
              std::string::npos);
    // Tab completion: the keywords and interface types that may come next, in this context.
    EXPECT_EQ(cli.prompt(), "vornctl(vorn-5)# ");
    EXPECT_EQ(cli.completions("mode "), (V{"master", "transit"}));
    EXPECT_EQ(cli.completions("interface primary G"), V{"GigabitEthernet"});
    for (const char* none : {"interface primary ", "mode mister ", "description any"})
        EXPECT_EQ(cli.completions(none), V{}) << none;
    ASSERT_EQ(cli.runLine("end"), cli::kExitOk);
    EXPECT_EQ(cli.prompt(), "vornctl# ");
    EXPECT_EQ(cli.completions("sh"), (V{"shell", "show"}));
    EXPECT_EQ(cli.completions("mode"), V{});                      // no ring command at the top
    EXPECT_EQ(cli.completions("protocol vorn 5 mo"), V{"mode"});  // a ring command may follow
}

TEST(Grammar, RowsThatWouldBeAmbiguousAreAMistakeOfTheProgram) {
    cli::Grammar g;
    auto none = [](const cli::Match&, const cli::Context&) { return cli::Action{}; };
    g.add(cli::Mode::Exec, "show ring [RING]", "h", none);
    // The same words again, also through an optional part or a choice.
    EXPECT_THROW(g.add(cli::Mode::Exec, "show ring", "h", none), std::logic_error);
    EXPECT_THROW(g.add(cli::Mode::Ring, "show ring|rings RING", "h", none), std::logic_error);
    EXPECT_THROW(g.add(cli::Mode::Exec, "show Ring", "h", none), std::logic_error);
    EXPECT_THROW(g.add(cli::Mode::Exec, "show NUMBER", "h", none), std::logic_error);
    EXPECT_THROW(g.add(cli::Mode::Exec, "say LINE now", "h", none), std::logic_error);
    // A longer row that only extends one is not ambiguous.
    EXPECT_NO_THROW(g.add(cli::Mode::Exec, "show ring RING summary", "h", none));
}

}  // namespace
}  // namespace vorn
