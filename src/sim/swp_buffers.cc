#include "sim/swp_buffers.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

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

}  // namespace

void* take(size_t len) {
    if (len == 0)
        return nullptr;
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
