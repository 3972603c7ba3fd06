// The interactive shell: a prompt that shows the ring context, '?' help at any point, tab
// completion and history. Errors are reported and the shell goes on.

#include <cstdlib>

#include "cli/commands.h"
#include "cli/line_editor.h"

namespace vorn::cli {
namespace {

// The history file, kept in the operator's home directory.
std::string historyPath() {
    const char* home = std::getenv("HOME");
    return home != nullptr && *home != '\0' ? std::string(home) + "/.vornctl_history" : "";
}

}  // namespace

int Cli::interactive(std::istream& in, bool terminal) {
    if (!terminal) return replay(in, "standard input");
    interactive_ = true;
    LineEditor editor([this](const std::string& before) { return helpText(before); },
                      [this](const std::string& before) { return completions(before); },
                      historyPath());
    out_ << "vornctl on " << client_.rundir()
         << ": '?' lists what may come next, tab completes a word, 'exit' leaves\n";
    std::string line;
    while (!quit_ && editor.readLine(prompt(), &line)) {
        // Without readline, a '?' typed at the end of a line asks for help on what is before it.
        if (!editor.editing() && !line.empty() && line.back() == '?') {
            std::string help = helpText(line.substr(0, line.size() - 1));
            if (!help.empty()) {
                out_ << help;
                continue;
            }
        }
        runLine(line);
    }
    interactive_ = false;
    quit_ = false;
    return kExitOk;
}

}  // namespace vorn::cli
