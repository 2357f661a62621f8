#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <fstream>

#include "image/TnBmpDecoder.h"
#include "support/bytes/BmpBytes.h"
#include "support/fakes/TestSurfaces.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

class BmpDecoder : public testing::Test {
protected:
    // Opens the bytes as a file.
    bool OpenFile(const Bytes& bytes) {
        std::ofstream file(m_path, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        file.close();
        return m_decoder.Open(m_path.c_str());
    }

    // From memory of exactly this size, so that a sanitizer sees a byte read beyond it.
    bool OpenMemory(const Bytes& bytes) {
        const Bytes exact(bytes);
        return m_decoder.Open(exact.data(), static_cast<unsigned int>(exact.size()));
    }

    Bytes Read(ETnNLImageType eType, std::size_t nSize) {
        Bytes pixels(nSize, 0xCC);
        EXPECT_TRUE(m_decoder.ReadData(eType, pixels.data(), static_cast<unsigned int>(nSize)));
        return pixels;
    }

    TempDirectory m_directory;
    std::string m_path = m_directory / "picture.bmp";
    CTnBmpDecoder m_decoder;
};

}  // namespace

TEST_F(BmpDecoder, KnowsNothingBeforeItIsOpened) {
    int nWidth = 7;
    int nHeight = 8;
    EXPECT_FALSE(m_decoder.ReadHeader(nWidth, nHeight));
    unsigned char buffer[4] = {};
    EXPECT_FALSE(m_decoder.ReadData(TN_IMAGE_BGR24, buffer, sizeof(buffer)));
    m_decoder.Close();
}

TEST_F(BmpDecoder, ReadsAFileWrittenByteByByte) {
    const Bytes file = FromHex(
        "42 4D"         // BM
        "4E 00 00 00"   // 78 bytes
        "00 00 00 00"   //
        "36 00 00 00"   // pixels at 54
        "28 00 00 00"   //
        "04 00 00 00"   // 4 columns
        "02 00 00 00"   // 2 rows
        "01 00  18 00"  // 24 bits
        "00 00 00 00"   //
        "18 00 00 00"   // 24 bytes of pixels
        "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
        "01 02 03 04 05 06 07 08 09 0A 0B 0C"    // lower row
        "21 22 23 24 25 26 27 28 29 2A 2B 2C");  // upper row
    ASSERT_TRUE(OpenFile(file));
    int nWidth = 0;
    int nHeight = 0;
    ASSERT_TRUE(m_decoder.ReadHeader(nWidth, nHeight));
    EXPECT_EQ(nWidth, 4);
    EXPECT_EQ(nHeight, 2);
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 24),
              FromHex("21 22 23 24 25 26 27 28 29 2A 2B 2C 01 02 03 04 05 06 07 08 09 0A 0B 0C"));
}

TEST_F(BmpDecoder, WorksTheImageSizeOutWhenTheHeaderLeavesItOpen) {
    const Bytes pixels = Counting(36);
    BmpFields f;
    f.nWidth = 4;
    f.nHeight = 3;
    f.nImageSize = 0;
    ASSERT_TRUE(OpenFile(BmpFile(f, pixels)));
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 36), FlipRows(pixels, 12));
}

TEST_F(BmpDecoder, ReadsRowsWithoutPadding) {
    const Bytes pixels = Counting(15 * 4);
    ASSERT_TRUE(OpenFile(BmpFile24(5, 4, pixels)));
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 60), FlipRows(pixels, 15));
}

TEST_F(BmpDecoder, FindsThePixelsByTheDataOffset) {
    const Bytes pixels = Counting(12);
    for (const std::uint32_t nOffset : {54U, 55U, 58U, 1078U, 100000U}) {
        BmpFields f;
        f.nWidth = 4;
        f.nHeight = 1;
        f.nImageSize = 12;
        f.nDataOffset = nOffset;
        ASSERT_TRUE(OpenFile(BmpFile(f, pixels))) << nOffset;
        EXPECT_EQ(Read(TN_IMAGE_BGR24, 12), pixels) << nOffset;
    }
}

