// The two headers of a BMP file, as the decoder reads them and the encoder writes them.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNBMPHEADER_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNBMPHEADER_H_

#include <array>
#include <cstddef>
#include <cstdint>

namespace tnrobot {

constexpr std::size_t kBmpHeaderSize = 54;  // 14 bytes of file header, 40 of info header

using BmpHeaderBytes = std::array<unsigned char, kBmpHeaderSize>;

/// The fields that carry information; the others are constants or ignored.
struct BmpHeader {
    std::uint32_t m_nFileSize;      ///< bytes of the whole file
    std::uint32_t m_nDataOffset;    ///< where the pixel data starts
    std::int32_t m_nWidth;          ///< pixels
    std::int32_t m_nHeight;         ///< rows, bottom row first
    std::uint16_t m_nBitsPerPixel;  ///< a multiple of 8 in files that can be read
    std::uint32_t m_nImageSize;     ///< bytes of pixel data, 0 for "work it out"
    std::uint32_t m_nColours;       ///< entries of the colour table; written, never read

    /// @return bytes of a pixel: the bits divided by 8, rounded down.
    int BytesPerPixel() const { return m_nBitsPerPixel / 8; }
};

/// Takes the fields out of a file's first bytes. Nothing is checked.
BmpHeader ParseBmpHeader(const BmpHeaderBytes& bytes);

/// @return the first bytes of a file with these fields.
BmpHeaderBytes FormatBmpHeader(const BmpHeader& header);

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNBMPHEADER_H_
