#include "memory/TnRobotFixedMemBlockPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "support/objects/Memory.h"
#include "support/threads/StartGate.h"
#include "support/threads/Storm.h"
#include "support/threads/Watchdog.h"

using namespace tntest;

namespace {

constexpr unsigned int kNoLimit = 0xFFFFFFFF;
constexpr double kNeverIdle = 3600.0;
constexpr double kAlwaysIdle = 0.0;

using FixedPool = TnRobotPtr<CTnRobotFixedMemBlockPool>;
using Clock = std::chrono::system_clock;

FixedPool MakeFixedPool(unsigned int nBlockSize, unsigned int nMaxCount, double dIdleSeconds = kNeverIdle) {
    CTnRobotFixedMemBlockPool* pPool = nullptr;
    EXPECT_EQ(CTnRobotFixedMemBlockPool::CreateInstance(nBlockSize, nMaxCount, dIdleSeconds, &pPool), 1);
    return tn::Adopt(pPool);
}

HeldBlock Query(CTnRobotFixedMemBlockPool& pool) {
    ITnRobotMemoryBlock* pBlock = nullptr;
    return pool.QueryBlock(&pBlock) == 1 ? tn::Adopt(pBlock) : nullptr;
}

double SecondsSince(Clock::time_point start) {
    return static_cast<double>((Clock::now() - start).count()) / 1e9;
}

}  // namespace

TEST(FixedMemBlockPool, RefusesASizeOrACountOfZero) {
    const struct {
        unsigned int nBlockSize;
        unsigned int nMaxCount;
    } cases[] = {{0, 1}, {1, 0}, {0, 0}};
    for (const auto& testCase : cases) {
        int nAnything = 0;
        auto* pPool = reinterpret_cast<CTnRobotFixedMemBlockPool*>(&nAnything);
        EXPECT_EQ(CTnRobotFixedMemBlockPool::CreateInstance(testCase.nBlockSize, testCase.nMaxCount, 1.0, &pPool), 0);
        EXPECT_EQ(pPool, nullptr);
    }
}

TEST(FixedMemBlockPool, RefusesANullResult) {
    EXPECT_EQ(CTnRobotFixedMemBlockPool::CreateInstance(1, 1, 1.0, nullptr), 0);
    const FixedPool pool = MakeFixedPool(8, 1);
    EXPECT_EQ(pool->QueryBlock(nullptr), 0);
    EXPECT_EQ(pool->GetCount(), 0U);
}

TEST(FixedMemBlockPool, StartsEmptyWithOneReference) {
    FixedPool pool = MakeFixedPool(8, 1);
    EXPECT_EQ(pool->GetCount(), 0U);
    EXPECT_EQ(pool->GetMemorySize(), 0U);
    EXPECT_EQ(pool.detach()->Release(), 0);
}

TEST(FixedMemBlockPool, BlocksAreUsedWhole) {
    const FixedPool pool = MakeFixedPool(100, 2);
    const HeldBlock block = Query(*pool);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(SizeOf(*block), 100U);
    ASSERT_NE(DataOf(*block), nullptr);
    FillPattern(*block, 1);
    EXPECT_TRUE(HasPattern(*block, 1));
    EXPECT_EQ(dynamic_cast<CTnRobotMemoryBlock&>(*block).GetCapacity(), 100U);
}

TEST(FixedMemBlockPool, ABlockHasThePoolsAndTheCallersReference) {
    const FixedPool pool = MakeFixedPool(8, 1);
    HeldBlock block = Query(*pool);
    EXPECT_EQ(block.detach()->Release(), 1);
    HeldBlock again = Query(*pool);
    EXPECT_EQ(again.detach()->Release(), 1);
}

