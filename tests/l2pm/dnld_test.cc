// L2PM's configuration download: a download rebuilding ports, VLANs and LAG membership in
// the fixed order, the record lengths (144 and 1680), the stall on an unknown interface,
// and malformed downloads that must neither crash nor read outside the message (each
// message buffer is exactly as long as its length word, so that a read past it is caught
// under the address sanitizer).

#include <optional>
#include <string>
#include <vector>

#include "l2pm/l2pm_test_util.h"
#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

using namespace l2pmt;
using W = std::vector<uint32_t>;

const uint32_t kMgmt = ifmCreateIfIndex(ifm::kTypeManagement, 0, 0, 0);
// Neither management, VLAN, physical port nor LAG.
constexpr uint32_t kOtherIf = 0x1E000001;

struct PortRec {
    uint32_t ifIndex;
    bool up = false;
    uint32_t lagIf = 0;
    std::array<uint8_t, 6> mac{};
    uint8_t tagged = 0;
    std::vector<int> vlans = {};  // non-empty: a 1680-byte record with the bitmap
};

// A download notification as L2PM builds it.
class Dnld {
public:
    // A 144-byte record that carries only its ifIndex.
    Dnld& ifOnly(uint32_t ifIndex) {
        std::vector<uint8_t> r(144);
        be::Writer(r.data(), r.size()).u32(0, ifIndex);
        return add(r);
    }
    Dnld& port(const PortRec& p) {
        std::vector<uint8_t> r(p.vlans.empty() ? 144 : 1680);
        be::Writer w(r.data(), r.size());
        w.u32(0, p.ifIndex);
        w.u32(4, p.lagIf);
        w.u32(22, p.up ? 16 : 2);
        w.bytes(26, p.mac.data(), p.mac.size());
        w.u8(33, p.tagged);
        if (!p.vlans.empty()) {
            w.u8(50, 1);
            for (int v : p.vlans) bmp::set(std::span<uint8_t>(r.data() + 144, 512), v);
        }
        return add(r);
    }
    // The message: headers, kind 2, the record count (by default the records added) and the
    // records; exactly as long as its length word says.
    std::vector<uint8_t> msg(std::optional<int32_t> count = {}) const {
        std::vector<uint8_t> m(256);
        m.insert(m.end(), recs_.begin(), recs_.end());
        be::Writer w(m.data(), m.size());
        w.u32(ipc::kOffMagic, ipc::kMagic);
        w.u32(ipc::kOffMlen, static_cast<uint32_t>(m.size()));
        w.u32(ipc::kOffMtype, MT_L2PM_NOTIF);
        w.u32(248, VORN_L2PM_NOTIF_DNLD);
        w.u32(252, static_cast<uint32_t>(count.value_or(n_)));
        return m;
    }

private:
    Dnld& add(const std::vector<uint8_t>& r) {
        recs_.insert(recs_.end(), r.begin(), r.end());
        ++n_;
        return *this;
    }
    std::vector<uint8_t> recs_;
    int32_t n_ = 0;
};

// The message cut to `len` bytes, its length word saying so; `keep` leaves the bytes past
// the length word in the buffer.
std::vector<uint8_t> cut(std::vector<uint8_t> m, size_t len, bool keep = false) {
    if (!keep) m.resize(len);
    be::Writer(m.data(), m.size()).u32(ipc::kOffMlen, static_cast<uint32_t>(len));
    return m;
}

