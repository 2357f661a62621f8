// The general pool with an idle time of the test's choice.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

#include "memory/IdlePools.h"
#include "memory/TnRobotMemoryBlock.h"
#include "memory/TnRobotRandomMemBlockPool.h"
#include "support/objects/Memory.h"
#include "support/threads/StartGate.h"
#include "support/threads/Storm.h"

using namespace tntest;

namespace {

constexpr unsigned int kUnit = 32768;

unsigned int CapacityOf(ITnRobotMemoryBlock& block) {
    return dynamic_cast<CTnRobotMemoryBlock&>(block).GetCapacity();
}

}  // namespace

TEST(RandomMemBlockPool, RefusesANullResult) {
    EXPECT_EQ(CTnRobotRandomMemBlockPool::CreateInstance(1.0, nullptr), 0);
}

TEST(RandomMemBlockPool, CapacitiesAreWholeUnits) {
    const HeldPool pool = MakePool();
    const struct {
        unsigned int nSize;
        unsigned int nCapacity;
    } cases[] = {
        {1, kUnit},         {kUnit - 1, kUnit},        {kUnit, kUnit}, {kUnit + 1, 2 * kUnit}, {2 * kUnit, 2 * kUnit},
        {1048576, 1048576}, {1048577, 1048576 + kUnit}};
    for (const auto& testCase : cases) {
        const HeldBlock block = Query(*pool, testCase.nSize);
        EXPECT_EQ(CapacityOf(*block), testCase.nCapacity) << testCase.nSize;
        EXPECT_EQ(SizeOf(*block), testCase.nSize);
    }
}

TEST(RandomMemBlockPool, TakingABlockBackItselfDoesNothing) {
    const HeldPool pool = MakePool();
    dynamic_cast<CTnRobotRandomMemBlockPool&>(*pool).RecoveryMemBuff();
    EXPECT_NE(Query(*pool, 1), nullptr);
}

TEST(RandomMemBlockPool, BlocksInUseSurviveTheSweepThatDropsOtherClasses) {
    const HeldPool pool = MakePoolIdleAfter(0.0);
    HeldBlock held = Query(*pool, kUnit);
    FillPattern(*held, 1);
    Query(*pool, kUnit).reset();
    Query(*pool, 2 * kUnit).reset();
    for (int n = 0; n < 3; ++n) {
        pool->FreeUnuseMemory();
        EXPECT_TRUE(HasPattern(*held, 1));
    }
    ITnRobotMemoryBlock* const pHeld = held.get();
    held.reset();
    EXPECT_EQ(Query(*pool, 1).get(), pHeld);
    EXPECT_NE(Query(*pool, 2 * kUnit), nullptr);
}

TEST(RandomMemBlockPool, AnEmptiedClassIsMadeAgainOnDemand) {
    const HeldPool pool = MakePoolIdleAfter(0.0);
    for (int n = 0; n < 3; ++n) {
        const HeldBlock block = Query(*pool, 10);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(SizeOf(*block), 10U);
        pool->FreeUnuseMemory();
        pool->FreeUnuseMemory();
    }
    pool->FreeUnuseMemory();
    EXPECT_NE(Query(*pool, 10), nullptr);
}

// The sweep that empties a class drops it; a thread that has just found the class must still be
// served by it, and the block must find its way back.
TEST(RandomMemBlockPool, MayBeSweptWhileThreadsUseIt) {
    constexpr unsigned int kThreads = 3;
    const HeldPool pool = MakePoolIdleAfter(0.0);
    std::atomic<unsigned int> nWorking{kThreads};
    std::vector<std::thread> threads;
    for (unsigned int nThread = 0; nThread < kThreads; ++nThread) {
        threads.emplace_back([&, nThread] {
            std::mt19937 random(ScheduleSeed() + nThread + 1);
            std::uniform_int_distribution<unsigned int> units(0, 3);
            std::uniform_int_distribution<unsigned int> rest(0, 299);
            const auto nTimes = static_cast<unsigned int>(StormLength(2000));
            for (unsigned int n = 0; n < nTimes; ++n) {
                const unsigned int nSize = 1 + units(random) * kUnit + rest(random);
                const HeldBlock block = Query(*pool, nSize);
                EXPECT_EQ(SizeOf(*block), nSize);
                unsigned char* const pData = DataOf(*block);
                pData[0] = static_cast<unsigned char>(n);
                pData[nSize - 1] = static_cast<unsigned char>(n);
                std::this_thread::yield();
                EXPECT_EQ(pData[0], static_cast<unsigned char>(n));
                EXPECT_EQ(pData[nSize - 1], static_cast<unsigned char>(n));
            }
            --nWorking;
        });
    }
    std::thread secondSweeper([&] {
        while (nWorking > 0) {
            pool->FreeUnuseMemory();
        }
    });
    while (nWorking > 0) {
        pool->FreeUnuseMemory();
        std::this_thread::yield();
    }
    secondSweeper.join();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(RandomMemBlockPool, LargeBlocksKeepTheirPatternWhileThePoolIsSwept) {
    constexpr unsigned int kThreads = 2;
    const HeldPool pool = MakePoolIdleAfter(0.0);
    std::atomic<unsigned int> nWorking{kThreads};
    std::vector<std::thread> threads;
    for (unsigned int nThread = 0; nThread < kThreads; ++nThread) {
        threads.emplace_back([&, nThread] {
            for (unsigned int n = 0; n < 100; ++n) {
                const HeldBlock block = Query(*pool, 1 + n % 3 * kUnit + 1000 * nThread);
                FillPattern(*block, nThread * 1000 + n);
                EXPECT_TRUE(HasPattern(*block, nThread * 1000 + n));
            }
            --nWorking;
        });
    }
    while (nWorking > 0) {
        pool->FreeUnuseMemory();
        std::this_thread::yield();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}
