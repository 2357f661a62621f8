// Threads and tasks without memory, or without another thread. Workers allocate too, and their
// allocations are refused with everybody's: what they cannot do now they must do later.

#include <array>
#include <atomic>
#include <functional>
#include <string>
#include <utility>

#include "TnRobotKernel/concurrency.h"
#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/utilities.h"
#include "TnRobotKernel/values.h"
#include "concurrency/TnRobotTaskPool.h"
#include "failure/AllocationScenario.h"
#include "support/fakes/TestSurfaces.h"
#include "support/objects/Memory.h"
#include "support/objects/TaskPools.h"
#include "support/threads/Gate.h"
#include "support/threads/ThreadProbe.h"

namespace tntest {

namespace {

using Job = std::function<void(ITnRobotEvent*)>;

/// A job that counts its calls. It is too large to be kept without memory.
Job CountingJob(std::atomic<int>& nCalls) {
    const std::array<char, 100> ballast{};
    return [&nCalls, ballast](ITnRobotEvent*) { nCalls += 1 + ballast[0]; };
}

/// Executes once for each run, and allocates nothing.
class OnceRunner final : public ITnRobotTaskRunner {
public:
    void Init() override {
        m_bExecuted = false;
        m_nDoneAnswers = 0;
    }
    void Execute(ITnRobotEvent* /*pRunEvent*/) override {
        ++m_nExecutions;
        m_bExecuted = true;
    }
    void ClearResource() override {}
    bool IsStop() override {
        m_nDoneAnswers += m_bExecuted ? 1 : 0;
        return m_bExecuted;
    }
    void Copy(ITnRobotTaskRunner* /*pRunner*/) override {}
    ITnRobotTaskRunner* Clone() override { return nullptr; }

    int Executions() const { return m_nExecutions; }
    int DoneAnswers() const { return m_nDoneAnswers; }

private:
    std::atomic<bool> m_bExecuted{false};
    std::atomic<int> m_nExecutions{0};
    std::atomic<int> m_nDoneAnswers{0};
};

class ThreadScenario : public AllocationScenario {
public:
    ThreadScenario() {
        ITnRobotThread* pThread = nullptr;
        EXPECT_EQ(TnCreateRobotThread(&pThread), 1);
        m_thread = tn::Adopt(pThread);
        EXPECT_TRUE(m_thread->SetWorkJob(CountingJob(m_nCalls)));
    }

protected:
    std::atomic<int> m_nCalls{0};
    TnRobotPtr<ITnRobotThread> m_thread;
};

class ThreadRuns : public ThreadScenario {
public:
    bool Attempt() override { return m_thread->Run(); }

    // A thread that could not be started can be started later.
    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || m_nCalls == 0);
        EXPECT_TRUE(m_thread->Run());
        EXPECT_TRUE(Eventually([this] { return m_nCalls > 0; }));
        m_thread->Stop();
        EXPECT_TRUE(m_thread->Run());
    }
};

class ThreadTakesAnotherJob : public ThreadScenario {
public:
    bool Attempt() override { return m_thread->SetWorkJob(m_other); }

    // A job that could not be taken over leaves the one before.
    void Check(bool bDone) override {
        EXPECT_TRUE(m_thread->Run());
        std::atomic<int>& nExpected = bDone ? m_nOtherCalls : m_nCalls;
        EXPECT_TRUE(Eventually([&nExpected] { return nExpected > 0; }));
        m_thread->Stop();
        EXPECT_EQ(bDone ? m_nCalls : m_nOtherCalls, 0);
    }

private:
    std::atomic<int> m_nOtherCalls{0};
    const Job m_other = CountingJob(m_nOtherCalls);
};

class TaskIsCreated : public AllocationScenario {
public:
    bool Attempt() override {
        for (TnRobotPtr<ITnRobotTask>& task : m_tasks) {
            if (task == nullptr && !Create(task)) {
                return false;
            }
        }
        return true;
    }

    void Check(bool bDone) override {
        EXPECT_EQ(m_pool->GetTaskCount(), 0U) << "a task that was not made is not idle";
        EXPECT_TRUE(bDone || Attempt());
        EXPECT_TRUE(m_tasks[0]->Start());
        EXPECT_TRUE(Eventually([this] { return m_runner->Executions() == 1; }));
        for (TnRobotPtr<ITnRobotTask>& task : m_tasks) {
            task.reset();
        }
        // The notice of a run that has ended may keep its task for a moment longer.
        EXPECT_TRUE(Eventually([this] { return m_pool->GetTaskCount() == m_tasks.size(); }));
    }

private:
    bool Create(TnRobotPtr<ITnRobotTask>& task) {
        ITnRobotTask* pTask = nullptr;
        const bool bCreated = m_pool->CreateTask(m_runner.get(), &pTask);
        task.attach(pTask);
        return bCreated;
    }

