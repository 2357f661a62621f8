#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <system_error>

#include "Commands.h"

namespace {

constexpr std::size_t kEnding = 4;

std::string EndingOf(const std::string& strPath) {
    std::string strEnding = strPath.size() > kEnding ? strPath.substr(strPath.size() - kEnding) : "";
    for (char& ch : strEnding) {
        ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    }
    return strEnding;
}

/// A file beside the one that is wanted, which it becomes when it is whole.
class NewFile {
public:
    NewFile(const std::string& strPath, const std::string& strEnding) {
        const std::filesystem::path directory = std::filesystem::path(strPath).parent_path();
        m_strPath = (directory / (".tnrobot-inspect.XXXXXX" + strEnding)).string();
        const int nFile = mkstemps(m_strPath.data(), static_cast<int>(strEnding.size()));
        if (nFile < 0) {
            throw UnreadableError("cannot be written: " + std::generic_category().message(errno));
        }
        // As any program would make a file, not as a private one.
        const mode_t nMask = umask(0);
        umask(nMask);
        constexpr mode_t kEverybody = 0666;
        fchmod(nFile, kEverybody & ~nMask);
        close(nFile);
    }
    ~NewFile() {
        if (!m_strPath.empty()) {
            unlink(m_strPath.c_str());
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    const std::string& Path() const { return m_strPath; }

    void Become(const std::string& strPath) {
        if (std::rename(m_strPath.c_str(), strPath.c_str()) != 0) {
            throw UnreadableError("cannot be written: " + std::generic_category().message(errno));
        }
        m_strPath.clear();
    }

private:
    std::string m_strPath;
};

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
               (eKind == PictureKind::kJpeg || written.picture->pixels == picture.pixels);
    } catch (const UnreadableError&) {
        return false;
    }
}

int Write(const Picture& picture, const std::string& strOutput) {
    const std::string strEnding = EndingOf(strOutput);
    const PictureKind eKind = strEnding == ".bmp" ? PictureKind::kBmp : PictureKind::kJpeg;
    try {
        NewFile file(strOutput, strEnding);
        if (!EncodePicture(picture, file.Path(), eKind) || !IsWhole(file.Path(), picture, eKind)) {
            Complain(strOutput + ": cannot be written");
            return kTrouble;
        }
        file.Become(strOutput);
        return kGood;
    } catch (const UnreadableError& error) {
        Complain(strOutput + ": " + error.what());
        return kTrouble;
    }
}

}  // namespace

int Convert(const std::string& strInput, const std::string& strOutput, bool bForce, const Common& common) {
    const std::string strEnding = EndingOf(strOutput);
    if (strEnding != ".jpg" && strEnding != ".bmp") {
        Complain(strOutput + ": must end in .jpg or .bmp, which says what it is to be");
        return kTrouble;
    }
    std::error_code ignored;
    if (!bForce && std::filesystem::exists(strOutput, ignored)) {
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
    return Write(*input.picture, strOutput);
}
