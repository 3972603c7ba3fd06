// The chassis model: which IFM records each change produces and in which order, the LAG's
// oper state following its members, and the refusals that leave the model as it was.

#include "sim/chassis_model.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

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
        {"an up port joins a LAG without members",
         {link(gi(1, 2), true), [](ChassisModel& m) { return m.createLag(1); }},
         join(1, gi(1, 2)),
         {"Gi 1/2 added to Po 1", "oper up Po 1"}},
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
        {"joining a VLAN that does not exist creates it first",
         {},
         addVlans("10", gi(0, 1), true),
         {"interface Vl 10 added", "Gi 0/1 added to Vl 10 tagged"}},
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

TEST(ChassisModel, ACardKeepsItsPortsWhileDownAndTheirLinksComeBackWithIt) {
    ChassisModel m = chassis();
    Change up = m.cardUp(2);
    ASSERT_EQ(up.records.size(), 8u);
    EXPECT_EQ(sim::describeIfmRecord(up.records.front()), "interface Te 2/0 added");
    EXPECT_EQ(sim::describeIfmRecord(up.records.back()), "interface Te 2/7 added");
    ASSERT_TRUE(m.setLink(0x0B020100, true).ok);  // Te 2/1
    EXPECT_EQ(described(m.cardDown(2)), std::vector<std::string>{"oper down Te 2/1"});
    // Down: the port takes link changes, but stays oper down.
    ASSERT_TRUE(m.setLink(0x0B020200, true).ok);
    EXPECT_FALSE(m.operUp(0x0B020200));
    EXPECT_EQ(described(m.cardUp(2)),
              (std::vector<std::string>{"oper up Te 2/1", "oper up Te 2/2"}));
}

TEST(ChassisModel, RefusalsNameTheProblemAndChangeNothing) {
    struct Case {
        const char* what;
        std::vector<Step> setup;
        Step change;
        const char* inText;
    };
    const Case cases[] = {
        {"untagged in two VLANs at once",
         {},
         addVlans("10-11", gi(0, 1), false),
         "untagged member of one VLAN only"},
        {"untagged in a second VLAN",
         {addVlans("5", gi(0, 1), false)},
         addVlans("6", gi(0, 1), false),
         "already an untagged member of VLAN 5"},
        {"VLANs on a LAG member",
         {join(1, gi(1, 2))},
         addVlans("10", gi(1, 2), true),
         "Gi 1/2 is a member of Po 1"},
        {"a port with VLANs joins a LAG",
         {addVlans("10", gi(0, 1), true)},
         join(1, gi(0, 1)),
         "carries no VLANs of its own"},
        {"a member of one LAG joins another",
         {join(1, gi(1, 2))},
         join(2, gi(1, 2)),
         "Gi 1/2 is a member of Po 1; remove it from there first"},
        {"a LAG as a member", {}, join(1, po(2)), "Po 2 is not a physical port"},
        {"a port on no card",
         {},
         link(gi(5, 0), true),
         "there is no port Gi 5/0 (the chassis has Gi 0/0-7, Gi 1/0-7)"},
        {"a LAG's link",
         {[](ChassisModel& m) { return m.createLag(1); }},
         link(po(1), true),
         "a port-channel is up while one of its members is"},
        {"leaving a VLAN the port is not in",
         {addVlans("11", gi(0, 1), true)},
         [](ChassisModel& m) { return m.removeFromVlans(vlans("10"), gi(0, 1)); },
         "Gi 0/1 is not a member of VLAN 10"},
        {"deleting VLANs that do not exist",
         {},
         [](ChassisModel& m) { return m.deleteVlans(vlans("10-12")); },
         "VLANs 10-12 do not exist"},
        {"VLANs on a LAG that does not exist",
         {},
         addVlans("10", po(9), true),
         "there is no Po 9 ('lag 9' creates it)"},
    };
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

}  // namespace
}  // namespace vorn