TEST_F(BmpDecoder, IgnoresWhatDoesNotDescribeThePixels) {
    BmpFields f;
    f.nWidth = 4;
    f.nHeight = 2;
    f.nImageSize = 24;
    f.nSignature = 0x0000;
    f.nPlanes = 99;
    f.nCompression = 3;
    f.nInfoSize = 124;
    f.nColours = 0xFFFFFFFF;
    const Bytes pixels = Counting(24);
    ASSERT_TRUE(OpenFile(BmpFile(f, pixels)));
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 24), FlipRows(pixels, 12));
}

TEST_F(BmpDecoder, ToleratesBytesBehindThePixels) {
    const Bytes pixels = Counting(24);
    BmpFields f;
    f.nWidth = 4;
    f.nHeight = 2;
    f.nImageSize = 24;
    ASSERT_TRUE(OpenFile(BmpFile(f, pixels + Bytes(5, 0xEE))));
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 24), FlipRows(pixels, 12));
}

// The image size alone says how many rows there are; the height is only reported.
TEST_F(BmpDecoder, ReadsAsManyRowsAsTheImageSizeHolds) {
    for (const int nHeight : {1, 2, 5, 0, -3}) {
        BmpFields f;
        f.nWidth = 4;
        f.nHeight = nHeight;
        f.nImageSize = 24;
        const Bytes pixels = Counting(24);
        ASSERT_TRUE(OpenFile(BmpFile(f, pixels))) << nHeight;
        int nWidth = 0;
        int nReported = 99;
        EXPECT_TRUE(m_decoder.ReadHeader(nWidth, nReported));
        EXPECT_EQ(nReported, nHeight);
        EXPECT_EQ(Read(TN_IMAGE_BGR24, 24), FlipRows(pixels, 12));
    }
}

TEST_F(BmpDecoder, ReadsGreyFiles) {
    const Bytes pixels = Counting(12);
    BmpFields f;
    f.nWidth = 4;
    f.nHeight = 3;
    f.nBitsPerPixel = 8;
    f.nDataOffset = 1078;
    f.nImageSize = 12;
    ASSERT_TRUE(OpenFile(BmpFile(f, pixels)));
    EXPECT_EQ(Read(TN_IMAGE_GRAY8, 12), FlipRows(pixels, 4));
}

TEST_F(BmpDecoder, RoundsBitsDownToWholeBytes) {
    for (const unsigned int nBits : {24U, 25U, 31U}) {
        BmpFields f;
        f.nWidth = 4;
        f.nHeight = 2;
        f.nBitsPerPixel = nBits;
        const Bytes pixels = Counting(24);
        ASSERT_TRUE(OpenFile(BmpFile(f, pixels))) << nBits;
        EXPECT_EQ(Read(TN_IMAGE_BGR24, 24), FlipRows(pixels, 12));
    }
}

TEST_F(BmpDecoder, HandsOutOnlyTheFormatThatIsStored) {
    const struct {
        unsigned int nBits;
        int nAccepted;  // the one format that fits, 0 for none
    } rows[] = {{8, 7}, {16, 0}, {24, 2}, {32, 0}, {64, 0}};
    for (const auto& row : rows) {
        const std::uint32_t nSize = row.nBits / 8 * 4 * 2;
        BmpFields f;
        f.nWidth = 4;
        f.nHeight = 2;
        f.nBitsPerPixel = row.nBits;
        f.nImageSize = nSize;
        ASSERT_TRUE(OpenFile(BmpFile(f, Counting(nSize)))) << row.nBits;
        for (int nType = -1; nType <= 10; ++nType) {
            Bytes buffer(nSize);
            EXPECT_EQ(m_decoder.ReadData(static_cast<ETnNLImageType>(nType), buffer.data(), nSize),
                      nType == row.nAccepted && nType != 0)
                << row.nBits << " bits, format " << nType;
        }
    }
}

TEST_F(BmpDecoder, NeedsABufferForAllPixels) {
    ASSERT_TRUE(OpenFile(BmpFile24(4, 2, Counting(24))));
    Bytes buffer(30, 0xCC);
    EXPECT_FALSE(m_decoder.ReadData(TN_IMAGE_BGR24, nullptr, 24));
    EXPECT_FALSE(m_decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 23));
    EXPECT_FALSE(m_decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 0));
    EXPECT_EQ(buffer, Bytes(30, 0xCC));
    EXPECT_TRUE(m_decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 30));
    EXPECT_EQ(Bytes(buffer.begin() + 24, buffer.end()), Bytes(6, 0xCC)) << "only the pixels are copied";
}

