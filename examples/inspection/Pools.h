// The pools that everything of an inspection comes from.

#ifndef INSPECTION_POOLS_H_
#define INSPECTION_POOLS_H_

#include <TnRobotKernel/make.h>

/// Pools are made once and kept: what they have handed out is recycled, threads included.
class Pools {
public:
    ITnRobotMemoryBlockPool* Blocks() const { return m_blocks.get(); }
    ITnRobotSurfacePool* Surfaces() const { return m_surfaces.get(); }
    ITnRobotTaskPool* Tasks() const { return m_tasks.get(); }

private:
    TnRobotPtr<ITnRobotMemoryBlockPool> m_blocks = tn::MakeMemoryBlockPool();
    TnRobotPtr<ITnRobotSurfacePool> m_surfaces = tn::MakeSurfacePool(m_blocks.get());
    TnRobotPtr<ITnRobotTaskPool> m_tasks = tn::MakeTaskPool();
};

#endif  // INSPECTION_POOLS_H_
