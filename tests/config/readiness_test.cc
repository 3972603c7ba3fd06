// Ring readiness (each test in its order, with the trace that names the failing one) and
// the control-VLAN pre-check.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>

#include "support/mgr_fixture.h"

namespace {

using vorn::test::gi;
using vorn::test::MgrTest;
namespace ifm = vorn::ifm;

constexpr uint16_t kRing = 5;
constexpr uint16_t kCtrlVlan = 10;
constexpr uint16_t kPri = 134;  // Gi 0/5
constexpr uint16_t kSec = 140;  // Gi 0/11

// The state line that every evaluation of an existing ring starts with.
std::string stateLine(const VornRingEntry& r) {
    char line[256];
    std::snprintf(line, sizeof(line),
                  "vornRingIsReady(): Ring: %d, Flags: 0x%x, PriPort: %d, SecPort: %d, "
                  "PriTagged: %d, SecTagged: %d, PriOwned: %d, SecOwned: %d, SecReady: %d\r\n",
                  r.u2RingId, r.u4Flags, r.u2PriPortNum, r.u2SecPortNum, r.isPriTagged,
                  r.isSecTagged, r.isPriOwned, r.isSecOwned, r.isSecReady);
    return line;
}

class ReadinessTest : public MgrTest {
protected:
    // Ring 5 with everything a running ring has: mandatory flags, control VLAN 10 with
    // a record, both ports with records, tagged and owned, and a ready secondary.
    void SetUp() override {
        MgrTest::SetUp();
        ASSERT_NE(ring_ = makeRing(kRing), nullptr);
        ring_->u4Flags = VORN_RING_CFG_CTRL_VLAN | VORN_RING_CFG_MODE | VORN_RING_CFG_ENABLE |
                         VORN_RING_CFG_HELLO;
        ring_->u2CtrlVlanId = kCtrlVlan;
        ring_->u2PriPortNum = kPri;
        ring_->u2SecPortNum = kSec;
        ring_->isPriTagged = ring_->isSecTagged = 1;
        ring_->isPriOwned = ring_->isSecOwned = 1;
        ring_->isSecReady = 1;
        ASSERT_TRUE(makePort(gi(0, 5)) && makePort(gi(0, 11)));
        ensureCtrlVlan();
    }
    void ensureCtrlVlan() {
        if (gVornVlan[kCtrlVlan] == nullptr) {
            ASSERT_NE(vornCreateVlanEntry(ifmCreateIfIndex(ifm::kTypeVlan, 0, 0, kCtrlVlan),
                                          VORN_CREATOR_RING_CONF),
                      nullptr);
        }
    }
    VornRingEntry* ring_ = nullptr;
};

TEST_F(ReadinessTest, EachTestFailsInItsOrderWithItsTrace) {
    const std::string kNotMandatory = "Ring is NOT ready. Mandatory flags not set.\r\n";
    const std::string kNoCtrlVlan = "vornRingIsReady (): Ring 5, Control Vlan not created. Vlan = ";
    const std::string kNotTagged = "Ring is NOT ready. Ports not tagged.\r\n";
    const std::string kIncomplete = "Ring is NOT ready. Port config not complete.\r\n";
    const struct {
        const char* name;
        void (*change)(VornRingEntry&);
        int ready;
        std::string last;  // the trace line after the state line
    } cases[] = {
        {"running", [](VornRingEntry&) {}, 1, "Ring is ready.\r\n"},
        {"secondary LAG without members", [](VornRingEntry& r) { r.isSecReady = 0; }, 1,
         "Ring is NOT ready. isSecReady not set.\r\n"},
        {"no mode", [](VornRingEntry& r) { r.u4Flags = 0x05; }, 0, kNotMandatory},
        {"disabled", [](VornRingEntry& r) { r.u4Flags = 0x7B; }, 0, kNotMandatory},
        {"no control VLAN flag", [](VornRingEntry& r) { r.u4Flags = 0x06; }, 0, kNotMandatory},
        {"control VLAN record gone",
         [](VornRingEntry&) { vornCheckAndDeleteVlanEntry(kCtrlVlan, VORN_CREATOR_RING_CONF); }, 0,
         kNoCtrlVlan + "10 \r\n"},
        {"control VLAN 0", [](VornRingEntry& r) { r.u2CtrlVlanId = 0; }, 0, kNoCtrlVlan + "0 \r\n"},
        {"control VLAN 4096", [](VornRingEntry& r) { r.u2CtrlVlanId = 4096; }, 0,
         kNoCtrlVlan + "4096 \r\n"},
        {"primary untagged", [](VornRingEntry& r) { r.isPriTagged = 0; }, 0, kNotTagged},
        {"secondary untagged", [](VornRingEntry& r) { r.isSecTagged = 0; }, 0, kNotTagged},
        {"primary port 0", [](VornRingEntry& r) { r.u2PriPortNum = 0; }, 0, kIncomplete},
        {"primary port 898", [](VornRingEntry& r) { r.u2PriPortNum = 898; }, 0, kIncomplete},
        {"secondary without a record", [](VornRingEntry& r) { r.u2SecPortNum = 141; }, 0,
         kIncomplete},
        {"primary not owned", [](VornRingEntry& r) { r.isPriOwned = 0; }, 0, kIncomplete},
        {"secondary not owned", [](VornRingEntry& r) { r.isSecOwned = 0; }, 0, kIncomplete},
        // When several tests fail, the first one in order is the one reported.
        {"no mode and untagged",
         [](VornRingEntry& r) {
             r.u4Flags = 0x05;
             r.isSecTagged = 0;
         },
         0, kNotMandatory},
        {"untagged and not owned",
         [](VornRingEntry& r) {
             r.isPriTagged = 0;
             r.isSecOwned = 0;
         },
         0, kNotTagged},
    };
    const VornRingEntry running = *ring_;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        *ring_ = running;
        ensureCtrlVlan();
        c.change(*ring_);
        vornDbgPrint = 1;
        std::string out = captureStdout([&] { EXPECT_EQ(vornRingIsReady(kRing), c.ready); });
        EXPECT_EQ(out, stateLine(*ring_) + c.last);
        // Without the debug flag the answer is the same and nothing is printed.
        vornDbgPrint = 0;
        out = captureStdout([&] { EXPECT_EQ(vornRingIsReady(kRing), c.ready); });
        EXPECT_EQ(out, "");
    }
}

