#include <gtest/gtest.h>

#include <fstream>
#include <memory>

#include "image/TnJpegDecoder.h"
#include "support/bytes/PlainJpeg.h"
#include "support/fakes/TestSurfaces.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

Bytes SomeJpeg(int nWidth = 5, int nHeight = 3, int nSampling = 1) {
    JpegRecipe recipe;
    recipe.nSampling = nSampling;
    recipe.nWidth = nWidth;
    recipe.nHeight = nHeight;
    return EncodePlain(recipe, Noise(static_cast<std::size_t>(nWidth) * static_cast<std::size_t>(nHeight) * 3, 1));
}

Bytes CmykJpeg() {
    JpegRecipe recipe;
    recipe.eInput = JCS_CMYK;
    recipe.nComponents = 4;
    return EncodePlain(recipe, Noise(16 * 16 * 4, 2));
}

bool Open(CTnJpegDecoder& decoder, const Bytes& jpeg) {
    return decoder.Open(jpeg.data(), static_cast<unsigned int>(jpeg.size()));
}
bool Open(CTnJpegDecoder&, Bytes&&) = delete;  // the decoder reads the caller's bytes until it is closed

// Without libjpeg's messages on the screen.
template <typename Function>
auto Quietly(Function function) {
    testing::internal::CaptureStderr();
    const auto result = function();
    testing::internal::GetCapturedStderr();
    return result;
}

struct Format {
    ETnNLImageType eType;
    J_COLOR_SPACE eOutput;
    int nChannels;
};

constexpr Format kFormats[] = {
    {TN_IMAGE_RGB24, JCS_EXT_RGB, 3},
    {TN_IMAGE_BGR24, JCS_EXT_BGR, 3},
    {TN_IMAGE_GRAY8, JCS_GRAYSCALE, 1},
    {TN_IMAGE_BGRX32, JCS_EXT_BGRX, 4},
};

}  // namespace

TEST(JpegDecoder, KnowsNothingBeforeItIsOpened) {
    CTnJpegDecoder decoder;
    int nWidth = 7;
    int nHeight = 8;
    EXPECT_FALSE(decoder.ReadHeader(nWidth, nHeight));
    EXPECT_EQ(nWidth, 7);
    unsigned char buffer[64] = {};
    EXPECT_FALSE(decoder.ReadData(TN_IMAGE_BGR24, buffer, sizeof(buffer)));
    decoder.Close();
}

TEST(JpegDecoder, ReportsTheSize) {
    const Bytes jpeg = SomeJpeg(13, 17);
    CTnJpegDecoder decoder;
    ASSERT_TRUE(Open(decoder, jpeg));
    int nWidth = 0;
    int nHeight = 0;
    ASSERT_TRUE(decoder.ReadHeader(nWidth, nHeight));
    EXPECT_EQ(nWidth, 13);
    EXPECT_EQ(nHeight, 17);
}

TEST(JpegDecoder, RefusesNothing) {
    CTnJpegDecoder decoder;
    const unsigned char byOne = 0xFF;
    EXPECT_FALSE(decoder.Open(static_cast<const unsigned char*>(nullptr), 100));
    EXPECT_FALSE(decoder.Open(&byOne, 0));
    EXPECT_FALSE(decoder.Open(static_cast<const char*>(nullptr)));
    EXPECT_FALSE(decoder.Open(""));
    EXPECT_FALSE(decoder.Open("/nowhere/at/all.jpg"));
}

TEST(JpegDecoder, MustBeClosedBeforeItIsOpenedAgain) {
    const Bytes first = SomeJpeg(5, 3);
    const Bytes second = SomeJpeg(6, 4);
    TempDirectory directory;
    const std::string path = directory / "second.jpg";
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(second.data()), static_cast<std::streamsize>(second.size()));
    CTnJpegDecoder decoder;
    ASSERT_TRUE(Open(decoder, first));
    EXPECT_FALSE(Open(decoder, second));
    EXPECT_FALSE(decoder.Open(path.c_str()));
    int nWidth = 0;
    int nHeight = 0;
    EXPECT_TRUE(decoder.ReadHeader(nWidth, nHeight));
    EXPECT_EQ(nWidth, 5) << "the open picture stays";
    decoder.Close();
    EXPECT_FALSE(decoder.ReadHeader(nWidth, nHeight));
    ASSERT_TRUE(decoder.Open(path.c_str()));
    EXPECT_TRUE(decoder.ReadHeader(nWidth, nHeight));
    EXPECT_EQ(nWidth, 6);
    decoder.Close();
    decoder.Close();
}