    TnRobotPtr<OnceRunner> m_runner = tn::Adopt(new OnceRunner);
    TnRobotPtr<ITnRobotTaskPool> m_pool = MakeTaskPool();
    std::array<TnRobotPtr<ITnRobotTask>, 10> m_tasks;
};

class TaskIsCreatedOfAFunction : public AllocationScenario {
public:
    bool Attempt() override { return m_pool->CreateTask(m_job); }

    void Check(bool bDone) override {
        EXPECT_EQ(m_pool->GetTaskCount(), bDone ? 1U : 0U);
        EXPECT_TRUE(m_pool->CreateTask(m_job));
        EXPECT_EQ(m_pool->GetTaskCount(), 1U);
        EXPECT_EQ(m_nCalls, 0) << "the job is not run";
    }

private:
    std::atomic<int> m_nCalls{0};
    const Job m_job = CountingJob(m_nCalls);
    TnRobotPtr<ITnRobotTaskPool> m_pool = MakeTaskPool();
};

/// A task is started for the first time, which starts its thread, and ends by itself, of which the
/// thread tells the pool.
class TaskRunsToItsEnd : public AllocationScenario {
public:
    TaskRunsToItsEnd() {
        ITnRobotTask* pTask = nullptr;
        EXPECT_TRUE(m_pool->CreateTask(m_runner.get(), &pTask));
        m_task = tn::Adopt(pTask);
    }

    // The runner is asked anew after the pool has been told, or could not be: the second answer
    // comes after the first try.
    bool Attempt() override {
        m_bStarted = m_task->Start();
        return m_bStarted && Eventually([this] { return m_runner->DoneAnswers() >= 2 || !m_task->IsRunning(); });
    }

    // What was started runs once and is stopped by the pool; what could not be is not running.
    void Check(bool bDone) override {
        EXPECT_EQ(bDone, m_bStarted);
        EXPECT_TRUE(m_bStarted || !m_task->IsRunning());
        ExpectTheEnd(m_bStarted ? 1 : 0);
        EXPECT_TRUE(m_task->Start());
        ExpectTheEnd(m_bStarted ? 2 : 1);
        m_task.reset();
        EXPECT_TRUE(Eventually([this] { return m_pool->GetTaskCount() == 1; }));
    }

private:
    void ExpectTheEnd(int nExecutions) {
        EXPECT_TRUE(Eventually([this] { return !m_task->IsRunning(); }));
        EXPECT_TRUE(Eventually([&] { return m_runner->Executions() == nExecutions; }));
    }

    TnRobotPtr<OnceRunner> m_runner = tn::Adopt(new OnceRunner);
    TnRobotPtr<ITnRobotTaskPool> m_pool = MakeTaskPool();
    TnRobotPtr<ITnRobotTask> m_task;
    bool m_bStarted = false;
};

/// Notices wait while the pool's thread stops another task; one that finds no memory takes none of
/// them with it.
class NoticesWait : public AllocationScenario {
public:
    NoticesWait() {
        CTnRobotTaskPool::CreateInstance(m_pool.put());
        Notify(m_blocker.get());
        m_gate.AwaitArrival();
    }
    ~NoticesWait() override { m_gate.Open(); }

    bool Attempt() override {
        for (; m_nAccepted < kNotices; ++m_nAccepted) {
            Notify(m_stopped.get());
        }
        return true;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || m_nAccepted < kNotices);
        m_gate.Open();
        EXPECT_TRUE(Eventually([this] { return m_nStops == m_nAccepted; }));
        const int nBefore = m_nStops;
        Notify(m_stopped.get());
        EXPECT_TRUE(Eventually([&] { return m_nStops == nBefore + 1; })) << "the pool still listens";
    }

private:
    /// A task of the application's own, which a stop takes as long as its function says.
    class OwnTask final : public ITnRobotTask {
    public:
        explicit OwnTask(std::function<void()> onStop) : m_onStop(std::move(onStop)) {}
        bool Start() override { return true; }
        void Stop() override { m_onStop(); }
        bool IsRunning() override { return true; }

    private:
        std::function<void()> m_onStop;
    };

    void Notify(ITnRobotTask* pTask) { static_cast<CTnRobotTaskPool*>(m_pool.get())->OnNotifyStop(pTask); }

    static constexpr int kNotices = 200;
    Gate m_gate;
    std::atomic<int> m_nStops{0};
    int m_nAccepted = 0;
    TnRobotPtr<OwnTask> m_blocker = tn::Adopt(new OwnTask([this] { m_gate.Pass(); }));
    TnRobotPtr<OwnTask> m_stopped = tn::Adopt(new OwnTask([this] { ++m_nStops; }));
    TnRobotPtr<ITnRobotTaskPool> m_pool;
};

