// Shell printers of the ring, VLAN and port tables, the line-card types, the per-ring debug
// settings, and the bitmap and MAC-address printers they use.
//
// Every line is printed whole with printf (ending in "\r\n") or puts (texts ending in "\r").

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "diag/diag.h"
#include "l2pm/l2pm.h"
#include "platform/bitmap.h"
#include "platform/ifindex.h"
#include "ringdb/ringdb.h"
#include "task/tcb.h"

namespace {

constexpr size_t kNameLen = 40;
// Interface names printed on one line of a VLAN's port list.
constexpr int kNamesPerLine = 15;

using Name = std::array<char, kNameLen>;

const char* yesNo(uint32_t flag) {
    return flag == 1 ? "YES" : "NO";
}

const char* modeName(uint8_t mode) {
    switch (mode) {
        case VORN_MODE_MASTER:
            return "MASTER";
        case VORN_MODE_TRANSIT:
            return "TRANSIT";
        default:
            return "NONE";
    }
}

Name ifName(uint32_t ifIndex) {
    Name name{};
    ifmIfIndexToName(ifIndex, name.data(), name.size());
    return name;
}

// The name of the interface behind a port number; a number without a port record (which
// the tables should never leave in a bitmap) is shown as such.
Name portName(uint16_t portNum) {
    const VornPortEntry* port = vornGetPort(portNum);
    if (port != nullptr) return ifName(port->u4IfIndex);
    Name name{};
    std::snprintf(name.data(), name.size(), "PN %d", portNum);
    return name;
}

template <typename F>
void forEachBit(std::span<const uint8_t> bitmap, uint32_t nbits, F fn) {
    for (uint16_t bit = GET_FIRST_BIT_BITMAP(bitmap, nbits); bit != vorn::bmp::kNoBit;
         bit = GET_NEXT_BIT_BITMAP(bitmap, nbits, bit)) {
        fn(bit);
    }
}

void printBitmap(std::span<const uint8_t> bitmap, uint32_t nbits, const char* title) {
    if (GET_FIRST_BIT_BITMAP(bitmap, nbits) == vorn::bmp::kNoBit) return;
    std::printf("%s", title != nullptr ? title : "");
    forEachBit(bitmap, nbits, [](uint16_t bit) { std::printf("%d, ", bit); });
    std::puts("\r");
}

// The member ports of a VLAN by name, 15 to a line, closed by "Done".
void printPortList(const char* heading, const VornPortBmap& ports) {
    std::puts(heading);
    int names = 0;
    forEachBit(ports, VORN_PORT_BMAP_BITS, [&names](uint16_t portNum) {
        std::printf(" %s,", portName(portNum).data());
        if (++names % kNamesPerLine == 0) std::printf("\r\n");
    });
    std::puts(" \r\n Done \r");
}

void printRing(const VornRingEntry& r) {
    std::puts("\r");
    std::printf("\t Ring id                     : %d (Addr: %p)\r\n", r.u2RingId,
                static_cast<const void*>(&r));
    std::printf("\t Control Vlan Ifindex        : 0x%lx \r\n",
                static_cast<unsigned long>(r.u4CtrlVlanIfIndex));
    std::printf("\t Control Vlan Id             : %d \r\n", r.u2CtrlVlanId);
    std::printf("\t Hello Time                  : %d \r\n", r.u2HelloTime);
    std::printf("\t Dead Time                   : %d \r\n", r.u2DeadTime);
    std::printf("\t Mode                        : %s \r\n", modeName(r.u1Mode));
    std::printf("\t Designated Line Card        : %d \r\n", r.u2DesgLineCard);
    std::printf("\t Flags                       : 0x%x \r\n", r.u4Flags);

    std::printf("\t Primary Port Details        : %s\r \n", ifName(r.u4PriIfIndex).data());
    std::printf("\t    IfIndex                  : 0x%lx \r\n",
                static_cast<unsigned long>(r.u4PriIfIndex));
    std::printf("\t    Port Number              : %d \r\n", r.u2PriPortNum);
    std::printf("\t    Ring Owned by VORN Mgr   : %s \r\n", yesNo(r.isRingOwnedByMgr));
    std::printf("\t    Port Owned by Ring       : %s \r\n", yesNo(r.isPriOwned));
    std::printf("\t    Port Tagged in Ctrl Vlan : %s \r\n", yesNo(r.isPriTagged));
    std::printf("\t    Port State               : %s \r\n", vornPortStateName(r.u4PriPortState));

    std::printf("\t Secondary Port Details      : %s\r \n", ifName(r.u4SecIfIndex).data());
    std::printf("\t    IfIndex                  : 0x%lx \r\n",
                static_cast<unsigned long>(r.u4SecIfIndex));
    std::printf("\t    Port Number              : %d \r\n", r.u2SecPortNum);
    std::printf("\t    Port Ready               : %s \r\n", yesNo(r.isSecReady));
    std::printf("\t    Port Owned by Ring       : %s \r\n", yesNo(r.isSecOwned));
    std::printf("\t    Port Tagged in Ctrl Vlan : %s \r\n", yesNo(r.isSecTagged));
    std::printf("\t    Port State               : %s \r\n", vornPortStateName(r.u4SecPortState));

    // The description is meant to be NUL-terminated; the bound keeps a full one in its field.
    const int descLen = static_cast<int>(strnlen(r.description.data(), r.description.size()));
    std::printf("\t Description                 : %.*s \r\n", descLen, r.description.data());
    std::printf("\t STG Inst                    : %d \r\n", r.u2StgInst);
    std::puts("\t Member Vlans                : \r");
    bool any = false;
    forEachBit(r.memberVlanBmap, VORN_VLAN_BMAP_BITS, [&any](uint16_t vlan) {
        std::printf(" %d", vlan);
        any = true;
    });
    if (any) std::puts("\r");
}

void printVlan(int vlanId, const VornVlanEntry& v, int printBitmap) {
    std::printf("Details for vlan %d : (Addr: %p)\r\n", vlanId, static_cast<const void*>(&v));
    std::printf("  IfIndex          %lx \r\n", static_cast<unsigned long>(v.u4IfIndex));
    std::printf("  Ctrl VlanRing Id %d \r\n", v.u2CtrlVlanRingId);
    if (printBitmap != 0) {
        printPortList("  Port List: \r", v.portBmap);
        printPortList("  Tagged Port List: \r", v.taggedPortBmap);
    }
    // A VLAN is a member VLAN of one ring at most: the one its record names.
    std::puts("  This vlan is a Member Vlan for Rings: \r");
    if (vornIsValidRingId(v.u2MemberVlanRingId)) std::printf("  %d,", v.u2MemberVlanRingId);
    std::puts(" \r\n Done \r");
    std::printf("   Vlan created by IFM: %s \r\n", yesNo(v.isCreatedByIfm));
    std::printf("   Vlan created by Ring Conf: %s \r\n", yesNo(v.isCreatedByRingConf));
}

void printPort(int portNum, const VornPortEntry& p, int printBitmap) {
    const auto& m = p.macAddr;
    std::printf("Details for port %d : (Addr: %p)\r\n", portNum, static_cast<const void*>(&p));
    std::printf("  IfIndex    %lx \r\n", static_cast<unsigned long>(p.u4IfIndex));
    std::printf("  Port Mode  %d \r\n", static_cast<int>(p.u4PortMode));
    std::printf("  Ostate     %s \r\n", p.u2OperState == 1 ? "UP" : "DOWN");
    std::printf("  Mac        %x:%x:%x:%x:%x:%x \r\n", m[0], m[1], m[2], m[3], m[4], m[5]);
    if (printBitmap != 0) {
        vornPrintVlanBmap(p.vlanBmap, "   Vlans: \r\n   ");
        vornPrintVlanBmap(p.ctrlVlanBmap, "   Control Vlans: \r\n   ");
        vornPrintRingBmap(p.ringBmap, "   Rings: \r\n   ");
    }
    std::printf("  Created by IFM: %s \r\n", yesNo(p.isCreatedByIfm));
    std::printf("  Owned by Ring conf: %s \r\n", yesNo(p.isOwnedByRingConf));
    std::printf("  Ring count %d \r\n", p.i2RingCount);
    std::printf("  Lag-parent 0x%x \r\n", p.u2LagParent);

    const VornLagPortList* lag = p.pLagPortList;
    if (lag == nullptr) {
        std::puts("  Not LAG: no portlist \r");
        return;
    }
    std::puts("Lag Port List : \r");
    std::printf(" desgPortNum %d, lastEmptyIndex %d \r\n", lag->desgPortNum, lag->lastEmptyIndex);
    std::puts("Lag members: \r");
    // The list is compact below lastEmptyIndex; a count above the list's size is not trusted.
    const size_t n = std::min<size_t>(lag->lastEmptyIndex, lag->members.size());
    for (size_t i = 0; i < n; ++i) std::printf(" %d,", lag->members[i]);
    if (n > 0) std::puts("\r");
}

}  // namespace

