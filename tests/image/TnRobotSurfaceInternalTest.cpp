// The surface as its pool's allocator sees it.

#include <gtest/gtest.h>

#include "image/TnRobotSurface.h"
#include "image/TnRobotSurfacePool.h"
#include "support/fakes/TestSurfaces.h"

using namespace tntest;

namespace {

TnRobotPtr<TestBlock> MakeBlock(unsigned int nSize) {
    return tn::Adopt(new TestBlock(nSize, TestBlockPool::kFill));
}

TnRobotPtr<CTnRobotSurface> MakeSurface(ITnRobotMemoryBlock* pBlock, const Desc& desc) {
    ITnRobotSurface* pSurface = nullptr;
    EXPECT_TRUE(CTnRobotSurface::CreateInstance(pBlock, desc, &pSurface));
    return tn::Adopt(dynamic_cast<CTnRobotSurface*>(pSurface));
}

}  // namespace

TEST(RobotSurfaceCreation, NeedsAnOutPointer) {
    const auto block = MakeBlock(16);
    EXPECT_FALSE(CTnRobotSurface::CreateInstance(block.get(), MakeDesc(TN_IMAGE_GRAY8, 4, 4), nullptr));
    EXPECT_EQ(block->References(), 1);
}

TEST(RobotSurfaceCreation, NeedsABlock) {
    int nOther = 0;
    ITnRobotSurface* pSurface = reinterpret_cast<ITnRobotSurface*>(&nOther);
    EXPECT_FALSE(CTnRobotSurface::CreateInstance(nullptr, MakeDesc(TN_IMAGE_GRAY8, 4, 4), &pSurface));
    EXPECT_EQ(pSurface, nullptr);
}

TEST(RobotSurfaceCreation, TakesTheDescriptionAsItIs) {
    const auto block = MakeBlock(16);
    Desc desc = MakeDesc(TN_IMAGE_420, 40, 30, {5, 6});
    desc.nPitch = 999;
    const auto surface = MakeSurface(block.get(), desc);
    ASSERT_NE(surface, nullptr);
    EXPECT_EQ(block->References(), 2);
    const Desc got = DescOf(surface.get());
    EXPECT_EQ(got.nWidth, 40);
    EXPECT_EQ(got.nHeight, 30);
    EXPECT_EQ(got.nPitch, 999);
    EXPECT_EQ(got.eImageType, TN_IMAGE_420);
    EXPECT_EQ(got.oriPos.x, 5);
    EXPECT_EQ(got.oriPos.y, 6);
    EXPECT_EQ(surface->QueryTimeStamp(), 0U);
    Lock lock{};
    EXPECT_TRUE(surface->LockSurface(lock));
    EXPECT_EQ(lock.nDataSize, 16U);
    EXPECT_EQ(lock.nPitch, 999);
    surface->UnLockSurface();
}

TEST(RobotSurfaceCreation, DestructionReleasesTheBlock) {
    const auto block = MakeBlock(16);
    auto surface = MakeSurface(block.get(), MakeDesc(TN_IMAGE_GRAY8, 4, 4));
    EXPECT_EQ(surface.detach()->Release(), 0);
    EXPECT_EQ(block->References(), 1);
}

TEST(RobotSurfaceClass, InitNeedsABlockAndChangesNothingWithoutOne) {
    const auto block = MakeBlock(16);
    const auto surface = MakeSurface(block.get(), MakeDesc(TN_IMAGE_GRAY8, 4, 4));
    EXPECT_FALSE(surface->_Init(nullptr, MakeDesc(TN_IMAGE_BGR24, 9, 9)));
    EXPECT_EQ(DescOf(surface.get()).nWidth, 4);
    EXPECT_EQ(SurfaceBytes(surface.get()).size(), 16U);
}

TEST(RobotSurfaceClass, InitReplacesDescriptionAndBlock) {
    const auto first = MakeBlock(16);
    const auto second = MakeBlock(20);
    const auto surface = MakeSurface(first.get(), MakeDesc(TN_IMAGE_GRAY8, 4, 4));
    EXPECT_TRUE(surface->_Init(second.get(), MakeDesc(TN_IMAGE_GRAY8, 5, 4, {1, 2})));
    EXPECT_EQ(first->References(), 1);
    EXPECT_EQ(second->References(), 2);
    EXPECT_EQ(DescOf(surface.get()).nWidth, 5);
    EXPECT_EQ(surface->GetOriPos().y, 2);
}

TEST(RobotSurfaceClass, ResetDataReplacesEverythingButTheTimeStamp) {
    const auto first = MakeBlock(16);
    const auto second = MakeBlock(20);
    const auto surface = MakeSurface(first.get(), MakeDesc(TN_IMAGE_GRAY8, 4, 4));
    surface->SetTimeStamp(5);
    surface->ResetData(MakeDesc(TN_IMAGE_BGR24, 5, 4, {1, 2}), second.get());
    EXPECT_EQ(first->References(), 1);
    EXPECT_EQ(second->References(), 2);
    EXPECT_EQ(surface->QueryTimeStamp(), 5U);
    EXPECT_EQ(DescOf(surface.get()).eImageType, TN_IMAGE_BGR24);
    EXPECT_EQ(surface->GetOriPos().x, 1);
    surface->ResetData(MakeDesc(TN_IMAGE_GRAY8, 1, 1), nullptr);
    EXPECT_EQ(second->References(), 1);
    EXPECT_EQ(DescOf(surface.get()).nWidth, 1);
    EXPECT_TRUE(SurfaceBytes(surface.get()).empty());
}

