// vornsim: the simulated chassis around the ring manager.

#include <cstdio>
#include <string>

#include "platform/ipc.h"
#include "sim/chassis_sim.h"
#include "sim/log.h"
#include "sim/options.h"
#include "sim/signals.h"

int main(int argc, char** argv) {
    using namespace vorn;
    // Line by line even into a file or a pipe, so the narration keeps up with events.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    sim::SimOptions opts;
    std::string message;
    switch (sim::parseOptions(argc, argv, &opts, &message)) {
        case sim::ParseOutcome::Help:
            std::fputs(message.c_str(), stdout);
            return 0;
        case sim::ParseOutcome::Error:
            std::fputs(message.c_str(), stderr);
            return 2;
        case sim::ParseOutcome::Run:
            break;
    }
    std::string err;
    if (!host::setRunDir(opts.rundir, &err)) {
        std::fprintf(stderr, "vornsim: %s\n", err.c_str());
        return 2;
    }
    sim::setSayTimestamps(opts.timestamps);
    sim::ChassisSim chassis(opts);
    // Signals are taken before the manager is started, so its end is never missed.
    sim::SignalSource signals([&chassis](int sig) { chassis.onSignal(sig); });
    if (!signals.ok()) {
        std::perror("vornsim: signalfd");
        return 1;
    }
    if (!chassis.start(&err)) {
        std::fprintf(stderr, "vornsim: %s\n", err.c_str());
        return 1;
    }
    chassis.loop().add(&signals);
    int status = chassis.serve();
    chassis.loop().remove(&signals);
    return status;
}
