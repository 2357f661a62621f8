// Loading and saving images. A path's ending chooses the codec; loading asks for a surface only when its
// decoder has seen that the file can hold the picture, and saving leaves an old file alone until the new
// one is encoded.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>

#include "TnRobotKernel/image.h"
#include "core/TnOpenFile.h"
#include "image/TnBmpDecoder.h"
#include "image/TnBmpEncoder.h"
#include "image/TnImageGeometry.h"
#include "image/TnImageResult.h"
#include "image/TnJpegDecoder.h"
#include "image/TnJpegEncoder.h"
#include "image/TnPixelLock.h"
#include "memory/TnQueryBlock.h"

using tnrobot::kNotDecoded;
using tnrobot::kNotEncoded;
using tnrobot::kOk;
using tnrobot::kRefused;
using tnrobot::Reading;

namespace {

using SurfaceDesc = ITnRobotSurface::STnSurfaceDesc;

enum class FileKind { kOther, kJpeg, kBmp };

// Only ASCII letters count, whatever the process's locale.
char ToLower(char ch) {
    return ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch - 'A' + 'a') : ch;
}

constexpr std::size_t kExtensionLength = 4;

// @return whether the path is long enough to have an extension.
bool QueryFileKind(const char* lpszPath, FileKind& eKind) {
    const std::size_t nLength = lpszPath != nullptr ? std::strlen(lpszPath) : 0;
    if (nLength < kExtensionLength) {
        return false;
    }
    char szExtension[kExtensionLength + 1] = {};
    std::transform(lpszPath + nLength - kExtensionLength, lpszPath + nLength, szExtension, ToLower);
    eKind = std::strcmp(szExtension, ".jpg") == 0   ? FileKind::kJpeg
            : std::strcmp(szExtension, ".bmp") == 0 ? FileKind::kBmp
                                                    : FileKind::kOther;
    return true;
}

int ResultOf(Reading eReading) {
    switch (eReading) {
        case Reading::kDone:
            return kOk;
        case Reading::kUndecodable:
            return kNotDecoded;
        case Reading::kUnreadable:
            break;
    }
    return kRefused;
}

// @return bytes of such a surface; 0 when there cannot be one.
std::int64_t SurfaceBytes(const SurfaceDesc& desc) {
    int nPitch = 0;
    return tnrobot::SurfacePitch(desc.eImageType, desc.nWidth, nPitch) ? tnrobot::SurfaceSize(nPitch, desc.nHeight) : 0;
}

// Reads what an opened decoder holds into a new surface.
template <typename Decoder>
int ReadOpened(Decoder& decoder, ITnRobotSurfacePool* pPool, ITnRobotSurface** ppSurface) {
    SurfaceDesc desc{};
    desc.eImageType = TN_IMAGE_BGR24;
    if (!decoder.ReadHeader(desc.nWidth, desc.nHeight)) {
        return kRefused;
    }
    // Sizes that no surface can have are left to the pool, which has its own answer to them.
    const std::int64_t nSurfaceSize = SurfaceBytes(desc);
    const Reading eHope = nSurfaceSize != 0 ? decoder.CanFill(nSurfaceSize) : Reading::kDone;
    if (eHope != Reading::kDone) {
        return ResultOf(eHope);
    }
    TnRobotPtr<ITnRobotSurface> surface = tnrobot::QuerySurface(*pPool, desc);
    if (!surface) {
        return kRefused;
    }
    {
        const tnrobot::PixelLock pixels(surface.get());
        const tnrobot::PictureReading reading = decoder.Read(TN_IMAGE_BGR24, pixels->pData, pixels->nDataSize);
        if (reading.m_eReading != Reading::kDone) {
            return ResultOf(reading.m_eReading);
        }
        pixels.ClearBehind(reading.m_covered);
    }
    *ppSurface = surface.detach();
    return kOk;
}

template <typename Decoder, typename... Source>
int Load(ITnRobotSurfacePool* pPool, ITnRobotSurface** ppSurface, Source... source) {
    Decoder decoder;
    if (pPool == nullptr || ppSurface == nullptr || !decoder.Open(source...)) {
        return kRefused;
    }
    return ReadOpened(decoder, pPool, ppSurface);
}

// A file that replaces an old one. It is opened by its first piece, so that an image that cannot be
// encoded leaves the old file alone; that it cannot be opened or written is nobody's error.
class FileWriter {
public:
    explicit FileWriter(const char* lpszPath) : m_lpszPath(lpszPath) {}

    void Write(const unsigned char* pPiece, std::size_t nSize) {
        if (!m_bTried) {
            m_bTried = true;
            tnrobot::OpenFile(*m_stream.rdbuf(), m_lpszPath, std::ios::out | std::ios::trunc);
        }
        m_stream.write(reinterpret_cast<const char*>(pPiece), static_cast<std::streamsize>(nSize));
    }

private:
    const char* m_lpszPath;
    std::ofstream m_stream;
    bool m_bTried = false;
};

