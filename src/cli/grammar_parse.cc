// The grammar's parser: a line's words walked through the tree of its context, one step per
// keyword or parameter, with the first word that does not fit named in the refusal.

#include <algorithm>
#include <cctype>

#include "cli/grammar.h"
#include "cli/grammar_tree.h"
#include "cli/params.h"

namespace vorn::cli {
namespace {

bool startsWith(std::string_view s, std::string_view prefix) {
    return s.substr(0, prefix.size()) == prefix;
}

std::string formOf(bool isKeyword, const std::string& keyword, Param param) {
    return isKeyword ? keyword : paramInfo(param).form;
}

// How many commands an "incomplete command" message lists in full.
constexpr size_t kMaxUsageRows = 4;

}  // namespace

Grammar::Step Grammar::step(const Node& node, const std::vector<Word>& words, size_t at,
                            std::string_view line) const {
    Step s;
    const std::string& text = words[at].text;
    std::string w = lower(text);
    auto takeKeyword = [&s](const Node* c) {
        s.child = c;
        s.used = 1;
        s.keyword = c->keyword;
        return s;
    };
    for (const auto& c : node.children)
        if (c->isKeyword && c->keyword == w) return takeKeyword(c.get());
    std::string paramError;
    bool needMore = false;
    for (const auto& c : node.children) {
        if (c->isKeyword) continue;
        ParamResult r = parseParam(c->param, words, at, line);
        if (r.ok) {
            s.child = c.get();
            s.used = r.used;
            s.value = std::move(r.value);
            return s;
        }
        if (paramError.empty()) {
            paramError = r.error;
            needMore = r.needMore;
        }
    }
    std::vector<const Node*> partial;
    for (const auto& c : node.children)
        if (c->isKeyword && startsWith(c->keyword, w)) partial.push_back(c.get());
    if (partial.size() == 1) return takeKeyword(partial[0]);
    if (partial.size() > 1) {
        s.error = "ambiguous word '" + text + "': it may be";
        for (size_t i = 0; i < partial.size(); ++i)
            s.error += (i == 0                    ? " "
                        : i + 1 == partial.size() ? " or "
                                                  : ", ") +
                       partial[i]->keyword;
        return s;
    }
    if (!paramError.empty()) {
        s.error = paramError;
        s.needMore = needMore;
        return s;
    }
    if (node.children.empty()) {
        s.error = "unexpected word '" + text + "' after the end of the command";
        return s;
    }
    s.error = "unknown word '" + text + "'; expected";
    for (size_t i = 0; i < node.children.size(); ++i) {
        const Node& c = *node.children[i];
        s.error += (i == 0                          ? " "
                    : i + 1 == node.children.size() ? " or "
                                                    : ", ") +
                   formOf(c.isKeyword, c.keyword, c.param);
    }
    return s;
}

Grammar::Walked Grammar::walk(Mode mode, const std::vector<Word>& words, size_t count,
                              std::string_view line) const {
    Walked w;
    w.node = &root(mode);
    std::vector<Word> seen(words.begin(), words.begin() + static_cast<long>(count));
    size_t i = 0;
    while (i < seen.size()) {
        Step s = step(*w.node, seen, i, line);
        if (s.child == nullptr && w.node->row != nullptr && w.node->row->entersRing) {
            // The rest is a command of the ring's context.
            w.restAt = seen[i].begin;
            w.node = ring_.get();
            w.match = {};
            s = step(*w.node, seen, i, line);
        }
        if (s.child == nullptr) {
            w.failed = true;
            w.error = s.error;
            w.needMore = s.needMore;
            w.failedAt = i;
            return w;
        }
        if (s.value.has_value())
            w.match.values.push_back(std::move(*s.value));
        else
            w.match.keywords.push_back(s.keyword);
        w.freeText = !s.child->isKeyword && takesRestOfLine(s.child->param);
        w.node = s.child;
        i += s.used;
    }
    return w;
}

Parsed Grammar::parse(Mode mode, std::string_view line) const {
    Parsed p;
    std::vector<Word> words = splitWords(line);
    if (words.empty()) {
        p.error = "empty command";
        return p;
    }
    // A line that enters a ring's context and goes on is cut where the ring command starts:
    // the caller parses that part in the ring's context.
    const Node* node = &root(mode);
    Match match;
    size_t i = 0;
    while (i < words.size()) {
        Step s = step(*node, words, i, line);
        if (s.child == nullptr && node->row != nullptr && node->row->entersRing) {
            p.ok = true;
            p.row = node->row;
            p.match = std::move(match);
            p.restAt = words[i].begin;
            return p;
        }
        if (s.child == nullptr) {
            p.error = s.error;
            if (mode == Mode::Exec && parse(Mode::Ring, line).ok)
                p.error =
                    "'" +
                    std::string(line.substr(words[0].begin, words.back().end - words[0].begin)) +
                    "' is a command of a ring's context: enter one first with "
                    "'protocol vorn <1-255>'";
            return p;
        }
        if (s.value.has_value())
            match.values.push_back(std::move(*s.value));
        else
            match.keywords.push_back(s.keyword);
        node = s.child;
        i += s.used;
    }
    if (node->row == nullptr) {
        // Up to a few commands: show them whole; more: the words that may come next.
        std::vector<const Row*> rows;
        collectRows(*node, &rows);
        if (rows.size() <= kMaxUsageRows) {
            p.error = "incomplete command; usage:";
            for (size_t k = 0; k < rows.size(); ++k)
                p.error += (k == 0 ? " " : " | ") + display(*rows[k]);
            return p;
        }
        p.error = "incomplete command; it goes on with";
        for (size_t k = 0; k < node->children.size(); ++k) {
            const Node& c = *node->children[k];
            p.error += (k == 0                           ? " "
                        : k + 1 == node->children.size() ? " or "
                                                         : ", ") +
                       formOf(c.isKeyword, c.keyword, c.param);
        }
        return p;
    }
    p.ok = true;
    p.row = node->row;
    p.match = std::move(match);
    return p;
}

}  // namespace vorn::cli
