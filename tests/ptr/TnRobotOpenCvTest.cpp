#include "TnRobotKernel/opencv.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <opencv2/core.hpp>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/fakes/TestBlocks.h"
#include "support/fakes/TestSurfaces.h"

using namespace tntest;

using tn::SurfaceMat;
using SurfacePtr = TnRobotPtr<ITnRobotSurface>;

namespace {

struct FormatCase {
    ETnNLImageType eType;
    int nCvType;
};

constexpr FormatCase kFormats[] = {
    {TN_IMAGE_RGB24, CV_8UC3},  {TN_IMAGE_BGR24, CV_8UC3},  {TN_IMAGE_8BIT_3, CV_8UC1}, {TN_IMAGE_8BIT_4, CV_8UC1},
    {TN_IMAGE_8BIT_5, CV_8UC1}, {TN_IMAGE_8BIT_6, CV_8UC1}, {TN_IMAGE_GRAY8, CV_8UC1},  {TN_IMAGE_BGRX32, CV_8UC4},
};

/// Blocks of exactly the size asked for, all returned at the end.
class OpenCv : public testing::Test {
protected:
    void TearDown() override {
        m_pool.reset();
        m_blocks.reset();
        EXPECT_EQ(TestBlock::LiveCount(), 0);
    }

    SurfacePtr Surface(int nWidth, int nHeight, ETnNLImageType eType) const {
        return tn::QuerySurface(*m_pool, Desc{nWidth, nHeight, 0, eType, {0, 0}});
    }

    TnRobotPtr<ITnRobotMemoryBlockPool> m_blocks{TestBlockPool::Create().detach(), tn::kAdopt};
    TnRobotPtr<ITnRobotSurfacePool> m_pool = tn::MakeSurfacePool(m_blocks.get());
};

Lock Pixels(const SurfacePtr& surface) {
    Lock lock{};
    surface->LockSurface(lock);
    surface->UnLockSurface();
    return lock;
}

// Different in every element, whatever the channels.
void Fill(cv::Mat& mat) {
    unsigned int nNext = 1;
    for (int nY = 0; nY < mat.rows; ++nY) {
        for (std::size_t nX = 0; nX < static_cast<std::size_t>(mat.cols) * mat.elemSize(); ++nX) {
            mat.ptr(nY)[nX] = static_cast<unsigned char>(nNext++ % 251);
        }
    }
}

bool SameElements(const cv::Mat& a, const cv::Mat& b) {
    return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0;
}

bool SharesPixels(const SurfacePtr& surface, const cv::Mat& mat) {
    return surface && Pixels(surface).pData == mat.data;
}

}  // namespace

TEST_F(OpenCv, FormatsHaveTheirElementTypes) {
    for (const FormatCase& entry : kFormats) {
        EXPECT_EQ(tn::CvTypeOf(entry.eType), entry.nCvType) << entry.eType;
    }
    EXPECT_EQ(tn::CvTypeOf(TN_IMAGE_420), -1);
    EXPECT_EQ(tn::CvTypeOf(TN_IMAGE_NONE), -1);
    EXPECT_EQ(tn::ImageTypeOf(CV_8UC1), TN_IMAGE_GRAY8);
    EXPECT_EQ(tn::ImageTypeOf(CV_8UC3), TN_IMAGE_BGR24);
    EXPECT_EQ(tn::ImageTypeOf(CV_8UC4), TN_IMAGE_BGRX32);
    EXPECT_EQ(tn::ImageTypeOf(CV_16UC1), TN_IMAGE_NONE);
    EXPECT_EQ(tn::ImageTypeOf(CV_8UC2), TN_IMAGE_NONE);
}

TEST_F(OpenCv, RegionsAndRectanglesAreTheSame) {
    const STnNLROIRect region{2, 7, 3, 4};
    const cv::Rect rect = tn::RectOf(region);
    EXPECT_EQ(rect, cv::Rect(2, 3, 5, 1));
    const STnNLROIRect back = tn::RegionOf(rect);
    EXPECT_EQ(back.left, 2);
    EXPECT_EQ(back.right, 7);
    EXPECT_EQ(back.top, 3);
    EXPECT_EQ(back.bottom, 4);
}

