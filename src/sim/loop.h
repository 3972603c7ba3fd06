// The simulator's one event loop.
//
// Every part of the simulated chassis is a Source: before each pass it tells the loop which
// descriptors it waits on (with the handler to call when one is readable) and how soon it
// wants to run again; after the ready handlers ran, each source gets a call to do its
// periodic work. The loop blocks once per pass, in poll, over everything at the same time.
#pragma once

#include <functional>
#include <vector>

namespace vorn::sim {

// Milliseconds of the monotonic clock, for the periodic work of the sources.
long nowMs();

// What one pass waits on: readable descriptors and a wake-up time.
class Poller {
public:
    using Handler = std::function<void()>;

    // Calls `onReady` once in this pass when fd is readable. Negative descriptors are ignored.
    void onReadable(int fd, Handler onReady);
    // Wakes the loop at the latest after `ms` milliseconds.
    void wakeWithin(int ms);

    int timeoutMs() const { return timeoutMs_; }

private:
    friend class EventLoop;
    struct Watch {
        int fd;
        Handler onReady;
    };
    std::vector<Watch> watches_;
    int timeoutMs_ = -1;  // -1: no wake-up asked for
};

// A part of the chassis that the loop drives.
class Source {
public:
    virtual ~Source() = default;
    // Adds this source's descriptors and wake-up time for the next pass.
    virtual void wait(Poller& poller) = 0;
    // Periodic work, called once per pass after the ready handlers.
    virtual void run() {}
};

class EventLoop {
public:
    // Adds a source; it must stay alive while the loop runs (or until it is removed).
    void add(Source* source);
    void remove(Source* source);

    // One pass: waits at most maxWaitMs (negative: as long as the sources allow), serves
    // what is ready, then runs every source's periodic work. Returns false when the loop
    // was asked to stop.
    bool runOnce(int maxWaitMs);
    // Runs passes until stop() is called.
    void run();
    // Ends run() after the current pass. Called from the loop's own thread (a handler).
    void stop() { stopping_ = true; }
    bool stopping() const { return stopping_; }

private:
    std::vector<Source*> sources_;
    bool stopping_ = false;
};

}  // namespace vorn::sim
