// The ring node of a single chassis: the ring-configuration records, and what a ring the
// manager designates to this agent does with them and with the links of its interfaces.
//
// A ring runs here from a record with ring action start or restart until one with ring
// action stop (reported: both ports DISABLED), its deletion, or a record that designates
// another slot (both silent: the manager no longer expects this agent to speak for it).
// A record with ring action "none" keeps the running state and takes the new values.
//
// A running ring is a ringproto::RingNode built from the ring's mode, control VLAN, hello and
// dead intervals, started on the links of its interfaces as they are. The node gets every
// link change of the ring's two interfaces, every control frame arriving on them (on a LAG:
// on any of its member ports) and its timers; what it decides is carried out here. Frames go
// out through the frame sender (on a LAG: out of its first member whose link is up); port
// states and flushes go to the manager, one record per input that changed anything. A flush
// is the node's, not a port's: it is reported on both ports unless one is DISABLED, whose
// table its link going down has emptied already.
//
// A ring whose two ports are joined by nothing (one chassis, no cable) hears no health frame
// back: its master fails the ring after the dead-interval and forwards on both ports, as the
// lone switch it is; a transit forwards once its ports' pre-forwarding has run out.

#include <algorithm>

#include "cli/syntax.h"
#include "platform/ifindex.h"
#include "sim/agent.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {

namespace rc = agt::rcfg;
namespace rp = ringproto;

const char* modeName(uint8_t mode) {
    return mode == rc::kModeMaster ? "master" : mode == rc::kModeTransit ? "transit" : "no mode";
}

bool isPortOrLag(uint32_t ifIndex) {
    return agentPortNumber(ifIndex) != 0;
}

// Why a ring cannot run with these values, or null when it can.
const char* cannotRun(const Agent::RingConfig& c) {
    if (c.mode != rc::kModeMaster && c.mode != rc::kModeTransit) return "it has no mode";
    if (!isPortOrLag(c.primary) || !isPortOrLag(c.secondary))
        return "it lacks a primary or secondary port";
    return nullptr;
}

// "Gi 0/1 FORW (flush), Gi 1/1 DISABLED"
std::string portsText(const Agent::Node& n, bool priFlush = false, bool secFlush = false) {
    return cli::shortIfName(n.primary) + " " + portStateName(n.priState) +
           (priFlush ? " (flush)" : "") + ", " + cli::shortIfName(n.secondary) + " " +
           portStateName(n.secState) + (secFlush ? " (flush)" : "");
}

const char* ringActionName(uint32_t a) {
    switch (a) {
        case rc::kRingNone:
            return "none";
        case rc::kRingStart:
            return "start";
        case rc::kRingRestart:
            return "restart";
        case rc::kRingStop:
            return "stop";
        default:
            return "unknown";
    }
}

}  // namespace

uint16_t agentPortNumber(uint32_t ifIndex) {
    switch (ifmIfIndexToIfType(ifIndex)) {
        case ifm::kTypeGigabit:
        case ifm::kTypeTenGigabit:
            return agt::portNumber(ifmIfIndexToSlotId(ifIndex), ifmIfIndexToPortId(ifIndex));
        case ifm::kTypeLag:
            return static_cast<uint16_t>(ifmIfIndexToIfNum(ifIndex));
        default:
            return 0;
    }
}

bool Agent::linkUp(uint32_t ifIndex) const {
    auto it = life_.interfaces.find(ifIndex);
    return it == life_.interfaces.end() || it->second.operUp;
}