TEST(JpegDecoder, CanBeOpenedAfterAFailedOpen) {
    const Bytes text = FromText("no picture at all");
    const Bytes jpeg = SomeJpeg();
    CTnJpegDecoder decoder;
    EXPECT_FALSE(Quietly([&] { return Open(decoder, text); }));
    EXPECT_TRUE(Open(decoder, jpeg));
}

TEST(JpegDecoder, PrintsLibjpegsOwnMessage) {
    const Bytes bytes = FromHex("12 34 56 78");
    CTnJpegDecoder decoder;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Open(decoder, bytes));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Not a JPEG file: starts with 0x12 0x34\n");
}

TEST(JpegDecoder, RowsStartAtMultiplesOfFour) {
    for (const Format& format : kFormats) {
        for (const int nWidth : {1, 2, 3, 4, 5, 8, 13}) {
            constexpr int kHeight = 3;
            const Bytes jpeg = SomeJpeg(nWidth, kHeight);
            const auto nRow = static_cast<std::size_t>(nWidth * format.nChannels);
            const std::size_t nStride = (nRow + 3) / 4 * 4;
            Bytes buffer(nStride * kHeight, 0xCC);
            CTnJpegDecoder decoder;
            ASSERT_TRUE(Open(decoder, jpeg));
            ASSERT_TRUE(decoder.ReadData(format.eType, buffer.data(), static_cast<unsigned int>(buffer.size())));
            const JpegPicture expected = DecodePlain(jpeg, format.eOutput, format.nChannels);
            ASSERT_TRUE(expected.bPixels);
            EXPECT_EQ(Repitch(buffer, nRow, nStride, nRow, kHeight), expected.pixels)
                << format.eType << ", width " << nWidth;
            for (std::size_t i = 0; i < buffer.size(); ++i) {
                if (i % nStride >= nRow) {
                    EXPECT_EQ(buffer[i], 0xCC) << "padding is not written";
                }
            }
        }
    }
}

TEST(JpegDecoder, GreyPicturesBecomeColour) {
    JpegRecipe recipe;
    recipe.eInput = JCS_GRAYSCALE;
    recipe.nComponents = 1;
    const Bytes jpeg = EncodePlain(recipe, Noise(256, 3));
    const JpegPicture grey = DecodePlain(jpeg, JCS_GRAYSCALE, 1);
    Bytes buffer(16 * 16 * 3);
    CTnJpegDecoder decoder;
    ASSERT_TRUE(Open(decoder, jpeg));
    ASSERT_TRUE(decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 768));
    for (std::size_t i = 0; i < buffer.size(); ++i) {
        EXPECT_EQ(buffer[i], grey.pixels[i / 3]);
    }
}

TEST(JpegDecoder, RefusesOtherFormats) {
    const Bytes jpeg = SomeJpeg(4, 4);
    for (const int nType : {-1, 0, 3, 4, 5, 6, 8, 10}) {
        Bytes buffer(64, 0xCC);
        CTnJpegDecoder decoder;
        ASSERT_TRUE(Open(decoder, jpeg));
        EXPECT_FALSE(decoder.ReadData(static_cast<ETnNLImageType>(nType), buffer.data(), 64)) << nType;
        EXPECT_EQ(buffer, Bytes(64, 0xCC));
    }
}

TEST(JpegDecoder, NeedsABufferForAllRows) {
    const Bytes jpeg = SomeJpeg(5, 3);
    const struct {
        unsigned int nSize;
        bool bEnough;
    } rows[] = {{0, false}, {15, false}, {16, false}, {47, false}, {48, true}, {60, true}};
    for (const auto& row : rows) {
        // Exactly as large as announced, so that a sanitizer sees a byte written beyond it.
        const std::unique_ptr<unsigned char[]> buffer(new unsigned char[row.nSize + (row.nSize == 0 ? 1U : 0U)]);
        CTnJpegDecoder decoder;
        ASSERT_TRUE(Open(decoder, jpeg));
        EXPECT_EQ(Quietly([&] { return decoder.ReadData(TN_IMAGE_BGR24, buffer.get(), row.nSize); }), row.bEnough)
            << row.nSize;
    }
}

