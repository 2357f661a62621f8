#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/values.h"
#include "ptr/PtrProbe.h"
#include "support/threads/StartGate.h"

using namespace tntest;

namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 2000;

/// Calls the function on every thread at once, with the thread's number.
template <typename Function>
void OnAllThreads(const Function& function) {
    StartGate gate(kThreads);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int n = 0; n < kThreads; ++n) {
        threads.emplace_back([&, n] {
            gate.ArriveAndWait();
            function(n);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace

TEST(RobotPtrThreads, CopiesOfOneObjectAreMadeAndDroppedOnEveryThread) {
    const auto probe = tn::MakeObject<PtrProbe>(1);
    OnAllThreads([&](int) {
        for (int n = 0; n < kRounds; ++n) {
            TnRobotPtr<PtrProbe> copy = probe;
            const TnRobotPtr<ITnUnknown> base = copy;
            TnRobotPtr<PtrProbe> moved = std::move(copy);
            ASSERT_EQ(moved, base);
            ASSERT_EQ(base.try_as<PtrProbe>()->Number(), 1);
        }
    });
    EXPECT_EQ(probe->References(), 1);
}

TEST(RobotPtrThreads, TheLastOfManyDropsDestroysTheObjectOnce) {
    for (int nRound = 0; nRound < kRounds / 20; ++nRound) {
        std::vector<TnRobotPtr<PtrProbe>> copies(kThreads, tn::MakeObject<PtrProbe>(nRound));
        ASSERT_EQ(PtrProbe::LiveCount(), 1);
        OnAllThreads([&](int n) {
            EXPECT_EQ(copies[static_cast<std::size_t>(n)]->Number(), nRound);
            copies[static_cast<std::size_t>(n)].reset();
        });
        ASSERT_EQ(PtrProbe::LiveCount(), 0);
    }
}

TEST(RobotPtrThreads, PooledValuesGoBackAndComeAgainOnEveryThread) {
    OnAllThreads([](int nThread) {
        for (int n = 0; n < kRounds; ++n) {
            TnRobotPtr<ITnRobotDataValue> value;
            ASSERT_EQ(TnCreateRobotIntData(nThread * kRounds + n, value.put()), 0);
            const TnRobotPtr<ITnRobotDataValue> copy = value;
            value.reset();
            int nError = -1;
            ASSERT_EQ(copy->IntData(&nError), nThread * kRounds + n);
            ASSERT_EQ(nError, 0);
        }
    });
}
