// The commands that start and stop the manager under a running chassis: a manager that was
// stopped, or that died, is started again and rebuilds its state from L2PM's download and
// the startup configuration.

#include "platform/ipc.h"
#include "sim/chassis_sim.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {

constexpr int kStopTimeoutMs = 5000;

}  // namespace

void ChassisSim::registerManagerCommands() {
    commands_.add(
        {"manager start", "",
         "start the manager (when none runs); it gets L2PM's download and replays "
         "DIR/startup-config",
         0, 0, [this](const CommandTable::Args&) {
             reapManager();  // a manager that has just died is collected first
             if (manager_.running())
                 return refused("the manager is already running (pid " +
                                std::to_string(manager_.pid()) + ")");
             if (host::endpointAlive(host::queuePath(ipc::kSvcManager, 0, ipc::kKindRequest)))
                 return refused("a manager that vornsim did not start is running in " +
                                opts_.rundir);
             std::string err;
             registrationsBefore_ = l2pm_.counters().registered;
             if (!startManager(&err)) return refused(err);
             managerEndedAlone_ = false;
             planReplay();
             return done(
                 "started the manager (pid " + std::to_string(manager_.pid()) + ")" +
                 (replayPending_ ? "; it will replay " + opts_.rundir + "/startup-config" : ""));
         }});
    commands_.add({"manager stop", "", "stop the manager that vornsim started (SIGTERM)", 0, 0,
                   [this](const CommandTable::Args&) {
                       reapManager();
                       if (!manager_.running()) return refused("vornsim has no manager running");
                       int pid = static_cast<int>(manager_.pid());
                       replayPending_ = false;
                       bool clean = false;
                       std::string how = manager_.stop(kStopTimeoutMs, &clean);
                       say("vornsim: the manager (pid %d) stopped at the operator's request: %s",
                           pid, how.c_str());
                       return done("the manager (pid " + std::to_string(pid) + ") ended: " + how +
                                   (clean ? "" : " (it did not stop cleanly)"));
                   }});
}

}  // namespace vorn::sim
