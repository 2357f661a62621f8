// Forks while threads of the parent are where its argument says, and reports on the standard output
// how the child ended. What a child cannot do shows as the signal that ends it when it hangs.

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "TnRobotKernel/ptr.h"
#include "support/fakes/TestObjects.h"
#include "support/objects/Archives.h"
#include "support/threads/ThreadProbe.h"

using namespace tntest;

namespace {

constexpr unsigned int kChildSeconds = 20;

// A thread that stops inside the library's next allocation, where the lock of the value pool is
// held, until the fork is over or waits for the lock.
std::atomic<int> g_nStopsIn{0};
std::atomic<bool> g_bStopped{false};
std::atomic<bool> g_bForked{false};
std::atomic<int> g_nForking{0};

void StopHere() {
    g_nStopsIn = 0;
    g_bStopped = true;
    Eventually([] { return g_bForked || (g_nForking != 0 && IsBlocked(g_nForking)); });
}

}  // namespace

void* operator new(std::size_t nSize) {
    if (g_nStopsIn != 0 && g_nStopsIn == ThisThreadNumber()) {
        StopHere();
    }
    if (void* p = std::malloc(nSize)) {
        return p;
    }
    throw std::bad_alloc();
}

void* operator new(std::size_t nSize, const std::nothrow_t& /*noThrow*/) noexcept {
    return std::malloc(nSize);
}

void operator delete(void* p) noexcept {
    std::free(p);
}

void operator delete(void* p, std::size_t /*nSize*/) noexcept {
    std::free(p);
}

