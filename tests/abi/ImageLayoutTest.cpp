// Sizes, offsets and slot numbers of the image interface. Programs compiled against the headers
// have them built in: when a test here fails, move the library back, not the numbers.

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "TnRobotKernel/image.h"
#include "support/bytes/Slots.h"

namespace {

using Desc = ITnRobotSurface::STnSurfaceDesc;
using Lock = ITnRobotSurface::STnLockSurface;

template <typename Member>
std::ptrdiff_t SlotOf(Member pfn) {
    const tntest::SlotAddress address = tntest::SlotOf(pfn);
    EXPECT_EQ(address.nBaseOffset, 0);
    return address.nSlot;
}

}  // namespace

TEST(ImageLayout, PixelFormatsKeepTheirNumbers) {
    EXPECT_EQ(sizeof(ETnNLImageType), 4u);
    const struct {
        int nValue;
        int nExpected;
    } rows[] = {
        {TN_IMAGE_NONE, 0},   {TN_IMAGE_RGB24, 1},  {TN_IMAGE_BGR24, 2}, {TN_IMAGE_8BIT_3, 3}, {TN_IMAGE_8BIT_4, 4},
        {TN_IMAGE_8BIT_5, 5}, {TN_IMAGE_8BIT_6, 6}, {TN_IMAGE_GRAY8, 7}, {TN_IMAGE_420, 8},    {TN_IMAGE_BGRX32, 9},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.nValue, row.nExpected);
    }
}

TEST(ImageLayout, Point) {
    EXPECT_EQ(sizeof(STnNL2DPoint), 8u);
    EXPECT_EQ(offsetof(STnNL2DPoint, x), 0u);
    EXPECT_EQ(offsetof(STnNL2DPoint, y), 4u);
}

TEST(ImageLayout, ImageRecord) {
    EXPECT_EQ(sizeof(STnNLImageData), 40u);
    EXPECT_EQ(alignof(STnNLImageData), 8u);
    EXPECT_EQ(offsetof(STnNLImageData, pData), 0u);
    EXPECT_EQ(offsetof(STnNLImageData, nDataSize), 8u);
    EXPECT_EQ(offsetof(STnNLImageData, oriPos), 12u);
    EXPECT_EQ(offsetof(STnNLImageData, nWidth), 20u);
    EXPECT_EQ(offsetof(STnNLImageData, nHeight), 24u);
    EXPECT_EQ(offsetof(STnNLImageData, eImageType), 28u);
    EXPECT_EQ(offsetof(STnNLImageData, nBitsPerChannel), 32u);
    EXPECT_EQ(offsetof(STnNLImageData, nChannels), 33u);
    EXPECT_TRUE((std::is_same_v<decltype(STnNLImageData::nDataSize), unsigned int>));
    EXPECT_TRUE((std::is_same_v<decltype(STnNLImageData::nWidth), int>));
    EXPECT_TRUE((std::is_same_v<decltype(STnNLImageData::nHeight), int>));
}

TEST(ImageLayout, RegionOfInterest) {
    EXPECT_EQ(sizeof(STnNLROIRect), 16u);
    EXPECT_EQ(offsetof(STnNLROIRect, left), 0u);
    EXPECT_EQ(offsetof(STnNLROIRect, right), 4u);
    EXPECT_EQ(offsetof(STnNLROIRect, top), 8u);
    EXPECT_EQ(offsetof(STnNLROIRect, bottom), 12u);
}

TEST(ImageLayout, SurfaceDescription) {
    EXPECT_EQ(sizeof(Desc), 24u);
    EXPECT_EQ(offsetof(Desc, nWidth), 0u);
    EXPECT_EQ(offsetof(Desc, nHeight), 4u);
    EXPECT_EQ(offsetof(Desc, nPitch), 8u);
    EXPECT_EQ(offsetof(Desc, eImageType), 12u);
    EXPECT_EQ(offsetof(Desc, oriPos), 16u);
}

TEST(ImageLayout, SurfaceLock) {
    EXPECT_EQ(sizeof(Lock), 32u);
    EXPECT_EQ(offsetof(Lock, nWidth), 0u);
    EXPECT_EQ(offsetof(Lock, nHeight), 4u);
    EXPECT_EQ(offsetof(Lock, nPitch), 8u);
    EXPECT_EQ(offsetof(Lock, eImageType), 12u);
    EXPECT_EQ(offsetof(Lock, pData), 16u);
    EXPECT_EQ(offsetof(Lock, nDataSize), 24u);
}

TEST(ImageLayout, Interfaces) {
    EXPECT_EQ(sizeof(ITnRobotSurface), sizeof(ITnPoolElement));
    EXPECT_EQ(sizeof(ITnRobotSurface), 24u);
    EXPECT_EQ(sizeof(ITnRobotSurfacePool), 16u);
    EXPECT_TRUE((std::is_base_of_v<ITnPoolElement, ITnRobotSurface>));
    EXPECT_TRUE((std::is_base_of_v<ITnUnknown, ITnRobotSurfacePool>));
    EXPECT_FALSE((std::is_base_of_v<ITnPoolElement, ITnRobotSurfacePool>));
}

TEST(ImageLayout, SurfaceSlots) {
    using Surface = ITnRobotSurface;
    const struct {
        const char* lpszOperation;
        std::ptrdiff_t nSlot;
        std::ptrdiff_t nExpected;
    } rows[] = {
        {"AddRef", SlotOf<void (Surface::*)()>(&Surface::AddRef), 2},
        {"Release", SlotOf<int (Surface::*)()>(&Surface::Release), 3},
        {"ClearResource", SlotOf<void (Surface::*)()>(&Surface::ClearResource), 4},
        {"SetParent", SlotOf<void (Surface::*)(ITnPoolUnknown*)>(&Surface::SetParent), 5},
        {"LockSurface", SlotOf<bool (Surface::*)(Lock&)>(&Surface::LockSurface), 6},
        {"UnLockSurface", SlotOf<void (Surface::*)()>(&Surface::UnLockSurface), 7},
        {"GetSurfaceDesc", SlotOf<void (Surface::*)(Desc&)>(&Surface::GetSurfaceDesc), 8},
        {"GetOriPos", SlotOf<STnNL2DPoint (Surface::*)()>(&Surface::GetOriPos), 9},
        {"ResetOriPos", SlotOf<void (Surface::*)(const STnNL2DPoint&)>(&Surface::ResetOriPos), 10},
        {"QueryTimeStamp", SlotOf<unsigned long long (Surface::*)()>(&Surface::QueryTimeStamp), 11},
        {"SetTimeStamp", SlotOf<void (Surface::*)(unsigned long long)>(&Surface::SetTimeStamp), 12},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.nSlot, row.nExpected) << row.lpszOperation;
    }
}

TEST(ImageLayout, SurfacePoolSlots) {
    using Pool = ITnRobotSurfacePool;
    EXPECT_EQ(SlotOf<void (Pool::*)()>(&Pool::AddRef), 2);
    EXPECT_EQ(SlotOf<int (Pool::*)()>(&Pool::Release), 3);
    EXPECT_EQ((SlotOf<int (Pool::*)(const Desc&, ITnRobotSurface**)>(&Pool::QuerySurface)), 4);
}
