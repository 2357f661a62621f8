#include <gtest/gtest.h>

#include <climits>
#include <thread>
#include <vector>

#include "TnRobotKernel/image.h"
#include "support/fakes/TestSurfaces.h"
#include "support/objects/Memory.h"
#include "support/threads/StartGate.h"

using namespace tntest;

namespace {

ETnNLImageType Type(int nValue) {
    return static_cast<ETnNLImageType>(nValue);
}

}  // namespace

TEST(SurfacePoolCreation, NeedsAnOutPointer) {
    const auto blocks = TestBlockPool::Create();
    EXPECT_EQ(TnCreateRobotSurfacePool(blocks.get(), nullptr), 0);
    EXPECT_EQ(TnCreateRobotSurfacePool(nullptr, nullptr), 0);
    EXPECT_EQ(blocks->References(), 1);
}

TEST(SurfacePoolCreation, KeepsTheBlockPoolForItsLife) {
    const auto blocks = TestBlockPool::Create();
    ITnRobotSurfacePool* pPool = nullptr;
    ASSERT_EQ(TnCreateRobotSurfacePool(blocks.get(), &pPool), 1);
    ASSERT_NE(pPool, nullptr);
    EXPECT_EQ(blocks->References(), 2);
    EXPECT_TRUE(blocks->Requests().empty());
    pPool->AddRef();
    EXPECT_EQ(pPool->Release(), 1);
    EXPECT_EQ(pPool->Release(), 0);
    EXPECT_EQ(blocks->References(), 1);
}

TEST(SurfacePoolCreation, WorksWithoutABlockPoolButHandsOutNothing) {
    ITnRobotSurfacePool* pPool = nullptr;
    ASSERT_EQ(TnCreateRobotSurfacePool(nullptr, &pPool), 1);
    const auto pool = tn::Adopt(pPool);
    ITnRobotSurface* pSurface = nullptr;
    EXPECT_EQ(pool->QuerySurface(MakeDesc(TN_IMAGE_BGR24, 4, 4), &pSurface), -1);
    EXPECT_EQ(pSurface, nullptr);
}

TEST(SurfacePool, PitchFollowsFromFormatAndWidth) {
    const struct {
        ETnNLImageType eType;
        int nWidth;
        int nPitch;
    } rows[] = {
        {TN_IMAGE_RGB24, 1, 4},   {TN_IMAGE_RGB24, 2, 8},       {TN_IMAGE_RGB24, 3, 12},       {TN_IMAGE_RGB24, 4, 12},
        {TN_IMAGE_RGB24, 5, 16},  {TN_IMAGE_RGB24, 6, 20},      {TN_IMAGE_BGR24, 1, 4},        {TN_IMAGE_BGR24, 4, 12},
        {TN_IMAGE_BGR24, 5, 16},  {TN_IMAGE_BGR24, 7, 24},      {TN_IMAGE_BGR24, 8, 24},       {TN_IMAGE_8BIT_3, 1, 1},
        {TN_IMAGE_8BIT_3, 5, 5},  {TN_IMAGE_8BIT_4, 5, 5},      {TN_IMAGE_8BIT_5, 6, 6},       {TN_IMAGE_8BIT_6, 7, 7},
        {TN_IMAGE_GRAY8, 5, 5},   {TN_IMAGE_GRAY8, 13, 13},     {TN_IMAGE_420, 2, 3},          {TN_IMAGE_420, 4, 6},
        {TN_IMAGE_420, 5, 7},     {TN_IMAGE_420, 7, 10},        {TN_IMAGE_BGRX32, 1, 4},       {TN_IMAGE_BGRX32, 5, 20},
        {TN_IMAGE_420, 640, 960}, {TN_IMAGE_BGR24, 1920, 5760}, {TN_IMAGE_BGRX32, 1921, 7684},
    };
    SurfaceSource source;
    for (const auto& row : rows) {
        constexpr int kHeight = 3;
        const Desc desc = MakeDesc(row.eType, row.nWidth, kHeight, {8, 9});
        ITnRobotSurface* pSurface = nullptr;
        ASSERT_EQ(source.pool->QuerySurface(desc, &pSurface), 0) << row.eType << " " << row.nWidth;
        const auto surface = tn::Adopt(pSurface);
        EXPECT_EQ(desc.nPitch, row.nPitch) << "the caller's own description";
        const Desc got = DescOf(pSurface);
        EXPECT_EQ(got.nPitch, row.nPitch) << row.eType << " " << row.nWidth;
        EXPECT_EQ(got.nWidth, row.nWidth);
        EXPECT_EQ(got.nHeight, kHeight);
        EXPECT_EQ(got.eImageType, row.eType);
        EXPECT_EQ(got.oriPos.x, 8);
        EXPECT_EQ(got.oriPos.y, 9);
        EXPECT_EQ(source.blocks->Requests().back(), static_cast<unsigned int>(row.nPitch * kHeight));
        EXPECT_EQ(SurfaceBytes(pSurface).size(), static_cast<std::size_t>(row.nPitch * kHeight));
    }
}

