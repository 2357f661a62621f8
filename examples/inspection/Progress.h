// What the tasks of one picture share: the limit for all, and who is the last.

#ifndef INSPECTION_PROGRESS_H_
#define INSPECTION_PROGRESS_H_

#include <TnRobotKernel/make.h>

#include <atomic>
#include <cstddef>

/// Lets one thread wait until a number of jobs is done. Threads: thread-safe.
///
/// Must outlive the jobs, not only the wait: the last job may still be setting the event when the
/// waiting thread goes on.
class Progress {
public:
    /// Starts the clock. @param[in] nLimitMs  limit for all jobs together.
    Progress(std::size_t nJobs, unsigned int nLimitMs);

    /// @return whether the limit has not passed yet.
    bool IsWithinLimit();

    /// Counts one job as done: its results are visible to the thread that waits.
    void FinishOne();

    /// Waits until all jobs are done. @return false when nTimeOutMs has passed first.
    bool Wait(unsigned int nTimeOutMs);

private:
    TnRobotPtr<ITnRobotAlarmClock> m_clock = tn::MakeAlarmClock();
    TnRobotPtr<ITnRobotEvent> m_allDone = tn::MakeManualEvent(false);
    std::atomic<std::size_t> m_nLeft;
};

#endif  // INSPECTION_PROGRESS_H_
