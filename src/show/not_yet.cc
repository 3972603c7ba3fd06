// Show, debug and clear are not built yet. Each request is refused: a show request gets an
// answer with status -1 and no data, a debug or clear request the reply status 0xFFFF; the
// refusal is traced under the error flag and nothing changes.

#include <algorithm>
#include <array>

#include "platform/codec.h"
#include "platform/ipc.h"
#include "show/show.h"
#include "task/msgtypes.h"
#include "task/not_yet.h"
#include "task/tcb.h"
#include "wire/cli.h"

namespace {

// The display answer (MT 6002): 60 status, 64 more-follows, 68 paging state, 84 data length.
constexpr size_t kOffAnswerStatus = 60;
constexpr size_t kAnswerLen = 88;

}  // namespace

int vornUndebugAll(uint8_t*) {
    return vornNotBuiltYet("vornUndebugAll");
}

int vornProcessShowSummary(uint8_t* request) {
    std::array<uint8_t, kAnswerLen> answer{};
    std::copy_n(request, vorn::ipc::kHdrLen, answer.begin());
    vorn::be::Writer w(answer.data(), answer.size());
    w.u32(vorn::ipc::kOffMlen, kAnswerLen);
    w.u32(vorn::ipc::kOffMtype, MT_NM_DISPLAY);
    w.u32(kOffAnswerStatus, 0xFFFFFFFF);  // -1: refused, no data follows
    qelIpcReply(vornTcb.ipcKey, answer.data(), static_cast<int>(answer.size()));
    return vornNotBuiltYet("vornProcessShowSummary");
}

int vornProcessDbgMsg(uint8_t*) {
    return vornNotBuiltYet("vornProcessDbgMsg");
}

int vornClearStatCounters(uint8_t* request) {
    vorn::be::Writer(request, vorn::nm::kLen).u16(vorn::nm::kOffStatus, 0xFFFF);
    return vornNotBuiltYet("vornClearStatCounters");
}