TEST(SurfacePool, RefusesWhatCannotBeMetWhileNothingIsFree) {
    const struct {
        const char* lpszWhat;
        ETnNLImageType eType;
        int nWidth;
        int nHeight;
    } rows[] = {
        {"no format", TN_IMAGE_NONE, 4, 4},
        {"unknown format", Type(10), 4, 4},
        {"negative format", Type(-1), 4, 4},
        {"large format", Type(INT_MAX), 4, 4},
        {"no columns", TN_IMAGE_BGR24, 0, 4},
        {"no rows", TN_IMAGE_BGR24, 4, 0},
        {"half a pixel", TN_IMAGE_420, 0, 4},
        {"negative width", TN_IMAGE_BGR24, -4, 4},
        {"negative height", TN_IMAGE_GRAY8, 4, -4},
        {"both negative", TN_IMAGE_GRAY8, -4, -4},
        {"pitch beyond 31 bits", TN_IMAGE_BGRX32, 0x20000000, 1},
        {"pitch that wraps to 12", TN_IMAGE_BGR24, 0x55555559, 1},
        {"pitch that wraps to 4", TN_IMAGE_BGRX32, 0x40000001, 1},
        {"size that wraps to 0", TN_IMAGE_GRAY8, 0x10000, 0x10000},
        {"size that wraps to 64 KiB", TN_IMAGE_GRAY8, 0x10000, 0x10001},
        {"size that wraps to 12", TN_IMAGE_BGR24, 0x40000004, 0x40000001},
        {"largest of everything", TN_IMAGE_BGRX32, INT_MAX, INT_MAX},
        {"smallest of everything", TN_IMAGE_BGRX32, INT_MIN, INT_MIN},
    };
    SurfaceSource source;
    ITnRobotSurface* const pMarker = reinterpret_cast<ITnRobotSurface*>(&source);
    for (const auto& row : rows) {
        ITnRobotSurface* pSurface = pMarker;
        EXPECT_EQ(source.pool->QuerySurface(MakeDesc(row.eType, row.nWidth, row.nHeight), &pSurface), -1)
            << row.lpszWhat;
        EXPECT_EQ(pSurface, pMarker) << row.lpszWhat << ": untouched on failure";
    }
    EXPECT_TRUE(source.blocks->Requests().empty());
    EXPECT_EQ(TestBlock::LiveCount(), 0);
}