class DnldTest : public L2pmTest {
protected:
    // Replays a download with error printing on; returns what was printed.
    std::string replay(std::vector<uint8_t> m) {
        vornErrPrint = 1;
        std::string out = captureStdout([&] { EXPECT_EQ(vornProcessL2PmDnld(m.data()), 0); });
        vornErrPrint = 0;
        return out;
    }
    static std::vector<int> vlansPresent() {
        std::vector<int> v;
        for (int id = 1; id <= VORN_MAX_VLAN_ID; ++id)
            if (gVornVlan[id] != nullptr) v.push_back(id);
        return v;
    }
    static std::vector<uint32_t> portsPresent() {
        std::vector<uint32_t> p;
        for (int n = 1; n <= VORN_MAX_PORT_NUM; ++n)
            if (gVornPort[n] != nullptr) p.push_back(gVornPort[n]->u4IfIndex);
        return p;
    }
    static void clearTables() {
        for (int id = 1; id <= VORN_MAX_VLAN_ID; ++id)
            vornCheckAndDeleteVlanEntry(static_cast<uint16_t>(id), VORN_CREATOR_IFM);
        for (int n = 1; n <= VORN_MAX_PORT_NUM; ++n)
            if (gVornPort[n] != nullptr)
                vornCheckAndDeletePortEntry(gVornPort[n]->u4IfIndex, VORN_CREATOR_IFM);
    }
};

TEST_F(DnldTest, RebuildsPortsVlansAndLagsInOrder) {
    L2pmSwpPeer l2pm(l2pmKey_);
    // Gi 1/2 is already a ring interface whose ownership the manager holds, so the handlers
    // tell L2PM about its VLANs.
    VornPortEntry* owned = vornCreatePortEntry(gi(1, 2), VORN_CREATOR_RING_CONF);
    ASSERT_NE(owned, nullptr);
    owned->isOwnedByRingConf = 1;
    owned->i2RingCount = 1;
    auto before = gVornCounters;

    Dnld d;
    d.ifOnly(kMgmt).ifOnly(vl(10)).ifOnly(vl(20));
    d.port({.ifIndex = po(5), .up = true});
    d.port({.ifIndex = gi(1, 2),
            .up = true,
            .lagIf = po(5),
            .mac = {0x00, 0x01, 0xE8, 0x12, 0x34, 0x56},
            .tagged = 1,
            .vlans = {10, 20}});
    d.port({.ifIndex = gi(1, 3), .mac = {0x02, 0, 0, 0, 0, 0x33}});
    d.ifOnly(vl(30));
    EXPECT_EQ(replay(d.msg()), "");

    ASSERT_EQ(vlansPresent(), (std::vector<int>{10, 20, 30}));
    for (int id : {10, 20, 30}) {
        EXPECT_EQ(W({gVornVlan[id]->u4IfmAttr, gVornVlan[id]->isCreatedByIfm}), (W{0, 1})) << id;
    }
    ASSERT_EQ(portsPresent(), (std::vector<uint32_t>{po(5), gi(1, 2), gi(1, 3)}));
    // Oper state, LAG parent, taken by IFM; the member added to its LAG after its creation.
    auto port = [](uint32_t ifIndex) {
        const VornPortEntry* p = gVornPort[vornPortNumOf(ifIndex)];
        return W{p->u2OperState, p->u2LagParent, p->isCreatedByIfm};
    };
    EXPECT_EQ(port(po(5)), (W{1, 0, 1}));
    EXPECT_EQ(port(gi(1, 2)), (W{1, 5, 1}));
    EXPECT_EQ(port(gi(1, 3)), (W{0, 0, 1}));
    const uint16_t n12 = vornPortNumOf(gi(1, 2));
    EXPECT_EQ(
        W({gVornPort[5]->pLagPortList->members[0], gVornPort[5]->pLagPortList->lastEmptyIndex}),
        (W{n12, 1}));
    EXPECT_EQ(owned->macAddr, (std::array<uint8_t, 6>{0x00, 0x01, 0xE8, 0x12, 0x34, 0x56}));
    EXPECT_EQ(gVornPort[vornPortNumOf(gi(1, 3))]->macAddr,
              (std::array<uint8_t, 6>{0x02, 0, 0, 0, 0, 0x33}));
    EXPECT_EQ(vlanList(owned->vlanBmap), (std::vector<int>{10, 20}));
    for (int id : {10, 20}) {
        EXPECT_TRUE(bmp::test(gVornVlan[id]->portBmap, n12) &&
                    bmp::test(gVornVlan[id]->taggedPortBmap, n12))
            << id;
    }

    // The record creation counts; the intake's own counters stay untouched.
    auto expected = before;
    expected[VORN_CNT_ADD_VLAN] += 3;
    expected[VORN_CNT_ADD_PORT] += 3;
    EXPECT_EQ(gVornCounters, expected);

    // Oper up ran before the port had VLANs, so each VLAN was set forwarding as it came.
    vornFlushPendingMsgs();
    EXPECT_EQ(portStateRecs(l2pm.next()),
              (std::vector<PortStateRec>{{gi(1, 2), {10}, {10}}, {gi(1, 2), {20}, {20}}}));
    EXPECT_TRUE(l2pm.quiet());
}

