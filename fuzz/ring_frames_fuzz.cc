// What crosses a simulated cable: ring control frames run through one ring node (master or
// transit) together with link changes, timers and the forwarding plane's word that the
// secondary blocks; and probe frames taken by a switch's probe counter. After every step the
// node's promises are checked, and a broken one aborts:
//
//   - it never sends out of a port whose link is down, and a down port is DISABLED;
//   - every frame it sends encodes and decodes back to itself;
//   - a master in INIT or COMPLETE has both links up, its primary FORW and its secondary
//     BLOCKING; a transit never blocks;
//   - a master says INIT or COMPLETE in its HEALTH, or sends RING_COMPLETE, only once its
//     secondary's block holds;
//   - the frames it originates are numbered by the switch's count, always upwards (a frame
//     sent out of both ports is one number);
//   - after its timers are served, its next deadline lies ahead.
//
// Input: 3 bytes of set-up (flags: bit 0 master, bit 1 primary up, bit 2 secondary up; the
// hello- and dead-intervals in ms, 0 taken as 1), then steps of 26 bytes: op, argument, 24
// payload bytes. Op modulo 8: 0/1 the payload as a control frame on the primary/secondary,
// 2/3 the same with the node's own switch id as sender (its frames coming back), 4 a link
// change (argument bit 0 the side, bit 1 up), 5 time passes by the argument in ms and the
// timers run, 6 the secondary's block holds, 7 the first (argument modulo 25) payload bytes
// as a probe frame arriving on a cabled port.
//
// Seeds: fuzz/corpus/ring_frames_fuzz/, written by fuzz/gen_ring_frames_corpus.py.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <vector>

#include "sim/probes.h"
#include "sim/ring_protocol.h"

namespace {

namespace rp = vorn::sim::ringproto;
namespace agt = vorn::agt;

constexpr uint32_t kSwitchId = 7;
constexpr uint32_t kPort = 0x0a000100;  // Gi 0/1
constexpr size_t kStep = 26;

// A broken promise: says which, and stops the run.
#define REQUIRE(ok)                                                                          \
    do {                                                                                     \
        if (!(ok)) {                                                                         \
            std::fprintf(stderr, "ring_frames_fuzz: broken: %s (line %d)\n", #ok, __LINE__); \
            std::abort();                                                                    \
        }                                                                                    \
    } while (false)

// Checks the actions of one step and the node's state after it.
void checkStep(const rp::RingNode& node, const rp::Actions& actions, rp::Frame* last) {
    for (const rp::Action& a : actions) {
        if (a.kind != rp::Action::kSend) continue;
        REQUIRE(node.linkUp(a.side));
        uint8_t bytes[rp::kFrameLen];
        rp::Frame back;
        REQUIRE(rp::encodeFrame(a.frame, bytes) == rp::kFrameLen);
        REQUIRE(rp::decodeFrame(bytes, back) && back == a.frame);
        if (a.frame.sender == kSwitchId) {
            // One frame out of both ports (FLUSH) is one number.
            REQUIRE(a.frame.seq > last->seq || a.frame == *last);
            *last = a.frame;
        }
        const bool saysBlocked = a.frame.type == rp::FrameType::kRingComplete ||
                                 (a.frame.type == rp::FrameType::kHealth &&
                                  (a.frame.masterState == rp::NodeState::kInit ||
                                   a.frame.masterState == rp::NodeState::kComplete));
        if (node.master() && a.frame.sender == kSwitchId && saysBlocked)
            REQUIRE(!node.awaitingBlock() &&
                    node.portState(rp::Side::kSecondary) == agt::kStateBlocking);
    }
    for (rp::Side s : {rp::Side::kPrimary, rp::Side::kSecondary}) {
        if (!node.linkUp(s)) REQUIRE(node.portState(s) == agt::kStateDisabled);
        if (!node.master()) REQUIRE(node.portState(s) != agt::kStateBlocking);
    }
    const rp::NodeState st = node.state();
    if (node.master() && (st == rp::NodeState::kInit || st == rp::NodeState::kComplete))
        REQUIRE(node.linkUp(rp::Side::kPrimary) && node.linkUp(rp::Side::kSecondary) &&
                node.portState(rp::Side::kPrimary) == agt::kStateForwarding &&
                node.portState(rp::Side::kSecondary) == agt::kStateBlocking);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const uint8_t flags = data[0];
    uint32_t frameCount = 0;
    rp::Frame last;
    rp::RingNode node(rp::Config{
        static_cast<uint8_t>((flags & 1) != 0 ? agt::rcfg::kModeMaster : agt::rcfg::kModeTransit),
        1, 10, kSwitchId, data[1], data[2], &frameCount});
    int64_t now = 0;
    checkStep(node, node.start((flags & 2) != 0, (flags & 4) != 0, now), &last);

    uint64_t clockNs = 0;
    vorn::sim::Probes probes([](uint32_t, std::span<const uint8_t>) { return true; },
                             [](uint16_t, uint64_t) { return std::vector<uint32_t>{kPort}; }, 1,
                             [&clockNs] { return clockNs; });

    for (size_t at = 3; at + kStep <= size; at += kStep) {
        const uint8_t op = data[at] % 8, arg = data[at + 1];
        const std::span<const uint8_t> payload(data + at + 2, kStep - 2);
        const rp::Side side = (op & 1) != 0 ? rp::Side::kSecondary : rp::Side::kPrimary;
        rp::Actions actions;
        switch (op) {
            case 0:
            case 1:
            case 2:
            case 3: {
                rp::Frame f;
                if (!rp::decodeFrame(payload, f)) continue;
                if (op >= 2) f.sender = kSwitchId;
                actions = node.onFrame(side, f, now);
                break;
            }
            case 4:
                actions =
                    node.onLinkChange((arg & 1) != 0 ? rp::Side::kSecondary : rp::Side::kPrimary,
                                      (arg & 2) != 0, now);
                break;
            case 5:
                now += arg;
                clockNs += uint64_t{arg} * 1000000;
                actions = node.onTimer(now);
                REQUIRE(node.nextDeadlineMs() > now);
                break;
            case 6:
                actions = node.onSecondaryBlocked(now);
                break;
            case 7:
                probes.onFrame(kPort, payload.first(arg % (payload.size() + 1)));
                break;
        }
        checkStep(node, actions, &last);
    }
    return 0;
}
