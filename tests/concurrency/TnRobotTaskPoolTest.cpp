#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <string>
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

using Job = std::function<void(ITnRobotEvent*)>;

constexpr int kPoolThread = 1;

class TaskPool : public TaskPoolTest {};

}  // namespace

TEST_F(TaskPool, HasOneThreadOfItsOwnWhileItLives) {
    TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    EXPECT_EQ(NewThreads(), kPoolThread);
    pool->AddRef();
    EXPECT_EQ(pool->Release(), 1);
    EXPECT_EQ(NewThreads(), kPoolThread);
    EXPECT_EQ(pool.detach()->Release(), 0);
    EXPECT_TRUE(AwaitNewThreads(0));
}

TEST_F(TaskPool, RefusesMissingOutPointers) {
    EXPECT_EQ(TnCreateRobotTaskPool(nullptr), 0);
    EXPECT_EQ(NewThreads(), 0);
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    EXPECT_FALSE(pool->CreateTask(nullptr, nullptr));
}

TEST_F(TaskPool, CountsIdleTasksAndReusesThem) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    EXPECT_EQ(pool->GetTaskCount(), 0U);
    TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, nullptr);
    ITnRobotTask* const pFirst = task.get();
    EXPECT_EQ(TaskReferences(*task), 2);
    EXPECT_EQ(pool->GetTaskCount(), 0U);
    EXPECT_EQ(task.detach()->Release(), 1);
    EXPECT_EQ(pool->GetTaskCount(), 1U);
    task = MakeTask(*pool, nullptr);
    EXPECT_EQ(task.get(), pFirst);
    EXPECT_EQ(TaskReferences(*task), 2);
    EXPECT_EQ(pool->GetTaskCount(), 0U);
}

TEST_F(TaskPool, ReusesTheTaskThatHasBeenIdleLongest) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    std::vector<TnRobotPtr<ITnRobotTask>> tasks;
    std::vector<ITnRobotTask*> order;
    for (int n = 0; n < 4; ++n) {
        tasks.push_back(MakeTask(*pool, nullptr));
    }
    for (const std::size_t n : {2U, 0U, 3U, 1U}) {
        order.push_back(tasks[n].get());
        tasks[n].reset();
        EXPECT_EQ(pool->GetTaskCount(), order.size());
    }
    for (std::size_t n = 0; n < order.size(); ++n) {
        tasks[n] = MakeTask(*pool, nullptr);
        EXPECT_EQ(tasks[n].get(), order[n]);
        EXPECT_EQ(pool->GetTaskCount(), order.size() - n - 1);
    }
    // None is idle any more: the pool grows.
    const TnRobotPtr<ITnRobotTask> another = MakeTask(*pool, nullptr);
    EXPECT_EQ(std::count(order.begin(), order.end(), another.get()), 0);
}

TEST_F(TaskPool, CreatingATaskDoesNotStartIt) {
    const TnRobotPtr<RecordingRunner> runner = RunnerFor(1);
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    EXPECT_FALSE(task->IsRunning());
    EXPECT_EQ(NewThreads(), kPoolThread);
    EXPECT_EQ(runner->Calls(), "");
}

TEST_F(TaskPool, ATaskWithoutARunnerDoesNotStart) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, nullptr);
    EXPECT_FALSE(task->Start());
    EXPECT_FALSE(task->IsRunning());
    EXPECT_EQ(NewThreads(), kPoolThread);
}

TEST_F(TaskPool, StopsATaskWhoseRunnerIsDone) {
    const TnRobotPtr<RecordingRunner> runner = RunnerFor(2);
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    std::string expected;
    for (int n = 0; n < 5; ++n) {
        ASSERT_TRUE(task->Start());
        EXPECT_TRUE(AwaitStopped(*task));
        expected += "InEnEyC";
        EXPECT_TRUE(Eventually([&] { return runner->Calls() == expected; })) << runner->Calls();
    }
    EXPECT_FALSE(runner->HasChangedThreads());
    // The notice's reference goes too.
    EXPECT_TRUE(Eventually([&task] { return TaskReferences(*task) == 2; }));
    EXPECT_EQ(pool->GetTaskCount(), 0U);
    task.reset();
    EXPECT_EQ(pool->GetTaskCount(), 1U);
}

