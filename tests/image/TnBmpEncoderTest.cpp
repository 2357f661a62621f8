#include <gtest/gtest.h>

#include <cstring>

#include "image/TnBmpDecoder.h"
#include "image/TnBmpEncoder.h"
#include "support/bytes/BmpBytes.h"
#include "support/fakes/TestSurfaces.h"

using namespace tntest;

namespace {

// From memory of exactly the record's size, so that a sanitizer sees a byte read beyond it.
Bytes Encode(STnNLImageData image, const Bytes& pixels) {
    const Bytes exact(pixels);
    image.pData = exact.empty() ? nullptr : const_cast<unsigned char*>(exact.data());
    image.nDataSize = static_cast<unsigned int>(exact.size());
    CTnBmpEncoder encoder;
    EXPECT_TRUE(encoder.Encode(image));
    unsigned int nSize = 0;
    const unsigned char* pFile = encoder.GetEncodeData(nSize);
    return Bytes(pFile, pFile + nSize);
}

Bytes Encode(int nWidth, int nHeight, int nChannels, const Bytes& pixels) {
    STnNLImageData image = Record(TN_IMAGE_GRAY8, nWidth, nHeight, pixels);
    image.nChannels = static_cast<unsigned char>(nChannels);
    return Encode(image, pixels);
}

// The colour table with n entries.
Bytes Table(std::size_t nEntries) {
    Bytes table(4 * nEntries);
    for (std::size_t i = 0; i < table.size(); ++i) {
        table[i] = static_cast<unsigned char>(i / 4 % 256);
    }
    return table;
}

Bytes HeaderOf(int nWidth, int nHeight, unsigned int nChannels, std::uint32_t nEntries, std::uint32_t nDataSize) {
    BmpFields f;
    f.nFileSize = 54 + 4 * nEntries + nDataSize;
    f.nDataOffset = 54 + 4 * nEntries;
    f.nWidth = nWidth;
    f.nHeight = nHeight;
    f.nBitsPerPixel = 8 * nChannels;
    f.nImageSize = nDataSize;
    f.nColours = nEntries;
    return BmpHeader(f);
}

}  // namespace

TEST(BmpEncoder, HoldsNothingAtFirst) {
    CTnBmpEncoder encoder;
    unsigned int nSize = 99;
    encoder.GetEncodeData(nSize);
    EXPECT_EQ(nSize, 0U);
}

TEST(BmpEncoder, WritesGreyByteByByte) {
    const Bytes file = Encode(2, 2, 1, FromHex("01 02 03 04"));
    ASSERT_EQ(file.size(), 1082U);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 54), FromHex("42 4D"
                                                              "3A 04 00 00"  // 1082
                                                              "00 00 00 00"
                                                              "36 04 00 00"  // 1078
                                                              "28 00 00 00"
                                                              "02 00 00 00"
                                                              "02 00 00 00"
                                                              "01 00  08 00"
                                                              "00 00 00 00"
                                                              "04 00 00 00"
                                                              "00 00 00 00"
                                                              "00 00 00 00"
                                                              "00 01 00 00"
                                                              "00 01 00 00"));
    EXPECT_EQ(Bytes(file.begin() + 54, file.begin() + 1078), Table(256));
    EXPECT_EQ(file[54 + 4 * 255 + 3], 255) << "the reserved byte of an entry is part of the ramp";
    EXPECT_EQ(Bytes(file.begin() + 1078, file.end()), FromHex("03 04 01 02"));
}

TEST(BmpEncoder, WritesFourBytesPerPixelWithOneTableEntry) {
    const Bytes file = Encode(2, 2, 4, Counting(16));
    ASSERT_EQ(file.size(), 74U);
    EXPECT_EQ(file, HeaderOf(2, 2, 4, 1, 16) + Bytes(4, 0) + FlipRows(Counting(16), 8));
}

// Readers of these files find the pixels behind 16,777,216 entries.
TEST(BmpEncoder, WritesThreeBytesPerPixelBehindATableOf64MiB) {
    constexpr std::uint32_t kEntries = 1U << 24;
    const Bytes pixels = Counting(5 * 3 * 3);
    const Bytes file = Encode(5, 3, 3, pixels);
    ASSERT_EQ(file.size(), 54U + 4 * kEntries + 45U);
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 54), HeaderOf(5, 3, 3, kEntries, 45));
    EXPECT_EQ(Bytes(file.begin() + 10, file.begin() + 14), FromHex("36 00 00 04"));
    EXPECT_EQ(Bytes(file.begin() + 28, file.begin() + 30), FromHex("18 00"));
    EXPECT_EQ(Bytes(file.begin() + 46, file.begin() + 50), FromHex("00 00 00 01"));
    std::size_t nWrong = 0;
    for (std::size_t i = 0; i < 4 * std::size_t{kEntries}; ++i) {
        nWrong += file[54 + i] == static_cast<unsigned char>(i / 4) ? 0 : 1;
    }
    EXPECT_EQ(nWrong, 0U);
    EXPECT_EQ(Bytes(file.begin() + 54 + 4 * std::ptrdiff_t{kEntries}, file.end()), FlipRows(pixels, 15));
}

TEST(BmpEncoder, TableSizeFollowsFromTheBytesPerPixel) {
    const struct {
        unsigned int nChannels;
        std::uint32_t nEntries;  // 2 to the power of 8 x channels modulo 32
    } rows[] = {{0, 1}, {1, 256}, {2, 65536}, {4, 1}, {5, 256}, {6, 65536}, {8, 1}, {252, 1}, {253, 256}};
    for (const auto& row : rows) {
        const Bytes pixels = Counting(row.nChannels * 2);
        const Bytes file = Encode(2, 1, static_cast<int>(row.nChannels), pixels);
        const auto nSize = static_cast<std::uint32_t>(pixels.size());
        EXPECT_EQ(file, HeaderOf(2, 1, row.nChannels, row.nEntries, nSize) + Table(row.nEntries) + pixels)
            << row.nChannels;
    }
}

TEST(BmpEncoder, DoesNotLookAtTheFormat) {
    const Bytes pixels = Counting(8);
    for (int nType = -1; nType <= 10; ++nType) {
        STnNLImageData image = Record(static_cast<ETnNLImageType>(nType), 2, 1, pixels);
        image.nChannels = 4;
        image.nBitsPerChannel = 99;
        EXPECT_EQ(Encode(image, pixels), HeaderOf(2, 1, 4, 1, 8) + Bytes(4, 0) + pixels) << nType;
    }
}

// Rows are counted from the end of the data, and the data size stands in the header as it is.
TEST(BmpEncoder, TakesRowsFromTheEndOfTheData) {
    EXPECT_EQ(Encode(2, 2, 4, Counting(19)),
              HeaderOf(2, 2, 4, 1, 19) + Bytes(4, 0) + FlipRows(Counting(16, 4), 8) + Bytes(3, 0));
}

TEST(BmpEncoder, SkewsRowsThatArePadded) {
    // 5 columns of 1 byte at a pitch of 8: the rows are taken to be 5 bytes apart.
    const Bytes pixels = Counting(16);
    EXPECT_EQ(Encode(5, 2, 1, pixels),
              HeaderOf(5, 2, 1, 256, 16) + Table(256) + FlipRows(Counting(10, 7), 5) + Bytes(6, 0));
}

TEST(BmpEncoder, WritesZeroForRowsThatTheDataDoesNotHold) {
    const Bytes head = Bytes(4, 0);
    const struct {
        const char* lpszWhat;
        int nWidth;
        int nHeight;
        std::size_t nDataSize;
        Bytes written;
    } rows[] = {
        {"second row missing", 2, 2, 8, Counting(8)},
        {"two rows missing", 2, 4, 16, FlipRows(Counting(16), 8)},
        {"a row that does not fit", 4, 1, 8, Bytes(8, 0)},
        {"a huge row", 0x10000000, 1, 8, Bytes(8, 0)},
        {"a row that wraps to 8", 0x40000002, 1, 8, Bytes(8, 0)},
        {"the widest row", 0x7FFFFFFF, 0x7FFFFFFF, 8, Bytes(8, 0)},
        {"no end of rows", 2, 0x7FFFFFFF, 16, FlipRows(Counting(16), 8)},
        {"no data", 2, 2, 0, {}},
    };
    for (const auto& row : rows) {
        const Bytes file = Encode(row.nWidth, row.nHeight, 4, Counting(row.nDataSize));
        EXPECT_EQ(file, HeaderOf(row.nWidth, row.nHeight, 4, 1, static_cast<std::uint32_t>(row.nDataSize)) + head +
                            row.written)
            << row.lpszWhat;
    }
}

TEST(BmpEncoder, WritesNoRowsForAHeightBelowOne) {
    for (const int nHeight : {0, -1, -2, -2147483647 - 1}) {
        EXPECT_EQ(Encode(2, nHeight, 4, Counting(16)), HeaderOf(2, nHeight, 4, 1, 16) + Bytes(4, 0) + Bytes(16, 0))
            << nHeight;
    }
}

TEST(BmpEncoder, WritesNoPixelsForRowsWithoutBytes) {
    EXPECT_EQ(Encode(0, 2, 4, Counting(16)), HeaderOf(0, 2, 4, 1, 16) + Bytes(20, 0));
    EXPECT_EQ(Encode(-2, 2, 4, Counting(16)), HeaderOf(-2, 2, 4, 1, 16) + Bytes(20, 0));
    EXPECT_EQ(Encode(2, 2, 0, Counting(16)), HeaderOf(2, 2, 0, 1, 16) + Bytes(20, 0));
    EXPECT_EQ(Encode(2, 0x7FFFFFFF, 0, Counting(16)), HeaderOf(2, 0x7FFFFFFF, 0, 1, 16) + Bytes(20, 0));
}

TEST(BmpEncoder, ReadsNothingThroughANullPointer) {
    STnNLImageData image{};
    image.nDataSize = 16;
    image.nWidth = 2;
    image.nHeight = 2;
    image.nChannels = 4;
    CTnBmpEncoder encoder;
    ASSERT_TRUE(encoder.Encode(image));
    unsigned int nSize = 0;
    const unsigned char* pFile = encoder.GetEncodeData(nSize);
    EXPECT_EQ(Bytes(pFile, pFile + nSize), HeaderOf(2, 2, 4, 1, 16) + Bytes(20, 0));
}

TEST(BmpEncoder, ReplacesTheFileBefore) {
    CTnBmpEncoder encoder;
    const Bytes large = Counting(64);
    const Bytes small = Counting(4, 100);
    STnNLImageData image = Record(TN_IMAGE_BGRX32, 4, 4, large);
    ASSERT_TRUE(encoder.Encode(image));
    image = Record(TN_IMAGE_BGRX32, 1, 1, small);
    ASSERT_TRUE(encoder.Encode(image));
    unsigned int nSize = 0;
    const unsigned char* pFile = encoder.GetEncodeData(nSize);
    EXPECT_EQ(Bytes(pFile, pFile + nSize), HeaderOf(1, 1, 4, 1, 4) + Bytes(4, 0) + small);
}

TEST(BmpEncoder, WhatItWritesTheDecoderReads) {
    const Bytes pixels = Counting(21);
    const Bytes file = Encode(7, 3, 1, pixels);
    CTnBmpDecoder decoder;
    ASSERT_TRUE(decoder.Open(file.data(), static_cast<unsigned int>(file.size())));
    Bytes read(21);
    ASSERT_TRUE(decoder.ReadData(TN_IMAGE_GRAY8, read.data(), 21));
    EXPECT_EQ(FlipRows(read, 7), pixels);
}

TEST(BmpEncoder, InPiecesIsTheSameFile) {
    const Bytes pixels = Counting(5 * 7 * 3 + 2);
    for (const unsigned char byChannels : FromHex("01 02 03 04")) {
        STnNLImageData image = Record(TN_IMAGE_GRAY8, 5, 7, pixels);
        image.nChannels = byChannels;
        Bytes pieces;
        ASSERT_TRUE(CTnBmpEncoder::EncodePieces(image, [&pieces](const unsigned char* pPiece, std::size_t nSize) {
            pieces.insert(pieces.end(), pPiece, pPiece + nSize);
        }));
        EXPECT_TRUE(pieces == Encode(image, pixels)) << int{byChannels};
    }
}

TEST(BmpEncoder, RefusesAFileBeyond32Bits) {
    unsigned char byPixel = 1;
    STnNLImageData image{};
    image.pData = &byPixel;
    image.nDataSize = 0xFFFFFFFFU - (54 + (4U << 24)) + 1;
    image.nWidth = 1;
    image.nHeight = 0;  // no row is read
    image.nChannels = 3;
    int nPieces = 0;
    EXPECT_FALSE(CTnBmpEncoder::EncodePieces(image, [&nPieces](const unsigned char*, std::size_t) { ++nPieces; }));
    EXPECT_EQ(nPieces, 0);
    CTnBmpEncoder encoder;
    EXPECT_FALSE(encoder.Encode(image));
    unsigned int nSize = 99;
    encoder.GetEncodeData(nSize);
    EXPECT_EQ(nSize, 0U);
}
