#include "sim/cables.h"

#include <algorithm>
#include <cstdio>

#include "cli/syntax.h"
#include "platform/codec.h"
#include "platform/ipc.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {

const char* linkWord(uint8_t state) {
    return state == Cables::kLinkCut        ? "cut"
           : state == Cables::kLinkRestored ? "restored"
                                            : "it is there";
}

std::string farEnd(const Cables::Cable& c) {
    return c.spec.peerDir + " " + cli::shortIfName(c.spec.peerIfIndex);
}

}  // namespace

Cables::Cables(const std::string& rundir, const std::vector<CableSpec>& specs)
    : sock_(rundir + "/" + kSocket), buf_(kHeaderLen + kMaxFrame) {
    for (const CableSpec& s : specs) cables_.push_back({s, s.peerDir + "/" + kSocket});
}

Cables::~Cables() {
    close();
}

bool Cables::open(std::string* err) {
    if (!sock_.open(err) || !send_.open(err)) {
        close();
        return false;
    }
    const uint8_t hello = kLinkHello;
    for (const Cable& c : cables_) {
        std::string why;
        if (!sendOn(c, kKindLink, {&hello, 1}, &why))
            say("cable: %s to %s: the far end is not there yet (%s)",
                cli::shortIfName(c.spec.ifIndex).c_str(), farEnd(c).c_str(), why.c_str());
    }
    return true;
}

void Cables::close() {
    sock_.close();
    send_.close();
}

void Cables::wait(Poller& poller) {
    poller.onReadable(sock_.fd(),
                      [this] { sock_.drain(buf_, [this](size_t n) { fromFarEnd(n); }); });
}

Cables::Cable* Cables::cableOf(uint32_t ifIndex) {
    auto it = std::find_if(cables_.begin(), cables_.end(),
                           [ifIndex](const Cable& c) { return c.spec.ifIndex == ifIndex; });
    return it == cables_.end() ? nullptr : &*it;
}

const Cables::Cable* Cables::find(uint32_t ifIndex) const {
    for (const Cable& c : cables_)
        if (c.spec.ifIndex == ifIndex) return &c;
    return nullptr;
}

bool Cables::sendOn(const Cable& c, uint8_t kind, std::span<const uint8_t> body, std::string* why) {
    std::vector<uint8_t> dgram(kHeaderLen + body.size());
    be::Writer w(dgram.data(), dgram.size());
    w.u16(0, kMagic);
    w.u8(2, kVersion);
    w.u8(3, kind);
    w.u32(4, c.spec.peerIfIndex);
    w.u32(8, c.spec.ifIndex);
    std::copy(body.begin(), body.end(), dgram.begin() + kHeaderLen);
    return send_.sendTo(c.farSocket, dgram, why);
}

bool Cables::send(uint32_t ifIndex, std::span<const uint8_t> frame) {
    Cable* c = cableOf(ifIndex);
    if (c == nullptr) return false;
    std::string why = c->cut ? "the cable is cut" : "";
    if (why.empty() && frame.size() > kMaxFrame)
        why = "a frame of " + std::to_string(frame.size()) + " bytes is longer than " +
              std::to_string(kMaxFrame);
    if (why.empty() && sendOn(*c, kKindFrame, frame, &why)) {
        ++c->sent;
        return true;
    }
    ++c->dropped;
    // A cut cable drops frames as a matter of course: counted, not logged.
    if (!c->cut)
        say("cable: a frame on %s dropped: %s", cli::shortIfName(ifIndex).c_str(), why.c_str());
    return false;
}

bool Cables::cut(uint32_t ifIndex, std::string* text) {
    Cable* c = cableOf(ifIndex);
    if (c == nullptr) {
        *text = cli::shortIfName(ifIndex) + " has no cable (vornsim --link gives one)";
        return false;
    }
    return setCut(*c, true, true, text);
}

bool Cables::restore(uint32_t ifIndex, std::string* text) {
    Cable* c = cableOf(ifIndex);
    if (c == nullptr) {
        *text = cli::shortIfName(ifIndex) + " has no cable (vornsim --link gives one)";
        return false;
    }
    return setCut(*c, false, true, text);
}

bool Cables::setCut(Cable& c, bool cut, bool tellFarEnd, std::string* text) {
    const std::string name = "the cable of " + cli::shortIfName(c.spec.ifIndex);
    if (c.cut == cut) {
        *text = name + " is " + (cut ? "cut already" : "whole");
    } else {
        c.cut = cut;
        *text = name + (cut ? " is cut" : " is restored");
        if (onLink_) *text += "; " + onLink_(c.spec.ifIndex, !cut);
    }
    if (!tellFarEnd) return true;
    // The far end hears of it even when nothing changed here, so that both ends agree again.
    const uint8_t state = cut ? kLinkCut : kLinkRestored;
    std::string why;
    *text += sendOn(c, kKindLink, {&state, 1}, &why)
                 ? "; the far end " + farEnd(c) + " is told"
                 : "; the far end " + farEnd(c) + " is not told: " + why;
    return true;
}

