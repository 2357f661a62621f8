// Files and bytes that mean harm: the documented result, no stale memory in a surface, nothing out of
// proportion, and the next good picture loads as if nothing had been.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <random>

#include "TnRobotKernel/image.h"
#include "support/bytes/BmpBytes.h"
#include "support/bytes/FileBytes.h"
#include "support/bytes/PlainJpeg.h"
#include "support/fakes/TestSurfaces.h"
#include "support/objects/Memory.h"
#include "support/processes/ChildProcess.h"
#include "support/processes/ResourceUse.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

using Utils = TnRobotImageUtils;

// Tests of broken pictures ask for thousands of surfaces; larger ones than this are not to be had.
constexpr unsigned int kLargestSurface = 16 * 1024 * 1024;
constexpr int kChanges = 5000;

// libjpeg's messages go nowhere for as long as it lives.
class QuietErrors {
public:
    QuietErrors() : m_nOld(dup(STDERR_FILENO)) {
        std::fflush(stderr);
        const int nNowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nNowhere, STDERR_FILENO);
        close(nNowhere);
    }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;
    ~QuietErrors() {
        std::fflush(stderr);
        dup2(m_nOld, STDERR_FILENO);
        close(m_nOld);
    }

private:
    int m_nOld;
};

struct Loaded {
    int nResult = 99;
    int nWidth = 0;
    int nHeight = 0;
    Bytes surface;
};

class HostileImages : public testing::Test {
protected:
    HostileImages() { m_source.blocks->LimitSize(kLargestSurface); }

    void TearDown() override {
        EXPECT_EQ(TestBlock::LiveCount(), 0);
        m_source.pool.reset();
        EXPECT_EQ(m_source.blocks->References(), 1);
    }

    Loaded Finish(int nResult, ITnRobotSurface* pSurface) {
        Loaded loaded;
        loaded.nResult = nResult;
        EXPECT_EQ(pSurface != nullptr, nResult == 0);
        if (pSurface != nullptr) {
            const auto surface = tn::Adopt(pSurface);
            loaded.nWidth = DescOf(pSurface).nWidth;
            loaded.nHeight = DescOf(pSurface).nHeight;
            loaded.surface = SurfaceBytes(pSurface);
        }
        return loaded;
    }

    // A new pool each time: a recycled surface would be handed out for bad sizes too.
    Loaded LoadFile(const Bytes& bytes) {
        WriteBytes(m_path, bytes);
        SurfaceSource source;
        source.blocks->LimitSize(kLargestSurface);
        ITnRobotSurface* pSurface = nullptr;
        const int nResult = Utils::LoadImage(m_path.c_str(), source.pool.get(), &pSurface);
        return Finish(nResult, pSurface);
    }

    // From memory of exactly this size, so that a sanitizer sees a byte read beyond it.
    Loaded LoadMemory(const Bytes& bytes) {
        const Bytes exact(bytes);
        SurfaceSource source;
        source.blocks->LimitSize(kLargestSurface);
        ITnRobotSurface* pSurface = nullptr;
        const int nResult =
            Utils::LoadImage(exact.data(), static_cast<unsigned int>(exact.size()), source.pool.get(), &pSurface);
        return Finish(nResult, pSurface);
    }

    TempDirectory m_directory;
    std::string m_path = m_directory / "picture.bmp";
    SurfaceSource m_source;
};

std::size_t Pitch24(int nWidth) {
    return (static_cast<std::size_t>(nWidth) * 3 + 3) / 4 * 4;
}

// Whether the library did what plain libjpeg calls say.
void CheckJpeg(const Loaded& loaded, const Bytes& jpeg, const std::string& what) {
    const JpegPicture picture = DecodePlain(jpeg, JCS_EXT_BGR, 3, kLargestSurface);
    if (!picture.bHeader) {
        EXPECT_EQ(loaded.nResult, -1) << what << ": no header";
        return;
    }
    const std::size_t nRow = static_cast<std::size_t>(picture.nWidth) * 3;
    const std::size_t nPitch = Pitch24(picture.nWidth);
    if (nPitch * static_cast<std::size_t>(picture.nHeight) > kLargestSurface) {
        EXPECT_EQ(loaded.nResult, -1) << what << ": no surface";
        return;
    }
    // Much larger than its file: the library may refuse what libjpeg fills with grey.
    const bool bOutOfProportion = nRow * static_cast<std::size_t>(picture.nHeight) > 256 * 1024;
    if (!picture.bPixels || (bOutOfProportion && loaded.nResult != 0)) {
        EXPECT_EQ(loaded.nResult, -2) << what;
        return;
    }
    EXPECT_EQ(loaded.nResult, 0) << what;
    EXPECT_EQ(loaded.nWidth, picture.nWidth) << what;
    EXPECT_EQ(loaded.nHeight, picture.nHeight) << what;
    EXPECT_TRUE(loaded.surface ==
                Repitch(picture.pixels, nRow, nRow, nPitch, static_cast<std::size_t>(picture.nHeight)))
        << what << ": pixels differ";
}

