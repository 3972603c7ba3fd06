// The inter-chassis link of the simulated chassis: the manager's peer-pair PDUs, each a
// datagram of the u32 ICL ifIndex and the PDU.
//
// - What the manager sends arrives at DIR/peer.tx, which the link binds: the last kKept PDUs
//   are kept for the operator, and when the chassis is paired with another (its run
//   directory PARTNER) each goes on, whole, to the partner's pair socket PARTNER/sim.pair.
// - What arrives at DIR/sim.pair (from the partner) is delivered to the manager's link socket
//   DIR/peer.icl as arriving on this chassis's own ICL (0 when it has none).
// - The operator can deliver a PDU of his own on any interface.
// A partner that is not there (yet) costs the PDUs sent meanwhile, counted as dropped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "sim/datagram.h"
#include "sim/loop.h"

namespace vorn::sim {

class PeerLink : public Source {
public:
    static constexpr size_t kKept = 64;
    static constexpr size_t kShownBytes = 32;
    static constexpr const char* kPairSocket = "sim.pair";

    // One PDU the manager sent.
    struct Pdu {
        uint64_t number = 0;  // 1 for the first since the start
        uint32_t ifIndex = 0;
        std::vector<uint8_t> bytes;  // the PDU, without the ifIndex
    };
    struct Counters {
        uint64_t fromManager = 0;   // datagrams at DIR/peer.tx
        uint64_t malformed = 0;     // too short for an ifIndex, or too long: dropped
        uint64_t forwarded = 0;     // passed on to the partner
        uint64_t notForwarded = 0;  // the partner was not there or full
        uint64_t fromPartner = 0;   // datagrams at DIR/sim.pair
        uint64_t delivered = 0;     // to the manager's DIR/peer.icl, from the partner
        uint64_t notDelivered = 0;  // nothing bound there, or full
    };

    // rundir: this chassis's; partner: the run directory of the chassis paired with it, or
    // empty. icl gives this chassis's ICL ifIndex.
    PeerLink(const std::string& rundir, std::string partner, std::function<uint32_t()> icl);
    ~PeerLink() override;
    PeerLink(const PeerLink&) = delete;
    PeerLink& operator=(const PeerLink&) = delete;

    bool open(std::string* err);
    void close();

    // Sends the datagram (ifIndex, pdu) to the manager's DIR/peer.icl. False, with why, when
    // it could not.
    bool deliver(uint32_t ifIndex, std::span<const uint8_t> pdu, std::string* why);

    const std::deque<Pdu>& kept() const { return kept_; }
    const Counters& counters() const { return counters_; }
    std::string describe() const;
    nlohmann::ordered_json toJson() const;
    std::string statusLine() const;

    void wait(Poller& poller) override;

private:
    // Reads what waits on a socket; onDatagram gets each one that is a PDU datagram.
    void drain(const BoundSocket& s, const std::function<void(std::span<uint8_t>)>& onDatagram);
    void fromManager(std::span<uint8_t> dgram);
    void fromPartner(std::span<uint8_t> dgram);
    std::string partnerState() const;

    std::string iclPath_;
    std::string partner_;
    std::string partnerPath_;
    std::function<uint32_t()> icl_;
    BoundSocket tx_;
    BoundSocket pair_;
    SendSocket send_;
    std::vector<uint8_t> buf_;
    std::deque<Pdu> kept_;
    Counters counters_;
};

}  // namespace vorn::sim
