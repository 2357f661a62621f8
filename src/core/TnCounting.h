// How references are counted, for every class with a Release of its own.

#ifndef TNROBOTKERNEL_SRC_CORE_TNCOUNTING_H_
#define TNROBOTKERNEL_SRC_CORE_TNCOUNTING_H_

#include <atomic>

#include "checked/TnChecked.h"
#include "core/TnSchedule.h"

namespace tnrobot {

/// @return what a count is just now.
inline int ReadCount(const std::atomic<int>& nCount) {
    SchedulePoint();
    return nCount.load();
}

/// Adds one to a count. @return what it was.
inline int RaiseCount(std::atomic<int>& nCount) {
    SchedulePoint();
    const int nBefore = nCount.fetch_add(1);
    SchedulePoint();
    return nBefore;
}

/// Takes nBy from a count. @return what it was.
inline int LowerCount(std::atomic<int>& nCount, int nBy = 1) {
    SchedulePoint();
    const int nBefore = nCount.fetch_sub(nBy);
    SchedulePoint();
    return nBefore;
}

/// Adds nChange to a count for as long as mayChange, asked with what the count is just then, agrees.
/// What mayChange reads was so when the count had this value: the exchange fails otherwise.
/// @param[out] nBefore  the count before the change, or the one that mayChange has refused.
/// @return whether the count has changed.
template <typename Condition>
inline bool ChangeCountIf(std::atomic<int>& nCount, int nChange, int& nBefore, Condition mayChange) {
    int nNow = ReadCount(nCount);
    bool bMay = mayChange(nNow);
    SchedulePoint();
    while (bMay && !nCount.compare_exchange_weak(nNow, nNow + nChange)) {
        bMay = mayChange(nNow);
    }
    SchedulePoint();
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
