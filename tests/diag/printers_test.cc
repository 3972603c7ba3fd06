// The shell printers of the ring, VLAN and port tables, called through the debug shell and
// checked line for line on one set of records built in the tables.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "diag/diag.h"
#include "platform/shell.h"
#include "support/mgr_fixture.h"

namespace {

namespace bmp = vorn::bmp;

using vorn::test::gi;
using vorn::test::po;
using vorn::test::vl;

// `text` with "ADDR" replaced by the address of the record, as "%p" prints it.
std::string withAddr(std::string text, const void* p) {
    char a[32];
    std::snprintf(a, sizeof a, "%p", p);
    return text.replace(text.find("ADDR"), 4, a);
}

class PrintersTest : public vorn::test::MgrTest {
protected:
    // Ring 5: primary Gi 0/1, secondary Po 5, control VLAN 10, member VLANs 20 and 4095.
    // Ring 7: a description that fills its field without a terminator, followed by a set
    // debug entry. Ring 9: debug entries. Port Gi 0/1 (130) with VLANs and rings, Gi 0/0
    // (129) with ring 255 only, LAG Po 5 with members 200 and 150; VLAN 10 with ports and
    // tagged ports, VLAN 3 bare, VLAN 20 with 15 named ports and one without a record.
    void SetUp() override {
        MgrTest::SetUp();
        ring5_ = makeRing(5);
        VornRingEntry* r = ring5_;
        r->u4PriIfIndex = gi(0, 1);
        r->u2PriPortNum = 130;
        r->u4SecIfIndex = po(5);
        r->u2SecPortNum = 5;
        r->u4CtrlVlanIfIndex = vl(10);
        r->u2CtrlVlanId = 10;
        r->u1Mode = VORN_MODE_MASTER;
        r->u2DesgLineCard = 0;
        r->u4Flags = 0x27;
        r->isRingOwnedByMgr = r->isPriOwned = r->isSecReady = r->isSecTagged = 1;
        r->u4PriPortState = VORN_PORT_FORW;
        r->u4SecPortState = 7;
        r->u2StgInst = 64;
        std::snprintf(r->description.data(), r->description.size(), "east ring");
        bmp::set(r->memberVlanBmap, 20);
        bmp::set(r->memberVlanBmap, 4095);
        VornRingEntry* r7 = makeRing(7);
        r7->description.fill('x');
        r7->dbgCfg[0].isSet = 1;
        VornRingEntry* r9 = makeRing(9);
        r9->dbgCfg[0] = {1, 0};
        r9->dbgCfg[2] = {2, 3};  // only the value 1 means on
        r9->dbgCfg[6] = {1, 25};

        port_ = makePort(gi(0, 1), {10, 20});
        port_->u4PortMode = 2;
        port_->macAddr = {0x00, 0x1b, 0x2c, 0x3d, 0x4e, 0x5f};
        bmp::set(port_->ctrlVlanBmap, 10);
        bmp::set(port_->ringBmap, 5);
        port_->i2RingCount = 1;
        port_->u2LagParent = 0x1f;
        bmp::set(vornCreatePortEntry(gi(0, 0), VORN_CREATOR_IFM)->ringBmap, 255);
        lag_ = vornCreatePortEntry(po(5), VORN_CREATOR_RING_CONF);
        lag_->pLagPortList->members[0] = 200;
        lag_->pLagPortList->members[1] = 150;
        lag_->pLagPortList->lastEmptyIndex = 2;
        lag_->pLagPortList->desgPortNum = 150;

        vlan_ = vornCreateVlanEntry(vl(10), VORN_CREATOR_IFM);
        vlan_->isCreatedByRingConf = 1;
        vlan_->u2CtrlVlanRingId = 5;
        vlan_->u2MemberVlanRingId = 3;
        bmp::set(vlan_->portBmap, 130);
        bmp::set(vlan_->portBmap, 5);
        bmp::set(vlan_->taggedPortBmap, 130);
        vornCreateVlanEntry(vl(3), VORN_CREATOR_RING_CONF);
        VornVlanEntry* v20 = vornCreateVlanEntry(vl(20), VORN_CREATOR_IFM);
        for (uint32_t p = 0; p < 15; ++p) {
            vornCreatePortEntry(gi(1, p), VORN_CREATOR_IFM);
            bmp::set(v20->portBmap, 193 + p);
        }
        bmp::set(v20->portBmap, 300);  // a member without a port record
    }

