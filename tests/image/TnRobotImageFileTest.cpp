// Loading and saving pictures.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>

#include "TnRobotKernel/image.h"
#include "support/bytes/BmpBytes.h"
#include "support/bytes/FileBytes.h"
#include "support/bytes/PlainJpeg.h"
#include "support/fakes/TestSurfaces.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

using Utils = TnRobotImageUtils;

ITnRobotSurface* Untouched() {
    static int s_nObject;
    return reinterpret_cast<ITnRobotSurface*>(&s_nObject);
}

ITnRobotMemoryBlock* UntouchedBlock() {
    static int s_nObject;
    return reinterpret_cast<ITnRobotMemoryBlock*>(&s_nObject);
}

std::size_t Pitch24(int nWidth) {
    return (static_cast<std::size_t>(nWidth) * 3 + 3) / 4 * 4;
}

// What a loaded picture's surface must hold: rows at the pitch, padding zero.
Bytes AsSurface(const JpegPicture& picture) {
    const std::size_t nRow = static_cast<std::size_t>(picture.nWidth) * 3;
    return Repitch(picture.pixels, nRow, nRow, Pitch24(picture.nWidth), static_cast<std::size_t>(picture.nHeight));
}

Bytes BlockBytes(ITnRobotMemoryBlock* pBlock) {
    unsigned int nSize = 0;
    const unsigned char* pData = pBlock->QueryMemory(nSize);
    return Bytes(pData, pData + nSize);
}

class ImageFiles : public testing::Test {
protected:
    // Loads a file of this name and content.
    int Load(const std::string& name, const Bytes& bytes, TnRobotPtr<ITnRobotSurface>* pLoaded = nullptr) {
        const std::string path = m_directory / name;
        WriteBytes(path, bytes);
        return LoadPath(path, pLoaded);
    }

    int LoadPath(const std::string& path, TnRobotPtr<ITnRobotSurface>* pLoaded = nullptr) {
        ITnRobotSurface* pSurface = Untouched();
        testing::internal::CaptureStderr();
        const int nResult = Utils::LoadImage(path.c_str(), m_source.pool.get(), &pSurface);
        testing::internal::GetCapturedStderr();
        if (nResult != 0) {
            EXPECT_EQ(pSurface, Untouched());
            return nResult;
        }
        auto surface = tn::Adopt(pSurface);
        if (pLoaded != nullptr) {
            *pLoaded = std::move(surface);
        }
        return nResult;
    }

    int LoadMemory(const Bytes& bytes, TnRobotPtr<ITnRobotSurface>* pLoaded = nullptr) {
        const Bytes exact(bytes);
        ITnRobotSurface* pSurface = Untouched();
        testing::internal::CaptureStderr();
        const int nResult =
            Utils::LoadImage(exact.data(), static_cast<unsigned int>(exact.size()), m_source.pool.get(), &pSurface);
        testing::internal::GetCapturedStderr();
        if (nResult != 0) {
            EXPECT_EQ(pSurface, Untouched());
            return nResult;
        }
        auto surface = tn::Adopt(pSurface);
        if (pLoaded != nullptr) {
            *pLoaded = std::move(surface);
        }
        return nResult;
    }

    TempDirectory m_directory;
    SurfaceSource m_source;
};

Bytes SmallBmp() {
    return BmpFile24(4, 2, Counting(24));
}

Bytes SmallJpeg(int nWidth = 13, int nHeight = 9) {
    JpegRecipe recipe;
    recipe.nWidth = nWidth;
    recipe.nHeight = nHeight;
    return EncodePlain(recipe, Noise(static_cast<std::size_t>(nWidth * nHeight) * 3, 11));
}

struct NamedRecipe {
    const char* lpszName;
    JpegRecipe recipe;
};

std::vector<NamedRecipe> Recipes() {
    std::vector<NamedRecipe> recipes;
    JpegRecipe recipe;
    recipes.push_back({"4:4:4", recipe});
    recipe.nSampling = 2;
    recipes.push_back({"4:2:0", recipe});
    recipe.bProgressive = true;
    recipes.push_back({"progressive 4:2:0", recipe});
    recipe.nSampling = 1;
    recipes.push_back({"progressive 4:4:4", recipe});
    recipe = {};
    recipe.eInput = JCS_GRAYSCALE;
    recipe.nComponents = 1;
    recipes.push_back({"grey", recipe});
    recipe.bProgressive = true;
    recipes.push_back({"progressive grey", recipe});
    recipe = {};
    recipe.eStored = JCS_RGB;
    recipes.push_back({"stored as RGB", recipe});
    recipe = {};
    recipe.nSampling = 2;
    recipe.nRestartRows = 1;
    recipes.push_back({"with restarts", recipe});
    recipe = {};
    recipe.nQuality = 1;
    recipes.push_back({"quality 1", recipe});
    recipe.nQuality = 100;
    recipes.push_back({"quality 100", recipe});
    return recipes;
}

}  // namespace

// ---- choosing the decoder

TEST_F(ImageFiles, TheEndingChoosesTheDecoder) {
    const Bytes bmp = SmallBmp();
    const Bytes jpeg = SmallJpeg();
    for (const char* lpszName : {"a.bmp", "a.BMP", "a.bMp", ".bmp", "a.jpg.bmp", "b mp.bmp"}) {
        EXPECT_EQ(Load(lpszName, bmp), 0) << lpszName;
        EXPECT_EQ(Load(lpszName, jpeg), -1) << lpszName << ": contents are not looked at";
    }
    for (const char* lpszName : {"a.jpg", "a.JPG", "a.jPg", ".jpg", "a.bmp.jpg"}) {
        EXPECT_EQ(Load(lpszName, jpeg), 0) << lpszName;
        EXPECT_EQ(Load(lpszName, bmp), -1) << lpszName << ": contents are not looked at";
    }
    for (const char* lpszName : {"a.jpeg", "a.png", "abmp", "ajpg", "a.bmp ", "a.bmp.", "bmp", "a.b", "a.jpgx"}) {
        EXPECT_EQ(Load(lpszName, bmp), -1) << lpszName;
        EXPECT_EQ(Load(lpszName, jpeg), -1) << lpszName;
    }
}

