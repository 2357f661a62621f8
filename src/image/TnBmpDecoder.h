// Reads uncompressed BMP files.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNBMPDECODER_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNBMPDECODER_H_

#include <cstdint>

#include "TnRobotKernel/image.h"
#include "image/TnBmpHeader.h"
#include "image/TnByteBuffer.h"

/// Hands out the pixels of a BMP as they are stored; rows are taken as unpadded. Signature,
/// planes, compression and header size are not looked at.
///
/// Threads: externally synchronised.
class CTnBmpDecoder {
public:
    /// Reads a file. Its pixel data must be whole rows of whole bytes that lie inside the file.
    /// @return whether headers and pixels were read; after a failure there are no pixels.
    bool Open(const char* lpszPath);

    /// Reads a BMP held in memory. The pixels stay in file order, bottom row first. When the header
    /// leaves the image size open, the result is true and the pixels are those read before.
    /// @param[in] pData  nLength bytes, copied.
    bool Open(const unsigned char* pData, unsigned int nLength);

    /// @return false when no header has been read.
    bool ReadHeader(int& nWidth, int& nHeight) const;

    /// Copies all pixels. @param[in] eType  TN_IMAGE_BGR24 for pixels of three bytes or
    /// TN_IMAGE_GRAY8 for pixels of one; there is no conversion.
    /// @return false without pixels, for another format, and for a buffer below GetDataSize().
    bool ReadData(ETnNLImageType eType, unsigned char* pBuffer, unsigned int nSize) const;

    /// @return bytes that ReadData copies.
    unsigned int GetDataSize() const { return static_cast<unsigned int>(m_pixels.Size()); }

    /// Does nothing: the pixels live as long as the decoder.
    void Close();

private:
    bool _HasFormat(ETnNLImageType eType) const;

    tnrobot::ByteBuffer m_pixels;  // in file order
    std::size_t m_nFlipRow = 0;    // row length for turning the rows over, 0 to leave their order
    tnrobot::STnBmpHeader m_header{};
    bool m_bHasHeader = false;
};

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNBMPDECODER_H_
