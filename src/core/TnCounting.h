// How references are counted, for every class with a Release of its own.

#ifndef TNROBOTKERNEL_SRC_CORE_TNCOUNTING_H_
#define TNROBOTKERNEL_SRC_CORE_TNCOUNTING_H_

#include <atomic>

#include "checked/TnChecked.h"

namespace tnrobot {

/// Adds nChange to a count for as long as mayChange, asked with what the count is just then, agrees.
/// What mayChange reads was so when the count had this value: the exchange fails otherwise.
/// @param[out] nBefore  the count before the change, or the one that mayChange has refused.
/// @return whether the count has changed.
template <typename Condition>
inline bool ChangeCountIf(std::atomic<int>& nCount, int nChange, int& nBefore, Condition mayChange) {
    int nNow = nCount.load();
    bool bMay = mayChange(nNow);
    while (bMay && !nCount.compare_exchange_weak(nNow, nNow + nChange)) {
        bMay = mayChange(nNow);
    }
    nBefore = nNow;
    return bMay;
}

/// What the fall of a count from nBefore by one brings about: an object of a pool has the pool's
/// reference beside its holders', so the fall from 2 to 1 gives it back to its parent and that from
/// 1 to 0, without a parent, destroys it. Nothing of the object is touched when neither happens: it may be gone.
/// @param[in] pParent   what was the object's parent when the count fell; null for none.
/// @param[in] giveBack  called with the parent.
/// @return what Release returns.
template <typename Parent, typename GiveBack>
inline int FollowFall(ITnUnknown* pObject, int nBefore, Parent* pParent, GiveBack giveBack) {
    if (nBefore == 2 && pParent != nullptr) {
        giveBack(*pParent);
    } else if (nBefore <= 1) {
        CheckRelease(pObject, nBefore);
        if (nBefore == 1) {
            Destroy(pObject);
        }
    }
    return nBefore - 1;
}

/// The same for an object that no pool has.
inline int FollowFall(ITnUnknown* pObject, int nBefore) {
    return FollowFall(pObject, nBefore, static_cast<ITnUnknown*>(nullptr), [](ITnUnknown& /*parent*/) {});
}

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CORE_TNCOUNTING_H_