TEST_F(ImageFiles, ShortPathsAreRefused) {
    for (const char* lpszPath : {"", "a", "ab", "jpg", "bmp", ".jp"}) {
        EXPECT_EQ(LoadPath(lpszPath), -1) << lpszPath;
    }
    EXPECT_EQ(LoadPath(".jpg"), -1) << "long enough, but not there";
    EXPECT_EQ(LoadPath(".bmp"), -1);
    EXPECT_TRUE(m_source.blocks->Requests().empty());
}

TEST_F(ImageFiles, MissingArgumentsAreRefused) {
    const std::string path = m_directory / "a.bmp";
    WriteBytes(path, SmallBmp());
    ITnRobotSurface* pSurface = Untouched();
    EXPECT_EQ(Utils::LoadImage(static_cast<const char*>(nullptr), m_source.pool.get(), &pSurface), -1);
    EXPECT_EQ(Utils::LoadImage(path.c_str(), nullptr, &pSurface), -1);
    EXPECT_EQ(Utils::LoadImage(path.c_str(), m_source.pool.get(), nullptr), -1);
    const Bytes jpeg = SmallJpeg();
    const auto nSize = static_cast<unsigned int>(jpeg.size());
    EXPECT_EQ(Utils::LoadImage(nullptr, 100, m_source.pool.get(), &pSurface), -1);
    EXPECT_EQ(Utils::LoadImage(jpeg.data(), 0, m_source.pool.get(), &pSurface), -1);
    EXPECT_EQ(Utils::LoadImage(jpeg.data(), nSize, nullptr, &pSurface), -1);
    EXPECT_EQ(Utils::LoadImage(jpeg.data(), nSize, m_source.pool.get(), nullptr), -1);
    EXPECT_EQ(Utils::LoadImage(static_cast<ITnRobotMemoryBlock*>(nullptr), m_source.pool.get(), &pSurface), -1);
    EXPECT_EQ(pSurface, Untouched());
    EXPECT_EQ(TestBlock::LiveCount(), 0);
}

TEST_F(ImageFiles, FilesThatCannotBeOpenedAreRefused) {
    for (const char* lpszEnding : {".bmp", ".jpg"}) {
        const std::string ending = lpszEnding;
        EXPECT_EQ(LoadPath(m_directory / ("none" + ending)), -1);
        EXPECT_EQ(LoadPath(m_directory / ("none/none" + ending)), -1);
        EXPECT_EQ(Load("empty" + ending, {}), -1);
        const std::string directory = m_directory / ("directory" + ending);
        ASSERT_TRUE(std::filesystem::create_directory(directory));
        EXPECT_EQ(LoadPath(directory), -1);
        const std::string loop = m_directory / ("loop" + ending);
        std::filesystem::create_symlink(loop, loop);
        EXPECT_EQ(LoadPath(loop), -1);
        if (geteuid() != 0) {
            const std::string locked = m_directory / ("locked" + ending);
            WriteBytes(locked, ending == ".bmp" ? SmallBmp() : SmallJpeg());
            ASSERT_EQ(chmod(locked.c_str(), 0), 0);
            EXPECT_EQ(LoadPath(locked), -1);
        }
        const std::string endless = m_directory / ("endless" + ending);
        std::filesystem::create_symlink("/dev/zero", endless);
        EXPECT_EQ(LoadPath(endless), -1) << "a file without an end";
        const std::string pipe = m_directory / ("pipe" + ending);
        ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        EXPECT_EQ(LoadPath(pipe), -1) << "a pipe that nobody writes to";
    }
}

// ---- BMP files

TEST_F(ImageFiles, ABmpLoadsWithItsTopRowFirst) {
    TnRobotPtr<ITnRobotSurface> surface;
    ASSERT_EQ(Load("a.bmp", BmpFile24(4, 2, Counting(12, 1) + Counting(12, 101)), &surface), 0);
    const Desc desc = DescOf(surface.get());
    EXPECT_EQ(desc.nWidth, 4);
    EXPECT_EQ(desc.nHeight, 2);
    EXPECT_EQ(desc.nPitch, 12);
    EXPECT_EQ(desc.eImageType, TN_IMAGE_BGR24);
    EXPECT_EQ(desc.oriPos.x, 0);
    EXPECT_EQ(desc.oriPos.y, 0);
    EXPECT_EQ(SurfaceBytes(surface.get()), Counting(12, 101) + Counting(12, 1));
}

// Rows of such a file are shorter than the surface's: they follow each other without a gap, and what
// the file does not fill is zero.
TEST_F(ImageFiles, ABmpWithOddRowsFillsTheSurfaceFromTheFront) {
    const Bytes pixels = Counting(15 * 3);
    TnRobotPtr<ITnRobotSurface> surface;
    ASSERT_EQ(Load("a.bmp", BmpFile24(5, 3, pixels), &surface), 0);
    EXPECT_EQ(SurfaceBytes(surface.get()), FlipRows(pixels, 15) + Bytes(3, 0));
}

