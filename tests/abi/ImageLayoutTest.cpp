// Sizes, offsets and slot numbers of the image interface. Programs compiled against the headers
// have them built in: when a test here fails, move the library back, not the numbers.

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "TnRobotKernel/image.h"
#include "support/bytes/Slots.h"

using namespace tntest;

namespace {

using Desc = ITnRobotSurface::STnSurfaceDesc;
using Lock = ITnRobotSurface::STnLockSurface;

template <typename Member>
std::ptrdiff_t SlotInFirstTable(Member pfn) {
    const SlotAddress address = SlotOf(pfn);
    EXPECT_EQ(address.nBaseOffset, 0);
    return address.nSlot;
}

}  // namespace

TEST(ImageLayout, PixelFormatsKeepTheirNumbers) {
    EXPECT_EQ(sizeof(ETnNLImageType), 4U);
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
    EXPECT_EQ(sizeof(STnNL2DPoint), 8U);
    EXPECT_EQ(offsetof(STnNL2DPoint, x), 0U);
    EXPECT_EQ(offsetof(STnNL2DPoint, y), 4U);
}

TEST(ImageLayout, ImageRecord) {
    EXPECT_EQ(sizeof(STnNLImageData), 40U);
    EXPECT_EQ(alignof(STnNLImageData), 8U);
    EXPECT_EQ(offsetof(STnNLImageData, pData), 0U);
    EXPECT_EQ(offsetof(STnNLImageData, nDataSize), 8U);
    EXPECT_EQ(offsetof(STnNLImageData, oriPos), 12U);
    EXPECT_EQ(offsetof(STnNLImageData, nWidth), 20U);
    EXPECT_EQ(offsetof(STnNLImageData, nHeight), 24U);
    EXPECT_EQ(offsetof(STnNLImageData, eImageType), 28U);
    EXPECT_EQ(offsetof(STnNLImageData, nBitsPerChannel), 32U);
    EXPECT_EQ(offsetof(STnNLImageData, nChannels), 33U);
    EXPECT_TRUE((std::is_same_v<decltype(STnNLImageData::nDataSize), unsigned int>));
    EXPECT_TRUE((std::is_same_v<decltype(STnNLImageData::nWidth), int>));
    EXPECT_TRUE((std::is_same_v<decltype(STnNLImageData::nHeight), int>));
}

TEST(ImageLayout, RegionOfInterest) {
    EXPECT_EQ(sizeof(STnNLROIRect), 16U);
    EXPECT_EQ(offsetof(STnNLROIRect, left), 0U);
    EXPECT_EQ(offsetof(STnNLROIRect, right), 4U);
    EXPECT_EQ(offsetof(STnNLROIRect, top), 8U);
    EXPECT_EQ(offsetof(STnNLROIRect, bottom), 12U);
}

TEST(ImageLayout, SurfaceDescription) {
    EXPECT_EQ(sizeof(Desc), 24U);
    EXPECT_EQ(offsetof(Desc, nWidth), 0U);
    EXPECT_EQ(offsetof(Desc, nHeight), 4U);
    EXPECT_EQ(offsetof(Desc, nPitch), 8U);
    EXPECT_EQ(offsetof(Desc, eImageType), 12U);
    EXPECT_EQ(offsetof(Desc, oriPos), 16U);
}

TEST(ImageLayout, SurfaceLock) {
    EXPECT_EQ(sizeof(Lock), 32U);
    EXPECT_EQ(offsetof(Lock, nWidth), 0U);
    EXPECT_EQ(offsetof(Lock, nHeight), 4U);
    EXPECT_EQ(offsetof(Lock, nPitch), 8U);
    EXPECT_EQ(offsetof(Lock, eImageType), 12U);
    EXPECT_EQ(offsetof(Lock, pData), 16U);
    EXPECT_EQ(offsetof(Lock, nDataSize), 24U);
}

TEST(ImageLayout, Interfaces) {
    EXPECT_EQ(sizeof(ITnRobotSurface), sizeof(ITnPoolElement));
    EXPECT_EQ(sizeof(ITnRobotSurface), 24U);
    EXPECT_EQ(sizeof(ITnRobotSurfacePool), 16U);
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
        {"AddRef", SlotInFirstTable<void (Surface::*)()>(&Surface::AddRef), 2},
        {"Release", SlotInFirstTable<int (Surface::*)()>(&Surface::Release), 3},
        {"ClearResource", SlotInFirstTable<void (Surface::*)()>(&Surface::ClearResource), 4},
        {"SetParent", SlotInFirstTable<void (Surface::*)(ITnPoolUnknown*)>(&Surface::SetParent), 5},
        {"LockSurface", SlotInFirstTable<bool (Surface::*)(Lock&)>(&Surface::LockSurface), 6},
        {"UnLockSurface", SlotInFirstTable<void (Surface::*)()>(&Surface::UnLockSurface), 7},
        {"GetSurfaceDesc", SlotInFirstTable<void (Surface::*)(Desc&)>(&Surface::GetSurfaceDesc), 8},
        {"GetOriPos", SlotInFirstTable<STnNL2DPoint (Surface::*)()>(&Surface::GetOriPos), 9},
        {"ResetOriPos", SlotInFirstTable<void (Surface::*)(const STnNL2DPoint&)>(&Surface::ResetOriPos), 10},
        {"QueryTimeStamp", SlotInFirstTable<unsigned long long (Surface::*)()>(&Surface::QueryTimeStamp), 11},
        {"SetTimeStamp", SlotInFirstTable<void (Surface::*)(unsigned long long)>(&Surface::SetTimeStamp), 12},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.nSlot, row.nExpected) << row.lpszOperation;
    }
}

TEST(ImageLayout, SurfacePoolSlots) {
    using Pool = ITnRobotSurfacePool;
    EXPECT_EQ(SlotInFirstTable<void (Pool::*)()>(&Pool::AddRef), 2);
    EXPECT_EQ(SlotInFirstTable<int (Pool::*)()>(&Pool::Release), 3);
    EXPECT_EQ((SlotInFirstTable<int (Pool::*)(const Desc&, ITnRobotSurface**)>(&Pool::QuerySurface)), 4);
}
