// In-process manager fixture: a fresh run directory, the manager's queues, pools and tables
// set up as start-up leaves them (without the blocking registrations), and helpers to play
// its peers. It includes the manager's whole interface, so that the handler tests need no
// list of their own.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "agent/agent.h"
#include "agent/pending.h"
#include "config/config.h"
#include "config/readiness.h"
#include "ifm/ifm.h"
#include "l2pm/l2pm.h"
#include "loop/loop.h"
#include "peer/peer.h"
#include "platform/bitmap.h"
#include "platform/cfgstore.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "platform/ipc.h"
#include "platform/mem.h"
#include "platform/swp.h"
#include "ringdb/records.h"
#include "ringdb/ringdb.h"
#include "show/show.h"
#include "support/ifidx.h"
#include "support/rundir.h"
#include "support/wire.h"
#include "task/pools.h"
#include "task/register.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/agent.h"
#include "wire/msgtypes.h"

namespace vorn::test {

class MgrTest : public PlatformTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // Opens a peer endpoint (e.g. L2PM 166.0) in the test process.
    QelKey openPeer(int service, int instance);
    // Creates the manager's SWP queue to L2PM; the L2PM endpoint must be open.
    void createL2pmQueue();
    // Waits up to timeoutMs for a message on a peer's request queue; returns it (empty on
    // time-out).
    std::vector<uint8_t> recvOn(QelKey peer, int timeoutMs = 1000);
    // Captures what fn prints on the standard output.
    template <typename F>
    std::string captureStdout(F fn);
    // Bytes of the variable partition in use, for leak checks.
    uint64_t varBlocksInUse() const;
};

std::string captureStdoutImpl(void (*thunk)(void*), void* ctx);

template <typename F>
std::string MgrTest::captureStdout(F fn) {
    return captureStdoutImpl([](void* c) { (*static_cast<F*>(c))(); }, &fn);
}

}  // namespace vorn::test