TEST_F(ImageFiles, ABmpThatFillsPartOfTheSurfaceLeavesZero) {
    BmpFields f;
    f.nWidth = 4;
    f.nHeight = 100;
    f.nImageSize = 24;
    const Bytes pixels = Counting(24);
    TnRobotPtr<ITnRobotSurface> surface;
    ASSERT_EQ(Load("a.bmp", BmpFile(f, pixels), &surface), 0);
    EXPECT_EQ(SurfaceBytes(surface.get()), FlipRows(pixels, 12) + Bytes(98 * 12, 0));
}

TEST_F(ImageFiles, ABmpWithPaddedRowsIsRefused) {
    for (const int nSize : {1, 2, 3, 5, 27, 127, 255}) {
        const Bytes padded = Counting(Pitch24(nSize) * static_cast<std::size_t>(nSize));
        BmpFields f;
        f.nWidth = nSize;
        f.nHeight = nSize;
        EXPECT_EQ(Load("open.bmp", BmpFile(f, padded)), -1) << nSize << ", size left open";
        f.nImageSize = static_cast<std::uint32_t>(padded.size());
        EXPECT_EQ(Load("given.bmp", BmpFile(f, padded)), -1) << nSize;
    }
}

// A camera's rows without padding, which no other program reads.
TEST_F(ImageFiles, ABmpOfAPackedRecordComesBack) {
    for (const int nSize : {1, 2, 3, 5, 27}) {
        const Bytes packed = Noise(static_cast<std::size_t>(nSize * nSize) * 3, 21);
        const STnNLImageData image = Record(TN_IMAGE_BGR24, nSize, nSize, packed);
        const std::string path = m_directory / "packed.bmp";
        ASSERT_EQ(Utils::SaveImage(path.c_str(), &image), 0);
        TnRobotPtr<ITnRobotSurface> surface;
        ASSERT_EQ(LoadPath(path, &surface), 0) << nSize;
        Bytes loaded = SurfaceBytes(surface.get());
        loaded.resize(packed.size());
        EXPECT_EQ(loaded, packed) << nSize;
    }
}

TEST_F(ImageFiles, ABmpWithMoreRowsThanItsHeightCannotBeRead) {
    BmpFields f;
    f.nWidth = 4;
    f.nHeight = 1;
    f.nImageSize = 24;
    EXPECT_EQ(Load("a.bmp", BmpFile(f, Counting(24))), -2);
}

TEST_F(ImageFiles, OnlyBmpsOf24BitsCanBeRead) {
    const struct {
        unsigned int nBits;
        int nResult;
    } rows[] = {{0, -1}, {1, -1}, {4, -1},  {7, -1},  {8, -2},    {16, -2},
                {24, 0}, {31, 0}, {32, -2}, {48, -2}, {65535, -1}};
    for (const auto& row : rows) {
        for (const bool bSizeGiven : {true, false}) {
            BmpFields f;
            f.nWidth = 4;
            f.nHeight = 2;
            f.nBitsPerPixel = row.nBits;
            const std::size_t nSize = row.nBits < 8 || row.nBits == 65535 ? 24 : std::size_t{row.nBits} / 8 * 8;
            f.nImageSize = bSizeGiven ? static_cast<std::uint32_t>(nSize) : 0;
            EXPECT_EQ(Load("a.bmp", BmpFile(f, Counting(nSize))), row.nResult)
                << row.nBits << " bits, size " << (bSizeGiven ? "given" : "left open");
        }
    }
}

TEST_F(ImageFiles, BmpsWithoutColumnsOrRowsAreRefused) {
    const struct {
        int nWidth;
        int nHeight;
        std::uint32_t nImageSize;
    } rows[] = {{0, 2, 24},  {0, 2, 0},  {-4, 2, 24},  {-4, 2, 0},  {4, 0, 24}, {4, 0, 0},
                {4, -2, 24}, {4, -2, 0}, {-4, -2, 24}, {-4, -2, 0}, {0, 0, 0}};
    for (const auto& row : rows) {
        BmpFields f;
        f.nWidth = row.nWidth;
        f.nHeight = row.nHeight;
        f.nImageSize = row.nImageSize;
        EXPECT_EQ(Load("a.bmp", BmpFile(f, Counting(24))), -1)
            << row.nWidth << " x " << row.nHeight << ", " << row.nImageSize;
    }
}

TEST_F(ImageFiles, ABmpNeedsASurface) {
    m_source.blocks->Refuse();
    EXPECT_EQ(Load("a.bmp", SmallBmp()), -1);
    m_source.blocks->Refuse(false);
    EXPECT_EQ(Load("a.bmp", SmallBmp()), 0);
}

// A free surface comes even for a size that cannot be met; it has no pixels.
TEST_F(ImageFiles, ASurfaceWithoutPixelsIsNotFilled) {
    BmpFields f;
    f.nWidth = 4;
    f.nHeight = 0;
    f.nImageSize = 24;
    m_source.Get(TN_IMAGE_BGR24, 8, 8).reset();
    EXPECT_LT(Load("a.bmp", BmpFile(f, Counting(24))), 0);
    m_source.blocks->Refuse();
    EXPECT_LT(Load("a.bmp", SmallBmp()), 0);
    EXPECT_LT(Load("a.jpg", SmallJpeg()), 0);
    m_source.blocks->Refuse(false);
    EXPECT_EQ(Load("a.bmp", SmallBmp()), 0);
    EXPECT_EQ(TestBlock::LiveCount(), 0);
}

// ---- JPEG pictures

