// vornHelp and the registration of the diagnostic functions with the debug shell.

#include <array>
#include <cstdio>
#include <vector>

#include "diag/diag.h"
#include "peer/peer.h"
#include "platform/shell.h"
#include "task/tcb.h"
#include "task/trace.h"

#include "l2pm/l2pm.h"
#include "ringdb/records.h"
#include "ringdb/ringdb.h"

namespace {

// The shell passes integers only, so the bitmap and MAC printers are offered on the
// bitmaps and addresses of the records an id names. An id out of range, or without a
// record, prints nothing.
long shellArg(const std::vector<long>& args, size_t i) {
    return i < args.size() ? args[i] : 0;
}

template <typename T, size_t N>
const T* recordAt(const std::array<T*, N>& table, long id, long maxId) {
    return id >= 1 && id <= maxId ? table[static_cast<size_t>(id)] : nullptr;
}

// "vornPrintRingBmap portNum": the rings that use a port.
void shellPrintRingBmap(const std::vector<long>& args) {
    if (const auto* p = recordAt(gVornPort, shellArg(args, 0), VORN_MAX_PORT_NUM))
        vornPrintRingBmap(p->ringBmap, "Rings: ");
}

// "vornPrintPortBmap vlanId [tagged]": the member ports, or the tagged ones, of a VLAN.
void shellPrintPortBmap(const std::vector<long>& args) {
    if (const auto* v = recordAt(gVornVlan, shellArg(args, 0), VORN_MAX_VLAN_ID)) {
        if (shellArg(args, 1) != 0) {
            vornPrintPortBmap(v->taggedPortBmap, "Tagged Ports: ");
        } else {
            vornPrintPortBmap(v->portBmap, "Ports: ");
        }
    }
}

// "vornPrintVlanBmap ringId": a ring's member VLANs; ring id 0 gives the member and
// control VLANs of all rings.
void shellPrintVlanBmap(const std::vector<long>& args) {
    const long ringId = shellArg(args, 0);
    if (ringId == 0) {
        vornPrintVlanBmap(gVornMemVlanBmap, "Member Vlans: ");
        vornPrintVlanBmap(gVornCtrlVlanBmap, "Control Vlans: ");
    } else if (const auto* r = recordAt(gVornRing, ringId, VORN_MAX_RING_ID)) {
        vornPrintVlanBmap(r->memberVlanBmap, "Member Vlans: ");
    }
}

// "vornPrintMacAddr portNum": the MAC address of a port.
void shellPrintMacAddr(const std::vector<long>& args) {
    if (const auto* p = recordAt(gVornPort, shellArg(args, 0), VORN_MAX_PORT_NUM))
        vornPrintMacAddr(p->macAddr, "Mac");
}

}  // namespace

int vornHelp() {
    static const char* const kLines[] = {
        "VORN HELP commands \r",
        "\t vornPrintTcb (void) \r",
        "\t vornPrintCounters (void) \r",
        "\t vornClearCounters (void) \r",
        "\t vornPrintErrs (void) \r",
        "\t vornClearErrs (void) \r",
        "\t vornPrintPort (slot, port, printBitmap) \r",
        "\t vornPrintLag (lagid, printBitmap) \r",
        "\t vornPrintVlan (vlanid, printBitmap) \r",
        "\t    Set 'vlanid' to 0 to print all Vlans \r",
        "\t vornPrintRing (ringId) \r",
        "\t    Set 'ringId' to 0 to print all Rings \r",
        "\t vornPrintLcTypeInfo () \r",
    };
    for (const char* line : kLines) std::puts(line);
    return 0;
}

void vornRegisterDiagCommands() {
    using vorn::shell::registerFunction;
    using vorn::shell::registerGlobal;
    registerFunction("vornHelp", vornHelp, "list the diagnostic commands");
    registerFunction("vornPrintTcb", vornPrintTcb, "task control block");
    registerFunction("vornPrintCounters", vornPrintCounters, "event counters");
    registerFunction("vornClearCounters", vornClearCounters, "clear the event counters");
    registerFunction("vornPrintErrs", vornPrintErrs, "error tallies");
    registerFunction("vornClearErrs", vornClearErrs, "clear the error tallies");
    // The shell cannot hand over a message address safely; this prints the header of the
    // last message the manager received.
    registerFunction(
        "vornPrintIpcHdr", [](const std::vector<long>&) { vornPrintIpcHdr(vornLastReceivedMsg()); },
        "header of the last received message");
    registerFunction("vornPrintPort", vornPrintPort, "port record of slot, port");
    registerFunction("vornPrintLag", vornPrintLag, "port record of a LAG");
    registerFunction("vornPrintPortByPortnum", vornPrintPortByPortnum,
                     "port record by port number");
    registerFunction("vornPrintVlan", vornPrintVlan, "VLAN record (0: all)");
    registerFunction("vornPrintSingleVlan", vornPrintSingleVlan, "one VLAN record");
    registerFunction("vornPrintRing", vornPrintRing, "ring record (0: all)");
    registerFunction("vornPrintSingleRing", vornPrintSingleRing, "one ring record");
    registerFunction("vornPrintLcTypeInfo", vornPrintLcTypeInfo, "line-card types");
    registerFunction("vornPrintDbgDB", vornPrintDbgDB, "debug settings of a ring");
    registerFunction("vornPrintRingBmap", shellPrintRingBmap, "rings using a port");
    registerFunction("vornPrintPortBmap", shellPrintPortBmap,
                     "member (or, with 1, tagged) ports of a VLAN");
    registerFunction("vornPrintVlanBmap", shellPrintVlanBmap,
                     "member VLANs of a ring (0: member and control VLANs of all)");
    registerFunction("vornPrintMacAddr", shellPrintMacAddr, "MAC address of a port");
    registerFunction(
        "vornGetOperStatus",
        [](const std::vector<long>& args) {
            int status = vornGetOperStatus(static_cast<uint16_t>(args.empty() ? 0 : args[0]));
            std::printf("Ring %ld oper status: %d (%s)\r\n", args.empty() ? 0L : args[0], status,
                        status == VORN_OPER_UP     ? "UP"
                        : status == VORN_OPER_DOWN ? "DOWN"
                                                   : "-");
        },
        "operational state of a ring: 1 UP, 0 DOWN, 2 not a master");
    registerFunction("vornTestAppPduToPeer", vornTestAppPduToPeer,
                     "send a test application PDU to the peer");
    registerFunction("vornZilSetLibDbgBits", vornZilSetLibDbgBits,
                     "turn on every debug bit of the peer-pair library");
    registerFunction("vornZilDebugLibInfo", vornZilDebugLibInfo, "the peer-pair library's state");
    registerGlobal("vornDbgPrint", &vornDbgPrint);
    registerGlobal("vornErrPrint", &vornErrPrint);
    registerGlobal("vornMsgPrint", &vornMsgPrint);
    registerGlobal("vornAgtMsgPrint", &vornAgtMsgPrint);
    registerGlobal("vornL2pmMsgPrint", &vornL2pmMsgPrint);
    registerGlobal("vornDebug", &vornDebug);
    registerGlobal("vornL2Debug", &vornL2Debug);
    registerGlobal("vornZilDbgPrint", &vornZilDbgPrint);
    registerGlobal("gHalVornForcePortOwnerShip", &gHalVornForcePortOwnerShip);
}
