// LoadImage and SaveImage with the reason of a failure.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "TnRobotKernel/make.h"
#include "support/bytes/BmpBytes.h"
#include "support/bytes/FileBytes.h"
#include "support/bytes/PlainJpeg.h"
#include "support/fakes/TestSurfaces.h"
#include "support/processes/Limits.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

using Surface = TnRobotPtr<ITnRobotSurface>;

class Pictures : public testing::Test {
protected:
    Surface Filled(ETnNLImageType eType, int nWidth, int nHeight) const {
        const auto surface = tn::QuerySurface(*m_pool, {nWidth, nHeight, 0, eType, {0, 0}});
        const tn::LockedPixels pixels(surface);
        for (int i = 0; i < pixels.Height(); ++i) {
            std::memset(pixels.Row(i), 40 + i, static_cast<std::size_t>(pixels.Pitch()));
        }
        return surface;
    }

    std::string File(const char* lpszName, const Bytes& bytes) const {
        WriteBytes(m_directory / lpszName, bytes);
        return m_directory / lpszName;
    }

    // Loads, and says what came of it.
    std::error_code Load(const std::string& strPath, bool bPicture) const {
        std::error_code ec = tn::errc::object_refused;
        EXPECT_EQ(static_cast<bool>(tn::LoadImage(strPath.c_str(), m_pool.get(), ec)), bPicture) << strPath;
        return ec;
    }

    const TempDirectory m_directory;
    TnRobotPtr<ITnRobotMemoryBlockPool> m_blocks = tn::MakeMemoryBlockPool();
    TnRobotPtr<ITnRobotSurfacePool> m_pool = tn::MakeSurfacePool(m_blocks.get());
};

Bytes SmallJpeg(bool bProgressive = false) {
    JpegRecipe recipe;
    recipe.nWidth = recipe.nHeight = 64;
    recipe.bProgressive = bProgressive;
    return EncodePlain(recipe, SmoothPicture(64, 64, 3, 192));
}

Bytes Cut(Bytes bytes, std::size_t nLength) {
    bytes.resize(nLength);
    return bytes;
}

}  // namespace

TEST_F(Pictures, WholeOnesLoadWithoutAReason) {
    EXPECT_FALSE(Load(File("a.jpg", SmallJpeg()), true));
    EXPECT_FALSE(Load(File("b.JPG", SmallJpeg(true)), true));
    EXPECT_FALSE(Load(File("fill.jpg", AddFillBytes(SmallJpeg())), true));
    EXPECT_FALSE(Load(File("comment.jpg", AddComments(SmallJpeg(), 70000)), true));
    EXPECT_FALSE(Load(File("behind.jpg", SmallJpeg() + Bytes(100, 0)), true)) << "what follows the end is nobody's";
    EXPECT_FALSE(Load(File("c.bmp", BmpFile24(4, 2, Counting(24))), true));
}

// A file is looked at in windows, the bytes in memory as they are.
TEST_F(Pictures, WholeOnesLoadWithoutAReasonWhereverTheirMarkersLie) {
    for (std::size_t nComment = 4050; nComment < 4110; ++nComment) {
        const Bytes jpeg = AddFillBytes(AddComments(SmallJpeg(), nComment));
        EXPECT_FALSE(Load(File("comment.jpg", jpeg), true)) << nComment;
        std::error_code ec = tn::errc::object_refused;
        EXPECT_TRUE(tn::LoadImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()), m_pool.get(), ec));
        EXPECT_FALSE(ec) << nComment;
    }
}

TEST_F(Pictures, ACutJpegGivesItsPictureAndSaysSo) {
    for (const bool bProgressive : {false, true}) {
        const Bytes jpeg = SmallJpeg(bProgressive);
        // A quarter of a progressive one reaches into the tables of its scans.
        for (const std::size_t nMissing : {std::size_t{1}, std::size_t{2}, bProgressive ? 20 : jpeg.size() / 4}) {
            const Bytes cut = Cut(jpeg, jpeg.size() - nMissing);
            EXPECT_EQ(Load(File("cut.jpg", cut), true), tn::errc::picture_incomplete) << nMissing;
            std::error_code ec;
            EXPECT_TRUE(tn::LoadImage(cut.data(), static_cast<unsigned int>(cut.size()), m_pool.get(), ec));
            EXPECT_EQ(ec, tn::errc::picture_incomplete) << nMissing;
        }
        EXPECT_EQ(Load(File("head.jpg", Cut(jpeg, 30)), false), tn::errc::picture_incomplete);
    }
}

