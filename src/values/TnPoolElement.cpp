#include "TnRobotKernel/pool.h"

ITnPoolUnknown::~ITnPoolUnknown() = default;
ITnPoolElement::~ITnPoolElement() = default;
ITnElementAlloc::~ITnElementAlloc() = default;

// The parent is read before the decrement: after it the element may be gone, unless this release
// is the one that left the pool's reference alone.
int ITnPoolElement::Release() {
    ITnPoolUnknown* pParent = m_pParent;
    const int nBefore = m_nRefCount.fetch_sub(1);
    if (nBefore == 2 && pParent != nullptr) {
        pParent->RecoveryResource(this);
    } else if (nBefore == 1) {
        delete this;
    }
    return nBefore - 1;
}

void ITnPoolElement::SetParent(ITnPoolUnknown* pParent) {
    m_pParent = pParent;
}
