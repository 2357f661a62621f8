// How both JPEG codecs leave libjpeg when it meets an error.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNJPEGERROR_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNJPEGERROR_H_

#include <csetjmp>
#include <cstdio>

// libjpeg's header needs the standard ones above, and gives its names C linkage itself.
#include <jpeglib.h>

#include "TnRobotKernel/image.h"

/// libjpeg's error manager and where to go on from an error. The manager comes first: libjpeg hands
/// back a pointer to it.
///
/// Every function that calls libjpeg sets m_jump first. It is a small function without an object
/// that has a destructor, because the jump would not run it.
struct STnJpegErrorManager {
    jpeg_error_mgr m_base;
    jmp_buf m_jump;
};

/// Prints libjpeg's message for the error and jumps to m_jump, so it never returns.
void TnJpegErrorExit(jpeg_common_struct* pCommon);

namespace tnrobot {

/// Fills in the manager. @return what libjpeg's objects take as their err.
jpeg_error_mgr* InitJpegErrors(STnJpegErrorManager& errors);

/// Leaves libjpeg without a message. Never returns.
[[noreturn]] void JumpOutOfJpeg(jpeg_common_struct* pCommon);

/// libjpeg's names for a pixel format.
struct JpegFormat {
    J_COLOR_SPACE m_eColourSpace;
    int m_nComponents;  ///< 0 for a format that JPEG operations refuse
};

/// Formats 3 to 6 are grey here.
JpegFormat JpegFormatOf(ETnNLImageType eType);

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNJPEGERROR_H_
