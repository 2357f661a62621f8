// What a job may do to its own task, and what its callers see of it meanwhile.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <functional>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "TnRobotKernel/ptr.h"
#include "support/fakes/RecordingRunner.h"
#include "support/objects/TaskPools.h"
#include "support/threads/Gate.h"
#include "support/threads/SignalHold.h"
#include "support/threads/Storm.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

namespace {

class TaskOwnJob : public TaskPoolTest {};

// A task whose job resets its own run event, which is how a job ends itself, and then works on until
// the gate opens. Its later runs end themselves at once.
class EndingItself {
public:
    explicit EndingItself(ITnRobotTaskPool& pool) {
        m_runner->m_isStop = [] { return false; };
        m_runner->m_onExecute = [this](ITnRobotEvent* pRunEvent) {
            pRunEvent->ResetEvent();
            m_gate.Pass();
            m_bWorking = false;
        };
        m_task = MakeTask(pool, m_runner.get());
        EXPECT_TRUE(m_task->Start());
        m_gate.AwaitArrival();
    }
    EndingItself(const EndingItself&) = delete;
    EndingItself& operator=(const EndingItself&) = delete;
    ~EndingItself() { m_gate.Open(); }

    ITnRobotTask& Task() { return *m_task; }
    TnRobotPtr<ITnRobotTask>& Reference() { return m_task; }
    RecordingRunner& Runner() { return *m_runner; }
    bool IsWorking() const { return m_bWorking; }
    void LetGo() { m_gate.Open(); }

private:
    Gate m_gate;
    std::atomic<bool> m_bWorking{true};
    TnRobotPtr<RecordingRunner> m_runner = RecordingRunner::Create();
    TnRobotPtr<ITnRobotTask> m_task;
};

// The call waits for as long as the job works, and the job is over when it returns.
void ExpectToWaitFor(EndingItself& job, const std::function<void()>& call) {
    std::atomic<bool> bWorkingAfter{true};
    Caller caller([&] {
        call();
        bWorkingAfter = job.IsWorking();
    });
    EXPECT_TRUE(StaysTrue([&caller] { return !caller.Returned(); }, Milliseconds(50)));
    job.LetGo();
    caller.Join();
    EXPECT_FALSE(bWorkingAfter);
}

}  // namespace

// Jobs that reset their own run event.

TEST_F(TaskOwnJob, StopWaitsForARunThatEndsItself) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    EndingItself job(*pool);
    EXPECT_FALSE(job.Task().IsRunning());
    ExpectToWaitFor(job, [&job] { job.Task().Stop(); });
    EXPECT_EQ(job.Runner().Calls(), "InEC");
}

// The pool would hand the task to somebody else, whose runner takes the place of the one that works.
TEST_F(TaskOwnJob, TheLastReleaseWaitsForARunThatEndsItself) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    EndingItself job(*pool);
    std::atomic<int> nLeft{-1};
    Caller releaser([&nLeft, pTask = job.Reference().detach()] { nLeft = pTask->Release(); });
    EXPECT_TRUE(StaysTrue([&] { return !releaser.Returned() && pool->GetTaskCount() == 0; }, Milliseconds(50)));
    job.LetGo();
    releaser.Join();
    EXPECT_FALSE(job.IsWorking());
    EXPECT_EQ(nLeft, 1);
    EXPECT_EQ(pool->GetTaskCount(), 1U);
    EXPECT_EQ(job.Runner().Calls(), "InEC");
}

TEST_F(TaskOwnJob, TheEndOfThePoolWaitsForARunThatEndsItself) {
    TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    EndingItself job(*pool);
    Caller releaser([pTask = job.Reference().detach()] { pTask->Release(); });
    EXPECT_TRUE(releaser.AwaitBlocked());
    std::atomic<int> nLeft{-1};
    Caller ender([&nLeft, pPool = pool.detach()] { nLeft = pPool->Release(); });
    EXPECT_TRUE(StaysTrue([&] { return !ender.Returned() && !releaser.Returned(); }, Milliseconds(50)));
    job.LetGo();
    ender.Join();
    EXPECT_FALSE(job.IsWorking());
    EXPECT_EQ(nLeft, 0);
    releaser.Join();
    EXPECT_EQ(job.Runner().Calls(), "InEC");
}

