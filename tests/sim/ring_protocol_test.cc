// The ring protocol's state machine: its (state, event) table, its frame codec, and a ring of
// three nodes joined by an in-test cable loop that cuts and restores every link.

#include "sim/ring_protocol.h"

#include <gtest/gtest.h>

#include <string>

#include "sim/agent.h"

namespace vorn::sim::ringproto {
namespace {

constexpr Side P = Side::kPrimary, S = Side::kSecondary;
constexpr uint32_t kHello = 50, kDead = 150, M = 1, T = 2;  // switch ids: master, transit
using FT = FrameType;
using NS = NodeState;

RingNode node(uint32_t id) {
    return RingNode(
        {id == M ? agt::rcfg::kModeMaster : agt::rcfg::kModeTransit, 7, 100, id, kHello, kDead});
}
Frame fr(FT t, uint32_t sender, NS ms = NS::kNone, uint16_t ring = 7) {
    return {t, ring, 100, sender, 1, ms};
}

// "sec BLOCKING, flush, send pri HEALTH(FAILED)"
std::string text(const Actions& acts) {
    std::string s;
    for (const Action& a : acts) {
        const std::string side = a.side == P ? " pri " : " sec ";
        if (a.kind == Action::kFlush) s += ", flush";
        if (a.kind == Action::kSetPort) s += "," + side + portStateName(a.portState);
        if (a.kind == Action::kSend) s += ", send" + side + frameTypeName(a.frame.type);
        if (a.kind == Action::kSend && a.frame.type == FT::kHealth)
            s += std::string("(") + nodeStateName(a.frame.masterState) + ")";
    }
    return s.empty() ? s : s.substr(2);
}

// The table's starting states, each reached from a start at 0 ms on two up links.
RingNode reach(const std::string& name) {
    RingNode n = node(name[0] == 'M' ? M : T);
    n.start(true, true, 0);
    if (name[0] == 'M' && name != "M INIT unconfirmed") n.onSecondaryBlocked(0);
    if (name == "M COMPLETE" || name == "M FAILED" || name == "M FAILED pri down")
        n.onFrame(S, fr(FT::kHealth, M), 10);
    if (name == "M FAILED") n.onFrame(P, fr(FT::kLinkDown, 3), 20);
    if (name == "M FAILED pri down") n.onLinkChange(P, false, 20);
    if (name == "M FAILED pri PRE-FORW" || name == "M COMPLETE unconfirmed") {
        n.onLinkChange(P, false, 20);
        n.onLinkChange(P, true, 30);
    }
    if (name == "M COMPLETE unconfirmed") n.onFrame(S, fr(FT::kHealth, M), 40);
    if (name.starts_with("T L")) n.onFrame(P, fr(FT::kRingComplete, M), 10);
    if (name == "T LINK_DOWN") n.onLinkChange(S, false, 20);
    return n;
}

TEST(RingProtocolTest, StateTable) {
    const struct {
        const char* from;
        char kind;  // 'u' link up, 'd' link down, 'f' frame, 't' timer, 'b' block holds
        Side side;
        Frame frame;
        int64_t at;
        NS to;
        const char* actions;
    } rows[] = {
        // clang-format off
        {"M INIT", 'f', S, fr(FT::kHealth, M), 10, NS::kComplete, "flush, send pri RING_COMPLETE"},
        {"M INIT", 't', P, {}, 149, NS::kInit, "send pri HEALTH(INIT)"},
        {"M INIT", 't', P, {}, 150, NS::kFailed, "sec FORW, flush, send pri FLUSH, send sec FLUSH, send pri HEALTH(FAILED)"},
        {"M COMPLETE", 'f', P, fr(FT::kLinkDown, 3), 20, NS::kFailed, "sec FORW, flush, send pri FLUSH, send sec FLUSH"},
        {"M COMPLETE", 'd', P, {}, 20, NS::kFailed, "pri DISABLED, sec FORW, flush, send sec FLUSH"},
        {"M COMPLETE", 'f', S, fr(FT::kRingComplete, M), 20, NS::kComplete, ""},
        {"M FAILED", 'f', P, fr(FT::kLinkDown, 3), 30, NS::kFailed, ""},
        {"M INIT unconfirmed", 'f', S, fr(FT::kHealth, M), 10, NS::kComplete, "flush"},
        {"M INIT unconfirmed", 't', P, {}, 50, NS::kInit, "send pri HEALTH(FAILED)"},
        {"M FAILED pri PRE-FORW", 'f', S, fr(FT::kHealth, M), 40, NS::kComplete, "sec BLOCKING, pri FORW, flush"},
        {"M FAILED pri down", 'f', S, fr(FT::kHealth, M), 30, NS::kFailed, ""},
        {"M FAILED pri PRE-FORW", 'b', S, {}, 40, NS::kFailed, ""},
        {"M COMPLETE unconfirmed", 't', P, {}, 50, NS::kComplete, "send pri HEALTH(FAILED)"},
        {"M COMPLETE unconfirmed", 'b', S, {}, 50, NS::kComplete, "send pri RING_COMPLETE"},
        {"M FAILED pri PRE-FORW", 't', P, {}, 480, NS::kFailed, "send pri HEALTH(FAILED), pri FORW"},
        {"M FAILED pri PRE-FORW", 'd', S, {}, 40, NS::kFailed, "sec DISABLED, pri FORW, flush"},
        {"T PRE_FORWARDING", 'f', P, fr(FT::kRingComplete, M), 10, NS::kLinksUp, "send sec RING_COMPLETE, pri FORW, sec FORW, flush"},
        {"T PRE_FORWARDING", 'f', P, fr(FT::kHealth, M, NS::kFailed), 10, NS::kPreForwarding, "send sec HEALTH(FAILED)"},
        {"T PRE_FORWARDING", 'f', S, fr(FT::kFlush, M), 10, NS::kPreForwarding, "send pri FLUSH, flush"},
        {"T PRE_FORWARDING", 'd', P, {}, 10, NS::kLinkDown, "pri DISABLED, sec FORW, flush, send sec LINK_DOWN"},
        {"T PRE_FORWARDING", 't', P, {}, 449, NS::kPreForwarding, ""},
        {"T PRE_FORWARDING", 't', P, {}, 450, NS::kLinksUp, "pri FORW, sec FORW"},
        {"T LINKS_UP", 'f', P, fr(FT::kLinkDown, T), 500, NS::kLinksUp, ""},
        {"T LINKS_UP", 'f', P, fr(FT::kFlush, M, NS::kNone, 8), 500, NS::kLinksUp, ""},
        {"T LINK_DOWN", 'u', S, {}, 500, NS::kPreForwarding, "sec PRE-FORW"},
        {"T LINK_DOWN", 'f', P, fr(FT::kHealth, M, NS::kComplete), 500, NS::kLinkDown, ""},
        // clang-format on
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(std::string(r.from) + " -> " + r.actions);
        RingNode n = reach(r.from);
        const Actions acts = r.kind == 'f'   ? n.onFrame(r.side, r.frame, r.at)
                             : r.kind == 't' ? n.onTimer(r.at)
                             : r.kind == 'b' ? n.onSecondaryBlocked(r.at)
                                             : n.onLinkChange(r.side, r.kind == 'u', r.at);
        EXPECT_STREQ(nodeStateName(n.state()), nodeStateName(r.to));
        EXPECT_EQ(text(acts), r.actions);
    }
}

TEST(RingProtocolTest, FrameCodec) {
    // magic "VR", version 1, RING_COMPLETE, ring 7, control VLAN 100, sender 0x102, seq 42,
    // master state COMPLETE, reserved
    const std::vector<uint8_t> good = {0x56, 0x52, 0x01, 0x03, 0x00, 0x07, 0x00, 0x64, 0x00,
                                       0x00, 0x01, 0x02, 0x00, 0x00, 0x00, 0x2a, 0x02, 0x00};
    const Frame want{FT::kRingComplete, 7, 100, 0x102, 42, NS::kComplete};
    std::vector<uint8_t> out(kFrameLen + 1, 0xee);
    EXPECT_EQ(encodeFrame(want, out), kFrameLen);
    EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.end() - 1), good);
    EXPECT_EQ(out.back(), 0xee);
    EXPECT_EQ(encodeFrame(want, std::span(out).first(kFrameLen - 1)), 0u);
    // Each case: the good frame cut or grown to a size, with one byte set.
    const struct {
        const char* name;
        size_t size, off;
        uint8_t value;
        bool ok;
    } cases[] = {
        {"as written", kFrameLen, 17, 0, true},   {"a byte past it", kFrameLen + 1, 18, 9, true},
        {"short", kFrameLen - 1, 0, 0x56, false}, {"bad magic", kFrameLen, 1, 0x50, false},
        {"bad version", kFrameLen, 2, 2, false},  {"type 0", kFrameLen, 3, 0, false},
        {"type 5", kFrameLen, 3, 5, false},       {"master state 4", kFrameLen, 16, 4, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<uint8_t> b = good;
        b.resize(c.size);
        b[c.off] = c.value;
        const Frame before{FT::kFlush, 1, 1, 1, 1, NS::kNone};
        Frame f = before;
        EXPECT_EQ(decodeFrame(b, f), c.ok);
        EXPECT_EQ(f, c.ok ? want : before);  // a refused frame leaves f alone
    }
}

// Three nodes: 0 the master, 1 and 2 transit; link k joins node k's primary to node (k+1)'s
// secondary. A frame crosses at once, unless its link is cut (or it is a link-down to lose).
// The master's forwarding plane takes kPlaneMs to block a forwarding secondary, as a
// switch's does after its agent decided; ports forward as their node says otherwise.
struct Ring3 {
    static constexpr int64_t kPlaneMs = 3;
    bool dropLinkDown;
    std::vector<RingNode> nodes = {node(M), node(T), node(T + 1)};
    bool linkUp[3] = {true, true, true};
    int64_t now = 0;
    int64_t blockedAt = -kPlaneMs;  // when the master's secondary stopped forwarding
    uint32_t secState = agt::kStateNone;
    int loops = 0;

