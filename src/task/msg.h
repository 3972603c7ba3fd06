// Access to a received message in the manager's receive buffer.
#pragma once

#include <algorithm>
#include <cstdint>

#include "platform/codec.h"
#include "platform/ipc.h"

// A bounds-checked view of a received message: its length is the validated length word
// of the header, never more than the receive buffer.
inline vorn::be::Reader vornMsgReader(const uint8_t* msg) {
    vorn::be::Reader hdr(msg, vorn::ipc::kHdrLen);
    size_t len =
        std::clamp<size_t>(hdr.u32(vorn::ipc::kOffMlen), vorn::ipc::kHdrLen, vorn::ipc::kMaxMsgLen);
    return vorn::be::Reader(msg, len);
}

inline uint32_t vornMsgType(const uint8_t* msg) {
    return vorn::be::Reader(msg, vorn::ipc::kHdrLen).u32(vorn::ipc::kOffMtype);
}
