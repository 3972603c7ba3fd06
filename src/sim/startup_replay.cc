// The startup configuration: when vornsim starts a manager and DIR/startup-config exists,
// the file is replayed through "vornctl -f" once the manager serves requests and has its
// interfaces. vornctl runs as a child process, so the chassis keeps serving the manager
// while the replay waits for its answers; its messages go to vornsim's own output.

#include <unistd.h>

#include "sim/chassis_sim.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {

std::string startupConfigPath(const std::string& rundir) {
    return rundir + "/startup-config";
}

}  // namespace

void ChassisSim::planReplay() {
    std::string file = startupConfigPath(opts_.rundir);
    if (access(file.c_str(), F_OK) != 0) return;
    if (opts_.vornctlPath.empty()) opts_.vornctlPath = defaultVornctlPath();
    replayPending_ = true;
    say("vornsim: %s found; it will be replayed through %s -f once the manager answers",
        file.c_str(), opts_.vornctlPath.c_str());
}

void ChassisSim::startReplayWhenReady() {
    // The manager registers with L2PM as the last step before its main loop; from then on
    // its requests queue up for it. The replay waits until the manager has acknowledged
    // L2PM's download, so that the configuration meets the interfaces it names.
    if (!replayPending_ || l2pm_.counters().registered <= registrationsBefore_ ||
        l2pm_.downloadPending() || !manager_.running())
        return;
    replayPending_ = false;
    std::string file = startupConfigPath(opts_.rundir);
    std::string err;
    if (!replay_.start(opts_.vornctlPath, {"--rundir", opts_.rundir, "-f", file}, &err)) {
        say("vornsim: cannot replay %s: %s", file.c_str(), err.c_str());
        return;
    }
    say("vornsim: the manager answers; replaying %s through %s -f (pid %d)", file.c_str(),
        opts_.vornctlPath.c_str(), static_cast<int>(replay_.pid()));
}

void ChassisSim::reapReplay() {
    std::string how;
    if (!replay_.reap(&how)) return;
    if (how == "exit status 0")
        say("vornsim: the startup configuration was replayed (vornctl ended: %s)", how.c_str());
    else
        say("vornsim: the replay of the startup configuration failed (vornctl ended: %s); "
            "see its messages above",
            how.c_str());
}

}  // namespace vorn::sim
