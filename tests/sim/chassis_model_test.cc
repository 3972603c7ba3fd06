// The chassis model: which IFM records each change produces and in which order, the LAG's
// oper state following its members, the refusals that leave the model as it was; IFM's
// records batched into whole notifications, and L2PM's download in order.

#include "sim/chassis_model.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "platform/codec.h"
#include "sim/ifm_notif.h"
#include "sim/l2pm_download.h"
#include "sim_test_util.h"
#include "support/ifidx.h"

namespace vorn {
namespace {

using sim::ChassisModel;
using Change = ChassisModel::Change;
using Step = std::function<Change(ChassisModel&)>;

using test::gi;
using test::po;
using test::u32At;
using test::vl;
using test::vlans;

Step link(uint32_t port, bool up) {
    return [=](ChassisModel& m) { return m.setLink(port, up); };
}
Step join(uint32_t lag, uint32_t port) {
    return [=](ChassisModel& m) { return m.addLagMember(lag, port); };
}
Step addVlans(const char* list, uint32_t ifIndex, bool tagged) {
    return [=](ChassisModel& m) { return m.addToVlans(vlans(list), ifIndex, tagged); };
}

// Cards in slots 0 and 1 with eight GigabitEthernet ports each; a card in slot 2 would carry
// TenGigabitEthernet ports.
ChassisModel chassis() {
    return ChassisModel(0x3, 0x4, 8);
}

std::vector<std::string> described(const Change& c) {
    std::vector<std::string> out;
    for (const sim::IfmRecord& r : c.records) out.push_back(sim::describeIfmRecord(r));
    return out;
}

TEST(ChassisModel, EachChangeIsToldInTheRecordsIfmSends) {
    struct Case {
        const char* what;
        std::vector<Step> setup;
        Step change;
        std::vector<std::string> records;
    };
    const Case cases[] = {
        {"the first member up brings its LAG up, after it",
         {join(1, gi(1, 2))},
         link(gi(1, 2), true),
         {"oper up Gi 1/2", "oper up Po 1"}},
        {"a second member up: the LAG stays up, nothing said of it",
         {join(1, gi(1, 2)), join(1, gi(1, 3)), link(gi(1, 2), true)},
         link(gi(1, 3), true),
         {"oper up Gi 1/3"}},
        {"the last member up goes down: the LAG goes down after it",
         {join(1, gi(1, 2)), join(1, gi(1, 3)), link(gi(1, 2), true)},
         link(gi(1, 2), false),
         {"oper down Gi 1/2", "oper down Po 1"}},
        {"a down port joins a LAG that does not exist yet",
         {},
         join(2, gi(1, 4)),
         {"interface Po 2 added", "Gi 1/4 added to Po 2"}},
        {"a LAG is deleted: members leave, it goes down, leaves its VLANs, goes",
         {join(1, gi(1, 2)), link(gi(1, 2), true), addVlans("10", po(1), true),
          addVlans("5", po(1), false)},
         [](ChassisModel& m) { return m.deleteLag(1); },
         {"Gi 1/2 removed from Po 1", "oper down Po 1", "Po 1 removed from Vl 10 tagged",
          "Po 1 removed from Vl 5 untagged", "interface Po 1 deleted"}},
        {"only the VLANs not joined yet are told",
         {addVlans("20-25", gi(0, 1), true)},
         addVlans("20-30", gi(0, 1), true),
         {"interface Vl 26 added", "interface Vl 27 added", "interface Vl 28 added",
          "interface Vl 29 added", "interface Vl 30 added", "Gi 0/1 added to VLANs 26-30 tagged"}},
        {"a change of tagging leaves the VLAN and joins it again",
         {addVlans("10", gi(0, 1), false)},
         addVlans("10", gi(0, 1), true),
         {"Gi 0/1 removed from Vl 10 untagged", "Gi 0/1 added to Vl 10 tagged"}},
        {"leaving VLANs keeps each membership's tagging",
         {addVlans("20", gi(0, 1), true), addVlans("5", gi(0, 1), false)},
         [](ChassisModel& m) { return m.removeFromVlans(vlans("5,20-21"), gi(0, 1)); },
         {"Gi 0/1 removed from Vl 5 untagged", "Gi 0/1 removed from Vl 20 tagged"}},
        {"a VLAN is deleted after its members leave it",
         {addVlans("10", gi(0, 1), true), [](ChassisModel& m) { return m.createLag(1); },
          addVlans("10", po(1), false)},
         [](ChassisModel& m) { return m.deleteVlans(vlans("10")); },
         {"Gi 0/1 removed from Vl 10 tagged", "Po 1 removed from Vl 10 untagged",
          "interface Vl 10 deleted"}},
        {"a card goes down: its up ports go down, then their LAG",
         {join(1, gi(1, 2)), link(gi(1, 2), true), link(gi(1, 5), true), link(gi(0, 1), true)},
         [](ChassisModel& m) { return m.cardDown(1); },
         {"oper down Gi 1/2", "oper down Gi 1/5", "oper down Po 1"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ChassisModel m = chassis();
        for (const Step& s : c.setup) ASSERT_TRUE(s(m).ok);
        Change ch = c.change(m);
        EXPECT_TRUE(ch.ok) << ch.text;
        EXPECT_EQ(described(ch), c.records);
    }
}

TEST(ChassisModel, RefusalsNameTheProblemAndChangeNothing) {
    struct Case {
        const char* what;
        std::vector<Step> setup;
        Step change;
        const char* inText;
    };
    // clang-format off
    const Case cases[] = {
        {"untagged in a second VLAN", {addVlans("5", gi(0, 1), false)}, addVlans("6", gi(0, 1), false),
         "already an untagged member of VLAN 5"},
        {"VLANs on a LAG member", {join(1, gi(1, 2))}, addVlans("10", gi(1, 2), true),
         "Gi 1/2 is a member of Po 1"},
        {"a port with VLANs joins a LAG", {addVlans("10", gi(0, 1), true)}, join(1, gi(0, 1)),
         "carries no VLANs of its own"},
        {"a member of one LAG joins another", {join(1, gi(1, 2))}, join(2, gi(1, 2)),
         "Gi 1/2 is a member of Po 1; remove it from there first"},
        {"a port on no card", {}, link(gi(5, 0), true),
         "there is no port Gi 5/0 (the chassis has Gi 0/0-7, Gi 1/0-7)"},
        {"a LAG's link", {[](ChassisModel& m) { return m.createLag(1); }}, link(po(1), true),
         "a port-channel is up while one of its members is"},
        {"leaving a VLAN the port is not in", {addVlans("11", gi(0, 1), true)},
         [](ChassisModel& m) { return m.removeFromVlans(vlans("10"), gi(0, 1)); },
         "Gi 0/1 is not a member of VLAN 10"},
        {"VLANs on a LAG that does not exist", {}, addVlans("10", po(9), true),
         "there is no Po 9 ('lag 9' creates it)"},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ChassisModel m = chassis();
        for (const Step& s : c.setup) ASSERT_TRUE(s(m).ok);
        std::vector<sim::dnld::Record> before = sim::dnld::records(m);
        Change ch = c.change(m);
        EXPECT_FALSE(ch.ok);
        EXPECT_TRUE(ch.records.empty());
        EXPECT_NE(ch.text.find(c.inText), std::string::npos) << ch.text;
        EXPECT_EQ(sim::dnld::records(m), before);
    }
}

// Walks the records of an IFM notification's body by their lengths; returns how many there
// are, or -1 when the walk does not end exactly at the body's end.
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
    Change c = m.addToVlans(vlans("1-4095"), po(1), true);
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
    EXPECT_EQ(u32At(bodies[0], 0), 287u);  // 28-byte records: 287 fit a notification
}

TEST(L2pmDownload, RecordsComeVlansFirstThenLagsThenPortsWithOneTaggingEach) {
    ChassisModel m(0x3, 0, 3);  // Gi 0/0-2, Gi 1/0-2
    ASSERT_TRUE(m.addLagMember(1, gi(1, 2)).ok);
    ASSERT_TRUE(m.setLink(gi(1, 2), true).ok);
    ASSERT_TRUE(m.addToVlans(vlans("10"), po(1), true).ok);
    ASSERT_TRUE(m.addToVlans(vlans("5"), po(1), false).ok);
    // ifIndex, LAG, oper status, tagged, VLANs ("": no bitmap). Po 1 has two records: its
    // tagged VLANs with its oper state first, then its untagged VLAN without either.
    using R = std::tuple<uint32_t, uint32_t, bool, bool, std::string>;
    const std::vector<R> want = {
        {vl(5), 0, false, false, ""},    {vl(10), 0, false, false, ""},
        {po(1), 0, true, true, "10,"},   {po(1), 0, false, false, "5,"},
        {gi(0, 0), 0, false, false, ""}, {gi(0, 1), 0, false, false, ""},
        {gi(0, 2), 0, false, false, ""}, {gi(1, 0), 0, false, false, ""},
        {gi(1, 1), 0, false, false, ""}, {gi(1, 2), po(1), true, false, ""},
    };
    std::vector<R> got;
    for (const sim::dnld::Record& r : sim::dnld::records(m))
        got.emplace_back(r.ifIndex, r.lag, r.operUp, r.tagged,
                         r.hasVlans ? sim::vlanSetText(r.vlans) + "," : "");
    EXPECT_EQ(got, want);
}

TEST(L2pmDownload, AFullChassisSpreadsOverNotificationsInOrder) {
    ChassisModel m(0xFFF, 0, 64);
    for (const auto& [ifIndex, i] : std::map<uint32_t, ChassisModel::Interface>(m.interfaces()))
        ASSERT_TRUE(m.addToVlans(vlans("10,20-30"), ifIndex, true).ok);
    std::vector<sim::dnld::Record> recs = sim::dnld::records(m);
    ASSERT_EQ(recs.size(), 12u + 768);
    size_t next = 0;  // the record each body should go on with
    for (const std::vector<uint8_t>& body : sim::dnld::pack(recs)) {
        // Bodies start at byte 124 of the message: the count at 252, then the records at 256,
        // 1680 bytes with their VLAN bitmap (flag at 50), else 144.
        ASSERT_LE(124 + body.size(), 8192u);
        be::Reader rd(body.data(), body.size());
        size_t off = 256 - 124;
        for (uint32_t i = 0, n = rd.u32(252 - 124); i < n; ++i, ++next) {
            ASSERT_LT(next, recs.size());
            EXPECT_EQ(rd.u32(off), recs[next].ifIndex);
            off += rd.u8(off + 50) != 0 ? 1680 : 144;
        }
        EXPECT_EQ(off, body.size());
    }
    EXPECT_EQ(next, recs.size());
}

}  // namespace
}  // namespace vorn
