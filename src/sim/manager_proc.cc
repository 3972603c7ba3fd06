#include "sim/manager_proc.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace vorn::sim {
namespace {

// Runs in the child between fork and exec: only async-signal-safe calls. On failure the
// errno goes back through the pipe, which closes by itself on a successful exec.
[[noreturn]] void execChild(const char* path, char* const* argv, int errPipe, pid_t parent) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    // A process group of its own: a Ctrl-C at the terminal reaches vornsim only, which then
    // stops the manager itself, in order.
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    // The parent may have died before the line above took effect.
    if (getppid() != parent) _exit(127);
    execv(path, argv);
    int e = errno;
    ssize_t n = write(errPipe, &e, sizeof(e));
    (void)n;
    _exit(127);
}

}  // namespace

std::string describeWaitStatus(int status) {
    if (WIFEXITED(status)) return "exit status " + std::to_string(WEXITSTATUS(status));
    if (WIFSIGNALED(status)) {
        int sig = WTERMSIG(status);
        const char* name = strsignal(sig);
        return "killed by signal " + std::to_string(sig) + " (" + (name ? name : "?") + ")";
    }
    return "ended with wait status " + std::to_string(status);
}

ManagerProcess::~ManagerProcess() {
    if (running()) {
        bool clean = false;
        stop(5000, &clean);
    }
}

bool ManagerProcess::start(const std::string& path, const std::vector<std::string>& args,
                           std::string* err) {
    if (running()) {
        *err = "a manager is already running (pid " + std::to_string(pid_) + ")";
        return false;
    }
    if (access(path.c_str(), X_OK) != 0) {
        *err = "cannot run " + path + ": " + std::strerror(errno);
        return false;
    }
    std::vector<std::string> all{path};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : all) argv.push_back(a.data());
    argv.push_back(nullptr);

    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        *err = std::string("pipe: ") + std::strerror(errno);
        return false;
    }
    pid_t parent = getpid();
    pid_t pid = fork();
    if (pid < 0) {
        *err = std::string("fork: ") + std::strerror(errno);
        close(fds[0]);
        close(fds[1]);
        return false;
    }
    if (pid == 0) {
        close(fds[0]);
        execChild(path.c_str(), argv.data(), fds[1], parent);
    }
    close(fds[1]);
    int childErrno = 0;
    ssize_t n;
    do {
        n = read(fds[0], &childErrno, sizeof(childErrno));
    } while (n < 0 && errno == EINTR);
    close(fds[0]);
    if (n == static_cast<ssize_t>(sizeof(childErrno))) {
        waitpid(pid, nullptr, 0);
        *err = "cannot run " + path + ": " + std::strerror(childErrno);
        return false;
    }
    pid_ = pid;
    lastEnd_.clear();
    return true;
}

bool ManagerProcess::reap(std::string* how) {
    if (!running()) return false;
    int status = 0;
    pid_t r = waitpid(pid_, &status, WNOHANG);
    if (r != pid_) return false;
    pid_ = -1;
    lastEnd_ = describeWaitStatus(status);
    *how = lastEnd_;
    return true;
}

std::string ManagerProcess::stop(int timeoutMs, bool* clean) {
    *clean = false;
    if (!running()) return lastEnd_;
    kill(pid_, SIGTERM);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    int status = 0;
    for (;;) {
        pid_t r = waitpid(pid_, &status, WNOHANG);
        if (r == pid_) {
            *clean = WIFEXITED(status) && WEXITSTATUS(status) == 0;
            break;
        }
        if (r < 0 && errno != EINTR) {  // not our child any more; nothing left to wait for
            lastEnd_ = "lost (" + std::string(std::strerror(errno)) + ")";
            pid_ = -1;
            return lastEnd_;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    pid_ = -1;
    lastEnd_ = describeWaitStatus(status);
    return lastEnd_;
}

}  // namespace vorn::sim
