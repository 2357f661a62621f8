// Task and thread objects that are destroyed on their own thread: what an application may do as soon as it has seen
// the last of them, and who waits for whom.

#include "concurrency/TnWorker.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "TnRobotKernel/make.h"
#include "TnRobotKernel/ptr.h"
#include "support/fakes/RecordingRunner.h"
#include "support/processes/ResourceUse.h"
#include "support/threads/Gate.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

namespace {

using Function = std::function<void()>;

class AtEnd {
public:
    explicit AtEnd(Function function) : m_function(std::move(function)) {}
    AtEnd(const AtEnd&) = delete;
    AtEnd& operator=(const AtEnd&) = delete;
    ~AtEnd() { m_function(); }

private:
    Function m_function;
};

// A task without a pool runs job once, whose end releases it. Then its runner goes, and with it what calls atEnd.
void AbandonTask(const Function& job, const Function& atEnd) {
    const auto released = std::make_shared<Gate>();
    const TnRobotPtr<RecordingRunner> runner = RecordingRunner::Create();
    TnRobotPtr<ITnRobotTask> task = tn::CreateTask(*tn::MakeTaskPool(), runner.get());
    runner->m_isStop = [] { return false; };
    runner->m_onExecute = [pTask = task.get(), job, released, token = std::make_shared<AtEnd>(atEnd)](ITnRobotEvent*) {
        released->Pass();
        job();
        pTask->Release();
    };
    EXPECT_TRUE(task->Start());
    static_cast<void>(task.detach());
    released->Open();
}

void AbandonThread(const Function& job, const Function& atEnd) {
    const auto released = std::make_shared<Gate>();
    ITnRobotThread* const pThread = tn::MakeThread().detach();
    pThread->SetWorkJob([pThread, job, released, token = std::make_shared<AtEnd>(atEnd)](ITnRobotEvent*) {
        released->Pass();
        job();
        pThread->Release();
    });
    EXPECT_TRUE(pThread->Run());
    released->Open();
}

using Abandon = void (*)(const Function& job, const Function& atEnd);

class Worker : public ThreadTest, public testing::WithParamInterface<Abandon> {
protected:
    void AbandonOne(const Function& atEnd) {
        GetParam()([] {}, atEnd);
    }

