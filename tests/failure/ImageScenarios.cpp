// Surfaces and images without memory. libjpeg's own allocations are refused too where it is linked
// statically into this program.

#include <string>
#include <vector>

#include "failure/AllocationScenario.h"
#include "image/TnBmpDecoder.h"
#include "image/TnBmpEncoder.h"
#include "image/TnJpegDecoder.h"
#include "support/bytes/BmpBytes.h"
#include "support/bytes/FileBytes.h"
#include "support/bytes/PlainJpeg.h"
#include "support/fakes/TestSurfaces.h"
#include "support/objects/Memory.h"
#include "support/processes/TempDirectory.h"

namespace tntest {

namespace {

constexpr int kWidth = 36;  // rows of three bytes per pixel need no padding
constexpr int kHeight = 20;
constexpr int kPitch = 3 * kWidth;

const std::string& Directory() {
    static const TempDirectory s_directory;
    static const std::string s_strPath = s_directory.Path().string();
    return s_strPath;
}

std::string PathOf(const char* lpszName) {
    return Directory() + "/" + lpszName;
}

Bytes Picture() {
    return SmoothPicture(kWidth, kHeight, 3, kPitch);
}

/// A surface pool over the library's own block pool.
class ImageScenario : public AllocationScenario {
public:
    ImageScenario() : m_blocks(MakePool()) {
        ITnRobotSurfacePool* pPool = nullptr;
        EXPECT_EQ(TnCreateRobotSurfacePool(m_blocks.get(), &pPool), 1);
        m_pool = tn::Adopt(pPool);
    }

protected:
    TnRobotPtr<ITnRobotSurface> Filled() {
        const Bytes bytes = Picture();
        ITnRobotSurface* pSurface = nullptr;
        const STnNLImageData image = Record(TN_IMAGE_BGR24, kWidth, kHeight, bytes);
        EXPECT_EQ(TnRobotImageUtils::NlImage2Surface(image, m_pool.get(), &pSurface), 0);
        return tn::Adopt(pSurface);
    }

    HeldPool m_blocks;
    TnRobotPtr<ITnRobotSurfacePool> m_pool;
};

/// Work whose result is one surface, known byte by byte.
class MakesASurface : public ImageScenario {
public:
    bool Attempt() override {
        ITnRobotSurface* pSurface = nullptr;
        const bool bDone = Make(&pSurface) && pSurface != nullptr;
        m_surface.attach(pSurface);
        return bDone;
    }

    void Check(bool bDone) override {
        EXPECT_EQ(m_surface != nullptr, bDone) << "a failure gives no surface";
        EXPECT_TRUE(bDone || Attempt());
        ASSERT_NE(m_surface, nullptr);
        EXPECT_TRUE(SurfaceBytes(m_surface.get()) == Expected());
        m_surface.reset();
        EXPECT_TRUE(Attempt()) << "and the one that came back serves again";
        EXPECT_TRUE(SurfaceBytes(m_surface.get()) == Expected());
    }

protected:
    /// @return whether the result is that of success.
    virtual bool Make(ITnRobotSurface** ppSurface) = 0;
    virtual Bytes Expected() const { return Picture(); }

private:
    TnRobotPtr<ITnRobotSurface> m_surface;
};

class RecordBecomesASurface : public MakesASurface {
protected:
    bool Make(ITnRobotSurface** ppSurface) override {
        return TnRobotImageUtils::NlImage2Surface(m_image, m_pool.get(), ppSurface) == 0;
    }

private:
    const Bytes m_bytes = Picture();
    const STnNLImageData m_image = Record(TN_IMAGE_BGR24, kWidth, kHeight, m_bytes);
};

/// With a free surface in the pool, which the failure must leave there.
class FreeSurfaceIsReused : public RecordBecomesASurface {
public:
    FreeSurfaceIsReused() { m_pFree = Filled().get(); }

    void Check(bool bDone) override {
        RecordBecomesASurface::Check(bDone);
        const TnRobotPtr<ITnRobotSurface> another = Filled();
        EXPECT_NE(another.get(), m_pFree) << "the free one is in use: it was not lost, and is the only one";
    }

    // The memory of another size than before, which the block pool does not have.
protected:
    bool Make(ITnRobotSurface** ppSurface) override {
        return TnRobotImageUtils::NlImage2Surface(m_large, m_pool.get(), ppSurface) == 0;
    }
    Bytes Expected() const override { return m_bytes; }

private:
    const void* m_pFree = nullptr;
    const Bytes m_bytes = Counting(400 * 300);
    const STnNLImageData m_large = Record(TN_IMAGE_GRAY8, 400, 300, m_bytes);
};

class RegionIsClipped : public MakesASurface {
protected:
    bool Make(ITnRobotSurface** ppSurface) override {
        const STnNLROIRect all = {0, kWidth, 0, kHeight};
        return TnRobotImageUtils::ClipImage(m_pool.get(), m_source.get(), all, ppSurface) == 0;
    }

private:
    TnRobotPtr<ITnRobotSurface> m_source = Filled();
};

class ImagesAreJoined : public MakesASurface {
protected:
    bool Make(ITnRobotSurface** ppSurface) override {
        return TnRobotImageUtils::PieceImage(m_pool.get(), m_first.get(), m_second.get(), ppSurface) == 1;
    }

