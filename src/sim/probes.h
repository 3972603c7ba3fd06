// Probe traffic: frames that cross the cables of simulated switches on a VLAN the way a
// switch floods an unknown frame, so that a lab can see where traffic gets and whether it
// loops.
//
// A probe is injected at a switch on a VLAN and flooded out of every port that forwards that
// VLAN. A switch that receives one on a port that blocks the VLAN drops it; otherwise it
// counts it and floods it out of every other port that forwards the VLAN. A switch that sees
// the same probe a second time has a loop: it counts the loop and drops the copy, so that a
// loop shows once per switch instead of running for ever.
//
// A switch can also inject a stream of probes, one every few milliseconds, cycling through a
// list of VLANs. Its ids follow one another, and every switch keeps which ids it saw together
// with the time each was injected, so a lab can tell to the stream's period when traffic
// stopped getting through and when it resumed, without asking the switches while it happens.
//
// Frame (big-endian): 0 u16 magic 0x5650 ("VP"), 2 u8 version 2, 3 u8 hops so far, 4 u16
// VLAN, 6 u16 0, 8 u64 the probe's id (chosen by the switch that injects it), 16 u64 when it
// was injected, in nanoseconds of the host's monotonic clock (the one clock every process
// of a lab on that host shares).
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "platform/clock.h"

namespace vorn::sim {

class Probes {
public:
    static constexpr uint16_t kMagic = 0x5650;
    static constexpr uint8_t kVersion = 2;
    static constexpr size_t kFrameLen = 24;
    // Seen probes kept, oldest forgotten first: some 8 s of a stream at its fastest.
    static constexpr size_t kKept = 8192;
    static constexpr uint32_t kMinStreamMs = 1, kMaxStreamMs = 1000;

    // Sends a frame out of a port; false when it could not leave.
    using Sender = std::function<bool(uint32_t ifIndex, std::span<const uint8_t> frame)>;
    // The ports that forward a VLAN (members with their link up that L2PM does not block) for
    // a probe sent at sentNs.
    using Forwarding = std::function<std::vector<uint32_t>(uint16_t vlan, uint64_t sentNs)>;
    // Nanoseconds of the monotonic clock.
    using Clock = std::function<uint64_t()>;

    struct Counters {
        uint64_t injected = 0;
        uint64_t received = 0;   // probes taken in (first sightings and loops)
        uint64_t blocked = 0;    // dropped: the arrival port blocks the VLAN
        uint64_t loops = 0;      // a probe seen again
        uint64_t sent = 0;       // copies sent out
        uint64_t malformed = 0;  // probe frames of a wrong length or version
    };
    struct Sighting {
        uint16_t vlan = 0;
        uint32_t ifIndex = 0;  // where it first arrived; 0 when injected here
        uint32_t times = 0;
        uint64_t sentNs = 0;  // when it was injected
    };
    // Consecutive ids all seen here, with the times the first and the last were injected.
    struct Run {
        uint64_t first = 0, firstSentNs = 0, last = 0, lastSentNs = 0;
    };
    struct Seen {
        std::vector<Run> runs;
        uint64_t repeated = 0;  // ids of the span seen more than once: loops
    };
    struct Stream {
        std::vector<uint16_t> vlans;
        uint32_t everyMs = 0;
        uint64_t first = 0, last = 0, count = 0;  // ids injected so far
    };

    Probes(Sender send, Forwarding forwarding, uint64_t idSeed, Clock now = host::monotonicNs);

    // Injects a probe on a VLAN; returns its id.
    uint64_t inject(uint16_t vlan);
    // Takes a frame that arrived on a port; false when it is no probe (not ours to handle).
    bool onFrame(uint32_t ifIndex, std::span<const uint8_t> frame);

    static std::vector<uint8_t> encode(uint64_t id, uint16_t vlan, uint8_t hops, uint64_t sentNs);
    const Counters& counters() const { return counters_; }
    // The sighting of a probe, or null when it was not seen here.
    const Sighting* sighting(uint64_t id) const;
    // The ids in [from, to] seen here, as runs of consecutive ids, in ascending order.
    Seen seenBetween(uint64_t from, uint64_t to) const;

    // Starts (or restarts) a stream: its first probe now, then one every `everyMs`, on
    // `vlans` in turn. The VLAN list must not be empty.
    void startStream(std::vector<uint16_t> vlans, uint32_t everyMs);
    // Stops the stream and returns what it sent; nothing when none ran.
    std::optional<Stream> stopStream();
    const std::optional<Stream>& stream() const { return stream_; }
    // Injects the stream's probe when it is due; the milliseconds until the next one is
    // due (-1: no stream).
    int runStream();

private:
    void remember(uint64_t id);
    void flood(uint64_t id, uint16_t vlan, uint8_t hops, uint64_t sentNs, uint32_t except);

    Sender send_;
    Forwarding forwarding_;
    Clock now_;
    uint64_t nextId_;
    std::optional<Stream> stream_;
    uint64_t streamDueNs_ = 0;
    std::map<uint64_t, Sighting> seen_;
    std::deque<uint64_t> order_;  // ids in the order first seen, for forgetting
    Counters counters_;
};

}  // namespace vorn::sim
