// The simulator's side of the peer pair: the peer-status event and the interface-mode-change
// records as the manager's request queue gets them, the PDUs it delivers to DIR/peer.icl and
// takes from DIR/peer.tx, and two links paired with each other.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <tuple>
#include <vector>

#include "platform/evtlog.h"
#include "platform/swp.h"
#include "sim/chassis_sim.h"
#include "sim_test_util.h"
#include "support/rundir.h"

namespace vorn {
namespace {

using test::Bytes;
using test::hex;
using test::TestSocket;
using test::u32At;
using test::words;
using W = std::vector<uint32_t>;

constexpr uint32_t kPo5 = 0x16000005;
constexpr uint32_t kPo9 = 0x16000009;
constexpr uint32_t kGi01 = 0x0A000100;

// The chassis in attach mode, with the test as its manager.
class PeerPairSimTest : public test::PlatformTest {
protected:
    void SetUp() override {
        sim::SimOptions opts;
        opts.rundir = rundir_.path();
        opts.attach = true;
        chassis_ = std::make_unique<sim::ChassisSim>(opts);
        std::string err;
        ASSERT_TRUE(chassis_->start(&err)) << err;
        ASSERT_TRUE(test::serveUntil(loop(), [&] { return chassis_->l2pm().queueHandle() != 0; }));
    }
    sim::EventLoop& loop() { return chassis_->loop(); }
    sim::CommandResult run(const std::string& line) { return chassis_->commands().run(line); }
    // The next message of a type to the manager.
    Bytes next(uint32_t mtype) {
        Bytes msg;
        test::serveUntil(loop(), [&] {
            msg = mgr_.receive(0);
            return !msg.empty() && u32At(msg, 12) == mtype;
        });
        return msg;
    }
    std::string path(const char* name) const { return rundir_.path() + "/" + name; }

