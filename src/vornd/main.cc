// vornd: the VORN ring manager.

#include <pthread.h>

#include <cstdint>
#include <cstdlib>

#include <cstdio>
#include <string>

#include "diag/diag.h"
#include "loop/loop.h"
#include "platform/ipc.h"
#include "task/tcb.h"

namespace {
void vornTaskEntry(intptr_t arg1, intptr_t arg2) {
    vornMainTask(arg1, arg2);
    // The task returns only when a start-up step failed; it has said which.
    if (vornTcb.ipcKey > 0) qelIpcClose(vornTcb.ipcKey);
    std::exit(1);
}
}  // namespace

int main(int argc, char** argv, char** env) {
    // A start refused by the command line ends here: with status 0 after --help or
    // --version, 2 after a bad option or run directory.
    if (QEL_NbsdpInit(argc, argv, env) != 0) std::exit(vorn::host::startExitStatus());
    // One manager per run directory: a second one must not take over the first one's queues.
    std::string err;
    if (!vorn::host::lockService(VORN_SERVICE, 0, &err)) {
        std::fprintf(stderr, "vornd: %s\n", err.c_str());
        std::exit(2);
    }
    if (taskSpawn("vorn", 200, 12, 16000, vornTaskEntry, argc, reinterpret_cast<intptr_t>(argv)) ==
        -1)
        std::exit(1);
    vornRegisterDiagCommands();
    qelDdbInit(argv);
    pthread_exit(nullptr);
}
