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
constexpr unsigned int kSignalled = 1;
constexpr unsigned int kCancelled = 2;
constexpr unsigned int kArmed = 3;

using Operation = void (ITnRobotSignal::*)();
constexpr Operation kSignal = &ITnRobotSignal::Signal;
constexpr Operation kCancel = &ITnRobotSignal::CanCel;
constexpr Operation kReset = &ITnRobotSignal::Reset;
constexpr Operation kClear = &ITnRobotSignal::ClearResource;

TnRobotPtr<ITnRobotSignal> MakeSignal() {
    ITnRobotSignal* pSignal = nullptr;
    EXPECT_EQ(TnCreateRobotSignal(&pSignal), 1);
    return tn::Adopt(pSignal);
}

// Waiters blocked on one signal, and what their waits returned.
class Waiters {
public:
    Waiters(ITnRobotSignal& signal, std::size_t nWaiters, unsigned int nMs = kForEver) : m_results(nWaiters) {
        for (std::atomic<unsigned int>& nResult : m_results) {
            m_callers.emplace_back([&signal, &nResult, nMs] { nResult = signal.Wait(nMs); });
        }
    }

    void AwaitBlocked() const { ASSERT_TRUE(Caller::AwaitAllBlocked(m_callers)); }

    bool NoneReturned() const {
        for (const Caller& caller : m_callers) {
            if (caller.Returned()) {
                return false;
            }
        }
        return true;
    }

    std::vector<unsigned int> Results() {
        for (Caller& caller : m_callers) {
            caller.Join();
        }
        return std::vector<unsigned int>(m_results.begin(), m_results.end());
    }

private:
    std::vector<std::atomic<unsigned int>> m_results;
    std::vector<Caller> m_callers;
};

class Signal : public ThreadTest {};

}  // namespace

TEST_F(Signal, BelongsToItsCreator) {
    TnRobotPtr<ITnRobotSignal> signal = MakeSignal();
    signal->AddRef();
    EXPECT_EQ(signal->Release(), 1);
    EXPECT_EQ(signal.detach()->Release(), 0);
}

TEST_F(Signal, FollowsItsTableOfStates) {
    const struct {
        std::vector<Operation> operations;
        unsigned int nState;
    } cases[] = {
        {{}, kArmed},
        {{kSignal}, kSignalled},
        {{kCancel}, kCancelled},
        {{kClear}, kArmed},
        {{kReset}, kArmed},
        {{kSignal, kSignal}, kSignalled},
        {{kSignal, kCancel}, kSignalled},
        {{kCancel, kCancel}, kCancelled},
        {{kCancel, kSignal}, kCancelled},
        // Only clearing arms it again: a reset keeps what there is.
        {{kSignal, kReset}, kSignalled},
        {{kCancel, kReset}, kCancelled},
        {{kSignal, kReset, kCancel}, kSignalled},
        {{kCancel, kReset, kSignal}, kCancelled},
        {{kSignal, kClear}, kArmed},
        {{kCancel, kClear}, kArmed},
        {{kSignal, kClear, kCancel}, kCancelled},
        {{kCancel, kClear, kSignal}, kSignalled},
        {{kSignal, kClear, kSignal}, kSignalled},
        {{kSignal, kClear, kClear, kReset}, kArmed},
    };
    for (std::size_t nCase = 0; nCase < std::size(cases); ++nCase) {
        const TnRobotPtr<ITnRobotSignal> signal = MakeSignal();
        for (const Operation operation : cases[nCase].operations) {
            (signal.get()->*operation)();
        }
        EXPECT_EQ(signal->Wait(0), cases[nCase].nState) << "case " << nCase;
        EXPECT_EQ(signal->Wait(1), cases[nCase].nState) << "case " << nCase;
    }
}

TEST_F(Signal, AWaitForADecidedSignalReturnsAtOnce) {
    for (const Operation operation : {kSignal, kCancel}) {
        const TnRobotPtr<ITnRobotSignal> signal = MakeSignal();
        (signal.get()->*operation)();
        for (const unsigned int nMs : {0U, 1U, 100U, kForEver, 0U}) {
            EXPECT_EQ(signal->Wait(nMs), operation == kSignal ? kSignalled : kCancelled) << nMs;
        }
    }
}

