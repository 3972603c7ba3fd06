// The simulator's narration: one line per thing it does, on the standard output.
#pragma once

#include <cstdint>
#include <string>

namespace vorn::sim {

// Prints one line (a newline is added) and flushes it, so that the lines of the simulator
// and of the manager it started keep their order in a shared terminal or file.
void say(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
// With it on, every line say() prints starts with the time of day, "HH:MM:SS.uuuuuu ".
void setSayTimestamps(bool on);

// "226.0" for a queue id (the kind is left out); "none" for 0.
std::string queueName(uint32_t queueId);

}  // namespace vorn::sim