TEST(JpegDecoder, TooSmallABufferIsLibjpegsError) {
    const Bytes jpeg = SomeJpeg(5, 3);
    Bytes buffer(47);
    CTnJpegDecoder decoder;
    ASSERT_TRUE(Open(decoder, jpeg));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 47));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Application transferred too few scanlines\n");
}

// libjpeg delivers as many rows at once as share a row of colours, and not all of them may have a place.
TEST(JpegDecoder, NothingIsWrittenBehindTheRowsThatFit) {
    constexpr std::size_t kRows = 40;
    constexpr std::size_t kPitch = 48;
    for (const int nSampling : {1, 2}) {
        const Bytes jpeg = SomeJpeg(16, kRows, nSampling);
        for (std::size_t nRows = 0; nRows < kRows; ++nRows) {
            Bytes buffer(kPitch * kRows, 0xCC);
            CTnJpegDecoder decoder;
            ASSERT_TRUE(Open(decoder, jpeg));
            const auto nSize = static_cast<unsigned int>(kPitch * nRows + kPitch - 1);
            EXPECT_FALSE(Quietly([&] { return decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), nSize); })) << nRows;
            const Bytes behind(buffer.begin() + static_cast<std::ptrdiff_t>(kPitch * nRows), buffer.end());
            EXPECT_EQ(behind, Bytes(behind.size(), 0xCC)) << nRows << " rows, sampled " << nSampling;
        }
    }
}

TEST(JpegDecoder, DecodesOnceForEachOpen) {
    const Bytes jpeg = SomeJpeg(4, 4);
    Bytes buffer(48);
    CTnJpegDecoder decoder;
    ASSERT_TRUE(Open(decoder, jpeg));
    EXPECT_TRUE(decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 48));
    EXPECT_FALSE(Quietly([&] { return decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 48); }));
    decoder.Close();
    ASSERT_TRUE(Open(decoder, jpeg));
    EXPECT_TRUE(decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 48));
}

TEST(JpegDecoder, ReadsFiles) {
    TempDirectory directory;
    const Bytes jpeg = SomeJpeg(4, 4);
    const std::string path = directory / "picture.of.any.ending";
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(jpeg.data()), static_cast<std::streamsize>(jpeg.size()));
    CTnJpegDecoder decoder;
    ASSERT_TRUE(decoder.Open(path.c_str()));
    Bytes buffer(48);
    EXPECT_TRUE(decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 48));
    EXPECT_EQ(buffer, DecodePlain(jpeg, JCS_EXT_BGR, 3).pixels);
    decoder.Close();
    EXPECT_FALSE(Quietly([&] { return decoder.Open(directory.Path().c_str()); })) << "a directory";
    EXPECT_FALSE(Quietly([&] { return decoder.Open("/dev/zero"); })) << "without an end";
    const std::string empty = directory / "empty.jpg";
    std::ofstream(empty, std::ios::binary).flush();
    EXPECT_FALSE(Quietly([&] { return decoder.Open(empty.c_str()); }));
    EXPECT_TRUE(decoder.Open(path.c_str()));
}

TEST(JpegDecoder, ColoursThatLibjpegCannotConvertAreRefused) {
    const Bytes jpeg = CmykJpeg();
    CTnJpegDecoder decoder;
    ASSERT_TRUE(Open(decoder, jpeg));
    int nWidth = 0;
    int nHeight = 0;
    EXPECT_TRUE(decoder.ReadHeader(nWidth, nHeight));
    Bytes buffer(1024);
    EXPECT_FALSE(Quietly([&] { return decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 1024); }));
    EXPECT_FALSE(Quietly([&] { return decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 1024); }));
}

TEST(JpegDecoder, MayBeDestroyedHalfWay) {
    const Bytes jpeg = SomeJpeg(5, 3);
    { CTnJpegDecoder decoder; }
    {
        CTnJpegDecoder decoder;
        EXPECT_TRUE(Open(decoder, jpeg));
    }
    {
        CTnJpegDecoder decoder;
        EXPECT_TRUE(Open(decoder, jpeg));
        Bytes buffer(20);
        EXPECT_FALSE(Quietly([&] { return decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 20); }));
    }
}
