#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "image/TnJpegDecoder.h"
#include "image/TnJpegEncoder.h"
#include "support/bytes/PlainJpeg.h"
#include "support/fakes/TestSurfaces.h"

using namespace tntest;

namespace {

bool TryEncode(STnNLImageData image, const Bytes& pixels, Bytes& jpeg) {
    // Memory of exactly the record's size, so that a sanitizer sees a byte read beyond it.
    const Bytes exact(pixels);
    image.pData = exact.empty() ? nullptr : const_cast<unsigned char*>(exact.data());
    image.nDataSize = static_cast<unsigned int>(exact.size());
    CTnJpegEncoder encoder;
    const bool bDone = encoder.Encode(image);
    unsigned int nSize = 0;
    const unsigned char* pJpeg = encoder.GetEncodeData(nSize);
    jpeg.clear();
    if (bDone) {
        jpeg.assign(pJpeg, pJpeg + nSize);
    }
    return bDone;
}

Bytes Encode(ETnNLImageType eType, int nWidth, int nHeight, const Bytes& pixels) {
    Bytes jpeg;
    EXPECT_TRUE(TryEncode(Record(eType, nWidth, nHeight, pixels), pixels, jpeg));
    return jpeg;
}

bool Refuses(ETnNLImageType eType, int nWidth, int nHeight, std::size_t nSize) {
    const Bytes pixels = Counting(nSize);
    Bytes jpeg;
    testing::internal::CaptureStderr();  // libjpeg may say why
    const bool bDone = TryEncode(Record(eType, nWidth, nHeight, pixels), pixels, jpeg);
    testing::internal::GetCapturedStderr();
    return !bDone;
}

struct Format {
    ETnNLImageType eType;
    J_COLOR_SPACE eInput;
    int nChannels;
};

constexpr Format kFormats[] = {
    {TN_IMAGE_RGB24, JCS_EXT_RGB, 3},    {TN_IMAGE_BGR24, JCS_EXT_BGR, 3},    {TN_IMAGE_8BIT_3, JCS_GRAYSCALE, 1},
    {TN_IMAGE_8BIT_4, JCS_GRAYSCALE, 1}, {TN_IMAGE_8BIT_5, JCS_GRAYSCALE, 1}, {TN_IMAGE_8BIT_6, JCS_GRAYSCALE, 1},
    {TN_IMAGE_GRAY8, JCS_GRAYSCALE, 1},  {TN_IMAGE_BGRX32, JCS_EXT_BGRX, 4},
};

// Steps 8 x 8 of the standard tables at quality 95.
constexpr unsigned int kLuminance[64] = {
    2, 1, 1, 2, 2, 4,  5,  6, 1, 1, 1, 2, 3, 6,  6,  6, 1, 1, 2, 2, 4,  6,  7,  6,  1, 2, 2,  3,  5,  9,  8,  6,
    2, 2, 4, 6, 7, 11, 10, 8, 2, 4, 6, 6, 8, 10, 11, 9, 5, 6, 8, 9, 10, 12, 12, 10, 7, 9, 10, 10, 11, 10, 10, 10,
};
constexpr unsigned int kChrominance[64] = {
    2,  2,  2,  5,  10, 10, 10, 10, 2,  2,  3,  7,  10, 10, 10, 10, 2,  3,  6,  10, 10, 10,
    10, 10, 5,  7,  10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10,
    10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10,
};

}  // namespace

TEST(JpegEncoder, HoldsNothingAtFirst) {
    CTnJpegEncoder encoder;
    unsigned int nSize = 99;
    encoder.GetEncodeData(nSize);
    EXPECT_EQ(nSize, 0U);
}

