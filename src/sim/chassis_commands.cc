// The commands that change and show the chassis model, and how its changes reach the
// manager: IFM notifications for every change, L2PM's download for a manager that registers.

#include "cli/syntax.h"
#include "platform/number.h"
#include "sim/args.h"
#include "sim/chassis_sim.h"
#include "sim/l2pm_download.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {

// How many records of one change are logged one by one.
constexpr size_t kLoggedRecords = 8;

bool lagNumber(const std::string& word, uint32_t* lag, std::string* err) {
    return number::parse(word, cli::kMinLag, cli::kMaxLag, "port-channel number", lag, err);
}

CommandResult usage(const char* text) {
    return refused(std::string("usage: ") + text);
}

}  // namespace

CommandResult ChassisSim::publish(ChassisModel::Change change) {
    if (!change.ok) return refused(change.text);
    if (change.records.empty()) return done(change.text);
    say("chassis: %s", change.text.c_str());
    size_t n = change.records.size();
    for (size_t i = 0; i < n && i < kLoggedRecords; ++i)
        say("ifm: %s", describeIfmRecord(change.records[i]).c_str());
    if (n > kLoggedRecords) say("ifm: ... and %zu records more", n - kLoggedRecords);
    std::string records = std::to_string(n) + (n == 1 ? " IFM record" : " IFM records");
    if (l2pm_.queueHandle() == 0)
        return done(change.text + "; " + records +
                    " not sent: no manager is connected (it learns the chassis from L2PM's "
                    "download when it registers)");
    std::vector<std::vector<uint8_t>> bodies = packIfmNotifications(change.records, &ifmCount_);
    for (size_t i = 0; i < bodies.size(); ++i) {
        std::string err;
        if (!l2pm_.sendNotification(L2pm::Notif::Ifm, bodies[i], &err))
            return done(change.text + "; only " + std::to_string(i) + " of " +
                        std::to_string(bodies.size()) + " IFM notifications sent: " + err);
    }
    return done(change.text + "; " + records + " sent to the manager in " +
                std::to_string(bodies.size()) +
                (bodies.size() == 1 ? " notification" : " notifications"));
}

void ChassisSim::sendDownload() {
    std::string err;
    if (!l2pm_.beginDownload(&err)) {
        say("l2pm: no configuration download: %s", err.c_str());
        return;
    }
    std::vector<dnld::Record> recs = dnld::records(model_);
    std::vector<std::vector<uint8_t>> bodies = dnld::pack(recs);
    bodies.push_back(dnld::endOfConfig());
    for (const std::vector<uint8_t>& body : bodies) {
        if (!l2pm_.sendNotification(L2pm::Notif::L2pm, body, &err)) {
            say("l2pm: configuration download cut short: %s", err.c_str());
            return;
        }
    }
    l2pm_.endDownload(bodies.size());
    say("l2pm: configuration download to 226.0: %zu records in %zu notifications, then the "
        "end of configuration",
        recs.size(), bodies.size() - 1);
}