TEST_F(BmpDecoder, HandsThePixelsOutAgainAlsoAfterClose) {
    ASSERT_TRUE(OpenFile(BmpFile24(4, 2, Counting(24))));
    const Bytes first = Read(TN_IMAGE_BGR24, 24);
    m_decoder.Close();
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 24), first);
}

TEST_F(BmpDecoder, CanBeOpenedAgain) {
    ASSERT_TRUE(OpenFile(BmpFile24(4, 2, Counting(24))));
    ASSERT_TRUE(OpenFile(BmpFile24(4, 1, Counting(12, 100))));
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 12), Counting(12, 100));
}

TEST_F(BmpDecoder, RefusesAFileWhoseLengthIsNotTheHeaders) {
    const Bytes good = BmpFile24(4, 2, Counting(24));
    EXPECT_TRUE(OpenFile(good));
    Bytes longer = good;
    longer.push_back(0);
    EXPECT_FALSE(OpenFile(longer));
    EXPECT_FALSE(OpenFile(Bytes(good.begin(), good.end() - 1)));
    for (const unsigned int nSize : {0U, 77U, 79U, 0xFFFFFFFFU}) {
        BmpFields f;
        f.nWidth = 4;
        f.nHeight = 2;
        f.nImageSize = 24;
        f.nFileSize = nSize;
        EXPECT_FALSE(OpenFile(BmpHeader(f) + Counting(24))) << nSize;
    }
}

TEST_F(BmpDecoder, RefusesFilesThatAreNotThere) {
    EXPECT_FALSE(m_decoder.Open((m_directory / "none.bmp").c_str()));
    EXPECT_FALSE(m_decoder.Open(""));
    EXPECT_FALSE(m_decoder.Open(static_cast<const char*>(nullptr)));
    EXPECT_FALSE(m_decoder.Open(m_directory.Path().c_str())) << "a directory";
    EXPECT_FALSE(m_decoder.Open("/dev/zero")) << "without an end";
    EXPECT_FALSE(OpenFile({}));
    EXPECT_FALSE(OpenFile(Bytes(10)));
    EXPECT_FALSE(OpenFile(Bytes(53)));
}

TEST_F(BmpDecoder, RefusesAFileWithoutWholeRows) {
    const struct {
        const char* lpszWhat;
        int nWidth;
        int nHeight;
        unsigned int nBits;
        std::uint32_t nImageSize;
        std::uint32_t nDataOffset;
    } rows[] = {
        {"no bits", 4, 2, 0, 24, 54},
        {"one bit", 4, 2, 1, 24, 54},
        {"four bits", 4, 2, 4, 24, 54},
        {"seven bits", 4, 2, 7, 24, 54},
        {"no bits, size open", 4, 2, 0, 0, 54},
        {"8191 bytes per pixel", 4, 2, 65535, 24, 54},
        {"8191 bytes per pixel, size open", 4, 2, 65535, 0, 54},
        {"no columns", 0, 2, 24, 24, 54},
        {"no columns, size open", 0, 2, 24, 0, 54},
        {"negative width", -4, 2, 24, 24, 54},
        {"negative width, size open", -4, 2, 24, 0, 54},
        {"negative width and height, size open", -4, -2, 24, 0, 54},
        {"negative height, size open", 4, -2, 24, 0, 54},
        {"no rows, size open", 4, 0, 24, 0, 54},
        {"smallest height, size open", 4, INT_MIN, 24, 0, 54},
        {"less than a row", 4, 2, 24, 11, 54},
        {"a row and a half", 4, 2, 24, 18, 54},
        {"one byte over", 4, 2, 24, 13, 54},
        {"padded rows", 5, 2, 24, 32, 54},
        {"one row more than the file", 4, 2, 24, 36, 54},
        {"as large as can be", 4, 2, 24, 0xFFFFFFFC, 54},
        {"negative size", 4, 2, 24, 0x80000000, 54},
        {"size that wraps to 24", 8, 0x0AAAAAAB, 24, 0, 54},
        {"row that wraps to 12", 0x55555559, 2, 24, 24, 54},
        {"row that wraps, size open", 0x55555559, 1, 24, 0, 54},
        {"widest", INT_MAX, 1, 24, 0, 54},
        {"widest and highest", INT_MAX, INT_MAX, 65528, 0, 54},
        {"data one byte late", 4, 2, 24, 24, 55},
        {"data at the end", 4, 2, 24, 24, 78},
        {"data behind the end", 4, 2, 24, 24, 79},
        {"data far behind the end", 4, 2, 24, 24, 0xFFFFFFFF},
        {"end that wraps", 4, 2, 24, 24, 0xFFFFFFF0},
    };
    for (const auto& row : rows) {
        BmpFields f;
        f.nFileSize = 78;
        f.nDataOffset = row.nDataOffset;
        f.nWidth = row.nWidth;
        f.nHeight = row.nHeight;
        f.nBitsPerPixel = row.nBits;
        f.nImageSize = row.nImageSize;
        EXPECT_FALSE(OpenFile(BmpHeader(f) + Counting(24))) << row.lpszWhat;
        unsigned char buffer[64] = {};
        EXPECT_FALSE(m_decoder.ReadData(TN_IMAGE_BGR24, buffer, sizeof(buffer))) << row.lpszWhat;
    }
}

