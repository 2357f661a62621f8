// Reads calls of up to three threads on tasks, their pool, a thread object, events, block pools and blocks,
// and makes them, all threads at once. Every input ends: calls that would wait for ever by contract are left
// out, and whoever waits longer all the same is a finding.

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "FuzzBudget.h"
#include "FuzzInput.h"
#include "TnRobotKernel/make.h"
#include "concurrency/ActingRunner.h"
#include "concurrency/ActingThread.h"
#include "concurrency/Exchange.h"
#include "concurrency/HeldBlock.h"
#include "concurrency/TnWorker.h"
#include "memory/TnRobotRandomMemBlockPool.h"

using namespace tnfuzz;

namespace {

constexpr unsigned int kCallers = 3;
constexpr std::size_t kMostCalls = 48;
constexpr unsigned int kSlots = 2;  // references of one kind that a caller has
constexpr std::chrono::seconds kPatience{60};

struct Call {
    unsigned int nOperation = 0;
    unsigned int nSlot = 0;
    unsigned int nPlan = 0;
};

// What an input begins with and its callers share.
struct World : Surroundings {
    TnRobotPtr<ITnRobotSignal> signal = tn::MakeSignal();
    TnRobotPtr<ITnRobotAlarmClock> clock = tn::MakeAlarmClock();
    TnRobotPtr<ITnRobotTaskPool> taskPool = tn::MakeTaskPool();
    TnRobotPtr<ITnRobotMemoryBlockPool> generalPool;
    TnRobotPtr<ITnRobotMemoryBlockPool> circularPool;
    std::shared_ptr<ActingThread> thread = std::make_shared<ActingThread>();
    Exchange<HeldBlock> blocks;
    std::atomic<std::uint64_t> nStamps{0};

    // The general pool frees what lies idle at once. The circular one has a hundred megabytes: only where an
    // input asks for it.
    explicit World(bool bCircle) {
        event = tn::MakeManualEvent(false);
        CTnRobotRandomMemBlockPool::CreateInstance(0, generalPool.put());
        if (bCircle) {
            circularPool = tn::MakeCircleMemoryBlockPool();
        }
    }
};

// One thread's references, and its calls.
class Caller {
public:
    explicit Caller(World& world)
        : m_world(world),
          m_taskPool(world.taskPool),
          m_generalPool(world.generalPool),
          m_circularPool(world.circularPool),
          m_thread(world.thread) {}

    void Make(const Call& call) {
        using Operation = void (Caller::*)(const Call&);
        static constexpr Operation kOperations[] = {
            &Caller::CreateTask,  &Caller::CreateTask,    &Caller::StartTask,  &Caller::StartTask,
            &Caller::StopTask,    &Caller::ReleaseTask,   &Caller::LendTask,   &Caller::SwapTask,
            &Caller::LookAtTasks, &Caller::LeaveTaskPool, &Caller::BindThread, &Caller::RunThread,
            &Caller::StopThread,  &Caller::ExitThread,    &Caller::QueryBlock, &Caller::QueryBlock,
            &Caller::DropBlock,   &Caller::SwapBlock,     &Caller::ViewBlock,  &Caller::SweepBlocks,
            &Caller::LeaveBlocks, &Caller::UseEvent,      &Caller::UseSignal,  &Caller::UseClock,
        };
        (this->*kOperations[call.nOperation % std::size(kOperations)])(call);
    }

private:
    void CreateTask(const Call& call) {
        if (!m_taskPool) {
            return;
        }
        // One plan in sixteen has a task without a runner.
        const bool bRuns = call.nPlan % 16 != 15;
        const TnRobotPtr<ActingRunner> runner = ActingRunner::Create(call.nPlan, m_world);
        HeldTask held{tn::CreateTask(*m_taskPool, bRuns ? runner.get() : nullptr), bRuns};
        Require(static_cast<bool>(held), "there is always another task");
        runner->SetTask(held.task.get());
        Task(call) = std::move(held);
    }
    void StartTask(const Call& call) {
        if (const HeldTask& held = Task(call)) {
            Require(held.task->Start() == held.bRuns, "a task with a runner starts");
        }
    }
    void StopTask(const Call& call) {
        if (const HeldTask& held = Task(call)) {
            held.task->Stop();
        }
    }
    void ReleaseTask(const Call& call) { Task(call) = {}; }
    void LendTask(const Call& call) { Task(call) = m_world.tasks.Copy(); }
    void SwapTask(const Call& call) { Task(call) = m_world.tasks.Swap(std::move(Task(call))); }
    void LookAtTasks(const Call& call) {
        if (const HeldTask& held = Task(call)) {
            held.task->IsRunning();
        }
        if (m_taskPool) {
            Require(m_taskPool->GetTaskCount() <= kMostCalls, "no more are idle than were made");
        }
    }
    void LeaveTaskPool(const Call& call) {
        if (m_taskPool && call.nPlan % 2 == 0) {
            Require(m_taskPool->CreateTask([](ITnRobotEvent* /*pEvent*/) { Require(false, "this job is never run"); }),
                    "a job can be bound");
        } else {
            m_taskPool.reset();
        }
    }