void ChassisSim::registerChassisCommands() {
    commands_.add({"ring drop-link-down", "on|off",
                   "make this switch lose (on) or pass (off) the ring's LINK_DOWN frames: every "
                   "agent drops those it would send or pass on and those arriving",
                   1, 1, [this](const CommandTable::Args& args) {
                       bool on = false;
                       if (!parseOnOff(args[0], &on))
                           return refused("expected on or off, not '" + args[0] + "'");
                       dropLinkDown_ = on;
                       for (std::optional<Agent>& a : agents_)
                           if (a) a->setDropLinkDown(on);
                       say("ring: LINK_DOWN frames now %s", on ? "dropped" : "passed");
                       return done(std::string("the agents now ") + (on ? "drop" : "pass") +
                                   " LINK_DOWN frames");
                   }});
    commands_.add(
        {"port", "INTERFACE up|down", "the link of a physical port comes up or goes down", 2, 3,
         [this](const CommandTable::Args& args) {
             uint32_t ifIndex = 0;
             bool up = false;
             std::string err;
             if (!interfaceThen(args, "port INTERFACE up|down", "up", "down", &ifIndex, &up, &err))
                 return refused(err);
             const Cables::Cable* cable = cables_.find(ifIndex);
             if (up && cable != nullptr && cable->cut)
                 return refused(cli::shortIfName(ifIndex) +
                                " stays down: its cable is cut ('cable " +
                                cli::shortIfName(ifIndex) + " restore' brings it back)");
             return publish(model_.setLink(ifIndex, up));
         }});
    commands_.add({"vlan", "VLANS [add INTERFACE tagged|untagged | remove INTERFACE]",
                   "create VLANs (e.g. 10 or 20-30,40), or add a port or port-channel to them "
                   "(creating them) or remove it",
                   1, 5, [this](const CommandTable::Args& args) {
                       VlanSet vlans{};
                       std::string err;
                       if (!cli::parseVlanList(args[0], &vlans, &err)) return refused(err);
                       if (args.size() == 1) return publish(model_.createVlans(vlans));
                       uint32_t ifIndex = 0;
                       size_t next = 0;
                       if (args[1] == "remove") {
                           if (!interfaceRest(args, 2, &ifIndex, &err)) return refused(err);
                           return publish(model_.removeFromVlans(vlans, ifIndex));
                       }
                       if (args[1] != "add")
                           return refused("expected add or remove after the VLANs, not '" +
                                          args[1] + "'");
                       if (!interfaceAt(args, 2, &ifIndex, &next, &err)) return refused(err);
                       if (next + 1 != args.size())
                           return usage("vlan VLANS add INTERFACE tagged|untagged");
                       const std::string& tagging = args[next];
                       if (tagging != "tagged" && tagging != "untagged")
                           return refused("expected tagged or untagged, not '" + tagging + "'");
                       return publish(model_.addToVlans(vlans, ifIndex, tagging == "tagged"));
                   }});
    commands_.add({"no vlan", "VLANS", "delete VLANs, after their members leave them", 1, 1,
                   [this](const CommandTable::Args& args) {
                       VlanSet vlans{};
                       std::string err;
                       if (!cli::parseVlanList(args[0], &vlans, &err)) return refused(err);
                       return publish(model_.deleteVlans(vlans));
                   }});
    commands_.add({"lag", "NUMBER [add|remove INTERFACE | zil ID|none]",
                   "create port-channel 1..128, or add a physical port to it (creating it) or "
                   "remove one; or it joins peer-pair port channel ID (the manager takes "
                   "1..129; any 0..65535 is sent) or leaves it",
                   1, 4, [this](const CommandTable::Args& args) {
                       uint32_t lag = 0, port = 0;
                       std::string err;
                       if (!lagNumber(args[0], &lag, &err)) return refused(err);
                       if (args.size() == 1) return publish(model_.createLag(lag));
                       if (args[1] == "zil") return lagZil(lag, args);
                       if (args[1] != "add" && args[1] != "remove")
                           return refused(
                               "expected add, remove or zil after the port-channel "
                               "number, not '" +
                               args[1] + "'");
                       if (!interfaceRest(args, 2, &port, &err)) return refused(err);
                       return publish(args[1] == "add" ? model_.addLagMember(lag, port)
                                                       : model_.removeLagMember(lag, port));
                   }});
    commands_.add({"no lag", "NUMBER", "delete a port-channel, after its members leave it", 1, 1,
                   [this](const CommandTable::Args& args) {
                       uint32_t lag = 0;
                       std::string err;
                       if (!lagNumber(args[0], &lag, &err)) return refused(err);
                       return publish(model_.deleteLag(lag));
                   }});
    commands_.add({"show chassis", "", "cards, VLANs, ports and port-channels with their state", 0,
                   0, nullptr, [this](const CommandTable::Args&) {
                       return shown(describeChassis(model_), chassisJson(model_));
                   }});
    auto showInterface = [this](uint32_t ifIndex) {
        return shown(describeChassisInterface(model_, ifIndex),
                     chassisInterfaceJson(model_, ifIndex));
    };
    commands_.add({"show chassis port", "INTERFACE", "one port or port-channel", 1, 2, nullptr,
                   [showInterface](const CommandTable::Args& args) {
                       uint32_t ifIndex = 0;
                       std::string err;
                       if (!interfaceRest(args, 0, &ifIndex, &err)) return notShown(err);
                       return showInterface(ifIndex);
                   }});
    commands_.add({"show chassis lag", "NUMBER", "one port-channel and its members", 1, 1, nullptr,
                   [showInterface](const CommandTable::Args& args) {
                       uint32_t lag = 0;
                       std::string err;
                       if (!lagNumber(args[0], &lag, &err)) return notShown(err);
                       return showInterface(ifmCreateIfIndex(ifm::kTypeLag, 0, 0, lag));
                   }});
    commands_.add({"show chassis vlan", "VLAN", "one VLAN and its members", 1, 1, nullptr,
                   [this](const CommandTable::Args& args) {
                       uint32_t vlan = 0;
                       std::string err;
                       if (!number::parse(args[0], kMinVlan, kMaxVlan, "VLAN", &vlan, &err))
                           return notShown(err);
                       return shown(describeChassisVlan(model_, vlan),
                                    chassisVlanJson(model_, vlan));
                   }});
}

}  // namespace vorn::sim
