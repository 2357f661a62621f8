#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>

#include "TnRobotKernel/image.h"
#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/tn/pixels.h"
#include "image/TnBmpDecoder.h"
#include "image/TnBmpEncoder.h"
#include "image/TnImageGeometry.h"
#include "image/TnJpegDecoder.h"
#include "image/TnJpegEncoder.h"
#include "memory/TnQueryBlock.h"

using tnrobot::STnRowLayout;

namespace {

using SurfaceRef = TnRobotPtr<ITnRobotSurface>;
using SurfaceDesc = ITnRobotSurface::STnSurfaceDesc;
using SurfaceLock = ITnRobotSurface::STnLockSurface;

enum ETnImageResult : int {
    kOk = 0,
    kRefused = -1,
    kNotDecoded = -2,
    kNotEncoded = -6,
};

constexpr int kPieced = 1;
constexpr int kNotPieced = 0;

enum class FileKind { kOther, kJpeg, kBmp };

// A surface's pixels and what the operations do to them. Without memory, or when a surface refuses the
// lock, there are no bytes.
class PixelLock {
public:
    explicit PixelLock(ITnRobotSurface* pSurface) : m_pixels(*pSurface) {}

    const SurfaceLock* operator->() const { return &m_pixels.Lock(); }

    // Rows of this surface, of which the first nRowLength bytes count.
    STnRowLayout Rows(std::int64_t nRows, std::int64_t nRowLength) const {
        return {nRows, nRowLength, m_pixels.Lock().nPitch};
    }

    // @return whether such rows, nSkip bytes into the memory, lie in the surface.
    bool Holds(const STnRowLayout& rows, std::int64_t nSkip = 0) const {
        return m_pixels.Lock().pData != nullptr && nSkip >= 0 &&
               rows.FitsInto(std::int64_t{m_pixels.Lock().nDataSize} - nSkip);
    }

    // Zeroes what lies behind each row and behind the last one: recycled memory still shows what was
    // there before. The rows must lie in the surface.
    void ClearBehind(const STnRowLayout& rows) const {
        if (m_pixels.Lock().pData == nullptr) {
            return;
        }
        const std::int64_t nGap = rows.nPitch - rows.nRowLength;
        for (std::int64_t nRow = 0; nGap > 0 && nRow + 1 < rows.nRows; ++nRow) {
            std::memset(m_pixels.Lock().pData + nRow * rows.nPitch + rows.nRowLength, 0,
                        static_cast<std::size_t>(nGap));
        }
        ClearFrom((rows.nRows - 1) * rows.nPitch + rows.nRowLength);
    }

