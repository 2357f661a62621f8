// Where libjpeg takes an arithmetic-coded picture from.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNJPEGSOURCE_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNJPEGSOURCE_H_

#include <cstdint>

#include "image/TnJpegError.h"

namespace tnrobot {

/// Hands libjpeg the rest of an input piece by piece, and counts what it takes beyond the coded
/// pixels.
///
/// An arithmetic decoder goes on for ever once its data has ended: it takes zeros, and any number of
/// pixels can be made of them. Flat ones cost neither bits nor time. Each coefficient that is not
/// zero costs at least one bit and the work of up to a block, so the zeros that are taken tell how
/// much work is done for nothing, and beyond a limit libjpeg is left. At restart markers the decoder
/// makes zeros itself; they are not counted.
///
/// The manager comes first: libjpeg hands back a pointer to it.
struct ArithmeticSource {
    jpeg_source_mgr m_base;
    const unsigned char* m_pNext;  // start of the next piece, a marker or the end
    const unsigned char* m_pEnd;   // of the input
    std::int64_t m_nZeros;         // that may still be taken
};

/// Takes over from the memory source of a decompressor whose header has been read.
/// @param[in] nZeros  how many bytes may be taken beyond the coded pixels.
void UseArithmeticSource(jpeg_decompress_struct& jpeg, ArithmeticSource& source, std::int64_t nZeros);

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNJPEGSOURCE_H_