void CheckBmp(const Loaded& loaded, const Bytes& file, const std::string& what) {
    const BmpAnswer expected = ExpectedBmp(file, kLargestSurface);
    ASSERT_EQ(loaded.nResult, expected.nResult) << what;
    if (expected.nResult == 0) {
        EXPECT_EQ(loaded.nWidth, expected.nWidth) << what;
        EXPECT_EQ(loaded.nHeight, expected.nHeight) << what;
        EXPECT_TRUE(loaded.surface == expected.surface) << what << ": pixels differ";
    }
}

Bytes GoodBmp() {
    return BmpFile24(4, 6, Noise(12 * 6, 1));
}

struct NamedJpeg {
    std::string name;
    Bytes jpeg;
};

std::vector<NamedJpeg> GoodJpegs() {
    std::vector<NamedJpeg> jpegs;
    JpegRecipe recipe;
    recipe.nWidth = 21;
    recipe.nHeight = 19;
    recipe.nSampling = 2;
    const Bytes colour = Noise(21 * 19 * 3, 2);
    jpegs.push_back({"baseline", EncodePlain(recipe, colour)});
    recipe.nRestartRows = 1;
    jpegs.push_back({"with restarts", EncodePlain(recipe, colour)});
    recipe.nRestartRows = 0;
    recipe.bProgressive = true;
    jpegs.push_back({"progressive", EncodePlain(recipe, colour)});
    recipe.bArithmetic = true;
    jpegs.push_back({"arithmetic progressive", EncodePlain(recipe, colour)});
    recipe.bProgressive = false;
    jpegs.push_back({"arithmetic", EncodePlain(recipe, colour)});
    recipe.nRestartRows = 1;
    jpegs.push_back({"arithmetic with restarts", EncodePlain(recipe, colour)});
    return jpegs;
}

std::string Change(std::size_t nAt, unsigned int nValue) {
    return "byte " + std::to_string(nAt) + " = " + std::to_string(nValue);
}

template <typename Function>
void ForSingleByteChanges(const Bytes& good, int nChanges, unsigned int nSeed, Function function) {
    std::mt19937 random(nSeed);
    Bytes changed = good;
    for (int i = 0; i < nChanges && !testing::Test::HasFailure(); ++i) {
        const std::size_t nAt = random() % good.size();
        changed[nAt] = static_cast<unsigned char>(good[nAt] + 1 + random() % 255);
        function(changed, Change(nAt, changed[nAt]));
        changed[nAt] = good[nAt];
    }
}

// A size and its file, of which the pixels cannot be decoded.
std::vector<NamedJpeg> BadJpegs() {
    std::vector<NamedJpeg> jpegs;
    const Bytes good = GoodJpegs()[0].jpeg;
    jpegs.push_back({"no JPEG", FromText("this is no picture at all")});
    jpegs.push_back({"two bytes", FromHex("FFD8")});
    jpegs.push_back({"nothing but start and end", FromHex("FFD8 FFD9")});
    jpegs.push_back({"half a header", Bytes(good.begin(), good.begin() + 200)});
    JpegRecipe recipe;
    recipe.eInput = JCS_CMYK;
    recipe.nComponents = 4;
    jpegs.push_back({"CMYK", EncodePlain(recipe, Noise(1024, 3))});
    recipe.bProgressive = true;
    jpegs.push_back({"progressive CMYK", EncodePlain(recipe, Noise(1024, 4))});
    jpegs.push_back({"no quantiser", FromHex("FFD8  FFC0 000B 08 0010 0010 01 01 11 00  FFDA 0008 01 01 00 00 3F 00") +
                                         Noise(100, 5) + FromHex("FFD9")});
    return jpegs;
}

}  // namespace

