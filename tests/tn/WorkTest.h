// The fixture of the tests of what works on the tasks of a pool.

#ifndef TNROBOTKERNEL_TESTS_TN_WORKTEST_H_
#define TNROBOTKERNEL_TESTS_TN_WORKTEST_H_

#include <set>
#include <stdexcept>
#include <vector>

#include "TnRobotKernel/make.h"
#include "TnRobotKernel/tn/run.h"
#include "support/threads/Gate.h"
#include "support/threads/ThreadTest.h"

namespace tntest {

/// What a job of a test throws.
struct Trouble : std::runtime_error {
    explicit Trouble(int nNumber) : std::runtime_error("trouble"), m_nNumber(nNumber) {}
    int m_nNumber;
};

/// Has a pool, whose tasks are all back when a test ends, and no thread is left then. The pool's own counts as
/// one of the test's: it comes after the others have been counted.
class WorkTest : public ThreadTest {
protected:
    static constexpr int kPoolThread = 1;

    void SetUp() override {
        ThreadTest::SetUp();
        m_pool = tn::MakeTaskPool();
    }
    void TearDown() override {
        EndPool();
        ThreadTest::TearDown();
    }

    void EndPool() {
        if (m_pool) {
            tn::GiveBackTasks(*m_pool);
            m_pool.reset();
        }
    }

    ITnRobotTaskPool& Pool() { return *m_pool; }

    TnRobotPtr<ITnRobotTaskPool> m_pool;
};

/// Counts the objects that are alive, for what must be given back.
class Token {
public:
    explicit Token(std::atomic<int>& nAlive) : m_pAlive(&nAlive) { ++*m_pAlive; }
    Token(const Token& other) : Token(*other.m_pAlive) {}
    Token(Token&& other) noexcept : m_pAlive(other.m_pAlive) { ++*m_pAlive; }
    Token& operator=(const Token&) = delete;
    Token& operator=(Token&&) = delete;
    ~Token() { --*m_pAlive; }

private:
    std::atomic<int>* m_pAlive;
};

/// A pool of the application's own, which has no task.
class EmptyTaskPool final : public ITnRobotTaskPool {
public:
    bool CreateTask(ITnRobotTaskRunner* /*pRunner*/, ITnRobotTask** ppTask) override {
        *ppTask = nullptr;
        return false;
    }
    bool CreateTask(const std::function<void(ITnRobotEvent*)>& /*job*/) override { return false; }
    unsigned int GetTaskCount() override { return 0; }
};

/// A pool of the application's own in front of another one: it has a number of tasks and no more.
class ShortTaskPool final : public ITnRobotTaskPool {
public:
    ShortTaskPool(ITnRobotTaskPool& pool, int nTasks) : m_pool(pool), m_nLeft(nTasks) {}

    bool CreateTask(ITnRobotTaskRunner* pRunner, ITnRobotTask** ppTask) override {
        *ppTask = nullptr;
        return m_nLeft-- > 0 && m_pool.CreateTask(pRunner, ppTask);
    }
    bool CreateTask(const std::function<void(ITnRobotEvent*)>& job) override { return m_pool.CreateTask(job); }
    unsigned int GetTaskCount() override { return m_pool.GetTaskCount(); }

private:
    ITnRobotTaskPool& m_pool;
    std::atomic<int> m_nLeft;
};

/// A pool of the application's own in front of another one, which remembers the runners of its tasks.
class WitnessPool final : public ITnRobotTaskPool {
public:
    explicit WitnessPool(ITnRobotTaskPool& pool) : m_pool(pool) {}

    bool CreateTask(ITnRobotTaskRunner* pRunner, ITnRobotTask** ppTask) override {
        if (pRunner != nullptr) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_runners.push_back(tn::Retain(pRunner));
        }
        return m_pool.CreateTask(pRunner, ppTask);
    }
    bool CreateTask(const std::function<void(ITnRobotEvent*)>& job) override { return m_pool.CreateTask(job); }
    unsigned int GetTaskCount() override { return m_pool.GetTaskCount(); }

    std::vector<TnRobotPtr<ITnRobotTaskRunner>> Runners() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_runners;
    }

private:
    ITnRobotTaskPool& m_pool;
    mutable std::mutex m_mutex;
    std::vector<TnRobotPtr<ITnRobotTaskRunner>> m_runners;  // guarded by m_mutex
};

/// A pool of the application's own in front of another one, whose workers come to a gate when their job has
/// returned: their tasks are on the way back for as long as a test likes.
class LateReturnPool final : public ITnRobotTaskPool {
public:
    LateReturnPool(ITnRobotTaskPool& pool, Gate& gate) : m_pool(pool), m_gate(gate) {}

    bool CreateTask(ITnRobotTaskRunner* pRunner, ITnRobotTask** ppTask) override {
        if (pRunner == nullptr) {
            return m_pool.CreateTask(nullptr, ppTask);
        }
        return m_pool.CreateTask(tn::MakeObject<LateRunner>(*pRunner, m_gate, m_nRunners).get(), ppTask);
    }
    bool CreateTask(const std::function<void(ITnRobotEvent*)>& job) override { return m_pool.CreateTask(job); }
    unsigned int GetTaskCount() override {
        ++m_nLooks;
        return m_pool.GetTaskCount();
    }

    /// @return runners that a task still has.
    int Runners() const { return m_nRunners; }
    /// @return how often somebody has asked for idle tasks.
    int Looks() const { return m_nLooks; }

private:
    class LateRunner final : public ITnRobotTaskRunner {
    public:
        LateRunner(ITnRobotTaskRunner& runner, Gate& gate, std::atomic<int>& nRunners)
            : m_runner(tn::Retain(&runner)), m_gate(gate), m_token(nRunners) {}

        void Init() override { m_runner->Init(); }
        void Execute(ITnRobotEvent* pRunEvent) override {
            m_runner->Execute(pRunEvent);
            m_gate.Pass();
        }
        void ClearResource() override { m_runner->ClearResource(); }
        bool IsStop() override { return m_runner->IsStop(); }
        void Copy(ITnRobotTaskRunner* /*pRunner*/) override {}
        ITnRobotTaskRunner* Clone() override { return nullptr; }

    private:
        const TnRobotPtr<ITnRobotTaskRunner> m_runner;
        Gate& m_gate;
        const Token m_token;
    };

    ITnRobotTaskPool& m_pool;
    Gate& m_gate;
    std::atomic<int> m_nRunners{0};
    std::atomic<int> m_nLooks{0};
};

/// A pool of the application's own that has no task either; whoever asks first hears it when a gate opens.
class LatePool final : public ITnRobotTaskPool {
public:
    explicit LatePool(Gate& gate) : m_gate(gate) {}

    bool CreateTask(ITnRobotTaskRunner* /*pRunner*/, ITnRobotTask** ppTask) override {
        *ppTask = nullptr;
        if (m_bFirst.exchange(false)) {
            m_gate.Pass();
        }
        return false;
    }
    bool CreateTask(const std::function<void(ITnRobotEvent*)>& /*job*/) override { return false; }
    unsigned int GetTaskCount() override { return 0; }

private:
    Gate& m_gate;
    std::atomic<bool> m_bFirst{true};
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_TN_WORKTEST_H_
