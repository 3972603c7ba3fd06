// Cables between chassis: the datagrams a frame and a cable's state cross as, cut and restore
// at either end as both chassis models and the manager see them, and --link's values.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

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
using W = std::vector<uint32_t>;

constexpr uint32_t kGi01 = 0x0A000100, kGi02 = 0x0A000200, kGi03 = 0x0A000300;
constexpr uint32_t kGi10 = 0x0A010000, kGi11 = 0x0A010100;

std::string makeDir(const std::string& path) {
    EXPECT_EQ(mkdir(path.c_str(), 0700), 0) << path;
    return path;
}

// A and B cabled Gi 0/1 to Gi 0/2; A's Gi 0/3 goes to a far end C that the test plays.
TEST(CablesPairing, FramesAndStatesCrossAsHeaderAndBody) {
    test::RunDir dir;
    const std::string a = makeDir(dir.path() + "/a"), b = makeDir(dir.path() + "/b"),
                      c = makeDir(dir.path() + "/c");
    TestSocket farC(c + "/cable.sock");
    sim::Cables cablesA(a, {{kGi01, b, kGi02}, {kGi03, c, kGi10}});
    sim::Cables cablesB(b, {{kGi02, a, kGi01}});
    uint32_t atB = 0;
    cablesB.setFrameHandler([&](uint32_t ifIndex, std::span<const uint8_t>) { atB = ifIndex; });
    std::string err;
    ASSERT_TRUE(cablesB.open(&err)) << err;
    ASSERT_TRUE(cablesA.open(&err)) << err;
    sim::EventLoop loop;
    loop.add(&cablesA);
    loop.add(&cablesB);
    // Starting, A tells each far end it is there.
    EXPECT_EQ(farC.receive(loop), hex("5643 01 02 0a010000 0a000300 02"));

    const Bytes frame = hex("5652 01 01 00000005 0a000100");
    ASSERT_TRUE(cablesA.send(kGi03, frame));
    EXPECT_EQ(farC.receive(loop), hex("5643 01 01 0a010000 0a000300 5652 01 01 00000005 0a000100"));
    ASSERT_TRUE(cablesA.send(kGi01, frame));
    ASSERT_TRUE(test::serveUntil(loop, [&] { return atB == kGi02; }));
    EXPECT_EQ(cablesB.kept().front().frame, frame);
    EXPECT_FALSE(cablesA.send(kGi02, frame));  // no cable

    // What C sends to A: a frame for Gi 0/3 is taken, anything else counted as malformed.
    farC.sendTo(a + "/cable.sock", hex("5643 01 01 0a000300 0a010000 aa bb"));
    ASSERT_TRUE(test::serveUntil(loop, [&] { return cablesA.kept().size() == 1; }));
    EXPECT_EQ(cablesA.kept().front().frame, hex("aa bb"));
    uint64_t malformed = 0;
    for (const char* d : {"5643 01 01 0a000300 0a010100 aa",  // from Gi 1/1: not the far port
                          "5643 01 01 0a000200 0a010000 aa",  // to Gi 0/2: no cable
                          "5644 01 01 0a000300 0a010000 aa", "5643 01 03 0a000300 0a010000 aa",
                          "5643 01 02 0a000300 0a010000 00 00", "5643 01 01 0a000300 0a0100"}) {
        SCOPED_TRACE(d);
        farC.sendTo(a + "/cable.sock", hex(d));
        EXPECT_TRUE(test::serveUntil(loop, [&] { return cablesA.malformed() == malformed + 1; }));
        malformed = cablesA.malformed();
    }

    // A cut reaches C as a state datagram; frames on the cut cable are dropped both ways.
    std::string text;
    ASSERT_TRUE(cablesA.cut(kGi03, &text));
    EXPECT_EQ(farC.receive(loop), hex("5643 01 02 0a010000 0a000300 00"));
    EXPECT_FALSE(cablesA.send(kGi03, frame));
    farC.sendTo(a + "/cable.sock", hex("5643 01 01 0a000300 0a010000 aa"));
    ASSERT_TRUE(test::serveUntil(loop, [&] { return cablesA.find(kGi03)->dropped == 2; }));
    EXPECT_EQ(cablesA.find(kGi03)->received, 1u);
    // A far end that is not there costs the frame, counted.
    cablesB.close();
    EXPECT_FALSE(cablesA.send(kGi01, frame));
    EXPECT_EQ(cablesA.find(kGi01)->dropped, 1u);
    EXPECT_NE(cablesA.describe().find("(the far end is not there)"), std::string::npos);
}

