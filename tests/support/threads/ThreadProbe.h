// Looks at the threads of this process from outside, so that tests of threads wait for what has
// happened instead of sleeping.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_THREADS_THREADPROBE_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_THREADS_THREADPROBE_H_

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace tntest {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

/// Long enough for anything that is going to happen, also on a loaded machine under a sanitizer.
constexpr Milliseconds kLongEnough{60000};

/// @return how many threads the process has.
std::size_t CountThreads();

/// @return the system's number of the calling thread.
int ThisThreadNumber();

/// @return whether the process has a thread of that system number.
bool ThreadExists(int nThread);

/// @return whether a thread of this process waits for something, by its system number.
bool IsBlocked(int nThread);

/// Asks again and again, without sleeping.
/// @return true as soon as the answer is, false when it has not become true in time.
template <typename Answer>
bool Eventually(Answer answer, Milliseconds limit = kLongEnough) {
    const Clock::time_point end = Clock::now() + limit;
    while (!answer()) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/// For what must not happen. @return whether the answer was true every time during the whole span.
template <typename Answer>
bool StaysTrue(Answer answer, Milliseconds span) {
    return !Eventually([&answer] { return !answer(); }, span);
}

/// @return milliseconds since a moment.
inline double MillisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

/// A call on a thread of its own, for calls that block. Its end is waited for by the destructor.
class Caller {
public:
    explicit Caller(std::function<void()> call);
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;
    Caller(Caller&&) = default;
    Caller& operator=(Caller&&) = delete;
    ~Caller() { Join(); }

    /// Waits until all threads are blocked in their calls at one and the same moment. Asked one by one,
    /// a thread may be blocked only by another one that was stopped in front of its own wait and holds
    /// the lock for it: nothing has waited yet, and what only waits in progress hear is missed.
    /// @return whether they are; false as soon as one of the calls has returned.
    static bool AwaitAllBlocked(const std::vector<Caller>& callers);

    /// Waits until the thread has begun the call and is blocked in it, or the call has returned.
    /// @return whether it is blocked.
    bool AwaitBlocked() const;

    /// @return whether the call has returned.
    bool Returned() const { return m_pState->bReturned; }

    /// @return whether the call returned in time.
    bool AwaitReturn() const {
        return Eventually([this] { return Returned(); });
    }

    void Join() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    std::thread& Thread() { return m_thread; }

private:
    struct State {
        std::atomic<int> nThread{0};  // set when the call is about to be made
        std::atomic<bool> bReturned{false};
    };

    std::shared_ptr<State> m_pState = std::make_shared<State>();
    std::thread m_thread;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_THREADS_THREADPROBE_H_
