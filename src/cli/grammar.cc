#include "cli/grammar.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "cli/grammar_tree.h"
#include "cli/params.h"

namespace vorn::cli {

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// The elements of one syntax word; several for a choice "a|b".
struct Elem {
    bool isKeyword = true;
    std::string keyword;
    Param param = Param::Line;
};

std::vector<std::vector<Elem>> expand(const std::string& syntax) {
    std::vector<std::vector<Elem>> variants(1);
    const std::vector<Word> items = splitWords(syntax);
    for (size_t at = 0; at < items.size(); ++at) {
        std::string_view text = items[at].text;
        // "[count COUNT]": words that may be left out together.
        if (text.size() > 1 && text.front() == '[' && text.back() != ']') {
            size_t end = at + 1;
            while (end < items.size() && items[end].text.back() != ']') ++end;
            if (end == items.size()) throw std::logic_error("unclosed '[' in '" + syntax + "'");
            std::string group(
                syntax.substr(items[at].begin + 1, items[end].end - 1 - items[at].begin - 1));
            std::vector<std::vector<Elem>> next = variants;
            for (const auto& v : variants)
                for (const auto& tail : expand(group)) {
                    next.push_back(v);
                    next.back().insert(next.back().end(), tail.begin(), tail.end());
                }
            variants = std::move(next);
            at = end;
            continue;
        }
        bool optional = text.size() > 2 && text.front() == '[' && text.back() == ']';
        if (optional) text = text.substr(1, text.size() - 2);
        std::vector<Elem> alternatives;
        for (size_t pos = 0; pos <= text.size();) {
            size_t bar = std::min(text.find('|', pos), text.size());
            std::string_view alt = text.substr(pos, bar - pos);
            pos = bar + 1;
            Elem e;
            if (const ParamInfo* p = findParam(alt)) {
                e.isKeyword = false;
                e.param = p->param;
            } else if (!alt.empty() && lower(alt) == alt) {
                e.keyword = std::string(alt);
            } else {
                throw std::logic_error("bad word '" + std::string(alt) + "' in '" + syntax + "'");
            }
            alternatives.push_back(e);
        }
        std::vector<std::vector<Elem>> next;
        for (const auto& v : variants) {
            if (!v.empty() && !v.back().isKeyword && takesRestOfLine(v.back().param))
                throw std::logic_error("words after the rest of the line in '" + syntax + "'");
            if (optional) next.push_back(v);
            for (const Elem& e : alternatives) {
                next.push_back(v);
                next.back().push_back(e);
            }
        }
        variants = std::move(next);
    }
    return variants;
}

}  // namespace

// The rows that end at or below a node, each once, in the order of the tree.
void Grammar::collectRows(const Node& node, std::vector<const Row*>* out) {
    if (node.row != nullptr && std::find(out->begin(), out->end(), node.row) == out->end())
        out->push_back(node.row);
    for (const auto& c : node.children) collectRows(*c, out);
}

std::vector<Word> splitWords(std::string_view line) {
    std::vector<Word> words;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && isSpace(line[i])) ++i;
        size_t begin = i;
        while (i < line.size() && !isSpace(line[i])) ++i;
        if (i > begin) words.push_back({std::string(line.substr(begin, i - begin)), begin, i});
    }
    return words;
}

bool Match::has(std::string_view keyword) const {
    return std::find(keywords.begin(), keywords.end(), keyword) != keywords.end();
}

const Value* Match::value(Param param, size_t nth) const {
    for (const Value& v : values)
        if (v.param == param && nth-- == 0) return &v;
    return nullptr;
}

Grammar::Grammar() : exec_(std::make_unique<Node>()), ring_(std::make_unique<Node>()) {}
Grammar::~Grammar() = default;

void Grammar::describe(const std::string& keyword, const std::string& help) {
    described_.emplace_back(keyword, help);
}

void Grammar::add(Row row) {
    rows_.push_back(std::make_unique<Row>(std::move(row)));
    const Row& r = *rows_.back();
    if (r.mode == Mode::Exec) insert(*exec_, r);
    insert(*ring_, r);
}

void Grammar::insert(Node& root, const Row& row) {
    for (const std::vector<Elem>& variant : expand(row.syntax)) {
        Node* node = &root;
        for (const Elem& e : variant) {
            auto same = [&e](const std::unique_ptr<Node>& c) {
                return c->isKeyword == e.isKeyword &&
                       (e.isKeyword ? c->keyword == e.keyword : c->param == e.param);
            };
            auto it = std::find_if(node->children.begin(), node->children.end(), same);
            if (it == node->children.end()) {
                auto child = std::make_unique<Node>();
                child->isKeyword = e.isKeyword;
                child->keyword = e.keyword;
                child->param = e.param;
                child->help =
                    e.isKeyword || e.param == Param::Line ? row.help : paramInfo(e.param).help;
                for (const auto& [word, help] : described_)
                    if (e.isKeyword && word == e.keyword) child->help = help;
                node->children.push_back(std::move(child));
                it = node->children.end() - 1;
            }
            node = it->get();
        }
        if (node->row != nullptr && node->row != &row)
            throw std::logic_error("'" + row.syntax + "' has the same words as '" +
                                   node->row->syntax + "'");
        node->row = &row;
    }
}

const Grammar::Node& Grammar::root(Mode mode) const {
    return mode == Mode::Exec ? *exec_ : *ring_;
}

std::vector<const Row*> Grammar::rows(Mode mode) const {
    std::vector<const Row*> out;
    for (Mode m : {Mode::Ring, Mode::Exec})
        for (const auto& r : rows_)
            if (r->mode == m && (m == Mode::Exec || mode == Mode::Ring)) out.push_back(r.get());
    return out;
}

std::string Grammar::display(const Row& row) {
    if (!row.shows.empty()) return row.shows;
    std::string out;
    for (const Word& item : splitWords(row.syntax)) {
        std::string text = item.text;
        for (size_t pos = 0; pos < text.size();) {
            size_t end = pos;
            while (end < text.size() && (std::isupper(static_cast<unsigned char>(text[end]))))
                ++end;
            const ParamInfo* p = end > pos ? findParam(text.substr(pos, end - pos)) : nullptr;
            if (p != nullptr) {
                text.replace(pos, end - pos, p->form);
                pos += std::string_view(p->form).size();
            } else {
                pos = end == pos ? pos + 1 : end;
            }
        }
        out += (out.empty() ? "" : " ") + text;
    }
    return out;
}

}  // namespace vorn::cli
