// Probe traffic across the cables.

#include "sim/probes.h"

#include <algorithm>

#include "platform/codec.h"

namespace vorn::sim {

Probes::Probes(Sender send, Forwarding forwarding, uint64_t idSeed)
    : send_(std::move(send)), forwarding_(std::move(forwarding)), nextId_(idSeed) {}

std::vector<uint8_t> Probes::encode(uint64_t id, uint16_t vlan, uint8_t hops) {
    std::vector<uint8_t> f(kFrameLen);
    be::Writer w(f.data(), f.size());
    w.u16(0, kMagic);
    w.u8(2, kVersion);
    w.u8(3, hops);
    w.u16(4, vlan);
    w.u32(8, static_cast<uint32_t>(id >> 32));
    w.u32(12, static_cast<uint32_t>(id));
    return f;
}

const Probes::Sighting* Probes::sighting(uint64_t id) const {
    auto it = seen_.find(id);
    return it == seen_.end() ? nullptr : &it->second;
}

uint64_t Probes::inject(uint16_t vlan) {
    uint64_t id = nextId_++;
    ++counters_.injected;
    // The injecting switch has seen its own probe: one coming back to it is a loop too.
    seen_[id] = {vlan, 0, 1};
    remember(id);
    flood(id, vlan, 0, 0);
    return id;
}

bool Probes::onFrame(uint32_t ifIndex, std::span<const uint8_t> frame) {
    be::Reader r(frame.data(), frame.size());
    if (frame.size() < 2 || r.u16(0) != kMagic) return false;
    if (frame.size() != kFrameLen || r.u8(2) != kVersion) {
        ++counters_.malformed;
        return true;
    }
    const uint16_t vlan = r.u16(4);
    const uint64_t id = (uint64_t{r.u32(8)} << 32) | r.u32(12);
    std::vector<uint32_t> fwd = forwarding_(vlan);
    if (std::find(fwd.begin(), fwd.end(), ifIndex) == fwd.end()) {
        ++counters_.blocked;
        return true;
    }
    ++counters_.received;
    auto [it, first] = seen_.try_emplace(id, Sighting{vlan, ifIndex, 0});
    ++it->second.times;
    if (!first) {
        ++counters_.loops;
        return true;
    }
    remember(id);
    flood(id, vlan, static_cast<uint8_t>(std::min(255, r.u8(3) + 1)), ifIndex);
    return true;
}

void Probes::remember(uint64_t id) {
    order_.push_back(id);
    if (order_.size() <= kKept) return;
    seen_.erase(order_.front());
    order_.pop_front();
}

void Probes::flood(uint64_t id, uint16_t vlan, uint8_t hops, uint32_t except) {
    std::vector<uint8_t> f = encode(id, vlan, hops);
    for (uint32_t port : forwarding_(vlan)) {
        if (port == except) continue;
        if (send_(port, f)) ++counters_.sent;
    }
}

}  // namespace vorn::sim
