/// @file
/// Where a saved file goes, and whether it may go there. Used by tn/detail/ReplacedFile.h.

#ifndef TNROBOTKERNEL_TN_DETAIL_SAVEDPATH_H_
#define TNROBOTKERNEL_TN_DETAIL_SAVEDPATH_H_

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <string>

#include "TnRobotKernel/tn/error.h"

namespace tn::detail {

// The directory of a path, with the slash at its end; empty for the current one.
inline std::string DirectoryOf(const std::string& strPath) {
    return strPath.substr(0, strPath.rfind('/') + 1);
}

// A path that can be read from at once: a FIFO would wait for its writer.
inline std::error_code CheckReadable(const char* lpszPath) {
    struct stat status = {};
    if (stat(lpszPath, &status) != 0) {
        return SystemError();
    }
    if (S_ISDIR(status.st_mode)) {
        return std::make_error_code(std::errc::is_a_directory);
    }
    return S_ISREG(status.st_mode) ? std::error_code() : errc::not_a_regular_file;
}

// The file that a path leads to, whether it exists or not.
class SavedPath {
public:
    // Follows links and looks at what is there. Nothing is opened.
    std::error_code Find(const char* lpszPath) {
        if (lpszPath == nullptr) {
            return std::make_error_code(std::errc::invalid_argument);
        }
        m_strPath = lpszPath;
        // The kernel follows links that have no text, such as those of /proc, so it is asked first.
        const std::error_code reason = Look(stat(lpszPath, &m_status));
        if (reason) {
            return reason;
        }
        const bool bThere = m_bExists;
        if (bThere && faccessat(AT_FDCWD, lpszPath, W_OK, AT_EACCESS) != 0) {
            return SystemError();
        }
        const std::error_code followed = FollowLinks();
        if (!followed && bThere && !m_bExists) {
            return std::make_error_code(std::errc::no_such_file_or_directory);
        }
        return followed;
    }

    const std::string& Path() const { return m_strPath; }
    bool Exists() const { return m_bExists; }
    // Of what exists.
    const struct stat& Status() const { return m_status; }

private:
    // Takes the result of a stat: nothing there is no failure, but a place for a new file.
    std::error_code Look(int nResult) {
        m_bExists = nResult == 0;
        if (!m_bExists) {
            return errno == ENOENT && !m_strPath.empty() && m_strPath.back() != '/' ? std::error_code() : SystemError();
        }
        if (S_ISDIR(m_status.st_mode)) {
            return std::make_error_code(std::errc::is_a_directory);
        }
        const bool bMayBe = S_ISREG(m_status.st_mode) || S_ISLNK(m_status.st_mode);
        return bMayBe ? std::error_code() : errc::not_a_regular_file;
    }

    // A link stays, and what it leads to is replaced, or made where it is missing. A relative link
    // counts from the directory that the link is in.
    std::error_code FollowLinks() {
        constexpr int kMostLinks = 40;  // as the kernel's own limit
        for (int nLinks = 0; nLinks <= kMostLinks; ++nLinks) {
            const std::error_code reason = Look(lstat(m_strPath.c_str(), &m_status));
            if (reason || !m_bExists || !S_ISLNK(m_status.st_mode)) {
                return reason;
            }
            char target[PATH_MAX];
            const ssize_t nLength = readlink(m_strPath.c_str(), target, sizeof(target));
            if (nLength < 0) {
                return SystemError();
            }
            const std::string strTarget(target, static_cast<std::size_t>(nLength));
            m_strPath = (strTarget.front() == '/' ? "" : DirectoryOf(m_strPath)) + strTarget;
        }
        return std::make_error_code(std::errc::too_many_symbolic_link_levels);
    }

    std::string m_strPath;
    bool m_bExists = false;
    struct stat m_status = {};
};

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_SAVEDPATH_H_
