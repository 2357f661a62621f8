// The results of image operations, and the one way in which they ask for a surface.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNIMAGERESULT_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNIMAGERESULT_H_

#include "TnRobotKernel/image.h"
#include "core/TnRef.h"

namespace tnrobot {

/// What callers get; the numbers are part of the interface.
enum ImageResult : int {
    kOk = 0,
    kRefused = -1,     ///< an argument, a file that cannot be read, a surface that cannot be had
    kNotDecoded = -2,  ///< or, of a record, not to be put on a surface
    kNotEncoded = -6,
};

/// @param[out] nResult  what the pool has answered.
/// @return the surface; null when the pool refuses or gives none.
Ref<ITnRobotSurface> QuerySurface(ITnRobotSurfacePool& pool, const ITnRobotSurface::STnSurfaceDesc& desc, int& nResult);

/// The same where only the surface matters.
Ref<ITnRobotSurface> QuerySurface(ITnRobotSurfacePool& pool, const ITnRobotSurface::STnSurfaceDesc& desc);

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNIMAGERESULT_H_
