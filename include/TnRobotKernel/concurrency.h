/// @file
/// Waiting and working: manual-reset events, one-shot signals, alarm clocks, worker threads, and
/// pooled tasks that keep their threads while they are idle.

#ifndef TNROBOTKERNEL_CONCURRENCY_H_
#define TNROBOTKERNEL_CONCURRENCY_H_

#include <functional>

#include "TnRobotKernel/core.h"

/// @addtogroup concurrency
/// @{

/// A flag that threads wait for. It stays set until somebody resets it, whoever has seen it.
///
/// Lifetime: must outlive every wait on it.
/// Threads:  thread-safe, also from inside jobs.
class TN_ROBOT_API ITnRobotEvent : public ITnUnknown {
public:
    ~ITnRobotEvent() override;

    /// Sets the flag and ends every wait in progress.
    virtual void SetEvent() = 0;

    /// Resets the flag; waits in progress go on.
    virtual void ResetEvent() = 0;

    /// Waits until the flag is set.
    /// @param[in] nMs  longest wait, in milliseconds of the monotonic clock; 0 only asks.
    /// @return the flag. False may come before the time is up: the wait is a single one, which
    ///         also ends when the system wakes it for no reason, or when the flag has been set
    ///         and reset again meanwhile. Whoever needs more calls it in a loop.
    virtual bool WaitEvent(unsigned int nMs) = 0;
};

/// A latch that is signalled or cancelled, whichever comes first, and tells its waiters which.
///
/// Its state is 3 while it is armed, 1 when signalled, 2 when cancelled; a new signal is armed.
///
/// Lifetime: must outlive every wait on it.
/// Threads:  thread-safe, also from inside jobs.
class TN_ROBOT_API ITnRobotSignal : public ITnUnknown {
public:
    ~ITnRobotSignal() override;

    /// Turns an armed signal to signalled and ends every wait in progress; otherwise does nothing.
    virtual void Signal() = 0;

    /// Turns an armed signal to cancelled and ends every wait in progress; otherwise does nothing.
    virtual void CanCel() = 0;

    /// Does nothing: callers rely on a signal keeping its state here. ClearResource arms it again.
    virtual void Reset() = 0;

    /// Waits until the signal is not armed.
    /// @param[in] nMs  longest wait, in milliseconds of the monotonic clock; 0 only asks.
    /// @return 1 signalled, 2 cancelled, 3 still armed, which may come before the time is up (see
    ///         ITnRobotEvent::WaitEvent).
    virtual unsigned int Wait(unsigned int nMs) = 0;

    /// Arms the signal again, whatever its state; wakes nobody.
    virtual void ClearResource() = 0;
};

/// A stopwatch with a time limit. It measures with the wall clock: setting the system's time
/// changes the time that has passed.
///
/// A new clock is stopped. Running past the limit is no state of its own: the clock goes on.
///
/// Lifetime: must outlive every wait on it.
/// Threads:  thread-safe; one thread may wait while others start and stop the clock.
class TN_ROBOT_API ITnRobotAlarmClock : public ITnUnknown {
public:
    ~ITnRobotAlarmClock() override;

    /// Starts a running clock anew with the limit it has; a stopped one stays stopped.
    virtual void ReStartRecord() = 0;

    /// Starts the clock, or starts it anew.
    /// @param[in] nMs  limit in milliseconds.
    virtual void StartRecord(unsigned int nMs) = 0;

    /// Stops the clock and ends waits in progress within about a millisecond.
    virtual void StopRecord() = 0;

    /// Waits until the clock is stopped or past its limit, asking about once a millisecond.
    /// @return true when it is stopped (also when both come together), false past the limit.
    virtual bool Wait() = 0;

    /// Tells whether more time than the limit has passed, fractions of a millisecond counted.
    /// @param[out] bStopped  whether the clock is stopped.
    /// @return whether the clock is running and past its limit.
    virtual bool IsTimeOut(bool& bStopped) = 0;
};

/// A worker thread that calls one job over and over until it is paused or ended.
///
/// The intended order is SetWorkJob, Run, Stop (and Run again), then Exit or the last Release.
/// None of the waits has a time limit: the job is never interrupted, it notices a pause by
/// polling the event that it is given.
///
/// Lifetime: the last Release ends the thread and joins it, which waits for the job to return. It
///           does not set the job's event: a job that only returns on that event needs a Stop
///           first, and so it does for Exit. When the job itself makes the last Release the object
///           goes as soon as the job has returned.
/// Threads:  thread-safe: Run, Stop and Exit take effect one after the other. From inside
///           the job, Run returns true and does nothing; Stop and Exit would wait for ever. The
///           child of a fork may only release an object that was run before.
class TN_ROBOT_API ITnRobotThread : public ITnUnknown {
public:
    ~ITnRobotThread() override;

