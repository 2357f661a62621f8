/// @file
/// A loop whose passes are done side by side on the tasks of a pool: ForEach.

#ifndef TNROBOTKERNEL_TN_FOR_EACH_H_
#define TNROBOTKERNEL_TN_FOR_EACH_H_

#include <array>
#include <cstddef>
#include <exception>

#include "TnRobotKernel/tn/cancel.h"
#include "TnRobotKernel/tn/detail/Crew.h"

namespace tn {

/// @addtogroup work
/// @{

/// How a ForEach goes about its work.
struct ForEachOptions {
    unsigned int nThreads = 0;                   ///< at most so many, the calling one included; 0: one per processor
    std::chrono::milliseconds limit = kNoLimit;  ///< no pass begins later than this after the call
};

/// @}

namespace detail {

// What the threads of a loop share. Workers may come to it when it is long over: they find it closed and
// touch nothing of the caller's.
//
// Passes are taken one by one, so that no thread has two of them to do while another has none; but where
// they take less than the taking, in short runs. Threads take turns on one counter, which lies apart from
// what they only read.
//
// Invariants: passes are taken by counting m_nNext up; m_nInside workers are between their coming and
// their going, and the caller does not leave before that is 0 and m_bClosed is set.
class LoopBase : public Errand {
public:
    LoopBase(std::size_t nCount, unsigned int nThreads, std::chrono::milliseconds limit)
        : m_nCount(nCount),
          m_nThreads(std::max(1U, nThreads)),
          m_cancel(std::make_shared<CancelState>(After(limit))),
          m_token(m_cancel) {}

    void Do() noexcept override {
        if (Enter()) {
            Turn();
            Leave();
        }
    }

    bool IsOver() const override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_bClosed && m_nInside == 0;
    }

    // Passes as long as there are any.
    void Turn() noexcept {
        std::size_t nDone = 0;
        std::size_t nRun = 1;
        std::size_t nBehind = 0;  // the last run
        int nRuns = 0;            // since the clock was looked at
        Clock::time_point looked = Clock::now();
        for (std::size_t nFirst = TakeRun(nRun); nFirst < m_nCount; nFirst = TakeRun(nRun)) {
            const bool bAlone = nFirst == nBehind;
            const std::size_t nTaken = std::min(nRun, m_nCount - nFirst);
            const std::size_t nTried = TryRun(nFirst, nTaken);
            nDone += nTried;
            if (nTried < nTaken) {
                break;
            }
            nBehind = nFirst + nTaken;
            ++nRuns;
            if (!bAlone) {  // nobody else wants the counter otherwise
                const Clock::time_point now = Clock::now();
                nRun = NextRun(nRun, m_nCount - nBehind, (now - looked) / nRuns);
                looked = now;
                nRuns = 0;
            }
        }
        m_nDone += nDone;
    }

    bool HasMore() const { return m_next.nPass.load(std::memory_order_relaxed) < m_nCount && !m_cancel->IsCancelled(); }

    // Waits for the passes at work; nobody comes any more. @return whether all passes were done.
    bool Close() {
        CloseDoor();
        // Whoever has found no pass left is gone in a moment.
        SpinUntil([this] { return m_nInside == 0; });
        std::unique_lock<std::mutex> lock(m_mutex);
        m_left.wait(lock, [this] { return m_nInside == 0; });
        if (m_failure) {
            std::rethrow_exception(std::move(m_failure));
        }
        return m_nDone == m_nCount;
    }

protected:
    virtual void Pass(std::size_t nPass, const CancelToken& token) = 0;

private:
    // A counter that threads take turns on, on a cache line of its own: what they only read stays where it is.
    struct Apart {
        std::array<char, 64> before{};
        std::atomic<std::size_t> nPass{0};
        std::array<char, 64> behind{};
    };

    std::size_t TakeRun(std::size_t nRun) { return m_next.nPass.fetch_add(nRun, std::memory_order_relaxed); }

    // @return how many were done: fewer than there are when nothing more shall begin.
    std::size_t TryRun(std::size_t nFirst, std::size_t nCount) {
        for (std::size_t n = 0; n < nCount; ++n) {
            if (m_cancel->IsCancelled() || !TryPass(nFirst + n)) {
                return n;
            }
        }
        return nCount;
    }

    // What comes may be longer than what was: a run stays short, and the last passes are shared one by one.
    std::size_t NextRun(std::size_t nRun, std::size_t nLeft, Clock::duration time) const {
        constexpr std::size_t kLongestRun = 16;
        constexpr std::chrono::microseconds kWorthTaking{1};
        if (time >= kWorthTaking) {
            return 1;
        }
        return std::max<std::size_t>(1, std::min({2 * nRun, kLongestRun, nLeft / (std::size_t{2} * m_nThreads)}));
    }

    bool TryPass(std::size_t nPass) {
        try {
            Pass(nPass, m_token);
            return true;
        } catch (...) {
            Fail(std::current_exception());
            return false;
        }
    }

    // Stored before anybody hears of it, and answers by failing too.
    void Fail(std::exception_ptr failure) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_failure) {
                m_failure = std::move(failure);
            }
        }
        m_cancel->Cancel();
    }

    void CloseDoor() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bClosed = true;
    }

    // Only for passes: whoever waits for the end has one less to wait for.
    bool Enter() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_bClosed || !HasMore()) {
            return false;
        }
        ++m_nInside;
        return true;
    }

    void Leave() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        --m_nInside;
        m_left.notify_one();
    }

    const std::size_t m_nCount;
    const unsigned int m_nThreads;
    const std::shared_ptr<CancelState> m_cancel;
    const CancelToken m_token;
    Apart m_next;
    std::atomic<std::size_t> m_nDone{0};
    mutable std::mutex m_mutex;
    std::condition_variable m_left;
    std::atomic<unsigned int> m_nInside{0};  // changed under m_mutex
    bool m_bClosed = false;                  // guarded by m_mutex
    std::exception_ptr m_failure;            // guarded by m_mutex; the first one
};

