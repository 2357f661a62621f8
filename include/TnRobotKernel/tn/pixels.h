/// @file
/// The pixels of a surface for as long as somebody works on them: LockedPixels.

#ifndef TNROBOTKERNEL_TN_PIXELS_H_
#define TNROBOTKERNEL_TN_PIXELS_H_

#include <cstddef>
#include <cstdint>

#include "TnRobotKernel/image.h"
#include "TnRobotKernel/ptr.h"

namespace tn {

/// @addtogroup image
/// @{

/// @return bytes that a pixel takes in a row; 0 for TN_IMAGE_420, whose pixels take no whole bytes, and for
///         no format.
/// @param[in] eType  pixel format.
constexpr int BytesPerPixel(ETnNLImageType eType) noexcept {
    switch (eType) {
        case TN_IMAGE_RGB24:
        case TN_IMAGE_BGR24:
            return 3;
        case TN_IMAGE_8BIT_3:
        case TN_IMAGE_8BIT_4:
        case TN_IMAGE_8BIT_5:
        case TN_IMAGE_8BIT_6:
        case TN_IMAGE_GRAY8:
            return 1;
        case TN_IMAGE_BGRX32:
            return 4;
        case TN_IMAGE_NONE:
        case TN_IMAGE_420:
            break;
    }
    return 0;
}

/// @return bytes that the pixels of a row take, without what lies behind them up to the pitch; 0 for no
///         format and a width below 1.
/// @param[in] eType   pixel format; a row of TN_IMAGE_420 has 3 bytes for 2 pixels, rounded down.
/// @param[in] nWidth  pixels.
constexpr std::int64_t RowBytes(ETnNLImageType eType, int nWidth) noexcept {
    const std::int64_t nPixels = nWidth > 0 ? nWidth : 0;
    return eType == TN_IMAGE_420 ? 3 * nPixels / 2 : nPixels * BytesPerPixel(eType);
}

/// Locks a surface, shows its rows, and unlocks it by itself.
///
/// Lifetime: borrows the surface, which somebody holds until this is gone.
/// Threads:  externally synchronised, like the surface: a lock excludes nobody.
class LockedPixels final {
public:
    /// Locks a surface.
    /// @param[in] surface  borrowed until this is gone.
    explicit LockedPixels(ITnRobotSurface& surface) : LockedPixels(&surface) {}

    /// Locks the surface of a pointer.
    /// @param[in] surface  its surface is borrowed until this is gone; an empty pointer has no pixels.
    explicit LockedPixels(const TnRobotPtr<ITnRobotSurface>& surface) : LockedPixels(surface.get()) {}

    /// Does not compile: the surface would be gone before its pixels are looked at.
    explicit LockedPixels(TnRobotPtr<ITnRobotSurface>&& surface) = delete;

    LockedPixels(const LockedPixels&) = delete;
    LockedPixels& operator=(const LockedPixels&) = delete;

    /// Unlocks the surface.
    ~LockedPixels() {
        if (m_bLocked) {
            m_pSurface->UnLockSurface();
        }
    }

    /// @return whether there are pixels, and all rows lie in the surface's memory.
    explicit operator bool() const noexcept {
        return m_lock.pData != nullptr && RowBytes() > 0 && m_lock.nHeight > 0 && RowBytes() <= m_lock.nPitch &&
               std::int64_t{m_lock.nPitch} * m_lock.nHeight <= m_lock.nDataSize;
    }

    /// @return pixels of a row.
    int Width() const noexcept { return m_lock.nWidth; }

    /// @return rows.
    int Height() const noexcept { return m_lock.nHeight; }

    /// @return bytes from one row to the next, which may be more than the pixels take.
    int Pitch() const noexcept { return m_lock.nPitch; }

    /// @return pixel format.
    ETnNLImageType Type() const noexcept { return m_lock.eImageType; }

    /// @return bytes that the pixels of a row take; what follows up to the pitch belongs to no pixel.
    std::int64_t RowBytes() const noexcept { return tn::RowBytes(m_lock.eImageType, m_lock.nWidth); }

    /// Finds a row. Nothing is checked.
    /// @param[in] nRow  0 to Height() - 1, from the top.
    /// @return its first byte: borrowed, good for as long as this lives.
    unsigned char* Row(int nRow) const noexcept {
        return m_lock.pData + static_cast<std::ptrdiff_t>(nRow) * m_lock.nPitch;
    }

    /// @return what the surface filled in when it was locked; all zero when it has no pixels.
    const ITnRobotSurface::STnLockSurface& Lock() const noexcept { return m_lock; }

private:
    explicit LockedPixels(ITnRobotSurface* pSurface)
        : m_pSurface(pSurface), m_bLocked(pSurface != nullptr && pSurface->LockSurface(m_lock)) {
        if (!m_bLocked || m_lock.pData == nullptr) {
            m_lock = {};
        }
    }

    ITnRobotSurface* m_pSurface;
    ITnRobotSurface::STnLockSurface m_lock{};
    bool m_bLocked;  // after m_lock, which the lock fills
};

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_TN_PIXELS_H_
