// Printing of the task control block, the counters and the error tallies.

#include <array>
#include <cstdio>

#include "diag/diag.h"
#include "platform/codec.h"
#include "platform/ipc.h"
#include "task/tcb.h"

namespace {

constexpr std::array<const char*, VORN_NUM_COUNTERS> kCounterLabels = {
    "Add Vlan",
    "Del Vlan",
    "Add Phy/Lag If",
    "Del Phy/Lag If",
    "Port Mode change",
    "Oper Up",
    "Oper Down",
    "Mac Address change",
    "Add Vlan port",
    "Del Vlan port",
    "IFM Notification",
    "L2PM Notification",
    "SWP ACK",
    "SWP ACK Timeout",
    "NM count",
    "EVH Notification",
    "IPC default",
    "L2PM reg success",
    "L2PM dereg success",
    "L2PM reg failure",
    "L2PM dereg failure",
    "L2PM End Blk-Cfg",
    "L2PM Cfg Complete",
    "EV-H reg success",
    "EV-H reg failure",
    "EV-H card Up",
    "EV-H card Down",
    "EV-H card Shutdown",
    "EV-H default",
    "VORN proto",
    "VORN no proto",
    "ADD ctrl vlan",
    "DEL ctrl vlan",
    "ADD mode",
    "DEL mode",
    "ENABLE ring",
    "DISABLE ring",
    "ADD mem vlan",
    "DEL mem vlan",
    "ADD hello",
    "DEL hello",
    "ADD dead",
    "DEL dead",
    "ADD desc",
    "DEL desc",
    "CLI default",
};

// The groups in the order they are printed: heading, first and last counter index.
struct Group {
    const char* heading;
    int first;
    int last;
};
constexpr Group kGroups[] = {
    {"IFM: \r", 0, 9},    {"CLI: \r", 45, 45},        {"IPC: \r", 10, 16},
    {"L2PM: \r", 17, 22}, {"EV-HANDLER: \r", 23, 28}, {"CLI: \r", 29, 44},
};

void printCounter(int i) {
    std::printf("\t %-18s %ld \r\n", kCounterLabels[static_cast<size_t>(i)],
                static_cast<long>(gVornCounters[static_cast<size_t>(i)]));
}

}  // namespace

int vornPrintCounters() {
    for (const Group& g : kGroups) {
        std::puts(g.heading);
        for (int i = g.first; i <= g.last; ++i) printCounter(i);
    }
    return 0;
}

int vornPrintErrs() {
    auto e = [](VornErr i) { return static_cast<long>(gVornErrs[i]); };
    std::puts("GENERAL: \r");
    std::printf("\t Memory allocation errors %ld \r\n", e(VORN_ERR_MEM_ALLOC));
    std::puts("IFM: \r");
    std::printf("\t Add Vlan Errs       %ld \r\n", e(VORN_ERR_ADD_VLAN));
    std::printf("\t Del Vlan Errs       %ld \r\n", e(VORN_ERR_DEL_VLAN));
    std::printf("\t Add Phy/Lag If Errs %ld \r\n", e(VORN_ERR_ADD_PORT));
    std::printf("\t Del Phy/Lag If Errs %ld \r\n", e(VORN_ERR_DEL_PORT));
    std::printf("\t Ostate Up Errs      %ld \r\n", e(VORN_ERR_OSTATE_UP));
    std::printf("\t Ostate Down Errs    %ld \r\n", e(VORN_ERR_OSTATE_DOWN));
    return 0;
}

int vornPrintTcb() {
    const VornTcb& t = vornTcb;
    std::puts("VORN TCB: \r");
    std::printf("\t service       %d \r\n", VORN_SERVICE);
    std::printf("\t pKey          %d \r\n", static_cast<int>(t.pKey));
    std::printf("\t taskId        %d \r\n", static_cast<int>(t.taskId));
    std::printf("\t ipcKey        %d \r\n", static_cast<int>(t.ipcKey));
    std::printf("\t service       %d \r\n", t.service);
    std::printf("\t instance      %d \r\n", t.instance);
    std::printf("\t evLogKey      %d \r\n", static_cast<int>(t.evLogKey));
    std::printf("\t reqQfd        %d \r\n", t.reqQfd);
    std::printf("\t timerQfd      %d \r\n", t.timerQfd);
    std::printf("\t evtLevel      %d \r\n", static_cast<int>(t.evtLevel));
    std::printf("\t recvEOConf    %d \r\n", static_cast<int>(t.recvEOConf));
    std::printf("\t swpPipefd     %d \r\n", t.swpPipefd);
    std::printf("\t l2pmSwpHandle   %d \r\n", static_cast<int>(t.l2pmSwpHandle));
    for (int s = 0; s < VORN_MAX_SLOTS; ++s)
        std::printf("\t vornaSwpHandle[%d]  %d \r\n", s,
                    static_cast<int>(t.vornaSwpHandle[static_cast<size_t>(s)]));
    return 0;
}

int vornPrintIpcHdr(const uint8_t* msg) {
    namespace ipc = vorn::ipc;
    vorn::be::Reader rd(msg, ipc::kHdrLen);
    std::printf("magic : 0x%lx\r\n", static_cast<unsigned long>(rd.u32(ipc::kOffMagic)));
    std::printf("mtype : %d\r\n", static_cast<int>(rd.u32(ipc::kOffMtype)));
    std::printf("mlen  : %d\r\n", static_cast<int>(rd.u32(ipc::kOffMlen)));
    std::printf("source.slot : %d\r\n", static_cast<int>(rd.u32(ipc::kOffSrcSlot)));
    std::printf("source.card : 0x%x\r\n", rd.u32(ipc::kOffSrcCard));
    std::printf("source.svce : %d\r\n", static_cast<int>(rd.u32(ipc::kOffSrcSvce)));
    std::printf("target.slot : %d\r\n", static_cast<int>(rd.u32(ipc::kOffDstSlot)));
    std::printf("target.card : 0x%x\r\n", rd.u32(ipc::kOffDstCard));
    std::printf("target.svce : %d\r\n", static_cast<int>(rd.u32(ipc::kOffDstSvce)));
    return 0;
}
