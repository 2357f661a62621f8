#include "BmpFile.h"

#include <string>

namespace {

constexpr std::size_t kHeaders = 54;

enum Offset : std::size_t {
    kSignature = 0,
    kFileSize = 2,
    kDataOffset = 10,
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

void CheckRows(const BmpFile& bmp, std::size_t nFileSize, Problems& problems) {
    // 64 bits hold every product: 2^13 bytes per pixel at most, times 2^31 pixels.
    const std::int64_t nRow = std::int64_t{bmp.nBitsPerPixel / 8} * bmp.nWidth;
    if (nRow <= 0 || bmp.nHeight <= 0) {
        problems.Damage(kWidth, "no pixels: " + std::to_string(bmp.nWidth) + " x " + std::to_string(bmp.nHeight) +
                                    " of " + std::to_string(bmp.nBitsPerPixel) + " bits");
        return;
    }
    const auto nRoom = static_cast<std::int64_t>(nFileSize) - bmp.nDataOffset;
    if (nRow > nRoom || bmp.nHeight > nRoom / nRow) {
        problems.Damage(kDataOffset, std::to_string(bmp.nHeight) + " rows of " + std::to_string(nRow) +
                                         " bytes do not fit behind offset " + std::to_string(bmp.nDataOffset));
        return;
    }
    if (bmp.nImageSize == 0 || bmp.nImageSize == nRow * bmp.nHeight) {
        return;
    }
    const std::int64_t nPadded = (nRow + 3) / 4 * 4;
    problems.Damage(
        kImageSize,
        bmp.nImageSize == nPadded * bmp.nHeight
            ? "rows are padded to " + std::to_string(nPadded) + " bytes: the library reads unpadded rows"
            : "image size " + std::to_string(bmp.nImageSize) + " instead of " + std::to_string(nRow * bmp.nHeight));
}

}  // namespace

BmpFile ParseBmp(ByteRange file) {
    BmpFile bmp;
    if (file.nSize < kHeaders) {
        bmp.problems.Damage(0, "shorter than the headers of a BMP file, " + std::to_string(kHeaders) + " bytes");
        return bmp;
    }
    std::uint16_t nSignature = 0;
    Get(file, kSignature, nSignature);
    Get(file, kFileSize, bmp.nFileSize);
    Get(file, kDataOffset, bmp.nDataOffset);
    Get(file, kWidth, bmp.nWidth);
    Get(file, kHeight, bmp.nHeight);
    Get(file, kBitsPerPixel, bmp.nBitsPerPixel);
    Get(file, kCompression, bmp.nCompression);
    Get(file, kImageSize, bmp.nImageSize);
    Get(file, kColours, bmp.nColours);
    constexpr std::uint16_t kBm = 0x4D42;
    if (nSignature != kBm) {
        bmp.problems.Note(kSignature, "no BM at the beginning; the library does not look at it");
    }
    if (bmp.nFileSize != file.nSize) {
        bmp.problems.Damage(kFileSize, "the header says " + std::to_string(bmp.nFileSize) + " bytes, the file has " +
                                           std::to_string(file.nSize));
    }
    if (bmp.nCompression != 0) {
        bmp.problems.Damage(kCompression, "compressed (" + std::to_string(bmp.nCompression) +
                                              "): the library reads it as plain pixels");
    }
    CheckRows(bmp, file.nSize, bmp.problems);
    return bmp;
}
