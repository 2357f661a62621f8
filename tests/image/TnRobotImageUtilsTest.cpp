// Records and surfaces, regions and joined pictures.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>

#include "TnRobotKernel/image.h"
#include "support/fakes/TestSurfaces.h"

using namespace tntest;

namespace {

using Utils = TnRobotImageUtils;

ETnNLImageType Type(int nValue) {
    return static_cast<ETnNLImageType>(nValue);
}

// An out-pointer that nothing may follow.
ITnRobotSurface* Untouched() {
    static int s_nObject;
    return reinterpret_cast<ITnRobotSurface*>(&s_nObject);
}

}  // namespace

// ---- records to surfaces

TEST(NlImage2Surface, CopiesBytesAndDescription) {
    const struct {
        ETnNLImageType eType;
        int nWidth;
        int nPitch;
    } rows[] = {{TN_IMAGE_BGR24, 4, 12}, {TN_IMAGE_BGR24, 5, 16}, {TN_IMAGE_8BIT_3, 5, 5}, {TN_IMAGE_8BIT_4, 5, 5},
                {TN_IMAGE_8BIT_5, 5, 5}, {TN_IMAGE_8BIT_6, 5, 5}, {TN_IMAGE_GRAY8, 5, 5},  {TN_IMAGE_BGRX32, 5, 20}};
    SurfaceSource source;
    for (const auto& row : rows) {
        const Bytes bytes = Counting(static_cast<std::size_t>(row.nPitch) * 3);
        STnNLImageData image = Record(row.eType, row.nWidth, 3, bytes);
        image.oriPos = {-5, 6};
        ITnRobotSurface* pSurface = nullptr;
        ASSERT_EQ(Utils::NlImage2Surface(image, source.pool.get(), &pSurface), 0) << row.eType;
        const auto surface = tn::Adopt(pSurface);
        const Desc desc = DescOf(pSurface);
        EXPECT_EQ(desc.nWidth, row.nWidth);
        EXPECT_EQ(desc.nHeight, 3);
        EXPECT_EQ(desc.nPitch, row.nPitch);
        EXPECT_EQ(desc.eImageType, row.eType);
        EXPECT_EQ(desc.oriPos.x, -5);
        EXPECT_EQ(desc.oriPos.y, 6);
        EXPECT_EQ(SurfaceBytes(pSurface), bytes);
        EXPECT_EQ(surface.get()->QueryTimeStamp(), 0U);
    }
}

TEST(NlImage2Surface, RefusesOtherFormats) {
    SurfaceSource source;
    const Bytes bytes = Counting(64);
    for (const int nType : {-1, 0, 1, 8, 10, 1000}) {
        ITnRobotSurface* pSurface = Untouched();
        EXPECT_EQ(Utils::NlImage2Surface(Record(Type(nType), 4, 4, bytes), source.pool.get(), &pSurface), -2) << nType;
        EXPECT_EQ(pSurface, Untouched());
    }
    EXPECT_TRUE(source.blocks->Requests().empty());
}

TEST(NlImage2Surface, RefusesWhatIsMissing) {
    SurfaceSource source;
    const Bytes bytes = Counting(48);
    const STnNLImageData good = Record(TN_IMAGE_BGR24, 4, 4, bytes);
    ITnRobotSurface* pSurface = Untouched();
    const auto Result = [&](void (*change)(STnNLImageData&)) {
        STnNLImageData image = good;
        change(image);
        return Utils::NlImage2Surface(image, source.pool.get(), &pSurface);
    };
    EXPECT_EQ(Result([](STnNLImageData& image) { image.pData = nullptr; }), -1);
    EXPECT_EQ(Result([](STnNLImageData& image) { image.nDataSize = 0; }), -1);
    EXPECT_EQ(Result([](STnNLImageData& image) { image.nWidth = 0; }), -1);
    EXPECT_EQ(Result([](STnNLImageData& image) { image.nHeight = 0; }), -1);
    EXPECT_EQ(Utils::NlImage2Surface(good, nullptr, &pSurface), -1);
    EXPECT_EQ(Utils::NlImage2Surface(good, source.pool.get(), nullptr), -1);
    EXPECT_EQ(Result([](STnNLImageData& image) {
                  image.pData = nullptr;
                  image.eImageType = TN_IMAGE_RGB24;
              }),
              -1)
        << "what is missing is looked at before the format";
    EXPECT_EQ(pSurface, Untouched());
    EXPECT_TRUE(source.blocks->Requests().empty());
}

