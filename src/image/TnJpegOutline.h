// What the markers of a JPEG tell before anything of it is decoded.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNJPEGOUTLINE_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNJPEGOUTLINE_H_

#include <cstdint>

namespace tnrobot {

/// The parts of a JPEG that decoding takes its time from.
struct JpegOutline {
    std::int64_t m_nEntropyBytes;  ///< bytes of coded pixels; comments, profiles and tables are none
    std::int64_t m_nScans;         ///< passes over the picture
};

/// Walks from marker to marker, as libjpeg does. Never reads beyond pEnd, whatever the bytes are.
/// @param[in] pData  first byte; borrowed for the call. @param[in] pEnd  byte after the last one.
JpegOutline OutlineJpeg(const unsigned char* pData, const unsigned char* pEnd);

/// @return the first byte of the next scan's coded pixels at or after pData; pEnd when there is no
///         other scan.
const unsigned char* FindScanData(const unsigned char* pData, const unsigned char* pEnd);

/// @param[in] pData  within coded pixels. @return the marker that ends the scan; pEnd without one.
const unsigned char* FindScanEnd(const unsigned char* pData, const unsigned char* pEnd);

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNJPEGOUTLINE_H_
