// Both sides of each limit on what a JPEG may cost. A header decides, so no pixel is decoded here.

#include <gtest/gtest.h>

#include "image/TnJpegDecoder.h"
#include "support/bytes/Bytes.h"

using namespace tntest;

namespace {

struct Header {
    int nWidth;
    int nHeight;
    int nScans = 1;
    int nBytes = 1;  // of coded pixels in all scans, at least one for each
    bool bArithmetic = false;
    int nRestart = 0;  // units between two restarts
    int nComponents = 1;
    unsigned int nSampling = 1;  // of the first component, in both directions
    bool bInterleaved = true;    // whether a scan has all components
    int nFirstOfScan = 1;        // the component of a scan that has one only
};

void Put(Bytes& bytes, const std::vector<int>& more) {
    for (const int n : more) {
        bytes.push_back(static_cast<unsigned char>(n));
    }
}

void PutScan(Bytes& jpeg, const Header& header, int nBytes) {
    const int nComponents = header.bInterleaved ? header.nComponents : 1;
    Put(jpeg, {0xFF, 0xDA, 0, 6 + 2 * nComponents, nComponents});
    for (int n = 0; n < nComponents; ++n) {
        Put(jpeg, {header.bInterleaved ? n + 1 : header.nFirstOfScan, 0});
    }
    Put(jpeg, {0, 63, 0});
    jpeg.resize(jpeg.size() + static_cast<std::size_t>(nBytes), 0x55);
}

Bytes MakeJpeg(const Header& header) {
    Bytes jpeg = FromHex("FF D8");
    Put(jpeg, {0xFF, header.bArithmetic ? 0xC9 : 0xC0, 0, 8 + 3 * header.nComponents, 8, header.nHeight >> 8,
               header.nHeight & 255, header.nWidth >> 8, header.nWidth & 255, header.nComponents});
    for (int n = 0; n < header.nComponents; ++n) {
        Put(jpeg, {n + 1, n == 0 ? static_cast<int>(header.nSampling * 17U) : 0x11, 0});
    }
    Put(jpeg, {0xFF, 0xDD, 0, 4, header.nRestart >> 8, header.nRestart & 255});
    for (int n = 0; n < header.nScans; ++n) {
        PutScan(jpeg, header, n == 0 ? header.nBytes - (header.nScans - 1) : 1);
    }
    Put(jpeg, {0xFF, 0xD9});
    return jpeg;
}

bool IsAccepted(const Header& header) {
    const Bytes jpeg = MakeJpeg(header);
    CTnJpegDecoder decoder;
    EXPECT_TRUE(decoder.Open(jpeg.data(), static_cast<unsigned int>(jpeg.size())));
    return decoder.CanFill(0) == tnrobot::Reading::kDone;
}

// Needs exactly so many bytes of coded pixels.
void ExpectLeastBytes(Header header, int nBytes) {
    header.nBytes = nBytes;
    EXPECT_TRUE(IsAccepted(header)) << nBytes;
    header.nBytes = nBytes - 1;
    EXPECT_FALSE(IsAccepted(header)) << nBytes;
}

}  // namespace

// 64 Mi pixels, and 512 for each byte.
TEST(JpegLimits, PixelsOfOneScan) {
    EXPECT_TRUE(IsAccepted({8192, 8192}));
    EXPECT_TRUE(IsAccepted({8185, 8185})) << "whole blocks count";
    ExpectLeastBytes({8192, 8200}, 128);
    ExpectLeastBytes({8192, 8193}, 128);
    ExpectLeastBytes({8200, 8192}, 128);
    ExpectLeastBytes({8193, 8192}, 128);
    Header colour{8192, 8193};
    colour.nComponents = 3;
    colour.nSampling = 2;
    ExpectLeastBytes(colour, 256);
    colour = {8193, 8192, 1, 1, false, 0, 3, 2};
    ExpectLeastBytes(colour, 256);
}

// 640 Mi pixels in all scans together, and 4096 for each byte; a hundred scans at most.
TEST(JpegLimits, PixelsOfManyScans) {
    EXPECT_TRUE(IsAccepted({8192, 8192, 10, 10}));
    ExpectLeastBytes({8192, 8192, 11}, 16384);
    EXPECT_TRUE(IsAccepted({8, 8, 100, 100}));
    EXPECT_FALSE(IsAccepted({8, 8, 101, 101}));
    EXPECT_FALSE(IsAccepted({8, 8, 101, 100000}));
}

// Of arithmetic coding with restarts 160 Mi.
TEST(JpegLimits, PixelsOfScansWithRestarts) {
    EXPECT_TRUE(IsAccepted({4096, 4096, 10, 10, true, 1}));
    ExpectLeastBytes({4096, 4096, 11, 0, true, 1}, 4096);
    EXPECT_TRUE(IsAccepted({4096, 4096, 11, 11, true, 0})) << "without restarts";
    EXPECT_TRUE(IsAccepted({4096, 4096, 11, 11, false, 1})) << "without arithmetic coding";
}

// Restarts that are further apart than two rows of blocks: 4 Mi pixels, and 64 for each byte.
TEST(JpegLimits, PixelsOfScansWithRestartsFarApart) {
    EXPECT_TRUE(IsAccepted({2048, 2048, 1, 1, true, 513}));
    ExpectLeastBytes({2048, 2056, 1, 0, true, 513}, 256);
    ExpectLeastBytes({2048, 2048, 2, 0, true, 513}, 65536);
    EXPECT_TRUE(IsAccepted({2048, 2056, 1, 1, true, 512})) << "two rows";
    EXPECT_TRUE(IsAccepted({2048, 2056, 1, 1, false, 513})) << "without arithmetic coding";
    ExpectLeastBytes({2049, 2048, 1, 0, true, 515}, 256);
    EXPECT_TRUE(IsAccepted({2049, 2048, 1, 1, true, 514})) << "two rows, of a block more";
}

// A unit is a block of the only component of a scan, or a group of blocks of all of them.
TEST(JpegLimits, RestartsAreCountedInTheUnitsOfTheScan) {
    Header header{2048, 2064, 1, 1, true, 0, 3, 2};
    header.nRestart = 256;
    EXPECT_TRUE(IsAccepted(header));
    header.nRestart = 257;
    ExpectLeastBytes(header, 512);
    header.bInterleaved = false;
    header.nRestart = 512;
    EXPECT_TRUE(IsAccepted(header));
    header.nRestart = 513;
    ExpectLeastBytes(header, 512);
    header.nFirstOfScan = 2;
    header.nRestart = 256;
    EXPECT_TRUE(IsAccepted(header));
    header.nRestart = 257;
    ExpectLeastBytes(header, 512);
}
