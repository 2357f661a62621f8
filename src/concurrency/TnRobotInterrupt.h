// The auto-reset interrupt, hidden as all implementation is; no class of the library needs it today.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTINTERRUPT_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTINTERRUPT_H_

#include <mutex>

#include "concurrency/TnCondition.h"
#include "core/TnSchedule.h"

/// Releases one Wait per Interrupt. An interrupt that nobody waits for is remembered for the next
/// Wait; further ones before that Wait are the same interrupt.
///
/// Threads: thread-safe. m_mutex is innermost.
class CTnRobotInterrupt {
public:
    CTnRobotInterrupt() = default;
    CTnRobotInterrupt(const CTnRobotInterrupt&) = delete;
    CTnRobotInterrupt& operator=(const CTnRobotInterrupt&) = delete;

    /// Releases one Wait, the next one if there is none now.
    void Interrupt();

    /// Waits, without a time limit, for an interrupt and takes it.
    void Wait();

private:
    tnrobot::Mutex m_mutex;
    tnrobot::Condition m_changed;
    bool m_bInterrupted = false;  // guarded by m_mutex
};

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTINTERRUPT_H_
