// Deferred sends: with deferral on, a send to a full queue returns at once, later sends to the
// same queue wait behind it, and the flush delivers them in order once the reader makes room.

#include <gtest/gtest.h>

#include <vector>

#include "platform/codec.h"
#include "platform/ipc.h"
#include "support/rundir.h"

namespace vorn {
namespace {

using DeferredSendTest = test::PlatformTest;

TEST_F(DeferredSendTest, AFullQueueKeepsTheSenderGoingAndGetsEverythingInOrder) {
    QelKey sender = qelIpcTmrOpen(50, 0);
    QelKey reader = qelIpcTmrOpen(226, 0);
    ASSERT_GT(sender, 0);
    ASSERT_GT(reader, 0);
    host::setDeferFullSends(true);
    // Far more than any datagram queue of the host holds; none of the sends may wait.
    constexpr uint32_t kSends = 200;
    const auto t0 = std::chrono::steady_clock::now();
    for (uint32_t i = 1; i <= kSends; ++i) {
        std::vector<uint8_t> m(64, 0);
        be::Writer w(m.data(), m.size());
        w.u32(ipc::kOffMlen, 64);
        w.u32(ipc::kOffMtype, 7001);
        w.u32(ipc::kOffDstSvce, qel_getQueueId(226, 0, ipc::kKindRequest));
        w.u32(60, i);
        ASSERT_EQ(qelIpcSend(sender, m.data(), static_cast<int>(m.size())), 0) << i;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(150));
    EXPECT_GT(host::ipcStats().deferred, 0u);

    std::vector<uint32_t> got;
    std::vector<uint8_t> buf(ipc::kMaxMsgLen);
    ASSERT_TRUE(test::waitFor([&] {
        host::flushDeferredSends();
        for (int n; (n = qelIpcRecv(Key_getReqQueue(reader), buf.data(),
                                    static_cast<int>(buf.size()), 0, 0, 0)) > 0;)
            got.push_back(be::Reader(buf.data(), static_cast<size_t>(n)).u32(60));
        return got.size() == kSends;
    }));
    for (uint32_t i = 0; i < kSends; ++i) ASSERT_EQ(got[i], i + 1);
    EXPECT_EQ(host::flushDeferredSends(), 0u);
}

}  // namespace
}  // namespace vorn