// The chassis (attach mode, the test as its manager) has Gi 0/1 cabled to Gi 1/1 of a far end
// that the test runs as a bare Cables.
class CableSimTest : public test::PlatformTest {
protected:
    void SetUp() override {
        sim::SimOptions opts;
        opts.rundir = rundir_.path();
        opts.attach = true;
        opts.links = {{kGi01, makeDir(rundir_.path() + "/far"), kGi11}};
        chassis_ = std::make_unique<sim::ChassisSim>(opts);
        startFarEnd();
        std::string err;
        ASSERT_TRUE(chassis_->start(&err)) << err;
        ASSERT_TRUE(test::serveUntil(loop(), [&] { return chassis_->l2pm().queueHandle() != 0; }));
    }
    sim::EventLoop& loop() { return chassis_->loop(); }
    // (Re)starts the far end: a fresh Cables that records its link changes.
    void startFarEnd() {
        if (farCables_) loop().remove(farCables_.get());
        farCables_ = std::make_unique<sim::Cables>(
            rundir_.path() + "/far", std::vector<sim::CableSpec>{{kGi11, rundir_.path(), kGi01}});
        farCables_->setLinkHandler([this](uint32_t ifIndex, bool up) {
            farLinks_.push_back(up ? ifIndex : ~ifIndex);
            return std::string("seen");
        });
        std::string err;
        ASSERT_TRUE(farCables_->open(&err)) << err;
        loop().add(farCables_.get());
    }
    // The oper-state record of the next IFM notification: type and ifIndex; acknowledged.
    W nextOperRecord() {
        Bytes msg;
        test::serveUntil(loop(), [&] {
            msg = mgr_.receive(0);
            return !msg.empty() && u32At(msg, 12) == 10908;
        });
        if (msg.empty()) return {};
        EXPECT_EQ(qelSwpCkSeqAndAck(msg.data(), swp_, mgr_.reqFd()), 0);
        return test::words(msg, {124, 136, 140});
    }

    test::FakeManager mgr_;
    std::unique_ptr<sim::Cables> farCables_;
    std::vector<uint32_t> farLinks_;  // ifIndex when it came up, ~ifIndex when it went down
    std::unique_ptr<sim::ChassisSim> chassis_;
    uint32_t swp_[2] = {0, 0};
};

TEST_F(CableSimTest, CutAndRestoreAtEitherEndMoveBothLinksAndTellTheManager) {
    ASSERT_TRUE(chassis_->chassis().operUp(kGi01));  // cabled: up from the start
    sim::Cables& far = *farCables_;                  // no restart in the loop
    // Cut at the chassis, restore at the far end, cut there, restore at the chassis.
    for (const auto& [atFar, up] :
         {std::pair{false, false}, {true, true}, {true, false}, {false, true}}) {
        SCOPED_TRACE(std::string(atFar ? "far end " : "chassis ") + (up ? "restore" : "cut"));
        std::string text;
        const size_t farBefore = farLinks_.size();
        if (atFar)
            ASSERT_TRUE(up ? far.restore(kGi11, &text) : far.cut(kGi11, &text));
        else
            ASSERT_TRUE(
                chassis_->commands().run(up ? "cable gi0/1 restore" : "cable Gi 0/1 cut").ok);
        ASSERT_TRUE(test::serveUntil(loop(), [&] { return farLinks_.size() > farBefore; }));
        EXPECT_EQ(farLinks_.back(), up ? kGi11 : ~kGi11);
        EXPECT_EQ(nextOperRecord(), (W{1, (up ? 3u : 4u) << 16 | 8, kGi01}));
        EXPECT_EQ(chassis_->chassis().operUp(kGi01), up);
        EXPECT_EQ(far.find(kGi11)->cut, !up);
    }
    // A port on a cut cable stays down; a far end that restarts learns of the cut.
    ASSERT_TRUE(chassis_->commands().run("cable gi 0/1 cut").ok);
    EXPECT_EQ(nextOperRecord(), (W{1, 4u << 16 | 8, kGi01}));
    sim::CommandResult up = chassis_->commands().run("port gi 0/1 up");
    EXPECT_FALSE(up.ok);
    EXPECT_EQ(up.text,
              "Gi 0/1 stays down: its cable is cut ('cable Gi 0/1 restore' brings it back)");
    EXPECT_FALSE(chassis_->chassis().operUp(kGi01));
    startFarEnd();
    EXPECT_TRUE(test::serveUntil(loop(), [&] { return farCables_->find(kGi11)->cut; }));
    sim::Json j = sim::Json::parse(chassis_->commands().run("show cables --json").text);
    EXPECT_EQ(j["cables"][0]["cut"], true);
    EXPECT_EQ(j["cables"][0]["far_interface"], "GigabitEthernet 1/1");
}

TEST(LinkOption, ValuesAreReadOneWayOrRefusedWithOneLine) {
    // The first line of the answer; "" when the options are taken.
    auto parse = [](std::vector<std::string> args, sim::SimOptions* opts) {
        args.insert(args.begin(), "vornsim");
        std::vector<char*> argv;
        for (std::string& s : args) argv.push_back(s.data());
        std::string msg;
        if (sim::parseOptions(static_cast<int>(argv.size()), argv.data(), opts, &msg) ==
            sim::ParseOutcome::Run)
            return std::string();
        return msg.substr(0, msg.find('\n'));
    };
    sim::SimOptions opts;
    ASSERT_EQ(parse({"--te-cards", "1", "--link", "gi0/1=/tmp/a:b=c:Te 1/2"}, &opts), "");
    ASSERT_EQ(opts.links.size(), 1u);
    EXPECT_EQ(W({opts.links[0].ifIndex, opts.links[0].peerIfIndex}), (W{kGi01, 0x0B010200}));
    EXPECT_EQ(opts.links[0].peerDir, "/tmp/a:b=c");
    const std::string longDir = "/" + std::string(100, 'd');
    const std::pair<std::vector<std::string>, std::string> refusals[] = {
        {{"Gi 0/1=/tmp/b"},
         "bad --link 'Gi 0/1=/tmp/b': expected IF=PEER-DIR:PEER-IF (e.g. "
         "'Gi 0/1=/tmp/lab/sw2:Gi 0/2')"},
        {{"Gi 0/1=:Gi 0/2"}, "bad --link 'Gi 0/1=:Gi 0/2': the far end's run directory is missing"},
        {{"Po 5=/tmp/b:Gi 0/2"}, "bad --link 'Po 5=/tmp/b:Gi 0/2': Po 5 is not a physical port"},
        {{"Gi 0/1=" + longDir + ":Gi 0/2"},
         "bad --link 'Gi 0/1=" + longDir + ":Gi 0/2': the socket path " + longDir +
             "/cable.sock is too long"},
        {{"Gi 0/8=/tmp/b:Gi 0/2"}, "--link Gi 0/8: the card in slot 0 carries Gi 0/0 to Gi 0/7"},
        {{"Gi 2/0=/tmp/b:Gi 0/2"}, "--link Gi 2/0: no card in slot 2 (--cards 0,1)"},
        {{"Gi 0/1=/tmp/b:Gi 0/2", "gi0/1=/tmp/c:Gi 0/2"}, "--link Gi 0/1 is given twice"},
    };
    for (const auto& [values, why] : refusals) {
        std::vector<std::string> args;
        for (const std::string& v : values) args.insert(args.end(), {"--link", v});
        sim::SimOptions o;
        EXPECT_EQ(parse(args, &o), "vornsim: " + why);
    }
}

}  // namespace
}  // namespace vorn