TEST_F(TaskOwnJob, TheEndOfATaskWithoutItsPoolWaitsForARunThatEndsItself) {
    TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    EndingItself job(*pool);
    pool.reset();
    ExpectToWaitFor(job, [&job] { EXPECT_EQ(job.Reference().detach()->Release(), 0); });
    EXPECT_EQ(job.Runner().Calls(), "InEC");
}

TEST_F(TaskOwnJob, AStartDuringARunThatEndsItselfBeginsAnother) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    EndingItself job(*pool);
    std::atomic<bool> bStarted{false};
    std::atomic<int> nInits{0};
    ExpectToWaitFor(job, [&] {
        bStarted = job.Task().Start();
        nInits = job.Runner().Log().Count('I');
    });
    EXPECT_TRUE(bStarted);
    EXPECT_EQ(nInits, 2);
    job.Task().Stop();
    EXPECT_EQ(job.Runner().Calls(), "InECInEC");
}

// A Start that waits for the end of a run finds its event set again, and reset when it looks once more: it
// must not wait for a run of its own then, which the worker, still in the old one, never begins.
TEST_F(TaskOwnJob, AStartDuringARunWhoseJobResetsAndSetsItsEventReturns) {
    constexpr int kStarts = 300;
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
    std::atomic<bool> bEnough{false};
    std::atomic<int> nAnswered{0};
    runner->m_isStop = [] { return false; };
    runner->m_onExecute = [&bEnough](ITnRobotEvent* pRunEvent) {
        while (!bEnough) {
            pRunEvent->ResetEvent();
            pRunEvent->SetEvent();
        }
    };
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    ASSERT_TRUE(task->Start());
    Caller starter([&] {
        for (int i = 0; i < kStarts; ++i) {
            nAnswered += task->Start() ? 1 : 0;
        }
    });
    EXPECT_TRUE(Eventually([&nAnswered] { return nAnswered == kStarts; }));
    bEnough = true;
    starter.Join();
    task->Stop();
}

// A starter that looks rarely must not miss a run that ends itself. Here it is held meanwhile.
TEST_F(TaskOwnJob, StartReturnsAlsoWhenTheRunHasEndedItselfBeforeItLooks) {
    SignalHold hold;
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
    std::atomic<pthread_t> starterThread{pthread_self()};
    runner->m_isStop = [] { return false; };
    runner->m_onInit = [&] { hold.Hold(starterThread); };
    runner->m_onExecute = [](ITnRobotEvent* pRunEvent) { pRunEvent->ResetEvent(); };
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    std::atomic<bool> bStarted{false};
    Caller starter([&] {
        starterThread = pthread_self();
        bStarted = task->Start();
    });
    EXPECT_TRUE(Eventually([&runner] { return runner->Log().Count('C') == 1; }));
    // Some turns of the worker later it is outside of the run for certain.
    StaysTrue([&starter] { return !starter.Returned(); }, Milliseconds(20));
    hold.LetGo();
    starter.Join();
    EXPECT_TRUE(bStarted);
    EXPECT_EQ(runner->Calls(), "InEC");
}

TEST_F(TaskOwnJob, EveryStartIsARunThoughEachEndsItself) {
    const int nRuns = StormLength(100);
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
    runner->m_isStop = [] { return false; };
    runner->m_onExecute = [](ITnRobotEvent* pRunEvent) { pRunEvent->ResetEvent(); };
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    for (int n = 1; n <= nRuns; ++n) {
        ASSERT_TRUE(task->Start());
        ASSERT_TRUE(AwaitStopped(*task));
    }
    task->Stop();
    EXPECT_EQ(runner->Log().Count('I'), nRuns);
    EXPECT_EQ(runner->Log().Count('E'), nRuns);
    EXPECT_EQ(runner->Log().Count('C'), nRuns);
}

// A job that takes a stop back is asked again.
TEST_F(TaskOwnJob, StopEndsARunWhoseJobSetsItsEventAgain) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
    Gate gate;
    bool bTakenBack = false;  // the job's own
    runner->m_isStop = [] { return false; };
    runner->m_onExecute = [&](ITnRobotEvent* pRunEvent) {
        gate.Pass();
        if (!bTakenBack) {
            bTakenBack = Eventually([pRunEvent] { return !pRunEvent->WaitEvent(0); });
            pRunEvent->SetEvent();
        }
    };
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    const OpenAtEnd atEnd(gate);
    ASSERT_TRUE(task->Start());
    gate.AwaitArrival();
    gate.Open();
    task->Stop();
    EXPECT_FALSE(task->IsRunning());
    EXPECT_TRUE(bTakenBack);
    EXPECT_EQ(runner->Log().Count('C'), 1);
}

