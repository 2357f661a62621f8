#include "concurrency/TnRobotTask.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "TnRobotKernel/ptr.h"
#include "concurrency/TnWorker.h"
#include "support/fakes/RecordingRunner.h"
#include "support/threads/Gate.h"
#include "support/threads/Storm.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

namespace {

// Stands for a pool; writes down what it hears into a runner's log.
class RecordingParent final : public ITnRobotTaskParent {
public:
    explicit RecordingParent(CallLog& log) : m_log(log) {}

    void RecoveryTask(ITnRobotTask* pTask) override {
        m_pTask = pTask;
        m_nThread = ThisThreadNumber();
        m_log.Add('R');
    }
    void OnNotifyStop(ITnRobotTask* pTask) override {
        m_pTask = pTask;
        m_nThread = ThisThreadNumber();
        m_log.Add('N');
    }

    ITnRobotTask* LatestTask() const { return m_pTask; }
    int LatestThread() const { return m_nThread; }

private:
    CallLog& m_log;
    std::atomic<ITnRobotTask*> m_pTask{nullptr};
    std::atomic<int> m_nThread{0};
};

// Takes its time to go. One of a thread's own goes at the thread's end, after all that the library does there.
class SlowEnd {
public:
    enum State { kNotYet, kBegun, kOver };

    explicit SlowEnd(std::atomic<State>& state) : m_state(state) {}
    SlowEnd(const SlowEnd&) = delete;
    SlowEnd& operator=(const SlowEnd&) = delete;
    ~SlowEnd() {
        m_state = kBegun;
        std::this_thread::sleep_for(Milliseconds(100));
        m_state = kOver;
    }

private:
    std::atomic<State>& m_state;
};

// A task with one reference, the pool's, which the fixture has.
class Task : public ThreadTest {
protected:
    TnRobotPtr<CTnRobotTask> MakeTask() {
        CTnRobotTask* pTask = nullptr;
        EXPECT_EQ(CTnRobotTask::CreateInstance(&m_parent, &pTask), 1);
        return tn::Adopt(pTask);
    }

    TnRobotPtr<CTnRobotTask> MakeTask(ITnRobotTaskRunner* pRunner) {
        TnRobotPtr<CTnRobotTask> task = MakeTask();
        EXPECT_EQ(task->BindRunner(pRunner), pRunner != nullptr);
        return task;
    }

    void TearDown() override {
        m_runner.reset();
        EXPECT_EQ(RecordingRunner::Alive(), 0);
        ThreadTest::TearDown();
    }

    std::string Calls() const { return m_runner->Calls(); }
    bool AwaitCalls(char cCall, int nCalls) {
        return Eventually([&] { return m_runner->Log().Count(cCall) >= nCalls; });
    }
    bool AwaitDoneAnswers(int nMore) {
        const int nWanted = m_runner->Log().DoneAnswers() + nMore;
        return Eventually([&] { return m_runner->Log().DoneAnswers() >= nWanted; });
    }

    TnRobotPtr<RecordingRunner> m_runner = RecordingRunner::Create();
    RecordingParent m_parent{m_runner->Log()};
};

}  // namespace

TEST_F(Task, NeedsAParent) {
    auto* pTask = reinterpret_cast<CTnRobotTask*>(this);
    EXPECT_EQ(CTnRobotTask::CreateInstance(nullptr, &pTask), 0);
    EXPECT_EQ(pTask, nullptr);
}

TEST_F(Task, GoesBackToItsParentWhenOneReferenceIsLeft) {
    TnRobotPtr<CTnRobotTask> task = MakeTask();
    task->AddRef();
    task->AddRef();
    EXPECT_EQ(task->Release(), 2);
    EXPECT_EQ(Calls(), "");
    EXPECT_EQ(task->Release(), 1);
    EXPECT_EQ(Calls(), "R");
    EXPECT_EQ(m_parent.LatestTask(), task.get());
    EXPECT_EQ(m_parent.LatestThread(), ThisThreadNumber());
    EXPECT_EQ(task.detach()->Release(), 0);
    EXPECT_EQ(Calls(), "R");
}