// @param[in] nPitch  of the record's rows, 0 where only the record knows.
int SaveJpeg(const char* lpszPath, const STnNLImageData& image, int nPitch) {
    CTnJpegEncoder encoder;
    if (!encoder.Encode(image, nPitch)) {
        return kNotEncoded;
    }
    unsigned int nSize = 0;
    const unsigned char* pData = encoder.GetEncodeData(nSize);
    FileWriter(lpszPath).Write(pData, nSize);
    return kOk;
}

// The file goes out in pieces: its colour table alone can be 64 MiB, which nobody needs in memory.
int SaveBmp(const char* lpszPath, const STnNLImageData& image) {
    FileWriter file(lpszPath);
    const bool bEncoded = CTnBmpEncoder::EncodePieces(
        image, [&file](const unsigned char* pPiece, std::size_t nSize) { file.Write(pPiece, nSize); });
    return bEncoded ? kOk : kNotEncoded;
}

int SaveFile(const char* lpszPath, const STnNLImageData& image, int nPitch) {
    FileKind eKind = FileKind::kOther;
    if (!QueryFileKind(lpszPath, eKind)) {
        return kRefused;
    }
    switch (eKind) {
        case FileKind::kJpeg:
            return SaveJpeg(lpszPath, image, nPitch);
        case FileKind::kBmp:
            return SaveBmp(lpszPath, image);
        case FileKind::kOther:
            break;
    }
    return kOk;  // callers rely on it: nothing is written for other endings
}

// The size of a surface's block does not tell its pitch: pools may hand out larger blocks.
int PitchOf(ITnRobotSurface& surface) {
    SurfaceDesc desc{};
    surface.GetSurfaceDesc(desc);
    return desc.nPitch;
}

int SaveBlock(const STnNLImageData& image, int nPitch, ITnRobotMemoryBlockPool* pBlockPool,
              ITnRobotMemoryBlock** ppBlock) {
    if (pBlockPool == nullptr || ppBlock == nullptr) {
        return kRefused;
    }
    CTnJpegEncoder encoder;
    if (!encoder.Encode(image, nPitch)) {
        return kNotEncoded;
    }
    unsigned int nSize = 0;
    const unsigned char* pData = encoder.GetEncodeData(nSize);
    *ppBlock = nullptr;
    TnRobotPtr<ITnRobotMemoryBlock> block = tnrobot::QueryBlock(*pBlockPool, nSize);
    if (!block) {
        return kRefused;
    }
    unsigned int nRoom = 0;
    unsigned char* pTarget = block->QueryMemory(nRoom);
    if (pTarget == nullptr || nRoom < nSize) {
        return kRefused;
    }
    std::memcpy(pTarget, pData, nSize);
    *ppBlock = block.detach();
    return kOk;
}

}  // namespace

int TnRobotImageUtils::LoadImage(const char* lpszPath, ITnRobotSurfacePool* pPool, ITnRobotSurface** ppSurface) {
    FileKind eKind = FileKind::kOther;
    if (!QueryFileKind(lpszPath, eKind)) {
        return kRefused;
    }
    switch (eKind) {
        case FileKind::kJpeg:
            return Load<CTnJpegDecoder>(pPool, ppSurface, lpszPath);
        case FileKind::kBmp:
            return Load<CTnBmpDecoder>(pPool, ppSurface, lpszPath);
        case FileKind::kOther:
            break;
    }
    return kRefused;
}

int TnRobotImageUtils::LoadImage(const unsigned char* pData, unsigned int nLength, ITnRobotSurfacePool* pPool,
                                 ITnRobotSurface** ppSurface) {
    return Load<CTnJpegDecoder>(pPool, ppSurface, pData, nLength);
}

int TnRobotImageUtils::LoadImage(ITnRobotMemoryBlock* pBlock, ITnRobotSurfacePool* pPool, ITnRobotSurface** ppSurface) {
    if (pBlock == nullptr) {
        return kRefused;
    }
    unsigned int nLength = 0;
    const unsigned char* pData = pBlock->QueryMemory(nLength);
    return LoadImage(pData, nLength, pPool, ppSurface);
}

int TnRobotImageUtils::SaveImage(const char* lpszPath, const STnNLImageData* pImage) {
    return pImage != nullptr ? SaveFile(lpszPath, *pImage, 0) : kRefused;
}

int TnRobotImageUtils::SaveImage(const char* lpszPath, ITnRobotSurface* pSurface) {
    STnNLImageData image{};
    return Surface2NlImage(pSurface, image) == kOk ? SaveFile(lpszPath, image, PitchOf(*pSurface)) : kRefused;
}

int TnRobotImageUtils::SaveImage(const STnNLImageData& image, ITnRobotMemoryBlockPool* pBlockPool,
                                 ITnRobotMemoryBlock** ppBlock) {
    return SaveBlock(image, 0, pBlockPool, ppBlock);
}

int TnRobotImageUtils::SaveImage(ITnRobotSurface* pSurface, ITnRobotMemoryBlockPool* pBlockPool,
                                 ITnRobotMemoryBlock** ppBlock) {
    STnNLImageData image{};
    return Surface2NlImage(pSurface, image) == kOk ? SaveBlock(image, PitchOf(*pSurface), pBlockPool, ppBlock)
                                                   : kRefused;
}
