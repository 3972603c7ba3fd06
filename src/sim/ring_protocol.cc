// The ring node's state machine. Port states per node state:
//
//   master    INIT, COMPLETE   primary FORW, secondary BLOCKING
//             FAILED           up ports FORW; a port restored while the other link is up
//                              PRE-FORW until the ring is complete or its fail-safe ends
//   transit   LINKS_UP         both FORW
//             PRE_FORWARDING   a port restored while the other link is up PRE-FORW (both
//                              PRE-FORW after a start on two up links), the other FORW
//             LINK_DOWN        the down port DISABLED, the other FORW
//
// A port whose link is down is DISABLED. A node with one link down is itself the break in the
// ring, so its other port may forward at once; that is why a port is pre-forwarding only while
// the node's other link is up.

#include "sim/ring_protocol.h"

#include <algorithm>

#include "platform/codec.h"

namespace vorn::sim::ringproto {
namespace {

Side other(Side s) {
    return s == Side::kPrimary ? Side::kSecondary : Side::kPrimary;
}

constexpr Side kSides[] = {Side::kPrimary, Side::kSecondary};

}  // namespace

size_t encodeFrame(const Frame& f, std::span<uint8_t> out) {
    if (out.size() < kFrameLen) return 0;
    be::Writer w(out);
    w.u16(kOffMagic, kMagic);
    w.u8(kOffVersion, kVersion);
    w.u8(kOffType, static_cast<uint8_t>(f.type));
    w.u16(kOffRingId, f.ringId);
    w.u16(kOffCtrlVlan, f.ctrlVlan);
    w.u32(kOffSender, f.sender);
    w.u32(kOffSeq, f.seq);
    w.u8(kOffMasterState, static_cast<uint8_t>(f.masterState));
    w.u8(kOffReserved, 0);
    return kFrameLen;
}

bool decodeFrame(std::span<const uint8_t> in, Frame& f) {
    be::Reader r(in);
    if (!r.fits(0, kFrameLen) || r.u16(kOffMagic) != kMagic || r.u8(kOffVersion) != kVersion)
        return false;
    const uint8_t type = r.u8(kOffType);
    const uint8_t state = r.u8(kOffMasterState);
    if (type < static_cast<uint8_t>(FrameType::kHealth) ||
        type > static_cast<uint8_t>(FrameType::kFlush) ||
        state > static_cast<uint8_t>(NodeState::kFailed))
        return false;
    f.type = static_cast<FrameType>(type);
    f.ringId = r.u16(kOffRingId);
    f.ctrlVlan = r.u16(kOffCtrlVlan);
    f.sender = r.u32(kOffSender);
    f.seq = r.u32(kOffSeq);
    f.masterState = static_cast<NodeState>(state);
    return true;
}

const char* frameTypeName(FrameType t) {
    switch (t) {
        case FrameType::kHealth:
            return "HEALTH";
        case FrameType::kLinkDown:
            return "LINK_DOWN";
        case FrameType::kRingComplete:
            return "RING_COMPLETE";
        case FrameType::kFlush:
            return "FLUSH";
    }
    return "unknown";
}

const char* nodeStateName(NodeState s) {
    switch (s) {
        case NodeState::kNone:
            return "NONE";
        case NodeState::kInit:
            return "INIT";
        case NodeState::kComplete:
            return "COMPLETE";
        case NodeState::kFailed:
            return "FAILED";
        case NodeState::kLinksUp:
            return "LINKS_UP";
        case NodeState::kLinkDown:
            return "LINK_DOWN";
        case NodeState::kPreForwarding:
            return "PRE_FORWARDING";
    }
    return "unknown";
}

const char* sideName(Side s) {
    return s == Side::kPrimary ? "primary" : "secondary";
}

RingNode::RingNode(const Config& c) : cfg_(c) {
    cfg_.helloMs = std::max<uint32_t>(cfg_.helloMs, 1);
    cfg_.deadMs = std::max<uint32_t>(cfg_.deadMs, 1);
}

NodeState RingNode::state() const {
    if (!started_ || master()) return masterState_;
    const uint32_t a = ports_[0].state, b = ports_[1].state;
    if (a == agt::kStateDisabled || b == agt::kStateDisabled) return NodeState::kLinkDown;
    if (a == agt::kStatePreForwarding || b == agt::kStatePreForwarding)
        return NodeState::kPreForwarding;
    return NodeState::kLinksUp;
}

int64_t RingNode::nextDeadlineMs() const {
    if (!started_) return kNoDeadline;
    int64_t next = std::min(ports_[0].preForwardingUntil, ports_[1].preForwardingUntil);
    if (master()) next = std::min({next, nextHello_, deadAt_});
    return next;
}

void RingNode::setPort(Side s, uint32_t state, Actions& out) {
    Port& p = port(s);
    if (p.state == state) return;
    p.state = state;
    if (s == Side::kSecondary) blockHolds_ = false;
    p.preForwardingUntil = state == agt::kStatePreForwarding
                               ? now_ + int64_t{kPreForwardingDeads} * cfg_.deadMs
                               : kNoDeadline;
    out.push_back({Action::kSetPort, s, state, {}});
}

// A port whose link comes up forwards at once only when the node's other link is down.
uint32_t RingNode::restoredState(Side s) const {
    return port(other(s)).up ? agt::kStatePreForwarding : agt::kStateForwarding;
}

void RingNode::liftPreForwarding(Actions& out) {
    for (Side s : kSides)
        if (port(s).state == agt::kStatePreForwarding) setPort(s, agt::kStateForwarding, out);
}

void RingNode::send(Side s, const Frame& f, Actions& out) const {
    if (port(s).up) out.push_back({Action::kSend, s, agt::kStateNone, f});
}

Frame RingNode::originate(FrameType t) {
    uint32_t& count = cfg_.frameCount != nullptr ? *cfg_.frameCount : ownFrameCount_;
    return {t,
            cfg_.ringId,
            cfg_.ctrlVlan,
            cfg_.switchId,
            ++count,
            t == FrameType::kHealth ? announcedState() : NodeState::kNone};
}

// INIT and COMPLETE tell the transit nodes that the secondary blocks: only once it does.
NodeState RingNode::announcedState() const {
    if (masterState_ == NodeState::kInit || masterState_ == NodeState::kComplete)
        return blockHolds_ ? masterState_ : NodeState::kFailed;
    return masterState_;
}

bool RingNode::awaitingBlock() const {
    return started_ && master() && port(Side::kSecondary).state == agt::kStateBlocking &&
           !blockHolds_;
}

Actions RingNode::onSecondaryBlocked(int64_t nowMs) {
    Actions out;
    if (!awaitingBlock()) return out;
    now_ = nowMs;
    blockHolds_ = true;
    if (completePending_ && masterState_ == NodeState::kComplete)
        send(Side::kPrimary, originate(FrameType::kRingComplete), out);
    completePending_ = false;
    return out;
}

void RingNode::sendHealth(Actions& out) {
    if (port(Side::kPrimary).up) send(Side::kPrimary, originate(FrameType::kHealth), out);
}

// The master's secondary forwards, and every node forgets what it learnt while the ring was
// whole: the way to half of the ring has changed.
void RingNode::ringFailed(Actions& out) {
    masterState_ = NodeState::kFailed;
    completePending_ = false;
    deadAt_ = kNoDeadline;
    setPort(Side::kSecondary,
            port(Side::kSecondary).up ? agt::kStateForwarding : agt::kStateDisabled, out);
    flush(out);
    const Frame f = originate(FrameType::kFlush);
    for (Side s : kSides) send(s, f, out);
}

// The secondary blocks before anything else: only once that holds may the transit nodes'
// restored ports forward, so RING_COMPLETE waits for it when it does not hold yet.
void RingNode::ringComplete(Actions& out) {
    masterState_ = NodeState::kComplete;
    setPort(Side::kSecondary, agt::kStateBlocking, out);
    setPort(Side::kPrimary, agt::kStateForwarding, out);
    flush(out);
    if (blockHolds_)
        send(Side::kPrimary, originate(FrameType::kRingComplete), out);
    else
        completePending_ = true;
}

Actions RingNode::start(bool priUp, bool secUp, int64_t nowMs) {
    now_ = nowMs;
    started_ = true;
    port(Side::kPrimary) = {priUp, agt::kStateNone, kNoDeadline};
    port(Side::kSecondary) = {secUp, agt::kStateNone, kNoDeadline};
    blockHolds_ = completePending_ = false;
    Actions out;
    const auto upState = [&](Side s, uint32_t whenBothUp) {
        if (!port(s).up) return agt::kStateDisabled;
        return port(other(s)).up ? whenBothUp : agt::kStateForwarding;
    };
    if (master()) {
        // A master started on a whole ring blocks its secondary until it knows better.
        masterState_ = priUp && secUp ? NodeState::kInit : NodeState::kFailed;
        deadAt_ = masterState_ == NodeState::kInit ? nowMs + cfg_.deadMs : kNoDeadline;
        nextHello_ = nowMs + cfg_.helloMs;
        setPort(Side::kPrimary, upState(Side::kPrimary, agt::kStateForwarding), out);
        setPort(Side::kSecondary, upState(Side::kSecondary, agt::kStateBlocking), out);
        sendHealth(out);
    } else {
        // A transit may close a ring that the master found broken: it waits for the master.
        for (Side s : kSides) setPort(s, upState(s, agt::kStatePreForwarding), out);
    }
    return out;
}

Actions RingNode::onLinkChange(Side side, bool up, int64_t nowMs) {
    Actions out;
    if (!started_ || port(side).up == up) return out;
    now_ = nowMs;
    port(side).up = up;
    if (up) {
        setPort(side, restoredState(side), out);
        return out;
    }
    setPort(side, agt::kStateDisabled, out);
    // This node is now the break in the ring: its other port may forward.
    if (port(other(side)).state == agt::kStatePreForwarding)
        setPort(other(side), agt::kStateForwarding, out);
    if (!master()) {
        flush(out);
        send(other(side), originate(FrameType::kLinkDown), out);
    } else if (masterState_ != NodeState::kFailed) {
        ringFailed(out);
    } else {
        flush(out);
    }
    return out;
}

void RingNode::masterFrame(Side side, const Frame& f, Actions& out) {
    if (f.sender == cfg_.switchId) {
        if (f.type != FrameType::kHealth || side != Side::kSecondary) return;
        // Sent before the primary's link went down: it came round a ring that is open now.
        if (!port(Side::kPrimary).up) return;
        deadAt_ = now_ + cfg_.deadMs;
        if (masterState_ != NodeState::kComplete) ringComplete(out);
        return;
    }
    // A second link-down of a failed ring changes nothing the master can act on.
    if (f.type == FrameType::kLinkDown && masterState_ != NodeState::kFailed) ringFailed(out);
}

void RingNode::transitFrame(Side side, const Frame& f, Actions& out) {
    if (f.sender == cfg_.switchId) return;  // one of mine came round: stop it here
    send(other(side), f, out);
    switch (f.type) {
        case FrameType::kFlush:
            flush(out);
            break;
        case FrameType::kRingComplete:
            liftPreForwarding(out);
            flush(out);
            break;
        case FrameType::kHealth:
            // Health from a master whose secondary blocks stands for a ring complete lost on
            // the way, or never sent because the master did not see the ring fail.
            if (f.masterState == NodeState::kInit || f.masterState == NodeState::kComplete)
                liftPreForwarding(out);
            break;
        case FrameType::kLinkDown:
            break;
    }
}

Actions RingNode::onFrame(Side side, const Frame& f, int64_t nowMs) {
    Actions out;
    if (!started_ || !port(side).up || f.ringId != cfg_.ringId) return out;
    now_ = nowMs;
    if (master())
        masterFrame(side, f, out);
    else
        transitFrame(side, f, out);
    return out;
}

Actions RingNode::onTimer(int64_t nowMs) {
    Actions out;
    if (!started_) return out;
    now_ = nowMs;
    if (master()) {
        if (masterState_ != NodeState::kFailed && nowMs >= deadAt_) ringFailed(out);
        if (nowMs >= nextHello_) {
            sendHealth(out);
            nextHello_ += (nowMs - nextHello_) / cfg_.helloMs * cfg_.helloMs + cfg_.helloMs;
        }
    }
    for (Side s : kSides)
        if (nowMs >= port(s).preForwardingUntil) setPort(s, agt::kStateForwarding, out);
    return out;
}

}  // namespace vorn::sim::ringproto
