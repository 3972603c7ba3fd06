// The commands that look at the rings and steer their debugging and counters: show vorn ring,
// show debugging, debug and no debug, undebug all, clear vorn counters. The shows follow the
// manager's pages until it says nothing more follows and render the records it sent.

#include "cli/commands.h"
#include "platform/ipc.h"
#include "wire/show.h"

namespace vorn::cli {
namespace {

namespace sh = show;

// Pages a walk takes at most: more than the longest show can need (255 rings, or 4095 member
// VLANs a line at a time), so that a manager that never says "no more" cannot hold vornctl.
constexpr int kMaxPages = 8192;
constexpr uint32_t kMtUndebugAll = 2003;

Action local(std::function<int()> fn) {
    Action a;
    a.kind = Action::Kind::Local;
    a.local = std::move(fn);
    return a;
}

uint32_t ringOf(const Match& m) {
    const Value* v = m.value(Param::RingId);
    return v == nullptr ? 0 : v->number;
}

// The debug index of "event", "detail [rx|tx|both]", "packet [rx|tx|both]".
int debugIndex(const Match& m) {
    if (m.has("event")) return 0;
    int base = m.has("detail") ? 1 : 4;
    return m.has("rx") ? base + 1 : m.has("tx") ? base + 2 : base;
}

std::string noRing(uint32_t ring) {
    return "ring " + std::to_string(ring) + " does not exist";
}

}  // namespace

void Cli::addShowRows() {
    const std::pair<const char*, const char*> words[] = {
        {"ring", "a ring, by its id"},
        {"summary", "one line per ring"},
        {"debugging", "the ring debugging that is on"},
        {"debug", "turn ring debugging on"},
        {"undebug", "turn debugging off"},
        {"all", "every ring's debugging"},
        {"event", "the ring's protocol events"},
        {"detail", "the ring's frames in detail"},
        {"packet", "the ring's frames, one line each"},
        {"rx", "received frames"},
        {"tx", "transmitted frames"},
        {"both", "received and transmitted frames (the default)"},
        {"count", "stop after a number of events"},
        {"clear", "clear counters"},
        {"counters", "the rings' counters in the agents"},
    };
    for (const auto& [word, help] : words) grammar_.describe(word, help);

    grammar_.add(Mode::Exec, "show vorn ring [RING] [summary]",
                 "every ring or one, in detail or one line per ring (summary)",
                 [this](const Match& m, const Context&) {
                     uint32_t ring = ringOf(m);
                     bool summary = m.has("summary");
                     return local([this, ring, summary] { return showRings(ring, summary); });
                 });
    grammar_.add(
        Mode::Exec, "show debugging", "the ring debugging that is on",
        [this](const Match&, const Context&) { return local([this] { return showDebugging(); }); });
    for (bool off : {false, true}) {
        auto build = [this, off](const Match& m, const Context&) {
            uint32_t ring = ringOf(m);
            int index = debugIndex(m);
            const Value* count = m.value(Param::Count);
            uint32_t n = count == nullptr ? 0 : count->number;
            return local([this, ring, off, index, n] { return debugRing(ring, off, index, n); });
        };
        std::string no = off ? "no " : "";
        std::string count = off ? "" : " [count COUNT]";
        grammar_.add(Mode::Exec, no + "debug vorn ring RING event" + count,
                     off ? "turn a ring's event debugging off"
                         : "print a ring's protocol events (up to COUNT of them)",
                     build);
        grammar_.add(Mode::Exec, no + "debug vorn ring RING detail|packet [rx|tx|both]" + count,
                     off ? "turn a ring's frame debugging off"
                         : "print a ring's frames, received, transmitted or both",
                     build);
    }
    grammar_.add(
        Mode::Exec, "undebug all", "turn all ring debugging off",
        [this](const Match&, const Context&) { return local([this] { return undebugAll(); }); });
    grammar_.add(Mode::Exec, "clear vorn counters [ring RING]",
                 "clear the counters of every ring, or of one",
                 [this](const Match& m, const Context&) {
                     auto ring = static_cast<uint16_t>(ringOf(m));
                     return local([this, ring] { return clearCounters(ring); });
                 });
}

int Cli::printJson(const Json& doc) {
    out_ << doc.dump(2) << "\n";
    return kExitOk;
}

bool Cli::walkPages(uint32_t code, Paging paging,
                    const std::function<bool(const ShowPage&)>& take) {
    for (int n = 0; n < kMaxPages; ++n) {
        ShowPage page;
        std::string error;
        if (!client_.showPage(code, paging, &page, &error)) {
            err_ << "% Error: " << error << "\n";
            return false;
        }
        if (!take(page) || !page.more) return true;
        paging = page.paging;
    }
    err_ << "% Error: the manager sent more than " << kMaxPages << " pages; the show stops here\n";
    return false;
}

bool Cli::summaries(uint32_t ring, std::vector<RingSummary>* out) {
    Paging from;
    from.ringId = ring == 0 ? 1 : ring;
    from.single = ring == 0 ? 0 : 1;
    bool readable = true;
    bool ok = walkPages(sh::kCodeSummary, from, [&](const ShowPage& p) {
        readable = p.status == 0 && decodeSummaryPage(p.data, out);
        return readable;
    });
    if (ok && !readable) err_ << "% Error: the manager's summary page could not be read\n";
    return ok && readable;
}

bool Cli::detail(uint32_t ring, RingDetail* out, bool* missing) {
    *missing = false;
    Paging paging;
    paging.ringId = ring;
    ShowPage page;
    std::string error;
    if (!client_.showPage(sh::kCodeDetail, paging, &page, &error)) {
        err_ << "% Error: " << error << "\n";
        return false;
    }
    if (page.status != 0) {
        *missing = true;
        return false;
    }
    if (!decodeDetail(page.data, out)) {
        err_ << "% Error: the manager's detail record of ring " << ring << " could not be read\n";
        return false;
    }
    return walkPages(sh::kCodeMemberVlans, paging, [out](const ShowPage& p) {
        if (p.status != 0) return false;
        std::string line = memberLineText(p.data);
        if (!line.empty()) out->memberVlanLines.push_back(line);
        return true;
    });
}

int Cli::showRings(uint32_t ring, bool summary) {
    if (!peerThere(ipc::kSvcManager, 0, "no manager is running in " + client_.rundir()))
        return kExitFailed;
    std::vector<RingSummary> lines;
    if (summary || ring == 0) {
        if (!summaries(ring, &lines)) return kExitFailed;
        if (ring != 0 && lines.empty()) {
            err_ << "% Error: " << noRing(ring) << "\n";
            return kExitFailed;
        }
        if (summary) {
            if (json_) return printJson(summaryJson(lines));
            out_ << renderSummary(lines);
            return kExitOk;
        }
    }
    std::vector<uint32_t> ids;
    for (const RingSummary& s : lines) ids.push_back(s.id);
    if (ring != 0) ids = {ring};
    std::vector<RingDetail> details;
    for (uint32_t id : ids) {
        RingDetail d;
        bool missing = false;
        if (detail(id, &d, &missing)) {
            details.push_back(std::move(d));
            continue;
        }
        if (!missing) return kExitFailed;
        if (ring != 0) {  // a ring of the list may have gone meanwhile; the one asked for not
            err_ << "% Error: " << noRing(ring) << "\n";
            return kExitFailed;
        }
    }
    if (json_) return printJson(detailJson(details));
    if (details.empty()) out_ << "No VORN ring is configured.\n";
    for (size_t i = 0; i < details.size(); ++i)
        out_ << (i == 0 ? "" : "\n") << renderDetail(details[i]);
    return kExitOk;
}

int Cli::showDebugging() {
    std::string text, error;
    if (!readStoreFile("debug-config", "debug configuration", &text, &error)) {
        err_ << "% Error: " << error << "\n";
        return kExitFailed;
    }
    std::vector<DebugSetting> settings = parseDebugConfig(text);
    if (json_) return printJson(debuggingJson(settings));
    out_ << renderDebugging(settings);
    return kExitOk;
}

int Cli::debugRing(uint32_t ring, bool off, int index, uint32_t count) {
    if (!peerThere(ipc::kSvcManager, 0, "no manager is running in " + client_.rundir()))
        return kExitFailed;
    ConfigAnswer a = client_.request(
        [&](uint32_t xid, uint32_t src) { return encodeDebug(ring, off, index, count, xid, src); });
    if (!a.answered) {
        err_ << "% Error: " << a.error << "\n";
        return kExitFailed;
    }
    // The manager refuses a debug request only for a ring it does not have.
    if (a.reply.status != 0) {
        err_ << "% Error: " << noRing(ring) << "; create it first with 'protocol vorn " << ring
             << "'\n";
        return kExitFailed;
    }
    return kExitOk;
}

int Cli::undebugAll() {
    if (!peerThere(ipc::kSvcManager, 0, "no manager is running in " + client_.rundir()))
        return kExitFailed;
    std::string text, error;
    if (!readStoreFile("debug-config", "debug configuration", &text, &error)) {
        err_ << "% Error: " << error << "\n";
        return kExitFailed;
    }
    // The event log's undebug-all turns debugging off in the agents; the settings the
    // configuration still lists (those of rings no agent runs too) are then turned off one by
    // one, which takes their lines out of the configuration.
    if (!client_.notify(kMtUndebugAll, &error)) {
        err_ << "% Error: " << error << "\n";
        return kExitFailed;
    }
    for (const DebugSetting& s : parseDebugConfig(text)) {
        ConfigAnswer a = client_.request([&s](uint32_t xid, uint32_t src) {
            return encodeDebug(s.ring, true, s.index, 0, xid, src);
        });
        if (!a.answered) {
            err_ << "% Error: " << a.error << "\n";
            return kExitFailed;
        }
    }
    out_ << "All possible debugging has been turned off\n";
    return kExitOk;
}

int Cli::clearCounters(uint16_t ring) {
    if (!peerThere(ipc::kSvcManager, 0, "no manager is running in " + client_.rundir()))
        return kExitFailed;
    // The manager says nothing of a ring it does not have: vornctl looks first.
    if (ring != 0) {
        std::vector<RingSummary> lines;
        if (!summaries(ring, &lines)) return kExitFailed;
        if (lines.empty()) {
            err_ << "% Error: " << noRing(ring) << "; no counters were cleared\n";
            return kExitFailed;
        }
    }
    ConfigAnswer a =
        client_.request([ring](uint32_t xid, uint32_t src) { return encodeClear(ring, xid, src); });
    if (!a.answered) {
        err_ << "% Error: " << a.error << "\n";
        return kExitFailed;
    }
    return kExitOk;
}

}  // namespace vorn::cli
