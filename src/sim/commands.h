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

#include <nlohmann/json.hpp>

namespace vorn::sim {

// The JSON documents of the show commands (with --json).
using Json = nlohmann::ordered_json;

struct CommandResult {
    bool ok = true;
    std::string text;  // the answer, or what was wrong
};

// What a show command found: its text for the operator and the same facts as JSON, or why
// it could not look.
struct Shown {
    bool ok = true;
    std::string error;
    std::string text;
    Json json;
};
inline Shown shown(std::string text, Json json) {
    return {true, "", std::move(text), std::move(json)};
}
inline Shown notShown(std::string why) {
    return {false, std::move(why), "", Json()};
}

class CommandTable {
public:
    using Args = std::vector<std::string>;
    using Handler = std::function<CommandResult(const Args& args)>;
    using ShowHandler = std::function<Shown(const Args& args)>;
    // The word after a show command that asks for its JSON document.
    static constexpr const char* kJsonWord = "--json";

    struct Row {
        std::string words;     // the fixed words, blank-separated, lower case
        std::string synopsis;  // the arguments, for help and usage: "SLOT", "on|off"
        std::string help;      // one line
        size_t minArgs = 0;
        size_t maxArgs = 0;
        Handler fn;                  // a command
        ShowHandler show = nullptr;  // or a show: text, or JSON when the line ends in --json
    };

    // Adds a row; a row with the same words replaces the earlier one.
    void add(Row row);
    // Runs one command line and returns its answer. Unknown and incomplete commands, and
    // wrong numbers of arguments, are answered with a usage message; the handler is not run.
    // A line that ends in --json is answered with the show command's JSON document (a
    // command that is not a show is refused).
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
