#include "TnRobotKernel/tn/run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>

#include "TnRobotKernel/tn/work_queue.h"
#include "support/threads/StartGate.h"
#include "tn/WorkTest.h"

using namespace tntest;

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

namespace {

class MakeRunner : public WorkTest {};
class Run : public WorkTest {
protected:
    // As many jobs at a gate as run at the same time.
    std::vector<tn::JobHandle> KeepAllBusy(Gate& gate) {
        std::vector<tn::JobHandle> handles;
        for (unsigned int n = 0; n < Most(); ++n) {
            handles.push_back(tn::Run(Pool(), [&gate] { gate.Pass(); }));
        }
        gate.AwaitArrival(static_cast<int>(Most()));
        return handles;
    }

    static unsigned int Most() { return std::max(tn::detail::kFewestRuns, tn::detail::Processors()); }
};

}  // namespace

TEST_F(MakeRunner, CallsTheJobOnceForEachStart) {
    std::atomic<int> nCalls{0};
    const auto runner = tn::MakeRunner([&nCalls] { ++nCalls; });
    const auto task = tn::CreateTask(Pool(), runner.get());
    ASSERT_TRUE(task->Start());
    ASSERT_TRUE(Eventually([&] { return !task->IsRunning(); }));
    EXPECT_EQ(nCalls, 1);
    ASSERT_TRUE(task->Start());
    ASSERT_TRUE(Eventually([&] { return !task->IsRunning(); }));
    EXPECT_EQ(nCalls, 2);
}

TEST_F(MakeRunner, GivesTheJobTheEventOfItsTask) {
    Gate begun;
    std::atomic<bool> bStopped{false};
    const auto runner = tn::MakeRunner([&](ITnRobotEvent* pRunEvent) {
        begun.Pass();
        while (pRunEvent->WaitEvent(0)) {
            std::this_thread::yield();
        }
        bStopped = true;
    });
    begun.Open();
    const auto task = tn::CreateTask(Pool(), runner.get());
    ASSERT_TRUE(task->Start());
    begun.AwaitArrival();
    task->Stop();
    EXPECT_TRUE(bStopped);
}

TEST_F(MakeRunner, TakesJobsThatCannotBeCopied) {
    std::atomic<int> nSum{0};
    const auto runner = tn::MakeRunner([number = std::make_unique<int>(7), &nSum] { nSum += *number; });
    const auto task = tn::CreateTask(Pool(), runner.get());
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(Eventually([&] { return nSum == 7; }));
}

TEST_F(MakeRunner, ClonesAndCopiesShareTheJob) {
    int nCalls = 0;
    const auto runner = tn::MakeRunner([&nCalls] { ++nCalls; });
    const auto clone = tn::Adopt(runner->Clone());
    const auto other = tn::MakeRunner([] { FAIL() << "this job was replaced"; });
    other->Copy(runner.get());
    other->Copy(nullptr);
    for (const auto& each : {runner, clone, other}) {
        each->Init();
        EXPECT_FALSE(each->IsStop());
        each->Execute(nullptr);
        EXPECT_TRUE(each->IsStop());
        each->ClearResource();
    }
    EXPECT_EQ(nCalls, 3);
}

TEST_F(MakeRunner, GivesNoRunnerForAJobThatIsNone) {
    EXPECT_FALSE(tn::MakeRunner(std::function<void()>()));
    EXPECT_FALSE(tn::MakeRunner(static_cast<void (*)()>(nullptr)));
}

using MakeRunnerDeathTest = MakeRunner;

TEST_F(MakeRunnerDeathTest, EndsTheProcessWhenTheJobThrows) {
    EndPool();
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto runner = tn::MakeRunner([] { throw Trouble(1); });
    EXPECT_DEATH(runner->Execute(nullptr), "");
}