// Without an execution there is no news for the pool.
TEST_F(TaskPool, DoesNotStopATaskThatHadNothingToDo) {
    const TnRobotPtr<RecordingRunner> runner = RunnerFor(0);
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(AwaitNotice(*runner));
    EXPECT_TRUE(StaysTrue([&] { return task->IsRunning() && TaskReferences(*task) == 2; }, Milliseconds(30)));
    task->Stop();
    EXPECT_EQ(runner->Calls(), "IyC");
}

TEST_F(TaskPool, StopsTasksInTheOrderOfTheirNotices) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    BusyPoolThread busy(*pool);
    std::vector<TnRobotPtr<RecordingRunner>> runners;
    std::vector<TnRobotPtr<ITnRobotTask>> tasks;
    std::vector<int> order;  // the pool stops one task at a time
    for (int n = 0; n < 8; ++n) {
        runners.push_back(RunnerFor(1));
        runners.back()->m_onClear = [&order, n] { order.push_back(n); };
        tasks.push_back(MakeTask(*pool, runners.back().get()));
    }
    for (const std::size_t n : {3U, 1U, 7U, 0U, 2U, 6U, 5U, 4U}) {
        ASSERT_TRUE(tasks[n]->Start());
        EXPECT_TRUE(AwaitNotice(*runners[n]));
    }
    for (const TnRobotPtr<ITnRobotTask>& task : tasks) {
        EXPECT_TRUE(task->IsRunning());
    }
    busy.LetGo();
    for (const TnRobotPtr<ITnRobotTask>& task : tasks) {
        EXPECT_TRUE(Eventually([&task] { return TaskReferences(*task) == 2; }));
    }
    EXPECT_EQ(order, (std::vector<int>{3, 1, 7, 0, 2, 6, 5, 4}));
}

TEST_F(TaskPool, AReusedTaskKeepsItsThread) {
    const TnRobotPtr<RecordingRunner> first = RunnerFor(1);
    const TnRobotPtr<RecordingRunner> second = RunnerFor(1);
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, first.get());
    ASSERT_TRUE(task->Start());
    EXPECT_EQ(NewThreads(), kPoolThread + 1);
    EXPECT_TRUE(AwaitStopped(*task));
    task.reset();
    EXPECT_TRUE(Eventually([&pool] { return pool->GetTaskCount() == 1; }));
    EXPECT_EQ(NewThreads(), kPoolThread + 1);
    task = MakeTask(*pool, second.get());
    ASSERT_TRUE(task->Start());
    EXPECT_EQ(NewThreads(), kPoolThread + 1);
    EXPECT_TRUE(AwaitStopped(*task));
    EXPECT_EQ(first->ThreadNumber(), second->ThreadNumber());
    EXPECT_EQ(first->Calls(), "InEyC");
}

TEST_F(TaskPool, AnIdleTaskKeepsItsRunnerUntilItIsReused) {
    TnRobotPtr<RecordingRunner> first = RunnerFor(1);
    TnRobotPtr<RecordingRunner> second = RunnerFor(1);
    TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, first.get());
    EXPECT_EQ(first.detach()->Release(), 1);
    task.reset();
    EXPECT_EQ(RecordingRunner::Alive(), 2);
    task = MakeTask(*pool, second.get());
    EXPECT_EQ(RecordingRunner::Alive(), 1);
    EXPECT_EQ(second.detach()->Release(), 1);
    task.reset();
    task = MakeTask(*pool, nullptr);
    EXPECT_EQ(RecordingRunner::Alive(), 0);
}

// The idle task may have the only reference to it.
TEST_F(TaskPool, ReusingATaskWithTheRunnerItHasKeepsThatAlive) {
    RecordingRunner* const pRunner = RunnerFor(1).detach();
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, pRunner);
    pRunner->Release();
    task.reset();
    task = MakeTask(*pool, pRunner);
    EXPECT_EQ(RecordingRunner::Alive(), 1);
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(AwaitStopped(*task));
}

TEST_F(TaskPool, ReleasingARunningTaskStopsItFirst) {
    Gate gate;
    const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
    runner->m_isStop = [] { return false; };
    runner->m_onExecute = [&gate](ITnRobotEvent*) { gate.Pass(); };
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    ASSERT_TRUE(task->Start());
    gate.AwaitArrival();
    std::atomic<int> nLeft{-1};
    Caller releaser([&nLeft, pTask = task.detach()] { nLeft = pTask->Release(); });
    const OpenAtEnd atEnd(gate);
    EXPECT_TRUE(Eventually([&runner] { return !runner->RunEvent()->WaitEvent(0); }));
    EXPECT_TRUE(StaysTrue([&] { return !releaser.Returned() && pool->GetTaskCount() == 0; }, Milliseconds(30)));
    gate.Open();
    releaser.Join();
    EXPECT_EQ(nLeft, 1);
    EXPECT_EQ(pool->GetTaskCount(), 1U);
    EXPECT_EQ(runner->Calls(), "InEC");
}

// A notice still queued holds a reference: the pool's thread gives the task back then.
TEST_F(TaskPool, ATaskReleasedBeforeItsNoticeIsReadComesBackThroughThePoolThread) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    BusyPoolThread busy(*pool);
    const TnRobotPtr<RecordingRunner> runner = RunnerFor(1);
    TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(AwaitNotice(*runner));
    EXPECT_EQ(TaskReferences(*task), 3);
    EXPECT_EQ(task.detach()->Release(), 2);
    EXPECT_EQ(pool->GetTaskCount(), 0U);
    busy.LetGo();
    EXPECT_TRUE(Eventually([&pool] { return pool->GetTaskCount() == 1; }));
    EXPECT_EQ(runner->Calls(), "InEyC");
}

TEST_F(TaskPool, RefusesAnEmptyJob) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    EXPECT_FALSE(pool->CreateTask(Job()));
    EXPECT_EQ(pool->GetTaskCount(), 0U);
}

// Callers rely on it: the job is bound to an idle task, and that is all.
TEST_F(TaskPool, AJobAloneIsBoundButNeverRun) {
    auto token = std::make_shared<int>(0);
    std::atomic<bool> bCalled{false};
    TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    EXPECT_TRUE(pool->CreateTask([token, &bCalled](ITnRobotEvent*) { bCalled = true; }));
    EXPECT_EQ(pool->GetTaskCount(), 1U);
    EXPECT_EQ(NewThreads(), kPoolThread);
    EXPECT_TRUE(StaysTrue([&] { return !bCalled; }, Milliseconds(30)));
    // The idle task keeps the job until it gets another.
    EXPECT_EQ(token.use_count(), 2);
    TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, nullptr);
    EXPECT_EQ(token.use_count(), 1);
    task.reset();

    EXPECT_TRUE(pool->CreateTask([token, &bCalled](ITnRobotEvent*) { bCalled = true; }));
    EXPECT_EQ(pool->GetTaskCount(), 1U);
    EXPECT_EQ(token.use_count(), 2);
    pool.reset();
    EXPECT_EQ(token.use_count(), 1);
    EXPECT_FALSE(bCalled);
}

TEST_F(TaskPool, AJobAloneTakesTheFirstIdleTaskAndPutsItLast) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    TnRobotPtr<ITnRobotTask> first = MakeTask(*pool, nullptr);
    TnRobotPtr<ITnRobotTask> second = MakeTask(*pool, nullptr);
    ITnRobotTask* const pFirst = first.get();
    ITnRobotTask* const pSecond = second.get();
    first.reset();
    second.reset();
    EXPECT_TRUE(pool->CreateTask([](ITnRobotEvent*) {}));
    EXPECT_EQ(pool->GetTaskCount(), 2U);
    second = MakeTask(*pool, nullptr);
    EXPECT_EQ(second.get(), pSecond);
    first = MakeTask(*pool, nullptr);
    EXPECT_EQ(first.get(), pFirst);
}

