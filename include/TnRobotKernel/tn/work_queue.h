/// @file
/// A bounded queue of work with tasks of its own: WorkQueue.

#ifndef TNROBOTKERNEL_TN_WORK_QUEUE_H_
#define TNROBOTKERNEL_TN_WORK_QUEUE_H_

#include <algorithm>
#include <system_error>
#include <thread>
#include <vector>

#include "TnRobotKernel/tn/detail/QueueState.h"
#include "TnRobotKernel/tn/detail/TaskStart.h"

namespace tn {

/// @addtogroup work
/// @{

/// What becomes of the items that wait when a WorkQueue is destroyed.
enum class AtEnd {
    kDrain,   ///< they are done first
    kCancel,  ///< they are dropped; those at work hear of it and are waited for
};

/// The most tasks that a WorkQueue may have. Each is a thread, and an idle task of its pool afterwards.
inline constexpr unsigned int kMostQueueThreads = 256;

/// How a WorkQueue goes about its work.
struct WorkQueueOptions {
    unsigned int nThreads = 0;     ///< tasks, kMostQueueThreads at most; 0: one per processor
    std::size_t nCapacity = 0;     ///< items that may wait; 0: two for each task
    AtEnd eAtEnd = AtEnd::kDrain;  ///< what the destructor does
};

/// Hands items to tasks that wait for them: a task that is free has one within microseconds of its Push,
/// without the millisecond that each start of a task takes. When more wait than the queue has room for,
/// Push waits, so a producer that is too fast slows down instead of using up the memory.
///
/// Items are begun in the order of their Push, and done side by side. A job that throws does not end
/// the queue: the others go on, and the next Wait or Finish throws the first exception since the last.
///
/// The tasks come from the pool and are the queue's until its end, when they go back. The pool may go
/// first: then they end with the queue. Waiting for items costs no processor time.
///
/// Lifetime: the end of the queue waits for the items at work, whatever the options say, and lets those
///           who are blocked in Push or Wait leave first. It must not come from inside a job of the
///           queue. In the child of a fork the end is the only thing allowed; it waits for nothing.
/// Threads:  thread-safe, also from inside jobs, where Push does not wait for room and Wait not at all.
/// @tparam Item  what is handed over; moving it must not throw.
template <typename Item>
class WorkQueue final {
public:
    /// Starts the tasks, about a millisecond each.
    /// @param[in] pool     borrowed for the call.
    /// @param[in] job      `void(Item)` or `void(Item, const tn::CancelToken&)`, with Item by value or any
    ///                     reference that an rvalue binds to; all tasks call it at once. It lives as long
    ///                     as the queue.
    /// @param[in] options  tasks, room, and what the end does.
    /// Throws std::system_error when the tasks cannot be started, all of them, which is std::errc::invalid_argument
    /// before any is started for more than kMostQueueThreads, and std::bad_alloc.
    template <typename Job>
    WorkQueue(ITnRobotTaskPool& pool, Job job, const WorkQueueOptions& options = {}) : m_eAtEnd(options.eAtEnd) {
        const unsigned int nThreads = CheckThreads(options.nThreads);
        const std::size_t nCapacity = options.nCapacity != 0 ? options.nCapacity : std::size_t{2} * nThreads;
        // Shared, because a std::function wants to be copied and a job may not.
        auto shared = std::make_shared<Job>(std::move(job));
        m_state = std::make_shared<State>(
            [shared = std::move(shared)](Item&& item, const CancelToken& token) {
                detail::CallJob(*shared, token, std::move(item));
            },
            nCapacity);
        StartTasks(pool, nThreads);
    }
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

    /// Ends the queue as the options say. Exceptions that no Wait has delivered are dropped.
    ~WorkQueue() {
        if (!m_home.IsHere()) {
            Abandon();
            return;
        }
        if (m_eAtEnd == AtEnd::kCancel) {
            m_state->Cancel();
        }
        End();
    }

    /// Hands an item over, and waits for room as long as there is none.
    /// @param[in] item   moved or copied into the queue; left as it is on failure.
    /// @param[in] limit  longest wait; one below 0 is 0, which does not wait.
    /// @param[out] ec    std::errc::timed_out: no room in time; operation_canceled: the queue takes
    ///                   nothing more; resource_deadlock_would_occur: no room, and this is a job of
    ///                   the queue, which must not wait for itself. Cleared on success.
    /// @return whether the item was taken.
    /// Throws std::bad_alloc, and what copying the item throws.
    template <typename Source>
    bool Push(Source&& item, std::chrono::milliseconds limit, std::error_code& ec) {
        ec = m_state->Push(std::forward<Source>(item), detail::After(limit));
        return !ec;
    }

