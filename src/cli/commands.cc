#include "cli/commands.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "platform/cmdline.h"
#include "platform/ipc.h"
#include "wire/simctl.h"

namespace vorn::cli {
namespace {

std::string withNewline(std::string text) {
    if (!text.empty() && text.back() != '\n') text += '\n';
    return text;
}

// Two columns: the words, then the help, aligned. Words too long for the first column get
// their help on the next line.
std::string columns(const std::vector<std::pair<std::string, std::string>>& rows, size_t indent) {
    constexpr size_t kMaxWidth = 30;
    size_t width = 0;
    for (const auto& [left, right] : rows)
        if (left.size() <= kMaxWidth) width = std::max(width, left.size());
    std::string out;
    for (const auto& [left, right] : rows) {
        out += std::string(indent, ' ') + left;
        if (left.size() > width) out += "\n" + std::string(indent + width, ' ');
        out += std::string(width + 2 - std::min(left.size(), width), ' ') + right + "\n";
    }
    return out;
}

Action local(std::function<int()> fn) {
    Action a;
    a.kind = Action::Kind::Local;
    a.local = std::move(fn);
    return a;
}

// vornctl's command line. Its options keep their values in *rundir and *file; `commands`
// makes the list of commands that --help shows after the options.
cmdline::Program vornctlProgram(std::string* rundir, std::string* file, bool* json,
                                std::function<std::string()> commands) {
    cmdline::Program prog;
    prog.name = "vornctl";
    prog.synopsis = {
        "[--rundir DIR] COMMAND...   run one command",
        "[--rundir DIR] -f FILE      replay a file of commands ('-': standard input)",
        "[--rundir DIR]              the interactive shell",
    };
    prog.options = {
        {"rundir", 0, "DIR", "run directory of the chassis (default " + host::defaultRunDir() + ")",
         cmdline::store(rundir)},
        {"", 'f', "FILE", "replay FILE, a file of commands ('-': standard input)",
         cmdline::store(file)},
        {"json", 0, "", "show commands print one JSON document (README.md names its fields)",
         cmdline::set(json)},
    };
    prog.more = std::move(commands);
    return prog;
}

}  // namespace

Cli::Cli(std::string rundir, std::ostream& out, std::ostream& err, int timeoutMs)
    : out_(out), err_(err), client_(std::move(rundir), timeoutMs) {
    addExecRows();
    addRingRows();
    addShowRows();
}

void Cli::addExecRows() {
    grammar_.describe("show", "show the rings, the ring debugging or the running configuration");
    grammar_.describe("write", "save the running configuration");
    grammar_.add(Mode::Exec, "show running-config",
                 "print the ring configuration the manager runs with",
                 [this](const Match&, const Context&) {
                     return local([this] { return showRunningConfig(); });
                 });
    grammar_.add(
        Mode::Exec, "write memory", "save the running configuration as the startup configuration",
        [this](const Match&, const Context&) { return local([this] { return writeMemory(); }); });
    grammar_.add(
        Mode::Exec, "shell LINE",
        "run a diagnostic function of the manager (e.g. qelIpcStats, qelMemShow)",
        [this](const Match& m, const Context&) {
            std::string line = m.value(Param::Line)->text;
            return local([this, line] { return shellCommand(line); });
        },
        false, "shell FUNCTION [ARG...]");
    grammar_.add(
        Mode::Exec, "sim LINE", "send a command to the simulator ('sim help' lists them)",
        [this](const Match& m, const Context&) {
            std::string line = m.value(Param::Line)->text;
            return local([this, line] { return simCommand(line); });
        },
        false, "sim COMMAND...");
    grammar_.add(Mode::Exec, "help", "list the commands", [this](const Match&, const Context&) {
        return local([this] { return helpCommand(); });
    });
    grammar_.add(Mode::Exec, "exit", "leave the ring's context; at the top, leave the shell",
                 [](const Match&, const Context&) {
                     Action a;
                     a.kind = Action::Kind::Exit;
                     return a;
                 });
    grammar_.add(Mode::Exec, "end", "leave the ring's context", [](const Match&, const Context&) {
        Action a;
        a.kind = Action::Kind::End;
        return a;
    });
}

std::string Cli::usage() const {
    std::string unused;
    bool unusedFlag = false;
    return cmdline::usage(
        vornctlProgram(&unused, &unused, &unusedFlag, [this] { return commandList(); }), true);
}

std::string Cli::commandList() const {
    std::string s = "commands:\n";
    std::vector<std::pair<std::string, std::string>> exec, ring;
    for (const Row* r : grammar_.rows(Mode::Ring))
        (r->mode == Mode::Exec ? exec : ring).emplace_back(Grammar::display(*r), r->help);
    s += columns(exec, 2);
    s += "commands of a ring's context, entered with 'protocol vorn <1-255>' (or given after it\n"
         "on the same line):\n";
    s += columns(ring, 2);
    return s;
}

std::string Cli::prompt() const {
    if (ctx_.mode == Mode::Ring) return "vornctl(vorn-" + std::to_string(ctx_.ring) + ")# ";
    return "vornctl# ";
}

std::string Cli::helpText(std::string_view before) const {
    Help h = grammar_.help(ctx_.mode, before);
    if (h.freeText) return "";
    if (!h.error.empty()) return "% " + h.error + "\n";
    std::vector<std::pair<std::string, std::string>> rows;
    for (const HelpItem& i : h.items) rows.emplace_back(i.word, i.help);
    return columns(rows, 2);
}

std::vector<std::string> Cli::completions(std::string_view before) const {
    return grammar_.complete(ctx_.mode, before);
}

int Cli::report(const Answer& a) {
    if (a.ok) {
        out_ << withNewline(a.text);
        return kExitOk;
    }
    // A peer's refusal is its own text; a local failure is said as an error.
    err_ << (a.answered ? "" : "% Error: ") << withNewline(a.text);
    return kExitFailed;
}

bool Cli::peerThere(int service, int instance, const std::string& missing) {
    if (!client_.dirProblem().empty()) {
        err_ << "% Error: " << client_.dirProblem() << "\n";
        return false;
    }
    if (client_.peerRunning(service, instance)) return true;
    err_ << "% Error: " << missing << "\n";
    return false;
}

int Cli::shellCommand(const std::string& line) {
    if (!peerThere(ipc::kSvcManager, 0, "no manager is running in " + client_.rundir()))
        return kExitFailed;
    return report(client_.shell(line));
}

int Cli::simCommand(const std::string& line) {
    const std::string& dir = client_.rundir();
    if (!peerThere(simctl::kService, simctl::kInstance,
                   "no simulator is running in " + dir + " (start one with: vornsim --rundir " +
                       dir + ")"))
        return kExitFailed;
    // A show of the simulator answers in JSON when asked with --json.
    bool show = line.compare(0, 5, "show ") == 0 || line == "show";
    Answer a = client_.sim(json_ && show ? line + " --json" : line);
    if (a.answered && !a.ok) a.text = "% Error: " + a.text;
    return report(a);
}

int Cli::helpCommand() {
    out_ << usage();
    return kExitOk;
}

int vornctlMain(int argc, char** argv, std::istream& in, std::ostream& out, std::ostream& err) {
    std::string rundir = host::defaultRunDir();
    std::string file;
    bool json = false;
    // The list of commands for --help comes from a shell of its own, made only then.
    cmdline::Outcome parsed = cmdline::parse(
        vornctlProgram(&rundir, &file, &json, [&] { return Cli("", out, err).commandList(); }),
        argc, argv);
    if (!parsed.run) {
        out << parsed.out;
        err << parsed.err;
        return parsed.status;
    }
    Cli cli(rundir, out, err);
    cli.setJson(json);
    // The words after the options are the command's own, whatever they look like.
    std::vector<std::string> words(argv + parsed.next, argv + argc);
    // "show" may be abbreviated as any keyword ("sho vorn ring").
    auto showWord = [](const std::string& w) {
        return w.size() >= 3 && std::string_view("show").substr(0, w.size()) == w;
    };
    const bool isShow =
        !words.empty() &&
        (showWord(words[0]) || (words[0] == "sim" && words.size() > 1 && words[1] == "show"));
    if (json && !words.empty() && !isShow) {
        std::string line;
        for (const std::string& w : words) line += (line.empty() ? "" : " ") + w;
        err << "% Error: --json is for show commands ('show ...', 'sim show ...'), not '" << line
            << "'\n";
        return kExitUsage;
    }
    if (!file.empty()) {
        if (!words.empty()) {
            err << "% Error: -f FILE takes no command after it ('" << words[0] << "')\n";
            return kExitUsage;
        }
        return file == "-" ? cli.replay(in, "standard input") : cli.replay(file);
    }
    if (words.empty()) return cli.interactive(in, &in == &std::cin && isatty(STDIN_FILENO) != 0);
    return cli.run(words);
}

}  // namespace vorn::cli
