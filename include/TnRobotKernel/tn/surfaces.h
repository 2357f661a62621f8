/// @file
/// Surfaces of pixels that come from elsewhere, such as a camera, with rows of any pitch: copied into a
/// pool's surface by CopyToSurface, or looked at where they are by SurfaceOver.

#ifndef TNROBOTKERNEL_TN_SURFACES_H_
#define TNROBOTKERNEL_TN_SURFACES_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "TnRobotKernel/tn/error.h"
#include "TnRobotKernel/tn/pixels.h"

namespace tn {

namespace detail {

// A surface over memory of somebody else's, which its owner keeps.
template <typename Owner>
class MemorySurface final : public ITnRobotSurface {
public:
    MemorySurface(unsigned char* pData, const STnSurfaceDesc& desc, Owner owner)
        : m_pData(pData), m_desc(desc), m_owner(std::move(owner)) {}

    // It belongs to no pool: nobody takes it back.
    void ClearResource() override {}

    bool LockSurface(STnLockSurface& lock) override {
        const auto nSize = static_cast<unsigned int>(std::int64_t{m_desc.nPitch} * m_desc.nHeight);
        lock = {m_desc.nWidth, m_desc.nHeight, m_desc.nPitch, m_desc.eImageType, m_pData, nSize};
        return true;
    }
    void UnLockSurface() override {}
    void GetSurfaceDesc(STnSurfaceDesc& desc) override { desc = m_desc; }
    STnNL2DPoint GetOriPos() override { return m_desc.oriPos; }
    void ResetOriPos(const STnNL2DPoint& oriPos) override { m_desc.oriPos = oriPos; }
    unsigned long long QueryTimeStamp() override { return m_nTimeStamp; }
    void SetTimeStamp(unsigned long long nTimeStamp) override { m_nTimeStamp = nTimeStamp; }

private:
    unsigned char* m_pData;
    STnSurfaceDesc m_desc;
    unsigned long long m_nTimeStamp = 0;
    Owner m_owner;
};

// Why rows of this kind cannot be a picture: their format, or where they would lie.
inline std::error_code CheckRows(const unsigned char* pData, std::int64_t nBytes, ETnNLImageType eType, int nWidth,
                                 int nHeight, std::int64_t nPitch) {
    const std::int64_t nRow = RowBytes(eType, nWidth);
    if (pData == nullptr || nWidth < 1 || nHeight < 1) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    // The planes of 4:2:0 do not lie row by row, so there is nothing to pad.
    if (nRow == 0 || (eType == TN_IMAGE_420 && nPitch != nRow)) {
        return errc::format_not_supported;
    }
    const bool bInside = nPitch >= nRow && nPitch <= nBytes && nHeight - 1 <= (nBytes - nRow) / nPitch;
    return bInside ? std::error_code() : std::make_error_code(std::errc::invalid_argument);
}

// Copies rows of any pitch; what lies behind the pixels of each is zero.
inline void CopyRows(const unsigned char* pSource, std::ptrdiff_t nPitch, const LockedPixels& target) {
    const auto nRow = static_cast<std::size_t>(target.RowBytes());
    const std::size_t nPadding = static_cast<std::size_t>(target.Pitch()) - nRow;
    for (int i = 0; i < target.Height(); ++i) {
        std::memcpy(target.Row(i), pSource + i * nPitch, nRow);
        std::memset(target.Row(i) + nRow, 0, nPadding);
    }
}

}  // namespace detail

/// @addtogroup image
/// @{

/// Copies a picture in memory, with rows of any pitch, into a new surface of a pool.
/// TnRobotImageUtils::NlImage2Surface takes the bytes as they lie, which is right only where they have the
/// surface's pitch already.
/// @param[in] pool    borrowed for the call.
/// @param[in] image   borrowed for the call: data, its size, width, height, format (1 to 7 or 9) and origin
///                    position count. The last row need not reach up to the pitch.
/// @param[in] nPitch  bytes from one row of the image to the next: width x bytes per pixel where nothing
///                    lies between them.
/// @param[out] ec     cleared on success; std::errc::invalid_argument for an image without pixels and for
///                    rows that do not lie in its data; errc::format_not_supported for 4:2:0 and no format;
///                    errc::no_surface when the pool has none.
/// @return the surface, its row padding zero; empty on failure.
inline TnRobotPtr<ITnRobotSurface> CopyToSurface(ITnRobotSurfacePool& pool, const STnNLImageData& image, int nPitch,
                                                 std::error_code& ec) {
    ec = BytesPerPixel(image.eImageType) == 0
             ? errc::format_not_supported
             : detail::CheckRows(image.pData, image.nDataSize, image.eImageType, image.nWidth, image.nHeight, nPitch);
    if (ec) {
        return nullptr;
    }
    const ITnRobotSurface::STnSurfaceDesc desc{image.nWidth, image.nHeight, 0, image.eImageType, image.oriPos};
    TnRobotPtr<ITnRobotSurface> surface;
    const bool bGiven = pool.QuerySurface(desc, surface.put()) == 0;
    {
        // A pool may hand out an old surface, which is another one and has no pixels.
        const LockedPixels pixels(surface);
        if (bGiven && pixels && pixels.Width() == image.nWidth && pixels.Height() == image.nHeight &&
            pixels.Type() == image.eImageType) {
            detail::CopyRows(image.pData, nPitch, pixels);
            return surface;
        }
    }
    ec = errc::no_surface;
    return nullptr;
}

/// Overload without the reason.
/// @param[in] pool    borrowed for the call.
/// @param[in] image   borrowed for the call.
/// @param[in] nPitch  bytes from one row of the image to the next.
/// @return the surface; empty on failure.
[[nodiscard]] inline TnRobotPtr<ITnRobotSurface> CopyToSurface(ITnRobotSurfacePool& pool, const STnNLImageData& image,
                                                               int nPitch) {
    std::error_code ignored;
    return CopyToSurface(pool, image, nPitch, ignored);
}

/// A surface over pixels that are somewhere else: nothing is copied, and whoever writes through the surface
/// writes there. The rows may have any pitch; saving one as BMP wants none between them.
///
/// The surface belongs to no pool; its last Release destroys it, and the owner with it.
/// @tparam Owner  what keeps the memory: a TnRobotPtr, a std::shared_ptr, a frame of a camera's library. It
///                is kept as long as the surface, and destroyed on the thread that releases the surface last.
///                nullptr for memory that lives longer than the surface anyhow.
/// @param[in] pMemory  nBytes bytes, top row first.
/// @param[in] nBytes   bytes at pMemory, at least pitch x height.
/// @param[in] desc     what lies there, its pitch included. The pitch of 4:2:0 is 3 x width / 2.
/// @param[in] owner    moved into the surface.
/// @param[out] ec      cleared on success; std::errc::invalid_argument for no memory and for rows that do
///                     not lie in it, errc::format_not_supported for no format.
/// @return the surface; empty on failure, and the owner is gone then.
template <typename Owner>
TnRobotPtr<ITnRobotSurface> SurfaceOver(unsigned char* pMemory, std::size_t nBytes,
                                        const ITnRobotSurface::STnSurfaceDesc& desc, Owner owner, std::error_code& ec) {
    // A surface tells its size in 32 bits, and says that all rows reach up to the pitch.
    constexpr std::size_t kMost = std::numeric_limits<unsigned int>::max();
    const auto nUsable = static_cast<std::int64_t>(nBytes < kMost ? nBytes : kMost);
    ec = detail::CheckRows(pMemory, nUsable, desc.eImageType, desc.nWidth, desc.nHeight, desc.nPitch);
    if (!ec && desc.nHeight > nUsable / desc.nPitch) {
        ec = std::make_error_code(std::errc::invalid_argument);
    }
    if (ec) {
        return nullptr;
    }
    return MakeObject<detail::MemorySurface<Owner>>(pMemory, desc, std::move(owner));
}

/// Overload without the reason.
/// @tparam Owner  what keeps the memory.
/// @param[in] pMemory  nBytes bytes, top row first.
/// @param[in] nBytes   bytes at pMemory, at least pitch x height.
/// @param[in] desc     what lies there, its pitch included.
/// @param[in] owner    moved into the surface.
/// @return the surface; empty on failure, and the owner is gone then.
template <typename Owner>
[[nodiscard]] TnRobotPtr<ITnRobotSurface> SurfaceOver(unsigned char* pMemory, std::size_t nBytes,
                                                      const ITnRobotSurface::STnSurfaceDesc& desc, Owner owner) {
    std::error_code ignored;
    return SurfaceOver(pMemory, nBytes, desc, std::move(owner), ignored);
}

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_TN_SURFACES_H_