TEST_F(ImageFiles, JpegsLoadAsPlainLibjpegDecodesThem) {
    for (const NamedRecipe& named : Recipes()) {
        for (int nHeight = 1; nHeight <= 17; nHeight += (nHeight == 1 ? 1 : 5)) {
            for (int nWidth = 1; nWidth <= 17; ++nWidth) {
                JpegRecipe recipe = named.recipe;
                recipe.nWidth = nWidth;
                recipe.nHeight = nHeight;
                const Bytes jpeg =
                    EncodePlain(recipe, Noise(static_cast<std::size_t>(nWidth * nHeight * recipe.nComponents), 12));
                const JpegPicture expected = DecodePlain(jpeg, JCS_EXT_BGR, 3);
                ASSERT_TRUE(expected.bPixels);
                TnRobotPtr<ITnRobotSurface> surface;
                ASSERT_EQ(LoadMemory(jpeg, &surface), 0) << named.lpszName;
                const Desc desc = DescOf(surface.get());
                EXPECT_EQ(desc.nWidth, nWidth);
                EXPECT_EQ(desc.nHeight, nHeight);
                EXPECT_EQ(desc.eImageType, TN_IMAGE_BGR24);
                EXPECT_EQ(desc.oriPos.x, 0);
                EXPECT_EQ(desc.oriPos.y, 0);
                EXPECT_EQ(SurfaceBytes(surface.get()), AsSurface(expected))
                    << named.lpszName << ", " << nWidth << " x " << nHeight;
            }
        }
    }
}

TEST_F(ImageFiles, LargeJpegsLoadAsPlainLibjpegDecodesThem) {
    constexpr int kWidth = 643;
    constexpr int kHeight = 487;
    for (const NamedRecipe& named : Recipes()) {
        JpegRecipe recipe = named.recipe;
        recipe.nWidth = kWidth;
        recipe.nHeight = kHeight;
        const Bytes jpeg =
            EncodePlain(recipe, SmoothPicture(kWidth, kHeight, recipe.nComponents, kWidth * recipe.nComponents));
        TnRobotPtr<ITnRobotSurface> surface;
        ASSERT_EQ(LoadMemory(jpeg, &surface), 0) << named.lpszName;
        EXPECT_TRUE(SurfaceBytes(surface.get()) == AsSurface(DecodePlain(jpeg, JCS_EXT_BGR, 3))) << named.lpszName;
    }
}

// Thirty million pixels in ten scans of hardly a byte each: no more than what a modest picture may take.
TEST_F(ImageFiles, ALargeProgressiveJpegOfOneColourLoads) {
    JpegRecipe recipe;
    recipe.nWidth = 6000;
    recipe.nHeight = 5000;
    recipe.bProgressive = true;
    const std::size_t nSize = static_cast<std::size_t>(recipe.nWidth) * static_cast<std::size_t>(recipe.nHeight) * 3;
    const Bytes jpeg = EncodePlain(recipe, Bytes(nSize, 128));
    TnRobotPtr<ITnRobotSurface> surface;
    ASSERT_EQ(LoadMemory(jpeg, &surface), 0);
    EXPECT_TRUE(SurfaceBytes(surface.get()) == Bytes(nSize, 128));
}

// A process without standard input gets number 0 for the file that it opens next, which is one like another.
TEST_F(ImageFiles, AFileMayHaveTheNumberOfStandardInput) {
    const Bytes jpeg = SmallJpeg();
    const int nInput = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    TnRobotPtr<ITnRobotSurface> surface;
    EXPECT_EQ(Load("a.jpg", jpeg, &surface), 0);
    EXPECT_LT(dup2(STDIN_FILENO, STDIN_FILENO), 0) << "the file is still open";
    if (nInput >= 0) {
        dup2(nInput, STDIN_FILENO);
        close(nInput);
    }
}

TEST_F(ImageFiles, AJpegLoadsAlikeFromFileMemoryAndBlock) {
    const Bytes jpeg = SmallJpeg();
    const Bytes expected = AsSurface(DecodePlain(jpeg, JCS_EXT_BGR, 3));
    TnRobotPtr<ITnRobotSurface> surface;
    ASSERT_EQ(Load("a.jpg", jpeg, &surface), 0);
    EXPECT_EQ(SurfaceBytes(surface.get()), expected);
    ASSERT_EQ(LoadMemory(jpeg, &surface), 0);
    EXPECT_EQ(SurfaceBytes(surface.get()), expected);
    ITnRobotMemoryBlock* pBlock = nullptr;
    Bytes own(jpeg);
    ASSERT_EQ(TnCreateRobotCustomMemBlock(nullptr, own.data(), static_cast<unsigned int>(own.size()), &pBlock), 1);
    ITnRobotSurface* pSurface = nullptr;
    ASSERT_EQ(Utils::LoadImage(pBlock, m_source.pool.get(), &pSurface), 0);
    surface = tn::Adopt(pSurface);
    EXPECT_EQ(pBlock->Release(), 0) << "no reference is kept";
    EXPECT_EQ(SurfaceBytes(surface.get()), expected);
}

TEST_F(ImageFiles, ABlockWithoutBytesIsRefused) {
    ITnRobotMemoryBlock* pBlock = nullptr;
    ASSERT_EQ(TnCreateRobotCustomMemBlock(nullptr, nullptr, 0, &pBlock), 1);
    const auto block = tn::Adopt(pBlock);
    ITnRobotSurface* pSurface = Untouched();
    EXPECT_EQ(Utils::LoadImage(pBlock, m_source.pool.get(), &pSurface), -1);
    EXPECT_EQ(pSurface, Untouched());
}

TEST_F(ImageFiles, MemoryIsAlwaysTakenAsJpeg) {
    EXPECT_EQ(LoadMemory(SmallBmp()), -1);
}

TEST_F(ImageFiles, AJpegNeedsASurface) {
    m_source.blocks->Refuse();
    EXPECT_EQ(LoadMemory(SmallJpeg()), -1);
    EXPECT_EQ(Load("a.jpg", SmallJpeg()), -1);
}

