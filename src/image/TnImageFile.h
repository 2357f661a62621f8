// Reading image files.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNIMAGEFILE_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNIMAGEFILE_H_

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>

namespace tnrobot {

/// A regular file opened for reading. Directories report absurd lengths and pipes have none and may
/// block, so nothing else opens.
class ImageFile {
public:
    /// @param[in] lpszPath  null and unreadable paths give a closed file.
    explicit ImageFile(const char* lpszPath);
    ImageFile() = default;
    ImageFile(ImageFile&& other) noexcept;
    ImageFile& operator=(ImageFile&& other) noexcept;
    ~ImageFile();

    bool IsOpen() const { return m_nFile >= 0; }

    /// @return length in bytes, 0 when closed.
    std::int64_t Length() const { return m_nLength; }

    /// @return whether all nSize bytes from nOffset on were read; the file may have shrunk since it
    ///         was opened.
    bool ReadAt(std::int64_t nOffset, void* pBuffer, std::size_t nSize) const;

    /// Reads nRows rows of nRow bytes from nOffset on and puts them into the buffer in reverse
    /// order, the first one last. Each byte is copied once, from the system to its place.
    /// @return whether all of them were read.
    bool ReadRowsReversed(std::int64_t nOffset, unsigned char* pBuffer, std::size_t nRow, std::size_t nRows) const;

private:
    std::int64_t _ReadSome(std::int64_t nOffset, const iovec* pParts, int nParts) const;
    bool _ReadOneByOne(std::int64_t nOffset, const iovec* pParts, std::size_t nParts) const;

    int m_nFile = -1;
    std::int64_t m_nLength = 0;
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNIMAGEFILE_H_
