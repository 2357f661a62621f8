// LockedPixels, and surfaces of pixels that come from elsewhere: CopyToSurface and SurfaceOver.

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <type_traits>

#include "TnRobotKernel/make.h"
#include "support/fakes/TestObjects.h"
#include "support/fakes/TestSurfaces.h"

using namespace tntest;

namespace {

using Surface = TnRobotPtr<ITnRobotSurface>;

class Pixels : public testing::Test {
protected:
    Surface Asked(ETnNLImageType eType, int nWidth, int nHeight) const {
        return tn::QuerySurface(*m_pool, {nWidth, nHeight, 0, eType, {0, 0}});
    }

    TnRobotPtr<ITnRobotMemoryBlockPool> m_blocks = tn::MakeMemoryBlockPool();
    TnRobotPtr<ITnRobotSurfacePool> m_pool = tn::MakeSurfacePool(m_blocks.get());
};

STnNLImageData Frame(ETnNLImageType eType, int nWidth, int nHeight, Bytes& bytes) {
    STnNLImageData image{};
    image.pData = bytes.data();
    image.nDataSize = static_cast<unsigned int>(bytes.size());
    image.oriPos = {3, 4};
    image.nWidth = nWidth;
    image.nHeight = nHeight;
    image.eImageType = eType;
    return image;
}

bool HasRowsOf(const tn::LockedPixels& pixels, const Bytes& bytes, std::size_t nPitch) {
    bool bSame = true;
    const auto nRow = static_cast<std::size_t>(pixels.RowBytes());
    for (int i = 0; i < pixels.Height(); ++i) {
        const auto nStart = static_cast<std::size_t>(i) * nPitch;
        bSame = bSame && std::equal(pixels.Row(i), pixels.Row(i) + nRow, bytes.data() + nStart);
        bSame =
            bSame && std::all_of(pixels.Row(i) + nRow, pixels.Row(i) + pixels.Pitch(), [](auto by) { return by == 0; });
    }
    return bSame;
}

}  // namespace

TEST_F(Pixels, RowsHaveTheBytesOfTheirFormat) {
    const struct {
        ETnNLImageType eType;
        int nPixel;
        std::int64_t nRow;  // of 5 pixels
    } rows[] = {
        {TN_IMAGE_NONE, 0, 0},   {TN_IMAGE_RGB24, 3, 15},  {TN_IMAGE_BGR24, 3, 15}, {TN_IMAGE_8BIT_3, 1, 5},
        {TN_IMAGE_8BIT_4, 1, 5}, {TN_IMAGE_8BIT_5, 1, 5},  {TN_IMAGE_8BIT_6, 1, 5}, {TN_IMAGE_GRAY8, 1, 5},
        {TN_IMAGE_420, 0, 7},    {TN_IMAGE_BGRX32, 4, 20},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(tn::BytesPerPixel(row.eType), row.nPixel) << row.eType;
        EXPECT_EQ(tn::RowBytes(row.eType, 5), row.nRow) << row.eType;
        EXPECT_EQ(tn::RowBytes(row.eType, -5), 0) << row.eType;
    }
    EXPECT_EQ(tn::RowBytes(TN_IMAGE_BGRX32, std::numeric_limits<int>::max()), 8589934588) << "no 32 bits";
}

TEST_F(Pixels, AreLockedAsLongAsTheyAreLookedAt) {
    const auto surface = TestSurface::Create({5, 3, 16, TN_IMAGE_BGR24, {0, 0}}, Counting(48));
    {
        const tn::LockedPixels pixels(*surface);
        EXPECT_EQ(surface->OpenLocks(), 1);
        EXPECT_TRUE(pixels);
        EXPECT_EQ(pixels.Width(), 5);
        EXPECT_EQ(pixels.Height(), 3);
        EXPECT_EQ(pixels.Pitch(), 16);
        EXPECT_EQ(pixels.RowBytes(), 15);
        EXPECT_EQ(pixels.Type(), TN_IMAGE_BGR24);
        EXPECT_EQ(*pixels.Row(2), 33);
        EXPECT_EQ(pixels.Lock().nDataSize, 48U);
    }
    EXPECT_EQ(surface->OpenLocks(), 0);
}

