#include "image/TnJpegDecoder.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "image/TnImageFile.h"
#include "image/TnImageGeometry.h"
#include "image/TnJpegError.h"

struct STnJpegDecodeContext {
    jpeg_decompress_struct m_jpeg;
    STnJpegErrorManager m_errors;
    jpeg_progress_mgr m_progress;
    bool m_bSpent;  // whether the picture has been decoded or has failed to
};

namespace {

constexpr int kLibraryVersion = 62;
constexpr int kMaxScans = 100;
constexpr JDIMENSION kRowsAtOnce = 16;

// Pictures up to this many pixels are decoded whatever their input looks like: even an empty one
// costs little.
constexpr std::int64_t kModestPixels = std::int64_t{16} * 1024 * 1024;
constexpr std::int64_t kPixelsPerBlock = 64;
constexpr std::int64_t kBitsPerByte = 8;

// Coefficients of one block in memory, and how many bytes of them a byte of input can stand for.
constexpr std::int64_t kBlockBytes = 128;
constexpr std::int64_t kMaxExpansion = kBlockBytes * kBitsPerByte;

// Memory that libjpeg may always have, and what it can need for a pixel of a larger picture: 2 bytes
// for each of at most 4 components, and as much again for incomplete blocks at the edges.
constexpr std::int64_t kModestMemory = std::int64_t{48} * 1024 * 1024;
constexpr std::int64_t kMaxBytesPerPixel = 16;

std::int64_t PixelCount(const jpeg_decompress_struct& jpeg) {
    return std::int64_t{jpeg.image_width} * jpeg.image_height;
}

// Every block takes at least one bit in the first scan it occurs in.
bool CanHoldPicture(const jpeg_decompress_struct& jpeg, std::int64_t nSourceLength) {
    const std::int64_t nPixels = PixelCount(jpeg);
    return nPixels <= kModestPixels || nPixels / (kPixelsPerBlock * kBitsPerByte) <= nSourceLength;
}

// For a picture of several scans libjpeg holds all coefficients at once; beyond this limit it
// reports an error.
long MemoryLimit(const jpeg_decompress_struct& jpeg, std::int64_t nSourceLength) {
    const std::int64_t nPicture = PixelCount(jpeg) * kMaxBytesPerPixel;
    const std::int64_t nInput = nSourceLength * kMaxExpansion;
    return static_cast<long>(std::max(kModestMemory, std::min(nPicture, nInput)));
}

// Each scan goes over the whole picture, however little of the input it takes.
void StopAfterTooManyScans(jpeg_common_struct* pCommon) {
    if (reinterpret_cast<jpeg_decompress_struct*>(pCommon)->input_scan_number > kMaxScans) {
        tnrobot::JumpOutOfJpeg(pCommon);
    }
}

bool StartDecoder(STnJpegDecodeContext& context, const unsigned char* pData, unsigned int nLength) {
    if (setjmp(context.m_errors.m_jump) != 0) {
        return false;
    }
    jpeg_decompress_struct& jpeg = context.m_jpeg;
    jpeg_CreateDecompress(&jpeg, kLibraryVersion, sizeof(jpeg));
    context.m_progress.progress_monitor = StopAfterTooManyScans;
    jpeg.progress = &context.m_progress;
    jpeg_mem_src(&jpeg, pData, nLength);
    jpeg_read_header(&jpeg, TRUE);
    jpeg.mem->max_memory_to_use = MemoryLimit(jpeg, nLength);
    return true;
}

// libjpeg writes into the caller's rows directly. Rows that do not fit are left to
// jpeg_finish_decompress, which reports their absence as an error.
void ReadRowsThatFit(jpeg_decompress_struct& jpeg, unsigned char* pBuffer, unsigned int nSize) {
    const std::int64_t nRowLength = std::int64_t{jpeg.output_width} * jpeg.output_components;
    const auto nStride = static_cast<std::size_t>(tnrobot::AlignTo4(nRowLength));
    const auto nRows = static_cast<JDIMENSION>(std::min<std::size_t>(nSize / nStride, jpeg.output_height));
    while (jpeg.output_scanline < nRows) {
        JSAMPROW rows[kRowsAtOnce] = {};
        const JDIMENSION nCount = std::min(kRowsAtOnce, nRows - jpeg.output_scanline);
        for (JDIMENSION i = 0; i < nCount; ++i) {
            rows[i] = pBuffer + (jpeg.output_scanline + i) * nStride;
        }
        jpeg_read_scanlines(&jpeg, rows, nCount);
    }
}

bool DecodePicture(STnJpegDecodeContext& context, unsigned char* pBuffer, unsigned int nSize) {
    if (setjmp(context.m_errors.m_jump) != 0) {
        return false;
    }
    jpeg_start_decompress(&context.m_jpeg);
    ReadRowsThatFit(context.m_jpeg, pBuffer, nSize);
    return jpeg_finish_decompress(&context.m_jpeg) != FALSE;
}

void DestroyDecoder(STnJpegDecodeContext& context) {
    if (setjmp(context.m_errors.m_jump) == 0) {
        jpeg_destroy_decompress(&context.m_jpeg);
    }
}

bool CanDecodeTo(ETnNLImageType eType) {
    return eType == TN_IMAGE_RGB24 || eType == TN_IMAGE_BGR24 || eType == TN_IMAGE_GRAY8 || eType == TN_IMAGE_BGRX32;
}

}  // namespace

