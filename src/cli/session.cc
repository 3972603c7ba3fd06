// How a command is run: its line is parsed and checked whole, turned into actions, and only
// then are the actions carried out, so that a wrong word never leaves a command half done.
// A file is replayed the same way, with every line checked before the first is sent.

#include <cerrno>
#include <cstring>
#include <fstream>

#include "cli/commands.h"
#include "cli/status.h"
#include "platform/ipc.h"

namespace vorn::cli {
namespace {

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() &&
           (s.back() == ' ' || s.back() == '\t' || s.back() == '\r' || s.back() == '\n'))
        s.remove_suffix(1);
    return s;
}

// Blank lines and comments ('!' first) are not commands.
bool isCommand(std::string_view line) {
    std::string_view t = trim(line);
    return !t.empty() && t.front() != '!';
}

}  // namespace

int Cli::run(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& w : words) line += (line.empty() ? "" : " ") + w;
    if (!isCommand(line)) {
        err_ << "% Error: no command given\n" << usage();
        return kExitUsage;
    }
    return runLine(line);
}

int Cli::runLine(std::string_view line) {
    if (!isCommand(line)) return kExitOk;
    Context ctx = ctx_;
    Actions actions;
    std::string error;
    if (!compile(line, &ctx, &actions, &error)) {
        err_ << "% Error: " << error << "\n";
        return kExitUsage;
    }
    return execute(actions);
}

bool Cli::compile(std::string_view line, Context* ctx, Actions* out, std::string* error) const {
    Context next = *ctx;
    Actions actions;
    std::string_view rest = line;
    while (!rest.empty()) {
        Parsed p = grammar_.parse(next.mode, rest);
        if (!p.ok) {
            *error = p.error;
            return false;
        }
        Action a = p.row->build(p.match, next);
        if (a.kind == Action::Kind::Config && a.next.has_value())
            next = *a.next;
        else if (a.kind == Action::Kind::Exit || a.kind == Action::Kind::End)
            next = Context{};
        actions.push_back(std::move(a));
        rest = p.restAt == std::string_view::npos ? std::string_view() : rest.substr(p.restAt);
    }
    *ctx = next;
    out->insert(out->end(), actions.begin(), actions.end());
    return true;
}

int Cli::execute(const Actions& actions) {
    for (const Action& a : actions) {
        int rc = kExitOk;
        switch (a.kind) {
            case Action::Kind::Config:
                rc = configure(a.request);
                if (rc == kExitOk && a.next.has_value()) ctx_ = *a.next;
                break;
            case Action::Kind::Local:
                rc = a.local();
                break;
            case Action::Kind::Exit:
                if (ctx_.mode == Mode::Exec && interactive_) quit_ = true;
                ctx_ = Context{};
                break;
            case Action::Kind::End:
                ctx_ = Context{};
                break;
        }
        if (rc != kExitOk) return rc;
    }
    return kExitOk;
}

int Cli::configure(const nm::ConfigRequest& req) {
    if (!peerThere(ipc::kSvcManager, 0, "no manager is running in " + client_.rundir()))
        return kExitFailed;
    ConfigAnswer a = client_.configure(req);
    if (!a.answered) {
        err_ << "% Error: " << a.error << "\n";
        return kExitFailed;
    }
    if (a.reply.status != nm::kStatusOk) {
        err_ << "% Error: " << statusSentence(a.reply.status, req) << "\n";
        return kExitFailed;
    }
    return kExitOk;
}

int Cli::replay(const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        err_ << "% Error: cannot read " << path << ": " << std::strerror(errno) << "\n";
        return kExitUsage;
    }
    return replay(in, path);
}

int Cli::replay(std::istream& in, const std::string& name) {
    struct Line {
        size_t number;
        std::string text;
        Actions actions;
    };
    std::vector<Line> lines;
    Context ctx = ctx_;
    std::string text;
    for (size_t number = 1; std::getline(in, text); ++number) {
        if (!isCommand(text)) continue;
        Line l{number, std::string(trim(text)), {}};
        std::string error;
        if (!compile(l.text, &ctx, &l.actions, &error)) {
            err_ << "% Error: " << error << "\n"
                 << "% " << name << " line " << number << ": '" << l.text
                 << "': nothing was applied\n";
            return kExitUsage;
        }
        lines.push_back(std::move(l));
    }
    if (in.bad()) {
        err_ << "% Error: reading " << name << " failed; nothing was applied\n";
        return kExitFailed;
    }
    for (size_t i = 0; i < lines.size(); ++i) {
        int rc = execute(lines[i].actions);
        if (rc == kExitOk) continue;
        err_ << "% " << name << " line " << lines[i].number << ": '" << lines[i].text
             << "': replay stopped here; the " << i << " command line" << (i == 1 ? "" : "s")
             << " before it " << (i == 1 ? "was" : "were") << " applied\n";
        return rc;
    }
    return kExitOk;
}

}  // namespace vorn::cli
