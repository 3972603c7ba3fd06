// The manager (vornd) as a child process of the simulator.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace vorn::sim {

// "exit status 0", "killed by signal 9 (Killed)".
std::string describeWaitStatus(int status);

class ManagerProcess {
public:
    ManagerProcess() = default;
    // A manager still running is stopped (see stop()).
    ~ManagerProcess();
    ManagerProcess(const ManagerProcess&) = delete;
    ManagerProcess& operator=(const ManagerProcess&) = delete;

    // Starts `path` with `args` (argv[1] onwards). The child gets the default signal mask,
    // a process group of its own, and SIGTERM should the simulator die first. False, with the
    // reason in *err, when the program cannot be run.
    bool start(const std::string& path, const std::vector<std::string>& args, std::string* err);
    bool running() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }

    // Collects the child's end if it has ended. True, with how it ended in *how, once.
    bool reap(std::string* how);
    // Sends SIGTERM, waits up to timeoutMs for the end, then sends SIGKILL. Returns how it
    // ended; *clean is set when it exited with status 0 after the SIGTERM.
    std::string stop(int timeoutMs, bool* clean);
    // How the last child ended ("" while none has).
    const std::string& lastEnd() const { return lastEnd_; }

private:
    pid_t pid_ = -1;
    std::string lastEnd_;
};

}  // namespace vorn::sim