    test::FakeManager mgr_;
    std::unique_ptr<sim::ChassisSim> chassis_;
};

TEST_F(PeerPairSimTest, PeerStatusEventCarriesStatusAndRoleAfterTheSlotWord) {
    QelKey evlog = qelEvtOpenlog("VORN", 0, 226, 0);
    ASSERT_EQ(test::whileServing(loop(),
                                 [&] { return qelEvhSubscribeEvt(evlog, 2, 0x44800B, 0x44800E); }),
              0);
    EXPECT_EQ(chassis_->evh().subscribers().at(test::kQueue226),
              (std::set<uint32_t>{0x44800B, 0x44800E}));
    struct Case {
        const char* line;
        uint32_t status, role;
    };
    for (const Case& c : {Case{"peer up", 1, 1}, Case{"peer up 4294967295", 1, 0xFFFFFFFF},
                          Case{"peer down", 2, 0}}) {
        SCOPED_TRACE(c.line);
        sim::CommandResult r = run(c.line);
        EXPECT_NE(r.text.find("sent to 1 subscriber"), std::string::npos) << r.text;
        EXPECT_EQ(words(next(2009), {8, 64, 68, 72, 76}), (W{80, 0x44800E, 0, c.status, c.role}));
    }
    EXPECT_FALSE(run("peer up 4294967296").ok);
    EXPECT_EQ(chassis_->evh().counters().eventsSent, 3u);
}

TEST_F(PeerPairSimTest, ModeChangeRecordsTellTheIclAndThePeerPairPortChannels) {
    using Rec = std::tuple<uint32_t, uint32_t, uint32_t>;  // ifIndex, value, mode type
    struct Case {
        const char* line;
        std::vector<Rec> records;
    };
    const Case cases[] = {
        {"lag 5 zil 7", {{kPo5, 7, 4}}},
        {"lag 5 zil 130", {{kPo5, 130, 4}}},  // sent: the manager refuses it
        {"lag 5 zil none", {{kPo5, 130, 8}}},
        {"lag 5 zil none", {{kPo5, 0, 8}}},
        {"icl gi 0/1", {{kGi01, 0, 16}}},
        {"icl po 5", {{kGi01, 0, 32}, {kPo5, 0, 16}}},  // the old link stops being it first
        {"icl po5 none", {{kPo5, 0, 32}}},
        {"lag 9 zil 129", {{kPo9, 129, 4}}},
        {"icl po 9", {{kPo9, 0, 16}}},
    };
    uint32_t swp[2] = {0, 0};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        ASSERT_TRUE(run(c.line).ok);
        Bytes m = next(10908);
        EXPECT_EQ(qelSwpCkSeqAndAck(m.data(), swp, mgr_.reqFd()), 0);  // lets the next one go
        ASSERT_EQ(u32At(m, 124), c.records.size());
        for (size_t i = 0; i < c.records.size(); ++i) {
            const size_t rec = 136 + 30 * i;
            auto [ifIndex, value, mode] = c.records[i];
            EXPECT_EQ(words(m, {rec}), W{(25u << 16) | 30});  // type, length
            EXPECT_EQ(words(m, {rec + 4, rec + 8, rec + 12, rec + 26}),
                      (W{ifIndex, value, 128, mode}));
        }
    }
    EXPECT_FALSE(run("lag 5 zil 65536").ok);
    EXPECT_FALSE(run("icl po 5 gone").ok);
    EXPECT_EQ(chassis_->chassis().icl(), kPo9);
}

TEST_F(PeerPairSimTest, PduCommandDeliversIfIndexAndBytesToTheLinkSocket) {
    EXPECT_NE(run("icl pdu po 5 05").text.find("nothing is bound at " + path("peer.icl")),
              std::string::npos);
    TestSocket icl(path("peer.icl"));
    struct Case {
        std::string line;
        Bytes datagram;  // empty when refused
    };
    Bytes longest = hex("16000005");
    longest.resize(4 + 8188, 0xee);
    const Case cases[] = {
        {"icl pdu po 5 05 00 00 04 00 32 00 00", hex("16000005 0500000400320000")},
        {"icl pdu gi0/1 0x5 a 0500ff", hex("0a000100 05 0a 0500ff")},
        {"icl pdu po 5", {}},
        {"icl pdu po 5 0g", {}},
        {"icl pdu po 5 123", {}},
        {"icl pdu po 5 " + std::string(2 * 8188, 'e'), longest},
        {"icl pdu po 5 " + std::string(2 * 8189, 'e'), {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line.substr(0, 40));
        sim::CommandResult r = run(c.line);
        EXPECT_EQ(r.ok, !c.datagram.empty()) << r.text;
        if (r.ok) {
            EXPECT_EQ(icl.receive(loop()), c.datagram);
        }
    }
}

TEST_F(PeerPairSimTest, PdusFromTheManagerAreKeptAndShown) {
    TestSocket mgrLink;
    mgrLink.sendTo(path("peer.tx"), hex("16000005 0500000400320000"));
    mgrLink.sendTo(path("peer.tx"), hex("160000"));  // no room for the ifIndex
    const sim::PeerLink& link = chassis_->peerLink();
    ASSERT_TRUE(test::serveUntil(loop(), [&] { return link.counters().malformed == 1; }));
    sim::CommandResult r = run("icl show");
    EXPECT_NE(r.text.find("#1     Po 5      length 8     type 5   05 00 00 04 00 32 00 00\n"),
              std::string::npos)
        << r.text;
    sim::Json j = sim::Json::parse(run("show icl --json").text);
    EXPECT_EQ(j["pdus"][0]["first_bytes"], "05 00 00 04 00 32 00 00");
    // The last 64 are kept.
    for (uint64_t n = 2; n <= 65; ++n) {  // one at a time: the socket's queue is short
        mgrLink.sendTo(path("peer.tx"), hex("16000005 05"));
        ASSERT_TRUE(test::serveUntil(loop(), [&] { return link.counters().fromManager == n; }));
    }
    EXPECT_EQ(link.kept().size(), 64u);
    EXPECT_EQ(link.kept().front().number, 2u);
}

// Two links paired with each other, as two vornsim of two chassis: A's manager sends on its
// ICL Po 5; B's manager gets the PDU on B's own ICL.
TEST(PeerLinkPairing, ForwardsWholeAndRewritesTheIfIndexToTheReceiversIcl) {
    test::RunDir dir;
    const std::string a = dir.path() + "/a", b = dir.path() + "/b";
    ASSERT_EQ(mkdir(a.c_str(), 0700), 0);
    ASSERT_EQ(mkdir(b.c_str(), 0700), 0);
    uint32_t iclB = kPo9;
    sim::PeerLink linkA(a, b, [] { return kPo5; });
    sim::PeerLink linkB(b, a, [&] { return iclB; });
    std::string err;
    ASSERT_TRUE(linkA.open(&err)) << err;
    ASSERT_TRUE(linkB.open(&err)) << err;
    sim::EventLoop loop;
    loop.add(&linkA);
    loop.add(&linkB);
    TestSocket managerA, managerB(b + "/peer.icl");

    for (uint32_t icl : {kPo9, 0u}) {
        iclB = icl;
        managerA.sendTo(a + "/peer.tx", hex("16000005 0500000400320000"));
        EXPECT_EQ(words(managerB.receive(loop), {0, 4, 8}), (W{icl, 0x05000004, 0x00320000}));
    }
    EXPECT_EQ(linkA.counters().forwarded, 2u);
    EXPECT_EQ(linkB.counters().delivered, 2u);
    // The other way, A's manager has no link socket: counted, not delivered.
    managerA.sendTo(b + "/peer.tx", hex("16000009 05"));
    ASSERT_TRUE(test::serveUntil(loop, [&] { return linkA.counters().notDelivered == 1; }));
    // A partner that went away.
    linkB.close();
    managerA.sendTo(a + "/peer.tx", hex("16000005 05"));
    ASSERT_TRUE(test::serveUntil(loop, [&] { return linkA.counters().notForwarded == 1; }));
    EXPECT_NE(linkA.statusLine().find("not there yet"), std::string::npos);
}

}  // namespace
}  // namespace vorn
