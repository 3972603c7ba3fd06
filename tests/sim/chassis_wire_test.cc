// What the chassis puts on the wire: IFM's records batched into notifications, L2PM's
// download in order, and, in-process, the road of a change and of a registration to a
// manager's request queue.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "platform/codec.h"
#include "platform/swp.h"
#include "sim/chassis_model.h"
#include "sim/chassis_sim.h"
#include "sim/ifm_notif.h"
#include "sim/l2pm_download.h"
#include "sim_test_util.h"
#include "support/rundir.h"

namespace vorn {
namespace {

using sim::ChassisModel;
using test::u32At;
using test::words;
using W = std::vector<uint32_t>;

constexpr uint32_t kGi01 = 0x0A000100;
constexpr uint32_t kGi12 = 0x0A010200;
constexpr uint32_t kPo1 = 0x16000001;

using test::vlans;

// A body placed at byte 124 of a message, so that offsets read as the manager reads them.
std::vector<uint8_t> asMessage(const std::vector<uint8_t>& body) {
    std::vector<uint8_t> msg(124 + body.size(), 0);
    std::copy(body.begin(), body.end(), msg.begin() + 124);
    return msg;
}

// Walks the records of a body by their lengths; returns how many there are, or -1 when the
// walk does not end exactly at the body's end.
int walk(const std::vector<uint8_t>& body) {
    be::Reader rd(body.data(), body.size());
    size_t off = 12;
    int n = 0;
    while (off + 4 <= body.size()) {
        uint16_t len = rd.u16(off + 2);
        if (len < 4) return -1;
        off += len;
        ++n;
    }
    return off == body.size() && static_cast<int32_t>(rd.u32(0)) == n ? n : -1;
}

TEST(IfmNotification, LargeChangesAreSplitIntoWholeNotifications) {
    ChassisModel m(0x3, 0, 8);
    ASSERT_TRUE(m.createLag(1).ok);
    // 4095 new VLANs, and Po 1 tagged in all of them: 4095 interface records and the
    // membership in lists of at most 1000 VLANs.
    ChassisModel::Change c = m.addToVlans(vlans("1-4095"), kPo1, true);
    ASSERT_TRUE(c.ok) << c.text;
    ASSERT_EQ(c.records.size(), 4095u + 5);
    EXPECT_EQ(c.records[4095].vlans.size(), 1000u);
    EXPECT_EQ(c.records[4099].vlans.size(), 95u);
    EXPECT_EQ(c.records[4099].vlans.back(), 4095);
    uint32_t count = 0;
    auto bodies = sim::packIfmNotifications(c.records, &count);
    EXPECT_EQ(count, bodies.size());
    size_t total = 0;
    for (size_t i = 0; i < bodies.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_LE(bodies[i].size(), 8192u - 124);
        EXPECT_EQ(u32At(bodies[i], 4), i + 1);  // Count
        int n = walk(bodies[i]);
        ASSERT_GT(n, 0);
        total += static_cast<size_t>(n);
    }
    EXPECT_EQ(total, c.records.size());
    // 28-byte records: 287 fit a notification.
    EXPECT_EQ(u32At(bodies[0], 0), 287u);
}

TEST(L2pmDownload, RecordsComeVlansFirstThenLagsThenPortsWithOneTaggingEach) {
    ChassisModel m(0x3, 0, 3);  // Gi 0/0-2, Gi 1/0-2
    ASSERT_TRUE(m.addLagMember(1, kGi12).ok);
    ASSERT_TRUE(m.setLink(kGi12, true).ok);
    ASSERT_TRUE(m.addToVlans(vlans("10"), kPo1, true).ok);
    ASSERT_TRUE(m.addToVlans(vlans("5"), kPo1, false).ok);
    // ifIndex, LAG, oper status, tagged, VLANs ("": no bitmap). Po 1 has two records: its
    // tagged VLANs with its oper state first, then its untagged VLAN without either.
    using R = std::tuple<uint32_t, uint32_t, bool, bool, std::string>;
    const std::vector<R> want = {
        {0x18000005, 0, false, false, ""}, {0x1800000A, 0, false, false, ""},
        {kPo1, 0, true, true, "10,"},      {kPo1, 0, false, false, "5,"},
        {0x0A000000, 0, false, false, ""}, {kGi01, 0, false, false, ""},
        {0x0A000200, 0, false, false, ""}, {0x0A010000, 0, false, false, ""},
        {0x0A010100, 0, false, false, ""}, {kGi12, kPo1, true, false, ""},
    };
    std::vector<R> got;
    for (const sim::dnld::Record& r : sim::dnld::records(m))
        got.emplace_back(r.ifIndex, r.lag, r.operUp, r.tagged,
                         r.hasVlans ? sim::vlanSetText(r.vlans) + "," : "");
    EXPECT_EQ(got, want);
    std::vector<uint8_t> eoc = asMessage(sim::dnld::endOfConfig());
    EXPECT_EQ(eoc.size(), 256u);
    EXPECT_EQ(words(eoc, {248, 252}), (W{4, 0}));
}

TEST(L2pmDownload, AFullChassisSpreadsOverNotificationsInOrder) {
    ChassisModel m(0xFFF, 0, 64);
    for (const auto& [ifIndex, i] : std::map<uint32_t, ChassisModel::Interface>(m.interfaces()))
        ASSERT_TRUE(m.addToVlans(vlans("10,20-30"), ifIndex, true).ok);
    std::vector<sim::dnld::Record> recs = sim::dnld::records(m);
    ASSERT_EQ(recs.size(), 12u + 768);
    auto bodies = sim::dnld::pack(recs);
    size_t next = 0;  // the record each body should go on with
    for (const std::vector<uint8_t>& body : bodies) {
        std::vector<uint8_t> msg = asMessage(body);
        ASSERT_LE(msg.size(), 8192u);
        uint32_t n = u32At(msg, 252);
        ASSERT_GT(n, 0u);
        size_t off = 256;
        for (uint32_t i = 0; i < n; ++i, ++next) {
            ASSERT_LT(next, recs.size());
            EXPECT_EQ(u32At(msg, off), recs[next].ifIndex);
            off += msg[off + 50] != 0 ? 1680 : 144;
        }
        EXPECT_EQ(off, msg.size());
    }
    EXPECT_EQ(next, recs.size());
}

// The chassis in attach mode, with the test as its manager.
class ChassisWireTest : public test::PlatformTest {
protected:
    void SetUp() override {
        sim::SimOptions opts;
        opts.rundir = rundir_.path();
        opts.attach = true;
        opts.portsPerCard = 2;
        chassis_ = std::make_unique<sim::ChassisSim>(opts);
        std::string err;
        ASSERT_TRUE(chassis_->start(&err)) << err;
        mgr_ = std::make_unique<test::FakeManager>();
        ASSERT_TRUE(test::serveUntil(chassis_->loop(),
                                     [&] { return chassis_->l2pm().queueHandle() != 0; }));
    }
    // The next message to the manager that is not an agent's registration.
    std::vector<uint8_t> receive() {
        std::vector<uint8_t> msg;
        test::serveUntil(chassis_->loop(), [&] {
            msg = mgr_->receive(0);
            return !msg.empty() && test::u32At(msg, 12) != 0x6401;
        });
        return msg;
    }
    // The manager's registration with L2PM, as it sends it.
    int registerWithL2pm() {
        std::vector<uint8_t> reg = test::fromManager(18401, 124, test::kQueue166);
        be::Writer w(reg.data(), reg.size());
        w.u32(44, 0);  // the manager leaves its source queue unset
        w.u32(72, 226);
        w.u8(120, 1);
        return test::exchange(chassis_->loop(), *mgr_, reg, 10);
    }

