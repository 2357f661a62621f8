// The alarm clock.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTALARMCLOCK_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTALARMCLOCK_H_

#include <mutex>

#include "TnRobotKernel/concurrency.h"
#include "TnRobotKernel/ptr.h"
#include "core/TnSchedule.h"

/// A stopwatch with a limit, stopped while its event is set.
///
/// Invariants: limit and start time change together, and have been stored before a stopped clock
/// is seen running, so nobody compares a new limit with an old start.
///
/// Lock order: m_mutex and the event's lock are never held together.
class CTnRobotAlarmClock final : public ITnRobotAlarmClock {
public:
    /// @param[out] ppClock  +1, caller releases. @return always 1.
    static int CreateInstance(ITnRobotAlarmClock** ppClock);

    void ReStartRecord() override;
    void StartRecord(unsigned int nMs) override;
    void StopRecord() override;
    bool Wait() override;
    bool IsTimeOut(bool& bStopped) override;

private:
    CTnRobotAlarmClock() = default;
    bool _Init();
    bool _IsTimeOut();

    long long m_startTime = 0;     // wall clock, nanoseconds since the epoch; guarded by m_mutex
    unsigned int m_timeOutMs = 0;  // guarded by m_mutex
    tnrobot::Mutex m_mutex;
    TnRobotPtr<ITnRobotEvent> m_pStopEvent;  // set while the clock is stopped
};

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTALARMCLOCK_H_
