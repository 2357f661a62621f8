#include "TnRobotKernel/tn/for_each.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

#include "support/threads/StartGate.h"
#include "tn/WorkTest.h"

using namespace tntest;

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

namespace {

class ForEach : public WorkTest {
protected:
    static tn::ForEachOptions Threads(unsigned int nThreads) { return {nThreads, tn::kNoLimit}; }
};

}  // namespace

TEST_F(ForEach, CallsTheJobOnceForEveryNumber) {
    for (const std::size_t nCount : {0U, 1U, 2U, 5U, 17U, 1000U, 65537U}) {
        for (const unsigned int nThreads : {0U, 1U, 2U, 7U}) {
            std::vector<std::atomic<int>> calls(nCount);
            EXPECT_TRUE(tn::ForEach(
                Pool(), nCount, [&calls](std::size_t n) { ++calls[n]; }, Threads(nThreads)));
            for (const std::atomic<int>& nCalls : calls) {
                EXPECT_EQ(nCalls, 1);
            }
        }
    }
}

TEST_F(ForEach, WorksSideBySideWithTheCaller) {
    constexpr int kThreads = 4;
    StartGate together(kThreads);  // nobody passes it alone
    std::array<std::thread::id, kThreads> threads;
    EXPECT_TRUE(tn::ForEach(
        Pool(), kThreads,
        [&](std::size_t n) {
            together.ArriveAndWait();
            threads[n] = std::this_thread::get_id();
        },
        Threads(kThreads)));
    EXPECT_EQ(std::set<std::thread::id>(threads.begin(), threads.end()).size(), threads.size());
    EXPECT_EQ(std::count(threads.begin(), threads.end(), std::this_thread::get_id()), 1);
}

// After short loops a caller wakes one helper only, and the helpers each other.
TEST_F(ForEach, WorksSideBySideAfterShortLoops) {
    constexpr int kThreads = 4;
    std::atomic<StartGate*> pTogether{nullptr};
    const auto job = [&pTogether](std::size_t) {
        if (StartGate* pGate = pTogether) {
            pGate->ArriveAndWait();
        }
    };
    for (int nRound = 0; nRound < 20; ++nRound) {
        pTogether = nullptr;
        EXPECT_TRUE(tn::ForEach(Pool(), kThreads, job, Threads(kThreads)));
        StartGate together(kThreads);  // nobody passes it alone
        pTogether = &together;
        EXPECT_TRUE(tn::ForEach(Pool(), kThreads, job, Threads(kThreads)));
    }
}

TEST_F(ForEach, UsesNoMoreThreadsThanItMay) {
    std::mutex mutex;
    std::set<std::thread::id> threads;
    for (int nRound = 0; nRound < 20; ++nRound) {
        threads.clear();
        EXPECT_TRUE(tn::ForEach(
            Pool(), 200,
            [&](std::size_t) {
                const std::lock_guard<std::mutex> lock(mutex);
                threads.insert(std::this_thread::get_id());
            },
            Threads(2)));
        EXPECT_LE(threads.size(), 2U);
    }
    tn::GiveBackTasks(Pool());
    EXPECT_LE(Pool().GetTaskCount(), 1U);
}

TEST_F(ForEach, DoesAllOfItAloneWithOneThread) {
    std::vector<std::size_t> order;
    EXPECT_TRUE(tn::ForEach(
        Pool(), 5, [&order](std::size_t n) { order.push_back(n); }, Threads(1)));
    EXPECT_EQ(order, (std::vector<std::size_t>{0, 1, 2, 3, 4}));
    EXPECT_EQ(Pool().GetTaskCount(), 0U);
}

TEST_F(ForEach, DoesAllOfItAloneWhereThePoolHasNoTask) {
    const auto pool = tn::MakeObject<EmptyTaskPool>();
    int nCalls = 0;
    tn::ForEach(*pool, 100, [&nCalls](std::size_t) { ++nCalls; });
    EXPECT_EQ(nCalls, 100);
}

