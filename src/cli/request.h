// The configuration request of the command line, as vornctl builds and reads it; its layout
// is the shared one of wire/cli.h.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "cli/vlan_list.h"
#include "wire/cli.h"

namespace vorn::cli::nm {

using namespace vorn::nm;  // the shared layout: offsets, types, modes, status codes

// Request types (offset 72).
enum class Type : uint32_t {
    Protocol = kTypeProto,
    Description = kTypeDesc,
    ControlVlan = kTypeCtrlVlan,
    MemberVlan = kTypeMemberVlan,
    Mode = kTypeMode,
    Enable = kTypeEnable,
    DeadTimer = kTypeDead,
    HelloTimer = kTypeHello,
};

// What one configuration command asks of the manager. Fields a type does not use stay 0.
struct ConfigRequest {
    Type type = Type::Protocol;
    bool noForm = false;
    uint16_t ringId = 0;
    uint8_t mode = 0;
    uint16_t hello = 0;
    uint16_t dead = 0;
    uint32_t primary = 0;
    uint32_t secondary = 0;
    uint16_t controlVlan = 0;  // the VLAN id; the request carries its ifIndex
    VlanBitmap memberVlans{};
    std::string description;  // at most kMaxDescription characters
};

// The request as it goes on the wire, from the client's request queue srcQueueId to 226.0.1,
// with exchange id xid.
std::array<uint8_t, kLen> encode(const ConfigRequest& req, uint32_t xid, uint32_t srcQueueId);

// The manager's answer to one request.
struct Reply {
    uint32_t status = 0;
    uint16_t configuredRings = 0;
    uint16_t activeRings = 0;
};

// Reads the answer to exchange xid from a message of len bytes. False when the message is not
// that answer: another type, no reply flag, another exchange, or not a whole request.
bool decodeReply(const uint8_t* msg, size_t len, uint32_t xid, Reply* out);

// "the command 'mode master'" style names of a request type, for messages.
const char* typeName(Type type);

}  // namespace vorn::cli::nm
