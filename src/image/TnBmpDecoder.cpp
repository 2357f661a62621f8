// The header says where the pixels are and how many; nearly all of this file is about not believing it.
// What is read are whole unpadded rows inside the file.

#include "image/TnBmpDecoder.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "image/TnImageGeometry.h"

using tnrobot::BmpHeader;
using tnrobot::PictureReading;
using tnrobot::Reading;

namespace {

std::int64_t RowLength(const BmpHeader& header) {
    return std::int64_t{header.BytesPerPixel()} * header.m_nWidth;
}

// Whether a file of 24 bits has its rows at multiples of 4 bytes, as most programs write them. The
// header's image size tells, or the bytes that are there: some programs pad and store 3 x width x
// height all the same. Where the header gives no size, more room is taken as padded rows too, because
// programs that leave the size open pad.
bool HasPaddedRows(const BmpHeader& header, std::int64_t nFileLength) {
    constexpr int kColourBytes = 3;
    const std::int64_t nRow = RowLength(header);
    const std::int64_t nPaddedRow = tnrobot::AlignTo4(nRow);
    if (header.BytesPerPixel() != kColourBytes || nPaddedRow == nRow || header.m_nHeight < 1) {
        return false;
    }
    const std::int64_t nPadded = nPaddedRow * header.m_nHeight;
    const std::int64_t nRoom = nFileLength - header.m_nDataOffset;
    return nRoom == nPadded || (header.m_nImageSize != 0 ? header.m_nImageSize == nPadded : nRoom > nPadded);
}

// Works out the image size where the header leaves it open.
// @return the bytes of pixel data; 0 unless they are whole unpadded rows inside the file.
std::uint32_t PixelBytes(const BmpHeader& header, std::int64_t nFileLength) {
    const std::int64_t nRow = RowLength(header);
    if (nRow <= 0 || nRow > nFileLength || HasPaddedRows(header, nFileLength)) {
        return 0;
    }
    // The row fits the file, whose length fits 32 bits: the product cannot overflow.
    const std::int64_t nBytes = header.m_nImageSize != 0 ? header.m_nImageSize : nRow * header.m_nHeight;
    const bool bInside = nBytes > 0 && header.m_nDataOffset + nBytes <= nFileLength;
    return bInside && nBytes % nRow == 0 ? static_cast<std::uint32_t>(nBytes) : 0;
}

}  // namespace

void CTnBmpDecoder::_DropPixels() {
    m_file = {};
    m_pixels.Clear();
    m_nDataSize = 0;
}

bool CTnBmpDecoder::Open(const char* lpszPath) {
    _DropPixels();
    tnrobot::ImageFile file(lpszPath);
    tnrobot::BmpHeaderBytes bytes{};
    if (!file.IsOpen() || !file.ReadAt(0, bytes.data(), bytes.size())) {
        return false;
    }
    m_header = tnrobot::ParseBmpHeader(bytes);
    m_bHasHeader = true;
    if (m_header.m_nFileSize != file.Length()) {
        return false;
    }
    m_header.m_nImageSize = PixelBytes(m_header, file.Length());
    if (m_header.m_nImageSize == 0) {
        return false;
    }
    m_file = std::move(file);
    m_nFileOffset = m_header.m_nDataOffset;
    m_nFileRow = static_cast<std::size_t>(RowLength(m_header));
    m_nDataSize = m_header.m_nImageSize;
    return true;
}

bool CTnBmpDecoder::Open(const unsigned char* pData, unsigned int nLength) {
    tnrobot::BmpHeaderBytes bytes{};
    if (pData == nullptr || nLength <= bytes.size()) {
        return false;
    }
    std::copy_n(pData, bytes.size(), bytes.begin());
    const BmpHeader header = tnrobot::ParseBmpHeader(bytes);
    if (header.m_nFileSize != nLength) {
        return false;
    }
    m_header = header;
    m_bHasHeader = true;
    if (header.m_nImageSize == 0) {
        return true;
    }
    _DropPixels();
    if (std::uint64_t{header.m_nDataOffset} + header.m_nImageSize > nLength) {
        return false;
    }
    m_pixels.Allocate(header.m_nImageSize);
    std::memcpy(m_pixels.Data(), pData + header.m_nDataOffset, header.m_nImageSize);
    m_nDataSize = header.m_nImageSize;
    return true;
}

bool CTnBmpDecoder::ReadHeader(int& nWidth, int& nHeight) const {
    if (!m_bHasHeader) {
        return false;
    }
    nWidth = m_header.m_nWidth;
    nHeight = m_header.m_nHeight;
    return true;
}

bool CTnBmpDecoder::_HasAllRows() const {
    const std::int64_t nRow = RowLength(m_header);
    return nRow > 0 && m_nDataSize / nRow >= m_header.m_nHeight;
}

Reading CTnBmpDecoder::CanFill(std::int64_t nSurfaceSize) const {
    constexpr std::int64_t kModestSurface = std::int64_t{48} * 1024 * 1024;
    return nSurfaceSize <= kModestSurface || _HasAllRows() ? Reading::kDone : Reading::kUnreadable;
}

bool CTnBmpDecoder::_HasFormat(ETnNLImageType eType) const {
    const int nBytes = m_header.BytesPerPixel();
    return (eType == TN_IMAGE_BGR24 && nBytes == 3) || (eType == TN_IMAGE_GRAY8 && nBytes == 1);
}

PictureReading CTnBmpDecoder::Read(ETnNLImageType eType, unsigned char* pBuffer, unsigned int nSize) {
    if (m_nDataSize == 0) {
        return {Reading::kUnreadable, {}};
    }
    if (!_HasFormat(eType) || pBuffer == nullptr || nSize < m_nDataSize) {
        return {Reading::kUndecodable, {}};
    }
    if (!m_file.IsOpen()) {
        std::memcpy(pBuffer, m_pixels.Data(), m_pixels.Size());
    } else if (!m_file.ReadRowsReversed(m_nFileOffset, pBuffer, m_nFileRow, m_nDataSize / m_nFileRow)) {
        _DropPixels();
        return {Reading::kUnreadable, {}};
    }
    return {Reading::kDone, {1, m_nDataSize, m_nDataSize}};
}

void CTnBmpDecoder::Close() {}