// As nearly all programs write them. With some sizes the padded bytes are by chance whole rows.
TEST_F(BmpDecoder, RefusesPaddedRows) {
    const struct {
        int nWidth;
        int nHeight;
    } sizes[] = {{5, 2}, {5, 15}, {27, 27}, {127, 127}, {255, 255}, {1, 3}, {2, 3}, {3, 3}, {1, 1}, {3, 9}, {2, 6}};
    for (const auto& size : sizes) {
        const auto nPadded = static_cast<std::size_t>((size.nWidth * 3 + 3) / 4 * 4 * size.nHeight);
        BmpFields f;
        f.nWidth = size.nWidth;
        f.nHeight = size.nHeight;
        const auto nUnpadded = static_cast<std::size_t>(size.nWidth * 3 * size.nHeight);
        for (const std::size_t nSize : {std::size_t{0}, nPadded, nUnpadded}) {
            f.nImageSize = static_cast<std::uint32_t>(nSize);
            EXPECT_FALSE(OpenFile(BmpFile(f, Counting(nPadded))))
                << size.nWidth << " x " << size.nHeight << ", size " << nSize;
        }
        f.nImageSize = 0;
        EXPECT_FALSE(OpenFile(BmpFile(f, Counting(nPadded + 2)))) << "two bytes more, as some programs add";
    }
}

// Only colour rows are told apart, only by what padded ones would take.
TEST_F(BmpDecoder, ReadsUnpaddedRowsOfAnyWidth) {
    for (int nWidth = 1; nWidth <= 9; ++nWidth) {
        for (int nHeight = 1; nHeight <= 9; ++nHeight) {
            const std::size_t nRow = static_cast<std::size_t>(nWidth) * 3;
            const std::size_t nSize = nRow * static_cast<std::size_t>(nHeight);
            const Bytes pixels = Counting(nSize);
            const std::size_t nRoom = (nRow + 3) / 4 * 4 * static_cast<std::size_t>(nHeight);
            BmpFields f;
            f.nWidth = nWidth;
            f.nHeight = nHeight;
            ASSERT_TRUE(OpenFile(BmpFile(f, pixels))) << nWidth << " x " << nHeight << ", size left open";
            EXPECT_EQ(Read(TN_IMAGE_BGR24, nSize), FlipRows(pixels, nRow));
            if (nRoom > nSize) {
                EXPECT_TRUE(OpenFile(BmpFile(f, pixels + Bytes(nRoom - nSize - 1, 0xEE)))) << "some bytes behind it";
            }
            f.nImageSize = static_cast<std::uint32_t>(nSize);
            ASSERT_TRUE(OpenFile(BmpFile(f, pixels))) << nWidth << " x " << nHeight;
            EXPECT_EQ(Read(TN_IMAGE_BGR24, nSize), FlipRows(pixels, nRow));
            EXPECT_TRUE(OpenFile(BmpFile(f, pixels + Bytes(100, 0xEE)))) << "bytes behind it";
        }
    }
    BmpFields grey;
    grey.nWidth = 3;
    grey.nHeight = 3;
    grey.nBitsPerPixel = 8;
    grey.nImageSize = 12;
    EXPECT_TRUE(OpenFile(BmpFile(grey, Counting(12)))) << "grey";
}

