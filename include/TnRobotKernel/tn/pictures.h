/// @file
/// Pictures in files and in memory, with the reason of a failure: LoadImage and SaveImage.
///
/// The library's own operations answer 0, -1, -2 and -6; these say what is wrong. Of files that are no
/// JPEG or plain BMP they only say so: other libraries read those, and SurfaceOver takes what comes of it.
///
/// Threads: different files are independent. A surface must not be in use elsewhere during a call.

#ifndef TNROBOTKERNEL_TN_PICTURES_H_
#define TNROBOTKERNEL_TN_PICTURES_H_

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "TnRobotKernel/tn/detail/PictureFiles.h"
#include "TnRobotKernel/tn/detail/ReplacedFile.h"
#include "TnRobotKernel/tn/error.h"
#include "TnRobotKernel/tn/pixels.h"
#include "TnRobotKernel/tn/surfaces.h"

namespace tn {

namespace detail {

// Why a picture of this size has no surface; no reason when it has one.
inline std::error_code CheckSurface(ITnRobotSurfacePool& pool, std::int32_t nWidth, std::int32_t nHeight) {
    const std::int64_t nRow = (RowBytes(TN_IMAGE_BGR24, nWidth) + 3) / 4 * 4;
    if (nRow > 0 && nHeight > std::numeric_limits<unsigned int>::max() / nRow) {
        return errc::picture_too_large;
    }
    TnRobotPtr<ITnRobotSurface> surface;
    const bool bGiven = pool.QuerySurface({nWidth, nHeight, 0, TN_IMAGE_BGR24, {0, 0}}, surface.put()) == 0;
    const LockedPixels pixels(surface);
    return bGiven && pixels && pixels.Width() == nWidth ? std::error_code() : errc::no_surface;
}

// Why a JPEG did not load.
inline std::error_code WhyNoJpeg(PictureBytes& bytes, ITnRobotSurfacePool& pool) {
    constexpr std::int64_t kMostPixels = std::int64_t{64} << 20U;  // more needs coded bytes in proportion
    const JpegLook look(bytes);
    const std::error_code damage = look.IsComplete() ? errc::picture_damaged : errc::picture_incomplete;
    if (!look.IsJpeg()) {
        return errc::not_a_picture;
    }
    if (!look.HasSize()) {
        return damage;
    }
    if (!look.HasCommonForm()) {
        return errc::format_not_supported;
    }
    const std::error_code none = CheckSurface(pool, look.Width(), look.Height());
    if (none) {
        return none;
    }
    return std::int64_t{look.Width()} * look.Height() > kMostPixels ? errc::picture_too_large : damage;
}

// Why a BMP did not load.
inline std::error_code WhyNoBmp(PictureBytes& bytes, ITnRobotSurfacePool& pool) {
    const BmpLook look(bytes);
    if (!look.IsBmp()) {
        return look.HasHeader() ? errc::not_a_picture : errc::picture_incomplete;
    }
    if (!look.HasCommonForm()) {
        return errc::format_not_supported;
    }
    if (look.IsCut()) {
        return errc::picture_incomplete;
    }
    if (look.Width() < 1 || look.Height() < 1) {
        return errc::picture_damaged;
    }
    const std::error_code none = CheckSurface(pool, look.Width(), look.Height());
    if (none) {
        return none;
    }
    return look.HasAllRows() ? errc::picture_damaged : errc::picture_incomplete;
}

// Whether there is more to a picture that has loaded: the library fills up what is missing.
inline bool IsWhole(PictureBytes& bytes, PictureKind eKind) {
    return eKind == PictureKind::kJpeg ? JpegLook(bytes).IsComplete() : BmpLook(bytes).HasAllRows();
}

// Says what there is to say about a picture, loaded or not.
inline std::error_code LookAt(PictureBytes& bytes, PictureKind eKind, bool bLoaded, ITnRobotSurfacePool& pool) {
    if (!bytes.IsOpen()) {
        return SystemError();
    }
    if (bLoaded) {
        return IsWhole(bytes, eKind) ? std::error_code() : errc::picture_incomplete;
    }
    return eKind == PictureKind::kJpeg ? WhyNoJpeg(bytes, pool) : WhyNoBmp(bytes, pool);
}

// A record whose rows lie as both kinds of file want them, at a multiple of 4 bytes and nothing else
// around them. Copies only what lies otherwise.
class RecordToSave {
public:
    RecordToSave(const unsigned char* pData, ETnNLImageType eType, int nWidth, int nHeight, std::ptrdiff_t nPitch) {
        constexpr unsigned char kBitsPerChannel = 8;
        const auto nRow = static_cast<std::size_t>(RowBytes(eType, nWidth));
        const std::size_t nStep = (nRow + 3) / 4 * 4;
        const auto nRows = static_cast<std::size_t>(nHeight);
        m_image.pData = const_cast<unsigned char*>(pData);
        if (nStep != static_cast<std::size_t>(nPitch) || nStep != nRow) {
            m_rows.resize(nStep * nRows);
            m_image.pData = m_rows.data();
            for (std::size_t i = 0; i < nRows; ++i) {
                std::memcpy(m_rows.data() + i * nStep, pData + static_cast<std::ptrdiff_t>(i) * nPitch, nRow);
            }
        }
        m_image.nDataSize = static_cast<unsigned int>(nStep * nRows);
        m_image.nWidth = nWidth;
        m_image.nHeight = nHeight;
        m_image.eImageType = eType;
        m_image.nBitsPerChannel = kBitsPerChannel;
        m_image.nChannels = static_cast<unsigned char>(BytesPerPixel(eType));
    }

