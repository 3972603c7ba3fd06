// The manager's refusals of configuration requests as plain sentences.
#pragma once

#include <cstdint>
#include <string>

#include "cli/request.h"

namespace vorn::cli {

// Status codes of the configuration requests.
enum Status : uint32_t {
    kStatusOk = 0,
    kStatusNoRing = 1,            // ring id out of range, or no such ring
    kStatusModeDiffers = 2,       // the mode to remove is not the ring's mode
    kStatusPrimaryDiffers = 3,    // removal names another primary interface
    kStatusSecondaryDiffers = 4,  // ... another secondary interface
    kStatusCtrlVlanDiffers = 5,   // ... another control VLAN
    kStatusCtrlVlanInUse = 6,     // the VLAN is another ring's control VLAN
    kStatusVlanIsMember = 7,      // the VLAN is a member VLAN of a ring
    kStatusMemberIsCtrl = 8,      // a member VLAN to add is a control VLAN
    kStatusPrimaryRefused = 9,    // L2PM refused the primary interface
    kStatusSecondaryRefused = 10,
    kStatusSameInterface = 11,    // primary and secondary are the same interface
    kStatusOwnershipFailed = 14,  // ownership could not be taken for another reason
    kStatusIfmRefused = 18,       // the interface manager refused the control VLAN
    kStatusSecondaryIsIcl = 20,   // the secondary is the peer pair's inter-chassis link
};

// The sentence for a non-zero status, in terms of the request that was refused, without the
// "% Error: " in front: "VLAN 10 is already the control VLAN of another ring".
std::string statusSentence(uint32_t status, const nm::ConfigRequest& req);

}  // namespace vorn::cli
