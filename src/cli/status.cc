#include "cli/status.h"

#include "cli/syntax.h"
#include "cli/vlan_list.h"

namespace vorn::cli {

using namespace vorn::nm;
namespace {

std::string ring(const nm::ConfigRequest& req) {
    return "ring " + std::to_string(req.ringId);
}

std::string vlan(const nm::ConfigRequest& req) {
    return "VLAN " + std::to_string(req.controlVlan);
}

std::string modeName(uint8_t mode) {
    return mode == nm::kModeMaster ? "master" : mode == nm::kModeTransit ? "transit" : "unknown";
}

}  // namespace

std::string statusSentence(uint32_t status, const nm::ConfigRequest& req) {
    switch (status) {
        case kStatusNoRing:
            return ring(req) + " does not exist" +
                   (req.type == nm::Type::Protocol ? ""
                                                   : "; create it first with 'protocol vorn " +
                                                         std::to_string(req.ringId) + "'");
        case kStatusModeDiffers:
            return ring(req) + " is not in mode " + modeName(req.mode) +
                   "; its mode was left as it is";
        case kStatusPrimaryDiffers:
            return longIfName(req.primary) + " is not the primary interface of " + ring(req);
        case kStatusSecondaryDiffers:
            return longIfName(req.secondary) + " is not the secondary interface of " + ring(req);
        case kStatusCtrlVlanDiffers:
            return vlan(req) + " is not the control VLAN of " + ring(req);
        case kStatusCtrlVlanInUse:
            return vlan(req) + " is already the control VLAN of another ring";
        case kStatusVlanIsMember:
            return vlan(req) + " is a member VLAN of a ring and cannot be a control VLAN";
        case kStatusMemberIsCtrl: {
            std::string list = vlanListText(req.memberVlans);
            if (vlanCount(req.memberVlans) == 1)
                return "VLAN " + list +
                       " is the control VLAN of a ring and cannot be a member VLAN";
            return "VLANs " + list +
                   " include the control VLAN of a ring, which cannot be a member VLAN; no VLAN "
                   "was added";
        }
        case kStatusPrimaryRefused:
            return "L2PM refused to hand over the primary interface " + longIfName(req.primary);
        case kStatusSecondaryRefused:
            return "L2PM refused to hand over the secondary interface " + longIfName(req.secondary);
        case kStatusSameInterface:
            return "the primary and the secondary interface are the same (" +
                   longIfName(req.primary) + ")";
        case kStatusOwnershipFailed:
            return "the ring interfaces " + longIfName(req.primary) + " and " +
                   longIfName(req.secondary) + " could not be taken over from L2PM";
        case kStatusIfmRefused:
            return vlan(req) + " cannot be a control VLAN: the interface manager refused it";
        case kStatusSecondaryIsIcl:
            return "the secondary interface " + longIfName(req.secondary) +
                   " is the inter-chassis link of the peer pair and cannot carry a ring";
        default:
            return "the manager refused the '" + std::string(nm::typeName(req.type)) +
                   "' command of " + ring(req) + " (status " + std::to_string(status) + ")";
    }
}

}  // namespace vorn::cli
