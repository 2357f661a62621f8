/// @file
/// Time limits on condition variables. Used by what waits in tn/.

#ifndef TNROBOTKERNEL_TN_DETAIL_WAITING_H_
#define TNROBOTKERNEL_TN_DETAIL_WAITING_H_

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace tn::detail {

using Clock = std::chrono::steady_clock;

// The moment a limit from now, or the last one there is: every limit is valid, one below 0 is 0.
inline Clock::time_point After(std::chrono::milliseconds limit) {
    if (limit == std::chrono::milliseconds::max()) {
        return Clock::time_point::max();
    }
    const Clock::time_point now = Clock::now();
    if (limit <= std::chrono::milliseconds::zero()) {
        return now;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - now);
    return limit < left ? now + limit : Clock::time_point::max();
}

// Waits until the answer is true. The last moment there is means no limit, and the system is not asked
// to count to it. @return the answer.
template <typename Answer>
bool WaitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock, Clock::time_point end,
               Answer answer) {
    if (end != Clock::time_point::max()) {
        return changed.wait_until(lock, end, answer);
    }
    changed.wait(lock, answer);
    return true;
}

// Waits some microseconds, awake, for what is about to happen: sleeping and being woken take longer.
template <typename Answer>
void SpinUntil(Answer answer) {
    constexpr int kMostLooks = 100;
    for (int n = 0; n < kMostLooks && !answer(); ++n) {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#elif defined(__aarch64__)
        asm volatile("yield");
#endif
    }
}

// The process that something was made in. The child of a fork has none of the parent's threads, so
// what waits for one must know that it has been inherited.
class Home {
public:
    Home() noexcept : m_nProcess(getpid()) {}

    bool IsHere() const { return m_nProcess == getpid(); }

private:
    pid_t m_nProcess;
};

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_WAITING_H_
