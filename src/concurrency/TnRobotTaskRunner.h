// The standard runner.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTASKRUNNER_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTASKRUNNER_H_

#include "TnRobotKernel/concurrency.h"
#include "core/TnSchedule.h"

/// Calls a job function once per run: it is done as soon as the job has been called.
class CTnRobotTaskRunner final : public ITnRobotTaskRunner {
public:
    /// @param[in]  job       copied.
    /// @param[out] ppRunner  +1, caller releases; null on failure.
    /// @return 1, or 0 for an empty job.
    static int CreateInstance(const std::function<void(ITnRobotEvent*)>& job, ITnRobotTaskRunner** ppRunner);

    void Init() override;
    void Execute(ITnRobotEvent* pRunEvent) override;
    void ClearResource() override;
    bool IsStop() override;
    void Copy(ITnRobotTaskRunner* pRunner) override;

    /// A runner without a job: callers rely on the job not being copied. Executing it throws
    /// std::bad_function_call.
    ITnRobotTaskRunner* Clone() override;

private:
    CTnRobotTaskRunner() = default;
    bool _Init(const std::function<void(ITnRobotEvent*)>& job);

    std::function<void(ITnRobotEvent*)> m_job;  // not changed after _Init
    tnrobot::Atomic<bool> m_bExecuted{false};   // a call of the job has begun since Init
};

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNROBOTTASKRUNNER_H_
