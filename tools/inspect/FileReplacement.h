// Puts a new file in the place of an old one, or of none, in one step.

#ifndef TNROBOT_INSPECT_FILEREPLACEMENT_H_
#define TNROBOT_INSPECT_FILEREPLACEMENT_H_

#include <sys/stat.h>

#include <optional>
#include <stdexcept>
#include <string>

#include "TemporaryFile.h"

/// Why a file cannot be put into its place, as the system says it.
class ReplacementError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A file that appears whole or not at all. It is written under another name in the same directory
/// and takes its place by a rename, so a program that reads the old file meanwhile reads it whole.
///
/// Where a symbolic link stands, it stays and what it points to is replaced. What is no regular file
/// is refused and not touched. The old file's mode bits stay, and its owner where that is permitted.
class FileReplacement {
public:
    enum class Existing { kRefused, kReplaced };

    /// Throws ReplacementError.
    /// @param[in] strEnding  of the temporary file's name.
    FileReplacement(const std::string& strPath, const std::string& strEnding, Existing eExisting);

    /// Where the content is to be written, by the name.
    const std::string& TemporaryPath() const { return m_temporary.Path(); }

    /// Sees to it that the content is on the disk, and gives the file its place. Throws
    /// ReplacementError, with everything as it was.
    void Commit();

private:
    void Rename();

    Existing m_eExisting;
    std::string m_strTarget;
    std::optional<struct stat> m_old;
    TemporaryFile m_temporary;
};

#endif  // TNROBOT_INSPECT_FILEREPLACEMENT_H_