TEST_F(ImageFiles, AFailedLoadGivesItsSurfaceBack) {
    JpegRecipe recipe;
    recipe.eInput = JCS_CMYK;
    recipe.nComponents = 4;
    const Bytes cmyk = EncodePlain(recipe, Noise(1024, 13));
    EXPECT_EQ(LoadMemory(cmyk), -2);
    EXPECT_EQ(Load("a.jpg", cmyk), -2);
    recipe.eStored = JCS_YCCK;
    EXPECT_EQ(LoadMemory(EncodePlain(recipe, Noise(1024, 13))), -2);
    EXPECT_EQ(TestBlock::LiveCount(), 0);
    EXPECT_NE(m_source.Get(TN_IMAGE_NONE, 1, 1), nullptr) << "a surface is on the free list";
}

// ---- saving to files

TEST_F(ImageFiles, TheEndingChoosesTheEncoder) {
    const Bytes grey = Counting(16);
    const STnNLImageData image = Record(TN_IMAGE_GRAY8, 4, 4, grey);
    for (const char* lpszName : {"a.jpg", "a.JPG", "a.jPg", ".jpg"}) {
        ASSERT_EQ(Utils::SaveImage((m_directory / lpszName).c_str(), &image), 0);
        EXPECT_EQ(ReadFacts(ReadBytes(m_directory / lpszName)).eStored, JCS_GRAYSCALE) << lpszName;
    }
    for (const char* lpszName : {"a.bmp", "a.BMP", "a.bMp", ".bmp"}) {
        ASSERT_EQ(Utils::SaveImage((m_directory / lpszName).c_str(), &image), 0);
        EXPECT_EQ(ReadBytes(m_directory / lpszName).size(), 1078U + 16U) << lpszName;
    }
    // Nothing is written, and that is a success.
    for (const char* lpszName : {"a.png", "a.jpeg", "ajpg", "abmp", "a.bmp ", "four"}) {
        EXPECT_EQ(Utils::SaveImage((m_directory / lpszName).c_str(), &image), 0) << lpszName;
        EXPECT_FALSE(std::filesystem::exists(m_directory / lpszName)) << lpszName;
    }
}

