// Three steps, each a small function of its own because libjpeg leaves it by a jump when something is
// wrong: reading the header, decoding, destroying. Before decoding, limits on pixels, scans and memory
// are worked out from the coded bytes that there are; the constants say why.

#include "image/TnJpegDecoder.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "image/TnImageFile.h"
#include "image/TnImageGeometry.h"
#include "image/TnJpegError.h"
#include "image/TnJpegOutline.h"
#include "image/TnJpegSource.h"

using tnrobot::PictureReading;
using tnrobot::Reading;
using tnrobot::RowLayout;

struct STnJpegDecodeContext {
    jpeg_decompress_struct m_jpeg;
    STnJpegErrorManager m_errors;
    jpeg_progress_mgr m_progress;
    tnrobot::ArithmeticSource m_source;
    tnrobot::JpegOutline m_outline;
    bool m_bSpent;  // whether the picture has been decoded or has failed to
};

namespace {

constexpr int kLibraryVersion = 62;
constexpr int kMaxScans = 100;
constexpr JDIMENSION kRowsAtOnce = 16;

// What a picture may cost that its coded bytes do not account for. A flat picture of any size takes
// a few hundred bytes in arithmetic coding, so this much is decoded whatever the input looks like:
// 64 Mi pixels (65000 x 1000 of a line camera, or 8192 x 8192), with six bytes of coefficients each
// when there are several scans, and ten scans of them, as the usual script has. While a picture is
// flat a pixel of a scan takes 0.7 to 1.6 ns, so that this is about half a second.
constexpr std::int64_t kModestPixels = std::int64_t{64} * 1024 * 1024;
constexpr std::int64_t kModestScanPixels = 10 * kModestPixels;
constexpr std::int64_t kModestMemory = 6 * kModestPixels;

// What a coded byte adds. Huffman codes have a bit for each block of 64 pixels at least, in the first
// scan that it occurs in: 512 pixels, and 128 bytes of coefficients for each bit. A flat picture with
// the usual script has 850 to 1,700 pixels of scans in a byte; scripts without refinement up to
// 500 for each of their scans. A photograph has less than 100, at the lowest quality up to 2,000.
constexpr std::int64_t kPixelsPerByte = 512;
constexpr std::int64_t kScanPixelsPerByte = 4096;
constexpr std::int64_t kMemoryPerByte = 1024;

// Bytes that an arithmetic decoder may take beyond its data, beside as many as there are. Each can
// cost 1 to 2 microseconds. Complete pictures take up to 40; one of 12 million pixels that was cut to
// a tenth takes 240,000 and has 110,000.
constexpr std::int64_t kModestZeros = std::int64_t{256} * 1024;

// Restarts cost three bytes, and what is decoded between two of them can be anything: 8 ns for a pixel
// of a scan, of which this leaves ten scans of 16 Mi pixels.
constexpr std::int64_t kModestRestartedScanPixels = std::int64_t{10} * 16 * 1024 * 1024;

// Restarts further apart than two rows of blocks: such pictures are hardly made, and up to 0.2
// microseconds can go into each of their pixels.
constexpr std::int64_t kModestRestarts = std::int64_t{4} * 1024 * 1024;
constexpr std::int64_t kRestartPixelsPerByte = 64;

std::int64_t RoundUp(std::int64_t n, std::int64_t nStep) {
    return (n + nStep - 1) / nStep * nStep;
}

// Pixels that are decoded: narrow pictures are mostly what fills their blocks up.
std::int64_t PixelCount(const jpeg_decompress_struct& jpeg) {
    return RoundUp(jpeg.image_width, std::int64_t{DCTSIZE} * jpeg.max_h_samp_factor) *
           RoundUp(jpeg.image_height, std::int64_t{DCTSIZE} * jpeg.max_v_samp_factor);
}

// What restarts are counted in: blocks of the only component of a scan, or groups of blocks of several.
std::int64_t UnitsInRow(const jpeg_decompress_struct& jpeg) {
    const bool bAlone = jpeg.comps_in_scan == 1;
    const std::int64_t nSamples = std::int64_t{jpeg.image_width} * (bAlone ? jpeg.cur_comp_info[0]->h_samp_factor : 1);
    const std::int64_t nUnit = std::int64_t{DCTSIZE} * jpeg.max_h_samp_factor;
    return RoundUp(nSamples, nUnit) / nUnit;
}

// Arithmetic decoders start anew at each restart, and what follows a restart is not counted as taken
// beyond the data.
bool HasLongRestarts(const jpeg_decompress_struct& jpeg) {
    return jpeg.arith_code != FALSE && jpeg.restart_interval > 2 * UnitsInRow(jpeg);
}

std::int64_t ModestScanPixels(const jpeg_decompress_struct& jpeg) {
    const bool bRestarts = jpeg.arith_code != FALSE && jpeg.restart_interval != 0;
    return bRestarts ? kModestRestartedScanPixels : kModestScanPixels;
}

bool CanHoldScans(const STnJpegDecodeContext& context, std::int64_t nScans) {
    const std::int64_t nBytes = context.m_outline.m_nEntropyBytes;
    const std::int64_t nPixels = PixelCount(context.m_jpeg);
    if (HasLongRestarts(context.m_jpeg) && nPixels * nScans > kModestRestarts + nBytes * kRestartPixelsPerByte) {
        return false;
    }
    return nScans <= kMaxScans && nPixels <= kModestPixels + nBytes * kPixelsPerByte &&
           nPixels * nScans <= ModestScanPixels(context.m_jpeg) + nBytes * kScanPixelsPerByte;
}

// For a picture of several scans libjpeg holds all coefficients at once; beyond this limit it
// reports an error.
long MemoryLimit(const STnJpegDecodeContext& context) {
    return static_cast<long>(kModestMemory + context.m_outline.m_nEntropyBytes * kMemoryPerByte);
}

std::int64_t ZeroLimit(const STnJpegDecodeContext& context) {
    return kModestZeros + context.m_outline.m_nEntropyBytes;
}

// Each scan goes over the whole picture, however little of the input it takes. Their number is known
// before, but broken input may look different to libjpeg.
void StopAfterTooManyScans(jpeg_common_struct* pCommon) {
    const auto& context = *static_cast<const STnJpegDecodeContext*>(pCommon->client_data);
    if (!CanHoldScans(context, context.m_jpeg.input_scan_number)) {
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
    jpeg.client_data = &context;
    jpeg_mem_src(&jpeg, pData, nLength);
    jpeg_read_header(&jpeg, TRUE);
    context.m_outline = tnrobot::OutlineJpeg(pData, pData + nLength);
    jpeg.mem->max_memory_to_use = MemoryLimit(context);
    if (jpeg.arith_code != FALSE) {
        tnrobot::UseArithmeticSource(jpeg, context.m_source, ZeroLimit(context));
    }
    return true;
}

RowLayout Rows(const jpeg_decompress_struct& jpeg) {
    const std::int64_t nRowLength = std::int64_t{jpeg.output_width} * jpeg.output_components;
    return {jpeg.output_height, nRowLength, tnrobot::AlignTo4(nRowLength)};
}

// libjpeg writes into the caller's rows directly. Rows that do not fit are left to
// jpeg_finish_decompress, which reports their absence as an error.
void ReadRowsThatFit(jpeg_decompress_struct& jpeg, unsigned char* pBuffer, unsigned int nSize, std::size_t nStride) {
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

// @param[out] rows  where the picture lies in the buffer.
bool DecodePicture(STnJpegDecodeContext& context, unsigned char* pBuffer, unsigned int nSize, RowLayout& rows) {
    if (setjmp(context.m_errors.m_jump) != 0) {
        return false;
    }
    jpeg_start_decompress(&context.m_jpeg);
    rows = Rows(context.m_jpeg);
    ReadRowsThatFit(context.m_jpeg, pBuffer, nSize, static_cast<std::size_t>(rows.m_nPitch));
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

Reading CTnJpegDecoder::CanFill(std::int64_t /*nSurfaceSize*/) const {
    const bool bCan = m_context && CanHoldScans(*m_context, m_context->m_outline.m_nScans);
    return bCan ? Reading::kDone : Reading::kUndecodable;
}

PictureReading CTnJpegDecoder::Read(ETnNLImageType eType, unsigned char* pBuffer, unsigned int nSize) {
    if (CanFill(nSize) != Reading::kDone || m_context->m_bSpent || pBuffer == nullptr || !CanDecodeTo(eType)) {
        return {Reading::kUndecodable, {}};
    }
    m_context->m_bSpent = true;
    jpeg_decompress_struct& jpeg = m_context->m_jpeg;
    const tnrobot::JpegFormat format = tnrobot::JpegFormatOf(eType);
    jpeg.err->error_exit = TnJpegErrorExit;
    jpeg.out_color_space = format.m_eColourSpace;
    PictureReading reading{};
    const bool bDone = DecodePicture(*m_context, pBuffer, nSize, reading.m_covered);
    reading.m_eReading = bDone ? Reading::kDone : Reading::kUndecodable;
    return reading;
}

void CTnJpegDecoder::Close() {
    m_context.reset();
    m_file.Clear();
    m_pSource = nullptr;
    m_nSourceLength = 0;
}
