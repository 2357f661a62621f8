// The pooled task.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTASK_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTASK_H_

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>

#include "TnRobotKernel/concurrency.h"
#include "core/TnRef.h"

/// A runner's thread, in use or idle in its pool.
///
/// Counting: in use the task has its pool's reference, its holders' and one for each notice that
/// waits in the pool; idle it has the pool's alone; orphaned (its pool is gone) it has no parent
/// and only its holders'. The fall of the count from 2 to 1, not from 1 to 0, gives it back to the
/// pool. A notice never revives a task whose count has fallen to 1: its giving back, which stops
/// it anyway, is under way, and would otherwise happen a second time.
///
/// Invariants: only the worker writes m_state once it exists. m_pRunEvent changes only under
/// m_controlMutex, and whoever changes it keeps the lock until the worker has answered through
/// m_state, so that no Start falls between a Stop and its answer: the worker would never see the
/// event reset, the Start would begin no run and the Stop would wait for ever. Every run has a
/// number of its own, so that the news of a finished run does not stop a later one.
///
/// The worker touches the runner only between seeing the run event set and storing "stopped",
/// so an idle task's runner may be replaced.
///
/// Lock order: m_controlMutex and m_parentMutex come from separate paths, the callers' and the
///             worker's, and are never held together. Under m_controlMutex comes the event's lock,
///             under m_parentMutex the pool's notification lock. m_controlMutex is held while the
///             runner works, m_parentMutex never.
/// Threads:    everything that is public is thread-safe but BindRunner, which needs an idle task.
class CTnRobotTask final : public ITnRobotTask {
public:
    /// @param[in]  pParent  pool to go back to; borrowed.
    /// @param[out] ppTask   +1, caller releases; null on failure.
    /// @return 1, or 0 for a null pParent.
    static int CreateInstance(ITnRobotTaskParent* pParent, CTnRobotTask** ppTask);

    ~CTnRobotTask() override;

    int Release() override;
    bool Start() override;
    void Stop() override;
    bool IsRunning() override;

    /// Replaces the runner; null leaves the task without one.
    /// @param[in] pRunner  one reference is taken; may be the one that is bound.
    /// @return whether a runner is bound now.
    bool BindRunner(ITnRobotTaskRunner* pRunner);

    /// Forgets the pool. After it the worker neither is nor will be in the pool's OnNotifyStop.
    void FreeParent();

    /// Lets go of a task that is not idle, for a pool that is being destroyed: forgets the pool
    /// and gives the pool's reference back, which leaves the task to its holders.
    /// @return false, with nothing changed, when only the pool's reference is left.
    bool Abandon();

    /// Adds a reference unless only the pool's is left. @return whether one was added.
    bool AddRefWhileHeld();

    /// @return the number of the latest run, 0 before the first.
    unsigned long long GetRunNumber() const { return m_nRun.load(); }

    /// Stops the task if that run is still going on.
    void StopRun(unsigned long long nRun);

    /// Whether the task is among the pool's idle ones; guarded by the pool's lock.
    void SetIdle(bool bIdle) { m_bIdle = bIdle; }
    bool IsIdle() const { return m_bIdle; }

private:
    enum ETnTaskState : int {
        TASK_STOPPED = 0,      ///< the worker is idle
        TASK_RUNNING = 1,      ///< the worker has called the runner's Init
        TASK_NOT_STARTED = 2,  ///< there is no worker yet, or no more
    };

    CTnRobotTask() = default;
    int _Init(ITnRobotTaskParent* pParent);
    void _StartWorker();
    void _StopLocked();
    bool _OnWorkerThread() const;
    bool _NotifyParent();
    void _OnTaskWork();

    std::atomic<int> m_bExit{0};  // set by the destructor alone
    std::mutex m_controlMutex;
    tnrobot::Ref<ITnRobotEvent> m_pRunEvent;    // changed under m_controlMutex; set: shall run
    std::atomic<unsigned long long> m_nRun{0};  // changed under m_controlMutex
    std::atomic<int> m_state{TASK_NOT_STARTED};
    std::unique_ptr<std::thread> m_pThread;      // guarded by m_controlMutex; null until the first Start
    tnrobot::Ref<ITnRobotTaskRunner> m_pRunner;  // changed only while the task is idle
    std::mutex m_parentMutex;                    // held while the parent is told or forgotten
    std::atomic<ITnRobotTaskParent*> m_pParent{nullptr};
    bool m_bIdle = false;
};

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTASK_H_
