// A recycling pool of surface objects whose allocator asks the block pool for pixels at every request.

#include "image/TnRobotSurfacePool.h"

#include <limits>

#include "checked/TnChecked.h"
#include "core/TnCreateInstance.h"
#include "core/TnExactCast.h"
#include "image/TnImageGeometry.h"
#include "image/TnRobotSurface.h"
#include "memory/TnQueryBlock.h"

ITnRobotSurfacePool::~ITnRobotSurfacePool() = default;

CTnRobotSurfaceEleAlloc::CTnRobotSurfaceEleAlloc(ITnRobotMemoryBlockPool* pBlockPool)
    : m_blockPool(tn::Retain(pBlockPool)) {}

CTnRobotSurfaceEleAlloc::~CTnRobotSurfaceEleAlloc() = default;

// The pitch is written as soon as it is known: callers read it back even from a request that fails
// later. A block smaller than asked for counts as none.
TnRobotPtr<ITnRobotMemoryBlock> CTnRobotSurfaceEleAlloc::_QueryPixels(const ITnRobotSurface::STnSurfaceDesc* pDesc) {
    TnRobotPtr<ITnRobotMemoryBlock> block;
    if (pDesc == nullptr || !tnrobot::SurfacePitch(pDesc->eImageType, pDesc->nWidth, pDesc->nPitch)) {
        return block;
    }
    const unsigned int nSize = tnrobot::SurfaceSize(pDesc->nPitch, pDesc->nHeight);
    if (nSize != 0 && m_blockPool) {
        block = tnrobot::QueryBlock(*m_blockPool, nSize);
    }
    unsigned int nBlockSize = 0;
    if (block && (block->QueryMemory(nBlockSize) == nullptr || nBlockSize < nSize)) {
        block.reset();
    }
    return block;
}

bool CTnRobotSurfaceEleAlloc::AllocElement(void* pParam, ITnPoolElement** ppElement) {
    const auto* pDesc = static_cast<const ITnRobotSurface::STnSurfaceDesc*>(pParam);
    const TnRobotPtr<ITnRobotMemoryBlock> block = _QueryPixels(pDesc);
    ITnRobotSurface* pSurface = nullptr;
    if (!block || !CTnRobotSurface::CreateInstance(block.get(), *pDesc, &pSurface)) {
        return false;
    }
    *ppElement = pSurface;
    return true;
}

// There is no way to report a failure here: the surface is handed out without pixels then, and
// callers rely on getting it.
void CTnRobotSurfaceEleAlloc::SetElementParam(ITnPoolElement* pElement, void* pParam) {
    auto* pSurface = tnrobot::ExactCast<CTnRobotSurface>(pElement);
    if (pSurface != nullptr && tnrobot::NoteTaken(pSurface)) {
        pSurface->CheckIdleInvariants();
    }
    const auto* pDesc = static_cast<const ITnRobotSurface::STnSurfaceDesc*>(pParam);
    const TnRobotPtr<ITnRobotMemoryBlock> block = _QueryPixels(pDesc);
    if (block && pSurface != nullptr) {
        pSurface->ResetData(*pDesc, block.get());
    }
}

CTnRobotSurfacePool::~CTnRobotSurfacePool() = default;

int CTnRobotSurfacePool::CreateInstance(ITnRobotMemoryBlockPool* pBlockPool, ITnRobotSurfacePool** ppPool) {
    if (ppPool == nullptr) {
        return 0;
    }
    return tnrobot::FinishInstance(new CTnRobotSurfacePool, ppPool, &CTnRobotSurfacePool::_Init, pBlockPool);
}

bool CTnRobotSurfacePool::_Init(ITnRobotMemoryBlockPool* pBlockPool) {
    const auto alloc = tn::Adopt(tnrobot::Watch(new CTnRobotSurfaceEleAlloc(pBlockPool)));
    m_pool = tn::Adopt(tnrobot::Watch(new CTnRobotPool<ITnRobotSurface>(alloc.get())));
    m_pool->SetMaxCount(std::numeric_limits<unsigned int>::max());
    return true;
}

// The pool passes the description on without touching it; the allocator only writes its pitch,
// which is mutable.
int CTnRobotSurfacePool::QuerySurface(const ITnRobotSurface::STnSurfaceDesc& desc, ITnRobotSurface** ppSurface) {
    void* pParam = const_cast<ITnRobotSurface::STnSurfaceDesc*>(&desc);
    return m_pool->QueryPoolElement(0, pParam, ppSurface) ? 0 : -1;
}

int TnCreateRobotSurfacePool(ITnRobotMemoryBlockPool* pBlockPool, ITnRobotSurfacePool** ppPool) {
    return CTnRobotSurfacePool::CreateInstance(pBlockPool, ppPool);
}