TEST(FixedMemBlockPool, CountsBlocksInUseAndFreeOnes) {
    const FixedPool pool = MakeFixedPool(100, kNoLimit);
    HeldBlock first = Query(*pool);
    const HeldBlock second = Query(*pool);
    EXPECT_EQ(pool->GetCount(), 2U);
    EXPECT_EQ(pool->GetMemorySize(), 200U);
    first.reset();
    EXPECT_EQ(pool->GetCount(), 2U);
    EXPECT_EQ(pool->GetMemorySize(), 200U);
}

TEST(FixedMemBlockPool, WithOneBlockAtMostTheSecondQueryWaitsForItsReturn) {
    const FixedPool pool = MakeFixedPool(8, 1);
    HeldBlock first = Query(*pool);
    ITnRobotMemoryBlock* const pFirst = first.get();
    int nAnything = 0;
    auto* const pUntouched = reinterpret_cast<ITnRobotMemoryBlock*>(&nAnything);
    ITnRobotMemoryBlock* pSecond = pUntouched;
    EXPECT_EQ(pool->QueryBlock(&pSecond), 0);
    EXPECT_EQ(pSecond, pUntouched);
    EXPECT_EQ(pool->GetCount(), 1U);
    first.reset();
    const HeldBlock again = Query(*pool);
    EXPECT_EQ(again.get(), pFirst);
}

TEST(FixedMemBlockPool, MakesBlocksUpToTheMaximumAndNoMore) {
    const FixedPool pool = MakeFixedPool(8, 3);
    std::vector<HeldBlock> blocks;
    std::set<unsigned char*> memory;
    for (int n = 0; n < 3; ++n) {
        blocks.push_back(Query(*pool));
        ASSERT_NE(blocks.back(), nullptr);
        memory.insert(DataOf(*blocks.back()));
    }
    EXPECT_EQ(memory.size(), 3U);
    EXPECT_EQ(Query(*pool), nullptr);
    EXPECT_EQ(pool->GetCount(), 3U);
}

TEST(FixedMemBlockPool, ReusesTheLastReturnedBlockFirst) {
    const FixedPool pool = MakeFixedPool(8, kNoLimit);
    HeldBlock blocks[] = {Query(*pool), Query(*pool), Query(*pool)};
    ITnRobotMemoryBlock* const returned[] = {blocks[1].get(), blocks[2].get(), blocks[0].get()};
    blocks[1].reset();
    blocks[2].reset();
    blocks[0].reset();
    const HeldBlock again[] = {Query(*pool), Query(*pool), Query(*pool)};
    EXPECT_EQ(again[0].get(), returned[2]);
    EXPECT_EQ(again[1].get(), returned[1]);
    EXPECT_EQ(again[2].get(), returned[0]);
    EXPECT_EQ(pool->GetCount(), 3U);
}

TEST(FixedMemBlockPool, AReturnedBlockIsUsedWholeAgain) {
    const FixedPool pool = MakeFixedPool(100, 1);
    HeldBlock block = Query(*pool);
    EXPECT_EQ(dynamic_cast<CTnRobotMemoryBlock&>(*block).SetUsedSize(1), 1);
    block.reset();
    EXPECT_EQ(SizeOf(*Query(*pool)), 100U);
}

TEST(FixedMemBlockPool, AReturnRecordsItsTime) {
    const FixedPool pool = MakeFixedPool(8, 1);
    HeldBlock block = Query(*pool);
    const Clock::time_point before = Clock::now();
    block.reset();
    const Clock::time_point after = Clock::now();
    const HeldBlock again = Query(*pool);
    const Clock::time_point returned = dynamic_cast<CTnRobotMemoryBlock&>(*again).GetRecoveryTime();
    EXPECT_GE(returned, before);
    EXPECT_LE(returned, after);
}

