// A picture into a BMP file, a JPEG file and a JPEG in memory, and back.

#include <TnRobotKernel/make.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// @return the surface's first byte.
int FirstByte(ITnRobotSurface& surface) {
    ITnRobotSurface::STnLockSurface lock{};
    surface.LockSurface(lock);
    const int nByte = *lock.pData;
    surface.UnLockSurface();
    return nByte;
}

// @return whether what came back is what was saved, up to a tolerance.
bool Compare(const char* lpszTitle, ITnRobotSurface& saved, ITnRobotSurface* pLoaded, int nTolerance) {
    const bool bSame = pLoaded != nullptr && std::abs(FirstByte(*pLoaded) - FirstByte(saved)) <= nTolerance;
    std::printf("%s: %s\n", lpszTitle, bSame ? "came back" : "DIFFERS");
    return bSame;
}

}  // namespace

int main() {
    const auto blocks = tn::MakeMemoryBlockPool();
    const auto pool = tn::MakeSurfacePool(blocks.get());
    const auto picture = tn::QuerySurface(*pool, {64, 48, 0, TN_IMAGE_BGR24, {0, 0}});
    ITnRobotSurface::STnLockSurface lock{};
    picture->LockSurface(lock);
    std::memset(lock.pData, 120, lock.nDataSize);
    picture->UnLockSurface();

    // [files]
    bool bOk = TnRobotImageUtils::SaveImage("part.bmp", picture.get()) == 0 &&  // the ending chooses the format
               TnRobotImageUtils::SaveImage("part.jpg", picture.get()) == 0;
    const auto bmp = tn::LoadImage("part.bmp", pool.get());  // empty when anything went wrong
    const auto jpeg = tn::LoadImage("part.jpg", pool.get());
    bOk = Compare("part.bmp", *picture, bmp.get(), 0) && bOk;
    bOk = Compare("part.jpg", *picture, jpeg.get(), 2) && bOk;
    // [/files]

    // [memory]
    const auto block = tn::SaveImage(picture.get(), blocks.get());  // as JPEG
    const auto decoded = tn::LoadImage(block.get(), pool.get());
    bOk = Compare("memory", *picture, decoded.get(), 2) && bOk;
    // [/memory]
    return bOk ? 0 : 1;
}
