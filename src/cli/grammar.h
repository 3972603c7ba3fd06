// The command line's grammar: a table of rows, each a syntax string, a line of help and a
// builder, compiled into one parse tree per context. The same tree parses a line, lists what
// may come next ('?') and completes a word (tab), so the three can never disagree.
//
// Syntax strings are words separated by blanks:
//   keyword          a fixed word, lower case; any unambiguous prefix is accepted
//   a|b              one of several keywords
//   [X]              X may be left out; [X Y] the words X Y together
//   RING VLAN VLANS IF HELLO DEAD TEXT LINE COUNT
//                    parameters (see Param); TEXT and LINE take the rest of the line
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/request.h"
#include "cli/vlan_list.h"

namespace vorn::cli {

// Where the operator is: at the top, or inside one ring's context.
enum class Mode { Exec, Ring };

struct Context {
    Mode mode = Mode::Exec;
    uint16_t ring = 0;  // the ring of the context (Mode::Ring)
    bool operator==(const Context&) const = default;
};

enum class Param {
    RingId,       // RING: 1..255
    Vlan,         // VLAN: 1..4095
    VlanList,     // VLANS: "20-30,40"
    Interface,    // IF: "GigabitEthernet 0/1", "gi0/1", "po5" (one or two words)
    Hello,        // HELLO: 50..2000 ms
    Dead,         // DEAD: 50..6000 ms
    Description,  // TEXT: the rest of the line, at most 255 characters
    Line,         // LINE: the rest of the line, as typed
    Count,        // COUNT: 1..4294967295
};

// One word of a line and where it stands.
struct Word {
    std::string text;
    size_t begin = 0;
    size_t end = 0;
};
std::vector<Word> splitWords(std::string_view line);

// A parameter as matched.
struct Value {
    Param param = Param::Line;
    uint32_t number = 0;  // numbers, VLAN ids and ifIndexes
    std::string text;     // TEXT and LINE
    VlanBitmap vlans{};   // VLANS
};

// A line matched against a row: the keywords (in full, lower case) and the parameters.
struct Match {
    std::vector<std::string> keywords;
    std::vector<Value> values;
    bool has(std::string_view keyword) const;
    // The nth parameter of a kind, or null.
    const Value* value(Param param, size_t nth = 0) const;
};

// What a command does once its line has been parsed and checked.
struct Action {
    enum class Kind {
        Config,  // send `request` to the manager
        Local,   // run `local` in vornctl
        Exit,    // leave the ring's context; at the top, leave the shell
        End,     // leave the ring's context
    };
    Kind kind = Kind::Local;
    nm::ConfigRequest request;
    std::function<int()> local;
    std::optional<Context> next;  // the context after a successful Config
};

using Builder = std::function<Action(const Match&, const Context&)>;

struct Row {
    Mode mode = Mode::Exec;  // Exec rows can be given in a ring's context too
    std::string syntax;
    std::string help;
    Builder build;
    // A ring command may follow on the same line ("protocol vorn 5 mode master").
    bool entersRing = false;
    // How the command list shows the row, when its syntax says too little
    // ("shell FUNCTION [ARG...]" for "shell LINE"); empty: the syntax itself.
    std::string shows;
};

struct Parsed {
    bool ok = false;
    std::string error;  // what is wrong, naming the word
    const Row* row = nullptr;
    Match match;
    size_t restAt = std::string_view::npos;  // entersRing: where the ring command starts
};

struct HelpItem {
    std::string word;  // keyword, or the parameter's form ("<1-255>"), or "<cr>"
    std::string help;
};

struct Help {
    std::vector<HelpItem> items;
    std::string error;      // the line so far does not parse
    bool freeText = false;  // the cursor is inside free text, where '?' is a plain character
};

class Grammar {
public:
    Grammar();
    ~Grammar();
    Grammar(const Grammar&) = delete;
    Grammar& operator=(const Grammar&) = delete;

    // Help for a keyword wherever it appears; without it, a keyword is described by the
    // help of the first row that uses it.
    void describe(const std::string& keyword, const std::string& help);
    // Adds a row. A malformed syntax string, or two rows with the same words, is a mistake
    // of the program: std::logic_error.
    void add(Row row);
    void add(Mode mode, std::string syntax, std::string help, Builder build,
             bool entersRing = false, std::string shows = "") {
        add(Row{mode, std::move(syntax), std::move(help), std::move(build), entersRing,
                std::move(shows)});
    }

    Parsed parse(Mode mode, std::string_view line) const;
    // What may follow `before` (the line up to the cursor).
    Help help(Mode mode, std::string_view before) const;
    // The keywords that complete the last word of `before` (empty: a new word starts).
    std::vector<std::string> complete(Mode mode, std::string_view before) const;
    // The rows usable in a mode, in the order they were added.
    std::vector<const Row*> rows(Mode mode) const;
    // A row's syntax with parameters in their display form: "protocol vorn <1-255>".
    static std::string display(const Row& row);

private:
    struct Node;
    struct Step;
    struct Walked;
    const Node& root(Mode mode) const;
    Step step(const Node& node, const std::vector<Word>& words, size_t at,
              std::string_view line) const;
    Walked walk(Mode mode, const std::vector<Word>& words, size_t count,
                std::string_view line) const;
    void insert(Node& root, const Row& row);
    static void collectRows(const Node& node, std::vector<const Row*>* out);

    std::unique_ptr<Node> exec_;
    std::unique_ptr<Node> ring_;
    std::vector<std::unique_ptr<Row>> rows_;
    std::vector<std::pair<std::string, std::string>> described_;
};

}  // namespace vorn::cli