// A description counts pitches in 31 bits, a pool of blocks bytes in 32.
TEST(SurfacePool, AsksForThePixelsOfAnySizeThatCanBeTold) {
    const struct {
        ETnNLImageType eType;
        int nWidth;
        int nHeight;
        int nPitch;
        unsigned int nSize;
    } rows[] = {
        {TN_IMAGE_GRAY8, INT_MAX, 1, INT_MAX, 0x7FFFFFFFU},
        {TN_IMAGE_GRAY8, INT_MAX, 2, INT_MAX, 0xFFFFFFFEU},
        {TN_IMAGE_GRAY8, 0x10001, 0xFFFF, 0x10001, 0xFFFFFFFFU},
        {TN_IMAGE_420, 0x55555555, 1, INT_MAX, 0x7FFFFFFFU},
        {TN_IMAGE_BGRX32, 0x1FFFFFFF, 2, 0x7FFFFFFC, 0xFFFFFFF8U},
        {TN_IMAGE_BGR24, 0x2AAAAAA9, 1, 0x7FFFFFFC, 0x7FFFFFFCU},
    };
    SurfaceSource source;
    source.blocks->Refuse();
    for (const auto& row : rows) {
        const Desc desc = MakeDesc(row.eType, row.nWidth, row.nHeight);
        ITnRobotSurface* pSurface = nullptr;
        EXPECT_EQ(source.pool->QuerySurface(desc, &pSurface), -1);
        EXPECT_EQ(desc.nPitch, row.nPitch) << row.eType << " " << row.nWidth;
        ASSERT_FALSE(source.blocks->Requests().empty());
        EXPECT_EQ(source.blocks->Requests().back(), row.nSize) << row.eType << " " << row.nWidth;
    }
}

TEST(SurfacePool, LeavesThePitchOfAnInvalidFormatAlone) {
    SurfaceSource source;
    ITnRobotSurface* pSurface = nullptr;
    const Desc desc = MakeDesc(Type(10), 4, 4);
    EXPECT_EQ(source.pool->QuerySurface(desc, &pSurface), -1);
    EXPECT_EQ(desc.nPitch, -12345);
}

TEST(SurfacePool, WritesThePitchOfAValidFormatEvenWithoutPixels) {
    SurfaceSource source;
    ITnRobotSurface* pSurface = nullptr;
    const Desc desc = MakeDesc(TN_IMAGE_BGR24, 5, 0);
    EXPECT_EQ(source.pool->QuerySurface(desc, &pSurface), -1);
    EXPECT_EQ(desc.nPitch, 16);
}

TEST(SurfacePool, NeedsAnOutPointer) {
    SurfaceSource source;
    EXPECT_EQ(source.pool->QuerySurface(MakeDesc(TN_IMAGE_BGR24, 4, 4), nullptr), -1);
    EXPECT_TRUE(source.blocks->Requests().empty());
}

TEST(SurfacePool, FailsWhenTheBlockPoolRefuses) {
    SurfaceSource source;
    source.blocks->Refuse();
    EXPECT_EQ(source.Get(TN_IMAGE_BGR24, 4, 4), nullptr);
    source.blocks->Refuse(false);
    EXPECT_NE(source.Get(TN_IMAGE_BGR24, 4, 4), nullptr);
}

TEST(SurfacePool, FailsWhenTheBlockPoolAnswersWithoutABlock) {
    SurfaceSource source;
    source.blocks->PretendOnly();
    EXPECT_EQ(source.Get(TN_IMAGE_BGR24, 4, 4), nullptr);
}

TEST(SurfacePool, FailsWhenTheBlockDoesNotHoldThePixels) {
    for (const auto eGiving : {TestBlockPool::Giving::kShort, TestBlockPool::Giving::kWithoutMemory}) {
        SurfaceSource source;
        source.blocks->Give(eGiving);
        EXPECT_EQ(source.Get(TN_IMAGE_BGR24, 4, 4), nullptr);
        EXPECT_EQ(TestBlock::LiveCount(), 0);
    }
}

TEST(SurfacePool, ReusesASurfaceForAnySizeAndFormat) {
    SurfaceSource source;
    auto surface = source.Get(TN_IMAGE_BGR24, 4, 4, {1, 2});
    ITnRobotSurface* pFirst = surface.get();
    surface.reset();
    surface = source.Get(TN_IMAGE_GRAY8, 100, 50, {3, 4});
    EXPECT_EQ(surface.get(), pFirst);
    const Desc desc = DescOf(surface.get());
    EXPECT_EQ(desc.nWidth, 100);
    EXPECT_EQ(desc.nHeight, 50);
    EXPECT_EQ(desc.nPitch, 100);
    EXPECT_EQ(desc.eImageType, TN_IMAGE_GRAY8);
    EXPECT_EQ(desc.oriPos.x, 3);
    EXPECT_EQ(desc.oriPos.y, 4);
    EXPECT_EQ(SurfaceBytes(surface.get()).size(), 5000U);
    EXPECT_EQ(source.blocks->Requests(), (std::vector<unsigned int>{48, 5000}));
}

