// The general pool as applications see it.

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "TnRobotKernel/memory.h"
#include "support/objects/Memory.h"
#include "support/threads/StartGate.h"
#include "support/threads/Storm.h"

using namespace tntest;

namespace {

constexpr unsigned int kUnit = 32768;

}  // namespace

TEST(GeneralBlockPool, TheUsedSizeIsTheRequestedOne) {
    const HeldPool pool = MakePool();
    for (const unsigned int nSize : {1U, 2U, kUnit - 1, kUnit, kUnit + 1, 3 * kUnit, 1048576U, 1048577U}) {
        const HeldBlock block = Query(*pool, nSize);
        ASSERT_NE(block, nullptr) << nSize;
        EXPECT_EQ(SizeOf(*block), nSize);
        FillPattern(*block, nSize);
        EXPECT_TRUE(HasPattern(*block, nSize));
    }
}

TEST(GeneralBlockPool, RefusesSizesThatRoundToNothing) {
    const HeldPool pool = MakePool();
    int nAnything = 0;
    auto* const pUntouched = reinterpret_cast<ITnRobotMemoryBlock*>(&nAnything);
    for (const unsigned int nSize : {0U, 4294934529U, 4294934530U, 4294967294U, 4294967295U}) {
        ITnRobotMemoryBlock* pBlock = pUntouched;
        EXPECT_EQ(pool->QueryMemBuff(nSize, &pBlock), 0) << nSize;
        EXPECT_EQ(pBlock, pUntouched) << nSize;
    }
}

TEST(GeneralBlockPool, RefusesANullResult) {
    const HeldPool pool = MakePool();
    EXPECT_EQ(pool->QueryMemBuff(1, nullptr), 0);
    EXPECT_EQ(pool->QueryMemBuff(0, nullptr), 0);
}

// Requests of one class share their blocks; the classes are exact, so nothing larger is reused.
TEST(GeneralBlockPool, BlocksAreReusedWithinTheirSizeClassOnly) {
    const struct {
        unsigned int nFirst;
        unsigned int nSecond;
        bool bShares;
    } cases[] = {
        {1, kUnit, true},
        {kUnit, 1, true},
        {kUnit, kUnit + 1, false},
        {kUnit + 1, kUnit, false},
        {kUnit + 1, 2 * kUnit, true},
        {2 * kUnit, 2 * kUnit + 1, false},
    };
    for (const auto& testCase : cases) {
        const HeldPool pool = MakePool();
        HeldBlock first = Query(*pool, testCase.nFirst);
        const ITnRobotMemoryBlock* const pFirst = first.get();
        first.reset();
        const HeldBlock second = Query(*pool, testCase.nSecond);
        EXPECT_EQ(second.get() == pFirst, testCase.bShares) << testCase.nFirst << " then " << testCase.nSecond;
        EXPECT_EQ(SizeOf(*second), testCase.nSecond);
    }
}

TEST(GeneralBlockPool, ReusesTheLastReturnedBlockFirst) {
    const HeldPool pool = MakePool();
    HeldBlock first = Query(*pool, 10);
    HeldBlock second = Query(*pool, 10);
    const ITnRobotMemoryBlock* const pSecond = second.get();
    first.reset();
    second.reset();
    EXPECT_EQ(Query(*pool, 10).get(), pSecond);
}

TEST(GeneralBlockPool, ABlockHasThePoolsAndTheCallersReference) {
    const HeldPool pool = MakePool();
    EXPECT_EQ(Query(*pool, 10).detach()->Release(), 1);
}

TEST(GeneralBlockPool, WithinAMinuteOfItsCreationASweepDoesNothing) {
    const HeldPool pool = MakePool();
    HeldBlock block = Query(*pool, 10);
    const ITnRobotMemoryBlock* const pBlock = block.get();
    FillPattern(*block, 3);
    block.reset();
    pool->FreeUnuseMemory();
    pool->FreeUnuseMemory();
    const HeldBlock again = Query(*pool, 10);
    EXPECT_EQ(again.get(), pBlock);
#ifndef TNROBOT_CHECKED  // which overwrites what lies free
    EXPECT_TRUE(HasPattern(*again, 3));
#endif
}

TEST(GeneralBlockPool, BlocksOutliveIt) {
    HeldPool pool = MakePool();
    HeldBlock small = Query(*pool, 100);
    HeldBlock large = Query(*pool, 100000);
    FillPattern(*small, 1);
    FillPattern(*large, 2);
    EXPECT_EQ(pool.detach()->Release(), 0);
    EXPECT_TRUE(HasPattern(*small, 1));
    EXPECT_TRUE(HasPattern(*large, 2));
    EXPECT_EQ(small.detach()->Release(), 0);
    EXPECT_EQ(large.detach()->Release(), 0);
}

TEST(GeneralBlockPool, ThreadsNeverShareABlock) {
    constexpr unsigned int kThreads = 4;
    const HeldPool pool = MakePool();
    StartGate gate(kThreads);
    std::vector<std::thread> threads;
    for (unsigned int nThread = 0; nThread < kThreads; ++nThread) {
        threads.emplace_back([&, nThread] {
            std::mt19937 random(ScheduleSeed() + nThread + 1);
            std::uniform_int_distribution<unsigned int> size(1, 3 * kUnit);
            std::vector<std::pair<HeldBlock, unsigned int>> held;
            gate.ArriveAndWait();
            const auto nTimes = static_cast<unsigned int>(StormLength(400));
            for (unsigned int n = 0; n < nTimes; ++n) {
                const unsigned int nSeed = nThread * 100000 + n;
                held.emplace_back(Query(*pool, size(random)), nSeed);
                FillPattern(*held.back().first, nSeed);
                if (held.size() > 4) {
                    const std::size_t nVictim = random() % held.size();
                    EXPECT_TRUE(HasPattern(*held[nVictim].first, held[nVictim].second));
                    held.erase(held.begin() + static_cast<std::ptrdiff_t>(nVictim));
                }
            }
            for (const auto& [block, nSeed] : held) {
                EXPECT_TRUE(HasPattern(*block, nSeed));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(GeneralBlockPool, MayBeDestroyedWhileBlocksAreReleased) {
    constexpr unsigned int kThreads = 3;
    const auto nRounds = static_cast<unsigned int>(StormLength(50));
    for (unsigned int nRound = 0; nRound < nRounds; ++nRound) {
        HeldPool pool = MakePool();
        std::vector<std::vector<HeldBlock>> blocks(kThreads);
        for (auto& ofThread : blocks) {
            for (unsigned int n = 0; n < 12; ++n) {
                ofThread.push_back(Query(*pool, 1 + n % 3 * kUnit));
                DataOf(*ofThread.back())[0] = static_cast<unsigned char>(n);
            }
        }
        StartGate gate(kThreads + 1);
        std::vector<std::thread> threads;
        for (auto& ofThread : blocks) {
            threads.emplace_back([&] {
                gate.ArriveAndWait();
                for (std::size_t n = 0; n < ofThread.size(); ++n) {
                    EXPECT_EQ(DataOf(*ofThread[n])[0], n);
                    ofThread[n].reset();
                }
            });
        }
        gate.ArriveAndWait();
        pool.reset();
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
}
