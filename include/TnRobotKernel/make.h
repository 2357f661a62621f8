/// @file
/// Creates the library's objects as pointers that release them: the whole public interface, without
/// a result code to look up and without a Release to forget.
///
/// Every creation function TnCreateRobotXxx has a tn::MakeXxx with the same arguments before the
/// out-pointer. Operations of interfaces that give a new reference have a helper of their name.
///
/// One rule for all: a failure, whatever the function below calls it (0, -1, a result of 1 with no
/// object), is an empty pointer. Arguments that are raw pointers are borrowed for the call. Nothing
/// is thrown that the function below does not throw: std::bad_alloc, and std::system_error where a
/// thread is made. The pointer that comes back owns one reference and releases it. Where more than one thing can
/// be wrong there is an overload with the reason; the others say what it is beside them.
///
/// A parameter T& is lent an object that must be there (write *p); a parameter T* is lent one that may be null,
/// which ends in the failure above (write p.get()). What is kept gets a reference of its own. Paths and names
/// are borrowed texts that end with a zero.
///
/// Comes with what stands in tn/: objects in files, pictures, pixels, the values of groups. Parallel work
/// and limited memory have headers of their own; tn/tn.h is all of it.
///
/// Threads: MakeXxx are thread-safe, every other helper is as thread-safe as what it calls.

#ifndef TNROBOTKERNEL_MAKE_H_
#define TNROBOTKERNEL_MAKE_H_

#include <cstdint>
#include <limits>
#include <system_error>

#include "TnRobotKernel/TnRobotKernel.h"
#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/tn/error.h"
#include "TnRobotKernel/tn/group_files.h"
#include "TnRobotKernel/tn/groups.h"
#include "TnRobotKernel/tn/objects.h"
#include "TnRobotKernel/tn/pictures.h"
#include "TnRobotKernel/tn/pixels.h"
#include "TnRobotKernel/tn/saving.h"
#include "TnRobotKernel/tn/surfaces.h"

