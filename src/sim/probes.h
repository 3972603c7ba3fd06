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
// Frame (big-endian): 0 u16 magic 0x5650 ("VP"), 2 u8 version 1, 3 u8 hops so far, 4 u16
// VLAN, 6 u16 0, 8 u64 the probe's id (chosen by the switch that injects it).
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <span>
#include <vector>

namespace vorn::sim {

class Probes {
public:
    static constexpr uint16_t kMagic = 0x5650;
    static constexpr uint8_t kVersion = 1;
    static constexpr size_t kFrameLen = 16;
    // Seen probes kept, oldest forgotten first.
    static constexpr size_t kKept = 4096;

    // Sends a frame out of a port; false when it could not leave.
    using Sender = std::function<bool(uint32_t ifIndex, std::span<const uint8_t> frame)>;
    // The ports that forward a VLAN (members with their link up that L2PM does not block).
    using Forwarding = std::function<std::vector<uint32_t>(uint16_t vlan)>;

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
    };

    Probes(Sender send, Forwarding forwarding, uint64_t idSeed);

    // Injects a probe on a VLAN; returns its id.
    uint64_t inject(uint16_t vlan);
    // Takes a frame that arrived on a port; false when it is no probe (not ours to handle).
    bool onFrame(uint32_t ifIndex, std::span<const uint8_t> frame);

    static std::vector<uint8_t> encode(uint64_t id, uint16_t vlan, uint8_t hops);
    const Counters& counters() const { return counters_; }
    // The sighting of a probe, or null when it was not seen here.
    const Sighting* sighting(uint64_t id) const;

private:
    void remember(uint64_t id);
    void flood(uint64_t id, uint16_t vlan, uint8_t hops, uint32_t except);

    Sender send_;
    Forwarding forwarding_;
    uint64_t nextId_;
    std::map<uint64_t, Sighting> seen_;
    std::deque<uint64_t> order_;  // ids in the order first seen, for forgetting
    Counters counters_;
};

}  // namespace vorn::sim
