// The L2PM forwarding model as text for the operator ("vornctl sim show l2pm ...") and as
// JSON.
#pragma once

#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

#include "sim/l2pm_model.h"

namespace vorn::sim {

// Everything: owned and refused ports, each port's forwarding and blocking VLANs, the STG
// instances, the flushes and the message counts.
std::string describeL2pm(const ForwardingModel& m);
// One port: ownership, its VLANs by state, its instances and its flushes.
std::string describeL2pmPort(const ForwardingModel& m, uint32_t ifIndex);
// One VLAN: its instance, its state on every port that has one, and its flushes.
std::string describeL2pmVlan(const ForwardingModel& m, uint32_t vlan);
// One STG instance: its ports and its VLANs.
std::string describeL2pmInstance(const ForwardingModel& m, uint16_t instance);
// The same facts as JSON.
nlohmann::ordered_json l2pmJson(const ForwardingModel& m);
nlohmann::ordered_json l2pmPortJson(const ForwardingModel& m, uint32_t ifIndex);
nlohmann::ordered_json l2pmVlanJson(const ForwardingModel& m, uint32_t vlan);
nlohmann::ordered_json l2pmInstanceJson(const ForwardingModel& m, uint16_t instance);

}  // namespace vorn::sim
