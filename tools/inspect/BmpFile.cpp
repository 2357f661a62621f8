#include "BmpFile.h"

#include <algorithm>
#include <string>

namespace {

constexpr std::uint32_t kFileHeader = 14;
constexpr std::uint32_t kInfoHeader = 40;
constexpr std::uint32_t kHeaders = kFileHeader + kInfoHeader;

enum Offset : std::size_t {
    kSignature = 0,
    kFileSize = 2,
    kDataOffset = 10,
    kInfoSize = 14,
    kWidth = 18,
    kHeight = 22,
    kBitsPerPixel = 28,
    kCompression = 30,
    kImageSize = 34,
    kColours = 46,
};

template <typename Number>
void Get(ByteRange file, std::size_t nOffset, Number& number) {
    ByteReader(file, nOffset).Take(number);
}

// 64 bits hold every product: 2^13 bytes per pixel at most, times 2^31 pixels.
std::int64_t RowLength(const BmpFile& bmp) {
    return std::int64_t{bmp.nBitsPerPixel / 8} * bmp.nWidth;
}

// Where the headers and the colour table end. A number of colours that is left open is as many as
// 8 bits can tell; larger pixels need no table.
std::int64_t EndOfHeaders(const BmpFile& bmp) {
    constexpr std::int64_t kColourBytes = 4;
    constexpr std::uint16_t kTableBits = 8;
    const std::int64_t nColours = bmp.nColours == 0 && bmp.nBitsPerPixel == kTableBits ? 256 : bmp.nColours;
    return kFileHeader + std::int64_t{std::max(bmp.nInfoSize, kInfoHeader)} + (kColourBytes * nColours);
}

void CheckHeaders(BmpFile& bmp) {
    constexpr std::uint16_t kBm = 0x4D42;
    std::uint16_t nSignature = 0;
    Get(bmp.file, kSignature, nSignature);
    if (nSignature != kBm) {
        bmp.problems.Note(kSignature, "no BM at the beginning; the library does not look at it");
    }
    if (bmp.nFileSize != bmp.file.nSize) {
        bmp.problems.Damage(kFileSize, "the header says " + std::to_string(bmp.nFileSize) + " bytes, the file has " +
                                           std::to_string(bmp.file.nSize));
    }
    if (bmp.nDataOffset < EndOfHeaders(bmp)) {
        bmp.problems.Damage(kDataOffset, "the pixels begin at " + std::to_string(bmp.nDataOffset) +
                                             ", before the end of headers and colour table at " +
                                             std::to_string(EndOfHeaders(bmp)));
    }
    if (bmp.nCompression != 0) {
        bmp.problems.Damage(kCompression, "compressed (" + std::to_string(bmp.nCompression) +
                                              "): the library reads it as plain pixels");
    }
}

// Whether the rows are padded to a multiple of 4 bytes, as other programs write them: by the image
// size, or where that is left open or does not say it, by the bytes that are there.
bool ArePadded(const BmpFile& bmp, std::int64_t nPaddedSize, std::int64_t nRoom) {
    return bmp.nImageSize == nPaddedSize || nRoom == nPaddedSize || (bmp.nImageSize == 0 && nRoom > nPaddedSize);
}

void CheckRows(BmpFile& bmp) {
    const std::int64_t nRow = RowLength(bmp);
    if (nRow <= 0 || bmp.nHeight <= 0) {
        bmp.problems.Damage(kWidth, "no pixels: " + std::to_string(bmp.nWidth) + " x " + std::to_string(bmp.nHeight) +
                                        " of " + std::to_string(bmp.nBitsPerPixel) + " bits");
        return;
    }
    const auto nRoom = static_cast<std::int64_t>(bmp.file.nSize) - bmp.nDataOffset;
    if (nRow > nRoom || bmp.nHeight > nRoom / nRow) {
        bmp.problems.Damage(kDataOffset, std::to_string(bmp.nHeight) + " rows of " + std::to_string(nRow) +
                                             " bytes do not fit behind offset " + std::to_string(bmp.nDataOffset));
        return;
    }
    const std::int64_t nPadded = (nRow + 3) / 4 * 4;
    if (nPadded != nRow && ArePadded(bmp, nPadded * bmp.nHeight, nRoom)) {
        bmp.problems.Damage(
            kImageSize, "rows are padded to " + std::to_string(nPadded) + " bytes: the library reads unpadded rows");
    } else if (bmp.nImageSize != 0 && bmp.nImageSize != nRow * bmp.nHeight) {
        bmp.problems.Damage(kImageSize, "image size " + std::to_string(bmp.nImageSize) + " instead of " +
                                            std::to_string(nRow * bmp.nHeight));
    }
}

}  // namespace

BmpFile ParseBmp(ByteRange file) {
    BmpFile bmp;
    bmp.file = file;
    if (file.nSize < kHeaders) {
        bmp.problems.Damage(0, "shorter than the headers of a BMP file, " + std::to_string(kHeaders) + " bytes");
        return bmp;
    }
    Get(file, kFileSize, bmp.nFileSize);
    Get(file, kDataOffset, bmp.nDataOffset);
    Get(file, kInfoSize, bmp.nInfoSize);
    Get(file, kWidth, bmp.nWidth);
    Get(file, kHeight, bmp.nHeight);
    Get(file, kBitsPerPixel, bmp.nBitsPerPixel);
    Get(file, kCompression, bmp.nCompression);
    Get(file, kImageSize, bmp.nImageSize);
    Get(file, kColours, bmp.nColours);
    CheckHeaders(bmp);
    CheckRows(bmp);
    return bmp;
}

Picture PictureOf(const BmpFile& bmp) {
    const auto nRow = static_cast<std::ptrdiff_t>(RowLength(bmp));
    Picture picture;
    picture.nWidth = bmp.nWidth;
    picture.nHeight = bmp.nHeight;
    picture.pTop = bmp.file.pData + bmp.nDataOffset + (nRow * (bmp.nHeight - 1));
    picture.nStep = -nRow;
    return picture;
}
