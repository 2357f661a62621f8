#include "concurrency/TnRobotInterrupt.h"

#include <gtest/gtest.h>

#include <atomic>
#include <type_traits>
#include <vector>

#include "TnRobotKernel/core.h"
#include "support/threads/Storm.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

namespace {

class Interrupt : public ThreadTest {};

}  // namespace

static_assert(!std::is_polymorphic_v<CTnRobotInterrupt> && !std::is_base_of_v<ITnUnknown, CTnRobotInterrupt>,
              "a plain object, without counting");

TEST_F(Interrupt, IsRememberedForTheNextWait) {
    CTnRobotInterrupt interrupt;
    for (int n = 0; n < 3; ++n) {
        interrupt.Interrupt();
        interrupt.Wait();
    }
}

TEST_F(Interrupt, AWaitWithoutOneBlocks) {
    CTnRobotInterrupt interrupt;
    Caller waiter([&interrupt] { interrupt.Wait(); });
    EXPECT_TRUE(waiter.AwaitBlocked());
    EXPECT_TRUE(StaysTrue([&waiter] { return !waiter.Returned(); }, Milliseconds(50)));
    interrupt.Interrupt();
    EXPECT_TRUE(waiter.AwaitReturn());
}

TEST_F(Interrupt, TwoBeforeAnyWaitReleaseOnlyOne) {
    CTnRobotInterrupt interrupt;
    interrupt.Interrupt();
    interrupt.Interrupt();
    interrupt.Wait();
    Caller second([&interrupt] { interrupt.Wait(); });
    EXPECT_TRUE(second.AwaitBlocked());
    EXPECT_TRUE(StaysTrue([&second] { return !second.Returned(); }, Milliseconds(50)));
    interrupt.Interrupt();
    EXPECT_TRUE(second.AwaitReturn());
}

TEST_F(Interrupt, ReleasesOneWaiterAtATime) {
    constexpr int kWaiters = 4;
    CTnRobotInterrupt interrupt;
    std::atomic<int> nReleased{0};
    std::vector<Caller> waiters;
    for (int n = 0; n < kWaiters; ++n) {
        waiters.emplace_back([&interrupt, &nReleased] {
            interrupt.Wait();
            ++nReleased;
        });
    }
    EXPECT_TRUE(Caller::AwaitAllBlocked(waiters));
    for (int n = 1; n <= kWaiters; ++n) {
        interrupt.Interrupt();
        EXPECT_TRUE(Eventually([&] { return nReleased == n; }));
        EXPECT_TRUE(StaysTrue([&] { return nReleased == n; }, Milliseconds(20)));
    }
}

TEST_F(Interrupt, HandsOverBetweenThreadsWithoutLosingOne) {
    CTnRobotInterrupt there;
    CTnRobotInterrupt back;
    int nValue = 0;
    Caller other([&] {
        for (int n = 0; n < StormLength(2000); ++n) {
            there.Wait();
            ++nValue;
            back.Interrupt();
        }
    });
    for (int n = 1; n <= StormLength(2000); ++n) {
        there.Interrupt();
        back.Wait();
        ASSERT_EQ(nValue, n);
    }
}