// Jobs that stop their own task.

TEST_F(TaskOwnJob, MayStopItsTaskFromEveryCall) {
    enum class From { kInit, kIsStop, kExecute, kClearResource };
    for (const From eFrom : {From::kInit, From::kIsStop, From::kExecute, From::kClearResource}) {
        const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
        const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
        TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
        const auto stopFrom = [&task, eFrom](From eHere) {
            if (eHere == eFrom) {
                task->Stop();
                EXPECT_FALSE(task->IsRunning());
                EXPECT_FALSE(task->Start());
            }
        };
        runner->m_onInit = [&] { stopFrom(From::kInit); };
        runner->m_isStop = [&] {
            stopFrom(From::kIsStop);
            return false;
        };
        runner->m_onExecute = [&](ITnRobotEvent* pRunEvent) {
            stopFrom(From::kExecute);
            EXPECT_TRUE(eFrom == From::kClearResource || !pRunEvent->WaitEvent(0));
        };
        runner->m_onClear = [&] { stopFrom(From::kClearResource); };
        for (int nRun = 1; nRun <= 3; ++nRun) {
            ASSERT_TRUE(task->Start());
            if (eFrom == From::kClearResource) {
                task->Stop();
            }
            EXPECT_TRUE(Eventually([&] { return runner->Log().Count('C') == nRun; }));
            task->Stop();
        }
        if (eFrom != From::kClearResource) {
            EXPECT_EQ(runner->Calls(), "InECInECInEC");
        }
        task.reset();
        EXPECT_EQ(pool->GetTaskCount(), 1U);
    }
}

TEST_F(TaskOwnJob, StartsItsTaskOnlyWhileThatIsNotBeingStopped) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    std::atomic<bool> bInInit{false};
    std::atomic<bool> bBefore{false};
    std::atomic<bool> bAfter{true};
    std::atomic<bool> bInClear{true};
    runner->m_isStop = [] { return false; };
    runner->m_onInit = [&] { bInInit = task->Start(); };
    runner->m_onExecute = [&](ITnRobotEvent* pRunEvent) {
        bBefore = task->Start();
        pRunEvent->ResetEvent();
        bAfter = task->Start();
    };
    runner->m_onClear = [&] { bInClear = task->Start(); };
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(AwaitStopped(*task));
    task->Stop();
    EXPECT_TRUE(bInInit);
    EXPECT_TRUE(bBefore);
    EXPECT_FALSE(bAfter);
    EXPECT_FALSE(bInClear);
    EXPECT_EQ(runner->Calls(), "InEC");
}

// Jobs that count references to their own task.

namespace {

// A task whose job works until its event is reset, then does what it is told, and waits at the gate.
class CountingReferences {
public:
    CountingReferences(ITnRobotTaskPool& pool, const std::function<void(ITnRobotTask&)>& whenStopped) {
        m_runner->m_isStop = [] { return false; };
        m_runner->m_onExecute = [this, whenStopped](ITnRobotEvent* pRunEvent) {
            m_begun.Pass();
            EXPECT_TRUE(Eventually([pRunEvent] { return !pRunEvent->WaitEvent(0); }));
            whenStopped(*m_pTask);
            m_gate.Pass();
        };
        TnRobotPtr<ITnRobotTask> task = MakeTask(pool, m_runner.get());
        m_pTask = task.get();
        EXPECT_TRUE(task->Start());
        m_begun.AwaitArrival();
        m_begun.Open();
        m_task = std::move(task);
    }
    CountingReferences(const CountingReferences&) = delete;
    CountingReferences& operator=(const CountingReferences&) = delete;
    ~CountingReferences() { m_gate.Open(); }

    RecordingRunner& Runner() { return *m_runner; }
    ITnRobotTask* Detach() { return m_task.detach(); }
    void AwaitDone() { m_gate.AwaitArrival(); }
    void LetGo() { m_gate.Open(); }

private:
    Gate m_begun;
    Gate m_gate;
    TnRobotPtr<RecordingRunner> m_runner = RecordingRunner::Create();
    ITnRobotTask* m_pTask = nullptr;
    TnRobotPtr<ITnRobotTask> m_task;
};

void AddAndRelease(ITnRobotTask& task) {
    task.AddRef();
    task.Release();
}

// Every idle task is handed out once.
void ExpectDistinctTasks(ITnRobotTaskPool& pool, unsigned int nIdle) {
    EXPECT_EQ(pool.GetTaskCount(), nIdle);
    const TnRobotPtr<ITnRobotTask> first = MakeTask(pool, nullptr);
    const TnRobotPtr<ITnRobotTask> second = MakeTask(pool, nullptr);
    EXPECT_NE(first.get(), second.get());
}

}  // namespace

