// What a decoder says of a picture that it was to read.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNPICTUREREADING_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNPICTUREREADING_H_

#include "image/TnImageGeometry.h"

namespace tnrobot {

enum class Reading {
    kDone,         ///< the picture is, or can be, in its place
    kUnreadable,   ///< its bytes are not there, or not any more
    kUndecodable,  ///< they are, and no picture can be made of them
};

/// A reading and, when it is done, the bytes of the buffer that the picture covers; what lies behind
/// its rows is as it was.
struct PictureReading {
    Reading m_eReading;
    RowLayout m_covered;
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNPICTUREREADING_H_