TEST_F(Run, DoesTheJobOnAnotherThreadAndLetsOneWait) {
    std::thread::id thread;
    auto handle = tn::Run(Pool(), [&thread] { thread = std::this_thread::get_id(); });
    EXPECT_TRUE(handle);
    EXPECT_TRUE(handle.Wait());
    EXPECT_TRUE(handle.IsOver());
    EXPECT_NE(thread, std::thread::id());
    EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(Run, ThrowsWhatTheJobHasThrownEachTimeItIsWaitedFor) {
    auto handle = tn::Run(Pool(), [] { throw Trouble(5); });
    for (int n = 0; n < 2; ++n) {
        try {
            handle.Wait();
            FAIL() << "nothing was thrown";
        } catch (const Trouble& trouble) {
            EXPECT_EQ(trouble.m_nNumber, 5);
        }
    }
    std::error_code ec;
    EXPECT_THROW(handle.Wait(10s, ec), Trouble);
    EXPECT_FALSE(ec);
}

TEST_F(Run, DeliversThatAnEmptyFunctionCannotBeCalled) {
    auto handle = tn::Run(Pool(), std::function<void()>());
    EXPECT_THROW(handle.Wait(), std::bad_function_call);
}

TEST_F(Run, TellsWhenATimeLimitPassesAndGoesOn) {
    Gate gate;
    auto handle = tn::Run(Pool(), [&gate] { gate.Pass(); });
    const OpenAtEnd open(gate);
    gate.AwaitArrival();
    for (const std::chrono::milliseconds limit : {0ms, -5ms, std::chrono::milliseconds::min(), 3ms}) {
        std::error_code ec;
        EXPECT_FALSE(handle.Wait(limit, ec));
        EXPECT_EQ(ec, std::errc::timed_out);
    }
    EXPECT_FALSE(handle.IsOver());
    gate.Open();
    EXPECT_TRUE(handle.Wait(60s));
}

TEST_F(Run, TellsTheJobThatItIsCancelled) {
    Gate begun;
    begun.Open();
    std::atomic<bool> bHeard{false};
    auto handle = tn::Run(Pool(), [&](const tn::CancelToken& token) {
        EXPECT_FALSE(token.IsCancelled());
        EXPECT_FALSE(token.WaitFor(1ms));
        begun.Pass();
        bHeard = token.WaitFor(tn::kNoLimit) && token.IsCancelled();
    });
    begun.AwaitArrival();
    handle.Cancel();
    EXPECT_TRUE(handle.Wait());
    EXPECT_TRUE(bHeard);
}

TEST_F(Run, NeverBeginsAJobThatWasCancelledInTime) {
    Gate gate;
    const OpenAtEnd open(gate);
    std::atomic<int> nAlive{0};
    const std::vector<tn::JobHandle> busy = KeepAllBusy(gate);
    auto handle = tn::Run(Pool(), [token = Token(nAlive)] { FAIL() << "the job was cancelled"; });
    EXPECT_EQ(nAlive, 1);
    handle.Cancel();
    EXPECT_EQ(nAlive, 0);  // what it holds goes at once
    EXPECT_TRUE(handle.IsOver());
    std::error_code ec;
    EXPECT_FALSE(handle.Wait(tn::kNoLimit, ec));
    EXPECT_EQ(ec, std::errc::operation_canceled);
    gate.Open();
}

// All of it, not only what the jobs hold: nobody comes by to take the jobs away before a worker is free.
TEST_F(Run, CancelledJobsLeaveNothingWaiting) {
    constexpr int kJobs = 1000;
    Gate gate;
    const OpenAtEnd open(gate);
    const std::vector<tn::JobHandle> busy = KeepAllBusy(gate);
    std::vector<std::shared_ptr<tn::detail::RunState>> states;
    std::vector<std::weak_ptr<tn::detail::RunState>> left;
    const auto crew = tn::detail::CrewRegistry::Here().CrewOf(Pool());
    for (int n = 0; n < kJobs; ++n) {
        states.push_back(std::make_shared<tn::detail::RunState>([](const tn::CancelToken&) {}));
        left.push_back(states.back());
        states.back()->SetCrew(crew);
        crew->Post(Pool(), states.back(), Most());
    }
    for (auto& state : states) {
        state->Cancel();
        state.reset();
    }
    EXPECT_EQ(std::count_if(left.begin(), left.end(), [](const auto& state) { return !state.expired(); }), 0);
    gate.Open();
}

TEST_F(Run, CancelsAndWaitsWhenTheHandleGoes) {
    Gate begun;
    begun.Open();
    std::atomic<bool> bEnded{false};
    {
        const auto handle = tn::Run(Pool(), [&](const tn::CancelToken& token) {
            begun.Pass();
            while (!token.IsCancelled()) {
                std::this_thread::yield();
            }
            bEnded = true;
        });
        begun.AwaitArrival();
    }
    EXPECT_TRUE(bEnded);
}

TEST_F(Run, AHandleThatIsAssignedEndsTheJobThatItHad) {
    std::atomic<int> nEnded{0};
    const auto untilCancelled = [&nEnded](const tn::CancelToken& token) {
        EXPECT_TRUE(token.WaitFor(tn::kNoLimit));
        ++nEnded;
    };
    Gate begun;
    begun.Open();
    auto handle = tn::Run(Pool(), [&](const tn::CancelToken& token) {
        begun.Pass();
        untilCancelled(token);
    });
    begun.AwaitArrival();
    handle = tn::Run(Pool(), [] {});
    EXPECT_EQ(nEnded, 1);
    EXPECT_TRUE(handle.Wait());
    tn::JobHandle& same = handle;
    handle = std::move(same);
    EXPECT_TRUE(handle);
}

TEST_F(Run, AHandleOfNoJobIsOver) {
    tn::JobHandle handle;
    EXPECT_FALSE(handle);
    EXPECT_TRUE(handle.IsOver());
    EXPECT_TRUE(handle.Wait());
    handle.Cancel();
}

TEST_F(Run, WhatTheJobHoldsIsGoneWhenItIsOver) {
    std::atomic<int> nAlive{0};
    auto handle = tn::Run(Pool(), [token = Token(nAlive)] {});
    EXPECT_TRUE(handle.Wait());
    EXPECT_EQ(nAlive, 0);
}

TEST_F(Run, AJobThatWaitsForItselfIsTold) {
    tn::JobHandle handle;
    Gate stored;
    std::error_code ec;
    handle = tn::Run(Pool(), [&] {
        stored.Pass();
        EXPECT_FALSE(handle.Wait(10s, ec));
    });
    stored.Open();
    while (!handle.IsOver()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(ec, std::errc::resource_deadlock_would_occur);
}

TEST_F(Run, AJobMayDropItsOwnHandle) {
    auto handle = std::make_unique<tn::JobHandle>();
    Gate stored;
    const OpenAtEnd open(stored);
    std::atomic<bool> bDone{false};
    *handle = tn::Run(Pool(), [&](const tn::CancelToken& token) {
        stored.Pass();
        handle.reset();
        EXPECT_TRUE(token.IsCancelled());
        bDone = true;
    });
    stored.Open();
    EXPECT_TRUE(Eventually([&] { return bDone.load(); }));
}

TEST_F(Run, JobsMayWaitForJobsThatHaveNoWorkerLeft) {
    const unsigned int nJobs = 2 * Most();
    StartGate allBegun(static_cast<int>(Most()));
    std::atomic<unsigned int> nInner{0};
    std::atomic<unsigned int> nOuter{0};
    std::vector<tn::JobHandle> handles;
    for (unsigned int n = 0; n < nJobs; ++n) {
        const bool bFirst = n < Most();
        handles.push_back(tn::Run(Pool(), [&, bFirst] {
            if (bFirst) {
                allBegun.ArriveAndWait();  // now no worker is free
            }
            auto inner = tn::Run(Pool(), [&nInner] { ++nInner; });
            inner.Wait();
            ++nOuter;
        }));
    }
    for (tn::JobHandle& handle : handles) {
        EXPECT_TRUE(handle.Wait());
    }
    EXPECT_EQ(nOuter, nJobs);
    EXPECT_EQ(nInner, nJobs);
}

TEST_F(Run, ABurstLeavesNoMoreTasksThanRunAtTheSameTime) {
    std::vector<tn::JobHandle> handles;
    std::atomic<unsigned int> nDone{0};
    std::atomic<unsigned int> nNow{0};
    std::atomic<unsigned int> nMostNow{0};
    for (int n = 0; n < 300; ++n) {
        handles.push_back(tn::Run(Pool(), [&] {
            const unsigned int nTogether = ++nNow;
            unsigned int nSeen = nMostNow;
            while (nSeen < nTogether && !nMostNow.compare_exchange_weak(nSeen, nTogether)) {
            }
            ++nDone;
            --nNow;
        }));
    }
    for (tn::JobHandle& handle : handles) {
        handle.Wait();
    }
    EXPECT_EQ(nDone, 300U);
    EXPECT_LE(nMostNow, Most());
    tn::GiveBackTasks(Pool());
    EXPECT_LE(Pool().GetTaskCount(), Most());
    EXPECT_GT(Pool().GetTaskCount(), 0U);
}

TEST_F(Run, TasksGoBackByThemselvesAfterAWhile) {
    tn::Run(Pool(), [] {}).Wait();
    EXPECT_TRUE(Eventually([this] { return Pool().GetTaskCount() == 1; }));
}

TEST_F(Run, TheNextJobFindsTheTaskOfTheLastOne) {
    std::set<std::thread::id> threads;
    for (int n = 0; n < 20; ++n) {
        tn::Run(Pool(), [&threads] { threads.insert(std::this_thread::get_id()); }).Wait();
    }
    EXPECT_LE(threads.size(), Most());
    tn::GiveBackTasks(Pool());
    EXPECT_LE(Pool().GetTaskCount(), Most());
}

// Their code may be in a library that is unloaded next.
TEST_F(Run, TasksThatWereGivenBackKeepNoRunner) {
    const auto pool = tn::MakeObject<WitnessPool>(Pool());
    {
        Gate gate;
        auto handle = tn::Run(*pool, [&gate] { gate.Pass(); });  // or the queue might get its task
        const OpenAtEnd open(gate);
        tn::WorkQueue<int> queue(*pool, [](int) {}, {3, 3, {}});
        EXPECT_TRUE(queue.Push(1));
        EXPECT_TRUE(queue.Finish());
        gate.Open();
        EXPECT_TRUE(handle.Wait());
    }
    tn::GiveBackTasks(*pool);
    const unsigned int nTasks = Pool().GetTaskCount();
    EXPECT_EQ(nTasks, 4U);
    const auto runners = pool->Runners();
    EXPECT_EQ(runners.size(), 4U);
    for (const auto& runner : runners) {
        runner->AddRef();
        EXPECT_EQ(runner->Release(), 2);  // those of the witness and of the copy here
    }
    tn::GiveBackTasks(*pool);
    EXPECT_EQ(Pool().GetTaskCount(), nTasks);
}

// It has left its crew by itself, where nobody finds it any more, and its task is not back yet.
TEST_F(Run, GivingBackWaitsForAWorkerThatIsJustLeaving) {
    Gate job;
    Gate back;
    const auto pool = tn::MakeObject<LateReturnPool>(Pool(), back);
    const OpenAtEnd openBack(back);
    auto handle = tn::Run(*pool, [&job] { job.Pass(); });
    const OpenAtEnd openJob(job);
    job.AwaitArrival();
    tn::GiveBackTasks(*pool);  // it is at work, and leaves as soon as it is done
    job.Open();
    EXPECT_TRUE(handle.Wait());
    back.AwaitArrival();

    const int nLooksBefore = pool->Looks();
    Caller caller([&pool] {
        tn::GiveBackTasks(*pool);
        EXPECT_EQ(pool->Runners(), 0);
    });
    EXPECT_TRUE(Eventually([&] { return pool->Looks() >= nLooksBefore + 5 || caller.Returned(); }));
    EXPECT_FALSE(caller.Returned());
    back.Open();
    EXPECT_TRUE(caller.AwaitReturn());
    caller.Join();
    EXPECT_EQ(Pool().GetTaskCount(), 1U);
}

TEST_F(Run, JobsGoOnWhenThePoolGoesFirst) {
    Gate gate;
    auto handle = tn::Run(Pool(), [&gate] { gate.Pass(); });
    gate.AwaitArrival();
    m_pool.reset();
    EXPECT_FALSE(handle.IsOver());
    gate.Open();
    EXPECT_TRUE(handle.Wait());  // and the thread goes by itself
}

TEST_F(Run, WaitsForATurnWhereThePoolHasNoMoreTasks) {
    const auto pool = tn::MakeObject<ShortTaskPool>(Pool(), 1);
    Gate gate;  // keeps the task from going back by itself
    std::atomic<int> nDone{0};
    std::vector<tn::JobHandle> handles;
    const OpenAtEnd open(gate);
    for (int n = 0; n < 10; ++n) {
        handles.push_back(tn::Run(*pool, [&] {
            gate.Pass();
            ++nDone;
        }));
    }
    gate.Open();
    for (tn::JobHandle& handle : handles) {
        EXPECT_TRUE(handle.Wait());
    }
    EXPECT_EQ(nDone, 10);
    tn::GiveBackTasks(*pool);
}

TEST_F(Run, ThrowsWhereThePoolHasNoTask) {
    const auto pool = tn::MakeObject<EmptyTaskPool>();
    std::atomic<int> nAlive{0};
    try {
        const auto handle = tn::Run(*pool, [token = Token(nAlive)] { FAIL() << "there is no task"; });
        FAIL() << "nothing was thrown";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
    }
    EXPECT_EQ(nAlive, 0);
}

// Whoever cannot start a worker, and finds another thread starting one, must not rely on it: that start may
// fail too, and then the job would wait for nobody.
TEST_F(Run, ThrowsWhereTheStartItHopedForFailsToo) {
    Gate gate;
    const OpenAtEnd open(gate);
    const auto pool = tn::MakeObject<LatePool>(gate);
    const auto run = [&pool] {
        try {
            EXPECT_TRUE(tn::Run(*pool, [] {}).Wait(10s));
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
        }
    };
    Caller first(run);
    gate.AwaitArrival();
    Caller second(run);
    EXPECT_TRUE(second.AwaitBlocked());
    gate.Open();
    for (Caller* pCaller : {&first, &second}) {
        EXPECT_TRUE(pCaller->AwaitReturn());
        pCaller->Join();
    }
}

TEST_F(Run, SurvivesManyCallersThatCancelThrowAndDrop) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 60;
    std::atomic<int> nAlive{0};
    StartGate gate(kThreads);
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < kThreads; ++nThread) {
        threads.emplace_back([&, nThread] {
            gate.ArriveAndWait();
            for (int n = 0; n < kRounds; ++n) {
                auto handle = tn::Run(Pool(), [token = Token(nAlive), n](const tn::CancelToken& cancel) {
                    if (n % 3 == 0) {
                        throw Trouble(n);
                    }
                    while (n % 3 == 1 && !cancel.IsCancelled()) {
                        std::this_thread::yield();
                    }
                });
                if ((n + nThread) % 4 == 0) {
                    tn::GiveBackTasks(Pool());
                }
                if (n % 3 == 1) {
                    handle.Cancel();
                } else if (n % 3 == 0) {
                    EXPECT_THROW(handle.Wait(), Trouble);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(nAlive, 0);
}
