// Configuration through the command line against a running chassis (vornsim and vornd):
//   - requests per second through vornctl's client code, beside the bare request round trip
//     (a hand-built 1024-byte request on a plain AF_UNIX socket);
//   - the time `vornctl -f` takes to apply a 255-ring configuration with every option set,
//     against the floor of as many bare request round trips;
//   - vornd's resident memory at full tables: those rings, VLANs 1-4094, every port of 12
//     cards and every port-channel.
// Exits 1 when a goal is missed.

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "cli/client.h"
#include "cli/request.h"
#include "platform/codec.h"
#include "platform/ipc.h"

namespace {

using namespace vorn;
using Clock = std::chrono::steady_clock;

constexpr int kRequests = 5000;
constexpr int kRingCommands = 2040;  // the commands of the ring file, each one request
constexpr double kApplyGoalRatio = 1.2;
constexpr double kRssGoalMiB = 8.0;

double secondsSince(Clock::time_point t0) {
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

pid_t spawn(std::vector<std::string> argv, const std::string& out) {
    std::vector<char*> args;
    for (std::string& a : argv) args.push_back(a.data());
    args.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        FILE* f = std::freopen(out.c_str(), "w", stdout);
        if (f == nullptr) _exit(126);
        dup2(fileno(stdout), 2);
        execv(args[0], args.data());
        _exit(127);
    }
    return pid;
}

// The hello-interval request of ring 1, as the manager expects it on the wire.
cli::nm::ConfigRequest helloRequest(uint16_t value) {
    cli::nm::ConfigRequest r;
    r.type = cli::nm::Type::HelloTimer;
    r.ringId = 1;
    r.hello = value;
    return r;
}

double clientRate(cli::Client& client) {
    auto t0 = Clock::now();
    for (int i = 0; i < kRequests; ++i) {
        cli::ConfigAnswer a = client.configure(helloRequest(i % 2 ? 300 : 400));
        if (!a.answered) {
            std::fprintf(stderr, "request %d unanswered: %s\n", i, a.error.c_str());
            std::exit(2);
        }
    }
    return kRequests / secondsSince(t0);
}

// A minimal client: one socket, one hand-built request, sent and answered kRequests times.
double bareRate(const std::string& dir) {
    std::string path = dir + "/bare.cli";
    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un me{}, mgr{};
    me.sun_family = mgr.sun_family = AF_UNIX;
    std::strncpy(me.sun_path, path.c_str(), sizeof(me.sun_path) - 1);
    std::string target = dir + "/226.0.1";
    std::strncpy(mgr.sun_path, target.c_str(), sizeof(mgr.sun_path) - 1);
    if (bind(fd, reinterpret_cast<sockaddr*>(&me), sizeof(me)) != 0) std::exit(2);
    std::array<uint8_t, 1024> req{}, reply{};
    be::Writer w(req.data(), req.size());
    w.u32(ipc::kOffMagic, ipc::kMagic);
    w.u32(ipc::kOffMlen, 1024);
    w.u32(ipc::kOffMtype, cli::nm::kMtNm);
    w.u32(ipc::kOffDstSvce, qel_getQueueId(ipc::kSvcManager, 0, ipc::kKindRequest));
    w.u32(cli::nm::kOffType, static_cast<uint32_t>(cli::nm::Type::HelloTimer));
    w.u16(cli::nm::kOffRingId, 1);
    auto t0 = Clock::now();
    for (int i = 0; i < kRequests; ++i) {
        w.u16(cli::nm::kOffHello, i % 2 ? 300 : 400);
        sendto(fd, req.data(), req.size(), 0, reinterpret_cast<sockaddr*>(&mgr), sizeof(mgr));
        if (recv(fd, reply.data(), reply.size(), 0) != 1024) std::exit(2);
    }
    double rate = kRequests / secondsSince(t0);
    close(fd);
    unlink(path.c_str());
    return rate;
}

// Rings 1..255, each with every option: its own control VLAN (3001..3255) and four member
// VLANs of its own, on ring interfaces shared by all rings.
std::string writeRingFile(const std::string& dir) {
    std::string path = dir + "/rings.cfg";
    std::ofstream f(path);
    for (int r = 1; r <= 255; ++r) {
        f << "protocol vorn " << r << "\n"
          << " interface primary Gi 0/1 secondary Gi 1/1 control-vlan " << 3000 + r << "\n"
          << " member-vlan " << 4 * r << "-" << 4 * r + 3 << "\n"
          << " mode " << (r % 2 ? "master" : "transit") << "\n"
          << " timer hello-interval 300\n"
          << " timer dead-interval 900\n"
          << " description ring " << r << " of the benchmark\n"
          << " no disable\n"
          << "exit\n";
    }
    return path;
}

// The manager's main thread ends once it has spawned its task, so the process's own status
// has no memory figures; any of its live threads has them.
double residentMiB(pid_t pid) {
    std::error_code ec;
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", ec)) {
        std::ifstream f(task.path() / "status");
        for (std::string line; std::getline(f, line);)
            if (line.rfind("VmRSS:", 0) == 0) return std::stod(line.substr(6)) / 1024.0;
    }
    return -1;
}

