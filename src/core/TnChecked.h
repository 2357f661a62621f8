// What checked builds watch: every counted object that the library makes, from its creation to
// some time after its destruction. A mistake of a caller's stops the process with the name of the
// class; objects left over when the library goes are reported. In other builds all of it is
// empty.

#ifndef TNROBOTKERNEL_SRC_CORE_TNCHECKED_H_
#define TNROBOTKERNEL_SRC_CORE_TNCHECKED_H_

#include <atomic>
#include <cstddef>
#include <typeinfo>

#include "TnRobotKernel/core.h"

namespace tnrobot {

/// Whether this is a checked build (the build option TNROBOT_CHECKED): the one switch of every
/// check here and of the classes' CheckInvariants.
#ifdef TNROBOT_CHECKED
constexpr bool kChecked = true;
#else
constexpr bool kChecked = false;
#endif

/// The checks themselves, which only checked builds contain; the library calls them through the
/// functions behind this namespace.
///
/// An object is watched when the library made it through Watch. Objects of applications are not:
/// nothing tells where they live and what their pools do with them, and a Release too many of
/// theirs has a result that callers may rely on. All functions ignore objects that are not
/// watched, and none keeps LeakSanitizer from seeing that an object is lost.
///
/// Threads: thread-safe. The locks inside are held for a look-up only; nothing is called out to.
namespace checked {

/// Begins to watch an object of nSize bytes.
void Enter(const ITnUnknown* pObject, std::size_t nSize, const std::type_info& type);

/// Ends it; called by the root's destructor.
void Leave(const ITnUnknown* pObject);

/// Destroys an object by its last release. Where no sanitizer does better the memory is kept for
/// a while, so that a further call of the object stops the process.
void Destroy(ITnUnknown* pObject);

/// Marks an object as lying free in its pool. @return false, with nothing done, unless both are
/// watched and the pool is not being destroyed.
bool SetFree(const ITnUnknown* pObject, const ITnUnknown* pPool);

/// Takes the mark off. @return whether there was one.
bool ClearFree(const ITnUnknown* pObject);

/// @return whether the object lies free in a pool that lives.
bool IsFree(const ITnUnknown* pObject);

/// Hides everything of a free object but its first nHeader bytes from AddressSanitizer.
void HideBody(const ITnUnknown* pObject, std::size_t nHeader);

/// Shows it again.
void ShowBody(const ITnUnknown* pObject);

/// Stops the process for an object for which IsFree holds.
/// @param[in] lpszWhat  what was done to it, for the message.
void StopIfFree(const ITnUnknown* pObject, const char* lpszWhat);

/// Stops the process when the object is watched; the caller has seen its count below 1.
void StopIfWatched(const ITnUnknown* pObject, const char* lpszWhat);

/// The most bytes that a pattern covers: a large block that was hardly used would otherwise cost
/// its whole size in time and memory whenever it comes back.
constexpr std::size_t kMostPattern = std::size_t{256} << 10U;

/// Hides memory that nobody may use until it is taken again: from AddressSanitizer where there is
/// one, its first kMostPattern bytes under a pattern elsewhere.
void HideMemory(unsigned char* pMemory, std::size_t nSize);

/// Shows it again; stops the process when the pattern was written to.
/// @param[in] type  class of the object that the memory belonged to.
void ShowMemory(const unsigned char* pMemory, std::size_t nSize, const std::type_info& type);

/// Stops the process.
[[noreturn]] void Stop(const std::type_info& type, const char* lpszWhat);

/// Writes a line to the standard error output for each class of which watched objects are alive;
/// objects that lie free in a pool are the pool's and do not count.
void ReportLiveObjects();

/// @return whether the calling thread is allocating or freeing memory of the checks themselves, for
///         tests that count allocations or let them fail.
bool IsOwnAllocation();

/// Frees the memory of the destroyed objects that is still kept.
void EmptyQuarantine();

/// Takes every lock of the checks, so that none is lost in a child; called before a fork.
void LockForFork();

/// Gives them back, in the parent and in the child.
void UnlockAfterFork();

}  // namespace checked

/// Begins to watch a new object of the library's. @return pObject.
template <typename Class>
inline Class* Watch(Class* pObject) {
    if constexpr (kChecked) {
        checked::Enter(pObject, sizeof(Class), typeid(Class));
    }
    return pObject;
}

/// What a Release does that has found the count at 1.
inline void Destroy(ITnUnknown* pObject) {
    if constexpr (kChecked) {
        checked::Destroy(pObject);
    } else {
        delete pObject;
    }
}

/// Tests the count that a Release has found. A pool takes its mark off a free object before it
/// gives its own reference back, so a last release of a marked object is somebody else's.
inline void CheckRelease(const ITnUnknown* pObject, int nBefore) {
    if constexpr (kChecked) {
        if (nBefore <= 0) {
            checked::StopIfWatched(pObject, "Release below zero");
        } else if (nBefore == 1) {
            checked::StopIfFree(pObject, "Release below zero, the object lies free in its pool");
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

/// Stops a call of an object that lies free. Only the pool refers to such an object, so a higher
/// count saves the look-up.
inline void CheckInUse(const ITnUnknown* pObject, const std::atomic<int>& nCount) {
    if constexpr (kChecked) {
        if (nCount.load() <= 1) {
            checked::StopIfFree(pObject, "used after its return to its pool");
        }
    }
}

/// Stops the process when a class finds its own state broken.
template <typename Class>
inline void CheckInvariant(const Class& /*object*/, bool bHolds, const char* lpszInvariant) {
    if constexpr (kChecked) {
        if (!bHolds) {
            checked::Stop(typeid(Class), lpszInvariant);
        }
    }
}

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CORE_TNCHECKED_H_