TEST_F(Pixels, ThereAreNoneWithoutALockOrMemory) {
    const auto refusing = TestSurface::Create({5, 3, 16, TN_IMAGE_BGR24, {0, 0}}, Counting(48));
    refusing->RefuseLocks();
    EXPECT_FALSE(tn::LockedPixels(*refusing));
    EXPECT_EQ(tn::LockedPixels(*refusing).Lock().pData, nullptr);
    EXPECT_EQ(refusing->OpenLocks(), 0) << "what was not locked is not unlocked";
    const Surface empty;
    const tn::LockedPixels none(empty);
    EXPECT_FALSE(none);
    EXPECT_EQ(none.Height(), 0);

    SurfaceSource source;
    const Surface old = source.GetWithoutPixels();
    ASSERT_TRUE(old);
    EXPECT_FALSE(tn::LockedPixels(old));
    EXPECT_EQ(tn::LockedPixels(old).Width(), 0) << "a description without pixels is none";
}

TEST_F(Pixels, AreOnlyThereWhenAllRowsLieInTheMemory) {
    for (const std::size_t nBytes : {47U, 48U}) {
        const auto surface = TestSurface::Create({5, 3, 16, TN_IMAGE_BGR24, {0, 0}}, Counting(nBytes));
        EXPECT_EQ(static_cast<bool>(tn::LockedPixels(*surface)), nBytes == 48);
    }
    const auto narrow = TestSurface::Create({6, 2, 16, TN_IMAGE_BGR24, {0, 0}}, Counting(48));
    EXPECT_FALSE(tn::LockedPixels(*narrow)) << "18 bytes at a distance of 16";
}

TEST_F(Pixels, ASurfaceThatIsAboutToGoIsNotLocked) {
    EXPECT_FALSE((std::is_constructible_v<tn::LockedPixels, Surface>));
    EXPECT_TRUE((std::is_constructible_v<tn::LockedPixels, Surface&>));
}

TEST_F(Pixels, FramesOfAnyPitchAreCopied) {
    for (const ETnNLImageType eType :
         {TN_IMAGE_RGB24, TN_IMAGE_BGR24, TN_IMAGE_8BIT_3, TN_IMAGE_GRAY8, TN_IMAGE_BGRX32}) {
        for (int nWidth = 1; nWidth <= 9; ++nWidth) {
            for (const int nGap : {0, 1, 3, 50}) {
                const int nPitch = nWidth * tn::BytesPerPixel(eType) + nGap;
                Bytes bytes = Counting(static_cast<std::size_t>(nPitch) * 4);
                std::error_code ec = tn::errc::no_surface;
                const Surface surface = tn::CopyToSurface(*m_pool, Frame(eType, nWidth, 4, bytes), nPitch, ec);
                ASSERT_TRUE(surface) << ec.message();
                EXPECT_FALSE(ec);
                const tn::LockedPixels pixels(surface);
                EXPECT_EQ(pixels.Type(), eType);
                EXPECT_TRUE(HasRowsOf(pixels, bytes, static_cast<std::size_t>(nPitch))) << nWidth << " + " << nGap;
                EXPECT_EQ(surface->GetOriPos().y, 4);
            }
        }
    }
}

// 1366 x 768 is what many cameras and screens have: 4,098 bytes in a row, and a surface has 4,100.
TEST_F(Pixels, APackedFrameComesOutAsItWentIn) {
    Bytes bytes = Noise(std::size_t{1366} * 3 * 768, 7);
    const STnNLImageData frame = Frame(TN_IMAGE_BGR24, 1366, 768, bytes);
    const Surface surface = tn::CopyToSurface(*m_pool, frame, 1366 * 3);
    ASSERT_TRUE(surface);
    EXPECT_TRUE(HasRowsOf(tn::LockedPixels(surface), bytes, 4098));
}