TEST_F(TaskOwnJob, MayAddAndReleaseReferencesWhileItsTaskIsGivenBack) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    CountingReferences job(*pool, AddAndRelease);
    std::atomic<int> nLeft{-1};
    Caller releaser([&nLeft, pTask = job.Detach()] { nLeft = pTask->Release(); });
    job.AwaitDone();
    EXPECT_TRUE(StaysTrue([&] { return pool->GetTaskCount() == 0 && !releaser.Returned(); }, Milliseconds(50)));
    job.LetGo();
    releaser.Join();
    EXPECT_EQ(nLeft, 1);
    EXPECT_EQ(job.Runner().Calls(), "InEC");
    ExpectDistinctTasks(*pool, 1);
}

TEST_F(TaskOwnJob, MayAddAndReleaseReferencesWhileItsTaskIsDestroyed) {
    TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    CountingReferences job(*pool, AddAndRelease);
    pool.reset();
    std::atomic<int> nLeft{-1};
    Caller releaser([&nLeft, pTask = job.Detach()] { nLeft = pTask->Release(); });
    job.AwaitDone();
    EXPECT_TRUE(StaysTrue([&releaser] { return !releaser.Returned(); }, Milliseconds(30)));
    job.LetGo();
    releaser.Join();
    EXPECT_EQ(nLeft, 0);
    EXPECT_EQ(job.Runner().Calls(), "InEC");
    EXPECT_TRUE(AwaitNewThreads(0));
}

// Somebody holds the task then, so nobody else may get it.
TEST_F(TaskOwnJob, AReferenceThatItKeepsKeepsItsTask) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    std::atomic<ITnRobotTask*> pKept{nullptr};
    CountingReferences job(*pool, [&pKept](ITnRobotTask& task) {
        task.AddRef();
        pKept = &task;
    });
    std::atomic<int> nLeft{-1};
    Caller releaser([&nLeft, pTask = job.Detach()] { nLeft = pTask->Release(); });
    job.AwaitDone();
    job.LetGo();
    releaser.Join();
    EXPECT_EQ(nLeft, 2);
    EXPECT_EQ(pool->GetTaskCount(), 0U);
    EXPECT_EQ(TaskReferences(*pKept), 2);
    const TnRobotPtr<ITnRobotTask> another = MakeTask(*pool, nullptr);
    EXPECT_NE(another.get(), pKept.load());
    EXPECT_EQ(pKept.load()->Release(), 1);
    EXPECT_EQ(pool->GetTaskCount(), 1U);
    EXPECT_EQ(job.Runner().Calls(), "InEC");
}

// A smart pointer within the job outlives the caller's one.
TEST_F(TaskOwnJob, MayReleaseTheLastReferenceToItsTask) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
    Gate shared;
    Gate released;
    const OpenAtEnd atEnd(shared);
    const OpenAtEnd atEndToo(released);
    TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    std::atomic<int> nLeft{-1};
    std::atomic<bool> bAsked{false};
    runner->m_isStop = [] { return false; };
    runner->m_onExecute = [&, pTask = task.get()](ITnRobotEvent* pRunEvent) {
        pTask->AddRef();
        shared.Pass();
        nLeft = pTask->Release();
        bAsked = !pRunEvent->WaitEvent(0);
        AddAndRelease(*pTask);
        released.Pass();
    };
    ASSERT_TRUE(task->Start());
    shared.AwaitArrival();
    EXPECT_EQ(task.detach()->Release(), 2);
    shared.Open();
    released.AwaitArrival();
    EXPECT_EQ(nLeft, 1);
    EXPECT_TRUE(bAsked);
    EXPECT_TRUE(StaysTrue([&pool] { return pool->GetTaskCount() == 0; }, Milliseconds(30)));
    released.Open();
    EXPECT_TRUE(Eventually([&pool] { return pool->GetTaskCount() == 1; }));
    EXPECT_EQ(runner->Calls(), "InEC");
    ExpectDistinctTasks(*pool, 1);
}

