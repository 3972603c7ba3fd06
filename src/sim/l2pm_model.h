// What the simulated L2PM was told by the manager, kept as the forwarding state a switch
// would program: for each port the VLANs that forward and those that block (port-state
// messages, 18407), the STG instances with their ports (instance port ownership, 18406) and
// VLANs (VLAN-STG, 18476), the address flushes asked for (18412), and the ports the manager
// owns (port ownership, 18403).
//
// Messages are read field by field with bounds checks: a record count that claims more than
// the message holds is cut at the message's end, and records that make no sense (an ifIndex
// that is no port, a VLAN outside 1..4095) are skipped and counted.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "wire/l2pm.h"

namespace vorn::sim {

class ForwardingModel {
public:
    using VlanBitmap = std::array<uint8_t, 512>;
    static constexpr size_t kRecentFlushes = 16;

    // The state of one port as L2PM programs it.
    struct PortState {
        VlanBitmap known{};       // VLANs whose state the manager has set
        VlanBitmap forwarding{};  // ... of which these forward; the others block
    };
    struct Flush {
        uint32_t ifIndex = 0;
        uint16_t vlan = 0;
    };
    struct Counters {
        uint64_t portStateMsgs = 0;
        uint64_t portStateRecords = 0;
        uint64_t flushMsgs = 0;
        uint64_t flushRecords = 0;
        uint64_t instanceMsgs = 0;
        uint64_t instanceRecords = 0;
        uint64_t vlanStgMsgs = 0;
        uint64_t ownershipRequests = 0;
        uint64_t badRecords = 0;  // records skipped, or cut off at the message's end
        uint64_t malformed = 0;   // messages too short to hold their fixed part
    };

    // Applies one message of the manager (whole, headers included) of a type above. Returns
    // one line for the log: what was applied, and what was skipped and why.
    std::string apply(uint32_t mtype, const uint8_t* msg, size_t len);

    // Answers a port-ownership request: takes (VORN_PORT_OWN_TAKE) or gives back
    // (VORN_PORT_OWN_RELEASE) the ports. Returns the ports that were not granted: those L2PM was
    // told to refuse and those that are not ports or port-channels. Nothing is refused on
    // relinquishing; an unknown action grants nothing.
    std::vector<uint32_t> ownership(uint32_t action, const std::vector<uint32_t>& ports);
    // Makes L2PM refuse (or grant again) the ownership of a port.
    void setRefused(uint32_t ifIndex, bool refused);

    const std::map<uint32_t, PortState>& ports() const { return ports_; }
    const std::set<uint32_t>& owned() const { return owned_; }
    const std::set<uint32_t>& refused() const { return refused_; }
    // STG instance -> its ports.
    const std::map<uint16_t, std::set<uint32_t>>& instancePorts() const { return instancePorts_; }
    // The STG instance a VLAN is mapped to; 0 when none.
    uint16_t instanceOfVlan(uint32_t vlan) const {
        return vlan < vlanInstance_.size() ? vlanInstance_[vlan] : 0;
    }
    // The VLANs mapped to an instance.
    VlanBitmap vlansOfInstance(uint16_t instance) const;
    // (port, VLAN) -> how many flushes were asked for.
    const std::map<std::pair<uint32_t, uint16_t>, uint64_t>& flushes() const { return flushes_; }
    const std::deque<Flush>& recentFlushes() const { return recent_; }
    const Counters& counters() const { return counters_; }

private:
    std::string applyPortState(const uint8_t* msg, size_t len);
    std::string applyFlush(const uint8_t* msg, size_t len);
    std::string applyInstanceOwnership(const uint8_t* msg, size_t len);
    std::string applyVlanStg(const uint8_t* msg, size_t len);

    std::map<uint32_t, PortState> ports_;
    std::set<uint32_t> owned_;
    std::set<uint32_t> refused_;
    std::map<uint16_t, std::set<uint32_t>> instancePorts_;
    std::array<uint16_t, limits::kMaxVlan + 1> vlanInstance_{};
    std::map<std::pair<uint32_t, uint16_t>, uint64_t> flushes_;
    std::deque<Flush> recent_;
    Counters counters_;
};

// True for the ifIndex of a GigabitEthernet or TenGigabitEthernet port (slot 0..11, port
// 0..63) or of a port-channel 1..128.
bool isPortOrLag(uint32_t ifIndex);

}  // namespace vorn::sim