    void BindThread(const Call& call) {
        OnThread([&](ActingThread& thread) { thread.SetJob(call.nPlan, m_world); });
    }
    void RunThread(const Call& /*call*/) {
        OnThread([](ActingThread& thread) { thread.Run(); });
    }
    void StopThread(const Call& /*call*/) {
        OnThread([](ActingThread& thread) { thread.Stop(); });
    }
    void ExitThread(const Call& call) {
        if (call.nPlan % 2 == 0) {
            OnThread([](ActingThread& thread) { thread.Exit(); });
        } else {
            m_thread.reset();
        }
    }

    void QueryBlock(const Call& call) {
        static constexpr unsigned int kSizes[] = {1, 7, 40, 4096, 32768, 32769, 100000, 13U << 20U, 24U << 20U};
        const bool bCircle = call.nPlan % 2 != 0;
        ITnRobotMemoryBlockPool* pPool = bCircle ? m_circularPool.get() : m_generalPool.get();
        if (pPool == nullptr) {
            return;
        }
        const unsigned int nSize = kSizes[call.nPlan / 2 % std::size(kSizes)];
        TnRobotPtr<ITnRobotMemoryBlock> block;
        Require(pPool->QueryMemBuff(nSize, block.put()) == 1, "a block is answered for");
        Require(block || bCircle, "and comes from the general pool");
        DropBlock(call);
        if (block) {
            unsigned int nUsed = 0;
            Require(block->QueryMemory(nUsed) != nullptr && nUsed == nSize, "as large as it was asked for");
            Block(call) = HeldBlock(std::move(block), bCircle, ++m_world.nStamps);
        }
    }
    void DropBlock(const Call& call) {
        Block(call).Check(static_cast<bool>(m_circularPool));
        Block(call) = {};
    }
    void SwapBlock(const Call& call) { Block(call) = m_world.blocks.Swap(std::move(Block(call))); }
    void ViewBlock(const Call& call) {
        HeldBlock view = call.nPlan % 2 == 0 ? Block(call).View() : m_world.blocks.Copy().View();
        DropBlock(call);
        Block(call) = std::move(view);
    }
    void SweepBlocks(const Call& /*call*/) {
        for (const auto* pPool : {&m_generalPool, &m_circularPool}) {
            if (*pPool) {
                (*pPool)->FreeUnuseMemory();
            }
        }
    }
    void LeaveBlocks(const Call& call) { (call.nPlan % 2 == 0 ? m_generalPool : m_circularPool).reset(); }

    void UseEvent(const Call& call) {
        switch (call.nPlan % 3) {
            case 0:
                m_world.event->SetEvent();
                break;
            case 1:
                m_world.event->ResetEvent();
                break;
            default:
                m_world.event->WaitEvent(call.nPlan / 3 % 2);
        }
    }
    // NOLINTNEXTLINE(readability-make-member-function-const): one of the operations, which have one type
    void UseSignal(const Call& call) {
        switch (call.nPlan % 4) {
            case 0:
                m_world.signal->Signal();
                break;
            case 1:
                m_world.signal->CanCel();
                break;
            case 2:
                m_world.signal->ClearResource();
                break;
            default: {
                const unsigned int nState = m_world.signal->Wait(call.nPlan / 4 % 2);
                Require(nState >= 1 && nState <= 3, "a signal has three states");
            }
        }
    }
    // NOLINTNEXTLINE(readability-make-member-function-const): one of the operations, which have one type
    void UseClock(const Call& call) {
        bool bStopped = false;
        switch (call.nPlan % 5) {
            case 0:
                m_world.clock->StartRecord(call.nPlan / 5 % 3);
                break;
            case 1:
                m_world.clock->ReStartRecord();
                break;
            case 2:
                m_world.clock->StopRecord();
                break;
            case 3:
                m_world.clock->Wait();
                break;
            default:
                Require(!m_world.clock->IsTimeOut(bStopped) || !bStopped, "a stopped clock is not late");
        }
    }

