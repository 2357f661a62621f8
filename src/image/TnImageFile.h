// Reading image files.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNIMAGEFILE_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNIMAGEFILE_H_

#include <cstddef>
#include <cstdint>

namespace tnrobot {

/// A regular file opened for reading. Directories report absurd lengths and pipes have none and may
/// block, so nothing else opens.
class ImageFile {
public:
    /// @param[in] lpszPath  null and unreadable paths give a closed file.
    explicit ImageFile(const char* lpszPath);
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;
    ~ImageFile();

    bool IsOpen() const { return m_nFile >= 0; }

    /// @return length in bytes, 0 when closed.
    std::int64_t Length() const { return m_nLength; }

    /// @return whether all nSize bytes from nOffset on were read; the file may have shrunk since it
    ///         was opened.
    bool ReadAt(std::int64_t nOffset, void* pBuffer, std::size_t nSize) const;

private:
    int m_nFile;
    std::int64_t m_nLength = 0;
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNIMAGEFILE_H_
