// The host's clocks: the monotonic one, in nanoseconds, one clock for every process on the
// host, so that times taken by different processes (a lab's switches and vornlab) compare;
// and the local time of day, for the stamps of log lines.
#pragma once

#include <time.h>

#include <cstdint>

namespace vorn::host {

inline uint64_t monotonicNs() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

// The local time now, broken down, and the microseconds past its second.
struct LocalTime {
    tm fields{};
    long micros = 0;
};
inline LocalTime localNow() {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    LocalTime t;
    localtime_r(&ts.tv_sec, &t.fields);
    t.micros = ts.tv_nsec / 1000;
    return t;
}

}  // namespace vorn::host