pid_t managerPid(cli::Client& client) {
    cli::Answer a = client.sim("status");
    std::smatch m;
    static const std::regex pidRe("pid ([0-9]+)");
    return std::regex_search(a.text, m, pidRe) ? std::stoi(m[1]) : -1;
}

}  // namespace

int main() {
    char tmpl[] = "/tmp/vorn-cfgbench-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) return 2;
    const std::string base = tmpl, dir = base + "/run";
    pid_t sim = spawn({VORNSIM_PATH, "--rundir", dir, "--vornd", VORND_PATH, "--vornctl",
                       VORNCTL_PATH, "--cards", "0,1,2,3,4,5,6,7,8,9,10,11", "--ports", "64"},
                      base + "/vornsim.out");
    for (int i = 0; i < 200 && !std::filesystem::exists(dir + "/226.0.1"); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    cli::Client client(dir);
    bool up = false;
    std::string last;
    for (int i = 0; i < 200 && !up; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        cli::Answer a = client.shell("vornPrintCounters");
        last = a.text;
        up = a.ok && std::regex_search(a.text, std::regex("L2PM reg success +1"));
    }
    if (!up) {
        std::fprintf(stderr, "the chassis did not come up: %s\n", last.c_str());
        kill(sim, SIGTERM);
        return 2;
    }
    std::string file = writeRingFile(base);
    auto t0 = Clock::now();
    pid_t ctl = spawn({VORNCTL_PATH, "--rundir", dir, "-f", file}, base + "/apply.out");
    int status = 0;
    waitpid(ctl, &status, 0);
    double apply = secondsSince(t0);
    bool applied = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    // Full tables: every VLAN and every port-channel besides the ports of the 12 cards.
    bool full = client.sim("vlan 1-4094").answered;
    for (uint32_t lag = 1; lag <= 128 && full; ++lag)
        full = client.sim("lag " + std::to_string(lag)).ok;
    // Measured once the manager is idle: the last agent has acknowledged the last message, so
    // no message buffer is in use.
    static const std::regex busy(R"(var \S+ +\S+ +8192 +[1-9])");
    for (int i = 0; i < 100 && std::regex_search(client.shell("qelMemShow").text, busy); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pid_t mgr = managerPid(client);
    double rss = residentMiB(mgr);
    if (rss < 0) std::fprintf(stderr, "no resident size for the manager (pid %d)\n", mgr);

    // The request rates, on the configured chassis: every request reaches all twelve agents,
    // as the ring file's commands do.
    double viaClient = clientRate(client);
    double bare = bareRate(dir);

    kill(sim, SIGTERM);
    waitpid(sim, &status, 0);
    std::filesystem::remove_all(base);

    std::printf("configuration requests (%d, hello-interval of one ring)\n", kRequests);
    std::printf("  %-28s %9.0f requests/s\n", "bare request round trip", bare);
    std::printf("  %-28s %9.0f requests/s\n", "vornctl client code", viaClient);
    std::printf("  ratio client/bare            %9.2f\n", viaClient / bare);
    const double floor = kRingCommands / bare;
    std::printf("255 rings with every option set (%d commands), vornctl -f\n", kRingCommands);
    std::printf("  %-28s %9.3f s%s\n", "time to apply", apply, applied ? "" : "  REPLAY FAILED");
    std::printf("  %-28s %9.3f s\n", "floor: bare round trips", floor);
    std::printf("  ratio apply/floor            %9.2f   (goal: <= %.1f)\n", apply / floor,
                kApplyGoalRatio);
    std::printf("full tables: 255 rings, VLANs 1-4094, 768 ports, 128 port-channels%s\n",
                full ? "" : "  NOT ALL CREATED");
    std::printf("  %-28s %9.1f MiB (goal: <= %.0f MiB)\n", "vornd resident memory", rss,
                kRssGoalMiB);
    bool ok = applied && full && apply / floor <= kApplyGoalRatio && rss > 0 && rss <= kRssGoalMiB;
    std::printf("%s\n", ok ? "goals met" : "GOALS MISSED");
    return ok ? 0 : 1;
}