TEST_F(ForEach, ThrowsTheFirstExceptionWhenTheOthersAreDone) {
    StartGate together(2);
    std::atomic<bool> bOtherDone{false};
    std::atomic<bool> bOtherHeard{false};
    std::atomic<int> nCalls{0};
    std::error_code ec;
    try {
        tn::ForEach(
            Pool(), 1000,
            [&](std::size_t n, const tn::CancelToken& token) {
                ++nCalls;
                if (n > 1) {
                    return;
                }
                together.ArriveAndWait();
                if (n == 0) {
                    throw Trouble(0);
                }
                bOtherHeard = token.WaitFor(60s);
                bOtherDone = true;
                throw Trouble(1);  // too late to be the first
            },
            Threads(2), ec);
        FAIL() << "nothing was thrown";
    } catch (const Trouble& trouble) {
        EXPECT_EQ(trouble.m_nNumber, 0);
    }
    EXPECT_TRUE(bOtherDone);
    EXPECT_TRUE(bOtherHeard);
    EXPECT_EQ(nCalls, 2);
}

// Short calls are taken several at a time: what is taken is dropped too.
TEST_F(ForEach, BeginsNothingMoreAfterAnExceptionAmongShortCalls) {
    for (const int nFailing : {1, 2, 500, 998}) {
        int nCalls = 0;
        const auto count = [&](std::size_t) {
            if (nCalls++ == nFailing) {
                throw Trouble(nFailing);
            }
        };
        std::error_code ec;
        EXPECT_THROW(tn::ForEach(Pool(), 1000, count, Threads(1), ec), Trouble);
        EXPECT_EQ(nCalls, nFailing + 1);
    }
}

// A call that takes long holds back the few that were taken with it, while others do the rest.
TEST_F(ForEach, HoldsBackNoMoreThanAShortRun) {
    constexpr std::size_t kCalls = 100000;
    constexpr std::size_t kLongOne = 5000;
    constexpr std::size_t kLongestRun = 16;
    std::atomic<std::size_t> nDone{0};
    std::atomic<bool> bRestDone{false};
    const auto restIsDone = [&] { return nDone >= kCalls - kLongestRun; };
    tn::ForEach(Pool(), 2, [](std::size_t) {});  // there is a worker now
    EXPECT_TRUE(tn::ForEach(
        Pool(), kCalls,
        [&](std::size_t n) {
            if (n == kLongOne) {
                const auto end = std::chrono::steady_clock::now() + 60s;
                while (!restIsDone() && std::chrono::steady_clock::now() < end) {
                    std::this_thread::yield();
                }
                bRestDone = restIsDone();
            }
            ++nDone;
        },
        Threads(2)));
    EXPECT_TRUE(bRestDone);
    EXPECT_EQ(nDone, kCalls);
}

// On a busy machine a limit may have passed before anything has begun; then a longer one is tried.
TEST_F(ForEach, BeginsNothingMoreWhenTheTimeLimitHasPassed) {
    std::atomic<int> nBegun{0};
    std::atomic<int> nEnded{0};
    for (std::chrono::milliseconds limit = 20ms; nBegun == 0 && limit < 60s; limit *= 2) {
        std::error_code ec;
        EXPECT_FALSE(tn::ForEach(
            Pool(), 1000,
            [&](std::size_t, const tn::CancelToken& token) {
                ++nBegun;
                EXPECT_TRUE(token.WaitFor(tn::kNoLimit));  // nothing but the limit ends this
                ++nEnded;
            },
            {3, limit}, ec));
        EXPECT_EQ(ec, std::errc::timed_out);
    }
    EXPECT_GE(nBegun, 1);
    EXPECT_LE(nBegun, 3);
    EXPECT_EQ(nBegun, nEnded);
}

TEST_F(ForEach, BeginsNothingWithoutTime) {
    for (const std::chrono::milliseconds limit : {0ms, -1ms, std::chrono::milliseconds::min()}) {
        std::error_code ec;
        EXPECT_FALSE(tn::ForEach(
            Pool(), 10, [](std::size_t) { FAIL() << "there was no time"; }, {2, limit}, ec));
        EXPECT_EQ(ec, std::errc::timed_out);
    }
}

// Longer limits as above.
TEST_F(ForEach, IsDoneInTimeWhenTheLastCallEndsLate) {
    bool bBegun = false;
    for (std::chrono::milliseconds limit = 5ms; !bBegun && limit < 60s; limit *= 2) {
        std::error_code ec = std::make_error_code(std::errc::io_error);
        const auto endLate = [&bBegun](std::size_t, const tn::CancelToken& token) {
            bBegun = true;
            EXPECT_TRUE(token.WaitFor(tn::kNoLimit));
        };
        const bool bDone = tn::ForEach(Pool(), 1, endLate, {1, limit}, ec);
        EXPECT_EQ(bDone, bBegun);
        EXPECT_EQ(!ec, bBegun);
    }
    EXPECT_TRUE(bBegun);
}

