// Host edition of the platform's event log and event-handler subscription.
//
// Event-log lines go to DIR/events.log, each with a timestamp, the facility and the
// severity. Platform events raised with qelSysErr are rendered from the host's event
// catalogue into readable sentences.
#pragma once

#include <cstdint>

#include "platform/ipc.h"

namespace vorn::evt {
inline constexpr uint32_t kEvRingPortState = 0x3B8003;  // args: side, interface, state, ring
inline constexpr uint32_t kMtEvhSubscribe = 2005;
inline constexpr uint32_t kMtEvhEventNotif = 2009;
inline constexpr uint32_t kMtUndebugAll = 2003;
inline constexpr int kEvhSubscribe = 1;
inline constexpr int kEvhUnsubscribe = 2;

// Subscription (kMtEvhSubscribe, sent and answered in place): 60 i32 the event handler's
// answer (0 accepted), 64 u32 operation (kEvhSubscribe or kEvhUnsubscribe), 68 u32 number of
// ids, 72 the event ids, one u32 each.
inline constexpr size_t kOffSubResult = 60;
inline constexpr size_t kOffSubOperation = 64;
inline constexpr size_t kOffSubCount = 68;
inline constexpr size_t kOffSubIds = 72;
inline constexpr uint32_t kMaxSubIds = 64;
// Event notification (kMtEvhEventNotif): 64 u32 event id, 68 u32 slot.
inline constexpr size_t kOffEventId = 64;
inline constexpr size_t kOffEventSlot = 68;
inline constexpr uint32_t kEventLen = 72;
static_assert(kOffSubResult == ipc::kHdrLen && kOffEventSlot + 4 == kEventLen);
}  // namespace vorn::evt

// Opens the event log of a facility for a service; returns the log key or -1.
QelKey qelEvtOpenlog(const char* facility, int, int service, int instance);
int qelEvtSetSeverityLevel(QelKey evLogKey, uint32_t mask);
int qelEvtRegisterSvce(QelKey evLogKey, const void* reg);
// Raises a platform event; the arguments are those the catalogue gives for the event id.
int qelSysErr(QelKey evLogKey, uint32_t eventId, ...);
// Subscribes to `count` event ids (the variadic uint32 arguments) with a send-and-wait to
// the event handler. Returns -1 with no event handler or no answer, else its result word.
int qelEvhSubscribeEvt(QelKey evLogKey, int count, ...);
int qelEvhUnsubscribeEvt(QelKey evLogKey, int count, ...);

namespace vorn::host {
// Appends one line to DIR/events.log.
void eventLogLine(const char* facility, int severity, const char* text);
}  // namespace vorn::host
