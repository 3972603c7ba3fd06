// The chassis model as text for the operator, and as JSON.

#include <cstdio>

#include "cli/syntax.h"
#include "platform/ifindex.h"
#include "sim/chassis_model.h"

namespace vorn::sim {
namespace {

std::string pad(std::string s, size_t width) {
    if (s.size() < width) s.append(width - s.size(), ' ');
    return s;
}

std::string macText(const Mac& m) {
    char text[24];
    std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4],
                  m[5]);
    return text;
}

bool isLag(uint32_t ifIndex) {
    return ifmIfIndexToIfType(ifIndex) == ifm::kTypeLag;
}

std::string upDown(bool up) {
    return up ? "up" : "down";
}

// "tagged 10,20-30  untagged 5", or "" when the interface is in no VLAN.
std::string vlanColumns(const ChassisModel::Interface& i) {
    std::string s;
    if (vlanCount(i.tagged) != 0) s += "tagged " + vlanSetText(i.tagged);
    if (vlanCount(i.untagged) != 0)
        s += (s.empty() ? "" : "  ") + std::string("untagged ") + vlanSetText(i.untagged);
    return s;
}

std::string memberList(const ChassisModel& m, const ChassisModel::Interface& lag, bool states) {
    std::string s;
    for (uint32_t p : lag.members)
        s += (s.empty() ? "" : ", ") + cli::shortIfName(p) +
             (states ? " (" + upDown(m.operUp(p)) + ")" : "");
    return s.empty() ? "none" : s;
}

// Every slot that is up or has ports: "slot 0 GigabitEthernet x8 up".
std::string cardsLine(const ChassisModel& m) {
    uint32_t withPorts = 0;
    for (const auto& [ifIndex, i] : m.interfaces())
        if (!isLag(ifIndex)) withPorts |= 1u << ifmIfIndexToSlotId(ifIndex);
    std::string s;
    for (uint32_t slot = 0; slot < ChassisModel::kSlots; ++slot) {
        if (!m.cardPresent(slot) && (withPorts >> slot & 1) == 0) continue;
        s += (s.empty() ? "" : ", ") + std::string("slot ") + std::to_string(slot) + " " +
             (m.cardPortType(slot) == ifm::kTypeTenGigabit ? "TenGigabitEthernet"
                                                           : "GigabitEthernet") +
             " x" + std::to_string(m.portsPerCard()) + (m.cardPresent(slot) ? " up" : " down");
    }
    return "cards: " + (s.empty() ? "none" : s) + "\n";
}

// "inter-chassis link: Po 5" and "peer-pair port channels: Po 1 (7), Po 2 (9)".
std::string peerPairLines(const ChassisModel& m) {
    std::string s = "inter-chassis link: " + (m.icl() != 0 ? cli::shortIfName(m.icl()) : "none");
    std::string lags;
    for (const auto& [lag, zilId] : m.lagZil())
        lags += (lags.empty() ? "" : ", ") +
                cli::shortIfName(ifmCreateIfIndex(ifm::kTypeLag, 0, 0, lag)) + " (" +
                std::to_string(zilId) + ")";
    return s + "\npeer-pair port channels: " + (lags.empty() ? "none" : lags) + "\n";
}

using Json = nlohmann::ordered_json;

Json vlansJson(const VlanSet& v) {
    return cli::vlanListText(v);
}

Json interfaceJson(const ChassisModel& m, uint32_t ifIndex, const ChassisModel::Interface& i) {
    Json j = {{"interface", cli::longIfName(ifIndex)}, {"oper_up", m.operUp(ifIndex)}};
    if (isLag(ifIndex)) {
        Json members = Json::array();
        for (uint32_t p : i.members)
            members.push_back({{"interface", cli::longIfName(p)}, {"oper_up", m.operUp(p)}});
        j["members"] = members;
    } else {
        j["link_up"] = i.linkUp;
        j["card_up"] = m.cardPresent(ifmIfIndexToSlotId(ifIndex));
        j["port_channel"] = i.lag != 0 ? Json(cli::longIfName(i.lag)) : Json(nullptr);
    }
    j["mac"] = macText(ChassisModel::macOf(ifIndex));
    j["tagged_vlans"] = vlansJson(i.tagged);
    j["untagged_vlan"] = vlansJson(i.untagged);
    return j;
}

}  // namespace