// A smart pointer that the job makes from a raw one after it, and hands out.
TEST_F(TaskOwnJob, WhoComesToHoldItsTaskAfterTheLastReleaseEndsItsRuns) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
    Gate gate;
    const OpenAtEnd atEnd(gate);
    ITnRobotTask* const pTask = MakeTask(*pool, runner.get()).detach();
    bool bFirst = true;  // the job's own
    runner->m_isStop = [] { return false; };
    runner->m_onExecute = [&, pTask](ITnRobotEvent*) {
        if (bFirst) {
            bFirst = false;
            EXPECT_EQ(pTask->Release(), 1);
            pTask->AddRef();
            gate.Pass();
        }
    };
    ASSERT_TRUE(pTask->Start());
    gate.AwaitArrival();
    std::atomic<bool> bStarted{false};
    Caller starter([&bStarted, pTask] { bStarted = pTask->Start(); });
    EXPECT_TRUE(starter.AwaitBlocked());
    gate.Open();
    starter.Join();
    EXPECT_TRUE(bStarted);
    pTask->Release();
    EXPECT_TRUE(Eventually([&pool] { return pool->GetTaskCount() == 1; }));
    EXPECT_EQ(runner->Log().Count('I'), 2);
    EXPECT_EQ(runner->Log().Count('C'), 2);
}

TEST_F(TaskOwnJob, ReleasedByItsJobATaskComesBackThoughTheJobSetsItsEventAgain) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
    ITnRobotTask* const pTask = MakeTask(*pool, runner.get()).detach();
    bool bFirst = true;  // the job's own
    runner->m_isStop = [] { return false; };
    runner->m_onExecute = [&, pTask](ITnRobotEvent* pRunEvent) {
        if (bFirst) {
            bFirst = false;
            EXPECT_EQ(pTask->Release(), 1);
            pRunEvent->SetEvent();
        }
    };
    ASSERT_TRUE(pTask->Start());
    EXPECT_TRUE(Eventually([&pool] { return pool->GetTaskCount() == 1; }));
    EXPECT_EQ(runner->Log().Count('C'), 1);
}

// The end of the pool waits for such a task, as for any that is on its way back.
TEST_F(TaskOwnJob, TheEndOfThePoolWaitsForATaskThatItsJobHasReleased) {
    TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
    Gate gate;
    const OpenAtEnd atEnd(gate);
    ITnRobotTask* const pTask = MakeTask(*pool, runner.get()).detach();
    runner->m_isStop = [] { return false; };
    runner->m_onExecute = [&, pTask](ITnRobotEvent*) {
        EXPECT_EQ(pTask->Release(), 1);
        gate.Pass();
    };
    ASSERT_TRUE(pTask->Start());
    gate.AwaitArrival();
    Caller ender([pPool = pool.detach()] { pPool->Release(); });
    EXPECT_TRUE(StaysTrue([&ender] { return !ender.Returned(); }, Milliseconds(50)));
    gate.Open();
    ender.Join();
    EXPECT_EQ(runner->Calls(), "InEC");
    runner->AddRef();
    EXPECT_EQ(runner->Release(), 1);
    EXPECT_TRUE(AwaitNewThreads(0));
}

TEST_F(TaskOwnJob, MayReleaseTheLastReferenceToATaskWithoutItsPool) {
    for (int nRound = 0; nRound < 5; ++nRound) {
        TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
        const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
        Gate gate;
        const OpenAtEnd atEnd(gate);
        ITnRobotTask* const pTask = MakeTask(*pool, runner.get()).detach();
        runner->m_isStop = [] { return false; };
        runner->m_onExecute = [&, pTask](ITnRobotEvent* pRunEvent) {
            gate.Pass();
            EXPECT_EQ(pTask->Release(), 0);
            EXPECT_FALSE(pRunEvent->WaitEvent(0));
        };
        ASSERT_TRUE(pTask->Start());
        gate.AwaitArrival();
        pool.reset();
        gate.Open();
        // The task gives its runner back when it goes, and its thread ends.
        EXPECT_TRUE(Eventually([&runner] {
            runner->AddRef();
            return runner->Release() == 1;
        }));
        EXPECT_TRUE(AwaitNewThreads(0));
        EXPECT_EQ(runner->Calls(), "InEC");
    }
}

// Notices that are out of date: the run that they are about is over, or somebody is ending it.

