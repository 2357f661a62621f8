// Loads a JPEG picture from untrusted bytes.

#include "FuzzBudget.h"
#include "PicturePools.h"

using namespace tnfuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const PicturePools pools;
    ITnRobotSurface* pSurface = nullptr;
    int nResult = 0;
    {
        // 64 Mi pixels that are not accounted for, of nine bytes each in a surface and as coefficients;
        // and for each byte 512 pixels in the same way.
        const FuzzBudget budget(nSize, PictureLimits(640, 8192));
        nResult = TnRobotImageUtils::LoadImage(pData, static_cast<unsigned int>(nSize), pools.Surfaces(), &pSurface);
    }
    if (nResult != 0) {
        Require(pSurface == nullptr, "a failure leaves the out-pointer alone");
        return 0;
    }
    const Surface surface(pSurface, tn::kAdopt);
    const ITnRobotSurface::STnSurfaceDesc desc = Description(*surface);
    Require(desc.eImageType == TN_IMAGE_BGR24 && desc.nWidth > 0 && desc.nHeight > 0, "a picture is B,G,R");
    const Bytes pixels = Pixels(*surface);
    const auto nPitch = static_cast<std::size_t>(desc.nPitch);
    Require(pixels.size() == nPitch * static_cast<std::size_t>(desc.nHeight), "a surface holds all rows");
    for (std::size_t nRow = 0; nRow < pixels.size(); nRow += nPitch) {
        for (std::size_t i = 3 * static_cast<std::size_t>(desc.nWidth); i < nPitch; ++i) {
            Require(pixels[nRow + i] == 0, "padding of rows is zero");
        }
    }
    return 0;
}
