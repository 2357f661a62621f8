// The count that every object begins with.

#include "TnRobotKernel/core.h"
#include "checked/TnChecked.h"
#include "core/TnCounting.h"

ITnUnknown::~ITnUnknown() {
    tnrobot::Unwatch(this);
}

void ITnUnknown::AddRef() {
    const int nBefore = m_nRefCount.fetch_add(1);
    tnrobot::CheckAddRef(this, nBefore);
}

int ITnUnknown::Release() {
    // The result comes from this one atomic operation: after it the object may be gone already. Its
    // order publishes the plain fields: the last holder sees all that the others wrote before.
    return tnrobot::FollowFall(this, m_nRefCount.fetch_sub(1));
}
