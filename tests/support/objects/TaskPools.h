// What tests of task pools begin with.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_TASKPOOLS_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_TASKPOOLS_H_

#include <gtest/gtest.h>

#include "TnRobotKernel/concurrency.h"
#include "TnRobotKernel/ptr.h"
#include "support/fakes/RecordingRunner.h"
#include "support/threads/Gate.h"
#include "support/threads/ThreadProbe.h"
#include "support/threads/ThreadTest.h"

namespace tntest {

/// For tests whose runners are RecordingRunners: none may be left.
class TaskPoolTest : public ThreadTest {
protected:
    void TearDown() override {
        EXPECT_EQ(RecordingRunner::Alive(), 0);
        ThreadTest::TearDown();
    }
};

inline TnRobotPtr<ITnRobotTaskPool> MakeTaskPool() {
    ITnRobotTaskPool* pPool = nullptr;
    EXPECT_EQ(TnCreateRobotTaskPool(&pPool), 1);
    return tn::Adopt(pPool);
}

inline TnRobotPtr<ITnRobotTask> MakeTask(ITnRobotTaskPool& pool, ITnRobotTaskRunner* pRunner) {
    ITnRobotTask* pTask = nullptr;
    EXPECT_TRUE(pool.CreateTask(pRunner, &pTask));
    return tn::Adopt(pTask);
}

inline TnRobotPtr<RecordingRunner> RunnerFor(int nTimes) {
    TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
    runner->RunTimes(nTimes);
    return runner;
}

/// @return references to a task at this moment.
inline int TaskReferences(ITnRobotTask& task) {
    task.AddRef();
    return task.Release();
}

inline bool AwaitStopped(ITnRobotTask& task) {
    return Eventually([&task] { return !task.IsRunning(); });
}

/// A runner asked a second time whether it is done has given its notice in between.
inline bool AwaitNotice(RecordingRunner& runner) {
    return Eventually([&runner] { return runner.Log().DoneAnswers() >= 2; });
}

/// Keeps a pool's own thread busy: it stops a task whose runner does not let go of its resources.
/// Notices that come meanwhile stay queued.
class BusyPoolThread {
public:
    explicit BusyPoolThread(ITnRobotTaskPool& pool) : m_runner(RunnerFor(1)) {
        m_runner->m_onClear = [this] { m_gate.Pass(); };
        m_task = MakeTask(pool, m_runner.get());
        EXPECT_TRUE(m_task->Start());
        m_gate.AwaitArrival();
    }
    BusyPoolThread(const BusyPoolThread&) = delete;
    BusyPoolThread& operator=(const BusyPoolThread&) = delete;
    ~BusyPoolThread() {
        m_gate.Open();
        // The pool gives the notice's reference back when it is done with the task.
        EXPECT_TRUE(Eventually([this] { return TaskReferences(*m_task) <= 2; }));
    }

    void LetGo() { m_gate.Open(); }
    ITnRobotTask& Task() { return *m_task; }

private:
    Gate m_gate;
    TnRobotPtr<RecordingRunner> m_runner;
    TnRobotPtr<ITnRobotTask> m_task;
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_TASKPOOLS_H_
