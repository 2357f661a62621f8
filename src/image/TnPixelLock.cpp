// Clearing the parts of a surface that a picture has left as they were.

#include "image/TnPixelLock.h"

#include <cstring>

namespace tnrobot {

void PixelLock::ClearBehind(const RowLayout& rows) const {
    if (m_pixels.Lock().pData == nullptr) {
        return;
    }
    const std::int64_t nGap = rows.m_nPitch - rows.m_nRowLength;
    for (std::int64_t nRow = 0; nGap > 0 && nRow + 1 < rows.m_nRows; ++nRow) {
        std::memset(m_pixels.Lock().pData + nRow * rows.m_nPitch + rows.m_nRowLength, 0,
                    static_cast<std::size_t>(nGap));
    }
    ClearFrom((rows.m_nRows - 1) * rows.m_nPitch + rows.m_nRowLength);
}

void PixelLock::ClearFrom(std::int64_t nOffset) const {
    if (m_pixels.Lock().pData != nullptr && nOffset < m_pixels.Lock().nDataSize) {
        std::memset(m_pixels.Lock().pData + nOffset, 0, static_cast<std::size_t>(m_pixels.Lock().nDataSize - nOffset));
    }
}

}  // namespace tnrobot
