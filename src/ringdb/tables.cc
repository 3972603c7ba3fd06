// The direct-indexed record tables and the global VLAN bitmaps.

#include "ringdb/records.h"

std::array<VornRingEntry*, VORN_RING_TABLE_SIZE> gVornRing{};
std::array<VornVlanEntry*, VORN_VLAN_TABLE_SIZE> gVornVlan{};
std::array<VornPortEntry*, VORN_PORT_TABLE_SIZE> gVornPort{};
VornVlanBmap gVornCtrlVlanBmap{};
VornVlanBmap gVornMemVlanBmap{};
std::array<uint32_t, VORN_NUM_STG_INST> gVornStgInst{};
uint16_t vornActiveRings = 0;
const char* const gVornModeStrs[3] = {"mode not defined", "master", "transit"};
