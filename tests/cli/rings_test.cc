// vornctl's side of show, debug and clear: the manager's records read back and rendered, the
// JSON documents parsed back, the debug-config lines, and bad input refused before anything
// is sent.

#include <gtest/gtest.h>

#include <sstream>

#include "cli/commands.h"
#include "cli/rings.h"
#include "platform/codec.h"
#include "support/rundir.h"

namespace vorn {
namespace {

using cli::Json;

// A record of `len` bytes with text fields at their offsets.
std::vector<uint8_t> record(size_t len,
                            std::initializer_list<std::pair<show::Field, const char*>> f) {
    std::vector<uint8_t> rec(len, 0);
    for (auto [field, text] : f) std::copy_n(text, std::strlen(text), rec.begin() + field.off);
    return rec;
}

std::vector<uint8_t> detailRecord() {
    namespace d = show::detail;
    auto rec = record(d::kLen, {{d::kRingId, "  5"},
                                {d::kMode, "Master"},
                                {d::kStatus, "DOWN"},
                                {d::kPrimary, "GigabitEthernet 0/1"},
                                {d::kPriState, "Disabled"},
                                {d::kSecondary, "GigabitEthernet 1/1"},
                                {d::kSecState, "Forwarding"},
                                {d::kCtrlVlan, "10 "},
                                {d::kHello, "300"},
                                {d::kDead, "1500"},
                                {d::kMac, "00:01:e8:0a:0b:fe"}});
    // Counter words 1..6: the answer's words at 72, 76, 64, 68, 80, 84.
    be::Writer w(rec.data(), rec.size());
    for (uint32_t i = 0; i < 6; ++i) w.u32(d::kOffCounters + 4 * i, i + 1);
    return rec;
}

TEST(Rings, DetailRecordIsReadByFieldAndCountersByName) {
    cli::RingDetail r;
    ASSERT_TRUE(cli::decodeDetail(detailRecord(), &r));
    r.memberVlanLines = {"20-30,", "40"};
    const std::string text = cli::renderDetail(r);
    for (const char* line :
         {"Ring 5\n", "  Mode            : master\n", "  Status          : down\n",
          "  Primary         : GigabitEthernet 0/1, disabled\n",
          "  Secondary       : GigabitEthernet 1/1, forwarding\n", "  Control VLAN    : 10\n",
          "  Member VLANs    : 20-30,40\n", "  Hello interval  : 300 ms\n",
          "  Dead interval   : 1500 ms\n",
          // Word 1 of the record is the answer's word at 72: the agent's link-up count.
          "    Configuration records : 3\n", "    Link down events      : 4\n",
          "    Link up events        : 1\n", "    Ring breaks           : 2\n",
          "    Port-state reports    : 5\n", "    Flushes requested     : 6\n"})
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    EXPECT_EQ(text.find("Master"), std::string::npos) << "no record text shows through";

    Json j = Json::parse(cli::detailJson({r}).dump());
    const Json& ring = j.at("rings").at(0);
    EXPECT_EQ(ring.at("id"), 5);
    EXPECT_EQ(ring.at("status"), "down");
    EXPECT_EQ(ring.at("primary").at("state"), "disabled");
    EXPECT_EQ(ring.at("control_vlan"), 10);
    EXPECT_EQ(ring.at("member_vlans"), "20-30,40");
    EXPECT_EQ(ring.at("hello_interval_ms"), 300);
    EXPECT_EQ(ring.at("counters").at("link_up"), 1);
    EXPECT_EQ(ring.at("counters").at("config_records"), 3);
}

TEST(Rings, SummaryContinuationLinesJoinTheirRingAndColumnsAlign) {
    namespace s = show::summary;
    std::vector<uint8_t> page;
    for (auto rec : {record(s::kLen, {{s::kRingId, "5"},
                                      {s::kStatus, "UP"},
                                      {s::kMode, "Master"},
                                      {s::kCtrlVlan, "10"},
                                      {s::kMemberVlans, "20,22,24,"}}),
                     record(s::kLen, {{s::kMemberVlans, "26-30"}}),
                     record(s::kLen, {{s::kRingId, "117"}, {s::kStatus, "-"}})})
        page.insert(page.end(), rec.begin(), rec.end());
    std::vector<cli::RingSummary> rings;
    ASSERT_TRUE(cli::decodeSummaryPage(page, &rings));
    EXPECT_FALSE(cli::decodeSummaryPage(std::vector<uint8_t>(74, 0), &rings));
    ASSERT_EQ(rings.size(), 2u);
    EXPECT_EQ(cli::renderSummary(rings),
              "Ring  Status  Mode    Control VLAN  Member VLANs\n"
              "5     UP      Master  10            20,22,24,\n"
              "                                    26-30\n"
              "117   -       -       -             -\n");
    Json j = Json::parse(cli::summaryJson(rings).dump());
    EXPECT_EQ(j.at("rings").at(0).at("member_vlans"), "20,22,24,26-30");
    EXPECT_EQ(j.at("rings").at(1).at("mode"), "none");
    EXPECT_TRUE(j.at("rings").at(1).at("control_vlan").is_null());
}

TEST(Rings, DebugConfigLinesReadBackAsTheSettingsTheyName) {
    std::string text = "VORN:\r\n";
    std::vector<cli::DebugSetting> want;
    for (int i = 0; i < dbgreq::kSettings; ++i) {
        char line[96];
        std::snprintf(line, sizeof(line), dbgreq::kSettingsByIndex[i].text, 7 + i);
        uint32_t count = i % 2 == 0 ? 0 : 100 + static_cast<uint32_t>(i);
        text += std::string(line) + (count != 0 ? " (count " + std::to_string(count) + ")" : "") +
                "\r\n";
        want.push_back({static_cast<uint32_t>(7 + i), i, count});
    }
    text += " VORN ring 3 verbose debugging is on\r\n";  // not a setting: passed over
    auto got = cli::parseDebugConfig(text);
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].ring, want[i].ring);
        EXPECT_EQ(got[i].index, want[i].index);
        EXPECT_EQ(got[i].count, want[i].count);
    }
    Json j = Json::parse(cli::debuggingJson(got).dump());
    EXPECT_EQ(j.at("debugging").at(0).at("kind"), "event");
    EXPECT_TRUE(j.at("debugging").at(0).at("direction").is_null());
    EXPECT_EQ(j.at("debugging").at(5).at("direction"), "rx");
    EXPECT_EQ(j.at("debugging").at(5).at("count"), 105);

    Json rc = Json::parse(cli::runningConfigJson("!\r\nprotocol vorn 5 \r\n mode master\r\n"
                                                 " no disable\r\n!\r\nprotocol vorn 6 \r\n")
                              .dump());
    EXPECT_EQ(rc, Json::parse(R"({"rings": [{"id": 5, "config": ["mode master", "no disable"]},
                                            {"id": 6, "config": []}]})"));
}

