// L2PM's answer to the manager's port-ownership request (18403, 588 bytes), given in place:
// the request comes back with the reply flag set and, in its port list, the ports that were
// not granted.

#include "cli/syntax.h"
#include "sim/l2pm.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {
static_assert(VORN_PORT_OWN_LIST_OFF + ifm::kCompressedListLen == VORN_PORT_OWN_LEN);

std::string names(const std::vector<uint32_t>& ports) {
    std::string s;
    for (uint32_t p : ports) s += (s.empty() ? "" : ", ") + cli::shortIfName(p);
    return s.empty() ? "none" : s;
}

}  // namespace

void L2pm::handleOwnership(uint8_t* msg, size_t len, uint32_t source) {
    std::string from = queueName(source);
    if (len < VORN_PORT_OWN_LEN) {
        ++counters_.malformed;
        say("l2pm: port-ownership request of %zu bytes from %s (expected %zu): dropped", len,
            from.c_str(), size_t{VORN_PORT_OWN_LEN});
        return;
    }
    be::Reader rd(msg, len);
    uint32_t count = rd.u32(VORN_PORT_OWN_LIST_OFF);
    if (count > ifm::kCompressedListMax) {
        ++counters_.malformed;
        say("l2pm: port-ownership request from %s lists %u ports (at most %u): dropped",
            from.c_str(), count, ifm::kCompressedListMax);
        return;
    }
    std::vector<uint32_t> ports;
    for (uint32_t i = 0; i < count; ++i)
        ports.push_back(rd.u32(VORN_PORT_OWN_LIST_OFF + 4 + 4 * i));
    uint32_t action = rd.u32(VORN_PORT_OWN_ACTION_OFF);
    std::vector<uint32_t> notGranted = model_.ownership(action, ports);

    be::Writer w(msg, len);
    w.zero(VORN_PORT_OWN_LIST_OFF, ifm::kCompressedListLen);
    w.u32(VORN_PORT_OWN_LIST_OFF, static_cast<uint32_t>(notGranted.size()));
    for (size_t i = 0; i < notGranted.size(); ++i)
        w.u32(VORN_PORT_OWN_LIST_OFF + 4 + 4 * i, notGranted[i]);
    if (!endpoint_.reply(msg, len)) {
        say("l2pm: port ownership from %s: the answer could not be sent", from.c_str());
        return;
    }
    const char* what = action == VORN_PORT_OWN_TAKE      ? "take"
                       : action == VORN_PORT_OWN_RELEASE ? "give back"
                                                         : "unknown action for";
    say("l2pm: port ownership from %s: %s %s; not granted: %s", from.c_str(), what,
        names(ports).c_str(), names(notGranted).c_str());
}

}  // namespace vorn::sim
