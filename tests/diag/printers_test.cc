// The shell printers of the ring, VLAN and port tables, checked line for line on records
// built in the tables, and one call through the debug shell.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <iterator>
#include <string>

#include "diag/diag.h"
#include "l2pm/l2pm.h"
#include "platform/bitmap.h"
#include "platform/shell.h"
#include "ringdb/ringdb.h"
#include "support/ifidx.h"
#include "support/mgr_fixture.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

namespace ifm = vorn::ifm;
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
    std::string out(const std::function<void()>& fn) { return captureStdout(fn); }

    VornRingEntry* makeRing(uint16_t id) {
        auto* ring = vornMakeRecord<VornRingEntry>(
            vornFixedPoolMalloc(VORN_RING_TAG, VORN_RING_BLOCK_SIZE, VORN_RING_MEM_POOL));
        ring->u2RingId = id;
        ring->u2HelloTime = VORN_DEFAULT_HELLO;
        ring->u2DeadTime = VORN_DEFAULT_DEAD;
        ring->u2DesgLineCard = VORN_NO_LINE_CARD;
        gVornRing[id] = ring;
        return ring;
    }

    // Ring 5: primary Gi 0/1, secondary Po 5, control VLAN 10, member VLANs 20 and 4095.
    VornRingEntry* makeRing5() {
        VornRingEntry* r = makeRing(5);
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
        return r;
    }
};

TEST_F(PrintersTest, RingShowsEveryField) {
    VornRingEntry* r = makeRing5();
    EXPECT_EQ(out([] { vornPrintRing(5); }),
              withAddr("\r\n"
                       "\t Ring id                     : 5 (Addr: ADDR)\r\n"
                       "\t Control Vlan Ifindex        : 0x1800000a \r\n"
                       "\t Control Vlan Id             : 10 \r\n"
                       "\t Hello Time                  : 500 \r\n"
                       "\t Dead Time                   : 1500 \r\n"
                       "\t Mode                        : MASTER \r\n"
                       "\t Designated Line Card        : 0 \r\n"
                       "\t Flags                       : 0x27 \r\n"
                       "\t Primary Port Details        : Gi 0/1\r \n"
                       "\t    IfIndex                  : 0xa000100 \r\n"
                       "\t    Port Number              : 130 \r\n"
                       "\t    Ring Owned by VORN Mgr   : YES \r\n"
                       "\t    Port Owned by Ring       : YES \r\n"
                       "\t    Port Tagged in Ctrl Vlan : NO \r\n"
                       "\t    Port State               : FORW \r\n"
                       "\t Secondary Port Details      : Po 5\r \n"
                       "\t    IfIndex                  : 0x16000005 \r\n"
                       "\t    Port Number              : 5 \r\n"
                       "\t    Port Ready               : YES \r\n"
                       "\t    Port Owned by Ring       : NO \r\n"
                       "\t    Port Tagged in Ctrl Vlan : YES \r\n"
                       "\t    Port State               : INVALID \r\n"
                       "\t Description                 : east ring \r\n"
                       "\t STG Inst                    : 64 \r\n"
                       "\t Member Vlans                : \r\n"
                       " 20 4095\r\n",
                       r));
}

TEST_F(PrintersTest, AllRingsInIdOrderAndNothingForEmptyIds) {
    EXPECT_EQ(out([] { vornPrintRing(0); }), "");
    makeRing5();
    VornRingEntry* r7 = makeRing(7);
    // A description that fills its field without a terminator, followed by a set debug entry.
    r7->description.fill('x');
    r7->dbgCfg[0].isSet = 1;
    std::string ring5 = out([] { vornPrintSingleRing(5); });
    std::string ring7 = out([] { vornPrintSingleRing(7); });
    EXPECT_EQ(out([] { vornPrintRing(0); }), ring5 + ring7);
    // No member VLANs: the heading ends the record, no closing line.
    EXPECT_TRUE(
        ring7.ends_with("\t STG Inst                    : 0 \r\n"
                        "\t Member Vlans                : \r\n"));
    EXPECT_NE(ring7.find(": " + std::string(VORN_DESC_LEN, 'x') + " \r\n"), std::string::npos);
}

TEST_F(PrintersTest, OutOfRangeIdsSayInvalid) {
    makeRing5();  // where a 16-bit cut of 65536 + 5 would land
    const struct {
        std::function<void()> call;
        const char* want;
    } cases[] = {
        {[] { vornPrintRing(256); }, "Invalid Ring Id \r\n"},
        {[] { vornPrintRing(-1); }, "Invalid Ring Id \r\n"},
        {[] { vornPrintRing(65536 + 5); }, "Invalid Ring Id \r\n"},
        {[] { vornPrintVlan(4096, 1); }, "Invalid Vlan Id \r\n"},
        {[] { vornPrintLag(0, 1); }, "Invalid Port number \r\n"},
        {[] { vornPrintLag(898, 1); }, "Invalid Port number \r\n"},
        {[] { vornPrintPort(12, 1, 1); }, "Invalid Port number \r\n"},  // 898
        {[] { vornPrintDbgDB(256); }, ""},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(out(cases[i].call), cases[i].want) << "case " << i;
    }
}

