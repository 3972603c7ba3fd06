#include "sim/log.h"

#include <cstdarg>
#include <cstdio>

#include "platform/clock.h"
#include "platform/ipc.h"

namespace vorn::sim {
namespace {

bool timestamps = false;

}  // namespace

void setSayTimestamps(bool on) {
    timestamps = on;
}

void say(const char* fmt, ...) {
    char line[1024];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(line, sizeof(line), fmt, ap);
    va_end(ap);
    if (timestamps) {
        const host::LocalTime now = host::localNow();
        std::printf("%02d:%02d:%02d.%06ld %s\n", now.fields.tm_hour, now.fields.tm_min,
                    now.fields.tm_sec, now.micros, line);
    } else {
        std::printf("%s\n", line);
    }
    std::fflush(stdout);
}

std::string queueName(uint32_t queueId) {
    if (queueId == 0) return "none";
    return std::to_string(ipc::queueService(queueId)) + "." +
           std::to_string(ipc::queueInstance(queueId));
}

}  // namespace vorn::sim