void Agent::applyRingRecord(const be::Reader& rec) {
    const uint16_t action = rec.u16(rc::kOffAction);
    const uint16_t id = rec.u16(rc::kOffRingId);
    const uint32_t ringAction = rec.u32(rc::kOffRingAction);
    const uint32_t flags = rec.u32(rc::kOffCfgFlags);
    const uint16_t desg = rec.u16(rc::kOffDesgAgent);
    if (action == rc::kActionDeleteRing) {
        auto it = life_.rings.find(id);
        if (it == life_.rings.end()) {
            say("%s: ring %u deleted: it was not known here", name().c_str(), id);
            return;
        }
        if (it->second.node.running) dropNode(id, it->second, "it is deleted");
        life_.rings.erase(it);
        say("%s: ring %u deleted: forgotten", name().c_str(), id);
        return;
    }
    if (action != rc::kActionSet && action != rc::kActionRemove) {
        malformed("ring %u: record action %u is unknown: record skipped", id, action);
        return;
    }
    Ring& ring = life_.rings[id];
    ++ring.stats[kStatConfigRecords];
    RingConfig& c = ring.cfg;
    c.action = action;
    c.ringAction = ringAction;
    c.flags = flags;
    c.desgAgent = desg;
    // A set record carries the values its flags name; a remove record clears them.
    const bool set = action == rc::kActionSet;
    if ((flags & rc::kFlagCtrlVlan) != 0) {
        c.ctrlVlan = set ? rec.u16(rc::kOffCtrlVlan) : 0;
        c.primary = set ? rec.u32(rc::kOffPrimary) : 0;
        c.secondary = set ? rec.u32(rc::kOffSecondary) : 0;
    }
    if ((flags & rc::kFlagMode) != 0) c.mode = set ? rec.u8(rc::kOffMode) : 0;
    if ((flags & rc::kFlagHello) != 0) c.hello = set ? rec.u16(rc::kOffHello) : kDefaultHelloMs;
    if ((flags & rc::kFlagDead) != 0) c.dead = set ? rec.u16(rc::kOffDead) : kDefaultDeadMs;
    if ((flags & rc::kFlagMemberVlan) != 0) {
        c.memberVlans.fill(0);
        if (set) rec.bytes(rc::kOffMemberVlans, c.memberVlans.data(), c.memberVlans.size());
    }
    say("%s: ring %u: %s record (flags 0x%02x), ring action %s, designated slot %u", name().c_str(),
        id, set ? "set" : "remove", flags, ringActionName(ringAction), desg);

    if (desg != slot_) {
        if (ring.node.running)
            dropNode(id, ring, "it is now designated to slot " + std::to_string(desg));
        return;
    }
    switch (ringAction) {
        case rc::kRingStart:
        case rc::kRingRestart:
            startNode(id, ring, ring.node.running || ringAction == rc::kRingRestart);
            break;
        case rc::kRingStop:
            if (ring.node.running) stopNode(id, ring);
            break;
        default:
            if (ringAction != rc::kRingNone)
                malformed("ring %u: ring action %u is unknown: taken as none", id, ringAction);
            if (ring.node.running) updateNode(id, ring);
            break;
    }
}

void Agent::report(uint16_t ringId, Ring& ring, bool priFlush, bool secFlush) {
    const Node& n = ring.node;
    life_.pending.push_back({ringId, priFlush, secFlush, agentPortNumber(n.primary),
                             agentPortNumber(n.secondary), n.priState, n.secState});
    ++ring.stats[kStatRecords];
    ring.stats[kStatFlushes] += (priFlush ? 1 : 0) + (secFlush ? 1 : 0);
}

void Agent::drive(uint16_t ringId, Ring& ring, bool always, const std::string& what,
                  const std::function<rp::Actions(rp::RingNode&, int64_t)>& input) {
    Node& n = ring.node;
    const rp::NodeState before = n.proto->state();
    const rp::Actions actions = input(*n.proto, nowMs());
    bool changed = always, flush = false;
    for (const rp::Action& a : actions) {
        switch (a.kind) {
            case rp::Action::kSend:
                sendFrame(n, a.side, a.frame);
                break;
            case rp::Action::kSetPort:
                (a.side == rp::Side::kPrimary ? n.priState : n.secState) = a.portState;
                changed = true;
                break;
            case rp::Action::kFlush:
                flush = true;
                break;
        }
    }
    const rp::NodeState after = n.proto->state();
    if (after == rp::NodeState::kFailed && before != rp::NodeState::kFailed &&
        before != rp::NodeState::kNone)
        ++ring.stats[kStatRingBroken];
    if (!changed && !flush) return;
    const bool priFlush = flush && n.priState != agt::kStateDisabled;
    const bool secFlush = flush && n.secState != agt::kStateDisabled;
    report(ringId, ring, priFlush, secFlush);
    say("%s: ring %u %s: %s, reporting %s", name().c_str(), ringId, what.c_str(),
        rp::nodeStateName(after), portsText(n, priFlush, secFlush).c_str());
}

uint32_t Agent::ringInterfaceOf(uint32_t ifIndex) const {
    auto it = life_.interfaces.find(ifIndex);
    return it != life_.interfaces.end() && it->second.lagIf != 0 ? it->second.lagIf : ifIndex;
}

uint32_t Agent::egressPort(uint32_t ringIf) const {
    if (ifmIfIndexToIfType(ringIf) != ifm::kTypeLag) return ringIf;
    for (const auto& [ifIndex, entry] : life_.interfaces)
        if (entry.lagIf == ringIf && entry.operUp) return ifIndex;
    return 0;
}

void Agent::sendFrame(const Node& n, rp::Side side, const rp::Frame& f) {
    if (f.type == rp::FrameType::kLinkDown && dropLinkDown_) {
        ++life_.counters.linkDownDropped;
        return;
    }
    uint8_t bytes[rp::kFrameLen];
    rp::encodeFrame(f, bytes);
    const uint32_t port = egressPort(side == rp::Side::kPrimary ? n.primary : n.secondary);
    if (port != 0 && sender_ && sender_(port, bytes))
        ++life_.counters.framesSent;
    else
        ++life_.counters.framesUnsent;
}

