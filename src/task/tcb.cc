// The task control block, counters, error tallies and print flags.

#include "task/tcb.h"

#include "task/trace.h"

alignas(8) std::array<uint8_t, vorn::ipc::kMaxMsgLen> gVornMainIpcBuf{};
VornTcb vornTcb{};
std::array<uint32_t, VORN_NUM_COUNTERS> gVornCounters{};
std::array<uint32_t, VORN_NUM_ERRS> gVornErrs{};

uint32_t vornDbgPrint = 0;
uint32_t vornErrPrint = 0;
uint32_t vornMsgPrint = 0;
uint32_t vornAgtMsgPrint = 0;
uint32_t vornL2pmMsgPrint = 0;
uint32_t vornDebug = 0;
uint32_t vornL2Debug = 0;
uint32_t vornZilDbgPrint = 0;

int vornClearCounters() {
    gVornCounters.fill(0);
    return 0;
}

int vornClearErrs() {
    gVornErrs.fill(0);
    return 0;
}
