#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "TnRobotKernel/ptr.h"
#include "support/threads/Gate.h"
#include "support/threads/SignalHold.h"
#include "support/threads/Storm.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

namespace {

using Job = std::function<void(ITnRobotEvent*)>;

TnRobotPtr<ITnRobotThread> MakeThread() {
    ITnRobotThread* pThread = nullptr;
    EXPECT_EQ(TnCreateRobotThread(&pThread), 1);
    return tn::Adopt(pThread);
}

// Declared before the thread object in each test, so that it outlives the job.
class PassCounter {
public:
    Job AsJob() {
        return [this](ITnRobotEvent*) { ++m_nPasses; };
    }
    int Passes() const { return m_nPasses; }
    bool AwaitMore(int nMore) const {
        const int nWanted = m_nPasses + nMore;
        return Eventually([this, nWanted] { return m_nPasses >= nWanted; });
    }

private:
    std::atomic<int> m_nPasses{0};
};

class Thread : public ThreadTest {};

// Waits that never end can only be seen in a process of its own, which leaves without them.
class ThreadDeathTest : public testing::Test {
protected:
    static void SetUpTestSuite() { testing::GTEST_FLAG(death_test_style) = "threadsafe"; }

    // Kills the process when the call is still blocked after a while; anything gentler would look
    // for the threads that are left.
    [[noreturn]] static void DieIfItBlocks(const std::function<void()>& call) {
        Caller caller(call);
        if (StaysTrue([&caller] { return !caller.Returned(); }, Milliseconds(200))) {
            kill(getpid(), SIGKILL);
        }
        _exit(1);
    }
};

}  // namespace

TEST_F(Thread, BelongsToItsCreator) {
    TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->AddRef();
    EXPECT_EQ(thread->Release(), 1);
    EXPECT_EQ(thread.detach()->Release(), 0);
}

TEST_F(Thread, DoesNotRunWithoutAJob) {
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    EXPECT_FALSE(thread->Run());
    EXPECT_EQ(NewThreads(), 0);
    EXPECT_TRUE(thread->SetWorkJob(Job()));
    EXPECT_FALSE(thread->Run());
    EXPECT_EQ(NewThreads(), 0);
}

TEST_F(Thread, HasNoThreadBeforeTheFirstRun) {
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    EXPECT_TRUE(thread->SetWorkJob([](ITnRobotEvent*) {}));
    EXPECT_EQ(NewThreads(), 0);
}

TEST_F(Thread, CallsItsJobOverAndOverOnOneThreadOfItsOwn) {
    PassCounter passes;
    std::atomic<int> nThread{0};
    std::atomic<bool> bOther{false};
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob([&](ITnRobotEvent* pEvent) {
        const int nThis = ThisThreadNumber();
        bOther = bOther || (nThread != 0 && nThread != nThis);
        nThread = nThis;
        passes.AsJob()(pEvent);
    });
    ASSERT_TRUE(thread->Run());
    EXPECT_TRUE(passes.AwaitMore(10));
    EXPECT_EQ(NewThreads(), 1);
    thread->Stop();
    ASSERT_TRUE(thread->Run());
    EXPECT_TRUE(passes.AwaitMore(3));
    EXPECT_EQ(NewThreads(), 1);
    thread->Stop();
    EXPECT_FALSE(bOther);
    EXPECT_NE(nThread, ThisThreadNumber());
}

// Between two passes the worker gives both of its events a millisecond.
TEST_F(Thread, DoesNotSpinBetweenPasses) {
    PassCounter passes;
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob(passes.AsJob());
    const Clock::time_point start = Clock::now();
    ASSERT_TRUE(thread->Run());
    EXPECT_TRUE(passes.AwaitMore(20));
    EXPECT_GT(MillisecondsSince(start), 20.0);
}

TEST_F(Thread, EveryRunAndStopCallsTheJobAtLeastOnce) {
    PassCounter passes;
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob(passes.AsJob());
    for (int n = 0; n < 30; ++n) {
        const int nBefore = passes.Passes();
        ASSERT_TRUE(thread->Run());
        thread->Stop();
        EXPECT_GT(passes.Passes(), nBefore);
    }
}

TEST_F(Thread, RunningARunningThreadChangesNothing) {
    PassCounter passes;
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob(passes.AsJob());
    for (int n = 0; n < 5; ++n) {
        ASSERT_TRUE(thread->Run());
    }
    EXPECT_TRUE(passes.AwaitMore(3));
    EXPECT_EQ(NewThreads(), 1);
}