TEST_F(HostileImages, EveryPrefixOfABmp) {
    const Bytes good = GoodBmp();
    for (std::size_t nSize = 0; nSize <= good.size(); ++nSize) {
        const Bytes prefix(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(nSize));
        EXPECT_EQ(LoadFile(prefix).nResult, nSize == good.size() ? 0 : -1) << nSize;
    }
}

// Prefixes whose header admits to being that short.
TEST_F(HostileImages, EveryPrefixOfABmpWithAFittingHeader) {
    for (const bool bSizeGiven : {true, false}) {
        Bytes good = GoodBmp();
        if (!bSizeGiven) {
            std::fill_n(good.begin() + 34, 4, static_cast<unsigned char>(0));
        }
        for (std::size_t nSize = kBmpHeaders; nSize <= good.size(); ++nSize) {
            Bytes prefix(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(nSize));
            const Bytes length = U32(static_cast<std::uint32_t>(nSize));
            std::copy(length.begin(), length.end(), prefix.begin() + 2);
            EXPECT_EQ(LoadFile(prefix).nResult, nSize == good.size() ? 0 : -1) << nSize;
        }
    }
}

TEST_F(HostileImages, SingleByteChangesOfABmp) {
    const Bytes good = GoodBmp();
    ForSingleByteChanges(good, RandomTries(kChanges), 7, [this](const Bytes& changed, const std::string& what) {
        CheckBmp(LoadFile(changed), changed, what);
    });
}

// Only the headers, where a change matters; several at once.
TEST_F(HostileImages, ManyByteChangesOfABmpHeader) {
    std::mt19937 random(8);
    for (int i = 0; i < RandomTries(kChanges) && !HasFailure(); ++i) {
        Bytes changed = GoodBmp();
        std::string what;
        for (unsigned int n = 1 + random() % 4; n > 0; --n) {
            // Not the file size, which refuses nearly everything.
            const std::size_t nAt = 10 + random() % 28;
            const unsigned char values[] = {0, 1, 2, 3, 4, 8, 12, 24, 32, 54, 72, 127, 128, 255};
            changed[nAt] = values[random() % sizeof(values)];
            what += Change(nAt, changed[nAt]) + "; ";
        }
        CheckBmp(LoadFile(changed), changed, what);
    }
}

TEST_F(HostileImages, EveryPrefixOfAJpeg) {
    const QuietErrors quiet;
    for (const NamedJpeg& good : GoodJpegs()) {
        for (std::size_t nSize = 0; nSize <= good.jpeg.size(); ++nSize) {
            const Bytes prefix(good.jpeg.begin(), good.jpeg.begin() + static_cast<std::ptrdiff_t>(nSize));
            const Loaded loaded = LoadMemory(prefix);
            if (nSize == 0) {
                EXPECT_EQ(loaded.nResult, -1);
            } else {
                CheckJpeg(loaded, prefix, good.name + ", " + std::to_string(nSize) + " bytes");
            }
        }
    }
}

TEST_F(HostileImages, SingleByteChangesOfAJpeg) {
    const QuietErrors quiet;
    for (const NamedJpeg& good : GoodJpegs()) {
        ForSingleByteChanges(good.jpeg, RandomTries(kChanges), 9,
                             [this, &good](const Bytes& changed, const std::string& what) {
                                 CheckJpeg(LoadMemory(changed), changed, good.name + ", " + what);
                             });
    }
}

// Half of a small JPEG is headers: changes there reach further than changes of pixels.
TEST_F(HostileImages, EveryHeaderByteOfAJpegChanged) {
    const QuietErrors quiet;
    const Bytes good = GoodJpegs()[0].jpeg;
    for (std::size_t nAt = 0; nAt < 640 && nAt < good.size() && !HasFailure(); ++nAt) {
        for (const unsigned int nValue : {0U, 1U, 0x7FU, 0x80U, 0xFFU, good[nAt] ^ 1U, good[nAt] ^ 0x10U}) {
            Bytes changed = good;
            changed[nAt] = static_cast<unsigned char>(nValue);
            CheckJpeg(LoadMemory(changed), changed, Change(nAt, nValue));
        }
    }
}