TEST(RobotSurfaceClass, ResetDataWithTheBlockItHolds) {
    auto block = MakeBlock(16);
    TestBlock* pBlock = block.get();
    const auto surface = MakeSurface(pBlock, MakeDesc(TN_IMAGE_GRAY8, 4, 4));
    block.reset();
    surface->ResetData(MakeDesc(TN_IMAGE_GRAY8, 2, 8), pBlock);
    EXPECT_EQ(pBlock->References(), 1);
    EXPECT_EQ(SurfaceBytes(surface.get()).size(), 16U);
}

TEST(RobotSurfaceClass, ClearingReleasesOnlyTheBlock) {
    const auto block = MakeBlock(16);
    const auto surface = MakeSurface(block.get(), MakeDesc(TN_IMAGE_GRAY8, 4, 4, {3, 4}));
    surface->SetTimeStamp(9);
    surface->ClearResource();
    surface->ClearResource();
    EXPECT_EQ(block->References(), 1);
    EXPECT_EQ(surface->QueryTimeStamp(), 9U);
    EXPECT_EQ(DescOf(surface.get()).nHeight, 4);
    EXPECT_EQ(surface->GetOriPos().x, 3);
}

TEST(RobotSurfaceClass, HasTheFieldsOfItsRecord) {
    EXPECT_EQ(sizeof(CTnRobotSurface), 64U);
}

TEST(SurfaceAllocator, HoldsTheBlockPoolForItsLife) {
    const auto blocks = TestBlockPool::Create();
    auto alloc = tn::Adopt(new CTnRobotSurfaceEleAlloc(blocks.get()));
    EXPECT_EQ(blocks->References(), 2);
    alloc.reset();
    EXPECT_EQ(blocks->References(), 1);
    EXPECT_EQ(tn::Adopt(new CTnRobotSurfaceEleAlloc(nullptr)).detach()->Release(), 0);
}

TEST(SurfaceAllocator, MakesASurfaceThatOwnsItsBlockAlone) {
    const auto blocks = TestBlockPool::Create();
    const auto alloc = tn::Adopt(new CTnRobotSurfaceEleAlloc(blocks.get()));
    Desc desc = MakeDesc(TN_IMAGE_BGR24, 5, 2);
    ITnPoolElement* pElement = nullptr;
    ASSERT_TRUE(alloc->AllocElement(&desc, &pElement));
    ASSERT_NE(pElement, nullptr);
    EXPECT_EQ(desc.nPitch, 16);
    EXPECT_EQ(TestBlock::LiveCount(), 1);
    EXPECT_EQ(pElement->Release(), 0) << "a new element has one reference and no parent";
    EXPECT_EQ(TestBlock::LiveCount(), 0);
}

TEST(SurfaceAllocator, FailsWithoutADescriptionAndWithoutMemory) {
    const auto blocks = TestBlockPool::Create();
    const auto alloc = tn::Adopt(new CTnRobotSurfaceEleAlloc(blocks.get()));
    ITnPoolElement* pElement = nullptr;
    EXPECT_FALSE(alloc->AllocElement(nullptr, &pElement));
    Desc desc = MakeDesc(TN_IMAGE_BGR24, 5, 2);
    blocks->Refuse();
    EXPECT_FALSE(alloc->AllocElement(&desc, &pElement));
    EXPECT_EQ(pElement, nullptr);
}

TEST(SurfaceAllocator, ReinitialisesASurfaceOrLeavesItAlone) {
    const auto blocks = TestBlockPool::Create();
    const auto alloc = tn::Adopt(new CTnRobotSurfaceEleAlloc(blocks.get()));
    const auto block = MakeBlock(16);
    const auto surface = MakeSurface(block.get(), MakeDesc(TN_IMAGE_GRAY8, 4, 4));
    Desc bad = MakeDesc(TN_IMAGE_NONE, 9, 9);
    alloc->SetElementParam(surface.get(), &bad);
    alloc->SetElementParam(surface.get(), nullptr);
    EXPECT_EQ(DescOf(surface.get()).nWidth, 4);
    EXPECT_EQ(block->References(), 2);
    Desc good = MakeDesc(TN_IMAGE_420, 5, 4, {6, 7});
    alloc->SetElementParam(surface.get(), &good);
    EXPECT_EQ(block->References(), 1);
    EXPECT_EQ(good.nPitch, 7);
    EXPECT_EQ(DescOf(surface.get()).nPitch, 7);
    EXPECT_EQ(surface->GetOriPos().x, 6);
    EXPECT_EQ(SurfaceBytes(surface.get()).size(), 28U);
}

TEST(SurfaceAllocator, GivesTheBlockBackWhenTheElementIsNoSurfaceOfThisLibrary) {
    const auto blocks = TestBlockPool::Create();
    const auto alloc = tn::Adopt(new CTnRobotSurfaceEleAlloc(blocks.get()));
    const auto other = TestSurface::Create(MakeDesc(TN_IMAGE_GRAY8, 1, 1), Bytes(1));
    Desc desc = MakeDesc(TN_IMAGE_GRAY8, 4, 4);
    alloc->SetElementParam(other.get(), &desc);
    EXPECT_EQ(TestBlock::LiveCount(), 0);
    EXPECT_EQ(DescOf(other.get()).nWidth, 1);
}
