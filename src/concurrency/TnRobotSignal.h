// The one-shot signal.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTSIGNAL_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTSIGNAL_H_

#include <mutex>

#include "TnRobotKernel/concurrency.h"
#include "concurrency/TnCondition.h"
#include "core/TnSchedule.h"

/// A latch with three states. Only an armed signal is signalled or cancelled, so the first of the
/// two wins; only ClearResource arms it again.
///
/// Lock order: m_mutex, which every operation holds for its whole body, is innermost; nothing is
/// called out to.
class CTnRobotSignal final : public ITnRobotSignal {
public:
    static constexpr unsigned int kSignalled = 1;
    static constexpr unsigned int kCancelled = 2;
    static constexpr unsigned int kArmed = 3;

    /// @param[out] ppSignal  +1, caller releases. @return always 1.
    static int CreateInstance(ITnRobotSignal** ppSignal);

    void Signal() override;
    void CanCel() override;
    void Reset() override;
    unsigned int Wait(unsigned int nMs) override;
    void ClearResource() override;

private:
    CTnRobotSignal() = default;
    bool _Init();
    void _Leave(unsigned int nState);

    tnrobot::Mutex m_mutex;
    tnrobot::Condition m_changed;
    unsigned int m_nState = kArmed;  // guarded by m_mutex
};

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTSIGNAL_H_
