// Common set-up of the fuzz targets: a private run directory, the manager's pools and
// tables, and a message buffer built from the fuzzer's input.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vorn::fuzz {

// Prepares the manager's state once per process (run directory, pools, tables).
void initManager();
// Copies the input into the 8192-byte receive buffer and makes its header one the host
// library would have passed on: magic, length word equal to the datagram's length, and the
// given message type. Returns false for an input shorter than the header.
bool makeMessage(const uint8_t* data, size_t size, uint32_t mtype, std::array<uint8_t, 8192>* msg);

}  // namespace vorn::fuzz
