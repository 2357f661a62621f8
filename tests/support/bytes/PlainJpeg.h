// JPEG by plain libjpeg calls, written apart from the library: what it makes and reads is compared
// with this.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_BYTES_PLAINJPEG_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_BYTES_PLAINJPEG_H_

#include <cstddef>
#include <cstdio>

// libjpeg's header needs the standard ones above.
#include <jpeglib.h>

#include <array>
#include <vector>

#include "support/bytes/Bytes.h"

namespace tntest {

/// How EncodePlain makes a JPEG. The pixels are packed rows of nComponents bytes each.
struct JpegRecipe {
    int nWidth = 16;
    int nHeight = 16;
    J_COLOR_SPACE eInput = JCS_EXT_BGR;
    int nComponents = 3;
    J_COLOR_SPACE eStored = JCS_UNKNOWN;  ///< unknown leaves libjpeg's choice
    int nQuality = 75;
    int nSampling = 1;  ///< of the first component, in both directions; 0 leaves libjpeg's choice
    bool bProgressive = false;
    unsigned int nRestartRows = 0;
    bool bArithmetic = false;
    bool bOptimised = false;
};

Bytes EncodePlain(const JpegRecipe& recipe, const Bytes& pixels);

/// What a decoder makes of some bytes.
struct JpegPicture {
    bool bHeader = false;  ///< the header could be read
    bool bPixels = false;  ///< and so could all pixels
    int nWidth = 0;
    int nHeight = 0;
    Bytes pixels;  ///< packed rows
};

/// @param[in] nMostBytes  a picture with more bytes of pixels is not decoded.
JpegPicture DecodePlain(const Bytes& jpeg, J_COLOR_SPACE eOutput, int nComponents,
                        std::size_t nMostBytes = std::size_t{1} << 28);

/// What a JPEG's header says.
struct JpegFacts {
    int nWidth = 0;
    int nHeight = 0;
    J_COLOR_SPACE eStored = JCS_UNKNOWN;
    bool bProgressive = false;
    bool bArithmetic = false;
    bool bJfif = false;
    std::vector<std::array<int, 2>> sampling;                    ///< of each component: horizontal, vertical
    std::vector<std::array<unsigned int, DCTSIZE2>> quantisers;  ///< of each component, natural order
};

JpegFacts ReadFacts(const Bytes& jpeg);

/// A progressive grey JPEG made by hand: its scans say "nothing but zeros" for every block, in a few
/// hundred bytes each, whatever the size of the picture.
Bytes EmptyProgressiveJpeg(int nWidth, int nHeight, int nScans);

/// The same JPEG with its last scan repeated until there are so many.
Bytes RepeatLastScan(const Bytes& jpeg, int nScans);

/// The same JPEG with so many bytes of comments behind its start.
Bytes AddComments(const Bytes& jpeg, std::size_t nBytes);

/// The same JPEG with a byte of ones more before each marker, as the format allows.
Bytes AddFillBytes(const Bytes& jpeg);

/// The same JPEG with nothing but the first bytes of its first scan's pixels.
Bytes CutFirstScan(const Bytes& jpeg, std::size_t nBytes);

/// Replaces the size in a JPEG's frame header.
void PatchSize(Bytes& jpeg, unsigned int nWidth, unsigned int nHeight);

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_BYTES_PLAINJPEG_H_