TEST_F(HostileImages, BadJpegsHaveTheirResults) {
    const QuietErrors quiet;
    const int results[] = {-1, -1, -1, -1, -2, -2, -2};
    const std::vector<NamedJpeg> bad = BadJpegs();
    ASSERT_EQ(bad.size(), std::size(results));
    for (std::size_t i = 0; i < bad.size(); ++i) {
        EXPECT_EQ(LoadMemory(bad[i].jpeg).nResult, results[i]) << bad[i].name;
        const std::string path = m_directory / "bad.jpg";
        WriteBytes(path, bad[i].jpeg);
        ITnRobotSurface* pSurface = nullptr;
        EXPECT_EQ(Utils::LoadImage(path.c_str(), m_source.pool.get(), &pSurface), results[i]) << bad[i].name;
        EXPECT_EQ(pSurface, nullptr);
    }
}

TEST_F(HostileImages, TenThousandBadJpegsLeaveNothingBehind) {
    const QuietErrors quiet;
    const std::vector<NamedJpeg> bad = BadJpegs();
    const Bytes good = GoodJpegs()[0].jpeg;
    const Loaded before = LoadMemory(good);
    ASSERT_EQ(before.nResult, 0);
    const auto LoadBad = [&](int nCount) {
        for (int i = 0; i < nCount; ++i) {
            const Bytes& jpeg = bad[static_cast<std::size_t>(i) % bad.size()].jpeg;
            ITnRobotSurface* pSurface = nullptr;
            EXPECT_LT(
                Utils::LoadImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()), m_source.pool.get(), &pSurface),
                0);
            EXPECT_EQ(pSurface, nullptr);
        }
    };
    LoadBad(100);
    const std::size_t nHeld = mallinfo2().uordblks;
    LoadBad(RandomTries(10000));
    // The pool of blocks notes every request, so not quite nothing.
    EXPECT_LE(mallinfo2().uordblks, nHeld + 256 * 1024);
    EXPECT_EQ(TestBlock::LiveCount(), 0);
    const Loaded after = LoadMemory(good);
    EXPECT_EQ(after.nResult, 0);
    EXPECT_TRUE(after.surface == before.surface);
    CheckJpeg(after, good, "the good one");
}

namespace {

// Loads over the general block pool, as applications do.
int LoadAsApplicationsDo(const Bytes& jpeg) {
    const HeldPool blocks = MakePool();
    ITnRobotSurfacePool* pPool = nullptr;
    TnCreateRobotSurfacePool(blocks.get(), &pPool);
    const auto pool = tn::Adopt(pPool);
    ITnRobotSurface* pSurface = nullptr;
    const int nResult = Utils::LoadImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()), pPool, &pSurface);
    if (pSurface != nullptr) {
        pSurface->Release();
    }
    return nResult;
}

}  // namespace

// 38 KB that ask for 1.2 GB of pixels, 0.8 GB of coefficients and seventy passes over them.
TEST_F(HostileImages, AHugeProgressiveJpegIsRefusedAtOnce) {
    const QuietErrors quiet;
    constexpr long long kSurface = 60000LL * 20000;
    const Bytes jpeg = EmptyProgressiveJpeg(20000, 20000, 70);
    ASSERT_GT(jpeg.size(), 30000U);
    ASSERT_LT(jpeg.size(), 50000U);
    const long long nGrowth = PeakGrowth(
        [&] { EXPECT_LT(SecondsFor([&] { EXPECT_EQ(LoadAsApplicationsDo(jpeg), -2); }), SecondsAllowed(5.0)); });
    EXPECT_GE(nGrowth, 0);
    EXPECT_LE(nGrowth, kSurface + 64 * kMiB);
}

// The same with less than the surface limit: memory stays in proportion to the picture.
TEST_F(HostileImages, EmptyProgressiveJpegsStayInProportion) {
    const QuietErrors quiet;
    const struct {
        int nSize;
        int nScans;
    } rows[] = {{64, 1}, {512, 70}, {2000, 99}, {2000, 400}, {2300, 3000}};
    for (const auto& row : rows) {
        const Bytes jpeg = EmptyProgressiveJpeg(row.nSize, row.nSize, row.nScans);
        const long long nGrowth = PeakGrowth(
            [&] { EXPECT_LT(SecondsFor([&] { LoadAsApplicationsDo(jpeg); }), SecondsAllowed(5.0)) << row.nScans; });
        EXPECT_GE(nGrowth, 0) << row.nScans;
        EXPECT_LE(nGrowth, 3LL * row.nSize * row.nSize + 64 * kMiB) << row.nScans;
    }
}

