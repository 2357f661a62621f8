// A picture into a BMP file, a JPEG file and a JPEG in memory, and back.

#include <TnRobotKernel/make.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void Fill(ITnRobotSurface& surface, int nByte) {
    const tn::LockedPixels pixels(surface);
    for (int nRow = 0; nRow < pixels.Height(); ++nRow) {
        std::memset(pixels.Row(nRow), nByte, static_cast<std::size_t>(pixels.RowBytes()));
    }
}

// @return the surface's first byte.
int FirstByte(ITnRobotSurface& surface) {
    return *tn::LockedPixels(surface).Row(0);
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
    if (!picture) {
        return 1;
    }
    Fill(*picture, 120);

    // [files]
    bool bOk = tn::SaveImage("part.bmp", picture.get()) &&  // the ending chooses the format
               tn::SaveImage("part.jpg", picture.get());
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