TEST_F(OpenCv, AMatrixLiesOverTheSurfaceWhateverItsPitch) {
    for (const FormatCase& entry : kFormats) {
        for (int nWidth = 1; nWidth <= 5; ++nWidth) {
            SCOPED_TRACE(testing::Message() << "format " << entry.eType << ", width " << nWidth);
            const SurfacePtr surface = Surface(nWidth, 3, entry.eType);
            cv::Mat mat = tn::MatOver(surface, m_pool);
            const Lock pixels = Pixels(surface);
            ASSERT_EQ(mat.size(), cv::Size(nWidth, 3));
            EXPECT_EQ(mat.type(), entry.nCvType);
            EXPECT_EQ(mat.data, pixels.pData);
            EXPECT_EQ(mat.step[0], static_cast<std::size_t>(pixels.nPitch));
            mat.setTo(cv::Scalar::all(7));
            for (int nY = 0; nY < 3; ++nY) {
                const unsigned char* pRow = pixels.pData + static_cast<std::ptrdiff_t>(nY) * pixels.nPitch;
                const int nRow = nWidth * static_cast<int>(mat.elemSize());
                for (int nX = 0; nX < pixels.nPitch; ++nX) {
                    ASSERT_EQ(pRow[nX], nX < nRow ? 7 : TestBlockPool::kFill) << "row " << nY << ", byte " << nX;
                }
            }
        }
    }
}

TEST_F(OpenCv, MatricesAndTheirRegionsKeepTheSurfaceAndItsPixels) {
    cv::Mat region;
    {
        cv::Mat mat = tn::MatOver(Surface(5, 4, TN_IMAGE_BGR24), tn::kSurfaceKeepsPixels);
        Fill(mat);
        const cv::Mat copy = mat;
        region = copy(cv::Rect(1, 1, 3, 2));
    }
    EXPECT_EQ(TestBlock::LiveCount(), 1);
    // Another surface does not get the pixels that are still looked at.
    cv::Mat other = tn::MatOver(Surface(5, 4, TN_IMAGE_BGR24), tn::kSurfaceKeepsPixels);
    other.setTo(cv::Scalar::all(0));
    EXPECT_EQ(region.at<cv::Vec3b>(0, 0), cv::Vec3b(19, 20, 21));
    region.release();
    other.release();
    EXPECT_EQ(TestBlock::LiveCount(), 0);
}

TEST_F(OpenCv, TheSurfaceGoesBackToItsPoolWithTheLastMatrix) {
    SurfacePtr surface = Surface(4, 4, TN_IMAGE_GRAY8);
    const ITnRobotSurface* pFirst = surface.get();
    cv::Mat mat = tn::MatOver(surface, m_pool);
    surface.reset();
    EXPECT_NE(Surface(4, 4, TN_IMAGE_GRAY8), pFirst) << "it is in use";
    cv::Mat copy = mat;
    mat.release();
    copy.release();
    std::vector<SurfacePtr> both{Surface(2, 2, TN_IMAGE_GRAY8), Surface(2, 2, TN_IMAGE_GRAY8)};
    EXPECT_TRUE(both[0] == pFirst || both[1] == pFirst) << "it is free again";
}

TEST_F(OpenCv, PixelsOutliveThePools) {
    cv::Mat mat = tn::MatOver(Surface(5, 4, TN_IMAGE_BGR24), tn::kSurfaceKeepsPixels);
    Fill(mat);
    const cv::Mat expected = mat.clone();
    m_pool.reset();
    m_blocks.reset();
    EXPECT_EQ(TestBlock::LiveCount(), 1);
    EXPECT_TRUE(SameElements(mat, expected));
}

