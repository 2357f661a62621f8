#include <gtest/gtest.h>

#include "TnRobotKernel/image.h"
#include "support/fakes/TestSurfaces.h"

using namespace tntest;

TEST(RobotSurface, LocksWithItsDescriptionAndMemory) {
    SurfaceSource source;
    const auto surface = source.Get(TN_IMAGE_BGR24, 5, 3);
    ASSERT_NE(surface, nullptr);
    Lock lock{};
    ASSERT_TRUE(surface->LockSurface(lock));
    EXPECT_EQ(lock.nWidth, 5);
    EXPECT_EQ(lock.nHeight, 3);
    EXPECT_EQ(lock.nPitch, 16);
    EXPECT_EQ(lock.eImageType, TN_IMAGE_BGR24);
    ASSERT_NE(lock.pData, nullptr);
    EXPECT_EQ(lock.nDataSize, 48U);
    surface->UnLockSurface();
}

TEST(RobotSurface, LocksTwiceWithTheSameMemory) {
    SurfaceSource source;
    const auto surface = source.Get(TN_IMAGE_GRAY8, 4, 4);
    Lock first{};
    Lock second{};
    EXPECT_TRUE(surface->LockSurface(first));
    EXPECT_TRUE(surface->LockSurface(second));
    EXPECT_EQ(first.pData, second.pData);
    EXPECT_EQ(first.nDataSize, second.nDataSize);
    surface->UnLockSurface();
    surface->UnLockSurface();
    EXPECT_TRUE(surface->LockSurface(first));
    EXPECT_EQ(first.pData, second.pData);
    surface->UnLockSurface();
}

TEST(RobotSurface, UnlockingWithoutALockDoesNothing) {
    SurfaceSource source;
    const auto surface = source.Get(TN_IMAGE_GRAY8, 4, 4);
    surface->UnLockSurface();
    Lock lock{};
    EXPECT_TRUE(surface->LockSurface(lock));
    EXPECT_NE(lock.pData, nullptr);
    surface->UnLockSurface();
}

TEST(RobotSurface, ResettingTheOriginChangesNothingElse) {
    SurfaceSource source;
    const auto surface = source.Get(TN_IMAGE_BGRX32, 7, 2, {11, -12});
    EXPECT_EQ(surface->GetOriPos().x, 11);
    EXPECT_EQ(surface->GetOriPos().y, -12);
    surface->ResetOriPos({-2147483647, 2147483647});
    EXPECT_EQ(surface->GetOriPos().x, -2147483647);
    EXPECT_EQ(surface->GetOriPos().y, 2147483647);
    const Desc desc = DescOf(surface.get());
    EXPECT_EQ(desc.oriPos.x, -2147483647);
    EXPECT_EQ(desc.oriPos.y, 2147483647);
    EXPECT_EQ(desc.nWidth, 7);
    EXPECT_EQ(desc.nHeight, 2);
    EXPECT_EQ(desc.nPitch, 28);
    EXPECT_EQ(desc.eImageType, TN_IMAGE_BGRX32);
}

TEST(RobotSurface, KeepsItsTimeStamp) {
    SurfaceSource source;
    const auto surface = source.Get(TN_IMAGE_GRAY8, 1, 1);
    EXPECT_EQ(surface->QueryTimeStamp(), 0U);
    surface->SetTimeStamp(0xFEDCBA9876543210ULL);
    EXPECT_EQ(surface->QueryTimeStamp(), 0xFEDCBA9876543210ULL);
}

// The next user of a recycled surface sees the old stamp: the library never writes one.
TEST(RobotSurface, KeepsItsTimeStampThroughThePool) {
    SurfaceSource source;
    auto surface = source.Get(TN_IMAGE_GRAY8, 4, 4);
    ITnRobotSurface* pBefore = surface.get();
    surface->SetTimeStamp(77);
    surface.reset();
    surface = source.Get(TN_IMAGE_BGR24, 2, 2);
    EXPECT_EQ(surface.get(), pBefore);
    EXPECT_EQ(surface->QueryTimeStamp(), 77U);
}

TEST(RobotSurface, IsHeldByItsPoolToo) {
    SurfaceSource source;
    auto surface = source.Get(TN_IMAGE_GRAY8, 4, 4);
    surface->AddRef();
    EXPECT_EQ(surface->Release(), 2);
    EXPECT_EQ(surface.detach()->Release(), 1);
}

TEST(RobotSurface, GivesItsMemoryBackOnTheWayToThePool) {
    SurfaceSource source;
    const int nBefore = TestBlock::LiveCount();
    auto surface = source.Get(TN_IMAGE_GRAY8, 4, 4);
    EXPECT_EQ(TestBlock::LiveCount(), nBefore + 1);
    surface->AddRef();
    surface->Release();
    EXPECT_EQ(TestBlock::LiveCount(), nBefore + 1);
    surface.reset();
    EXPECT_EQ(TestBlock::LiveCount(), nBefore);
}

TEST(RobotSurface, WithoutMemoryLocksWithNothing) {
    SurfaceSource source;
    const auto surface = source.GetWithoutPixels();
    ASSERT_NE(surface, nullptr);
    unsigned char byOther = 0;
    Lock lock{};
    lock.pData = &byOther;
    lock.nDataSize = 99;
    EXPECT_TRUE(surface->LockSurface(lock));
    EXPECT_EQ(lock.pData, nullptr);
    EXPECT_EQ(lock.nDataSize, 0U);
    EXPECT_EQ(lock.nWidth, 4);
    EXPECT_EQ(lock.nHeight, 2);
    surface->UnLockSurface();
}
