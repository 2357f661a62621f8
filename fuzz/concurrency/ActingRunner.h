// A runner that acts on its own task, as its caller has written down.

#ifndef TNROBOTKERNEL_FUZZ_CONCURRENCY_ACTINGRUNNER_H_
#define TNROBOTKERNEL_FUZZ_CONCURRENCY_ACTINGRUNNER_H_

#include <TnRobotKernel/TnRobotKernel.h>

#include <atomic>
#include <thread>

#include "FuzzInput.h"
#include "TnRobotKernel/ptr.h"
#include "concurrency/Exchange.h"

namespace tnfuzz {

/// A reference to a task, and whether it has something to run.
struct HeldTask {
    TnRobotPtr<ITnRobotTask> task;
    bool bRuns = false;

    explicit operator bool() const { return static_cast<bool>(task); }
};

/// What all threads of an input share and nobody needs to hold. It outlives every runner and job.
struct Surroundings {
    TnRobotPtr<ITnRobotEvent> event;
    Exchange<HeldTask> tasks;
    std::atomic<int> nAlive{0};  // runners and jobs
};

/// Does in each of its calls what one bit field of its plan says, as far as a job may; and ends the process
/// when it is called by two at once, out of order, or when it goes in the middle of a run.
///
/// It acts in its first calls only: a job that takes its own task for itself again and again, or sets
/// its own event, would keep the task at work for ever, which is nobody's mistake but its own.
class ActingRunner final : public ITnRobotTaskRunner {
public:
    static TnRobotPtr<ActingRunner> Create(unsigned int nPlan, Surroundings& around) {
        return tn::Adopt(new ActingRunner(nPlan, around));
    }
    ~ActingRunner() override {
        Require(!m_bBusy.load(kRelaxed) && !m_bInRun, "a runner goes after its run");
        --m_around.nAlive;
    }

    /// Before its task is started.
    void SetTask(ITnRobotTask* pTask) { m_pTask = pTask; }

    void Init() override {
        const Call call(*this);
        Require(!m_bInRun, "a run begins after the one before");
        m_bInRun = true;
        m_nLeft = kExecutions;
        Act(m_nPlan, nullptr);
    }
    void Execute(ITnRobotEvent* pRunEvent) override {
        const Call call(*this);
        Require(m_bInRun, "it executes in a run");
        m_nLeft -= IsEndless() ? 0 : 1;
        Act(m_nPlan >> kBitsPerAct, pRunEvent);
    }
    void ClearResource() override {
        const Call call(*this);
        Require(m_bInRun, "a run ends once");
        Act(m_nPlan >> (2 * kBitsPerAct), nullptr);
        m_own.reset();
        m_bInRun = false;
    }
    bool IsStop() override {
        const Call call(*this);
        Require(m_bInRun, "it is asked in a run");
        if (m_nLeft > 0) {
            return false;
        }
        // Nobody stops a task whose pool has gone: what it had of itself it would keep.
        m_own.reset();
        return true;
    }
    void Copy(ITnRobotTaskRunner* /*pRunner*/) override {}
    ITnRobotTaskRunner* Clone() override { return nullptr; }

private:
    static constexpr auto kRelaxed = std::memory_order_relaxed;  // orders nothing that the library should
    static constexpr unsigned int kBitsPerAct = 4;
    static constexpr int kExecutions = 2;
    static constexpr int kActingCalls = 8;

    class Call {
    public:
        explicit Call(ActingRunner& runner) : m_runner(runner) {
            Require(!m_runner.m_bBusy.exchange(true, kRelaxed), "a runner is called by one at a time");
        }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;
        ~Call() { m_runner.m_bBusy.store(false, kRelaxed); }

    private:
        ActingRunner& m_runner;
    };

    ActingRunner(unsigned int nPlan, Surroundings& around) : m_nPlan(nPlan), m_around(around) { ++m_around.nAlive; }

    // Such a task runs until somebody stops it.
    bool IsEndless() const { return (m_nPlan >> (3 * kBitsPerAct)) % 4 == 3; }

    // What it has kept since an earlier call goes first.
    void Act(unsigned int nAct, ITnRobotEvent* pRunEvent) {
        m_own.reset();
        if (++m_nCalls > kActingCalls) {
            return;
        }
        switch (nAct % (1U << kBitsPerAct)) {
            case 1:
                m_pTask->Stop();
                break;
            case 2:
                m_pTask->Start();
                break;
            case 3: {
                const TnRobotPtr<ITnRobotTask> again = tn::Retain(m_pTask);
                std::this_thread::yield();
                break;
            }
            case 4:
                m_around.tasks.Offer({tn::Retain(m_pTask), true});
                break;
            case 5:
                m_own = tn::Retain(m_pTask);
                break;
            case 6:
            case 7:
                SetOwnEvent(pRunEvent, nAct % 2 == 0);
                break;
            case 8:
                m_around.event->SetEvent();
                break;
            case 9:
                m_around.event->WaitEvent(1);
                break;
            case 10:
                m_pTask->IsRunning();
                break;
            case 11:
                m_around.tasks.Offer({tn::Retain(m_pTask), true});
                m_pTask->Stop();
                break;
            case 12:
                m_own = tn::Retain(m_pTask);
                m_pTask->Stop();
                m_pTask->Start();
                break;
            default:
                break;
        }
    }

    static void SetOwnEvent(ITnRobotEvent* pRunEvent, bool bSet) {
        if (pRunEvent != nullptr) {
            bSet ? pRunEvent->SetEvent() : pRunEvent->ResetEvent();
        }
    }

    const unsigned int m_nPlan;
    Surroundings& m_around;
    ITnRobotTask* m_pTask = nullptr;
    TnRobotPtr<ITnRobotTask> m_own;  // the task's thread alone, as all below but the busy mark
    int m_nCalls = 0;
    int m_nLeft = 0;
    bool m_bInRun = false;
    std::atomic<bool> m_bBusy{false};
};

}  // namespace tnfuzz

#endif  // TNROBOTKERNEL_FUZZ_CONCURRENCY_ACTINGRUNNER_H_