TEST_F(ImageFiles, SavingNeedsARecordAndAPath) {
    const Bytes grey = Counting(16);
    const STnNLImageData image = Record(TN_IMAGE_GRAY8, 4, 4, grey);
    const auto surface = m_source.Filled(TN_IMAGE_GRAY8, 4, 4, grey);
    const std::string path = m_directory / "a.jpg";
    EXPECT_EQ(Utils::SaveImage(static_cast<const char*>(nullptr), &image), -1);
    EXPECT_EQ(Utils::SaveImage(path.c_str(), static_cast<const STnNLImageData*>(nullptr)), -1);
    EXPECT_EQ(Utils::SaveImage(static_cast<const char*>(nullptr), surface.get()), -1);
    EXPECT_EQ(Utils::SaveImage(path.c_str(), static_cast<ITnRobotSurface*>(nullptr)), -1);
    for (const char* lpszPath : {"", "a", "jpg", ".bm"}) {
        EXPECT_EQ(Utils::SaveImage(lpszPath, &image), -1) << lpszPath;
        EXPECT_EQ(Utils::SaveImage(lpszPath, surface.get()), -1) << lpszPath;
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(ImageFiles, AFileThatCannotBeWrittenIsNoFailure) {
    const Bytes grey = Counting(16);
    const STnNLImageData image = Record(TN_IMAGE_GRAY8, 4, 4, grey);
    for (const char* lpszEnding : {".jpg", ".bmp"}) {
        const std::string ending = lpszEnding;
        EXPECT_EQ(Utils::SaveImage((m_directory / ("none/a" + ending)).c_str(), &image), 0);
        const std::string directory = m_directory / ("directory" + ending);
        ASSERT_TRUE(std::filesystem::create_directory(directory));
        EXPECT_EQ(Utils::SaveImage(directory.c_str(), &image), 0);
        EXPECT_TRUE(std::filesystem::is_directory(directory));
        const std::string full = m_directory / ("full" + ending);
        std::filesystem::create_symlink("/dev/full", full);
        EXPECT_EQ(Utils::SaveImage(full.c_str(), &image), 0) << "no room on the disk";
    }
}

TEST_F(ImageFiles, APictureThatCannotBeEncodedLeavesTheOldFile) {
    const Bytes bytes = Counting(64);
    const std::string path = m_directory / "a.jpg";
    WriteBytes(path, FromText("old"));
    for (const int nType : {0, 8, 10}) {
        const STnNLImageData image = Record(static_cast<ETnNLImageType>(nType), 4, 4, bytes);
        EXPECT_EQ(Utils::SaveImage(path.c_str(), &image), -6) << nType;
    }
    const STnNLImageData tooSmall = Record(TN_IMAGE_BGRX32, 4, 5, bytes);
    EXPECT_EQ(Utils::SaveImage(path.c_str(), &tooSmall), -6);
    EXPECT_EQ(ReadBytes(path), FromText("old"));
}

TEST_F(ImageFiles, SavingReplacesALongerFile) {
    const Bytes grey = Counting(16);
    const STnNLImageData image = Record(TN_IMAGE_GRAY8, 4, 4, grey);
    for (const char* lpszName : {"a.jpg", "a.bmp"}) {
        const std::string path = m_directory / lpszName;
        ASSERT_EQ(Utils::SaveImage(path.c_str(), &image), 0);
        const Bytes fresh = ReadBytes(path);
        WriteBytes(path, Noise(100000, 14));
        ASSERT_EQ(Utils::SaveImage(path.c_str(), &image), 0);
        EXPECT_EQ(ReadBytes(path), fresh);
    }
}

TEST_F(ImageFiles, AJpegIsWhatPlainLibjpegWritesAtQuality95) {
    const Bytes pixels = Noise(16 * 7, 15);
    const auto surface = m_source.Filled(TN_IMAGE_BGR24, 5, 7, pixels);
    JpegRecipe recipe;
    recipe.nWidth = 5;
    recipe.nHeight = 7;
    recipe.nQuality = 95;
    const Bytes expected = EncodePlain(recipe, Repitch(pixels, 15, 16, 15, 7));
    const std::string path = m_directory / "a.jpg";
    ASSERT_EQ(Utils::SaveImage(path.c_str(), surface.get()), 0);
    EXPECT_TRUE(ReadBytes(path) == expected);
    const STnNLImageData image = Record(TN_IMAGE_BGR24, 5, 7, pixels);
    ASSERT_EQ(Utils::SaveImage(path.c_str(), &image), 0);
    EXPECT_TRUE(ReadBytes(path) == expected);
    ITnRobotMemoryBlock* pBlock = nullptr;
    ASSERT_EQ(Utils::SaveImage(image, m_source.blocks.get(), &pBlock), 0);
    EXPECT_TRUE(BlockBytes(tn::Adopt(pBlock).get()) == expected);
    ASSERT_EQ(Utils::SaveImage(surface.get(), m_source.blocks.get(), &pBlock), 0);
    EXPECT_TRUE(BlockBytes(tn::Adopt(pBlock).get()) == expected);
}

TEST_F(ImageFiles, GreySurfacesOfAnyWidthSaveAsJpeg) {
    for (const int nWidth : {1, 3, 4, 5, 13}) {
        const Bytes pixels = Noise(static_cast<std::size_t>(nWidth) * 9, 16);
        JpegRecipe recipe;
        recipe.nWidth = nWidth;
        recipe.nHeight = 9;
        recipe.eInput = JCS_GRAYSCALE;
        recipe.nComponents = 1;
        recipe.nQuality = 95;
        const auto surface = m_source.Filled(TN_IMAGE_GRAY8, nWidth, 9, pixels);
        ITnRobotMemoryBlock* pBlock = nullptr;
        ASSERT_EQ(Utils::SaveImage(surface.get(), m_source.blocks.get(), &pBlock), 0);
        EXPECT_TRUE(BlockBytes(tn::Adopt(pBlock).get()) == EncodePlain(recipe, pixels)) << nWidth;
    }
}

// Pools may hand out larger blocks than they are asked for: the size does not tell the pitch.
TEST_F(ImageFiles, SurfacesInLargerBlocksSaveAsTheyAre) {
    for (const ETnNLImageType eType : {TN_IMAGE_8BIT_3, TN_IMAGE_GRAY8, TN_IMAGE_BGR24, TN_IMAGE_BGRX32}) {
        for (const int nWidth : {1, 5, 13, 16}) {
            constexpr int kHeight = 9;
            const int nRow = nWidth * (eType == TN_IMAGE_BGRX32 ? 4 : eType == TN_IMAGE_BGR24 ? 3 : 1);
            const int nPitch = eType == TN_IMAGE_BGR24 ? (nRow + 3) / 4 * 4 : nRow;
            const Bytes pixels = Noise(static_cast<std::size_t>(nPitch * kHeight), 22);
            const auto exact = TestSurface::Create(Desc{nWidth, kHeight, nPitch, eType, {0, 0}}, pixels);
            const auto large = TestSurface::Create(Desc{nWidth, kHeight, nPitch, eType, {0, 0}}, pixels + Bytes(4096));
            const std::string path = m_directory / "a.jpg";
            ITnRobotMemoryBlock* pBlock = nullptr;
            ASSERT_EQ(Utils::SaveImage(exact.get(), m_source.blocks.get(), &pBlock), 0);
            const Bytes expected = BlockBytes(tn::Adopt(pBlock).get());
            ASSERT_EQ(Utils::SaveImage(large.get(), m_source.blocks.get(), &pBlock), 0);
            EXPECT_TRUE(BlockBytes(tn::Adopt(pBlock).get()) == expected) << eType << ", width " << nWidth;
            ASSERT_EQ(Utils::SaveImage(path.c_str(), large.get()), 0);
            EXPECT_TRUE(ReadBytes(path) == expected) << eType << ", width " << nWidth << ", file";
        }
    }
}

TEST_F(ImageFiles, AColourBmpComesBackAsItWas) {
    constexpr int kWidth = 8;
    constexpr int kHeight = 5;
    constexpr std::uint32_t kTable = 4U << 24;
    const Bytes pixels = Noise(24 * kHeight, 17);
    const auto surface = m_source.Filled(TN_IMAGE_BGR24, kWidth, kHeight, pixels);
    const std::string path = m_directory / "a.bmp";
    ASSERT_EQ(Utils::SaveImage(path.c_str(), surface.get()), 0);
    const Bytes file = ReadBytes(path);
    BmpFields f;
    f.nFileSize = 54 + kTable + 120;
    f.nDataOffset = 54 + kTable;
    f.nWidth = kWidth;
    f.nHeight = kHeight;
    f.nImageSize = 120;
    f.nColours = 1U << 24;
    ASSERT_EQ(file.size(), f.nFileSize);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 54), BmpHeader(f));
    std::size_t nWrong = 0;
    for (std::size_t i = 0; i < kTable; ++i) {
        nWrong += file[54 + i] == static_cast<unsigned char>(i / 4) ? 0 : 1;
    }
    EXPECT_EQ(nWrong, 0U);
    EXPECT_EQ(Bytes(file.end() - 120, file.end()), FlipRows(pixels, 24));
    TnRobotPtr<ITnRobotSurface> loaded;
    ASSERT_EQ(LoadPath(path, &loaded), 0);
    EXPECT_EQ(SurfaceBytes(loaded.get()), pixels);
}