TEST(NlImage2Surface, RefusesNegativeAndHugeSizes) {
    SurfaceSource source;
    const Bytes bytes = Counting(48);
    const int sizes[][2] = {{-4, 4}, {4, -4}, {-4, -4}, {INT_MAX, INT_MAX}, {INT_MIN, INT_MIN}, {0x55555559, 1}};
    for (const auto& size : sizes) {
        ITnRobotSurface* pSurface = Untouched();
        const STnNLImageData image = Record(TN_IMAGE_BGR24, size[0], size[1], bytes);
        EXPECT_EQ(Utils::NlImage2Surface(image, source.pool.get(), &pSurface), -1);
        EXPECT_EQ(pSurface, Untouched());
    }
}

TEST(NlImage2Surface, RefusesMoreBytesThanTheSurfaceHas) {
    SurfaceSource source;
    const Bytes bytes = Counting(49);
    ITnRobotSurface* pSurface = Untouched();
    EXPECT_EQ(Utils::NlImage2Surface(Record(TN_IMAGE_BGR24, 4, 4, bytes), source.pool.get(), &pSurface), -1);
    EXPECT_EQ(pSurface, Untouched());
    EXPECT_EQ(TestBlock::LiveCount(), 0);
}

TEST(NlImage2Surface, LeavesZeroWhereTheRecordEnds) {
    SurfaceSource source;
    const Bytes bytes = Counting(20);
    ITnRobotSurface* pSurface = nullptr;
    ASSERT_EQ(Utils::NlImage2Surface(Record(TN_IMAGE_BGR24, 4, 4, bytes), source.pool.get(), &pSurface), 0);
    EXPECT_EQ(SurfaceBytes(tn::Adopt(pSurface).get()), bytes + Bytes(28, 0));
}

TEST(NlImage2Surface, PassesThePoolsAnswerOn) {
    const Bytes bytes = Counting(48);
    for (const int nAnswer : {-1, -77, 1, 5}) {
        const auto pool = TestSurfacePool::Create(nAnswer, nullptr);
        ITnRobotSurface* pSurface = nullptr;
        STnNLImageData image = Record(TN_IMAGE_BGR24, 4, 4, bytes);
        image.oriPos = {3, 4};
        EXPECT_EQ(Utils::NlImage2Surface(image, pool.get(), &pSurface), nAnswer);
        EXPECT_EQ(pSurface, nullptr);
        EXPECT_EQ(pool->m_nCalls, 1);
        EXPECT_EQ(pool->m_lastDesc.nWidth, 4);
        EXPECT_EQ(pool->m_lastDesc.nHeight, 4);
        EXPECT_EQ(pool->m_lastDesc.nPitch, 0);
        EXPECT_EQ(pool->m_lastDesc.eImageType, TN_IMAGE_BGR24);
        EXPECT_EQ(pool->m_lastDesc.oriPos.y, 4);
    }
}

TEST(NlImage2Surface, FailsWhenTheOnlySurfaceGetsNoPixels) {
    SurfaceSource source;
    source.Get(TN_IMAGE_BGR24, 4, 4).reset();
    source.blocks->Refuse();
    const Bytes bytes = Counting(48);
    ITnRobotSurface* pSurface = Untouched();
    EXPECT_EQ(Utils::NlImage2Surface(Record(TN_IMAGE_BGR24, 4, 4, bytes), source.pool.get(), &pSurface), -1);
    EXPECT_EQ(pSurface, Untouched());
    source.blocks->Refuse(false);
    ASSERT_EQ(Utils::NlImage2Surface(Record(TN_IMAGE_BGR24, 4, 4, bytes), source.pool.get(), &pSurface), 0);
    EXPECT_EQ(tn::Adopt(pSurface)->QueryTimeStamp(), 0U) << "the surface went back to its pool before";
}

// A surface of another make, as a caller's own pool may have them.
TEST(NlImage2Surface, RefusesASurfaceThatSaysHowMuchItHoldsAndNotWhere) {
    const Bytes bytes = Counting(12);
    const auto target = TestSurface::Create(MakeDesc(TN_IMAGE_BGR24, 4, 1), Bytes(12));
    target->HideBytes();
    const auto pool = TestSurfacePool::Create(0, target.get());
    ITnRobotSurface* pSurface = Untouched();
    EXPECT_EQ(Utils::NlImage2Surface(Record(TN_IMAGE_BGR24, 4, 1, bytes), pool.get(), &pSurface), -1);
    EXPECT_EQ(pSurface, Untouched());
    EXPECT_EQ(target->OpenLocks(), 0);
}