TEST_F(HostileImages, MoreThanAHundredScansAreRefused) {
    const QuietErrors quiet;
    EXPECT_EQ(LoadMemory(EmptyProgressiveJpeg(64, 64, 100)).nResult, 0);
    EXPECT_EQ(LoadMemory(EmptyProgressiveJpeg(64, 64, 101)).nResult, -2);
    EXPECT_EQ(LoadMemory(EmptyProgressiveJpeg(64, 64, 5000)).nResult, -2);
}

// A few bytes that promise a huge picture of one scan.
TEST_F(HostileImages, AHugeSizeInASmallBaselineJpeg) {
    const QuietErrors quiet;
    for (const NamedJpeg& good : GoodJpegs()) {
        Bytes jpeg = good.jpeg;
        PatchSize(jpeg, 65500, 65500);
        const long long nGrowth = PeakGrowth([&] {
            EXPECT_LT(SecondsFor([&] { EXPECT_EQ(LoadMemory(jpeg).nResult, -1) << "no surface"; }),
                      SecondsAllowed(5.0));
        });
        EXPECT_GE(nGrowth, 0) << good.name;
        EXPECT_LE(nGrowth, 64 * kMiB) << good.name;
    }
}

namespace {

// One colour, and of the arithmetic ones less than 400 bytes whatever the size.
Bytes FlatJpeg(int nWidth, int nHeight, bool bGrey, bool bArithmetic, bool bProgressive,
               unsigned int nRestartRows = 0) {
    JpegRecipe recipe;
    recipe.nWidth = nWidth;
    recipe.nHeight = nHeight;
    recipe.nComponents = bGrey ? 1 : 3;
    recipe.eInput = bGrey ? JCS_GRAYSCALE : JCS_EXT_BGR;
    recipe.bArithmetic = bArithmetic;
    recipe.bProgressive = bProgressive;
    recipe.nRestartRows = nRestartRows;
    recipe.nSampling = 0;
    const std::size_t nPixels = static_cast<std::size_t>(nWidth) * static_cast<std::size_t>(nHeight);
    return EncodePlain(recipe, Bytes(nPixels * static_cast<std::size_t>(recipe.nComponents), 128));
}

}  // namespace

// Few bytes are no reason to refuse a picture: there is no more to say of a flat one.
TEST_F(HostileImages, FlatPicturesLoad) {
    EXPECT_EQ(LoadAsApplicationsDo(FlatJpeg(6001, 5003, false, true, false)), 0);
    EXPECT_EQ(LoadAsApplicationsDo(FlatJpeg(6001, 5003, true, true, true)), 0);
    EXPECT_EQ(LoadAsApplicationsDo(FlatJpeg(65000, 1000, true, false, true)), 0);
    EXPECT_EQ(LoadAsApplicationsDo(FlatJpeg(65000, 1000, false, true, true)), 0);
}

// Scans of one component count their restarts in its own blocks, of which a row has twice as many as
// groups of blocks when colours are stored at half the width.
TEST_F(HostileImages, FlatPicturesWithARestartInEachRowLoad) {
    for (const unsigned int nRows : {1U, 2U}) {
        EXPECT_EQ(LoadAsApplicationsDo(FlatJpeg(1030, 1030, false, true, true, nRows)), 0) << nRows;
        EXPECT_EQ(LoadAsApplicationsDo(FlatJpeg(4096, 4096, false, true, true, nRows)), 0) << nRows;
        EXPECT_EQ(LoadAsApplicationsDo(FlatJpeg(6001, 5003, false, true, false, nRows)), 0) << nRows;
    }
}

