#include "memory/TnRobotMemoryBlock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "support/objects/Memory.h"
#include "support/threads/StartGate.h"
#include "support/threads/Storm.h"

using namespace tntest;

namespace {

constexpr unsigned int kView = 0;

/// Counts what comes back to it.
class CTnCountingParent : public ITnRobotMemoryBlockParent {
public:
    void RecoveryMemBuff(ITnRobotMemoryBlock* pBlock) override {
        ++m_nReturned;
        m_pLast = pBlock;
    }

    std::atomic<int> m_nReturned{0};
    std::atomic<ITnRobotMemoryBlock*> m_pLast{nullptr};
};

using Clock = std::chrono::system_clock;

}  // namespace

TEST(MemoryBlock, StartsEmptyWithOneReference) {
    const Clock::time_point before = Clock::now();
    auto* pBlock = new CTnRobotMemoryBlock(CTnRobotMemoryBlock::kOwnsMemory, nullptr);
    const Clock::time_point after = Clock::now();
    EXPECT_EQ(DataOf(*pBlock), nullptr);
    EXPECT_EQ(SizeOf(*pBlock), 0U);
    EXPECT_EQ(pBlock->GetCapacity(), 0U);
    EXPECT_EQ(pBlock->GetOwnerPtr(), nullptr);
    EXPECT_GE(pBlock->GetRecoveryTime(), before);
    EXPECT_LE(pBlock->GetRecoveryTime(), after);
    EXPECT_EQ(pBlock->Release(), 0);
}

TEST(MemoryBlock, ItsMemoryIsUsedWholeWhenSet) {
    unsigned char bytes[10] = {};
    auto* pBlock = new CTnRobotMemoryBlock(kView, nullptr);
    pBlock->SetMemData(bytes, 10);
    EXPECT_EQ(DataOf(*pBlock), bytes);
    EXPECT_EQ(SizeOf(*pBlock), 10U);
    EXPECT_EQ(pBlock->GetCapacity(), 10U);
    EXPECT_EQ(pBlock->Release(), 0);
}

TEST(MemoryBlock, TheUsedSizeNeverExceedsTheCapacity) {
    unsigned char bytes[10] = {};
    auto* pBlock = new CTnRobotMemoryBlock(kView, nullptr);
    pBlock->SetMemData(bytes, 10);
    const struct {
        unsigned int nSize;
        int nResult;
        unsigned int nUsed;
    } cases[] = {{3, 1, 3}, {11, 0, 3}, {0xFFFFFFFF, 0, 3}, {10, 1, 10}, {11, 0, 10}, {0, 1, 0}};
    for (const auto& testCase : cases) {
        EXPECT_EQ(pBlock->SetUsedSize(testCase.nSize), testCase.nResult) << testCase.nSize;
        EXPECT_EQ(SizeOf(*pBlock), testCase.nUsed) << testCase.nSize;
        EXPECT_EQ(DataOf(*pBlock), bytes);
    }
    EXPECT_EQ(pBlock->Release(), 0);
}

TEST(MemoryBlock, WithoutMemoryOnlyTheUsedSizeZeroFits) {
    auto* pBlock = new CTnRobotMemoryBlock(kView, nullptr);
    EXPECT_EQ(pBlock->SetUsedSize(1), 0);
    EXPECT_EQ(pBlock->SetUsedSize(0), 1);
    EXPECT_EQ(pBlock->Release(), 0);
}

TEST(MemoryBlock, ClearingItUsesTheWholeCapacityAgain) {
    unsigned char bytes[10] = {};
    auto* pBlock = new CTnRobotMemoryBlock(kView, nullptr);
    pBlock->SetMemData(bytes, 10);
    pBlock->SetUsedSize(1);
    pBlock->ClearResource();
    EXPECT_EQ(SizeOf(*pBlock), 10U);
    EXPECT_EQ(pBlock->Release(), 0);
}

TEST(MemoryBlock, KeepsThePoolsBookkeepingPointer) {
    int nOwner = 0;
    auto* pBlock = new CTnRobotMemoryBlock(kView, nullptr);
    pBlock->SetOwnerPtr(&nOwner);
    EXPECT_EQ(pBlock->GetOwnerPtr(), &nOwner);
    pBlock->SetOwnerPtr(nullptr);
    EXPECT_EQ(pBlock->GetOwnerPtr(), nullptr);
    EXPECT_EQ(pBlock->Release(), 0);
}

