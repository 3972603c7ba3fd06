// L2PM and IFM as the manager meets them on the wire: the port-ownership answer in place,
// the forwarding model fed by the SWP messages that L2PM accepts (and only once), the
// control-VLAN question refused for the VLANs IFM was told to refuse, and the simulator
// commands that steer and show all of it.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/swp.h"
#include "sim/chassis_sim.h"
#include "sim/ifm.h"
#include "sim/l2pm.h"
#include "sim_test_util.h"
#include "support/rundir.h"

namespace vorn {
namespace {

using test::FakeManager;
using test::serveUntil;
using test::u32At;
using test::whileServing;

constexpr uint32_t kGi01 = 0x0A000100;
constexpr uint32_t kGi11 = 0x0A010100;
constexpr uint32_t kQueue226 = (226u << 20) | 1;
constexpr uint32_t kQueue166 = (166u << 20) | 1;
constexpr uint32_t kQueue138 = (138u << 20) | 1;

std::vector<uint8_t> fromManager(uint32_t mtype, size_t len, uint32_t target) {
    std::vector<uint8_t> msg(len, 0);
    be::Writer w(msg.data(), msg.size());
    w.u32(8, static_cast<uint32_t>(len));
    w.u32(12, mtype);
    w.u32(44, kQueue226);
    w.u32(56, target);
    return msg;
}

// Port-ownership request (18403, 588 bytes): 248 client id 7, 252 protocol id 3, 256 action
// (0 take, 1 give back), 260 the port list: u32 count, then the ifIndexes.
std::vector<uint8_t> ownershipRequest(uint32_t action, const std::vector<uint32_t>& ports,
                                      size_t len = 588) {
    std::vector<uint8_t> msg = fromManager(18403, len, kQueue166);
    be::Writer w(msg.data(), msg.size());
    w.u32(248, 7);
    w.u32(252, 3);
    w.u32(256, action);
    w.u32(260, static_cast<uint32_t>(ports.size()));
    for (size_t i = 0; i < ports.size(); ++i)
        w.u32(264 + 4 * i, ports[i]);
    return msg;
}

// The port list of an answer.
std::vector<uint32_t> listed(const std::vector<uint8_t>& msg) {
    std::vector<uint32_t> out;
    for (uint32_t i = 0; i < u32At(msg, 260) && i < 81; ++i)
        out.push_back(u32At(msg, 264 + 4 * i));
    return out;
}

class L2pmWireTest : public test::PlatformTest {
  protected:
    void SetUp() override {
        std::string err;
        ASSERT_TRUE(l2pm_.open(&err)) << err;
        ASSERT_TRUE(ifm_.open(&err)) << err;
        loop_.add(&l2pm_);
        loop_.add(&ifm_);
    }
    int exchange(std::vector<uint8_t>& msg) {
        uint32_t mtype = u32At(msg, 12);
        return whileServing(loop_, [&] {
            return qelIpcSendWait(mgr_.key(), msg.data(), static_cast<int>(msg.size()), 3,
                                  static_cast<int>(mtype), 0);
        });
    }