// Bit for bit what plain libjpeg calls with quality 95, baseline tables and an unsubsampled first
// component give, at every size from one pixel on.
TEST(JpegEncoder, WritesWhatPlainLibjpegWrites) {
    for (const Format& format : kFormats) {
        for (int nHeight = 1; nHeight <= 17; nHeight += 4) {
            for (int nWidth = 1; nWidth <= 18; ++nWidth) {
                const int nRow = nWidth * format.nChannels;
                const int nPitch = (nRow + 3) / 4 * 4;
                const Bytes pixels = Noise(static_cast<std::size_t>(nPitch * nHeight), 17);
                JpegRecipe recipe;
                recipe.nWidth = nWidth;
                recipe.nHeight = nHeight;
                recipe.eInput = format.eInput;
                recipe.nComponents = format.nChannels;
                recipe.nQuality = 95;
                const auto uRow = static_cast<std::size_t>(nRow);
                const Bytes packed =
                    Repitch(pixels, uRow, static_cast<std::size_t>(nPitch), uRow, static_cast<std::size_t>(nHeight));
                EXPECT_TRUE(Encode(format.eType, nWidth, nHeight, pixels) == EncodePlain(recipe, packed))
                    << "format " << format.eType << ", " << nWidth << " x " << nHeight;
            }
        }
    }
}

TEST(JpegEncoder, ColourHasThreeUnsampledComponentsOfQuality95) {
    for (const Format& format : kFormats) {
        if (format.nChannels == 1) {
            continue;
        }
        const int nPitch = (33 * format.nChannels + 3) / 4 * 4;
        const JpegFacts facts =
            ReadFacts(Encode(format.eType, 33, 21, SmoothPicture(33, 21, format.nChannels, nPitch)));
        EXPECT_EQ(facts.nWidth, 33);
        EXPECT_EQ(facts.nHeight, 21);
        EXPECT_EQ(facts.eStored, JCS_YCbCr);
        EXPECT_TRUE(facts.bJfif);
        EXPECT_FALSE(facts.bProgressive);
        EXPECT_FALSE(facts.bArithmetic);
        ASSERT_EQ(facts.sampling.size(), 3U);
        for (std::size_t c = 0; c < 3; ++c) {
            EXPECT_EQ(facts.sampling[c], (std::array<int, 2>{1, 1})) << c;
            for (std::size_t i = 0; i < 64; ++i) {
                EXPECT_EQ(facts.quantisers[c][i], c == 0 ? kLuminance[i] : kChrominance[i]) << c << " " << i;
            }
        }
    }
}

TEST(JpegEncoder, OneByteFormatsGiveGrey) {
    for (const Format& format : kFormats) {
        if (format.nChannels != 1) {
            continue;
        }
        const JpegFacts facts = ReadFacts(Encode(format.eType, 32, 8, SmoothPicture(32, 8, 1, 32)));
        EXPECT_EQ(facts.eStored, JCS_GRAYSCALE);
        ASSERT_EQ(facts.sampling.size(), 1U);
        EXPECT_EQ(facts.sampling[0], (std::array<int, 2>{1, 1}));
        for (std::size_t i = 0; i < 64; ++i) {
            EXPECT_EQ(facts.quantisers[0][i], kLuminance[i]) << i;
        }
    }
}

TEST(JpegEncoder, ASmoothPictureComesBackNearlyAsItWas) {
    const struct {
        ETnNLImageType eType;
        J_COLOR_SPACE eOutput;
        int nChannels;
    } rows[] = {{TN_IMAGE_RGB24, JCS_EXT_RGB, 3}, {TN_IMAGE_BGR24, JCS_EXT_BGR, 3}, {TN_IMAGE_GRAY8, JCS_GRAYSCALE, 1}};
    constexpr int kWidth = 100;
    constexpr int kHeight = 75;
    for (const auto& row : rows) {
        const Bytes pixels = SmoothPicture(kWidth, kHeight, row.nChannels, kWidth * row.nChannels);
        const JpegPicture picture = DecodePlain(Encode(row.eType, kWidth, kHeight, pixels), row.eOutput, row.nChannels);
        ASSERT_TRUE(picture.bPixels);
        ASSERT_EQ(picture.pixels.size(), pixels.size());
        int nWorst = 0;
        for (std::size_t i = 0; i < pixels.size(); ++i) {
            nWorst = std::max(nWorst, std::abs(int{picture.pixels[i]} - int{pixels[i]}));
        }
        EXPECT_LE(nWorst, 6) << row.eType;
    }
}

