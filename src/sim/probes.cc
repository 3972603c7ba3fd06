// Probe traffic across the cables.

#include "sim/probes.h"

#include <algorithm>

#include "platform/clock.h"
#include "platform/codec.h"

namespace vorn::sim {

namespace {
constexpr uint64_t kNsPerMs = 1000000;
}

Probes::Probes(Sender send, Forwarding forwarding, uint64_t idSeed, Clock now)
    : send_(std::move(send)),
      forwarding_(std::move(forwarding)),
      now_(std::move(now)),
      nextId_(idSeed) {}

std::vector<uint8_t> Probes::encode(uint64_t id, uint16_t vlan, uint8_t hops, uint64_t sentNs) {
    std::vector<uint8_t> f(kFrameLen);
    be::Writer w(f.data(), f.size());
    w.u16(0, kMagic);
    w.u8(2, kVersion);
    w.u8(3, hops);
    w.u16(4, vlan);
    w.u32(8, static_cast<uint32_t>(id >> 32));
    w.u32(12, static_cast<uint32_t>(id));
    w.u32(16, static_cast<uint32_t>(sentNs >> 32));
    w.u32(20, static_cast<uint32_t>(sentNs));
    return f;
}

const Probes::Sighting* Probes::sighting(uint64_t id) const {
    auto it = seen_.find(id);
    return it == seen_.end() ? nullptr : &it->second;
}

Probes::Seen Probes::seenBetween(uint64_t from, uint64_t to) const {
    Seen out;
    for (auto it = seen_.lower_bound(from); it != seen_.end() && it->first <= to; ++it) {
        const auto& [id, s] = *it;
        if (s.times > 1) ++out.repeated;
        if (!out.runs.empty() && out.runs.back().last + 1 == id) {
            out.runs.back().last = id;
            out.runs.back().lastSentNs = s.sentNs;
        } else {
            out.runs.push_back({id, s.sentNs, id, s.sentNs});
        }
    }
    return out;
}

uint64_t Probes::inject(uint16_t vlan) {
    uint64_t id = nextId_++;
    uint64_t sent = now_();
    ++counters_.injected;
    // The injecting switch has seen its own probe: one coming back to it is a loop too.
    seen_[id] = {vlan, 0, 1, sent};
    remember(id);
    flood(id, vlan, 0, sent, 0);
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
    const uint64_t sent = (uint64_t{r.u32(16)} << 32) | r.u32(20);
    std::vector<uint32_t> fwd = forwarding_(vlan, sent);
    if (std::find(fwd.begin(), fwd.end(), ifIndex) == fwd.end()) {
        ++counters_.blocked;
        return true;
    }
    ++counters_.received;
    auto [it, first] = seen_.try_emplace(id, Sighting{vlan, ifIndex, 0, sent});
    ++it->second.times;
    if (!first) {
        ++counters_.loops;
        return true;
    }
    remember(id);
    flood(id, vlan, static_cast<uint8_t>(std::min(255, r.u8(3) + 1)), sent, ifIndex);
    return true;
}

void Probes::remember(uint64_t id) {
    order_.push_back(id);
    if (order_.size() <= kKept) return;
    seen_.erase(order_.front());
    order_.pop_front();
}

void Probes::flood(uint64_t id, uint16_t vlan, uint8_t hops, uint64_t sentNs, uint32_t except) {
    std::vector<uint8_t> f = encode(id, vlan, hops, sentNs);
    for (uint32_t port : forwarding_(vlan, sentNs)) {
        if (port == except) continue;
        if (send_(port, f)) ++counters_.sent;
    }
}

void Probes::startStream(std::vector<uint16_t> vlans, uint32_t everyMs) {
    stream_ = Stream{std::move(vlans), std::clamp(everyMs, kMinStreamMs, kMaxStreamMs)};
    streamDueNs_ = now_();
    runStream();
}

std::optional<Probes::Stream> Probes::stopStream() {
    std::optional<Stream> s = std::move(stream_);
    stream_.reset();
    return s;
}

int Probes::runStream() {
    if (!stream_ || stream_->vlans.empty()) return -1;
    const uint64_t period = uint64_t{stream_->everyMs} * kNsPerMs;
    uint64_t now = now_();
    if (now >= streamDueNs_) {
        Stream& s = *stream_;
        uint64_t id = inject(s.vlans[s.count % s.vlans.size()]);
        if (s.count++ == 0) s.first = id;
        s.last = id;
        // A late pass sends one probe, not the ones it missed: the stream keeps its pace
        // from now on rather than bursting.
        streamDueNs_ = std::max(streamDueNs_ + period, now + period / 2);
    }
    return static_cast<int>((streamDueNs_ - now + kNsPerMs - 1) / kNsPerMs);
}

}  // namespace vorn::sim
