// The words of the operator's syntax: interface names in every form, VLAN lists and bounded
// numbers, and the messages that name what was wrong.

#include "cli/syntax.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/grammar.h"
#include "cli/params.h"
#include "cli/vlan_list.h"

namespace vorn {
namespace {

std::vector<std::string> wordsOf(const std::string& line) {
    std::vector<std::string> out;
    for (const cli::Word& w : cli::splitWords(line)) out.push_back(w.text);
    return out;
}

TEST(InterfaceNames, EveryFormGivesTheSameIfIndexAndRefusalsNameTheBadValue) {
    struct Case {
        const char* text;
        uint32_t ifIndex;  // type << 24 | slot << 16 | port << 8, or 22 << 24 | LAG; 0: refused
        size_t used;
        const char* message;
    };
    const Case cases[] = {
        {"GigabitEthernet 0/1", 0x0A000100, 2, ""},
        {"gi0/1", 0x0A000100, 1, ""},
        {"gigabit 11/63", 0x0A0B3F00, 2, ""},  // any unambiguous prefix, the highest slot and port
        {"te1/2", 0x0B010200, 1, ""},
        {"Port-channel 5", 0x16000005, 2, ""},
        {"port-channel128", 0x16000080, 1, ""},
        {"gi0/1 secondary", 0x0A000100, 1, ""},  // the next word is left alone
        {"Gi 12/1", 0, 0, "slot 12 is out of range 0..11 in 'Gi 12/1'"},
        {"gi0/64", 0, 0, "port 64 is out of range 0..63 in 'gi0/64'"},
        {"po0", 0, 0, "port-channel number 0 is out of range 1..128 in 'po0'"},
        {"Gi 0-1", 0, 0, "bad interface 'Gi 0-1': expected GigabitEthernet SLOT/PORT"},
        {"Gi", 0, 0, "interface 'Gi' needs SLOT/PORT"},
        {"Vlan 10", 0, 0, "unknown interface 'Vlan 10'"},
        {"0/1", 0, 0, "unknown interface '0/1'"},
        {"Gi 99999999999/1", 0, 0, "slot 99999999999 is out of range 0..11"},  // no overflow
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        std::vector<std::string> words = wordsOf(c.text);
        uint32_t ifIndex = 0;
        size_t used = 0;
        std::string err;
        ASSERT_EQ(cli::parseInterface(words, 0, &ifIndex, &used, &err), c.ifIndex != 0) << err;
        if (c.ifIndex != 0) {
            EXPECT_EQ(ifIndex, c.ifIndex);
            EXPECT_EQ(used, c.used);
        } else {
            EXPECT_NE(err.find(c.message), std::string::npos) << err;
        }
    }
}

TEST(VlanLists, ListsAndRangesBecomeBitmapsAndRefusalsNameTheBadItem) {
    struct Case {
        const char* text;
        bool ok;
        const char* result;  // the list as text, or a piece of the refusal
        size_t count;        // VLANs in the bitmap afterwards
    };
    const Case cases[] = {
        {"20-30,40", true, "20-30,40", 12},
        {"40,20-30,25", true, "20-30,40", 12},  // order and overlaps do not matter
        {"1-4095", true, "1-4095", 4095},
        // A refusal leaves the bitmap alone: it holds VLAN 1 before.
        {"", false, "the VLAN list is empty", 1},
        {"20,,30", false, "bad VLAN list '20,,30': an item is empty", 1},
        {"0", false, "VLAN 0 is out of range 1..4095", 1},
        {"20-4096", false, "VLAN 4096 is out of range 1..4095 in '20-4096'", 1},
        {"30-20", false, "bad VLAN range '30-20': 30 is above 20", 1},
        {"ten", false, "bad VLAN 'ten': expected a number 1..4095", 1},
        {"20-", false, "bad VLAN '': expected a number 1..4095 in '20-'", 1},
        {"1-2-3", false, "bad VLAN '2-3'", 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        cli::VlanBitmap vlans{};
        if (!c.ok) vlans[0] = 0x40;  // VLAN 1
        std::string err;
        ASSERT_EQ(cli::parseVlanList(c.text, &vlans, &err), c.ok) << err;
        EXPECT_NE((c.ok ? cli::vlanListText(vlans) : err).find(c.result), std::string::npos) << err;
        EXPECT_EQ(cli::vlanCount(vlans), c.count);
    }
}

// Each parameter's bounds; the number reader's refusals (signs, overflow, trailing text)
// are its own test's (platform/cmdline_test.cc).
TEST(Numbers, BoundsAreCheckedAndTheValueNamed) {
    struct Case {
        cli::Param param;
        const char* word;
        bool ok;
        uint32_t value;
        const char* message;
    };
    const Case cases[] = {
        {cli::Param::RingId, "255", true, 255, ""},
        {cli::Param::RingId, "256", false, 0, "ring id 256 is out of range 1..255"},
        {cli::Param::Vlan, "4095", true, 4095, ""},
        {cli::Param::Vlan, "4096", false, 0, "VLAN 4096 is out of range 1..4095"},
        {cli::Param::Hello, "49", false, 0, "hello-interval 49 is out of range 50..2000"},
        {cli::Param::Dead, "6001", false, 0, "dead-interval 6001 is out of range 50..6000"},
        {cli::Param::Dead, "0x100", false, 0, "bad dead-interval '0x100'"},  // decimal only
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.word);
        std::vector<cli::Word> words = cli::splitWords(c.word);
        cli::ParamResult r = cli::parseParam(c.param, words, 0, c.word);
        EXPECT_EQ(r.ok, c.ok);
        if (c.ok)
            EXPECT_EQ(r.value.number, c.value);
        else
            EXPECT_NE(r.error.find(c.message), std::string::npos) << r.error;
    }
}

TEST(Numbers, DescriptionsKeepTheirBlanksUpToTheLimit) {
    const std::string longest(255, 'x');
    struct Case {
        std::string text;  // after "description "
        bool ok;
        std::string result;  // the text kept, or a piece of the refusal
    };
    const Case cases[] = {
        {" a  ring   with blanks  \r", true, "a  ring   with blanks"},
        {"a\tb", true, "a\tb"},
        {longest, true, longest},
        {longest + "y", false, "the description is 256 characters long; at most 255"},
        {"a\x1b[2Jb", false, "the text holds the control character 0x"},
        {"a\x7f", false, "the text holds the control character 0x"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const std::string line = "description " + c.text;
        std::vector<cli::Word> words = cli::splitWords(line);
        cli::ParamResult r = cli::parseParam(cli::Param::Description, words, 1, line);
        ASSERT_EQ(r.ok, c.ok) << r.error;
        if (c.ok)
            EXPECT_EQ(r.value.text, c.result);
        else
            EXPECT_NE(r.error.find(c.result), std::string::npos) << r.error;
    }
}

}  // namespace
}  // namespace vorn
