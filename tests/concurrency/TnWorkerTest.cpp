// What an application may do as soon as it has seen the last of a task or thread object: unload the library.

#include "concurrency/TnWorker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "TnRobotKernel/ptr.h"
#include "concurrency/TnRobotTask.h"
#include "support/fakes/RecordingRunner.h"
#include "support/threads/Gate.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

namespace {

class NoParent final : public ITnRobotTaskParent {
public:
    void RecoveryTask(ITnRobotTask* /*pTask*/) override {}
    void OnNotifyStop(ITnRobotTask* /*pTask*/) override {}
};

class Worker : public ThreadTest {
protected:
    /// @return what an application's job holds. It goes on the worker's thread, and then another thread does what
    ///         the library does when it is unloaded.
    std::shared_ptr<void> Token() {
        return {this, [](Worker* pTest) { pTest->UnloadMeanwhile(); }};
    }

    /// @return whether the end of the library waited for the thread that its last object was destroyed by.
    bool HasWaited() {
        EXPECT_TRUE(Eventually([this] { return m_bSeen.load(); }));
        m_library.join();
        return !m_bTooEarly;
    }

private:
    void UnloadMeanwhile() {
        m_library = std::thread([this] {
            tnrobot::Worker::JoinLast();
            m_bUnloaded = true;
        });
        for (int i = 0; i < 100 && !m_bUnloaded; ++i) {
            std::this_thread::sleep_for(Milliseconds(1));
        }
        m_bTooEarly = m_bUnloaded.load();
        m_bSeen = true;
    }

    std::thread m_library;
    std::atomic<bool> m_bUnloaded{false};
    std::atomic<bool> m_bTooEarly{false};
    std::atomic<bool> m_bSeen{false};
};

}  // namespace

TEST_F(Worker, IsWaitedForWhenTheRunnerOfATaskHasGone) {
    NoParent parent;
    CTnRobotTask* pTask = nullptr;
    ASSERT_EQ(CTnRobotTask::CreateInstance(&parent, &pTask), 1);
    pTask->FreeParent();
    Gate started;
    const OpenAtEnd atEnd(started);
    {
        const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
        runner->m_isStop = [] { return false; };
        runner->m_onExecute = [pTask, &started, token = Token()](ITnRobotEvent*) {
            started.Pass();
            EXPECT_EQ(pTask->Release(), 0);
        };
        ASSERT_TRUE(pTask->BindRunner(runner.get()));
    }
    ASSERT_TRUE(pTask->Start());
    started.Open();
    EXPECT_TRUE(HasWaited());
}

TEST_F(Worker, IsWaitedForWhenTheJobOfAThreadHasGone) {
    ITnRobotThread* pThread = nullptr;
    ASSERT_EQ(TnCreateRobotThread(&pThread), 1);
    Gate started;
    const OpenAtEnd atEnd(started);
    pThread->SetWorkJob([pThread, &started, token = Token()](ITnRobotEvent*) {
        started.Pass();
        pThread->Release();
    });
    ASSERT_TRUE(pThread->Run());
    started.Open();
    EXPECT_TRUE(HasWaited());
}
