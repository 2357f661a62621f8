// The one wait with a time-out that events and signals share.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNTIMEDWAIT_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNTIMEDWAIT_H_

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace tnrobot {

/// Waits once, for nMs milliseconds of the monotonic clock at most. There is deliberately no loop
/// around the wait: callers rely on a notification ending it even when the state that it announced
/// is gone again, and poll in loops of their own. The deadline has 64 bits, so every nMs is valid.
inline void WaitOnce(std::condition_variable& changed, std::unique_lock<std::mutex>& lock, unsigned int nMs) {
    changed.wait_until(lock, std::chrono::steady_clock::now() + std::chrono::milliseconds(nMs));
}

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNTIMEDWAIT_H_
