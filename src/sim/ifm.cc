#include "sim/ifm.h"

#include <cstdio>

#include "cli/syntax.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {

constexpr int kBatch = 32;
// Control-VLAN question (72 bytes): 60 action, 64 VLAN id, 68 reply code.
constexpr size_t kQuestionLen = 72;
constexpr size_t kOffQuestionAction = 60;
constexpr size_t kOffQuestionVlan = 64;
// Ring-interface notice (76 bytes): 60 action, 64 primary, 68 secondary, 72 flags.
constexpr size_t kNoticeLen = 76;
constexpr uint32_t kFlagSecondary = 0x80000000;
constexpr uint32_t kFlagPrimaryIsIcl = 0x40000000;

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
    if ((n.flags & kFlagSecondary) != 0) s += ", secondary is a ring's secondary";
    if ((n.flags & kFlagPrimaryIsIcl) != 0) s += ", primary is the inter-chassis link";
    if ((n.flags & ~(kFlagSecondary | kFlagPrimaryIsIcl)) != 0) s += ", flags " + hex(n.flags);
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
    if (h.mtype == kMtCtrlVlanQuestion) {
        answerQuestion(msg, len, from);
    } else if (h.mtype == kMtRingIfNotice) {
        takeNotice(msg, len, from);
    } else {
        ++counters_.unexpected;
        say("ifm: message type %u from %s: not for IFM, dropped", h.mtype, from.c_str());
    }
}

void Ifm::answerQuestion(uint8_t* msg, size_t len, const std::string& from) {
    if (len < kQuestionLen) {
        ++counters_.malformed;
        say("ifm: control-VLAN question of %zu bytes from %s: too short, dropped", len,
            from.c_str());
        return;
    }
    be::Reader rd(msg, len);
    uint32_t action = rd.u32(kOffQuestionAction);
    uint32_t vlan = rd.u32(kOffQuestionVlan);
    uint32_t code = 0;
    auto refused = refused_.find(vlan);
    if (action == kBecomesControl && refused != refused_.end()) code = refused->second;
    be::Writer(msg, len).u32(kOffReplyCode, code);
    if (!endpoint_.reply(msg, len)) {
        say("ifm: control-VLAN question from %s: the answer could not be sent", from.c_str());
        return;
    }
    ++counters_.questions;
    if (code != 0)
        ++counters_.refusals;
    else if (action == kBecomesControl)
        controlVlans_.insert(vlan);
    else if (action == kStopsBeingControl)
        controlVlans_.erase(vlan);
    std::string v = "VLAN " + std::to_string(vlan);
    std::string question = action == kBecomesControl ? "may " + v + " become a control VLAN"
                           : action == kStopsBeingControl
                               ? v + " stops being a control VLAN"
                               : "unknown action " + std::to_string(action) + " about " + v;
    say("ifm: %s (from %s): answered %s%s", question.c_str(), from.c_str(), hex(code).c_str(),
        code != 0 ? " (refused, as told)" : "");
}

void Ifm::takeNotice(const uint8_t* msg, size_t len, const std::string& from) {
    if (len < kNoticeLen) {
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
