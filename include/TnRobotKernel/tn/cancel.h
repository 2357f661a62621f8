/// @file
/// How a job hears that nobody needs its result any more, and the limit that is none.

#ifndef TNROBOTKERNEL_TN_CANCEL_H_
#define TNROBOTKERNEL_TN_CANCEL_H_

#include <atomic>
#include <memory>
#include <utility>

#include "TnRobotKernel/tn/detail/Waiting.h"

namespace tn {

/// @addtogroup work
/// @{

/// A time limit that never passes.
inline constexpr std::chrono::milliseconds kNoLimit = std::chrono::milliseconds::max();

/// @}

namespace detail {

// Cancelled by a call, or by a moment that has come.
class CancelState {
public:
    explicit CancelState(Clock::time_point end = Clock::time_point::max()) : m_end(end) {}
    CancelState(const CancelState&) = delete;
    CancelState& operator=(const CancelState&) = delete;

    void Cancel() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bCancelled = true;
        m_changed.notify_all();
    }

    bool IsCancelled() const noexcept {
        return m_bCancelled.load(std::memory_order_relaxed) ||
               (m_end != Clock::time_point::max() && Clock::now() >= m_end);
    }

    bool WaitUntil(Clock::time_point end) {
        std::unique_lock<std::mutex> lock(m_mutex);
        detail::WaitUntil(m_changed, lock, end < m_end ? end : m_end, [this] { return IsCancelled(); });
        return IsCancelled();
    }

private:
    const Clock::time_point m_end;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::atomic<bool> m_bCancelled{false};  // changed under m_mutex
};

}  // namespace detail

/// @addtogroup work
/// @{

/// What a job asks whether it shall go on. Nothing ends a job from outside: one that never asks runs to
/// its end, and whoever waits for it waits as long.
///
/// Lifetime: may be copied and kept; it stays as it is when the job is over.
/// Threads:  thread-safe.
class CancelToken {
public:
    /// One that is never cancelled.
    CancelToken() = default;

    /// Made by what runs jobs.
    /// @param[in] state  what is cancelled.
    explicit CancelToken(std::shared_ptr<detail::CancelState> state) : m_state(std::move(state)) {}

    /// @return whether the job should come to its end: somebody has cancelled it, or its time limit has
    ///         passed. Cheap enough for an inner loop: without a limit it reads one atomic.
    bool IsCancelled() const noexcept { return m_state && m_state->IsCancelled(); }

    /// Sleeps, but not longer than the job is wanted: for jobs that look at something now and then.
    /// @param[in] limit  how long; one below 0 is 0.
    /// @return true, at once, when the job should come to its end; false when the time has passed.
    [[nodiscard]] bool WaitFor(std::chrono::milliseconds limit) const {
        // One that is never cancelled still sleeps.
        const auto state = m_state ? m_state : std::make_shared<detail::CancelState>();
        return state->WaitUntil(detail::After(limit));
    }

private:
    std::shared_ptr<detail::CancelState> m_state;  // null: never
};

/// @}

namespace detail {

template <typename Job, typename... Args>
constexpr bool CheckResult() {
    constexpr bool kNothing = std::is_void_v<std::invoke_result_t<Job&, Args...>>;
    static_assert(kNothing, "A job returns nothing: have it store what it finds");
    return kNothing;
}

// Says what is wrong with a job in one sentence; what is false here is not compiled, so that the compiler's
// list of all that it tried does not follow.
template <typename Job, typename... Args>
constexpr bool CheckJob() {
    constexpr bool kWithToken = std::is_invocable_v<Job&, Args..., const CancelToken&>;
    constexpr bool kWithout = std::is_invocable_v<Job&, Args...>;
    static_assert(kWithToken || kWithout,
                  "This job cannot be called with what it is to be given: a number is a std::size_t, and an item of "
                  "a queue is moved in, so it is taken by value, as const Item& or as Item&&, but not as Item&");
    if constexpr (kWithToken) {
        return CheckResult<Job, Args..., const CancelToken&>();
    } else if constexpr (kWithout) {
        return CheckResult<Job, Args...>();
    }
    return kWithToken || kWithout;
}

// Calls a job that may or may not want the token.
template <typename Job, typename... Args>
void CallJob(Job& job, const CancelToken& token, Args&&... args) {
    if constexpr (!CheckJob<Job, Args...>()) {
        return;
    } else if constexpr (std::is_invocable_v<Job&, Args..., const CancelToken&>) {
        job(std::forward<Args>(args)..., token);
    } else {
        job(std::forward<Args>(args)...);
    }
}

}  // namespace detail

}  // namespace tn

#endif  // TNROBOTKERNEL_TN_CANCEL_H_
