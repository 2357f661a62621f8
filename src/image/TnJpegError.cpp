// libjpeg reports an error by a call that must not return: it jumps back into the function that called
// libjpeg.

#include "image/TnJpegError.h"

#include "image/TnImageGeometry.h"

namespace {

STnJpegErrorManager* Errors(jpeg_common_struct* pCommon) {
    return reinterpret_cast<STnJpegErrorManager*>(pCommon->err);
}

J_COLOR_SPACE ColourSpace(ETnNLImageType eType) {
    switch (eType) {
        case TN_IMAGE_RGB24:
            return JCS_EXT_RGB;
        case TN_IMAGE_BGR24:
            return JCS_EXT_BGR;
        case TN_IMAGE_BGRX32:
            return JCS_EXT_BGRX;
        default:
            return JCS_GRAYSCALE;
    }
}

}  // namespace

void TnJpegErrorExit(jpeg_common_struct* pCommon) {
    pCommon->err->output_message(pCommon);
    std::longjmp(Errors(pCommon)->m_jump, 1);
}

namespace tnrobot {

jpeg_error_mgr* InitJpegErrors(STnJpegErrorManager& errors) {
    jpeg_std_error(&errors.m_base);
    errors.m_base.error_exit = TnJpegErrorExit;
    return &errors.m_base;
}

void JumpOutOfJpeg(jpeg_common_struct* pCommon) {
    std::longjmp(Errors(pCommon)->m_jump, 1);
}

JpegFormat JpegFormatOf(ETnNLImageType eType) {
    return {ColourSpace(eType), BytesPerPixel(eType)};
}

}  // namespace tnrobot