    Bytes Expected() const override {
        const Bytes bytes = Picture();
        Bytes joined;
        for (auto it = bytes.begin(); it != bytes.end(); it += kPitch) {
            joined.insert(joined.end(), it, it + kPitch);
            joined.insert(joined.end(), it, it + kPitch);
        }
        return joined;
    }

private:
    TnRobotPtr<ITnRobotSurface> m_first = Filled();
    TnRobotPtr<ITnRobotSurface> m_second = Filled();
};

class BmpFileIsLoaded : public MakesASurface {
public:
    BmpFileIsLoaded() { WriteBytes(m_strPath, BmpFile24(kWidth, kHeight, FlipRows(Picture(), kPitch))); }

protected:
    bool Make(ITnRobotSurface** ppSurface) override {
        return TnRobotImageUtils::LoadImage(m_strPath.c_str(), m_pool.get(), ppSurface) == 0;
    }

private:
    const std::string m_strPath = PathOf("loaded.bmp");
};

Bytes MakeJpeg(bool bProgressive) {
    JpegRecipe recipe;
    recipe.nWidth = kWidth;
    recipe.nHeight = kHeight;
    recipe.bProgressive = bProgressive;
    return EncodePlain(recipe, Picture());
}

// Made once: a libjpeg that is not linked statically allocates them without being counted.
const Bytes& Jpeg(bool bProgressive) {
    static const Bytes s_baseline = MakeJpeg(false);
    static const Bytes s_progressive = MakeJpeg(true);
    return bProgressive ? s_progressive : s_baseline;
}

/// A JPEG file, or the same in memory.
class JpegIsLoaded : public MakesASurface {
public:
    JpegIsLoaded(bool bFile, bool bProgressive)
        : m_bFile(bFile), m_jpeg(Jpeg(bProgressive)), m_expected(DecodePlain(m_jpeg, JCS_EXT_BGR, 3).pixels) {
        if (bFile) {
            WriteBytes(m_strPath, m_jpeg);
        }
    }

protected:
    bool Make(ITnRobotSurface** ppSurface) override {
        const auto nLength = static_cast<unsigned int>(m_jpeg.size());
        const int nResult = m_bFile ? TnRobotImageUtils::LoadImage(m_strPath.c_str(), m_pool.get(), ppSurface)
                                    : TnRobotImageUtils::LoadImage(m_jpeg.data(), nLength, m_pool.get(), ppSurface);
        EXPECT_TRUE(nResult == 0 || nResult == -1 || nResult == -2) << nResult;
        return nResult == 0;
    }
    Bytes Expected() const override { return m_expected; }

private:
    const std::string m_strPath = PathOf("loaded.jpg");
    const bool m_bFile;
    const Bytes& m_jpeg;
    const Bytes m_expected;
};

/// What the decoders and encoders hold while they are used directly.
class BmpIsCodedInMemory : public AllocationScenario {
public:
    bool Attempt() override {
        if (!m_encoder.Encode(m_image)) {
            return false;
        }
        unsigned int nSize = 0;
        const unsigned char* pFile = m_encoder.GetEncodeData(nSize);
        return m_decoder.Open(pFile, nSize) && m_decoder.ReadData(TN_IMAGE_GRAY8, m_target.data(), kPixels);
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || Attempt());
        EXPECT_EQ(m_target, FlipRows(m_bytes, kRow)) << "memory keeps the file's order";
    }

private:
    static constexpr unsigned int kRow = 40;
    static constexpr unsigned int kPixels = kRow * 30;
    const Bytes m_bytes = Counting(kPixels);
    const STnNLImageData m_image = Record(TN_IMAGE_GRAY8, kRow, 30, m_bytes);
    CTnBmpEncoder m_encoder;
    CTnBmpDecoder m_decoder;
    Bytes m_target = Bytes(kPixels);
};

class BmpFileIsSaved : public ImageScenario {
public:
    bool Attempt() override { return TnRobotImageUtils::SaveImage(m_strPath.c_str(), &m_image) == 0; }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || Attempt());
        CTnBmpEncoder encoder;
        EXPECT_TRUE(encoder.Encode(m_image));
        unsigned int nSize = 0;
        const unsigned char* pFile = encoder.GetEncodeData(nSize);
        EXPECT_TRUE(ReadBytes(m_strPath) == Bytes(pFile, pFile + nSize));
    }

