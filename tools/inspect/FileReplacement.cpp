#include "FileReplacement.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(int nError) {
    throw ReplacementError(std::generic_category().message(nError));
}

// What a chain of links ends in, which need not be there.
std::string Resolved(const std::string& strPath) {
    constexpr int kMostLinks = 40;
    fs::path path = strPath;
    for (int i = 0; i < kMostLinks; ++i) {
        std::error_code notALink;
        const fs::path link = fs::read_symlink(path, notALink);
        if (notALink) {
            return path.string();
        }
        path = link.is_absolute() ? link : path.parent_path() / link;
    }
    Fail(ELOOP);
}

std::string TargetOf(const std::string& strPath, FileReplacement::Existing eExisting) {
    struct stat status {};
    if (eExisting == FileReplacement::Existing::kReplaced) {
        return Resolved(strPath);
    }
    if (lstat(strPath.c_str(), &status) == 0) {
        Fail(EEXIST);
    }
    return strPath;
}

std::optional<struct stat> OldFile(const std::string& strTarget) {
    struct stat status {};
    if (stat(strTarget.c_str(), &status) != 0) {
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        throw ReplacementError("not a regular file");
    }
    return status;
}

std::string DirectoryOf(const std::string& strTarget) {
    const fs::path directory = fs::path(strTarget).parent_path();
    return directory.empty() ? "." : directory.string();
}

std::string TemplateFor(const std::string& strTarget) {
    return (fs::path(strTarget).parent_path() / ".tnrobot-inspect.XXXXXX").string();
}

// As any program would make a file, not as a private one.
mode_t UsualMode() {
    constexpr mode_t kEverybody = 0666;
    const mode_t nMask = umask(0);
    umask(nMask);
    return kEverybody & ~nMask;
}

void TakeOver(int nFile, const std::optional<struct stat>& old) {
    constexpr mode_t kModeBits = 07777;
    // A change of the owner drops some mode bits, so it comes first; it is often not permitted.
    if (old && fchown(nFile, old->st_uid, old->st_gid) != 0 && errno != EPERM) {
        Fail(errno);
    }
    if (fchmod(nFile, old ? old->st_mode & kModeBits : UsualMode()) != 0) {
        Fail(errno);
    }
}

// A signal that interrupts it is no failure.
bool Sync(int nFile) {
    int nResult = -1;
    do {
        nResult = fsync(nFile);
    } while (nResult != 0 && errno == EINTR);
    return nResult == 0;
}

// The file is in its place already: a file system that cannot do this is no reason to fail.
void SyncDirectory(const std::string& strDirectory) {
    const int nDirectory = open(strDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (nDirectory >= 0) {
        Sync(nDirectory);
        close(nDirectory);
    }
}

}  // namespace

FileReplacement::FileReplacement(const std::string& strPath, const std::string& strEnding, Existing eExisting)
    : m_eExisting(eExisting),
      m_strTarget(TargetOf(strPath, eExisting)),
      m_old(OldFile(m_strTarget)),
      m_temporary(TemplateFor(m_strTarget), strEnding) {
    if (m_temporary.Descriptor() < 0) {
        Fail(m_temporary.Error());
    }
}

void FileReplacement::Commit() {
    TakeOver(m_temporary.Descriptor(), m_old);
    if (!Sync(m_temporary.Descriptor())) {
        Fail(errno);
    }
    Rename();
    SyncDirectory(DirectoryOf(m_strTarget));
}

// A file that has appeared meanwhile is not replaced, either; where the file system cannot promise
// that, it is looked at once more.
void FileReplacement::Rename() {
    const BlockedSignals blocked;
    const char* lpszFrom = m_temporary.Path().c_str();
    const char* lpszTo = m_strTarget.c_str();
    const bool bRefuse = m_eExisting == Existing::kRefused;
    int nResult = renameat2(AT_FDCWD, lpszFrom, AT_FDCWD, lpszTo, bRefuse ? RENAME_NOREPLACE : 0);
    if (nResult != 0 && bRefuse && (errno == EINVAL || errno == ENOSYS)) {
        TargetOf(m_strTarget, m_eExisting);
        nResult = std::rename(lpszFrom, lpszTo);
    }
    if (nResult != 0) {
        Fail(errno);
    }
    m_temporary.Keep();
}