TEST_F(DnldTest, RecordLengthsCountsAndStall) {
    const PortRec shortPort{.ifIndex = gi(0, 1)};
    const PortRec longPort{.ifIndex = gi(0, 2), .vlans = {40}};
    const struct {
        const char* name;
        std::vector<uint8_t> msg;
        std::vector<int> vlans;
        std::vector<uint32_t> ports;
        bool stopped;  // the walk was cut at the message's edge, with an error line
    } cases[] = {
        // clang-format off
        {"port without bitmap: 144", Dnld().port(shortPort).ifOnly(vl(30)).msg(), {30}, {gi(0, 1)},
         false},
        {"port with bitmap: 1680", Dnld().port(longPort).ifOnly(vl(30)).msg(), {30}, {gi(0, 2)},
         false},
        {"LAG with bitmap: 1680", Dnld().port({.ifIndex = po(9), .vlans = {30}}).ifOnly(vl(31)).msg(),
         {31}, {po(9)}, false},
        {"management port skipped", Dnld().ifOnly(kMgmt).ifOnly(vl(30)).msg(), {30}, {}, false},
        {"other interface stalls", Dnld().ifOnly(vl(30)).ifOnly(kOtherIf).ifOnly(vl(31)).msg(),
         {30}, {}, false},
        {"count 0", Dnld().ifOnly(vl(30)).msg(0), {}, {}, false},
        {"negative count", Dnld().ifOnly(vl(30)).msg(-1), {}, {}, false},
        {"count below the records", Dnld().ifOnly(vl(30)).ifOnly(vl(31)).msg(1), {30}, {}, false},
        {"count past the message", Dnld().ifOnly(vl(30)).ifOnly(vl(31)).msg(1000), {30, 31}, {},
         true},
        {"huge count on a stalled record", Dnld().ifOnly(kOtherIf).msg(INT32_MAX), {}, {}, true},
        {"count with no records", Dnld().msg(5), {}, {}, true},
        // Records cut short by the message's end or its length word are not replayed.
        {"long record cut", cut(Dnld().ifOnly(vl(30)).port(longPort).msg(), 256 + 144 + 700),
         {30}, {}, true},
        {"short record cut", cut(Dnld().ifOnly(vl(30)).ifOnly(vl(31)).msg(), 256 + 144 + 40),
         {30}, {}, true},
        {"length word short", cut(Dnld().ifOnly(vl(30)).ifOnly(vl(31)).msg(), 256 + 144, true),
         {30}, {}, true},
        {"flag byte outside", cut(Dnld().ifOnly(vl(30)).port(shortPort).msg(), 256 + 144 + 20),
         {30}, {}, true},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string out = replay(c.msg);
        EXPECT_EQ(vlansPresent(), c.vlans);
        EXPECT_EQ(portsPresent(), c.ports);
        EXPECT_EQ(out.find("download stopped") != std::string::npos, c.stopped) << out;
        clearTables();
    }
}

}  // namespace
}  // namespace vorn::test