TEST_F(TaskPool, TasksCanBeCreatedAndStartedFromInsideAJob) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<RecordingRunner> inner = RunnerFor(1);
    const TnRobotPtr<RecordingRunner> outer = RunnerFor(1);
    TnRobotPtr<ITnRobotTask> created;
    outer->m_onExecute = [&, count = outer->m_onExecute](ITnRobotEvent* pEvent) {
        created = MakeTask(*pool, inner.get());
        EXPECT_TRUE(created->Start());
        count(pEvent);
    };
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, outer.get());
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(AwaitStopped(*task));
    ASSERT_NE(created, nullptr);
    EXPECT_TRUE(AwaitStopped(*created));
    EXPECT_EQ(inner->Log().Count('E'), 1);
}

// What the pool hears as the tasks' parent.

namespace {

ITnRobotTaskParent& ParentOf(ITnRobotTaskPool& pool) {
    return dynamic_cast<ITnRobotTaskParent&>(pool);
}

// A task of another make.
class ForeignTask final : public ITnRobotTask {
public:
    explicit ForeignTask(std::atomic<bool>& bDestroyed) : m_bDestroyed(bDestroyed) {}
    ~ForeignTask() override { m_bDestroyed = true; }
    bool Start() override { return m_bRunning = true; }
    void Stop() override { m_bRunning = false; }
    bool IsRunning() override { return m_bRunning; }

private:
    std::atomic<bool>& m_bDestroyed;
    std::atomic<bool> m_bRunning{false};
};

}  // namespace

TEST_F(TaskPool, IgnoresWhatIsNoTaskOfItsOwn) {
    std::atomic<bool> bDestroyed{false};
    const TnRobotPtr<ITnRobotTask> foreign = tn::Adopt(new ForeignTask(bDestroyed));
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    ASSERT_TRUE(foreign->Start());
    ParentOf(*pool).RecoveryTask(nullptr);
    ParentOf(*pool).RecoveryTask(foreign.get());
    ParentOf(*pool).OnNotifyStop(nullptr);
    EXPECT_EQ(pool->GetTaskCount(), 0U);
    EXPECT_TRUE(foreign->IsRunning());
    EXPECT_EQ(TaskReferences(*foreign), 1);
}

TEST_F(TaskPool, StopsAnyTaskThatItIsToldIsDone) {
    std::atomic<bool> bDestroyed{false};
    TnRobotPtr<ITnRobotTask> foreign = tn::Adopt(new ForeignTask(bDestroyed));
    const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
    runner->m_isStop = [] { return false; };
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    ASSERT_TRUE(task->Start());
    ASSERT_TRUE(foreign->Start());
    ParentOf(*pool).OnNotifyStop(task.get());
    ParentOf(*pool).OnNotifyStop(foreign.get());
    EXPECT_TRUE(AwaitStopped(*task));
    EXPECT_TRUE(AwaitStopped(*foreign));
    EXPECT_TRUE(Eventually([&] { return TaskReferences(*task) == 2 && TaskReferences(*foreign) == 1; }));
    // The notice's reference may be the last one.
    ParentOf(*pool).OnNotifyStop(foreign.get());
    foreign.reset();
    EXPECT_TRUE(Eventually([&bDestroyed] { return bDestroyed.load(); }));
}

// A task of another make that holds whoever stops it.
namespace {

class HoldingTask final : public ITnRobotTask {
public:
    explicit HoldingTask(Gate& gate) : m_gate(gate) {}
    bool Start() override { return true; }
    void Stop() override { m_gate.Pass(); }
    bool IsRunning() override { return true; }

private:
    Gate& m_gate;
};

}  // namespace

