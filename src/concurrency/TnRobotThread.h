// The worker thread.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTHREAD_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTHREAD_H_

#include <memory>
#include <mutex>

#include "TnRobotKernel/concurrency.h"
#include "TnRobotKernel/ptr.h"
#include "concurrency/TnWorker.h"
#include "core/TnSchedule.h"

/// Calls its job pass after pass on one thread. Requests go to the worker through two events, its
/// answers come back through m_state.
///
/// Invariants: only the worker writes m_state. Under m_controlMutex at most one request is
/// unanswered, and nobody takes it back: the stop event is neither set by another Stop nor reset
/// by a Run before the worker has answered. Otherwise a Run between a Stop and its answer would
/// cancel the pause, and the Stop would wait for ever. The job may set and reset the event at any
/// time: a Stop sets it until it is answered, and a Run waits for a pass that began, not for a state
/// that may be over.
///
/// The count falls to 0 when the worker has ended: the last holder's Release waits for that first,
/// and a job whose Release is the last leaves the object to the worker, which is itself.
///
/// In a forked child the worker is not there, and any of the locks may be lost: only references are
/// counted there.
///
/// Waits that no worker can end (there is none yet, it has exited, or it is the caller itself) are
/// contractual and happen without m_controlMutex, so that they stop nobody else.
///
/// Lock order: m_controlMutex, then the lock of an event; m_jobMutex is innermost. No lock is held
///             while the job runs.
class CTnRobotThread final : public ITnRobotThread {
public:
    /// @param[out] ppThread  +1, caller releases. @return always 1.
    static int CreateInstance(ITnRobotThread** ppThread);

    ~CTnRobotThread() override;

    int Release() override;
    bool SetWorkJob(const std::function<void(ITnRobotEvent*)>& job) override;
    bool Run() override;
    void Stop() override;
    void Exit(unsigned int nExitCode) override;

private:
    using Job = std::function<void(ITnRobotEvent*)>;

    enum ThreadState : int {
        THREAD_CREATED = 0,  ///< no pass has run
        THREAD_RUNNING = 1,  ///< passes run
        THREAD_PAUSED = 2,   ///< the stop event was seen after a pass
        THREAD_EXITED = 3,   ///< the worker has ended
    };

    CTnRobotThread();
    bool _Init();
    std::shared_ptr<const Job> _Job();
    bool _OnWorkerThread() const;
    bool _IsRunning();
    int _Drop();
    template <typename Answer>
    bool _AwaitAnswer(Answer answer) const;
    void _PollState(ThreadState eState) const;
    void _OnThreadWorkLoop();

    tnrobot::Mutex m_controlMutex;
    std::unique_ptr<tnrobot::Worker> m_pWorker;  // guarded by m_controlMutex; null until the first Run
    tnrobot::Mutex m_jobMutex;
    std::shared_ptr<const Job> m_job;  // pointer guarded by m_jobMutex; never null
    TnRobotPtr<ITnRobotEvent> m_pStopEvent;
    TnRobotPtr<ITnRobotEvent> m_pExitEvent;
    tnrobot::Atomic<int> m_state{THREAD_CREATED};
    tnrobot::Atomic<unsigned long long> m_nBegins{0};  // how often a pass began while not running
    bool m_bDestroy = false;                           // the worker's own: the last reference is its
};

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTHREAD_H_
