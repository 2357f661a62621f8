// Writes uncompressed BMP files.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNBMPENCODER_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNBMPENCODER_H_

#include <cstddef>
#include <functional>
#include <vector>

#include "TnRobotKernel/image.h"

/// Makes a BMP of any byte depth, rows unpadded and bottom row first, behind a grey-ramp colour
/// table of 2^(8 x bytes per pixel mod 32) entries: 64 MiB for three bytes per pixel. Readers of
/// these files find the pixels behind that table, so it is part of the format.
///
/// Threads: externally synchronised.
class CTnBmpEncoder {
public:
    /// Receives the file piece by piece. Pieces are borrowed for the call.
    using PieceSink = std::function<void(const unsigned char* pPiece, std::size_t nSize)>;

    /// Makes the file in memory; the result replaces the one before.
    /// @param[in] image  its format is not looked at. Rows that its data does not hold are zero.
    /// @return false only when the file would exceed 4294967295 bytes; nothing is held then.
    bool Encode(const STnNLImageData& image);

    /// @param[out] nSize  bytes of the file. @return the file; borrowed until the next Encode.
    const unsigned char* GetEncodeData(unsigned int& nSize) const;

    /// Makes the same file in pieces, none of which is kept: saving an image needs no memory for the
    /// table. Pieces are 256 KiB where possible; one larger row is a piece of its own.
    /// @return as Encode; the sink has not been called after false.
    static bool EncodePieces(const STnNLImageData& image, const PieceSink& sink);

private:
    std::vector<unsigned char> m_file;
};

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNBMPENCODER_H_
