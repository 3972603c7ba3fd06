#include "sim/log.h"

#include <cstdarg>
#include <cstdio>

#include "platform/ipc.h"

namespace vorn::sim {

void say(const char* fmt, ...) {
    char line[1024];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(line, sizeof(line), fmt, ap);
    va_end(ap);
    std::printf("%s\n", line);
    std::fflush(stdout);
}

std::string queueName(uint32_t queueId) {
    if (queueId == 0) return "none";
    return std::to_string(ipc::queueService(queueId)) + "." +
           std::to_string(ipc::queueInstance(queueId));
}

}  // namespace vorn::sim