// What a stranger's task does when it is stopped may need what the pool's tasks have.
TEST_F(TaskPool, EndsItsThreadBeforeItLetsGoOfTasks) {
    Gate gate;
    const OpenAtEnd openAtEnd(gate);
    auto bound = std::make_shared<int>(0);
    const std::weak_ptr<int> seen = bound;
    TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    ASSERT_TRUE(pool->CreateTask([bound](ITnRobotEvent* /*pRunEvent*/) {}));
    bound.reset();
    const TnRobotPtr<ITnRobotTask> holding = tn::Adopt(new HoldingTask(gate));
    ParentOf(*pool).OnNotifyStop(holding.get());
    gate.AwaitArrival();
    Caller ending([&pool] { pool.reset(); });
    EXPECT_TRUE(ending.AwaitBlocked());
    EXPECT_FALSE(seen.expired());
    gate.Open();
    ending.Join();
    EXPECT_TRUE(seen.expired());
}

TEST_F(TaskPool, ANoticeOfAnIdleTaskDoesNotMakeItIdleTwice) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<RecordingRunner> runner = RunnerFor(1);
    const TnRobotPtr<ITnRobotTask> sentinel = MakeTask(*pool, runner.get());
    TnRobotPtr<ITnRobotTask> idle = MakeTask(*pool, nullptr);
    ITnRobotTask* const pIdle = idle.get();
    idle.reset();
    EXPECT_EQ(pool->GetTaskCount(), 1U);
    ParentOf(*pool).OnNotifyStop(pIdle);
    ASSERT_TRUE(sentinel->Start());
    EXPECT_TRUE(AwaitStopped(*sentinel));
    EXPECT_EQ(pool->GetTaskCount(), 1U);
}

// The rest is about what threads could do to each other.

// The caller's last release stops the task, and at that very moment the runner says that it is
// done. The notice must not give the task back a second time.
TEST_F(TaskPool, ANoticeDuringTheLastReleaseDoesNotMakeTheTaskIdleTwice) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<RecordingRunner> sentinelRunner = RunnerFor(1);
    TnRobotPtr<ITnRobotTask> sentinel = MakeTask(*pool, sentinelRunner.get());
    for (int nRound = 1; nRound <= 5; ++nRound) {
        Gate gate;
        std::atomic<int> nAsked{0};
        const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
        runner->m_isStop = [&] {
            if (++nAsked == 1) {
                return false;
            }
            gate.Pass();
            return true;
        };
        TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
        ASSERT_TRUE(task->Start());
        gate.AwaitArrival();
        Caller releaser([pTask = task.detach()] { pTask->Release(); });
        ASSERT_TRUE(Eventually([&runner] { return !runner->RunEvent()->WaitEvent(0); }));
        gate.Open();
        releaser.Join();
        // Notices are read in order: when the sentinel's has been, so has the other.
        ASSERT_TRUE(sentinel->Start());
        EXPECT_TRUE(AwaitStopped(*sentinel));
        EXPECT_TRUE(Eventually([&sentinel] { return TaskReferences(*sentinel) == 2; }));
        ASSERT_EQ(pool->GetTaskCount(), 1U) << "round " << nRound;
    }
    sentinel.reset();
    EXPECT_EQ(pool->GetTaskCount(), 2U);
    const TnRobotPtr<ITnRobotTask> tasks[] = {MakeTask(*pool, nullptr), MakeTask(*pool, nullptr),
                                              MakeTask(*pool, nullptr)};
    const std::set<ITnRobotTask*> distinct = {tasks[0].get(), tasks[1].get(), tasks[2].get()};
    EXPECT_EQ(distinct.size(), 3U);
}