TEST_F(Task, WithoutItsParentItIsACountedObjectLikeAnother) {
    TnRobotPtr<CTnRobotTask> task = MakeTask(m_runner.get());
    m_runner->RunTimes(1);
    task->FreeParent();
    task->AddRef();
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(AwaitDoneAnswers(3));
    task->Stop();
    EXPECT_EQ(task->Release(), 1);
    EXPECT_EQ(Calls(), "InEyC");
    EXPECT_EQ(task.detach()->Release(), 0);
}

TEST_F(Task, HoldsItsRunnerUntilAnotherIsBound) {
    TnRobotPtr<RecordingRunner> second = RecordingRunner::Create();
    const TnRobotPtr<CTnRobotTask> task = MakeTask();
    EXPECT_FALSE(task->BindRunner(nullptr));
    EXPECT_TRUE(task->BindRunner(second.get()));
    EXPECT_EQ(second.detach()->Release(), 1);
    EXPECT_EQ(RecordingRunner::Alive(), 2);
    EXPECT_TRUE(task->BindRunner(m_runner.get()));
    EXPECT_EQ(RecordingRunner::Alive(), 1);
    EXPECT_FALSE(task->BindRunner(nullptr));
    m_runner->AddRef();
    EXPECT_EQ(m_runner->Release(), 1);
}

// The task may have the only reference.
TEST_F(Task, BindingTheRunnerThatIsBoundKeepsItAlive) {
    TnRobotPtr<RecordingRunner> second = RecordingRunner::Create();
    RecordingRunner* pRunner = second.get();
    const TnRobotPtr<CTnRobotTask> task = MakeTask(pRunner);
    second.reset();
    EXPECT_TRUE(task->BindRunner(pRunner));
    EXPECT_EQ(RecordingRunner::Alive(), 2);
    EXPECT_TRUE(task->Start());
    task->Stop();
    EXPECT_EQ(pRunner->Calls(), "IyC");
}

TEST_F(Task, DoesNotStartWithoutARunner) {
    const TnRobotPtr<CTnRobotTask> task = MakeTask();
    EXPECT_FALSE(task->Start());
    EXPECT_FALSE(task->IsRunning());
    EXPECT_EQ(NewThreads(), 0);
}

TEST_F(Task, StopDoesNothingUnlessItRuns) {
    const TnRobotPtr<CTnRobotTask> task = MakeTask(m_runner.get());
    task->Stop();
    EXPECT_EQ(NewThreads(), 0);
    ASSERT_TRUE(task->Start());
    task->Stop();
    task->Stop();
    EXPECT_EQ(Calls(), "IyC");
}

TEST_F(Task, KeepsItsOneThreadFromTheFirstStartToItsEnd) {
    TnRobotPtr<CTnRobotTask> task = MakeTask(m_runner.get());
    EXPECT_EQ(NewThreads(), 0);
    int nThread = 0;
    for (int n = 0; n < 3; ++n) {
        ASSERT_TRUE(task->Start());
        EXPECT_TRUE(task->IsRunning());
        EXPECT_EQ(NewThreads(), 1);
        EXPECT_EQ(m_runner->ThreadNumber(), n == 0 ? m_runner->ThreadNumber() : nThread);
        nThread = m_runner->ThreadNumber();
        task->Stop();
        EXPECT_FALSE(task->IsRunning());
        EXPECT_EQ(NewThreads(), 1);
    }
    EXPECT_NE(nThread, ThisThreadNumber());
    task.reset();
    EXPECT_TRUE(AwaitNewThreads(0));
}

TEST_F(Task, CallsItsRunnerInOrder) {
    for (const auto& [nTimes, calls] :
         {std::pair(0, "IyC"), std::pair(1, "InEyNC"), std::pair(2, "InEnEyNC"), std::pair(5, "InEnEnEnEnEyNC")}) {
        const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
        RecordingParent parent(runner->Log());
        CTnRobotTask* pTask = nullptr;
        ASSERT_EQ(CTnRobotTask::CreateInstance(&parent, &pTask), 1);
        const TnRobotPtr<CTnRobotTask> task = tn::Adopt(pTask);
        runner->RunTimes(nTimes);
        task->BindRunner(runner.get());
        std::string expected;
        for (int nRun = 0; nRun < 3; ++nRun) {
            expected += calls;
            const int nAnswers = runner->Log().DoneAnswers();
            ASSERT_TRUE(task->Start());
            // It is asked again and again; the notice is not repeated.
            EXPECT_TRUE(Eventually([&] { return runner->Log().DoneAnswers() >= nAnswers + 5; }));
            EXPECT_TRUE(task->IsRunning());
            task->Stop();
            EXPECT_EQ(runner->Calls(), expected);
        }
        EXPECT_FALSE(runner->HasChangedThreads());
        if (nTimes > 0) {
            EXPECT_EQ(parent.LatestTask(), pTask);
            EXPECT_EQ(parent.LatestThread(), runner->ThreadNumber());
        }
    }
}

