// The pools that everything of an inspection comes from.

#ifndef INSPECTION_POOLS_H_
#define INSPECTION_POOLS_H_

#include "Owned.h"

/// Pools are made once and kept: what they have handed out is recycled, threads included.
class Pools {
public:
    Pools() {
        ITnRobotSurfacePool* pSurfaces = nullptr;
        TnCreateRobotSurfacePool(m_blocks.get(), &pSurfaces);
        m_surfaces.reset(pSurfaces);
    }

    ITnRobotMemoryBlockPool* Blocks() const { return m_blocks.get(); }
    ITnRobotSurfacePool* Surfaces() const { return m_surfaces.get(); }
    ITnRobotTaskPool* Tasks() const { return m_tasks.get(); }

private:
    Owned<ITnRobotMemoryBlockPool> m_blocks = Create(TnCreateRobotMemoryBlockPool);
    Owned<ITnRobotSurfacePool> m_surfaces;
    Owned<ITnRobotTaskPool> m_tasks = Create(TnCreateRobotTaskPool);
};

#endif  // INSPECTION_POOLS_H_
