// vornHelp and the registration of the diagnostic functions with the debug shell.

#include <cstdio>

#include "diag/diag.h"
#include "platform/shell.h"
#include "task/handlers.h"
#include "task/tcb.h"
#include "task/trace.h"

#include "l2pm/l2pm.h"

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
        "vornPrintIpcHdr",
        [](const std::vector<long>&) { vornPrintIpcHdr(vornLastReceivedMsg()); },
        "header of the last received message");
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
