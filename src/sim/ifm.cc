#include "sim/ifm.h"

#include <cstdio>

#include "cli/syntax.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {

constexpr int kBatch = 32;

std::string hex(uint32_t v) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08x", v);
    return text;
}

// "Gi 0/1", or "none" for 0.
std::string portName(uint32_t ifIndex) {
    return ifIndex == 0 ? "none" : cli::shortIfName(ifIndex);
}

std::string noticeText(const Ifm::Notice& n) {
    std::string s = n.action == 1   ? "configured: "
                    : n.action == 2 ? "removed: "
                                    : "action " + std::to_string(n.action) + ": ";
    s += "primary " + portName(n.primary) + ", secondary " + portName(n.secondary);
    if ((n.flags & VORN_IFM_NOTICE_SEC_RING_IF) != 0) s += ", secondary is a ring's secondary";
    if ((n.flags & VORN_IFM_NOTICE_ICL_PRI) != 0) s += ", primary is the inter-chassis link";
    if ((n.flags & ~(VORN_IFM_NOTICE_SEC_RING_IF | VORN_IFM_NOTICE_ICL_PRI)) != 0)
        s += ", flags " + hex(n.flags);
    return s;
}

}  // namespace

void Ifm::wait(Poller& poller) {
    poller.onReadable(endpoint_.requestFd(), [this] { serve(); });
}

void Ifm::serve() {
    for (int i = 0; i < kBatch; ++i) {
        int n = endpoint_.receive(buf_);
        if (n < 0) return;
        handle(buf_.data(), static_cast<size_t>(n));
    }
}

void Ifm::handle(uint8_t* msg, size_t len) {
    MsgHeader h = readHeader(msg, len);
    std::string from = queueName(h.srcQueue);
    if (h.mtype == MT_IFM_CTRL_VLAN_QUERY) {
        answerQuestion(msg, len, from);
    } else if (h.mtype == MT_IFM_RING_IF_NOTICE) {
        takeNotice(msg, len, from);
    } else {
        ++counters_.unexpected;
        say("ifm: message type %u from %s: not for IFM, dropped", h.mtype, from.c_str());
    }
}

void Ifm::answerQuestion(uint8_t* msg, size_t len, const std::string& from) {
    if (len < VORN_IFM_CTRL_VLAN_Q_LEN) {
        ++counters_.malformed;
        say("ifm: control-VLAN question of %zu bytes from %s: too short, dropped", len,
            from.c_str());
        return;
    }
    be::Reader rd(msg, len);
    uint32_t action = rd.u32(VORN_IFM_CTRL_VLAN_Q_ACTION_OFF);
    uint32_t vlan = rd.u32(VORN_IFM_CTRL_VLAN_Q_VLAN_OFF);
    uint32_t code = 0;
    auto refused = refused_.find(vlan);
    if (action == VORN_IFM_CTRL_VLAN_ACQUIRE && refused != refused_.end()) code = refused->second;
    be::Writer(msg, len).u32(VORN_IFM_CTRL_VLAN_Q_REPLY_OFF, code);
    if (!endpoint_.reply(msg, len)) {
        say("ifm: control-VLAN question from %s: the answer could not be sent", from.c_str());
        return;
    }
    ++counters_.questions;
    if (code != 0)
        ++counters_.refusals;
    else if (action == VORN_IFM_CTRL_VLAN_ACQUIRE)
        controlVlans_.insert(vlan);
    else if (action == VORN_IFM_CTRL_VLAN_RELEASE)
        controlVlans_.erase(vlan);
    std::string v = "VLAN " + std::to_string(vlan);
    std::string question = action == VORN_IFM_CTRL_VLAN_ACQUIRE
                               ? "may " + v + " become a control VLAN"
                           : action == VORN_IFM_CTRL_VLAN_RELEASE
                               ? v + " stops being a control VLAN"
                               : "unknown action " + std::to_string(action) + " about " + v;
    say("ifm: %s (from %s): answered %s%s", question.c_str(), from.c_str(), hex(code).c_str(),
        code != 0 ? " (refused, as told)" : "");
}

void Ifm::takeNotice(const uint8_t* msg, size_t len, const std::string& from) {
    if (len < VORN_IFM_NOTICE_LEN) {
        ++counters_.malformed;
        say("ifm: ring-interface notice of %zu bytes from %s: too short, dropped", len,
            from.c_str());
        return;
    }
    be::Reader rd(msg, len);
    Notice n{rd.u32(60), rd.u32(64), rd.u32(68), rd.u32(72)};
    notices_.push_back(n);
    if (notices_.size() > kKeptNotices) notices_.pop_front();
    ++counters_.notices;
    say("ifm: ring-interface notice from %s: %s", from.c_str(), noticeText(n).c_str());
}

std::string Ifm::statusLine() const {
    return std::string("ifm 138.0: ") + (present() ? "present" : "absent") +
           "; control-VLAN questions answered " + std::to_string(counters_.questions) + " (" +
           std::to_string(counters_.refusals) + " refused), ring-interface notices " +
           std::to_string(counters_.notices);
}

std::string Ifm::describe(uint32_t vlan) const {
    std::string s;
    if (vlan != 0) {
        auto r = refused_.find(vlan);
        s += "VLAN " + std::to_string(vlan) + ": ";
        s += controlVlans_.count(vlan) != 0 ? "a control VLAN" : "not a control VLAN";
        s += r == refused_.end() ? "; the question about it is answered 0\n"
                                 : "; the question about it is answered " + hex(r->second) + "\n";
        return s;
    }
    s += statusLine() + "\n";
    s += "control VLANs granted:";
    for (uint32_t v : controlVlans_) s += " " + std::to_string(v);
    s += controlVlans_.empty() ? " none\n" : "\n";
    s += "VLANs refused:";
    for (const auto& [v, code] : refused_) s += " " + std::to_string(v) + " (" + hex(code) + ")";
    s += refused_.empty() ? " none\n" : "\n";
    s += "ring-interface notices (last " + std::to_string(kKeptNotices) + ", newest last):";
    s += notices_.empty() ? " none\n" : "\n";
    for (const Notice& n : notices_) s += "  " + noticeText(n) + "\n";
    return s;
}

}  // namespace vorn::sim