TEST(NlImage2Surface, LocksInPairs) {
    const Bytes bytes = Counting(12);
    const auto target = TestSurface::Create(MakeDesc(TN_IMAGE_BGR24, 4, 1), Bytes(12));
    const auto pool = TestSurfacePool::Create(0, target.get());
    ITnRobotSurface* pSurface = nullptr;
    ASSERT_EQ(Utils::NlImage2Surface(Record(TN_IMAGE_BGR24, 4, 1, bytes), pool.get(), &pSurface), 0);
    EXPECT_EQ(tn::Adopt(pSurface).get(), target.get());
    EXPECT_EQ(target->OpenLocks(), 0);
    EXPECT_EQ(target->Content(), bytes);
}

// ---- surfaces to records

TEST(Surface2NlImage, DescribesTheSurfacesOwnMemory) {
    const struct {
        ETnNLImageType eType;
        int nPitch;
        unsigned int nChannels;
    } rows[] = {{TN_IMAGE_RGB24, 16, 3}, {TN_IMAGE_BGR24, 16, 3}, {TN_IMAGE_8BIT_3, 5, 1},
                {TN_IMAGE_8BIT_4, 5, 1}, {TN_IMAGE_8BIT_5, 5, 1}, {TN_IMAGE_8BIT_6, 5, 1},
                {TN_IMAGE_GRAY8, 5, 1},  {TN_IMAGE_420, 7, 200},  {TN_IMAGE_BGRX32, 20, 4}};
    SurfaceSource source;
    for (const auto& row : rows) {
        const auto surface = source.Get(row.eType, 5, 3, {21, -22});
        STnNLImageData image{};
        image.nChannels = 200;  // stays for a format without whole bytes
        image.nBitsPerChannel = 99;
        ASSERT_EQ(Utils::Surface2NlImage(surface.get(), image), 0);
        Lock lock{};
        surface->LockSurface(lock);
        surface->UnLockSurface();
        EXPECT_EQ(image.pData, lock.pData);
        EXPECT_EQ(image.nDataSize, static_cast<unsigned int>(row.nPitch * 3));
        EXPECT_EQ(image.nWidth, 5);
        EXPECT_EQ(image.nHeight, 3);
        EXPECT_EQ(image.eImageType, row.eType);
        EXPECT_EQ(image.oriPos.x, 21);
        EXPECT_EQ(image.oriPos.y, -22);
        EXPECT_EQ(image.nBitsPerChannel, 8);
        EXPECT_EQ(image.nChannels, row.nChannels) << row.eType;
        surface->AddRef();
        EXPECT_EQ(surface->Release(), 2) << "no reference is kept beside the holder's and the pool's";
    }
}

TEST(Surface2NlImage, KeepsTheChannelsOfOtherFormats) {
    for (const int nType : {-1, 0, 8, 10}) {
        const auto surface = TestSurface::Create(MakeDesc(Type(nType), 1, 1), Bytes(4));
        STnNLImageData image{};
        image.nChannels = 55;
        EXPECT_EQ(Utils::Surface2NlImage(surface.get(), image), 0);
        EXPECT_EQ(image.nChannels, 55) << nType;
        EXPECT_EQ(image.nBitsPerChannel, 8);
        EXPECT_EQ(surface->OpenLocks(), 0);
    }
}

TEST(Surface2NlImage, RefusesNull) {
    STnNLImageData image{};
    image.nWidth = 77;
    EXPECT_EQ(Utils::Surface2NlImage(nullptr, image), -1);
    EXPECT_EQ(image.nWidth, 77);
}

TEST(Surface2NlImage, LeavesTheRecordAloneWhenTheLockFails) {
    const auto surface = TestSurface::Create(MakeDesc(TN_IMAGE_BGR24, 1, 1), Bytes(4));
    surface->RefuseLocks();
    STnNLImageData image = Record(TN_IMAGE_GRAY8, 33, 44, {});
    image.nDataSize = 55;
    image.nBitsPerChannel = 66;
    EXPECT_EQ(Utils::Surface2NlImage(surface.get(), image), 0);
    EXPECT_EQ(image.nWidth, 33);
    EXPECT_EQ(image.nHeight, 44);
    EXPECT_EQ(image.nDataSize, 55U);
    EXPECT_EQ(image.nBitsPerChannel, 66);
    EXPECT_EQ(surface->OpenLocks(), 0);
}

TEST(Surface2NlImage, DescribesASurfaceWithoutPixelsAsEmpty) {
    SurfaceSource source;
    const auto surface = source.GetWithoutPixels();
    unsigned char byOther = 0;
    STnNLImageData image{};
    image.pData = &byOther;
    image.nDataSize = 1;
    EXPECT_EQ(Utils::Surface2NlImage(surface.get(), image), 0);
    EXPECT_EQ(image.pData, nullptr);
    EXPECT_EQ(image.nDataSize, 0U);
}

// ---- regions

