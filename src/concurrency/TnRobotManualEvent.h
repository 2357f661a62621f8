// The manual-reset event.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTMANUALEVENT_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTMANUALEVENT_H_

#include <mutex>

#include "TnRobotKernel/concurrency.h"
#include "concurrency/TnCondition.h"
#include "core/TnSchedule.h"

/// An event over one mutex and one condition variable.
///
/// Every operation holds the mutex for its whole body, notification included: a waiter that has
/// seen the flag may give up the last reference, and by then the setter is done with the event.
///
/// Lock order: m_mutex is innermost; nothing is called out to.
class CTnRobotManualEvent final : public ITnRobotEvent {
public:
    /// @param[out] ppEvent  +1, caller releases. @return always 1.
    static int CreateInstance(bool bSignalled, ITnRobotEvent** ppEvent);

    void SetEvent() override;
    void ResetEvent() override;
    bool WaitEvent(unsigned int nMs) override;

private:
    CTnRobotManualEvent() = default;
    bool _Init(bool bSignalled);

    tnrobot::Mutex m_mutex;
    tnrobot::Condition m_changed;
    bool m_bSignalled = false;  // guarded by m_mutex
};

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTMANUALEVENT_H_
