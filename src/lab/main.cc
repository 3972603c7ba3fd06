// vornlab: brings up a ring of simulated switches, cuts and restores its cables, shows it
// and takes it down. See lab/lab.h for the lab's shape.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "cli/client.h"
#include "cli/vlan_list.h"
#include "lab/lab.h"
#include "platform/bitmap.h"
#include "platform/clock.h"
#include "platform/cmdline.h"
#include "platform/files.h"
#include "platform/ipc.h"
#include "platform/number.h"
#include "wire/show.h"

namespace {

using namespace vorn;
using Clock = std::chrono::steady_clock;

constexpr int kExitFailed = 1;
constexpr auto kStartTimeout = std::chrono::seconds(20);
constexpr uint32_t kSoakStreamMs = 5;

void sleepMs(uint32_t ms) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

// In a child: standard input from /dev/null, output and error to `out`, then argv.
[[noreturn]] void execWithOutput(const std::vector<std::string>& argv, const std::string& out) {
    int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fd < 0 || null < 0) _exit(126);
    dup2(null, 0);
    dup2(fd, 1);
    dup2(fd, 2);
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
}

// Runs argv with its output in `out`: to its end (its exit status, or -1), or, detached, as a
// daemon of its own in a new session that is not our child (0 once it is on its way).
int run(const std::vector<std::string>& argv, const std::string& out, bool detached = false) {
    pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) {
        if (detached) {
            setsid();
            if (fork() != 0) _exit(0);
        }
        execWithOutput(argv, out);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool readPlan(const std::string& dir, lab::Plan* p, std::string* err) {
    std::ifstream in(dir + "/lab.conf");
    if (!in) {
        *err = "no lab in " + dir + " (vornlab up N --dir " + dir + " starts one)";
        return false;
    }
    std::stringstream ss;
    ss << in.rdbuf();
    p->dir = dir;
    if (lab::parsePlan(ss.str(), p, err)) return true;
    *err = dir + "/lab.conf: " + *err;
    return false;
}

// The manager of a switch has registered with L2PM: it serves requests.
bool managerServing(cli::Client& c) {
    cli::Answer a = c.shell("vornPrintCounters");
    static const std::regex registered(R"(L2PM reg success +[1-9])");
    return a.ok && std::regex_search(a.text, registered);
}

// The ring's state on one switch, as its manager shows it: "Master UP  Gi 0/1 Forwarding ...".
struct RingView {
    bool ok = false;
    std::string text;
    cli::RingDetail d;
};

RingView ringOf(const std::string& dir) {
    RingView v;
    cli::Client c(dir, 2000);
    cli::Paging paging;
    paging.ringId = lab::kRingId;
    cli::ShowPage page;
    std::string err;
    if (!c.showPage(show::kCodeDetail, paging, &page, &err)) {
        v.text = err;
        return v;
    }
    if (page.status != 0 || !cli::decodeDetail(page.data, &v.d)) {
        v.text = "ring " + std::to_string(lab::kRingId) + " is not configured";
        return v;
    }
    v.ok = true;
    v.text = v.d.mode + " " + v.d.status + "  east " + v.d.priState + ", west " + v.d.secState;
    return v;
}

// The ring is whole: the master's west (secondary) blocks and every other ring port forwards.
bool ringComplete(const lab::Plan& p) {
    for (uint32_t i = 1; i <= p.switches; ++i) {
        RingView v = ringOf(lab::switchDir(p, i));
        if (!v.ok || v.d.priState != "Forwarding") return false;
        if (v.d.secState != (i == 1 ? "Blocking" : "Forwarding")) return false;
    }
    return true;
}

bool waitComplete(const lab::Plan& p, Clock::duration limit) {
    auto t0 = Clock::now();
    while (!ringComplete(p)) {
        if (Clock::now() - t0 > limit) return false;
        sleepMs(5);
    }
    return true;
}

int up(lab::Plan p) {
    std::string err;
    if (!host::checkRunDir(p.dir, &err)) {
        std::fprintf(stderr, "vornlab: %s\n", err.c_str());
        return kExitFailed;
    }
    if (access((p.dir + "/lab.conf").c_str(), F_OK) == 0) {
        std::fprintf(stderr, "vornlab: a lab is already up in %s ('vornlab down --dir %s' first)\n",
                     p.dir.c_str(), p.dir.c_str());
        return kExitFailed;
    }
    if (!host::writeFileAtomic(p.dir + "/lab.conf", lab::renderPlan(p), &err)) {
        std::fprintf(stderr, "vornlab: %s\n", err.c_str());
        return kExitFailed;
    }
    const std::string vornsim = host::besideUs("vornsim"), vornctl = host::besideUs("vornctl");
    for (uint32_t i = 1; i <= p.switches; ++i) {
        std::string dir = lab::switchDir(p, i);
        mkdir(dir.c_str(), 0700);
        if (run(lab::simArgs(p, i, vornsim), dir + "/vornsim.out", true) != 0) {
            std::fprintf(stderr, "vornlab: switch %u did not start (see %s/vornsim.out)\n", i,
                         dir.c_str());
            return kExitFailed;
        }
    }
    auto deadline = Clock::now() + kStartTimeout;
    for (uint32_t i = 1; i <= p.switches; ++i) {
        std::string dir = lab::switchDir(p, i);
        cli::Client c(dir, 1000);
        while (!managerServing(c)) {
            if (Clock::now() > deadline) {
                std::fprintf(stderr, "vornlab: the manager of switch %u did not come up (see %s)\n",
                             i, (dir + "/vornsim.out").c_str());
                return kExitFailed;
            }
            sleepMs(50);
        }
        for (const std::string& cmd : lab::vlanCommands(p)) {
            cli::Answer a = c.sim(cmd);
            if (!a.ok) {
                std::fprintf(stderr, "vornlab: switch %u: '%s': %s\n", i, cmd.c_str(),
                             a.text.c_str());
                return kExitFailed;
            }
        }
        std::string file = dir + "/lab-ring.conf";
        if (!host::writeFileAtomic(file, lab::ringConfig(p, i), &err) ||
            run({vornctl, "--rundir", dir, "-f", file}, dir + "/lab-ring.out") != 0) {
            std::fprintf(stderr, "vornlab: switch %u: the ring's configuration failed (see %s)\n",
                         i, (dir + "/lab-ring.out").c_str());
            return kExitFailed;
        }
        std::printf("switch %u up in %s, ring %u configured as %s\n", i, dir.c_str(), lab::kRingId,
                    i == 1 ? "master" : "transit");
    }
    if (!waitComplete(p, kStartTimeout)) {
        std::fprintf(stderr, "vornlab: the ring did not become complete within %lld s\n",
                     static_cast<long long>(kStartTimeout.count()));
        return kExitFailed;
    }
    std::printf("ring complete: %u switches, member VLANs %s, hello %u ms, dead %u ms\n",
                p.switches, p.memberVlans.c_str(), p.helloMs, p.deadMs);
    return 0;
}

int down(const lab::Plan& p) {
    int status = 0;
    for (uint32_t i = 1; i <= p.switches; ++i) {
        cli::Client c(lab::switchDir(p, i), 2000);
        cli::Answer a = c.sim("quit");
        std::printf("switch %u: %s\n", i, a.answered ? a.text.c_str() : "not running");
    }
    if (unlink((p.dir + "/lab.conf").c_str()) != 0) status = kExitFailed;
    return status;
}

int cable(const lab::Plan& p, uint32_t a, uint32_t b, bool cut, bool say = true) {
    std::string port = lab::portTowards(p, a, b);
    if (port.empty()) {
        std::fprintf(stderr, "vornlab: switches %u and %u are not joined by a cable\n", a, b);
        return kExitFailed;
    }
    cli::Client c(lab::switchDir(p, a), 2000);
    cli::Answer ans = c.sim("cable " + port + (cut ? " cut" : " restore"));
    if (say || !ans.ok) std::printf("%s\n", ans.text.c_str());
    return ans.ok ? 0 : kExitFailed;
}

// Draws the ring into an SVG file with Graphviz's dot.
int drawLab(const lab::Plan& p, const std::string& file) {
    std::vector<lab::SwitchState> states;
    for (uint32_t i = 1; i <= p.switches; ++i) {
        RingView v = ringOf(lab::switchDir(p, i));
        states.push_back({v.ok, v.d.mode, v.d.status, v.d.priState, v.d.secState});
    }
    std::string dotFile = p.dir + "/lab-ring.dot", err;
    if (!host::writeFileAtomic(dotFile, lab::ringDot(p, states), &err)) {
        std::fprintf(stderr, "vornlab: %s\n", err.c_str());
        return kExitFailed;
    }
    int rc = run({"/usr/bin/dot", "-Tsvg", "-o", file, dotFile}, p.dir + "/lab-dot.out");
    if (rc != 0) {
        std::fprintf(stderr,
                     "vornlab: Graphviz's dot could not draw %s (status %d; is the graphviz "
                     "package installed? see %s/lab-dot.out)\n",
                     file.c_str(), rc, p.dir.c_str());
        return kExitFailed;
    }
    std::printf("the ring drawn in %s\n", file.c_str());
    return 0;
}

int showLab(const lab::Plan& p) {
    std::printf("lab in %s: %u switches, ring %u, member VLANs %s, hello %u ms, dead %u ms\n",
                p.dir.c_str(), p.switches, lab::kRingId, p.memberVlans.c_str(), p.helloMs,
                p.deadMs);
    for (uint32_t i = 1; i <= p.switches; ++i)
        std::printf("  switch %-3u %s\n", i, ringOf(lab::switchDir(p, i)).text.c_str());
    std::printf("ring %s\n", ringComplete(p) ? "complete" : "not complete");
    return 0;
}

// A probe injected at switch `from`, and how often each switch saw it.
struct ProbeResult {
    bool injected = false;
    std::string id, error;
    std::vector<uint32_t> times;  // by switch, 1-based
    bool reachedAll() const {
        return injected && std::count(times.begin() + 1, times.end(), 0u) == 0;
    }
    bool looped() const {
        return std::any_of(times.begin(), times.end(), [](uint32_t t) { return t > 1; });
    }
};

// Injects a probe and waits up to waitMs for every switch to have seen it.
ProbeResult sendProbe(const lab::Plan& p, uint32_t vlan, uint32_t from, int waitMs) {
    ProbeResult r;
    r.times.assign(p.switches + 1, 0);
    cli::Client origin(lab::switchDir(p, from), 2000);
    cli::Answer a = origin.sim("probe " + std::to_string(vlan));
    size_t at = a.text.find("0x");
    if (!a.ok || at == std::string::npos) {
        r.error = "switch " + std::to_string(from) + ": " + a.text;
        return r;
    }
    r.injected = true;
    r.id = a.text.substr(at, 18);
    auto deadline = Clock::now() + std::chrono::milliseconds(waitMs);
    for (;;) {
        for (uint32_t i = 1; i <= p.switches; ++i) {
            cli::Client c(lab::switchDir(p, i), 2000);
            cli::Answer seen = c.sim("show probes " + r.id);
            size_t n = seen.text.find("seen ");
            r.times[i] = n == std::string::npos ? 0 : std::stoul(seen.text.substr(n + 5));
        }
        if (r.reachedAll() || Clock::now() > deadline) return r;
        sleepMs(2);
    }
}

int probe(const lab::Plan& p, uint32_t vlan, uint32_t from) {
    ProbeResult r = sendProbe(p, vlan, from, 1000);
    if (!r.injected) {
        std::fprintf(stderr, "vornlab: %s\n", r.error.c_str());
        return kExitFailed;
    }
    std::string missing, loops;
    for (uint32_t i = 1; i <= p.switches; ++i) {
        if (r.times[i] == 0) missing += " " + std::to_string(i);
        if (r.times[i] > 1) loops += " " + std::to_string(i);
    }
    std::printf("probe %s on VLAN %u from switch %u: %s; %s\n", r.id.c_str(), vlan, from,
                missing.empty() ? "every switch reached" : ("not reached:" + missing).c_str(),
                loops.empty() ? "no loop" : ("LOOP seen at switches" + loops).c_str());
    return missing.empty() && loops.empty() ? 0 : kExitFailed;
}

// The first VLAN of the ring's member list.
uint32_t firstMemberVlan(const lab::Plan& p) {
    cli::VlanBitmap set{};
    std::string err;
    cli::parseVlanList(p.memberVlans, &set, &err);
    for (uint32_t v = 1; v <= 4094; ++v)
        if (bmp::test(set, v)) return v;
    return 1;
}

double percentile(std::vector<double> v, double q) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    size_t i = static_cast<size_t>(q * static_cast<double>(v.size() - 1) + 0.5);
    return v[std::min(i, v.size() - 1)];
}