TEST_F(Task, ExecutesUntilItIsStoppedWhenTheRunnerIsNeverDone) {
    m_runner->m_isStop = [] { return false; };
    const TnRobotPtr<CTnRobotTask> task = MakeTask(m_runner.get());
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(AwaitCalls('E', 4));
    task->Stop();
    std::string expected = "I";
    for (int n = m_runner->Log().Count('E'); n > 0; --n) {
        expected += "nE";
    }
    EXPECT_EQ(Calls(), expected + "C");
    EXPECT_TRUE(StaysTrue([&] { return Calls() == expected + "C"; }, Milliseconds(20)));
}

// A runner that finds more work after it was done gives another notice for that.
TEST_F(Task, EveryRowOfExecutionsGivesOneNotice) {
    std::atomic<int> nWork{1};
    int nDone = 0;
    m_runner->m_onExecute = [&](ITnRobotEvent*) { ++nDone; };
    m_runner->m_isStop = [&] { return nDone >= nWork; };
    const TnRobotPtr<CTnRobotTask> task = MakeTask(m_runner.get());
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(AwaitDoneAnswers(3));
    nWork = 3;
    EXPECT_TRUE(AwaitCalls('N', 2));
    EXPECT_TRUE(AwaitDoneAnswers(3));
    task->Stop();
    EXPECT_EQ(Calls(), "InEyNnEnEyNC");
}

// The work of a run that was stopped before its runner could say that it was done still counts.
TEST_F(Task, AnInterruptedRunLeavesItsNoticeToTheNextOne) {
    Gate gate;
    std::atomic<bool> bDone{false};
    m_runner->m_onExecute = [&](ITnRobotEvent*) { gate.Pass(); };
    m_runner->m_isStop = [&] { return bDone.load(); };
    const TnRobotPtr<CTnRobotTask> task = MakeTask(m_runner.get());
    const OpenAtEnd atEnd(gate);
    ASSERT_TRUE(task->Start());
    gate.AwaitArrival();
    Caller stopper([&task] { task->Stop(); });
    EXPECT_TRUE(Eventually([&task] { return !task->IsRunning(); }));
    bDone = true;
    gate.Open();
    stopper.Join();
    EXPECT_EQ(Calls(), "InEC");
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(AwaitDoneAnswers(3));
    task->Stop();
    EXPECT_EQ(Calls(), "InECIyNC");
}

TEST_F(Task, StartReturnsAfterInit) {
    Gate gate;
    m_runner->m_onInit = [&gate] { gate.Pass(); };
    const TnRobotPtr<CTnRobotTask> task = MakeTask(m_runner.get());
    const OpenAtEnd atEnd(gate);
    std::atomic<bool> bStarted{false};
    Caller starter([&] { bStarted = task->Start(); });
    gate.AwaitArrival();
    EXPECT_TRUE(StaysTrue([&starter] { return !starter.Returned(); }, Milliseconds(30)));
    EXPECT_TRUE(task->IsRunning());
    gate.Open();
    starter.Join();
    EXPECT_TRUE(bStarted);
}

TEST_F(Task, StartingARunningTaskReturnsAtOnceAndBeginsNoOtherRun) {
    Gate gate;
    m_runner->RunTimes(1);
    m_runner->m_onExecute = [&gate, count = m_runner->m_onExecute](ITnRobotEvent* pEvent) {
        gate.Pass();
        count(pEvent);
    };
    const TnRobotPtr<CTnRobotTask> task = MakeTask(m_runner.get());
    const OpenAtEnd atEnd(gate);
    ASSERT_TRUE(task->Start());
    gate.AwaitArrival();
    EXPECT_TRUE(task->Start());
    gate.Open();
    EXPECT_TRUE(AwaitDoneAnswers(2));
    // Done, but nobody has stopped it: it still runs.
    EXPECT_TRUE(task->Start());
    EXPECT_TRUE(AwaitDoneAnswers(3));
    task->Stop();
    EXPECT_EQ(Calls(), "InEyNC");
}

