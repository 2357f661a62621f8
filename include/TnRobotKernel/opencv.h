/// @file
/// Surfaces and OpenCV matrices over the same pixels, without copying where their layouts allow it.
///
/// Optional: the only header that needs OpenCV (its core module), which the library does not. All
/// functions are thread-safe as far as what they are given is used by one thread at a time.

#ifndef TNROBOTKERNEL_OPENCV_H_
#define TNROBOTKERNEL_OPENCV_H_

#include <cstddef>
#include <limits>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <utility>

#include "TnRobotKernel/make.h"
#include "TnRobotKernel/tn/pixels.h"
#include "TnRobotKernel/tn/surfaces.h"

namespace tn {

/// @addtogroup opencv
/// @{

/// @return the element type of a matrix over pixels of this format; -1 for TN_IMAGE_420, whose
///         pixels are no elements of one size, and for no format.
/// @param[in] eType  pixel format.
inline int CvTypeOf(ETnNLImageType eType) noexcept {
    switch (eType) {
        case TN_IMAGE_RGB24:
        case TN_IMAGE_BGR24:
            return CV_8UC3;
        case TN_IMAGE_8BIT_3:
        case TN_IMAGE_8BIT_4:
        case TN_IMAGE_8BIT_5:
        case TN_IMAGE_8BIT_6:
        case TN_IMAGE_GRAY8:
            return CV_8UC1;
        case TN_IMAGE_BGRX32:
            return CV_8UC4;
        case TN_IMAGE_NONE:
        case TN_IMAGE_420:
            break;
    }
    return -1;
}

/// @return the format that OpenCV itself means by an element type: grey, B,G,R or B,G,R,X;
///         TN_IMAGE_NONE for every other type.
/// @param[in] nCvType  type of a matrix's elements, as cv::Mat::type tells it.
inline ETnNLImageType ImageTypeOf(int nCvType) noexcept {
    switch (nCvType) {
        case CV_8UC1:
            return TN_IMAGE_GRAY8;
        case CV_8UC3:
            return TN_IMAGE_BGR24;
        case CV_8UC4:
            return TN_IMAGE_BGRX32;
        default:
            return TN_IMAGE_NONE;
    }
}

/// @return the same region as a rectangle of OpenCV's.
/// @param[in] region  in pixels, half open.
inline cv::Rect RectOf(const STnNLROIRect& region) {
    return {region.left, region.top, region.right - region.left, region.bottom - region.top};
}

/// @return the same rectangle as a region of the library's.
/// @param[in] rect  in pixels.
inline STnNLROIRect RegionOf(const cv::Rect& rect) noexcept {
    return {rect.x, rect.x + rect.width, rect.y, rect.y + rect.height};
}

namespace detail {

// What a matrix over a surface keeps alive: the surface, locked, and what its pixels need.
//
// A surface with a single holder loses its pixels when its pool goes. The second reference makes
// it one with two.
class SurfaceLease {
public:
    SurfaceLease(TnRobotPtr<ITnRobotSurface> surface, TnRobotPtr<ITnUnknown> keepAlive)
        : m_keepAlive(std::move(keepAlive)), m_surface(std::move(surface)), m_second(m_surface), m_pixels(m_surface) {}

    const LockedPixels& Pixels() const { return m_pixels; }

private:
    TnRobotPtr<ITnUnknown> m_keepAlive;  // goes last
    TnRobotPtr<ITnRobotSurface> m_surface;
    TnRobotPtr<ITnRobotSurface> m_second;
    LockedPixels m_pixels;
};

// Lets matrices share a lease as they share memory of OpenCV's own. It allocates nothing itself:
// a matrix that asks for other memory gets it from OpenCV.
class SurfaceMatAllocator final : public cv::MatAllocator {
public:
    cv::UMatData* allocate(int nDims, const int* pSizes, int nType, void* pData, std::size_t* pStep,
                           cv::AccessFlag eAccess, cv::UMatUsageFlags eUsage) const override {
        return cv::Mat::getStdAllocator()->allocate(nDims, pSizes, nType, pData, pStep, eAccess, eUsage);
    }
    bool allocate(cv::UMatData* pData, cv::AccessFlag eAccess, cv::UMatUsageFlags eUsage) const override {
        return cv::Mat::getStdAllocator()->allocate(pData, eAccess, eUsage);
    }
    // Called when the last matrix over the pixels goes.
    void deallocate(cv::UMatData* pData) const override {
        const std::unique_ptr<SurfaceLease> lease(static_cast<SurfaceLease*>(pData->userdata));
        delete pData;
    }