TEST_F(PrintersTest, VlanWithAndWithoutPortLists) {
    vornCreatePortEntry(gi(0, 1), VORN_CREATOR_IFM);
    vornCreatePortEntry(po(5), VORN_CREATOR_IFM);
    VornVlanEntry* v = vornCreateVlanEntry(vl(10), VORN_CREATOR_IFM);
    v->isCreatedByRingConf = 1;
    v->u2CtrlVlanRingId = 5;
    v->u2MemberVlanRingId = 3;
    bmp::set(v->portBmap, 130);
    bmp::set(v->portBmap, 5);
    bmp::set(v->taggedPortBmap, 130);
    const std::string head = withAddr(
        "Details for vlan 10 : (Addr: ADDR)\r\n"
        "  IfIndex          1800000a \r\n"
        "  Ctrl VlanRing Id 5 \r\n",
        v);
    const std::string tail =
        "  This vlan is a Member Vlan for Rings: \r\n"
        "  3, \r\n Done \r\n"
        "   Vlan created by IFM: YES \r\n"
        "   Vlan created by Ring Conf: YES \r\n";
    EXPECT_EQ(out([] { vornPrintVlan(10, 0); }), head + tail);
    EXPECT_EQ(out([] { vornPrintVlan(10, 1); }), head +
                                                     "  Port List: \r\n"
                                                     " Po 5, Gi 0/1, \r\n Done \r\n"
                                                     "  Tagged Port List: \r\n"
                                                     " Gi 0/1, \r\n Done \r\n" +
                                                     tail);

    // Id 0 walks every VLAN with a record, in id order.
    vornCreateVlanEntry(vl(3), VORN_CREATOR_RING_CONF);
    EXPECT_EQ(out([] { vornPrintVlan(0, 0); }),
              out([] { vornPrintSingleVlan(3, 0); }) + head + tail);
}

TEST_F(PrintersTest, VlanPortListBreaksTheLineAfterFifteenNames) {
    VornVlanEntry* v = vornCreateVlanEntry(vl(20), VORN_CREATOR_IFM);
    std::string want = "  Port List: \r\n";
    for (uint32_t p = 0; p < 15; ++p) {
        vornCreatePortEntry(gi(1, p), VORN_CREATOR_IFM);
        bmp::set(v->portBmap, 193 + p);
        want += " Gi 1/" + std::to_string(p) + ",";
    }
    bmp::set(v->portBmap, 300);  // a member without a port record
    want += "\r\n PN 300, \r\n Done \r\n";
    std::string text = out([] { vornPrintSingleVlan(20, 1); });
    EXPECT_NE(text.find(want), std::string::npos) << text;
}

TEST_F(PrintersTest, PhysicalPortWithBitmaps) {
    VornPortEntry* p = vornCreatePortEntry(gi(0, 1), VORN_CREATOR_IFM);
    p->u4PortMode = 2;
    p->u2OperState = 1;
    p->macAddr = {0x00, 0x1b, 0x2c, 0x3d, 0x4e, 0x5f};
    bmp::set(p->vlanBmap, 10);
    bmp::set(p->vlanBmap, 20);
    bmp::set(p->ctrlVlanBmap, 10);
    bmp::set(p->ringBmap, 5);
    p->i2RingCount = 1;
    p->u2LagParent = 0x1f;
    const std::string want = withAddr(
        "Details for port 130 : (Addr: ADDR)\r\n"
        "  IfIndex    a000100 \r\n"
        "  Port Mode  2 \r\n"
        "  Ostate     UP \r\n"
        "  Mac        0:1b:2c:3d:4e:5f \r\n"
        "   Vlans: \r\n   10, 20, \r\n"
        "   Control Vlans: \r\n   10, \r\n"
        "   Rings: \r\n   5, \r\n"
        "  Created by IFM: YES \r\n"
        "  Owned by Ring conf: NO \r\n"
        "  Ring count 1 \r\n"
        "  Lag-parent 0x1f \r\n"
        "  Not LAG: no portlist \r\n",
        p);
    EXPECT_EQ(out([] { vornPrintPort(0, 1, 1); }), want);
    EXPECT_EQ(out([] { vornPrintPortByPortnum(130, 1); }), want);
}