TEST(ClipImage, CopiesTheRegion) {
    // left, right, top, bottom
    const STnNLROIRect regions[] = {{0, 9, 0, 5}, {1, 4, 2, 4}, {8, 9, 4, 5}, {0, 1, 0, 5}, {3, 9, 0, 1}, {2, 7, 1, 5}};
    for (int nType = TN_IMAGE_RGB24; nType <= TN_IMAGE_GRAY8; ++nType) {
        const int nBytes = nType <= TN_IMAGE_BGR24 ? 3 : 1;
        const int nPitch = nType <= TN_IMAGE_BGR24 ? 28 : 9;
        SurfaceSource source;
        const Bytes pixels = Noise(static_cast<std::size_t>(nPitch * 5), 1);
        const auto picture = source.Filled(Type(nType), 9, 5, pixels);
        picture->ResetOriPos({100, 200});
        picture->SetTimeStamp(5);
        for (const STnNLROIRect& region : regions) {
            ITnRobotSurface* pSurface = nullptr;
            ASSERT_EQ(Utils::ClipImage(source.pool.get(), picture.get(), region, &pSurface), 0);
            ASSERT_NE(pSurface, nullptr);
            const auto clip = tn::Adopt(pSurface);
            const Desc desc = DescOf(pSurface);
            EXPECT_EQ(desc.nWidth, region.right - region.left);
            EXPECT_EQ(desc.nHeight, region.bottom - region.top);
            EXPECT_EQ(desc.eImageType, Type(nType));
            EXPECT_EQ(desc.oriPos.x, 100) << "the origin is not moved by the clip";
            EXPECT_EQ(desc.oriPos.y, 200);
            Bytes expected(static_cast<std::size_t>(desc.nPitch * desc.nHeight), 0);
            for (int y = 0; y < desc.nHeight; ++y) {
                for (int i = 0; i < desc.nWidth * nBytes; ++i) {
                    expected[static_cast<std::size_t>(y * desc.nPitch + i)] =
                        pixels[static_cast<std::size_t>((region.top + y) * nPitch + region.left * nBytes + i)];
                }
            }
            EXPECT_EQ(SurfaceBytes(pSurface), expected) << "format " << nType << ", left " << region.left;
        }
        EXPECT_EQ(SurfaceBytes(picture.get()), pixels);
    }
}

TEST(ClipImage, RefusesRegionsThatAreEmptyOrOutside) {
    const struct {
        const char* lpszWhat;
        STnNLROIRect region;
    } rows[] = {
        {"left of it", {-1, 3, 0, 3}},
        {"above it", {0, 3, -1, 3}},
        {"one column too wide", {0, 10, 0, 5}},
        {"one row too high", {0, 9, 0, 6}},
        {"no columns", {4, 4, 0, 5}},
        {"no rows", {0, 9, 3, 3}},
        {"columns turned round", {5, 4, 0, 5}},
        {"rows turned round", {0, 9, 4, 3}},
        {"right of it", {9, 9, 0, 5}},
        {"below it", {0, 9, 5, 5}},
        {"far left", {INT_MIN, 9, 0, 5}},
        {"far up", {0, 9, INT_MIN, 5}},
        {"far right", {0, INT_MAX, 0, 5}},
        {"far down", {0, 9, 0, INT_MAX}},
        {"right end far left", {0, INT_MIN, 0, 5}},
        {"bottom far up", {0, 9, 0, INT_MIN}},
        {"start behind everything", {INT_MAX, 9, INT_MAX, 5}},
        {"everything", {INT_MIN, INT_MAX, INT_MIN, INT_MAX}},
    };
    SurfaceSource source;
    const auto picture = source.Get(TN_IMAGE_BGR24, 9, 5);
    for (const auto& row : rows) {
        ITnRobotSurface* pSurface = Untouched();
        EXPECT_EQ(Utils::ClipImage(source.pool.get(), picture.get(), row.region, &pSurface), -1) << row.lpszWhat;
        EXPECT_EQ(pSurface, Untouched()) << row.lpszWhat;
    }
    EXPECT_EQ(source.blocks->Requests().size(), 1U);
}

TEST(ClipImage, RefusesOtherFormats) {
    SurfaceSource source;
    for (const ETnNLImageType eType : {TN_IMAGE_420, TN_IMAGE_BGRX32}) {
        const auto picture = source.Get(eType, 8, 8);
        ITnRobotSurface* pSurface = Untouched();
        EXPECT_EQ(Utils::ClipImage(source.pool.get(), picture.get(), {0, 4, 0, 4}, &pSurface), -1) << eType;
        EXPECT_EQ(pSurface, Untouched());
    }
    for (const int nType : {-1, 0, 10}) {
        const auto picture = TestSurface::Create(MakeDesc(Type(nType), 8, 8), Bytes(1024));
        ITnRobotSurface* pSurface = Untouched();
        EXPECT_EQ(Utils::ClipImage(source.pool.get(), picture.get(), {0, 4, 0, 4}, &pSurface), -1) << nType;
        EXPECT_EQ(picture->OpenLocks(), 0);
    }
}

