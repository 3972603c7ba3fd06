// The command-line reader and the number reader that every program shares: what is refused,
// with which sentence and exit status, and where the options end and a command's words begin.

#include "platform/cmdline.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "platform/number.h"
#include "platform/shell.h"

namespace vorn {
namespace {

using number::Radix;
using number::Status;

TEST(Number, RefusesWhatIsNotAWholeNumberInBoundsAndSaysWhy) {
    struct Case {
        const char* text;
        uint64_t max;
        Radix radix;
        Status status;
        uint64_t value;
        const char* refusal;  // the sentence for noun "ring id", min 1
    };
    // (Below and above the bounds and the empty word are the VLAN-list tests'.)
    const Case cases[] = {
        {"255", 255, Radix::Decimal, Status::Ok, 255, ""},
        {"+1", 255, Radix::Decimal, Status::NotANumber, 0, "bad ring id '+1'"},
        {"5 ", 255, Radix::Decimal, Status::NotANumber, 0, "bad ring id '5 '"},
        {"0x10", 255, Radix::Decimal, Status::NotANumber, 0, "bad ring id '0x10'"},
        {"18446744073709551615", UINT64_MAX, Radix::Decimal, Status::Ok, UINT64_MAX, ""},
        {"18446744073709551616", UINT64_MAX, Radix::Decimal, Status::OutOfRange, 0,
         "ring id 18446744073709551616 is out of range 1..18446744073709551615"},
        {"99999999999999999999x", UINT64_MAX, Radix::Decimal, Status::NotANumber, 0, "bad"},
        {"0X1f", 255, Radix::DecimalOrHex, Status::Ok, 31, ""},
        {"0x100", 255, Radix::DecimalOrHex, Status::OutOfRange, 0,
         "ring id 0x100 is out of range 0x1..0xff"},
        {"0x", 255, Radix::DecimalOrHex, Status::NotANumber, 0,
         "bad ring id '0x': expected a number 1..255, decimal or 0x hex"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        uint64_t v = 0;
        EXPECT_EQ(number::read(c.text, 1, c.max, c.radix, &v), c.status);
        EXPECT_EQ(v, c.value);
        std::string why = number::refusal(c.status, c.text, "ring id", 1, c.max, c.radix);
        EXPECT_EQ(why.rfind(c.refusal, 0), 0u) << why;
    }
    // The 32-bit form never wraps a larger number into range.
    uint32_t v32 = 7;
    std::string err;
    EXPECT_FALSE(number::parse("4294967296", 0, UINT64_MAX, "code", &v32, &err));
    EXPECT_EQ(err, "code 4294967296 is out of range 0..4294967295");
    EXPECT_EQ(v32, 7u);
}

TEST(Cmdline, ReadsOptionsUpToTheCommandAndRefusesWhatItDoesNotKnow) {
    std::string rundir, file;
    bool standby = false, verbose = false;
    cmdline::Program prog{
        "prog",
        {{"rundir", 0, "DIR", "the run directory", cmdline::store(&rundir)},
         {"", 'f', "FILE", "replay FILE", cmdline::store(&file)},
         {"standby", 0, "", "run as standby", cmdline::set(&standby)},
         {"verbose", 0, "", "say more\nand more", cmdline::set(&verbose)},
         {"cards", 0, "LIST", "cards",
          [](const std::string& v) { return v == "0,1" ? "" : "bad --cards list '" + v + "'"; }}},
        {},
        "About it.\n",
        [] { return std::string("More.\n"); }};
    const std::string usage =
        "usage: prog [--rundir DIR] [-f FILE] [--standby] [--verbose] [--cards LIST]\n"
        "  --rundir DIR  the run directory\n"
        "  -f FILE       replay FILE\n"
        "  --standby     run as standby\n"
        "  --verbose     say more\n"
        "                and more\n"
        "  --cards LIST  cards\n"
        "  -h, --help    print this text and exit\n"
        "  --version     print the version and exit\n";

    // --help shows all of it.
    const std::string help =
        "usage: prog [--rundir DIR] [-f FILE] [--standby] [--verbose] [--cards LIST]\n"
        "About it.\n" +
        usage.substr(usage.find('\n') + 1) + "More.\n";
    struct Case {
        std::vector<std::string> words;
        int next;  // 0: the parse ends the program
        int status;
        std::string out, err;
    };
    const std::string pre = "prog: ";
    const Case cases[] = {
        {{}, 1, 0, "", ""},
        {{"--rundir", "/r", "-f", "x", "sim", "-f", "y"}, 5, 0, "", ""},
        {{"--standby", "--", "--bogus"}, 3, 0, "", ""},
        {{"--bogus=1"}, 0, 2, "", pre + "unknown option '--bogus'\n" + usage},
        {{"-x"}, 0, 2, "", pre + "unknown option '-x'\n" + usage},
        {{"-f"}, 0, 2, "", pre + "option -f needs a value (FILE)\n" + usage},
        {{"--standby=yes"}, 0, 2, "", pre + "option --standby takes no value\n" + usage},
        {{"--ver"}, 0, 2, "", pre + "option '--ver' is ambiguous: --version, --verbose\n" + usage},
        {{"--cards", "0,1", "--cards", "9"}, 0, 2, "", pre + "bad --cards list '9'\n" + usage},
        {{"-h"}, 0, 0, help, ""},
        {{"--version"}, 0, 0, "prog (vorn) ", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.words.empty() ? "(none)" : c.words[0]);
        std::vector<std::string> words = c.words;
        words.insert(words.begin(), "prog");
        std::vector<char*> argv;
        for (std::string& w : words) argv.push_back(w.data());
        cmdline::Outcome o = cmdline::parse(prog, static_cast<int>(argv.size()), argv.data());
        // Of the output, the start: the version follows "prog (vorn) ".
        EXPECT_EQ(std::tuple(o.run ? o.next : 0, o.status, o.out.substr(0, c.out.size()), o.err),
                  std::tuple(c.next, c.status, c.out, c.err));
    }
    // Not "y" for -f: the command's own "-f y" was left alone.
    EXPECT_EQ(std::tuple(rundir, file, standby, verbose), std::tuple("/r", "x", true, false));
    EXPECT_TRUE(std::regex_match(cmdline::versionLine("prog"),
                                 std::regex(R"(prog \(vorn\) [0-9]+\.[0-9]+\.[0-9]+)")));
}

// (Decimal and hex arguments and a word that is no number are vornctl's shell test's.)
TEST(Cmdline, ShellArgumentsAreSignedThirtyTwoBitWords) {
    shell::registerFunction("sumArgs", [](const std::vector<long>& args) {
        long sum = 0;
        for (long a : args) sum += a;
        std::printf("%ld\n", sum);
    });
    EXPECT_EQ(shell::runLine("sumArgs 10 0x10 -3 010"), "33\n");  // 010 is ten, not octal
    EXPECT_EQ(shell::runLine("sumArgs 0xffffffff -2147483648"), "2147483647\n");
    EXPECT_EQ(shell::runLine("sumArgs 4294967296"),
              "bad argument '4294967296' to sumArgs: out of range -2147483648..4294967295 (a "
              "32-bit word)\n");
    shell::resetForTest();
}

}  // namespace
}  // namespace vorn