TEST_F(Thread, StopReturnsAfterTheJobHas) {
    Gate gate;
    std::atomic<int> nReturned{0};
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    const OpenAtEnd atEnd(gate);
    thread->SetWorkJob([&](ITnRobotEvent*) {
        gate.Pass();
        ++nReturned;
    });
    ASSERT_TRUE(thread->Run());
    gate.AwaitArrival();
    Caller stopper([&thread] { thread->Stop(); });
    EXPECT_TRUE(StaysTrue([&stopper] { return !stopper.Returned(); }, Milliseconds(50)));
    EXPECT_EQ(nReturned, 0);
    gate.Open();
    stopper.Join();
    EXPECT_GE(nReturned, 1);
}

TEST_F(Thread, CallsNoJobWhilePaused) {
    PassCounter passes;
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob(passes.AsJob());
    ASSERT_TRUE(thread->Run());
    thread->Stop();
    const int nPaused = passes.Passes();
    EXPECT_TRUE(StaysTrue([&] { return passes.Passes() == nPaused; }, Milliseconds(50)));
    thread->Stop();  // a paused one is paused already
    EXPECT_EQ(passes.Passes(), nPaused);
    ASSERT_TRUE(thread->Run());
    EXPECT_TRUE(Eventually([&] { return passes.Passes() > nPaused; }));
}

TEST_F(Thread, TheJobSeesAPendingStop) {
    std::atomic<int> nPasses{0};
    std::atomic<bool> bResetAtFirst{false};
    std::set<ITnRobotEvent*> events;  // used by the job alone until the last Stop has returned
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob([&](ITnRobotEvent* pStop) {
        events.insert(pStop);
        bResetAtFirst = !pStop->WaitEvent(0);
        ++nPasses;
        while (!pStop->WaitEvent(1)) {
        }
    });
    for (int n = 1; n <= 3; ++n) {
        ASSERT_TRUE(thread->Run());
        EXPECT_TRUE(Eventually([&] { return nPasses == n; }));
        thread->Stop();
        EXPECT_TRUE(bResetAtFirst);
        EXPECT_EQ(nPasses, n);
    }
    EXPECT_EQ(events.size(), 1U);
    EXPECT_EQ(events.count(nullptr), 0U);
}

TEST_F(Thread, TakesAnotherJobWhilePaused) {
    PassCounter first;
    PassCounter second;
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    EXPECT_TRUE(thread->SetWorkJob(first.AsJob()));
    ASSERT_TRUE(thread->Run());
    thread->Stop();
    const int nFirst = first.Passes();
    EXPECT_TRUE(thread->SetWorkJob(second.AsJob()));
    ASSERT_TRUE(thread->Run());
    EXPECT_TRUE(second.AwaitMore(2));
    thread->Stop();
    EXPECT_EQ(first.Passes(), nFirst);
}

TEST_F(Thread, WithoutItsJobAPausedThreadStaysPaused) {
    PassCounter passes;
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob(passes.AsJob());
    ASSERT_TRUE(thread->Run());
    thread->Stop();
    const int nPaused = passes.Passes();
    EXPECT_TRUE(thread->SetWorkJob(Job()));
    EXPECT_FALSE(thread->Run());
    EXPECT_TRUE(StaysTrue([&] { return passes.Passes() == nPaused; }, Milliseconds(30)));
    EXPECT_TRUE(thread->SetWorkJob(passes.AsJob()));
    ASSERT_TRUE(thread->Run());
    EXPECT_TRUE(Eventually([&] { return passes.Passes() > nPaused; }));
}

TEST_F(Thread, KeepsACopyOfItsJobUntilAnotherComes) {
    auto first = std::make_shared<int>(1);
    auto second = std::make_shared<int>(2);
    TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob([first](ITnRobotEvent*) {});
    EXPECT_EQ(first.use_count(), 2);
    thread->SetWorkJob([second](ITnRobotEvent*) {});
    EXPECT_EQ(first.use_count(), 1);
    ASSERT_TRUE(thread->Run());
    thread.reset();
    EXPECT_EQ(second.use_count(), 1);
}

