#include "image/TnBmpHeader.h"

namespace tnrobot {

namespace {

enum ETnBmpOffset : std::size_t {
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

STnBmpHeader ParseBmpHeader(const BmpHeaderBytes& bytes) {
    STnBmpHeader header{};
    header.nFileSize = Get(bytes, kFileSize, 4);
    header.nDataOffset = Get(bytes, kDataOffset, 4);
    header.nWidth = static_cast<std::int32_t>(Get(bytes, kWidth, 4));
    header.nHeight = static_cast<std::int32_t>(Get(bytes, kHeight, 4));
    header.nBitsPerPixel = static_cast<std::uint16_t>(Get(bytes, kBitsPerPixel, 2));
    header.nImageSize = Get(bytes, kImageSize, 4);
    header.nColours = Get(bytes, kColoursUsed, 4);
    return header;
}

BmpHeaderBytes FormatBmpHeader(const STnBmpHeader& header) {
    BmpHeaderBytes bytes{};
    bytes[kSignature] = 'B';
    bytes[kSignature + 1] = 'M';
    Put(bytes, kFileSize, 4, header.nFileSize);
    Put(bytes, kDataOffset, 4, header.nDataOffset);
    Put(bytes, kInfoSize, 4, kInfoHeaderSize);
    Put(bytes, kWidth, 4, static_cast<std::uint32_t>(header.nWidth));
    Put(bytes, kHeight, 4, static_cast<std::uint32_t>(header.nHeight));
    Put(bytes, kPlanes, 2, 1);
    Put(bytes, kBitsPerPixel, 2, header.nBitsPerPixel);
    Put(bytes, kImageSize, 4, header.nImageSize);
    Put(bytes, kColoursUsed, 4, header.nColours);
    Put(bytes, kColoursImportant, 4, header.nColours);
    return bytes;
}

}  // namespace tnrobot
