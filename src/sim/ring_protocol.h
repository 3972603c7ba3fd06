// The ring protocol the simulated agents run between chassis (docs/ring-protocol.md), as a
// state machine with no I/O and no clock of its own.
//
// A RingNode is one chassis' node of one ring, master or transit. Every input (start, a
// link change of a ring interface, a control frame received on one, the time reaching
// nextDeadlineMs()) returns the actions the node decides, in the order they must be taken:
// send a frame out of a ring interface, set a ring port to a port state (the agent report's
// codes, agt::kState*), flush the forwarding table of the ring's member VLANs. The caller
// turns them into cable datagrams and agent reports; the node never sends out of a port whose
// link is down.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "wire/agent.h"

namespace vorn::sim::ringproto {

// ---- Control frame on the simulated cable (all fields big-endian) ---------------------------
inline constexpr uint16_t kMagic = 0x5652;  // "VR"; probe frames carry another magic
inline constexpr uint8_t kVersion = 1;
inline constexpr size_t kOffMagic = 0;         // u16
inline constexpr size_t kOffVersion = 2;       // u8
inline constexpr size_t kOffType = 3;          // u8: FrameType
inline constexpr size_t kOffRingId = 4;        // u16
inline constexpr size_t kOffCtrlVlan = 6;      // u16
inline constexpr size_t kOffSender = 8;        // u32: the sending chassis' switch id
inline constexpr size_t kOffSeq = 12;          // u32: the sender's frame count
inline constexpr size_t kOffMasterState = 16;  // u8: NodeState of the master (health only)
inline constexpr size_t kOffReserved = 17;     // u8: 0
inline constexpr size_t kFrameLen = 18;
static_assert(kOffReserved + 1 == kFrameLen);

enum class FrameType : uint8_t {
    kHealth = 1,        // master -> around the ring, back to the master's secondary
    kLinkDown = 2,      // transit -> master: one of my ring links went down
    kRingComplete = 3,  // master -> all: secondary blocked; flush, restored ports may forward
    kFlush = 4,         // master -> all: ring failed; flush
};

enum class NodeState : uint8_t {
    kNone = 0,           // not started
    kInit = 1,           // master: started on a whole ring, secondary blocked, no health back yet
    kComplete = 2,       // master: its health frames come back; secondary blocked
    kFailed = 3,         // master: ring broken; secondary forwards
    kLinksUp = 4,        // transit: both links up, both ports forwarding
    kLinkDown = 5,       // transit: a ring link is down
    kPreForwarding = 6,  // transit: both links up, a restored port waits for the ring complete
};

struct Frame {
    FrameType type = FrameType::kHealth;
    uint16_t ringId = 0;
    uint16_t ctrlVlan = 0;
    uint32_t sender = 0;
    uint32_t seq = 0;
    NodeState masterState = NodeState::kNone;
    bool operator==(const Frame&) const = default;
};

// Writes the frame into out; returns kFrameLen, or 0 (nothing written) when out is shorter.
size_t encodeFrame(const Frame& f, std::span<uint8_t> out);
// Reads a frame; false for one shorter than kFrameLen, of another magic or version, of an
// unknown type or with an unknown master state. Bytes past kFrameLen are ignored.
bool decodeFrame(std::span<const uint8_t> in, Frame& f);

const char* frameTypeName(FrameType t);
const char* nodeStateName(NodeState s);

enum class Side : uint8_t { kPrimary = 0, kSecondary = 1 };
const char* sideName(Side s);

struct Action {
    enum Kind : uint8_t { kSend, kSetPort, kFlush };
    Kind kind = kFlush;
    Side side = Side::kPrimary;            // kSend, kSetPort
    uint32_t portState = agt::kStateNone;  // kSetPort
    Frame frame;                           // kSend
};
using Actions = std::vector<Action>;

struct Config {
    uint8_t mode = 0;  // agt::rcfg::kModeMaster or kModeTransit
    uint16_t ringId = 0;
    uint16_t ctrlVlan = 0;
    uint32_t switchId = 0;
    uint32_t helloMs = 0;
    uint32_t deadMs = 0;
    // The switch's count of the frames its nodes originated, which numbers them. A switch
    // bridging the ring's frames tells them apart by sender and number, so the count is the
    // switch's, shared by its nodes and kept across their restarts: a node counting afresh
    // would reuse numbers such a switch still remembers, and its frames would be dropped
    // there. Null: the node keeps its own count.
    uint32_t* frameCount = nullptr;
};

inline constexpr int64_t kNoDeadline = std::numeric_limits<int64_t>::max();

class RingNode {
public:
    // A restored port that has heard no ring complete forwards after this many dead-intervals.
    static constexpr int kPreForwardingDeads = 3;

    // Intervals of 0 are taken as 1 ms.
    explicit RingNode(const Config& c);

    // Starts the node on the links as they are; reports both ports.
    Actions start(bool priUp, bool secUp, int64_t nowMs);
    Actions onLinkChange(Side side, bool up, int64_t nowMs);
    Actions onFrame(Side side, const Frame& f, int64_t nowMs);
    // Acts on every deadline reached by nowMs.
    Actions onTimer(int64_t nowMs);
    // A master's secondary BLOCKING now holds in the forwarding plane. Until it does, the
    // master announces no blocking state: its HEALTH says FAILED and its RING_COMPLETE waits,
    // so that no transit node forwards on a restored port while the secondary still does.
    Actions onSecondaryBlocked(int64_t nowMs);
    // The master's secondary is set BLOCKING and that is not known to hold yet.
    bool awaitingBlock() const;
    int64_t nextDeadlineMs() const;

    NodeState state() const;
    uint32_t portState(Side s) const { return port(s).state; }
    bool linkUp(Side s) const { return port(s).up; }
    bool master() const { return cfg_.mode == agt::rcfg::kModeMaster; }

private:
    struct Port {
        bool up = false;
        uint32_t state = agt::kStateDisabled;
        int64_t preForwardingUntil = kNoDeadline;  // the fail-safe of a restored port
    };
    Port& port(Side s) { return ports_[static_cast<size_t>(s)]; }
    const Port& port(Side s) const { return ports_[static_cast<size_t>(s)]; }

    void setPort(Side s, uint32_t state, Actions& out);
    uint32_t restoredState(Side s) const;
    void liftPreForwarding(Actions& out);
    void send(Side s, const Frame& f, Actions& out) const;
    Frame originate(FrameType t);
    NodeState announcedState() const;
    void flush(Actions& out) const { out.push_back({Action::kFlush, Side::kPrimary, 0, {}}); }
    void sendHealth(Actions& out);
    void ringFailed(Actions& out);
    void ringComplete(Actions& out);
    void masterFrame(Side side, const Frame& f, Actions& out);
    void transitFrame(Side side, const Frame& f, Actions& out);

    Config cfg_;
    Port ports_[2];
    bool started_ = false;
    NodeState masterState_ = NodeState::kNone;
    int64_t now_ = 0;
    int64_t nextHello_ = kNoDeadline;
    int64_t deadAt_ = kNoDeadline;  // INIT and COMPLETE: no health back by then, the ring failed
    bool blockHolds_ = false;       // the secondary's BLOCKING holds in the forwarding plane
    bool completePending_ = false;  // a RING_COMPLETE waits for it
    uint32_t ownFrameCount_ = 0;    // without a switch's count
};

}  // namespace vorn::sim::ringproto
