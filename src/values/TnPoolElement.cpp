// The count of an element: its last holder's Release returns it to its pool.

#include <utility>

#include "TnRobotKernel/pool.h"
#include "checked/TnChecked.h"
#include "core/TnCounting.h"

ITnPoolUnknown::~ITnPoolUnknown() = default;
ITnPoolElement::~ITnPoolElement() = default;
ITnElementAlloc::~ITnElementAlloc() = default;

// The parent is read before the decrement: after it the element may be gone, unless this release
// is the one that left the pool's reference alone. It may be plain: it is cleared only after the
// last holder's decrement, which every other holder's comes before.
int ITnPoolElement::Release() {
    ITnPoolUnknown* pParent = m_pParent;
    return tnrobot::FollowFall(this, m_nRefCount.fetch_sub(1), pParent,
                               [this](ITnPoolUnknown& parent) { parent.RecoveryResource(this); });
}

// Losing the parent is the last thing that happens to an element before it lies free, getting one
// the last before it is in use. What the pool itself looks at meanwhile stays in sight.
void ITnPoolElement::SetParent(ITnPoolUnknown* pParent) {
    const ITnPoolUnknown* const pBefore = std::exchange(m_pParent, pParent);
    if (pParent != nullptr) {
        tnrobot::NoteTaken(this);
    } else if (pBefore != nullptr) {
        tnrobot::NoteFreed(this, m_nRefCount, pBefore, sizeof(ITnPoolElement));
    }
}