TEST(FixedMemBlockPool, ForeignKindsOfBlocksAreNotTakenBack) {
    const FixedPool pool = MakeFixedPool(8, 1);
    unsigned char byte = 0;
    const HeldBlock view = MakeView(nullptr, &byte, 1);
    pool->RecoveryMemBuff(nullptr);
    pool->RecoveryMemBuff(view.get());
    EXPECT_EQ(pool->GetCount(), 0U);
    const HeldBlock block = Query(*pool);
    EXPECT_NE(block.get(), view.get());
    EXPECT_EQ(SizeOf(*block), 8U);
}

TEST(FixedMemBlockPool, BothBasesLeadToTheSameRecovery) {
    const FixedPool pool = MakeFixedPool(8, 1);
    ITnRobotMemoryBlockParent* const pParent = pool.get();
    EXPECT_EQ(dynamic_cast<CTnRobotFixedMemBlockPool*>(pParent), pool.get());
    pParent->RecoveryMemBuff(nullptr);
    EXPECT_EQ(pool->GetCount(), 0U);
}

TEST(FixedMemBlockPool, TheSweepKeepsYoungBlocks) {
    const FixedPool pool = MakeFixedPool(8, kNoLimit, 60.0);
    HeldBlock first = Query(*pool);
    HeldBlock second = Query(*pool);
    first.reset();
    second.reset();
    pool->FreeUnuseMemory();
    EXPECT_EQ(pool->GetCount(), 2U);
}

TEST(FixedMemBlockPool, WithIdleTimeZeroTheSweepFreesEveryFreeBlock) {
    const FixedPool pool = MakeFixedPool(8, kNoLimit, kAlwaysIdle);
    HeldBlock blocks[] = {Query(*pool), Query(*pool), Query(*pool)};
    pool->FreeUnuseMemory();
    EXPECT_EQ(pool->GetCount(), 3U);
    blocks[0].reset();
    blocks[2].reset();
    pool->FreeUnuseMemory();
    EXPECT_EQ(pool->GetCount(), 1U);
    blocks[1].reset();
    pool->FreeUnuseMemory();
    EXPECT_EQ(pool->GetCount(), 0U);
    pool->FreeUnuseMemory();
    EXPECT_NE(Query(*pool), nullptr);
}

TEST(FixedMemBlockPool, AFreedBlockMakesRoomUnderTheMaximum) {
    const FixedPool pool = MakeFixedPool(8, 1, kAlwaysIdle);
    Query(*pool).reset();
    pool->FreeUnuseMemory();
    EXPECT_EQ(pool->GetCount(), 0U);
    EXPECT_NE(Query(*pool), nullptr);
}

// The oldest are at the back; the one taken again and returned last stays.
TEST(FixedMemBlockPool, TheSweepFreesFromTheOldestToTheFirstYoungOne) {
    constexpr double kIdleSeconds = 0.05;
    const FixedPool pool = MakeFixedPool(8, kNoLimit, kIdleSeconds);
    bool bWasInTime = false;
    for (int nAttempt = 0; nAttempt < 50 && !bWasInTime; ++nAttempt) {
        HeldBlock blocks[] = {Query(*pool), Query(*pool), Query(*pool)};
        for (HeldBlock& block : blocks) {
            block.reset();
        }
        for (const Clock::time_point start = Clock::now(); SecondsSince(start) < kIdleSeconds;) {
            std::this_thread::yield();
        }
        HeldBlock young = Query(*pool);
        const ITnRobotMemoryBlock* const pYoung = young.get();
        const Clock::time_point returned = Clock::now();
        young.reset();
        pool->FreeUnuseMemory();
        // On a machine too busy to sweep within the idle time the attempt says nothing.
        bWasInTime = SecondsSince(returned) < kIdleSeconds;
        if (bWasInTime) {
            EXPECT_EQ(pool->GetCount(), 1U);
            EXPECT_EQ(Query(*pool).get(), pYoung);
        }
    }
    EXPECT_TRUE(bWasInTime);
}