    std::unique_ptr<sim::ChassisSim> chassis_;
    std::unique_ptr<test::FakeManager> mgr_;
};

TEST_F(ChassisWireTest, ChangesGoOutAsIfmNotificationsAndARegistrationGetsTheDownload) {
    sim::CommandResult r = chassis_->commands().run("vlan 10 add gi 0/1 tagged");
    ASSERT_TRUE(r.ok) << r.text;
    EXPECT_NE(r.text.find("2 IFM records sent to the manager in 1 notification"), std::string::npos)
        << r.text;
    std::vector<uint8_t> ifm = receive();
    ASSERT_EQ(ifm.size(), 124u + 12 + 28 + 16);
    EXPECT_EQ(words(ifm, {8, 12, 60, 124}), (W{uint32_t(ifm.size()), 10908, swp::kMagic, 2}));
    const uint32_t oldEpoch = u32At(ifm, 72);
    // Not acknowledged: a manager that dies leaves it outstanding.

    ASSERT_EQ(registerWithL2pm(), 0);
    // The download: VLAN 10, Gi 0/0, Gi 0/1, Gi 1/0, Gi 1/1. It starts a new stream: the
    // notification the earlier manager did not acknowledge is dropped, not resent before it.
    std::vector<uint8_t> dnld = receive();
    EXPECT_EQ(words(dnld, {12, 248, 252, 256, 64}), (W{18402, 2, 5, 0x1800000A, 1}));
    EXPECT_NE(u32At(dnld, 72), oldEpoch);
    // The end of configuration follows once the new stream is acknowledged.
    uint32_t state[2] = {0, 0};
    EXPECT_EQ(qelSwpCkSeqAndAck(dnld.data(), state, mgr_->reqFd()), 0);
    std::vector<uint8_t> eoc = receive();
    EXPECT_EQ(words(eoc, {12, 248, 64}), (W{18402, 4, 2}));
    EXPECT_TRUE(chassis_->l2pm().downloadPending());
    EXPECT_EQ(qelSwpCkSeqAndAck(eoc.data(), state, mgr_->reqFd()), 0);
    EXPECT_TRUE(
        test::serveUntil(chassis_->loop(), [&] { return !chassis_->l2pm().downloadPending(); }));
}

}  // namespace
}  // namespace vorn
