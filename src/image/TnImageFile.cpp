#include "image/TnImageFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace tnrobot {

// Without O_NONBLOCK opening a pipe would wait for its writer; regular files do not care.
ImageFile::ImageFile(const char* lpszPath)
    : m_nFile(lpszPath != nullptr ? open(lpszPath, O_RDONLY | O_CLOEXEC | O_NONBLOCK) : -1) {
    struct stat status {};
    if (m_nFile < 0) {
        return;
    }
    if (fstat(m_nFile, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(m_nFile);
        m_nFile = -1;
        return;
    }
    m_nLength = status.st_size;
}

ImageFile::~ImageFile() {
    if (m_nFile >= 0) {
        close(m_nFile);
    }
}

bool ImageFile::ReadAt(std::int64_t nOffset, void* pBuffer, std::size_t nSize) const {
    auto* pNext = static_cast<unsigned char*>(pBuffer);
    while (nSize > 0) {
        const ssize_t nRead = pread(m_nFile, pNext, nSize, nOffset);
        if (nRead < 0 && errno == EINTR) {
            continue;
        }
        if (nRead <= 0) {
            return false;
        }
        pNext += nRead;
        nOffset += nRead;
        nSize -= static_cast<std::size_t>(nRead);
    }
    return true;
}

}  // namespace tnrobot
