// vornctl's commands. Every command is a row of one grammar (grammar.h): the configuration
// commands of a ring, the running configuration, the debug shell and the simulator's control;
// show, debug and clear commands are added as further rows. One command given on the command
// line, a line typed in the shell and a line of a replayed file all take the same path:
// parsed and checked whole first, then sent.
#pragma once

#include <cstddef>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "cli/client.h"
#include "cli/grammar.h"
#include "cli/rings.h"

namespace vorn::cli {

// Exit statuses of vornctl.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;  // the peer is missing, did not answer, or refused
inline constexpr int kExitUsage = 2;   // the command itself is wrong

class Cli {
public:
    Cli(std::string rundir, std::ostream& out, std::ostream& err, int timeoutMs = 5000);

    // Runs one command given as its words (one-shot use). A ring command is given after
    // the ring: "protocol vorn 5 mode master".
    int run(const std::vector<std::string>& words);
    // Runs one line in the current context, which it may change. Blank lines and comments
    // ('!') do nothing.
    int runLine(std::string_view line);
    // Replays a file of commands ("-" is the standard input): every line is parsed first,
    // and nothing is sent when one is wrong; then the lines are sent in order, and the first
    // one the manager refuses or does not answer stops the replay. Both report the line.
    int replay(const std::string& path);
    int replay(std::istream& in, const std::string& name);
    // The interactive shell on a terminal (history, '?' help, tab completion); from
    // anything else, the input is replayed as a file.
    int interactive(std::istream& in, bool terminal);

    // Show commands print one JSON document instead of the operator's text.
    void setJson(bool on) { json_ = on; }

    const Context& context() const { return ctx_; }
    // "vornctl# " at the top, "vornctl(vorn-5)# " in ring 5's context.
    std::string prompt() const;
    // What may follow `before` in the current context, as the lines '?' prints; empty
    // when the cursor is in free text, where '?' is a plain character.
    std::string helpText(std::string_view before) const;
    // The words that complete the last word of `before`.
    std::vector<std::string> completions(std::string_view before) const;
    const Grammar& grammar() const { return grammar_; }
    // vornctl's usage: its command line, then every command (what --help and 'help' print).
    std::string usage() const;
    // The commands of both contexts with their help, under a heading.
    std::string commandList() const;

private:
    // One parsed line: what to do, in order (a line that enters a ring and goes on gives two).
    using Actions = std::vector<Action>;
    // Parses a line in context *ctx and moves *ctx as the line would. False, with the reason
    // in *error, when the line is wrong; nothing is then to be done.
    bool compile(std::string_view line, Context* ctx, Actions* out, std::string* error) const;
    int execute(const Actions& actions);
    int configure(const nm::ConfigRequest& req);

    void addExecRows();
    void addRingRows();
    void addShowRows();  // show_rows.cc: show, debug and clear of the rings
    int showRunningConfig();
    // Reads DIR/<name>, a file of the manager's configuration store ("running-config",
    // "debug-config", named `noun` in messages), after asking a running manager to write what
    // it holds. False, with the reason in *err, when it cannot be read.
    bool readStoreFile(const std::string& name, const std::string& noun, std::string* text,
                       std::string* err);
    // Prints a JSON document (show commands under --json).
    int printJson(const Json& doc);
    // show vorn ring [RING] [summary]: ring 0 is every ring.
    int showRings(uint32_t ring, bool summary);
    int showDebugging();
    int debugRing(uint32_t ring, bool off, int index, uint32_t count);
    int undebugAll();
    int clearCounters(uint16_t ring);
    // The pages of a show from `paging` on, until the manager says nothing more follows;
    // each page goes to `take`, which may stop the walk (false). False, with the reason
    // said, when the manager did not answer.
    bool walkPages(uint32_t code, Paging paging, const std::function<bool(const ShowPage&)>& take);
    // The summary lines of one ring (ring != 0) or of every ring.
    bool summaries(uint32_t ring, std::vector<RingSummary>* out);
    // One ring's detail with its member VLANs; false when the ring does not exist (`missing`
    // set) or the manager did not answer.
    bool detail(uint32_t ring, RingDetail* out, bool* missing);
    int writeMemory();
    int shellCommand(const std::string& line);
    int simCommand(const std::string& line);
    int helpCommand();
    // True when the run directory is usable and service.instance runs there; otherwise
    // says what is wrong (`missing` when the peer is not there).
    bool peerThere(int service, int instance, const std::string& missing);
    // Prints a peer's answer: its text on the output, or "% Error: ..." on the error stream.
    int report(const Answer& a);

    std::ostream& out_;
    std::ostream& err_;
    Client client_;
    Grammar grammar_;
    Context ctx_;
    bool interactive_ = false;
    bool json_ = false;
    bool quit_ = false;
};

// Reads the options (--rundir DIR, -f FILE, --help, --version) up to the first word that is
// not one, and runs the command made of the words from there, the file, or the shell.
int vornctlMain(int argc, char** argv, std::istream& in, std::ostream& out, std::ostream& err);

}  // namespace vorn::cli