TEST_F(OpenCv, PixelsOfACircularPoolLiveAsLongAsThePoolIsKept) {
    auto blocks = tn::MakeCircleMemoryBlockPool();
    auto pool = tn::MakeSurfacePool(blocks.get());
    SurfaceMat holder = SurfaceMat::Allocate(*pool, {5, 4}, TN_IMAGE_BGR24, pool);
    ASSERT_TRUE(holder);
    pool.reset();
    blocks.reset();
    Fill(holder.Mat());
    const cv::Mat kept = holder.Mat();
    holder = SurfaceMat();
    EXPECT_EQ(kept.at<cv::Vec3b>(3, 4), cv::Vec3b(58, 59, 60));
}

// Whether a matrix can be had without a word on who keeps the pixels.
template <typename Surface, typename = void>
struct ViewsWithoutKeeper : std::false_type {};
template <typename Surface>
struct ViewsWithoutKeeper<Surface, std::void_t<decltype(tn::MatOver(std::declval<Surface>()))>> : std::true_type {};

// Pixels can go before the surface does.
TEST_F(OpenCv, TheCallerSaysWhoKeepsThePixels) {
    EXPECT_FALSE(ViewsWithoutKeeper<SurfacePtr>::value);
    const cv::Mat mat = tn::MatOver(Surface(4, 4, TN_IMAGE_GRAY8), m_pool);
    EXPECT_FALSE(mat.empty());
    EXPECT_EQ(m_pool.detach()->Release(), 1) << "the matrix holds the pool";
}

TEST_F(OpenCv, EveryLockIsPairedWithAnUnlockAtTheEnd) {
    const auto test = TestSurface::Create(Desc{4, 2, 12, TN_IMAGE_BGR24, {0, 0}}, Bytes(24));
    {
        const cv::Mat mat = tn::MatOver(tn::Retain<ITnRobotSurface>(test.get()), tn::kSurfaceKeepsPixels);
        ASSERT_FALSE(mat.empty());
        const cv::Mat region = mat.colRange(1, 2);
        EXPECT_EQ(test->OpenLocks(), 1);
    }
    EXPECT_EQ(test->OpenLocks(), 0);
    test->RefuseLocks();
    EXPECT_TRUE(tn::MatOver(tn::Retain<ITnRobotSurface>(test.get()), tn::kSurfaceKeepsPixels).empty());
    EXPECT_EQ(test->OpenLocks(), 0);
}

TEST_F(OpenCv, SurfacesThatAreNoMatrixGiveNone) {
    EXPECT_TRUE(tn::MatOver(nullptr, tn::kSurfaceKeepsPixels).empty());
    EXPECT_TRUE(tn::MatOver(Surface(4, 4, TN_IMAGE_420), tn::kSurfaceKeepsPixels).empty());
    // The pool hands its free surface out without pixels.
    SurfacePtr bare;
    ASSERT_EQ(m_pool->QuerySurface(Desc{}, bare.put()), 0);
    EXPECT_TRUE(tn::MatOver(bare, tn::kSurfaceKeepsPixels).empty());

    const Desc descs[] = {
        {4, 3, 12, TN_IMAGE_BGR24, {0, 0}},  // one row more than there are bytes
        {5, 2, 12, TN_IMAGE_BGR24, {0, 0}},  // rows longer than the pitch
        {0, 2, 12, TN_IMAGE_BGR24, {0, 0}},
        {4, -1, 12, TN_IMAGE_BGR24, {0, 0}},
        {4, 2, 0, TN_IMAGE_BGR24, {0, 0}},
        {4, 2, -12, TN_IMAGE_BGR24, {0, 0}},
        {0x40000000, 1, 12, TN_IMAGE_BGRX32, {0, 0}},
    };
    for (const Desc& desc : descs) {
        const auto test = TestSurface::Create(desc, Bytes(24));
        EXPECT_TRUE(tn::MatOver(tn::Retain<ITnRobotSurface>(test.get()), tn::kSurfaceKeepsPixels).empty())
            << desc.nWidth << " " << desc.nPitch;
        EXPECT_EQ(test->OpenLocks(), 0);
    }
}

