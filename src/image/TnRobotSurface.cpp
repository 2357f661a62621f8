// A surface is a description and a block; in checked builds every operation first looks whether the
// surface lies free.

#include "image/TnRobotSurface.h"

#include "checked/TnChecked.h"
#include "core/TnCreateInstance.h"

ITnRobotSurface::~ITnRobotSurface() = default;
CTnRobotSurface::~CTnRobotSurface() = default;

bool CTnRobotSurface::CreateInstance(ITnRobotMemoryBlock* pBlock, const STnSurfaceDesc& desc,
                                     ITnRobotSurface** ppSurface) {
    if (ppSurface == nullptr) {
        return false;
    }
    return tnrobot::FinishInstance(new CTnRobotSurface, ppSurface, &CTnRobotSurface::_Init, pBlock, desc) != 0;
}

bool CTnRobotSurface::_Init(ITnRobotMemoryBlock* pBlock, const STnSurfaceDesc& desc) {
    if (pBlock == nullptr) {
        return false;
    }
    ResetData(desc, pBlock);
    return true;
}

void CTnRobotSurface::ResetData(const STnSurfaceDesc& desc, ITnRobotMemoryBlock* pBlock) {
    m_desc = desc;
    m_block = tnrobot::Ref<ITnRobotMemoryBlock>::Share(pBlock);
}

void CTnRobotSurface::ClearResource() {
    m_block.Reset();
}

// A surface can be without a block: one that was handed out for a request that cannot be met, and
// one whose pool went while it was held.
bool CTnRobotSurface::LockSurface(STnLockSurface& lock) {
    _CheckInUse();
    lock.nDataSize = 0;
    lock.pData = m_block ? m_block->QueryMemory(lock.nDataSize) : nullptr;
    lock.nWidth = m_desc.nWidth;
    lock.nHeight = m_desc.nHeight;
    lock.nPitch = m_desc.nPitch;
    lock.eImageType = m_desc.eImageType;
    return true;
}

void CTnRobotSurface::UnLockSurface() {
    _CheckInUse();
}

void CTnRobotSurface::GetSurfaceDesc(STnSurfaceDesc& desc) {
    _CheckInUse();
    desc = m_desc;
}

STnNL2DPoint CTnRobotSurface::GetOriPos() {
    _CheckInUse();
    return m_desc.oriPos;
}

void CTnRobotSurface::ResetOriPos(const STnNL2DPoint& oriPos) {
    _CheckInUse();
    m_desc.oriPos = oriPos;
}

unsigned long long CTnRobotSurface::QueryTimeStamp() {
    _CheckInUse();
    return m_nTimeStamp;
}

void CTnRobotSurface::SetTimeStamp(unsigned long long nTimeStamp) {
    _CheckInUse();
    m_nTimeStamp = nTimeStamp;
}

void CTnRobotSurface::_CheckInUse() const {
    tnrobot::CheckUsed(this, m_nRefCount);
}

void CTnRobotSurface::CheckIdleInvariants() const {
    tnrobot::CheckInvariant(*this, !m_block, "has got a block after its return to its pool");
}
