// The host's monotonic clock, in nanoseconds: one clock for every process on the host, so
// that times taken by different processes (a lab's switches and vornlab) compare.
#pragma once

#include <time.h>

#include <cstdint>

namespace vorn::host {

inline uint64_t monotonicNs() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

}  // namespace vorn::host
