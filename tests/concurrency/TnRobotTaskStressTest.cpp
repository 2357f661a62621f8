// Callers that do at random what callers may, and jobs that do at random what jobs may with their own
// tasks, all at once. TNROBOT_FULL_SOAK=1 in the environment chooses the full length.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "TnRobotKernel/ptr.h"
#include "support/objects/TaskPools.h"
#include "support/threads/Storm.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

namespace {

constexpr unsigned int kSeed = 20210;
constexpr int kCallers = 4;

int Steps() {
    const char* lpszValue = std::getenv("TNROBOT_FULL_SOAK");
    return lpszValue != nullptr && std::strcmp(lpszValue, "1") == 0 ? 20000 : StormLength(300);
}

using Random = std::minstd_rand;

int Draw(Random& random, int nBelow) {
    return static_cast<int>(random() % static_cast<unsigned int>(nBelow));
}

unsigned int DrawSeed(Random& random) {
    return static_cast<unsigned int>(random());
}

// References that jobs keep, for callers to release.
class Keep {
public:
    void Put(ITnRobotTask* pTask) {
        pTask->AddRef();
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_tasks.push_back(tn::Adopt(pTask));
    }

    // @return one of them, or null.
    TnRobotPtr<ITnRobotTask> TakeOne() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_tasks.empty()) {
            return nullptr;
        }
        TnRobotPtr<ITnRobotTask> task = std::move(m_tasks.back());
        m_tasks.pop_back();
        return task;
    }

private:
    std::mutex m_mutex;
    std::vector<TnRobotPtr<ITnRobotTask>> m_tasks;  // guarded by m_mutex
};

std::atomic<int> g_nAlive{0};
std::atomic<int> g_nMistakes{0};
std::atomic<bool> g_bPoolGone{false};

// Acts on its own task from every call, and notices when it is called by two at once, out of order,
// or after it should have gone.
class ActingRunner final : public ITnRobotTaskRunner {
public:
    ActingRunner(unsigned int nSeed, Keep& keep) : m_random(nSeed), m_keep(keep) { ++g_nAlive; }
    ~ActingRunner() override {
        Expect(!m_bBusy && !m_bInRun);
        --g_nAlive;
    }

    // Before its task is started.
    void SetTask(ITnRobotTask* pTask) { m_pTask = pTask; }

    void Init() override {
        const Call call(*this);
        Expect(!m_bInRun);
        m_bInRun = true;
        m_nLeft = 1 + Draw(m_random, 3);
        Act(nullptr);
    }
    void Execute(ITnRobotEvent* pRunEvent) override {
        const Call call(*this);
        Expect(m_bInRun);
        --m_nLeft;
        Act(pRunEvent);
    }
    void ClearResource() override {
        const Call call(*this);
        Expect(m_bInRun);
        Act(nullptr);
        m_own.clear();
        m_bInRun = false;
    }
    // Without its pool nobody ends a run that is done, so the job lets go of what would keep it for ever.
    bool IsStop() override {
        const Call call(*this);
        Expect(m_bInRun);
        if (g_bPoolGone) {
            m_own.clear();
        }
        return m_nLeft <= 0;
    }
    void Copy(ITnRobotTaskRunner* /*pRunner*/) override {}
    ITnRobotTaskRunner* Clone() override { return nullptr; }

private:
    class Call {
    public:
        explicit Call(ActingRunner& runner) : m_runner(runner) { Expect(!m_runner.m_bBusy.exchange(true)); }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;
        ~Call() { m_runner.m_bBusy = false; }

    private:
        ActingRunner& m_runner;
    };

    static void Expect(bool bHolds) { g_nMistakes += bHolds ? 0 : 1; }

    void Act(ITnRobotEvent* pRunEvent) {
        switch (Draw(m_random, 9)) {
            case 0:
                m_pTask->Stop();
                break;
            case 1:
                m_pTask->Start();
                break;
            case 2:
                m_pTask->AddRef();
                std::this_thread::yield();
                m_pTask->Release();
                break;
            case 3:
                m_keep.Put(m_pTask);
                break;
            case 4:
                m_pTask->AddRef();
                m_own.push_back(tn::Adopt(m_pTask));
                break;
            case 5:
                m_own.clear();
                break;
            case 6:
                if (pRunEvent != nullptr) {
                    pRunEvent->ResetEvent();
                }
                break;
            default:
                break;
        }
    }

    Random m_random;  // the task's thread alone, as all but the busy mark
    Keep& m_keep;
    ITnRobotTask* m_pTask = nullptr;
    std::vector<TnRobotPtr<ITnRobotTask>> m_own;  // references until some later call of the same run
    int m_nLeft = 0;
    bool m_bInRun = false;
    std::atomic<bool> m_bBusy{false};
};

// A job releases only its own task, since two that release each other's would wait for ever; what it
// keeps longer than its run goes to its caller.
void ActAsCaller(ITnRobotTaskPool& pool, Keep& keep, unsigned int nSeed) {
    Random random(nSeed);
    for (int n = Steps(); n > 0; --n) {
        const TnRobotPtr<ActingRunner> runner = tn::Adopt(new ActingRunner(DrawSeed(random), keep));
        TnRobotPtr<ITnRobotTask> task = MakeTask(pool, runner.get());
        runner->SetTask(task.get());
        for (int nRun = Draw(random, 4); nRun >= 0; --nRun) {
            ASSERT_TRUE(task->Start());
            if (Draw(random, 2) == 0) {
                task->Stop();
            }
        }
        task.reset();
        if (Draw(random, 4) != 0) {
            keep.TakeOne();
        }
    }
}

class TaskStress : public ThreadTest {};

}  // namespace

TEST_F(TaskStress, CallersAndJobsThatActOnTheirOwnTasksKeepOutOfEachOthersWay) {
    Watchdog::Extend(280);
    std::array<Keep, kCallers> keeps;  // jobs fill them also when the pool has gone
    g_bPoolGone = false;
    TnRobotPtr<ITnRobotTaskPool> pool = MakeTaskPool();
    {
        std::vector<Caller> callers;
        unsigned int nSeed = kSeed + ScheduleSeed();
        for (Keep& keep : keeps) {
            callers.emplace_back([&, nOwn = ++nSeed] { ActAsCaller(*pool, keep, nOwn); });
        }
    }
    pool.reset();
    g_bPoolGone = true;
    // A job may be at work when its pool has gone, and keep its task once more.
    const auto areGone = [&keeps] {
        for (Keep& keep : keeps) {
            while (keep.TakeOne()) {
            }
        }
        return g_nAlive == 0;
    };
    EXPECT_TRUE(Eventually(areGone)) << g_nAlive << " runners are left";
    EXPECT_EQ(g_nMistakes, 0);
}