// Switch 1's probe stream over the member VLANs, one probe every `everyMs`.
bool startStream(const lab::Plan& p, uint32_t everyMs, std::string* err) {
    cli::Client c(lab::switchDir(p, 1), 2000);
    cli::Answer a = c.sim("probe stream " + p.memberVlans + " " + std::to_string(everyMs));
    if (!a.ok) *err = "switch 1: " + a.text;
    return a.ok;
}

// Stops switch 1's stream; the ids it used.
bool stopStream(const lab::Plan& p, uint64_t* first, uint64_t* last, std::string* err) {
    cli::Client c(lab::switchDir(p, 1), 2000);
    cli::Answer a = c.sim("probe stream off");
    static const std::regex ids(R"(ids (0x[0-9a-f]+) to (0x[0-9a-f]+))");
    std::smatch m;
    if (!a.ok || !std::regex_search(a.text, m, ids)) {
        *err = "switch 1: " + a.text;
        return false;
    }
    *first = std::stoull(m[1].str(), nullptr, 16);
    *last = std::stoull(m[2].str(), nullptr, 16);
    return true;
}

// What switch i saw of the ids [first, last]: its runs, and how many it saw twice.
bool streamSeen(const lab::Plan& p, uint32_t i, uint64_t first, uint64_t last,
                std::vector<lab::ProbeRun>* runs, uint64_t* repeated, std::string* err) {
    cli::Client c(lab::switchDir(p, i), 2000);
    cli::Answer a =
        c.sim("show probes seen " + std::to_string(first) + " " + std::to_string(last) + " --json");
    nlohmann::json j = nlohmann::json::parse(a.text, nullptr, false);
    if (!a.ok || !j.is_object() || !j["runs"].is_array()) {
        *err = "switch " + std::to_string(i) + ": " + a.text;
        return false;
    }
    for (const auto& r : j["runs"])
        runs->push_back({r.value("first", uint64_t{0}), r.value("first_sent_ns", uint64_t{0}),
                         r.value("last", uint64_t{0}), r.value("last_sent_ns", uint64_t{0})});
    *repeated += j.value("repeated", uint64_t{0});
    return true;
}

