// A simulated chassis for end-to-end tests: vornsim (which starts vornd) in a fresh run
// directory, driven through vornctl as an operator would.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace vorn::e2e {

// Starts argv with its standard output and error in the file `out`. Returns the pid.
pid_t spawn(std::vector<std::string> argv, const std::string& out);
std::string slurp(const std::string& path);
// Runs a program to its end; returns its exit status (-1 when it did not exit) and output.
int runToEnd(const std::vector<std::string>& argv, const std::string& outFile, std::string* out);
// Waits for a child's end up to timeoutMs; returns its wait status, or -1 (it is then killed).
int waitEnd(pid_t pid, int timeoutMs);
// Polls cond every 20 ms until it holds or timeoutMs passes.
bool eventually(const std::function<bool()>& cond, int timeoutMs);
// "sim port Gi 0/1 up" as vornctl's arguments.
std::vector<std::string> words(const std::string& line);

class Chassis {
public:
    // Creates a fresh base directory; the run directory is base/run.
    Chassis();
    ~Chassis();
    Chassis(const Chassis&) = delete;
    Chassis& operator=(const Chassis&) = delete;

    // Starts vornsim with extra options (it starts vornd unless told otherwise).
    void start(const std::vector<std::string>& simOptions = {});
    // Starts vornsim with vornctl to replay DIR/startup-config and waits until the manager
    // answers the shell.
    bool startAndWait();
    // SIGTERM to vornsim; returns its wait status (-1 if it had to be killed).
    int stop();
    // Runs vornctl with --rundir and the arguments; returns its exit status.
    int ctl(const std::vector<std::string>& args, std::string* out = nullptr) const;
    // vornctl with the words of `line` after `first`, expected to succeed; returns its output.
    std::string run(const std::string& first, const std::string& line) const;
    // Waits until what `first line` prints holds `want`.
    ::testing::AssertionResult shows(const std::string& first, const std::string& line,
                                     const std::string& want) const;
    // The value of a counter line of vornPrintCounters, or -1 when the shell did not answer.
    long counter(const std::string& label) const;
    // What vornsim printed so far.
    std::string simLog() const { return slurp(simOut_); }

    const std::string& base() const { return base_; }
    const std::string& rundir() const { return dir_; }

private:
    std::string base_;
    std::string dir_;
    std::string simOut_;
    pid_t sim_ = -1;
};

}  // namespace vorn::e2e