TEST_F(ForEach, TakesEveryLimit) {
    for (const std::chrono::milliseconds limit : {tn::kNoLimit, tn::kNoLimit - 1ms, std::chrono::milliseconds(60000)}) {
        std::atomic<int> nCalls{0};
        EXPECT_TRUE(tn::ForEach(Pool(), 10, [&nCalls](std::size_t) { ++nCalls; }, {2, limit}));
        EXPECT_EQ(nCalls, 10);
    }
}

TEST_F(ForEach, MayBeCalledFromInsideAJob) {
    std::atomic<int> nCalls{0};
    tn::ForEach(Pool(), 8, [&](std::size_t) {
        tn::ForEach(Pool(), 8, [&](std::size_t) { tn::ForEach(Pool(), 8, [&nCalls](std::size_t) { ++nCalls; }); });
    });
    EXPECT_EQ(nCalls, 512);
}

TEST_F(ForEach, MayBeCalledFromInsideAPlainTask) {
    std::atomic<int> nCalls{0};
    const auto runner = tn::MakeRunner([&] { tn::ForEach(Pool(), 100, [&nCalls](std::size_t) { ++nCalls; }); });
    const auto task = tn::CreateTask(Pool(), runner.get());
    ASSERT_TRUE(task->Start());
    EXPECT_TRUE(Eventually([&] { return nCalls == 100; }));
    task->Stop();
}

TEST_F(ForEach, SharesTheTasksOfAPoolWithRun) {
    Gate gate;
    const OpenAtEnd open(gate);
    std::vector<tn::JobHandle> busy;
    for (unsigned int n = 0; n < std::max(tn::detail::kFewestRuns, tn::detail::Processors()); ++n) {
        busy.push_back(tn::Run(Pool(), [&gate] { gate.Pass(); }));
    }
    std::atomic<int> nCalls{0};
    tn::ForEach(Pool(), 100, [&nCalls](std::size_t) { ++nCalls; });  // the caller needs nobody
    EXPECT_EQ(nCalls, 100);
    gate.Open();
}

TEST_F(ForEach, LeavesNoMoreTasksThanItsThreads) {
    for (int n = 0; n < 50; ++n) {
        std::atomic<int> nCalls{0};
        EXPECT_TRUE(tn::ForEach(
            Pool(), 50, [&nCalls](std::size_t) { ++nCalls; }, Threads(4)));
        EXPECT_EQ(nCalls, 50);
    }
    tn::GiveBackTasks(Pool());
    EXPECT_LE(Pool().GetTaskCount(), 3U);
}

TEST_F(ForEach, UsesPoolsOneAfterTheOther) {
    for (int n = 0; n < 5; ++n) {
        const auto pool = tn::MakeTaskPool();  // often at the address of the last one
        std::atomic<int> nCalls{0};
        EXPECT_TRUE(tn::ForEach(
            *pool, 20, [&nCalls](std::size_t) { ++nCalls; }, Threads(3)));
        EXPECT_EQ(nCalls, 20);
    }
}

TEST_F(ForEach, SurvivesManyCallersAtOnce) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 100;
    StartGate gate(kThreads);
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < kThreads; ++nThread) {
        threads.emplace_back([&, nThread] {
            gate.ArriveAndWait();
            for (int n = 0; n < kRounds; ++n) {
                std::atomic<std::size_t> nSum{0};
                const auto job = [&nSum, n](std::size_t nNumber) {
                    nSum += nNumber;
                    if (n % 5 == 4 && nNumber == 7) {
                        throw Trouble(n);
                    }
                };
                if (n % 5 == 4) {
                    EXPECT_THROW(tn::ForEach(Pool(), 32, job), Trouble);
                } else {
                    EXPECT_TRUE(tn::ForEach(Pool(), 32, job, Threads(1U + static_cast<unsigned int>(nThread))));
                    EXPECT_EQ(nSum, 496U);
                }
                if (n % 10 == nThread) {
                    tn::GiveBackTasks(Pool());
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}
