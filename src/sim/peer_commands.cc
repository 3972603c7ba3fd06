// The peer-pair commands: the peer-status event, the interface-mode changes that name the
// inter-chassis link and the peer-pair port channels, and the PDUs on the link.

#include <array>
#include <cctype>

#include "platform/number.h"
#include "sim/args.h"
#include "sim/chassis_sim.h"
#include "sim/log.h"
#include "wire/peer.h"

namespace vorn::sim {
namespace {

constexpr uint32_t kMaxZilIdSent = 0xFFFF;

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    const int lower = std::tolower(static_cast<unsigned char>(c));
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// The bytes of words[at..]: each word one byte of one or two hex digits, or a run of pairs
// ("05", "5", "0500000400320000").
bool hexBytes(const CommandTable::Args& words, size_t at, std::vector<uint8_t>* out,
              std::string* err) {
    if (at >= words.size()) {
        *err = "no PDU bytes given (hex bytes, e.g. 05 00 00 04)";
        return false;
    }
    for (size_t i = at; i < words.size(); ++i) {
        std::string w = words[i];
        if (w.size() > 2 && w[0] == '0' && (w[1] == 'x' || w[1] == 'X')) w = w.substr(2);
        bool ok = !w.empty() && (w.size() <= 2 || w.size() % 2 == 0);
        if (w.size() == 1) w = "0" + w;
        for (size_t d = 0; ok && d < w.size(); d += 2) {
            const int hi = hexDigit(w[d]);
            const int lo = hexDigit(w[d + 1]);
            ok = hi >= 0 && lo >= 0;
            if (ok) out->push_back(static_cast<uint8_t>(hi << 4 | lo));
        }
        if (!ok) {
            *err = "'" + words[i] + "' is not a hex byte (or a run of hex byte pairs)";
            return false;
        }
        if (out->size() > VORN_PEER_MAX_PDU) {
            *err = "the PDU is longer than the " + std::to_string(VORN_PEER_MAX_PDU) +
                   " bytes a datagram holds";
            return false;
        }
    }
    return true;
}

}  // namespace

CommandResult ChassisSim::lagZil(uint32_t lag, const CommandTable::Args& args) {
    if (args.size() != 3) return refused("usage: lag NUMBER zil ID|none");
    if (args[2] == "none") return publish(model_.clearLagZil(lag));
    uint32_t zilId = 0;
    std::string err;
    if (!number::parse(args[2], 0, kMaxZilIdSent, "peer-pair id", &zilId, &err))
        return refused(err);
    return publish(model_.setLagZil(lag, zilId));
}

void ChassisSim::registerPeerPairCommands() {
    for (bool up : {true, false}) {
        commands_.add(
            {up ? "peer up" : "peer down", up ? "[ROLE]" : "",
             up ? "the peer chassis comes up with ROLE (default 1): MLAGMGR_PEER_STATUS_NOTIFY, "
                  "status 1"
                : "the peer chassis goes down: MLAGMGR_PEER_STATUS_NOTIFY, status 2",
             0, up ? 1u : 0u, [this, up](const CommandTable::Args& args) {
                 uint32_t role = up ? VORN_PEER_DEFAULT_ROLE : 0;
                 std::string err;
                 if (!args.empty() && !number::parse(args[0], 0, 0xFFFFFFFF, "role", &role, &err))
                     return refused(err);
                 if (!evh_.present()) return refused(evhAbsentText());
                 const std::array<uint32_t, 2> data{
                     up ? VORN_PEER_STATUS_UP : VORN_PEER_STATUS_DOWN, role};
                 const int reached = evh_.sendEvent(MLAGMGR_PEER_STATUS_NOTIFY, 0, data);
                 std::string what = up ? "peer up, role " + std::to_string(role) : "peer down";
                 say("evh: peer-status event (%s)%s", what.c_str(), reachedText(reached).c_str());
                 return done(eventName(MLAGMGR_PEER_STATUS_NOTIFY) + " (" + what + ")" +
                             reachedText(reached));
             }});
    }
    commands_.add({"icl", "INTERFACE [none]",
                   "INTERFACE becomes the inter-chassis link (a port-channel; other interfaces "
                   "are sent as given), or with none stops being it",
                   1, 3, [this](const CommandTable::Args& args) {
                       uint32_t ifIndex = 0;
                       size_t next = 0;
                       std::string err;
                       if (!interfaceAt(args, 0, &ifIndex, &next, &err)) return refused(err);
                       if (next == args.size()) return publish(model_.setIcl(ifIndex));
                       if (next + 1 == args.size() && args[next] == "none")
                           return publish(model_.clearIcl(ifIndex));
                       return refused("usage: icl INTERFACE [none]");
                   }});
    commands_.add({"icl pdu", "INTERFACE BYTES...",
                   "deliver one PDU (hex bytes) to the manager's DIR/peer.icl as arriving on "
                   "INTERFACE",
                   2, 2 + VORN_PEER_MAX_PDU, [this](const CommandTable::Args& args) {
                       uint32_t ifIndex = 0;
                       size_t next = 0;
                       std::vector<uint8_t> pdu;
                       std::string err;
                       if (!interfaceAt(args, 0, &ifIndex, &next, &err) ||
                           !hexBytes(args, next, &pdu, &err))
                           return refused(err);
                       std::string what = "PDU of " + std::to_string(pdu.size()) + " bytes on " +
                                          cli::shortIfName(ifIndex);
                       if (!peerLink_.deliver(ifIndex, pdu, &err))
                           return refused(what + " not delivered: " + err);
                       say("icl: %s delivered to the manager", what.c_str());
                       return done(what + " delivered to the manager's " + opts_.rundir + "/" +
                                   VORN_PEER_ICL_SOCKET);
                   }});
    auto show = [this](const CommandTable::Args&) {
        return shown(peerLink_.describe(), peerLink_.toJson());
    };
    commands_.add({"icl show", "", "the PDUs the manager sent on the link, and the pairing", 0, 0,
                   nullptr, show});
    commands_.add({"show icl", "", "the same as icl show", 0, 0, nullptr, show});
}

}  // namespace vorn::sim
