/// @file
/// Jobs on the tasks of a pool, without a runner of one's own: MakeRunner and Run.
///
/// A task's start takes about a millisecond. Run pays for it once and keeps its tasks for the next
/// job, which they get within microseconds.

#ifndef TNROBOTKERNEL_TN_RUN_H_
#define TNROBOTKERNEL_TN_RUN_H_

#include <exception>

#include "TnRobotKernel/tn/cancel.h"
#include "TnRobotKernel/tn/detail/Crew.h"

namespace tn {

namespace detail {

// Functions that can be without one: calling them would throw, on a thread where nobody catches.
template <typename Job>
bool IsEmptyJob(const Job& /*job*/) {
    return false;
}
template <typename Signature>
bool IsEmptyJob(const std::function<Signature>& job) {
    return !job;
}
template <typename Result, typename... Args>
bool IsEmptyJob(Result (*pfnJob)(Args...)) {
    return pfnJob == nullptr;
}

// How many jobs of one pool Run lets run at the same time, at least.
inline constexpr unsigned int kFewestRuns = 4;

// A job of Run: it waits for a worker, runs, and is over, or is cancelled before it has begun.
//
// Lock order: m_mutex is innermost; the job is neither called nor destroyed with it.
class RunState final : public Errand {
public:
    explicit RunState(std::function<void(const CancelToken&)> job) : m_job(std::move(job)) {}

    void Do() noexcept override {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_eStage != Stage::kWaiting) {
                return;
            }
            m_eStage = Stage::kRunning;
            m_thread = std::this_thread::get_id();
        }
        std::exception_ptr failure;
        try {
            m_job(CancelToken(m_cancel));
        } catch (...) {
            failure = std::current_exception();
        }
        m_job = nullptr;  // what it holds is gone when somebody hears that it is over
        End(Stage::kDone, std::move(failure));
    }

    // Before it is posted.
    void SetCrew(const std::shared_ptr<Crew>& crew) { m_crew = crew; }

    // Gives back at once what the job holds, and the crew's place for it, where nobody runs it yet.
    void Cancel() {
        m_cancel->Cancel();
        if (!EndUnbegun()) {
            return;
        }
        if (const std::shared_ptr<Crew> crew = m_crew.lock()) {
            crew->NoteOver();
        }
    }

    bool IsOver() const override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return IsOverLocked();
    }

    // For the child of a fork: locks may be lost, and the end of a condition variable waits for waiters that
    // are not here.
    void KeepItself(std::shared_ptr<RunState> self) noexcept { m_self = std::move(self); }

    std::error_code Wait(Clock::time_point end) {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_eStage == Stage::kRunning && m_thread == std::this_thread::get_id()) {
            return std::make_error_code(std::errc::resource_deadlock_would_occur);
        }
        if (!WaitUntil(m_changed, lock, end, [this] { return IsOverLocked(); })) {
            return std::make_error_code(std::errc::timed_out);
        }
        return m_eStage == Stage::kCancelled ? std::make_error_code(std::errc::operation_canceled) : std::error_code();
    }

    void ThrowFailure() const {
        std::exception_ptr failure;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            failure = m_failure;
        }
        if (failure) {
            std::rethrow_exception(failure);
        }
    }

private:
    enum class Stage { kWaiting, kRunning, kDone, kCancelled };

    bool EndUnbegun() {
        std::function<void(const CancelToken&)> job;  // destroyed without the lock
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_eStage != Stage::kWaiting) {
            return false;
        }
        m_eStage = Stage::kCancelled;
        job.swap(m_job);
        m_changed.notify_all();
        return true;
    }

    bool IsOverLocked() const { return m_eStage == Stage::kDone || m_eStage == Stage::kCancelled; }

    void End(Stage eStage, std::exception_ptr failure) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_eStage = eStage;
        m_failure = std::move(failure);
        m_changed.notify_all();
    }

    const std::shared_ptr<CancelState> m_cancel = std::make_shared<CancelState>();
    std::weak_ptr<Crew> m_crew;  // where it waits; weak, for the crew holds what waits
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::function<void(const CancelToken&)> m_job;  // of who has changed the stage; guarded by m_mutex before
    Stage m_eStage = Stage::kWaiting;               // guarded by m_mutex
    std::thread::id m_thread;                       // guarded by m_mutex
    std::exception_ptr m_failure;                   // guarded by m_mutex
    std::shared_ptr<RunState> m_self;               // of one that is never destroyed
};

}  // namespace detail

/// @addtogroup work
/// @{

/// Makes a runner of a function, without a class of one's own. Each Start of its task calls it once, on
/// the task's thread. For most jobs Run is more comfortable.
/// @param[in] job  `void()` or `void(ITnRobotEvent*)`, where the event is that of
///                 ITnRobotTaskRunner::Execute. What it throws ends the process, as in a std::thread.
///                 Copies of the runner (Clone, Copy) share it.
/// @return the runner; empty for an empty std::function and a null function pointer.
template <typename Job>
[[nodiscard]] TnRobotPtr<ITnRobotTaskRunner> MakeRunner(Job job) {
    if (detail::IsEmptyJob(job)) {
        return nullptr;
    }
    // Shared, because a std::function wants to be copied and a job may not.
    auto shared = std::make_shared<Job>(std::move(job));
    return MakeObject<detail::JobRunner>([shared](ITnRobotEvent* pRunEvent) {
        if constexpr (std::is_invocable_v<Job&, ITnRobotEvent*>) {
            (*shared)(pRunEvent);
        } else {
            (*shared)();
        }
    });
}

