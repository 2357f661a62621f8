// Work on the tasks of a pool, and limited memory, without memory or without another thread. Workers
// allocate too, and their allocations are refused with everybody's.

#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TnRobotKernel/tn/for_each.h"
#include "TnRobotKernel/tn/limited_pool.h"
#include "TnRobotKernel/tn/run.h"
#include "TnRobotKernel/tn/work_queue.h"
#include "failure/AllocationScenario.h"

namespace tntest {

namespace {

/// Has a pool whose tasks are all back at the end. The registry of crews, which a process keeps, is
/// there before anything is refused.
class WorkScenario : public AllocationScenario {
public:
    WorkScenario() {
        TnCreateRobotTaskPool(m_pool.put());
        tn::GiveBackTasks(*m_pool);
    }
    ~WorkScenario() override { tn::GiveBackTasks(*m_pool); }

protected:
    TnRobotPtr<ITnRobotTaskPool> m_pool;
};

class QueueWorks : public WorkScenario {
public:
    bool Attempt() override {
        tn::WorkQueue<std::string> queue(*m_pool, [this](const std::string&) { ++m_nDone; }, {2, 3, {}});
        for (int n = 0; n < 5; ++n) {
            queue.Push(std::string(100, 'x'));
            ++m_nPushed;
        }
        return queue.Finish();
    }

    // What was taken is done, whatever came afterwards.
    void Check(bool bDone) override {
        EXPECT_EQ(m_nDone, m_nPushed);
        EXPECT_TRUE(!bDone || m_nPushed == 5);
        m_nDone = m_nPushed = 0;
        EXPECT_TRUE(Attempt());
        EXPECT_EQ(m_nDone, 5);
    }

private:
    std::atomic<int> m_nDone{0};
    int m_nPushed = 0;
};

class JobsRun : public WorkScenario {
public:
    bool Attempt() override {
        std::array<tn::JobHandle, 3> handles;
        for (tn::JobHandle& handle : handles) {
            const std::array<char, 100> ballast{};
            handle = tn::Run(*m_pool, [this, ballast] { m_nDone += 1 + ballast[0]; });
        }
        bool bDone = true;
        for (tn::JobHandle& handle : handles) {
            bDone = handle.Wait() && bDone;
        }
        return bDone;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone ? m_nDone == 3 : m_nDone < 3);
        m_nDone = 0;
        EXPECT_TRUE(Attempt());
        EXPECT_EQ(m_nDone, 3);
    }

private:
    std::atomic<int> m_nDone{0};
};

/// A loop is done with the hands that there are, or not begun at all.
class LoopRuns : public WorkScenario {
public:
    bool Attempt() override {
        return tn::ForEach(*m_pool, 20, [this](std::size_t) { ++m_nDone; }, {3, tn::kNoLimit});
    }

    void Check(bool bDone) override {
        EXPECT_EQ(m_nDone, bDone ? 20 : 0);
        m_nDone = 0;
        EXPECT_TRUE(Attempt());
        EXPECT_EQ(m_nDone, 20);
    }

private:
    std::atomic<int> m_nDone{0};
};

class RunnerIsMade : public WorkScenario {
public:
    bool Attempt() override {
        const std::array<char, 100> ballast{};
        const auto runner = tn::MakeRunner([this, ballast] { m_nCalls += 1 + ballast[0]; });
        const auto clone = tn::Adopt(runner->Clone());
        clone->Execute(nullptr);
        return true;
    }

    void Check(bool bDone) override { EXPECT_EQ(m_nCalls, bDone ? 1 : 0); }

private:
    int m_nCalls = 0;
};

/// Bytes that no block was got for are there again.
class LimitedPoolHandsOut : public AllocationScenario {
public:
    LimitedPoolHandsOut() {
        TnRobotPtr<ITnRobotMemoryBlockPool> source;
        TnCreateRobotMemoryBlockPool(source.put());
        m_pool = tn::MakeLimitedPool(source, {1000, std::chrono::milliseconds(1), 1});
    }

    bool Attempt() override {
        std::error_code ec;
        m_first = tn::QueryMemBuff(*m_pool, 600, ec);
        m_second = tn::QueryMemBuff(*m_pool, 400, ec);
        const auto third = tn::QueryMemBuff(*m_pool, 1, ec);  // waits, for nothing
        return m_first && m_second && !third;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || !m_first || !m_second || m_pool->Counters().nLiveBytes == 1000);
        m_first.reset();
        m_second.reset();
        EXPECT_EQ(m_pool->Counters().nLiveBytes, 0U);
        EXPECT_EQ(m_pool->Counters().nLiveBlocks, 0U);
        EXPECT_TRUE(Attempt());
    }

private:
    TnRobotPtr<tn::LimitedPool> m_pool;
    TnRobotPtr<ITnRobotMemoryBlock> m_first;
    TnRobotPtr<ITnRobotMemoryBlock> m_second;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Work, AllocationFailure,
                         testing::Values(MakeThreadedCase<QueueWorks>("QueueWorks"),
                                         MakeThreadedCase<JobsRun>("JobsRun"), MakeThreadedCase<LoopRuns>("LoopRuns"),
                                         MakeCase<RunnerIsMade>("RunnerIsMade"),
                                         MakeCase<LimitedPoolHandsOut>("LimitedPoolHandsOut")),
                         AllocationCaseName);

}  // namespace tntest