    const STnNLImageData& Image() const { return m_image; }

private:
    std::vector<unsigned char> m_rows;
    STnNLImageData m_image{};
};

// Why a kind of file cannot hold such a picture.
inline std::error_code CheckForm(PictureKind eKind, ETnNLImageType eType, int nWidth, int nHeight) {
    constexpr int kLongestOfJpeg = 65500;
    const std::int64_t nRow = RowBytes(eType, nWidth);
    if (eKind == PictureKind::kOther || BytesPerPixel(eType) == 0) {
        return errc::format_not_supported;
    }
    if (eKind == PictureKind::kBmp && (eType == TN_IMAGE_RGB24 || nRow % 4 != 0)) {
        return errc::format_not_supported;
    }
    if (eKind == PictureKind::kJpeg && (nWidth > kLongestOfJpeg || nHeight > kLongestOfJpeg)) {
        return errc::picture_too_large;
    }
    const std::int64_t nStep = (nRow + 3) / 4 * 4;
    return nHeight > std::numeric_limits<unsigned int>::max() / nStep ? errc::picture_too_large : std::error_code();
}

// The library writes a file and does not tell what the system refused: its end does.
inline std::error_code CheckWritten(const ReplacedFile& file, PictureKind eKind, const STnNLImageData& image) {
    constexpr std::int64_t kHeader = 54;
    constexpr std::int64_t kColour = 4;
    if (eKind == PictureKind::kBmp) {
        const std::int64_t nColours = std::int64_t{1} << (8U * image.nChannels) % 32U;
        return file.CheckLength(kHeader + nColours * kColour + image.nDataSize);
    }
    return file.CheckEnd("\xFF\xD9", 2);
}

inline std::error_code SaveRows(const char* lpszPath, const unsigned char* pData, ETnNLImageType eType, int nWidth,
                                int nHeight, std::ptrdiff_t nPitch) {
    if (lpszPath == nullptr) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    const PictureKind eKind = KindOf(lpszPath);
    const std::error_code refused = CheckForm(eKind, eType, nWidth, nHeight);
    if (refused) {
        return refused;
    }
    ReplacedFile file;
    const std::error_code opened = file.Open(lpszPath, eKind == PictureKind::kBmp ? ".bmp" : ".jpg");
    if (opened) {
        return opened;
    }
    const RecordToSave record(pData, eType, nWidth, nHeight, nPitch);
    if (TnRobotImageUtils::SaveImage(file.Name().c_str(), &record.Image()) != 0) {
        return errc::picture_too_large;
    }
    const std::error_code failed = CheckWritten(file, eKind, record.Image());
    return failed ? failed : file.Commit();
}

}  // namespace detail

/// @addtogroup image
/// @{

/// Loads a picture from a file as a B,G,R surface. The path's ending, ".jpg" or ".bmp" in any case, says what the
/// file is; what TnRobotImageUtils::LoadImage says of such files holds.
/// @param[in] lpszPath  path of a regular file.
/// @param[in] pPool     source of the surface; borrowed for the call.
/// @param[out] ec       cleared when the whole picture is there. errc::picture_incomplete comes with a
///                      picture when a JPEG is cut or a BMP has fewer rows than it says, the rest being grey
///                      or zero, and without one when nothing of it can be shown.
///                      errc::not_a_picture, errc::format_not_supported (another ending or pixel form, padded BMP
///                      rows), errc::picture_damaged, errc::picture_too_large, errc::no_surface,
///                      std::errc::invalid_argument for null arguments, and what the system said, such as
///                      std::errc::no_such_file_or_directory, come without a picture.
/// @return the surface; empty on failure.
inline TnRobotPtr<ITnRobotSurface> LoadImage(const char* lpszPath, ITnRobotSurfacePool* pPool, std::error_code& ec) {
    if (lpszPath == nullptr || pPool == nullptr) {
        ec = std::make_error_code(std::errc::invalid_argument);
        return nullptr;
    }
    ec = detail::CheckReadable(lpszPath);
    if (ec) {
        return nullptr;
    }
    const detail::PictureKind eKind = detail::KindOf(lpszPath);
    if (eKind == detail::PictureKind::kOther) {
        ec = errc::format_not_supported;
        return nullptr;
    }
    TnRobotPtr<ITnRobotSurface> surface;
    const bool bLoaded = TnRobotImageUtils::LoadImage(lpszPath, pPool, surface.put()) == 0;
    detail::PictureBytes bytes(lpszPath);
    ec = detail::LookAt(bytes, eKind, bLoaded, *pPool);
    return bLoaded ? surface : nullptr;
}

/// Loads the JPEG in memory as a B,G,R surface.
/// @param[in] pData    nLength bytes, borrowed for the call.
/// @param[in] nLength  bytes.
/// @param[in] pPool    source of the surface; borrowed for the call.
/// @param[out] ec      as for a file; std::errc::invalid_argument for no bytes.
/// @return the surface; empty on failure.
inline TnRobotPtr<ITnRobotSurface> LoadImage(const unsigned char* pData, unsigned int nLength,
                                             ITnRobotSurfacePool* pPool, std::error_code& ec) {
    if (pData == nullptr || nLength == 0 || pPool == nullptr) {
        ec = std::make_error_code(std::errc::invalid_argument);
        return nullptr;
    }
    TnRobotPtr<ITnRobotSurface> surface;
    const bool bLoaded = TnRobotImageUtils::LoadImage(pData, nLength, pPool, surface.put()) == 0;
    detail::PictureBytes bytes(pData, nLength);
    ec = detail::LookAt(bytes, detail::PictureKind::kJpeg, bLoaded, *pPool);
    return bLoaded ? surface : nullptr;
}

/// Loads the JPEG that a block holds as a B,G,R surface.
/// @param[in] pBlock  borrowed for the call.
/// @param[in] pPool   source of the surface; borrowed for the call.
/// @param[out] ec     as for bytes in memory; std::errc::invalid_argument for a null block.
/// @return the surface; empty on failure.
inline TnRobotPtr<ITnRobotSurface> LoadImage(ITnRobotMemoryBlock* pBlock, ITnRobotSurfacePool* pPool,
                                             std::error_code& ec) {
    unsigned int nLength = 0;
    const unsigned char* pData = pBlock != nullptr ? pBlock->QueryMemory(nLength) : nullptr;
    return LoadImage(pData, nLength, pPool, ec);
}

/// Saves a surface as a picture, so that nothing is ever lost: the file is the old one or, when all of the
/// new one has reached the disk, the new one, as with SaveTo. The path's ending, ".jpg" (quality 95) or
/// ".bmp" in any case, chooses the format.
///
/// Only what a file of that kind can carry is saved. As BMP that is grey, B,G,R or B,G,R,X with rows of a
/// multiple of 4 bytes, which for colours means a width that is a multiple of 4. As JPEG it is everything but
/// 4:2:0, up to 65,500 pixels in either direction.
/// @param[in] lpszPath  path.
/// @param[in] pSurface  borrowed for the call; its rows may have any pitch.
/// @param[out] ec       why it was not saved; cleared on success. errc::format_not_supported for another
///                      ending and for what the form cannot carry, errc::picture_too_large for what it
///                      cannot count or encode, std::errc::invalid_argument for null arguments and a surface without
///                      pixels, and what the system said, such as std::errc::no_space_on_device.
/// @return whether it was saved; otherwise the old file is untouched.
inline bool SaveImage(const char* lpszPath, ITnRobotSurface* pSurface, std::error_code& ec) {
    ec = std::make_error_code(std::errc::invalid_argument);
    if (pSurface != nullptr) {
        const LockedPixels pixels(*pSurface);
        if (pixels) {
            ec = detail::SaveRows(lpszPath, pixels.Row(0), pixels.Type(), pixels.Width(), pixels.Height(),
                                  pixels.Pitch());
        }
    }
    return !ec;
}

/// Overload without the reason.
/// @param[in] lpszPath  path.
/// @param[in] pSurface  borrowed for the call.
/// @return whether it was saved.
[[nodiscard]] inline bool SaveImage(const char* lpszPath, ITnRobotSurface* pSurface) {
    std::error_code ignored;
    return SaveImage(lpszPath, pSurface, ignored);
}

/// Saves a picture in memory, with rows of any pitch, as above.
/// @param[in] lpszPath  path.
/// @param[in] image     borrowed for the call: data, its size, width, height and format count.
/// @param[in] nPitch    bytes from one row of the image to the next.
/// @param[out] ec       as above; std::errc::invalid_argument also for rows that do not lie in the data.
/// @return whether it was saved; otherwise the old file is untouched.
inline bool SaveImage(const char* lpszPath, const STnNLImageData& image, int nPitch, std::error_code& ec) {
    ec = detail::CheckRows(image.pData, image.nDataSize, image.eImageType, image.nWidth, image.nHeight, nPitch);
    if (!ec) {
        ec = detail::SaveRows(lpszPath, image.pData, image.eImageType, image.nWidth, image.nHeight, nPitch);
    }
    return !ec;
}

/// Overload without the reason.
/// @param[in] lpszPath  path.
/// @param[in] image     borrowed for the call.
/// @param[in] nPitch    bytes from one row of the image to the next.
/// @return whether it was saved.
[[nodiscard]] inline bool SaveImage(const char* lpszPath, const STnNLImageData& image, int nPitch) {
    std::error_code ignored;
    return SaveImage(lpszPath, image, nPitch, ignored);
}

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_TN_PICTURES_H_