/// A job that Run has taken over.
///
/// Lifetime: its end cancels the job and, when that runs, waits until it has returned: nothing that the
///           job refers to is used afterwards. In the child of a fork the end waits for nothing.
/// Threads:  thread-safe but for moving and destroying.
class [[nodiscard]] JobHandle {
public:
    /// Of no job. Such a handle is over, and waiting for it succeeds.
    JobHandle() = default;

    /// Made by Run.
    /// @param[in] state  the job.
    explicit JobHandle(std::shared_ptr<detail::RunState> state) : m_state(std::move(state)) {}

    /// Takes the job over.
    /// @param[in,out] other  of no job afterwards.
    JobHandle(JobHandle&& other) noexcept = default;

    /// Ends the handle's own job as the destructor does, then takes the other's over.
    /// @param[in,out] other  of no job afterwards.
    /// @return this handle.
    JobHandle& operator=(JobHandle&& other) noexcept {
        JobHandle taken(std::move(other));
        std::swap(m_state, taken.m_state);
        std::swap(m_home, taken.m_home);
        return *this;
    }

    /// Cancels the job and waits for it. From inside the job itself it only cancels.
    ~JobHandle() {
        if (!m_state) {
            return;
        }
        if (!m_home.IsHere()) {
            m_state->KeepItself(m_state);
            return;
        }
        m_state->Cancel();
        m_state->Wait(detail::Clock::time_point::max());
    }

    /// @return whether there is a job.
    explicit operator bool() const noexcept { return static_cast<bool>(m_state); }

    /// @return whether the job is over, or was cancelled before it began.
    [[nodiscard]] bool IsOver() const { return !m_state || m_state->IsOver(); }

    /// Tells the job that it should end. One that has not begun never will, and what it holds is given back now.
    void Cancel() {
        if (m_state) {
            m_state->Cancel();
        }
    }

    /// Waits for the job. What the job has thrown is thrown here, each time.
    /// @param[in] limit  how long; one below 0 is 0, which only asks.
    /// @param[out] ec    cleared when the job has returned. std::errc::timed_out: it has not, and goes on;
    ///                   operation_canceled: it was cancelled before it began;
    ///                   resource_deadlock_would_occur: this is the job itself.
    /// @return whether the job has returned.
    bool Wait(std::chrono::milliseconds limit, std::error_code& ec) {
        ec.clear();
        if (!m_state) {
            return true;
        }
        // All workers could be waiting for jobs that wait for a worker.
        if (limit == kNoLimit && detail::IsCrewThread()) {
            m_state->Do();
        }
        ec = m_state->Wait(detail::After(limit));
        m_state->ThrowFailure();
        return !ec;
    }

    /// Overload without the reason.
    /// @param[in] limit  as above.
    /// @return whether the job has returned.
    [[nodiscard]] bool Wait(std::chrono::milliseconds limit) {
        std::error_code ignored;
        return Wait(limit, ignored);
    }

    /// Overload without a limit. Inside another job of Run, one that has not begun yet runs here and
    /// now, so that jobs may wait for jobs.
    /// @return whether the job has returned; false when it was cancelled before it began.
    bool Wait() {
        std::error_code ignored;
        return Wait(kNoLimit, ignored);
    }

private:
    std::shared_ptr<detail::RunState> m_state;
    detail::Home m_home;
};

/// Runs a job on a task of the pool and returns at once. The first jobs start tasks, about a millisecond
/// each; a task that is done waits a second for the next job, which it gets within microseconds.
///
/// As many jobs of one pool as the machine has processors, but at least 4, run at the same time; others
/// wait for their turn, in their order. So a burst of jobs leaves no more tasks than that in the pool,
/// however large it is. Work that waits a lot for something else is better given a WorkQueue of its own.
///
/// The pool may go first: tasks at work stay until their jobs have returned, and end within a second
/// then.
/// @param[in] pool  borrowed for the call.
/// @param[in] job   `void()` or `void(const tn::CancelToken&)`; moved into the handle, destroyed as soon
///                  as it has returned.
/// @return the job's handle, which must be kept: its end cancels the job and waits for it.
/// Throws std::system_error when not a single task can be started, and std::bad_alloc.
template <typename Job>
[[nodiscard]] JobHandle Run(ITnRobotTaskPool& pool, Job job) {
    auto shared = std::make_shared<Job>(std::move(job));
    const auto state = std::make_shared<detail::RunState>(
        [shared = std::move(shared)](const CancelToken& token) { detail::CallJob(*shared, token); });
    const unsigned int nMost = std::max(detail::kFewestRuns, detail::Processors());
    JobHandle handle(state);  // takes the job back when something is thrown
    const auto crew = detail::CrewRegistry::Here().CrewOf(pool);
    state->SetCrew(crew);
    crew->Post(pool, state, nMost);
    return handle;
}

/// Gives the tasks that wait for jobs of Run and ForEach back to their pool now, instead of after a
/// second, and waits until they are back, and also for those that are just leaving by themselves. Those at work
/// stay, and go back when their jobs return. Then it has
/// all idle tasks of the pool let go of their last runners, which they otherwise keep until they are used again.
///
/// To be called, when nothing is at work and all WorkQueues have ended, before a library is unloaded that has
/// used Run, ForEach or WorkQueue with a pool that stays: its code would still be called when the idle tasks
/// are used again or destroyed.
/// @param[in] pool  borrowed for the call.
inline void GiveBackTasks(ITnRobotTaskPool& pool) {
    detail::CrewRegistry& registry = detail::CrewRegistry::Here();
    registry.DismissIdle(pool);
    registry.DropRunners(pool);
}

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_TN_RUN_H_