void Cables::dropMalformed(size_t len, const std::string& why) {
    ++malformed_;
    say("cable: a datagram of %zu bytes at %s dropped: %s", len, sock_.path().c_str(), why.c_str());
}

void Cables::fromFarEnd(size_t len) {
    if (len < kHeaderLen || len > buf_.size()) return dropMalformed(len, "no cable datagram");
    const be::Reader r(buf_.data(), len);
    const uint8_t kind = r.u8(3);
    if (r.u16(0) != kMagic || r.u8(2) != kVersion)
        return dropMalformed(len, "another magic or version");
    if (kind != kKindFrame && (kind != kKindLink || len != kHeaderLen + 1 || r.u8(12) > kLinkHello))
        return dropMalformed(len, "an unknown kind or link state");
    const uint32_t to = r.u32(4), from = r.u32(8);
    Cable* c = cableOf(to);
    if (c == nullptr || c->spec.peerIfIndex != from)
        return dropMalformed(
            len, "no cable joins " + cli::shortIfName(to) + " to a far " + cli::shortIfName(from));
    const std::span<const uint8_t> body(buf_.data() + kHeaderLen, len - kHeaderLen);
    if (kind == kKindLink) {
        const uint8_t state = body[0];
        say("cable: the far end of %s says %s", cli::shortIfName(to).c_str(), linkWord(state));
        std::string text;
        if (state == kLinkHello) {
            // A chassis that (re)starts holds its cables whole: one we hold cut, it learns.
            if (c->cut) setCut(*c, true, true, &text);
        } else {
            setCut(*c, state == kLinkCut, false, &text);
        }
        if (!text.empty()) say("cable: %s", text.c_str());
        return;
    }
    if (c->cut) {
        ++c->dropped;
        return;
    }
    ++c->received;
    kept_.push_back({to, std::vector<uint8_t>(body.begin(), body.end())});
    if (kept_.size() > kKept) kept_.pop_front();
    if (onFrame_) onFrame_(to, body);
}

std::string Cables::statusLine() const {
    uint64_t sent = 0, received = 0, dropped = 0;
    size_t cut = 0;
    for (const Cable& c : cables_) {
        sent += c.sent;
        received += c.received;
        dropped += c.dropped;
        cut += c.cut ? 1 : 0;
    }
    return "cables: " + countOf(cables_.size(), "cable") + " (" + std::to_string(cut) +
           " cut); frames sent " + std::to_string(sent) + ", received " + std::to_string(received) +
           ", dropped " + std::to_string(dropped) + "; malformed " + std::to_string(malformed_);
}

std::string Cables::describe() const {
    std::string s = statusLine() + "\n";
    char line[512];
    for (const Cable& c : cables_) {
        std::snprintf(
            line, sizeof(line), "  %-9s to %-30s %-5s sent %llu received %llu dropped %llu%s\n",
            cli::shortIfName(c.spec.ifIndex).c_str(), farEnd(c).c_str(), c.cut ? "cut" : "whole",
            static_cast<unsigned long long>(c.sent), static_cast<unsigned long long>(c.received),
            static_cast<unsigned long long>(c.dropped),
            host::endpointAlive(c.farSocket) ? "" : " (the far end is not there)");
        s += line;
    }
    if (kept_.empty()) return s;
    s += "frames received, the last " + std::to_string(kept_.size()) + ":\n";
    for (const Received& f : kept_) {
        const size_t shown = std::min(f.frame.size(), kShownBytes);
        std::snprintf(line, sizeof(line), "  %-9s length %-5zu ",
                      cli::shortIfName(f.ifIndex).c_str(), f.frame.size());
        s += line + hexBytes({f.frame.data(), shown}) + (shown < f.frame.size() ? " ..." : "") +
             "\n";
    }
    return s;
}

nlohmann::ordered_json Cables::toJson() const {
    using Json = nlohmann::ordered_json;
    Json cables = Json::array(), frames = Json::array();
    for (const Cable& c : cables_)
        cables.push_back({{"interface", cli::longIfName(c.spec.ifIndex)},
                          {"far_dir", c.spec.peerDir},
                          {"far_interface", cli::longIfName(c.spec.peerIfIndex)},
                          {"far_present", host::endpointAlive(c.farSocket)},
                          {"cut", c.cut},
                          {"sent", c.sent},
                          {"received", c.received},
                          {"dropped", c.dropped}});
    for (const Received& f : kept_) {
        const size_t shown = std::min(f.frame.size(), kShownBytes);
        frames.push_back({{"interface", cli::longIfName(f.ifIndex)},
                          {"length", f.frame.size()},
                          {"first_bytes", hexBytes({f.frame.data(), shown})}});
    }
    return {{"cables", cables}, {"malformed", malformed_}, {"frames", frames}};
}

}  // namespace vorn::sim