TEST_F(Thread, EveryExitCodeEndsTheThreadAlike) {
    for (const unsigned int nExitCode : {0U, 1U, 12345U, 0xFFFFFFFFU}) {
        for (const bool bPaused : {false, true}) {
            PassCounter passes;
            const TnRobotPtr<ITnRobotThread> thread = MakeThread();
            thread->SetWorkJob(passes.AsJob());
            ASSERT_TRUE(thread->Run());
            if (bPaused) {
                thread->Stop();
            }
            thread->Exit(nExitCode);
            const int nPasses = passes.Passes();
            EXPECT_GE(nPasses, 1);
            // The object is still there, its thread is not.
            EXPECT_TRUE(AwaitNewThreads(0));
            thread->Exit(nExitCode);
            EXPECT_EQ(passes.Passes(), nPasses);
        }
    }
}

// A job that only returns on its event would keep Exit waiting: Stop comes first.
TEST_F(Thread, ExitDoesNotSetTheStopEvent) {
    Gate gate;
    std::atomic<ITnRobotEvent*> pStopEvent{nullptr};
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    const OpenAtEnd atEnd(gate);
    thread->SetWorkJob([&](ITnRobotEvent* pStop) {
        pStopEvent = pStop;
        gate.Pass();
    });
    ASSERT_TRUE(thread->Run());
    gate.AwaitArrival();
    Caller exiter([&thread] { thread->Exit(0); });
    EXPECT_TRUE(StaysTrue([&] { return !exiter.Returned() && !pStopEvent.load()->WaitEvent(0); }, Milliseconds(50)));
    gate.Open();
    exiter.Join();
    EXPECT_FALSE(pStopEvent.load()->WaitEvent(0));
}

// The worker looks for the exit first: an Exit that did not wait for the pause would leave the Stop without one.
TEST_F(Thread, AnExitLetsAStopThatIsPendingHaveItsPause) {
    Gate job;
    std::atomic<ITnRobotEvent*> pStopEvent{nullptr};
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob([&](ITnRobotEvent* pStop) {
        pStopEvent = pStop;
        job.Pass();
    });
    const OpenAtEnd openAtEnd(job);
    ASSERT_TRUE(thread->Run());
    job.AwaitArrival();
    Caller stopper([&thread] { thread->Stop(); });
    ASSERT_TRUE(Eventually([&pStopEvent] { return pStopEvent.load()->WaitEvent(0); }));
    Caller exiter([&thread] { thread->Exit(0); });
    EXPECT_TRUE(exiter.AwaitBlocked());
    job.Open();
    EXPECT_TRUE(stopper.AwaitReturn());
    EXPECT_TRUE(exiter.AwaitReturn());
}

TEST_F(Thread, TheLastReleaseEndsItInEveryState) {
    enum class State { kCreated, kRunning, kPaused, kExited };
    for (const State eState : {State::kCreated, State::kRunning, State::kPaused, State::kExited}) {
        auto token = std::make_shared<int>(0);
        TnRobotPtr<ITnRobotThread> thread = MakeThread();
        thread->SetWorkJob([token](ITnRobotEvent*) {});
        if (eState != State::kCreated) {
            ASSERT_TRUE(thread->Run());
        }
        if (eState == State::kPaused) {
            thread->Stop();
        }
        if (eState == State::kExited) {
            thread->Exit(0);
        }
        EXPECT_EQ(thread.detach()->Release(), 0);
        EXPECT_TRUE(AwaitNewThreads(0));
        EXPECT_EQ(token.use_count(), 1);
    }
}

TEST_F(Thread, TheLastReleaseWaitsForTheJobWithoutStoppingIt) {
    Gate gate;
    std::atomic<ITnRobotEvent*> pStopEvent{nullptr};
    std::atomic<bool> bStopAsked{false};
    TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob([&](ITnRobotEvent* pStop) {
        pStopEvent = pStop;
        gate.Pass();
        bStopAsked = pStop->WaitEvent(0);
    });
    ASSERT_TRUE(thread->Run());
    gate.AwaitArrival();
    Caller releaser([pThread = thread.detach()] { pThread->Release(); });
    EXPECT_TRUE(StaysTrue([&] { return !releaser.Returned() && !pStopEvent.load()->WaitEvent(0); }, Milliseconds(50)));
    gate.Open();
    releaser.Join();
    EXPECT_FALSE(bStopAsked);
}

TEST_F(Thread, ManyMayRunAndStopItAtOnce) {
    PassCounter passes;
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob(passes.AsJob());
    ASSERT_TRUE(thread->Run());
    {
        std::vector<Caller> callers;
        for (int nCaller = 0; nCaller < 4; ++nCaller) {
            callers.emplace_back([&thread] {
                for (int n = 0; n < StormLength(25); ++n) {
                    thread->Stop();
                    EXPECT_TRUE(thread->Run());
                }
            });
        }
    }
    EXPECT_TRUE(passes.AwaitMore(2));
    thread->Stop();
}

