// Writes JPEG images through libjpeg.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNJPEGENCODER_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNJPEGENCODER_H_

#include <vector>

#include "TnRobotKernel/image.h"

/// Encodes with quality 95, baseline tables and no chroma subsampling. libjpeg prints its own
/// message before an operation fails.
///
/// Threads: externally synchronised.
class CTnJpegEncoder {
public:
    /// Makes a JPEG in memory; the result replaces the one before.
    /// @param[in] image  format 1 to 7 or 9; rows start at multiples of the row length rounded up to
    ///                   a multiple of 4. Rows of one-byte pixels may also be packed, as surfaces
    ///                   hold them, when the data is too short to be anything else.
    /// @param[in] nPitch  bytes from one row to the next where the caller knows. 0, and a pitch at
    ///                   which the rows do not lie in the data, leave it to the record.
    /// @return false for another format, data that does not hold all rows, and a picture that
    ///         libjpeg refuses.
    bool Encode(const STnNLImageData& image, int nPitch = 0);

    /// @param[out] nSize  bytes of the JPEG. @return the JPEG; borrowed until the next Encode.
    const unsigned char* GetEncodeData(unsigned int& nSize) const;

private:
    std::vector<unsigned char> m_jpeg;
};

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNJPEGENCODER_H_
