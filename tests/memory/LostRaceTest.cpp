// A circular pool answers 1 without a block when other threads use up the buffer that it has found.
// That is no lack of memory: who builds on a pool asks again, and gives up after a while.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "TnRobotKernel/image.h"
#include "TnRobotKernel/memory.h"
#include "support/fakes/TestSurfaces.h"
#include "support/objects/Memory.h"
#include "support/threads/StartGate.h"
#include "support/threads/Storm.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

namespace {

// More than anybody should ask, however the bound is chosen.
constexpr std::size_t kTooOften = 10000;

using HeldStream = TnRobotPtr<ITnRobotMemDataStream>;

HeldStream MakeStream(ITnRobotMemoryBlockPool* pPool) {
    ITnRobotMemDataStream* pStream = nullptr;
    EXPECT_EQ(TnCreateRobotMemDataStream(pPool, &pStream), 1);
    return tn::Adopt(pStream);
}

int Write(ITnRobotMemDataStream& stream, const Bytes& bytes) {
    return stream.WriteData(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

HeldBlock Save(const STnNLImageData& image, ITnRobotMemoryBlockPool* pPool, int& nResult) {
    ITnRobotMemoryBlock* pBlock = nullptr;
    nResult = TnRobotImageUtils::SaveImage(image, pPool, &pBlock);
    return tn::Adopt(pBlock);
}

/// Refuses, and leaves a block of its own behind all the same.
class RefusingWithABlock final : public ITnRobotMemoryBlockPool {
public:
    int QueryMemBuff(unsigned int /*nSize*/, ITnRobotMemoryBlock** ppBlock) override {
        *ppBlock = m_block.get();
        return 0;
    }
    void FreeUnuseMemory() override {}

    const TestBlock& Own() const { return *m_block; }

private:
    TnRobotPtr<TestBlock> m_block{tn::Adopt(new TestBlock(1024, 0))};
};

}  // namespace

TEST(LostRace, AStreamAsksAgain) {
    for (const int nRaces : {1, 2, 10}) {
        const auto blocks = TestBlockPool::Create();
        const auto stream = MakeStream(blocks.get());
        blocks->LoseRaces(nRaces);
        EXPECT_EQ(Write(*stream, Counting(1000)), 0) << nRaces;
        EXPECT_EQ(stream->GetTotleLength(), 1000U);
        EXPECT_EQ(blocks->Requests().size(), static_cast<std::size_t>(nRaces) + 1);
    }
}

TEST(LostRace, ANewSurfaceIsAskedForAgain) {
    for (const int nRaces : {1, 2, 10}) {
        SurfaceSource source;
        source.blocks->LoseRaces(nRaces);
        const auto surface = source.Get(TN_IMAGE_BGR24, 5, 4);
        ASSERT_NE(surface, nullptr) << nRaces;
        EXPECT_EQ(SurfaceBytes(surface.get()).size(), 64U);
        EXPECT_EQ(source.blocks->Requests().size(), static_cast<std::size_t>(nRaces) + 1);
    }
}

TEST(LostRace, AReusedSurfaceHasWhatWasAskedFor) {
    for (const int nRaces : {1, 2, 10}) {
        SurfaceSource source;
        source.Get(TN_IMAGE_BGR24, 5, 6).reset();
        source.blocks->LoseRaces(nRaces);
        const auto surface = source.Get(TN_IMAGE_GRAY8, 9, 7);
        ASSERT_NE(surface, nullptr);
        EXPECT_EQ(DescOf(surface.get()).nWidth, 9) << nRaces;
        EXPECT_EQ(DescOf(surface.get()).nHeight, 7);
        EXPECT_EQ(SurfaceBytes(surface.get()).size(), 63U) << nRaces;
    }
}

TEST(LostRace, SavingToABlockAsksAgain) {
    const Bytes pixels = Counting(48);
    for (const int nRaces : {1, 2, 10}) {
        const auto blocks = TestBlockPool::Create();
        blocks->LoseRaces(nRaces);
        int nResult = -1;
        const HeldBlock block = Save(Record(TN_IMAGE_BGR24, 4, 4, pixels), blocks.get(), nResult);
        EXPECT_EQ(nResult, 0) << nRaces;
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(SizeOf(*block), blocks->Requests().back());
        EXPECT_EQ(blocks->Requests().size(), static_cast<std::size_t>(nRaces) + 1);
    }
}

TEST(LostRace, EveryoneGivesUpOnAPoolThatNeverHasABlock) {
    SurfaceSource source;
    source.Get(TN_IMAGE_BGR24, 5, 6).reset();
    TestBlockPool& blocks = *source.blocks;
    blocks.PretendOnly();
    const Bytes pixels = Counting(48);
    const auto stream = MakeStream(&blocks);
    const struct {
        const char* lpszName;
        std::function<bool()> fails;
    } cases[] = {
        {"stream", [&] { return Write(*stream, pixels) == -1 && stream->GetTotleLength() == 0; }},
        {"reused surface", [&] { return SurfaceBytes(source.Get(TN_IMAGE_GRAY8, 9, 9).get()).empty(); }},
        {"new surface",
         [&] {
             const auto reused = source.Get(TN_IMAGE_GRAY8, 9, 9);
             return source.Get(TN_IMAGE_GRAY8, 9, 9) == nullptr;
         }},
        {"block of a picture",
         [&] {
             int nResult = 0;
             return Save(Record(TN_IMAGE_BGR24, 4, 4, pixels), &blocks, nResult) == nullptr && nResult == -1;
         }},
    };
    for (const auto& testCase : cases) {
        const std::size_t nBefore = blocks.Requests().size();
        EXPECT_TRUE(testCase.fails()) << testCase.lpszName;
        const std::size_t nAsked = blocks.Requests().size() - nBefore;
        EXPECT_GT(nAsked, 10U) << testCase.lpszName;
        EXPECT_LT(nAsked, kTooOften) << testCase.lpszName;
    }
}

TEST(LostRace, ARefusalIsNotAskedAgain) {
    SurfaceSource source;
    source.blocks->Refuse();
    EXPECT_EQ(source.Get(TN_IMAGE_BGR24, 5, 4), nullptr);
    EXPECT_EQ(source.blocks->Requests().size(), 1U);
    const Bytes pixels = Counting(48);
    int nResult = 0;
    EXPECT_EQ(Save(Record(TN_IMAGE_BGR24, 4, 4, pixels), source.blocks.get(), nResult), nullptr);
    EXPECT_EQ(nResult, -1);
    EXPECT_EQ(source.blocks->Requests().size(), 2U);
    EXPECT_EQ(Write(*MakeStream(source.blocks.get()), pixels), -1);
    EXPECT_EQ(source.blocks->Requests().size(), 3U);
}

// Nobody was given a reference to it.
TEST(LostRace, ABlockThatComesWithARefusalIsLeftAlone) {
    const auto blocks = tn::Adopt(new RefusingWithABlock);
    ITnRobotSurfacePool* pPool = nullptr;
    ASSERT_EQ(TnCreateRobotSurfacePool(blocks.get(), &pPool), 1);
    const auto pool = tn::Adopt(pPool);
    ITnRobotSurface* pSurface = nullptr;
    EXPECT_EQ(pool->QuerySurface(MakeDesc(TN_IMAGE_GRAY8, 4, 4), &pSurface), -1);
    ASSERT_EQ(blocks->Own().References(), 1);
    const Bytes pixels = Counting(48);
    int nResult = 0;
    EXPECT_EQ(Save(Record(TN_IMAGE_BGR24, 4, 4, pixels), blocks.get(), nResult), nullptr);
    EXPECT_EQ(nResult, -1);
    ASSERT_EQ(blocks->Own().References(), 1);
    EXPECT_EQ(Write(*MakeStream(blocks.get()), pixels), -1);
    ASSERT_EQ(blocks->Own().References(), 1);
}

namespace {

using LostRaceThreads = ThreadTest;

/// One thread's use of a pool that everybody shares.
class Worker {
public:
    Worker(ITnRobotMemoryBlockPool& blocks, ITnRobotSurfacePool& surfaces) : m_blocks(blocks), m_surfaces(surfaces) {}

    // Three or four of these surfaces fill a buffer, so that the threads meet at its end.
    bool Work(int nRound) {
        const int nHeight = 6000 + nRound % 3 * 500;
        ITnRobotSurface* pSurface = nullptr;
        const int nResult = m_surfaces.QuerySurface(MakeDesc(TN_IMAGE_GRAY8, 1024, nHeight), &pSurface);
        const auto surface = tn::Adopt(pSurface);
        return nResult == 0 && HasPixels(pSurface, nHeight) && WritesAStream() && (nRound % 16 != 0 || Saves());
    }

private:
    static bool HasPixels(ITnRobotSurface* pSurface, int nHeight) {
        Lock lock{};
        pSurface->LockSurface(lock);
        pSurface->UnLockSurface();
        return lock.pData != nullptr && lock.nHeight == nHeight &&
               lock.nDataSize == static_cast<unsigned int>(nHeight) * 1024;
    }

    bool WritesAStream() {
        const auto stream = MakeStream(&m_blocks);
        return Write(*stream, m_bytes) == 0 && stream->GetTotleLength() == m_bytes.size();
    }

    bool Saves() {
        int nResult = -1;
        return Save(Record(TN_IMAGE_BGR24, 4, 4, m_bytes), &m_blocks, nResult) != nullptr && nResult == 0;
    }

    ITnRobotMemoryBlockPool& m_blocks;
    ITnRobotSurfacePool& m_surfaces;
    const Bytes m_bytes = Counting(48);
};

}  // namespace

TEST_F(LostRaceThreads, NobodyGoesWithoutABlockOfASharedCircularPool) {
    constexpr int kThreads = 8;
    const int nRounds = StormLength(300);
    ITnRobotMemoryBlockPool* pBlocks = nullptr;
    ASSERT_EQ(TnCreateRobotCircleMemoryBlockPool(&pBlocks), 1);
    const auto blocks = tn::Adopt(pBlocks);
    std::atomic<int> nFailed{0};
    StartGate gate(kThreads);
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < kThreads; ++nThread) {
        threads.emplace_back([&] {
            ITnRobotSurfacePool* pSurfaces = nullptr;
            TnCreateRobotSurfacePool(pBlocks, &pSurfaces);
            const auto surfaces = tn::Adopt(pSurfaces);
            Worker worker(*pBlocks, *pSurfaces);
            gate.ArriveAndWait();
            for (int nRound = 0; nRound < nRounds; ++nRound) {
                nFailed += worker.Work(nRound) ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(nFailed.load(), 0);
}
