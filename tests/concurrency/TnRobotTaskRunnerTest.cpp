#include "concurrency/TnRobotTaskRunner.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>

#include "TnRobotKernel/ptr.h"
#include "support/objects/TaskPools.h"
#include "support/threads/Gate.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

namespace {

using Job = std::function<void(ITnRobotEvent*)>;

TnRobotPtr<ITnRobotTaskRunner> MakeRunner(const Job& job) {
    ITnRobotTaskRunner* pRunner = nullptr;
    EXPECT_EQ(CTnRobotTaskRunner::CreateInstance(job, &pRunner), 1);
    return tn::Adopt(pRunner);
}

class TaskRunner : public ThreadTest {
protected:
    static TnRobotPtr<ITnRobotTask> MakeTask(ITnRobotTaskPool& pool, const Job& job) {
        const TnRobotPtr<ITnRobotTaskRunner> runner = MakeRunner(job);
        ITnRobotTask* pTask = nullptr;
        EXPECT_TRUE(pool.CreateTask(runner.get(), &pTask));
        return tn::Adopt(pTask);
    }
};

}  // namespace

TEST_F(TaskRunner, NeedsAJob) {
    auto* pRunner = reinterpret_cast<ITnRobotTaskRunner*>(this);
    EXPECT_EQ(CTnRobotTaskRunner::CreateInstance(Job(), &pRunner), 0);
    EXPECT_EQ(pRunner, nullptr);
}

TEST_F(TaskRunner, CopiesItsJobForItsWholeLife) {
    auto token = std::make_shared<int>(0);
    TnRobotPtr<ITnRobotTaskRunner> runner = MakeRunner([token](ITnRobotEvent*) {});
    EXPECT_EQ(token.use_count(), 2);
    runner->AddRef();
    EXPECT_EQ(runner->Release(), 1);
    EXPECT_EQ(runner.detach()->Release(), 0);
    EXPECT_EQ(token.use_count(), 1);
}

TEST_F(TaskRunner, IsDoneFromTheFirstExecuteUntilTheNextInit) {
    ITnRobotEvent* pSeen = nullptr;
    bool bDoneInside = false;
    ITnRobotTaskRunner* pRunner = nullptr;
    const TnRobotPtr<ITnRobotTaskRunner> runner = MakeRunner([&](ITnRobotEvent* pEvent) {
        pSeen = pEvent;
        bDoneInside = pRunner->IsStop();
    });
    pRunner = runner.get();
    ITnRobotEvent* pEvent = nullptr;
    ASSERT_EQ(TnCreateRobotManualEvent(true, &pEvent), 1);
    const TnRobotPtr<ITnRobotEvent> event = tn::Adopt(pEvent);
    for (int n = 0; n < 2; ++n) {
        runner->Init();
        EXPECT_FALSE(runner->IsStop());
        runner->Execute(pEvent);
        EXPECT_EQ(pSeen, pEvent);
        EXPECT_TRUE(bDoneInside);
        EXPECT_TRUE(runner->IsStop());
        runner->ClearResource();
        EXPECT_TRUE(runner->IsStop());
    }
}

TEST_F(TaskRunner, CopyingTakesNothingOver) {
    int nFirst = 0;
    int nSecond = 0;
    const TnRobotPtr<ITnRobotTaskRunner> first = MakeRunner([&](ITnRobotEvent*) { ++nFirst; });
    const TnRobotPtr<ITnRobotTaskRunner> second = MakeRunner([&](ITnRobotEvent*) { ++nSecond; });
    second->Execute(nullptr);
    first->Copy(second.get());
    first->Copy(nullptr);
    EXPECT_FALSE(first->IsStop());
    first->Execute(nullptr);
    EXPECT_EQ(nFirst, 1);
    EXPECT_EQ(nSecond, 1);
}

// Callers rely on a clone being empty.
TEST_F(TaskRunner, ACloneHasNoJob) {
    int nCalls = 0;
    const TnRobotPtr<ITnRobotTaskRunner> runner = MakeRunner([&](ITnRobotEvent*) { ++nCalls; });
    runner->Execute(nullptr);
    TnRobotPtr<ITnRobotTaskRunner> clone = tn::Adopt(runner->Clone());
    ASSERT_NE(clone, nullptr);
    EXPECT_NE(clone, runner);
    EXPECT_FALSE(clone->IsStop());
    EXPECT_THROW(clone->Execute(nullptr), std::bad_function_call);
    EXPECT_EQ(nCalls, 1);
    EXPECT_EQ(clone.detach()->Release(), 0);
}

TEST_F(TaskRunner, ATaskCallsTheJobOncePerStart) {
    std::atomic<int> nCalls{0};
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, [&](ITnRobotEvent*) { ++nCalls; });
    for (int n = 1; n <= 10; ++n) {
        ASSERT_TRUE(task->Start());
        EXPECT_TRUE(Eventually([&task] { return !task->IsRunning(); }));
        EXPECT_EQ(nCalls, n);
    }
    EXPECT_TRUE(StaysTrue([&] { return nCalls == 10 && !task->IsRunning(); }, Milliseconds(30)));
}

// A job is run also when its stop comes at once: what was started has begun.
TEST_F(TaskRunner, AStopRightAfterTheStartStillLetsTheJobRunOnce) {
    std::atomic<int> nCalls{0};
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, [&](ITnRobotEvent*) { ++nCalls; });
    for (int n = 1; n <= 200; ++n) {
        ASSERT_TRUE(task->Start());
        task->Stop();
        ASSERT_EQ(nCalls, n);
    }
}

TEST_F(TaskRunner, TheJobSeesItsTaskBeingStopped) {
    std::atomic<bool> bRunning{false};
    std::atomic<bool> bSawStop{false};
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, [&](ITnRobotEvent* pRunEvent) {
        bRunning = pRunEvent->WaitEvent(0);
        bSawStop = Eventually([pRunEvent] { return !pRunEvent->WaitEvent(0); });
    });
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(Eventually([&] { return bRunning.load(); }));
    EXPECT_TRUE(task->IsRunning());
    task->Stop();
    EXPECT_TRUE(bSawStop);
}

TEST_F(TaskRunner, StartingARunningJobDoesNotRunItTwice) {
    std::atomic<int> nCalls{0};
    Gate gate;
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, [&](ITnRobotEvent*) {
        ++nCalls;
        gate.Pass();
    });
    const OpenAtEnd atEnd(gate);
    ASSERT_TRUE(task->Start());
    gate.AwaitArrival();
    EXPECT_TRUE(task->Start());
    EXPECT_TRUE(task->Start());
    gate.Open();
    EXPECT_TRUE(Eventually([&task] { return !task->IsRunning(); }));
    EXPECT_EQ(nCalls, 1);
}

TEST_F(TaskRunner, OneRunnerMayServeManyTasks) {
    std::atomic<int> nCalls{0};
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<ITnRobotTaskRunner> runner = MakeRunner([&](ITnRobotEvent*) { ++nCalls; });
    std::vector<TnRobotPtr<ITnRobotTask>> tasks;
    for (int n = 0; n < 4; ++n) {
        ITnRobotTask* pTask = nullptr;
        ASSERT_TRUE(pool->CreateTask(runner.get(), &pTask));
        tasks.push_back(tn::Adopt(pTask));
    }
    for (int n = 0; n < 4; ++n) {
        ASSERT_TRUE(tasks[static_cast<std::size_t>(n)]->Start());
        EXPECT_TRUE(Eventually([&] { return !tasks[static_cast<std::size_t>(n)]->IsRunning(); }));
        EXPECT_EQ(nCalls, n + 1);
    }
}
