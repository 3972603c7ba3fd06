// Probe traffic over a ring of Probes joined by an in-test cable: flooding along forwarding
// ports, drops at blocking ones, and a loop seen as a second sighting.

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <set>

#include "sim/probes.h"

namespace vorn::sim {
namespace {

// N switches in a ring: switch i's port 1 (east) is cabled to switch i+1's port 2 (west).
// A blocked (switch, port) pair drops the VLAN both ways; a cut cable carries nothing.
struct Ring {
    explicit Ring(uint32_t n) {
        for (uint32_t i = 0; i < n; ++i)
            sw.emplace_back(
                [this, i, n](uint32_t port, std::span<const uint8_t> f) {
                    uint32_t far = port == 1 ? (i + 1) % n : (i + n - 1) % n;
                    if (cut.count(port == 1 ? i : far) != 0) return false;
                    wire.push_back({far, port == 1 ? 2u : 1u, {f.begin(), f.end()}});
                    return true;
                },
                [this, i](uint16_t) {
                    std::vector<uint32_t> ports;
                    for (uint32_t p : {1u, 2u})
                        if (blocked.count({i, p}) == 0) ports.push_back(p);
                    return ports;
                },
                uint64_t{i + 1} << 48);
    }
    void run() {
        for (size_t steps = 0; !wire.empty() && steps < 1000; ++steps) {
            auto [to, port, f] = wire.front();
            wire.pop_front();
            EXPECT_TRUE(sw[to].onFrame(port, f));
        }
    }
    struct InFlight {
        uint32_t to, port;
        std::vector<uint8_t> frame;
    };
    std::deque<Probes> sw;
    std::deque<InFlight> wire;
    std::set<std::pair<uint32_t, uint32_t>> blocked;
    std::set<uint32_t> cut;  // the cable east of switch i
};

TEST(Probes, FloodReachesEverySwitchOnceAndALoopIsSeenAgain) {
    const struct {
        const char* name;
        std::set<std::pair<uint32_t, uint32_t>> blocked;
        std::set<uint32_t> cut;
        std::vector<uint32_t> times;  // sightings per switch of a probe from switch 1
        uint64_t loops, blockedDrops;
    } cases[] = {
        {"master's west blocks", {{0, 2}}, {}, {1, 1, 1, 1}, 0, 1},
        {"cable east of switch 2 cut, no block", {}, {1}, {1, 1, 1, 1}, 0, 0},
        {"no port blocks: a loop where the two floods meet", {}, {}, {1, 1, 2, 2}, 2, 0},
        {"a cut and a block: switches 3 and 4 cut off", {{0, 2}}, {1}, {1, 1, 0, 0}, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Ring ring(4);
        ring.blocked = c.blocked;
        ring.cut = c.cut;
        uint64_t id = ring.sw[0].inject(20);
        ring.run();
        uint64_t loops = 0, drops = 0;
        for (uint32_t i = 0; i < 4; ++i) {
            const Probes::Sighting* s = ring.sw[i].sighting(id);
            EXPECT_EQ(s == nullptr ? 0 : s->times, c.times[i]) << "switch " << i + 1;
            EXPECT_EQ(s == nullptr ? 20 : s->vlan, 20);
            loops += ring.sw[i].counters().loops;
            drops += ring.sw[i].counters().blocked;
        }
        EXPECT_EQ(loops, c.loops);
        EXPECT_EQ(drops, c.blockedDrops);
    }
}

TEST(Probes, FramesThatAreNoProbesArePassedOnAndBadOnesCounted) {
    Probes p([](uint32_t, std::span<const uint8_t>) { return true; },
             [](uint16_t) { return std::vector<uint32_t>{1}; }, 7);
    std::vector<uint8_t> f = Probes::encode(0x0102030405060708, 300, 2);
    EXPECT_EQ(f,
              (std::vector<uint8_t>{0x56, 0x50, 1, 2, 0x01, 0x2c, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_FALSE(p.onFrame(1, std::vector<uint8_t>{0x56, 0x52, 1}));  // a ring frame
    std::vector<uint8_t> shortF(f.begin(), f.end() - 1), badVersion = f;
    badVersion[2] = 9;
    EXPECT_TRUE(p.onFrame(1, shortF));
    EXPECT_TRUE(p.onFrame(1, badVersion));
    EXPECT_EQ(p.counters().malformed, 2u);
    EXPECT_EQ(p.sighting(0x0102030405060708), nullptr);
}

}  // namespace
}  // namespace vorn::sim
