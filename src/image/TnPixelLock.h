// The pixels of a surface, locked for as long as they are worked on.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNPIXELLOCK_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNPIXELLOCK_H_

#include <cstdint>

#include "TnRobotKernel/image.h"
#include "image/TnImageGeometry.h"

namespace tnrobot {

/// Locks a surface and unlocks it at its end. Without memory, or when a surface refuses the lock, there
/// are no bytes.
///
/// Threads: as the surface, externally synchronised.
class PixelLock {
public:
    /// @param[in] pSurface  borrowed for as long as the lock lives.
    explicit PixelLock(ITnRobotSurface* pSurface);
    PixelLock(const PixelLock&) = delete;
    PixelLock& operator=(const PixelLock&) = delete;
    ~PixelLock();

    const ITnRobotSurface::STnLockSurface* operator->() const { return &m_lock; }

    /// @return rows of this surface, of which the first nRowLength bytes count.
    RowLayout Rows(std::int64_t nRows, std::int64_t nRowLength) const { return {nRows, nRowLength, m_lock.nPitch}; }

    /// @return whether such rows, nSkip bytes into the memory, lie in the surface.
    bool Holds(const RowLayout& rows, std::int64_t nSkip = 0) const;

    /// Zeroes what lies behind each row and behind the last one: recycled memory still shows what was
    /// there before. The rows must lie in the surface.
    void ClearBehind(const RowLayout& rows) const;

    /// Zeroes the surface from an offset on.
    void ClearFrom(std::int64_t nOffset) const;

private:
    ITnRobotSurface* m_pSurface;
    ITnRobotSurface::STnLockSurface m_lock{};
    bool m_bLocked;
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNPIXELLOCK_H_