// " 3 5": the switch numbers of indexes into a per-switch table.
std::string switchList(const std::vector<size_t>& indexes) {
    std::string out;
    for (size_t i : indexes) out += " " + std::to_string(i + 1);
    return out;
}

struct ConvergeOptions {
    uint32_t cuts = 10, seed = 1, everyMs = 1;
    bool dropLinkDown = false;  // the master loses every link-down frame
};

// Cuts and restores random cables; around each event switch 1 streams probes over the member
// VLANs, and every switch's sightings tell when traffic stopped reaching some switch and when
// it reached every switch again, to the stream's period, and whether any probe looped.
int converge(const lab::Plan& p, const ConvergeOptions& o) {
    if (!waitComplete(p, std::chrono::seconds(5))) {
        std::fprintf(stderr, "vornlab: the ring is not complete; restore its cables first\n");
        return kExitFailed;
    }
    // A client of its own each time: a client speaks for one run directory at a time.
    auto setDropLinkDown = [&](bool on) {
        cli::Client master(lab::switchDir(p, 1), 2000);
        return master.sim(std::string("ring drop-link-down ") + (on ? "on" : "off")).ok;
    };
    if (o.dropLinkDown && !setDropLinkDown(true)) {
        std::fprintf(stderr, "vornlab: switch 1 did not take 'ring drop-link-down on'\n");
        return kExitFailed;
    }
    std::mt19937 rng(o.seed);
    std::vector<double> all, cutTimes, restoreTimes;
    uint64_t missed = 0, lostAfter = 0;
    uint32_t loops = 0, notRecovered = 0;
    std::string err;
    auto event = [&](bool cut, uint32_t a, uint32_t b) {
        if (!startStream(p, o.everyMs, &err)) return false;
        sleepMs(5 * o.everyMs);  // probes that reach every switch before the event
        const uint64_t t0 = host::monotonicNs();
        if (cable(p, a, b, cut, false) != 0) return false;
        // The event runs its course, and the stream goes on long enough after it to show
        // traffic that is lost again.
        if (cut) {
            sleepMs(p.deadMs + 2 * p.helloMs);
        } else {
            sleepMs(2 * p.helloMs);
            waitComplete(p, std::chrono::seconds(5));
            sleepMs(2 * p.helloMs);
        }
        uint64_t first = 0, last = 0, repeated = 0;
        if (!stopStream(p, &first, &last, &err)) return false;
        // The last probes may still be on their way: a switch that has not seen the last one
        // is asked again, for a while, before what it missed counts as lost.
        std::vector<std::vector<lab::ProbeRun>> seen(p.switches);
        const auto asked = Clock::now();
        for (uint32_t i = 1; i <= p.switches; ++i) {
            for (;;) {
                seen[i - 1].clear();
                uint64_t twice = 0;
                if (!streamSeen(p, i, first, last, &seen[i - 1], &twice, &err)) return false;
                const bool sawLast = !seen[i - 1].empty() && seen[i - 1].back().last == last;
                if (sawLast || Clock::now() - asked > std::chrono::milliseconds(300)) {
                    repeated += twice;
                    break;
                }
                sleepMs(5);
            }
        }
        lab::Recovery r = lab::recoveryOf(first, last, seen, t0);
        (cut ? cutTimes : restoreTimes).push_back(r.ms);
        all.push_back(r.ms);
        missed += r.missed;
        lostAfter += r.lostAfter;
        loops += repeated > 0 ? 1 : 0;
        notRecovered += r.recovered ? 0 : 1;
        char line[200];
        if (!r.recovered)
            std::snprintf(line, sizeof(line), "NOT RECOVERED (%llu probes missed)",
                          static_cast<unsigned long long>(r.missed));
        else if (!r.interrupted)
            std::snprintf(line, sizeof(line), "no probe missed");
        else
            std::snprintf(line, sizeof(line),
                          "every switch reached again in %5.1f ms (%llu probes missed, the "
                          "first %.1f ms after the event)",
                          r.ms, static_cast<unsigned long long>(r.missed), r.stoppedMs);
        std::printf("%-7s %u-%u  %s%s%s\n", cut ? "cut" : "restore", a, b, line,
                    r.lostAfter > 0 ? (", then " + std::to_string(r.lostAfter) +
                                       " LOST AFTER RECOVERY at switch" + switchList(r.lostAt))
                                          .c_str()
                                    : "",
                    repeated > 0
                        ? ("  LOOP: " + std::to_string(repeated) + " probes seen twice").c_str()
                        : "");
        return true;
    };
    bool ok = true;
    for (uint32_t k = 0; ok && k < o.cuts; ++k) {
        uint32_t a = rng() % p.switches + 1, b = a % p.switches + 1;
        ok = event(true, a, b) && event(false, a, b);
        // The next cut starts from a complete ring.
        ok = ok && waitComplete(p, std::chrono::seconds(5));
        if (!ok && err.empty()) err = "the ring did not become complete again";
    }
    if (o.dropLinkDown && !setDropLinkDown(false) && ok) {
        err = "switch 1 did not take 'ring drop-link-down off'";
        ok = false;
    }
    // Without the link-down frame the master learns of a cut from its health frames, which
    // stop coming back: within a dead-interval and the hello that would have come back.
    const double bound = p.deadMs + p.helloMs;
    const bool withinBound = !o.dropLinkDown || percentile(cutTimes, 1.0) <= bound;
    if (!ok) {
        std::fprintf(stderr, "vornlab: %s\n", err.c_str());
        return kExitFailed;
    }
    auto figures = [](const std::vector<double>& v) {
        char f[96];
        std::snprintf(f, sizeof(f), "p50 %.1f ms, p99 %.1f ms, max %.1f ms", percentile(v, 0.5),
                      percentile(v, 0.99), percentile(v, 1.0));
        return std::string(f);
    };
    std::printf("%zu events (probe every %u ms on VLANs %s%s): recovery %s\n", all.size(),
                o.everyMs, p.memberVlans.c_str(),
                o.dropLinkDown ? ", link-down frames lost at switch 1" : "", figures(all).c_str());
    std::printf("  cuts: %s; restores: %s\n", figures(cutTimes).c_str(),
                figures(restoreTimes).c_str());
    std::printf("  probes missed %llu, lost after recovery %llu; loops %u; not recovered %u\n",
                static_cast<unsigned long long>(missed), static_cast<unsigned long long>(lostAfter),
                loops, notRecovered);
    if (o.dropLinkDown)
        std::printf("  every cut recovered within dead-interval + hello-interval (%.0f ms): %s\n",
                    bound, withinBound ? "yes" : "NO");
    return loops == 0 && notRecovered == 0 && lostAfter == 0 && withinBound ? 0 : kExitFailed;
}