    VornRingEntry* ring5_ = nullptr;
    VornPortEntry* port_ = nullptr;
    VornPortEntry* lag_ = nullptr;
    VornVlanEntry* vlan_ = nullptr;
};

TEST_F(PrintersTest, EveryPrinterLineForLineThroughTheShell) {
    const std::string ring5 = withAddr(
        "\r\n\t Ring id                     : 5 (Addr: ADDR)\r\n"
        "\t Control Vlan Ifindex        : 0x1800000a \r\n\t Control Vlan Id             : 10 \r\n"
        "\t Hello Time                  : 500 \r\n\t Dead Time                   : 1500 \r\n"
        "\t Mode                        : MASTER \r\n\t Designated Line Card        : 0 \r\n"
        "\t Flags                       : 0x27 \r\n\t Primary Port Details        : Gi 0/1\r \n"
        "\t    IfIndex                  : 0xa000100 \r\n\t    Port Number              : 130 \r\n"
        "\t    Ring Owned by VORN Mgr   : YES \r\n\t    Port Owned by Ring       : YES \r\n"
        "\t    Port Tagged in Ctrl Vlan : NO \r\n\t    Port State               : FORW \r\n"
        "\t Secondary Port Details      : Po 5\r \n\t    IfIndex                  : 0x16000005 \r\n"
        "\t    Port Number              : 5 \r\n\t    Port Ready               : YES \r\n"
        "\t    Port Owned by Ring       : NO \r\n\t    Port Tagged in Ctrl Vlan : YES \r\n"
        "\t    Port State               : INVALID \r\n"
        "\t Description                 : east ring \r\n\t STG Inst                    : 64 \r\n"
        "\t Member Vlans                : \r\n"
        " 20 4095\r\n",
        ring5_);
    const std::string vlanHead = withAddr(
        "Details for vlan 10 : (Addr: ADDR)\r\n  IfIndex          1800000a \r\n"
        "  Ctrl VlanRing Id 5 \r\n",
        vlan_);
    const std::string vlanTail =
        "  This vlan is a Member Vlan for Rings: \r\n  3, \r\n Done \r\n"
        "   Vlan created by IFM: YES \r\n   Vlan created by Ring Conf: YES \r\n";
    const std::string port = withAddr(
        "Details for port 130 : (Addr: ADDR)\r\n  IfIndex    a000100 \r\n  Port Mode  2 \r\n"
        "  Ostate     UP \r\n  Mac        0:1b:2c:3d:4e:5f \r\n"
        "   Vlans: \r\n   10, 20, \r\n   Control Vlans: \r\n   10, \r\n   Rings: \r\n   5, \r\n"
        "  Created by IFM: YES \r\n  Owned by Ring conf: NO \r\n  Ring count 1 \r\n"
        "  Lag-parent 0x1f \r\n  Not LAG: no portlist \r\n",
        port_);
    std::string fifteen = "  Port List: \r\n";
    for (int p = 0; p < 15; ++p) fifteen += " Gi 1/" + std::to_string(p) + ",";
    vornTcb.lcType[0] = 0x1a;
    vornTcb.lcType[11] = 300;
    vornRegisterDiagCommands();
    auto shell = [](const char* line) { return vorn::shell::runLine(line); };
    const std::string invalidRing = "Invalid Ring Id \r\n",
                      invalidPort = "Invalid Port number \r\n";

    // Through the debug shell, which prints what the printer prints.
    const struct {
        const char* line;
        std::string want;
        bool tailOnly = false;  // want is how the text ends
    } cases[] = {
        {"vornPrintRing 5", ring5},
        {"vornPrintRing 0",  // all, in id order
         shell("vornPrintSingleRing 5") + shell("vornPrintSingleRing 7") +
             shell("vornPrintSingleRing 9")},
        // A description that fills its field; no member VLANs: no closing line.
        {"vornPrintRing 7",
         "\t Description                 : " + std::string(VORN_DESC_LEN, 'x') +
             " \r\n\t STG Inst                    : 0 \r\n\t Member Vlans                : \r\n",
         true},
        {"vornPrintRing 256", invalidRing},
        {"vornPrintRing -1", invalidRing},
        {"vornPrintRing 65541", invalidRing},  // 5 + 65536
        {"vornPrintRing 8", ""},
        {"vornPrintVlan 10 0", vlanHead + vlanTail},
        {"vornPrintVlan 10 1", vlanHead +
                                   "  Port List: \r\n Po 5, Gi 0/1, \r\n Done \r\n"
                                   "  Tagged Port List: \r\n Gi 0/1, \r\n Done \r\n" +
                                   vlanTail},
        {"vornPrintVlan 0 0",  // all, in id order
         shell("vornPrintSingleVlan 3 0") + vlanHead + vlanTail +
             shell("vornPrintSingleVlan 20 0")},
        {"vornPrintVlan 4096 1", "Invalid Vlan Id \r\n"},
        // A line break after fifteen port names; a member without a port record.
        {"vornPrintSingleVlan 20 1",
         withAddr("Details for vlan 20 : (Addr: ADDR)\r\n  IfIndex          18000014 \r\n"
                  "  Ctrl VlanRing Id 0 \r\n",
                  gVornVlan[20]) +
             fifteen +
             "\r\n PN 300, \r\n Done \r\n  Tagged Port List: \r\n \r\n Done \r\n"
             "  This vlan is a Member Vlan for Rings: \r\n \r\n Done \r\n"
             "   Vlan created by IFM: YES \r\n   Vlan created by Ring Conf: NO \r\n"},
        {"vornPrintPort 0 1 1", port},
        {"vornPrintPortByPortnum 130 1", port},
        // Slot 0 port 0 is port 129; no VLANs, no VLAN titles.
        {"vornPrintPort 0 0 1",
         withAddr("Details for port 129 : (Addr: ADDR)\r\n  IfIndex    a000000 \r\n"
                  "  Port Mode  0 \r\n  Ostate     DOWN \r\n  Mac        0:0:0:0:0:0 \r\n"
                  "   Rings: \r\n   255, \r\n  Created by IFM: YES \r\n"
                  "  Owned by Ring conf: NO \r\n  Ring count 0 \r\n  Lag-parent 0x0 \r\n"
                  "  Not LAG: no portlist \r\n",
                  gVornPort[129])},
        {"vornPrintPort 0 2 1", ""},
        {"vornPrintPort 12 1 1", invalidPort},  // 898
        // The LAG's own part follows the common port lines.
        {"vornPrintLag 5 0",
         "  Lag-parent 0x0 \r\nLag Port List : \r\n desgPortNum 150, lastEmptyIndex 2 \r\n"
         "Lag members: \r\n 200, 150,\r\n",
         true},
        {"vornPrintLag 0 1", invalidPort},
        {"vornPrintLag 898 1", invalidPort},
        {"vornPrintLcTypeInfo",
         "Slot Id: 0, Type: 0x1a (26)\r\nSlot Id: 11, Type: 0x12c (300)\r\n"},
        {"vornPrintDbgDB 9", "Dbg set for : 0 count 0\r\nDbg set for : 6 count 25\r\n"},
        {"vornPrintDbgDB 256", ""},
        {"vornPrintVlanBmap 5", "Member Vlans: 20, 4095, \r\n"},
        {"vornPrintRingBmap 130", "Rings: 5, \r\n"},
        {"vornPrintRingBmap 65666", ""},  // 130 + 65536
    };
    for (const auto& c : cases) {
        std::string text = shell(c.line);
        if (c.tailOnly) {
            EXPECT_TRUE(text.ends_with(c.want)) << c.line << ":\n" << text;
        } else {
            EXPECT_EQ(text, c.want) << c.line;
        }
    }

    // A member count beyond the list is not followed past its 32 slots.
    lag_->pLagPortList->members.fill(7);
    lag_->pLagPortList->lastEmptyIndex = 200;
    std::string row;
    for (int i = 0; i < VORN_LAG_MAX_MEMBERS; ++i) row += " 7,";
    EXPECT_TRUE(shell("vornPrintLag 5 0").ends_with("Lag members: \r\n" + row + "\r\n"));
}

TEST_F(PrintersTest, BitmapPrintersStopAtTheirSize) {
    VornPortBmap ports{};
    for (uint32_t bit : {0, 897, 898}) bmp::set(ports, bit);  // 898: padding past the last port
    EXPECT_EQ(captureStdout([&] { vornPrintPortBmap(ports, "P: "); }), "P: 0, 897, \r\n");
    VornVlanBmap wide{};  // a ring bitmap handed a longer span is read over 256 bits only
    for (uint32_t bit : {255, 256}) bmp::set(wide, bit);
    EXPECT_EQ(captureStdout([&] { vornPrintRingBmap(wide, "R: "); }), "R: 255, \r\n");
    EXPECT_EQ(captureStdout([] { vornPrintRingBmap(VornRingBmap{}, "R: "); }), "");
}

}  // namespace
