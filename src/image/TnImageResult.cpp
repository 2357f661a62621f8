// Asking a surface pool: what comes with a refusal is let go.

#include "image/TnImageResult.h"

namespace tnrobot {

Ref<ITnRobotSurface> QuerySurface(ITnRobotSurfacePool& pool, const ITnRobotSurface::STnSurfaceDesc& desc,
                                  int& nResult) {
    Ref<ITnRobotSurface> surface;
    nResult = pool.QuerySurface(desc, surface.Receive());
    if (nResult != 0) {
        surface.Reset();
    }
    return surface;
}

Ref<ITnRobotSurface> QuerySurface(ITnRobotSurfacePool& pool, const ITnRobotSurface::STnSurfaceDesc& desc) {
    int nResult = 0;
    return QuerySurface(pool, desc, nResult);
}

}  // namespace tnrobot
