// The pixels of a surface, locked for as long as they are worked on.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNPIXELLOCK_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNPIXELLOCK_H_

#include <cstdint>

#include "TnRobotKernel/image.h"
#include "TnRobotKernel/tn/pixels.h"
#include "image/TnImageGeometry.h"

namespace tnrobot {

/// tn::LockedPixels with what the library's own operations need beside it. Without memory, or when a
/// surface refuses the lock, there are no bytes.
///
/// Threads: as the surface, externally synchronised.
class PixelLock {
public:
    /// @param[in] pSurface  borrowed for as long as the lock lives.
    explicit PixelLock(ITnRobotSurface* pSurface) : m_pixels(*pSurface) {}

    const ITnRobotSurface::STnLockSurface* operator->() const { return &m_pixels.Lock(); }

    /// @return rows of this surface, of which the first nRowLength bytes count.
    RowLayout Rows(std::int64_t nRows, std::int64_t nRowLength) const {
        return {nRows, nRowLength, m_pixels.Lock().nPitch};
    }

    /// @return whether such rows, nSkip bytes into the memory, lie in the surface.
    bool Holds(const RowLayout& rows, std::int64_t nSkip = 0) const {
        return m_pixels.Lock().pData != nullptr && nSkip >= 0 &&
               rows.FitsInto(std::int64_t{m_pixels.Lock().nDataSize} - nSkip);
    }

    /// Zeroes what lies behind each row and behind the last one: recycled memory still shows what was
    /// there before. The rows must lie in the surface.
    void ClearBehind(const RowLayout& rows) const;

    /// Zeroes the surface from an offset on.
    void ClearFrom(std::int64_t nOffset) const;

private:
    tn::LockedPixels m_pixels;
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNPIXELLOCK_H_
