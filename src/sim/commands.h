// The table of the simulator's control commands.
//
// A row names its fixed words ("card up"), the arguments it takes ("SLOT"), a line of help,
// and the handler. A command line matches the row with the longest run of fixed words at
// its start; the words after them are the arguments. Parts of the simulator add their own
// rows, so new commands need no change here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vorn::sim {

struct CommandResult {
    bool ok = true;
    std::string text;  // the answer, or what was wrong
};

class CommandTable {
public:
    using Args = std::vector<std::string>;
    using Handler = std::function<CommandResult(const Args& args)>;

    struct Row {
        std::string words;     // the fixed words, blank-separated, lower case
        std::string synopsis;  // the arguments, for help and usage: "SLOT", "on|off"
        std::string help;      // one line
        size_t minArgs = 0;
        size_t maxArgs = 0;
        Handler fn;
    };

    // Adds a row; a row with the same words replaces the earlier one.
    void add(Row row);
    // Runs one command line and returns its answer. Unknown and incomplete commands, and
    // wrong numbers of arguments, are answered with a usage message; the handler is not run.
    CommandResult run(const std::string& line) const;
    // Every command with its synopsis and help, one per line, sorted.
    std::string helpText() const;

private:
    struct Entry {
        Row row;
        std::vector<std::string> words;
    };
    std::string usage(const Entry& e) const;
    std::vector<Entry> entries_;
};

// Splits a line at blanks and tabs.
std::vector<std::string> tokenize(const std::string& line);
// "on" or "off" (any case).
bool parseOnOff(const std::string& word, bool* on);
// "done" / failure answers.
inline CommandResult refused(std::string why) {
    return {false, std::move(why)};
}
inline CommandResult done(std::string text) {
    return {true, std::move(text)};
}

}  // namespace vorn::sim