TEST_F(OpenCv, AnAllocatedSurfaceIsFilledThroughItsMatrix) {
    cv::Mat source(3, 5, CV_8UC3);
    Fill(source);
    SurfaceMat holder = SurfaceMat::Allocate(*m_pool, source.size(), TN_IMAGE_BGR24, tn::kSurfaceKeepsPixels);
    ASSERT_TRUE(holder);
    cv::add(source, cv::Scalar::all(1), holder.Mat());
    EXPECT_TRUE(holder.Shares());
    const Lock pixels = Pixels(holder.Surface());
    EXPECT_EQ(pixels.pData[0], 2);
    EXPECT_EQ(pixels.pData[16], 17) << "the second row begins at the pitch";

    holder.Mat().create(2, 2, CV_32FC1);
    EXPECT_FALSE(holder.Shares());
    EXPECT_EQ(Pixels(holder.Surface()).pData, pixels.pData) << "the surface has kept its pixels";

    EXPECT_FALSE(SurfaceMat::Allocate(*m_pool, {4, 4}, TN_IMAGE_420, tn::kSurfaceKeepsPixels));
    EXPECT_FALSE(SurfaceMat::Allocate(*m_pool, {0, 4}, TN_IMAGE_GRAY8, tn::kSurfaceKeepsPixels));
    EXPECT_FALSE(SurfaceMat());
    EXPECT_FALSE(SurfaceMat().Shares());
}

TEST_F(OpenCv, ViewsHoldBothOrNothing) {
    const SurfacePtr surface = Surface(3, 3, TN_IMAGE_BGRX32);
    const SurfaceMat view = SurfaceMat::View(surface, tn::kSurfaceKeepsPixels);
    EXPECT_TRUE(view && view.Shares());
    EXPECT_EQ(view.Surface(), surface);
    const SurfaceMat none = SurfaceMat::View(Surface(4, 4, TN_IMAGE_420), tn::kSurfaceKeepsPixels);
    EXPECT_FALSE(none);
    EXPECT_FALSE(none.Surface());
    EXPECT_TRUE(none.Mat().empty());
}

TEST_F(OpenCv, ASurfaceLiesOverMatricesWhoseRowsFit) {
    struct {
        int nCvType;
        int nWidth;
        bool bFits;
    } const cases[] = {
        {CV_8UC1, 5, true}, {CV_8UC4, 5, true},  {CV_8UC3, 4, true},
        {CV_8UC3, 5, true}, {CV_8UC2, 4, false}, {CV_16UC1, 4, false},
    };
    for (const auto& entry : cases) {
        SCOPED_TRACE(testing::Message() << "type " << entry.nCvType << ", width " << entry.nWidth);
        cv::Mat mat(3, entry.nWidth, entry.nCvType);
        SurfaceMat holder = SurfaceMat::Over(mat);
        ASSERT_EQ(static_cast<bool>(holder), entry.bFits);
        if (entry.bFits) {
            EXPECT_TRUE(holder.Shares());
            EXPECT_TRUE(SharesPixels(holder.Surface(), mat));
            EXPECT_EQ(Pixels(holder.Surface()).eImageType, tn::ImageTypeOf(entry.nCvType));
            EXPECT_EQ(Pixels(holder.Surface()).nHeight, 3);
            EXPECT_EQ(Pixels(holder.Surface()).nPitch, static_cast<int>(mat.step[0])) << "whatever it is";
        }
    }
}

TEST_F(OpenCv, TheSurfaceKeepsTheMatrixsMemory) {
    SurfacePtr surface;
    {
        cv::Mat mat(3, 4, CV_8UC3);
        Fill(mat);
        surface = tn::SurfaceOver(mat);
    }
    ASSERT_TRUE(surface);
    const Lock pixels = Pixels(surface);
    EXPECT_EQ(pixels.pData[0], 1);
    EXPECT_EQ(pixels.pData[35], 36);
    EXPECT_EQ(surface.detach()->Release(), 0) << "it belongs to no pool";
}

