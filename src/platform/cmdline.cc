#include "platform/cmdline.h"

#include <getopt.h>

#include <algorithm>
#include <cstdio>

#ifndef VORN_VERSION
#error "VORN_VERSION comes from project() through src/platform/CMakeLists.txt"
#endif

namespace vorn::cmdline {
namespace {

// getopt_long's code of an option without a letter: kLongOnly + its index in the table. The
// --version option takes the code after the last one.
constexpr int kLongOnly = 256;
constexpr size_t kWidth = 80;    // the usage line is wrapped before this column
constexpr size_t kMaxLeft = 22;  // a longer option column puts its help on the next line
const Option kHelp{"help", 'h', "", "print this text and exit", {}};
const Option kVersion{"version", 0, "", "print the version and exit", {}};

// "--rundir DIR", "-f FILE", "-h, --help"
std::string optionColumn(const Option& o) {
    std::string s;
    if (o.letter != 0) s = std::string("-") + o.letter + (o.name.empty() ? "" : ", ");
    if (!o.name.empty()) s += "--" + o.name;
    if (!o.value.empty()) s += " " + o.value;
    return s;
}

// "[--rundir DIR]" for the usage line made from the options.
std::string bracketed(const Option& o) {
    std::string s = o.name.empty() ? std::string("-") + o.letter : "--" + o.name;
    return "[" + s + (o.value.empty() ? "" : " " + o.value) + "]";
}

std::string usageLines(const Program& prog) {
    const std::string head = "usage: " + prog.name + " ";
    const std::string indent(head.size(), ' ');
    std::string s;
    if (!prog.synopsis.empty()) {
        for (size_t i = 0; i < prog.synopsis.size(); ++i)
            s += (i == 0 ? "usage: " : "       ") + prog.name + " " + prog.synopsis[i] + "\n";
        return s;
    }
    std::string line = head;
    bool first = true;
    for (const Option& o : prog.options) {
        std::string item = bracketed(o);
        if (!first && line.size() + 1 + item.size() > kWidth) {
            s += line + "\n";
            line = indent + item;
        } else {
            line += (first ? "" : " ") + item;
        }
        first = false;
    }
    return s + line + "\n";
}

std::string optionLines(const Program& prog) {
    std::vector<const Option*> all;
    for (const Option& o : prog.options) all.push_back(&o);
    all.push_back(&kHelp);
    all.push_back(&kVersion);
    size_t width = 0;
    for (const Option* o : all) {
        size_t w = optionColumn(*o).size();
        if (w <= kMaxLeft) width = std::max(width, w);
    }
    const std::string under(2 + width + 2, ' ');
    std::string s;
    for (const Option* o : all) {
        std::string left = "  " + optionColumn(*o);
        s += left;
        if (left.size() > 2 + width)
            s += "\n" + under;
        else
            s += std::string(2 + width + 2 - left.size(), ' ');
        for (char c : o->help) s += c == '\n' ? "\n" + under : std::string(1, c);
        s += "\n";
    }
    return s;
}

// How the option was written on the command line: its long form when the word starts with
// "--", else its letter.
std::string spelled(const Option& o, const char* word) {
    bool asLong = !o.name.empty() && (o.letter == 0 || std::string(word).rfind("--", 0) == 0);
    return asLong ? "--" + o.name : std::string("-") + o.letter;
}

// The message for a word that names no option, or more than one by abbreviation.
std::string unknownLong(const Program& prog, std::string word) {
    word = word.substr(0, word.find('='));
    std::string given = word.substr(2);
    std::vector<std::string> matches;
    for (const Option* o : {&kHelp, &kVersion}) {
        if (o->name.rfind(given, 0) == 0) matches.push_back("--" + o->name);
    }
    for (const Option& o : prog.options)
        if (!o.name.empty() && o.name.rfind(given, 0) == 0) matches.push_back("--" + o.name);
    if (matches.size() < 2) return "unknown option '" + word + "'";
    std::string list;
    for (const std::string& m : matches) list += (list.empty() ? "" : ", ") + m;
    return "option '" + word + "' is ambiguous: " + list;
}

}  // namespace

std::string usage(const Program& prog, bool full) {
    std::string s = usageLines(prog);
    if (full) s += prog.about;
    s += optionLines(prog);
    if (full && prog.more) s += prog.more();
    return s;
}

Outcome refuse(const Program& prog, const std::string& why) {
    Outcome o;
    o.status = kExitUsage;
    o.err = prog.name + ": " + why + "\n" + usage(prog, false);
    return o;
}

const char* version() {
    return VORN_VERSION;
}

std::string versionLine(const std::string& program) {
    return program + " (vorn) " + version();
}

Outcome parse(const Program& prog, int argc, char** argv) {
    const int versionCode = kLongOnly + static_cast<int>(prog.options.size());
    // "+": stop at the first operand; ":": a missing value is told apart from an unknown option.
    std::string shorts = "+:";
    std::vector<option> longs;
    for (size_t i = 0; i < prog.options.size(); ++i) {
        const Option& o = prog.options[i];
        int code = o.letter != 0 ? o.letter : kLongOnly + static_cast<int>(i);
        if (o.letter != 0) shorts += std::string(1, o.letter) + (o.value.empty() ? "" : ":");
        if (!o.name.empty())
            longs.push_back(
                {o.name.c_str(), o.value.empty() ? no_argument : required_argument, nullptr, code});
    }
    shorts += "h";
    longs.push_back({"help", no_argument, nullptr, 'h'});
    longs.push_back({"version", no_argument, nullptr, versionCode});
    longs.push_back({nullptr, 0, nullptr, 0});

    auto byCode = [&](int code) -> const Option* {
        if (code == 'h') return &kHelp;
        if (code == versionCode) return &kVersion;
        for (size_t i = 0; i < prog.options.size(); ++i) {
            const Option& o = prog.options[i];
            if (code == (o.letter != 0 ? o.letter : kLongOnly + static_cast<int>(i))) return &o;
        }
        return nullptr;
    };

    optind = 0;  // a fresh start for every parse (glibc)
    opterr = 0;  // the messages are ours
    for (;;) {
        int c = getopt_long(argc, argv, shorts.c_str(), longs.data(), nullptr);
        if (c == -1) break;
        const char* word = argv[optind - 1];
        if (c == 'h') return {false, 0, kExitOk, usage(prog, true), ""};
        if (c == versionCode) return {false, 0, kExitOk, versionLine(prog.name) + "\n", ""};
        if (c == ':') {
            const Option* o = byCode(optopt);
            return refuse(prog,
                          "option " + spelled(*o, word) + " needs a value (" + o->value + ")");
        }
        if (c == '?') {
            // optopt: 0 for a long option that is unknown or ambiguous; the option's code for
            // "--flag=value" given to an option without a value; the letter of an unknown -x.
            const Option* o = byCode(optopt);
            if (optopt == 0) return refuse(prog, unknownLong(prog, word));
            if (o != nullptr)
                return refuse(prog, "option " + spelled(*o, word) + " takes no value");
            return refuse(prog,
                          "unknown option '-" + std::string(1, static_cast<char>(optopt)) + "'");
        }
        const Option* o = byCode(c);
        std::string why = o->take ? o->take(optarg != nullptr ? optarg : "") : "";
        if (!why.empty()) return refuse(prog, why);
    }
    Outcome o;
    o.run = true;
    o.next = optind;
    return o;
}

int finish(const Outcome& o) {
    std::fputs(o.out.c_str(), stdout);
    std::fputs(o.err.c_str(), stderr);
    std::fflush(stdout);
    return o.status;
}

Take store(std::string* to) {
    return [to](const std::string& value) {
        *to = value;
        return std::string();
    };
}

Take set(bool* flag) {
    return [flag](const std::string&) {
        *flag = true;
        return std::string();
    };
}

}  // namespace vorn::cmdline
