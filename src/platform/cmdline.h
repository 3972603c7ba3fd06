// The command line of every VORN program (vornd, vornsim, vornctl, vorn-mkfs), read one way:
// a table of options, from which the usage text is made, read by getopt_long. Every program
// gets -h/--help (the usage on the standard output, status 0) and --version (one line
// "PROGRAM (vorn) VERSION", status 0); an unknown option, a missing value or a bad value gives
// one line that says so and the usage on the standard error, status 2.
//
// Reading stops at the first word that is not an option (or after "--"), so that the words
// of a command that follows the options are left as they are: in
// "vornctl sim port Gi 0/1 down" only what comes before "sim" is read.
//
// The parse returns texts and a status instead of printing or exiting, so that a library may
// use it and a test may look at the outcome; finish() prints them.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vorn::cmdline {

inline constexpr int kExitOk = 0;
inline constexpr int kExitUsage = 2;  // the command line is wrong

// Takes one option: its value ("" for an option without one). Returns "" when it is taken, or
// a sentence saying what is wrong with the value ("bad --cards list '13': ...").
using Take = std::function<std::string(const std::string& value)>;

struct Option {
    std::string name;   // long name without the dashes ("rundir"); empty: only a short name
    char letter = 0;    // short name ('f' for -f); 0: none. 'h' belongs to --help
    std::string value;  // what the option takes, as the usage shows it ("DIR"); empty: nothing
    std::string help;   // what it does; '\n' starts a further line under the first
    Take take;
};

struct Program {
    std::string name;  // "vornd": in the usage, in every message and in --version
    std::vector<Option> options;
    // The forms of the usage line, each without the program's name; empty: one form made of
    // the options, all in brackets.
    std::vector<std::string> synopsis;
    std::string about;  // lines between the usage line and the options, in --help only
    // Lines after the options, in --help only; made only when asked (vornctl's command list).
    std::function<std::string()> more;
};

struct Outcome {
    bool run = false;  // true: go on; the operands start at argv[next]
    int next = 0;
    int status = kExitOk;  // when !run: the exit status
    std::string out;       // when !run: for the standard output (the usage or the version)
    std::string err;       // when !run: for the standard error (a message and the usage)
};

// Reads argv[1..] against prog's options. Not reentrant (getopt_long's state is global): call
// it from one thread, at the start of a program or in a test.
Outcome parse(const Program& prog, int argc, char** argv);

// The usage: the usage line and the options; with `full`, also `about` and `more`.
std::string usage(const Program& prog, bool full);
// The outcome of a command line refused after the options were read (an operand the program
// does not take, say): "PROGRAM: why" and the usage, status 2.
Outcome refuse(const Program& prog, const std::string& why);
// "vornd (vorn) 0.9.0"
std::string versionLine(const std::string& program);
// The version of the project, from CMake's project().
const char* version();

// Writes an outcome's texts on the standard output and error; returns its status.
int finish(const Outcome& o);

// Takes for the common kinds of option.
Take store(std::string* to);  // keeps the value
Take set(bool* flag);         // sets *flag

}  // namespace vorn::cmdline