namespace {

int g_nFailures = 0;

void Check(bool bHolds, const char* lpszWhat) {
    if (!bHolds) {
        std::printf("not true: %s\n", lpszWhat);
        ++g_nFailures;
    }
}

#define CHECK(condition) Check((condition), #condition)

// How the child ends that calls a function and exits as programs do.
std::string InChild(const std::function<void()>& call) {
    std::fflush(stdout);
    g_nForking = ThisThreadNumber();
    const pid_t child = fork();
    if (child == 0) {
        alarm(kChildSeconds);
        call();
        std::exit(g_nFailures);
    }
    g_bForked = true;
    int nStatus = 0;
    waitpid(child, &nStatus, 0);
    return WIFEXITED(nStatus) ? "exit " + std::to_string(WEXITSTATUS(nStatus))
                              : "signal " + std::to_string(WTERMSIG(nStatus));
}

void ReportChild(const std::function<void()>& call) {
    const std::string end = InChild(call);
    std::printf("%s\n", end.c_str());
}

void UseValues() {
    ITnRobotDataValue* pValue = nullptr;
    CHECK(TnCreateRobotIntData(5, &pValue) == 0);
    CHECK(pValue->IntData(nullptr) == 5);
    CHECK(pValue->Release() == 1);
}

// A value that somebody holds at the end: the pool takes it back from under his hands.
void WhileAThreadHasTheValueLock(const std::function<void()>& inChild) {
    ITnRobotDataValue* pHeld = nullptr;
    TnCreateRobotIntData(1, &pHeld);
    std::thread creator([] {
        g_nStopsIn = ThisThreadNumber();
        UseValues();
    });
    Eventually([] { return g_bStopped.load(); });
    ReportChild(inChild);
    creator.join();
    pHeld->Release();
}

// Both threads of the parent and children do it.
void Often(void (*pfnUse)()) {
    constexpr int kForks = 100;
    std::atomic<bool> bEnd{false};
    std::vector<std::thread> threads;
    for (int n = 0; n < 3; ++n) {
        threads.emplace_back([&bEnd, pfnUse] {
            while (!bEnd) {
                pfnUse();
            }
        });
    }
    int nEnded = 0;
    while (nEnded < kForks && InChild(pfnUse) == "exit 0") {
        ++nEnded;
    }
    bEnd = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::printf("%d of %d\n", nEnded, kForks);
}

void WhileThreadsUseValues() {
    ITnRobotDataValue* pHeld = nullptr;
    TnCreateRobotIntData(1, &pHeld);
    Often(UseValues);
    pHeld->Release();
}

// A class that is not there is looked for while nothing moves.
void WhileThreadsLookUpClasses() {
    Often([] { CHECK(CTnRobotObject::CreateObjectFromGUID("11111111-2222-3333-4444-555555555555") == nullptr); });
}

// An object that goes while archives know it.
void UseAnArchive() {
    TnRobotPtr<TestNode> node = TestNode::Create(7);
    const Channel channel = Storing();
    CHECK(channel->WriteObject(node.get()) == 1);
    node.reset();
    CHECK(channel->WriteObject(TestNode::Create(8).get()) == 1);
}

TnRobotPtr<ITnRobotThread> RunningThread() {
    ITnRobotThread* pThread = nullptr;
    TnCreateRobotThread(&pThread);
    pThread->SetWorkJob([](ITnRobotEvent*) { std::this_thread::yield(); });
    pThread->Run();
    return tn::Adopt(pThread);
}

void ReleaseAThread() {
    TnRobotPtr<ITnRobotThread> thread = RunningThread();
    ReportChild([&thread] { CHECK(thread.detach()->Release() == 0); });
}

// Held by a static of the program, which goes at exit.
TnRobotPtr<ITnRobotThread> s_thread;

void ExitWithAThread() {
    s_thread = RunningThread();
    ReportChild([] {});
    s_thread.reset();
}

constexpr unsigned int kLongWait = 60000;

// Calls a function while a thread waits for what ends another's wait.
void WhileAThreadWaits(const std::function<void()>& wait, const std::function<void()>& wake,
                       const std::function<void()>& meanwhile) {
    std::atomic<int> nThread{0};
    std::thread waiter([&] {
        nThread = ThisThreadNumber();
        wait();
    });
    Eventually([&nThread] { return nThread != 0 && IsBlocked(nThread); });
    meanwhile();
    wake();
    waiter.join();
}

TnRobotPtr<ITnRobotEvent> MakeEvent() {
    ITnRobotEvent* pEvent = nullptr;
    TnCreateRobotManualEvent(false, &pEvent);
    return tn::Adopt(pEvent);
}

void AwaitSet(ITnRobotEvent& event) {
    while (!event.WaitEvent(kLongWait)) {
    }
}

void ReleaseAnEvent() {
    TnRobotPtr<ITnRobotEvent> event = MakeEvent();
    ITnRobotEvent* const pEvent = event.get();
    WhileAThreadWaits([pEvent] { AwaitSet(*pEvent); }, [pEvent] { pEvent->SetEvent(); },
                      [&event] { ReportChild([&event] { CHECK(event.detach()->Release() == 0); }); });
}

void ReleaseASignal() {
    ITnRobotSignal* pSignal = nullptr;
    TnCreateRobotSignal(&pSignal);
    WhileAThreadWaits(
        [pSignal] {
            while (pSignal->Wait(kLongWait) == 3) {
            }
        },
        [pSignal] { pSignal->Signal(); }, [pSignal] { ReportChild([pSignal] { CHECK(pSignal->Release() == 0); }); });
    pSignal->Release();
}

// Each round wakes a thread of the child by a notification of its own.
void UseAnEvent() {
    const TnRobotPtr<ITnRobotEvent> event = MakeEvent();
    ITnRobotEvent* const pEvent = event.get();
    const auto wait = [pEvent] { AwaitSet(*pEvent); };
    const auto wake = [pEvent] { pEvent->SetEvent(); };
    const auto inChild = [&] {
        for (int n = 0; n < 3; ++n) {
            WhileAThreadWaits(wait, wake, [] {});
            pEvent->ResetEvent();
        }
    };
    WhileAThreadWaits(wait, wake, [&] { ReportChild(inChild); });
}

// Executes until it is stopped, or once.
class Runner final : public ITnRobotTaskRunner {
public:
    explicit Runner(bool bOnce) : m_bOnce(bOnce) {}
    void Init() override { m_nExecuted = 0; }
    void Execute(ITnRobotEvent* /*pRunEvent*/) override { ++m_nExecuted; }
    void ClearResource() override {}
    bool IsStop() override { return m_bOnce && m_nExecuted != 0; }
    void Copy(ITnRobotTaskRunner* /*pRunner*/) override {}
    ITnRobotTaskRunner* Clone() override { return nullptr; }

    bool AwaitExecuted() const {
        return Eventually([this] { return m_nExecuted != 0; });
    }

private:
    const bool m_bOnce;
    std::atomic<int> m_nExecuted{0};
};

TnRobotPtr<ITnRobotTask> MakeTask(ITnRobotTaskPool& pool, Runner& runner) {
    ITnRobotTask* pTask = nullptr;
    CHECK(pool.CreateTask(&runner, &pTask));
    return tn::Adopt(pTask);
}

// A pool with a task that works, one that has stopped, and one that has become idle.
struct Tasks {
    Tasks() {
        TnCreateRobotTaskPool(&m_pPool);
        m_working = MakeTask(*m_pPool, *m_always);
        m_stopped = MakeTask(*m_pPool, *m_always);
        const TnRobotPtr<ITnRobotTask> idle = MakeTask(*m_pPool, *m_always);
        CHECK(m_working->Start() && m_stopped->Start() && idle->Start());
        m_stopped->Stop();
    }
    Tasks(const Tasks&) = delete;
    Tasks& operator=(const Tasks&) = delete;
    ~Tasks() {
        m_working.reset();
        m_stopped.reset();
        if (m_pPool != nullptr) {
            m_pPool->Release();
        }
    }

