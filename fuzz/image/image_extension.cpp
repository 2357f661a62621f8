// Saves to and loads from files of any name: the last four characters choose the format.

#include <array>
#include <cctype>

#include "FuzzBudget.h"
#include "image/PictureFile.h"
#include "image/PicturePools.h"
#include "support/bytes/BmpBytes.h"

using namespace tnfuzz;

namespace {

constexpr std::size_t kLongestName = 40;
constexpr int kWidth = 4;
constexpr int kHeight = 2;
constexpr std::size_t kPixels = 8;

enum class Kind { kTooShort, kOther, kJpeg, kBmp };

Kind KindOf(const std::string& strPath) {
    if (strPath.size() < 4) {
        return Kind::kTooShort;
    }
    std::string strEnd = strPath.substr(strPath.size() - 4);
    for (char& ch : strEnd) {
        ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    }
    return strEnd == ".jpg" ? Kind::kJpeg : strEnd == ".bmp" ? Kind::kBmp : Kind::kOther;
}

// Files stay inside their directory.
std::string FileName(FuzzInput& input) {
    std::string strName = input.Text(kLongestName);
    std::replace(strName.begin(), strName.end(), '/', '_');
    return strName == "." || strName == ".." ? std::string("_") : strName;
}

Bytes ReadWholeFile(const std::string& strPath) {
    Bytes bytes(4096);
    const int nFile = open(strPath.c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t nRead = nFile >= 0 ? read(nFile, bytes.data(), bytes.size()) : 0;
    if (nFile >= 0) {
        close(nFile);
    }
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(nRead, 0)));
    return bytes;
}

void CheckSaving(const std::string& strPath, Kind eKind) {
    std::array<unsigned char, kPixels> pixels = {1, 50, 100, 150, 200, 250, 3, 9};
    STnNLImageData image = {};
    image.pData = pixels.data();
    image.nDataSize = static_cast<unsigned int>(pixels.size());
    image.nWidth = kWidth;
    image.nHeight = kHeight;
    image.eImageType = TN_IMAGE_GRAY8;
    image.nBitsPerChannel = 8;
    image.nChannels = 1;
    const bool bWasThere = access(strPath.c_str(), F_OK) == 0;  // a short name may be one of the current directory
    const int nResult = TnRobotImageUtils::SaveImage(strPath.c_str(), &image);
    Require(nResult == (eKind == Kind::kTooShort ? -1 : 0), "only a path that is too short is refused");
    const Bytes saved = ReadWholeFile(strPath);
    switch (eKind) {
        case Kind::kJpeg:
            Require(saved.size() > 4 && saved[0] == 0xFF && saved[1] == 0xD8, "this ending makes a JPEG");
            break;
        case Kind::kBmp:
            Require(saved.size() == 54 + 1024 + 8 && saved[0] == 'B' && saved[1] == 'M', "this ending makes a BMP");
            break;
        default:
            Require((access(strPath.c_str(), F_OK) == 0) == bWasThere, "any other ending makes no file");
    }
}

// What was saved, and then a colour BMP, are there under this name.
void CheckLoading(const std::string& strPath, Kind eKind) {
    const PicturePools pools;
    ITnRobotSurface* pSurface = nullptr;
    int nResult = TnRobotImageUtils::LoadImage(strPath.c_str(), pools.Surfaces(), &pSurface);
    Require(nResult == (eKind == Kind::kJpeg ? 0 : eKind == Kind::kBmp ? -2 : -1), "grey is read from a JPEG only");
    Surface surface(pSurface, tn::kAdopt);
    Require(!surface || Description(*surface).nWidth == kWidth, "as wide as it was saved");
    if (eKind != Kind::kJpeg && eKind != Kind::kBmp) {
        return;
    }
    const Bytes colour = tntest::BmpFile24(kWidth, kHeight, Bytes(3 * kPixels, 7));
    WriteWholeFile(strPath, colour.data(), colour.size());
    pSurface = nullptr;
    nResult = TnRobotImageUtils::LoadImage(strPath.c_str(), pools.Surfaces(), &pSurface);
    surface.attach(pSurface);
    Require(nResult == (eKind == Kind::kBmp ? 0 : -1), "a BMP is read under its own ending only");
    Require(!surface || Pixels(*surface) == Bytes(3 * kPixels, 7), "with its pixels");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    static const ScratchDirectory s_directory;
    FuzzInput input(pData, nSize);
    const std::string strName = FileName(input);
    // Names that are too short are taken as they are: nothing is made of them.
    const std::string strPath = strName.size() < 4 ? strName : s_directory.Path(strName);
    const Kind eKind = KindOf(strPath);
    const FuzzBudget budget(nSize, PictureLimits(16, 1024));
    CheckSaving(strPath, eKind);
    CheckLoading(strPath, eKind);
    unlink(eKind == Kind::kJpeg || eKind == Kind::kBmp ? strPath.c_str() : "");
    return 0;
}