    // Never destroyed: matrices may outlive every static object.
    static const SurfaceMatAllocator& Instance() {
        static const auto* const s_pAllocator = new SurfaceMatAllocator;
        return *s_pAllocator;
    }
};

// Whether all bytes of all rows, padding included, are the matrix's own. Padding belongs to a surface, so
// it must not be somebody else's pixels, nor lie behind the memory's end: rows have none, or the
// matrix is the whole of memory whose size is known.
inline bool HasFullRows(const cv::Mat& mat) {
    const bool bOwnsMemory = mat.u != nullptr && !mat.isSubmatrix() && mat.data == mat.u->data;
    return static_cast<std::size_t>(mat.cols) * mat.elemSize() == mat.step[0] ||
           (bOwnsMemory && static_cast<std::size_t>(mat.rows) <= mat.u->size / mat.step[0]);
}

// @return whether the matrix can be a picture of this format.
inline bool IsPicture(const cv::Mat& mat, ETnNLImageType eType) {
    return mat.dims == 2 && !mat.empty() && CvTypeOf(eType) == mat.type() &&
           mat.step[0] <= static_cast<std::size_t>(std::numeric_limits<int>::max());
}

}  // namespace detail

/// Says that a surface keeps its pixels without help: they come from a general block pool, from
/// SurfaceOver, or from a pool that lives longer than every matrix over them.
inline constexpr std::nullptr_t kSurfaceKeepsPixels = nullptr;

/// A matrix over the surface's own pixels: nothing is copied, either sees what is written through
/// the other, and the matrix's rows are the surface's, padding left out.
///
/// The matrix, its copies and its regions share the surface: it stays locked and alive until the
/// last of them goes, also when its surface pool and a general block pool go before. Pixels from a
/// circular block pool, or from a block pool of your own, go with that pool: the matrix would look at
/// memory that is gone. So you always say who keeps the pixels.
///
/// @param[in] surface    one reference is kept.
/// @param[in] keepAlive  what keeps the pixels: the surface pool, which holds its block pool, or the
///                       block pool itself; kSurfaceKeepsPixels where nothing has to. Kept as long
///                       as the surface and released after it.
/// @return the matrix; empty for an empty pointer, a surface that cannot be locked or holds no
///         pixels, and 4:2:0 pixels. Throws std::bad_alloc.
///
/// Threads: externally synchronised, like a matrix; the last one may go on any thread.
[[nodiscard]] inline cv::Mat MatOver(TnRobotPtr<ITnRobotSurface> surface, TnRobotPtr<ITnUnknown> keepAlive) {
    auto lease = std::make_unique<detail::SurfaceLease>(std::move(surface), std::move(keepAlive));
    const ITnRobotSurface::STnLockSurface& pixels = lease->Pixels().Lock();
    if (!lease->Pixels() || CvTypeOf(pixels.eImageType) < 0) {
        return {};
    }
    cv::Mat mat(pixels.nHeight, pixels.nWidth, CvTypeOf(pixels.eImageType), pixels.pData,
                static_cast<std::size_t>(pixels.nPitch));
    auto* pShared = new cv::UMatData(&detail::SurfaceMatAllocator::Instance());
    pShared->data = pShared->origdata = pixels.pData;
    pShared->size = pixels.nDataSize;
    pShared->userdata = lease.release();
    mat.u = pShared;
    mat.addref();
    return mat;
}

/// A surface over the matrix's own pixels: nothing is copied, and the surface shares the matrix's
/// memory for as long as it lives. A matrix over memory of somebody else's only borrows it.
///
/// The rows may have any pitch. Where that leaves padding behind each row, the matrix must be the whole of
/// its own memory: the padding of a region is pixels of its neighbours, and of borrowed memory nobody can
/// tell whether padding follows the last row. So regions and matrices over borrowed memory work with full
/// rows only. CopyToSurface takes every matrix, and the other SurfaceOver memory that the caller vouches for.
///
/// The surface belongs to no pool; its last Release destroys it. The origin position is (0, 0).
/// @param[in] mat    two dimensions, elements of eType.
/// @param[in] eType  what the elements mean.
/// @return the surface; empty when the type does not fit the elements, and when the rows are not full.
[[nodiscard]] inline TnRobotPtr<ITnRobotSurface> SurfaceOver(const cv::Mat& mat, ETnNLImageType eType) {
    if (!detail::IsPicture(mat, eType) || !detail::HasFullRows(mat)) {
        return nullptr;
    }
    const ITnRobotSurface::STnSurfaceDesc desc{mat.cols, mat.rows, static_cast<int>(mat.step[0]), eType, {0, 0}};
    return SurfaceOver(mat.data, mat.step[0] * static_cast<std::size_t>(mat.rows), desc, mat);
}

/// As above, with the format that OpenCV means by the matrix's type (ImageTypeOf).
/// @param[in] mat  as above.
/// @return as above; empty for other types.
[[nodiscard]] inline TnRobotPtr<ITnRobotSurface> SurfaceOver(const cv::Mat& mat) {
    return SurfaceOver(mat, mat.empty() ? TN_IMAGE_NONE : ImageTypeOf(mat.type()));
}

/// A surface and a matrix over the same pixels.
///
/// Lifetime: holds one reference to the surface, and the matrix. Either may be taken out and outlives the other. An
/// OpenCV function that writes into Mat() works in the surface as long as it keeps size and type; one that wants
/// another size or type gives the matrix other memory, and Shares() is false from then on.
///
/// Threads: externally synchronised.
class SurfaceMat {
public:
    /// Holds nothing.
    SurfaceMat() = default;