void CTnJpegDecoder::ContextDeleter::operator()(STnJpegDecodeContext* pContext) const {
    DestroyDecoder(*pContext);
    delete pContext;
}

CTnJpegDecoder::CTnJpegDecoder() = default;
CTnJpegDecoder::~CTnJpegDecoder() = default;

bool CTnJpegDecoder::Open(const unsigned char* pData, unsigned int nLength) {
    if (pData == nullptr || nLength == 0 || m_context) {
        return false;
    }
    m_context.reset(new STnJpegDecodeContext{});
    m_context->m_jpeg.err = tnrobot::InitJpegErrors(m_context->m_errors);
    if (!StartDecoder(*m_context, pData, nLength)) {
        m_context.reset();
        return false;
    }
    m_pSource = pData;
    m_nSourceLength = nLength;
    return true;
}

bool CTnJpegDecoder::Open(const char* lpszPath) {
    if (lpszPath == nullptr || m_context) {
        return false;
    }
    const tnrobot::ImageFile file(lpszPath);
    if (file.Length() < 1 || file.Length() > std::numeric_limits<unsigned int>::max()) {
        return false;
    }
    m_file.Allocate(static_cast<std::size_t>(file.Length()));
    const bool bOpen =
        file.ReadAt(0, m_file.Data(), m_file.Size()) && Open(m_file.Data(), static_cast<unsigned int>(m_file.Size()));
    if (!bOpen) {
        m_file.Clear();
    }
    return bOpen;
}

bool CTnJpegDecoder::ReadHeader(int& nWidth, int& nHeight) const {
    if (!m_context) {
        return false;
    }
    nWidth = static_cast<int>(m_context->m_jpeg.image_width);
    nHeight = static_cast<int>(m_context->m_jpeg.image_height);
    return true;
}

bool CTnJpegDecoder::ReadData(ETnNLImageType eType, unsigned char* pBuffer, unsigned int nSize) {
    if (!m_context || m_context->m_bSpent || pBuffer == nullptr || !CanDecodeTo(eType)) {
        return false;
    }
    jpeg_decompress_struct& jpeg = m_context->m_jpeg;
    if (!CanHoldPicture(jpeg, m_nSourceLength)) {
        return false;
    }
    m_context->m_bSpent = true;
    const tnrobot::STnJpegFormat format = tnrobot::JpegFormat(eType);
    jpeg.err->error_exit = TnJpegErrorExit;
    jpeg.out_color_space = format.eColourSpace;
    return DecodePicture(*m_context, pBuffer, nSize);
}

void CTnJpegDecoder::Close() {
    m_context.reset();
    m_file.Clear();
    m_pSource = nullptr;
    m_nSourceLength = 0;
}
