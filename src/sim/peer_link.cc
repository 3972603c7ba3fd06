#include "sim/peer_link.h"

#include <cstdio>

#include "cli/syntax.h"
#include "platform/codec.h"
#include "platform/ipc.h"
#include "sim/log.h"
#include "wire/peer.h"

namespace vorn::sim {

PeerLink::PeerLink(const std::string& rundir, std::string partner, std::function<uint32_t()> icl)
    : iclPath_(rundir + "/" + VORN_PEER_ICL_SOCKET),
      partner_(std::move(partner)),
      partnerPath_(partner_.empty() ? "" : partner_ + "/" + kPairSocket),
      icl_(std::move(icl)),
      tx_(rundir + "/" + VORN_PEER_TX_SOCKET),
      pair_(rundir + "/" + kPairSocket),
      buf_(VORN_PEER_MAX_DGRAM) {}

PeerLink::~PeerLink() {
    close();
}

bool PeerLink::open(std::string* err) {
    if (!tx_.open(err) || !pair_.open(err)) {
        close();
        return false;
    }
    if (!send_.open(err)) {
        close();
        return false;
    }
    return true;
}

void PeerLink::close() {
    tx_.close();
    pair_.close();
    send_.close();
}

void PeerLink::wait(Poller& poller) {
    poller.onReadable(tx_.fd(),
                      [this] { drain(tx_, [this](std::span<uint8_t> d) { fromManager(d); }); });
    poller.onReadable(pair_.fd(),
                      [this] { drain(pair_, [this](std::span<uint8_t> d) { fromPartner(d); }); });
}

void PeerLink::drain(const BoundSocket& s,
                     const std::function<void(std::span<uint8_t>)>& onDatagram) {
    s.drain(buf_, [&](size_t len) {
        if (len < VORN_PEER_DGRAM_PDU_OFF || len > buf_.size()) {
            ++counters_.malformed;
            say("icl: a datagram of %zu bytes at %s is no PDU datagram (4..%zu bytes): dropped",
                len, s.path().c_str(), buf_.size());
            return;
        }
        onDatagram(std::span<uint8_t>(buf_.data(), len));
    });
}

void PeerLink::fromManager(std::span<uint8_t> dgram) {
    Pdu pdu;
    pdu.number = ++counters_.fromManager;
    pdu.ifIndex = be::Reader(dgram.data(), dgram.size()).u32(VORN_PEER_DGRAM_IFINDEX_OFF);
    pdu.bytes.assign(dgram.begin() + VORN_PEER_DGRAM_PDU_OFF, dgram.end());
    say("icl: PDU %llu from the manager on %s, %zu bytes%s",
        static_cast<unsigned long long>(pdu.number), cli::shortIfName(pdu.ifIndex).c_str(),
        pdu.bytes.size(), partner_.empty() ? "" : ", for the partner");
    kept_.push_back(std::move(pdu));
    if (kept_.size() > kKept) kept_.pop_front();
    if (partner_.empty()) return;
    std::string why;
    if (send_.sendTo(partnerPath_, dgram, &why)) {
        ++counters_.forwarded;
    } else {
        ++counters_.notForwarded;
        say("icl: PDU %llu not passed on to the partner: %s",
            static_cast<unsigned long long>(counters_.fromManager), why.c_str());
    }
}

void PeerLink::fromPartner(std::span<uint8_t> dgram) {
    ++counters_.fromPartner;
    // It arrives on this chassis's own end of the link.
    const uint32_t icl = icl_();
    std::string why;
    if (deliver(icl, dgram.subspan(VORN_PEER_DGRAM_PDU_OFF), &why)) {
        ++counters_.delivered;
    } else {
        ++counters_.notDelivered;
        say("icl: a PDU from the partner was not delivered: %s", why.c_str());
    }
}

bool PeerLink::deliver(uint32_t ifIndex, std::span<const uint8_t> pdu, std::string* why) {
    if (pdu.size() > VORN_PEER_MAX_PDU) {
        *why = "a PDU of " + std::to_string(pdu.size()) + " bytes is longer than the " +
               std::to_string(VORN_PEER_MAX_PDU) + " a datagram holds";
        return false;
    }
    std::vector<uint8_t> dgram(VORN_PEER_DGRAM_PDU_OFF + pdu.size());
    be::Writer(dgram.data(), dgram.size()).u32(VORN_PEER_DGRAM_IFINDEX_OFF, ifIndex);
    std::copy(pdu.begin(), pdu.end(), dgram.begin() + VORN_PEER_DGRAM_PDU_OFF);
    return send_.sendTo(iclPath_, dgram, why);
}

std::string PeerLink::partnerState() const {
    if (partner_.empty()) return "not paired";
    return "paired with " + partner_ +
           (host::endpointAlive(partnerPath_)
                ? " (its vornsim is there)"
                : " (not there yet: nothing is bound at " + partnerPath_ + ")");
}

std::string PeerLink::statusLine() const {
    const Counters& c = counters_;
    return "icl: " + partnerState() + "; from the manager " + countOf(c.fromManager, "PDU") +
           ", forwarded " + std::to_string(c.forwarded) + ", not forwarded " +
           std::to_string(c.notForwarded) + "; from the partner " + countOf(c.fromPartner, "PDU") +
           ", delivered " + std::to_string(c.delivered) + ", not delivered " +
           std::to_string(c.notDelivered) + "; malformed " + std::to_string(c.malformed);
}

std::string PeerLink::describe() const {
    std::string s = statusLine() + "\n";
    s += "PDUs from the manager, the last " + std::to_string(kept_.size()) + " of " +
         std::to_string(counters_.fromManager) + ":\n";
    for (const Pdu& p : kept_) {
        const size_t shown = std::min(p.bytes.size(), kShownBytes);
        char head[96];
        std::snprintf(head, sizeof(head), "  #%-5llu %-9s length %-5zu type %-3s ",
                      static_cast<unsigned long long>(p.number),
                      cli::shortIfName(p.ifIndex).c_str(), p.bytes.size(),
                      p.bytes.empty() ? "-" : std::to_string(p.bytes[0]).c_str());
        s += head + hexBytes(std::span<const uint8_t>(p.bytes.data(), shown)) +
             (shown < p.bytes.size() ? " ..." : "") + "\n";
    }
    return s;
}

nlohmann::ordered_json PeerLink::toJson() const {
    using Json = nlohmann::ordered_json;
    Json pdus = Json::array();
    for (const Pdu& p : kept_) {
        const size_t shown = std::min(p.bytes.size(), kShownBytes);
        pdus.push_back(
            {{"number", p.number},
             {"interface", cli::longIfName(p.ifIndex)},
             {"length", p.bytes.size()},
             {"type", p.bytes.empty() ? Json(nullptr) : Json(p.bytes[0])},
             {"first_bytes", hexBytes(std::span<const uint8_t>(p.bytes.data(), shown))}});
    }
    const Counters& c = counters_;
    return {{"partner", partner_.empty() ? Json(nullptr) : Json(partner_)},
            {"partner_present", !partner_.empty() && host::endpointAlive(partnerPath_)},
            {"from_manager", c.fromManager},
            {"forwarded", c.forwarded},
            {"not_forwarded", c.notForwarded},
            {"from_partner", c.fromPartner},
            {"delivered", c.delivered},
            {"not_delivered", c.notDelivered},
            {"malformed", c.malformed},
            {"pdus", pdus}};
}

}  // namespace vorn::sim
