// What a forked child has to know. Only the thread that calls fork exists in the child: a lock that
// another thread held at that moment stays locked there, and nobody answers who is waited for.

#ifndef TNROBOTKERNEL_SRC_CORE_TNFORK_H_
#define TNROBOTKERNEL_SRC_CORE_TNFORK_H_

#include <atomic>
#include <mutex>
#include <new>

namespace tnrobot {

/// How many forks lie between the process that loaded the library and this one. Counted instead of
/// asking for the process's number: that is a call of the system, and numbers come again.
///
/// Relaxed operations suffice: it changes in a new child only, while that has a single thread, and all
/// its other threads are started by that one, directly or not.
extern std::atomic<unsigned int> g_nForks;

/// The process in which something was made, or settled.
///
/// Relaxed operations suffice: the answer publishes nothing. What is settled is settled under the lock
/// of its owner, or before another thread knows of it.
class HomeProcess {
public:
    HomeProcess() { Settle(); }

    /// @return whether this is that process, and no child of it.
    bool IsHere() const { return m_nForks.load(std::memory_order_relaxed) == g_nForks.load(std::memory_order_relaxed); }

    /// Makes this process the one.
    void Settle() { m_nForks.store(g_nForks.load(std::memory_order_relaxed), std::memory_order_relaxed); }

private:
    std::atomic<unsigned int> m_nForks{0};
};

/// Puts a fresh object into the place of one whose destructor would wait for threads that are not
/// there. What the old one held is left to the end of the process.
template <typename T>
void Forget(T& object) {
    new (&object) T;
}

/// Keeps a mutex usable in children: a fork waits until the mutex is free and holds it meanwhile, so
/// that the child finds it free and what it guards whole.
///
/// For mutexes that are held for moments only, and never while code of an application runs, which
/// might fork. It is the mutex owner's last member, so that it comes last and goes first.
///
/// Lock order: fork takes the lock of the list, then the mutexes from the oldest to the newest.
class ForkSafe {
public:
    explicit ForkSafe(std::mutex& mutex);
    ForkSafe(const ForkSafe&) = delete;
    ForkSafe& operator=(const ForkSafe&) = delete;
    ~ForkSafe();

    /// Tells the system what to do around a fork, until the library is unloaded; called at load.
    static void Install();

private:
    static void _LockAll();
    static void _UnlockAll();

    std::mutex& m_mutex;
    ForkSafe* m_pOlder = nullptr;  // guarded by the lock of the list, as is the next
    ForkSafe* m_pNewer = nullptr;
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CORE_TNFORK_H_