// The probes every switch has seen twice, all told.
uint64_t probeLoops(const lab::Plan& p) {
    uint64_t loops = 0;
    for (uint32_t i = 1; i <= p.switches; ++i) {
        cli::Client c(lab::switchDir(p, i), 2000);
        nlohmann::json j = nlohmann::json::parse(c.sim("show probes --json").text, nullptr, false);
        if (j.is_object()) loops += j.value("loops", uint64_t{0});
    }
    return loops;
}

// The "In use" column of every pool row of a switch's qelMemShow, by the row's name and size.
std::map<std::string, long> poolsInUse(const std::string& dir) {
    std::map<std::string, long> out;
    cli::Client c(dir, 2000);
    std::istringstream in(c.shell("qelMemShow").text);
    std::string line;
    while (std::getline(in, line)) {
        std::vector<std::string> w;
        std::istringstream ws(line);
        for (std::string t; ws >> t;) w.push_back(t);
        if (w.size() < 6 || w[0] == "Pool") continue;
        std::string key;
        for (size_t i = 0; i + 4 < w.size(); ++i) key += w[i] + " ";
        out[key] = std::atol(w[w.size() - 4].c_str());
    }
    return out;
}

// Every switch's manager answers its shell.
std::string deadManagers(const lab::Plan& p) {
    std::string dead;
    for (uint32_t i = 1; i <= p.switches; ++i) {
        cli::Client c(lab::switchDir(p, i), 2000);
        if (!c.shell("vornPrintTcb").ok) dead += " " + std::to_string(i);
    }
    return dead;
}

