// The manager's refusals of configuration requests as plain sentences.
#pragma once

#include <cstdint>
#include <string>

#include "cli/request.h"

namespace vorn::cli {

// The status codes are those of the shared layout (nm::kStatus*).
using Status = nm::Status;

// The sentence for a non-zero status, in terms of the request that was refused, without the
// "% Error: " in front: "VLAN 10 is already the control VLAN of another ring".
std::string statusSentence(uint32_t status, const nm::ConfigRequest& req);

}  // namespace vorn::cli
