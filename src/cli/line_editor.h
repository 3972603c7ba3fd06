// The shell's line input. On a terminal it uses GNU readline (editing keys, history kept in
// a file between sessions, tab completion, and '?' bound to help); when the input is not a
// terminal (a script piping commands in) it reads plain lines.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vorn::cli {

class LineEditor {
public:
    // The help for the line up to the cursor; empty when '?' is to be taken as a character.
    using HelpFn = std::function<std::string(const std::string& before)>;
    // The words that complete the last word of the line up to the cursor.
    using CompleteFn = std::function<std::vector<std::string>(const std::string& before)>;

    // historyFile: where the history is read from and written back to ("" for none).
    LineEditor(HelpFn help, CompleteFn complete, std::string historyFile);
    // Writes the history back.
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    // Reads one line after showing `prompt`. False at the end of the input (Ctrl-D).
    bool readLine(const std::string& prompt, std::string* line);
    // True when readline is in use. Without it, '?' works only at the end of a line, which
    // the caller then answers with help instead of running it.
    bool editing() const { return editing_; }

private:
    static char** onComplete(const char* text, int start, int end);
    static char* nextMatch(const char* text, int state);
    static int onQuestionMark(int count, int key);

    HelpFn help_;
    CompleteFn complete_;
    std::string historyFile_;
    bool editing_ = false;
    std::vector<std::string> matches_;
};

}  // namespace vorn::cli