Json chassisJson(const ChassisModel& m) {
    Json cards = Json::array();
    for (uint32_t slot = 0; slot < ChassisModel::kSlots; ++slot) {
        if (!m.cardPresent(slot)) continue;
        cards.push_back(
            {{"slot", slot},
             {"port_type", m.cardPortType(slot) == ifm::kTypeTenGigabit ? "TenGigabitEthernet"
                                                                        : "GigabitEthernet"},
             {"ports", m.portsPerCard()}});
    }
    Json ports = Json::array(), lags = Json::array();
    for (const auto& [ifIndex, i] : m.interfaces())
        (isLag(ifIndex) ? lags : ports).push_back(interfaceJson(m, ifIndex, i));
    Json zil = Json::array();
    for (const auto& [lag, zilId] : m.lagZil())
        zil.push_back({{"interface", cli::longIfName(ifmCreateIfIndex(ifm::kTypeLag, 0, 0, lag))},
                       {"peer_pair_id", zilId}});
    return {{"cards_up", cards},
            {"vlans", vlansJson(m.vlans())},
            {"ports", ports},
            {"port_channels", lags},
            {"inter_chassis_link", m.icl() != 0 ? Json(cli::longIfName(m.icl())) : Json(nullptr)},
            {"peer_pair_port_channels", zil}};
}

Json chassisInterfaceJson(const ChassisModel& m, uint32_t ifIndex) {
    const ChassisModel::Interface* i = m.find(ifIndex);
    if (i == nullptr) return {{"interface", cli::longIfName(ifIndex)}, {"exists", false}};
    Json j = interfaceJson(m, ifIndex, *i);
    j["exists"] = true;
    return j;
}

Json chassisVlanJson(const ChassisModel& m, uint32_t vlan) {
    Json tagged = Json::array(), untagged = Json::array();
    const bool exists = bmp::test(m.vlans(), vlan);
    for (const auto& [ifIndex, i] : m.interfaces()) {
        if (!exists) break;
        if (bmp::test(i.tagged, vlan)) tagged.push_back(cli::longIfName(ifIndex));
        if (bmp::test(i.untagged, vlan)) untagged.push_back(cli::longIfName(ifIndex));
    }
    return {{"vlan", vlan}, {"exists", exists}, {"tagged", tagged}, {"untagged", untagged}};
}

std::string describeChassis(const ChassisModel& m) {
    std::string s = cardsLine(m);
    s += "VLANs: " + vlanSetText(m.vlans()) + "\n";
    std::string ports, lags;
    for (const auto& [ifIndex, i] : m.interfaces()) {
        std::string head = "  " + pad(cli::shortIfName(ifIndex), 9);
        std::string line;
        if (isLag(ifIndex))
            line = head + pad("oper " + upDown(m.operUp(ifIndex)), 11) +
                   pad("members " + memberList(m, i, false), 24) + vlanColumns(i);
        else
            line = head + pad("link " + upDown(i.linkUp), 11) +
                   pad("oper " + upDown(m.operUp(ifIndex)), 11) +
                   pad(i.lag != 0 ? "in " + cli::shortIfName(i.lag) : "", 10) + vlanColumns(i);
        line.erase(line.find_last_not_of(' ') + 1);
        (isLag(ifIndex) ? lags : ports) += line + "\n";
    }
    s += "ports:" + std::string(ports.empty() ? " none\n" : "\n") + ports;
    s += "port-channels:" + std::string(lags.empty() ? " none\n" : "\n") + lags;
    return s + peerPairLines(m);
}

std::string describeChassisInterface(const ChassisModel& m, uint32_t ifIndex) {
    const ChassisModel::Interface* i = m.find(ifIndex);
    std::string s = cli::longIfName(ifIndex) + ": ";
    if (i == nullptr) return s + "not in the chassis\n";
    if (isLag(ifIndex)) {
        s += "oper " + upDown(m.operUp(ifIndex)) + ", MAC " +
             macText(ChassisModel::macOf(ifIndex)) + "\n";
        s += "  members: " + memberList(m, *i, true) + "\n";
    } else {
        s += "link " + upDown(i->linkUp) + ", oper " + upDown(m.operUp(ifIndex)) + ", MAC " +
             macText(ChassisModel::macOf(ifIndex));
        if (!m.cardPresent(ifmIfIndexToSlotId(ifIndex))) s += " (its card is down)";
        s += "\n  port-channel: " + (i->lag != 0 ? cli::shortIfName(i->lag) : "none") + "\n";
    }
    s += "  tagged in VLANs: " + vlanSetText(i->tagged) + "\n";
    s += "  untagged in VLAN: " + vlanSetText(i->untagged) + "\n";
    return s;
}

std::string describeChassisVlan(const ChassisModel& m, uint32_t vlan) {
    std::string s = "VLAN " + std::to_string(vlan) + ": ";
    if (!bmp::test(m.vlans(), vlan)) return s + "does not exist\n";
    std::string tagged, untagged;
    for (const auto& [ifIndex, i] : m.interfaces()) {
        std::string n = cli::shortIfName(ifIndex);
        if (bmp::test(i.tagged, vlan)) tagged += (tagged.empty() ? "" : ", ") + n;
        if (bmp::test(i.untagged, vlan)) untagged += (untagged.empty() ? "" : ", ") + n;
    }
    s += "exists\n";
    s += "  tagged: " + (tagged.empty() ? "none" : tagged) + "\n";
    s += "  untagged: " + (untagged.empty() ? "none" : untagged) + "\n";
    return s;
}

}  // namespace vorn::sim