    /// Views a surface as a matrix, without copying: see MatOver.
    /// @param[in] surface    one reference is kept.
    /// @param[in] keepAlive  see MatOver.
    /// @return both, or an empty one where MatOver gives no matrix.
    [[nodiscard]] static SurfaceMat View(const TnRobotPtr<ITnRobotSurface>& surface, TnRobotPtr<ITnUnknown> keepAlive) {
        return {surface, MatOver(surface, std::move(keepAlive))};
    }

    /// Views a matrix as a surface, without copying: see SurfaceOver.
    /// @param[in] mat    see SurfaceOver.
    /// @param[in] eType  what the elements mean.
    /// @return both, or an empty one where SurfaceOver gives no surface.
    [[nodiscard]] static SurfaceMat Over(const cv::Mat& mat, ETnNLImageType eType) {
        return {SurfaceOver(mat, eType), mat};
    }

    /// As above, with the format that OpenCV means by the matrix's type.
    /// @param[in] mat  see SurfaceOver.
    /// @return as above.
    [[nodiscard]] static SurfaceMat Over(const cv::Mat& mat) { return {SurfaceOver(mat), mat}; }

    /// Makes a surface of a pool to be filled through its matrix, whose pixels are not initialised.
    /// @param[in] pool       borrowed for the call.
    /// @param[in] size       columns and rows, in pixels.
    /// @param[in] eType      pixel format.
    /// @param[in] keepAlive  see MatOver.
    /// @return both, or an empty one when the pool has no such surface, and for 4:2:0.
    [[nodiscard]] static SurfaceMat Allocate(ITnRobotSurfacePool& pool, const cv::Size& size, ETnNLImageType eType,
                                             TnRobotPtr<ITnUnknown> keepAlive) {
        const ITnRobotSurface::STnSurfaceDesc desc{size.width, size.height, 0, eType, {0, 0}};
        return CvTypeOf(eType) < 0 ? SurfaceMat() : View(QuerySurface(pool, desc), std::move(keepAlive));
    }

    /// @return whether there are a surface and a matrix.
    explicit operator bool() const { return m_surface && !m_mat.empty(); }

    /// @return whether the matrix still lies in the surface.
    bool Shares() const { return !m_mat.empty() && m_mat.data == LockedPixels(m_surface).Lock().pData; }

    /// @return the surface; an empty pointer when this holds nothing.
    const TnRobotPtr<ITnRobotSurface>& Surface() const { return m_surface; }

    /// @return the matrix; empty when this holds nothing.
    cv::Mat& Mat() { return m_mat; }

    /// @return the matrix; empty when this holds nothing.
    const cv::Mat& Mat() const { return m_mat; }

private:
    // Both or none.
    SurfaceMat(TnRobotPtr<ITnRobotSurface> surface, cv::Mat mat) {
        if (surface && !mat.empty()) {
            m_surface = std::move(surface);
            m_mat = std::move(mat);
        }
    }

    TnRobotPtr<ITnRobotSurface> m_surface;
    cv::Mat m_mat;
};

/// Copies a matrix, of any row length, into a new surface of a pool; row padding is zero.
/// @param[in] mat    two dimensions, elements of eType; may be a region.
/// @param[in] pool   borrowed for the call.
/// @param[in] eType  what the elements mean.
/// @return the surface; empty when the type does not fit the elements, or the pool has no such surface.
[[nodiscard]] inline TnRobotPtr<ITnRobotSurface> CopyToSurface(const cv::Mat& mat, ITnRobotSurfacePool& pool,
                                                               ETnNLImageType eType) {
    if (!detail::IsPicture(mat, eType)) {
        return nullptr;
    }
    // The last row of a region ends with its pixels.
    const std::size_t nRow = static_cast<std::size_t>(mat.cols) * mat.elemSize();
    const std::size_t nBytes = mat.step[0] * static_cast<std::size_t>(mat.rows - 1) + nRow;
    if (nBytes > std::numeric_limits<unsigned int>::max()) {
        return nullptr;
    }
    STnNLImageData image{};
    image.pData = mat.data;
    image.nDataSize = static_cast<unsigned int>(nBytes);
    image.nWidth = mat.cols;
    image.nHeight = mat.rows;
    image.eImageType = eType;
    return CopyToSurface(pool, image, static_cast<int>(mat.step[0]));
}

/// As above, with the format that OpenCV means by the matrix's type (ImageTypeOf).
/// @param[in] mat   as above.
/// @param[in] pool  borrowed for the call.
/// @return as above; empty for other types.
[[nodiscard]] inline TnRobotPtr<ITnRobotSurface> CopyToSurface(const cv::Mat& mat, ITnRobotSurfacePool& pool) {
    return CopyToSurface(mat, pool, mat.empty() ? TN_IMAGE_NONE : ImageTypeOf(mat.type()));
}

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_OPENCV_H_