// The encoder counts unpadded rows from the end of the data, padding and all.
TEST_F(ImageFiles, ABmpOfAPaddedSurfaceIsSkewed) {
    const Bytes pixels = Counting(32);
    const auto surface = m_source.Filled(TN_IMAGE_BGR24, 5, 2, pixels);
    const std::string path = m_directory / "a.bmp";
    ASSERT_EQ(Utils::SaveImage(path.c_str(), surface.get()), 0);
    const Bytes file = ReadBytes(path);
    ASSERT_EQ(file.size(), 54U + (4U << 24) + 32U);
    EXPECT_EQ(Bytes(file.end() - 32, file.end()), Counting(15, 18) + Counting(15, 3) + Bytes(2, 0));
}

TEST_F(ImageFiles, OtherFormatsSaveAsBmp) {
    const struct {
        ETnNLImageType eType;
        int nPitch;
        unsigned int nBits;
        std::uint32_t nEntries;
        std::size_t nRow;
    } rows[] = {{TN_IMAGE_8BIT_3, 4, 8, 256, 4},
                {TN_IMAGE_GRAY8, 4, 8, 256, 4},
                {TN_IMAGE_BGRX32, 16, 32, 1, 16},
                {TN_IMAGE_420, 6, 0, 1, 0}};
    for (const auto& row : rows) {
        const Bytes pixels = Counting(static_cast<std::size_t>(row.nPitch) * 2);
        const auto surface = m_source.Filled(row.eType, 4, 2, pixels);
        const std::string path = m_directory / "a.bmp";
        ASSERT_EQ(Utils::SaveImage(path.c_str(), surface.get()), 0);
        BmpFields f;
        f.nImageSize = static_cast<std::uint32_t>(pixels.size());
        f.nDataOffset = 54 + 4 * row.nEntries;
        f.nFileSize = f.nDataOffset + f.nImageSize;
        f.nWidth = 4;
        f.nHeight = 2;
        f.nBitsPerPixel = row.nBits;
        f.nColours = row.nEntries;
        Bytes expected = BmpHeader(f);
        for (std::uint32_t i = 0; i < row.nEntries; ++i) {
            expected = expected + Bytes(4, static_cast<unsigned char>(i));
        }
        expected = expected + (row.nRow == 0 ? Bytes(pixels.size(), 0) : FlipRows(pixels, row.nRow));
        EXPECT_EQ(ReadBytes(path), expected) << row.eType;
    }
}

TEST_F(ImageFiles, ASurfaceThatCannotBeLockedIsAnEmptyRecord) {
    const auto surface = TestSurface::Create(MakeDesc(TN_IMAGE_BGR24, 4, 4), Bytes(48));
    surface->RefuseLocks();
    EXPECT_EQ(Utils::SaveImage((m_directory / "a.jpg").c_str(), surface.get()), -6);
    ITnRobotMemoryBlock* pBlock = UntouchedBlock();
    EXPECT_EQ(Utils::SaveImage(surface.get(), m_source.blocks.get(), &pBlock), -6);
    EXPECT_EQ(pBlock, UntouchedBlock());
    ASSERT_EQ(Utils::SaveImage((m_directory / "a.bmp").c_str(), surface.get()), 0);
    BmpFields f;
    f.nFileSize = 58;
    f.nDataOffset = 58;
    f.nBitsPerPixel = 0;
    f.nColours = 1;
    EXPECT_EQ(ReadBytes(m_directory / "a.bmp"), BmpHeader(f) + Bytes(4, 0)) << "nothing of the stack is in the file";
}

TEST_F(ImageFiles, ASurfaceWithoutPixelsSavesNothingOfOthers) {
    const auto surface = m_source.GetWithoutPixels();
    EXPECT_EQ(Utils::SaveImage((m_directory / "a.jpg").c_str(), surface.get()), -6);
    EXPECT_EQ(Utils::SaveImage((m_directory / "a.bmp").c_str(), surface.get()), 0);
    EXPECT_EQ(ReadBytes(m_directory / "a.bmp").size(), 54U + (4U << 24)) << "headers and table, no pixels";
}

// ---- saving to memory

TEST_F(ImageFiles, SavingToABlockNeedsItsArguments) {
    const Bytes bytes = Counting(48);
    const STnNLImageData good = Record(TN_IMAGE_BGR24, 4, 4, bytes);
    const STnNLImageData bad = Record(TN_IMAGE_NONE, 4, 4, bytes);
    const auto surface = m_source.Filled(TN_IMAGE_BGR24, 4, 4, bytes);
    ITnRobotMemoryBlock* pBlock = UntouchedBlock();
    EXPECT_EQ(Utils::SaveImage(good, nullptr, &pBlock), -1);
    EXPECT_EQ(Utils::SaveImage(good, m_source.blocks.get(), nullptr), -1);
    EXPECT_EQ(Utils::SaveImage(bad, nullptr, &pBlock), -1) << "arguments come before the picture";
    EXPECT_EQ(Utils::SaveImage(surface.get(), nullptr, &pBlock), -1);
    EXPECT_EQ(Utils::SaveImage(surface.get(), m_source.blocks.get(), nullptr), -1);
    EXPECT_EQ(Utils::SaveImage(static_cast<ITnRobotSurface*>(nullptr), m_source.blocks.get(), &pBlock), -1);
    EXPECT_EQ(Utils::SaveImage(bad, m_source.blocks.get(), &pBlock), -6);
    EXPECT_EQ(pBlock, UntouchedBlock());
    EXPECT_EQ(m_source.blocks->Requests().size(), 1U) << "only the surface's own";
}

