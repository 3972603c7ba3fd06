// Event log (DIR/events.log), the platform event catalogue, and the event-handler
// subscription.

#include "platform/evtlog.h"

#include "platform/clock.h"
#include "platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/codec.h"
#include "platform/ipc.h"

namespace vorn::host {
namespace {

constexpr long kEvtKeyBase = 0x30000000;

struct EventLog {
    std::string facility;
    int service = 0;
    int instance = 0;
    uint32_t severityMask = 0;
    bool registered = false;
};

struct Registry {
    std::mutex mu;
    std::map<long, EventLog> logs;
    long nextKey = kEvtKeyBase + 1;
};

Registry& reg() {
    static Registry r;
    return r;
}

bool logByKey(QelKey key, EventLog* out) {
    Registry& r = reg();
    std::lock_guard<std::mutex> lock(r.mu);
    auto it = r.logs.find(key);
    if (it == r.logs.end()) return false;
    *out = it->second;
    return true;
}

// Severity 5 (notice) is what the platform catalogue gives ring port-state events.
constexpr int kSevNotice = 5;

}  // namespace

void eventLogLine(const char* facility, int severity, const char* text) {
    const LocalTime now = localNow();
    char stamp[40];
    std::strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &now.fields);
    std::string line = std::string(stamp) + "." +
                       std::to_string(now.micros / 1000 + 1000).substr(1) + " %" + facility + "-" +
                       std::to_string(severity) + ": " + text + "\n";
    std::string path = options().rundir + "/events.log";
    // The log stays open between lines; it is opened again when the run directory changes
    // or the file was removed under it.
    static std::mutex mu;
    static int fd = -1;
    static std::string openPath;
    std::lock_guard<std::mutex> lock(mu);
    struct stat st {};
    if (fd < 0 || openPath != path || fstat(fd, &st) != 0 || st.st_nlink == 0) {
        if (fd >= 0) close(fd);
        fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | kRunDirOpenFlags, 0600);
        openPath = path;
        if (fd < 0) return;
    }
    // One write per line, so lines of concurrent writers never interleave.
    ssize_t n = write(fd, line.data(), line.size());
    (void)n;
}

}  // namespace vorn::host

using namespace vorn;

QelKey qelEvtOpenlog(const char* facility, int, int service, int instance) {
    if (facility == nullptr || *facility == '\0') return -1;
    host::Registry& r = host::reg();
    std::lock_guard<std::mutex> lock(r.mu);
    long key = r.nextKey++;
    r.logs[key] = {facility, service, instance, 0, false};
    return key;
}

int qelEvtSetSeverityLevel(QelKey evLogKey, uint32_t mask) {
    host::Registry& r = host::reg();
    std::lock_guard<std::mutex> lock(r.mu);
    auto it = r.logs.find(evLogKey);
    if (it == r.logs.end()) return -1;
    it->second.severityMask = mask;
    return 0;
}

int qelEvtRegisterSvce(QelKey evLogKey, const void* reg) {
    host::Registry& r = host::reg();
    std::lock_guard<std::mutex> lock(r.mu);
    auto it = r.logs.find(evLogKey);
    if (it == r.logs.end() || reg == nullptr) return -1;
    it->second.registered = true;
    return 0;
}

int qelSysErr(QelKey evLogKey, uint32_t eventId, ...) {
    host::EventLog log;
    if (!host::logByKey(evLogKey, &log)) return -1;
    if ((log.severityMask & (1u << host::kSevNotice)) == 0) return 0;
    char text[512];
    va_list ap;
    va_start(ap, eventId);
    if (eventId == evt::kEvRingPortState) {
        const char* side = va_arg(ap, const char*);
        const char* ifName = va_arg(ap, const char*);
        const char* state = va_arg(ap, const char*);
        int ringId = va_arg(ap, int);
        std::snprintf(text, sizeof(text), "PORTSTATE: Ring %d: %s interface %s is now %s", ringId,
                      side ? side : "?", ifName ? ifName : "?", state ? state : "?");
    } else {
        std::snprintf(text, sizeof(text), "EVENT: platform event 0x%06x raised", eventId);
    }
    va_end(ap);
    host::eventLogLine(log.facility.c_str(), host::kSevNotice, text);
    return 0;
}

namespace {

// Sends a subscription or unsubscription to the event handler and waits one second for
// its answer.
int evhExchange(QelKey evLogKey, int op, const std::vector<uint32_t>& ids) {
    host::EventLog log;
    if (!host::logByKey(evLogKey, &log)) return -1;
    QelKey ipcKey = host::findIpcKey(log.service, log.instance);
    if (ipcKey < 0 || ids.size() > evt::kMaxSubIds) return -1;
    std::array<uint8_t, evt::kOffSubIds + 4 * evt::kMaxSubIds> msg{};
    size_t len = evt::kOffSubIds + 4 * ids.size();
    be::Writer w(msg.data(), len);
    w.u32(ipc::kOffMlen, static_cast<uint32_t>(len));
    w.u32(ipc::kOffMtype, evt::kMtEvhSubscribe);
    w.u32(ipc::kOffSrcSvce, qel_getQueueId(log.service, log.instance, ipc::kKindRequest));
    w.u32(ipc::kOffDstCard, ipc::kLoopbackAddr);
    w.u32(ipc::kOffDstSvce, qel_getQueueId(ipc::kSvcEventHandler, 0, ipc::kKindRequest));
    w.u32(evt::kOffSubOperation, static_cast<uint32_t>(op));
    w.u32(evt::kOffSubCount, static_cast<uint32_t>(ids.size()));
    for (size_t i = 0; i < ids.size(); ++i) w.u32(evt::kOffSubIds + 4 * i, ids[i]);
    if (qelIpcSendWait(ipcKey, msg.data(), static_cast<int>(len), 10, evt::kMtEvhSubscribe, 0) != 0)
        return -1;
    return be::Reader(msg.data(), len).i32(evt::kOffSubResult);
}

std::vector<uint32_t> collectIds(int count, va_list ap) {
    std::vector<uint32_t> ids;
    for (int i = 0; i < count && i < static_cast<int>(evt::kMaxSubIds); ++i)
        ids.push_back(va_arg(ap, uint32_t));
    return ids;
}

}  // namespace

int qelEvhSubscribeEvt(QelKey evLogKey, int count, ...) {
    va_list ap;
    va_start(ap, count);
    std::vector<uint32_t> ids = collectIds(count, ap);
    va_end(ap);
    return evhExchange(evLogKey, evt::kEvhSubscribe, ids);
}

int qelEvhUnsubscribeEvt(QelKey evLogKey, int count, ...) {
    va_list ap;
    va_start(ap, count);
    std::vector<uint32_t> ids = collectIds(count, ap);
    va_end(ap);
    return evhExchange(evLogKey, evt::kEvhUnsubscribe, ids);
}