// Each restart is a new chance to make costly pixels of three bytes: thirty scans took seconds.
TEST_F(HostileImages, ManyScansOfAnArithmeticJpegWithRestartsAreRefusedAtOnce) {
    const Bytes jpeg = RepeatLastScan(FlatJpeg(4096, 4096, true, true, true, 2), 30);
    ASSERT_LT(jpeg.size(), 40000U);
    SurfaceSource source;
    source.blocks->Refuse();
    ITnRobotSurface* pSurface = nullptr;
    EXPECT_EQ(Utils::LoadImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()), source.pool.get(), &pSurface), -2);
    EXPECT_TRUE(source.blocks->Requests().empty());
}

TEST_F(HostileImages, AHugeSizeInASmallJpegIsRefusedBeforeMemoryIsAskedFor) {
    const QuietErrors quiet;
    for (const NamedJpeg& good : GoodJpegs()) {
        Bytes jpeg = good.jpeg;
        PatchSize(jpeg, 30000, 30000);
        SurfaceSource source;
        source.blocks->Refuse();
        ITnRobotSurface* pSurface = nullptr;
        EXPECT_EQ(Utils::LoadImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()), source.pool.get(), &pSurface),
                  -2)
            << good.name;
        EXPECT_TRUE(source.blocks->Requests().empty()) << good.name;
    }
}

TEST_F(HostileImages, ManyScansOfAnArithmeticJpegAreRefusedAtOnce) {
    const QuietErrors quiet;
    const Bytes flat = FlatJpeg(4096, 4096, true, true, true);
    EXPECT_EQ(LoadAsApplicationsDo(RepeatLastScan(flat, 20)), 0);
    const Bytes jpeg = RepeatLastScan(flat, 100);
    ASSERT_LT(jpeg.size(), 7000U);
    const long long nGrowth = PeakGrowth(
        [&] { EXPECT_LT(SecondsFor([&] { EXPECT_EQ(LoadAsApplicationsDo(jpeg), -2); }), SecondsAllowed(1.0)); });
    EXPECT_GE(nGrowth, 0);
    EXPECT_LE(nGrowth, 16 * kMiB);
}

TEST_F(HostileImages, CommentsDoNotCountAsPixels) {
    const QuietErrors quiet;
    const Bytes jpeg = AddComments(EmptyProgressiveJpeg(11750, 11750, 70), 300000);
    const long long nGrowth = PeakGrowth(
        [&] { EXPECT_LT(SecondsFor([&] { EXPECT_EQ(LoadAsApplicationsDo(jpeg), -2); }), SecondsAllowed(1.0)); });
    EXPECT_GE(nGrowth, 0);
    EXPECT_LE(nGrowth, 16 * kMiB);
    const Bytes good = GoodJpegs()[0].jpeg;
    CheckJpeg(LoadMemory(AddComments(good, 300000)), AddComments(good, 300000), "a good one with comments");
}

// An arithmetic decoder makes pixels for ever once its data has ended. Costly ones are not waited for.
TEST_F(HostileImages, AnArithmeticJpegThatIsMostlyMissingEndsSoon) {
    const QuietErrors quiet;
    for (const std::size_t nBytes : {std::size_t{20}, std::size_t{200}, std::size_t{2000}}) {
        JpegRecipe recipe;
        recipe.nWidth = 256;
        recipe.nHeight = 256;
        recipe.bArithmetic = true;
        recipe.nQuality = 100;
        Bytes jpeg = CutFirstScan(EncodePlain(recipe, Noise(256 * 256 * 3, 23)), nBytes);
        PatchSize(jpeg, 8000, 8000);
        int nResult = 99;
        EXPECT_LT(SecondsFor([&] { nResult = LoadAsApplicationsDo(jpeg); }), SecondsAllowed(5.0)) << nBytes;
        EXPECT_EQ(nResult, -2) << nBytes;
    }
}

