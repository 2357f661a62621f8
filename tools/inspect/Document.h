// A file that has been read and taken apart.

#ifndef TNROBOT_INSPECT_DOCUMENT_H_
#define TNROBOT_INSPECT_DOCUMENT_H_

#include <optional>
#include <stdexcept>
#include <string>
#include <variant>

#include "BmpFile.h"
#include "Bytes.h"
#include "Groups.h"
#include "JpegFile.h"
#include "Library.h"
#include "ObjectTables.h"

/// How files are read, as the command line says.
struct ReadOptions {
    std::string strKind;               ///< "group", "value", "archive", "bmp", "jpeg", or empty: by content
    std::size_t nMaxMemoryMiB = 1024;  ///< for the pixels of one picture, and for one file; both may have just as many
};

/// Why a file cannot be looked at at all.
class UnreadableError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Everything known about one file. What it refers to are bytes of its own, which a copy would leave.
struct Document {
    Document() = default;
    Document(Document&&) = default;
    Document& operator=(Document&&) = default;
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;
    ~Document() = default;

    std::string strPath;
    Bytes bytes;
    std::variant<GroupFile, ValueFile, ObjectTables, BmpFile, JpegFile> content;
    std::optional<Picture> picture;  ///< of a BMP or JPEG file that the library can load

    Problems& ProblemList();
    const Problems& ProblemList() const { return const_cast<Document*>(this)->ProblemList(); }
    bool IsDamaged() const { return ProblemList().IsDamaged(); }

    /// @return "value groups" and the like.
    std::string KindName() const;
};

/// Reads a file, takes it apart and lets the library load it.
/// Throws UnreadableError, which names the file, when the file cannot be read, is too large, or is of
/// no known kind, and when something outside the file is missing, memory for example.
Document ReadDocument(const std::string& strPath, const ReadOptions& options);

#endif  // TNROBOT_INSPECT_DOCUMENT_H_