    /// Sets the job, from the next pass on. It must not throw: nothing would catch it.
    /// @param[in] job  copied; the one before is destroyed, after it has returned if it is being
    ///                 called. Its argument is borrowed and set while a Stop is pending; a job may
    ///                 set it, which pauses the thread when the job has returned.
    /// @return always true.
    virtual bool SetWorkJob(const std::function<void(ITnRobotEvent*)>& job) = 0;

    /// Starts the thread, or resumes it, and waits until it is running. After an Exit it waits
    /// for ever: an ended thread is never started again.
    /// @return false, with nothing changed, without a job; otherwise true.
    /// Throws std::system_error when the system has no thread left.
    virtual bool Run() = 0;

    /// Pauses the thread and waits until the job has returned. Before the first Run, and after
    /// Exit, it waits for ever.
    virtual void Stop() = 0;

    /// Ends the thread and waits until it has. Before the first Run it waits for ever.
    /// @param[in] nExitCode  ignored: no exit code is kept.
    virtual void Exit(unsigned int nExitCode) = 0;
};

/// What a task does; applications implement it, or have a job function wrapped by the pool.
///
/// While its task runs, a runner is called in this order, always on the task's own thread:
/// Init once; then IsStop, and Execute for as long as that answers false; ClearResource once,
/// when the task is being stopped. When IsStop answers true after an Execute, the pool is told
/// and stops the task; IsStop is asked about once a millisecond until then. No operation may
/// throw: nothing would catch it.
///
/// The worker sleeps for a millisecond after each Execute, and each Start waits about as long for it, by
/// contract: a pass costs some 1.1 ms beside its work. Work in small pieces belongs in one Execute, or to
/// tn::ForEach, tn::Run and tn::WorkQueue, which hand it over within microseconds.
///
/// Lifetime: the task holds one reference until another runner is bound to it or it is destroyed;
///           an idle task keeps its last runner.
/// Threads:  externally synchronised: a task calls its runner from one thread, the task's own. A
///           runner that is bound to several tasks is called by all their threads at once.
class TN_ROBOT_API ITnRobotTaskRunner : public ITnUnknown {
public:
    ~ITnRobotTaskRunner() override;

    /// Prepares for a run. The Start that caused it returns after it.
    virtual void Init() = 0;

    /// Does a piece of the work.
    /// @param[in] pRunEvent  borrowed for the call; it is reset when the task is being stopped,
    ///                       which a long piece polls to return early. A piece that resets it itself
    ///                       ends the run, as Stop of its own task does.
    virtual void Execute(ITnRobotEvent* pRunEvent) = 0;

    /// Gives back what the run has used. The Stop that caused it returns after it.
    virtual void ClearResource() = 0;

    /// @return whether the work is done.
    virtual bool IsStop() = 0;

    /// Takes over what another runner does; the library never calls it.
    /// @param[in] pRunner  borrowed for the call.
    virtual void Copy(ITnRobotTaskRunner* pRunner) = 0;

    /// Makes another runner of the same kind; the library never calls it.
    /// @return +1, caller releases.
    virtual ITnRobotTaskRunner* Clone() = 0;
};

/// A runner's place to run: one thread, made by the first Start and kept until the end.
///
/// Lifetime: when its last holder releases it, a task is stopped and goes back to its pool. A task
///           still held when its pool is destroyed stays usable, is no longer stopped when its
///           runner is done, and is destroyed by its last Release.
/// Threads:  thread-safe; Start and Stop take effect one after the other. From inside the task's
///           own job nothing waits: the run ends, and after the last Release the task goes back, when
///           the runner's call has returned. In the child of a fork a task that has been started
///           before does not start (false).
class TN_ROBOT_API ITnRobotTask : public ITnUnknown {
public:
    ~ITnRobotTask() override;

    /// Starts a run of the runner and waits until it has begun. A task that is being stopped is
    /// waited for and started again.
    /// @return true when a run has begun, and at once when the task is running already, which
    ///         begins no other; false without a runner, and from inside the task's own job while
    ///         the task is being stopped.
    /// Throws std::system_error when the system has no thread left.
    virtual bool Start() = 0;

