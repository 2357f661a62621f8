// Pictures through the library: decoded as B, G, R, encoded as either kind of file.

#include <TnRobotKernel/make.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <utility>

#include "Library.h"

namespace {

/// Takes what libjpeg prints, so that it can be said of which file it was said.
class CapturedErrors {
public:
    CapturedErrors() : m_nKept(dup(STDERR_FILENO)), m_nText(memfd_create("errors", MFD_CLOEXEC)) {
        std::fflush(stderr);
        if (m_nKept >= 0 && m_nText >= 0) {
            dup2(m_nText, STDERR_FILENO);
        }
    }
    CapturedErrors(const CapturedErrors&) = delete;
    CapturedErrors& operator=(const CapturedErrors&) = delete;
    ~CapturedErrors() { End(); }

    /// Ends the capture. @return the first line.
    std::string End() {
        std::fflush(stderr);
        char text[256] = {};
        const ssize_t nRead = m_nText >= 0 ? pread(m_nText, text, sizeof(text), 0) : 0;
        if (m_nKept >= 0) {
            dup2(m_nKept, STDERR_FILENO);
        }
        Close(m_nKept);
        Close(m_nText);
        const std::string strText(text, nRead > 0 ? static_cast<std::size_t>(nRead) : 0);
        return strText.substr(0, strText.find('\n'));
    }

private:
    static void Close(int& nFile) {
        if (nFile >= 0) {
            close(std::exchange(nFile, -1));
        }
    }

    int m_nKept;
    int m_nText;
};

/// A surface and the pools that it comes from, which keep its pixels alive.
struct LoadedSurface {
    LoadedSurface() = default;
    LoadedSurface(const LoadedSurface&) = delete;
    LoadedSurface& operator=(const LoadedSurface&) = delete;
    ~LoadedSurface() = default;

    TnRobotPtr<ITnRobotMemoryBlockPool> blocks = tn::MakeMemoryBlockPool();
    TnRobotPtr<ITnRobotSurfacePool> surfaces = tn::MakeSurfacePool(blocks.get());
    TnRobotPtr<ITnRobotSurface> surface;
    std::optional<tn::LockedPixels> pixels;
};

std::optional<Picture> PictureOf(const std::shared_ptr<LoadedSurface>& loaded) {
    const tn::LockedPixels& pixels = loaded->pixels.emplace(loaded->surface);
    if (!pixels) {
        return std::nullopt;
    }
    Picture picture;
    picture.nWidth = pixels.Width();
    picture.nHeight = pixels.Height();
    picture.pTop = pixels.Row(0);
    picture.nStep = static_cast<std::ptrdiff_t>(pixels.Pitch());
    picture.owner = loaded;
    return picture;
}

// JPEG operations step over rows of a multiple of 4 bytes, BMP operations over packed ones.
Bytes RowsFor(PictureKind eKind, const Picture& picture) {
    const std::size_t nRow = picture.Row(0).nSize;
    const std::size_t nStep = eKind == PictureKind::kBmp ? nRow : (nRow + 3) / 4 * 4;
    Bytes pixels(nStep * static_cast<std::size_t>(picture.nHeight));
    for (int i = 0; i < picture.nHeight; ++i) {
        std::memcpy(pixels.data() + (static_cast<std::size_t>(i) * nStep), picture.Row(i).pData, nRow);
    }
    return pixels;
}

}  // namespace

// Not by tn::LoadImage: a failure is reported with its number.
Decoded DecodeJpeg(ByteRange file) {
    Decoded decoded;
    const auto loaded = std::make_shared<LoadedSurface>();
    CapturedErrors errors;
    decoded.nResult = TnRobotImageUtils::LoadImage(file.pData, static_cast<unsigned int>(file.nSize),
                                                   loaded->surfaces.get(), loaded->surface.put());
    decoded.strMessage = errors.End();
    decoded.picture = PictureOf(loaded);
    return decoded;
}

bool EncodePicture(const Picture& picture, const std::string& strPath, PictureKind eKind, std::string& strMessage) {
    constexpr int kBitsPerChannel = 8;
    Bytes pixels = RowsFor(eKind, picture);
    if (pixels.size() > std::numeric_limits<unsigned int>::max()) {
        strMessage = "its pixels are 4 GiB or more";
        return false;
    }
    STnNLImageData image{};
    image.pData = pixels.data();
    image.nDataSize = static_cast<unsigned int>(pixels.size());
    image.nWidth = picture.nWidth;
    image.nHeight = picture.nHeight;
    image.eImageType = TN_IMAGE_BGR24;
    image.nBitsPerChannel = kBitsPerChannel;
    image.nChannels = kBytesPerPixel;
    CapturedErrors errors;
    const bool bTaken = TnRobotImageUtils::SaveImage(strPath.c_str(), &image) == 0;
    strMessage = errors.End();
    return bTaken;
}
