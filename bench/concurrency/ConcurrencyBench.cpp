// Events beside a mutex with a condition variable, tasks beside threads, and what idle tasks cost.

#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"

namespace {

constexpr unsigned int kPollMicroseconds = 1000;

// The parties of the event cases: a flag that stays set until somebody resets it.

struct OurEvent {
    void Set() { m_event->SetEvent(); }
    void Reset() { m_event->ResetEvent(); }
    bool IsSet() { return m_event->WaitEvent(0); }
    void Await() {
        // The wait is a single one; whoever needs more calls it in a loop.
        while (!m_event->WaitEvent(UINT_MAX)) {
        }
    }

    bench::Counted<ITnRobotEvent> m_event = bench::Make<ITnRobotEvent>(TnCreateRobotManualEvent, false);
};

struct ConditionEvent {
    void Set() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bSet = true;
        m_changed.notify_all();
    }
    void Reset() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bSet = false;
    }
    bool IsSet() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_bSet;
    }
    // With a time-out too, as an event's wait has one.
    void Await() {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_bSet) {
            m_changed.wait_until(lock, std::chrono::steady_clock::now() + std::chrono::milliseconds(UINT_MAX));
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bSet = false;  // guarded by m_mutex
};

// From setting an event to its waiter running, there and back again.
template <typename Event>
void SetEventToWaiter(benchmark::State& state) {
    Event there;
    Event back;
    std::atomic<bool> bEnd{false};
    std::thread other([&] {
        while (true) {
            there.Await();
            if (bEnd) {
                return;
            }
            there.Reset();
            back.Set();
        }
    });
    for (auto _ : state) {
        there.Set();
        back.Await();
        back.Reset();
    }
    bEnd = true;
    there.Set();
    other.join();
}

template <typename Event>
void EventPoll(benchmark::State& state) {
    Event event;
    for (auto _ : state) {
        benchmark::DoNotOptimize(event.IsSet());
    }
}

// A runner that is done after one Execute, as the wrapped job functions are.
class OnceRunner final : public ITnRobotTaskRunner {
public:
    void Init() override { m_bExecuted = false; }
    void Execute(ITnRobotEvent* /*pRunEvent*/) override { m_bExecuted = true; }
    void ClearResource() override {}
    bool IsStop() override { return m_bExecuted; }
    void Copy(ITnRobotTaskRunner* /*pRunner*/) override {}
    ITnRobotTaskRunner* Clone() override { return nullptr; }

private:
    std::atomic<bool> m_bExecuted{false};
};

bench::Counted<ITnRobotTask> StartedTask(ITnRobotTaskPool& pool) {
    const bench::Counted<ITnRobotTaskRunner> runner(new OnceRunner);
    ITnRobotTask* pTask = nullptr;
    bench::Require(pool.CreateTask(runner.get(), &pTask), "a task cannot be created");
    bench::Counted<ITnRobotTask> task(pTask);
    bench::Require(task->Start(), "a task cannot be started");
    return task;
}

// Until Start returns, which it does when the runner has been prepared.
void StartTask(benchmark::State& state) {
    const auto pool = bench::Make<ITnRobotTaskPool>(TnCreateRobotTaskPool);
    const bench::Counted<ITnRobotTask> task = StartedTask(*pool);
    for (auto _ : state) {
        task->Stop();
        const auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(task->Start());
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
}

template <typename Function>
void TimeOf(benchmark::State& state, Function function) {
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        function();
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
}

void CreateAndJoinThread(benchmark::State& state) {
    TimeOf(state, [] { std::thread([] {}).join(); });
}

// What a caller that polls once a millisecond cannot get below unless the answer is there at once.
void PollingStep(benchmark::State& state) {
    TimeOf(state, [] { usleep(kPollMicroseconds); });
}

double ProcessSeconds() {
    timespec used = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

// Processor time that the other threads use in a second of this one's sleep; that is the time
// reported, and in percent of a core the counter.
void MeasureIdleSecond(benchmark::State& state) {
    double fUsed = 0;
    double fPassed = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const double fBefore = ProcessSeconds();
        std::this_thread::sleep_for(std::chrono::seconds(1));
        const double fSecond = ProcessSeconds() - fBefore;
        state.SetIterationTime(fSecond);
        fUsed += fSecond;
        fPassed += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    state.counters["core_percent"] = 100.0 * fUsed / fPassed;
}

void IdleTasks(benchmark::State& state) {
    const auto pool = bench::Make<ITnRobotTaskPool>(TnCreateRobotTaskPool);
    const auto nTasks = static_cast<unsigned int>(state.range(0));
    std::vector<bench::Counted<ITnRobotTask>> tasks;
    for (unsigned int n = 0; n < nTasks; ++n) {
        tasks.push_back(StartedTask(*pool));
    }
    tasks.clear();
    while (pool->GetTaskCount() < nTasks) {
        std::this_thread::yield();
    }
    MeasureIdleSecond(state);
}

// As many threads as idle tasks have, the pool's own included.
void IdleLoops(benchmark::State& state) {
    std::atomic<bool> bEnd{false};
    std::vector<std::thread> threads;
    for (int n = 0; n < static_cast<int>(state.range(0)) + 1; ++n) {
        threads.emplace_back([&bEnd] {
            while (!bEnd) {
                usleep(kPollMicroseconds);
            }
        });
    }
    MeasureIdleSecond(state);
    bEnd = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Cases that tell the framework the time themselves.
template <typename Function>
benchmark::internal::Benchmark* RegisterManual(const std::string& strName, Function function) {
    return benchmark::RegisterBenchmark(strName.c_str(), function)->UseManualTime();
}

void RegisterAll() {
    bench::Register("SetEventToWaiter/ours", 1, SetEventToWaiter<OurEvent>);
    bench::Register("SetEventToWaiter/mutex_condvar", 1, SetEventToWaiter<ConditionEvent>);
    bench::Register("EventPoll/ours", 1, EventPoll<OurEvent>);
    bench::Register("EventPoll/mutex_flag", 1, EventPoll<ConditionEvent>);

    // Fixed counts: what is timed is short beside what is not.
    constexpr int kStarts = 200;
    RegisterManual("TaskStart/ours", StartTask)->Iterations(kStarts);
    RegisterManual("TaskStart/std_thread", CreateAndJoinThread)->Iterations(kStarts);
    RegisterManual("TaskStart/usleep_1ms", PollingStep)->Iterations(kStarts);

    RegisterManual("IdleTasks/ours", IdleTasks)->Arg(1)->Arg(32)->Iterations(2);
    RegisterManual("IdleTasks/usleep_loop", IdleLoops)->Arg(1)->Arg(32)->Iterations(2);
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    RegisterAll();
    return bench::Run(nArguments, ppszArguments, "Events, threads and tasks");
}
