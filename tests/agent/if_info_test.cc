// Interface-information records as a test agent receives them: the full download byte for
// byte (VLANs before ports, 20- and 532-byte records, the LAG parent), the buffer split at
// the 8192-byte edge and buffer exhaustion.

#include <cstring>
#include <string>
#include <vector>

#include "agent_fixture.h"

#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

constexpr uint32_t kMsgIfInfo = 0x6403;

// A 20-byte record with `id` as its ifIndex; with VLANs, byte 19 set and the bitmap holding
// VLAN id % 4096, so that every record of a split test can be told apart.
struct Rec {
    std::vector<uint8_t> head = std::vector<uint8_t>(20);
    VornVlanBmap vlans{};
};
Rec makeRec(uint32_t id, bool withVlans) {
    Rec r;
    be::Writer w(r.head.data(), r.head.size());
    w.u32(0, id);
    w.u8(19, withVlans ? 1 : 0);
    if (withVlans) bmp::set(r.vlans, id % 4096);
    return r;
}
std::vector<uint8_t> wireOf(const Rec& r) {
    std::vector<uint8_t> out = r.head;
    if (r.head[19] == 1) out.insert(out.end(), r.vlans.begin(), r.vlans.end());
    return out;
}

class IfInfoTest : public AgentTest {
protected:
    // Checks the fixed part of a received 0x6403 message and returns its record bytes.
    static std::vector<uint8_t> records(const std::vector<uint8_t>& m, uint32_t count) {
        EXPECT_GE(m.size(), 132u);
        if (m.size() < 132) return {};
        // Type, length, IfInfoLen (the record bytes) and the record count.
        EXPECT_EQ(words(m, {ipc::kOffMtype, ipc::kOffMlen, 124, 128}),
                  (std::vector<uint32_t>{kMsgIfInfo, uint32_t(m.size()), uint32_t(m.size() - 132),
                                         count}));
        return {m.begin() + 132, m.end()};
    }
};

TEST_F(IfInfoTest, FullDownloadIsByteExact) {
    QelKey agent = addAgent(2);
    VornVlanEntry* v20 = vornCreateVlanEntry(vl(20), 1);
    VornVlanEntry* v7 = vornCreateVlanEntry(vl(7), 1);
    ASSERT_TRUE(v20 && v7);
    v7->u4IfmAttr = 0x01020304;
    // Gi 1/2 (port 195): up, member of Po 5, VLANs 7 and 4095. Po 5 (port 5): no VLANs.
    // Gi 1/3 (port 196): down, its LAG parent 6 has no record.
    VornPortEntry* gi12 = makePort(gi(1, 2));
    VornPortEntry* po5 = makePort(po(5));
    VornPortEntry* gi13 = makePort(gi(1, 3));
    ASSERT_TRUE(gi12 && po5 && gi13);
    gi13->u2OperState = 0;
    gi12->u2LagParent = 5;
    gi12->macAddr = {0x00, 0x01, 0xE8, 0xAA, 0xBB, 0xCC};
    bmp::set(gi12->vlanBmap, 7);
    bmp::set(gi12->vlanBmap, 4095);
    gi13->u2LagParent = 6;
    gi13->macAddr = {0x02, 0, 0, 0, 0, 0x09};
    po5->u2OperState = 0x0101;  // only the low byte goes out

    ASSERT_EQ(vornDnldIfInfoToAgt(2), 0);
    EXPECT_TRUE(recvOn(agent, 0).empty()) << "pending until the flush";
    vornFlushPendingMsgs();
    std::vector<uint8_t> m = recvOn(agent);
    std::vector<uint8_t> got = records(m, 5);
    ASSERT_EQ(got.size(), 4u * 20 + 532);

    // The records: ifIndex, attribute word, LAG parent, MAC address, oper state, whether a
    // VLAN bitmap follows. Vl 7 and Vl 20; Po 5 with the low byte of its oper state;
    // Gi 1/2 in Po 5, up, with VLANs 7 and 4095; Gi 1/3, whose parent has no record: 0.
    Bytes want =
        hex("18000007 01020304 00000000 000000000000 00 00"
            "18000014 00000000 00000000 000000000000 00 00"
            "16000005 00000000 00000000 000000000000 01 00"
            "0a010200 00000000 16000005 0001e8aabbcc 01 01");
    Bytes vlans(512);
    vlans[0] = vlans[511] = 0x01;  // VLANs 7 and 4095
    want.insert(want.end(), vlans.begin(), vlans.end());
    Bytes tail = hex("0a010300 00000000 00000000 020000000009 00 00");
    want.insert(want.end(), tail.begin(), tail.end());
    EXPECT_EQ(got, want);
}