TEST_F(Pictures, EveryPrefixOfAJpegHasAReason) {
    const Bytes jpeg = SmallJpeg();
    for (std::size_t nLength = 1; nLength < jpeg.size(); nLength += 7) {
        std::error_code ec;
        const Surface surface = tn::LoadImage(jpeg.data(), static_cast<unsigned int>(nLength), m_pool.get(), ec);
        EXPECT_EQ(ec, nLength < 2 ? tn::errc::not_a_picture : tn::errc::picture_incomplete) << nLength;
    }
}

// A segment says how long it is, its two bytes of length included.
TEST_F(Pictures, SegmentsWithoutALengthEndTheLook) {
    constexpr unsigned char kMarkers[] = {0xC0, 0xC4, 0xDA, 0xE0};
    constexpr unsigned char kLengths[] = {0, 1, 7};
    for (const unsigned char byMarker : kMarkers) {
        for (const unsigned char byLength : kLengths) {
            Bytes jpeg = {0xFF, 0xD8, 0xFF, byMarker, 0, byLength};
            jpeg.insert(jpeg.end(), 5000, 8);
            std::error_code ec;
            EXPECT_FALSE(tn::LoadImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()), m_pool.get(), ec));
            EXPECT_EQ(ec, tn::errc::picture_incomplete) << int{byMarker} << ", " << int{byLength};
        }
    }
}

TEST_F(Pictures, ABmpWithRowsMissingGivesItsPictureAndSaysSo) {
    EXPECT_EQ(Load(File("rows.bmp", BmpFile24(4, 3, Counting(24))), true), tn::errc::picture_incomplete);
    Bytes cut = BmpFile24(4, 2, Counting(24));
    cut.pop_back();
    EXPECT_EQ(Load(File("cut.bmp", cut), false), tn::errc::picture_incomplete);
    EXPECT_EQ(Load(File("head.bmp", Cut(cut, 53)), false), tn::errc::picture_incomplete);
    EXPECT_EQ(Load(File("empty.bmp", {}), false), tn::errc::picture_incomplete);
}

TEST_F(Pictures, WhatIsNoneSaysWhatItIs) {
    const auto Bmp = [](auto change) {
        BmpFields fields;
        fields.nWidth = 4;
        fields.nHeight = 2;
        fields.nImageSize = 24;
        change(fields);
        return BmpFile(fields, Counting(fields.nImageSize));
    };
    JpegRecipe inks;
    inks.eInput = JCS_CMYK;
    inks.nComponents = 4;
    inks.nSampling = 0;
    Bytes damaged = SmallJpeg();
    std::fill(damaged.begin() + 20, damaged.begin() + 150, static_cast<unsigned char>(0));
    const struct {
        const char* lpszName;
        Bytes bytes;
        tn::errc eExpected;
    } rows[] = {
        {"text.jpg", Bytes(100, 'x'), tn::errc::not_a_picture},
        {"bmp.jpg", BmpFile24(4, 2, Counting(24)), tn::errc::not_a_picture},
        {"jpeg.bmp", SmallJpeg(), tn::errc::not_a_picture},
        {"picture.png", SmallJpeg(), tn::errc::format_not_supported},
        {"x", SmallJpeg(), tn::errc::format_not_supported},
        {"inks.jpg", EncodePlain(inks, Bytes(std::size_t{16} * 16 * 4, 9)), tn::errc::format_not_supported},
        {"grey.bmp", Bmp([](BmpFields& f) { f.nBitsPerPixel = 8, f.nImageSize = 8; }), tn::errc::format_not_supported},
        {"deep.bmp", Bmp([](BmpFields& f) { f.nBitsPerPixel = 32, f.nImageSize = 32; }),
         tn::errc::format_not_supported},
        {"padded.bmp", Bmp([](BmpFields& f) { f.nWidth = 3; }), tn::errc::format_not_supported},
        {"nothing.bmp", Bmp([](BmpFields& f) { f.nWidth = 0; }), tn::errc::picture_damaged},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Load(File(row.lpszName, row.bytes), false), row.eExpected) << row.lpszName;
    }
    std::error_code ec;
    const Surface none = tn::LoadImage(damaged.data(), static_cast<unsigned int>(damaged.size()), m_pool.get(), ec);
    EXPECT_TRUE(none || ec == tn::errc::picture_damaged) << ec.message();
}