TEST(JpegEncoder, TheFourthByteOfAPixelDoesNotCount) {
    Bytes pixels = SmoothPicture(8, 8, 4, 32);
    const Bytes jpeg = Encode(TN_IMAGE_BGRX32, 8, 8, pixels);
    for (std::size_t i = 3; i < pixels.size(); i += 4) {
        pixels[i] = static_cast<unsigned char>(~pixels[i]);
    }
    EXPECT_TRUE(Encode(TN_IMAGE_BGRX32, 8, 8, pixels) == jpeg);
}

TEST(JpegEncoder, RowPaddingDoesNotCount) {
    Bytes pixels = Noise(16 * 4, 3);
    const Bytes jpeg = Encode(TN_IMAGE_BGR24, 5, 4, pixels);
    for (std::size_t i = 15; i < pixels.size(); i += 16) {
        pixels[i] = static_cast<unsigned char>(~pixels[i]);
    }
    EXPECT_TRUE(Encode(TN_IMAGE_BGR24, 5, 4, pixels) == jpeg);
}

TEST(JpegEncoder, IgnoresTheRecordsChannelsAndBits) {
    const Bytes pixels = Noise(48, 4);
    STnNLImageData image = Record(TN_IMAGE_BGR24, 4, 4, pixels);
    const Bytes expected = Encode(TN_IMAGE_BGR24, 4, 4, pixels);
    image.nChannels = 77;
    image.nBitsPerChannel = 1;
    Bytes jpeg;
    EXPECT_TRUE(TryEncode(image, pixels, jpeg));
    EXPECT_TRUE(jpeg == expected);
}

// The working buffer holds 4096 bytes; nothing is lost where one piece follows another.
TEST(JpegEncoder, LongStreamsComeOutWhole) {
    for (const int nSize : {16, 40, 48, 56, 64, 200, 640}) {
        const auto uSize = static_cast<std::size_t>(nSize);
        const Bytes pixels = Noise(uSize * uSize * 3, 5);
        JpegRecipe recipe;
        recipe.nWidth = nSize;
        recipe.nHeight = nSize;
        recipe.nQuality = 95;
        const Bytes expected = EncodePlain(recipe, pixels);
        EXPECT_TRUE(Encode(TN_IMAGE_BGR24, nSize, nSize, pixels) == expected) << expected.size() << " bytes";
    }
}

TEST(JpegEncoder, StreamsThatEndWithAPieceComeOutWhole) {
    JpegRecipe recipe;
    recipe.nHeight = 8;
    recipe.eInput = JCS_GRAYSCALE;
    recipe.nComponents = 1;
    recipe.nQuality = 95;
    const auto Expected = [&recipe](unsigned int nSeed) {
        return EncodePlain(recipe, Noise(static_cast<std::size_t>(recipe.nWidth) * 8, nSeed));
    };
    // A width at which streams of noise are about one piece long: their lengths scatter around it.
    constexpr std::size_t kPiece = 4096;
    for (recipe.nWidth = 8; Expected(1).size() < kPiece; recipe.nWidth += 4) {
    }
    std::size_t nExact = 0;
    for (unsigned int nSeed = 1; nSeed <= 500; ++nSeed) {
        const Bytes expected = Expected(nSeed);
        nExact += expected.size() == kPiece ? 1 : 0;
        const Bytes pixels = Noise(static_cast<std::size_t>(recipe.nWidth) * 8, nSeed);
        EXPECT_TRUE(Encode(TN_IMAGE_GRAY8, recipe.nWidth, 8, pixels) == expected) << expected.size() << " bytes";
    }
    EXPECT_GT(nExact, 0U) << "no stream is exactly a piece long";
}

// A surface of one byte per pixel has packed rows; its record must encode as what it shows.
TEST(JpegEncoder, TakesPackedRowsOfOneBytePixels) {
    for (const ETnNLImageType eType : {TN_IMAGE_8BIT_3, TN_IMAGE_GRAY8}) {
        for (const int nWidth : {1, 2, 3, 5, 13}) {
            JpegRecipe recipe;
            recipe.nWidth = nWidth;
            recipe.nHeight = 9;
            recipe.eInput = JCS_GRAYSCALE;
            recipe.nComponents = 1;
            recipe.nQuality = 95;
            const Bytes packed = Noise(static_cast<std::size_t>(nWidth) * 9, 7);
            EXPECT_TRUE(Encode(eType, nWidth, 9, packed) == EncodePlain(recipe, packed)) << nWidth;
        }
    }
}

