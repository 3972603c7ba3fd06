// The clean stop of a platform program: SIGTERM and SIGINT only make a descriptor readable;
// the program's own thread, between two messages, then ends the process cleanly.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <mutex>

#include "platform/cfgstore.h"
#include "platform/ipc.h"
#include "platform/ipc_internal.h"

namespace vorn::host {
namespace {

int gStopPipe[2] = {-1, -1};

// Async-signal-safe: one byte into the pipe, errno left as it was.
void onStopSignal(int) {
    int saved = errno;
    char byte = 1;
    ssize_t n = write(gStopPipe[1], &byte, 1);
    (void)n;
    errno = saved;
}

}  // namespace

void installCleanExit() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (pipe2(gStopPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
            std::perror("stop pipe");
            return;
        }
        struct sigaction sa {};
        sa.sa_handler = onStopSignal;
        sigemptyset(&sa.sa_mask);
        sigaction(SIGTERM, &sa, nullptr);
        sigaction(SIGINT, &sa, nullptr);
    });
}

int stopEventFd() {
    return gStopPipe[0];
}

bool stopRequested() {
    if (gStopPipe[0] < 0) return false;
    pollfd p{gStopPipe[0], POLLIN, 0};
    return poll(&p, 1, 0) > 0 && (p.revents & POLLIN) != 0;
}

void stopNow() {
    cfgStoreCommit();  // what the last message changed reaches its files
    unlinkAllSockets();
    unlinkPeerLinkSocket();
    releaseServiceLock();
    std::fflush(stdout);
    std::fflush(stderr);
    _exit(0);
}

}  // namespace vorn::host