// A notice that the pool has not read yet is about the run that gave it, not about the next.
TEST_F(TaskPool, ANoticeOfAnEarlierRunDoesNotStopALaterOne) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    BusyPoolThread busy(*pool);
    const TnRobotPtr<RecordingRunner> runner = RunnerFor(1);
    const TnRobotPtr<RecordingRunner> sentinelRunner = RunnerFor(1);
    const TnRobotPtr<ITnRobotTask> sentinel = MakeTask(*pool, sentinelRunner.get());
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    Gate gate;
    const OpenAtEnd atEnd(gate);
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(AwaitNotice(*runner));
    task->Stop();

    runner->m_onExecute = [&, count = runner->m_onExecute](ITnRobotEvent* pEvent) {
        gate.Pass();
        count(pEvent);
    };
    ASSERT_TRUE(task->Start());
    gate.AwaitArrival();
    ASSERT_TRUE(sentinel->Start());
    EXPECT_TRUE(AwaitNotice(*sentinelRunner));
    busy.LetGo();
    EXPECT_TRUE(Eventually([&] { return !sentinel->IsRunning() || !task->IsRunning(); }));
    EXPECT_TRUE(task->IsRunning());
    gate.Open();
    EXPECT_TRUE(AwaitStopped(*task));
    EXPECT_TRUE(Eventually([&] { return runner->Calls() == "InEyCInEyC"; })) << runner->Calls();
    EXPECT_TRUE(Eventually([&] { return TaskReferences(*task) == 2; }));
}

// A starter that looks rarely, because the machine is busy, must not miss a short run and then
// wait for one that never comes. Here it is held while the whole run passes.
TEST_F(TaskPool, StartReturnsAlsoWhenTheRunIsOverBeforeItLooks) {
    SignalHold hold;
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const TnRobotPtr<RecordingRunner> runner = RunnerFor(1);
    const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
    std::atomic<pthread_t> starterThread{pthread_self()};
    runner->m_onInit = [&, reset = runner->m_onInit] {
        reset();
        hold.Hold(starterThread);
    };
    std::atomic<bool> bStarted{false};
    Caller starter([&] {
        starterThread = pthread_self();
        bStarted = task->Start();
    });
    EXPECT_TRUE(Eventually([&runner] { return runner->Log().DoneAnswers() > 0; }));
    // Whether the stop waits for the starter or overtakes it is the task's own business.
    Eventually([&] { return runner->Log().Count('C') == 1 && TaskReferences(*task) == 2; }, Milliseconds(200));
    hold.LetGo();
    starter.Join();
    EXPECT_TRUE(bStarted);
    EXPECT_TRUE(AwaitStopped(*task));
    EXPECT_TRUE(Eventually([&] { return runner->Calls() == "InEyC"; })) << runner->Calls();
}

// Notices come while the pool's thread takes the ones before; none may be overlooked.
TEST_F(TaskPool, ReadsEveryNotice) {
    constexpr std::size_t kTasks = 16;
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    std::vector<TnRobotPtr<RecordingRunner>> runners;
    std::vector<TnRobotPtr<ITnRobotTask>> tasks;
    for (std::size_t n = 0; n < kTasks; ++n) {
        runners.push_back(RunnerFor(1));
        tasks.push_back(MakeTask(*pool, runners.back().get()));
    }
    for (int nRound = 1; nRound <= StormLength(20); ++nRound) {
        {
            std::vector<Caller> starters;
            for (std::size_t nStarter = 0; nStarter < 4; ++nStarter) {
                starters.emplace_back([&tasks, nStarter] {
                    for (std::size_t n = nStarter; n < kTasks; n += 4) {
                        EXPECT_TRUE(tasks[n]->Start());
                    }
                });
            }
        }
        for (std::size_t n = 0; n < kTasks; ++n) {
            ASSERT_TRUE(AwaitStopped(*tasks[n])) << "task " << n << " in round " << nRound;
            ASSERT_EQ(runners[n]->Log().Count('E'), nRound);
        }
    }
    for (const TnRobotPtr<ITnRobotTask>& task : tasks) {
        EXPECT_TRUE(Eventually([&task] { return TaskReferences(*task) == 2; }));
    }
}