TEST_F(Pictures, WhatTheSystemRefusesIsTheSystemsReason) {
    EXPECT_EQ(Load(m_directory / "missing.jpg", false), std::errc::no_such_file_or_directory);
    std::filesystem::create_directory(m_directory / "directory.jpg");
    EXPECT_EQ(Load(m_directory / "directory.jpg", false), std::errc::is_a_directory);
    ASSERT_EQ(mkfifo((m_directory / "fifo.jpg").c_str(), 0600), 0);
    EXPECT_EQ(Load(m_directory / "fifo.jpg", false), tn::errc::not_a_regular_file) << "and nobody waits";
    if (geteuid() != 0) {
        const std::string strPath = File("secret.jpg", SmallJpeg());
        ASSERT_EQ(chmod(strPath.c_str(), 0), 0);
        EXPECT_EQ(Load(strPath, false), std::errc::permission_denied);
    }
}

TEST_F(Pictures, APoolWithoutSurfacesIsTheReason) {
    const auto none = tn::MakeSurfacePool(nullptr);
    const Bytes jpeg = SmallJpeg();
    const std::string strBmp = File("a.bmp", BmpFile24(4, 2, Counting(24)));
    std::error_code ec;
    EXPECT_FALSE(tn::LoadImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()), none.get(), ec));
    EXPECT_EQ(ec, tn::errc::no_surface);
    EXPECT_FALSE(tn::LoadImage(strBmp.c_str(), none.get(), ec));
    EXPECT_EQ(ec, tn::errc::no_surface);
}

