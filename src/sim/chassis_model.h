// The chassis as IFM knows it: line cards with their ports, port-channels (LAGs) with their
// members, VLANs, the tagged and untagged members of each VLAN, and the oper state of every
// port and LAG.
//
// Rules the model keeps:
// - A card carries ports 0..N-1 of one type (GigabitEthernet, or TenGigabitEthernet for the
//   slots given as such). Its ports exist from the first time the card is present and stay
//   while it is down.
// - A physical port is oper up when its card is present and its link is up (the operator's
//   "port ... up|down" stands for both the admin state and the cable). Ports start down.
// - A LAG is oper up while at least one of its members is; a LAG without members is down.
// - A port is in one LAG at most; a LAG member carries no VLANs of its own (they go on the
//   LAG), and a port with VLANs cannot join a LAG.
// - A port or LAG is an untagged member of one VLAN at most, and tagged in any number.
// - Adding a member to a VLAN that does not exist creates the VLAN; adding a member to a LAG
//   that does not exist creates the LAG.
// - One interface at most is the inter-chassis link; a LAG is in one peer-pair port channel at
//   most.
//
// Every change returns the IFM records that tell it, in the order IFM sends them; a change
// that is refused returns the reason and leaves the model as it was.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/limits.h"
#include "sim/ifm_notif.h"
#include "sim/vlan_set.h"

namespace vorn::sim {

class ChassisModel {
public:
    static constexpr uint32_t kSlots = limits::kSlots;
    static constexpr uint32_t kMaxPortsPerCard = limits::kPortsPerSlot;
    static constexpr uint32_t kDefaultPortsPerCard = 8;
    static constexpr uint32_t kMaxLag = limits::kMaxLag;
    static constexpr size_t kMaxLagMembers = limits::kMaxLagMembers;

    // A physical port or a LAG.
    struct Interface {
        uint32_t ifIndex = 0;
        bool linkUp = false;         // physical port: admin state and link
        uint32_t lag = 0;            // physical port: the ifIndex of its LAG, 0 when none
        std::set<uint32_t> members;  // LAG: the member ports
        VlanSet tagged{};
        VlanSet untagged{};  // at most one VLAN
    };

    // The outcome of a change: refused (ok false, text says why) or done, with the records
    // that tell the manager (none when nothing changed) and a sentence for the operator.
    struct Change {
        bool ok = true;
        std::string text;
        std::vector<IfmRecord> records;
    };

    // Cards in the slots of cardMask (bit s for slot s); those of tenGigMask carry
    // TenGigabitEthernet ports; every card carries portsPerCard ports (1..64).
    ChassisModel(uint32_t cardMask, uint32_t tenGigMask, uint32_t portsPerCard);

    Change setLink(uint32_t ifIndex, bool up);
    Change createVlans(const VlanSet& vlans);
    Change deleteVlans(const VlanSet& vlans);
    Change addToVlans(const VlanSet& vlans, uint32_t ifIndex, bool tagged);
    Change removeFromVlans(const VlanSet& vlans, uint32_t ifIndex);
    Change createLag(uint32_t lag);
    Change deleteLag(uint32_t lag);
    Change addLagMember(uint32_t lag, uint32_t port);
    Change removeLagMember(uint32_t lag, uint32_t port);
    // A card comes up (its ports are created the first time) or goes down (its ports go
    // oper down and stay).
    Change cardUp(uint32_t slot);
    Change cardDown(uint32_t slot);

    // The peer pair: which interface is the inter-chassis link (ICL), and the peer-pair port
    // channel of each LAG. Each change is one interface-mode-change record, sent whether or not
    // the model changes (a manager started since learns it again), for any interface and id:
    // the manager judges them.
    Change setIcl(uint32_t ifIndex);
    Change clearIcl(uint32_t ifIndex);
    Change setLagZil(uint32_t lag, uint32_t zilId);
    Change clearLagZil(uint32_t lag);
    uint32_t icl() const { return icl_; }  // 0: none
    // LAG number -> peer-pair id.
    const std::map<uint32_t, uint32_t>& lagZil() const { return lagZil_; }

    bool operUp(uint32_t ifIndex) const;
    bool cardPresent(uint32_t slot) const { return slot < kSlots && (cardMask_ >> slot & 1) != 0; }
    // The ifIndex type of the ports of a slot's card.
    uint32_t cardPortType(uint32_t slot) const;
    uint32_t portsPerCard() const { return portsPerCard_; }
    // Ports and LAGs by ifIndex: the physical ports (ascending slot and port) come before
    // the LAGs.
    const std::map<uint32_t, Interface>& interfaces() const { return ifs_; }
    const Interface* find(uint32_t ifIndex) const;
    const VlanSet& vlans() const { return vlans_; }

    // The MAC address of an interface: made up from its ifIndex (locally administered
    // prefix 02:56:4f, then the type byte and two bytes naming slot and port, or the LAG or
    // VLAN number), so it stays the same across runs.
    static Mac macOf(uint32_t ifIndex);

private:
    using OperSnapshot = std::map<uint32_t, bool>;
    OperSnapshot operSnapshot() const;
    // Oper-state records for every interface whose state differs from `before`, physical
    // ports first; an interface new since `before` counts as having been down.
    void appendOperChanges(const OperSnapshot& before, std::vector<IfmRecord>* out) const;
    void addPorts(uint32_t slot, std::vector<IfmRecord>* out);
    // The port (physical or LAG) named by ifIndex that can carry VLANs; null with *err set
    // otherwise.
    Interface* vlanCarrier(uint32_t ifIndex, std::string* err);
    Interface* lagOf(uint32_t lag);
    static IfmRecord ifRecord(uint16_t type, uint32_t ifIndex);
    // "the chassis has Gi 0/0-7, Gi 1/0-7", for refusals that name a port that is not there.
    std::string describePortRange() const;

    uint32_t cardMask_;
    uint32_t tenGigMask_;
    uint32_t portsPerCard_;
    uint32_t cardsSeen_ = 0;  // slots whose ports exist
    std::map<uint32_t, Interface> ifs_;
    VlanSet vlans_{};
    uint32_t icl_ = 0;
    std::map<uint32_t, uint32_t> lagZil_;
};

// Operator's text ("vornctl sim show chassis ..."): the whole chassis, one port or LAG, one
// VLAN.
std::string describeChassis(const ChassisModel& m);
std::string describeChassisInterface(const ChassisModel& m, uint32_t ifIndex);
std::string describeChassisVlan(const ChassisModel& m, uint32_t vlan);
// The same facts as JSON (chassis_show.cc).
nlohmann::ordered_json chassisJson(const ChassisModel& m);
nlohmann::ordered_json chassisInterfaceJson(const ChassisModel& m, uint32_t ifIndex);
nlohmann::ordered_json chassisVlanJson(const ChassisModel& m, uint32_t vlan);

}  // namespace vorn::sim
