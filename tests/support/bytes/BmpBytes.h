// BMP files written down field by field, and a reader of its own that says what loading one must give.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_BYTES_BMPBYTES_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_BYTES_BMPBYTES_H_

#include <cstdint>

#include "support/bytes/Bytes.h"

namespace tntest {

constexpr std::uint32_t kBmpHeaders = 54;

/// The headers' fields; defaults are those of a 24-bit file without a colour table.
struct BmpFields {
    std::uint32_t nFileSize = 0;
    std::uint32_t nDataOffset = kBmpHeaders;
    std::int32_t nWidth = 0;
    std::int32_t nHeight = 0;
    unsigned int nBitsPerPixel = 24;
    std::uint32_t nImageSize = 0;
    std::uint32_t nColours = 0;
    unsigned int nSignature = 0x4D42;
    unsigned int nPlanes = 1;
    std::uint32_t nCompression = 0;
    std::uint32_t nInfoSize = 40;
};

inline Bytes BmpHeader(const BmpFields& f) {
    return U16(f.nSignature) + U32(f.nFileSize) + U32(0) + U32(f.nDataOffset) +                // file header
           U32(f.nInfoSize) + BytesOf(f.nWidth) + BytesOf(f.nHeight) + U16(f.nPlanes) +        // info header
           U16(f.nBitsPerPixel) + U32(f.nCompression) + U32(f.nImageSize) + U32(0) + U32(0) +  //
           U32(f.nColours) + U32(f.nColours);
}

/// A file without a colour table. @param[in] pixels  as they lie in the file, bottom row first.
inline Bytes BmpFile(BmpFields f, const Bytes& pixels) {
    f.nFileSize = f.nDataOffset + static_cast<std::uint32_t>(pixels.size());
    return BmpHeader(f) + Bytes(f.nDataOffset - kBmpHeaders, 0xEE) + pixels;
}

/// The usual 24-bit file, with its image size filled in.
inline Bytes BmpFile24(int nWidth, int nHeight, const Bytes& pixels) {
    BmpFields f;
    f.nWidth = nWidth;
    f.nHeight = nHeight;
    f.nImageSize = static_cast<std::uint32_t>(pixels.size());
    return BmpFile(f, pixels);
}

/// Rows in the opposite order.
inline Bytes FlipRows(const Bytes& bytes, std::size_t nRow) {
    Bytes flipped;
    for (std::size_t nEnd = bytes.size(); nEnd >= nRow && nRow > 0; nEnd -= nRow) {
        flipped.insert(flipped.end(), bytes.begin() + static_cast<std::ptrdiff_t>(nEnd - nRow),
                       bytes.begin() + static_cast<std::ptrdiff_t>(nEnd));
    }
    return flipped;
}

/// What loading a file must give.
struct BmpAnswer {
    int nResult = -1;
    int nWidth = 0;
    int nHeight = 0;
    Bytes surface;  ///< all bytes of the surface, padding included
};

/// @param[in] nLargestSurface  surfaces with more bytes are not to be had.
inline BmpAnswer ExpectedBmp(const Bytes& file, std::uint32_t nLargestSurface) {
    const auto Field32 = [&file](std::size_t nAt) {
        return static_cast<std::uint32_t>(file[nAt]) | static_cast<std::uint32_t>(file[nAt + 1]) << 8 |
               static_cast<std::uint32_t>(file[nAt + 2]) << 16 | static_cast<std::uint32_t>(file[nAt + 3]) << 24;
    };
    BmpAnswer answer;
    if (file.size() < kBmpHeaders || Field32(2) != file.size()) {
        return answer;
    }
    const std::int64_t nOffset = Field32(10);
    answer.nWidth = static_cast<std::int32_t>(Field32(18));
    answer.nHeight = static_cast<std::int32_t>(Field32(22));
    const std::int64_t nBytes = (Field32(28) & 0xFFFF) / 8;
    const std::int64_t nRow = nBytes * answer.nWidth;
    const std::int64_t nStored = Field32(34);
    if (nRow <= 0 || nRow > static_cast<std::int64_t>(file.size())) {
        return answer;
    }
    // Rows at multiples of 4 bytes: what the size says, or what there is room for.
    const std::int64_t nPadded = (nRow + 3) / 4 * 4 * answer.nHeight;
    const std::int64_t nRoom = static_cast<std::int64_t>(file.size()) - nOffset;
    const bool bPadded = nStored == nPadded || nRoom == nPadded || (nStored == 0 && nRoom > nPadded);
    if (nBytes == 3 && nRow % 4 != 0 && answer.nHeight > 0 && bPadded) {
        return answer;
    }
    const std::int64_t nImage = nStored != 0 ? nStored : nRow * answer.nHeight;
    const bool bWholeRows = nImage >= nRow && nImage % nRow == 0;
    if (!bWholeRows || nOffset + nImage > static_cast<std::int64_t>(file.size())) {
        return answer;
    }
    const std::int64_t nPitch = (3LL * answer.nWidth + 3) / 4 * 4;
    if (answer.nHeight <= 0 || nPitch * answer.nHeight > nLargestSurface) {
        return answer;
    }
    constexpr std::int64_t kModestSurface = 48 * 1024 * 1024;
    if (nPitch * answer.nHeight > kModestSurface && nImage < nRow * answer.nHeight) {
        return answer;
    }
    answer.nResult = -2;
    if (nBytes != 3 || nImage > nPitch * answer.nHeight) {
        return answer;
    }
    answer.nResult = 0;
    answer.surface =
        FlipRows(Bytes(file.begin() + nOffset, file.begin() + nOffset + nImage), static_cast<std::size_t>(nRow));
    answer.surface.resize(static_cast<std::size_t>(nPitch * answer.nHeight), 0);
    return answer;
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_BYTES_BMPBYTES_H_