TEST_F(Task, TheJobSeesWhetherItIsBeingStopped) {
    std::atomic<bool> bSetAtFirst{false};
    std::atomic<bool> bSawStop{false};
    m_runner->m_isStop = [] { return false; };
    m_runner->m_onExecute = [&](ITnRobotEvent* pRunEvent) {
        bSetAtFirst = pRunEvent->WaitEvent(0);
        bSawStop = Eventually([pRunEvent] { return !pRunEvent->WaitEvent(0); });
    };
    const TnRobotPtr<CTnRobotTask> task = MakeTask(m_runner.get());
    ITnRobotEvent* pFirst = nullptr;
    for (int n = 0; n < 2; ++n) {
        bSetAtFirst = false;
        bSawStop = false;
        ASSERT_TRUE(task->Start());
        EXPECT_TRUE(Eventually([&bSetAtFirst] { return bSetAtFirst.load(); }));
        task->Stop();
        EXPECT_TRUE(bSawStop);
        EXPECT_EQ(m_runner->RunEvent(), n == 0 ? m_runner->RunEvent() : pFirst);
        pFirst = m_runner->RunEvent();
    }
    EXPECT_EQ(Calls(), "InECInEC");
}

TEST_F(Task, StopReturnsAfterExecuteAndClearResource) {
    Gate executing;
    Gate clearing;
    m_runner->m_isStop = [] { return false; };
    m_runner->m_onExecute = [&](ITnRobotEvent*) { executing.Pass(); };
    m_runner->m_onClear = [&] { clearing.Pass(); };
    const TnRobotPtr<CTnRobotTask> task = MakeTask(m_runner.get());
    const OpenAtEnd atEnd(executing);
    const OpenAtEnd atEndToo(clearing);
    ASSERT_TRUE(task->Start());
    executing.AwaitArrival();
    Caller stopper([&task] { task->Stop(); });
    EXPECT_TRUE(Eventually([&task] { return !task->IsRunning(); }));
    EXPECT_TRUE(StaysTrue([&stopper] { return !stopper.Returned(); }, Milliseconds(30)));
    EXPECT_EQ(Calls(), "InE");
    executing.Open();
    clearing.AwaitArrival();
    EXPECT_TRUE(StaysTrue([&stopper] { return !stopper.Returned(); }, Milliseconds(30)));
    clearing.Open();
    stopper.Join();
    EXPECT_EQ(Calls(), "InEC");
}

// A start that comes while the task is being stopped is a start of its own: it must neither return
// on the strength of the run that ends, nor take the stop back.
TEST_F(Task, AStartDuringAStopBeginsANewRun) {
    for (int nRound = 0; nRound < 10; ++nRound) {
        const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
        Gate gate;
        runner->m_isStop = [] { return false; };
        runner->m_onExecute = [&](ITnRobotEvent*) { gate.Pass(); };
        const TnRobotPtr<CTnRobotTask> task = MakeTask(runner.get());
        const OpenAtEnd atEnd(gate);
        ASSERT_TRUE(task->Start());
        gate.AwaitArrival();
        Caller stopper([&task] { task->Stop(); });
        ASSERT_TRUE(Eventually([&task] { return !task->IsRunning(); }));
        std::atomic<bool> bStarted{false};
        std::atomic<int> nInits{0};
        Caller starter([&] {
            bStarted = task->Start();
            nInits = runner->Log().Count('I');
        });
        EXPECT_TRUE(StaysTrue([&starter] { return !starter.Returned(); }, Milliseconds(20)));
        gate.Open();
        stopper.Join();
        starter.Join();
        EXPECT_TRUE(bStarted);
        EXPECT_EQ(nInits, 2);
        EXPECT_TRUE(Eventually([&] { return runner->Log().Count('E') >= 2; }));
        task->Stop();
        EXPECT_EQ(runner->Log().Count('C'), 2);
    }
}

