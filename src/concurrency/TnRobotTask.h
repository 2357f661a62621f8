// The pooled task.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTASK_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTASK_H_

#include <memory>
#include <mutex>
#include <thread>

#include "TnRobotKernel/concurrency.h"
#include "TnRobotKernel/ptr.h"
#include "concurrency/TnWorker.h"
#include "core/TnFork.h"
#include "core/TnSchedule.h"

/// A runner's thread, in use or idle in its pool.
///
/// Counting: in use the task has its pool's reference, its holders' and one for each notice that
/// waits in the pool; idle it has the pool's alone; orphaned (its pool is gone) it has no parent
/// and only its holders'. The last holder stops the task while its reference still counts, and only
/// then gives it up: the fall of the count from 2 to 1 gives the task back, that from 1 to 0
/// destroys it. So no count says "free" while the worker is in the runner, and whatever a job does
/// with references to its own task is nothing special.
///
/// Whoever must not wait for the worker leaves its reference to it: the job, which is the worker,
/// and the pool's thread, which has other tasks to stop. The worker gives it up after the run, or at
/// once when somebody holds the task again: he is then the one who stops it.
///
/// Invariants: only the worker writes m_state once it exists, and m_nBegun. Callers change
/// m_pRunEvent only under m_controlMutex, and keep the lock until the worker has answered through
/// m_state or m_nBegun. The job may reset the event at any time, so a reset event does not tell that
/// the run is over: m_state does. Under m_controlMutex, "stopped" stays so until the lock is gone.
/// Every run has a number of its own, so that the news of a finished run does not stop a later one.
///
/// The worker touches the runner only while m_state says "running", so an idle task's runner may be
/// replaced.
///
/// In a forked child the task of the parent has no worker, and any of its locks may be lost: only its
/// references are counted there.
///
/// Lock order: m_controlMutex, then m_parentMutex or the event's lock; under m_parentMutex comes the
///             pool's notification lock. m_controlMutex is held while the runner works, m_parentMutex
///             never. The worker only tries m_controlMutex.
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

    /// Lets go of a task that somebody holds, for a pool that is being destroyed: forgets the pool
    /// and gives the pool's reference back, which leaves the task to its holders.
    /// @return false, with nothing changed, when nobody holds it: then it is idle or on its way.
    bool Abandon();

    /// Adds a reference for a notice unless nobody holds the task or its last holder is giving it
    /// back, which stops it anyway. @return whether one was added.
    bool AddRefWhileHeld();

    /// Gives a reference back without waiting for the runner; for the pool's thread.
    void ReleaseWithoutWaiting();

    /// @return the number of the latest run, 0 before the first.
    unsigned long long GetRunNumber() const { return m_nRun.load(); }

    /// Stops the task if nobody has ended that run yet; otherwise it waits for nothing.
    void StopRun(unsigned long long nRun);

    /// @return whether the worker is in the runner.
    bool IsInRunner() const { return m_state.load() == TASK_RUNNING; }

    /// @return whether the task has come here by a fork: its worker, if any, has not.
    bool IsInherited() const;

    /// Makes an idle task that is inherited one of this process, which has no worker yet. Throws
    /// std::bad_alloc and then changes nothing.
    void SettleHere();

    /// Whether the task is among the pool's idle ones; guarded by the pool's lock.
    void SetIdle(bool bIdle) { m_bIdle = bIdle; }
    bool IsIdle() const { return m_bIdle; }

private:
    enum TaskState : int {
        TASK_STOPPED = 0,      ///< the worker is not in the runner
        TASK_RUNNING = 1,      ///< it is, from before Init until after ClearResource
        TASK_NOT_STARTED = 2,  ///< there is no worker yet, or no more
    };

    CTnRobotTask() = default;
    bool _Init(ITnRobotTaskParent* pParent);
    void _StartWorker();
    void _BeginRun();
    void _StopLocked();
    bool _OnWorkerThread() const;
    bool _IsLastHolder(int nReferences) const;
    bool _DropUnlessLast(int& nReferences);
    int _ReleaseInherited();
    int _StopAndGiveBack();
    bool _LeaveToWorker();
    void _MindLeft();
    bool _DropLeftIfHeld();
    bool _TakeBackLeft();
    int _GiveUp(std::unique_lock<tnrobot::Mutex> control, int nLeft);
    int _FollowFall(int nBefore, ITnRobotTaskParent* pParent);
    std::unique_lock<tnrobot::Mutex> _LockParent();
    bool _NotifyParent();
    void _OnTaskWork();

    tnrobot::Atomic<int> m_bExit{0};  // set by the destructor alone
    tnrobot::Mutex m_controlMutex;
    TnRobotPtr<ITnRobotEvent> m_pRunEvent;                    // set under m_controlMutex; set: shall run
    tnrobot::Atomic<unsigned long long> m_nRun{0};            // changed under m_controlMutex
    tnrobot::Atomic<unsigned long long> m_nBegun{0};          // latest run whose Init has returned
    tnrobot::Atomic<int> m_state{TASK_NOT_STARTED};           // see above
    std::unique_ptr<tnrobot::Worker> m_pWorker;               // guarded by m_controlMutex; null until the first Start
    TnRobotPtr<ITnRobotTaskRunner> m_pRunner;                 // changed only while the task is idle
    tnrobot::Mutex m_parentMutex;                             // held while the parent is told, found or forgotten
    tnrobot::Atomic<ITnRobotTaskParent*> m_pParent{nullptr};  // changed under m_parentMutex
    tnrobot::Atomic<int> m_nLeft{0};                    // changed under m_parentMutex; references left to the worker
    tnrobot::Atomic<bool> m_bGoing{false};              // the last holder lets go; reset under m_parentMutex
    tnrobot::Atomic<std::thread::id> m_workerThread{};  // the worker's; a child may be what was one before the fork
    tnrobot::HomeProcess m_home;
    bool m_bIdle = false;
};

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTASK_H_