    /// Asks the run to end and waits until its Execute has returned and its ClearResource has
    /// run, also when the job has ended the run itself. Does nothing when the task is not running.
    /// From inside the task's own job it asks and returns at once; a run that is stopped from Init
    /// still executes once.
    virtual void Stop() = 0;

    /// @return whether the task has been started and not been asked to stop since. It stays true
    ///         for a moment after the runner is done, until the pool stops the task, and is false as
    ///         soon as the end is asked for, while the runner may still work.
    virtual bool IsRunning() = 0;
};

/// What a task sees of its pool.
///
/// Lifetime: not counted; a pool that goes leaves its tasks without a parent.
/// Threads:  thread-safe.
class TN_ROBOT_API ITnRobotTaskParent {
public:
    ITnRobotTaskParent() = default;
    ITnRobotTaskParent(const ITnRobotTaskParent&) = delete;
    ITnRobotTaskParent& operator=(const ITnRobotTaskParent&) = delete;
    virtual ~ITnRobotTaskParent();

    /// Takes a task back; called on the thread that released it.
    /// @param[in] pTask  borrowed: only the parent holds it any more. Null and tasks of a foreign
    ///                   kind are ignored.
    virtual void RecoveryTask(ITnRobotTask* pTask) = 0;

    /// Hears that a task's runner is done; called on the task's own thread, which must not wait
    /// here for the task to stop.
    /// @param[in] pTask  borrowed for the call; null is ignored.
    virtual void OnNotifyStop(ITnRobotTask* pTask) = 0;
};

/// Hands out tasks, reuses the one that has been idle longest, and stops those whose runner is
/// done on a thread of its own. It grows by one task whenever none is idle, and never shrinks.
///
/// Lifetime: the last Release ends the pool's thread and every idle task's one. It waits for runs
///           that are being stopped, and must not come from inside a job.
/// Threads:  thread-safe; CreateTask may be called from inside jobs.
class TN_ROBOT_API ITnRobotTaskPool : public ITnUnknown {
public:
    ~ITnRobotTaskPool() override;

    /// Hands out a task that is not started yet.
    /// @param[in]  pRunner  bound to the task, one reference is taken; null leaves the task
    ///                      without a runner, and Start then answers false.
    /// @param[out] ppTask   +1, caller releases; null on failure.
    /// @return whether there is a task; false for a null ppTask.
    virtual bool CreateTask(ITnRobotTaskRunner* pRunner, ITnRobotTask** ppTask) = 0;

    /// Binds a job to a task that goes back to the idle ones at once: the job is never run, which
    /// callers rely on. Whoever wants it run passes a runner to the other form, then Start.
    /// @param[in] job  copied, and kept by the idle task.
    /// @return false for an empty job, otherwise true.
    virtual bool CreateTask(const std::function<void(ITnRobotEvent*)>& job) = 0;

    /// @return number of idle tasks, not of all tasks.
    virtual unsigned int GetTaskCount() = 0;
};

/// Creates an event. Thread-safe.
/// @param[in]  bSignalled  whether it is set at first.
/// @param[out] ppEvent     +1, caller releases; must not be null.
/// @return always 1.
TN_ROBOT_API int TnCreateRobotManualEvent(bool bSignalled, ITnRobotEvent** ppEvent);

/// Creates an armed signal. Thread-safe.
/// @param[out] ppSignal  +1, caller releases; must not be null.
/// @return always 1.
TN_ROBOT_API int TnCreateRobotSignal(ITnRobotSignal** ppSignal);

/// Creates a stopped alarm clock. Thread-safe.
/// @param[out] ppClock  +1, caller releases; must not be null.
/// @return always 1.
TN_ROBOT_API int TnCreateRobotAlarmClock(ITnRobotAlarmClock** ppClock);

/// Creates a thread object without a job; the first Run makes the thread. Thread-safe.
/// @param[out] ppThread  +1, caller releases; must not be null.
/// @return always 1.
TN_ROBOT_API int TnCreateRobotThread(ITnRobotThread** ppThread);

/// Creates a task pool and starts its thread. Thread-safe.
/// @param[out] ppPool  +1, caller releases.
/// @return 1, or 0 for a null ppPool.
/// Throws std::system_error when the system has no thread left.
TN_ROBOT_API int TnCreateRobotTaskPool(ITnRobotTaskPool** ppPool);

/// @}

#endif  // TNROBOTKERNEL_CONCURRENCY_H_
