// Port ownership with L2PM: the request's bytes, the reading of the answer, a failed exchange,
// and the taking of a ring's two interfaces with its reply codes.

#include <map>
#include <thread>

#include "l2pm/l2pm_test_util.h"
#include "support/mgr_fixture.h"

namespace vorn::test {
namespace {

using namespace l2pmt;

enum class Answer { Accept, Refuse, Garble };

// L2PM answering `count` port-ownership requests in place, port by port as told (accepting
// ports it is not told of).
std::thread ownershipL2pm(QelKey key, std::map<uint32_t, Answer> policy, std::vector<Bytes>* seen,
                          size_t count) {
    auto answer = [policy](size_t, Bytes& m) {
        auto it = policy.find(be::Reader(m.data(), m.size()).u32(264));
        Answer a = it == policy.end() ? Answer::Accept : it->second;
        be::Writer(m.data(), m.size())
            .u32(260, a == Answer::Refuse   ? 1
                      : a == Answer::Garble ? 200
                                            : 0);
    };
    return answerInPlace(key, seen, answer, count);
}

using PortOwnershipTest = MgrTest;

TEST_F(PortOwnershipTest, RequestBytesAndAnswers) {
    QelKey key = openPeer(166, 0);
    const uint32_t port = gi(1, 3);
    const struct {
        int action;
        Answer answer;
        int rc, refused;
    } cases[] = {
        {0, Answer::Accept, 0, 0}, {0, Answer::Refuse, -1, -1}, {0, Answer::Garble, -1, 0},
        {1, Answer::Accept, 0, 0}, {1, Answer::Refuse, 0, 0},   {1, Answer::Garble, -1, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "action " << c.action << " answer " << int(c.answer));
        std::vector<Bytes> seen;
        std::thread l2pm = ownershipL2pm(key, {{port, c.answer}}, &seen, 1);
        int refused = 7;
        EXPECT_EQ(vornPortOwnership(port, c.action, &refused), c.rc);
        EXPECT_EQ(refused, c.refused);
        l2pm.join();
        ASSERT_EQ(seen.size(), 1u);
        std::vector<uint8_t> m = seen[0];
        ASSERT_EQ(m.size(), 588u);
        be::Reader r(m.data(), m.size());
        EXPECT_EQ(r.u32(ipc::kOffMtype), 18403u);
        EXPECT_EQ(r.u32(ipc::kOffMlen), 588u);
        EXPECT_EQ(
            std::vector<uint32_t>({r.u32(248), r.u32(252), r.u32(256), r.u32(260), r.u32(264)}),
            std::vector<uint32_t>({7, 3, uint32_t(c.action), 1, port}));
        m.erase(m.begin() + 248, m.begin() + 268);
        m.erase(m.begin(), m.begin() + 60);
        EXPECT_EQ(m, std::vector<uint8_t>(588 - 80, 0)) << "reserved and unused list bytes";
    }
}

TEST_F(PortOwnershipTest, TakingRingInterfaces) {
    QelKey key = openPeer(166, 0);
    const uint32_t P = gi(0, 5), S = gi(0, 11);
    struct Port {
        bool exists = true;
        uint8_t byIfm = 1, owned = 0;
        Answer answer = Answer::Accept;
    };
    constexpr Answer kRefuse = Answer::Refuse, kGarble = Answer::Garble;
    using Asked = std::vector<std::pair<uint32_t, uint32_t>>;  // (action, ifIndex)
    const struct {
        const char* name;
        Port p, s;
        uint32_t force;
        uint16_t status;  // 0: success
        Asked asked;
        uint8_t pOwned, sOwned;
    } cases[] = {
        {"both taken", {}, {}, 1, 0, {{0, P}, {0, S}}, 1, 1},
        {"primary refused", {.answer = kRefuse}, {}, 1, 9, {{0, P}}, 0, 0},
        {"secondary refused", {}, {.answer = kRefuse}, 1, 10, {{0, P}, {0, S}, {1, P}}, 0, 0},
        {"primary broken", {.answer = kGarble}, {}, 1, 14, {{0, P}}, 0, 0},
        {"secondary broken", {}, {.answer = kGarble}, 1, 14, {{0, P}, {0, S}, {1, P}}, 0, 0},
        {"forced take leaves the port unmarked", {.byIfm = 0}, {}, 1, 0, {{0, P}, {0, S}}, 0, 1},
        {"no force, no take", {.byIfm = 0}, {}, 0, 0, {{0, S}}, 0, 1},
        {"forced, undo", {.byIfm = 0}, {.answer = kRefuse}, 1, 10, {{0, P}, {0, S}, {1, P}}, 0, 0},
        {"owned ports not asked", {.owned = 1}, {.owned = 1}, 1, 0, {}, 1, 1},
        {"unknown ports not asked", {.exists = false}, {.exists = false}, 1, 0, {}, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (auto [ifIndex, want] : {std::pair{P, c.p}, std::pair{S, c.s}}) {
            vornCheckAndDeletePortEntry(ifIndex, VORN_CREATOR_IFM);
            if (!want.exists) continue;
            VornPortEntry* port = makePort(ifIndex, {});
            ASSERT_NE(port, nullptr);
            port->isCreatedByIfm = want.byIfm;
            port->isOwnedByRingConf = want.owned;
        }
        gHalVornForcePortOwnerShip = c.force;
        std::array<uint8_t, vorn::nm::kLen> request{};
        std::vector<Bytes> seen;
        std::thread l2pm =
            ownershipL2pm(key, {{P, c.p.answer}, {S, c.s.answer}}, &seen, c.asked.size());
        EXPECT_EQ(vornTakeRingInterfaceOwnership(request.data(), P, S), c.status == 0 ? 0 : -1);
        l2pm.join();
        Asked asked;
        for (const auto& m : seen)
            asked.emplace_back(be::Reader(m.data(), m.size()).u32(256),
                               be::Reader(m.data(), m.size()).u32(264));
        EXPECT_EQ(asked, c.asked);
        EXPECT_EQ(be::Reader(request.data(), request.size()).u16(vorn::nm::kOffStatus), c.status);
        const VornPortEntry* p = vornGetPort(vornPortNumOf(P));
        const VornPortEntry* s = vornGetPort(vornPortNumOf(S));
        EXPECT_EQ(p ? p->isOwnedByRingConf : 0, c.pOwned);
        EXPECT_EQ(s ? s->isOwnedByRingConf : 0, c.sOwned);
    }
    gHalVornForcePortOwnerShip = 1;

    // Without L2PM the primary counts as refused; giving a port back succeeds all the same.
    qelIpcClose(key);
    ASSERT_TRUE(makePort(P) && makePort(S));
    std::array<uint8_t, vorn::nm::kLen> request{};
    EXPECT_EQ(vornTakeRingInterfaceOwnership(request.data(), P, S), -1);
    EXPECT_EQ(be::Reader(request.data(), request.size()).u16(vorn::nm::kOffStatus), 9);
    int refused = 7;
    EXPECT_EQ(vornPortOwnership(P, 1, &refused), 0);
    EXPECT_EQ(refused, 0);
}

}  // namespace
}  // namespace vorn::test