    void TearDown() override {
        tnrobot::Worker::JoinLeft();
        EXPECT_EQ(RecordingRunner::Alive(), 0);
        ThreadTest::TearDown();
    }
};

// Long enough for whoever does not wait.
bool StaysFalse(const std::atomic<bool>& bValue) {
    for (int i = 0; i < 100 && !bValue; ++i) {
        std::this_thread::sleep_for(Milliseconds(1));
    }
    return !bValue;
}

std::string NameOf(const testing::TestParamInfo<Abandon>& each) {
    return each.param == AbandonTask ? "Task" : "Thread";
}

class WorkerEnd : public ThreadTest {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Objects, Worker, testing::Values(AbandonTask, AbandonThread), NameOf);

TEST_P(Worker, IsWaitedForByTheEndOfTheLibrary) {
    std::thread library;
    std::atomic<bool> bUnloaded{false};
    std::atomic<bool> bWaited{false};
    std::atomic<bool> bOver{false};
    AbandonOne([&] {
        library = std::thread([&] {
            tnrobot::Worker::JoinLeft(std::chrono::minutes(1));
            bUnloaded = true;
        });
        bWaited = StaysFalse(bUnloaded);
        bOver = true;
    });
    ASSERT_TRUE(Eventually([&] { return bOver.load(); }));
    library.join();
    EXPECT_TRUE(bWaited);
}

// While one is waited for another comes, and the first one's end has seen that one's begin.
TEST_P(Worker, IsWaitedForWhenItComesDuringTheEndOfTheLibrary) {
    Gate first;
    Gate second;
    std::atomic<bool> bOver{false};
    AbandonOne([&] {
        first.Pass();
        AbandonOne([&] {
            second.Open();
            StaysFalse(bOver);
            bOver = true;
        });
        second.Pass();
    });
    first.AwaitArrival();
    first.Open();
    tnrobot::Worker::JoinLeft(std::chrono::minutes(1));
    EXPECT_TRUE(bOver);
}

TEST_P(Worker, KeepsTheEndOfTheLibraryForALimitedTime) {
    const auto gone = std::make_shared<Gate>();  // the worker passes it after the test
    const OpenAtEnd atEnd(*gone);
    AbandonOne([gone] { gone->Pass(); });
    gone->AwaitArrival();
    tnrobot::Worker::JoinLeft(std::chrono::milliseconds(20));
    EXPECT_EQ(NewThreads(), 1) << "it is still there, and was left alone";
}

// What a thread has for itself goes when the library has done with it; so nothing of the library's may wait then.
TEST_P(Worker, EndsWhileAnotherIsStillGoing) {
    std::atomic<bool> bEnded{false};
    std::atomic<bool> bSeen{false};
    std::atomic<bool> bOver{false};
    Gate going;
    AbandonOne([&] {
        going.Pass();
        bSeen = Eventually([&bEnded] { return bEnded.load(); });
        bOver = true;
    });
    going.AwaitArrival();
    GetParam()([&bEnded] { thread_local const AtEnd t_end([&bEnded] { bEnded = true; }); }, [] {});
    going.Open();
    EXPECT_TRUE(Eventually([&bOver] { return bOver.load(); }));
    EXPECT_TRUE(bSeen);
}

TEST_P(Worker, LeavesNoThreadsBehindWhileAnotherIsStillGoing) {
    const auto gone = std::make_shared<Gate>();  // the worker passes it after the test
    const OpenAtEnd atEnd(*gone);
    AbandonOne([gone] { gone->Pass(); });
    gone->AwaitArrival();
    for (int i = 0; i < 20; ++i) {
        std::atomic<bool> bOver{false};
        AbandonOne([&bOver] { bOver = true; });
        ASSERT_TRUE(Eventually([&bOver] { return bOver.load(); }));
        EXPECT_TRUE(AwaitNewThreads(1)) << i;
    }
}

// An ended thread keeps its stack until it is joined.
TEST_P(Worker, IsJoinedByThoseThatComeLater) {
    constexpr int kWorkers = 200;
    constexpr long long kStack = 8LL << 20U;
    const long long nGrowth = PeakGrowth([this] {
        for (int i = 0; i < kWorkers; ++i) {
            std::atomic<bool> bOver{false};
            AbandonOne([&bOver] { bOver = true; });
            EXPECT_TRUE(Eventually([&bOver] { return bOver.load(); }));
        }
    });
    EXPECT_GE(nGrowth, 0);
    EXPECT_LT(nGrowth, kWorkers / 2 * kStack);
}

// On a worker that has destroyed its own thread object another one may come to lie in the same place.
TEST_F(WorkerEnd, AnObjectInThePlaceOfAWorkersOwnRuns) {
    std::atomic<int> nRan{0};
    std::atomic<bool> bOver{false};
    const auto useOthers = [&] {
        std::array<TnRobotPtr<ITnRobotThread>, 8> others;
        for (auto& other : others) {
            other = tn::MakeThread();
        }
        for (const auto& other : others) {
            std::atomic<bool> bRan{false};
            other->SetWorkJob([&bRan](ITnRobotEvent*) { bRan = true; });
            other->Run();
            nRan += Eventually([&bRan] { return bRan.load(); }) ? 1 : 0;
            other->SetWorkJob([](ITnRobotEvent*) {});
            if (bRan) {
                other->Stop();
            }
        }
        bOver = true;
    };
    AbandonThread([&useOthers] { thread_local const AtEnd t_end(useOthers); }, [] {});
    ASSERT_TRUE(Eventually([&bOver] { return bOver.load(); }));
    EXPECT_EQ(nRan, 8);
    tnrobot::Worker::JoinLeft();
}
