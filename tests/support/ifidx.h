// Interface indexes by kind, for building records and requests in tests.
#pragma once

#include <cstdint>

#include "platform/ifindex.h"

namespace vorn::test {

inline uint32_t gi(uint32_t slot, uint32_t port) {
    return ifmCreateIfIndex(ifm::kTypeGigabit, slot, port, 0);
}
inline uint32_t te(uint32_t slot, uint32_t port) {
    return ifmCreateIfIndex(ifm::kTypeTenGigabit, slot, port, 0);
}
inline uint32_t po(uint32_t lag) {
    return ifmCreateIfIndex(ifm::kTypeLag, 0, 0, lag);
}
inline uint32_t vl(uint32_t vlan) {
    return ifmCreateIfIndex(ifm::kTypeVlan, 0, 0, vlan);
}

}  // namespace vorn::test