TEST_F(Signal, AskingAnArmedOneDoesNotBlock) {
    const TnRobotPtr<ITnRobotSignal> signal = MakeSignal();
    const long nWaits = WaitsDuring([&signal] {
        for (int n = 0; n < 1000; ++n) {
            ASSERT_EQ(signal->Wait(0), kArmed);
        }
    });
    EXPECT_LT(nWaits, 100);
}

TEST_F(Signal, AWaitThatNobodyEndsTakesItsTime) {
    const TnRobotPtr<ITnRobotSignal> signal = MakeSignal();
    for (const unsigned int nMs : {1U, 100U, 200U}) {
        const Clock::time_point start = Clock::now();
        EXPECT_EQ(signal->Wait(nMs), kArmed);
        const double fPassed = MillisecondsSince(start);
        EXPECT_GE(fPassed, nMs);
        EXPECT_LT(fPassed, nMs + 10000.0);
    }
}

TEST_F(Signal, TellsEveryWaiterHowItWasDecided) {
    const TnRobotPtr<ITnRobotSignal> signalled = MakeSignal();
    Waiters forSignal(*signalled, 8);
    forSignal.AwaitBlocked();
    signalled->Signal();
    EXPECT_EQ(forSignal.Results(), std::vector<unsigned int>(8, kSignalled));

    const TnRobotPtr<ITnRobotSignal> cancelled = MakeSignal();
    Waiters forCancel(*cancelled, 8);
    forCancel.AwaitBlocked();
    cancelled->CanCel();
    EXPECT_EQ(forCancel.Results(), std::vector<unsigned int>(8, kCancelled));
}

TEST_F(Signal, ClearingAndResettingWakeNobody) {
    const TnRobotPtr<ITnRobotSignal> signal = MakeSignal();
    Waiters waiters(*signal, 2);
    waiters.AwaitBlocked();
    signal->ClearResource();
    signal->Reset();
    EXPECT_TRUE(StaysTrue([&waiters] { return waiters.NoneReturned(); }, Milliseconds(50)));
    signal->CanCel();
    EXPECT_EQ(waiters.Results(), std::vector<unsigned int>(2, kCancelled));
}

// The wait is a single one: arming the signal again at once does not keep its waiters.
TEST_F(Signal, SignallingAndClearingEndsTheWaitsInProgress) {
    for (int nRound = 0; nRound < 20; ++nRound) {
        for (const Operation operation : {kSignal, kCancel}) {
            const TnRobotPtr<ITnRobotSignal> signal = MakeSignal();
            Waiters waiters(*signal, 4);
            waiters.AwaitBlocked();
            (signal.get()->*operation)();
            signal->ClearResource();
            for (const unsigned int nResult : waiters.Results()) {
                EXPECT_TRUE(nResult == kArmed || nResult == (operation == kSignal ? kSignalled : kCancelled))
                    << nResult;
            }
            EXPECT_EQ(signal->Wait(0), kArmed);
        }
    }
}

TEST_F(Signal, EveryTimeOutIsValid) {
    for (const unsigned int nMs : {0x04000000U, 0x7FFFFFFFU, 0x80000000U, UINT_MAX - 1, UINT_MAX}) {
        const TnRobotPtr<ITnRobotSignal> signal = MakeSignal();
        Waiters waiters(*signal, 1, nMs);
        EXPECT_TRUE(StaysTrue([&waiters] { return waiters.NoneReturned(); }, Milliseconds(60))) << nMs;
        signal->Signal();
        EXPECT_EQ(waiters.Results(), std::vector<unsigned int>(1, kSignalled)) << nMs;
    }
}

// Exactly one of the two wins, and everybody hears of the same one.
TEST_F(Signal, OfSignalAndCancelTheFirstWinsForEverybody) {
    for (int nRound = 0; nRound < StormLength(200); ++nRound) {
        const TnRobotPtr<ITnRobotSignal> signal = MakeSignal();
        Waiters waiters(*signal, 3);
        {
            Caller signaller([&signal] { signal->Signal(); });
            Caller canceller([&signal] { signal->CanCel(); });
        }
        const unsigned int nState = signal->Wait(0);
        EXPECT_TRUE(nState == kSignalled || nState == kCancelled);
        EXPECT_EQ(waiters.Results(), std::vector<unsigned int>(3, nState));
    }
}
