// Probe traffic over a ring of Probes joined by an in-test cable: flooding along forwarding
// ports, drops at blocking ones, and a loop seen as a second sighting.

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <optional>
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
                [this, i](uint16_t, uint64_t) {
                    std::vector<uint32_t> ports;
                    for (uint32_t p : {1u, 2u})
                        if (blocked.count({i, p}) == 0) ports.push_back(p);
                    return ports;
                },
                uint64_t{i + 1} << 48, [this] { return nowNs; });
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
    uint64_t nowNs = 0;
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
             [](uint16_t, uint64_t) { return std::vector<uint32_t>{1}; }, 7);
    std::vector<uint8_t> f = Probes::encode(0x0102030405060708, 300, 2, 0x1112131415161718);
    EXPECT_EQ(
        f, (std::vector<uint8_t>{0x56, 0x50, 2, 2,    0x01, 0x2c, 0,    0,    1,    2,    3,   4, 5,
                                 6,    7,    8, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18}));
    EXPECT_FALSE(p.onFrame(1, std::vector<uint8_t>{0x56, 0x52, 1}));  // a ring frame
    std::vector<uint8_t> shortF(f.begin(), f.end() - 1), badVersion = f;
    badVersion[2] = 9;
    EXPECT_TRUE(p.onFrame(1, shortF));
    EXPECT_TRUE(p.onFrame(1, badVersion));
    EXPECT_EQ(p.counters().malformed, 2u);
    EXPECT_EQ(p.sighting(0x0102030405060708), nullptr);
}

// Switch 1 streams a probe every 2 ms on VLANs 20 and 21 in turn while switches 3 and 4 are
// cut off from 6 ms to 12 ms; a late pass sends one probe, not the ones it missed.
TEST(Probes, AStreamShowsWhenTrafficStoppedAndWhenItResumed) {
    constexpr uint64_t kMs = 1000000;
    Ring ring(4);
    ring.blocked = {{0, 2}};
    ring.sw[0].startStream({20, 21}, 2);
    ring.run();
    for (uint64_t t = 1; t < 20; ++t) {
        ring.nowNs = t * kMs;
        if (t == 6) ring.cut = {1};
        if (t == 12) ring.blocked.clear();  // the master's west forwards: reachable again
        EXPECT_EQ(ring.sw[0].runStream(), t % 2 == 0 ? 2 : 1) << t;
        ring.run();
    }
    ring.nowNs = 27 * kMs;  // a pass 9 ms late
    EXPECT_EQ(ring.sw[0].runStream(), 1);
    ring.run();
    std::optional<Probes::Stream> s = ring.sw[0].stopStream();
    ASSERT_TRUE(s.has_value());
    EXPECT_EQ(s->count, 11u);
    EXPECT_EQ(s->last - s->first, 10u);
    EXPECT_EQ(ring.sw[0].runStream(), -1);
    EXPECT_EQ(ring.sw[2].sighting(s->first + 1)->vlan, 21);

    Probes::Seen far = ring.sw[3].seenBetween(s->first, s->last);
    ASSERT_EQ(far.runs.size(), 2u);
    EXPECT_EQ(far.runs[0].first, s->first);
    EXPECT_EQ(far.runs[0].last, s->first + 2);  // 0, 2 and 4 ms
    EXPECT_EQ(far.runs[0].lastSentNs, 4 * kMs);
    EXPECT_EQ(far.runs[1].first, s->first + 6);  // 12 ms on
    EXPECT_EQ(far.runs[1].firstSentNs, 12 * kMs);
    EXPECT_EQ(far.runs[1].lastSentNs, 27 * kMs);
    EXPECT_EQ(far.repeated, 0u);
    EXPECT_TRUE(ring.sw[3].seenBetween(s->last + 1, UINT64_MAX).runs.empty());
}

}  // namespace
}  // namespace vorn::sim
