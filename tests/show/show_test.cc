// Show, debug and clear in the manager: the record bytes of the show answers, their paging,
// the agent's statistics (answered, silent, absent), the debug lines and download records,
// and the clear messages per slot.

#include <gtest/gtest.h>

#include <map>
#include <thread>

#include "agent/agent_fixture.h"
#include "config/cfg_fixture.h"
#include "platform/cfgstore.h"
#include "wire/show.h"

namespace vorn::test {
namespace {

namespace sh = vorn::show;

struct Answer {
    int32_t status = 0;
    uint32_t more = 0;
    std::array<uint32_t, 4> paging{};  // ring id, cursor, single, continuation
    Bytes data;
};

class ShowTest : public AgentTest {
protected:
    void SetUp() override {
        AgentTest::SetUp();
        cli_ = openPeer(40, 1);
    }
    // A show request as the command line sends it (the code at 72, the answer size at 76,
    // one input parameter, the paging state at 84), served by the manager's dispatch.
    Answer show(uint32_t code, std::array<uint32_t, 4> paging) {
        CliReq req = CliReq(code, 0).u32(76, 2048).u32(80, 1);
        for (size_t i = 0; i < 4; ++i) req.u32(84 + 4 * i, paging[i]);
        Bytes a = serve(cli_, req.buf().data(), req.buf().size(), 2000);
        Answer out;
        be::Reader rd(a.data(), a.size());
        EXPECT_EQ(rd.u32(ipc::kOffMtype), 6002u);
        out.status = rd.i32(60);
        out.more = rd.u32(64);
        for (size_t i = 0; i < 4; ++i) out.paging[i] = rd.u32(68 + 4 * i);
        auto data = rd.view(88, rd.u32(84));
        EXPECT_EQ(a.size(), 88 + data.size());
        out.data.assign(data.begin(), data.end());
        return out;
    }
    // A debug or clear request, served; returns the reply status (64).
    uint32_t request(CliReq req) {
        Bytes reply = serve(cli_, req.buf().data(), req.buf().size(), 2000);
        return be::Reader(reply.data(), reply.size()).u32(64);
    }
    uint32_t debug(uint32_t ring, uint8_t off, uint32_t type, uint32_t mode, uint32_t count = 0) {
        return request(CliReq(type, 0)
                           .u32(64, ring)
                           .u32(68, uint32_t{off} << 24)
                           .u32(76, mode)
                           .u32(80, count));
    }
    uint32_t clear(uint16_t ring) { return request(CliReq(nm::kTypeClearStat, 0).u16(124, ring)); }
    static std::string text(const Bytes& rec, size_t off, size_t width) {
        std::string s(rec.begin() + static_cast<long>(off),
                      rec.begin() + static_cast<long>(off + width));
        return s.substr(0, s.find('\0'));
    }
    std::string debugConfig() {
        vorn::host::cfgStoreCommit();
        return runFile("debug-config");
    }
    QelKey cli_ = -1;
};

TEST_F(ShowTest, DetailRecordCarriesTheRingAndTheAgentsCountersInTheirOrder) {
    VornRingEntry* ring = makeReadyRing(5, 10, gi(0, 1), gi(1, 1), 1);
    ring->u1Mode = VORN_MODE_MASTER;
    ring->u4PriPortState = VORN_PORT_FORW;
    ring->u4SecPortState = VORN_PORT_BLOCKING;
    ring->u2HelloTime = 300;
    gVornPort[ring->u2PriPortNum]->macAddr = {0x00, 0x01, 0xe8, 0x0a, 0x0b, 0xfe};
    ring->u2DesgLineCard = 1;
    QelKey agent = addAgent(1);
    // The agent answers in place: counters 11..16 at 64..84.
    std::vector<Bytes> asked;
    std::thread answer = answerInPlace(agent, &asked, [](size_t, Bytes& m) {
        for (uint32_t i = 0; i < 6; ++i) be::Writer(m.data(), m.size()).u32(64 + 4 * i, 11 + i);
    });
    Answer a = show(sh::kCodeDetail, {5, 0, 0, 0});
    answer.join();
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(words(asked[0], {60}), (std::vector<uint32_t>{5})) << "the ring asked for";
    ASSERT_EQ(a.status, 0);
    EXPECT_EQ(a.more, 0u);
    ASSERT_EQ(a.data.size(), 176u);
    const struct {
        size_t off, width;
        const char* want;
    } fields[] = {
        {0, 9, "  5"},
        {9, 10, "Master"},
        {19, 7, "UP"},
        {26, 26, "GigabitEthernet 0/1"},
        {52, 14, "Forwarding"},
        {66, 26, "GigabitEthernet 1/1"},
        {92, 14, "Blocking"},
        {106, 11, "10 "},
        {117, 5, "300"},
        {122, 5, "1500"},
        {127, 25, "00:01:e8:0a:0b:fe"},
    };
    for (const auto& f : fields) EXPECT_EQ(text(a.data, f.off, f.width), f.want) << f.off;
    // Counter words: the answer's words at 72, 76, 64, 68, 80, 84.
    be::Reader rd(a.data.data(), a.data.size());
    const uint32_t want[] = {13, 14, 11, 12, 15, 16};
    for (size_t i = 0; i < 6; ++i) EXPECT_EQ(rd.u32(152 + 4 * i), want[i]) << i;
}

TEST_F(ShowTest, CountersAreZeroWithoutAnAgentOrWithoutAnAnswer) {
    VornRingEntry* ring = makeRing(5);
    QelKey agent = addAgent(1);
    for (const char* c : {"no designated line card", "silent agent"}) {
        SCOPED_TRACE(c);
        ring->u2DesgLineCard = std::string(c) == "silent agent" ? 1 : VORN_NO_LINE_CARD;
        Answer a = show(sh::kCodeDetail, {5, 0, 0, 0});
        ASSERT_EQ(a.data.size(), 176u);
        EXPECT_EQ(Bytes(a.data.begin() + 152, a.data.end()), Bytes(24, 0));
        // The request went out only to a designated agent (sent before the answer came).
        EXPECT_EQ(recvOn(agent, 0).size(), ring->u2DesgLineCard == 1 ? 88u : 0u);
    }
}

TEST_F(ShowTest, UnknownRingGetsStatusMinusOneAndChangesNothing) {
    makeRing(5);
    for (uint32_t code : {sh::kCodeDetail, sh::kCodeMemberVlans}) {
        Answer a = show(code, {9, 0, 0, 0});
        EXPECT_EQ(a.status, -1);
        EXPECT_EQ(a.data, (Bytes{0, 0, 0, 19}));
    }
    // Ring id 65541 is not ring 5; the summary of one missing ring is empty.
    EXPECT_EQ(show(sh::kCodeDetail, {65541, 0, 0, 0}).status, -1);
    Answer s = show(sh::kCodeSummary, {9, 0, 1, 0});
    EXPECT_EQ(s.status, 0);
    EXPECT_TRUE(s.data.empty());
    EXPECT_EQ(debug(9, 0, 0xBBBB, 0), 0xFFFFu);
    EXPECT_EQ(debugConfig(), "");
    EXPECT_EQ(clear(9), 0u);  // clear: logged only
}

TEST_F(ShowTest, SummaryPagesHoldEveryRingOnceAndCarryLongVlanListsOn) {
    for (uint16_t id = 1; id <= 255; ++id) makeRing(id);
    std::string want;  // odd VLANs 101..299 and the run 400-420: longer than one line
    for (uint16_t v = 101; v < 300; v += 2) {
        bmp::set(gVornRing[30]->memberVlanBmap, v);
        want += (want.empty() ? "" : ",") + std::to_string(v);
    }
    for (uint16_t v = 400; v <= 420; ++v) bmp::set(gVornRing[30]->memberVlanBmap, v);
    want += ",400-420";
    std::map<uint32_t, int> seen;
    std::string ring30;
    std::array<uint32_t, 4> paging{1, 0, 0, 0};
    int pages = 0;
    for (uint32_t more = 1; more != 0 && pages < 100; ++pages) {
        Answer a = show(sh::kCodeSummary, paging);
        ASSERT_EQ(a.status, 0);
        ASSERT_EQ(a.data.size() % 75, 0u);
        ASSERT_LE(a.data.size(), 2048u);
        for (size_t off = 0; off < a.data.size(); off += 75) {
            std::string id = text(a.data, off, 9);
            std::string vlans = text(a.data, off + 37, 38);
            if (!id.empty()) ++seen[std::stoul(id)];
            if (id.empty() || id == "30") ring30 += vlans;
            if (id.empty()) {
                EXPECT_EQ(text(a.data, off + 9, 28), "") << "a continuation line";
            }
        }
        // A page ends when fewer than 80 bytes are left, or inside ring 30's list.
        if (a.more != 0 && a.paging[3] == 0) {
            EXPECT_LT(2048 - a.data.size(), 80u);
        }
        more = a.more;
        paging = a.paging;
    }
    EXPECT_EQ(seen.size(), 255u);
    for (const auto& [id, n] : seen) EXPECT_EQ(n, 1) << "ring " << id;
    EXPECT_EQ(ring30, want);
    EXPECT_GE(pages, 10);
}

TEST_F(ShowTest, MemberVlanTextBreaksLinesThatReadAsTheList) {
    VornRingEntry* ring = makeRing(5);
    const struct {
        std::vector<std::pair<uint16_t, uint16_t>> runs;
        size_t width;
        std::vector<std::string> lines;
    } cases[] = {
        {{{2, 2}, {5, 9}, {12, 12}}, 38, {"2,5-9,12"}},
        {{{1, 4095}}, 38, {"1-4095"}},
        // A line ends with "," when fewer than 6 characters are left for the next VLAN:
        // inside a run (at 301) and at a gap (before 1007).
        {{{100, 103}, {200, 200}, {300, 330}}, 20, {"100-103,200,300,", "301-330"}},
        {{{1000, 1003}, {1005, 1005}, {1007, 1007}}, 16, {"1000-1003,1005,", "1007"}},
    };
    for (const auto& c : cases) {
        ring->memberVlanBmap.fill(0);
        for (auto [lo, hi] : c.runs)
            for (uint32_t v = lo; v <= hi; ++v) bmp::set(ring->memberVlanBmap, v);
        std::vector<std::string> lines;
        uint32_t cursor = 0, cont = 0;
        do {
            std::vector<char> text(c.width, 'x');
            vornFillMemberVlan(5, &cursor, &cont, text);
            lines.emplace_back(text.data());
            ASSERT_EQ(text.back(), '\0');
        } while (cont != 0 && lines.size() < 10);
        EXPECT_EQ(cursor, 0u);
        EXPECT_EQ(lines, c.lines) << c.lines[0];
    }
}

TEST_F(ShowTest, DebugSettingsReachTheConfigurationAndTheDesignatedAgent) {
    QelKey agent = addAgent(1);
    VornRingEntry* ring = makeRing(5);
    ring->u2DesgLineCard = 1;
    makeRing(6);  // no designated line card: its settings stay through undebug all
    // What the agent of slot 1 gets after a request: one record (or none).
    auto download = [&]() {
        Bytes m = recvOn(agent, 0);  // the flush after the dispatch sent it
        if (!m.empty()) {
            ackAsAgent(agent, m);
            vornMainLoopPass(0);
        }
        return m;
    };
    ASSERT_EQ(debug(5, 0, 0xAAAA, 0x01, 10), 0u);  // detail Rx, count 10: index 2
    Bytes m = download();
    ASSERT_EQ(m.size(), 132u + 116u);
    EXPECT_EQ(be::Reader(m.data(), m.size()).u32(ipc::kOffMtype), 0x6406u);
    EXPECT_EQ(Bytes(m.begin() + 124, m.begin() + 136),
              hex("00000000 00000001 0005 0000"));  // undebug-all flag, count, ring 5
    EXPECT_EQ(Bytes(m.begin() + 136 + 32, m.begin() + 152 + 32),
              hex("01 00 0000 0000AAAA 00000001 0000000A"));           // set, on, type, mode, count
    EXPECT_EQ(Bytes(m.begin() + 136, m.begin() + 168), Bytes(32, 0));  // entries 0, 1 unset
    EXPECT_EQ(Bytes(m.begin() + 184, m.end()), Bytes(64, 0));          // entries 3..6 unset
    ASSERT_EQ(debug(6, 0, 0xBBBB, 0), 0u);
    EXPECT_TRUE(download().empty());
    // Mode 2 is no mode of packet debugging: the entry of event debugging carries it.
    ASSERT_EQ(debug(5, 0, 0xCCCC, 0x02), 0u);
    m = download();
    ASSERT_EQ(m.size(), 248u);
    EXPECT_EQ(Bytes(m.begin() + 136, m.begin() + 152),
              hex("01 00 0000 0000CCCC 00000002 00000000"));
    EXPECT_EQ(debugConfig(),
              "VORN:\r\n"
              " VORN ring 5 detail debugging is on for Rx (count 10)\r\n"
              " VORN ring 5 event debugging is on\r\n"
              " VORN ring 6 event debugging is on\r\n");

    // Undebug all (the event log's message): an undebug-all record for slot 1; ring 6 keeps
    // its settings, and the configuration stays as it is.
    const std::string before = debugConfig();
    Bytes undebug(60, 0);
    be::Writer(undebug.data(), 60).u32(ipc::kOffMlen, 60);
    be::Writer(undebug.data(), 60).u32(ipc::kOffMtype, 2003);
    be::Writer(undebug.data(), 60).u32(ipc::kOffDstSvce, (226u << 20) | 1);
    serve(cli_, undebug.data(), undebug.size(), 0);
    m = download();
    ASSERT_EQ(m.size(), 248u);
    EXPECT_EQ(Bytes(m.begin() + 124, m.begin() + 132), hex("00000001 00000001"));
    EXPECT_EQ(Bytes(m.begin() + 132, m.end()), Bytes(116, 0));
    EXPECT_EQ(ring->dbgCfg[2].isSet, 0u);
    EXPECT_EQ(gVornRing[6]->dbgCfg[0].isSet, 1u);
    EXPECT_EQ(debugConfig(), before);

    // Turning settings off takes their lines out, and the header with the last one that is
    // on; the line of the mode-2 request has its own key and stays.
    EXPECT_EQ(debug(5, 1, 0xAAAA, 0x01), 0u);
    EXPECT_EQ(debug(6, 1, 0xBBBB, 0), 0u);
    EXPECT_EQ(debugConfig(), " VORN ring 5 event debugging is on\r\n");
}

TEST_F(ShowTest, ClearGoesToTheAgentsOfTheAffectedRingsOnly) {
    QelKey a1 = addAgent(1), a2 = addAgent(2);
    makeRing(5)->u2DesgLineCard = 1;
    makeRing(6)->u2DesgLineCard = 1;
    makeRing(7)->u2DesgLineCard = 2;
    makeRing(8)->u2DesgLineCard = 3;  // no agent in slot 3: skipped
    makeRing(9);                      // no designated line card
    const struct {
        uint16_t ring;
        bool toSlot1, toSlot2;
    } cases[] = {{0, true, true}, {5, true, false}, {7, false, true}, {9, false, false}};
    std::array<uint32_t, 2> seq{};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.ring);
        EXPECT_EQ(clear(c.ring), 0u);
        int slot = 0;
        for (QelKey agent : {a1, a2}) {
            Bytes m = recvOn(agent, 0);  // sent at once, not through the pending buffers
            bool want = slot == 0 ? c.toSlot1 : c.toSlot2;
            ASSERT_EQ(m.size(), want ? 128u : 0u);
            if (want) {
                be::Reader rd(m.data(), m.size());
                EXPECT_EQ(rd.u32(ipc::kOffMtype), 0x6407u);
                EXPECT_EQ(rd.u16(124), c.ring);
                EXPECT_EQ(rd.u32(64), ++seq[slot]);  // one message per slot and request
                ackAsAgent(agent, m);
                vornMainLoopPass(0);
            }
            ++slot;
        }
    }
}

}  // namespace
}  // namespace vorn::test
