// A JPEG is a row of markers, most of them with a segment of known length. Coded pixels follow the
// segments that start a scan, and end at the next marker: inside of them a zero follows every 0xFF.

#include "image/TnJpegOutline.h"

#include <cstddef>
#include <cstring>

namespace tnrobot {

namespace {

constexpr unsigned char kMarker = 0xFF;
constexpr unsigned char kStuffed = 0x00;
constexpr unsigned char kTemporary = 0x01;
constexpr unsigned char kFirstRestart = 0xD0;
constexpr unsigned char kLastRestart = 0xD7;
constexpr unsigned char kStartOfImage = 0xD8;
constexpr unsigned char kEndOfImage = 0xD9;
constexpr unsigned char kStartOfScan = 0xDA;
constexpr std::ptrdiff_t kMarkerSize = 2;
constexpr std::ptrdiff_t kLengthSize = 2;

bool IsRestart(unsigned char byCode) {
    return byCode >= kFirstRestart && byCode <= kLastRestart;
}

bool HasSegment(unsigned char byCode) {
    return !IsRestart(byCode) && byCode != kTemporary && byCode != kStartOfImage;
}

// @return the byte after a marker's segment; pEnd when it is cut short or says nonsense.
const unsigned char* SkipSegment(const unsigned char* pMarker, const unsigned char* pEnd) {
    if (pEnd - pMarker < kMarkerSize + kLengthSize) {
        return pEnd;
    }
    const std::ptrdiff_t nLength = pMarker[2] << 8 | pMarker[3];
    const bool bFits = nLength >= kLengthSize && nLength <= pEnd - pMarker - kMarkerSize;
    return bFits ? pMarker + kMarkerSize + nLength : pEnd;
}

// @return the first marker at or after pData; pEnd without one. Any number of 0xFF may come before a
// marker's code.
const unsigned char* FindMarker(const unsigned char* pData, const unsigned char* pEnd) {
    while (pEnd - pData >= kMarkerSize) {
        const void* pFound = std::memchr(pData, kMarker, static_cast<std::size_t>(pEnd - pData - 1));
        if (pFound == nullptr) {
            return pEnd;
        }
        pData = static_cast<const unsigned char*>(pFound);
        if (pData[1] != kStuffed && pData[1] != kMarker) {
            return pData;
        }
        pData += pData[1] == kStuffed ? 2 : 1;
    }
    return pEnd;
}

}  // namespace

const unsigned char* FindScanData(const unsigned char* pData, const unsigned char* pEnd) {
    const unsigned char* pMarker = FindMarker(pData, pEnd);
    while (pMarker != pEnd && pMarker[1] != kEndOfImage) {
        const unsigned char* pNext = HasSegment(pMarker[1]) ? SkipSegment(pMarker, pEnd) : pMarker + kMarkerSize;
        if (pMarker[1] == kStartOfScan) {
            return pNext;
        }
        pMarker = FindMarker(pNext, pEnd);
    }
    return pEnd;
}

// Restarts lie between coded pixels.
const unsigned char* FindScanEnd(const unsigned char* pData, const unsigned char* pEnd) {
    const unsigned char* pMarker = FindMarker(pData, pEnd);
    while (pMarker != pEnd && IsRestart(pMarker[1])) {
        pMarker = FindMarker(pMarker + kMarkerSize, pEnd);
    }
    return pMarker;
}

// A scan without a byte is none.
JpegOutline OutlineJpeg(const unsigned char* pData, const unsigned char* pEnd) {
    JpegOutline outline{};
    const unsigned char* pCoded = FindScanData(pData, pEnd);
    while (pCoded != pEnd) {
        const unsigned char* pMarker = FindScanEnd(pCoded, pEnd);
        outline.m_nEntropyBytes += pMarker - pCoded;
        ++outline.m_nScans;
        pCoded = FindScanData(pMarker, pEnd);
    }
    return outline;
}

}  // namespace tnrobot