TEST_F(OpenCv, TheLibraryWorksOnASurfaceOverAMatrix) {
    cv::Mat mat(4, 8, CV_8UC1);
    Fill(mat);
    const SurfacePtr part = tn::ClipImage(m_pool.get(), tn::SurfaceOver(mat).get(), tn::RegionOf({2, 1, 3, 2}));
    ASSERT_TRUE(part);
    EXPECT_TRUE(SameElements(tn::MatOver(part, tn::kSurfaceKeepsPixels), mat(cv::Rect(2, 1, 3, 2))));
}

TEST_F(OpenCv, ChannelOrderIsTheCallersWord) {
    const cv::Mat rgb(2, 4, CV_8UC3, cv::Scalar(1, 2, 3));
    EXPECT_EQ(Pixels(tn::SurfaceOver(rgb, TN_IMAGE_RGB24)).eImageType, TN_IMAGE_RGB24);
    EXPECT_FALSE(tn::SurfaceOver(rgb, TN_IMAGE_GRAY8));
    EXPECT_FALSE(tn::SurfaceOver(rgb, TN_IMAGE_420));
    EXPECT_FALSE(tn::CopyToSurface(rgb, *m_pool, TN_IMAGE_BGRX32));
    EXPECT_EQ(Pixels(tn::CopyToSurface(rgb, *m_pool, TN_IMAGE_RGB24)).eImageType, TN_IMAGE_RGB24);
}

// Nobody can tell whether padding follows the last of these rows.
TEST_F(OpenCv, BorrowedMemoryNeedsFullRows) {
    std::vector<unsigned char> bytes(48, 9);
    EXPECT_FALSE(tn::SurfaceOver(cv::Mat(3, 5, CV_8UC3, bytes.data(), 16)));
    EXPECT_EQ(Pixels(tn::SurfaceOver(cv::Mat(1, 5, CV_8UC3, bytes.data()))).nDataSize, 15U);
    std::vector<unsigned char> large(9213, 9);
    EXPECT_FALSE(tn::SurfaceOver(cv::Mat(48, 63, CV_8UC3, large.data(), 192))) << "three bytes short of 48 x 192";
    EXPECT_EQ(Pixels(tn::SurfaceOver(cv::Mat(48, 63, CV_8UC3, large.data()))).nDataSize, 9072U) << "packed";
    const cv::Mat full(3, 4, CV_8UC3, bytes.data());
    const SurfacePtr surface = tn::SurfaceOver(full);
    EXPECT_TRUE(SharesPixels(surface, full));
    EXPECT_EQ(Pixels(surface).nDataSize, 36U);
}

// Padding of a region is pixels of its neighbours.
TEST_F(OpenCv, RegionsNeedFullRows) {
    cv::Mat colour(3, 8, CV_8UC3);
    EXPECT_FALSE(tn::SurfaceOver(colour.colRange(0, 7))) << "21 bytes at a distance of 24";
    EXPECT_FALSE(tn::SurfaceOver(colour(cv::Rect(0, 0, 7, 1))));
    EXPECT_FALSE(tn::SurfaceOver(colour(cv::Rect(1, 2, 7, 1))));
    cv::Mat grey(3, 16, CV_8UC1);
    EXPECT_FALSE(tn::SurfaceOver(grey.colRange(0, 5))) << "grey rows are not padded";
    EXPECT_TRUE(SharesPixels(tn::SurfaceOver(grey.rowRange(1, 3)), grey.rowRange(1, 3)));
    EXPECT_TRUE(SharesPixels(tn::SurfaceOver(colour.rowRange(1, 3)), colour.rowRange(1, 3)));

    cv::Mat narrow(1, 5, CV_8UC3);
    EXPECT_EQ(Pixels(tn::SurfaceOver(narrow)).nPitch, 15) << "one row has no padding";
    cv::Mat roomy(1, 6, CV_8UC3);
    EXPECT_FALSE(tn::SurfaceOver(roomy.colRange(0, 5)));
}