TEST(JpegEncoder, RefusesOtherFormats) {
    for (const int nType : {-1, 0, 8, 10, 255}) {
        EXPECT_TRUE(Refuses(static_cast<ETnNLImageType>(nType), 4, 4, 64)) << nType;
    }
}

TEST(JpegEncoder, RefusesRecordsWithoutAllTheirRows) {
    const struct {
        const char* lpszWhat;
        ETnNLImageType eType;
        int nWidth;
        int nHeight;
        std::size_t nSize;
    } rows[] = {
        {"no data", TN_IMAGE_BGR24, 4, 4, 0},
        {"one byte short", TN_IMAGE_BGR24, 4, 4, 47},
        {"packed colour", TN_IMAGE_BGR24, 5, 2, 30},
        {"one byte short of packed grey", TN_IMAGE_GRAY8, 5, 2, 9},
        {"one byte short of four", TN_IMAGE_BGRX32, 3, 3, 35},
        {"size that wraps", TN_IMAGE_BGR24, 0x10000, 0x10000, 64},
        {"row that wraps", TN_IMAGE_BGRX32, 0x40000001, 1, 64},
        {"largest", TN_IMAGE_BGRX32, 0x7FFFFFFF, 0x7FFFFFFF, 64},
        {"no columns", TN_IMAGE_BGR24, 0, 4, 48},
        {"no rows", TN_IMAGE_BGR24, 4, 0, 48},
        {"negative width", TN_IMAGE_BGR24, -4, 4, 48},
        {"negative height", TN_IMAGE_BGR24, 4, -4, 48},
        {"smallest", TN_IMAGE_GRAY8, -2147483647 - 1, -2147483647 - 1, 48},
    };
    for (const auto& row : rows) {
        EXPECT_TRUE(Refuses(row.eType, row.nWidth, row.nHeight, row.nSize)) << row.lpszWhat;
    }
}

TEST(JpegEncoder, RefusesSizesThatTheFormatCannotSay) {
    EXPECT_FALSE(Refuses(TN_IMAGE_GRAY8, 65500, 1, 65500));
    EXPECT_TRUE(Refuses(TN_IMAGE_GRAY8, 65501, 1, 65504));
    EXPECT_FALSE(Refuses(TN_IMAGE_GRAY8, 4, 65500, 4 * 65500));
    EXPECT_TRUE(Refuses(TN_IMAGE_GRAY8, 4, 65501, 4 * 65501));
}

TEST(JpegEncoder, PrintsLibjpegsMessageWhenLibjpegRefuses) {
    const Bytes pixels = Counting(65504);
    CTnJpegEncoder encoder;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(encoder.Encode(Record(TN_IMAGE_GRAY8, 65501, 1, pixels)));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Maximum supported image dimension is 65500 pixels\n");
}

TEST(JpegEncoder, RefusesANullPointer) {
    STnNLImageData image = Record(TN_IMAGE_BGR24, 4, 4, {});
    image.pData = nullptr;
    image.nDataSize = 48;
    CTnJpegEncoder encoder;
    EXPECT_FALSE(encoder.Encode(image));
}

TEST(JpegEncoder, ReplacesTheStreamBeforeAndWorksAfterAFailure) {
    const Bytes large = Noise(64 * 64 * 3, 8);
    const Bytes small = Noise(48, 9);
    CTnJpegEncoder encoder;
    ASSERT_TRUE(encoder.Encode(Record(TN_IMAGE_BGR24, 64, 64, large)));
    EXPECT_FALSE(encoder.Encode(Record(TN_IMAGE_NONE, 4, 4, small)));
    unsigned int nSize = 99;
    encoder.GetEncodeData(nSize);
    EXPECT_EQ(nSize, 0U) << "a refused picture leaves nothing of the one before";
    ASSERT_TRUE(encoder.Encode(Record(TN_IMAGE_BGR24, 4, 4, small)));
    const unsigned char* pJpeg = encoder.GetEncodeData(nSize);
    EXPECT_TRUE(Bytes(pJpeg, pJpeg + nSize) == Encode(TN_IMAGE_BGR24, 4, 4, small));
}