    template <typename Work>
    void OnThread(Work work) {
        if (m_thread) {
            work(*m_thread);
        }
    }

    HeldTask& Task(const Call& call) { return m_tasks[call.nSlot % kSlots]; }
    HeldBlock& Block(const Call& call) { return m_blocks[call.nSlot % kSlots]; }

    World& m_world;
    TnRobotPtr<ITnRobotTaskPool> m_taskPool;
    TnRobotPtr<ITnRobotMemoryBlockPool> m_generalPool;
    TnRobotPtr<ITnRobotMemoryBlockPool> m_circularPool;
    std::shared_ptr<ActingThread> m_thread;
    std::array<HeldTask, kSlots> m_tasks;
    std::array<HeldBlock, kSlots> m_blocks;
};

// Ends the process unless all that was begun is over in time.
class Finish {
public:
    void Begin() { ++m_nOpen; }
    void End() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        --m_nOpen;
        m_changed.notify_all();
    }
    void Await() {
        std::unique_lock<std::mutex> lock(m_mutex);
        Require(m_changed.wait_for(lock, kPatience, [this] { return m_nOpen == 0; }), "every call returns");
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_nOpen = 0;  // guarded by m_mutex
};

using Plan = std::array<std::vector<Call>, kCallers>;

// The thread, the slot and the operation are in one byte each, the rest of a call in two.
Plan ReadPlan(FuzzInput& input) {
    Plan plan;
    for (std::size_t i = 0; i < kMostCalls && input.Left() != 0; ++i) {
        const unsigned int nOperation = input.Number<std::uint8_t>();
        const unsigned int nWhere = input.Number<std::uint8_t>();
        plan[nWhere % kCallers].push_back({nOperation, nWhere / kCallers, input.Number<std::uint16_t>()});
    }
    return plan;
}

// The world's own references to what callers may leave go before they begin, so that any of them may
// turn out to be the last holder.
void MakeCalls(World& world, const Plan& plan) {
    Finish finish;
    std::atomic<unsigned int> nAway{0};
    std::vector<std::thread> threads;
    std::vector<std::unique_ptr<Caller>> callers;
    for (std::size_t i = 0; i < plan.size(); ++i) {
        callers.push_back(std::make_unique<Caller>(world));
        finish.Begin();
    }
    world.taskPool.reset();
    world.generalPool.reset();
    world.circularPool.reset();
    world.thread.reset();
    for (std::size_t i = 0; i < plan.size(); ++i) {
        threads.emplace_back([&, i] {
            for (++nAway; nAway < kCallers;) {
                std::this_thread::yield();
            }
            for (const Call& call : plan[i]) {
                callers[i]->Make(call);
            }
            callers[i].reset();
            finish.End();
        });
    }
    finish.Await();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Jobs may have left references to their own tasks, and workers may be giving back what was left to them. The
// last of these threads has nothing to do any more, but may not have ended: what it is about to free would be
// taken for a leak now and then.
void AwaitNobody(World& world) {
    world.tasks.Close();
    world.blocks.Swap({});
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (world.nAlive != 0) {
        Require(std::chrono::steady_clock::now() < end, "nothing is left of an input");
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    tnrobot::Worker::JoinLeft();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    // Blocks of 24 MiB in all slots, as many idle ones, and a circular pool.
    constexpr FuzzLimits kLimits = {1LL << 30, 1024, 5, 5e-5};
    const FuzzBudget budget(nSize, kLimits);
    FuzzInput input(pData, nSize);
    World world(input.Below(4) == 0);
    MakeCalls(world, ReadPlan(input));
    AwaitNobody(world);
    return 0;
}
