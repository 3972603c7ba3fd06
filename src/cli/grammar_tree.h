// The inside of the grammar's parse tree, shared by the parser (grammar.cc) and the help and
// completion (grammar_help.cc).
#pragma once

#include <cctype>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/grammar.h"

namespace vorn::cli {

// Keywords are matched without regard to case.
inline std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

// One element of a command: a keyword or a parameter, with the commands that may follow it.
struct Grammar::Node {
    bool isKeyword = true;
    std::string keyword;
    Param param = Param::Line;
    std::string help;
    const Row* row = nullptr;  // a command may end here
    std::vector<std::unique_ptr<Node>> children;
};

// The outcome of matching one word (or run of words) at a node.
struct Grammar::Step {
    const Node* child = nullptr;
    size_t used = 0;
    std::optional<Value> value;
    std::string keyword;
    std::string error;
    bool needMore = false;
};

// How far a line got through the tree.
struct Grammar::Walked {
    const Node* node = nullptr;
    Match match;
    bool failed = false;
    std::string error;
    bool needMore = false;
    bool freeText = false;
    size_t failedAt = 0;
    size_t restAt = std::string_view::npos;
};

}  // namespace vorn::cli