TEST_F(BmpDecoder, KeepsNoPixelsOfAnEarlierFileWhenTheNextIsCutShort) {
    ASSERT_TRUE(OpenFile(BmpFile24(4, 2, Counting(24))));
    BmpFields f;
    f.nFileSize = 66;
    f.nWidth = 4;
    f.nHeight = 2;
    f.nImageSize = 24;
    EXPECT_FALSE(OpenFile(BmpHeader(f) + Counting(12)));
    unsigned char buffer[64] = {};
    EXPECT_FALSE(m_decoder.ReadData(TN_IMAGE_BGR24, buffer, sizeof(buffer)));
}

TEST_F(BmpDecoder, FromMemoryKeepsTheRowsInFileOrder) {
    const Bytes pixels = Counting(24);
    ASSERT_TRUE(OpenMemory(BmpFile24(4, 2, pixels)));
    int nWidth = 0;
    int nHeight = 0;
    ASSERT_TRUE(m_decoder.ReadHeader(nWidth, nHeight));
    EXPECT_EQ(nWidth, 4);
    EXPECT_EQ(nHeight, 2);
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 24), pixels);
}

TEST_F(BmpDecoder, FromMemoryNeedsMoreThanTheHeaders) {
    for (std::size_t nSize = 0; nSize <= 54; ++nSize) {
        BmpFields f;
        f.nWidth = 4;
        f.nHeight = 2;
        f.nFileSize = static_cast<std::uint32_t>(nSize);
        const Bytes header = BmpHeader(f);
        EXPECT_FALSE(OpenMemory(Bytes(header.begin(), header.begin() + static_cast<std::ptrdiff_t>(nSize)))) << nSize;
    }
    EXPECT_FALSE(m_decoder.Open(static_cast<const unsigned char*>(nullptr), 55));
}

TEST_F(BmpDecoder, FromMemoryReadsTheSmallestFile) {
    BmpFields f;
    f.nWidth = 1;
    f.nHeight = 1;
    f.nBitsPerPixel = 8;
    f.nImageSize = 1;
    ASSERT_TRUE(OpenMemory(BmpFile(f, {0x42})));
    EXPECT_EQ(Read(TN_IMAGE_GRAY8, 1), Bytes{0x42});
}

TEST_F(BmpDecoder, FromMemoryRefusesALengthThatIsNotTheHeaders) {
    Bytes file = BmpFile24(4, 2, Counting(24));
    file.push_back(0);
    EXPECT_FALSE(OpenMemory(file));
    file.resize(file.size() - 2);
    EXPECT_FALSE(OpenMemory(file));
}

// Rows are not looked at in memory, so padded and broken ones come out as they are.
TEST_F(BmpDecoder, FromMemoryCopiesTheImageSizeAsOneBlock) {
    BmpFields f;
    f.nWidth = 5;
    f.nHeight = 2;
    f.nImageSize = 31;
    const Bytes pixels = Counting(31);
    ASSERT_TRUE(OpenMemory(BmpFile(f, pixels)));
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 31), pixels);
}

TEST_F(BmpDecoder, FromMemoryNeverReadsOutsideTheMemory) {
    const struct {
        const char* lpszWhat;
        std::uint32_t nImageSize;
        std::uint32_t nDataOffset;
    } rows[] = {
        {"one byte too many", 25, 54},  {"one byte late", 24, 55},      {"at the end", 1, 78},
        {"behind the end", 1, 79},      {"far behind", 24, 0xFFFFFFFF}, {"end that wraps", 24, 0xFFFFFFF0},
        {"everything", 0xFFFFFFFF, 54}, {"negative", 0x80000000, 54},   {"wraps to 78", 0xFFFFFFFF, 79},
    };
    for (const auto& row : rows) {
        BmpFields f;
        f.nFileSize = 78;
        f.nDataOffset = row.nDataOffset;
        f.nWidth = 4;
        f.nHeight = 2;
        f.nImageSize = row.nImageSize;
        EXPECT_FALSE(OpenMemory(BmpHeader(f) + Counting(24))) << row.lpszWhat;
    }
}

TEST_F(BmpDecoder, FromMemoryWithoutImageSizeLoadsNoPixels) {
    BmpFields f;
    f.nWidth = 4;
    f.nHeight = 2;
    EXPECT_TRUE(OpenMemory(BmpFile(f, Counting(24))));
    int nWidth = 0;
    int nHeight = 0;
    EXPECT_TRUE(m_decoder.ReadHeader(nWidth, nHeight));
    EXPECT_EQ(nWidth, 4);
    unsigned char buffer[24] = {};
    EXPECT_FALSE(m_decoder.ReadData(TN_IMAGE_BGR24, buffer, sizeof(buffer)));
}

// The header is the new one, the pixels are those that were there before.
TEST_F(BmpDecoder, FromMemoryWithoutImageSizeKeepsEarlierPixels) {
    const Bytes pixels = Counting(24);
    ASSERT_TRUE(OpenMemory(BmpFile24(4, 2, pixels)));
    BmpFields f;
    f.nWidth = 9;
    f.nHeight = 9;
    ASSERT_TRUE(OpenMemory(BmpFile(f, Counting(3))));
    int nWidth = 0;
    int nHeight = 0;
    EXPECT_TRUE(m_decoder.ReadHeader(nWidth, nHeight));
    EXPECT_EQ(nWidth, 9);
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 24), pixels);
}

TEST_F(BmpDecoder, FromMemoryKeepsThePixelsThatCameFromAFile) {
    const Bytes pixels = Counting(24);
    ASSERT_TRUE(OpenFile(BmpFile24(4, 2, pixels)));
    BmpFields f;
    f.nWidth = 9;
    f.nHeight = 9;
    ASSERT_TRUE(OpenMemory(BmpFile(f, Counting(3))));
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 24), FlipRows(pixels, 12));
}

TEST_F(BmpDecoder, ReadsMoreRowsThanOneCallOfTheSystemTakes) {
    for (const int nRows : {255, 256, 257, 1000}) {
        const Bytes pixels = Counting(static_cast<std::size_t>(3 * 7 * nRows));
        ASSERT_TRUE(OpenFile(BmpFile24(7, nRows, pixels)));
        EXPECT_EQ(Read(TN_IMAGE_BGR24, pixels.size()), FlipRows(pixels, 21)) << nRows;
    }
}

TEST_F(BmpDecoder, ReadsTheSameFileTwice) {
    const Bytes pixels = Counting(24);
    ASSERT_TRUE(OpenFile(BmpFile24(4, 2, pixels)));
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 24), FlipRows(pixels, 12));
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 24), FlipRows(pixels, 12));
}

TEST_F(BmpDecoder, HasNoPixelsOnceTheFileHasShrunkUnderIt) {
    for (const int nMissing : {1, 12, 24, 54}) {
        ASSERT_TRUE(OpenFile(BmpFile24(4, 2, Counting(24))));
        ASSERT_EQ(truncate(m_path.c_str(), 78 - nMissing), 0);
        Bytes buffer(24);
        EXPECT_FALSE(m_decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 24)) << nMissing;
        EXPECT_EQ(m_decoder.GetDataSize(), 0U);
        EXPECT_FALSE(m_decoder.ReadData(TN_IMAGE_BGR24, buffer.data(), 24)) << nMissing;
    }
}

// A memory image that says nothing about its pixels leaves those of the file in place, with the
// file's own rows.
TEST_F(BmpDecoder, KeepsThePixelsOfTheFileBehindAMemoryHeaderWithoutThem) {
    const Bytes pixels = Counting(24);
    ASSERT_TRUE(OpenFile(BmpFile24(4, 2, pixels)));
    BmpFields f;
    f.nWidth = 99;
    f.nHeight = 1;
    f.nImageSize = 0;
    ASSERT_TRUE(OpenMemory(BmpFile(f, Counting(8))));
    EXPECT_EQ(Read(TN_IMAGE_BGR24, 24), FlipRows(pixels, 12));
}