TEST(FixedMemBlockPool, BlocksOutliveTheirPool) {
    FixedPool pool = MakeFixedPool(1000, kNoLimit);
    HeldBlock held = Query(*pool);
    Query(*pool).reset();
    FillPattern(*held, 5);
    EXPECT_EQ(pool.detach()->Release(), 0);
    EXPECT_TRUE(HasPattern(*held, 5));
    held->AddRef();
    EXPECT_EQ(held->Release(), 1);
    EXPECT_EQ(held.detach()->Release(), 0);
}

TEST(FixedMemBlockPool, AnAddedReferenceKeepsTheBlockFromReturning) {
    const FixedPool pool = MakeFixedPool(8, 1);
    const HeldBlock block = Query(*pool);
    block->AddRef();
    EXPECT_EQ(block->Release(), 2);
    EXPECT_EQ(Query(*pool), nullptr);
}

TEST(FixedMemBlockPool, ThreadsNeverShareABlock) {
    constexpr unsigned int kThreads = 4;
    constexpr unsigned int kLimit = 6;
    const FixedPool pool = MakeFixedPool(512, kLimit, kAlwaysIdle);
    std::atomic<unsigned int> nWorking{kThreads};
    std::vector<std::thread> threads;
    for (unsigned int nThread = 0; nThread < kThreads; ++nThread) {
        threads.emplace_back([&, nThread] {
            const auto nTimes = static_cast<unsigned int>(StormLength(1500));
            for (unsigned int n = 0; n < nTimes; ++n) {
                const HeldBlock first = Query(*pool);
                const HeldBlock second = Query(*pool);
                for (const HeldBlock* pBlock : {&first, &second}) {
                    if (*pBlock != nullptr) {
                        FillPattern(**pBlock, nThread * 100000 + n);
                    }
                }
                EXPECT_TRUE(first == nullptr || HasPattern(*first, nThread * 100000 + n));
                EXPECT_TRUE(second == nullptr || HasPattern(*second, nThread * 100000 + n));
            }
            --nWorking;
        });
    }
    while (nWorking > 0) {
        pool->FreeUnuseMemory();
        EXPECT_LE(pool->GetCount(), kLimit);
        EXPECT_LE(pool->GetMemorySize(), 512 * kLimit);
        std::this_thread::yield();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    pool->FreeUnuseMemory();
    EXPECT_EQ(pool->GetCount(), 0U);
}

// Blocks come back on any thread at any time, also at the moment their pool goes.
TEST(FixedMemBlockPool, MayBeDestroyedWhileBlocksAreReleased) {
    constexpr int kThreads = 3;
    constexpr int kBlocks = 20;
    const auto nRounds = static_cast<unsigned int>(StormLength(100));
    for (unsigned int nRound = 0; nRound < nRounds; ++nRound) {
        FixedPool pool = MakeFixedPool(64, kNoLimit);
        std::vector<std::vector<HeldBlock>> blocks(kThreads);
        for (auto& ofThread : blocks) {
            for (int n = 0; n < kBlocks; ++n) {
                ofThread.push_back(Query(*pool));
                FillPattern(*ofThread.back(), nRound);
            }
        }
        Query(*pool).reset();
        StartGate gate(kThreads + 1);
        std::vector<std::thread> threads;
        for (auto& ofThread : blocks) {
            threads.emplace_back([&] {
                gate.ArriveAndWait();
                for (HeldBlock& block : ofThread) {
                    block->AddRef();
                    block->Release();
                    EXPECT_TRUE(HasPattern(*block, nRound));
                    block.reset();
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

namespace {

/// How a block comes to lie on the free list although somebody holds it.
struct HeldOnTheFreeList {
    const char* lpszName;
    HeldBlock (*take)(CTnRobotFixedMemBlockPool& pool);
    int nHolders;
};

const HeldOnTheFreeList kHeldOnTheFreeList[] = {
    {"taken back while it is held",
     [](CTnRobotFixedMemBlockPool& pool) {
         HeldBlock block = Query(pool);
         pool.RecoveryMemBuff(block.get());
         return block;
     },
     1},
    {"taken back while two hold it",
     [](CTnRobotFixedMemBlockPool& pool) {
         HeldBlock block = Query(pool);
         block->AddRef();
         pool.RecoveryMemBuff(block.get());
         return block;
     },
     2},
    {"returned twice and handed out once",
     [](CTnRobotFixedMemBlockPool& pool) {
         HeldBlock block = Query(pool);
         ITnRobotMemoryBlock* const pBlock = block.get();
         block.reset();
         pool.RecoveryMemBuff(pBlock);
         return Query(pool);
     },
     1},
    {"taken back three times while it is held",
     [](CTnRobotFixedMemBlockPool& pool) {
         HeldBlock block = Query(pool);
         for (int n = 0; n < 3; ++n) {
             pool.RecoveryMemBuff(block.get());
         }
         return block;
     },
     1},
};

constexpr unsigned int kHangsAfter = 60;  // seconds

void ExpectLeftToItsHolders(HeldBlock block, const HeldOnTheFreeList& way) {
    EXPECT_TRUE(HasPattern(*block, 9)) << way.lpszName;
    for (int nLeft = way.nHolders - 1; nLeft > 0; --nLeft) {
        EXPECT_EQ(block->Release(), nLeft) << way.lpszName;
    }
    EXPECT_EQ(block.detach()->Release(), 0) << way.lpszName;
}

}  // namespace

// Releasing such a block under the pool's own lock would return it to the pool.
TEST(FixedMemBlockPool, ItsEndLeavesAFreeBlockThatIsHeldToItsHolders) {
    const Watchdog watchdog(kHangsAfter);
    for (const HeldOnTheFreeList& way : kHeldOnTheFreeList) {
        FixedPool pool = MakeFixedPool(1000, kNoLimit);
        HeldBlock block = way.take(*pool);
        FillPattern(*block, 9);
        EXPECT_EQ(pool.detach()->Release(), 0);
        ExpectLeftToItsHolders(std::move(block), way);
    }
}

TEST(FixedMemBlockPool, TheSweepLeavesAFreeBlockThatIsHeldToItsHolders) {
    const Watchdog watchdog(kHangsAfter);
    for (const HeldOnTheFreeList& way : kHeldOnTheFreeList) {
        const FixedPool pool = MakeFixedPool(1000, kNoLimit, kAlwaysIdle);
        HeldBlock block = way.take(*pool);
        FillPattern(*block, 9);
        pool->FreeUnuseMemory();
        EXPECT_EQ(pool->GetCount(), 0U) << way.lpszName;
        const HeldBlock another = Query(*pool);
        EXPECT_NE(another.get(), block.get()) << way.lpszName;
        ExpectLeftToItsHolders(std::move(block), way);
        EXPECT_EQ(pool->GetCount(), 1U);
    }
}

TEST(FixedMemBlockPool, ABlockReturnedTwiceIsFreedOnce) {
    const FixedPool pool = MakeFixedPool(1000, kNoLimit, kAlwaysIdle);
    HeldBlock block = Query(*pool);
    ITnRobotMemoryBlock* const pBlock = block.get();
    block.reset();
    pool->RecoveryMemBuff(pBlock);
    pool->FreeUnuseMemory();
    EXPECT_EQ(pool->GetCount(), 0U);
    const HeldBlock fresh[] = {Query(*pool), Query(*pool)};
    FillPattern(*fresh[0], 1);
    FillPattern(*fresh[1], 2);
    EXPECT_TRUE(HasPattern(*fresh[0], 1));
}

// The free list holds it twice, so two callers get it: nothing is checked there.
TEST(FixedMemBlockPool, ABlockReturnedTwiceIsHandedOutTwice) {
    const Watchdog watchdog(kHangsAfter);
    FixedPool pool = MakeFixedPool(1000, kNoLimit);
    HeldBlock block = Query(*pool);
    ITnRobotMemoryBlock* const pBlock = block.get();
    block.reset();
    pool->RecoveryMemBuff(pBlock);
    HeldBlock first = Query(*pool);
    HeldBlock second = Query(*pool);
    EXPECT_EQ(first.get(), pBlock);
    EXPECT_EQ(second.get(), pBlock);
    EXPECT_EQ(first.detach()->Release(), 2);
    pool.reset();
    EXPECT_EQ(second.detach()->Release(), 0);
}

// The last holder lets go at the very moment when the pool, or its sweep, looks at the block.
TEST(FixedMemBlockPool, AFreeBlockMayBeReleasedWhileThePoolSweepsAndGoes) {
    const Watchdog watchdog(2 * kHangsAfter);
    const auto nRounds = static_cast<unsigned int>(StormLength(400));
    for (unsigned int nRound = 0; nRound < nRounds; ++nRound) {
        FixedPool pool = MakeFixedPool(64, kNoLimit, kAlwaysIdle);
        std::vector<HeldBlock> blocks;
        for (int n = 0; n < 8; ++n) {
            blocks.push_back(Query(*pool));
            FillPattern(*blocks.back(), nRound);
        }
        for (std::size_t n = 0; n < blocks.size(); n += 2) {
            pool->RecoveryMemBuff(blocks[n].get());
        }
        StartGate gate(2);
        std::thread releasing([&] {
            gate.ArriveAndWait();
            for (HeldBlock& block : blocks) {
                EXPECT_TRUE(HasPattern(*block, nRound));
                block.reset();
            }
        });
        gate.ArriveAndWait();
        if (nRound % 2 == 0) {
            pool->FreeUnuseMemory();
        }
        pool.reset();
        releasing.join();
    }
}

namespace {

/// The first half of a last Release: the count has fallen, RecoveryMemBuff is still to be called.
CTnRobotMemoryBlock* BeginLastRelease(CTnRobotFixedMemBlockPool& pool, HeldBlock block) {
    auto* pBlock = dynamic_cast<CTnRobotMemoryBlock*>(block.detach());
    pBlock->SetParent(nullptr);
    EXPECT_EQ(pBlock->Release(), 1);
    pBlock->SetParent(&pool);
    return pBlock;
}

}  // namespace

// It lies on the free list meanwhile, because it was taken back while it was held. Were it handed out,
// two last releases could be under way at once, and the pool's end would wait for one of them only.
TEST(FixedMemBlockPool, ABlockThatIsJustReturnedIsNotHandedOut) {
    FixedPool pool = MakeFixedPool(64, kNoLimit);
    HeldBlock block = Query(*pool);
    pool->RecoveryMemBuff(block.get());
    CTnRobotMemoryBlock* const pReturned = BeginLastRelease(*pool, std::move(block));
    const HeldBlock other = Query(*pool);
    EXPECT_NE(other.get(), pReturned);
    EXPECT_EQ(pool->GetCount(), 2U);
    pool->RecoveryMemBuff(pReturned);
    HeldBlock again = Query(*pool);
    EXPECT_EQ(again.get(), pReturned);
    EXPECT_EQ(again.detach()->Release(), 1);
    EXPECT_EQ(pool.detach()->Release(), 0);
}

TEST(FixedMemBlockPool, ABlockThatIsJustReturnedCountsTowardsTheMaximum) {
    const FixedPool pool = MakeFixedPool(64, 1);
    HeldBlock block = Query(*pool);
    pool->RecoveryMemBuff(block.get());
    CTnRobotMemoryBlock* const pReturned = BeginLastRelease(*pool, std::move(block));
    EXPECT_EQ(Query(*pool), nullptr);
    pool->RecoveryMemBuff(pReturned);
    EXPECT_EQ(Query(*pool).get(), pReturned);
}
