// The pixels of a picture, wherever they lie.

#ifndef TNROBOT_INSPECT_PICTURE_H_
#define TNROBOT_INSPECT_PICTURE_H_

#include <cstddef>
#include <memory>

#include "Bytes.h"

constexpr std::size_t kBytesPerPixel = 3;

/// Pixels as B, G, R.
struct Picture {
    int nWidth = 0;
    int nHeight = 0;
    const unsigned char* pTop = nullptr;  ///< the top row
    std::ptrdiff_t nStep = 0;             ///< from each row to the one below, negative when that lies before it
    std::shared_ptr<const void> owner;    ///< keeps the pixels, where not a file's bytes do

    ByteRange Row(int nRow) const { return {pTop + (nStep * nRow), static_cast<std::size_t>(nWidth) * kBytesPerPixel}; }
};

#endif  // TNROBOT_INSPECT_PICTURE_H_