TEST(SurfacePool, ReusesTheSurfaceThatHasBeenFreeLongest) {
    SurfaceSource source;
    std::vector<TnRobotPtr<ITnRobotSurface>> held;
    std::vector<ITnRobotSurface*> order;
    for (int i = 0; i < 3; ++i) {
        held.push_back(source.Get(TN_IMAGE_GRAY8, 4, 4));
        order.push_back(held.back().get());
    }
    for (std::size_t i : {1U, 2U, 0U}) {
        held[i].reset();
    }
    for (std::size_t i : {1U, 2U, 0U}) {
        held[i] = source.Get(TN_IMAGE_GRAY8, 4, 4);
        EXPECT_EQ(held[i].get(), order[i]);
    }
    EXPECT_EQ(source.Get(TN_IMAGE_NONE, 1, 1), nullptr) << "nothing is free any more";
}

TEST(SurfacePool, AsksForANewBlockOfTheExactSizeEveryTime) {
    SurfaceSource source;
    for (int i = 0; i < 3; ++i) {
        source.Get(TN_IMAGE_BGR24, 5, 7).reset();
    }
    EXPECT_EQ(source.blocks->Requests(), (std::vector<unsigned int>{112, 112, 112}));
}

// A free surface is handed out whatever was asked: callers rely on valid descriptions only.
TEST(SurfacePool, HandsOutAFreeSurfaceWithoutPixelsForABadRequest) {
    const struct {
        ETnNLImageType eType;
        int nWidth;
        int nHeight;
    } rows[] = {{TN_IMAGE_NONE, 4, 4},
                {Type(10), 4, 4},
                {TN_IMAGE_BGR24, 0, 4},
                {TN_IMAGE_BGR24, 4, 0},
                {TN_IMAGE_BGR24, -4, 4},
                {TN_IMAGE_GRAY8, 0x10000, 0x10000},
                {TN_IMAGE_BGRX32, INT_MAX, INT_MAX}};
    for (const auto& row : rows) {
        SurfaceSource source;
        auto surface = source.Get(TN_IMAGE_BGR24, 5, 6, {7, 8});
        ITnRobotSurface* pFirst = surface.get();
        surface.reset();
        ITnRobotSurface* pSurface = nullptr;
        ASSERT_EQ(source.pool->QuerySurface(MakeDesc(row.eType, row.nWidth, row.nHeight), &pSurface), 0);
        surface = tn::Adopt(pSurface);
        EXPECT_EQ(pSurface, pFirst);
        const Desc desc = DescOf(pSurface);
        EXPECT_EQ(desc.nWidth, 5);
        EXPECT_EQ(desc.nHeight, 6);
        EXPECT_EQ(desc.nPitch, 16);
        EXPECT_EQ(desc.eImageType, TN_IMAGE_BGR24);
        EXPECT_EQ(desc.oriPos.x, 7);
        EXPECT_EQ(desc.oriPos.y, 8);
        Lock lock{};
        EXPECT_TRUE(pSurface->LockSurface(lock));
        EXPECT_EQ(lock.pData, nullptr);
        EXPECT_EQ(lock.nDataSize, 0U);
        pSurface->UnLockSurface();
    }
}

TEST(SurfacePool, HandsOutAFreeSurfaceWithoutPixelsWhenMemoryIsRefused) {
    SurfaceSource source;
    source.Get(TN_IMAGE_BGR24, 5, 6).reset();
    source.blocks->Refuse();
    const auto surface = source.Get(TN_IMAGE_GRAY8, 9, 9);
    ASSERT_NE(surface, nullptr);
    EXPECT_EQ(DescOf(surface.get()).nWidth, 5);
    EXPECT_TRUE(SurfaceBytes(surface.get()).empty());
}

