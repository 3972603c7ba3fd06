// The ring node of a single chassis: the ring-configuration records, and what a ring the
// manager designates to this agent does with them and with the links of its interfaces.
//
// A ring runs here from a record with ring action start or restart until one with ring
// action stop (reported: both ports DISABLED), its deletion, or a record that designates
// another slot (both silent: the manager no longer expects this agent to speak for it).
// A record with ring action "none" keeps the running state and takes the new values.
//
// Port states of a running node, from its mode and the links of its two interfaces:
//
//   links (pri, sec)   master                  transit
//   up,   up           FORW,     BLOCKING      FORW,     FORW       ring complete
//   up,   down         FORW,     DISABLED      FORW,     DISABLED   ring broken
//   down, up           DISABLED, FORW          DISABLED, FORW       ring broken
//   down, down         DISABLED, DISABLED      DISABLED, DISABLED   ring broken
//
// Flushes when a link changes the states: a master whose ring breaks (or stays broken)
// flushes on the ports that forward afterwards; a master whose ring is complete again
// flushes on both ports, since what was learnt while it was broken points the wrong way.
// A transit flushes on the port that still forwards when a link goes down, and on nothing
// when one comes up. Starts, stops and reconfigurations flush nothing.

#include "cli/syntax.h"
#include "platform/ifindex.h"
#include "sim/agent.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {

namespace rc = agt::rcfg;

struct States {
    uint32_t pri;
    uint32_t sec;
};

States portStates(uint8_t mode, bool priUp, bool secUp) {
    if (mode == rc::kModeMaster && priUp && secUp)
        return {agt::kStateForwarding, agt::kStateBlocking};
    return {priUp ? agt::kStateForwarding : agt::kStateDisabled,
            secUp ? agt::kStateForwarding : agt::kStateDisabled};
}

// A running node's port is DISABLED exactly when its link is down.
bool complete(const Agent::Node& n) {
    return n.running && n.priState != agt::kStateDisabled && n.secState != agt::kStateDisabled;
}

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
    if ((flags & rc::kFlagHello) != 0) c.hello = set ? rec.u16(rc::kOffHello) : 0;
    if ((flags & rc::kFlagDead) != 0) c.dead = set ? rec.u16(rc::kOffDead) : 0;
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

void Agent::takeConfig(const RingConfig& c, Node& n) const {
    n.mode = c.mode;
    n.primary = c.primary;
    n.secondary = c.secondary;
    States s = portStates(n.mode, linkUp(n.primary), linkUp(n.secondary));
    n.priState = s.pri;
    n.secState = s.sec;
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
    takeConfig(c, n);
    // A start is always reported: it is news to the manager even when the states are not.
    report(ringId, ring, false, false);
    say("%s: ring %u %s as %s: %s", name().c_str(), ringId, restart ? "restarted" : "started",
        modeName(n.mode), portsText(n).c_str());
}

void Agent::stopNode(uint16_t ringId, Ring& ring) {
    Node& n = ring.node;
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
    Node& n = ring.node;
    if (const char* why = cannotRun(c)) {
        say("%s: ring %u can no longer run: %s", name().c_str(), ringId, why);
        stopNode(ringId, ring);
        return;
    }
    const Node before = n;
    takeConfig(c, n);
    if (n.primary == before.primary && n.secondary == before.secondary &&
        n.priState == before.priState && n.secState == before.secState)
        return;
    report(ringId, ring, false, false);
    say("%s: ring %u reconfigured as %s: %s", name().c_str(), ringId, modeName(n.mode),
        portsText(n).c_str());
}

void Agent::onLinkChange(uint32_t ifIndex, bool up, const char* source) {
    for (auto& [id, ring] : life_.rings) {
        Node& n = ring.node;
        if (!n.running || (n.primary != ifIndex && n.secondary != ifIndex)) continue;
        ++ring.stats[up ? kStatLinkUp : kStatLinkDown];
        const bool wasComplete = complete(n);
        States s = portStates(n.mode, linkUp(n.primary), linkUp(n.secondary));
        if (s.pri == n.priState && s.sec == n.secState) continue;
        n.priState = s.pri;
        n.secState = s.sec;
        const bool nowComplete = complete(n);
        bool priFlush = false, secFlush = false;
        if (n.mode == rc::kModeMaster) {
            if (!nowComplete) {
                priFlush = s.pri == agt::kStateForwarding;
                secFlush = s.sec == agt::kStateForwarding;
            } else if (!wasComplete) {
                priFlush = secFlush = true;
            }
            if (wasComplete && !nowComplete) ++ring.stats[kStatRingBroken];
        } else if (!up) {
            priFlush = s.pri == agt::kStateForwarding;
            secFlush = s.sec == agt::kStateForwarding;
        }
        report(id, ring, priFlush, secFlush);
        say("%s: %s link %s (%s): ring %u %s, reporting %s", name().c_str(),
            cli::shortIfName(ifIndex).c_str(), up ? "up" : "down", source, id,
            nowComplete ? "complete" : "broken", portsText(n, priFlush, secFlush).c_str());
    }
}

}  // namespace vorn::sim
