// Regular files only, read by position. Rows in reverse order go to their places with one system call for
// many of them.

#include "image/TnImageFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace tnrobot {

namespace {

// Without O_NONBLOCK opening a pipe would wait for its writer; regular files do not care. A signal that
// interrupts the opening, as on a file system of another machine, is no failure.
int OpenToRead(const char* lpszPath) {
    int nFile = -1;
    do {
        nFile = open(lpszPath, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    } while (nFile < 0 && errno == EINTR);
    return nFile;
}

}  // namespace

ImageFile::ImageFile(const char* lpszPath) : m_nFile(lpszPath != nullptr ? OpenToRead(lpszPath) : -1) {
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

ImageFile::ImageFile(ImageFile&& other) noexcept
    : m_nFile(std::exchange(other.m_nFile, -1)), m_nLength(std::exchange(other.m_nLength, 0)) {}

ImageFile& ImageFile::operator=(ImageFile&& other) noexcept {
    std::swap(m_nFile, other.m_nFile);
    std::swap(m_nLength, other.m_nLength);
    return *this;
}

// @return bytes read, 0 at the end of the file and after an error.
std::int64_t ImageFile::_ReadSome(std::int64_t nOffset, const iovec* pParts, int nParts) const {
    ssize_t nRead = -1;
    do {
        nRead = preadv(m_nFile, pParts, nParts, nOffset);
    } while (nRead < 0 && errno == EINTR);
    return std::max<std::int64_t>(nRead, 0);
}

bool ImageFile::ReadAt(std::int64_t nOffset, void* pBuffer, std::size_t nSize) const {
    auto* pNext = static_cast<unsigned char*>(pBuffer);
    while (nSize > 0) {
        const iovec part{pNext, nSize};
        const std::int64_t nRead = _ReadSome(nOffset, &part, 1);
        if (nRead == 0) {
            return false;
        }
        pNext += nRead;
        nOffset += nRead;
        nSize -= static_cast<std::size_t>(nRead);
    }
    return true;
}

bool ImageFile::ReadRowsReversed(std::int64_t nOffset, unsigned char* pBuffer, std::size_t nRow,
                                 std::size_t nRows) const {
    std::array<iovec, 256> parts{};
    while (nRows > 0) {
        const std::size_t nParts = std::min(nRows, parts.size());
        for (std::size_t i = 0; i < nParts; ++i) {
            parts[i] = {pBuffer + (nRows - 1 - i) * nRow, nRow};
        }
        const std::size_t nSize = nParts * nRow;
        if (_ReadSome(nOffset, parts.data(), static_cast<int>(nParts)) != static_cast<std::int64_t>(nSize) &&
            !_ReadOneByOne(nOffset, parts.data(), nParts)) {
            return false;
        }
        nOffset += static_cast<std::int64_t>(nSize);
        nRows -= nParts;
    }
    return true;
}

// Reads what one call did not read as a whole.
bool ImageFile::_ReadOneByOne(std::int64_t nOffset, const iovec* pParts, std::size_t nParts) const {
    for (std::size_t i = 0; i < nParts; ++i) {
        if (!ReadAt(nOffset, pParts[i].iov_base, pParts[i].iov_len)) {
            return false;
        }
        nOffset += static_cast<std::int64_t>(pParts[i].iov_len);
    }
    return true;
}

}  // namespace tnrobot