    /// Overload without the reason.
    /// @param[in] item   as above.
    /// @param[in] limit  as above.
    /// @return whether the item was taken.
    template <typename Source>
    [[nodiscard]] bool Push(Source&& item, std::chrono::milliseconds limit) {
        std::error_code ignored;
        return Push(std::forward<Source>(item), limit, ignored);
    }

    /// Overload without a limit.
    /// @param[in] item  as above.
    /// @return whether the item was taken: false after Finish and Cancel, and without room inside a job.
    template <typename Source>
    bool Push(Source&& item) {
        std::error_code ignored;
        return Push(std::forward<Source>(item), kNoLimit, ignored);
    }

    /// Waits until all items are done. Throws the first exception of a job that was not thrown here before.
    /// @param[in] limit  longest wait; one below 0 is 0, which only asks.
    /// @param[out] ec    std::errc::timed_out: some are not done, and go on; operation_canceled: all has
    ///                   ended, but Cancel has dropped some; resource_deadlock_would_occur: this is a job of
    ///                   the queue. Cleared on success.
    /// @return whether all items are done.
    bool Wait(std::chrono::milliseconds limit, std::error_code& ec) {
        ec.clear();  // also when something is thrown
        ec = m_state->Wait(detail::After(limit));
        return !ec;
    }

    /// Overload without the reason.
    /// @param[in] limit  as above.
    /// @return whether all items are done.
    [[nodiscard]] bool Wait(std::chrono::milliseconds limit) {
        std::error_code ignored;
        return Wait(limit, ignored);
    }

    /// Overload without a limit.
    /// @return whether all items are done; false after a Cancel that has dropped some, and inside a job.
    bool Wait() {
        std::error_code ignored;
        return Wait(kNoLimit, ignored);
    }

    /// Takes no more items, and waits until those that it has are done. Who is blocked in Push leaves, with
    /// false. Throws as Wait does.
    /// @return as Wait.
    bool Finish() {
        m_state->Close();
        return Wait();
    }

    /// Takes no more items, drops those that wait, and tells the jobs at work. Returns at once; Wait waits
    /// for these.
    void Cancel() { m_state->Cancel(); }

    /// @return how many items wait for a task at this moment.
    [[nodiscard]] std::size_t Waiting() const { return m_state->Waiting(); }

    /// @return how many jobs have thrown; Wait delivers the first ones only.
    [[nodiscard]] unsigned long long Failures() const { return m_state->Failures(); }

private:
    using State = detail::QueueState<Item>;

    static unsigned int CheckThreads(unsigned int nWanted) {
        if (nWanted > kMostQueueThreads) {
            throw std::system_error(std::make_error_code(std::errc::invalid_argument),
                                    "a WorkQueue has at most 256 tasks");
        }
        const unsigned int nProcessors = std::min(std::max(1U, std::thread::hardware_concurrency()), kMostQueueThreads);
        return nWanted != 0 ? nWanted : nProcessors;
    }

    void StartTasks(ITnRobotTaskPool& pool, unsigned int nThreads) {
        m_state->ReserveWorkers(nThreads);
        m_tasks.reserve(nThreads);
        try {
            for (unsigned int n = 0; n < nThreads; ++n) {
                detail::StartWorkerTask(
                    pool, [state = m_state] { state->Work(); },
                    [this](const TnRobotPtr<ITnRobotTask>& task) { m_tasks.push_back(task); });
            }
        } catch (...) {
            End();
            throw;
        }
    }

    // The last release of a task waits until its job has returned.
    void End() {
        m_state->Close();
        m_state->AwaitVisitors();
        m_tasks.clear();
    }

    // Of what the parent's threads have been at nothing is touched.
    void Abandon() noexcept {
        for (TnRobotPtr<ITnRobotTask>& task : m_tasks) {
            static_cast<void>(task.detach());
        }
        m_state->KeepItself(m_state);
    }

    const detail::Home m_home;
    const AtEnd m_eAtEnd;
    std::shared_ptr<State> m_state;
    std::vector<TnRobotPtr<ITnRobotTask>> m_tasks;
};

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_TN_WORK_QUEUE_H_
