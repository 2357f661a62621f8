// The task pool under load. TNROBOT_FULL_SOAK=1 in the environment chooses the full length.

#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "TnRobotKernel/ptr.h"
#include "support/objects/TaskPools.h"
#include "support/threads/StartGate.h"
#include "support/threads/Storm.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

// A sanitizer's own count of the heap; null without one. Not every compiler comes with the header that
// declares it.
extern "C" __attribute__((weak)) std::size_t __sanitizer_get_current_allocated_bytes();

namespace {

constexpr int kThreads = 4;

bool IsFullSoak() {
    const char* lpszValue = std::getenv("TNROBOT_FULL_SOAK");
    return lpszValue != nullptr && std::strcmp(lpszValue, "1") == 0;
}

long long HeapInUse() {
    if (__sanitizer_get_current_allocated_bytes != nullptr) {
        return static_cast<long long>(__sanitizer_get_current_allocated_bytes());
    }
    const struct mallinfo2 info = mallinfo2();
    return static_cast<long long>(info.uordblks + info.hblkhd);
}

// Works once per run, as the standard runner does, and counts it.
class OnceRunner final : public ITnRobotTaskRunner {
public:
    explicit OnceRunner(bool bUntilStopped = false) : m_bUntilStopped(bUntilStopped) {}

    void Init() override { m_bExecuted = false; }
    void Execute(ITnRobotEvent* pRunEvent) override {
        m_bExecuted = true;
        Count(m_nExecuted);
        while (m_bUntilStopped && pRunEvent->WaitEvent(0)) {
            std::this_thread::yield();
        }
    }
    void ClearResource() override { Count(m_nCleared); }
    bool IsStop() override { return m_bExecuted; }
    void Copy(ITnRobotTaskRunner* /*pRunner*/) override {}
    ITnRobotTaskRunner* Clone() override { return nullptr; }

    int Executed() const { return Read(m_nExecuted); }
    int Cleared() const { return Read(m_nCleared); }
    void AwaitExecuted(int nTimes) { Await(m_nExecuted, nTimes); }
    void AwaitCleared(int nTimes) { Await(m_nCleared, nTimes); }

private:
    void Count(int& nCount) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++nCount;
        m_changed.notify_all();
    }
    int Read(const int& nCount) const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return nCount;
    }
    // Blocks, so that hundreds of these waits leave the few cores to the tasks.
    void Await(const int& nCount, int nTimes) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] { return nCount >= nTimes; });
    }

    const bool m_bUntilStopped;
    std::atomic<bool> m_bExecuted{false};
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_nExecuted = 0;  // guarded by m_mutex
    int m_nCleared = 0;   // guarded by m_mutex
};

TnRobotPtr<OnceRunner> MakeRunner(bool bUntilStopped = false) {
    return tn::Adopt(new OnceRunner(bUntilStopped));
}

// The ways in which a run comes to its end.
enum class Finish { kPoolStops, kCallerStops, kReleasedWhenDone, kReleasedAtOnce };

// One task from its creation to its release.
void RunOnce(ITnRobotTaskPool& pool, Finish eFinish) {
    const TnRobotPtr<OnceRunner> runner = MakeRunner();
    TnRobotPtr<ITnRobotTask> task = MakeTask(pool, runner.get());
    ASSERT_TRUE(task->Start());
    switch (eFinish) {
        case Finish::kPoolStops:
            runner->AwaitCleared(1);
            break;
        case Finish::kCallerStops:
            task->Stop();
            break;
        case Finish::kReleasedWhenDone:
            runner->AwaitExecuted(1);
            break;
        case Finish::kReleasedAtOnce:
            break;
    }
    task.reset();
    ASSERT_EQ(runner->Executed(), 1);
}

class TaskPoolLoad : public ThreadTest {};

}  // namespace

