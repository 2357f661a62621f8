// What the library tells the checked mode, and what it asks of it. Everything here is empty in builds
// without it; the rest of src/checked is not part of them.
//
// A checked build watches every counted object that the library makes, from its creation to some time
// after its destruction. A mistake of a caller's stops the process with the name of the class; objects
// left over when the library goes are reported.

#ifndef TNROBOTKERNEL_SRC_CHECKED_TNCHECKED_H_
#define TNROBOTKERNEL_SRC_CHECKED_TNCHECKED_H_

#include <atomic>
#include <cstddef>
#include <typeinfo>

#include "TnRobotKernel/core.h"
#include "checked/TnWatch.h"

namespace tnrobot {

/// Whether this is a checked build: the build option TNROBOT_CHECKED.
#ifdef TNROBOT_CHECKED
constexpr bool kChecked = true;
#else
constexpr bool kChecked = false;
#endif

// The life of an object.

/// Begins to watch a new object of the library's. @return pObject.
template <typename Class>
inline Class* Watch(Class* pObject) {
    if constexpr (kChecked) {
        checked::Enter(pObject, sizeof(Class), typeid(Class));
    }
    return pObject;
}

/// Ends it; for the root's destructor.
inline void Unwatch(const ITnUnknown* pObject) {
    if constexpr (kChecked) {
        checked::Leave(pObject);
    }
}

/// What a Release does that has found the count at 1.
inline void Destroy(ITnUnknown* pObject) {
    if constexpr (kChecked) {
        checked::Destroy(pObject);
    } else {
        delete pObject;
    }
}

// What a pool does with an object: it comes back and lies free, and is taken again. Only an object that
// is watched, in a pool that is and that is not being destroyed, counts as free. Its owner may show that
// somebody still holds it by its count: then nothing is noted.

/// The object lies free.
inline void NoteFreed(const ITnUnknown* pObject, const ITnUnknown* pPool) {
    if constexpr (kChecked) {
        checked::SetFree(pObject, pPool);
    }
}

/// The object lies free, and everything behind its first nHeader bytes is hidden.
inline void NoteFreed(const ITnUnknown* pObject, const std::atomic<int>& nCount, const ITnUnknown* pPool,
                      std::size_t nHeader) {
    if constexpr (kChecked) {
        if (nCount.load() == 1 && checked::SetFree(pObject, pPool)) {
            checked::HideBody(pObject, nHeader);
        }
    }
}

/// The object lies free, and so do nSize bytes of memory that it refers to: they are hidden.
/// @return whether they are.
inline bool NoteFreed(const ITnUnknown* pObject, const std::atomic<int>& nCount, const ITnUnknown* pPool,
                      unsigned char* pMemory, std::size_t nSize) {
    bool bFree = false;
    if constexpr (kChecked) {
        bFree = nCount.load() == 1 && checked::SetFree(pObject, pPool);
        if (bFree) {
            checked::HideMemory(pMemory, nSize);
        }
    }
    return bFree;
}

/// The object is taken, and what was hidden of it is shown. Changes nothing for one that was not free.
/// @return whether it was.
inline bool NoteTaken(const ITnUnknown* pObject) {
    if constexpr (kChecked) {
        checked::ShowBody(pObject);
        return checked::ClearFree(pObject);
    }
    return false;
}

/// The object is taken, and so is its memory; stops the process when that was written to.
inline void NoteTaken(const ITnUnknown* pObject, const unsigned char* pMemory, std::size_t nSize) {
    if constexpr (kChecked) {
        if (checked::ClearFree(pObject)) {
            checked::ShowMemory(pMemory, nSize, typeid(*pObject));
        }
    }
}

// What callers do with an object.

/// Stops a call of an object that lies free. Only the pool refers to such an object, so a higher
/// count saves the look-up.
inline void CheckUsed(const ITnUnknown* pObject, const std::atomic<int>& nCount) {
    if constexpr (kChecked) {
        if (nCount.load() <= 1) {
            checked::StopIfFree(pObject, "used after its return to its pool");
        }
    }
}

/// Tests the count that an AddRef has found: nobody but the pool may revive a free object.
inline void CheckAddRef(const ITnUnknown* pObject, int nBefore) {
    if constexpr (kChecked) {
        if (nBefore <= 1) {
            checked::StopIfFree(pObject, "AddRef after its return to its pool");
        }
    }
}

/// Tests the count that a Release has found. A pool takes an object before it gives its own reference
/// back, so a last release of a free object is somebody else's.
inline void CheckRelease(const ITnUnknown* pObject, int nBefore) {
    if constexpr (kChecked) {
        if (nBefore <= 0) {
            checked::StopIfWatched(pObject, "Release below zero");
        } else if (nBefore == 1) {
            checked::StopIfFree(pObject, "Release below zero, the object lies free in its pool");
        }
    }
}

// What a class says of itself.

/// Stops the process when a class finds its own state broken.
template <typename Class>
inline void CheckInvariant(const Class& /*object*/, bool bHolds, const char* lpszInvariant) {
    if constexpr (kChecked) {
        if (!bHolds) {
            checked::Stop(typeid(Class), lpszInvariant);
        }
    }
}

/// Calls what is too expensive for other builds.
template <typename Check>
inline void IfChecked(Check check) {
    if constexpr (kChecked) {
        check();
    }
}

// The process.

/// Reports what is left over and frees what the checks have kept; the last thing that the library does.
inline void EndChecks() {
    if constexpr (kChecked) {
        checked::ReportLiveObjects();
        checked::FreeKept();
    }
}

/// Takes every lock of the checks, so that none is lost in a child; called before a fork.
inline void LockChecksForFork() {
    if constexpr (kChecked) {
        checked::LockForFork();
    }
}

/// Gives them back, in the parent and in the child.
inline void UnlockChecksAfterFork() {
    if constexpr (kChecked) {
        checked::UnlockAfterFork();
    }
}

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CHECKED_TNCHECKED_H_
