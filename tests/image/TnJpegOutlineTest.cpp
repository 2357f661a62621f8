// What is counted before a JPEG is decoded: scans, and bytes of coded pixels.

#include "image/TnJpegOutline.h"

#include <gtest/gtest.h>

#include "support/bytes/Bytes.h"

using namespace tntest;

namespace {

struct OutlineCase {
    const char* lpszBytes;
    int nScans;
    int nEntropyBytes;
};

// From memory of exactly this size, so that a sanitizer sees a byte read beyond it.
tnrobot::JpegOutline Outline(const Bytes& bytes) {
    const Bytes exact(bytes);
    return tnrobot::OutlineJpeg(exact.data(), exact.data() + exact.size());
}

}  // namespace

TEST(JpegOutline, CountsScansAndTheirBytes) {
    const OutlineCase cases[] = {
        {"", 0, 0},
        {"FF", 0, 0},
        {"FF D8", 0, 0},
        {"FF D8 FF D9", 0, 0},
        {"FF D8 FF DA 00 02 11 22 33 FF D9", 1, 3},
        {"FF D8 FF DA 00 02 11 FF D9", 1, 1},
        {"FF D8 FF DA 00 04 AA BB 11 22 FF D9", 1, 2},           // the segment is no coded pixel
        {"FF D8 FF DA 00 02 FF D9", 1, 0},                       //
        {"FF D8 FF DA 00 02", 0, 0},                             // a scan without a byte is none
        {"FF D8 FF DA 00 02 11 22 33", 1, 3},                    // nothing says that it ends
        {"FF D8 FF DA 00 02 11 22 FF", 1, 3},                    // half a marker is none
        {"FF D8 FF DA 00 02 11 FF 00 22 FF D9", 1, 4},           // a coded FF
        {"FF D8 FF DA 00 02 11 FF 00", 1, 3},                    //
        {"FF D8 FF DA 00 02 11 FF D0 22 FF D7 33 FF D9", 1, 7},  // restarts lie between coded pixels
        {"FF D8 FF DA 00 02 11 FF D0", 1, 3},                    //
        {"FF D8 FF DA 00 02 11 FF FF FF D9", 1, 3},              // fill bytes
        {"FF D8 FF DA 00 02 11 FF D8 22 FF D9", 1, 1},           // a marker that is no restart ends a scan,
        {"FF D8 FF DA 00 02 11 FF 01 22 FF D9", 1, 1},           // also one without a segment
        {"FF D8 FF CF 00 03 FF FF DA 00 02 11 FF D9", 1, 1},     // what looks like a marker within a segment
        {"FF D8 FF D0 FF DA 00 02 11 FF D9", 1, 1},              // no segment behind these
        {"FF D8 FF D7 FF DA 00 02 11 FF D9", 1, 1},              //
        {"FF D8 FF 01 FF DA 00 02 11 FF D9", 1, 1},              //
        {"FF D8 FF CF FF DA 00 02 11 FF D9", 0, 0},              // one behind this, longer than what is there
        {"FF D8 FF CF 00 02 FF DA 00 02 11 FF D9", 1, 1},        // the shortest segment
        {"FF D8 FF CF 00 01 FF DA 00 02 11 FF D9", 0, 0},        // nonsense
        {"FF D8 FF CF 00 00 FF DA 00 02 11 FF D9", 0, 0},        //
        {"FF D8 FF DA 00", 0, 0},                                //
        {"FF D8 FF DA 00 08 11 22 33 44 55", 0, 0},              // a byte is missing
        {"FF D8 FF DA 00 08 11 22 33 44 55 66", 0, 0},           // all of it, and no coded pixel
        {"FF D8 FF DA 00 08 11 22 33 44 55 66 77", 1, 1},        //
        {"FF D8 FF DA 00 02 11 22 FF DA 00 02 33 FF D9", 2, 3},  //
        {"FF D8 FF DA 00 02 11 FF CF 00 03 99 FF DA 00 02 33 44 FF D9", 2, 3},
        {"FF D8 FF DA 00 02 11 FF D9 FF DA 00 02 22 FF D9", 1, 1},  // nothing counts behind the end
        {"00 11 FF DA 00 02 22 FF D9", 1, 1},                       // whatever comes before the first marker
    };
    for (const OutlineCase& row : cases) {
        const tnrobot::JpegOutline outline = Outline(FromHex(row.lpszBytes));
        EXPECT_EQ(outline.m_nScans, row.nScans) << row.lpszBytes;
        EXPECT_EQ(outline.m_nEntropyBytes, row.nEntropyBytes) << row.lpszBytes;
    }
}

TEST(JpegOutline, ALongSegmentHasSixteenBitsOfLength) {
    Bytes bytes = FromHex("FF D8 FF CF 01 02");
    bytes.resize(bytes.size() + 256, 0xDA);
    const Bytes scan = FromHex("FF DA 00 02 11 22 FF D9");
    bytes.insert(bytes.end(), scan.begin(), scan.end());
    EXPECT_EQ(Outline(bytes).m_nScans, 1);
    EXPECT_EQ(Outline(bytes).m_nEntropyBytes, 2);
}
