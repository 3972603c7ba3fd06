// In-process manager fixture: a fresh run directory, the manager's queues, pools and tables
// set up as start-up leaves them (without the blocking registrations), and helpers to play
// its peers. It includes the manager's whole interface, so that the handler tests need no
// list of their own.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <thread>
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

// Answers `count` requests on a peer's queue in place from a thread, as the peers answer the
// manager's send-and-wait: `edit` turns request i into its reply; `seen` keeps the requests.
// The caller joins the thread.
std::thread answerInPlace(QelKey peer, std::vector<Bytes>* seen,
                          std::function<void(size_t, Bytes&)> edit, size_t count = 1);

class MgrTest : public PlatformTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // Opens a peer endpoint (e.g. L2PM 166.0) in the test process.
    QelKey openPeer(int service, int instance);
    // Registers the manager with the peer-pair library (once) and makes ifIndex the
    // inter-chassis link (0: none).
    void setIcl(uint32_t ifIndex);
    // Creates the manager's SWP queue to L2PM; the L2PM endpoint must be open.
    void createL2pmQueue();
    // Waits up to timeoutMs for a message on a peer's request queue; returns it (empty on
    // time-out).
    std::vector<uint8_t> recvOn(QelKey peer, int timeoutMs = 1000);
    // Sends msg from the peer to the manager's request queue, lets the manager's dispatch
    // serve it and returns the reply (empty when none came within waitMs).
    std::vector<uint8_t> serve(QelKey peer, const uint8_t* msg, size_t len, int waitMs = 1000);
    // A ring record as the ring's creation leaves it: default timers, no designated card.
    VornRingEntry* makeRing(uint16_t id);
    // A port record as IFM's report leaves it: up, carrying the given VLANs.
    VornPortEntry* makePort(uint32_t ifIndex, std::initializer_list<int> vlans = {});
    // Captures what fn prints on the standard output.
    template <typename F>
    std::string captureStdout(F fn);
    // The contents of a file in the run directory ("" when it is not there).
    std::string runFile(const std::string& name) const;
    // Bytes of the variable partition in use, for leak checks.
    uint64_t varBlocksInUse() const;
};

std::string captureStdoutImpl(void (*thunk)(void*), void* ctx);

template <typename F>
std::string MgrTest::captureStdout(F fn) {
    return captureStdoutImpl([](void* c) { (*static_cast<F*>(c))(); }, &fn);
}

}  // namespace vorn::test
