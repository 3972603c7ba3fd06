#include "sim/signals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>

namespace vorn::sim {

SignalSource::SignalSource(Handler onSignal) : onSignal_(std::move(onSignal)) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGCHLD);
    sigprocmask(SIG_BLOCK, &set, &oldMask_);
    fd_ = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
}

SignalSource::~SignalSource() {
    if (fd_ >= 0) close(fd_);
    sigprocmask(SIG_SETMASK, &oldMask_, nullptr);
}

void SignalSource::wait(Poller& poller) {
    poller.onReadable(fd_, [this] { drain(); });
}

void SignalSource::drain() {
    signalfd_siginfo info{};
    for (;;) {
        ssize_t n = read(fd_, &info, sizeof(info));
        if (n != static_cast<ssize_t>(sizeof(info))) {
            if (n < 0 && errno == EINTR) continue;
            return;
        }
        onSignal_(static_cast<int>(info.ssi_signo));
    }
}

}  // namespace vorn::sim