TEST(SurfacePool, ASurfaceWithoutPixelsRecoversWithTheNextValidRequest) {
    SurfaceSource source;
    source.GetWithoutPixels().reset();
    const auto surface = source.Get(TN_IMAGE_GRAY8, 9, 9);
    ASSERT_NE(surface, nullptr);
    EXPECT_EQ(SurfaceBytes(surface.get()).size(), 81U);
}

TEST(SurfacePool, SurfacesOutliveIt) {
    TnRobotPtr<ITnRobotSurface> one;
    TnRobotPtr<ITnRobotSurface> shared;
    {
        SurfaceSource source;
        one = source.Get(TN_IMAGE_GRAY8, 4, 4);
        shared = source.Get(TN_IMAGE_GRAY8, 4, 4);
        shared->AddRef();
    }
    EXPECT_TRUE(SurfaceBytes(one.get()).empty()) << "a surface with a single holder is cleared";
    EXPECT_EQ(DescOf(one.get()).nWidth, 4);
    EXPECT_EQ(SurfaceBytes(shared.get()).size(), 16U) << "one with two holders is not";
    EXPECT_EQ(shared->Release(), 1);
    EXPECT_EQ(shared.detach()->Release(), 0);
    EXPECT_EQ(one.detach()->Release(), 0);
    EXPECT_EQ(TestBlock::LiveCount(), 0);
}

TEST(SurfacePool, WorksOverTheGeneralBlockPool) {
    const HeldPool blocks = MakePool();
    ITnRobotSurfacePool* pPool = nullptr;
    ASSERT_EQ(TnCreateRobotSurfacePool(blocks.get(), &pPool), 1);
    const auto pool = tn::Adopt(pPool);
    ITnRobotSurface* pSurface = nullptr;
    ASSERT_EQ(pool->QuerySurface(MakeDesc(TN_IMAGE_BGR24, 1920, 1080), &pSurface), 0);
    const auto surface = tn::Adopt(pSurface);
    Lock lock{};
    EXPECT_TRUE(surface->LockSurface(lock));
    EXPECT_EQ(lock.nDataSize, 5760U * 1080U) << "the block says what was asked for, not its capacity";
    lock.pData[lock.nDataSize - 1] = 1;
    surface->UnLockSurface();
}

TEST(SurfacePool, ServesSeveralThreads) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 500;
    const HeldPool blocks = MakePool();
    ITnRobotSurfacePool* pPool = nullptr;
    ASSERT_EQ(TnCreateRobotSurfacePool(blocks.get(), &pPool), 1);
    const auto pool = tn::Adopt(pPool);
    std::atomic<int> nWrong{0};
    std::vector<std::thread> threads;
    StartGate gate(kThreads);
    for (int nThread = 0; nThread < kThreads; ++nThread) {
        threads.emplace_back([&, nThread] {
            gate.ArriveAndWait();
            for (int i = 0; i < kRounds; ++i) {
                const int nWidth = 1 + (i * 7 + nThread) % 40;
                ITnRobotSurface* pSurface = nullptr;
                if (pPool->QuerySurface(MakeDesc(TN_IMAGE_GRAY8, nWidth, 3), &pSurface) != 0) {
                    ++nWrong;
                    continue;
                }
                const auto surface = tn::Adopt(pSurface);
                Lock lock{};
                surface->LockSurface(lock);
                const auto byMark = static_cast<unsigned char>(nThread + 1);
                std::fill_n(lock.pData, lock.nDataSize, byMark);
                if (lock.nWidth != nWidth || lock.nDataSize != static_cast<unsigned int>(nWidth) * 3 ||
                    SurfaceBytes(pSurface) != Bytes(lock.nDataSize, byMark)) {
                    ++nWrong;
                }
                surface->UnLockSurface();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(nWrong.load(), 0);
}