template <typename Job>
class Loop final : public LoopBase {
public:
    Loop(std::size_t nCount, unsigned int nThreads, std::chrono::milliseconds limit, Job& job)
        : LoopBase(nCount, nThreads, limit), m_job(job) {}

private:
    void Pass(std::size_t nPass, const CancelToken& token) override { CallJob(m_job, token, nPass); }

    Job& m_job;
};

// How many helpers the caller of a loop wakes itself: all of them at once, or only one where the last loop
// with this job was over before a second one could have come. A guess that is wrong costs some ten
// microseconds, for helpers wake each other.
template <typename Job>
class WakingGuess {
public:
    WakingGuess() = default;
    WakingGuess(const WakingGuess&) = delete;
    WakingGuess& operator=(const WakingGuess&) = delete;
    ~WakingGuess() { s_bShort.store(Clock::now() - m_begun < kShort, std::memory_order_relaxed); }

    unsigned int Helpers(unsigned int nThreads) const {
        return s_bShort.load(std::memory_order_relaxed) ? std::min(1U, nThreads - 1) : nThreads - 1;
    }

private:
    static constexpr std::chrono::microseconds kShort{50};
    static inline std::atomic<bool> s_bShort{false};

    const Clock::time_point m_begun = Clock::now();
};

// The caller works too: alone when nobody can be had, and until the others have come.
inline bool RunLoop(ITnRobotTaskPool& pool, const std::shared_ptr<LoopBase>& loop, unsigned int nThreads,
                    unsigned int nAwake) {
    std::shared_ptr<Crew> crew;
    try {
        if (nThreads > 1) {
            crew = CrewRegistry::Here().CrewOf(pool);
            crew->Offer(pool, loop, nThreads - 1, nAwake, [&loop] { return loop->HasMore(); });
        }
    } catch (...) {
        // With fewer hands: whoever has come already must find the loop in order.
    }
    loop->Turn();
    if (crew) {
        crew->Withdraw(*loop);
    }
    return loop->Close();
}

}  // namespace detail

/// @addtogroup work
/// @{

/// Calls a job once for each number from 0 to nCount - 1, side by side on tasks of the pool and on the
/// calling thread, and returns when all calls have. Numbers are taken in their order: one by one, or up to
/// sixteen at a time where calls take less than a microsecond. So a call must not wait for a later one.
///
/// The first call for a pool starts its tasks, about a millisecond each. They wait a second for the next
/// call, also one from another thread, and join it within microseconds; the caller never waits for a task
/// that has something else to do. So a job may call ForEach itself, as often as it likes.
///
/// When a call throws, no more begin, those at work are waited for, and the first exception is thrown here.
/// When the time limit passes, no more begin and those at work are waited for: they hear of it from their
/// token, and nothing goes on behind the caller's back.
/// @param[in] pool     borrowed for the call.
/// @param[in] nCount   how many.
/// @param[in] job      `void(std::size_t)` or `void(std::size_t, const tn::CancelToken&)`; several threads
///                     call it at once.
/// @param[in] options  threads, of which at most 64 help, and the time limit.
/// @param[out] ec      std::errc::timed_out when some were not begun in time; otherwise cleared.
/// @return whether all calls were made. Without a task to be had the calling thread makes all of them.
template <typename Job>
bool ForEach(ITnRobotTaskPool& pool, std::size_t nCount, Job&& job, const ForEachOptions& options,
             std::error_code& ec) {
    ec.clear();
    using Function = std::remove_reference_t<Job>;
    const std::size_t nWanted = options.nThreads != 0 ? options.nThreads : detail::Processors();
    const auto nThreads = static_cast<unsigned int>(std::min<std::size_t>({nWanted, nCount, detail::kMostWorkers + 1}));
    const std::shared_ptr<detail::LoopBase> loop =
        std::make_shared<detail::Loop<Function>>(nCount, nThreads, options.limit, job);
    const detail::WakingGuess<Function> guess;
    if (!detail::RunLoop(pool, loop, nThreads, guess.Helpers(std::max(1U, nThreads)))) {
        ec = std::make_error_code(std::errc::timed_out);
    }
    return !ec;
}

/// Overload without the reason.
/// @param[in] pool     borrowed for the call.
/// @param[in] nCount   how many.
/// @param[in] job      as above.
/// @param[in] options  threads and time limit.
/// @return whether all calls were made.
template <typename Job>
[[nodiscard]] bool ForEach(ITnRobotTaskPool& pool, std::size_t nCount, Job&& job, const ForEachOptions& options) {
    std::error_code ignored;
    return ForEach(pool, nCount, std::forward<Job>(job), options, ignored);
}

/// Overload with one thread per processor and without a limit: when it returns, all calls were made.
/// @param[in] pool    borrowed for the call.
/// @param[in] nCount  how many.
/// @param[in] job     as above.
template <typename Job>
void ForEach(ITnRobotTaskPool& pool, std::size_t nCount, Job&& job) {
    std::error_code ignored;
    ForEach(pool, nCount, std::forward<Job>(job), ForEachOptions(), ignored);
}

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_TN_FOR_EACH_H_