// A pause asked for before there is a thread must not keep others from starting it.
TEST_F(Thread, AStopBeforeTheFirstRunLetsOthersRunIt) {
    PassCounter passes;
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob(passes.AsJob());
    Caller early([&thread] { thread->Stop(); });
    EXPECT_TRUE(early.AwaitBlocked());
    EXPECT_TRUE(StaysTrue([&early] { return !early.Returned(); }, Milliseconds(20)));
    ASSERT_TRUE(thread->Run());
    EXPECT_TRUE(passes.AwaitMore(1));
    thread->Stop();
    // The worker has paused: both have what they waited for.
    early.Join();
}

// Jobs that set and reset their own event.

// A runner that looks rarely must not miss a pass whose job pauses its thread. Here it is held meanwhile. The
// thread is paused before, so that the pass comes behind the runner's reset of the event, and only one does.
TEST_F(Thread, RunReturnsAlsoWhenTheJobHasPausedItselfBeforeItLooks) {
    SignalHold hold;
    std::atomic<int> nPasses{0};
    std::atomic<bool> bHolds{false};
    std::atomic<pthread_t> callerThread{pthread_self()};
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob([&](ITnRobotEvent* pStop) {
        ++nPasses;
        if (bHolds) {
            hold.Hold(callerThread);
        }
        pStop->SetEvent();
    });
    ASSERT_TRUE(thread->Run());
    thread->Stop();
    nPasses = 0;
    bHolds = true;
    std::atomic<bool> bRun{false};
    Caller caller([&] {
        callerThread = pthread_self();
        bRun = thread->Run();
        // Where the job comes late, Run has returned before: a thread that is gone cannot be held.
        EXPECT_TRUE(Eventually(SignalHold::HasHeld));
    });
    EXPECT_TRUE(Eventually([&nPasses] { return nPasses == 1; }));
    // Many turns of the worker later it has paused.
    StaysTrue([&caller] { return !caller.Returned(); }, Milliseconds(50));
    hold.LetGo();
    caller.Join();
    EXPECT_TRUE(bRun);
    EXPECT_EQ(nPasses, 1);
    bHolds = false;
    EXPECT_TRUE(thread->Run());
    thread->Stop();
    EXPECT_GE(nPasses, 2);
}

TEST_F(Thread, StopPausesAThreadWhoseJobResetsItsEvent) {
    std::atomic<int> nPasses{0};
    std::atomic<bool> bReset{false};
    const TnRobotPtr<ITnRobotThread> thread = MakeThread();
    thread->SetWorkJob([&](ITnRobotEvent* pStop) {
        ++nPasses;
        if (!bReset) {
            EXPECT_TRUE(Eventually([pStop] { return pStop->WaitEvent(0); }));
            bReset = true;
            pStop->ResetEvent();
        }
    });
    ASSERT_TRUE(thread->Run());
    thread->Stop();
    EXPECT_TRUE(bReset);
    const int nPaused = nPasses;
    EXPECT_TRUE(StaysTrue([&] { return nPasses == nPaused; }, Milliseconds(30)));
}

// References that a job counts.

TEST_F(Thread, AJobMayAddAndReleaseReferencesWhileTheLastReleaseWaitsForIt) {
    Gate gate;
    Gate counted;
    std::atomic<int> nLeft{-1};
    TnRobotPtr<ITnRobotThread> thread = MakeThread();
    const OpenAtEnd atEnd(gate);
    const OpenAtEnd atEndToo(counted);
    thread->SetWorkJob([&, pThread = thread.get()](ITnRobotEvent*) {
        gate.Pass();
        pThread->AddRef();
        nLeft = pThread->Release();
        counted.Pass();
    });
    ASSERT_TRUE(thread->Run());
    gate.AwaitArrival();
    std::atomic<int> nReleased{-1};
    Caller releaser([&nReleased, pThread = thread.detach()] { nReleased = pThread->Release(); });
    EXPECT_TRUE(releaser.AwaitBlocked());
    gate.Open();
    counted.AwaitArrival();
    EXPECT_EQ(nLeft, 1);
    EXPECT_FALSE(releaser.Returned());
    counted.Open();
    releaser.Join();
    EXPECT_EQ(nReleased, 0);
    EXPECT_TRUE(AwaitNewThreads(0));
}

