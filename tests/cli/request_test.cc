// The configuration requests on the wire: each command, typed as an operator types it, must
// reach the manager as the 1024-byte MT_NM request with every field where the manager reads
// it and nothing else set. The expected bytes are written here from the layout itself, at
// literal offsets, independently of the command line's own definition.

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "nm_manager.h"
#include "support/rundir.h"
#include "support/wire.h"

namespace vorn {
namespace {

// The body of a request as the layout gives it (offsets 60 to 1023).
struct Body {
    uint32_t type = 0;
    uint16_t noForm = 0;
    uint16_t ring = 5;
    uint8_t mode = 0;
    uint16_t hello = 0;
    uint16_t dead = 0;
    uint32_t primary = 0;
    uint32_t secondary = 0;
    uint32_t ctrlVlanIf = 0;
    std::vector<uint16_t> vlans = {};  // member VLANs
    std::string description = {};
};

std::vector<uint8_t> expectedBytes(const Body& b) {
    std::vector<uint8_t> m(1024, 0);
    auto put = [&m](size_t off, uint64_t v, int bytes) {
        for (int i = 0; i < bytes; ++i)
            m[off + static_cast<size_t>(i)] = static_cast<uint8_t>(v >> (8 * (bytes - 1 - i)));
    };
    put(72, b.type, 4);
    put(82, b.noForm, 2);
    put(90, b.ring, 2);
    put(92, b.mode, 1);
    put(94, b.hello, 2);
    put(96, b.dead, 2);
    put(100, b.primary, 4);
    put(104, b.secondary, 4);
    put(108, b.ctrlVlanIf, 4);
    for (uint16_t v : b.vlans) m[112 + v / 8] |= static_cast<uint8_t>(0x80 >> (v % 8));
    std::copy(b.description.begin(), b.description.end(), m.begin() + 624);
    return m;
}

class RequestTest : public test::PlatformTest {};

TEST_F(RequestTest, EveryCommandCarriesItsFieldsAndNothingElse) {
    struct Case {
        std::string line;  // typed in ring 5's context
        Body body;
    };
    const std::string desc255(255, 'd');
    const Case cases[] = {
        {"interface primary Gi 0/1 secondary Gi 1/1 control-vlan 10",
         {.type = 2, .primary = 0x0A000100, .secondary = 0x0A010100, .ctrlVlanIf = 0x1800000A}},
        {"interface primary te1/2 secondary po5 control-vlan 4095",
         {.type = 2, .primary = 0x0B010200, .secondary = 0x16000005, .ctrlVlanIf = 0x18000FFF}},
        {"no interface primary GigabitEthernet 0/1 secondary Port-channel 128 control-vlan 1",
         {.type = 2,
          .noForm = 1,
          .primary = 0x0A000100,
          .secondary = 0x16000080,
          .ctrlVlanIf = 0x18000001}},
        {"member-vlan 1,4095", {.type = 3, .vlans = {1, 4095}}},
        {"no member-vlan 25", {.type = 3, .noForm = 1, .vlans = {25}}},
        {"no member-vlan", {.type = 3, .noForm = 1}},
        {"mode master", {.type = 4, .mode = 1}},
        {"mode transit", {.type = 4, .mode = 2}},
        {"no mode transit", {.type = 4, .noForm = 1, .mode = 2}},
        {"timer hello-interval 300", {.type = 7, .hello = 300}},
        {"no timer hello-interval", {.type = 7, .noForm = 1}},
        {"timer dead-interval 6000", {.type = 6, .dead = 6000}},
        {"no timer dead-interval", {.type = 6, .noForm = 1}},
        {"description ring  five", {.type = 1, .description = "ring  five"}},
        {"description " + desc255, {.type = 1, .description = desc255}},
        {"no description", {.type = 1, .noForm = 1}},
        {"no description old text", {.type = 1, .noForm = 1, .description = "old text"}},
        {"disable", {.type = 5}},
        {"no disable", {.type = 5, .noForm = 1}},
        {"NO DIS", {.type = 5, .noForm = 1}},  // keywords in any case, abbreviated
        {"tim hel 50", {.type = 7, .hello = 50}},
    };
    test::NmManager mgr;
    ASSERT_TRUE(mgr.ok());
    std::ostringstream out, err;
    cli::Cli cli(rundir_.path(), out, err, 2000);
    ASSERT_EQ(cli.runLine("protocol vorn 5"), cli::kExitOk) << err.str();
    for (const Case& c : cases)
        EXPECT_EQ(cli.runLine(c.line), cli::kExitOk) << c.line << ": " << err.str();

    std::vector<test::NmManager::Request> got = mgr.requests();
    ASSERT_EQ(got.size(), 1 + std::size(cases));
    std::set<uint32_t> exchanges;
    for (size_t i = 0; i < got.size(); ++i) {
        const std::vector<uint8_t>& m = got[i];
        SCOPED_TRACE(i == 0 ? std::string("protocol vorn 5") : cases[i - 1].line);
        ASSERT_EQ(m.size(), 1024u);
        // Header: magic, no reply flag, length, type, the manager's card and request queue,
        // the sender's request queue (service 40, kind 1), an exchange id of its own.
        EXPECT_EQ(test::words(m, {0, 4, 8, 12, 52, 56}),
                  (std::vector<uint32_t>{0x51454C31, 0, 1024, 6001, 0x7F000001, (226u << 20) | 1}));
        EXPECT_EQ(test::u32At(m, 44) & 0xFFF0000F, (40u << 20) | 1);
        EXPECT_TRUE(exchanges.insert(test::u32At(m, 16)).second);
        // Body: every byte from 60 on.
        std::vector<uint8_t> want = expectedBytes(i == 0 ? Body{.type = 0} : cases[i - 1].body);
        for (size_t off = 60; off < 1024; ++off)
            if (m[off] != want[off]) {
                ADD_FAILURE() << "byte " << off << " is " << int(m[off]) << ", expected "
                              << int(want[off]);
                break;
            }
    }
    EXPECT_EQ(cli.context(), (cli::Context{cli::Mode::Ring, 5}));
}

TEST_F(RequestTest, RingCommandsTakeTheirRingFromTheContextOrTheLine) {
    test::NmManager mgr;
    std::ostringstream out, err;
    cli::Cli cli(rundir_.path(), out, err, 2000);
    struct Step {
        const char* line;
        uint16_t ringSent;  // of the last request; 0: nothing sent
        cli::Context after;
    };
    const Step steps[] = {
        {"protocol vorn 7", 7, {cli::Mode::Ring, 7}},
        {"mode master", 7, {cli::Mode::Ring, 7}},
        {"protocol vorn 9 mode transit", 9, {cli::Mode::Ring, 9}},  // two requests
        {"disable", 9, {cli::Mode::Ring, 9}},
        {"exit", 0, {}},
        {"protocol vorn 3", 3, {cli::Mode::Ring, 3}},
        {"end", 0, {}},
        {"protocol vorn 4", 4, {cli::Mode::Ring, 4}},
        {"no protocol vorn 4", 4, {}},
    };
    size_t sent = 0;
    for (const Step& s : steps) {
        SCOPED_TRACE(s.line);
        EXPECT_EQ(cli.runLine(s.line), cli::kExitOk) << err.str();
        std::vector<test::NmManager::Request> got = mgr.requests();
        if (s.ringSent != 0) {
            ASSERT_GT(got.size(), sent);
            EXPECT_EQ(be::Reader(got.back().data(), got.back().size()).u16(90), s.ringSent);
        } else {
            EXPECT_EQ(got.size(), sent);
        }
        sent = got.size();
        EXPECT_EQ(cli.context(), s.after);
    }
    EXPECT_EQ(sent, 8u);
}

}  // namespace
}  // namespace vorn