TEST_F(TaskPool, TheCountMayBeReadWhileTasksComeAndGo) {
    constexpr unsigned int kThreads = 3;
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    std::atomic<bool> bEnd{false};
    std::atomic<unsigned int> nMost{0};
    Caller reader([&] {
        while (!bEnd) {
            nMost = std::max<unsigned int>(nMost, pool->GetTaskCount());
        }
    });
    {
        std::vector<Caller> threads;
        for (unsigned int nThread = 0; nThread < kThreads; ++nThread) {
            threads.emplace_back([&pool] {
                for (int n = 0; n < StormLength(2000); ++n) {
                    MakeTask(*pool, nullptr);
                }
            });
        }
    }
    bEnd = true;
    reader.Join();
    EXPECT_LE(nMost, kThreads);
    EXPECT_GE(pool->GetTaskCount(), 1U);
    EXPECT_LE(pool->GetTaskCount(), kThreads);
}

// The end of the pool.

TEST_F(TaskPool, ItsEndTakesIdleTasksAndTheirThreadsAlong) {
    TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    {
        const TnRobotPtr<RecordingRunner> runner = RunnerFor(1);
        const TnRobotPtr<ITnRobotTask> started = MakeTask(*pool, runner.get());
        const TnRobotPtr<ITnRobotTask> fresh = MakeTask(*pool, runner.get());
        ASSERT_TRUE(started->Start());
    }
    pool.reset();
    EXPECT_EQ(RecordingRunner::Alive(), 0);
    EXPECT_TRUE(AwaitNewThreads(0));
}

TEST_F(TaskPool, ATaskHeldByACallerSurvivesItAndStaysUsable) {
    enum class State { kNeverStarted, kRunning, kStopped };
    for (const State eState : {State::kNeverStarted, State::kRunning, State::kStopped}) {
        Gate gate;
        const TnRobotPtr<RecordingRunner> runner = RunnerFor(1);
        TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
        TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
        const OpenAtEnd atEnd(gate);
        std::string expected;
        runner->m_onExecute = [&, count = runner->m_onExecute](ITnRobotEvent* pEvent) {
            if (eState == State::kRunning) {
                gate.Pass();
            }
            count(pEvent);
        };
        if (eState != State::kNeverStarted) {
            ASSERT_TRUE(task->Start());
            expected += "InEyC";
        }
        if (eState == State::kRunning) {
            gate.AwaitArrival();
        }
        if (eState == State::kStopped) {
            task->Stop();
            EXPECT_TRUE(Eventually([&] { return runner->Log().Count('C') == 1; }));
            expected = runner->Calls();
        }
        // It does not wait for tasks that others hold.
        EXPECT_EQ(pool.detach()->Release(), 0);
        EXPECT_EQ(TaskReferences(*task), 1);
        gate.Open();
        if (eState == State::kRunning) {
            // Nobody stops it when it is done, except who holds it.
            EXPECT_TRUE(AwaitNotice(*runner));
            EXPECT_TRUE(StaysTrue([&task] { return task->IsRunning(); }, Milliseconds(20)));
            task->Stop();
        }
        ASSERT_TRUE(task->Start());
        EXPECT_TRUE(Eventually([&] { return runner->Calls() == expected + "InEy"; })) << runner->Calls();
        task->Stop();
        EXPECT_EQ(runner->Calls(), expected + "InEyC");
        // Its last release destroys it and ends its thread; while it runs, too.
        ASSERT_TRUE(task->Start());
        EXPECT_EQ(task.detach()->Release(), 0);
        EXPECT_EQ(runner->Log().Count('I'), runner->Log().Count('C'));
        EXPECT_TRUE(AwaitNewThreads(0));
    }
}

// The runner says that it is done after the pool has gone.
TEST_F(TaskPool, ATaskDoneAfterItsEndGivesNoNotice) {
    for (int nRound = 0; nRound < 10; ++nRound) {
        Gate gate;
        std::atomic<int> nAsked{0};
        const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
        runner->m_isStop = [&] {
            if (++nAsked != 2) {
                return nAsked > 2;
            }
            gate.Pass();
            return true;
        };
        TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
        const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
        const OpenAtEnd atEnd(gate);
        ASSERT_TRUE(task->Start());
        gate.AwaitArrival();
        EXPECT_EQ(pool.detach()->Release(), 0);
        gate.Open();
        EXPECT_TRUE(AwaitNotice(*runner));
        EXPECT_EQ(TaskReferences(*task), 1);
        task->Stop();
    }
}

