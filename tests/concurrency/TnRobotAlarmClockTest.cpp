#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstddef>
#include <thread>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "TnRobotKernel/ptr.h"
#include "support/threads/Storm.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

namespace {

// The clock measures with the wall clock, so the tests do too.
using WallClock = std::chrono::system_clock;

constexpr unsigned int kTenMinutes = 600000;

double WallMillisecondsSince(WallClock::time_point start) {
    return std::chrono::duration<double, std::milli>(WallClock::now() - start).count();
}

TnRobotPtr<ITnRobotAlarmClock> MakeClock() {
    ITnRobotAlarmClock* pClock = nullptr;
    EXPECT_EQ(TnCreateRobotAlarmClock(&pClock), 1);
    return tn::Adopt(pClock);
}

// The flag starts as the opposite of what is expected, so that it must have been written.
bool IsStopped(ITnRobotAlarmClock& clock) {
    bool bStopped = false;
    const bool bTimeOut = clock.IsTimeOut(bStopped);
    EXPECT_FALSE(bStopped && bTimeOut);
    return bStopped;
}

bool IsRunningPastItsLimit(ITnRobotAlarmClock& clock) {
    bool bStopped = true;
    return clock.IsTimeOut(bStopped) && !bStopped;
}

bool IsRunningWithinItsLimit(ITnRobotAlarmClock& clock) {
    bool bStopped = true;
    return !clock.IsTimeOut(bStopped) && !bStopped;
}

class AlarmClock : public ThreadTest {};

}  // namespace

TEST_F(AlarmClock, BelongsToItsCreator) {
    TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    clock->AddRef();
    EXPECT_EQ(clock->Release(), 1);
    EXPECT_EQ(clock.detach()->Release(), 0);
}

TEST_F(AlarmClock, IsStoppedAtFirst) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    EXPECT_TRUE(IsStopped(*clock));
    EXPECT_TRUE(clock->Wait());
    EXPECT_TRUE(IsStopped(*clock));
}

TEST_F(AlarmClock, PassesItsLimitNotBeforeItIsDue) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    const WallClock::time_point start = WallClock::now();
    clock->StartRecord(100);
    // Nearly always seen; a machine that stands still for 100 ms here proves nothing either way.
    const bool bWithin = IsRunningWithinItsLimit(*clock);
    EXPECT_TRUE(bWithin || WallMillisecondsSince(start) > 100.0);
    ASSERT_TRUE(Eventually([&clock] { return IsRunningPastItsLimit(*clock); }));
    const double fPassed = WallMillisecondsSince(start);
    EXPECT_GT(fPassed, 100.0);
    EXPECT_LT(fPassed, 10100.0);
}

TEST_F(AlarmClock, GoesOnPastItsLimitUntilSomebodyActs) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    clock->StartRecord(1);
    ASSERT_TRUE(Eventually([&clock] { return IsRunningPastItsLimit(*clock); }));
    EXPECT_TRUE(StaysTrue([&clock] { return IsRunningPastItsLimit(*clock); }, Milliseconds(20)));
    EXPECT_FALSE(clock->Wait());
    EXPECT_TRUE(IsRunningPastItsLimit(*clock));
    clock->StartRecord(kTenMinutes);
    EXPECT_TRUE(IsRunningWithinItsLimit(*clock));
    clock->StopRecord();
    EXPECT_TRUE(IsStopped(*clock));
}

TEST_F(AlarmClock, ALimitOfZeroIsPassedAsSoonAsAnyTimeHas) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    clock->StartRecord(0);
    const WallClock::time_point start = WallClock::now();
    ASSERT_TRUE(Eventually([&clock] { return IsRunningPastItsLimit(*clock); }));
    EXPECT_LT(WallMillisecondsSince(start), 10000.0);
    EXPECT_FALSE(clock->Wait());
}

TEST_F(AlarmClock, TheLargestLimitsAreValid) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    for (const unsigned int nMs : {0x04000000U, 2147484U, 0x7FFFFFFFU, 0x80000000U, UINT_MAX}) {
        clock->StartRecord(nMs);
        EXPECT_TRUE(StaysTrue([&clock] { return IsRunningWithinItsLimit(*clock); }, Milliseconds(20))) << nMs;
    }
}

TEST_F(AlarmClock, WaitEndsPastTheLimit) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    for (const unsigned int nMs : {0U, 1U, 100U}) {
        const WallClock::time_point start = WallClock::now();
        clock->StartRecord(nMs);
        EXPECT_FALSE(clock->Wait());
        const double fPassed = WallMillisecondsSince(start);
        EXPECT_GT(fPassed, nMs);
        EXPECT_LT(fPassed, nMs + 10000.0);
    }
}

TEST_F(AlarmClock, StoppingEndsEveryWait) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    clock->StartRecord(kTenMinutes);
    std::atomic<int> nStopped{0};
    std::vector<Caller> waiters;
    for (int n = 0; n < 4; ++n) {
        waiters.emplace_back([&clock, &nStopped] { nStopped += clock->Wait() ? 1 : 0; });
    }
    for (const Caller& waiter : waiters) {
        EXPECT_TRUE(waiter.AwaitBlocked());
    }
    EXPECT_TRUE(StaysTrue([&waiters] { return !waiters[0].Returned(); }, Milliseconds(50)));
    const Clock::time_point start = Clock::now();
    clock->StopRecord();
    for (Caller& waiter : waiters) {
        waiter.Join();
    }
    EXPECT_LT(MillisecondsSince(start), 10000.0);
    EXPECT_EQ(nStopped, 4);
}

