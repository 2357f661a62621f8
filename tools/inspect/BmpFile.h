// The headers of a BMP file, and whether the rest of the file agrees with them.

#ifndef TNROBOT_INSPECT_BMPFILE_H_
#define TNROBOT_INSPECT_BMPFILE_H_

#include <cstdint>

#include "Bytes.h"
#include "Picture.h"
#include "Problems.h"

struct BmpFile {
    ByteRange file;
    std::uint32_t nInfoSize = 0;  ///< of the second header
    std::uint32_t nFileSize = 0;
    std::uint32_t nDataOffset = 0;
    std::int32_t nWidth = 0;
    std::int32_t nHeight = 0;
    std::uint16_t nBitsPerPixel = 0;
    std::uint32_t nCompression = 0;
    std::uint32_t nImageSize = 0;  ///< as the file states it, 0 when it leaves that open
    std::uint32_t nColours = 0;
    Problems problems;
};

/// Rows are expected as the library writes them: unpadded, bottom row first.
BmpFile ParseBmp(ByteRange file);

/// @param[in] bmp  not damaged, of 24 bits per pixel.
/// @return its pixels, which stay those of the file.
Picture PictureOf(const BmpFile& bmp);

#endif  // TNROBOT_INSPECT_BMPFILE_H_