TEST_F(Pixels, TheLastRowOfAFrameMayEndWithItsPixels) {
    Bytes bytes = Counting(2 * 20 + 15);
    EXPECT_TRUE(tn::CopyToSurface(*m_pool, Frame(TN_IMAGE_BGR24, 5, 3, bytes), 20));
    bytes.pop_back();
    EXPECT_FALSE(tn::CopyToSurface(*m_pool, Frame(TN_IMAGE_BGR24, 5, 3, bytes), 20));
}

TEST_F(Pixels, FramesThatCannotBeCopiedSayWhy) {
    Bytes bytes = Counting(48);
    const auto Without = [&bytes](auto change) {
        STnNLImageData frame = Frame(TN_IMAGE_BGR24, 5, 3, bytes);
        change(frame);
        return frame;
    };
    const std::error_code wrong = std::make_error_code(std::errc::invalid_argument);
    const struct {
        const char* lpszName;
        STnNLImageData frame;
        int nPitch;
        std::error_code expected;
    } rows[] = {
        {"no data", Without([](auto& f) { f.pData = nullptr; }), 16, wrong},
        {"no width", Without([](auto& f) { f.nWidth = 0; }), 16, wrong},
        {"a negative height", Without([](auto& f) { f.nHeight = -3; }), 16, wrong},
        {"too narrow a pitch", Without([](auto&) {}), 14, wrong},
        {"a negative pitch", Without([](auto&) {}), -16, wrong},
        {"no pitch", Without([](auto&) {}), 0, wrong},
        {"too few bytes", Without([](auto& f) { f.nDataSize = 46; }), 16, wrong},
        {"rows beyond all memory", Without([](auto& f) { f.nHeight = 2147483647; }), 2147483647, wrong},
        {"4:2:0", Without([](auto& f) { f.eImageType = TN_IMAGE_420; }), 7, tn::errc::format_not_supported},
        {"no format", Without([](auto& f) { f.eImageType = TN_IMAGE_NONE; }), 16, tn::errc::format_not_supported},
    };
    for (const auto& row : rows) {
        std::error_code ec;
        EXPECT_FALSE(tn::CopyToSurface(*m_pool, row.frame, row.nPitch, ec)) << row.lpszName;
        EXPECT_EQ(ec, row.expected) << row.lpszName;
    }
    std::error_code ec;
    const auto none = tn::MakeSurfacePool(nullptr);
    EXPECT_FALSE(tn::CopyToSurface(*none, Frame(TN_IMAGE_BGR24, 5, 3, bytes), 16, ec));
    EXPECT_EQ(ec, tn::errc::no_surface);
}

// The pool answers 0 and gives a surface that was something else.
TEST_F(Pixels, AnOldSurfaceOfThePoolIsNotWrittenTo) {
    Bytes bytes = Counting(48);
    const auto old = TestSurface::Create({4, 2, 12, TN_IMAGE_BGR24, {0, 0}}, Bytes(24, 7));
    const auto pool = TestSurfacePool::Create(0, old.get());
    std::error_code ec;
    EXPECT_FALSE(tn::CopyToSurface(*pool, Frame(TN_IMAGE_BGR24, 5, 3, bytes), 16, ec));
    EXPECT_EQ(ec, tn::errc::no_surface);
    EXPECT_EQ(old->Content(), Bytes(24, 7));
    EXPECT_EQ(old->OpenLocks(), 0);
}