TEST_F(Task, ManyMayStartAndStopItAtOnce) {
    m_runner->RunTimes(1);
    const TnRobotPtr<CTnRobotTask> task = MakeTask(m_runner.get());
    {
        std::vector<Caller> callers;
        for (int nCaller = 0; nCaller < 4; ++nCaller) {
            callers.emplace_back([&task] {
                for (int n = 0; n < StormLength(25); ++n) {
                    EXPECT_TRUE(task->Start());
                    task->Stop();
                }
            });
        }
    }
    EXPECT_FALSE(task->IsRunning());
    const CallLog& log = m_runner->Log();
    EXPECT_EQ(log.Count('I'), log.Count('C'));
    EXPECT_EQ(log.Count('I'), log.Count('E'));
    EXPECT_FALSE(m_runner->HasChangedThreads());
    EXPECT_TRUE(AwaitNewThreads(1));  // the callers' are on their way out
}

TEST_F(Task, AJobMayStartItsOwnTask) {
    std::atomic<int> nTrue{0};
    TnRobotPtr<CTnRobotTask> task;
    m_runner->RunTimes(1);
    m_runner->m_onExecute = [&, count = m_runner->m_onExecute](ITnRobotEvent* pEvent) {
        nTrue += task->Start() ? 1 : 0;
        count(pEvent);
    };
    task = MakeTask(m_runner.get());
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(AwaitDoneAnswers(1));
    task->Stop();
    EXPECT_EQ(nTrue, 1);
    EXPECT_EQ(Calls(), "InEyNC");
}

// It could only wait for itself; it must not claim a run either, nor take the stop back.
TEST_F(Task, AJobCannotStartItsOwnTaskWhileThatIsBeingStopped) {
    std::atomic<bool> bStarted{true};
    TnRobotPtr<CTnRobotTask> task;
    m_runner->m_isStop = [] { return false; };
    m_runner->m_onExecute = [&](ITnRobotEvent* pRunEvent) {
        EXPECT_TRUE(Eventually([pRunEvent] { return !pRunEvent->WaitEvent(0); }));
        bStarted = task->Start();
    };
    task = MakeTask(m_runner.get());
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(AwaitCalls('E', 1));
    task->Stop();
    EXPECT_FALSE(bStarted);
    EXPECT_EQ(Calls(), "InEC");
    EXPECT_FALSE(task->IsRunning());
}

TEST_F(Task, TheEndOfATaskStopsItFirst) {
    m_runner->m_isStop = [] { return false; };
    m_runner->m_onExecute = [](ITnRobotEvent* pRunEvent) {
        while (pRunEvent->WaitEvent(0)) {
            std::this_thread::yield();
        }
    };
    TnRobotPtr<CTnRobotTask> task = MakeTask(m_runner.get());
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(AwaitCalls('E', 1));
    EXPECT_EQ(task.detach()->Release(), 0);
    EXPECT_EQ(Calls(), "InEC");
    EXPECT_TRUE(AwaitNewThreads(0));
    m_runner->AddRef();
    EXPECT_EQ(m_runner->Release(), 1);
}

// The library joins it when it goes: code must not go that a thread is still in.
TEST_F(Task, AThreadThatDestroysItsTaskIsJoinedLater) {
    static std::atomic<SlowEnd::State> s_end;  // the thread may outlive a test that fails
    s_end = SlowEnd::kNotYet;
    Gate started;
    const OpenAtEnd atEnd(started);
    CTnRobotTask* const pTask = MakeTask(m_runner.get()).detach();
    pTask->FreeParent();
    m_runner->m_isStop = [] { return false; };
    m_runner->m_onExecute = [&, pTask](ITnRobotEvent*) {
        thread_local const SlowEnd t_end(s_end);
        started.Pass();
        EXPECT_EQ(pTask->Release(), 0);
    };
    ASSERT_TRUE(pTask->Start());
    started.Open();
    EXPECT_TRUE(Eventually([] { return s_end != SlowEnd::kNotYet; }));
    tnrobot::Worker::JoinLeft();
    EXPECT_EQ(s_end, SlowEnd::kOver);
    EXPECT_EQ(Calls(), "InEC");
}
