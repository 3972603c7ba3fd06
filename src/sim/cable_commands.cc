// The cable commands: cut and restore a port's cable, and show the cables.

#include <strings.h>

#include <cstdio>

#include "cli/vlan_list.h"
#include "platform/bitmap.h"
#include "platform/number.h"
#include "sim/args.h"
#include "sim/chassis_sim.h"
#include "sim/log.h"
#include "sim/ring_protocol.h"

namespace vorn::sim {

void ChassisSim::linkCabledPorts() {
    for (const Cables::Cable& c : cables_.cables()) {
        if (c.cut) continue;
        say("cable: whole; %s", publish(model_.setLink(c.spec.ifIndex, true)).text.c_str());
    }
}

namespace {

// A port is a member of the VLAN.
bool carries(const VlanSet& tagged, const VlanSet& untagged, uint16_t vlan) {
    return bmp::test(tagged, vlan) || bmp::test(untagged, vlan);
}

// L2PM lets a port forward a VLAN unless it was told the port blocks it.
bool l2pmLets(const VlanSet& known, const VlanSet& forwarding, uint16_t vlan) {
    return !bmp::test(known, vlan) || bmp::test(forwarding, vlan);
}

}  // namespace

bool ChassisSim::PortWatch::forwards(uint16_t vlan) const {
    return carrying && carries(tagged, untagged, vlan) && l2pmLets(known, forwarding, vlan);
}

bool ChassisSim::PortWatch::sameInputs(const PortWatch& o) const {
    return carrying == o.carrying && tagged == o.tagged && untagged == o.untagged &&
           known == o.known && forwarding == o.forwarding;
}

bool ChassisSim::l2pmForwards(uint32_t ifIndex, uint16_t vlan) const {
    const auto& ports = l2pm_.model().ports();
    auto st = ports.find(ifIndex);
    return st == ports.end() || l2pmLets(st->second.known, st->second.forwarding, vlan);
}

bool ChassisSim::l2pmBlocks(uint32_t ifIndex, const std::array<uint8_t, 512>& vlans) const {
    const ChassisModel::Interface* i = model_.find(ifIndex);
    if (i == nullptr) return true;
    for (uint32_t v = kMinVlan; v <= kMaxVlan; ++v) {
        const auto vlan = static_cast<uint16_t>(v);
        if (bmp::test(vlans, vlan) && carries(i->tagged, i->untagged, vlan) &&
            l2pmForwards(ifIndex, vlan))
            return false;
    }
    return true;
}

void ChassisSim::watchCabledPorts() {
    const auto& l2pmPorts = l2pm_.model().ports();
    uint64_t now = 0;
    for (const Cables::Cable& c : cables_.cables()) {
        const uint32_t port = c.spec.ifIndex;
        PortWatch cur;
        if (const ChassisModel::Interface* i = model_.find(port)) {
            cur.carrying = !c.cut && i->linkUp;
            cur.tagged = i->tagged;
            cur.untagged = i->untagged;
        }
        if (auto st = l2pmPorts.find(port); st != l2pmPorts.end()) {
            cur.known = st->second.known;
            cur.forwarding = st->second.forwarding;
        }
        auto [it, fresh] = watch_.try_emplace(port, cur);
        PortWatch& was = it->second;
        if (fresh || cur.sameInputs(was)) continue;
        cur.openedNs = was.openedNs;
        for (uint32_t v = kMinVlan; v <= kMaxVlan; ++v) {
            const auto vlan = static_cast<uint16_t>(v);
            if (!was.forwards(vlan) && cur.forwards(vlan)) {
                if (now == 0) now = host::monotonicNs();
                cur.openedNs = now;
                break;
            }
        }
        was = cur;
    }
}

std::vector<uint32_t> ChassisSim::forwardingPorts(uint16_t vlan, uint64_t sentNs) {
    watchCabledPorts();
    std::vector<uint32_t> out;
    for (const auto& [port, w] : watch_)
        if (w.forwards(vlan) && w.openedNs <= sentNs) out.push_back(port);
    return out;
}

void ChassisSim::bridgeControlFrame(uint32_t ifIndex, std::span<const uint8_t> frame) {
    ringproto::Frame f;
    if (!ringproto::decodeFrame(frame, f)) return;
    const std::pair<uint32_t, uint32_t> key{f.sender, f.seq};
    if (!bridged_.insert(key).second) {
        ++controlFramesSeen_;
        return;
    }
    bridgedOrder_.push_back(key);
    if (bridgedOrder_.size() > kBridgedKept) {
        bridged_.erase(bridgedOrder_.front());
        bridgedOrder_.pop_front();
    }
    watchCabledPorts();
    for (const auto& [port, w] : watch_)
        if (port != ifIndex && w.forwards(f.ctrlVlan)) cables_.send(port, frame);
    ++controlFramesBridged_;
}

void ChassisSim::registerCableCommands() {
    commands_.add({"probe", "VLAN",
                   "inject a probe frame on VLAN: it is flooded out of the cabled ports that "
                   "forward the VLAN, switch by switch",
                   1, 1, [this](const CommandTable::Args& args) {
                       uint32_t vlan = 0;
                       std::string err;
                       if (!number::parse(args[0], kMinVlan, kMaxVlan, "VLAN", &vlan, &err))
                           return refused(err);
                       uint64_t before = probes_.counters().sent;
                       uint64_t id = probes_.inject(static_cast<uint16_t>(vlan));
                       char text[128];
                       std::snprintf(
                           text, sizeof(text),
                           "probe 0x%016llx injected on VLAN %u: sent out of %llu ports",
                           static_cast<unsigned long long>(id), vlan,
                           static_cast<unsigned long long>(probes_.counters().sent - before));
                       return done(text);
                   }});
    commands_.add({"probe stream", "VLAN-LIST MS | off",
                   "inject a probe every MS milliseconds on the VLANs of the list in turn, until "
                   "'probe stream off', which says which ids the stream used",
                   1, 2, [this](const CommandTable::Args& args) {
                       if (args.size() == 1) {
                           if (strcasecmp(args[0].c_str(), "off") != 0)
                               return refused("usage: probe stream VLAN-LIST MS | off");
                           std::optional<Probes::Stream> s = probes_.stopStream();
                           streamDueMs_ = -1;
                           if (!s) return refused("no probe stream is running");
                           char text[128];
                           std::snprintf(
                               text, sizeof(text),
                               "probe stream stopped: %llu probes, ids 0x%016llx to 0x%016llx",
                               static_cast<unsigned long long>(s->count),
                               static_cast<unsigned long long>(s->first),
                               static_cast<unsigned long long>(s->last));
                           return done(text);
                       }
                       cli::VlanBitmap set{};
                       uint32_t everyMs = 0;
                       std::string err;
                       if (!cli::parseVlanList(args[0], &set, &err) ||
                           !number::parse(args[1], Probes::kMinStreamMs, Probes::kMaxStreamMs,
                                          "interval (ms)", &everyMs, &err))
                           return refused(err);
                       std::vector<uint16_t> vlans;
                       for (uint32_t v = kMinVlan; v <= kMaxVlan; ++v)
                           if (bmp::test(set, v)) vlans.push_back(static_cast<uint16_t>(v));
                       if (vlans.empty()) return refused("the VLAN list is empty");
                       probes_.startStream(std::move(vlans), everyMs);
                       streamDueMs_ = 0;
                       char text[160];
                       std::snprintf(text, sizeof(text),
                                     "probe stream on VLANs %s every %u ms: first id 0x%016llx",
                                     args[0].c_str(), everyMs,
                                     static_cast<unsigned long long>(probes_.stream()->first));
                       return done(text);
                   }});
    commands_.add({"show probes seen", "FIRST LAST",
                   "which probes with ids FIRST to LAST were seen here: runs of consecutive ids "
                   "with the times they were injected (ns), and how many were seen twice",
                   2, 2, nullptr, [this](const CommandTable::Args& args) {
                       uint64_t first = 0, last = 0;
                       std::string err;
                       if (!number::parse(args[0], 0, UINT64_MAX, "first id", &first, &err,
                                          number::Radix::DecimalOrHex) ||
                           !number::parse(args[1], first, UINT64_MAX, "last id", &last, &err,
                                          number::Radix::DecimalOrHex))
                           return notShown(err);
                       Probes::Seen seen = probes_.seenBetween(first, last);
                       Json runs = Json::array();
                       std::string text = "probes " + args[0] + " to " + args[1] + " seen here:";
                       for (const Probes::Run& r : seen.runs) {
                           runs.push_back({{"first", r.first},
                                           {"first_sent_ns", r.firstSentNs},
                                           {"last", r.last},
                                           {"last_sent_ns", r.lastSentNs}});
                           text += " " + std::to_string(r.last - r.first + 1) + " from " +
                                   std::to_string(r.first - first);
                       }
                       if (seen.runs.empty()) text += " none";
                       text += "; seen twice or more: " + std::to_string(seen.repeated);
                       return shown(text, Json{{"first", first},
                                               {"last", last},
                                               {"runs", runs},
                                               {"repeated", seen.repeated}});
                   }});
    commands_.add({"show probes", "[ID]",
                   "the probes seen: counts, and how often probe ID (0x...) was seen here", 0, 1,
                   nullptr, [this](const CommandTable::Args& args) {
                       const Probes::Counters& c = probes_.counters();
                       Json j = {{"injected", c.injected}, {"received", c.received},
                                 {"blocked", c.blocked},   {"loops", c.loops},
                                 {"sent", c.sent},         {"malformed", c.malformed}};
                       std::string text =
                           "probes: injected " + std::to_string(c.injected) + ", received " +
                           std::to_string(c.received) + ", dropped at blocking ports " +
                           std::to_string(c.blocked) + ", loops " + std::to_string(c.loops) +
                           ", copies sent " + std::to_string(c.sent);
                       if (!args.empty()) {
                           uint64_t id = 0;
                           std::string err;
                           if (!number::parse(args[0], 0, UINT64_MAX, "probe id", &id, &err,
                                              number::Radix::DecimalOrHex))
                               return notShown(err);
                           const Probes::Sighting* s = probes_.sighting(id);
                           j["probe"] = args[0];
                           j["times_seen"] = s == nullptr ? 0 : s->times;
                           text += "\nprobe " + args[0] + ": " +
                                   (s == nullptr ? std::string("not seen")
                                                 : "seen " + std::to_string(s->times) +
                                                       (s->times == 1 ? " time" : " times"));
                       }
                       return shown(text, j);
                   }});
    commands_.add({"cable", "INTERFACE cut|restore",
                   "cut a port's cable or restore it: the links at both ends go down or come up", 2,
                   3, [this](const CommandTable::Args& args) {
                       uint32_t ifIndex = 0;
                       bool cut = false;
                       std::string err;
                       if (!interfaceThen(args, "cable INTERFACE cut|restore", "cut", "restore",
                                          &ifIndex, &cut, &err))
                           return refused(err);
                       std::string text;
                       bool ok =
                           cut ? cables_.cut(ifIndex, &text) : cables_.restore(ifIndex, &text);
                       if (ok) say("cable: %s", text.c_str());
                       return ok ? done(text) : refused(text);
                   }});
    commands_.add({"show cables", "", "each cable, its far end, cut or whole, frames counted", 0, 0,
                   nullptr, [this](const CommandTable::Args&) {
                       Json j = cables_.toJson();
                       j["control_frames_bridged"] = controlFramesBridged_;
                       j["control_frames_seen_before"] = controlFramesSeen_;
                       return shown(cables_.describe() +
                                        "control frames bridged (no ring running here took "
                                        "them): " +
                                        std::to_string(controlFramesBridged_) +
                                        "; seen before, not bridged again: " +
                                        std::to_string(controlFramesSeen_) + "\n",
                                    j);
                   }});
}

}  // namespace vorn::sim
