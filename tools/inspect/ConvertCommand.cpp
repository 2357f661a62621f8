#include <sys/stat.h>

#include <cctype>
#include <limits>
#include <new>

#include "Commands.h"
#include "FileReplacement.h"

namespace {

constexpr std::size_t kEnding = 4;

std::string EndingOf(const std::string& strPath) {
    std::string strEnding = strPath.size() > kEnding ? strPath.substr(strPath.size() - kEnding) : "";
    for (char& ch : strEnding) {
        ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    }
    return strEnding;
}

// A link that leads nowhere is there, too.
bool IsThere(const std::string& strPath) {
    struct stat status {};
    return lstat(strPath.c_str(), &status) == 0;
}

bool SamePixels(const Picture& a, const Picture& b) {
    bool bSame = true;
    for (int i = 0; bSame && i < a.nHeight; ++i) {
        bSame = a.Row(i) == b.Row(i);
    }
    return bSame;
}

// The library does not say whether a file was written whole, so it is read again. A BMP file holds
// every pixel as it was.
bool IsWhole(const std::string& strPath, const Picture& picture, PictureKind eKind) {
    ReadOptions options;
    options.strKind = eKind == PictureKind::kBmp ? "bmp" : "jpeg";
    options.nMaxMemoryMiB = std::numeric_limits<unsigned int>::max();
    try {
        const Document written = ReadDocument(strPath, options);
        const bool bSameSize =
            written.picture && written.picture->nWidth == picture.nWidth && written.picture->nHeight == picture.nHeight;
        return !written.IsDamaged() && bSameSize &&
               (eKind == PictureKind::kJpeg || SamePixels(*written.picture, picture));
    } catch (const UnreadableError&) {
        return false;
    }
}

void Write(const Picture& picture, const std::string& strOutput, FileReplacement::Existing eExisting) {
    const std::string strEnding = EndingOf(strOutput);
    const PictureKind eKind = strEnding == ".bmp" ? PictureKind::kBmp : PictureKind::kJpeg;
    FileReplacement file(strOutput, strEnding, eExisting);
    std::string strMessage;
    if (!EncodePicture(picture, file.TemporaryPath(), eKind, strMessage)) {
        throw ReplacementError(strMessage.empty() ? "the library does not encode the picture" : strMessage);
    }
    if (!IsWhole(file.TemporaryPath(), picture, eKind)) {
        throw ReplacementError("it does not come out whole");
    }
    file.Commit();
}

int WriteOrComplain(const Picture& picture, const std::string& strOutput, bool bForce) {
    using Existing = FileReplacement::Existing;
    try {
        Write(picture, strOutput, bForce ? Existing::kReplaced : Existing::kRefused);
        return kGood;
    } catch (const ReplacementError& error) {
        Complain(strOutput + ": cannot be written: " + error.what());
    } catch (const std::bad_alloc&) {
        Complain(strOutput + ": cannot be written: not enough memory");
    }
    return kTrouble;
}

}  // namespace

int Convert(const std::string& strInput, const std::string& strOutput, bool bForce, const Common& common) {
    const std::string strEnding = EndingOf(strOutput);
    if (strEnding != ".jpg" && strEnding != ".bmp") {
        Complain(strOutput + ": must end in .jpg or .bmp, which says what it is to be");
        return kTrouble;
    }
    if (!bForce && IsThere(strOutput)) {
        Complain(strOutput + ": is there already; --force replaces it");
        return kTrouble;
    }
    const Document input = ReadDocument(strInput, common.reading);
    for (const Problem& problem : input.ProblemList().All()) {
        Complain(strInput + ": " + problem.strText);
    }
    if (input.IsDamaged()) {
        return kDiffers;
    }
    if (!input.picture) {
        Complain(strInput + ": is no picture that the library loads");
        return kTrouble;
    }
    return WriteOrComplain(*input.picture, strOutput, bForce);
}