// Callers test the out-pointer, not the result.
TEST(ClipImage, AnswersZeroWithNullWhenThePoolHasNoSurface) {
    SurfaceSource source;
    const auto picture = source.Get(TN_IMAGE_BGR24, 9, 5);
    source.blocks->Refuse();
    ITnRobotSurface* pSurface = Untouched();
    EXPECT_EQ(Utils::ClipImage(source.pool.get(), picture.get(), {0, 4, 0, 4}, &pSurface), 0);
    EXPECT_EQ(pSurface, nullptr);
}

TEST(ClipImage, AnswersZeroWithNullWhenTheOnlySurfaceGetsNoPixels) {
    SurfaceSource source;
    const auto picture = source.Get(TN_IMAGE_BGR24, 9, 5);
    source.Get(TN_IMAGE_BGR24, 9, 5).reset();
    source.blocks->Refuse();
    ITnRobotSurface* pSurface = Untouched();
    EXPECT_EQ(Utils::ClipImage(source.pool.get(), picture.get(), {0, 4, 0, 4}, &pSurface), 0);
    EXPECT_EQ(pSurface, nullptr);
}

TEST(ClipImage, TouchesNoPixelsOfASurfaceWithoutAny) {
    SurfaceSource source;
    const auto picture = source.GetWithoutPixels();
    ITnRobotSurface* pSurface = Untouched();
    EXPECT_EQ(Utils::ClipImage(source.pool.get(), picture.get(), {0, 4, 0, 2}, &pSurface), -1);
    EXPECT_EQ(pSurface, Untouched());
    EXPECT_EQ(TestBlock::LiveCount(), 0);
}

TEST(ClipImage, ReadsNothingOutsideASurfaceSmallerThanItsDescription) {
    SurfaceSource source;
    Desc desc = MakeDesc(TN_IMAGE_GRAY8, 8, 8);
    desc.nPitch = 8;
    const auto picture = TestSurface::Create(desc, Bytes(40));  // five rows only
    ITnRobotSurface* pSurface = nullptr;
    EXPECT_EQ(Utils::ClipImage(source.pool.get(), picture.get(), {0, 8, 0, 8}, &pSurface), -1);
    EXPECT_EQ(picture->OpenLocks(), 0);
}

TEST(ClipImage, LocksInPairs) {
    Desc desc = MakeDesc(TN_IMAGE_GRAY8, 8, 2);
    desc.nPitch = 8;
    const auto picture = TestSurface::Create(desc, Counting(16));
    desc = MakeDesc(TN_IMAGE_GRAY8, 4, 1);
    desc.nPitch = 4;
    const auto target = TestSurface::Create(desc, Bytes(4));
    const auto pool = TestSurfacePool::Create(0, target.get());
    ITnRobotSurface* pSurface = nullptr;
    ASSERT_EQ(Utils::ClipImage(pool.get(), picture.get(), {2, 6, 1, 2}, &pSurface), 0);
    EXPECT_EQ(tn::Adopt(pSurface).get(), target.get());
    EXPECT_EQ(picture->OpenLocks(), 0);
    EXPECT_EQ(target->OpenLocks(), 0);
    EXPECT_EQ(target->Content(), Counting(4, 11));
}

TEST(ClipImage, RefusesNull) {
    SurfaceSource source;
    const auto picture = source.Get(TN_IMAGE_BGR24, 9, 5);
    ITnRobotSurface* pSurface = Untouched();
    EXPECT_EQ(Utils::ClipImage(nullptr, picture.get(), {0, 4, 0, 4}, &pSurface), -1);
    EXPECT_EQ(Utils::ClipImage(source.pool.get(), nullptr, {0, 4, 0, 4}, &pSurface), -1);
    EXPECT_EQ(Utils::ClipImage(source.pool.get(), picture.get(), {0, 4, 0, 4}, nullptr), -1);
    EXPECT_EQ(pSurface, Untouched());
}

// ---- joined pictures

