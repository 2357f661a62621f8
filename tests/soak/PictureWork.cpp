// Small pictures: made, clipped, joined, saved, loaded, compared.

#include <algorithm>
#include <cstdlib>

#include "soak/Workshop.h"
#include "support/bytes/BmpBytes.h"
#include "support/bytes/FileBytes.h"
#include "support/fakes/TestSurfaces.h"

using namespace tntest;

namespace tnsoak {

namespace {

using Utils = TnRobotImageUtils;
using Surface = TnRobotPtr<ITnRobotSurface>;

constexpr int kBytesPerPixel = 3;

// Widths are multiples of four, so that rows have no padding in any of the forms.
int RandomSide(Worker& worker) {
    return 4 * worker.Number(1, 16);
}

Bytes RandomPixels(Worker& worker, int nWidth, int nHeight, int nBytesPerPixel) {
    const auto nSize = static_cast<std::size_t>(nWidth * nHeight * nBytesPerPixel);
    return Counting(nSize, worker.Size(1, 250));
}

Surface MakeSurface(Worker& worker, ETnNLImageType eType, int nWidth, int nHeight, const Bytes& pixels) {
    ITnRobotSurface* pSurface = nullptr;
    const STnNLImageData record = Record(eType, nWidth, nHeight, pixels);
    Require(Utils::NlImage2Surface(record, worker.shop.surfaces.get(), &pSurface) == 0, "no surface");
    Surface surface(pSurface, tn::kAdopt);
    Insist(SurfaceBytes(surface.get()) == pixels, "a surface differs from its record");
    return surface;
}

// Two halves of a picture, joined again, are the picture.
void ClipAndJoin(Worker& worker, ITnRobotSurface* pWhole) {
    ITnRobotSurfacePool* pPool = worker.shop.surfaces.get();
    const Desc desc = DescOf(pWhole);
    const int nHalf = desc.nWidth / 2;
    ITnRobotSurface* pLeft = nullptr;
    ITnRobotSurface* pRight = nullptr;
    ITnRobotSurface* pJoined = nullptr;
    Require(Utils::ClipImage(pPool, pWhole, {0, nHalf, 0, desc.nHeight}, &pLeft) == 0, "the left half is refused");
    const Surface left(pLeft, tn::kAdopt);
    Require(Utils::ClipImage(pPool, pWhole, {nHalf, 2 * nHalf, 0, desc.nHeight}, &pRight) == 0,
            "the right half is refused");
    const Surface right(pRight, tn::kAdopt);
    Require(Utils::PieceImage(pPool, left.get(), right.get(), &pJoined) == 1, "the halves are not joined");
    const Surface joined(pJoined, tn::kAdopt);
    Insist(SurfaceBytes(joined.get()) == SurfaceBytes(pWhole), "the joined picture differs");
}

Surface LoadFrom(Worker& worker, const std::string& path) {
    ITnRobotSurface* pSurface = nullptr;
    Require(Utils::LoadImage(path.c_str(), worker.shop.surfaces.get(), &pSurface) == 0, "a picture is not loaded");
    return tn::Adopt(pSurface);
}

void RequireAlike(const Bytes& left, const Bytes& right) {
    constexpr int kMostDifference = 20;  // what the compression may cost
    Insist(left.size() == right.size(), "a picture has another size");
    for (std::size_t n = 0; n < left.size(); ++n) {
        Insist(std::abs(int{left[n]} - int{right[n]}) <= kMostDifference, "a picture is not what was saved");
    }
}

}  // namespace

// Grey pictures are saved, colour ones loaded: saving the latter would write their large colour
// table each time, and the former are not loaded.
void UseBmp(Worker& worker) {
    const int nWidth = RandomSide(worker);
    const int nHeight = RandomSide(worker);
    const Bytes grey = RandomPixels(worker, nWidth, nHeight, 1);
    const std::string path = worker.Path("picture.bmp");
    const Surface saved = MakeSurface(worker, TN_IMAGE_GRAY8, nWidth, nHeight, grey);
    Require(Utils::SaveImage(path.c_str(), saved.get()) == 0, "a BMP is not saved");
    const Bytes file = ReadBytes(path);
    Insist(file.size() > grey.size(), "a BMP is too short");
    const Bytes rows(file.end() - static_cast<std::ptrdiff_t>(grey.size()), file.end());
    Insist(FlipRows(rows, static_cast<std::size_t>(nWidth)) == grey, "a BMP has other pixels");

    const Bytes colour = RandomPixels(worker, nWidth, nHeight, kBytesPerPixel);
    const auto nRow = static_cast<std::size_t>(nWidth * kBytesPerPixel);
    WriteBytes(path, BmpFile24(nWidth, nHeight, FlipRows(colour, nRow)));
    const Surface loaded = LoadFrom(worker, path);
    Insist(SurfaceBytes(loaded.get()) == colour, "a loaded BMP has other pixels");
    ClipAndJoin(worker, loaded.get());
}

void UseJpeg(Worker& worker) {
    const int nWidth = RandomSide(worker);
    const int nHeight = RandomSide(worker);
    const Bytes pixels = SmoothPicture(nWidth, nHeight, kBytesPerPixel, nWidth * kBytesPerPixel);
    const Surface saved = MakeSurface(worker, TN_IMAGE_BGR24, nWidth, nHeight, pixels);
    const std::string path = worker.Path("picture.jpg");
    Require(Utils::SaveImage(path.c_str(), saved.get()) == 0, "a JPEG is not saved");
    const Surface loaded = LoadFrom(worker, path);
    RequireAlike(SurfaceBytes(loaded.get()), pixels);

    ITnRobotMemoryBlock* pBlock = nullptr;
    Require(Utils::SaveImage(saved.get(), worker.shop.blocks.get(), &pBlock) == 0, "no JPEG in memory");
    const TnRobotPtr<ITnRobotMemoryBlock> block(pBlock, tn::kAdopt);
    ITnRobotSurface* pSurface = nullptr;
    Require(Utils::LoadImage(block.get(), worker.shop.surfaces.get(), &pSurface) == 0, "a JPEG in memory is refused");
    const Surface fromMemory(pSurface, tn::kAdopt);
    Insist(SurfaceBytes(fromMemory.get()) == SurfaceBytes(loaded.get()), "disk and memory differ");
    ClipAndJoin(worker, fromMemory.get());
}

}  // namespace tnsoak