TEST(MemoryBlock, TheRecoveryTimeChangesOnlyWhenTold) {
    auto* pBlock = new CTnRobotMemoryBlock(kView, nullptr);
    const Clock::time_point created = pBlock->GetRecoveryTime();
    while (Clock::now() == created) {
        std::this_thread::yield();
    }
    pBlock->AddRef();
    EXPECT_EQ(pBlock->Release(), 1);
    EXPECT_EQ(pBlock->GetRecoveryTime(), created);
    const Clock::time_point before = Clock::now();
    pBlock->UpdateRecoveryTime();
    EXPECT_GE(pBlock->GetRecoveryTime(), before);
    EXPECT_LE(pBlock->GetRecoveryTime(), Clock::now());
    EXPECT_EQ(pBlock->Release(), 0);
}

TEST(MemoryBlock, TheFallFromTwoToOneReturnsItToItsParentOnce) {
    CTnCountingParent parent;
    auto* pBlock = new CTnRobotMemoryBlock(kView, &parent);
    pBlock->AddRef();
    pBlock->AddRef();
    EXPECT_EQ(pBlock->Release(), 2);
    EXPECT_EQ(parent.m_nReturned, 0);
    EXPECT_EQ(pBlock->Release(), 1);
    EXPECT_EQ(parent.m_nReturned, 1);
    EXPECT_EQ(parent.m_pLast, pBlock);
    EXPECT_EQ(pBlock->Release(), 0);
    EXPECT_EQ(parent.m_nReturned, 1);
}

TEST(MemoryBlock, EveryNewFallReturnsItAgain) {
    CTnCountingParent parent;
    auto* pBlock = new CTnRobotMemoryBlock(kView, &parent);
    for (int nTime = 1; nTime <= 3; ++nTime) {
        pBlock->AddRef();
        EXPECT_EQ(pBlock->Release(), 1);
        EXPECT_EQ(parent.m_nReturned, nTime);
    }
    EXPECT_EQ(pBlock->Release(), 0);
}

TEST(MemoryBlock, AnOrphanIsFreedByItsLastRelease) {
    CTnCountingParent parent;
    auto* pBlock = new CTnRobotMemoryBlock(CTnRobotMemoryBlock::kOwnsMemory, &parent);
    pBlock->SetMemData(new unsigned char[100], 100);
    pBlock->AddRef();
    pBlock->SetParent(nullptr);
    EXPECT_EQ(pBlock->Release(), 1);
    EXPECT_EQ(parent.m_nReturned, 0);
    EXPECT_EQ(pBlock->Release(), 0);
}

TEST(MemoryBlock, AViewLeavesItsMemoryAlone) {
    std::vector<unsigned char> bytes(16, 0x5A);
    auto* pBlock = new CTnRobotMemoryBlock(kView, nullptr);
    pBlock->SetMemData(bytes.data(), 16);
    EXPECT_EQ(pBlock->Release(), 0);
    EXPECT_EQ(bytes, std::vector<unsigned char>(16, 0x5A));
}

TEST(MemoryBlock, AnOwnerOfNothingFreesNothing) {
    auto* pBlock = new CTnRobotMemoryBlock(CTnRobotMemoryBlock::kOwnsMemory, nullptr);
    pBlock->SetMemData(nullptr, 0);
    EXPECT_EQ(pBlock->Release(), 0);
}

TEST(MemoryBlock, ManyHoldersReturnItExactlyOnce) {
    constexpr int kThreads = 4;
    for (int nRound = 0; nRound < StormLength(200); ++nRound) {
        CTnCountingParent parent;
        auto* pBlock = new CTnRobotMemoryBlock(kView, &parent);
        StartGate gate(kThreads);
        std::vector<std::thread> threads;
        for (int n = 0; n < kThreads; ++n) {
            pBlock->AddRef();
        }
        for (int n = 0; n < kThreads; ++n) {
            threads.emplace_back([&] {
                gate.ArriveAndWait();
                pBlock->AddRef();
                pBlock->Release();
                pBlock->Release();
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(parent.m_nReturned, 1);
        ASSERT_EQ(pBlock->Release(), 0);
    }
}

TEST(MemoryBlock, AbandoningABlockInUseLeavesItToItsHolders) {
    CTnCountingParent parent;
    auto* pBlock = new CTnRobotMemoryBlock(kView, &parent);
    pBlock->AddRef();
    EXPECT_TRUE(pBlock->Abandon());
    EXPECT_EQ(pBlock->Release(), 0);
    EXPECT_EQ(parent.m_nReturned, 0);
}

TEST(MemoryBlock, ABlockThatIsBeingReturnedIsNotAbandoned) {
    CTnCountingParent parent;
    auto* pBlock = new CTnRobotMemoryBlock(kView, &parent);
    EXPECT_FALSE(pBlock->Abandon());
    pBlock->AddRef();
    EXPECT_EQ(pBlock->Release(), 1);
    EXPECT_EQ(parent.m_nReturned, 1);
    EXPECT_EQ(pBlock->Release(), 0);
}
