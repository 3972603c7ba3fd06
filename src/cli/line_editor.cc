#include "cli/line_editor.h"

#include <readline/history.h>
#include <readline/readline.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

namespace vorn::cli {
namespace {

// The one editor whose callbacks readline calls (readline keeps one state per process).
LineEditor* gEditor = nullptr;
constexpr int kHistoryLines = 500;

}  // namespace

LineEditor::LineEditor(HelpFn help, CompleteFn complete, std::string historyFile)
    : help_(std::move(help)), complete_(std::move(complete)), historyFile_(std::move(historyFile)) {
    if (gEditor != nullptr || isatty(STDIN_FILENO) == 0) return;  // plain lines
    editing_ = true;
    gEditor = this;
    rl_readline_name = "vornctl";
    rl_attempted_completion_function = &LineEditor::onComplete;
    rl_bind_key('?', &LineEditor::onQuestionMark);
    stifle_history(kHistoryLines);
    if (!historyFile_.empty()) read_history(historyFile_.c_str());
}

LineEditor::~LineEditor() {
    if (!editing_) return;
    if (!historyFile_.empty()) write_history(historyFile_.c_str());
    gEditor = nullptr;
}

bool LineEditor::readLine(const std::string& prompt, std::string* line) {
    if (!editing_) {
        std::cout << prompt << std::flush;
        return static_cast<bool>(std::getline(std::cin, *line));
    }
    char* text = readline(prompt.c_str());
    if (text == nullptr) {
        std::cout << "\n";
        return false;
    }
    *line = text;
    if (line->find_first_not_of(" \t") != std::string::npos) add_history(text);
    std::free(text);
    return true;
}

char** LineEditor::onComplete(const char* text, int /*start*/, int end) {
    rl_attempted_completion_over = 1;  // never fall back to file names
    std::string before(rl_line_buffer, static_cast<size_t>(std::max(end, 0)));
    gEditor->matches_ = gEditor->complete_(before);
    return rl_completion_matches(text, &LineEditor::nextMatch);
}

char* LineEditor::nextMatch(const char*, int state) {
    static size_t next = 0;
    if (state == 0) next = 0;
    const std::vector<std::string>& m = gEditor->matches_;
    return next < m.size() ? strdup(m[next++].c_str()) : nullptr;
}

int LineEditor::onQuestionMark(int, int) {
    std::string before(rl_line_buffer, static_cast<size_t>(std::max(rl_point, 0)));
    std::string help = gEditor->help_(before);
    if (help.empty()) {
        rl_insert_text("?");
        return 0;
    }
    std::cout << "?\n" << help << std::flush;
    rl_on_new_line();  // readline shows the prompt and the line again below the help
    return 0;
}

}  // namespace vorn::cli