namespace {

struct Piece {
    ETnNLImageType eType;
    int nWidth;
    int nHeight;
};

// What joining must give, worked out byte by byte.
Bytes Joined(const Piece& first, const Bytes& a, int nFirstPitch, const Bytes& b, int nSecondPitch, int nPitch) {
    const int nRow = first.nWidth * (first.eType == TN_IMAGE_RGB24 || first.eType == TN_IMAGE_BGR24 ? 3 : 1);
    Bytes target(static_cast<std::size_t>(nPitch * first.nHeight), 0);
    for (int y = 0; y < first.nHeight; ++y) {
        for (int i = 0; i < nRow; ++i) {
            target.at(static_cast<std::size_t>(y * nPitch + i)) = a.at(static_cast<std::size_t>(y * nFirstPitch + i));
            target.at(static_cast<std::size_t>(y * nPitch + nRow + i)) =
                b.at(static_cast<std::size_t>(y * nSecondPitch + i));
        }
    }
    return target;
}

}  // namespace

TEST(PieceImage, JoinsFourByTwoPixels) {
    SurfaceSource source;
    const auto first = source.Filled(TN_IMAGE_BGR24, 4, 2, Counting(24, 1));
    const auto second = source.Filled(TN_IMAGE_BGR24, 4, 2, Counting(24, 101));
    first->ResetOriPos({1, 2});
    second->ResetOriPos({3, 4});
    ITnRobotSurface* pSurface = nullptr;
    ASSERT_EQ(Utils::PieceImage(source.pool.get(), first.get(), second.get(), &pSurface), 1);
    const auto joined = tn::Adopt(pSurface);
    const Desc desc = DescOf(pSurface);
    EXPECT_EQ(desc.nWidth, 8);
    EXPECT_EQ(desc.nHeight, 2);
    EXPECT_EQ(desc.nPitch, 24);
    EXPECT_EQ(desc.eImageType, TN_IMAGE_BGR24);
    EXPECT_EQ(desc.oriPos.x, 0);
    EXPECT_EQ(desc.oriPos.y, 0);
    EXPECT_EQ(SurfaceBytes(pSurface), Counting(12, 1) + Counting(12, 101) + Counting(12, 13) + Counting(12, 113));
}

TEST(PieceImage, JoinsEveryFormat) {
    const struct {
        Piece first;
        Piece second;
        const char* lpszWhat;
    } rows[] = {
        {{TN_IMAGE_RGB24, 4, 2}, {TN_IMAGE_RGB24, 4, 2}, "R,G,B"},
        {{TN_IMAGE_BGR24, 5, 3}, {TN_IMAGE_BGR24, 5, 3}, "padded rows"},
        {{TN_IMAGE_BGR24, 1, 1}, {TN_IMAGE_BGR24, 1, 1}, "single pixels"},
        {{TN_IMAGE_8BIT_3, 5, 3}, {TN_IMAGE_8BIT_3, 5, 3}, "one byte"},
        {{TN_IMAGE_GRAY8, 1, 9}, {TN_IMAGE_GRAY8, 1, 9}, "one column"},
        {{TN_IMAGE_420, 8, 4}, {TN_IMAGE_420, 8, 4}, "4:2:0: as many bytes as pixels of each row"},
        {{TN_IMAGE_BGRX32, 5, 3}, {TN_IMAGE_BGRX32, 5, 3}, "32 bits: a quarter of each row"},
        {{TN_IMAGE_RGB24, 4, 2}, {TN_IMAGE_BGR24, 4, 2}, "the second format wins"},
        {{TN_IMAGE_BGR24, 4, 2}, {TN_IMAGE_RGB24, 4, 2}, "the second format wins"},
        {{TN_IMAGE_GRAY8, 4, 2}, {TN_IMAGE_8BIT_3, 4, 2}, "one byte each"},
        {{TN_IMAGE_GRAY8, 4, 2}, {TN_IMAGE_BGR24, 4, 2}, "grey and colour: a third of the second's row"},
        {{TN_IMAGE_GRAY8, 4, 2}, {TN_IMAGE_BGRX32, 4, 2}, "grey and 32 bits"},
        {{TN_IMAGE_BGR24, 4, 2}, {TN_IMAGE_BGRX32, 4, 2}, "colour and 32 bits"},
        {{TN_IMAGE_BGR24, 4, 1},
         {TN_IMAGE_GRAY8, 40, 1},
         "colour into a grey target that is wide enough for the bytes"},
        {{TN_IMAGE_BGR24, 4, 2}, {TN_IMAGE_BGR24, 6, 2}, "the second one wider: its right part is missing"},
        {{TN_IMAGE_BGR24, 4, 2}, {TN_IMAGE_BGR24, 4, 5}, "the second one higher: its lower part is missing"},
        {{TN_IMAGE_GRAY8, 4, 2}, {TN_IMAGE_GRAY8, 400, 200}, "the second one much larger"},
    };
    for (const auto& row : rows) {
        SurfaceSource source;
        const auto first = source.Get(row.first.eType, row.first.nWidth, row.first.nHeight);
        const auto second = source.Get(row.second.eType, row.second.nWidth, row.second.nHeight);
        ASSERT_NE(first, nullptr);
        ASSERT_NE(second, nullptr);
        for (ITnRobotSurface* pSource : {first.get(), second.get()}) {
            Lock lock{};
            pSource->LockSurface(lock);
            const Bytes noise = Noise(lock.nDataSize, pSource == first.get() ? 1 : 2);
            std::copy(noise.begin(), noise.end(), lock.pData);
            pSource->UnLockSurface();
        }
        ITnRobotSurface* pSurface = nullptr;
        ASSERT_EQ(Utils::PieceImage(source.pool.get(), first.get(), second.get(), &pSurface), 1) << row.lpszWhat;
        const auto joined = tn::Adopt(pSurface);
        const Desc desc = DescOf(pSurface);
        EXPECT_EQ(desc.nWidth, row.first.nWidth + row.second.nWidth) << row.lpszWhat;
        EXPECT_EQ(desc.nHeight, row.first.nHeight) << row.lpszWhat;
        EXPECT_EQ(desc.eImageType, row.second.eType) << row.lpszWhat;
        EXPECT_EQ(SurfaceBytes(pSurface), Joined(row.first, SurfaceBytes(first.get()), DescOf(first.get()).nPitch,
                                                 SurfaceBytes(second.get()), DescOf(second.get()).nPitch, desc.nPitch))
            << row.lpszWhat;
    }
}