TEST_F(Pixels, ASurfaceOverMemoryHasItsPixels) {
    Bytes bytes = Counting(3 * 17);
    const Surface surface = tn::SurfaceOver(bytes.data(), bytes.size(), {5, 3, 17, TN_IMAGE_BGR24, {1, 2}}, nullptr);
    ASSERT_TRUE(surface);
    {
        const tn::LockedPixels pixels(surface);
        EXPECT_TRUE(pixels);
        EXPECT_EQ(pixels.Row(0), bytes.data());
        EXPECT_EQ(pixels.Row(2), bytes.data() + 34);
        EXPECT_EQ(pixels.Lock().nDataSize, 51U);
    }
    EXPECT_EQ(surface->GetOriPos().x, 1);
    surface->ResetOriPos({8, 9});
    EXPECT_EQ(DescOf(surface.get()).oriPos.y, 9);
    EXPECT_EQ(DescOf(surface.get()).nPitch, 17);
    EXPECT_EQ(surface->QueryTimeStamp(), 0U);
    surface->SetTimeStamp(12);
    EXPECT_EQ(surface->QueryTimeStamp(), 12U);
    const Surface part = tn::ClipImage(m_pool.get(), surface.get(), {1, 4, 1, 3});
    ASSERT_TRUE(part) << "the library works on it";
    EXPECT_EQ(*tn::LockedPixels(part).Row(1), bytes[34 + 3]);
}

TEST_F(Pixels, TheOwnerOfMemoryGoesWithTheLastHolderOfItsSurface) {
    const auto bytes = std::make_shared<Bytes>(Counting(12));
    Surface surface = tn::SurfaceOver(bytes->data(), 12, {4, 1, 12, TN_IMAGE_BGR24, {0, 0}}, bytes);
    ASSERT_TRUE(surface);
    Surface second = surface;
    surface.reset();
    EXPECT_EQ(bytes.use_count(), 2);
    EXPECT_EQ(second.detach()->Release(), 0) << "it belongs to no pool";
    EXPECT_EQ(bytes.use_count(), 1);

    auto block = tn::QueryMemBuff(*m_blocks, 12);
    unsigned int nSize = 0;
    unsigned char* pData = block->QueryMemory(nSize);
    Surface over = tn::SurfaceOver(pData, nSize, {4, 1, 12, TN_IMAGE_BGR24, {0, 0}}, std::move(block));
    EXPECT_TRUE(tn::LockedPixels(over)) << "a block keeps itself";
}

TEST_F(Pixels, MemoryThatIsNoPictureGivesNoSurface) {
    const std::error_code wrong = std::make_error_code(std::errc::invalid_argument);
    const struct {
        Desc desc;
        std::size_t nBytes;
        std::error_code expected;
    } rows[] = {
        {{5, 3, 16, TN_IMAGE_BGR24, {0, 0}}, 48, {}},
        {{5, 3, 16, TN_IMAGE_BGR24, {0, 0}}, 47, wrong},
        {{5, 3, 15, TN_IMAGE_BGR24, {0, 0}}, 48, {}},
        {{5, 3, 14, TN_IMAGE_BGR24, {0, 0}}, 48, wrong},
        {{5, 3, 0, TN_IMAGE_BGR24, {0, 0}}, 48, wrong},
        {{5, -3, 16, TN_IMAGE_BGR24, {0, 0}}, 48, wrong},
        {{1, 2147483647, 2147483647, TN_IMAGE_GRAY8, {0, 0}}, 48, wrong},
        {{4, 4, 6, TN_IMAGE_420, {0, 0}}, 48, {}},
        {{4, 4, 8, TN_IMAGE_420, {0, 0}}, 48, tn::errc::format_not_supported},
        {{5, 3, 16, TN_IMAGE_NONE, {0, 0}}, 48, tn::errc::format_not_supported},
    };
    Bytes bytes = Counting(48);
    const auto owner = std::make_shared<int>(0);
    for (const auto& row : rows) {
        std::error_code ec = tn::errc::no_surface;
        EXPECT_EQ(tn::SurfaceOver(bytes.data(), row.nBytes, row.desc, owner, ec) == nullptr,
                  static_cast<bool>(row.expected));
        EXPECT_EQ(ec, row.expected) << row.desc.nWidth << " x " << row.desc.nHeight << ", " << row.desc.nPitch;
        EXPECT_EQ(owner.use_count(), 1);
    }
    EXPECT_FALSE(tn::SurfaceOver(nullptr, 48, rows[0].desc, nullptr));
}
