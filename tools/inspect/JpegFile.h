// The segments of a JPEG file, and whether it goes on to its end marker.

#ifndef TNROBOT_INSPECT_JPEGFILE_H_
#define TNROBOT_INSPECT_JPEGFILE_H_

#include <cstdint>
#include <functional>
#include <string>

#include "Bytes.h"
#include "Problems.h"

struct Segment {
    std::size_t nOffset;  ///< of its marker
    unsigned char nMarker;
    std::size_t nSize;  ///< marker included; of a scan up to the next marker
};

/// What is known about a file as a whole. A segment can be as short as 4 bytes, so none is kept.
struct JpegFile {
    ByteRange file;
    std::uint16_t nWidth = 0;
    std::uint16_t nHeight = 0;
    unsigned char nBitsPerSample = 0;
    unsigned char nComponents = 0;
    unsigned char nFrameMarker = 0;  ///< 0 before a frame was found
    std::size_t nSegments = 0;
    bool bLinesFollow = false;  ///< the height is in a segment of its own behind the first scan
    Problems problems;
};

JpegFile ParseJpeg(ByteRange file);

void ForEachSegment(ByteRange file, const std::function<void(const Segment&)>& function);

/// @return what of a file that is none the less a valid JPEG the library does not support: "CMYK
///         pictures" and the like; empty when there is nothing.
std::string Unsupported(const JpegFile& jpeg);

/// @return "SOI", "APP0", "SOF2" and the like.
std::string MarkerName(unsigned char nMarker);

/// @return how the picture is coded, "baseline" and the like.
std::string ProcessName(unsigned char nFrameMarker);

#endif  // TNROBOT_INSPECT_JPEGFILE_H_
