// The condition variable that events and signals wait with.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNCONDITION_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNCONDITION_H_

#include <chrono>
#include <mutex>

#include "core/TnFork.h"
#include "core/TnSchedule.h"

namespace tnrobot {

/// A condition variable that knows nothing of the threads of other processes: what waited for it in
/// the parent of a forked child does not come back there, and both the end of a condition variable
/// and a second notification would wait for it.
///
/// Threads: every operation wants the mutex that belongs to it held.
class Condition {
public:
    Condition() = default;
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;
    ~Condition() { _Here(); }

    void NotifyOne() { _Here().notify_one(); }
    void NotifyAll() { _Here().notify_all(); }

    /// Waits until somebody notifies, without a time limit, or for no reason.
    void Wait(std::unique_lock<Mutex>& lock) { _Here().wait(lock); }

    /// Waits once, for nMs milliseconds of the monotonic clock at most. There is deliberately no loop
    /// around the wait: callers rely on a notification ending it even when the state that it announced
    /// is gone again, and poll in loops of their own. The deadline has 64 bits, so every nMs is valid.
    void WaitOnce(std::unique_lock<Mutex>& lock, unsigned int nMs) {
        _Here().wait_until(lock, std::chrono::steady_clock::now() + std::chrono::milliseconds(nMs));
    }

private:
    ConditionVariable& _Here() {
        if (!m_home.IsHere()) {
            Forget(m_changed);
            m_home.Settle();
        }
        return m_changed;
    }

    HomeProcess m_home;
    ConditionVariable m_changed;
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNCONDITION_H_
