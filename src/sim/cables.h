// The cables of the simulated chassis: each joins one of its physical ports to a port of
// another chassis (or of this one), named by that chassis's run directory.
//
// Every chassis binds DIR/cable.sock. A frame sent on a cabled port crosses as one datagram
// to the far end's PEER-DIR/cable.sock; so does a change of the cable's state. A datagram is
// a header of 12 bytes, all fields big-endian, then its body:
//
//   0  u16  magic 0x5643 ("VC")
//   2  u8   version 1
//   3  u8   kind: 1 a frame (the body is the frame), 2 the cable's state (a body of one byte:
//           0 cut, 1 restored, 2 this end is there, sent when a chassis starts)
//   4  u32  the receiving port's ifIndex, as the receiving chassis names it
//   8  u32  the sending port's ifIndex
//
// A datagram for a port that is not cabled to the sending port, of another magic, version or
// kind, or of a wrong length is dropped and counted as malformed.
//
// A cable is whole or cut, and both ends agree: a cut at either end takes the link of both
// ports down, a restore at either end brings both up. A chassis that starts sends "this end is
// there" on every cable; the far end answers one it holds cut with "cut", so that a restarted
// chassis learns of it. Frames sent on a cut cable, to a far end that is not there, or
// arriving on a cut cable are dropped and counted.
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
#include "sim/options.h"

namespace vorn::sim {

class Cables : public Source {
public:
    static constexpr const char* kSocket = "cable.sock";
    static constexpr uint16_t kMagic = 0x5643;
    static constexpr uint8_t kVersion = 1;
    static constexpr uint8_t kKindFrame = 1;
    static constexpr uint8_t kKindLink = 2;
    static constexpr uint8_t kLinkCut = 0;
    static constexpr uint8_t kLinkRestored = 1;
    static constexpr uint8_t kLinkHello = 2;
    static constexpr size_t kHeaderLen = 12;
    static constexpr size_t kMaxFrame = 9216;  // a jumbo frame
    static constexpr size_t kKept = 8;         // received frames kept for the operator
    static constexpr size_t kShownBytes = 32;

    // A port's link goes up or down because of its cable; returns what the chassis made of it.
    using LinkHandler = std::function<std::string(uint32_t ifIndex, bool up)>;
    using FrameHandler = std::function<void(uint32_t ifIndex, std::span<const uint8_t> frame)>;

    struct Cable {
        CableSpec spec;
        std::string farSocket;  // PEER-DIR/cable.sock
        bool cut = false;
        uint64_t sent = 0, received = 0, dropped = 0;
    };
    struct Received {
        uint32_t ifIndex = 0;
        std::vector<uint8_t> frame;
    };

    Cables(const std::string& rundir, const std::vector<CableSpec>& specs);
    ~Cables() override;
    Cables(const Cables&) = delete;
    Cables& operator=(const Cables&) = delete;

    // Binds DIR/cable.sock and tells every far end this one is there.
    bool open(std::string* err);
    void close();

    void setLinkHandler(LinkHandler h) { onLink_ = std::move(h); }
    void setFrameHandler(FrameHandler h) { onFrame_ = std::move(h); }

    // Sends a frame out of a cabled port; false when it is dropped (counted on the cable), or
    // the port has no cable.
    bool send(uint32_t ifIndex, std::span<const uint8_t> frame);
    // Cuts or restores the cable of a port: both ends' links follow. False, with *text saying
    // why, when the port has no cable; otherwise *text says what happened.
    bool cut(uint32_t ifIndex, std::string* text);
    bool restore(uint32_t ifIndex, std::string* text);

    const Cable* find(uint32_t ifIndex) const;
    const std::vector<Cable>& cables() const { return cables_; }
    const std::deque<Received>& kept() const { return kept_; }
    uint64_t malformed() const { return malformed_; }
    std::string describe() const;
    nlohmann::ordered_json toJson() const;
    std::string statusLine() const;

    void wait(Poller& poller) override;

private:
    Cable* cableOf(uint32_t ifIndex);
    bool setCut(Cable& c, bool cut, bool tellFarEnd, std::string* text);
    // Sends one datagram on a cable; false with why.
    bool sendOn(const Cable& c, uint8_t kind, std::span<const uint8_t> body, std::string* why);
    void fromFarEnd(size_t len);
    void dropMalformed(size_t len, const std::string& why);

    std::vector<Cable> cables_;
    BoundSocket sock_;
    SendSocket send_;
    std::vector<uint8_t> buf_;
    std::deque<Received> kept_;
    uint64_t malformed_ = 0;
    LinkHandler onLink_;
    FrameHandler onFrame_;
};

}  // namespace vorn::sim