// A notice that nobody reads any more must not keep its task, and with it a thread, for ever.
TEST_F(TaskPool, NoticesStillQueuedAtItsEndKeepNothingAlive) {
    constexpr std::size_t kTasks = 8;
    TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    {
        BusyPoolThread busy(*pool);
        std::vector<TnRobotPtr<RecordingRunner>> runners;
        for (std::size_t n = 0; n < kTasks; ++n) {
            runners.push_back(RunnerFor(1));
            TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runners.back().get());
            ASSERT_TRUE(task->Start());
            ASSERT_TRUE(AwaitNotice(*runners.back()));
            EXPECT_EQ(task.detach()->Release(), 2);
        }
        EXPECT_EQ(TaskReferences(busy.Task()), 3);
        Caller ender([pPool = pool.detach()] { pPool->Release(); });
        // The pool's thread still waits; the end has come as far as giving tasks away.
        Eventually([&busy] { return TaskReferences(busy.Task()) < 3; }, Milliseconds(500));
        busy.LetGo();
        ender.Join();
    }
    EXPECT_EQ(RecordingRunner::Alive(), 0);
    EXPECT_TRUE(AwaitNewThreads(0));
}

// A worker that gives notice, a caller that lets go and the end of the pool, all at once.
TEST_F(TaskPool, ItsEndMayMeetNoticesAndReleases) {
    for (int nRound = 0; nRound < StormLength(100); ++nRound) {
        TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
        std::vector<TnRobotPtr<RecordingRunner>> runners;
        std::vector<ITnRobotTask*> tasks;
        for (int n = 0; n < 4; ++n) {
            runners.push_back(RunnerFor(1));
            tasks.push_back(MakeTask(*pool, runners.back().get()).detach());
        }
        std::vector<Caller> callers;
        for (ITnRobotTask* const pTask : tasks) {
            callers.emplace_back([pTask] {
                EXPECT_TRUE(pTask->Start());
                pTask->Release();
            });
        }
        callers.emplace_back([&pool] { pool.reset(); });
        for (Caller& caller : callers) {
            caller.Join();
        }
        for (const TnRobotPtr<RecordingRunner>& runner : runners) {
            EXPECT_EQ(runner->Log().Count('E'), 1);
            EXPECT_EQ(runner->Log().Count('C'), 1);
            runner->AddRef();
            EXPECT_EQ(runner->Release(), 1);
        }
    }
}

TEST_F(TaskPool, TwoHundredTasksMayWorkAtOnce) {
    constexpr int kTasks = 200;
    Watchdog::Extend(280);
    Gate gate;
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    std::vector<TnRobotPtr<RecordingRunner>> runners;
    std::vector<TnRobotPtr<ITnRobotTask>> tasks;
    const OpenAtEnd atEnd(gate);
    for (int n = 0; n < kTasks; ++n) {
        runners.push_back(RunnerFor(1));
        runners.back()->m_onExecute = [&gate, count = runners.back()->m_onExecute](ITnRobotEvent* pEvent) {
            gate.Pass();
            count(pEvent);
        };
        tasks.push_back(MakeTask(*pool, runners.back().get()));
        ASSERT_TRUE(tasks.back()->Start());
    }
    gate.AwaitArrival(kTasks);
    EXPECT_EQ(NewThreads(), kPoolThread + kTasks);
    gate.Open();
    for (const TnRobotPtr<ITnRobotTask>& task : tasks) {
        EXPECT_TRUE(AwaitStopped(*task));
    }
    tasks.clear();
    EXPECT_TRUE(Eventually([&pool] { return pool->GetTaskCount() == kTasks; }));
    for (const TnRobotPtr<RecordingRunner>& runner : runners) {
        EXPECT_EQ(runner->Log().Count('E'), 1);
    }
}