TEST(PieceImage, JoinsAPictureWithItself) {
    SurfaceSource source;
    const auto picture = source.Filled(TN_IMAGE_GRAY8, 3, 2, Counting(6));
    ITnRobotSurface* pSurface = nullptr;
    ASSERT_EQ(Utils::PieceImage(source.pool.get(), picture.get(), picture.get(), &pSurface), 1);
    EXPECT_EQ(SurfaceBytes(tn::Adopt(pSurface).get()), FromHex("01 02 03 01 02 03 04 05 06 04 05 06"));
}

TEST(PieceImage, RefusesPicturesThatDoNotFitTogether) {
    const struct {
        Piece first;
        Piece second;
        const char* lpszWhat;
    } rows[] = {
        {{TN_IMAGE_BGR24, 4, 2}, {TN_IMAGE_BGR24, 4, 1}, "the second one lower"},
        {{TN_IMAGE_BGR24, 6, 2}, {TN_IMAGE_BGR24, 4, 2}, "the second one narrower"},
        {{TN_IMAGE_BGR24, 4, 2}, {TN_IMAGE_GRAY8, 4, 2}, "colour into a grey target"},
        {{TN_IMAGE_BGRX32, 4, 2}, {TN_IMAGE_420, 1, 2}, "a second one of a single byte"},
    };
    for (const auto& row : rows) {
        SurfaceSource source;
        const auto first = source.Get(row.first.eType, row.first.nWidth, row.first.nHeight);
        const auto second = source.Get(row.second.eType, row.second.nWidth, row.second.nHeight);
        ASSERT_NE(first, nullptr);
        ASSERT_NE(second, nullptr);
        ITnRobotSurface* pSurface = Untouched();
        EXPECT_EQ(Utils::PieceImage(source.pool.get(), first.get(), second.get(), &pSurface), 0) << row.lpszWhat;
        EXPECT_EQ(pSurface, nullptr) << row.lpszWhat;
        EXPECT_EQ(TestBlock::LiveCount(), 2) << "nothing is left of a target";
    }
}

TEST(PieceImage, RefusesWidthsThatOverflow) {
    SurfaceSource source;
    Desc desc = MakeDesc(TN_IMAGE_GRAY8, INT_MAX, 1);
    desc.nPitch = INT_MAX;
    const auto wide = TestSurface::Create(desc, Bytes(16));
    ITnRobotSurface* pSurface = Untouched();
    EXPECT_EQ(Utils::PieceImage(source.pool.get(), wide.get(), wide.get(), &pSurface), 0);
    EXPECT_EQ(pSurface, nullptr);
    desc.nWidth = INT_MIN;
    const auto negative = TestSurface::Create(desc, Bytes(16));
    pSurface = Untouched();
    EXPECT_EQ(Utils::PieceImage(source.pool.get(), negative.get(), negative.get(), &pSurface), 0);
    EXPECT_EQ(pSurface, nullptr);
    EXPECT_EQ(wide->OpenLocks(), 0);
    EXPECT_EQ(negative->OpenLocks(), 0);
}

