// Surfaces and their pitch: asked for, drawn on, clipped and joined.

#include <TnRobotKernel/make.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

// [pixels]
// @return the first byte of a pixel of three bytes: rows lie nPitch bytes apart.
unsigned char* PixelAt(const ITnRobotSurface::STnLockSurface& lock, int nX, int nY) {
    return lock.pData + static_cast<std::ptrdiff_t>(nY) * lock.nPitch + static_cast<std::ptrdiff_t>(nX) * 3;
}

// A dark square of 20 x 20 pixels on a bright ground.
void Draw(ITnRobotSurface& surface) {
    ITnRobotSurface::STnLockSurface lock{};
    surface.LockSurface(lock);
    std::memset(lock.pData, 200, lock.nDataSize);
    for (int nY = 20; nY < 40; ++nY) {
        std::memset(PixelAt(lock, 20, nY), 30, std::size_t{20} * 3);
    }
    surface.UnLockSurface();
}

int Blue(ITnRobotSurface& surface, int nX, int nY) {
    ITnRobotSurface::STnLockSurface lock{};
    surface.LockSurface(lock);
    const int nBlue = *PixelAt(lock, nX, nY);
    surface.UnLockSurface();
    return nBlue;
}
// [/pixels]

void Print(const char* lpszTitle, ITnRobotSurface* pSurface) {
    ITnRobotSurface::STnSurfaceDesc desc{};
    if (pSurface != nullptr) {
        pSurface->GetSurfaceDesc(desc);
    }
    std::printf("%-8s %2d x %2d, pitch %3d\n", lpszTitle, desc.nWidth, desc.nHeight, desc.nPitch);
}

}  // namespace

int main() {
    // [pitch]
    const auto blocks = tn::MakeMemoryBlockPool();
    const auto pool = tn::MakeSurfacePool(blocks.get());
    for (const int nWidth : {64, 63, 62}) {
        const auto sample = tn::QuerySurface(*pool, {nWidth, 48, 0, TN_IMAGE_BGR24, {0, 0}});
        Print("B,G,R", sample.get());
    }
    const auto grey = tn::QuerySurface(*pool, {63, 48, 0, TN_IMAGE_GRAY8, {0, 0}});
    Print("grey", grey.get());
    // [/pitch]

    // [clip]
    const auto surface = tn::QuerySurface(*pool, {64, 48, 0, TN_IMAGE_BGR24, {0, 0}});
    if (!surface) {
        return 1;
    }
    Draw(*surface);
    const auto square = tn::ClipImage(pool.get(), surface.get(), {16, 44, 16, 44});  // left, right, top, bottom
    const auto corner = tn::ClipImage(pool.get(), surface.get(), {0, 28, 0, 28});
    const auto joined = tn::PieceImage(pool.get(), square.get(), corner.get());
    if (!joined) {
        return 1;
    }
    Print("clipped", square.get());
    Print("joined", joined.get());
    std::printf("left half %d, right half %d\n", Blue(*joined, 10, 10), Blue(*joined, 38, 10));
    // [/clip]
    return 0;
}
