#include "image/TnBmpDecoder.h"

#include <algorithm>
#include <cstring>

#include "image/TnImageFile.h"

using tnrobot::STnBmpHeader;

namespace {

std::int64_t RowLength(const STnBmpHeader& header) {
    return std::int64_t{header.BytesPerPixel()} * header.nWidth;
}

// Works out the image size where the header leaves it open.
// @return the bytes of pixel data; 0 unless they are whole rows inside the file.
std::uint32_t PixelBytes(const STnBmpHeader& header, std::int64_t nFileLength) {
    const std::int64_t nRow = RowLength(header);
    if (nRow <= 0 || nRow > nFileLength) {
        return 0;
    }
    // The row fits the file, whose length fits 32 bits: the product cannot overflow.
    const std::int64_t nBytes = header.nImageSize != 0 ? header.nImageSize : nRow * header.nHeight;
    const bool bInside = nBytes > 0 && header.nDataOffset + nBytes <= nFileLength;
    return bInside && nBytes % nRow == 0 ? static_cast<std::uint32_t>(nBytes) : 0;
}

void CopyRowsReversed(const tnrobot::ByteBuffer& rows, std::size_t nRow, unsigned char* pTarget) {
    for (std::size_t nEnd = rows.Size(); nEnd >= nRow; nEnd -= nRow) {
        std::memcpy(pTarget, rows.Data() + nEnd - nRow, nRow);
        pTarget += nRow;
    }
}

}  // namespace

bool CTnBmpDecoder::Open(const char* lpszPath) {
    m_pixels.Clear();
    const tnrobot::ImageFile file(lpszPath);
    tnrobot::BmpHeaderBytes bytes{};
    if (!file.IsOpen() || !file.ReadAt(0, bytes.data(), bytes.size())) {
        return false;
    }
    m_header = tnrobot::ParseBmpHeader(bytes);
    m_bHasHeader = true;
    if (m_header.nFileSize != file.Length()) {
        return false;
    }
    m_header.nImageSize = PixelBytes(m_header, file.Length());
    if (m_header.nImageSize == 0) {
        return false;
    }
    // One read for all rows; they are turned over when they are copied out.
    m_pixels.Allocate(m_header.nImageSize);
    m_nFlipRow = static_cast<std::size_t>(RowLength(m_header));
    if (!file.ReadAt(m_header.nDataOffset, m_pixels.Data(), m_pixels.Size())) {
        m_pixels.Clear();
    }
    return !m_pixels.Empty();
}

bool CTnBmpDecoder::Open(const unsigned char* pData, unsigned int nLength) {
    tnrobot::BmpHeaderBytes bytes{};
    if (pData == nullptr || nLength <= bytes.size()) {
        return false;
    }
    std::copy_n(pData, bytes.size(), bytes.begin());
    const STnBmpHeader header = tnrobot::ParseBmpHeader(bytes);
    if (header.nFileSize != nLength) {
        return false;
    }
    m_header = header;
    m_bHasHeader = true;
    if (header.nImageSize == 0) {
        return true;
    }
    m_pixels.Clear();
    if (std::uint64_t{header.nDataOffset} + header.nImageSize > nLength) {
        return false;
    }
    m_pixels.Allocate(header.nImageSize);
    m_nFlipRow = 0;
    std::memcpy(m_pixels.Data(), pData + header.nDataOffset, header.nImageSize);
    return true;
}

bool CTnBmpDecoder::ReadHeader(int& nWidth, int& nHeight) const {
    if (!m_bHasHeader) {
        return false;
    }
    nWidth = m_header.nWidth;
    nHeight = m_header.nHeight;
    return true;
}

bool CTnBmpDecoder::_HasFormat(ETnNLImageType eType) const {
    const int nBytes = m_header.BytesPerPixel();
    return (eType == TN_IMAGE_BGR24 && nBytes == 3) || (eType == TN_IMAGE_GRAY8 && nBytes == 1);
}

bool CTnBmpDecoder::ReadData(ETnNLImageType eType, unsigned char* pBuffer, unsigned int nSize) const {
    if (m_pixels.Empty() || !_HasFormat(eType) || pBuffer == nullptr || nSize < m_pixels.Size()) {
        return false;
    }
    if (m_nFlipRow != 0) {
        CopyRowsReversed(m_pixels, m_nFlipRow, pBuffer);
    } else {
        std::memcpy(pBuffer, m_pixels.Data(), m_pixels.Size());
    }
    return true;
}

void CTnBmpDecoder::Close() {}
