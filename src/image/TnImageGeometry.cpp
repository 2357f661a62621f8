// Rows, pitches and sizes in 64 bits.

#include "image/TnImageGeometry.h"

#include <limits>

namespace tnrobot {

namespace {

template <typename T>
bool Fits(std::int64_t n) {
    return n >= std::numeric_limits<T>::min() && n <= std::numeric_limits<T>::max();
}

}  // namespace

// Divides instead of multiplying: 32-bit factors fit 64 bits, but a view may come from anywhere.
bool RowLayout::FitsInto(std::int64_t nSize) const {
    if (m_nRows < 1 || m_nRowLength < 1 || m_nPitch < 0 || m_nRowLength > nSize) {
        return false;
    }
    return m_nPitch == 0 || m_nRows - 1 <= (nSize - m_nRowLength) / m_nPitch;
}

// Only rows of three-byte pixels are padded.
bool SurfacePitch(ETnNLImageType eType, int nWidth, int& nPitch) {
    const int nPixel = BytesPerPixel(eType);
    std::int64_t nExact = std::int64_t{nWidth} * nPixel;
    if (nPixel == 3) {
        nExact = AlignTo4(nExact);
    } else if (eType == TN_IMAGE_420) {
        nExact = std::int64_t{nWidth} * 3 / 2;
    } else if (nPixel == 0) {
        return false;
    }
    if (!Fits<int>(nExact)) {
        return false;
    }
    nPitch = static_cast<int>(nExact);
    return true;
}

unsigned int SurfaceSize(int nPitch, int nHeight) {
    const std::int64_t nSize = std::int64_t{nPitch} * nHeight;
    return nPitch > 0 && nHeight > 0 && Fits<unsigned int>(nSize) ? static_cast<unsigned int>(nSize) : 0;
}

}  // namespace tnrobot
