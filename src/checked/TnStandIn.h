// What takes the place of a destroyed object in checked builds.

#ifndef TNROBOTKERNEL_SRC_CHECKED_TNSTANDIN_H_
#define TNROBOTKERNEL_SRC_CHECKED_TNSTANDIN_H_

#include <cstddef>
#include <typeinfo>

namespace tnrobot::checked {

/// Looks like an object of any interface and stops the process, naming the class of the object
/// that was there, whatever operation is called.
///
/// A stand-in is one table pointer long. A destroyed object's memory is kept for a while and is
/// filled with stand-ins from its start to its end, so that a call through any of its bases meets
/// one. A write to it shows when the memory is freed: then a stand-in is broken.
class StandIn {
public:
    StandIn() = delete;

    /// Fills a destroyed object's memory and keeps it; what has been kept longest is freed for it.
    /// @param[in] pMemory  from the global operator new; taken over.
    static void Replace(void* pMemory, std::size_t nSize, const std::type_info& type);

    /// Frees all that is kept. Thread-safe, as Replace.
    static void FreeAll();

    /// Holds the lock of what is kept while the process forks.
    static void Lock();
    static void Unlock();
};

}  // namespace tnrobot::checked

#endif  // TNROBOTKERNEL_SRC_CHECKED_TNSTANDIN_H_
