// vornlab: brings up a ring of simulated switches, cuts and restores its cables, shows it
// and takes it down. See lab/lab.h for the lab's shape.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include "cli/client.h"
#include "cli/vlan_list.h"
#include "lab/lab.h"
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

// Starts argv as a daemon of its own (a new session, not our child), its output in `out`.
bool startDetached(const std::vector<std::string>& argv, const std::string& out) {
    pid_t pid = fork();
    if (pid < 0) return false;
    if (pid == 0) {
        setsid();
        if (fork() != 0) _exit(0);
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
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Runs argv to its end; its exit status, or -1.
int run(const std::vector<std::string>& argv, const std::string& out) {
    pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) {
        int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0) _exit(126);
        dup2(fd, 1);
        dup2(fd, 2);
        std::vector<char*> args;
        for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
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
    return a.ok && a.text.find("L2PM reg success") != std::string::npos &&
           a.text.find("L2PM reg success                : 0") == std::string::npos;
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
        if (!startDetached(lab::simArgs(p, i, vornsim), dir + "/vornsim.out")) {
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
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
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
    auto t0 = Clock::now();
    while (!ringComplete(p)) {
        if (Clock::now() > t0 + kStartTimeout) {
            std::fprintf(stderr, "vornlab: the ring did not become complete within %lld s\n",
                         static_cast<long long>(kStartTimeout.count()));
            return kExitFailed;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
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

int cable(const lab::Plan& p, uint32_t a, uint32_t b, bool cut) {
    std::string port = lab::portTowards(p, a, b);
    if (port.empty()) {
        std::fprintf(stderr, "vornlab: switches %u and %u are not joined by a cable\n", a, b);
        return kExitFailed;
    }
    cli::Client c(lab::switchDir(p, a), 2000);
    cli::Answer ans = c.sim("cable " + port + (cut ? " cut" : " restore"));
    std::printf("%s\n", ans.text.c_str());
    return ans.ok ? 0 : kExitFailed;
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
    std::string hello, dead, vlans;
    cmdline::Program prog{
        "vornlab",
        {{"dir", 0, "DIR", "the lab's directory (default: /tmp/vorn-<uid>-lab)",
          cmdline::store(&plan.dir)},
         {"vlans", 0, "LIST", "member VLANs of the ring (default 20-29), with up",
          cmdline::store(&vlans)},
         {"hello", 0, "MS", "hello-interval (default 50), with up", cmdline::store(&hello)},
         {"dead", 0, "MS", "dead-interval (default 150), with up", cmdline::store(&dead)}},
        {"[OPTIONS] up N", "[--dir DIR] down", "[--dir DIR] show", "[--dir DIR] cut A B",
         "[--dir DIR] restore A B"},
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
    if ((cmd == "cut" || cmd == "restore") && words.size() == 3) {
        uint32_t a = 0, b = 0;
        if (!switchNumber(plan, words[1], &a) || !switchNumber(plan, words[2], &b))
            return kExitFailed;
        return cable(plan, a, b, cmd == "cut");
    }
    return refuse("unknown command or wrong number of words: '" + cmd + "'");
}
