// Fixture of the line-card agent tests: rings, ports and test agents set up as the
// configuration, IFM and registration would leave them.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "support/mgr_fixture.h"

namespace vorn::test {

inline uint16_t giPortNum(uint32_t slot, uint32_t port) {
    return static_cast<uint16_t>(slot * 64 + port + 129);
}

class AgentTest : public MgrTest {
protected:
    void TearDown() override {
        vornSetPortStateRelayForTest(nullptr);
        MgrTest::TearDown();
    }

    // A test agent on `slot`, registered as far as this subsystem cares: a queue to it,
    // the slot active and its initial download done (or not).
    QelKey addAgent(int slot, uint32_t initDone = 1) {
        QelKey agent = openPeer(VORN_AGENT_SERVICE, slot);
        EXPECT_EQ(vorn2VornaCreateSwpQ(slot), 0);
        gVornActiveLineCards[slot] = 1;
        vornTcb.agtInitDone[slot] = initDone;
        return agent;
    }

    // Acknowledges a message as an agent does, so that the manager's queue (one message in
    // flight until its first acknowledgement) lets the next one go.
    void ackAsAgent(QelKey agent, const std::vector<uint8_t>& msg) {
        ASSERT_EQ(qelSwpCkSeqAndAck(msg.data(), agentRcvState_.data(), Key_getReqQueue(agent)), 0);
    }
    // The next message to the agent, with the manager's main loop run meanwhile (empty on
    // time-out).
    std::vector<uint8_t> recvServing(QelKey agent, int timeoutMs = 2000) {
        std::vector<uint8_t> m;
        waitFor(
            [&] {
                vornMainLoopPass(1000);
                m = recvOn(agent, 1);
                return !m.empty();
            },
            timeoutMs);
        return m;
    }

    // A ring with everything readiness asks for (mandatory flags, control VLAN record, both
    // ports recorded, owned and tagged), on the given physical ports.
    VornRingEntry* makeReadyRing(uint16_t id, uint16_t ctrlVlan, uint32_t pri, uint32_t sec,
                                 uint8_t secReady) {
        VornRingEntry* ring = makeRing(id);
        ring->u4Flags = VORN_RING_CFG_MANDATORY;
        ring->u2CtrlVlanId = ctrlVlan;
        if (gVornVlan[ctrlVlan] == nullptr) {
            EXPECT_NE(vornCreateVlanEntry(vl(ctrlVlan), VORN_CREATOR_RING_CONF), nullptr);
        }
        ring->u4PriIfIndex = pri;
        ring->u4SecIfIndex = sec;
        ring->u2PriPortNum = vornPortNumOf(pri);
        ring->u2SecPortNum = vornPortNumOf(sec);
        if (vornGetPort(ring->u2PriPortNum) == nullptr) makePort(pri);
        if (vornGetPort(ring->u2SecPortNum) == nullptr) makePort(sec);
        ring->isPriOwned = ring->isSecOwned = 1;
        ring->isPriTagged = ring->isSecTagged = 1;
        ring->isSecReady = secReady;
        return ring;
    }

private:
    std::array<uint32_t, 2> agentRcvState_{};
};

// The bytes of record i of a received ring configuration message (empty when it is not
// there).
inline Bytes ringCfgRecord(const Bytes& msg, size_t i) {
    size_t off = 128 + 544 * i;
    if (off + 544 > msg.size()) return {};
    return {msg.begin() + off, msg.begin() + off + 544};
}

}  // namespace vorn::test
