#include "sim/commands.h"

#include <algorithm>
#include <cctype>

namespace vorn::sim {
namespace {

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string join(const std::vector<std::string>& words, size_t from, size_t to) {
    std::string s;
    for (size_t i = from; i < to && i < words.size(); ++i) s += (s.empty() ? "" : " ") + words[i];
    return s;
}

}  // namespace

std::vector<std::string> tokenize(const std::string& line) {
    std::vector<std::string> out;
    std::string cur;
    for (char c : line) {
        if (c == ' ' || c == '\t') {
            if (!cur.empty()) out.push_back(std::move(cur));
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!cur.empty()) out.push_back(std::move(cur));
    return out;
}

bool parseOnOff(const std::string& word, bool* on) {
    std::string w = lower(word);
    if (w != "on" && w != "off") return false;
    *on = w == "on";
    return true;
}

void CommandTable::add(Row row) {
    Entry e{std::move(row), {}};
    e.row.words = lower(e.row.words);
    e.words = tokenize(e.row.words);
    auto same = [&e](const Entry& x) { return x.words == e.words; };
    entries_.erase(std::remove_if(entries_.begin(), entries_.end(), same), entries_.end());
    entries_.push_back(std::move(e));
}

std::string CommandTable::usage(const Entry& e) const {
    return "usage: " + e.row.words + (e.row.synopsis.empty() ? "" : " " + e.row.synopsis);
}

CommandResult CommandTable::run(const std::string& line) const {
    std::vector<std::string> toks = tokenize(line);
    const bool json = !toks.empty() && toks.back() == kJsonWord;
    if (json) toks.pop_back();
    if (toks.empty()) return refused("empty command; 'help' lists the commands");
    std::vector<std::string> keys;
    for (const std::string& t : toks) keys.push_back(lower(t));

    const Entry* best = nullptr;
    for (const Entry& e : entries_) {
        if (e.words.size() > keys.size()) continue;
        if (!std::equal(e.words.begin(), e.words.end(), keys.begin())) continue;
        if (best == nullptr || e.words.size() > best->words.size()) best = &e;
    }
    if (best == nullptr) {
        // A line that starts one or more commands but stops short: list what would go on.
        std::string candidates;
        for (const Entry& e : entries_) {
            if (e.words.size() > keys.size() &&
                std::equal(keys.begin(), keys.end(), e.words.begin()))
                candidates += "\n  " + e.row.words + " " + e.row.synopsis;
        }
        if (!candidates.empty())
            return refused("incomplete command '" + join(toks, 0, toks.size()) +
                           "'; it goes on as:" + candidates);
        return refused("unknown command '" + join(toks, 0, toks.size()) +
                       "'; 'help' lists the commands");
    }
    CommandTable::Args args(toks.begin() + static_cast<long>(best->words.size()), toks.end());
    if (args.size() < best->row.minArgs || args.size() > best->row.maxArgs)
        return refused(usage(*best));
    if (!best->row.show) {
        if (json) return refused("'" + best->row.words + "' is not a show command: no JSON");
        return best->row.fn(args);
    }
    Shown r = best->row.show(args);
    if (!r.ok) return refused(r.error);
    return done(json ? r.json.dump(2) + "\n" : r.text);
}

std::string CommandTable::helpText() const {
    std::vector<std::string> lines;
    size_t width = 0;
    for (const Entry& e : entries_) {
        std::string head = e.row.words + (e.row.synopsis.empty() ? "" : " " + e.row.synopsis) +
                           (e.row.show ? std::string(" [") + kJsonWord + "]" : "");
        width = std::max(width, head.size());
        lines.push_back(head);
    }
    std::string out;
    std::vector<size_t> order(entries_.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(),
              [this](size_t a, size_t b) { return entries_[a].row.words < entries_[b].row.words; });
    for (size_t i : order)
        out +=
            lines[i] + std::string(width + 2 - lines[i].size(), ' ') + entries_[i].row.help + "\n";
    return out;
}

}  // namespace vorn::sim
