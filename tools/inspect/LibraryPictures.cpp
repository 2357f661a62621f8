// Pictures through the library: decoded as B, G, R, encoded as either kind of file.

#include <TnRobotKernel/make.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "Library.h"

namespace {

namespace fs = std::filesystem;

constexpr int kBytesPerPixel = 3;

/// Takes what libjpeg prints, so that it can be said of which file it was said.
class CapturedErrors {
public:
    CapturedErrors() : m_nKept(dup(STDERR_FILENO)), m_nText(memfd_create("errors", MFD_CLOEXEC)) {
        if (m_nKept >= 0 && m_nText >= 0) {
            dup2(m_nText, STDERR_FILENO);
        }
    }
    CapturedErrors(const CapturedErrors&) = delete;
    CapturedErrors& operator=(const CapturedErrors&) = delete;
    ~CapturedErrors() { End(); }

    /// Ends the capture. @return the first line.
    std::string End() {
        if (m_nKept < 0) {
            return {};
        }
        dup2(m_nKept, STDERR_FILENO);
        close(m_nKept);
        m_nKept = -1;
        char text[256] = {};
        const ssize_t nRead = m_nText >= 0 ? pread(m_nText, text, sizeof(text), 0) : 0;
        if (m_nText >= 0) {
            close(m_nText);
        }
        const std::string strText(text, nRead > 0 ? static_cast<std::size_t>(nRead) : 0);
        return strText.substr(0, strText.find('\n'));
    }

private:
    int m_nKept;
    int m_nText;
};

/// The library chooses the format by the ending of the path, so a file of any name gets a second
/// one with the right ending.
class LinkedPath {
public:
    LinkedPath(const std::string& strPath, const std::string& strName) {
        std::string strDirectory = (fs::temp_directory_path() / "tnrobot-inspect.XXXXXX").string();
        if (mkdtemp(strDirectory.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), "no temporary directory");
        }
        m_directory = strDirectory;
        fs::create_symlink(fs::absolute(strPath), m_directory / strName);
        m_strPath = (m_directory / strName).string();
    }
    LinkedPath(const LinkedPath&) = delete;
    LinkedPath& operator=(const LinkedPath&) = delete;
    ~LinkedPath() {
        std::error_code ignored;
        fs::remove_all(m_directory, ignored);
    }

    const char* Path() const { return m_strPath.c_str(); }

private:
    fs::path m_directory;
    std::string m_strPath;
};

/// A surface and the pools that it comes from, which keep its pixels alive.
struct LoadedSurface {
    TnRobotPtr<ITnRobotMemoryBlockPool> blocks = tn::MakeMemoryBlockPool();
    TnRobotPtr<ITnRobotSurfacePool> surfaces = tn::MakeSurfacePool(blocks.get());
    TnRobotPtr<ITnRobotSurface> surface;
};

// Not by tn::LoadImage: a failure is reported with its number.
int Load(PictureKind eKind, const std::string& strPath, ByteRange file, LoadedSurface& loaded) {
    ITnRobotSurfacePool* pSurfaces = loaded.surfaces.get();
    if (eKind == PictureKind::kJpeg) {
        return TnRobotImageUtils::LoadImage(file.pData, static_cast<unsigned int>(file.nSize), pSurfaces,
                                            loaded.surface.put());
    }
    const LinkedPath link(strPath, "picture.bmp");
    return TnRobotImageUtils::LoadImage(link.Path(), pSurfaces, loaded.surface.put());
}

// Rows of a BMP file lie packed in the surface, those of a JPEG file at its pitch.
Picture PixelsOf(ITnRobotSurface& surface, PictureKind eKind) {
    ITnRobotSurface::STnLockSurface lock{};
    surface.LockSurface(lock);
    Picture picture;
    picture.nWidth = lock.nWidth;
    picture.nHeight = lock.nHeight;
    const auto nRow = static_cast<std::size_t>(lock.nWidth) * kBytesPerPixel;
    const std::size_t nStep = eKind == PictureKind::kBmp ? nRow : static_cast<std::size_t>(lock.nPitch);
    const auto nRows = static_cast<std::size_t>(lock.nHeight);
    picture.pixels.reserve(nRow * nRows);
    for (std::size_t i = 0; i < nRows && (i * nStep) + nRow <= lock.nDataSize; ++i) {
        const unsigned char* pRow = lock.pData + (i * nStep);
        picture.pixels.insert(picture.pixels.end(), pRow, pRow + nRow);
    }
    picture.pixels.resize(nRow * nRows);
    surface.UnLockSurface();
    return picture;
}

}  // namespace

std::optional<Picture> DecodePicture(PictureKind eKind, const std::string& strPath, ByteRange file,
                                     std::string& strError) {
    LoadedSurface loaded;
    CapturedErrors errors;
    const int nResult = Load(eKind, strPath, file, loaded);
    strError = errors.End();
    if (loaded.surface == nullptr) {
        strError = strError.empty() ? "result " + std::to_string(nResult) : strError;
        return std::nullopt;
    }
    return PixelsOf(*loaded.surface, eKind);
}

// JPEG operations step over rows of a multiple of 4 bytes, BMP operations over packed ones.
bool EncodePicture(const Picture& picture, const std::string& strPath, PictureKind eKind) {
    const auto nRow = static_cast<std::size_t>(picture.nWidth) * kBytesPerPixel;
    const std::size_t nStep = eKind == PictureKind::kBmp ? nRow : (nRow + 3) / 4 * 4;
    const auto nRows = static_cast<std::size_t>(picture.nHeight);
    Bytes pixels(nStep * nRows);
    for (std::size_t i = 0; i < nRows; ++i) {
        std::memcpy(pixels.data() + (i * nStep), picture.pixels.data() + (i * nRow), nRow);
    }
    STnNLImageData image{};
    image.pData = pixels.data();
    image.nDataSize = static_cast<unsigned int>(pixels.size());
    image.nWidth = picture.nWidth;
    image.nHeight = picture.nHeight;
    image.eImageType = TN_IMAGE_BGR24;
    image.nBitsPerChannel = 8;
    image.nChannels = kBytesPerPixel;
    return TnRobotImageUtils::SaveImage(strPath.c_str(), &image) == 0;
}