// Whatever a camera or a program makes of a picture loads, also when it was cut.
TEST_F(HostileImages, EveryWayToCompressAPictureLoads) {
    const QuietErrors quiet;
    constexpr int kWidth = 301;
    constexpr int kHeight = 203;
    Bytes pixels = SmoothPicture(kWidth, kHeight, 3, kWidth * 3);
    const Bytes noise = Noise(pixels.size(), 24);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        const bool bFlat = i / 3 % kWidth < 100;
        pixels[i] = static_cast<unsigned char>(bFlat ? 200 : pixels[i] / 2 + noise[i] % 32);
    }
    for (const int nQuality : {1, 10, 50, 75, 95, 100}) {
        for (int nWay = 0; nWay < 12; ++nWay) {
            JpegRecipe recipe;
            recipe.nWidth = kWidth;
            recipe.nHeight = kHeight;
            recipe.nQuality = nQuality;
            recipe.nSampling = nWay % 2 == 0 ? 2 : 1;
            recipe.bProgressive = nWay / 2 % 3 == 1;
            recipe.nRestartRows = nWay / 2 % 3 == 2 ? 1 : 0;
            recipe.bArithmetic = nWay >= 6;
            recipe.bOptimised = !recipe.bArithmetic && nWay % 2 == 0;
            const Bytes jpeg = EncodePlain(recipe, pixels);
            const JpegPicture expected = DecodePlain(jpeg, JCS_EXT_BGR, 3);
            const std::string what = "quality " + std::to_string(nQuality) + ", way " + std::to_string(nWay);
            const std::size_t nRow = kWidth * 3;
            const Bytes surface = Repitch(expected.pixels, nRow, nRow, Pitch24(kWidth), kHeight);
            EXPECT_TRUE(LoadMemory(jpeg).surface == surface) << what;
            EXPECT_TRUE(LoadMemory(AddFillBytes(jpeg)).surface == surface) << what << ", fill bytes";
            for (const std::size_t nPercent : {10U, 50U, 90U}) {
                const Bytes cut(jpeg.begin(), jpeg.begin() + static_cast<std::ptrdiff_t>(jpeg.size() * nPercent / 100));
                CheckJpeg(LoadMemory(cut), cut, what + ", cut to " + std::to_string(nPercent));
            }
        }
    }
}

// What decoding costs beside the surface.
TEST_F(HostileImages, ABaselineJpegTakesTheSurfaceAndLittleMore) {
    constexpr int kWidth = 1920;
    constexpr int kHeight = 1080;
    JpegRecipe recipe;
    recipe.nWidth = kWidth;
    recipe.nHeight = kHeight;
    recipe.nSampling = 2;
    const Bytes jpeg = EncodePlain(recipe, SmoothPicture(kWidth, kHeight, 3, kWidth * 3));
    const long long nGrowth = PeakGrowth([&] { EXPECT_EQ(LoadAsApplicationsDo(jpeg), 0); });
    EXPECT_GE(nGrowth, 0);
    EXPECT_LE(nGrowth, 3LL * kWidth * kHeight + 2 * kMiB);
}

// A few bytes that promise a huge BMP: nothing is allocated before the length has been seen.
TEST_F(HostileImages, AHugeSizeInASmallBmp) {
    for (const bool bSizeGiven : {true, false}) {
        BmpFields f;
        f.nWidth = 20000;
        f.nHeight = 20000;
        f.nImageSize = bSizeGiven ? 1200000000U : 0U;
        WriteBytes(m_path, BmpFile(f, Counting(24)));
        const long long nGrowth = PeakGrowth([&] {
            SurfaceSource source;
            ITnRobotSurface* pSurface = nullptr;
            EXPECT_EQ(Utils::LoadImage(m_path.c_str(), source.pool.get(), &pSurface), -1);
        });
        EXPECT_GE(nGrowth, 0);
        EXPECT_LE(nGrowth, kMiB);
    }
}

// Beyond a modest surface all rows must be there: what is not is zero, and nobody waits for that.
TEST_F(HostileImages, AHugeBmpNeedsAllItsRows) {
    const struct {
        int nWidth;
        int nHeight;
        unsigned int nBits;
        std::uint32_t nRowsThere;
        int nResult;
    } rows[] = {
        {4, 350000000, 24, 1, -1},  // 66 bytes
        {4, 4 << 20, 24, 2, 0},     // exactly 48 MiB
        {4, (4 << 20) + 1, 24, 2, -1}, {1024, 16384, 24, 1, 0},     {1024, 16385, 24, 16384, -1},
        {1024, 16385, 24, 16385, 0},   {1024, 16385, 8, 16384, -1},
    };
    for (const auto& row : rows) {
        BmpFields f;
        f.nWidth = row.nWidth;
        f.nHeight = row.nHeight;
        f.nBitsPerPixel = row.nBits;
        f.nImageSize = row.nBits / 8 * static_cast<std::uint32_t>(row.nWidth) * row.nRowsThere;
        WriteBytes(m_path, BmpFile(f, Bytes(f.nImageSize, 1)));
        SurfaceSource source;
        source.blocks->Refuse(row.nResult != 0);
        ITnRobotSurface* pSurface = nullptr;
        EXPECT_EQ(Utils::LoadImage(m_path.c_str(), source.pool.get(), &pSurface), row.nResult) << row.nHeight;
        EXPECT_EQ(source.blocks->Requests().empty(), row.nResult != 0) << row.nHeight << ": memory is asked for";
        if (pSurface != nullptr) {
            pSurface->Release();
        }
    }
}