TEST_F(Pictures, MissingArgumentsAreTheReason) {
    std::error_code ec;
    EXPECT_FALSE(tn::LoadImage(static_cast<const char*>(nullptr), m_pool.get(), ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
    EXPECT_FALSE(tn::LoadImage("a.jpg", nullptr, ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
    EXPECT_FALSE(tn::LoadImage(static_cast<ITnRobotMemoryBlock*>(nullptr), m_pool.get(), ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
    EXPECT_FALSE(tn::SaveImage(nullptr, Filled(TN_IMAGE_BGR24, 4, 2).get(), ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
    EXPECT_FALSE(tn::SaveImage((m_directory / "a.jpg").c_str(), nullptr, ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
    EXPECT_TRUE(m_directory.Names().empty());
}

TEST_F(Pictures, SavedOnesAreTheLibrarysOwn) {
    const Surface surface = Filled(TN_IMAGE_BGR24, 8, 6);
    for (const char* lpszEnding : {"jpg", "bmp"}) {
        const std::string strOurs = m_directory / (std::string("ours.") + lpszEnding);
        const std::string strPlain = m_directory / (std::string("plain.") + lpszEnding);
        std::error_code ec = tn::errc::no_surface;
        ASSERT_TRUE(tn::SaveImage(strOurs.c_str(), surface.get(), ec)) << ec.message();
        EXPECT_FALSE(ec);
        ASSERT_EQ(TnRobotImageUtils::SaveImage(strPlain.c_str(), surface.get()), 0);
        EXPECT_TRUE(ReadBytes(strOurs) == ReadBytes(strPlain)) << lpszEnding;
        EXPECT_FALSE(Load(strOurs, true)) << lpszEnding;
    }
    EXPECT_EQ(m_directory.Names().size(), 4U) << "nothing is left beside them";
}

TEST_F(Pictures, AnyFormatAndPitchIsSavedWhereTheFormCarriesIt) {
    const struct {
        ETnNLImageType eType;
        int nWidth;
        bool bBmp;
        bool bJpeg;
    } rows[] = {
        {TN_IMAGE_BGR24, 8, true, true},  {TN_IMAGE_BGR24, 7, false, true}, {TN_IMAGE_RGB24, 8, false, true},
        {TN_IMAGE_GRAY8, 8, true, true},  {TN_IMAGE_GRAY8, 6, false, true}, {TN_IMAGE_8BIT_3, 8, true, true},
        {TN_IMAGE_BGRX32, 5, true, true}, {TN_IMAGE_420, 8, false, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "format " << row.eType << ", width " << row.nWidth);
        const int nPitch = static_cast<int>(tn::RowBytes(row.eType, row.nWidth)) + (row.eType == TN_IMAGE_420 ? 0 : 9);
        Bytes bytes = Noise(static_cast<std::size_t>(nPitch) * 4, 3);
        const Surface surface =
            tn::SurfaceOver(bytes.data(), bytes.size(), {row.nWidth, 4, nPitch, row.eType, {0, 0}}, 0);
        ASSERT_TRUE(surface);
        std::error_code ec;
        EXPECT_EQ(tn::SaveImage((m_directory / "a.bmp").c_str(), surface.get(), ec), row.bBmp) << ec.message();
        EXPECT_EQ(ec, row.bBmp ? std::error_code() : tn::errc::format_not_supported);
        EXPECT_EQ(tn::SaveImage((m_directory / "a.jpg").c_str(), surface.get(), ec), row.bJpeg) << ec.message();
        EXPECT_EQ(ec, row.bJpeg ? std::error_code() : tn::errc::format_not_supported);
        EXPECT_FALSE(tn::SaveImage((m_directory / "a.png").c_str(), surface.get(), ec));
        EXPECT_EQ(ec, tn::errc::format_not_supported);
    }
    Bytes bytes = Counting(2 * 20);
    const Surface padded = tn::SurfaceOver(bytes.data(), bytes.size(), {4, 2, 20, TN_IMAGE_BGR24, {0, 0}}, 0);
    ASSERT_TRUE(tn::SaveImage((m_directory / "padded.bmp").c_str(), padded.get()));
    const Surface back = tn::LoadImage((m_directory / "padded.bmp").c_str(), m_pool.get());
    ASSERT_TRUE(back);
    EXPECT_EQ(SurfaceBytes(back.get()), Repitch(bytes, 12, 20, 12, 2)) << "not shifted";
}

TEST_F(Pictures, RecordsAreSavedWithTheirPitch) {
    Bytes bytes = Counting(2 * 20);
    STnNLImageData image = Record(TN_IMAGE_BGR24, 4, 2, bytes);
    ASSERT_TRUE(tn::SaveImage((m_directory / "a.bmp").c_str(), image, 20));
    const Surface back = tn::LoadImage((m_directory / "a.bmp").c_str(), m_pool.get());
    ASSERT_TRUE(back);
    EXPECT_EQ(SurfaceBytes(back.get()), Repitch(bytes, 12, 20, 12, 2));
    std::error_code ec;
    image.nDataSize = 31;
    EXPECT_FALSE(tn::SaveImage((m_directory / "b.bmp").c_str(), image, 20, ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
}

// The library's own operation answers 0 for all of these.
TEST_F(Pictures, WhatCannotBeWrittenLeavesTheOldFileAndSaysWhy) {
    const Surface surface = Filled(TN_IMAGE_BGR24, 64, 64);
    for (const char* lpszName : {"a.jpg", "a.bmp"}) {
        const std::string strPath = File(lpszName, Bytes(3, 'x'));
        std::error_code ec;
        bool bSaved = true;
        {
            const FileSizeLimit full(100);
            bSaved = tn::SaveImage(strPath.c_str(), surface.get(), ec);
        }
        EXPECT_FALSE(bSaved);
        EXPECT_EQ(ec, std::errc::file_too_large) << lpszName << ": " << ec.message();
        EXPECT_EQ(ReadBytes(strPath), Bytes(3, 'x'));
        EXPECT_FALSE(tn::SaveImage((m_directory / "nowhere/").append(lpszName).c_str(), surface.get(), ec));
        EXPECT_EQ(ec, std::errc::no_such_file_or_directory);
    }
    EXPECT_EQ(m_directory.Names().size(), 2U) << "nothing is left beside them";
}

TEST_F(Pictures, WhatIsTooLargeForAJpegIsRefused) {
    Bytes bytes(65501, 7);
    std::error_code ec;
    const Surface wide = tn::SurfaceOver(bytes.data(), bytes.size(), {65501, 1, 65501, TN_IMAGE_GRAY8, {0, 0}}, 0);
    EXPECT_FALSE(tn::SaveImage((m_directory / "a.jpg").c_str(), wide.get(), ec));
    EXPECT_EQ(ec, tn::errc::picture_too_large);
    EXPECT_TRUE(m_directory.Names().empty());
}

TEST_F(Pictures, EveryReasonIsASentence) {
    for (const tn::errc eReason : {tn::errc::not_a_picture, tn::errc::picture_incomplete, tn::errc::picture_damaged,
                                   tn::errc::picture_too_large, tn::errc::format_not_supported, tn::errc::no_surface}) {
        EXPECT_NE(make_error_code(eReason).message(), "Unknown reason");
    }
}
