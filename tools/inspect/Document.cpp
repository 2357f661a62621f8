#include "Document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>
#include <utility>

#include "Terminal.h"

namespace {

constexpr std::size_t kMiB = std::size_t{1024} * 1024;
constexpr std::size_t kPiece = kMiB;
constexpr std::size_t kWorthShowing = 16 * kMiB;

/// An open file. Pipes and devices are refused: they have no end, or none that is known.
class InputFile {
public:
    // Without O_NONBLOCK opening a pipe would wait for its writer; regular files do not care.
    explicit InputFile(const std::string& strPath) : m_nFile(open(strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        struct stat status {};
        if (m_nFile < 0 || fstat(m_nFile, &status) != 0) {
            const std::string strReason = std::generic_category().message(errno);
            Close();
            throw UnreadableError(strReason);
        }
        if (!S_ISREG(status.st_mode)) {
            Close();
            throw UnreadableError("not a regular file");
        }
        m_nSize = static_cast<std::size_t>(status.st_size);
    }
    ~InputFile() { Close(); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    std::size_t Size() const { return m_nSize; }

    /// @return 0 at the end.
    std::size_t Read(unsigned char* pTarget, std::size_t nSize) const {
        ssize_t nRead = 0;
        do {
            nRead = read(m_nFile, pTarget, nSize);
        } while (nRead < 0 && errno == EINTR);
        if (nRead < 0) {
            throw UnreadableError(std::generic_category().message(errno));
        }
        return static_cast<std::size_t>(nRead);
    }

private:
    void Close() {
        if (m_nFile >= 0) {
            close(m_nFile);
            m_nFile = -1;
        }
    }

    int m_nFile;
    std::size_t m_nSize = 0;
};

Bytes ReadBytes(const std::string& strPath, const ReadOptions& options) {
    const InputFile file(strPath);
    if (file.Size() / kMiB >= options.nMaxMemoryMiB) {
        throw UnreadableError("larger than --max-memory, " + std::to_string(options.nMaxMemoryMiB) + " MiB");
    }
    Bytes bytes(file.Size());
    Progress progress("reading " + strPath, bytes.size(), kWorthShowing);
    std::size_t nDone = 0;
    while (nDone < bytes.size()) {
        const std::size_t nRead = file.Read(bytes.data() + nDone, std::min(kPiece, bytes.size() - nDone));
        if (nRead == 0) {
            break;  // it has become shorter meanwhile
        }
        nDone += nRead;
        progress.Show(nDone);
    }
    bytes.resize(nDone);
    return bytes;
}

bool BeginsWith(const Bytes& bytes, unsigned char nFirst, unsigned char nSecond) {
    return bytes.size() >= 2 && bytes[0] == nFirst && bytes[1] == nSecond;
}

// Groups and tables have no mark of their own: what can be read as one whole is one. Of damaged
// files, tables are told by readable class identifiers, groups by their version.
std::string Recognise(const Bytes& bytes) {
    if (BeginsWith(bytes, 0xFF, 0xD8)) {
        return "jpeg";
    }
    if (BeginsWith(bytes, 'B', 'M')) {
        return "bmp";
    }
    const GroupFile groups = ParseGroups(RangeOf(bytes));
    if (!groups.problems.IsDamaged()) {
        return "group";
    }
    const ObjectTables tables = ParseObjectTables(RangeOf(bytes));
    const bool bEmptyTables = bytes == Bytes(4, 0);
    if (tables.bLooksRight || bEmptyTables) {
        return "archive";
    }
    if (groups.bBegins) {
        return "group";
    }
    throw UnreadableError(
        "neither value groups, nor an archive with a map header, nor BMP, nor JPEG; --kind says what it should be");
}

// The surface is as large as the picture claims to be, so that claim is looked at first.
void Decode(Document& document, PictureKind eKind, std::int64_t nWidth, std::int64_t nHeight,
            const ReadOptions& options) {
    const std::int64_t nBytes = (3 * nWidth + 3) / 4 * 4 * nHeight;
    if (nBytes / static_cast<std::int64_t>(kMiB) >= static_cast<std::int64_t>(options.nMaxMemoryMiB)) {
        throw UnreadableError("a picture of " + std::to_string(nWidth) + " x " + std::to_string(nHeight) +
                              " pixels needs more than --max-memory, " + std::to_string(options.nMaxMemoryMiB) +
                              " MiB");
    }
    std::string strError;
    document.picture = DecodePicture(eKind, document.strPath, RangeOf(document.bytes), strError);
    if (!document.picture) {
        document.ProblemList().Damage(0, "the library does not decode the picture: " + strError);
    } else if (!strError.empty()) {
        document.ProblemList().Damage(0, "the decoder says: " + strError);
    }
}

void TakeBmp(Document& document, const ReadOptions& options) {
    BmpFile bmp = ParseBmp(RangeOf(document.bytes));
    constexpr std::uint16_t kColourBits = 24;
    const bool bDecode = !bmp.problems.IsDamaged() && bmp.nBitsPerPixel == kColourBits;
    if (!bmp.problems.IsDamaged() && !bDecode) {
        bmp.problems.Note(0, "the library writes files of " + std::to_string(bmp.nBitsPerPixel) +
                                 " bits per pixel, but loads only those of 24");
    }
    const std::int64_t nWidth = bmp.nWidth;
    const std::int64_t nHeight = bmp.nHeight;
    document.content = std::move(bmp);
    if (bDecode) {
        Decode(document, PictureKind::kBmp, nWidth, nHeight, options);
    }
}

void TakeJpeg(Document& document, const ReadOptions& options) {
    JpegFile jpeg = ParseJpeg(RangeOf(document.bytes));
    const std::int64_t nWidth = jpeg.nWidth;
    const std::int64_t nHeight = jpeg.nHeight;
    const bool bDecode =
        nWidth != 0 && nHeight != 0 && document.bytes.size() <= std::numeric_limits<unsigned int>::max();
    document.content = std::move(jpeg);
    if (bDecode) {
        Decode(document, PictureKind::kJpeg, nWidth, nHeight, options);
    }
}

template <typename Content>
void TakeSaved(Document& document, Content content) {
    if (!content.problems.IsDamaged()) {
        CompareWithLibrary(RangeOf(document.bytes), content);
    }
    document.content = std::move(content);
}

}  // namespace

Problems& Document::ProblemList() {
    return std::visit([](auto& known) -> Problems& { return known.problems; }, content);
}

std::string Document::KindName() const {
    constexpr const char* kNames[] = {"value groups", "archive", "BMP picture", "JPEG picture"};
    return kNames[content.index()];
}

Document ReadDocument(const std::string& strPath, const ReadOptions& options) try {
    Document document;
    document.strPath = strPath;
    document.bytes = ReadBytes(strPath, options);
    if (document.bytes.empty()) {
        throw UnreadableError("empty");
    }
    const std::string strKind = options.strKind.empty() ? Recognise(document.bytes) : options.strKind;
    if (strKind == "group") {
        TakeSaved(document, ParseGroups(RangeOf(document.bytes)));
    } else if (strKind == "archive") {
        TakeSaved(document, ParseObjectTables(RangeOf(document.bytes)));
    } else if (strKind == "bmp") {
        TakeBmp(document, options);
    } else {
        TakeJpeg(document, options);
    }
    return document;
} catch (const UnreadableError& error) {
    throw UnreadableError(strPath + ": " + error.what());
}