namespace {

// The runner's first run is over and its notice waits in the pool.
void RunOnceAndLeaveANotice(ITnRobotTask& task, RecordingRunner& runner) {
    ASSERT_TRUE(task.Start());
    ASSERT_TRUE(AwaitNotice(runner));
}

// A task that is done is stopped although the pool's thread has an older notice to read.
void ExpectToBeStopped(ITnRobotTask& task, RecordingRunner& runner) {
    EXPECT_TRUE(Eventually([&task] { return !task.IsRunning(); }));
    EXPECT_TRUE(Eventually([&runner] { return runner.Log().Count('C') == 1; }));
}

}  // namespace

TEST_F(TaskOwnJob, AnOutdatedNoticeDoesNotWaitForASlowInit) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    Gate gate;
    const TnRobotPtr<RecordingRunner> runner = RunnerFor(1);
    const TnRobotPtr<RecordingRunner> other = RunnerFor(1);
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    const TnRobotPtr<ITnRobotTask> done = MakeTask(*pool, other.get());
    BusyPoolThread busy(*pool);
    RunOnceAndLeaveANotice(*task, *runner);
    task->Stop();
    runner->m_onInit = [&gate, reset = runner->m_onInit] {
        gate.Pass();
        reset();
    };
    Caller starter([&task] { EXPECT_TRUE(task->Start()); });
    const OpenAtEnd atEnd(gate);
    gate.AwaitArrival();
    RunOnceAndLeaveANotice(*done, *other);
    busy.LetGo();
    ExpectToBeStopped(*done, *other);
    gate.Open();
    starter.Join();
    EXPECT_TRUE(AwaitStopped(*task));
}

TEST_F(TaskOwnJob, AnOutdatedNoticeDoesNotWaitForSomebodysStop) {
    for (const bool bOfTheSameRun : {true, false}) {
        const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
        Gate gate;
        const TnRobotPtr<RecordingRunner> runner = RunnerFor(1);
        const TnRobotPtr<RecordingRunner> other = RunnerFor(1);
        const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
        const TnRobotPtr<ITnRobotTask> done = MakeTask(*pool, other.get());
        BusyPoolThread busy(*pool);
        RunOnceAndLeaveANotice(*task, *runner);
        if (!bOfTheSameRun) {
            task->Stop();
            ASSERT_TRUE(task->Start());
        }
        runner->m_onClear = [&gate] { gate.Pass(); };
        Caller stopper([&task] { task->Stop(); });
        const OpenAtEnd atEnd(gate);
        gate.AwaitArrival();
        RunOnceAndLeaveANotice(*done, *other);
        busy.LetGo();
        ExpectToBeStopped(*done, *other);
        EXPECT_FALSE(stopper.Returned());
        gate.Open();
        stopper.Join();
        EXPECT_TRUE(Eventually([&task] { return TaskReferences(*task) == 2; }));
    }
}

// The notice has the last reference to a task that works again: the worker gives the task back.
TEST_F(TaskOwnJob, AnOutdatedNoticeDoesNotWaitForTheRunThatItsReferenceEnds) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    Gate gate;
    std::atomic<bool> bAsked{false};
    const TnRobotPtr<RecordingRunner> runner = RunnerFor(1);
    const TnRobotPtr<RecordingRunner> other = RunnerFor(1);
    TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    const TnRobotPtr<ITnRobotTask> done = MakeTask(*pool, other.get());
    BusyPoolThread busy(*pool);
    RunOnceAndLeaveANotice(*task, *runner);
    task->Stop();
    runner->m_onExecute = [&, count = runner->m_onExecute](ITnRobotEvent* pRunEvent) {
        bAsked = Eventually([pRunEvent] { return !pRunEvent->WaitEvent(0); });
        gate.Pass();
        count(pRunEvent);
    };
    ASSERT_TRUE(task->Start());
    EXPECT_EQ(task.detach()->Release(), 2);
    const OpenAtEnd atEnd(gate);
    RunOnceAndLeaveANotice(*done, *other);
    busy.LetGo();
    gate.AwaitArrival();
    ExpectToBeStopped(*done, *other);
    EXPECT_TRUE(bAsked);
    EXPECT_EQ(pool->GetTaskCount(), 0U);
    gate.Open();
    EXPECT_TRUE(Eventually([&pool] { return pool->GetTaskCount() == 1; }));
    EXPECT_EQ(runner->Log().Count('E'), 2);
    EXPECT_EQ(runner->Log().Count('C'), 2);
}
