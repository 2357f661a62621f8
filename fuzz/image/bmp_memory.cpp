// Reads a BMP picture from untrusted bytes in memory.

#include "FuzzBudget.h"
#include "FuzzInput.h"
#include "image/TnBmpDecoder.h"

using namespace tnfuzz;

namespace {

// Pixels stay in file order: they are a piece of the input.
void ReadPixels(CTnBmpDecoder& decoder, ETnNLImageType eType, const Bytes& file) {
    const unsigned int nSize = decoder.GetDataSize();
    Bytes pixels(nSize);
    if (nSize == 0 || !decoder.ReadData(eType, pixels.data(), nSize)) {
        return;
    }
    std::uint32_t nOffset = 0;
    constexpr std::size_t kOffsetField = 10;
    std::memcpy(&nOffset, file.data() + kOffsetField, sizeof(nOffset));
    Require(std::equal(pixels.begin(), pixels.end(), file.begin() + nOffset), "pixels are bytes of the file");
    Require(!decoder.ReadData(eType, pixels.data(), nSize - 1), "a smaller buffer is refused");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const Bytes file(pData, pData + nSize);
    const FuzzBudget budget(nSize, PictureLimits(1, 64));
    CTnBmpDecoder decoder;
    const bool bOpen = decoder.Open(file.data(), static_cast<unsigned int>(nSize));
    Require(!bOpen || nSize > 54, "headers alone are no picture");
    int nWidth = 0;
    int nHeight = 0;
    Require(!bOpen || decoder.ReadHeader(nWidth, nHeight), "an open picture has a header");
    for (int nType = TN_IMAGE_NONE; nType <= TN_IMAGE_BGRX32; ++nType) {
        ReadPixels(decoder, static_cast<ETnNLImageType>(nType), file);
    }
    // A second picture in the same decoder leaves nothing of the first one that is not its own.
    const bool bAgain = decoder.Open(file.data(), static_cast<unsigned int>(nSize));
    Require(bAgain == bOpen, "reading again gives the same result");
    ReadPixels(decoder, TN_IMAGE_BGR24, file);
    return 0;
}
