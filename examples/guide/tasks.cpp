// Work in a task of a pool, which keeps its thread for the next one.

#include <TnRobotKernel/make.h>

#include <cstdio>
#include <thread>

namespace {

// [runner]
// Adds the numbers up to a limit, a piece at a time, and sets an event when it is done.
class SumRunner final : public ITnRobotTaskRunner {
public:
    SumRunner(int nLimit, ITnRobotEvent& done) : m_nLimit(nLimit), m_done(done) {}

    void Init() override {
        m_nNext = 1;
        m_nSum = 0;
    }
    void Execute(ITnRobotEvent* /*pRunEvent*/) override {  // again and again until IsStop
        m_thread = std::this_thread::get_id();
        for (int i = 0; i < 1000 && m_nNext <= m_nLimit; ++i) {
            m_nSum += m_nNext++;
        }
        if (IsStop()) {
            m_done.SetEvent();
        }
    }
    bool IsStop() override { return m_nNext > m_nLimit; }
    void ClearResource() override {}
    void Copy(ITnRobotTaskRunner* /*pRunner*/) override {}    // the library calls
    ITnRobotTaskRunner* Clone() override { return nullptr; }  // neither of these two

    long long Sum() const { return m_nSum; }
    std::thread::id Thread() const { return m_thread; }

private:
    const int m_nLimit;
    ITnRobotEvent& m_done;
    int m_nNext = 1;
    long long m_nSum = 0;
    std::thread::id m_thread;
};
// [/runner]

// [run]
// Runs a task to its end. Afterwards the runner belongs to the calling thread again.
bool Run(ITnRobotTask& task, ITnRobotEvent& done) {
    done.ResetEvent();
    if (!task.Start()) {
        return false;
    }
    while (!done.WaitEvent(1000)) {  // a wait may end early, so it is repeated
    }
    task.Stop();  // returns when Execute and ClearResource have
    return true;
}
// [/run]

}  // namespace

// [main]
int main() {
    const auto done = tn::MakeManualEvent(false);
    const auto pool = tn::MakeTaskPool();
    const auto runner = tn::MakeObject<SumRunner>(10000, *done);
    const auto task = tn::CreateTask(*pool, runner.get());
    if (!task || !Run(*task, *done)) {
        return 1;
    }
    std::printf("sum: %lld\n", runner->Sum());
    const std::thread::id first = runner->Thread();
    if (!Run(*task, *done)) {
        return 1;
    }
    std::printf("and again: %lld, by the same thread: %s\n", runner->Sum(), runner->Thread() == first ? "yes" : "no");
    return runner->Sum() == 50005000 ? 0 : 1;
}
// [/main]
