#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "TnRobotKernel/ptr.h"
#include "support/processes/ResourceUse.h"
#include "support/threads/Storm.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

namespace {

constexpr unsigned int kForEver = UINT_MAX;

TnRobotPtr<ITnRobotEvent> MakeEvent(bool bSignalled) {
    ITnRobotEvent* pEvent = nullptr;
    EXPECT_EQ(TnCreateRobotManualEvent(bSignalled, &pEvent), 1);
    return tn::Adopt(pEvent);
}

class ManualEvent : public ThreadTest {};

}  // namespace

TEST_F(ManualEvent, BelongsToItsCreator) {
    TnRobotPtr<ITnRobotEvent> event = MakeEvent(false);
    event->AddRef();
    EXPECT_EQ(event->Release(), 1);
    EXPECT_EQ(event.detach()->Release(), 0);
}

TEST_F(ManualEvent, StartsInTheStateItIsCreatedWith) {
    EXPECT_TRUE(MakeEvent(true)->WaitEvent(0));
    EXPECT_FALSE(MakeEvent(false)->WaitEvent(0));
}

TEST_F(ManualEvent, MovesBetweenSetAndResetAnyNumberOfTimes) {
    enum class Operation { kSet, kReset };
    const std::vector<Operation> operations = {
        Operation::kSet, Operation::kSet,   Operation::kReset, Operation::kReset, Operation::kReset,
        Operation::kSet, Operation::kReset, Operation::kSet,   Operation::kSet,   Operation::kReset};
    const TnRobotPtr<ITnRobotEvent> event = MakeEvent(true);
    for (const Operation operation : operations) {
        if (operation == Operation::kSet) {
            event->SetEvent();
        } else {
            event->ResetEvent();
        }
        EXPECT_EQ(event->WaitEvent(0), operation == Operation::kSet);
    }
}

TEST_F(ManualEvent, AWaitDoesNotTakeTheEvent) {
    const TnRobotPtr<ITnRobotEvent> event = MakeEvent(true);
    for (const unsigned int nMs : {0U, 1U, 100U, 0U, kForEver, 0U}) {
        EXPECT_TRUE(event->WaitEvent(nMs)) << nMs;
    }
    event->ResetEvent();
    EXPECT_FALSE(event->WaitEvent(0));
    EXPECT_FALSE(event->WaitEvent(1));
}

TEST_F(ManualEvent, AskingDoesNotBlock) {
    const TnRobotPtr<ITnRobotEvent> event = MakeEvent(false);
    const long nWaits = WaitsDuring([&event] {
        for (int n = 0; n < 1000; ++n) {
            ASSERT_FALSE(event->WaitEvent(0));
        }
    });
    EXPECT_LT(nWaits, 100);
}

TEST_F(ManualEvent, AWaitForAnEventThatNobodySetsTakesItsTime) {
    const TnRobotPtr<ITnRobotEvent> event = MakeEvent(false);
    for (const unsigned int nMs : {1U, 50U, 200U}) {
        const Clock::time_point start = Clock::now();
        EXPECT_FALSE(event->WaitEvent(nMs));
        const double fPassed = MillisecondsSince(start);
        EXPECT_GE(fPassed, nMs);
        EXPECT_LT(fPassed, nMs + 10000.0);
    }
}

TEST_F(ManualEvent, SettingWakesEveryWaiter) {
    const TnRobotPtr<ITnRobotEvent> event = MakeEvent(false);
    std::atomic<int> nTrue{0};
    {
        std::vector<Caller> waiters;
        for (int n = 0; n < 8; ++n) {
            waiters.emplace_back([&event, &nTrue] { nTrue += event->WaitEvent(kForEver) ? 1 : 0; });
        }
        ASSERT_TRUE(Caller::AwaitAllBlocked(waiters));
        event->SetEvent();
    }
    EXPECT_EQ(nTrue, 8);
}

TEST_F(ManualEvent, ResettingWakesNobody) {
    const TnRobotPtr<ITnRobotEvent> event = MakeEvent(false);
    std::atomic<bool> bResult{false};
    Caller waiter([&event, &bResult] { bResult = event->WaitEvent(kForEver); });
    EXPECT_TRUE(waiter.AwaitBlocked());
    event->ResetEvent();
    EXPECT_TRUE(StaysTrue([&waiter] { return !waiter.Returned(); }, Milliseconds(50)));
    event->SetEvent();
    waiter.Join();
    EXPECT_TRUE(bResult);
}

