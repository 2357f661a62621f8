// The pool of tasks.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTASKPOOL_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTASKPOOL_H_

#include <deque>
#include <memory>
#include <mutex>

#include "TnRobotKernel/concurrency.h"
#include "TnRobotKernel/detail/RingQueue.h"
#include "TnRobotKernel/ptr.h"
#include "concurrency/TnRobotTask.h"
#include "concurrency/TnWorker.h"
#include "core/TnFork.h"
#include "core/TnSchedule.h"

/// Recycles tasks and stops those whose runner is done.
///
/// Invariants (under m_mutex): every task that the pool made is in m_allTasks, with one reference
/// of the pool's; m_idleTasks holds, once each and longest idle first, those that were given back,
/// and has room for all of them, so that taking one back cannot fail; m_nIdleTasks is its size.
///
/// Notices: a worker appends to the notification queue under m_notifyMutex; the pool's thread takes
/// the whole queue without that mutex. The queue therefore changes hands through the atomic
/// m_pNotifyQueue: whoever has exchanged it for null owns it. A worker puts it back with its notice
/// and then sets m_bHasNotify; the pool's thread clears the flag and then takes the queue, so no
/// notice is left behind without the flag. A notice holds a reference to its task for as long as
/// it waits: such a task is not idle.
///
/// Destruction: the pool's thread goes first, with the notices that it has taken, then the others,
/// then the tasks. A task that is just being given back is waited for, one whose runner still works
/// included; held ones live on without the pool.
///
/// In a forked child the pool goes on without its thread: tasks come and go, and nobody stops those
/// whose runner is done. Its own locks are never lost.
///
/// Lock order: m_mutex, or a task's m_parentMutex and then m_notifyMutex. No task is stopped,
///             released or given a runner under any of them.
class CTnRobotTaskPool final : public ITnRobotTaskPool, public ITnRobotTaskParent {
public:
    /// @param[out] ppPool  +1, caller releases; null on failure. @return 1, or 0 for a null ppPool.
    static int CreateInstance(ITnRobotTaskPool** ppPool);

    ~CTnRobotTaskPool() override;

    bool CreateTask(ITnRobotTaskRunner* pRunner, ITnRobotTask** ppTask) override;
    bool CreateTask(const std::function<void(ITnRobotEvent*)>& job) override;
    unsigned int GetTaskCount() override;

    void RecoveryTask(ITnRobotTask* pTask) override;
    void OnNotifyStop(ITnRobotTask* pTask) override;

private:
    /// The news that a run's work is done.
    struct StopNotice {
        TnRobotPtr<ITnRobotTask> m_task;
        unsigned long long m_nRun = 0;  ///< the run that is done; a later one goes on
    };
    using NotifyQueue = std::deque<StopNotice>;
    class QueueLoan;

    CTnRobotTaskPool() = default;
    bool _Init();
    CTnRobotTask* _TakeTask();
    CTnRobotTask* _MakeTask();
    void _SetIdleCount();
    void _DropNotices();
    void _LetGoOfTasks();
    bool _AreAllIdle();
    std::unique_ptr<NotifyQueue> _TakeNotices();
    static void _Obey(StopNotice notice);
    void _OnThreadPoolWork();
    void _CheckInvariants() const;

    tnrobot::Mutex m_mutex;
    tn::detail::RingQueue<CTnRobotTask*> m_idleTasks;  // guarded by m_mutex; front reused first
    std::deque<CTnRobotTask*> m_allTasks;              // grows under m_mutex; one reference each
    tnrobot::Atomic<unsigned int> m_nIdleTasks{0};     // written under m_mutex

    tnrobot::Mutex m_notifyMutex;
    tnrobot::Atomic<NotifyQueue*> m_pNotifyQueue{nullptr};  // owned; see above
    tnrobot::Atomic<bool> m_bHasNotify{false};
    bool m_bNoticesClosed = false;  // guarded by m_notifyMutex

    TnRobotPtr<ITnRobotEvent> m_pExitEvent;      // set: the pool's thread shall end
    std::unique_ptr<tnrobot::Worker> m_pThread;  // set at creation
    tnrobot::ForkSafe m_forkSafeLists{m_mutex};
    tnrobot::ForkSafe m_forkSafeNotices{m_notifyMutex};
};

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTASKPOOL_H_