// Keeps cutting and restoring cables, flapping cards and changing the ring's hello-interval
// for `seconds`; after every event the ring must become complete again and probes from two
// switches must reach every switch with no loop. At the end every manager must be alive and
// hold no more pool blocks than once the ring was first complete.
int soak(const lab::Plan& p, uint32_t seconds, uint32_t seed) {
    if (!waitComplete(p, std::chrono::seconds(5))) {
        std::fprintf(stderr, "vornlab: the ring is not complete; restore its cables first\n");
        return kExitFailed;
    }
    std::vector<std::map<std::string, long>> baseline;
    for (uint32_t i = 1; i <= p.switches; ++i) baseline.push_back(poolsInUse(lab::switchDir(p, i)));
    const uint32_t vlan = firstMemberVlan(p);
    const std::string vornctl = host::besideUs("vornctl");
    // A probe stream runs through the whole soak, so that a loop between the checks shows too.
    const uint64_t loopsBefore = probeLoops(p);
    std::string err;
    if (!startStream(p, kSoakStreamMs, &err)) {
        std::fprintf(stderr, "vornlab: %s\n", err.c_str());
        return kExitFailed;
    }
    std::mt19937 rng(seed);
    uint32_t events = 0, loops = 0, lost = 0, failed = 0;
    auto end = Clock::now() + std::chrono::seconds(seconds);
    while (Clock::now() < end) {
        uint32_t a = rng() % p.switches + 1, kind = rng() % 10;
        std::string dir = lab::switchDir(p, a), what;
        cli::Client c(dir, 5000);
        bool ok = true;
        if (kind < 6) {  // a cable cut for a while, then restored
            uint32_t b = a % p.switches + 1;
            what = "cable " + std::to_string(a) + "-" + std::to_string(b);
            ok = cable(p, a, b, true, false) == 0;
            sleepMs(rng() % 300);
            ok = cable(p, a, b, false, false) == 0 && ok;
        } else if (kind < 8) {  // a card goes down and comes back
            std::string slot = std::to_string(rng() % 2);
            what = "card " + slot + " of switch " + std::to_string(a);
            ok = c.sim("card down " + slot).ok;
            sleepMs(rng() % 300);
            ok = c.sim("card up " + slot).ok && ok;
        } else {  // the ring's hello-interval changed and set back
            what = "hello-interval of switch " + std::to_string(a);
            std::string file = dir + "/lab-soak.conf";
            for (uint32_t hello : {p.helloMs + 10, p.helloMs}) {
                ok = ok &&
                     host::writeFileAtomic(
                         file,
                         "protocol vorn 1\n timer hello-interval " + std::to_string(hello) + "\n",
                         &err) &&
                     run({vornctl, "--rundir", dir, "-f", file}, dir + "/lab-soak.out") == 0;
            }
        }
        ++events;
        bool complete = waitComplete(p, std::chrono::seconds(10));
        bool reached = complete, looped = false;
        for (uint32_t from : {1u, p.switches / 2 + 1}) {
            ProbeResult r = sendProbe(p, vlan, from, 200);
            reached = reached && r.reachedAll();
            looped = looped || r.looped();
        }
        failed += ok ? 0 : 1;
        lost += reached ? 0 : 1;
        loops += looped ? 1 : 0;
        if (!ok || !reached || looped)
            std::printf("event %u (%s): %s%s%s\n", events, what.c_str(), ok ? "" : "refused; ",
                        reached ? "" : "not every switch reached; ", looped ? "LOOP" : "");
    }
    uint64_t first = 0, last = 0;
    const bool stopped = stopStream(p, &first, &last, &err);
    sleepMs(500);  // the last acknowledgements
    const uint64_t streamLoops = probeLoops(p) - loopsBefore;
    std::string leaks;
    for (uint32_t i = 1; i <= p.switches; ++i)
        for (const auto& [pool, inUse] : poolsInUse(lab::switchDir(p, i))) {
            auto it = baseline[i - 1].find(pool);
            long before = it == baseline[i - 1].end() ? 0 : it->second;
            if (inUse > before)
                leaks += " switch " + std::to_string(i) + " " + pool + "+" +
                         std::to_string(inUse - before) + ";";
        }
    std::string dead = deadManagers(p);
    std::printf(
        "%u events in %u s: loops %u, not recovered %u, refused %u; probe stream: %llu probes, "
        "%llu seen twice%s; pool blocks leaked: %s; managers not answering: %s\n",
        events, seconds, loops, lost, failed,
        static_cast<unsigned long long>(stopped ? last - first + 1 : 0),
        static_cast<unsigned long long>(streamLoops),
        stopped ? "" : (" (not stopped: " + err + ")").c_str(),
        leaks.empty() ? "none" : leaks.c_str(), dead.empty() ? "none" : dead.c_str());
    return loops == 0 && lost == 0 && failed == 0 && stopped && streamLoops == 0 && leaks.empty() &&
                   dead.empty()
               ? 0
               : kExitFailed;
}

