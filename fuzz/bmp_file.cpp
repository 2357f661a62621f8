// Loads a BMP picture from a file of untrusted bytes and compares with a reader of its own.

#include "FuzzBudget.h"
#include "PictureFile.h"
#include "PicturePools.h"
#include "support/BmpBytes.h"

using namespace tnfuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    static const ScratchDirectory s_directory;
    static const std::string s_strPath = s_directory.Path("picture.bmp");
    WriteWholeFile(s_strPath, pData, nSize);

    const PicturePools pools;
    ITnRobotSurface* pSurface = nullptr;
    int nResult = 0;
    {
        // A surface of 48 MiB for a few rows; beyond it up to four bytes of surface for one of the file.
        const FuzzBudget budget(nSize, PictureLimits(49, 8));
        nResult = TnRobotImageUtils::LoadImage(s_strPath.c_str(), pools.Surfaces(), &pSurface);
    }
    const tntest::BmpAnswer expected = tntest::ExpectedBmp(Bytes(pData, pData + nSize), PicturePools::kLargestSurface);
    Require(nResult == expected.nResult, "the result is that of a plain reader");
    if (nResult == 0) {
        const Surface surface(pSurface, tn::kAdopt);
        const ITnRobotSurface::STnSurfaceDesc desc = Description(*surface);
        Require(desc.nWidth == expected.nWidth && desc.nHeight == expected.nHeight, "so is the size");
        Require(Pixels(*surface) == expected.surface, "and so are all bytes of the surface");
    }
    return 0;
}