bool Agent::onFrame(uint32_t ifIndex, std::span<const uint8_t> bytes) {
    rp::Frame f;
    if (!active() || !rp::decodeFrame(bytes, f)) return false;
    auto it = life_.rings.find(f.ringId);
    if (it == life_.rings.end()) return false;
    Ring& ring = it->second;
    const Node& n = ring.node;
    const uint32_t ringIf = ringInterfaceOf(ifIndex);
    if (!n.running || f.ctrlVlan != n.ctrlVlan || (ringIf != n.primary && ringIf != n.secondary))
        return false;
    ++life_.counters.framesReceived;
    if (f.type == rp::FrameType::kLinkDown && dropLinkDown_) {
        ++life_.counters.linkDownDropped;
        return true;
    }
    const rp::Side side = ringIf == n.primary ? rp::Side::kPrimary : rp::Side::kSecondary;
    drive(f.ringId, ring, false,
          std::string(rp::frameTypeName(f.type)) + " on " + cli::shortIfName(ifIndex) +
              " from switch " + std::to_string(f.sender),
          [&](rp::RingNode& node, int64_t now) { return node.onFrame(side, f, now); });
    sendPendingReports();
    return true;
}

int64_t Agent::nextRingDeadline() const {
    int64_t next = rp::kNoDeadline;
    for (const auto& [id, ring] : life_.rings)
        if (ring.node.proto) next = std::min(next, ring.node.proto->nextDeadlineMs());
    return next;
}

void Agent::serveRingTimers() {
    const int64_t now = nowMs();
    for (auto& [id, ring] : life_.rings)
        if (ring.node.proto && ring.node.proto->nextDeadlineMs() <= now)
            drive(id, ring, false, "timer",
                  [](rp::RingNode& node, int64_t t) { return node.onTimer(t); });
    sendPendingReports();
}

void Agent::confirmBlocks() {
    for (auto& [id, ring] : life_.rings) {
        const Node& n = ring.node;
        if (!n.proto || !n.proto->awaitingBlock()) continue;
        if (blockCheck_ && !blockCheck_(n.secondary, ring.cfg.memberVlans)) continue;
        drive(id, ring, false, cli::shortIfName(n.secondary) + " blocks in the forwarding plane",
              [](rp::RingNode& node, int64_t now) { return node.onSecondaryBlocked(now); });
    }
}

void Agent::startNode(uint16_t ringId, Ring& ring, bool restart) {
    const RingConfig& c = ring.cfg;
    if (const char* why = cannotRun(c)) {
        say("%s: ring %u cannot start: %s", name().c_str(), ringId, why);
        if (ring.node.running) stopNode(ringId, ring);
        return;
    }
    Node& n = ring.node;
    n.running = true;
    n.mode = c.mode;
    n.primary = c.primary;
    n.secondary = c.secondary;
    n.ctrlVlan = c.ctrlVlan;
    n.hello = c.hello;
    n.dead = c.dead;
    n.proto.emplace(
        rp::Config{c.mode, ringId, c.ctrlVlan, switchId_, c.hello, c.dead, frameCount_});
    // A start is always reported: it is news to the manager even when the states are not.
    const bool priUp = linkUp(n.primary), secUp = linkUp(n.secondary);
    drive(ringId, ring, true,
          std::string(restart ? "restarted" : "started") + " as " + modeName(n.mode),
          [&](rp::RingNode& node, int64_t now) { return node.start(priUp, secUp, now); });
}

void Agent::stopNode(uint16_t ringId, Ring& ring) {
    Node& n = ring.node;
    n.proto.reset();
    n.priState = agt::kStateDisabled;
    n.secState = agt::kStateDisabled;
    report(ringId, ring, false, false);
    n.running = false;
    say("%s: ring %u stopped: %s", name().c_str(), ringId, portsText(n).c_str());
}

void Agent::dropNode(uint16_t ringId, Ring& ring, const std::string& why) {
    ring.node = Node{};
    say("%s: ring %u stops here (%s); nothing reported", name().c_str(), ringId, why.c_str());
}

void Agent::updateNode(uint16_t ringId, Ring& ring) {
    const RingConfig& c = ring.cfg;
    const Node& n = ring.node;
    if (const char* why = cannotRun(c)) {
        say("%s: ring %u can no longer run: %s", name().c_str(), ringId, why);
        stopNode(ringId, ring);
        return;
    }
    if (n.mode == c.mode && n.primary == c.primary && n.secondary == c.secondary &&
        n.ctrlVlan == c.ctrlVlan && n.hello == c.hello && n.dead == c.dead)
        return;
    // The node's values are fixed when it starts: it starts again with the new ones.
    startNode(ringId, ring, true);
}

void Agent::onLinkChange(uint32_t ifIndex, bool up, const char* source) {
    for (auto& [id, ring] : life_.rings) {
        const Node& n = ring.node;
        if (!n.running || (n.primary != ifIndex && n.secondary != ifIndex)) continue;
        ++ring.stats[up ? kStatLinkUp : kStatLinkDown];
        const rp::Side side = n.primary == ifIndex ? rp::Side::kPrimary : rp::Side::kSecondary;
        drive(id, ring, false,
              cli::shortIfName(ifIndex) + " link " + (up ? "up" : "down") + " (" + source + ")",
              [&](rp::RingNode& node, int64_t now) { return node.onLinkChange(side, up, now); });
    }
}

}  // namespace vorn::sim
