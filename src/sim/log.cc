#include "sim/log.h"

#include <sys/time.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>

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
        timeval tv{};
        gettimeofday(&tv, nullptr);
        tm local{};
        localtime_r(&tv.tv_sec, &local);
        std::printf("%02d:%02d:%02d.%06ld %s\n", local.tm_hour, local.tm_min, local.tm_sec,
                    static_cast<long>(tv.tv_usec), line);
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
