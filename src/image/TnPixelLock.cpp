// Locking a surface, and clearing the parts of it that a picture has left as they were.

#include "image/TnPixelLock.h"

#include <cstring>

namespace tnrobot {

PixelLock::PixelLock(ITnRobotSurface* pSurface) : m_pSurface(pSurface), m_bLocked(pSurface->LockSurface(m_lock)) {
    if (!m_bLocked || m_lock.pData == nullptr) {
        m_lock = {};
    }
}

PixelLock::~PixelLock() {
    if (m_bLocked) {
        m_pSurface->UnLockSurface();
    }
}

bool PixelLock::Holds(const RowLayout& rows, std::int64_t nSkip) const {
    return m_lock.pData != nullptr && nSkip >= 0 && rows.FitsInto(std::int64_t{m_lock.nDataSize} - nSkip);
}

void PixelLock::ClearBehind(const RowLayout& rows) const {
    if (m_lock.pData == nullptr) {
        return;
    }
    const std::int64_t nGap = rows.m_nPitch - rows.m_nRowLength;
    for (std::int64_t nRow = 0; nGap > 0 && nRow + 1 < rows.m_nRows; ++nRow) {
        std::memset(m_lock.pData + nRow * rows.m_nPitch + rows.m_nRowLength, 0, static_cast<std::size_t>(nGap));
    }
    ClearFrom((rows.m_nRows - 1) * rows.m_nPitch + rows.m_nRowLength);
}

void PixelLock::ClearFrom(std::int64_t nOffset) const {
    if (m_lock.pData != nullptr && nOffset < m_lock.nDataSize) {
        std::memset(m_lock.pData + nOffset, 0, static_cast<std::size_t>(m_lock.nDataSize - nOffset));
    }
}

}  // namespace tnrobot
