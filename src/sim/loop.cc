#include "sim/loop.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "platform/ipc.h"

namespace vorn::sim {
namespace {

constexpr int kDeferredRetryMs = 1;

}  // namespace

long nowMs() {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                 std::chrono::steady_clock::now().time_since_epoch())
                                 .count());
}

void Poller::onReadable(int fd, Handler onReady) {
    if (fd < 0 || !onReady) return;
    watches_.push_back({fd, std::move(onReady)});
}

void Poller::wakeWithin(int ms) {
    ms = std::max(ms, 0);
    timeoutMs_ = timeoutMs_ < 0 ? ms : std::min(timeoutMs_, ms);
}

void EventLoop::add(Source* source) {
    if (source != nullptr && std::find(sources_.begin(), sources_.end(), source) == sources_.end())
        sources_.push_back(source);
}

void EventLoop::remove(Source* source) {
    sources_.erase(std::remove(sources_.begin(), sources_.end(), source), sources_.end());
}

bool EventLoop::runOnce(int maxWaitMs) {
    if (stopping_) return false;
    Poller poller;
    for (Source* s : sources_) s->wait(poller);
    if (maxWaitMs >= 0) poller.wakeWithin(maxWaitMs);
    // Datagrams waiting for room in a full peer queue are tried again soon: a peer's queue
    // gives no sign when room comes.
    if (host::flushDeferredSends() != 0) poller.wakeWithin(kDeferredRetryMs);

    std::vector<pollfd> fds;
    fds.reserve(poller.watches_.size());
    for (const auto& w : poller.watches_) fds.push_back({w.fd, POLLIN, 0});
    int n = poll(fds.data(), fds.size(), poller.timeoutMs());
    if (n < 0 && errno != EINTR)
        std::fprintf(stderr, "vornsim: poll failed: %s\n", std::strerror(errno));
    for (size_t i = 0; n > 0 && i < fds.size(); ++i) {
        // An error or hang-up is served like input: the handler's read finds out what it is.
        if (fds[i].revents != 0) poller.watches_[i].onReady();
    }
    for (Source* s : sources_) s->run();
    return !stopping_;
}

void EventLoop::run() {
    while (runOnce(-1)) {
    }
}

}  // namespace vorn::sim