namespace {

constexpr unsigned char kOld = 0xDB;

// Leaves the pool's free blocks full of an old picture.
void FillWithAnOldPicture(ITnRobotMemoryBlockPool& pool) {
    std::vector<HeldBlock> held;
    for (int i = 0; i < 4; ++i) {
        held.push_back(Query(pool, 32768));
        ASSERT_NE(held.back(), nullptr);
        std::fill_n(DataOf(*held.back()), 32768, kOld);
    }
}

// A BMP of 5 x 50 pixels that holds two of its rows.
Bytes ShortBmp() {
    BmpFields f;
    f.nWidth = 5;
    f.nHeight = 50;
    f.nImageSize = 30;
    return BmpFile(f, Bytes(30, 1));
}

Bytes SmallJpeg() {
    JpegRecipe recipe;
    recipe.nWidth = 5;
    recipe.nHeight = 3;
    return EncodePlain(recipe, Bytes(45, 1));
}

}  // namespace

// Surfaces come from memory full of an old picture: none of it may show.
TEST_F(HostileImages, NoOldBytesShowInASurface) {
    const HeldPool blocks = MakePool();
    ITnRobotSurfacePool* pPool = nullptr;
    ASSERT_EQ(TnCreateRobotSurfacePool(blocks.get(), &pPool), 1);
    const auto pool = tn::Adopt(pPool);
    WriteBytes(m_path, ShortBmp());
    const Bytes jpeg = SmallJpeg();
    const Bytes dark(16 * 3, 1);  // a picture without the old byte
    const Bytes few(7, 1);
    ITnRobotSurface* pPicture = nullptr;
    ASSERT_EQ(Utils::NlImage2Surface(Record(TN_IMAGE_BGR24, 5, 3, dark), pPool, &pPicture), 0);
    const auto picture = tn::Adopt(pPicture);
    const auto load = [&](std::size_t nBytes, ITnRobotSurface** ppSurface) {
        const QuietErrors quiet;
        return Utils::LoadImage(jpeg.data(), static_cast<unsigned int>(nBytes), pPool, ppSurface);
    };
    const struct {
        const char* lpszWhat;
        std::function<int(ITnRobotSurface**)> make;
        int nResult;
    } acts[] = {
        {"BMP", [&](auto pp) { return Utils::LoadImage(m_path.c_str(), pPool, pp); }, 0},
        {"JPEG", [&](auto pp) { return load(jpeg.size(), pp); }, 0},
        {"JPEG that is cut short", [&](auto pp) { return load(jpeg.size() - 8, pp); }, 0},
        {"record", [&](auto pp) { return Utils::NlImage2Surface(Record(TN_IMAGE_BGR24, 5, 3, dark), pPool, pp); }, 0},
        {"short record", [&](auto pp) { return Utils::NlImage2Surface(Record(TN_IMAGE_BGR24, 5, 3, few), pPool, pp); },
         0},
        {"region",
         [&](auto pp) {
             return Utils::ClipImage(pPool, picture.get(), {1, 2, 1, 3}, pp);
         },
         0},
        {"joined", [&](auto pp) { return Utils::PieceImage(pPool, picture.get(), picture.get(), pp); }, 1},
    };
    for (const auto& act : acts) {
        ASSERT_NO_FATAL_FAILURE(FillWithAnOldPicture(*blocks));
        ITnRobotSurface* pSurface = nullptr;
        ASSERT_EQ(act.make(&pSurface), act.nResult) << act.lpszWhat;
        const Bytes bytes = SurfaceBytes(tn::Adopt(pSurface).get());
        EXPECT_EQ(std::count(bytes.begin(), bytes.end(), kOld), 0) << act.lpszWhat;
    }
}