namespace tn {

namespace detail {

// The results that mean success; which one holds depends on the function.
inline constexpr int kZeroIsSuccess = 0;
inline constexpr int kOneIsSuccess = 1;

// An object that came with a failure is given back, never handed on.
template <typename T>
void KeepIf(bool bSuccess, TnRobotPtr<T>& object) noexcept {
    if (!bSuccess) {
        object.reset();
    }
}

// Calls a creation function with its arguments and an out-pointer that is null before.
template <typename T, typename... Params, typename... Args>
TnRobotPtr<T> Create(int nSuccess, int (*pfnCreate)(Params...), Args... args) {
    TnRobotPtr<T> object;
    KeepIf(pfnCreate(args..., object.put()) == nSuccess, object);
    return object;
}

using SurfaceDesc = ITnRobotSurface::STnSurfaceDesc;

// Why a pool has not given a surface: its description, or the pool.
inline std::error_code WhyNoSurface(const SurfaceDesc& desc) noexcept {
    constexpr std::int64_t kMostBytes = std::numeric_limits<unsigned int>::max();
    const std::int64_t nRow = RowBytes(desc.eImageType, desc.nWidth);
    if (desc.nWidth < 1 || desc.nHeight < 1) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (nRow == 0) {
        return errc::format_not_supported;
    }
    return nRow <= kMostBytes / desc.nHeight ? errc::no_surface : errc::picture_too_large;
}

// Why a region was not cut out of a surface.
inline std::error_code WhyNotClipped(ITnRobotSurfacePool* pPool, ITnRobotSurface* pSource, const STnNLROIRect& region) {
    if (pPool == nullptr || pSource == nullptr) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    SurfaceDesc desc{};
    pSource->GetSurfaceDesc(desc);
    if (BytesPerPixel(desc.eImageType) == 0 || desc.eImageType == TN_IMAGE_BGRX32) {
        return errc::format_not_supported;
    }
    const bool bColumns = region.left >= 0 && region.left < region.right && region.right <= desc.nWidth;
    const bool bRows = region.top >= 0 && region.top < region.bottom && region.bottom <= desc.nHeight;
    if (!bColumns || !bRows || !LockedPixels(*pSource)) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    return errc::no_surface;
}

// Why two surfaces were not joined: only ones of equal size and format are sure to fit together.
inline std::error_code WhyNotPieced(ITnRobotSurfacePool* pPool, ITnRobotSurface* pFirst, ITnRobotSurface* pSecond) {
    if (pPool == nullptr || pFirst == nullptr || pSecond == nullptr) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    const LockedPixels first(*pFirst);
    const LockedPixels second(*pSecond);
    const bool bAlike =
        first.Width() == second.Width() && first.Height() == second.Height() && first.Type() == second.Type();
    return first && second && bAlike ? errc::no_surface : std::make_error_code(std::errc::invalid_argument);
}

// Why a record was not copied into a surface.
inline std::error_code WhyNotCopied(const STnNLImageData& image, ITnRobotSurfacePool* pPool) {
    if (pPool == nullptr || image.pData == nullptr || image.nDataSize == 0 || image.nWidth < 1 || image.nHeight < 1) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (image.eImageType == TN_IMAGE_RGB24 || BytesPerPixel(image.eImageType) == 0) {
        return errc::format_not_supported;
    }
    const std::error_code reason = WhyNoSurface({image.nWidth, image.nHeight, 0, image.eImageType, {}});
    const std::int64_t nRow = RowBytes(image.eImageType, image.nWidth);
    const std::int64_t nPitch = image.eImageType == TN_IMAGE_BGR24 ? (nRow + 3) / 4 * 4 : nRow;
    const bool bFits = reason != errc::no_surface || image.nDataSize <= nPitch * image.nHeight;
    return bFits ? reason : std::make_error_code(std::errc::invalid_argument);
}

// Why pixels did not become a JPEG in a block.
inline std::error_code WhyNoJpegBlock(bool bPixels, ETnNLImageType eType, int nWidth, int nHeight, int nResult) {
    constexpr int kNotEncoded = -6;
    if (!bPixels || nWidth < 1 || nHeight < 1) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    const std::error_code refused = CheckForm(PictureKind::kJpeg, eType, nWidth, nHeight);
    if (refused) {
        return refused;
    }
    return std::make_error_code(nResult == kNotEncoded ? std::errc::invalid_argument : std::errc::not_enough_memory);
}

template <typename T>
TnRobotPtr<ITnRobotDataValue> CreateValue(int (*pfnCreate)(T, ITnRobotDataValue**), T value) {
    return Create<ITnRobotDataValue>(kZeroIsSuccess, pfnCreate, value);
}

}  // namespace detail

/// @addtogroup pointer
/// @{

// Files and memory.

/// @return a closed disk file.
[[nodiscard]] inline TnRobotPtr<ITnRobotFile> MakeFile() {
    return detail::Create<ITnRobotFile>(detail::kOneIsSuccess, TnCreateRobotFile);
}

/// @return a closed memory file.
[[nodiscard]] inline TnRobotPtr<ITnRobotMemFile> MakeMemFile() {
    return detail::Create<ITnRobotMemFile>(detail::kOneIsSuccess, TnCreateRobotMemFile);
}

/// @return the general block pool.
[[nodiscard]] inline TnRobotPtr<ITnRobotMemoryBlockPool> MakeMemoryBlockPool() {
    return detail::Create<ITnRobotMemoryBlockPool>(detail::kOneIsSuccess, TnCreateRobotMemoryBlockPool);
}

/// @return the circular block pool, which takes its blocks' memory with it when it goes.
[[nodiscard]] inline TnRobotPtr<ITnRobotMemoryBlockPool> MakeCircleMemoryBlockPool() {
    return detail::Create<ITnRobotMemoryBlockPool>(detail::kOneIsSuccess, TnCreateRobotCircleMemoryBlockPool);
}

/// @return a block over caller memory.
/// @param[in] pParent  block kept alive by the new one, or null.
/// @param[in] pData    nSize bytes, borrowed for the block's life.
/// @param[in] nSize    used bytes that the block reports.
[[nodiscard]] inline TnRobotPtr<ITnRobotMemoryBlock> MakeCustomMemBlock(ITnRobotMemoryBlock* pParent,
                                                                        unsigned char* pData, unsigned int nSize) {
    return detail::Create<ITnRobotMemoryBlock>(detail::kOneIsSuccess, TnCreateRobotCustomMemBlock, pParent, pData,
                                               nSize);
}

/// @return an empty stream; empty pointer for a null pool.
/// @param[in] pPool  source of its blocks, of which the stream holds a reference.
[[nodiscard]] inline TnRobotPtr<ITnRobotMemDataStream> MakeMemDataStream(ITnRobotMemoryBlockPool* pPool) {
    return detail::Create<ITnRobotMemDataStream>(detail::kOneIsSuccess, TnCreateRobotMemDataStream, pPool);
}

/// @return a block of at least nSize bytes, not initialised; empty when the pool has none, also
///         when it claims success without giving one.
/// @param[in] pool   borrowed for the call.
/// @param[in] nSize  bytes wanted.
[[nodiscard]] inline TnRobotPtr<ITnRobotMemoryBlock> QueryMemBuff(ITnRobotMemoryBlockPool& pool, unsigned int nSize) {
    TnRobotPtr<ITnRobotMemoryBlock> block;
    detail::KeepIf(pool.QueryMemBuff(nSize, block.put()) == detail::kOneIsSuccess, block);
    return block;
}

// Values and groups. Without the process-wide value pool all of them are empty.

/// @return a value of the type in the function's name.
/// @param[in] value  what the value holds.
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeBoolData(bool value) {
    return detail::CreateValue(TnCreateRobotBoolData, value);
}

/// @copydoc MakeBoolData
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeCharData(char value) {
    return detail::CreateValue(TnCreateRobotCharData, value);
}

/// @return a DATA_TYPE_BYTE value; bits above the lowest 8 are dropped.
/// @param[in] nValue  what the value holds.
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeByteData(unsigned short nValue) {
    return detail::CreateValue(TnCreateRobotByteData, nValue);
}

/// @copydoc MakeBoolData
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeShortData(short value) {
    return detail::CreateValue(TnCreateRobotShortData, value);
}

/// @copydoc MakeBoolData
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeUShortData(unsigned short value) {
    return detail::CreateValue(TnCreateRobotUShortData, value);
}

/// @copydoc MakeBoolData
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeIntData(int value) {
    return detail::CreateValue(TnCreateRobotIntData, value);
}

/// @copydoc MakeBoolData
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeUintData(unsigned int value) {
    return detail::CreateValue(TnCreateRobotUintData, value);
}

/// @copydoc MakeBoolData
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeFloatData(float value) {
    return detail::CreateValue(TnCreateRobotFloatData, value);
}

/// @copydoc MakeBoolData
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeDoubleData(double value) {
    return detail::CreateValue(TnCreateRobotDoubleData, value);
}

/// @copydoc MakeBoolData
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeLonglongData(long long value) {
    return detail::CreateValue(TnCreateRobotLonglongData, value);
}

/// @copydoc MakeBoolData
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeULonglongData(unsigned long long value) {
    return detail::CreateValue(TnCreateRobotULonglongData, value);
}

/// @return a DATA_TYPE_STRING value; empty for a null text.
/// @param[in] lpszValue  copied.
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeStringData(const char* lpszValue) {
    return detail::CreateValue(TnCreateRobotStringData, lpszValue);
}

/// @return a DATA_TYPE_BLOCK value; empty for null pData with a size above 0.
/// @param[in] pData  nSize bytes, copied.
/// @param[in] nSize  bytes.
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeBlockData(const void* pData, unsigned int nSize) {
    return detail::Create<ITnRobotDataValue, const void*, unsigned int, ITnRobotDataValue**>(
        detail::kZeroIsSuccess, TnCreateRobotBlockData, pData, nSize);
}

/// @return a DATA_TYPE_BLOCK value with everything in the stream, which is read from its
///         beginning; null gives an empty block.
/// @param[in] pStream  borrowed for the call.
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> MakeBlockData(ITnRobotMemDataStream* pStream) {
    return detail::Create<ITnRobotDataValue, ITnRobotMemDataStream*, ITnRobotDataValue**>(
        detail::kZeroIsSuccess, TnCreateRobotBlockData, pStream);
}

/// @return a copy of a value.
/// @param[in] value  what is copied.
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> Clone(ITnRobotDataValue& value) {
    return Adopt(value.Clone());
}

/// @return an empty group.
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValueGroup> MakeValueDataGroup() {
    return detail::Create<ITnRobotDataValueGroup>(detail::kOneIsSuccess, TnCreateRobotValueDataGroup);
}

/// @return the value of that name, shared with the group; empty when it is not there, or for a null
///         or empty name.
/// @param[in] group     borrowed for the call.
/// @param[in] lpszName  name.
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValue> GetValue(ITnRobotDataValueGroup& group, const char* lpszName) {
    TnRobotPtr<ITnRobotDataValue> value;
    detail::KeepIf(group.GetValue(lpszName, value.put()) == detail::kZeroIsSuccess, value);
    return value;
}

/// Overload with the reason.
/// @param[in] group     borrowed for the call.
/// @param[in] lpszName  name.
/// @param[out] ec       cleared on success; std::errc::invalid_argument for a null or empty name,
///                      errc::no_such_value when it is not there.
/// @return the value, shared with the group; empty on failure.
inline TnRobotPtr<ITnRobotDataValue> GetValue(ITnRobotDataValueGroup& group, const char* lpszName,
                                              std::error_code& ec) {
    TnRobotPtr<ITnRobotDataValue> value = GetValue(group, lpszName);
    const bool bName = lpszName != nullptr && *lpszName != '\0';
    ec = value ? std::error_code()
               : (bName ? make_error_code(errc::no_such_value) : std::make_error_code(std::errc::invalid_argument));
    return value;
}

/// @return a copy of a group and of its values.
/// @param[in] group  what is copied.
[[nodiscard]] inline TnRobotPtr<ITnRobotDataValueGroup> Clone(ITnRobotDataValueGroup& group) {
    return Adopt(group.Clone());
}

// Archive.

/// @return a detached archive.
[[nodiscard]] inline TnRobotPtr<ITnRobotArchive> MakeArchive() {
    return detail::Create<ITnRobotArchive>(detail::kOneIsSuccess, TnCreateRobotArchive);
}

// Images.

/// @return an empty surface pool.
/// @param[in] pBlockPool  source of the pixel memory, of which the pool holds a reference; with null
///            it never has a surface.
[[nodiscard]] inline TnRobotPtr<ITnRobotSurfacePool> MakeSurfacePool(ITnRobotMemoryBlockPool* pBlockPool) {
    return detail::Create<ITnRobotSurfacePool>(detail::kOneIsSuccess, TnCreateRobotSurfacePool, pBlockPool);
}

/// Hands out a surface, whose pixels are not initialised.
/// @param[in] pool  borrowed for the call.
/// @param[in] desc  what is wanted; its nPitch is overwritten when the format is valid.
/// @return empty when the description cannot be met, also where the pool would hand out an old
///         surface without pixels.
[[nodiscard]] inline TnRobotPtr<ITnRobotSurface> QuerySurface(ITnRobotSurfacePool& pool,
                                                              const ITnRobotSurface::STnSurfaceDesc& desc) {
    TnRobotPtr<ITnRobotSurface> surface;
    const int nResult = pool.QuerySurface(desc, surface.put());
    if (nResult != detail::kZeroIsSuccess || !surface) {
        return nullptr;
    }
    const bool bHasPixels = LockedPixels(surface).Lock().pData != nullptr;
    detail::KeepIf(bHasPixels, surface);
    return surface;
}

/// Overload with the reason.
/// @param[in] pool  borrowed for the call.
/// @param[in] desc  what is wanted; its nPitch is overwritten when the format is valid.
/// @param[out] ec   cleared on success; std::errc::invalid_argument for a width or height below 1,
///                  errc::format_not_supported for no format, errc::picture_too_large for one of 4 GiB or more,
///                  errc::no_surface when the pool has none.
/// @return the surface; empty on failure.
inline TnRobotPtr<ITnRobotSurface> QuerySurface(ITnRobotSurfacePool& pool, const ITnRobotSurface::STnSurfaceDesc& desc,
                                                std::error_code& ec) {
    TnRobotPtr<ITnRobotSurface> surface = QuerySurface(pool, desc);
    ec = surface ? std::error_code() : detail::WhyNoSurface(desc);
    return surface;
}

/// @return a surface with a copy of the image, as TnRobotImageUtils::NlImage2Surface makes it.
/// @param[in] image  borrowed for the call.
/// @param[in] pPool  source of the surface; borrowed for the call.
[[nodiscard]] inline TnRobotPtr<ITnRobotSurface> NlImage2Surface(const STnNLImageData& image,
                                                                 ITnRobotSurfacePool* pPool) {
    TnRobotPtr<ITnRobotSurface> surface;
    detail::KeepIf(TnRobotImageUtils::NlImage2Surface(image, pPool, surface.put()) == detail::kZeroIsSuccess, surface);
    return surface;
}

/// Overload with the reason.
/// @param[in] image  borrowed for the call.
/// @param[in] pPool  source of the surface; borrowed for the call.
/// @param[out] ec    cleared on success; std::errc::invalid_argument for null arguments, no pixels, and more bytes
///                   than the surface has; errc::format_not_supported for a format that is not copied, R,G,B among
///                   them; errc::picture_too_large for 4 GiB or more; errc::no_surface when the pool has none.
/// @return the surface; empty on failure.
inline TnRobotPtr<ITnRobotSurface> NlImage2Surface(const STnNLImageData& image, ITnRobotSurfacePool* pPool,
                                                   std::error_code& ec) {
    TnRobotPtr<ITnRobotSurface> surface = NlImage2Surface(image, pPool);
    ec = surface ? std::error_code() : detail::WhyNotCopied(image, pPool);
    return surface;
}

/// @return a surface with a copy of the region, as TnRobotImageUtils::ClipImage makes it.
/// @param[in] pPool    source of the surface; borrowed for the call.
/// @param[in] pSource  borrowed for the call.
/// @param[in] region   pixels of the source, half open.
[[nodiscard]] inline TnRobotPtr<ITnRobotSurface> ClipImage(ITnRobotSurfacePool* pPool, ITnRobotSurface* pSource,
                                                           const STnNLROIRect& region) {
    TnRobotPtr<ITnRobotSurface> surface;
    detail::KeepIf(TnRobotImageUtils::ClipImage(pPool, pSource, region, surface.put()) == detail::kZeroIsSuccess,
                   surface);
    return surface;
}

/// Overload with the reason.
/// @param[in] pPool    source of the surface; borrowed for the call.
/// @param[in] pSource  borrowed for the call.
/// @param[in] region   pixels of the source, half open.
/// @param[out] ec      cleared on success; std::errc::invalid_argument for null arguments, a region that is empty or
/// not
///                     inside the source, and a source without pixels; errc::format_not_supported for a format that
///                     is not cut; errc::no_surface when the pool has none.
/// @return the surface; empty on failure.
inline TnRobotPtr<ITnRobotSurface> ClipImage(ITnRobotSurfacePool* pPool, ITnRobotSurface* pSource,
                                             const STnNLROIRect& region, std::error_code& ec) {
    TnRobotPtr<ITnRobotSurface> surface = ClipImage(pPool, pSource, region);
    ec = surface ? std::error_code() : detail::WhyNotClipped(pPool, pSource, region);
    return surface;
}

/// @return both images side by side, as TnRobotImageUtils::PieceImage joins them.
/// @param[in] pPool    source of the surface; borrowed for the call.
/// @param[in] pFirst   left image, borrowed for the call.
/// @param[in] pSecond  right image, borrowed for the call.
[[nodiscard]] inline TnRobotPtr<ITnRobotSurface> PieceImage(ITnRobotSurfacePool* pPool, ITnRobotSurface* pFirst,
                                                            ITnRobotSurface* pSecond) {
    TnRobotPtr<ITnRobotSurface> surface;
    detail::KeepIf(TnRobotImageUtils::PieceImage(pPool, pFirst, pSecond, surface.put()) == detail::kOneIsSuccess,
                   surface);
    return surface;
}

/// Overload with the reason.
/// @param[in] pPool    source of the surface; borrowed for the call.
/// @param[in] pFirst   left image, borrowed for the call.
/// @param[in] pSecond  right image, borrowed for the call.
/// @param[out] ec      cleared on success; std::errc::invalid_argument for null arguments, images without pixels, and
///                     images of different size or format that were not joined; errc::no_surface when the pool has
///                     none.
/// @return the surface; empty on failure.
inline TnRobotPtr<ITnRobotSurface> PieceImage(ITnRobotSurfacePool* pPool, ITnRobotSurface* pFirst,
                                              ITnRobotSurface* pSecond, std::error_code& ec) {
    TnRobotPtr<ITnRobotSurface> surface = PieceImage(pPool, pFirst, pSecond);
    ec = surface ? std::error_code() : detail::WhyNotPieced(pPool, pFirst, pSecond);
    return surface;
}

/// @return the picture of a file as a B,G,R surface; the path's ending, ".jpg" or ".bmp", chooses the
///         format.
/// @param[in] lpszPath  path.
/// @param[in] pPool     source of the surface; borrowed for the call.
[[nodiscard]] inline TnRobotPtr<ITnRobotSurface> LoadImage(const char* lpszPath, ITnRobotSurfacePool* pPool) {
    TnRobotPtr<ITnRobotSurface> surface;
    detail::KeepIf(TnRobotImageUtils::LoadImage(lpszPath, pPool, surface.put()) == detail::kZeroIsSuccess, surface);
    return surface;
}

/// @return the JPEG in memory as a B,G,R surface.
/// @param[in] pData    nLength bytes.
/// @param[in] nLength  bytes.
/// @param[in] pPool    source of the surface; borrowed for the call.
[[nodiscard]] inline TnRobotPtr<ITnRobotSurface> LoadImage(const unsigned char* pData, unsigned int nLength,
                                                           ITnRobotSurfacePool* pPool) {
    TnRobotPtr<ITnRobotSurface> surface;
    detail::KeepIf(TnRobotImageUtils::LoadImage(pData, nLength, pPool, surface.put()) == detail::kZeroIsSuccess,
                   surface);
    return surface;
}

/// @return the JPEG that a block holds as a B,G,R surface.
/// @param[in] pBlock  borrowed for the call.
/// @param[in] pPool   source of the surface; borrowed for the call.
[[nodiscard]] inline TnRobotPtr<ITnRobotSurface> LoadImage(ITnRobotMemoryBlock* pBlock, ITnRobotSurfacePool* pPool) {
    TnRobotPtr<ITnRobotSurface> surface;
    detail::KeepIf(TnRobotImageUtils::LoadImage(pBlock, pPool, surface.put()) == detail::kZeroIsSuccess, surface);
    return surface;
}

/// @return the image as a JPEG of quality 95 in a new block.
/// @param[in] image       borrowed for the call.
/// @param[in] pBlockPool  source of the block; borrowed for the call.
[[nodiscard]] inline TnRobotPtr<ITnRobotMemoryBlock> SaveImage(const STnNLImageData& image,
                                                               ITnRobotMemoryBlockPool* pBlockPool) {
    TnRobotPtr<ITnRobotMemoryBlock> block;
    detail::KeepIf(TnRobotImageUtils::SaveImage(image, pBlockPool, block.put()) == detail::kZeroIsSuccess, block);
    return block;
}

/// Overload with the reason.
/// @param[in] image       borrowed for the call.
/// @param[in] pBlockPool  source of the block; borrowed for the call.
/// @param[out] ec         cleared on success; std::errc::invalid_argument for null arguments and an image without
///                        pixels, or with fewer bytes than its rows have; errc::format_not_supported for 4:2:0 and no
///                        format; errc::picture_too_large above 65,500 pixels in either direction;
///                        std::errc::not_enough_memory when the pool has no block.
/// @return the block; empty on failure.
inline TnRobotPtr<ITnRobotMemoryBlock> SaveImage(const STnNLImageData& image, ITnRobotMemoryBlockPool* pBlockPool,
                                                 std::error_code& ec) {
    TnRobotPtr<ITnRobotMemoryBlock> block;
    const int nResult = TnRobotImageUtils::SaveImage(image, pBlockPool, block.put());
    detail::KeepIf(nResult == detail::kZeroIsSuccess, block);
    const bool bGiven = pBlockPool != nullptr && image.pData != nullptr;
    ec = block ? std::error_code()
               : detail::WhyNoJpegBlock(bGiven, image.eImageType, image.nWidth, image.nHeight, nResult);
    return block;
}

/// @return the surface as a JPEG of quality 95 in a new block.
/// @param[in] pSurface    borrowed for the call.
/// @param[in] pBlockPool  source of the block; borrowed for the call.
[[nodiscard]] inline TnRobotPtr<ITnRobotMemoryBlock> SaveImage(ITnRobotSurface* pSurface,
                                                               ITnRobotMemoryBlockPool* pBlockPool) {
    TnRobotPtr<ITnRobotMemoryBlock> block;
    detail::KeepIf(TnRobotImageUtils::SaveImage(pSurface, pBlockPool, block.put()) == detail::kZeroIsSuccess, block);
    return block;
}

/// Overload with the reason.
/// @param[in] pSurface    borrowed for the call.
/// @param[in] pBlockPool  source of the block; borrowed for the call.
/// @param[out] ec         as for an image.
/// @return the block; empty on failure.
inline TnRobotPtr<ITnRobotMemoryBlock> SaveImage(ITnRobotSurface* pSurface, ITnRobotMemoryBlockPool* pBlockPool,
                                                 std::error_code& ec) {
    TnRobotPtr<ITnRobotMemoryBlock> block;
    const int nResult = TnRobotImageUtils::SaveImage(pSurface, pBlockPool, block.put());
    detail::KeepIf(nResult == detail::kZeroIsSuccess, block);
    ec.clear();
    if (!block) {
        ITnRobotSurface::STnSurfaceDesc desc{};
        const bool bPixels = pSurface != nullptr && static_cast<bool>(LockedPixels(*pSurface));
        if (bPixels) {
            pSurface->GetSurfaceDesc(desc);
        }
        ec = detail::WhyNoJpegBlock(bPixels && pBlockPool != nullptr, desc.eImageType, desc.nWidth, desc.nHeight,
                                    nResult);
    }
    return block;
}

// Waiting and working.

/// @return an event.
/// @param[in] bSignalled  whether it is set at first.
[[nodiscard]] inline TnRobotPtr<ITnRobotEvent> MakeManualEvent(bool bSignalled) {
    return detail::Create<ITnRobotEvent>(detail::kOneIsSuccess, TnCreateRobotManualEvent, bSignalled);
}

/// @return an armed signal.
[[nodiscard]] inline TnRobotPtr<ITnRobotSignal> MakeSignal() {
    return detail::Create<ITnRobotSignal>(detail::kOneIsSuccess, TnCreateRobotSignal);
}

/// @return a stopped alarm clock.
[[nodiscard]] inline TnRobotPtr<ITnRobotAlarmClock> MakeAlarmClock() {
    return detail::Create<ITnRobotAlarmClock>(detail::kOneIsSuccess, TnCreateRobotAlarmClock);
}

/// @return a thread object without a job. A job that only returns on its event needs a Stop before
///         the last pointer goes, which waits for the job.
[[nodiscard]] inline TnRobotPtr<ITnRobotThread> MakeThread() {
    return detail::Create<ITnRobotThread>(detail::kOneIsSuccess, TnCreateRobotThread);
}

/// @return a task pool whose thread runs. The last pointer must not go inside a job.
[[nodiscard]] inline TnRobotPtr<ITnRobotTaskPool> MakeTaskPool() {
    return detail::Create<ITnRobotTaskPool>(detail::kOneIsSuccess, TnCreateRobotTaskPool);
}

/// @return a task that is not started yet.
/// @param[in] pool     borrowed for the call.
/// @param[in] pRunner  bound to the task, which holds a reference; null leaves the task without a
///                     runner.
[[nodiscard]] inline TnRobotPtr<ITnRobotTask> CreateTask(ITnRobotTaskPool& pool, ITnRobotTaskRunner* pRunner) {
    TnRobotPtr<ITnRobotTask> task;
    detail::KeepIf(pool.CreateTask(pRunner, task.put()), task);
    return task;
}

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_MAKE_H_