// Whoever pulses an event relies on it: the waits in progress end although the flag is gone again.
TEST_F(ManualEvent, ASetAndAResetEndTheWaitsInProgress) {
    for (int nRound = 0; nRound < 20; ++nRound) {
        const TnRobotPtr<ITnRobotEvent> event = MakeEvent(false);
        std::vector<Caller> waiters;
        for (int n = 0; n < 4; ++n) {
            waiters.emplace_back([&event] { event->WaitEvent(kForEver); });
        }
        ASSERT_TRUE(Caller::AwaitAllBlocked(waiters));
        event->SetEvent();
        event->ResetEvent();
        for (Caller& waiter : waiters) {
            waiter.Join();
        }
        EXPECT_FALSE(event->WaitEvent(0));
    }
}

// Each of these would be a short time or none, were its nanoseconds or its deadline cut to 32 bits
// or taken as signed.
TEST_F(ManualEvent, EveryTimeOutIsValid) {
    for (const unsigned int nMs : {0x04000000U, 0x7FFFFFFFU, 0x80000000U, UINT_MAX - 1, UINT_MAX}) {
        const TnRobotPtr<ITnRobotEvent> event = MakeEvent(false);
        std::atomic<bool> bResult{false};
        Caller waiter([&event, &bResult, nMs] { bResult = event->WaitEvent(nMs); });
        EXPECT_TRUE(StaysTrue([&waiter] { return !waiter.Returned(); }, Milliseconds(60))) << nMs;
        event->SetEvent();
        waiter.Join();
        EXPECT_TRUE(bResult) << nMs;
    }
}

TEST_F(ManualEvent, MayBeUsedByManyThreadsAtOnce) {
    const TnRobotPtr<ITnRobotEvent> event = MakeEvent(false);
    std::atomic<bool> bEnd{false};
    std::atomic<int> nSeen{0};
    std::vector<Caller> threads;
    for (int n = 0; n < 2; ++n) {
        threads.emplace_back([&] {
            while (!bEnd) {
                nSeen += event->WaitEvent(1) ? 1 : 0;
            }
        });
    }
    threads.emplace_back([&] {
        while (!bEnd) {
            event->AddRef();
            event->ResetEvent();
            event->Release();
        }
    });
    for (int n = 0; n < StormLength(2000); ++n) {
        event->SetEvent();
    }
    EXPECT_TRUE(Eventually([&] {
        event->SetEvent();
        return nSeen > 0;
    }));
    bEnd = true;
}

// A waiter that has seen the flag may give up the last reference while the setter is still in the
// middle of its call.
TEST_F(ManualEvent, MayBeDestroyedByTheWaiterThatSawItSet) {
    for (int n = 0; n < StormLength(500); ++n) {
        TnRobotPtr<ITnRobotEvent> event = MakeEvent(false);
        ITnRobotEvent* pEvent = event.get();
        Caller setter([pEvent] { pEvent->SetEvent(); });
        while (!event->WaitEvent(1)) {
        }
        event.reset();
    }
}

// 1,000 events with 8 waiters each, in batches that keep 200 threads.
TEST_F(ManualEvent, AThousandEventsWakeAllTheirWaiters) {
    const int nBatches = StormLength(40);
    constexpr int kEvents = 25;
    constexpr int kWaiters = 8;
    for (int nBatch = 0; nBatch < nBatches; ++nBatch) {
        Watchdog::Extend(kSeconds);
        std::vector<TnRobotPtr<ITnRobotEvent>> events;
        std::atomic<int> nWoken{0};
        std::vector<Caller> waiters;
        for (int nEvent = 0; nEvent < kEvents; ++nEvent) {
            events.push_back(MakeEvent(false));
            for (int n = 0; n < kWaiters; ++n) {
                waiters.emplace_back(
                    [pEvent = events.back().get(), &nWoken] { nWoken += pEvent->WaitEvent(kForEver) ? 1 : 0; });
            }
        }
        for (const Caller& waiter : waiters) {
            waiter.AwaitBlocked();
        }
        for (const TnRobotPtr<ITnRobotEvent>& event : events) {
            event->SetEvent();
        }
        for (Caller& waiter : waiters) {
            waiter.Join();
        }
        ASSERT_EQ(nWoken, kEvents * kWaiters);
    }
}