// Records appended one after another: a buffer leaves early only when the next record would
// take it past 8192 bytes, and the records keep their order across the split.
TEST_F(IfInfoTest, BufferSplitsOnlyPastTheEdge) {
    struct Step {
        bool vlans;
        uint32_t length;  // as the caller gives it
        int times;
    };
    const struct {
        const char* name;
        std::vector<Step> steps;
        uint32_t firstCount;  // records in the message that leaves early
    } cases[] = {
        // 15 long records (7980) and 4 short (80) reach 8192 exactly and still fit.
        {"exactly full, mixed", {{true, 532, 15}, {false, 20, 4}, {false, 20, 1}}, 19},
        {"exactly full, short", {{false, 20, 403}, {false, 20, 1}}, 403},
        {"long after short", {{false, 20, 400}, {true, 532, 1}}, 400},
        {"short after long", {{true, 532, 15}, {false, 20, 4}, {true, 532, 1}}, 19},
        // A length that disagrees with byte 19: the bitmap is still copied and fits.
        {"announced short, holds long", {{false, 20, 400}, {true, 20, 1}}, 400},
    };
    QelKey agent = addAgent(4);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<uint8_t> all;
        uint32_t id = 1;
        for (const Step& s : c.steps) {
            for (int i = 0; i < s.times; ++i, ++id) {
                Rec r = makeRec(id, s.vlans);
                ASSERT_EQ(vornFillAndSendIfInfo(4, r.head.data(), r.vlans.data(), s.length), 0);
                std::vector<uint8_t> w = wireOf(r);
                all.insert(all.end(), w.begin(), w.end());
            }
        }
        std::vector<uint8_t> first = recvOn(agent);
        std::vector<uint8_t> firstRecs = records(first, c.firstCount);
        ackAsAgent(agent, first);
        vornFlushPendingMsgs();
        std::vector<uint8_t> second = recvServing(agent);
        std::vector<uint8_t> secondRecs = records(second, id - 1 - c.firstCount);
        ackAsAgent(agent, second);
        while (vornMainLoopPass(0) > 0) {
        }
        firstRecs.insert(firstRecs.end(), secondRecs.begin(), secondRecs.end());
        EXPECT_EQ(firstRecs, all);
    }
}

TEST_F(IfInfoTest, LostBufferLosesOnlyThatRecord) {
    QelKey agent = addAgent(1);
    makePort(gi(0, 1));
    makePort(gi(0, 2));
    vornErrPrint = 1;
    // The first port's buffer cannot be had; the download goes on with the second.
    host::memFailNextForTest(VORN_MEM_PART_ID, VORN_MSG_BUF_SIZE, 1);
    std::string out = captureStdout([] { EXPECT_EQ(vornDnldIfInfoToAgt(1), 0); });
    EXPECT_EQ(out, "vornFillAndSendIfInfo(): Buffer alloc failed. LineCard = 1\r\n");
    vornFlushPendingMsgs();
    std::vector<uint8_t> m = recvOn(agent);
    std::vector<uint8_t> got = records(m, 1);
    EXPECT_EQ(be::Reader(got.data(), got.size()).u32(0), gi(0, 2));

    // A full buffer still leaves when its successor cannot be had.
    ackAsAgent(agent, m);
    while (vornMainLoopPass(0) > 0) {
    }
    Rec r = makeRec(9, true);
    for (int i = 0; i < 15; ++i)
        ASSERT_EQ(vornFillAndSendIfInfo(1, r.head.data(), r.vlans.data(), 532), 0);
    host::memFailNextForTest(VORN_MEM_PART_ID, VORN_MSG_BUF_SIZE, 1);
    out = captureStdout(
        [&] { EXPECT_EQ(vornFillAndSendIfInfo(1, r.head.data(), r.vlans.data(), 532), -1); });
    EXPECT_EQ(out, "vornFillAndSendIfInfo(): Buffer alloc failed. LineCard = 1\r\n");
    EXPECT_EQ(gapVornIfDnldBuf[1], nullptr);
    records(recvOn(agent), 15);
    out = captureStdout(
        [&] { EXPECT_EQ(vornFillAndSendIfInfo(12, r.head.data(), nullptr, 20), -1); });
    EXPECT_EQ(gapVornIfDnldBuf, decltype(gapVornIfDnldBuf){}) << "nothing taken for a bad slot";
}

}  // namespace
}  // namespace vorn::test