TEST_F(AlarmClock, AStoppedClockIsStoppedAlsoPastItsLimit) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    clock->StartRecord(0);
    ASSERT_TRUE(Eventually([&clock] { return IsRunningPastItsLimit(*clock); }));
    clock->StopRecord();
    EXPECT_TRUE(IsStopped(*clock));
    EXPECT_TRUE(clock->Wait());
}

TEST_F(AlarmClock, StoppingTwiceEqualsOnce) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    clock->StopRecord();
    EXPECT_TRUE(IsStopped(*clock));
    clock->StartRecord(kTenMinutes);
    EXPECT_TRUE(IsRunningWithinItsLimit(*clock));
    clock->StopRecord();
    clock->StopRecord();
    EXPECT_TRUE(IsStopped(*clock));
    clock->StartRecord(kTenMinutes);
    EXPECT_TRUE(IsRunningWithinItsLimit(*clock));
}

TEST_F(AlarmClock, RestartingAStoppedClockLeavesItStopped) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    clock->ReStartRecord();
    EXPECT_TRUE(IsStopped(*clock));
    clock->StartRecord(kTenMinutes);
    clock->StopRecord();
    clock->ReStartRecord();
    EXPECT_TRUE(IsStopped(*clock));
    EXPECT_TRUE(clock->Wait());
}

TEST_F(AlarmClock, RestartingARunningClockKeepsTheLimitAndMovesTheStart) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    const WallClock::time_point start = WallClock::now();
    clock->StartRecord(100);
    ASSERT_TRUE(Eventually([start] { return WallMillisecondsSince(start) > 70.0; }));
    const WallClock::time_point restart = WallClock::now();
    clock->ReStartRecord();
    EXPECT_FALSE(clock->Wait());
    EXPECT_GT(WallMillisecondsSince(restart), 100.0);
    EXPECT_LT(WallMillisecondsSince(restart), 10100.0);
    // Also from past the limit.
    const WallClock::time_point third = WallClock::now();
    clock->ReStartRecord();
    EXPECT_FALSE(clock->Wait());
    EXPECT_GT(WallMillisecondsSince(third), 100.0);
}

TEST_F(AlarmClock, StartingARunningClockTakesTheNewLimitFromNow) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    clock->StartRecord(kTenMinutes);
    const WallClock::time_point start = WallClock::now();
    clock->StartRecord(50);
    EXPECT_FALSE(clock->Wait());
    EXPECT_GT(WallMillisecondsSince(start), 50.0);
    clock->StartRecord(kTenMinutes);
    EXPECT_TRUE(IsRunningWithinItsLimit(*clock));
}

// A wait in progress goes by the clock as it is now, not as it was when the wait began.
TEST_F(AlarmClock, AWaitInProgressSeesANewLimit) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    clock->StartRecord(kTenMinutes);
    std::atomic<bool> bStopped{true};
    Caller waiter([&clock, &bStopped] { bStopped = clock->Wait(); });
    EXPECT_TRUE(waiter.AwaitBlocked());
    clock->StartRecord(1);
    waiter.Join();
    EXPECT_FALSE(bStopped);
}

// A new clock has a limit of 0 and a start in 1970. Whoever saw it running before both are stored
// would take it for past its limit.
TEST_F(AlarmClock, NobodySeesItRunningWithAnOldStart) {
    std::vector<TnRobotPtr<ITnRobotAlarmClock>> clocks;
    for (int n = 0; n < StormLength(1000); ++n) {
        clocks.push_back(MakeClock());
    }
    std::atomic<std::size_t> nWatched{0};
    std::atomic<int> nWrong{0};
    Caller watcher([&] {
        for (const TnRobotPtr<ITnRobotAlarmClock>& clock : clocks) {
            ++nWatched;
            bool bStopped = true;
            for (int nLooks = 1; bStopped; ++nLooks) {
                nWrong += clock->IsTimeOut(bStopped) ? 1 : 0;
                if (nLooks % 1000 == 0) {  // on a single processor the other one has to come by
                    std::this_thread::yield();
                }
            }
        }
    });
    for (std::size_t n = 0; n < clocks.size(); ++n) {
        ASSERT_TRUE(Eventually([&] { return nWatched > n; }));
        clocks[n]->StartRecord(kTenMinutes);
    }
    watcher.Join();
    EXPECT_EQ(nWrong, 0);
}

TEST_F(AlarmClock, MayBeUsedByManyThreadsAtOnce) {
    const TnRobotPtr<ITnRobotAlarmClock> clock = MakeClock();
    std::atomic<bool> bEnd{false};
    std::atomic<bool> bWrong{false};
    std::vector<Caller> threads;
    threads.emplace_back([&] {
        while (!bEnd) {
            bool bStopped = false;
            bWrong = clock->IsTimeOut(bStopped) || bWrong;
        }
    });
    threads.emplace_back([&] {
        while (!bEnd) {
            clock->ReStartRecord();
        }
    });
    threads.emplace_back([&] {
        while (!bEnd) {
            bWrong = !clock->Wait() || bWrong;
        }
    });
    for (int n = 0; n < StormLength(2000); ++n) {
        clock->StartRecord(kTenMinutes + static_cast<unsigned int>(n));
        clock->StopRecord();
    }
    bEnd = true;
    clock->StopRecord();
    for (Caller& thread : threads) {
        thread.Join();
    }
    EXPECT_FALSE(bWrong);
}