TEST_F(TaskPoolLoad, RunsEveryJobOnceAndKeepsItsMemory) {
    const int nCycles = IsFullSoak() ? 100000 : StormLength(2000);
    const int nWarmUp = nCycles / 10;
    Watchdog::Extend(IsFullSoak() ? 3600 : 280);
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    const auto tasks = [this] { return NewThreads() - 1 - kThreads; };
    // Every task has been started, so each has its thread.
    const auto allIdle = [&] { return static_cast<int>(pool->GetTaskCount()) == tasks(); };

    StartGate warm(kThreads + 1);
    StartGate measured(kThreads + 1);
    StartGate finished(kThreads + 1);
    StartGate done(kThreads + 1);
    std::vector<Caller> callers;
    for (int nThread = 0; nThread < kThreads; ++nThread) {
        callers.emplace_back([&, nThread] {
            const auto cycles = [&pool, nThread](int nCount) {
                for (int n = 0; n < nCount / kThreads; ++n) {
                    RunOnce(*pool, static_cast<Finish>((n + nThread) % 4));
                }
            };
            cycles(nWarmUp);
            warm.ArriveAndWait();
            measured.ArriveAndWait();
            cycles(nCycles);
            finished.ArriveAndWait();
            done.ArriveAndWait();
        });
    }
    warm.ArriveAndWait();
    EXPECT_TRUE(Eventually(allIdle));
    const int nTasksBefore = tasks();
    const long long nHeapBefore = HeapInUse();
    measured.ArriveAndWait();
    finished.ArriveAndWait();
    EXPECT_TRUE(Eventually(allIdle)) << pool->GetTaskCount() << " of " << tasks() << " tasks are idle";
    const long long nHeapGrowth = HeapInUse() - nHeapBefore;
    const int nNewTasks = tasks() - nTasksBefore;
    done.ArriveAndWait();
    for (Caller& caller : callers) {
        caller.Join();
    }
    // The pool grows by as many tasks as are in use at once, notices included. What a cycle lost,
    // were it only a few bytes, would show in the full length at the latest.
    EXPECT_LT(nTasksBefore + nNewTasks, 200);
    EXPECT_LT(nHeapGrowth, 64 * 1024 + nNewTasks * 16 * 1024);
    RecordProperty("cycles", nCycles);
    RecordProperty("tasks", nTasksBefore + nNewTasks);
    RecordProperty("heap_growth", static_cast<int>(nHeapGrowth));
}

// Every task is somewhere else when its pool goes.
TEST_F(TaskPoolLoad, AThousandPoolsComeAndGoWithTasksInEveryState) {
    const int nPools = StormLength(1000);
    Watchdog::Extend(280);
    std::atomic<int> nFailures{0};
    {
        std::vector<Caller> callers;
        for (int nThread = 0; nThread < kThreads; ++nThread) {
            callers.emplace_back([&nFailures, nPools] {
                for (int n = 0; n < nPools / kThreads; ++n) {
                    const TnRobotPtr<OnceRunner> runners[] = {MakeRunner(), MakeRunner(true), MakeRunner(),
                                                              MakeRunner(), MakeRunner()};
                    TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
                    TnRobotPtr<ITnRobotTask> neverStarted = MakeTask(*pool, runners[0].get());
                    TnRobotPtr<ITnRobotTask> running = MakeTask(*pool, runners[1].get());
                    TnRobotPtr<ITnRobotTask> noticed = MakeTask(*pool, runners[2].get());
                    TnRobotPtr<ITnRobotTask> held = MakeTask(*pool, runners[3].get());
                    TnRobotPtr<ITnRobotTask> heldRunning = MakeTask(*pool, runners[4].get());
                    nFailures += running->Start() ? 0 : 1;
                    nFailures += held->Start() ? 0 : 1;
                    nFailures += heldRunning->Start() ? 0 : 1;
                    held->Stop();
                    // Most of the time its notice is under way when the pool goes.
                    nFailures += noticed->Start() ? 0 : 1;
                    neverStarted.reset();
                    noticed.reset();
                    nFailures += n % 2 == 0 && running.detach()->Release() != 1 ? 1 : 0;
                    pool.reset();
                    nFailures += held->Start() ? 0 : 1;
                    heldRunning.reset();
                    running.reset();
                    held.reset();
                    const int nExpected[] = {0, 1, 1, 2, 1};
                    for (int nRunner = 0; nRunner < 5; ++nRunner) {
                        nFailures += runners[nRunner]->Executed() != nExpected[nRunner] ? 1 : 0;
                        nFailures += runners[nRunner]->Cleared() != nExpected[nRunner] ? 1 : 0;
                    }
                }
            });
        }
    }
    EXPECT_EQ(nFailures, 0);
}

// Many callers share one pool, and each of them sees only its own tasks' work.
TEST_F(TaskPoolLoad, ServesManyCallersAtOnce) {
    const TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    StartGate gate(16);
    std::vector<Caller> callers;
    for (int nCaller = 0; nCaller < 16; ++nCaller) {
        callers.emplace_back([&] {
            const TnRobotPtr<OnceRunner> runner = MakeRunner();
            const TnRobotPtr<ITnRobotTask> task = MakeTask(*pool, runner.get());
            gate.ArriveAndWait();
            for (int n = 1; n <= StormLength(20); ++n) {
                ASSERT_TRUE(task->Start());
                runner->AwaitCleared(n);
                ASSERT_EQ(runner->Executed(), n);
            }
        });
    }
    for (Caller& caller : callers) {
        caller.Join();
    }
    EXPECT_TRUE(Eventually([&pool] { return pool->GetTaskCount() == 16U; }));
}