TEST_F(ReadinessTest, UnknownRingsAreNotReady) {
    for (uint16_t id : {uint16_t{0}, uint16_t{7}, uint16_t{256}, uint16_t{0xFFFF}}) {
        SCOPED_TRACE(id);
        vornDbgPrint = 1;
        std::string out = captureStdout([&] { EXPECT_EQ(vornRingIsReady(id), 0); });
        EXPECT_EQ(out, "vornRingIsReady (): Unknown Ring " + std::to_string(id) + "\r\n");
    }
}

using PreCheckTest = MgrTest;

TEST_F(PreCheckTest, ControlAndMemberVlansInUseAreRefused) {
    // Ring 5 uses VLAN 10 as its control VLAN, another ring VLAN 20; VLAN 30 is a member
    // VLAN. VLAN 50 is both another ring's control VLAN and a member VLAN, and VLAN 60
    // is the ring's own control VLAN as well as a member VLAN; neither happens in a
    // consistent configuration, but they fix the order of the two tests.
    for (uint32_t v : {10, 20, 50, 60}) vorn::bmp::set(gVornCtrlVlanBmap, v);
    for (uint32_t v : {30, 50, 60}) vorn::bmp::set(gVornMemVlanBmap, v);
    const struct {
        const char* name;
        uint16_t oldVlan;
        uint16_t newVlan;
        int result;
        uint32_t status;
    } cases[] = {
        {"own control VLAN, new interfaces", 10, 10, 0, 0},
        {"another ring's control VLAN", 10, 20, -1, vorn::nm::kStatusCtrlVlanInUse},
        {"new ring on a used control VLAN", 0, 10, -1, vorn::nm::kStatusCtrlVlanInUse},
        {"member VLAN", 10, 30, -1, vorn::nm::kStatusVlanIsMember},
        {"control and member VLAN", 10, 50, -1, vorn::nm::kStatusCtrlVlanInUse},
        {"own control VLAN that is a member VLAN", 60, 60, -1, vorn::nm::kStatusVlanIsMember},
        {"unused VLAN", 10, 40, 0, 0},
        {"unused VLAN 4095", 0, 4095, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        // The interfaces have no port records, so taking them asks nothing of L2PM.
        std::array<uint8_t, vorn::nm::kLen> request{};
        EXPECT_EQ(vornPreCheckRingConfig(request.data(), c.oldVlan, c.newVlan, gi(0, 5), gi(0, 11)),
                  c.result);
        vorn::be::Reader r(request.data(), request.size());
        EXPECT_EQ(r.u16(vorn::nm::kOffStatus), c.status);
        // Nothing but the status word is written.
        std::array<uint8_t, vorn::nm::kLen> expected{};
        vorn::be::Writer(expected.data(), expected.size()).u16(vorn::nm::kOffStatus, c.status);
        EXPECT_EQ(request, expected);
    }
}

}  // namespace
