#include "sim/swp_buffers.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "platform/ipc.h"
#include "platform/swp.h"
#include "sim/log.h"

namespace vorn::sim::swpbuf {
namespace {

struct Ledger {
    std::mutex mu;
    std::map<void*, std::unique_ptr<uint8_t[]>> live;
};

Ledger& ledger() {
    static Ledger l;
    return l;
}

constexpr int kWindow = 10;  // messages in flight
constexpr int kRto = 25;     // retransmission time-out, units of 100 ms

void onQueueError(void* queue, int errCode) {
    const QelSwpQueueCtrlBlock* cb = qelSwpGetQueueCtrlBlock(queue);
    say("SWP queue %ld to 226.0 reports error %d (%u time-outs in a row)",
        cb != nullptr ? cb->hdl : 0L, errCode, cb != nullptr ? cb->timeoutsInARow : 0U);
}

}  // namespace

uint32_t createQueueToManager(const char* who, int service, int instance, long key, int pipeFd) {
    uint32_t handle = 0;
    int rc = qelSwpQueueCreateQs(0, 0, kWindow, kRto, service, instance, key, ipc::kSvcManager, 0,
                                 qel_getQueueId(service, instance, ipc::kKindSwpSource), 0, 0,
                                 nullptr, 0, give, onQueueError, &handle, pipeFd);
    if (rc == swp::kCreatePeerMissing) return 0;
    if (rc != 0) {
        say("%s: creating the SWP queue to 226.0 failed (%d)", who, rc);
        return 0;
    }
    return handle;
}

void* take(size_t len) {
    if (len == 0) return nullptr;
    auto block = std::make_unique<uint8_t[]>(len);  // value-initialised: zeroed
    void* p = block.get();
    Ledger& l = ledger();
    std::lock_guard<std::mutex> lock(l.mu);
    l.live[p] = std::move(block);
    return p;
}

int give(void* buffer) {
    Ledger& l = ledger();
    std::lock_guard<std::mutex> lock(l.mu);
    return l.live.erase(buffer) == 1 ? 0 : -1;
}

size_t live() {
    Ledger& l = ledger();
    std::lock_guard<std::mutex> lock(l.mu);
    return l.live.size();
}

}  // namespace vorn::sim::swpbuf