TEST_F(OpenCv, WritingASurfaceOverARegionLeavesItsNeighboursAlone) {
    for (int nWidth = 1; nWidth <= 8; ++nWidth) {
        for (int nX = 0; nX + nWidth <= 8; ++nX) {
            cv::Mat whole(4, 8, CV_8UC3, cv::Scalar::all(1));
            const cv::Rect part(nX, 1, nWidth, 2);
            const SurfacePtr surface = tn::SurfaceOver(whole(part));
            if (surface) {
                const Lock pixels = Pixels(surface);
                std::fill_n(pixels.pData, pixels.nDataSize, static_cast<unsigned char>(2));
            }
            whole(part).setTo(cv::Scalar::all(1));
            EXPECT_EQ(cv::norm(whole, cv::Mat(4, 8, CV_8UC3, cv::Scalar::all(1)), cv::NORM_INF), 0) << part;
            EXPECT_EQ(static_cast<bool>(surface), nWidth == 8) << part;
        }
    }
}

// A matrix over a surface has the surface's padding too.
TEST_F(OpenCv, AMatrixOverAWholeSurfaceIsASurfaceAgain) {
    const cv::Mat mat = tn::MatOver(Surface(5, 3, TN_IMAGE_BGR24), m_pool);
    const SurfacePtr again = tn::SurfaceOver(mat);
    EXPECT_TRUE(SharesPixels(again, mat));
    EXPECT_EQ(Pixels(again).nDataSize, 48U);
    EXPECT_FALSE(tn::SurfaceOver(mat.rowRange(0, 2)));
    EXPECT_FALSE(tn::SurfaceOver(mat.rowRange(1, 3)));
}

TEST_F(OpenCv, EveryMatrixCanBeCopied) {
    cv::Mat whole(6, 9, CV_8UC3);
    Fill(whole);
    for (int nWidth = 1; nWidth <= 5; ++nWidth) {
        SCOPED_TRACE(nWidth);
        const cv::Mat region = whole(cv::Rect(2, 1, nWidth, 3));
        const SurfacePtr surface = tn::CopyToSurface(region, *m_pool);
        ASSERT_TRUE(surface);
        const cv::Mat view = tn::MatOver(surface, m_pool);
        EXPECT_TRUE(SameElements(view, region));
        EXPECT_NE(view.data, region.data);
        const Lock pixels = Pixels(surface);
        for (int nY = 0; nY < 3; ++nY) {
            for (int nX = nWidth * 3; nX < pixels.nPitch; ++nX) {
                ASSERT_EQ(pixels.pData[nY * pixels.nPitch + nX], 0) << "padding of row " << nY;
            }
        }
    }
}

TEST_F(OpenCv, WhatIsNoPictureGivesNoSurface) {
    const int sizes[] = {2, 3, 4};
    const cv::Mat cube(3, sizes, CV_8UC1);
    for (const cv::Mat& mat : {cv::Mat(), cube, cv::Mat(2, 2, CV_32FC3)}) {
        EXPECT_FALSE(tn::SurfaceOver(mat));
        EXPECT_FALSE(tn::SurfaceOver(mat, TN_IMAGE_GRAY8));
        EXPECT_FALSE(tn::CopyToSurface(mat, *m_pool));
        EXPECT_FALSE(tn::CopyToSurface(mat, *m_pool, TN_IMAGE_GRAY8));
    }
    EXPECT_FALSE(tn::CopyToSurface(cv::Mat(2, 2, CV_8UC1), *tn::MakeSurfacePool(nullptr)));
}

TEST_F(OpenCv, MatricesOfOneSurfaceAreDroppedOnEveryThread) {
    constexpr int kThreads = 8;
    cv::Mat mat = tn::MatOver(Surface(16, 16, TN_IMAGE_BGR24), tn::kSurfaceKeepsPixels);
    Fill(mat);
    std::vector<std::thread> threads;
    for (int n = 0; n < kThreads; ++n) {
        threads.emplace_back([copy = mat] {
            for (int nY = 0; nY < 16; ++nY) {
                const cv::Mat row = copy.row(nY);
                EXPECT_EQ(row.ptr()[0], (nY * 48 + 1) % 251);
            }
        });
    }
    mat.release();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(TestBlock::LiveCount(), 0);
}
