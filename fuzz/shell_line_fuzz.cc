// Debug-shell lines (mtype 9001) sent to the manager's request queue and served by the host
// library as qelIpcRecv reads them: the line is cut at its NUL, split into a function or
// global name and its arguments (decimal or 0x hex numbers, anything else refused), and the
// named diagnostic function runs over the manager's tables while its output is captured and
// sent back in 9002 pieces to the client (40.2), which drops them.
//
// Input: bytes 0-1 are the datagram's length (taken into 60..8192), apart from the input's
// size; the bytes after them are the message from offset 0, zero-filled up to the length
// (the line starts at offset 60). The header is the host library's: magic, length word,
// mtype 9001, and the manager's request queue as the target.
//
// The manager knows the two rings of makeTwoRings (fuzz_support.h) and has every diagnostic
// function and print flag registered. The globals a line may set (the print flags and
// gHalVornForcePortOwnerShip) and the counters a line may clear are put back after every
// input.
//
// Seeds: fuzz/corpus/shell_line_fuzz/, written by fuzz/gen_line_corpora.py.

#include <array>
#include <cstdlib>

#include "diag/diag.h"
#include "fuzz_support.h"
#include "l2pm/l2pm.h"
#include "platform/codec.h"
#include "platform/ipc.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

namespace ipc = vorn::ipc;

constexpr int kClient = 2;
QelKey gClient = -1;

// What a line may change.
struct Settable {
    std::array<uint32_t*, 9> globals = {
        &vornDbgPrint,    &vornErrPrint,     &vornMsgPrint,
        &vornAgtMsgPrint, &vornL2pmMsgPrint, &vornDebug,
        &vornL2Debug,     &vornZilDbgPrint,  &gHalVornForcePortOwnerShip};
    std::array<uint32_t, 9> values{};
    decltype(gVornCounters) counters{};
    decltype(gVornErrs) errs{};

    void save() {
        for (size_t i = 0; i < globals.size(); ++i) values[i] = *globals[i];
        counters = gVornCounters;
        errs = gVornErrs;
    }
    void restore() const {
        for (size_t i = 0; i < globals.size(); ++i) *globals[i] = values[i];
        gVornCounters = counters;
        gVornErrs = errs;
    }
};
Settable gStart;

}  // namespace

void vorn::fuzz::setUp() {
    vorn::fuzz::initManager();
    vorn::fuzz::quietStdout();
    vorn::fuzz::openManagerQueues();
    gClient = qelIpcTmrOpen(ipc::kSvcCli, kClient);
    if (gClient < 0) abort();
    vorn::fuzz::makeTwoRings("shell_line_fuzz");
    vornRegisterDiagCommands();
    qelDdbInit(nullptr);
    gStart.save();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vorn::fuzz::MsgBuf& buf = vorn::fuzz::messageBuffer();
    const size_t len = vorn::fuzz::makeSizedMessage(data, size, ipc::kMtShellRequest, &buf);
    if (len == 0) return 0;
    // The shell line is served inside the receive, which passes nothing on.
    if (vorn::fuzz::passToManager(gClient, kClient, &buf, len) >= 0) abort();
    vorn::fuzz::drain(Key_getReqQueue(gClient));
    gStart.restore();
    return 0;
}
