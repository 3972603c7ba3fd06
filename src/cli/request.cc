#include "cli/request.h"

#include "cli/rings.h"

#include <algorithm>

#include "platform/codec.h"
#include "platform/ifindex.h"
#include "platform/ipc.h"

namespace vorn::cli::nm {

std::array<uint8_t, kLen> encode(const ConfigRequest& req, uint32_t xid, uint32_t srcQueueId) {
    std::array<uint8_t, kLen> msg = requestFrame(xid, srcQueueId);
    be::Writer w(msg.data(), msg.size());
    // Body.
    w.u32(kOffType, static_cast<uint32_t>(req.type));
    w.u16(kOffNoForm, req.noForm ? 1 : 0);
    w.u16(kOffRingId, req.ringId);
    w.u8(kOffMode, req.mode);
    w.u16(kOffHello, req.hello);
    w.u16(kOffDead, req.dead);
    w.u32(kOffPrimary, req.primary);
    w.u32(kOffSecondary, req.secondary);
    w.u32(kOffCtrlVlan,
          req.controlVlan == 0 ? 0 : ifmCreateIfIndex(ifm::kTypeVlan, 0, 0, req.controlVlan));
    w.bytes(kOffMemberVlans, req.memberVlans.data(), req.memberVlans.size());
    size_t n = std::min(req.description.size(), kMaxDescription);
    w.bytes(kOffDescription, req.description.data(), n);  // the NUL is already there
    return msg;
}

bool decodeReply(const uint8_t* msg, size_t len, uint32_t xid, Reply* out) {
    be::Reader rd(msg, len);
    if (len != kLen || rd.u32(ipc::kOffMtype) != kMtNm ||
        (rd.u32(ipc::kOffFlags) & ipc::kFlagReply) == 0 || rd.u32(ipc::kOffXid) != xid)
        return false;
    out->status = rd.u32(kOffReplyStatus);
    out->configuredRings = rd.u16(kOffConfiguredRings);
    out->activeRings = rd.u16(kOffActiveRings);
    return true;
}

const char* typeName(Type type) {
    switch (type) {
        case Type::Protocol:
            return "protocol vorn";
        case Type::Description:
            return "description";
        case Type::ControlVlan:
            return "interface";
        case Type::MemberVlan:
            return "member-vlan";
        case Type::Mode:
            return "mode";
        case Type::Enable:
            return "disable";
        case Type::DeadTimer:
            return "timer dead-interval";
        case Type::HelloTimer:
            return "timer hello-interval";
    }
    return "?";
}

}  // namespace vorn::cli::nm