TEST(Rings, DebugRequestCarriesTheSettingAtItsOffsets) {
    auto req = cli::encodeDebug(5, true, 2, 10, 0x1234, (40u << 20) | 1);
    be::Reader rd(req.data(), req.size());
    EXPECT_EQ(rd.u32(64), 5u);       // ring id
    EXPECT_EQ(rd.u8(68), 1u);        // off
    EXPECT_EQ(rd.u32(72), 0xAAAAu);  // detail: the request code
    EXPECT_EQ(rd.u32(76), 0x01u);    // Rx
    EXPECT_EQ(rd.u32(80), 10u);      // count
    auto clear = cli::encodeClear(7, 1, 1);
    EXPECT_EQ(be::Reader(clear.data(), clear.size()).u32(72), 8u);
    EXPECT_EQ(be::Reader(clear.data(), clear.size()).u16(124), 7u);
}

class RingsCli : public test::PlatformTest {};

TEST_F(RingsCli, BadInputIsRefusedBeforeAnythingIsSentAndHelpListsTheWords) {
    std::ostringstream out, err;
    cli::Cli cli(rundir_.path(), out, err, 500);
    const struct {
        const char* line;
        const char* says;
    } cases[] = {
        {"show vorn ring 256", "ring id 256 is out of range 1..255"},
        {"show vorn ring 0 summary", "ring id 0 is out of range 1..255"},
        {"debug vorn ring 5 verbose", "unknown word 'verbose'"},
        {"debug vorn ring 5 detail rx count 0", "count 0 is out of range"},
        {"no debug vorn ring 5 event count 3", "unexpected word 'count'"},
        {"clear vorn counters ring 300", "ring id 300 is out of range"},
        {"undebug everything", "unknown word 'everything'"},
    };
    for (const auto& c : cases) {
        err.str("");
        EXPECT_EQ(cli.runLine(c.line), cli::kExitUsage) << c.line;
        EXPECT_NE(err.str().find(c.says), std::string::npos) << c.line << ": " << err.str();
    }
    // No manager was there, and none was asked: the refusals came before any send.
    EXPECT_EQ(out.str(), "");
    const std::string help = cli.helpText("debug vorn ring 5 ");
    for (const char* w : {"event", "detail", "packet"})
        EXPECT_NE(help.find(w), std::string::npos) << help;
    EXPECT_EQ(cli.completions("debug vorn ring 5 detail rx co"), std::vector<std::string>{"count"});
    EXPECT_EQ(cli.completions("show vorn ring 5 su"), std::vector<std::string>{"summary"});
}

}  // namespace
}  // namespace vorn
