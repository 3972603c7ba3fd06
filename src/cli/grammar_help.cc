// The grammar's help ('?') and completion (tab): both walk the words typed so far through the
// same tree that parses them, and look at what may follow.

#include <algorithm>
#include <cctype>

#include "cli/grammar.h"
#include "cli/grammar_tree.h"
#include "cli/params.h"
#include "cli/syntax.h"

namespace vorn::cli {
namespace {

bool endsInBlank(std::string_view s) {
    return s.empty() || s.back() == ' ' || s.back() == '\t';
}

// Keywords first, in order, then parameters; "<cr>" always last.
void sortItems(std::vector<HelpItem>& items) {
    auto rank = [](const HelpItem& i) {
        if (i.word == "<cr>") return 2;
        return i.word[0] == '<' || std::isupper(static_cast<unsigned char>(i.word[0])) ? 1 : 0;
    };
    std::stable_sort(items.begin(), items.end(), [&rank](const HelpItem& a, const HelpItem& b) {
        if (rank(a) != rank(b)) return rank(a) < rank(b);
        return rank(a) == 0 && a.word < b.word;
    });
}

}  // namespace

Help Grammar::help(Mode mode, std::string_view before) const {
    Help h;
    std::vector<Word> words = splitWords(before);
    bool newWord = endsInBlank(before) || words.empty();
    size_t count = newWord ? words.size() : words.size() - 1;
    Walked w = walk(mode, words, count, before);
    if (w.freeText) {
        h.freeText = true;
        return h;
    }
    if (w.failed) {
        if (!w.needMore) {
            h.error = w.error;
            return h;
        }
        // Inside an interface name, after its type word.
        const IfType* t = detail::findIfType(words[w.failedAt].text);
        if (t != nullptr && t->lag)
            h.items.push_back({"<1-128>", "the port-channel's number"});
        else
            h.items.push_back({"SLOT/PORT", "slot 0..11 and port 0..63, e.g. 0/1"});
        return h;
    }
    // The children of the node reached, and for a command that enters a ring's context,
    // the commands of that context.
    std::vector<const Node*> next;
    for (const auto& c : w.node->children) next.push_back(c.get());
    if (w.node->row != nullptr && w.node->row->entersRing)
        for (const auto& c : ring_->children) next.push_back(c.get());

    std::string partial = newWord ? "" : lower(words.back().text);
    for (const Node* c : next) {
        if (c->isKeyword && c->keyword.rfind(partial, 0) == 0)
            h.items.push_back({c->keyword, c->help});
        else if (!c->isKeyword && newWord)
            h.items.push_back({paramInfo(c->param).form, c->help});
    }
    if (!newWord && h.items.empty()) {
        // A parameter being typed: free text takes '?' as a character; others show their form.
        for (const Node* c : next) {
            if (c->isKeyword) continue;
            if (takesRestOfLine(c->param)) {
                h.freeText = true;
                return h;
            }
            h.items.push_back({paramInfo(c->param).form, c->help});
        }
    }
    if (newWord && w.node->row != nullptr) h.items.push_back({"<cr>", "run the command"});
    if (h.items.empty()) h.error = "unknown word '" + words.back().text + "'";
    sortItems(h.items);
    return h;
}

std::vector<std::string> Grammar::complete(Mode mode, std::string_view before) const {
    std::vector<Word> words = splitWords(before);
    bool newWord = endsInBlank(before) || words.empty();
    size_t count = newWord ? words.size() : words.size() - 1;
    Walked w = walk(mode, words, count, before);
    std::vector<std::string> out;
    if (w.failed || w.freeText) return out;
    std::string partial = newWord ? "" : lower(words.back().text);
    std::vector<const Node*> next;
    for (const auto& c : w.node->children) next.push_back(c.get());
    if (w.node->row != nullptr && w.node->row->entersRing)
        for (const auto& c : ring_->children) next.push_back(c.get());
    for (const Node* c : next) {
        if (c->isKeyword && c->keyword.rfind(partial, 0) == 0)
            out.push_back(c->keyword);
        else if (!c->isKeyword && c->param == Param::Interface && !partial.empty())
            for (std::string& t : interfaceTypesStartingWith(partial)) out.push_back(std::move(t));
    }
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

}  // namespace vorn::cli