    TnRobotPtr<Runner> m_always = tn::Adopt(new Runner(false));
    TnRobotPtr<Runner> m_once = tn::Adopt(new Runner(true));
    ITnRobotTaskPool* m_pPool = nullptr;
    TnRobotPtr<ITnRobotTask> m_working;
    TnRobotPtr<ITnRobotTask> m_stopped;
};

void ReleaseTasksAndTheirPool() {
    Tasks tasks;
    ReportChild([&tasks] {
        CHECK(tasks.m_working.detach()->Release() == 1);
        CHECK(tasks.m_stopped.detach()->Release() == 1);
        CHECK(tasks.m_pPool->Release() == 0);
        tasks.m_pPool = nullptr;
    });
}

void ReleaseThePoolBeforeItsTasks() {
    Tasks tasks;
    ReportChild([&tasks] {
        CHECK(tasks.m_pPool->Release() == 0);
        tasks.m_pPool = nullptr;
        CHECK(tasks.m_working.detach()->Release() == 0);
        CHECK(tasks.m_stopped.detach()->Release() == 0);
    });
}

// The pool's thread is not there; everything else of the pool is.
void UseThePool() {
    Tasks tasks;
    ReportChild([&tasks] {
        const unsigned int nIdle = tasks.m_pPool->GetTaskCount();
        CHECK(tasks.m_working.detach()->Release() == 1);
        CHECK(tasks.m_pPool->GetTaskCount() == nIdle + 1);
        for (int n = 0; n < 3; ++n) {
            const TnRobotPtr<Runner> runner = tn::Adopt(new Runner(true));
            const TnRobotPtr<ITnRobotTask> first = MakeTask(*tasks.m_pPool, *runner);
            const TnRobotPtr<ITnRobotTask> second = MakeTask(*tasks.m_pPool, *tasks.m_once);
            CHECK(first->Start() && second->Start());
            CHECK(runner->AwaitExecuted());
            first->Stop();
            CHECK(!first->IsRunning());
        }
    });
}

// Calls a function when it is executed for the first time.
class CallingRunner final : public ITnRobotTaskRunner {
public:
    explicit CallingRunner(std::function<void()> call) : m_call(std::move(call)) {}
    void Init() override {}
    void Execute(ITnRobotEvent* /*pRunEvent*/) override {
        if (const std::function<void()> call = std::exchange(m_call, nullptr)) {
            call();
            m_bCalled = true;
        }
    }
    void ClearResource() override {}
    bool IsStop() override { return false; }
    void Copy(ITnRobotTaskRunner* /*pRunner*/) override {}
    ITnRobotTaskRunner* Clone() override { return nullptr; }

    bool AwaitCalled() const {
        return Eventually([this] { return m_bCalled.load(); });
    }

private:
    std::function<void()> m_call;
    std::atomic<bool> m_bCalled{false};
};

void UseThePoolInAJobsChild() {
    ITnRobotTaskPool* pPool = nullptr;
    TnCreateRobotTaskPool(&pPool);
    ITnRobotTask* pTask = nullptr;
    const auto inChild = [&] {
        CHECK(pTask->Release() == 1);
        const TnRobotPtr<Runner> runner = tn::Adopt(new Runner(false));
        const TnRobotPtr<ITnRobotTask> task = MakeTask(*pPool, *runner);
        CHECK(task.get() == pTask);
        CHECK(task->Start() && runner->AwaitExecuted());
        task->Stop();
        CHECK(!task->IsRunning());
    };
    const TnRobotPtr<CallingRunner> forks = tn::Adopt(new CallingRunner([&inChild] { ReportChild(inChild); }));
    CHECK(pPool->CreateTask(forks.get(), &pTask) && pTask->Start());
    CHECK(forks->AwaitCalled());
    pTask->Release();
    pPool->Release();
}

struct Scenario {
    const char* m_lpszName;
    void (*m_pfnRun)();
};

constexpr Scenario kScenarios[] = {
    {"values-exit", [] { WhileAThreadHasTheValueLock([] {}); }},
    {"values-use", [] { WhileAThreadHasTheValueLock(UseValues); }},
    {"values-often", WhileThreadsUseValues},
    {"thread-release", ReleaseAThread},
    {"thread-exit", ExitWithAThread},
    {"event-release", ReleaseAnEvent},
    {"event-use", UseAnEvent},
    {"signal-release", ReleaseASignal},
    {"tasks-release", ReleaseTasksAndTheirPool},
    {"pool-release", ReleaseThePoolBeforeItsTasks},
    {"pool-use", UseThePool},
    {"job-use", UseThePoolInAJobsChild},
    {"classes-often", WhileThreadsLookUpClasses},
    {"archives-often", [] { Often(UseAnArchive); }},
};

}  // namespace

int main(int nArguments, char** arguments) {
    for (const Scenario& scenario : kScenarios) {
        if (nArguments == 2 && std::string(arguments[1]) == scenario.m_lpszName) {
            scenario.m_pfnRun();
            return g_nFailures;
        }
    }
    return 2;
}
