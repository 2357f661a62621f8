// What destroyed objects leave in their memory for a while in checked builds.

#ifndef TNROBOTKERNEL_SRC_CORE_TNGHOST_H_
#define TNROBOTKERNEL_SRC_CORE_TNGHOST_H_

#include <cstddef>
#include <typeinfo>

namespace tnrobot::checked {

/// Looks like an object of any interface and stops the process, naming the class of the object
/// that was there, whatever operation is called.
///
/// A ghost is one table pointer long. A destroyed object's memory is filled with ghosts, so that
/// a call through any of its bases meets one, and a write to it shows when its memory is freed.
class Ghost {
public:
    Ghost() = delete;

    /// Fills a destroyed object's memory and keeps it; what is kept longest is freed for it.
    /// @param[in] pMemory  from the global operator new; taken over.
    static void Bury(void* pMemory, std::size_t nSize, const std::type_info& type);

    /// Frees all that is kept. Thread-safe, as Bury.
    static void FreeAll();

    /// Holds the lock of what is kept while the process forks.
    static void Lock();
    static void Unlock();
};

}  // namespace tnrobot::checked

#endif  // TNROBOTKERNEL_SRC_CORE_TNGHOST_H_
