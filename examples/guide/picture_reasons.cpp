// Pictures that cannot be saved or loaded, and why; frames of any pitch.

#include <TnRobotKernel/make.h>

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace {

void CutTheEnd(const char* lpszPath) {
    std::ifstream file(lpszPath, std::ios::binary);
    const std::string strBytes((std::istreambuf_iterator<char>(file)), {});
    std::ofstream(lpszPath, std::ios::binary) << strBytes.substr(0, strBytes.size() - 10);
}

// [reasons]
void Load(const char* lpszPath, ITnRobotSurfacePool* pPool) {
    std::error_code ec;
    const auto picture = tn::LoadImage(lpszPath, pPool, ec);
    std::printf("%s: %s, %s\n", lpszPath, picture ? "a picture" : "no picture", ec ? ec.message().c_str() : "whole");
    if (ec == tn::errc::picture_incomplete && picture) {
        std::puts("  what there is of it can be shown");
    }
}

void Save(const char* lpszPath, ITnRobotSurface* pSurface) {
    std::error_code ec;
    std::printf("%s: %s\n", lpszPath, tn::SaveImage(lpszPath, pSurface, ec) ? "saved" : ec.message().c_str());
}
// [/reasons]

}  // namespace

int main() {
    const auto blocks = tn::MakeMemoryBlockPool();
    const auto pool = tn::MakeSurfacePool(blocks.get());

    // [frame]
    // A camera's frame: 62 pixels of B,G,R in a row, and nothing between the rows.
    std::vector<unsigned char> bytes(std::size_t{62} * 3 * 48, 120);
    STnNLImageData frame{};
    frame.pData = bytes.data();
    frame.nDataSize = static_cast<unsigned int>(bytes.size());
    frame.nWidth = 62;
    frame.nHeight = 48;
    frame.eImageType = TN_IMAGE_BGR24;

    const auto copy = tn::CopyToSurface(*pool, frame, 62 * 3);
    // Or without a copy: the surface keeps the vector, which is asked for its memory before it moves.
    unsigned char* pMemory = bytes.data();
    const std::size_t nBytes = bytes.size();
    const auto over = tn::SurfaceOver(pMemory, nBytes, {62, 48, 62 * 3, TN_IMAGE_BGR24, {0, 0}}, std::move(bytes));
    // [/frame]
    std::printf("pitch of the copy %d, of the frame %d\n", tn::LockedPixels(copy).Pitch(),
                tn::LockedPixels(over).Pitch());

    Save("frame.bmp", over.get());
    Save("frame.png", over.get());
    Save("frame.jpg", over.get());
    Load("frame.jpg", pool.get());
    CutTheEnd("frame.jpg");
    Load("frame.jpg", pool.get());
    Load("missing.jpg", pool.get());
    return 0;
}