    // Zeroes the surface from an offset on.
    void ClearFrom(std::int64_t nOffset) const {
        if (m_pixels.Lock().pData != nullptr && nOffset < m_pixels.Lock().nDataSize) {
            std::memset(m_pixels.Lock().pData + nOffset, 0,
                        static_cast<std::size_t>(m_pixels.Lock().nDataSize - nOffset));
        }
    }

private:
    tn::LockedPixels m_pixels;
};

SurfaceRef QuerySurface(ITnRobotSurfacePool* pPool, const SurfaceDesc& desc, int& nResult) {
    SurfaceRef surface;
    nResult = pPool->QuerySurface(desc, surface.put());
    if (nResult != 0) {
        surface.reset();
    }
    return surface;
}

SurfaceRef QuerySurface(ITnRobotSurfacePool* pPool, const SurfaceDesc& desc) {
    int nResult = 0;
    return QuerySurface(pPool, desc, nResult);
}

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

void CopyRows(unsigned char* pTarget, std::int64_t nTargetPitch, const unsigned char* pSource,
              const STnRowLayout& source) {
    for (std::int64_t nRow = 0; nRow < source.nRows; ++nRow) {
        std::memcpy(pTarget, pSource, static_cast<std::size_t>(source.nRowLength));
        pTarget += nTargetPitch;
        pSource += source.nPitch;
    }
}

// @return bytes of a pixel; 0 for formats that are not clipped.
std::int64_t ClipPixelSize(ETnNLImageType eType) {
    return eType == TN_IMAGE_BGRX32 ? 0 : tnrobot::BytesPerPixel(eType);
}

// Everything that has not three bytes per pixel is joined as if it had one.
std::int64_t PiecePixelSize(ETnNLImageType eType) {
    return tnrobot::BytesPerPixel(eType) == 3 ? 3 : 1;
}

bool IsInside(const STnNLROIRect& region, const SurfaceDesc& desc) {
    return region.left >= 0 && region.top >= 0 && region.right <= desc.nWidth && region.bottom <= desc.nHeight &&
           region.right > region.left && region.top < region.bottom;
}

// @return bytes of such a surface; 0 when there cannot be one.
std::int64_t SurfaceBytes(const SurfaceDesc& desc) {
    int nPitch = 0;
    return tnrobot::SurfacePitch(desc.eImageType, desc.nWidth, nPitch) ? tnrobot::SurfaceSize(nPitch, desc.nHeight) : 0;
}

// Files leave bytes of a surface uncovered: JPEG rows end before their padding, the rows of a BMP
// may be fewer than its height says.
void ClearUncovered(const CTnJpegDecoder& /*decoder*/, const PixelLock& pixels, const SurfaceDesc& desc) {
    const std::int64_t nRow = std::int64_t{desc.nWidth} * tnrobot::BytesPerPixel(desc.eImageType);
    pixels.ClearBehind({desc.nHeight, nRow, tnrobot::AlignTo4(nRow)});
}

void ClearUncovered(const CTnBmpDecoder& decoder, const PixelLock& pixels, const SurfaceDesc& /*desc*/) {
    pixels.ClearFrom(decoder.GetDataSize());
}

// Whether there is enough of a file for its picture: memory is asked for only then. What is not in a
// BMP is zero, so a part of a modest picture will do.
bool IsInProportion(const CTnJpegDecoder& decoder, std::int64_t /*nSurfaceSize*/) {
    return decoder.CanHoldPicture();
}

bool IsInProportion(const CTnBmpDecoder& decoder, std::int64_t nSurfaceSize) {
    constexpr std::int64_t kModestSurface = std::int64_t{48} * 1024 * 1024;
    return nSurfaceSize <= kModestSurface || decoder.HasAllRows();
}

int OutOfProportion(const CTnJpegDecoder& /*decoder*/) {
    return kNotDecoded;
}

int OutOfProportion(const CTnBmpDecoder& /*decoder*/) {
    return kRefused;
}

// A picture that its decoder refuses is another failure than a file that cannot be read.
int ReadFailure(const CTnJpegDecoder& /*decoder*/) {
    return kNotDecoded;
}

int ReadFailure(const CTnBmpDecoder& decoder) {
    return decoder.GetDataSize() != 0 ? kNotDecoded : kRefused;
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
    if (nSurfaceSize != 0 && !IsInProportion(decoder, nSurfaceSize)) {
        return OutOfProportion(decoder);
    }
    SurfaceRef surface = QuerySurface(pPool, desc);
    if (!surface) {
        return kRefused;
    }
    {
        const PixelLock pixels(surface.get());
        if (!decoder.ReadData(TN_IMAGE_BGR24, pixels->pData, pixels->nDataSize)) {
            return ReadFailure(decoder);
        }
        ClearUncovered(decoder, pixels, desc);
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
            m_stream.open(m_lpszPath, std::ios::binary | std::ios::out | std::ios::trunc);
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

unsigned char ChannelCount(ETnNLImageType eType, unsigned char nDefault) {
    const int nBytes = tnrobot::BytesPerPixel(eType);
    return nBytes != 0 ? static_cast<unsigned char>(nBytes) : nDefault;
}

}  // namespace

int TnRobotImageUtils::NlImage2Surface(const STnNLImageData& image, ITnRobotSurfacePool* pPool,
                                       ITnRobotSurface** ppSurface) {
    const bool bEmpty = image.pData == nullptr || image.nDataSize == 0 || image.nWidth == 0 || image.nHeight == 0;
    if (bEmpty || pPool == nullptr || ppSurface == nullptr) {
        return kRefused;
    }
    // R,G,B is refused although surfaces can have it: callers rely on the code.
    if (image.eImageType == TN_IMAGE_RGB24 || tnrobot::BytesPerPixel(image.eImageType) == 0) {
        return kNotDecoded;
    }
    const SurfaceDesc desc = {image.nWidth, image.nHeight, 0, image.eImageType, image.oriPos};
    int nResult = 0;
    SurfaceRef surface = QuerySurface(pPool, desc, nResult);
    if (!surface) {
        return nResult != 0 ? nResult : kRefused;
    }
    {
        const PixelLock pixels(surface.get());
        if (image.nDataSize > pixels->nDataSize) {
            return kRefused;
        }
        std::memcpy(pixels->pData, image.pData, image.nDataSize);
        pixels.ClearFrom(image.nDataSize);
    }
    *ppSurface = surface.detach();
    return kOk;
}

int TnRobotImageUtils::Surface2NlImage(ITnRobotSurface* pSurface, STnNLImageData& image) {
    constexpr unsigned char kBitsPerChannel = 8;
    if (pSurface == nullptr) {
        return kRefused;
    }
    SurfaceLock lock{};
    if (!pSurface->LockSurface(lock)) {
        return kOk;
    }
    image.pData = lock.pData;
    image.nDataSize = lock.nDataSize;
    image.oriPos = pSurface->GetOriPos();
    image.nWidth = lock.nWidth;
    image.nHeight = lock.nHeight;
    image.eImageType = lock.eImageType;
    image.nBitsPerChannel = kBitsPerChannel;
    image.nChannels = ChannelCount(lock.eImageType, image.nChannels);
    pSurface->UnLockSurface();
    return kOk;
}

int TnRobotImageUtils::ClipImage(ITnRobotSurfacePool* pPool, ITnRobotSurface* pSource, const STnNLROIRect& region,
                                 ITnRobotSurface** ppSurface) {
    if (pPool == nullptr || pSource == nullptr || ppSurface == nullptr) {
        return kRefused;
    }
    SurfaceDesc desc{};
    pSource->GetSurfaceDesc(desc);
    const std::int64_t nPixel = ClipPixelSize(desc.eImageType);
    if (!IsInside(region, desc) || nPixel == 0) {
        return kRefused;
    }
    desc.nWidth = region.right - region.left;
    desc.nHeight = region.bottom - region.top;
    const PixelLock source(pSource);
    const STnRowLayout rows = source.Rows(desc.nHeight, desc.nWidth * nPixel);
    const std::int64_t nSkip = rows.nPitch * region.top + nPixel * region.left;
    if (!source.Holds(rows, nSkip)) {
        return kRefused;
    }
    // Success without a surface: callers test the pointer.
    *ppSurface = nullptr;
    SurfaceRef surface = QuerySurface(pPool, desc);
    if (!surface) {
        return kOk;
    }
    {
        const PixelLock target(surface.get());
        const STnRowLayout targetRows = target.Rows(rows.nRows, rows.nRowLength);
        if (!target.Holds(targetRows)) {
            return kOk;
        }
        CopyRows(target->pData, target->nPitch, source->pData + nSkip, rows);
        target.ClearBehind(targetRows);
    }
    *ppSurface = surface.detach();
    return kOk;
}

int TnRobotImageUtils::PieceImage(ITnRobotSurfacePool* pPool, ITnRobotSurface* pFirst, ITnRobotSurface* pSecond,
                                  ITnRobotSurface** ppSurface) {
    if (pFirst == nullptr || pSecond == nullptr || ppSurface == nullptr) {
        return kRefused;
    }
    *ppSurface = nullptr;
    const PixelLock first(pFirst);
    const PixelLock second(pSecond);
    // The first image's rows decide how much of both is copied. Callers rely on it: do not "fix".
    const std::int64_t nRow = std::int64_t{first->nWidth} * PiecePixelSize(first->eImageType);
    const STnRowLayout firstRows = first.Rows(first->nHeight, nRow);
    const STnRowLayout secondRows = second.Rows(first->nHeight, nRow);
    const std::int64_t nWidth = std::int64_t{first->nWidth} + second->nWidth;
    const bool bFits = first.Holds(firstRows) && second.Holds(secondRows);
    if (pPool == nullptr || !bFits || nWidth > std::numeric_limits<int>::max()) {
        return kNotPieced;
    }
    const auto nPitch = static_cast<int>(std::int64_t{first->nPitch} * 2);  // the pool computes its own
    SurfaceRef surface =
        QuerySurface(pPool, {static_cast<int>(nWidth), first->nHeight, nPitch, second->eImageType, {0, 0}});
    if (!surface) {
        return kNotPieced;
    }
    {
        const PixelLock target(surface.get());
        const STnRowLayout targetRows = target.Rows(firstRows.nRows, 2 * nRow);
        if (!target.Holds(targetRows)) {
            return kNotPieced;
        }
        for (std::int64_t i = 0; i < firstRows.nRows; ++i) {
            unsigned char* pTarget = target->pData + i * targetRows.nPitch;
            std::memcpy(pTarget, first->pData + i * firstRows.nPitch, static_cast<std::size_t>(nRow));
            std::memcpy(pTarget + nRow, second->pData + i * secondRows.nPitch, static_cast<std::size_t>(nRow));
        }
        target.ClearBehind(targetRows);
    }
    *ppSurface = surface.detach();
    return kPieced;
}

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

namespace {

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

}  // namespace

int TnRobotImageUtils::SaveImage(const char* lpszPath, const STnNLImageData* pImage) {
    return pImage != nullptr ? SaveFile(lpszPath, *pImage, 0) : kRefused;
}

int TnRobotImageUtils::SaveImage(const char* lpszPath, ITnRobotSurface* pSurface) {
    STnNLImageData image{};
    return Surface2NlImage(pSurface, image) == kOk ? SaveFile(lpszPath, image, PitchOf(*pSurface)) : kRefused;
}

namespace {

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