TEST_F(PrintersTest, LagShowsItsMemberList) {
    VornPortEntry* lag = vornCreatePortEntry(po(5), VORN_CREATOR_RING_CONF);
    lag->pLagPortList->members[0] = 200;
    lag->pLagPortList->members[1] = 150;
    lag->pLagPortList->lastEmptyIndex = 2;
    lag->pLagPortList->desgPortNum = 150;
    // The LAG's own part follows the common port lines.
    EXPECT_TRUE(out([] { vornPrintLag(5, 0); })
                    .ends_with("  Lag-parent 0x0 \r\n"
                               "Lag Port List : \r\n"
                               " desgPortNum 150, lastEmptyIndex 2 \r\n"
                               "Lag members: \r\n"
                               " 200, 150,\r\n"));

    // A member count beyond the list is not followed past its 32 slots.
    lag->pLagPortList->members.fill(7);
    lag->pLagPortList->lastEmptyIndex = 200;
    std::string text = out([] { vornPrintLag(5, 0); });
    std::string row;
    for (int i = 0; i < VORN_LAG_MAX_MEMBERS; ++i) row += " 7,";
    EXPECT_TRUE(text.ends_with("Lag members: \r\n" + row + "\r\n")) << text;
}

TEST_F(PrintersTest, SlotZeroPortZeroIsPort129AndNoVlansNoVlanTitles) {
    EXPECT_EQ(out([] { vornPrintPort(0, 0, 1); }), "");
    vornCreatePortEntry(gi(0, 0), VORN_CREATOR_IFM);
    bmp::set(gVornPort[129]->ringBmap, 255);
    std::string text = out([] { vornPrintPort(0, 0, 1); });
    EXPECT_TRUE(text.starts_with("Details for port 129 : ")) << text;
    EXPECT_EQ(text.find("Vlans:"), std::string::npos) << text;
    EXPECT_NE(text.find("  Mac        0:0:0:0:0:0 \r\n   Rings: \r\n   255, \r\n  Created by"),
              std::string::npos)
        << text;
}

TEST_F(PrintersTest, BitmapPrintersStopAtTheirSize) {
    VornPortBmap ports{};
    bmp::set(ports, 0);
    bmp::set(ports, 897);
    bmp::set(ports, 898);  // padding past the last port number
    EXPECT_EQ(out([&] { vornPrintPortBmap(ports, "P: "); }), "P: 0, 897, \r\n");
    // A ring bitmap handed a longer span is still read over 256 bits only.
    VornVlanBmap wide{};
    bmp::set(wide, 255);
    bmp::set(wide, 256);
    EXPECT_EQ(out([&] { vornPrintRingBmap(wide, "R: "); }), "R: 255, \r\n");
    EXPECT_EQ(out([] { vornPrintRingBmap(VornRingBmap{}, "R: "); }), "");
}

TEST_F(PrintersTest, LineCardTypesDebugEntriesAndMac) {
    vornTcb.lcType[0] = 0x1a;
    vornTcb.lcType[11] = 300;
    EXPECT_EQ(out([] { vornPrintLcTypeInfo(); }),
              "Slot Id: 0, Type: 0x1a (26)\r\nSlot Id: 11, Type: 0x12c (300)\r\n");

    VornRingEntry* r = makeRing(9);
    r->dbgCfg[0] = {1, 0};
    r->dbgCfg[2] = {2, 3};  // only the value 1 means on
    r->dbgCfg[6] = {1, 25};
    EXPECT_EQ(out([] { vornPrintDbgDB(9); }),
              "Dbg set for : 0 count 0\r\nDbg set for : 6 count 25\r\n");
    EXPECT_EQ(out([] { vornPrintDbgDB(8); }), "");

    const uint8_t mac[] = {0xaa, 0x0b, 0x00, 0x10, 0xff, 0x01};
    EXPECT_EQ(out([&] { vornPrintMacAddr(mac, "   Mac Addr : "); }),
              "   Mac Addr :  aa:b:0:10:ff:1 \r\n");
}

TEST_F(PrintersTest, ThroughTheShell) {
    makeRing5();
    VornPortEntry* p = vornCreatePortEntry(gi(0, 1), VORN_CREATOR_IFM);
    bmp::set(p->ringBmap, 5);
    vornRegisterDiagCommands();
    const std::string ring = vorn::shell::runLine("vornPrintRing 5");
    EXPECT_TRUE(ring.starts_with("\r\n\t Ring id                     : 5 (Addr: ")) << ring;
    EXPECT_EQ(ring, out([] { vornPrintRing(5); }));
    EXPECT_EQ(vorn::shell::runLine("vornPrintVlanBmap 5"), "Member Vlans: 20, 4095, \r\n");
    EXPECT_EQ(vorn::shell::runLine("vornPrintRingBmap 130"), "Rings: 5, \r\n");
    EXPECT_EQ(vorn::shell::runLine("vornPrintRingBmap 65666"), "");  // 130 + 65536
}

}  // namespace
