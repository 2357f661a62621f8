// Reads JPEG images through libjpeg.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNJPEGDECODER_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNJPEGDECODER_H_

#include <cstdint>
#include <memory>

#include "TnRobotKernel/image.h"
#include "image/TnByteBuffer.h"
#include "image/TnPictureReading.h"

struct STnJpegDecodeContext;

/// Decodes one JPEG for each Open. libjpeg prints its own message before an operation fails.
///
/// Input that promises more than it can hold is refused instead of being met with memory and time:
/// more than 100 scans, and a large picture, or many scans of it, whose coded bytes are too few for
/// it. Comments and other segments do not count as coded.
///
/// Threads: externally synchronised.
class CTnJpegDecoder {
public:
    CTnJpegDecoder();
    CTnJpegDecoder(const CTnJpegDecoder&) = delete;
    CTnJpegDecoder& operator=(const CTnJpegDecoder&) = delete;
    ~CTnJpegDecoder();

    /// Opens a JPEG held in memory. @param[in] pData  nLength bytes, borrowed until Close.
    /// @return false for null, no bytes, bytes that are no JPEG, or a decoder that is open.
    bool Open(const unsigned char* pData, unsigned int nLength);

    /// Reads a whole file and opens it.
    /// @return false for a null or empty path, a file that cannot be read or is no JPEG, or a
    ///         decoder that is open.
    bool Open(const char* lpszPath);

    /// @return false when closed; the arguments are untouched then.
    bool ReadHeader(int& nWidth, int& nHeight) const;

    /// Whether the input can be what its header says it is, however large the surface; nothing is
    /// decoded for that.
    /// @return kDone, or kUndecodable, when closed too; Read fails then.
    tnrobot::Reading CanFill(std::int64_t nSurfaceSize) const;

    /// As ReadData. @return kDone with the rows that the picture covers, or kUndecodable.
    tnrobot::PictureReading Read(ETnNLImageType eType, unsigned char* pBuffer, unsigned int nSize);

    /// Decodes the picture, top row first. Rows start at multiples of the row length rounded up to
    /// a multiple of 4; the bytes between them are left as they are. Works once for each Open.
    /// @param[in] eType  1, 2, 7 or 9.
    /// @return false for another type, a closed or spent decoder, a null or too small buffer (the
    ///         rows that fit are written), and input that cannot be decoded.
    bool ReadData(ETnNLImageType eType, unsigned char* pBuffer, unsigned int nSize) {
        return Read(eType, pBuffer, nSize).m_eReading == tnrobot::Reading::kDone;
    }

    /// Forgets the picture; the decoder may be opened again.
    void Close();

private:
    struct ContextDeleter {
        void operator()(STnJpegDecodeContext* pContext) const;
    };

    const unsigned char* m_pSource = nullptr;  // borrowed, or the file buffer's bytes
    unsigned int m_nSourceLength = 0;
    tnrobot::ByteBuffer m_file;
    std::unique_ptr<STnJpegDecodeContext, ContextDeleter> m_context;  // null while closed
};

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNJPEGDECODER_H_
