// Surfaces and their pitch: asked for, drawn on, clipped and joined.

#include <TnRobotKernel/make.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

// [pixels]
// A dark square of 20 x 20 pixels on a bright ground. The surface is unlocked at the end.
void Draw(ITnRobotSurface& surface) {
    const tn::LockedPixels pixels(surface);
    for (int nY = 0; nY < pixels.Height(); ++nY) {
        std::memset(pixels.Row(nY), 200, static_cast<std::size_t>(pixels.RowBytes()));
    }
    for (int nY = 20; nY < 40; ++nY) {
        std::memset(pixels.Row(nY) + std::ptrdiff_t{20} * 3, 30, std::size_t{20} * 3);
    }
}

// A pixel has three bytes, and the first of them is blue.
int Blue(ITnRobotSurface& surface, int nX, int nY) {
    const tn::LockedPixels pixels(surface);
    return pixels.Row(nY)[std::ptrdiff_t{nX} * 3];
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
