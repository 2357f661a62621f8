// Asking a surface pool: what comes with a refusal is let go.

#include "image/TnImageResult.h"

namespace tnrobot {

TnRobotPtr<ITnRobotSurface> QuerySurface(ITnRobotSurfacePool& pool, const ITnRobotSurface::STnSurfaceDesc& desc,
                                         int& nResult) {
    TnRobotPtr<ITnRobotSurface> surface;
    nResult = pool.QuerySurface(desc, surface.put());
    if (nResult != 0) {
        surface.reset();
    }
    return surface;
}

TnRobotPtr<ITnRobotSurface> QuerySurface(ITnRobotSurfacePool& pool, const ITnRobotSurface::STnSurfaceDesc& desc) {
    int nResult = 0;
    return QuerySurface(pool, desc, nResult);
}

}  // namespace tnrobot