    FakeManager mgr_;
    sim::EventLoop loop_;
    sim::L2pm l2pm_;
    sim::Ifm ifm_;
};

TEST_F(L2pmWireTest, OwnershipIsAnsweredInPlaceWithThePortsNotGranted) {
    l2pm_.model().setRefused(kGi11, true);
    using Ports = std::vector<uint32_t>;
    struct Case {
        const char* what;
        uint32_t action;
        Ports ports;
        Ports notGranted;
    };
    const Case cases[] = {
        {"take a port", 0, {kGi01}, {}},
        {"take a refused port", 0, {kGi11}, {kGi11}},
        {"take a VLAN interface", 0, {0x1800000A}, {0x1800000A}},
        {"give a port back", 1, {kGi01}, {}},
        {"give back a port never owned", 1, {kGi11}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<uint8_t> msg = ownershipRequest(c.action, c.ports);
        be::Writer(msg.data(), msg.size()).u32(584, 0xA5A5A5A5);  // the list's last word
        ASSERT_EQ(exchange(msg), 0);
        EXPECT_EQ(msg.size(), 588u);
        EXPECT_EQ(listed(msg), c.notGranted);
        EXPECT_EQ(u32At(msg, 248), 7u);  // the rest comes back as it went
        EXPECT_EQ(u32At(msg, 256), c.action);
        EXPECT_EQ(u32At(msg, 584), 0u);  // the list holds nothing beyond its count
    }
    EXPECT_TRUE(l2pm_.model().owned().empty());
    EXPECT_EQ(l2pm_.model().counters().ownershipRequests, std::size(cases));

    // Requests that cannot be read are not answered at all: the manager's exchange fails.
    std::vector<uint8_t> shortMsg = ownershipRequest(0, {kGi01}, 587);
    std::vector<uint8_t> tooMany = ownershipRequest(0, {kGi01});
    be::Writer(tooMany.data(), tooMany.size()).u32(260, 82);
    EXPECT_EQ(exchange(shortMsg), -1);
    EXPECT_EQ(exchange(tooMany), -1);
    EXPECT_EQ(l2pm_.counters().malformed, 2u);
    EXPECT_TRUE(l2pm_.model().owned().empty());
}

TEST_F(L2pmWireTest, OnlyAcceptedSwpMessagesChangeTheModel) {
    // A flush message over SWP (seq 1), then the same again (a duplicate): one flush.
    std::vector<uint8_t> msg = fromManager(18412, 260 + 24, kQueue166);
    be::Writer w(msg.data(), msg.size());
    w.u32(60, swp::kMagic);
    w.u32(64, 1);   // sequence number
    w.u32(68, 9);   // stream
    w.u32(72, 77);  // epoch
    w.u32(248, 7);
    w.u32(252, 3);
    w.u32(256, 1);
    w.u32(260, 82);  // kind
    w.u32(264, 24);  // length
    w.u16(272, 20);  // VLAN
    w.u32(276, kGi01);
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(qelIpcSend(mgr_.reqFd(), msg.data(), static_cast<int>(msg.size())), 0);
        std::vector<uint8_t> ack;
        ASSERT_TRUE(serveUntil(loop_, [&] { return !(ack = mgr_.receive(20)).empty(); }));
        EXPECT_EQ(u32At(ack, 12), 402u);
    }
    EXPECT_EQ(l2pm_.counters().swpDuplicates, 1u);
    EXPECT_EQ(l2pm_.model().counters().flushRecords, 1u);
    EXPECT_EQ(l2pm_.model().flushes().at({kGi01, 20}), 1u);
}

TEST_F(L2pmWireTest, IfmRefusesTheVlansItWasToldToRefuse) {
    ifm_.refuseVlan(10);
    ifm_.refuseVlan(12, 1);
    struct Case {
        uint32_t action;  // 1 becomes a control VLAN, 2 stops being one
        uint32_t vlan;
        uint32_t answer;
    };
    const Case cases[] = {
        {1, 10, 0x8A000141}, {1, 11, 0}, {1, 12, 1}, {2, 10, 0}, {2, 11, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.vlan);
        // The question (10956, 72 bytes): 60 action, 64 VLAN, 68 the answer.
        std::vector<uint8_t> q = fromManager(10956, 72, kQueue138);
        be::Writer w(q.data(), q.size());
        w.u32(60, c.action);
        w.u32(64, c.vlan);
        ASSERT_EQ(exchange(q), 0);
        EXPECT_EQ(u32At(q, 68), c.answer);
        EXPECT_EQ(u32At(q, 64), c.vlan);
    }
    EXPECT_TRUE(ifm_.controlVlans().empty());  // 11 was granted, then given up
    EXPECT_EQ(ifm_.counters().refusals, 2u);
    ifm_.acceptVlan(10);
    std::vector<uint8_t> q = fromManager(10956, 72, kQueue138);
    be::Writer(q.data(), q.size()).u32(60, 1);
    be::Writer(q.data(), q.size()).u32(64, 10);
    ASSERT_EQ(exchange(q), 0);
    EXPECT_EQ(u32At(q, 68), 0u);
    EXPECT_EQ(ifm_.controlVlans(), std::set<uint32_t>{10});

    // Ring-interface notices (11016, 76 bytes): 60 action, 64 primary, 68 secondary, 72 flags.
    std::vector<uint8_t> n = fromManager(11016, 76, kQueue138);
    be::Writer nw(n.data(), n.size());
    nw.u32(60, 1);
    nw.u32(64, kGi01);
    nw.u32(68, kGi11);
    nw.u32(72, 0x80000000);
    std::vector<uint8_t> cut(n.begin(), n.end() - 1);
    be::Writer(cut.data(), cut.size()).u32(8, 75);
    for (auto* m : {&n, &cut})
        ASSERT_EQ(qelIpcSend(mgr_.reqFd(), m->data(), static_cast<int>(m->size())), 0);
    ASSERT_TRUE(serveUntil(loop_, [&] { return ifm_.counters().malformed == 1; }));
    ASSERT_EQ(ifm_.notices().size(), 1u);
    EXPECT_EQ(ifm_.notices()[0].secondary, kGi11);
    EXPECT_NE(ifm_.describe().find("configured: primary Gi 0/1, secondary Gi 1/1, secondary is "
                                   "a ring's secondary"),
              std::string::npos)
        << ifm_.describe();
}

TEST_F(L2pmWireTest, SimulatorCommandsSteerAndShowTheModels) {
    sim::SimOptions opts;
    opts.rundir = rundir_.path();
    sim::ChassisSim chassis(opts);  // not started: its peers are only used for commands
    struct Case {
        const char* command;
        bool ok;
        const char* inText;
    };
    const Case cases[] = {
        {"l2pm refuse-port Gi 0/5", true, "L2PM now refuses the ownership of GigabitEthernet 0/5"},
        {"show l2pm port gi0/5", true, "GigabitEthernet 0/5: not owned by the manager; L2PM "
                                       "refuses to hand it over"},
        {"show l2pm", true, "ports L2PM refuses to hand over: Gi 0/5"},
        {"no l2pm refuse-port GigabitEthernet 0/5", true, "grants the ownership"},
        {"show l2pm", true, "ports L2PM refuses to hand over: none"},
        {"l2pm refuse-port Gi 12/1", false, "slot 12 is out of range 0..11 in 'Gi 12/1'"},
        {"l2pm refuse-port gi0/1 now", false, "unexpected 'now' after the interface"},
        {"show l2pm vlan 4096", false, "VLAN 4096 is out of range 1..4095"},
        {"show l2pm vlan 20", true, "VLAN 20: in no STG instance"},
        {"show l2pm instance 64", true, "instance 64: ports none; VLANs none"},
        {"ifm refuse-vlan 10", true, "IFM now answers 0x8a000141 when VLAN 10"},
        {"ifm refuse-vlan 12 code 0x1", true, "answers 0x00000001 when VLAN 12"},
        {"ifm refuse-vlan 12 code x", false, "bad code 'x'"},
        {"ifm refuse-vlan 12 cod 1", false, "usage: ifm refuse-vlan VLAN [code CODE]"},
        {"show ifm vlan 10", true, "the question about it is answered 0x8a000141"},
        {"no ifm refuse-vlan 10", true, "IFM now accepts VLAN 10"},
        {"show ifm", true, "VLANs refused: 12 (0x00000001)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.command);
        sim::CommandResult r = chassis.commands().run(c.command);
        EXPECT_EQ(r.ok, c.ok);
        EXPECT_NE(r.text.find(c.inText), std::string::npos) << r.text;
    }
}

}  // namespace
}  // namespace vorn
