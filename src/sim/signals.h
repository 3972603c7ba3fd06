// SIGTERM, SIGINT and SIGCHLD as events of the simulator's loop (through a signalfd), so
// that a stop request or a child's end is handled between two messages, never inside one.
#pragma once

#include <signal.h>

#include <functional>

#include "sim/loop.h"

namespace vorn::sim {

class SignalSource : public Source {
public:
    using Handler = std::function<void(int sig)>;

    // Blocks the three signals for the process and delivers them to `onSignal`.
    explicit SignalSource(Handler onSignal);
    // Restores the signal mask that was in force before.
    ~SignalSource() override;
    SignalSource(const SignalSource&) = delete;
    SignalSource& operator=(const SignalSource&) = delete;

    bool ok() const { return fd_ >= 0; }
    void wait(Poller& poller) override;

private:
    void drain();

    Handler onSignal_;
    sigset_t oldMask_{};
    int fd_ = -1;
};

}  // namespace vorn::sim
