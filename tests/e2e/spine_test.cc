// End to end: the manager's start-up against a simulated chassis whose peers come late or
// refuse.

#include <gtest/gtest.h>

#include <chrono>

#include "chassis.h"

namespace vorn::e2e {
namespace {

using Clock = std::chrono::steady_clock;

TEST(Spine, WaitsForL2pmAndFinishesStartUpSoonAfterItAppears) {
    Chassis c;
    c.start({"--no-l2pm"});
    // The manager waits for L2PM's queue before it subscribes, answering the shell meanwhile.
    ASSERT_TRUE(eventually([&] { return c.counter("EV-H reg success") == 0; }, 10000))
        << c.simLog();

    auto appeared = Clock::now();
    std::string out;
    ASSERT_EQ(c.ctl({"sim", "l2pm", "absent", "off"}, &out), 0) << out;
    ASSERT_TRUE(eventually([&] { return c.counter("L2PM reg success") == 1; }, 20000))
        << c.simLog();
    // It looks for L2PM once a second; allow for a loaded machine, not for a much slower poll.
    auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - appeared);
    EXPECT_LT(took.count(), 5000) << "start-up finished " << took.count() << " ms after L2PM";
    EXPECT_EQ(c.counter("EV-H reg success"), 1);
    // A registration tried while L2PM was absent would have failed and been counted.
    EXPECT_EQ(c.counter("L2PM reg failure"), 0);
}

TEST(Spine, RefusedSubscriptionIsRetriedOnceASecond) {
    Chassis c;
    c.start({"--evh-refuse"});
    ASSERT_TRUE(eventually([&] { return c.counter("EV-H reg failure") >= 1; }, 10000))
        << c.simLog();
    // At least three retries within a generous deadline, and not more than one a second:
    // the interval runs from before the first count was read to after the last one.
    auto t0 = Clock::now();
    long first = c.counter("EV-H reg failure");
    long last = first;
    ASSERT_TRUE(
        eventually([&] { return (last = c.counter("EV-H reg failure")) >= first + 3; }, 30000))
        << "retries: " << last - first;
    double secs = std::chrono::duration<double>(Clock::now() - t0).count();
    EXPECT_LE(last - first, static_cast<long>(secs) + 2) << "in " << secs << " s";
    EXPECT_EQ(c.counter("L2PM reg success"), 0) << "L2PM comes only after the event handler";

    std::string out;
    ASSERT_EQ(c.ctl({"sim", "evh", "refuse", "off"}, &out), 0) << out;
    ASSERT_TRUE(eventually([&] { return c.counter("L2PM reg success") == 1; }, 10000));
    EXPECT_EQ(c.counter("EV-H reg success"), 1);
}

}  // namespace
}  // namespace vorn::e2e
