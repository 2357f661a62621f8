// Events beside a mutex with a condition variable, tasks beside threads, and what idle tasks cost.

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
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

    TnRobotPtr<ITnRobotEvent> m_event = bench::Make<ITnRobotEvent>(TnCreateRobotManualEvent, false);
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

// Nobody waits; the flag is looked at once, so that both have done what they say.
template <typename Event>
void SetAndReset(benchmark::State& state) {
    Event event;
    event.Set();
    bench::Require(event.IsSet(), "an event that is set does not say so");
    event.Reset();
    bench::Require(!event.IsSet(), "an event that is reset does not say so");
    for (auto _ : state) {
        event.Set();
        event.Reset();
        benchmark::ClobberMemory();
    }
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

TnRobotPtr<ITnRobotTask> StartedTask(ITnRobotTaskPool& pool) {
    const TnRobotPtr<ITnRobotTaskRunner> runner(new OnceRunner, tn::kAdopt);
    ITnRobotTask* pTask = nullptr;
    bench::Require(pool.CreateTask(runner.get(), &pTask), "a task cannot be created");
    TnRobotPtr<ITnRobotTask> task(pTask, tn::kAdopt);
    bench::Require(task->Start(), "a task cannot be started");
    return task;
}

double Seconds(std::chrono::steady_clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

// @return what that many of a hundred times do not exceed.
double Percentile(std::vector<double> seconds, std::size_t nPercent) {
    const auto nth = seconds.begin() + static_cast<std::ptrdiff_t>((seconds.size() - 1) * nPercent / 100);
    std::nth_element(seconds.begin(), nth, seconds.end());
    return *nth;
}

// @return how long one step of the polling really is: the system adds its own slack to the millisecond.
double PollingStepSeconds() {
    std::vector<double> seconds;
    for (int i = 0; i < 21; ++i) {
        const auto start = std::chrono::steady_clock::now();
        usleep(kPollMicroseconds);
        seconds.push_back(Seconds(std::chrono::steady_clock::now() - start));
    }
    return Percentile(seconds, 50);
}

// Beside the times themselves the slowest but one in a hundred, also in whole steps of the polling
// that the contract prescribes: what takes two of them was seen at the second look.
template <typename Prepare, typename Function>
void TimeOf(benchmark::State& state, Prepare prepare, Function function) {
    const double fStep = PollingStepSeconds();
    std::vector<double> seconds;
    for (auto _ : state) {
        prepare();
        const auto start = std::chrono::steady_clock::now();
        function();
        seconds.push_back(Seconds(std::chrono::steady_clock::now() - start));
        state.SetIterationTime(seconds.back());
    }
    const double fSlowest = Percentile(seconds, 99);
    state.counters["p99_us"] = fSlowest * 1e6;
    state.counters["p99_steps"] = std::round(fSlowest / fStep);
}

// Until Start returns, which it does when the runner has been prepared.
void StartTask(benchmark::State& state) {
    const auto pool = bench::Make<ITnRobotTaskPool>(TnCreateRobotTaskPool);
    const TnRobotPtr<ITnRobotTask> task = StartedTask(*pool);
    TimeOf(
        state, [&] { task->Stop(); }, [&] { benchmark::DoNotOptimize(task->Start()); });
}

void CreateAndJoinThread(benchmark::State& state) {
    TimeOf(
        state, [] {}, [] { std::thread([] {}).join(); });
}

// What a caller that polls once a millisecond cannot get below unless the answer is there at once.
void PollingStep(benchmark::State& state) {
    TimeOf(
        state, [] {}, [] { usleep(kPollMicroseconds); });
}

double ProcessSeconds() {
    timespec used = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

// Processor time that the other threads use while this one sleeps; that is the time reported, and in
// percent of a core the counter.
void MeasureIdle(benchmark::State& state, std::chrono::milliseconds sleep) {
    double fUsed = 0;
    double fPassed = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const double fBefore = ProcessSeconds();
        std::this_thread::sleep_for(sleep);
        const double fSlept = ProcessSeconds() - fBefore;
        state.SetIterationTime(fSlept);
        fUsed += fSlept;
        fPassed += Seconds(std::chrono::steady_clock::now() - start);
    }
    state.counters["core_percent"] = 100.0 * fUsed / fPassed;
}

void IdleTasks(benchmark::State& state, std::chrono::milliseconds sleep) {
    const auto pool = bench::Make<ITnRobotTaskPool>(TnCreateRobotTaskPool);
    const auto nTasks = static_cast<unsigned int>(state.range(0));
    std::vector<TnRobotPtr<ITnRobotTask>> tasks;
    for (unsigned int n = 0; n < nTasks; ++n) {
        tasks.push_back(StartedTask(*pool));
    }
    tasks.clear();
    while (pool->GetTaskCount() < nTasks) {
        std::this_thread::yield();
    }
    MeasureIdle(state, sleep);
}

// One for each idle task; the pool has a thread of its own beside them.
void IdleLoops(benchmark::State& state, std::chrono::milliseconds sleep) {
    std::atomic<bool> bEnd{false};
    std::vector<std::thread> threads;
    for (int n = 0; n < static_cast<int>(state.range(0)); ++n) {
        threads.emplace_back([&bEnd] {
            while (!bEnd) {
                usleep(kPollMicroseconds);
            }
        });
    }
    MeasureIdle(state, sleep);
    bEnd = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void RegisterEvents() {
    bench::Register("EventSetReset/ours", 1, SetAndReset<OurEvent>);
    bench::Register("EventSetReset/mutex_condvar", 1, SetAndReset<ConditionEvent>);
    bench::Register("SetEventToWaiter/ours", 1, SetEventToWaiter<OurEvent>);
    bench::Register("SetEventToWaiter/mutex_condvar", 1, SetEventToWaiter<ConditionEvent>);
    bench::Register("EventPoll/ours", 1, EventPoll<OurEvent>);
    bench::Register("EventPoll/mutex_condvar", 1, EventPoll<ConditionEvent>);
}

// Fixed counts: what is timed is short beside what is not.
void RegisterTasks(bool bQuick) {
    const int nStarts = bQuick ? 20 : 500;
    bench::RegisterManual("TaskStart/ours", StartTask)->Iterations(nStarts);
    bench::RegisterManual("TaskStart/std_thread", CreateAndJoinThread)->Iterations(nStarts);
    bench::RegisterManual("TaskStart/limit_usleep_1ms", PollingStep)->Iterations(nStarts);

    const std::chrono::milliseconds sleep(bQuick ? 50 : 1000);
    using Idle = void (*)(benchmark::State&, std::chrono::milliseconds);
    const auto idle = [sleep](const char* lpszName, Idle run) {
        bench::RegisterManual(lpszName, [run, sleep](benchmark::State& state) { run(state, sleep); })
            ->Arg(1)
            ->Arg(32)
            ->Arg(200)
            ->Iterations(2);
    };
    idle("IdleTasks/ours", IdleTasks);
    idle("IdleTasks/usleep_loop", IdleLoops);
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    bench::Program program(nArguments, ppszArguments, "concurrency", "Events, threads and tasks");
    RegisterEvents();
    RegisterTasks(program.IsQuick());
    return program.Run();
}
