// The cable commands: cut and restore a port's cable, and show the cables.

#include <cstdio>

#include "platform/number.h"
#include "sim/args.h"
#include "sim/chassis_sim.h"
#include "sim/log.h"

namespace vorn::sim {

void ChassisSim::linkCabledPorts() {
    for (const Cables::Cable& c : cables_.cables()) {
        if (c.cut) continue;
        say("cable: whole; %s", publish(model_.setLink(c.spec.ifIndex, true)).text.c_str());
    }
}

std::vector<uint32_t> ChassisSim::forwardingPorts(uint16_t vlan) const {
    std::vector<uint32_t> out;
    const auto& l2pmPorts = l2pm_.model().ports();
    for (const Cables::Cable& c : cables_.cables()) {
        const uint32_t port = c.spec.ifIndex;
        const ChassisModel::Interface* i = model_.find(port);
        if (c.cut || i == nullptr || !i->linkUp) continue;
        if (!bmp::test(i->tagged, vlan) && !bmp::test(i->untagged, vlan)) continue;
        auto st = l2pmPorts.find(port);
        if (st != l2pmPorts.end() && bmp::test(st->second.known, vlan) &&
            !bmp::test(st->second.forwarding, vlan))
            continue;
        out.push_back(port);
    }
    return out;
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
                       return shown(cables_.describe(), cables_.toJson());
                   }});
}

}  // namespace vorn::sim
