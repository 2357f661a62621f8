// The watched objects of checked builds: which there are, which of them lie free in a pool, and how a
// mistake ends. The library gets here through TnChecked.h only.

#ifndef TNROBOTKERNEL_SRC_CHECKED_TNWATCH_H_
#define TNROBOTKERNEL_SRC_CHECKED_TNWATCH_H_

#include <cstddef>
#include <typeinfo>

#include "TnRobotKernel/core.h"

/// An object is watched when the library made it through Watch. Objects of applications are not:
/// nothing tells where they live and what their pools do with them, and a Release too many of
/// theirs has a result that callers may rely on. All functions ignore objects that are not
/// watched, and none keeps LeakSanitizer from seeing that an object is lost.
///
/// Threads: thread-safe. The locks inside are held for a look-up only; nothing is called out to.
namespace tnrobot::checked {

/// Begins to watch an object of nSize bytes.
void Enter(const ITnUnknown* pObject, std::size_t nSize, const std::type_info& type);

/// Ends it.
void Leave(const ITnUnknown* pObject);

/// Destroys an object by its last release. Where no sanitizer does better its memory is kept for
/// a while with stand-ins in it, so that a further call of the object stops the process.
void Destroy(ITnUnknown* pObject);

/// Marks an object as lying free in its pool. @return false, with nothing done, unless both are
/// watched and the pool is not being destroyed.
bool SetFree(const ITnUnknown* pObject, const ITnUnknown* pPool);

/// Takes the mark off. @return whether there was one.
bool ClearFree(const ITnUnknown* pObject);

/// Hides everything of a free object but its first nHeader bytes from AddressSanitizer.
void HideBody(const ITnUnknown* pObject, std::size_t nHeader);

/// Shows it again.
void ShowBody(const ITnUnknown* pObject);

/// Stops the process for an object that lies free in a pool that lives.
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

/// Stops the process for an object of which nothing is known any more.
[[noreturn]] void StopUnknown(const char* lpszWhat);

/// Writes a line to the standard error output for each class of which watched objects are alive;
/// objects that lie free in a pool are the pool's and do not count.
void ReportLiveObjects();

/// @return whether the calling thread is allocating or freeing memory of the checks themselves, for
///         tests that count allocations or let them fail.
bool IsOwnAllocation();

/// Frees the memory of destroyed objects that is still kept.
void FreeKept();

/// Takes every lock of the checks.
void LockForFork();

/// Gives them back.
void UnlockAfterFork();

}  // namespace tnrobot::checked

#endif  // TNROBOTKERNEL_SRC_CHECKED_TNWATCH_H_
