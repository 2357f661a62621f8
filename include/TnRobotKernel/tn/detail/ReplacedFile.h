/// @file
/// Writes a file beside the one that it replaces. Used by what saves files.

#ifndef TNROBOTKERNEL_TN_DETAIL_REPLACEDFILE_H_
#define TNROBOTKERNEL_TN_DETAIL_REPLACEDFILE_H_

#include <sys/random.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/tn/detail/SavedPath.h"
#include "TnRobotKernel/tn/detail/Uninterrupted.h"
#include "TnRobotKernel/tn/durability.h"

namespace tn::detail {

// A file that becomes visible whole or not at all.
//
// It is written under a name of its own in the directory of the one that it replaces, and renamed when
// all of it is on the disk, if that is waited for. Whoever reads beside it has the old file or the new one, also when
// the writer is killed; then alone the file with the other name is left behind.
//
// A file that exists gives its mode, its access list and, as far as the system permits it, its owner and
// group; until it has them the new one is for its writer only. A new file has what umask and directory
// say from the start.
//
// It stays its maker's: a child of fork may destroy its copy, which leaves the file alone.
class ReplacedFile {
public:
    ReplacedFile() = default;
    ReplacedFile(const ReplacedFile&) = delete;
    ReplacedFile& operator=(const ReplacedFile&) = delete;
    ~ReplacedFile() {
        const bool bMine = m_nProcess == getpid();
        if (!bMine) {
            static_cast<void>(m_file.detach());  // what it holds back is its maker's to write
        }
        if (m_nFile >= 0) {
            m_file.reset();
            close(m_nFile);
        }
        if (m_nFile >= 0 && bMine) {
            unlink(m_strName.c_str());
        }
        if (m_nDirectory >= 0) {
            close(m_nDirectory);
        }
    }

    // Finds the place and makes the file there, under a name with this ending.
    std::error_code Open(const char* lpszPath, const char* lpszEnding = ".tmp") {
        m_lpszEnding = lpszEnding;
        std::error_code reason = m_target.Find(lpszPath);
        if (!reason) {
            reason = OpenDirectory();
        }
        if (!reason) {
            reason = Create();
        }
        if (reason) {
            return reason;
        }
        // Neither a umask nor a directory's defaults may keep its own writer out.
        struct stat status = {};
        m_nMode = fstat(m_nFile, &status) == 0 ? status.st_mode : kOwnerOnly;
        if (m_target.Exists() || (m_nMode & kOwnerOnly) != kOwnerOnly) {
            fchmod(m_nFile, kOwnerOnly);
        }
        TnCreateRobotFile(m_file.put());
        errno = 0;
        return m_file->Open(m_strName.c_str(), true) ? std::error_code() : WriteError();
    }

    // The open file, borrowed.
    ITnRobotFile& File() const { return *m_file; }

    // Its name until Commit, for what writes by name.
    const std::string& Name() const { return m_strName; }

    // Looks whether somebody has written so many bytes by name; where not, the system says why when it is
    // asked for the missing ones.
    std::error_code CheckLength(std::int64_t nBytes) const {
        struct stat status = {};
        if (fstat(m_nFile, &status) != 0) {
            return SystemError();
        }
        return status.st_size == nBytes ? std::error_code() : WhyShort(status.st_size, nBytes);
    }

    // The same for a file whose length nobody knows, but its last bytes.
    std::error_code CheckEnd(const char* lpszEnd, std::size_t nBytes) const {
        constexpr std::int64_t kMore = std::int64_t{1} << 20U;
        struct stat status = {};
        std::string strLast(nBytes, '\0');
        if (fstat(m_nFile, &status) != 0) {
            return SystemError();
        }
        const auto nAsked = static_cast<ssize_t>(nBytes);
        const bool bRead =
            Uninterrupted([&] { return pread(m_nFile, strLast.data(), nBytes, status.st_size - nAsked); }) == nAsked;
        return bRead && strLast.compare(0, nBytes, lpszEnd, nBytes) == 0
                   ? std::error_code()
                   : WhyShort(status.st_size, status.st_size + kMore);
    }

