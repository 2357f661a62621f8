#include "TnRobotKernel/core.h"

ITnUnknown::~ITnUnknown() = default;

void ITnUnknown::AddRef() {
    m_nRefCount.fetch_add(1);
}

int ITnUnknown::Release() {
    // The result comes from this one atomic operation: after it the object may be gone already.
    const int nBefore = m_nRefCount.fetch_sub(1);
    if (nBefore == 1) {
        delete this;
    }
    return nBefore - 1;
}
