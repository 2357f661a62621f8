// Saves a record of any geometry as JPEG and loads it again.

#include "FuzzBudget.h"
#include "image/PicturePools.h"

using namespace tnfuzz;

namespace {

// Mostly a size that fits, now and then any number.
int Extent(FuzzInput& input) {
    constexpr unsigned int kLargest = 24;
    return input.Below(8) == 0 ? input.Number<std::int32_t>() : static_cast<int>(input.Below(kLargest) + 1);
}

// The record's data may be less than its geometry says.
Bytes MakePixels(FuzzInput& input) {
    constexpr std::size_t kMost = 2304;  // 24 x 24 pixels of 4 bytes
    const Bytes some = input.Rest();
    Bytes pixels(some.size() < 4 ? some.size() : kMost);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = some[i % some.size()];
    }
    return pixels;
}

void RequireSameSize(const STnNLImageData& image, const PicturePools& pools, ITnRobotMemoryBlock* pBlock) {
    ITnRobotSurface* pSurface = nullptr;
    Require(TnRobotImageUtils::LoadImage(pBlock, pools.Surfaces(), &pSurface) == 0, "what was saved can be loaded");
    const Surface surface(pSurface, tn::kAdopt);
    const ITnRobotSurface::STnSurfaceDesc desc = Description(*surface);
    Require(desc.nWidth == image.nWidth && desc.nHeight == image.nHeight, "the size is the same");
    Require(desc.eImageType == TN_IMAGE_BGR24, "every loaded picture is B,G,R");
    Touch(Pixels(*surface).data(), static_cast<std::size_t>(desc.nPitch) * static_cast<std::size_t>(desc.nHeight));
}

// A surface with the same bytes is saved as the same file.
void RequireSameFile(const STnNLImageData& image, const PicturePools& pools, ITnRobotMemoryBlock& saved) {
    ITnRobotSurface* pSurface = nullptr;
    ITnRobotMemoryBlock* pBlock = nullptr;
    if (TnRobotImageUtils::NlImage2Surface(image, pools.Surfaces(), &pSurface) != 0) {
        return;
    }
    const Surface surface(pSurface, tn::kAdopt);
    Require(TnRobotImageUtils::SaveImage(pSurface, pools.Blocks(), &pBlock) == 0, "a surface is saved too");
    const TnRobotPtr<ITnRobotMemoryBlock> block(pBlock, tn::kAdopt);
    unsigned int nSize = 0;
    unsigned int nSavedSize = 0;
    const unsigned char* pBytes = pBlock->QueryMemory(nSize);
    const unsigned char* pSaved = saved.QueryMemory(nSavedSize);
    Require(nSize == nSavedSize && std::equal(pBytes, pBytes + nSize, pSaved), "as the same bytes");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    FuzzInput input(pData, nSize);
    STnNLImageData image = {};
    image.eImageType = static_cast<ETnNLImageType>(input.Below(11));
    image.nWidth = Extent(input);
    image.nHeight = Extent(input);
    image.nChannels = static_cast<unsigned char>(input.Below(5));
    const unsigned int nRowMode = input.Below(4);
    Bytes pixels = MakePixels(input);
    image.pData = pixels.data();
    image.nDataSize = static_cast<unsigned int>(pixels.size());
    const std::int64_t nPixel = image.eImageType == TN_IMAGE_BGRX32 ? 4 : image.eImageType <= TN_IMAGE_BGR24 ? 3 : 1;
    const std::int64_t nRow = nRowMode == 0 ? nPixel * image.nWidth : (nPixel * image.nWidth + 3) / 4 * 4;
    // The data ends where the last row does, or where it happens to.
    if (nRowMode != 3 && nRow > 0 && image.nHeight > 0 && image.nHeight <= image.nDataSize / nRow) {
        image.nDataSize = static_cast<unsigned int>(nRow * image.nHeight);
    }
    pixels.resize(image.nDataSize);
    pixels.shrink_to_fit();
    image.pData = pixels.data();

    // The pixels are a few thousand, however few bytes they are made from.
    const FuzzBudget budget(nSize, PictureLimits(16, 1024));
    const PicturePools pools;
    ITnRobotMemoryBlock* pBlock = nullptr;
    if (TnRobotImageUtils::SaveImage(image, pools.Blocks(), &pBlock) != 0) {
        Require(pBlock == nullptr, "a failure leaves the out-pointer alone");
        return 0;
    }
    const TnRobotPtr<ITnRobotMemoryBlock> block(pBlock, tn::kAdopt);
    RequireSameSize(image, pools, pBlock);
    RequireSameFile(image, pools, *block);
    return 0;
}
