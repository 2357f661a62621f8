// The count that every object begins with.

#include "TnRobotKernel/core.h"
#include "checked/TnChecked.h"
#include "core/TnCounting.h"

ITnUnknown::~ITnUnknown() {
    tnrobot::Unwatch(this);
}

void ITnUnknown::AddRef() {
    const int nBefore = tnrobot::RaiseCount(m_nRefCount);
    tnrobot::CheckAddRef(this, nBefore);
}

int ITnUnknown::Release() {
    // The result comes from this one atomic operation: after it the object may be gone already. Its
    // order publishes the plain fields: the last holder sees all that the others wrote before.
    return tnrobot::FollowFall(this, tnrobot::LowerCount(m_nRefCount));
}
