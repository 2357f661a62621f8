// Pooled tasks that end by themselves, that are stopped, that are released while they run; and
// threads of their own that are paused, resumed and ended.

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "soak/Workshop.h"
#include "support/fakes/TestObjects.h"

using namespace tntest;

namespace tnsoak {

namespace {

// Adds up numbers, one piece per Execute, and counts what is done with it.
class AddingRunner final : public ITnRobotTaskRunner {
public:
    explicit AddingRunner(int nPieces) : m_nPieces(nPieces) {}

    void Init() override { m_nDone = 0; }
    void Execute(ITnRobotEvent* /*pRunEvent*/) override { m_nSum += ++m_nDone; }
    void ClearResource() override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bCleared = true;
        m_changed.notify_all();
    }
    bool IsStop() override { return m_nDone >= m_nPieces; }
    void Copy(ITnRobotTaskRunner* /*pRunner*/) override {}
    ITnRobotTaskRunner* Clone() override { return nullptr; }

    void AwaitCleared() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_bCleared; });
    }
    bool IsDone() const { return m_nDone == m_nPieces; }
    bool HasSumOfDone() const { return m_nSum == m_nDone * (m_nDone + 1) / 2; }

private:
    const int m_nPieces;
    std::atomic<int> m_nDone{0};
    std::atomic<int> m_nSum{0};
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bCleared = false;  // guarded by m_mutex
    LiveObject m_live;
};

enum Ending { kByItself, kStopped, kReleased, kEndings };

}  // namespace

void UseTasks(Worker& worker) {
    const TnRobotPtr<AddingRunner> runner = tn::Adopt(new AddingRunner(worker.Number(1, 50)));
    ITnRobotTask* pTask = nullptr;
    Require(worker.shop.tasks->CreateTask(runner.get(), &pTask), "no task");
    TnRobotPtr<ITnRobotTask> task(pTask, tn::kAdopt);
    Require(task->Start(), "a task does not start");
    const int nEnding = worker.Number(0, kEndings - 1);
    if (nEnding == kByItself) {
        runner->AwaitCleared();
        Insist(runner->IsDone(), "a task was stopped too early");
    } else if (nEnding == kStopped) {
        task->Stop();
        Insist(!task->IsRunning(), "a stopped task runs");
    }
    task.reset();
    runner->AwaitCleared();
    Insist(runner->HasSumOfDone(), "a runner has lost a piece");
}

void UseThread(Worker& worker) {
    ITnRobotThread* pThread = nullptr;
    Require(TnCreateRobotThread(&pThread) == 1, "no thread");
    const TnRobotPtr<ITnRobotThread> thread(pThread, tn::kAdopt);
    std::atomic<int> nPasses{0};
    thread->SetWorkJob([&nPasses](ITnRobotEvent* /*pStopEvent*/) { ++nPasses; });
    const int nRounds = worker.Number(1, 3);
    for (int n = 0; n < nRounds; ++n) {
        Require(thread->Run(), "a thread does not run");
        thread->Stop();
        const int nNow = nPasses;
        Insist(nNow == nPasses, "a paused thread works");
    }
    thread->Exit(0);
}

int LiveObjects() {
    return LiveObject::Count();
}

}  // namespace tnsoak
