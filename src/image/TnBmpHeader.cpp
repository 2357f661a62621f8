// Fields to bytes and back, byte by byte: the form is little-endian whatever the machine is.

#include "image/TnBmpHeader.h"

namespace tnrobot {

namespace {

enum BmpOffset : std::size_t {
    kSignature = 0,
    kFileSize = 2,
    kDataOffset = 10,
    kInfoSize = 14,
    kWidth = 18,
    kHeight = 22,
    kPlanes = 26,
    kBitsPerPixel = 28,
    kImageSize = 34,
    kColoursUsed = 46,
    kColoursImportant = 50,
};

constexpr std::uint32_t kInfoHeaderSize = 40;

std::uint32_t Get(const BmpHeaderBytes& bytes, std::size_t nOffset, std::size_t nCount) {
    std::uint32_t nValue = 0;
    for (std::size_t i = nCount; i-- > 0;) {
        nValue = nValue << 8 | bytes[nOffset + i];
    }
    return nValue;
}

void Put(BmpHeaderBytes& bytes, std::size_t nOffset, std::size_t nCount, std::uint32_t nValue) {
    for (std::size_t i = 0; i < nCount; ++i) {
        bytes[nOffset + i] = static_cast<unsigned char>(nValue >> 8 * i);
    }
}

}  // namespace

BmpHeader ParseBmpHeader(const BmpHeaderBytes& bytes) {
    BmpHeader header{};
    header.m_nFileSize = Get(bytes, kFileSize, 4);
    header.m_nDataOffset = Get(bytes, kDataOffset, 4);
    header.m_nWidth = static_cast<std::int32_t>(Get(bytes, kWidth, 4));
    header.m_nHeight = static_cast<std::int32_t>(Get(bytes, kHeight, 4));
    header.m_nBitsPerPixel = static_cast<std::uint16_t>(Get(bytes, kBitsPerPixel, 2));
    header.m_nImageSize = Get(bytes, kImageSize, 4);
    header.m_nColours = Get(bytes, kColoursUsed, 4);
    return header;
}

BmpHeaderBytes FormatBmpHeader(const BmpHeader& header) {
    BmpHeaderBytes bytes{};
    bytes[kSignature] = 'B';
    bytes[kSignature + 1] = 'M';
    Put(bytes, kFileSize, 4, header.m_nFileSize);
    Put(bytes, kDataOffset, 4, header.m_nDataOffset);
    Put(bytes, kInfoSize, 4, kInfoHeaderSize);
    Put(bytes, kWidth, 4, static_cast<std::uint32_t>(header.m_nWidth));
    Put(bytes, kHeight, 4, static_cast<std::uint32_t>(header.m_nHeight));
    Put(bytes, kPlanes, 2, 1);
    Put(bytes, kBitsPerPixel, 2, header.m_nBitsPerPixel);
    Put(bytes, kImageSize, 4, header.m_nImageSize);
    Put(bytes, kColoursUsed, 4, header.m_nColours);
    Put(bytes, kColoursImportant, 4, header.m_nColours);
    return bytes;
}

}  // namespace tnrobot
