// The segments of a JPEG file, and whether it goes on to its end marker.

#ifndef TNROBOT_INSPECT_JPEGFILE_H_
#define TNROBOT_INSPECT_JPEGFILE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "Bytes.h"
#include "Problems.h"

struct Segment {
    std::size_t nOffset;  ///< of its marker
    unsigned char nMarker;
    std::size_t nSize;  ///< marker included; of a scan up to the next marker
};

struct JpegFile {
    std::uint16_t nWidth = 0;
    std::uint16_t nHeight = 0;
    unsigned char nBitsPerSample = 0;
    unsigned char nComponents = 0;
    unsigned char nFrameMarker = 0;  ///< 0 before a frame was found
    std::vector<Segment> segments;
    Problems problems;
};

JpegFile ParseJpeg(ByteRange file);

/// @return "SOI", "APP0", "SOF2" and the like.
std::string MarkerName(unsigned char nMarker);

/// @return how the picture is coded, "baseline" and the like.
std::string ProcessName(unsigned char nFrameMarker);

#endif  // TNROBOT_INSPECT_JPEGFILE_H_
