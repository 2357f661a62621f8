// The pool that hands out surfaces.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNROBOTSURFACEPOOL_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNROBOTSURFACEPOOL_H_

#include "TnRobotKernel/image.h"
#include "core/TnRef.h"

/// Makes and re-initialises the surfaces of a pool; the parameter of both operations is the
/// description that was asked for, whose pitch they write.
class CTnRobotSurfaceEleAlloc final : public ITnElementAlloc {
public:
    /// @param[in] pBlockPool  one reference is taken; may be null, then every request fails.
    explicit CTnRobotSurfaceEleAlloc(ITnRobotMemoryBlockPool* pBlockPool);
    ~CTnRobotSurfaceEleAlloc() override;

    bool AllocElement(void* pParam, ITnPoolElement** ppElement) override;

    /// Leaves the surface as it is when the description cannot be met.
    void SetElementParam(ITnPoolElement* pElement, void* pParam) override;

private:
    tnrobot::Ref<ITnRobotMemoryBlock> _QueryPixels(const ITnRobotSurface::STnSurfaceDesc* pDesc);

    tnrobot::Ref<ITnRobotMemoryBlockPool> m_blockPool;
};

/// Any free surface serves any request, the longest free one first, always with a new block: only
/// the surface objects are recycled here, pixel memory is recycled by the block pool.
class CTnRobotSurfacePool final : public ITnRobotSurfacePool {
public:
    /// @param[out] ppPool  +1, caller releases. @return 1, or 0 for a null ppPool.
    static int CreateInstance(ITnRobotMemoryBlockPool* pBlockPool, ITnRobotSurfacePool** ppPool);

    ~CTnRobotSurfacePool() override;

    int QuerySurface(const ITnRobotSurface::STnSurfaceDesc& desc, ITnRobotSurface** ppSurface) override;

private:
    CTnRobotSurfacePool() = default;
    bool _Init(ITnRobotMemoryBlockPool* pBlockPool);

    tnrobot::Ref<CTnRobotPool<ITnRobotSurface>> m_pool;
};

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNROBOTSURFACEPOOL_H_
