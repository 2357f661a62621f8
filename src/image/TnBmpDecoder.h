// Reads uncompressed BMP files.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNBMPDECODER_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNBMPDECODER_H_

#include <cstdint>

#include "TnRobotKernel/image.h"
#include "image/TnBmpHeader.h"
#include "image/TnByteBuffer.h"
#include "image/TnImageFile.h"
#include "image/TnPictureReading.h"

/// Hands out the pixels of a BMP as they are stored; rows are unpadded. Signature, planes,
/// compression and header size are not looked at.
///
/// The pixels of a file stay in the file until ReadData puts them into their place: pictures are
/// large, and a copy in between would cost as much as the reading. The file stays open as long.
///
/// Threads: externally synchronised.
class CTnBmpDecoder {
public:
    /// Opens a file. Its pixel data must be whole rows of whole bytes that lie inside the file. Files
    /// of 24 bits whose rows are padded to multiples of 4 bytes are refused: read without their
    /// padding they would be garbage.
    /// @return whether the headers were read and the pixels are there; after a failure there are no
    ///         pixels.
    bool Open(const char* lpszPath);

    /// Reads a BMP held in memory. The pixels stay in file order, bottom row first. When the header
    /// leaves the image size open, the result is true and the pixels are those read before.
    /// @param[in] pData  nLength bytes, copied.
    bool Open(const unsigned char* pData, unsigned int nLength);

    /// @return false when no header has been read.
    bool ReadHeader(int& nWidth, int& nHeight) const;

    /// Copies all pixels. @param[in] eType  TN_IMAGE_BGR24 for pixels of three bytes or
    /// TN_IMAGE_GRAY8 for pixels of one; there is no conversion.
    /// @return false without pixels, for another format, for a buffer below GetDataSize(), and when
    ///         the file cannot be read any more: then there are no pixels from here on.
    bool ReadData(ETnNLImageType eType, unsigned char* pBuffer, unsigned int nSize) {
        return Read(eType, pBuffer, nSize).m_eReading == tnrobot::Reading::kDone;
    }

    /// @return bytes that ReadData copies; 0 without pixels.
    unsigned int GetDataSize() const { return m_nDataSize; }

    /// Whether there are enough pixels for a surface of so many bytes: a modest one may stay zero where
    /// rows are missing, a larger one needs them all. Nothing is read for that.
    /// @return kDone, or kUnreadable when they are too few.
    tnrobot::Reading CanFill(std::int64_t nSurfaceSize) const;

    /// As ReadData. @return kUnreadable without pixels and when the file cannot be read any more,
    /// kUndecodable for what else ReadData refuses; the pixels are one row, without a gap.
    tnrobot::PictureReading Read(ETnNLImageType eType, unsigned char* pBuffer, unsigned int nSize);

    /// Does nothing: the pixels live as long as the decoder.
    void Close();

private:
    bool _HasAllRows() const;
    bool _HasFormat(ETnNLImageType eType) const;
    void _DropPixels();

    // Pixels of one source: the file when it is open, the bytes otherwise.
    tnrobot::ImageFile m_file;
    std::int64_t m_nFileOffset = 0;  // where its pixels start
    std::size_t m_nFileRow = 0;      // bytes of its rows, of which the data size is a multiple
    tnrobot::ByteBuffer m_pixels;    // in file order
    unsigned int m_nDataSize = 0;
    tnrobot::BmpHeader m_header{};
    bool m_bHasHeader = false;
};

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNBMPDECODER_H_
