// The host options of a platform program: the manager's command line (QEL_NbsdpInit), the
// options in force, and the exit status of a start that the command line refused. Nothing here
// ends the process: the program's main decides, from startExitStatus().

#include <libgen.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/chassis.h"
#include "platform/cmdline.h"
#include "platform/ipc.h"
#include "platform/ipc_internal.h"

namespace vorn::host {
namespace {

Options& optionsStorage() {
    static Options opts{defaultRunDir(), 0x3, false, false};
    return opts;
}

int gStartExitStatus = cmdline::kExitOk;

// The program's name for its messages and --version: the last part of argv[0].
std::string programName(int argc, char** argv) {
    if (argc < 1 || argv[0] == nullptr || argv[0][0] == '\0') return "vornd";
    std::string path = argv[0];
    return basename(path.data());
}

}  // namespace

const Options& options() {
    return optionsStorage();
}
Options& mutableOptions() {
    return optionsStorage();
}
int startExitStatus() {
    return gStartExitStatus;
}

}  // namespace vorn::host

using namespace vorn;

int QEL_NbsdpInit(int argc, char** argv, char** /*env*/) {
    // Read into a copy: a refused command line changes none of the options in force.
    host::Options opts = host::options();
    cmdline::Program prog;
    prog.name = host::programName(argc, argv);
    prog.options = {
        {"rundir", 0, "DIR", "run directory of the chassis (default " + host::defaultRunDir() + ")",
         cmdline::store(&opts.rundir)},
        {"cards", 0, "LIST", "comma list of slots 0..11 with a card present (default 0,1)",
         [&opts](const std::string& list) {
             std::string why;
             if (chassis::parseCardList(list, &opts.cards, &why)) return std::string();
             return "bad --cards list '" + list + "': " + why;
         }},
        {"standby", 0, "", "run as the standby route processor", cmdline::set(&opts.standby)},
        {"peer-pair", 0, "", "enable the peer-pair feature", cmdline::set(&opts.peerPair)},
    };
    cmdline::Outcome parsed = cmdline::parse(prog, argc, argv);
    if (parsed.run && parsed.next < argc)
        parsed =
            cmdline::refuse(prog, "unexpected argument '" + std::string(argv[parsed.next]) + "'");
    if (!parsed.run) {
        host::gStartExitStatus = cmdline::finish(parsed);
        return 1;
    }
    std::string err;
    if (!host::setRunDir(opts.rundir, &err)) {
        std::fprintf(stderr, "%s: %s\n", prog.name.c_str(), err.c_str());
        host::gStartExitStatus = cmdline::kExitUsage;
        return 1;
    }
    host::mutableOptions() = opts;
    host::installCleanExit();
    return 0;
}