private:
    const std::string m_strPath = PathOf("saved.bmp");
    const Bytes m_bytes = Counting(400 * 300);
    const STnNLImageData m_image = Record(TN_IMAGE_GRAY8, 400, 300, m_bytes);
};

class JpegFileIsSaved : public ImageScenario {
public:
    JpegFileIsSaved() { WriteBytes(m_strPath, FromText("old")); }

    bool Attempt() override {
        const int nResult = TnRobotImageUtils::SaveImage(m_strPath.c_str(), m_surface.get());
        m_bNotEncoded = nResult == -6;
        EXPECT_TRUE(nResult == 0 || m_bNotEncoded) << nResult;
        return nResult == 0;
    }

    void Check(bool bDone) override {
        if (m_bNotEncoded) {
            EXPECT_EQ(ReadBytes(m_strPath), FromText("old")) << "what cannot be encoded replaces nothing";
        }
        EXPECT_TRUE(bDone || Attempt());
        const JpegPicture picture = DecodePlain(ReadBytes(m_strPath), JCS_EXT_BGR, 3);
        EXPECT_TRUE(picture.bPixels);
        EXPECT_EQ(picture.nWidth, kWidth);
        EXPECT_EQ(picture.nHeight, kHeight);
    }

private:
    const std::string m_strPath = PathOf("saved.jpg");
    TnRobotPtr<ITnRobotSurface> m_surface = Filled();
    bool m_bNotEncoded = false;
};

/// A picture whose JPEG outgrows the room that is reserved for it.
class JpegBlockIsSaved : public ImageScenario {
public:
    bool Attempt() override {
        ITnRobotMemoryBlock* pBlock = nullptr;
        const int nResult = TnRobotImageUtils::SaveImage(m_image, m_blocks.get(), &pBlock);
        m_block.attach(pBlock);
        EXPECT_TRUE(nResult == 0 || nResult == -1 || nResult == -6) << nResult;
        return nResult == 0;
    }

    void Check(bool bDone) override {
        EXPECT_EQ(m_block != nullptr, bDone);
        EXPECT_TRUE(bDone || Attempt());
        ASSERT_NE(m_block, nullptr);
        const Bytes jpeg(DataOf(*m_block), DataOf(*m_block) + SizeOf(*m_block));
        EXPECT_GT(jpeg.size(), m_bytes.size() / 2);
        EXPECT_TRUE(DecodePlain(jpeg, JCS_EXT_BGR, 3).bPixels);
    }

private:
    const Bytes m_bytes = Noise(200 * 100 * 3, 1);
    const STnNLImageData m_image = Record(TN_IMAGE_BGR24, 200, 100, m_bytes);
    HeldBlock m_block;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(
    Image, AllocationFailure,
    testing::Values(MakeCase<RecordBecomesASurface>("RecordBecomesASurface"),
                    MakeCase<FreeSurfaceIsReused>("FreeSurfaceIsReused"), MakeCase<RegionIsClipped>("RegionIsClipped"),
                    MakeCase<ImagesAreJoined>("ImagesAreJoined"), MakeCase<BmpFileIsLoaded>("BmpFileIsLoaded"),
                    MakeCase<BmpIsCodedInMemory>("BmpIsCodedInMemory"), MakeCase<BmpFileIsSaved>("BmpFileIsSaved"),
                    MakeCase<JpegIsLoaded>("JpegFileIsLoaded", true, false),
                    MakeCase<JpegIsLoaded>("JpegInMemoryIsLoaded", false, false),
                    MakeCase<JpegIsLoaded>("ProgressiveJpegIsLoaded", false, true),
                    MakeCase<JpegFileIsSaved>("JpegFileIsSaved"), MakeCase<JpegBlockIsSaved>("JpegBlockIsSaved")),
    AllocationCaseName);

#ifdef TNROBOT_TEST_REFUSES_LIBJPEG
TEST(RefusedAllocations, ReachLibjpeg) {
    const Bytes jpeg = EncodePlain({}, Noise(16 * 16 * 3, 1));
    CTnJpegDecoder decoder;
    {
        const RefusedAllocations refused(2, Refuse::kOne, Threads::kCalling);  // the first is the decoder's own
        EXPECT_FALSE(decoder.Open(jpeg.data(), static_cast<unsigned int>(jpeg.size())));
        EXPECT_EQ(refused.Count(), 1);
    }
    EXPECT_TRUE(decoder.Open(jpeg.data(), static_cast<unsigned int>(jpeg.size())));
}
#endif

}  // namespace tntest
