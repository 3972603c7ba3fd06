#include "sim/l2pm_show.h"

#include <set>

#include "cli/syntax.h"
#include "platform/bitmap.h"
#include "sim/vlan_set.h"

namespace vorn::sim {
namespace {

using VlanBitmap = ForwardingModel::VlanBitmap;

std::string portList(const std::set<uint32_t>& ports) {
    std::string s;
    for (uint32_t p : ports) s += (s.empty() ? "" : ", ") + cli::shortIfName(p);
    return s.empty() ? "none" : s;
}

VlanBitmap blocking(const ForwardingModel::PortState& p) {
    VlanBitmap out{};
    BITMAP_DIFF_BITMAPS(out, p.known, p.forwarding);
    return out;
}

std::string instanceLine(const ForwardingModel& m, uint16_t instance) {
    auto it = m.instancePorts().find(instance);
    std::set<uint32_t> none;
    return "instance " + std::to_string(instance) + ": ports " +
           portList(it == m.instancePorts().end() ? none : it->second) + "; VLANs " +
           vlanSetText(m.vlansOfInstance(instance));
}

// The instances that have ports or VLANs.
std::set<uint16_t> knownInstances(const ForwardingModel& m) {
    std::set<uint16_t> out;
    for (const auto& [instance, ports] : m.instancePorts()) out.insert(instance);
    for (uint32_t v = limits::kMinVlan; v <= limits::kMaxVlan; ++v)
        if (m.instanceOfVlan(v) != 0) out.insert(m.instanceOfVlan(v));
    return out;
}

using Json = nlohmann::ordered_json;

// A VLAN list as text, "" for none.
Json vlansJson(const VlanBitmap& vlans) {
    return cli::vlanListText(vlans);
}

Json portsJson(const std::set<uint32_t>& ports) {
    Json j = Json::array();
    for (uint32_t p : ports) j.push_back(cli::longIfName(p));
    return j;
}

const std::set<uint32_t>& portsOfInstance(const ForwardingModel& m, uint16_t instance) {
    static const std::set<uint32_t> kNone;
    auto it = m.instancePorts().find(instance);
    return it == m.instancePorts().end() ? kNone : it->second;
}

// The flushes asked for on one port: how many, and on which VLANs.
struct PortFlushes {
    uint64_t total = 0;
    VlanBitmap vlans{};
};
PortFlushes portFlushes(const ForwardingModel& m, uint32_t ifIndex) {
    PortFlushes f;
    for (const auto& [key, n] : m.flushes())
        if (key.first == ifIndex) {
            bmp::set(f.vlans, key.second);
            f.total += n;
        }
    return f;
}

Json flushesJson(const ForwardingModel& m, uint32_t ifIndex) {
    PortFlushes f = portFlushes(m, ifIndex);
    return {{"count", f.total}, {"vlans", vlansJson(f.vlans)}};
}

}  // namespace

Json l2pmInstanceJson(const ForwardingModel& m, uint16_t instance) {
    return {{"instance", instance},
            {"ports", portsJson(portsOfInstance(m, instance))},
            {"vlans", vlansJson(m.vlansOfInstance(instance))}};
}

Json l2pmPortJson(const ForwardingModel& m, uint32_t ifIndex) {
    auto p = m.ports().find(ifIndex);
    Json instances = Json::array();
    for (const auto& [instance, ports] : m.instancePorts())
        if (ports.count(ifIndex) != 0) instances.push_back(instance);
    return {{"interface", cli::longIfName(ifIndex)},
            {"owned_by_manager", m.owned().count(ifIndex) != 0},
            {"refused", m.refused().count(ifIndex) != 0},
            {"forwarding", p == m.ports().end() ? Json(nullptr) : vlansJson(p->second.forwarding)},
            {"blocking", p == m.ports().end() ? Json(nullptr) : vlansJson(blocking(p->second))},
            {"instances", instances},
            {"flushes", flushesJson(m, ifIndex)}};
}

Json l2pmVlanJson(const ForwardingModel& m, uint32_t vlan) {
    uint16_t instance = m.instanceOfVlan(vlan);
    Json ports = Json::array(), flushed = Json::array();
    for (const auto& [ifIndex, p] : m.ports())
        if (bmp::test(p.known, vlan))
            ports.push_back({{"interface", cli::longIfName(ifIndex)},
                             {"forwarding", bmp::test(p.forwarding, vlan)}});
    for (const auto& [key, n] : m.flushes())
        if (key.second == vlan)
            flushed.push_back({{"interface", cli::longIfName(key.first)}, {"count", n}});
    return {{"vlan", vlan},
            {"instance", instance == 0 ? Json(nullptr) : Json(instance)},
            {"ports", ports},
            {"flushes", flushed}};
}

Json l2pmJson(const ForwardingModel& m) {
    Json ports = Json::array(), instances = Json::array(), recent = Json::array();
    for (const auto& [ifIndex, p] : m.ports())
        ports.push_back({{"interface", cli::longIfName(ifIndex)},
                         {"forwarding", vlansJson(p.forwarding)},
                         {"blocking", vlansJson(blocking(p))}});
    for (uint16_t i : knownInstances(m)) instances.push_back(l2pmInstanceJson(m, i));
    uint64_t total = 0;
    for (const auto& [key, n] : m.flushes()) total += n;
    for (const ForwardingModel::Flush& f : m.recentFlushes())
        recent.push_back({{"interface", cli::longIfName(f.ifIndex)}, {"vlan", f.vlan}});
    const ForwardingModel::Counters& c = m.counters();
    return {{"owned_by_manager", portsJson(m.owned())},
            {"refused", portsJson(m.refused())},
            {"ports", ports},
            {"instances", instances},
            {"flushes", {{"count", total}, {"recent", recent}}},
            {"messages",
             {{"port_state", c.portStateMsgs},
              {"port_state_records", c.portStateRecords},
              {"flush", c.flushMsgs},
              {"flush_records", c.flushRecords},
              {"instance_ownership", c.instanceMsgs},
              {"instance_ownership_records", c.instanceRecords},
              {"vlan_stg", c.vlanStgMsgs},
              {"port_ownership", c.ownershipRequests},
              {"records_skipped", c.badRecords},
              {"too_short", c.malformed}}}};
}

std::string describeL2pm(const ForwardingModel& m) {
    std::string s = "ports owned by the manager: " + portList(m.owned()) + "\n";
    s += "ports L2PM refuses to hand over: " + portList(m.refused()) + "\n";
    s += "forwarding state:";
    s += m.ports().empty() ? " none received\n" : "\n";
    for (const auto& [ifIndex, p] : m.ports())
        s += "  " + cli::shortIfName(ifIndex) + ": forwarding " + vlanSetText(p.forwarding) +
             "; blocking " + vlanSetText(blocking(p)) + "\n";
    std::set<uint16_t> instances = knownInstances(m);
    s += "STG instances:";
    s += instances.empty() ? " none\n" : "\n";
    for (uint16_t i : instances) s += "  " + instanceLine(m, i) + "\n";
    uint64_t total = 0;
    std::map<uint32_t, VlanBitmap> flushedVlans;
    for (const auto& [key, n] : m.flushes()) {
        total += n;
        bmp::set(flushedVlans[key.first], key.second);
    }
    s += "flushes asked for: " + std::to_string(total) + "\n";
    for (const auto& [ifIndex, vlans] : flushedVlans)
        s += "  " + cli::shortIfName(ifIndex) + ": VLANs " + vlanSetText(vlans) + "\n";
    if (!m.recentFlushes().empty()) {
        s += "  last:";
        for (const ForwardingModel::Flush& f : m.recentFlushes())
            s += " " + cli::shortIfName(f.ifIndex) + " VLAN " + std::to_string(f.vlan) + ";";
        s.back() = '\n';
    }
    const ForwardingModel::Counters& c = m.counters();
    s += "messages: port state " + std::to_string(c.portStateMsgs) + " (" +
         std::to_string(c.portStateRecords) + " records), flush " + std::to_string(c.flushMsgs) +
         " (" + std::to_string(c.flushRecords) + " records), instance ownership " +
         std::to_string(c.instanceMsgs) + " (" + std::to_string(c.instanceRecords) +
         " records), VLAN-STG " + std::to_string(c.vlanStgMsgs) + ", port ownership " +
         std::to_string(c.ownershipRequests) + "; records skipped " + std::to_string(c.badRecords) +
         ", messages too short " + std::to_string(c.malformed) + "\n";
    return s;
}

std::string describeL2pmPort(const ForwardingModel& m, uint32_t ifIndex) {
    std::string s = cli::longIfName(ifIndex) + ": ";
    s += m.owned().count(ifIndex) != 0 ? "owned by the manager" : "not owned by the manager";
    if (m.refused().count(ifIndex) != 0) s += "; L2PM refuses to hand it over";
    s += "\n";
    auto p = m.ports().find(ifIndex);
    if (p == m.ports().end()) {
        s += "  no forwarding state received\n";
    } else {
        s += "  forwarding: " + vlanSetText(p->second.forwarding) + "\n";
        s += "  blocking: " + vlanSetText(blocking(p->second)) + "\n";
    }
    std::string instances;
    for (const auto& [instance, ports] : m.instancePorts())
        if (ports.count(ifIndex) != 0)
            instances += (instances.empty() ? "" : ", ") + std::to_string(instance);
    s += "  STG instances: " + (instances.empty() ? "none" : instances) + "\n";
    PortFlushes f = portFlushes(m, ifIndex);
    s += "  flushes: " + std::to_string(f.total) +
         (f.total == 0 ? "" : " (VLANs " + vlanSetText(f.vlans) + ")") + "\n";
    return s;
}

std::string describeL2pmVlan(const ForwardingModel& m, uint32_t vlan) {
    uint16_t instance = m.instanceOfVlan(vlan);
    std::string s =
        "VLAN " + std::to_string(vlan) + ": " +
        (instance == 0 ? "in no STG instance" : "STG instance " + std::to_string(instance)) + "\n";
    bool any = false;
    for (const auto& [ifIndex, p] : m.ports()) {
        if (!bmp::test(p.known, vlan)) continue;
        any = true;
        s += "  " + cli::shortIfName(ifIndex) +
             (bmp::test(p.forwarding, vlan) ? ": forwarding\n" : ": blocking\n");
    }
    if (!any) s += "  no port has a state for it\n";
    for (const auto& [key, n] : m.flushes())
        if (key.second == vlan)
            s += "  flushed on " + cli::shortIfName(key.first) + " " + std::to_string(n) +
                 (n == 1 ? " time\n" : " times\n");
    return s;
}

std::string describeL2pmInstance(const ForwardingModel& m, uint16_t instance) {
    return instanceLine(m, instance) + "\n";
}

}  // namespace vorn::sim