    bool planeForwards(int i, Side s) const {
        const uint32_t st = nodes[i].portState(s);
        if (i == 0 && s == S && st == agt::kStateBlocking) return now < blockedAt + kPlaneMs;
        return st == agt::kStateForwarding;
    }
    // Ports that are up and do not forward the member VLANs.
    int stopping() const {
        int n = 0;
        for (int i = 0; i < 3; ++i)
            for (Side s : {P, S}) n += nodes[i].linkUp(s) && !planeForwards(i, s);
        return n;
    }
    void countLoop() { loops += linkUp[0] && linkUp[1] && linkUp[2] && stopping() == 0; }
    void apply(int i, const Actions& acts) {
        countLoop();
        for (const Action& a : acts) {
            if (i == 0 && a.kind == Action::kSetPort && a.side == S) {
                if (secState == agt::kStateForwarding) blockedAt = now;
                secState = a.portState;
            }
            const int link = a.side == P ? i : (i + 2) % 3, peer = a.side == P ? (i + 1) % 3 : link;
            if (a.kind == Action::kSend && linkUp[link] &&
                !(dropLinkDown && a.frame.type == FT::kLinkDown))
                apply(peer, nodes[peer].onFrame(a.side == P ? S : P, a.frame, now));
        }
        countLoop();
    }
    void runUntil(int64_t t) {
        for (;;) {
            now = std::min({nodes[0].nextDeadlineMs(), nodes[1].nextDeadlineMs(),
                            nodes[2].nextDeadlineMs(), now + 1, t});
            for (int i = 0; i < 3; ++i)
                if (nodes[i].nextDeadlineMs() <= now) apply(i, nodes[i].onTimer(now));
            if (nodes[0].awaitingBlock() && !planeForwards(0, S))
                apply(0, nodes[0].onSecondaryBlocked(now));
            if (now == t) return;
        }
    }
    void setLink(int k, bool up) {
        linkUp[k] = up;
        apply(k, nodes[k].onLinkChange(P, up, now));
        apply((k + 1) % 3, nodes[(k + 1) % 3].onLinkChange(S, up, now));
    }
    // Every up port forwards, but for the blocking secondary of a COMPLETE master.
    bool settled(NS ms) const {
        const bool complete = ms == NS::kComplete;
        return nodes[0].state() == ms && stopping() == (complete ? 1 : 0) &&
               (!complete || nodes[0].portState(S) == agt::kStateBlocking);
    }
};

TEST(RingProtocolTest, ThreeNodesCutAndRestoreEachLink) {
    for (bool drop : {false, true}) {
        SCOPED_TRACE(drop ? "link-down frames lost" : "link-down frames delivered");
        Ring3 lab{drop};
        for (int i = 0; i < 3; ++i) lab.apply(i, lab.nodes[i].start(true, true, 0));
        lab.runUntil(1000);
        ASSERT_TRUE(lab.settled(NS::kComplete));
        for (int k = 0; k < 3; ++k) {
            SCOPED_TRACE("link " + std::to_string(k));
            // Cut: every other port forwards at once, or within a dead-interval plus a hello
            // when only the master's timer can tell (link 1 joins the two transit nodes).
            const int64_t cut = lab.now;
            lab.setLink(k, false);
            while (!lab.settled(NS::kFailed) && lab.now < cut + 1000) lab.runUntil(lab.now + 1);
            EXPECT_LE(lab.now - cut, drop && k == 1 ? kDead + kHello : 0);
            // Restore, after a long cut and after one shorter than the dead-interval that the
            // master may never hear of: complete again within one hello and the time the
            // master's forwarding plane takes to block.
            for (int64_t cutFor : {300, 20}) {
                if (cutFor == 20) lab.setLink(k, false);
                lab.runUntil(lab.now + cutFor);
                lab.setLink(k, true);
                lab.runUntil(lab.now + kHello + Ring3::kPlaneMs);
                EXPECT_TRUE(lab.settled(NS::kComplete)) << "after a cut of " << cutFor << " ms";
            }
            lab.runUntil(lab.now + 1000);
        }
        EXPECT_EQ(lab.loops, 0);
    }
}

}  // namespace
}  // namespace vorn::sim::ringproto