void vornPrintRingBmap(std::span<const uint8_t> bitmap, const char* title) {
    printBitmap(bitmap, VORN_RING_BMAP_BITS, title);
}

void vornPrintPortBmap(std::span<const uint8_t> bitmap, const char* title) {
    printBitmap(bitmap, VORN_PORT_BMAP_BITS, title);
}

int vornPrintSingleRing(int ringId) {
    if (ringId < VORN_MIN_RING_ID || ringId > VORN_MAX_RING_ID) {
        std::puts("Invalid Ring Id \r");
        return 0;
    }
    if (const VornRingEntry* ring = gVornRing[static_cast<size_t>(ringId)]) printRing(*ring);
    return 0;
}

int vornPrintRing(int ringId) {
    if (ringId != 0) return vornPrintSingleRing(ringId);
    for (int id = VORN_MIN_RING_ID; id <= VORN_MAX_RING_ID; ++id) vornPrintSingleRing(id);
    return 0;
}

int vornPrintSingleVlan(int vlanId, int printBitmap) {
    if (vlanId < 1 || vlanId > VORN_MAX_VLAN_ID) {
        std::puts("Invalid Vlan Id \r");
        return 0;
    }
    if (const VornVlanEntry* vlan = gVornVlan[static_cast<size_t>(vlanId)]) {
        printVlan(vlanId, *vlan, printBitmap);
    }
    return 0;
}

int vornPrintVlan(int vlanId, int printBitmap) {
    if (vlanId != 0) return vornPrintSingleVlan(vlanId, printBitmap);
    for (int id = 1; id <= VORN_MAX_VLAN_ID; ++id) {
        if (gVornVlan[static_cast<size_t>(id)] != nullptr) vornPrintSingleVlan(id, printBitmap);
    }
    return 0;
}

int vornPrintPortByPortnum(int portNum, int printBitmap) {
    if (portNum < 1 || portNum > VORN_MAX_PORT_NUM) {
        std::puts("Invalid Port number \r");
        return 0;
    }
    if (const VornPortEntry* port = gVornPort[static_cast<size_t>(portNum)]) {
        printPort(portNum, *port, printBitmap);
    }
    return 0;
}

int vornPrintPort(int slot, int port, int printBitmap) {
    // Unsigned arithmetic, so that no argument from the shell can overflow.
    const uint32_t portNum = static_cast<uint32_t>(slot) * VORN_PORTS_PER_SLOT +
                             static_cast<uint32_t>(port) + VORN_PHYS_PORT_BASE;
    return vornPrintPortByPortnum(static_cast<uint16_t>(portNum), printBitmap);
}

int vornPrintLag(int lagId, int printBitmap) {
    return vornPrintPortByPortnum(lagId, printBitmap);
}

int vornPrintLcTypeInfo() {
    for (int slot = 0; slot < VORN_MAX_SLOTS; ++slot) {
        const uint32_t type = vornTcb.lcType[static_cast<size_t>(slot)];
        if (type != 0) {
            std::printf("Slot Id: %d, Type: 0x%x (%d)\r\n", slot, type, static_cast<int>(type));
        }
    }
    return 0;
}

int vornPrintDbgDB(int ringId) {
    if (ringId < VORN_MIN_RING_ID || ringId > VORN_MAX_RING_ID) return 0;
    const VornRingEntry* ring = gVornRing[static_cast<size_t>(ringId)];
    if (ring == nullptr) return 0;
    for (size_t i = 0; i < ring->dbgCfg.size(); ++i) {
        if (ring->dbgCfg[i].isSet == 1) {
            std::printf("Dbg set for : %d count %ld\r\n", static_cast<int>(i),
                        static_cast<long>(ring->dbgCfg[i].count));
        }
    }
    return 0;
}