// The object is destroyed when the job has returned.
TEST_F(Thread, AJobMayReleaseTheLastReference) {
    for (int nRound = 0; nRound < 5; ++nRound) {
        Gate gate;
        std::atomic<int> nLeft{-1};
        auto token = std::make_shared<int>(0);
        TnRobotPtr<ITnRobotThread> thread = MakeThread();
        const OpenAtEnd atEnd(gate);
        thread->SetWorkJob([&nLeft, &gate, token, pThread = thread.get()](ITnRobotEvent*) {
            pThread->AddRef();
            gate.Pass();
            nLeft = pThread->Release();
            EXPECT_EQ(token.use_count(), 2);
        });
        ASSERT_TRUE(thread->Run());
        gate.AwaitArrival();
        EXPECT_EQ(thread.detach()->Release(), 1);
        gate.Open();
        EXPECT_TRUE(Eventually([&token] { return token.use_count() == 1; }));
        EXPECT_EQ(nLeft, 0);
        EXPECT_TRUE(AwaitNewThreads(0));
    }
}

// What a job leaves behind may even wait for another one's.
TEST_F(Thread, AJobThatGoesWithItsOwnThreadKeepsNoOtherFromGoing) {
    Gate goes;
    Gate gone;
    const OpenAtEnd atEnd(gone);
    // The token goes over to the job: whoever kept one here might be the last to let it go, and wait.
    const auto releaseOwn = [](std::shared_ptr<void> token) {
        const auto released = std::make_shared<Gate>();
        ITnRobotThread* const pThread = MakeThread().detach();
        pThread->AddRef();
        pThread->SetWorkJob([pThread, token = std::move(token), released](ITnRobotEvent*) {
            released->Pass();
            pThread->Release();
        });
        EXPECT_TRUE(pThread->Run());
        EXPECT_EQ(pThread->Release(), 1);
        released->Open();
    };
    releaseOwn(std::shared_ptr<void>(&goes, [&gone](Gate* pGoes) {
        pGoes->Open();
        gone.Pass();
    }));
    goes.Pass();
    std::atomic<bool> bOtherGone{false};
    releaseOwn(std::shared_ptr<void>(&bOtherGone, [&gone](std::atomic<bool>* pbGone) {
        *pbGone = true;
        gone.Open();
    }));
    EXPECT_TRUE(Eventually([&bOtherGone] { return bOtherGone.load(); }));
    gone.Open();
    EXPECT_TRUE(AwaitNewThreads(0));
}

TEST_F(ThreadDeathTest, StopBeforeTheFirstRunWaitsForEver) {
    EXPECT_EXIT(
        {
            ITnRobotThread* pThread = MakeThread().detach();
            pThread->SetWorkJob([](ITnRobotEvent*) {});
            DieIfItBlocks([pThread] { pThread->Stop(); });
        },
        testing::KilledBySignal(SIGKILL), "");
}

TEST_F(ThreadDeathTest, ExitBeforeTheFirstRunWaitsForEver) {
    EXPECT_EXIT(
        {
            ITnRobotThread* pThread = MakeThread().detach();
            pThread->SetWorkJob([](ITnRobotEvent*) {});
            DieIfItBlocks([pThread] { pThread->Exit(0); });
        },
        testing::KilledBySignal(SIGKILL), "");
}

TEST_F(ThreadDeathTest, AJobThatStopsOrExitsItsOwnThreadWaitsForEver) {
    for (const bool bExit : {false, true}) {
        EXPECT_EXIT(
            {
                ITnRobotThread* pThread = MakeThread().detach();
                std::atomic<bool> bReturned{false};
                pThread->SetWorkJob([&bReturned, bExit, pThread](ITnRobotEvent*) {
                    bExit ? pThread->Exit(0) : pThread->Stop();
                    bReturned = true;
                });
                pThread->Run();
                DieIfItBlocks([&bReturned] { Eventually([&bReturned] { return bReturned.load(); }); });
            },
            testing::KilledBySignal(SIGKILL), "");
    }
}

TEST_F(ThreadDeathTest, AnEndedThreadIsNeverRunAgain) {
    EXPECT_EXIT(
        {
            ITnRobotThread* pThread = MakeThread().detach();
            pThread->SetWorkJob([](ITnRobotEvent*) {});
            pThread->Run();
            pThread->Exit(0);
            DieIfItBlocks([pThread] { pThread->Run(); });
        },
        testing::KilledBySignal(SIGKILL), "");
}
