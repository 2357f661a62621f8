#include "TnRobotKernel/make.h"
#include "TnRobotKernel/tn/pixels.h"
#include "startup/Probed.h"

int FirstValue(int nNumber) {
    return tn::MakeIntData(nNumber)->IntData(nullptr);
}

int FirstPicture(const unsigned char* pData, unsigned int nLength) {
    const auto blocks = tn::MakeMemoryBlockPool();
    const auto surfaces = tn::MakeSurfacePool(blocks.get());
    const auto picture = tn::LoadImage(pData, nLength, surfaces.get());
    return tn::LockedPixels(picture).Width();
}
