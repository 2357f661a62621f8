// A runner that writes down how it is called, for tests of tasks.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_FAKES_RECORDINGRUNNER_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_FAKES_RECORDINGRUNNER_H_

#include <atomic>
#include <functional>
#include <mutex>
#include <string>

#include "TnRobotKernel/concurrency.h"
#include "TnRobotKernel/ptr.h"
#include "support/threads/ThreadProbe.h"

namespace tntest {

/// One letter per call, in the order of the calls:
///   I Init, n IsStop answering no, E Execute, y IsStop answering yes, C ClearResource,
///   N a notice that the runner is done, R the task given back to its parent.
/// How often a runner that is done is asked again is a matter of time, so only the first "y" of a
/// row is written down, notices not counted.
class CallLog {
public:
    void Add(char cCall) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (cCall != 'y' || !m_bInDoneRow) {
            m_calls += cCall;
        }
        m_nDoneAnswers += cCall == 'y' ? 1 : 0;
        m_bInDoneRow = cCall == 'y' || (cCall == 'N' && m_bInDoneRow);
    }

    std::string Calls() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls;
    }

    int Count(char cCall) const {
        int nCalls = 0;
        for (const char c : Calls()) {
            nCalls += c == cCall ? 1 : 0;
        }
        return nCalls;
    }

    /// @return how often IsStop has answered yes, repetitions included.
    int DoneAnswers() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_nDoneAnswers;
    }

private:
    mutable std::mutex m_mutex;
    std::string m_calls;        // guarded by m_mutex
    bool m_bInDoneRow = false;  // guarded by m_mutex
    int m_nDoneAnswers = 0;     // guarded by m_mutex
};

/// Does what its functions say; done at once when it has none. Set them before the task starts.
class RecordingRunner final : public ITnRobotTaskRunner {
public:
    static TnRobotPtr<RecordingRunner> Create() { return tn::Adopt(new RecordingRunner); }

    /// @return runners alive.
    static int Alive() { return s_nAlive; }

    ~RecordingRunner() override { --s_nAlive; }

    void Init() override {
        m_nThread = ThisThreadNumber();
        m_log.Add('I');
        Call(m_onInit);
    }
    void Execute(ITnRobotEvent* pRunEvent) override {
        m_pRunEvent = pRunEvent;
        CheckThread();
        m_log.Add('E');
        if (m_onExecute) {
            m_onExecute(pRunEvent);
        }
    }
    void ClearResource() override {
        CheckThread();
        m_log.Add('C');
        Call(m_onClear);
    }
    bool IsStop() override {
        CheckThread();
        const bool bStop = !m_isStop || m_isStop();
        m_log.Add(bStop ? 'y' : 'n');
        return bStop;
    }
    void Copy(ITnRobotTaskRunner* /*pRunner*/) override {}
    ITnRobotTaskRunner* Clone() override { return nullptr; }

    /// Makes it done after so many executions of each run.
    void RunTimes(int nTimes) {
        m_onInit = [this] { m_nExecuted = 0; };
        m_onExecute = [this](ITnRobotEvent*) { ++m_nExecuted; };
        m_isStop = [this, nTimes] { return m_nExecuted >= nTimes; };
    }

    /// @return the event of the latest Execute, null before the first.
    ITnRobotEvent* RunEvent() const { return m_pRunEvent; }

    /// @return the thread of the latest Init.
    int ThreadNumber() const { return m_nThread; }

    /// @return whether a call came on another thread than its run's Init.
    bool HasChangedThreads() const { return m_bChangedThreads; }

    std::string Calls() const { return m_log.Calls(); }
    CallLog& Log() { return m_log; }

    std::function<void()> m_onInit;
    std::function<void(ITnRobotEvent*)> m_onExecute;
    std::function<void()> m_onClear;
    std::function<bool()> m_isStop;

private:
    RecordingRunner() { ++s_nAlive; }

    static void Call(const std::function<void()>& function) {
        if (function) {
            function();
        }
    }
    void CheckThread() {
        if (m_nThread != ThisThreadNumber()) {
            m_bChangedThreads = true;
        }
    }

    inline static std::atomic<int> s_nAlive{0};

    CallLog m_log;
    int m_nExecuted = 0;  // the task's thread alone
    std::atomic<ITnRobotEvent*> m_pRunEvent{nullptr};
    std::atomic<int> m_nThread{0};
    std::atomic<bool> m_bChangedThreads{false};
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_FAKES_RECORDINGRUNNER_H_