class EventsSignalsAndClocksWork : public AllocationScenario {
public:
    EventsSignalsAndClocksWork() {
        EXPECT_EQ(TnCreateRobotManualEvent(false, m_event.put()), 1);
        EXPECT_EQ(TnCreateRobotSignal(m_signal.put()), 1);
        EXPECT_EQ(TnCreateRobotAlarmClock(m_clock.put()), 1);
    }

    bool Attempt() override {
        const bool bReset = !m_event->WaitEvent(1);
        m_event->SetEvent();
        const bool bSet = m_event->WaitEvent(1000);
        m_event->ResetEvent();
        const bool bArmed = m_signal->Wait(1) == 3;
        m_signal->CanCel();
        const bool bCancelled = m_signal->Wait(1000) == 2;
        m_signal->ClearResource();
        bool bStopped = true;
        m_clock->StartRecord(1);
        m_clock->ReStartRecord();
        const bool bTimedOut = !m_clock->Wait() && m_clock->IsTimeOut(bStopped);
        m_clock->StopRecord();
        return bReset && bSet && bArmed && bCancelled && bTimedOut && !bStopped && m_clock->Wait();
    }

    void Check(bool bDone) override { EXPECT_TRUE(bDone); }

private:
    TnRobotPtr<ITnRobotEvent> m_event;
    TnRobotPtr<ITnRobotSignal> m_signal;
    TnRobotPtr<ITnRobotAlarmClock> m_clock;
};

/// A release has nowhere to report a failure to: everything pooled goes back without memory.
class EverythingIsGivenBack : public AllocationScenario {
public:
    EverythingIsGivenBack() {
        TnRobotUtils::Init();
        for (TnRobotPtr<ITnRobotDataValue>& value : m_values) {
            ITnRobotDataValue* pValue = nullptr;
            EXPECT_EQ(TnCreateRobotStringData(std::string(100, 'v').c_str(), &pValue), 0);
            value.attach(pValue);
        }
        for (std::size_t i = 0; i < kMany; ++i) {
            m_cut[i] = Query(*m_circle, 1000);
            m_blocks[i] = Query(*m_pool, 1 + static_cast<unsigned int>(i % 2) * 100000);
            m_surfaces[i] = m_source.Get(TN_IMAGE_GRAY8, 10, 10);
            ITnRobotTask* pTask = nullptr;
            EXPECT_TRUE(m_taskPool->CreateTask(nullptr, &pTask));
            m_tasks[i].attach(pTask);
        }
    }
    ~EverythingIsGivenBack() override { TnRobotUtils::Destroy(); }

    bool Attempt() override {
        for (std::size_t i = 0; i < kMany; ++i) {
            m_values[i].reset();
            m_cut[i].reset();
            m_blocks[i].reset();
            m_surfaces[i].reset();
            m_tasks[i].reset();
        }
        return true;
    }

    void Check(bool /*bDone*/) override {
        EXPECT_EQ(m_taskPool->GetTaskCount(), kMany);
        const HeldBlock block = Query(*m_pool, 1);
        EXPECT_NE(block, nullptr);
    }

private:
    static constexpr std::size_t kMany = 40;

    static HeldPool MakeCircle() {
        ITnRobotMemoryBlockPool* pPool = nullptr;
        TnCreateRobotCircleMemoryBlockPool(&pPool);
        return tn::Adopt(pPool);
    }

    HeldPool m_circle = MakeCircle();
    HeldPool m_pool = MakePool();
    SurfaceSource m_source;
    TnRobotPtr<ITnRobotTaskPool> m_taskPool = MakeTaskPool();
    std::array<TnRobotPtr<ITnRobotDataValue>, kMany> m_values;
    std::array<HeldBlock, kMany> m_cut;
    std::array<HeldBlock, kMany> m_blocks;
    std::array<TnRobotPtr<ITnRobotSurface>, kMany> m_surfaces;
    std::array<TnRobotPtr<ITnRobotTask>, kMany> m_tasks;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Concurrency, AllocationFailure,
                         testing::Values(MakeThreadedCase<ThreadRuns>("ThreadRuns"),
                                         MakeCase<ThreadTakesAnotherJob>("ThreadTakesAnotherJob"),
                                         MakeCase<TaskIsCreated>("TaskIsCreated"),
                                         MakeCase<TaskIsCreatedOfAFunction>("TaskIsCreatedOfAFunction"),
                                         MakeThreadedCase<TaskRunsToItsEnd>("TaskRunsToItsEnd"),
                                         MakeCase<NoticesWait>("NoticesWait"),
                                         MakeFreeCase<EventsSignalsAndClocksWork>("EventsSignalsAndClocksWork"),
                                         MakeFreeCase<EverythingIsGivenBack>("EverythingIsGivenBack")),
                         AllocationCaseName);

}  // namespace tntest