    // Puts the file in its place. Whatever fails before that leaves the old one; where only the directory
    // cannot be synchronised, the new one is there.
    std::error_code Commit(Durability eDurability = Durability::kSynced) {
        const bool bSync = eDurability != Durability::kFlushed;
        errno = 0;
        m_file->Flush();
        if (m_file->GetPos() == -1) {
            return WriteError();
        }
        m_file->Close();
        std::error_code reason = TakeOverRights();
        if (reason || (bSync && Sync(m_nFile) != 0) || rename(m_strName.c_str(), m_target.Path().c_str()) != 0) {
            return reason ? reason : SystemError();
        }
        close(m_nFile);
        m_nFile = -1;
        return bSync ? SyncDirectory() : std::error_code();
    }

    // Why the last write failed, as far as the system has said it.
    static std::error_code WriteError() noexcept {
        return errno != 0 ? SystemError() : std::make_error_code(std::errc::io_error);
    }

private:
    std::error_code WhyShort(std::int64_t nHas, std::int64_t nBytes) const {
        const std::vector<char> zeros(std::size_t{64} << 10U);
        for (std::int64_t nDone = nHas; nDone < nBytes;) {
            const ssize_t nWritten = Uninterrupted([&] { return pwrite(m_nFile, zeros.data(), zeros.size(), nDone); });
            if (nWritten <= 0) {
                return SystemError();
            }
            nDone += nWritten;
        }
        return std::make_error_code(std::errc::io_error);
    }

    static constexpr mode_t kOwnerOnly = 0600;
    static constexpr mode_t kAnybody = 0666;  // less what umask takes away
    static constexpr mode_t kModeBits = 07777;

    std::error_code Create() {
        constexpr int kMostTries = 100;
        const mode_t nMode = m_target.Exists() ? kOwnerOnly : kAnybody;
        bool bNamed = true;
        for (int nTries = 0; nTries < kMostTries; ++nTries) {
            m_strName = OtherName(bNamed);
            m_nFile =
                Uninterrupted([&] { return open(m_strName.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, nMode); });
            const bool bTooLong = bNamed && m_nFile < 0 && errno == ENAMETOOLONG;
            bNamed = bNamed && !bTooLong;
            if (m_nFile >= 0 || (errno != EEXIST && !bTooLong)) {
                break;
            }
        }
        return m_nFile >= 0 ? std::error_code() : SystemError();
    }

    // Hidden, with the file's own name in it if wanted and short enough, and never met twice. Some file
    // systems take shorter names than others, and the whole path has a limit too.
    std::string OtherName(bool bNamed) const {
        constexpr std::size_t kLongest = 200;
        const std::string strDirectory = DirectoryOf(m_target.Path());
        const std::string strName = m_target.Path().substr(strDirectory.size());
        std::uint64_t nRandom = 0;
        if (getrandom(&nRandom, sizeof(nRandom), GRND_NONBLOCK) != static_cast<ssize_t>(sizeof(nRandom))) {
            timespec now = {};
            clock_gettime(CLOCK_MONOTONIC, &now);
            nRandom = static_cast<std::uint64_t>(now.tv_nsec) << 32U ^ reinterpret_cast<std::uintptr_t>(this) ^
                      static_cast<std::uint64_t>(getpid());
        }
        char suffix[32];
        std::snprintf(suffix, sizeof(suffix), ".%016llx%.4s", static_cast<unsigned long long>(nRandom), m_lpszEnding);
        return strDirectory + "." + (bNamed && strName.size() <= kLongest ? strName : "saved") + suffix;
    }

    // The owner goes first, because a change of owner takes mode bits away.
    std::error_code TakeOverRights() {
        const mode_t nMode = m_target.Exists() ? TakeOverOwner() : m_nMode;
        struct stat status = {};
        const bool bHasMode = fstat(m_nFile, &status) == 0 && ((status.st_mode ^ nMode) & kModeBits) == 0;
        return bHasMode || fchmod(m_nFile, nMode & kModeBits) == 0 ? std::error_code() : SystemError();
    }

