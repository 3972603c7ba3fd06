// L2PM's forwarding model, fed with messages built here field by field as the manager sends
// them: port states per VLAN. (Flushes are shown end to end; the STG instances only in
// vornsim's own show, while the manager's bytes for them are pinned by its L2PM tests.)

#include "sim/l2pm_model.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/bitmap.h"
#include "platform/codec.h"
#include "sim_test_util.h"

namespace vorn {
namespace {

constexpr uint32_t kGi01 = 0x0A000100;      // GigabitEthernet 0/1
constexpr uint32_t kGi11 = 0x0A010100;      // GigabitEthernet 1/1
constexpr uint32_t kVlan10If = 0x1800000A;  // a VLAN interface: no port

using Vlans = std::vector<uint16_t>;
using Bitmap = sim::ForwardingModel::VlanBitmap;

void setVlans(std::vector<uint8_t>& m, size_t off, const Vlans& vlans) {
    for (uint16_t v : vlans) m[off + v / 8] |= static_cast<uint8_t>(0x80 >> (v % 8));
}

struct PortRec {
    uint32_t ifIndex;
    Vlans vlans;  // the VLANs whose state the record sets
    Vlans fwd;    // ... of which these forward
};

// Port-state message (18407): 248 client id 7, 252 protocol id 3, 256 record count, then
// 1032-byte records: 0 ifIndex, 4 VLAN set (512 bytes), 516 forwarding set, 1028 zero.
std::vector<uint8_t> portStateMsg(const std::vector<PortRec>& recs) {
    std::vector<uint8_t> m(260 + 1032 * recs.size(), 0);
    be::Writer w(m.data(), m.size());
    w.u32(248, 7);
    w.u32(252, 3);
    w.u32(256, static_cast<uint32_t>(recs.size()));
    for (size_t i = 0; i < recs.size(); ++i) {
        size_t rec = 260 + 1032 * i;
        w.u32(rec, recs[i].ifIndex);
        setVlans(m, rec + 4, recs[i].vlans);
        setVlans(m, rec + 516, recs[i].fwd);
    }
    return m;
}

std::string list(const Bitmap& b) {
    char text[256];
    convertVlanBitMap2VlanString(b, text, sizeof(text));
    return text;
}

// "fwd 20-22 blk 23" for a port, "" when the model has no state for it.
std::string stateOf(const sim::ForwardingModel& m, uint32_t ifIndex) {
    auto it = m.ports().find(ifIndex);
    if (it == m.ports().end()) return "";
    Bitmap blocking{};
    BITMAP_DIFF_BITMAPS(blocking, it->second.known, it->second.forwarding);
    return "fwd " + list(it->second.forwarding) + " blk " + list(blocking);
}

TEST(ForwardingModel, PortStatesSetEachVlanOfEachPort) {
    sim::ForwardingModel m;
    struct Step {
        const char* what;
        std::vector<uint8_t> msg;
        std::string gi01, gi11;
    };
    const Step steps[] = {
        {"the ring starts: primary forwards, secondary blocks",
         portStateMsg({{kGi01, {20, 21, 22}, {20, 21, 22}}, {kGi11, {20, 21, 22}, {}}}),
         "fwd 20-22 blk ", "fwd  blk 20-22"},
        {"one VLAN blocks on the primary; the others keep their state",
         portStateMsg({{kGi01, {21}, {}}}), "fwd 20,22 blk 21", "fwd  blk 20-22"},
        {"forwarding bits outside the record's VLAN set change nothing",
         portStateMsg({{kGi11, {20}, {20, 30}}}), "fwd 20,22 blk 21", "fwd 20 blk 21-22"},
        {"a record for a VLAN interface is skipped, the next one applied",
         portStateMsg({{kVlan10If, {10}, {10}}, {kGi01, {21}, {21}}}), "fwd 20-22 blk ",
         "fwd 20 blk 21-22"},
    };
    for (const Step& s : steps) {
        SCOPED_TRACE(s.what);
        m.apply(MT_L2PM_PORT_STATE, s.msg.data(), s.msg.size());
        EXPECT_EQ(stateOf(m, kGi01), s.gi01);
        EXPECT_EQ(stateOf(m, kGi11), s.gi11);
    }
    EXPECT_EQ(m.ports().size(), 2u);
    EXPECT_EQ(m.counters().portStateMsgs, 4u);
    EXPECT_EQ(m.counters().portStateRecords, 5u);
    EXPECT_EQ(m.counters().badRecords, 1u);
}

}  // namespace
}  // namespace vorn
