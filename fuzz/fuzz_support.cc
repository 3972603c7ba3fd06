#include "fuzz_support.h"

#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "agent/agent.h"
#include "config/config.h"
#include "ifm/ifm.h"
#include "loop/loop.h"
#include "peer/peer.h"
#include "platform/codec.h"
#include "platform/ipc.h"
#include "show/show.h"
#include "task/pools.h"
#include "task/register.h"
#include "task/swpq.h"
#include "task/tcb.h"

namespace vorn::fuzz {

void initManager() {
    static bool done = false;
    if (done) return;
    done = true;
    char tmpl[] = "/tmp/vorn-fuzz-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) abort();
    std::string err;
    if (!host::setRunDir(tmpl, &err)) abort();
    vornTcb = VornTcb{};
    if (vornCreateMemPools() != 0) abort();
    vornInitGlobals();
}

bool makeMessage(const uint8_t* data, size_t size, uint32_t mtype, std::array<uint8_t, 8192>* msg) {
    if (size < ipc::kHdrLen) return false;
    size_t len = std::min(size, msg->size());
    msg->fill(0);
    std::memcpy(msg->data(), data, len);
    be::Writer w(msg->data(), len);
    w.u32(ipc::kOffMagic, ipc::kMagic);
    w.u32(ipc::kOffMlen, static_cast<uint32_t>(len));
    w.u32(ipc::kOffMtype, mtype);
    return true;
}

}  // namespace vorn::fuzz