TEST_F(ImageFiles, SavingToABlockAsksForExactlyTheJpegsBytes) {
    const Bytes pixels = Noise(64 * 64 * 3, 18);
    ITnRobotMemoryBlock* pBlock = nullptr;
    ASSERT_EQ(Utils::SaveImage(Record(TN_IMAGE_BGR24, 64, 64, pixels), m_source.blocks.get(), &pBlock), 0);
    const auto block = tn::Adopt(pBlock);
    ASSERT_EQ(m_source.blocks->Requests().size(), 1U);
    const Bytes jpeg = BlockBytes(pBlock);
    EXPECT_EQ(m_source.blocks->Requests()[0], jpeg.size());
    EXPECT_GT(jpeg.size(), 8192U);
    EXPECT_EQ(Bytes(jpeg.end() - 2, jpeg.end()), FromHex("FF D9"));
    TnRobotPtr<ITnRobotSurface> surface;
    EXPECT_EQ(LoadMemory(jpeg, &surface), 0);
    EXPECT_TRUE(SurfaceBytes(surface.get()) == DecodePlain(jpeg, JCS_EXT_BGR, 3).pixels);
}

TEST_F(ImageFiles, SavingToABlockAnswersNullWhenThereIsNone) {
    const Bytes bytes = Counting(48);
    const STnNLImageData image = Record(TN_IMAGE_BGR24, 4, 4, bytes);
    m_source.blocks->Refuse();
    ITnRobotMemoryBlock* pBlock = UntouchedBlock();
    EXPECT_EQ(Utils::SaveImage(image, m_source.blocks.get(), &pBlock), -1);
    EXPECT_EQ(pBlock, nullptr);
    m_source.blocks->PretendOnly();
    pBlock = UntouchedBlock();
    EXPECT_EQ(Utils::SaveImage(image, m_source.blocks.get(), &pBlock), -1) << "success without a block";
    EXPECT_EQ(pBlock, nullptr);
}

TEST_F(ImageFiles, SavingToABlockNeedsOneThatHoldsTheJpeg) {
    const Bytes bytes = Counting(48);
    const STnNLImageData image = Record(TN_IMAGE_BGR24, 4, 4, bytes);
    for (const auto eGiving : {TestBlockPool::Giving::kShort, TestBlockPool::Giving::kWithoutMemory}) {
        m_source.blocks->Give(eGiving);
        ITnRobotMemoryBlock* pBlock = UntouchedBlock();
        EXPECT_EQ(Utils::SaveImage(image, m_source.blocks.get(), &pBlock), -1);
        EXPECT_EQ(pBlock, nullptr);
    }
    EXPECT_EQ(TestBlock::LiveCount(), 0);
}

// ---- another program's view

namespace {

// The command that runs ImageMagick, empty when it is not installed. Other programs use the same name.
std::string ImageMagick() {
    for (const char* lpszName : {"magick", "convert-im6.q16", "convert-im6", "/usr/bin/convert", "convert"}) {
        const std::string command = std::string(lpszName) + " -version 2>/dev/null";
        std::FILE* pPipe = popen(command.c_str(), "r");
        std::array<char, 256> line{};
        const bool bFound = pPipe != nullptr && std::fgets(line.data(), line.size(), pPipe) != nullptr &&
                            std::string(line.data()).find("Version: ImageMagick") == 0;
        if (pPipe != nullptr) {
            pclose(pPipe);
        }
        if (bFound) {
            return lpszName;
        }
    }
    return {};
}

Bytes OutputOf(const std::string& command) {
    Bytes bytes;
    std::FILE* pPipe = popen((command + " 2>/dev/null").c_str(), "r");
    if (pPipe == nullptr) {
        return bytes;
    }
    std::array<unsigned char, 4096> piece{};
    for (std::size_t n = 0; (n = std::fread(piece.data(), 1, piece.size(), pPipe)) > 0;) {
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(n));
    }
    pclose(pPipe);
    return bytes;
}

}  // namespace

TEST_F(ImageFiles, ImageMagickReadsOurBmps) {
    const std::string program = ImageMagick();
    if (program.empty()) {
        GTEST_SKIP() << "ImageMagick is not installed (apt-get install imagemagick)";
    }
    const Bytes grey = Noise(16 * 9, 19);
    const std::string path = m_directory / "a.bmp";
    ASSERT_EQ(Utils::SaveImage(path.c_str(), m_source.Filled(TN_IMAGE_GRAY8, 16, 9, grey).get()), 0);
    EXPECT_EQ(OutputOf(program + " " + path + " -depth 8 gray:-"), grey);
    const Bytes colour = Noise(48 * 9, 20);
    ASSERT_EQ(Utils::SaveImage(path.c_str(), m_source.Filled(TN_IMAGE_BGR24, 16, 9, colour).get()), 0);
    EXPECT_EQ(OutputOf(program + " " + path + " -depth 8 bgr:-"), colour);
}

TEST_F(ImageFiles, ImageMagickWritesBmpsThatLoad) {
    const std::string program = ImageMagick();
    if (program.empty()) {
        GTEST_SKIP() << "ImageMagick is not installed (apt-get install imagemagick)";
    }
    const Bytes colour = Noise(48 * 9, 21);
    WriteBytes(m_directory / "a.bgr", colour);
    const std::string path = m_directory / "b.bmp";
    OutputOf(program + " -size 16x9 -depth 8 bgr:" + (m_directory / "a.bgr") + " -type TrueColor BMP3:" + path);
    TnRobotPtr<ITnRobotSurface> surface;
    ASSERT_EQ(LoadPath(path, &surface), 0);
    EXPECT_EQ(SurfaceBytes(surface.get()), colour);
}