bool switchNumber(const lab::Plan& p, const std::string& w, uint32_t* n) {
    std::string err;
    if (number::parse(w, 1, p.switches, "switch", n, &err)) return true;
    std::fprintf(stderr, "vornlab: %s\n", err.c_str());
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    lab::Plan plan;
    plan.dir = host::defaultRunDir() + "-lab";
    std::string hello, dead, vlans, cuts, seedText, minutesText, secondsText, everyText;
    bool dropLinkDown = false;
    cmdline::Program prog{
        "vornlab",
        {{"dir", 0, "DIR", "the lab's directory (default: /tmp/vorn-<uid>-lab)",
          cmdline::store(&plan.dir)},
         {"vlans", 0, "LIST", "member VLANs of the ring (default 20-29), with up",
          cmdline::store(&vlans)},
         {"hello", 0, "MS", "hello-interval (default 50), with up", cmdline::store(&hello)},
         {"dead", 0, "MS", "dead-interval (default 150), with up", cmdline::store(&dead)},
         {"cuts", 0, "K", "cable cuts (default 10), with converge", cmdline::store(&cuts)},
         {"every", 0, "MS", "probe interval of converge's probe stream (default 1)",
          cmdline::store(&everyText)},
         {"drop-link-down", 0, "",
          "with converge: switch 1, the master, loses every link-down frame",
          cmdline::set(&dropLinkDown)},
         {"seed", 0, "N", "seed of the random events (default 1), with converge and soak",
          cmdline::store(&seedText)},
         {"minutes", 0, "M", "how long soak runs (default 1)", cmdline::store(&minutesText)},
         {"seconds", 0, "S", "... or in seconds", cmdline::store(&secondsText)}},
        {"[OPTIONS] up N", "[--dir DIR] down", "[--dir DIR] show [--svg FILE]",
         "[--dir DIR] cut A B", "[--dir DIR] restore A B", "[--dir DIR] probe VLAN FROM",
         "[--dir DIR] [--cuts K] [--seed N] [--every MS] [--drop-link-down] converge",
         "[--dir DIR] [--minutes M | --seconds S] [--seed N] soak"},
        "A ring of N simulated switches (vornsim with its manager, two cards each), cabled\n"
        "east Gi 0/1 to west Gi 1/1, running ring 1 on control VLAN 10; switch 1 is the master.",
        nullptr};
    cmdline::Outcome o = cmdline::parse(prog, argc, argv);
    if (!o.run) return cmdline::finish(o);
    std::vector<std::string> words(argv + o.next, argv + argc);
    auto refuse = [&](const std::string& why) {
        return cmdline::finish(cmdline::refuse(prog, why));
    };
    if (words.empty()) return refuse("a command is needed: up, down, show, cut or restore");
    const std::string& cmd = words[0];
    std::string err;
    if (cmd == "up") {
        if (words.size() != 2) return refuse("usage: vornlab up N");
        if (!number::parse(words[1], lab::kMinSwitches, lab::kMaxSwitches, "switch count",
                           &plan.switches, &err) ||
            (!hello.empty() &&
             !number::parse(hello, 50, 2000, "hello-interval", &plan.helloMs, &err)) ||
            (!dead.empty() && !number::parse(dead, 50, 6000, "dead-interval", &plan.deadMs, &err)))
            return refuse(err);
        if (!vlans.empty()) {
            cli::VlanBitmap set{};
            if (!cli::parseVlanList(vlans, &set, &err)) return refuse(err);
            plan.memberVlans = vlans;
        }
        return up(plan);
    }
    if (!readPlan(plan.dir, &plan, &err)) {
        std::fprintf(stderr, "vornlab: %s\n", err.c_str());
        return kExitFailed;
    }
    if (cmd == "down" && words.size() == 1) return down(plan);
    if (cmd == "show" && words.size() == 1) return showLab(plan);
    if (cmd == "show" && words.size() == 3 && words[1] == "--svg") return drawLab(plan, words[2]);
    if (cmd == "soak" && words.size() == 1) {
        uint32_t minutes = 0, secs = 0, seed = 1;
        if ((!minutesText.empty() &&
             !number::parse(minutesText, 1, 24 * 60, "minutes", &minutes, &err)) ||
            (!secondsText.empty() &&
             !number::parse(secondsText, 1, 86400, "seconds", &secs, &err)) ||
            (!seedText.empty() && !number::parse(seedText, 0, UINT32_MAX, "seed", &seed, &err)))
            return refuse(err);
        if (minutes == 0 && secs == 0) minutes = 1;
        return soak(plan, minutes * 60 + secs, seed);
    }
    if (cmd == "converge" && words.size() == 1) {
        ConvergeOptions co;
        co.dropLinkDown = dropLinkDown;
        if ((!cuts.empty() && !number::parse(cuts, 1, 100000, "cut count", &co.cuts, &err)) ||
            (!seedText.empty() &&
             !number::parse(seedText, 0, UINT32_MAX, "seed", &co.seed, &err)) ||
            (!everyText.empty() &&
             !number::parse(everyText, 1, 1000, "probe interval (ms)", &co.everyMs, &err)))
            return refuse(err);
        return converge(plan, co);
    }
    if (cmd == "probe" && words.size() == 3) {
        uint32_t vlan = 0, from = 0;
        if (!number::parse(words[1], 1, 4094, "VLAN", &vlan, &err)) return refuse(err);
        if (!switchNumber(plan, words[2], &from)) return kExitFailed;
        return probe(plan, vlan, from);
    }
    if ((cmd == "cut" || cmd == "restore") && words.size() == 3) {
        uint32_t a = 0, b = 0;
        if (!switchNumber(plan, words[1], &a) || !switchNumber(plan, words[2], &b))
            return kExitFailed;
        return cable(plan, a, b, cmd == "cut");
    }
    return refuse("unknown command or wrong number of words: '" + cmd + "'");
}