TEST(PieceImage, ReadsNothingOutsideASurfaceSmallerThanItsDescription) {
    SurfaceSource source;
    Desc desc = MakeDesc(TN_IMAGE_GRAY8, 4, 4);
    desc.nPitch = 4;
    const auto whole = TestSurface::Create(desc, Bytes(16));
    const auto half = TestSurface::Create(desc, Bytes(8));
    for (const auto& [pFirst, pSecond] : {std::pair(whole.get(), half.get()), std::pair(half.get(), whole.get())}) {
        ITnRobotSurface* pSurface = Untouched();
        EXPECT_EQ(Utils::PieceImage(source.pool.get(), pFirst, pSecond, &pSurface), 0);
        EXPECT_EQ(pSurface, nullptr);
    }
    EXPECT_EQ(whole->OpenLocks(), 0);
    EXPECT_EQ(half->OpenLocks(), 0);
    EXPECT_EQ(TestBlock::LiveCount(), 0);
}

TEST(PieceImage, TouchesNoPixelsOfASurfaceWithoutAny) {
    SurfaceSource source;
    const auto empty = source.GetWithoutPixels();
    const auto picture = source.Get(TN_IMAGE_BGR24, 4, 2);
    for (const auto& [pFirst, pSecond] : {std::pair(empty.get(), picture.get()), std::pair(picture.get(), empty.get()),
                                          std::pair(empty.get(), empty.get())}) {
        ITnRobotSurface* pSurface = Untouched();
        EXPECT_EQ(Utils::PieceImage(source.pool.get(), pFirst, pSecond, &pSurface), 0);
        EXPECT_EQ(pSurface, nullptr);
    }
}

TEST(PieceImage, AnswersZeroWithNullWithoutATarget) {
    SurfaceSource source;
    const auto picture = source.Get(TN_IMAGE_BGR24, 4, 2);
    source.blocks->Refuse();
    ITnRobotSurface* pSurface = Untouched();
    EXPECT_EQ(Utils::PieceImage(source.pool.get(), picture.get(), picture.get(), &pSurface), 0);
    EXPECT_EQ(pSurface, nullptr);
    source.blocks->Refuse(false);
    source.Get(TN_IMAGE_BGR24, 4, 2).reset();
    source.blocks->Refuse();
    pSurface = Untouched();
    EXPECT_EQ(Utils::PieceImage(source.pool.get(), picture.get(), picture.get(), &pSurface), 0);
    EXPECT_EQ(pSurface, nullptr) << "a surface without pixels is no target";
}

TEST(PieceImage, RefusesNull) {
    SurfaceSource source;
    const auto picture = source.Get(TN_IMAGE_BGR24, 4, 2);
    ITnRobotSurface* pSurface = nullptr;
    EXPECT_EQ(Utils::PieceImage(source.pool.get(), nullptr, picture.get(), &pSurface), -1);
    EXPECT_EQ(Utils::PieceImage(source.pool.get(), picture.get(), nullptr, &pSurface), -1);
    EXPECT_EQ(Utils::PieceImage(source.pool.get(), nullptr, nullptr, &pSurface), -1);
    EXPECT_EQ(pSurface, nullptr);
    EXPECT_EQ(Utils::PieceImage(source.pool.get(), picture.get(), picture.get(), nullptr), -1);
    pSurface = Untouched();
    EXPECT_EQ(Utils::PieceImage(nullptr, picture.get(), picture.get(), &pSurface), 0) << "no pool, no target";
    EXPECT_EQ(pSurface, nullptr);
}

TEST(PieceImage, AsksForTwiceTheFirstPitchAndLocksInPairs) {
    Desc desc = MakeDesc(TN_IMAGE_GRAY8, 4, 2);
    desc.nPitch = 6;
    const auto first = TestSurface::Create(desc, Counting(12, 1));
    desc.nPitch = 5;
    const auto second = TestSurface::Create(desc, Counting(10, 51));
    desc.nWidth = 8;
    desc.nPitch = 10;
    const auto target = TestSurface::Create(desc, Bytes(20, 0xEE));
    const auto pool = TestSurfacePool::Create(0, target.get());
    ITnRobotSurface* pSurface = nullptr;
    ASSERT_EQ(Utils::PieceImage(pool.get(), first.get(), second.get(), &pSurface), 1);
    EXPECT_EQ(tn::Adopt(pSurface).get(), target.get());
    EXPECT_EQ(pool->m_lastDesc.nPitch, 12);
    EXPECT_EQ(pool->m_lastDesc.nWidth, 8);
    EXPECT_EQ(first->OpenLocks(), 0);
    EXPECT_EQ(second->OpenLocks(), 0);
    EXPECT_EQ(target->OpenLocks(), 0);
    EXPECT_EQ(target->Content(),
              Counting(4, 1) + Counting(4, 51) + Bytes(2, 0) + Counting(4, 7) + Counting(4, 56) + Bytes(2, 0));
}