    // @return the mode of the old file, without the rights that would pass to somebody else because an
    // owner or a group could not be kept: a group then has what all others have.
    mode_t TakeOverOwner() const {
        const struct stat& old = m_target.Status();
        struct stat now = StatusNow();
        if ((now.st_uid != old.st_uid || now.st_gid != old.st_gid) && fchown(m_nFile, old.st_uid, old.st_gid) != 0 &&
            fchown(m_nFile, static_cast<uid_t>(-1), old.st_gid) != 0) {
            errno = 0;  // what is not permitted is looked at now
        }
        now = StatusNow();
        mode_t nMode = old.st_mode;
        if (now.st_uid != old.st_uid) {
            nMode &= ~mode_t{S_ISUID};
        }
        if (now.st_gid != old.st_gid) {
            nMode &= ~mode_t{S_ISGID};
        }
        if (!TakeOverAccessList(now.st_gid == old.st_gid)) {
            nMode &= ~mode_t{S_IRWXG} | (nMode & S_IRWXO) << 3U;
        }
        return nMode;
    }

    // Where the system does not say whose the new file is, it is nobody's.
    struct stat StatusNow() const {
        struct stat now = {};
        if (fstat(m_nFile, &now) != 0) {
            now.st_uid = static_cast<uid_t>(-1);
            now.st_gid = static_cast<gid_t>(-1);
        }
        return now;
    }

    // A file with an access list shows as its group's rights the most that anybody in the list has. What
    // the directory has given to a new file is not the old one's. One that cannot be read may be there.
    // @return whether the group's rights of the old mode may be the group's.
    bool TakeOverAccessList(bool bHasGroup) const {
        constexpr char kList[] = "system.posix_acl_access";
        const ssize_t nList = getxattr(m_target.Path().c_str(), kList, nullptr, 0);
        std::vector<char> list(nList > 0 ? static_cast<std::size_t>(nList) : 0);
        if (list.empty() || !bHasGroup) {
            const bool bNone = nList >= 0 || HasNone();
            const bool bDropped = fremovexattr(m_nFile, kList) == 0 || HasNone();
            return bHasGroup && bNone && bDropped;
        }
        return getxattr(m_target.Path().c_str(), kList, list.data(), list.size()) == nList &&
               fsetxattr(m_nFile, kList, list.data(), list.size(), 0) == 0;
    }

    // After an access list could not be had.
    static bool HasNone() { return errno == ENODATA || errno == ENOTSUP; }

    // A directory that cannot be opened for reading has nothing better than the rename.
    std::error_code OpenDirectory() {
        const std::string strDirectory = DirectoryOf(m_target.Path());
        m_nDirectory = Uninterrupted([&] {
            return open(strDirectory.empty() ? "." : strDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        });
        return m_nDirectory >= 0 || errno == EACCES ? std::error_code() : SystemError();
    }

    static int Sync(int nDescriptor) {
        return Uninterrupted([nDescriptor] { return fsync(nDescriptor); });
    }

    // Only then has the new name reached the disk; some file systems do not know such a thing.
    std::error_code SyncDirectory() const {
        const bool bOk = m_nDirectory < 0 || Sync(m_nDirectory) == 0 || errno == EINVAL || errno == ENOTSUP;
        return bOk ? std::error_code() : SystemError();
    }

    SavedPath m_target;
    std::string m_strName;  // under which it is written
    const char* m_lpszEnding = ".tmp";
    const pid_t m_nProcess = getpid();  // that makes it
    int m_nFile = -1;                   // of the same file; below 0 before it is made and when it is in its place
    int m_nDirectory = -1;              // that the file is in; below 0 where it cannot be opened
    mode_t m_nMode = 0;                 // that a new file was made with
    TnRobotPtr<ITnRobotFile> m_file;
};

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_REPLACEDFILE_H_
