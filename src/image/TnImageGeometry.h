// The one place where image dimensions become byte counts: everything is computed in 64 bits and
// narrowed only after it has been found to fit.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNIMAGEGEOMETRY_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNIMAGEGEOMETRY_H_

#include <cstdint>

#include "TnRobotKernel/image.h"
#include "TnRobotKernel/tn/pixels.h"

namespace tnrobot {

using tn::BytesPerPixel;

/// @return nBytes rounded up to a multiple of 4.
constexpr std::int64_t AlignTo4(std::int64_t nBytes) {
    return (nBytes + 3) & ~std::int64_t{3};
}

/// Rows of equal length that start a fixed distance apart. A view never owns.
struct RowLayout {
    std::int64_t m_nRows;       ///< number of rows
    std::int64_t m_nRowLength;  ///< bytes of a row that count
    std::int64_t m_nPitch;      ///< bytes from one row to the next

    /// @return whether the rows are at least one byte each, at least one, and lie in nSize bytes.
    ///         The last row need not be followed by its padding.
    bool FitsInto(std::int64_t nSize) const;
};

/// Pitch of a surface. @param[out] nPitch  untouched on failure.
/// @return false for a format that surfaces cannot have and a pitch that does not fit 32 bits.
bool SurfacePitch(ETnNLImageType eType, int nWidth, int& nPitch);

/// Bytes of a surface's rows.
/// @return 0 when there are none or their number does not fit 32 bits.
unsigned int SurfaceSize(int nPitch, int nHeight);

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNIMAGEGEOMETRY_H_
