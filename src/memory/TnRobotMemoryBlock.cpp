// The count of a block and its parent: how its last holder returns it while the pool may be going.

#include "memory/TnRobotMemoryBlock.h"

#include "checked/TnChecked.h"
#include "core/TnCounting.h"

ITnRobotMemoryBlock::~ITnRobotMemoryBlock() = default;
ITnRobotMemoryBlockParent::~ITnRobotMemoryBlockParent() = default;
ITnRobotMemoryBlockPool::~ITnRobotMemoryBlockPool() = default;

CTnRobotMemoryBlock::CTnRobotMemoryBlock(unsigned int nFlags, ITnRobotMemoryBlockParent* pParent)
    : m_pParent(pParent), m_nFlags(nFlags), m_recoveryTime(std::chrono::system_clock::now()) {}

CTnRobotMemoryBlock::~CTnRobotMemoryBlock() {
    if ((m_nFlags & kOwnsMemory) != 0) {
        delete[] m_pData;
    }
}

// A pool may be destroyed while another thread releases its block, so neither the block nor the
// parent may be touched after the decrement, unless this release is the one that returns the
// block: then the pool waits for it (see Abandon). The count is read before the parent: if the
// pool lets the block go in between, the count has changed, the exchange fails and both are read
// again. It comes back to the same value only where a block was lent again while it was held, after a
// RecoveryMemBuff by hand: such a block must not be released while its pool goes (models/block.pml, ANY_END).
int CTnRobotMemoryBlock::Release() {
    int nBefore = 0;
    ITnRobotMemoryBlockParent* pParent = nullptr;
    tnrobot::ChangeCountIf(m_nRefCount, -1, nBefore, [&](int /*nCount*/) {
        pParent = m_pParent.load();
        return true;
    });
    return tnrobot::FollowFall(this, nBefore, pParent,
                               [this](ITnRobotMemoryBlockParent& parent) { parent.RecoveryMemBuff(this); });
}

// The extra reference keeps every holder from taking the count from 2 to 1 while the parent is
// being cleared. A count of 1 means that a holder has done so already, with the parent still set.
bool CTnRobotMemoryBlock::Abandon() {
    if (tnrobot::RaiseCount(m_nRefCount) == 1) {
        tnrobot::LowerCount(m_nRefCount);
        return false;
    }
    m_pOwner = nullptr;  // the pool's bookkeeping goes with it; holders never look at it
    m_pParent.store(nullptr);
    if (tnrobot::LowerCount(m_nRefCount, 2) == 2) {
        tnrobot::Destroy(this);
    }
    return true;
}

bool CTnRobotMemoryBlock::LetGo() {
    if (Abandon()) {
        return true;
    }
    if (m_bLent) {
        return false;
    }
    Release();
    return true;
}

unsigned char* CTnRobotMemoryBlock::QueryMemory(unsigned int& nSize) {
    tnrobot::CheckUsed(this, m_nRefCount);
    nSize = m_nUsedSize;
    return m_pData;
}

void CTnRobotMemoryBlock::SetMemData(unsigned char* pData, unsigned int nSize) {
    m_pData = pData;
    m_nCapacity = nSize;
    m_nUsedSize = nSize;
}

int CTnRobotMemoryBlock::SetUsedSize(unsigned int nSize) {
    if (nSize > m_nCapacity) {
        return 0;
    }
    m_nUsedSize = nSize;
    return 1;
}

void CTnRobotMemoryBlock::ClearResource() {
    m_nUsedSize = m_nCapacity;
}

void CTnRobotMemoryBlock::SetParent(ITnRobotMemoryBlockParent* pParent) {
    m_pParent.store(pParent);
}

void CTnRobotMemoryBlock::SetOwnerPtr(void* pOwner) {
    m_pOwner = pOwner;
}

void* CTnRobotMemoryBlock::GetOwnerPtr() const {
    return m_pOwner;
}

void CTnRobotMemoryBlock::UpdateRecoveryTime() {
    m_recoveryTime = std::chrono::system_clock::now();
}

CTnRobotMemoryBlock::TimePoint CTnRobotMemoryBlock::GetRecoveryTime() const {
    return m_recoveryTime;
}
