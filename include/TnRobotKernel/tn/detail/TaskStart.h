/// @file
/// Runners of one function, and tasks for them. Used by tn/run.h and tn/work_queue.h.

#ifndef TNROBOTKERNEL_TN_DETAIL_TASKSTART_H_
#define TNROBOTKERNEL_TN_DETAIL_TASKSTART_H_

#include <atomic>
#include <functional>
#include <memory>
#include <system_error>
#include <utility>

#include "TnRobotKernel/concurrency.h"
#include "TnRobotKernel/ptr.h"

namespace tn::detail {

// Calls a job once for each start of its task.
class JobRunner final : public ITnRobotTaskRunner {
public:
    explicit JobRunner(std::function<void(ITnRobotEvent*)> job) : m_job(std::move(job)) {}

    void Init() override { m_bExecuted = false; }
    // Nobody could catch what the job throws: better to end at the place that threw.
    void Execute(ITnRobotEvent* pRunEvent) noexcept override {
        m_bExecuted = true;
        m_job(pRunEvent);
    }
    void ClearResource() override {}
    bool IsStop() override { return m_bExecuted; }
    void Copy(ITnRobotTaskRunner* pRunner) override {
        if (const auto* pOther = dynamic_cast<JobRunner*>(pRunner)) {
            m_job = pOther->m_job;
        }
    }
    ITnRobotTaskRunner* Clone() override { return MakeObject<JobRunner>(m_job).detach(); }

private:
    std::function<void(ITnRobotEvent*)> m_job;
    std::atomic<bool> m_bExecuted{false};
};

// Calls a job once in its life, and is never done: so its pool does not stop the task on its own thread some
// time later, and the task is idle again when its last release returns. What the job holds goes with it, not
// with the idle task that keeps its runner; only the mark goes with the runner.
class WorkerRunner final : public ITnRobotTaskRunner {
public:
    explicit WorkerRunner(std::function<void()> job, std::shared_ptr<const void> mark = nullptr)
        : m_job(std::move(job)), m_mark(std::move(mark)) {}

    void Init() override {}
    void Execute(ITnRobotEvent* /*pRunEvent*/) noexcept override {
        if (m_job) {
            m_job();
            m_job = nullptr;
        }
    }
    void ClearResource() override {}
    bool IsStop() override { return false; }
    void Copy(ITnRobotTaskRunner* /*pRunner*/) override {}
    ITnRobotTaskRunner* Clone() override { return nullptr; }

    // For one whose task has not started.
    void Forget() { m_job = nullptr; }

private:
    std::function<void()> m_job;
    const std::shared_ptr<const void> m_mark;
};

// The reason where a pool has no task or a task does not start.
[[noreturn]] inline void ThrowNoTask() {
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again), "no task can be started");
}

// Starts a task that does the job once. Its owner gets the task before that, for the job may be done before
// the start has returned. Throws when there is no task, or it does not start; then nothing keeps the job.
// The mark is kept as long as the task's runner.
template <typename Keep>
void StartWorkerTask(ITnRobotTaskPool& pool, std::function<void()> job, Keep keep,
                     std::shared_ptr<const void> mark = nullptr) {
    const auto runner = MakeObject<WorkerRunner>(std::move(job), std::move(mark));
    TnRobotPtr<ITnRobotTask> task;
    try {
        if (!pool.CreateTask(runner.get(), task.put()) || !task) {
            ThrowNoTask();
        }
        keep(task);
        if (!task->Start()) {
            ThrowNoTask();
        }
    } catch (...) {
        runner->Forget();  // an idle task keeps its runner
        throw;
    }
}

// Has the idle tasks of a pool let go of their last runners, whose code goes with the library that it came
// from. A pool hands out the task that has been idle longest, so each has its turn and their order stays.
inline void DropIdleRunners(ITnRobotTaskPool& pool) {
    for (unsigned int n = pool.GetTaskCount(); n > 0 && pool.GetTaskCount() > 0; --n) {
        TnRobotPtr<ITnRobotTask> task;
        if (!pool.CreateTask(nullptr, task.put()) || !task) {
            return;
        }
    }
}

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_TASKSTART_H_
