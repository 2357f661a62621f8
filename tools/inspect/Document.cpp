#include "Document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>
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
    explicit InputFile(const std::string& strPath) : m_nFile(Open(strPath)) {
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
    // Without O_NONBLOCK opening a pipe would wait for its writer; regular files do not care.
    static int Open(const std::string& strPath) {
        int nFile = -1;
        do {
            nFile = open(strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        } while (nFile < 0 && errno == EINTR);
        return nFile;
    }

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
    if (file.Size() > options.nMaxMemoryMiB * kMiB) {
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

// The library makes a surface as large as the picture claims to be, so that claim is looked at first.
void CheckMemory(std::int64_t nWidth, std::int64_t nHeight, const ReadOptions& options) {
    const std::int64_t nBytes = (3 * nWidth + 3) / 4 * 4 * nHeight;
    if (static_cast<std::uint64_t>(nBytes) > options.nMaxMemoryMiB * kMiB) {
        throw UnreadableError("a picture of " + std::to_string(nWidth) + " x " + std::to_string(nHeight) +
                              " pixels needs more than --max-memory, " + std::to_string(options.nMaxMemoryMiB) +
                              " MiB");
    }
}

bool BeginsWith(const std::string& strText, const char* lpszBeginning) {
    return strText.rfind(lpszBeginning, 0) == 0;
}

// libjpeg's messages for pictures that are as they should be, but nothing that it decodes.
bool SaysUnsupported(const std::string& strMessage) {
    return BeginsWith(strMessage, "Unsupported ") || BeginsWith(strMessage, "Sorry, ") ||
           BeginsWith(strMessage, "CCIR601 sampling not implemented") ||
           BeginsWith(strMessage, "Fractional sampling not implemented");
}

void NoteUnsupported(Problems& problems, const std::string& strWhat) {
    problems.Note(0, strWhat + " not supported by the library: only the segments were checked");
}

void TakePicture(JpegFile& jpeg, Decoded decoded, Document& document) {
    const std::string strUnsupported = Unsupported(jpeg);
    if (BeginsWith(decoded.strMessage, "Insufficient memory")) {
        throw UnreadableError("not enough memory to decode the picture");
    }
    if (!decoded.picture && !strUnsupported.empty() && SaysUnsupported(decoded.strMessage)) {
        NoteUnsupported(jpeg.problems, strUnsupported);
    } else if (!decoded.picture) {
        jpeg.problems.Damage(
            0, "the library does not decode the picture: " +
                   (decoded.strMessage.empty() ? "result " + std::to_string(decoded.nResult) : decoded.strMessage));
    } else if (!decoded.strMessage.empty()) {
        jpeg.problems.Damage(0, "the decoder says: " + decoded.strMessage);
    }
    document.picture = std::move(decoded.picture);
}

void TakeBmp(Document& document, const ReadOptions& options) {
    BmpFile bmp = ParseBmp(RangeOf(document.bytes));
    constexpr std::uint16_t kColourBits = 24;
    if (!bmp.problems.IsDamaged() && bmp.nBitsPerPixel == kColourBits) {
        CheckMemory(bmp.nWidth, bmp.nHeight, options);
        document.picture = PictureOf(bmp);
    } else if (!bmp.problems.IsDamaged()) {
        bmp.problems.Note(0, "the library writes files of " + std::to_string(bmp.nBitsPerPixel) +
                                 " bits per pixel, but loads only those of 24");
    }
    document.content = std::move(bmp);
}

void TakeJpeg(Document& document, const ReadOptions& options) {
    JpegFile jpeg = ParseJpeg(RangeOf(document.bytes));
    const bool bHasSize = jpeg.nWidth != 0 && jpeg.nHeight != 0;
    if (bHasSize && document.bytes.size() <= std::numeric_limits<unsigned int>::max()) {
        CheckMemory(jpeg.nWidth, jpeg.nHeight, options);
        TakePicture(jpeg, DecodeJpeg(RangeOf(document.bytes)), document);
    } else if (!Unsupported(jpeg).empty()) {
        NoteUnsupported(jpeg.problems, Unsupported(jpeg));
    }
    document.content = std::move(jpeg);
}

void TakeGroups(Document& document, GroupFile groups) {
    if (!groups.problems.IsDamaged()) {
        CompareWithLibrary(groups);
    }
    document.content = std::move(groups);
}

void TakeValue(Document& document) {
    ValueFile value = ParseValue(RangeOf(document.bytes));
    if (!value.problems.IsDamaged()) {
        CompareWithLibrary(RangeOf(document.bytes), value);
    }
    document.content = std::move(value);
}

void TakeTables(Document& document, ObjectTables tables) {
    if (!tables.problems.IsDamaged()) {
        CompareWithLibrary(RangeOf(document.bytes), tables);
    }
    document.content = std::move(tables);
}

// Groups, values and tables have no mark of their own: what can be read as one whole is one. Of damaged
// files, tables are told by readable class identifiers, values by a type and a size that fit together,
// groups by their version.
void TakeSaved(Document& document) {
    GroupFile groups = ParseGroups(RangeOf(document.bytes));
    if (!groups.problems.IsDamaged()) {
        TakeGroups(document, std::move(groups));
        return;
    }
    ObjectTables tables = ParseObjectTables(RangeOf(document.bytes));
    const bool bEmptyTables = document.bytes == Bytes(4, 0);
    if (tables.bLooksRight || bEmptyTables) {
        TakeTables(document, std::move(tables));
    } else if (LooksLikeValue(RangeOf(document.bytes))) {
        TakeValue(document);
    } else if (groups.bBegins) {
        TakeGroups(document, std::move(groups));
    } else {
        throw UnreadableError(
            "neither value groups, nor a value, nor an archive with a map header, nor BMP, nor JPEG; --kind says what "
            "it should be");
    }
}

bool Begins(const Bytes& bytes, unsigned char nFirst, unsigned char nSecond) {
    return bytes.size() >= 2 && bytes[0] == nFirst && bytes[1] == nSecond;
}

// @return the kind of a file that has a mark of its own, else nothing.
std::string MarkedKind(const Bytes& bytes) {
    if (Begins(bytes, 0xFF, 0xD8)) {
        return "jpeg";
    }
    return Begins(bytes, 'B', 'M') ? "bmp" : "";
}

void Take(Document& document, const ReadOptions& options) {
    const std::string strKind = options.strKind.empty() ? MarkedKind(document.bytes) : options.strKind;
    if (strKind == "group") {
        TakeGroups(document, ParseGroups(RangeOf(document.bytes)));
    } else if (strKind == "value") {
        TakeValue(document);
    } else if (strKind == "archive") {
        TakeTables(document, ParseObjectTables(RangeOf(document.bytes)));
    } else if (strKind == "bmp") {
        TakeBmp(document, options);
    } else if (strKind == "jpeg") {
        TakeJpeg(document, options);
    } else {
        TakeSaved(document);
    }
}

}  // namespace

Problems& Document::ProblemList() {
    return std::visit([](auto& known) -> Problems& { return known.problems; }, content);
}

std::string Document::KindName() const {
    constexpr const char* kNames[] = {"value groups", "value", "archive", "BMP picture", "JPEG picture"};
    return kNames[content.index()];
}

Document ReadDocument(const std::string& strPath, const ReadOptions& options) try {
    Document document;
    document.strPath = strPath;
    document.bytes = ReadBytes(strPath, options);
    if (document.bytes.empty()) {
        throw UnreadableError("empty");
    }
    Take(document, options);
    return document;
} catch (const std::bad_alloc&) {
    throw UnreadableError(strPath + ": not enough memory");
} catch (const std::exception& error) {
    throw UnreadableError(strPath + ": " + error.what());
}
