#include "chassis.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace vorn::e2e {

using Clock = std::chrono::steady_clock;

pid_t spawn(std::vector<std::string> argv, const std::string& out) {
    std::vector<char*> args;
    for (std::string& a : argv) args.push_back(a.data());
    args.push_back(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (fd < 0) _exit(126);
        dup2(fd, 1);
        dup2(fd, 2);
        execv(args[0], args.data());
        _exit(127);
    }
    return pid;
}

std::string slurp(const std::string& path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

int runToEnd(const std::vector<std::string>& argv, const std::string& outFile, std::string* out) {
    pid_t pid = spawn(argv, outFile);
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
    if (out != nullptr) *out = slurp(outFile);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool eventually(const std::function<bool()>& cond, int timeoutMs) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!cond()) {
        if (Clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

int waitEnd(pid_t pid, int timeoutMs) {
    int status = 0;
    if (eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; }, timeoutMs)) return status;
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return -1;
}

std::vector<std::string> words(const std::string& line) {
    std::vector<std::string> out;
    std::istringstream in(line);
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

Chassis::Chassis() {
    char tmpl[] = "/tmp/vorn-e2e-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) throw std::runtime_error("mkdtemp failed");
    base_ = tmpl;
    dir_ = base_ + "/run";
    simOut_ = base_ + "/vornsim.out";
}

Chassis::~Chassis() {
    if (sim_ > 0) stop();
    std::error_code ec;
    std::filesystem::remove_all(base_, ec);
}

void Chassis::start(const std::vector<std::string>& simOptions) {
    std::vector<std::string> argv = {VORNSIM_PATH, "--rundir", dir_, "--vornd", VORND_PATH};
    argv.insert(argv.end(), simOptions.begin(), simOptions.end());
    sim_ = spawn(argv, simOut_);
}

bool Chassis::startAndWait() {
    start({"--vornctl", VORNCTL_PATH});
    return eventually([this] { return ctl({"shell", "qelIpcStats"}) == 0; }, 20000);
}

int Chassis::stop() {
    if (sim_ <= 0) return -1;
    kill(sim_, SIGTERM);
    int status = waitEnd(sim_, 10000);
    sim_ = -1;
    return status;
}

int Chassis::ctl(const std::vector<std::string>& args, std::string* out) const {
    static std::atomic<int> seq{0};
    std::vector<std::string> argv = {VORNCTL_PATH, "--rundir", dir_};
    argv.insert(argv.end(), args.begin(), args.end());
    std::string file = base_ + "/vornctl." + std::to_string(seq++) + ".out";
    int rc = runToEnd(argv, file, out);
    std::filesystem::remove(file);
    return rc;
}

std::string Chassis::run(const std::string& first, const std::string& line) const {
    std::string out;
    EXPECT_EQ(ctl(words(first + " " + line), &out), 0) << first << " " << line << ": " << out;
    return out;
}

::testing::AssertionResult Chassis::shows(const std::string& first, const std::string& line,
                                          const std::string& want) const {
    std::string last;
    if (eventually([&] { return (last = run(first, line)).find(want) != std::string::npos; },
                   10000))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << first << " " << line << ": wanted\n"
                                         << want << "\ngot\n"
                                         << last;
}

long Chassis::counter(const std::string& label) const {
    std::string out;
    if (ctl({"shell", "vornPrintCounters"}, &out) != 0) return -1;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) {
        size_t at = line.find(label);
        if (at == std::string::npos) continue;
        return std::strtol(line.c_str() + at + label.size(), nullptr, 10);
    }
    return -1;
}

}  // namespace vorn::e2e
