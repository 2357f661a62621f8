// Loads a JPEG picture from untrusted bytes.

#include <cstddef>
#include <cstdint>

#include "PicturePools.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const PicturePools pools;
    ITnRobotSurface* pSurface = nullptr;
    if (TnRobotImageUtils::LoadImage(pData, static_cast<unsigned int>(nSize), pools.Surfaces(), &pSurface) == 0) {
        PicturePools::Finish(pSurface);
    }
    return 0;
}
