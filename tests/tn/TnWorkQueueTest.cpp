#include "TnRobotKernel/tn/work_queue.h"

#include <gtest/gtest.h>

#include <memory>
#include <numeric>
#include <optional>
#include <string>

#include "support/threads/StartGate.h"
#include "tn/WorkTest.h"

using namespace tntest;

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

namespace {

class WorkQueue : public WorkTest {};

// One task that is kept at a gate with the first item, so that everything after it waits.
class HeldQueue {
public:
    HeldQueue(ITnRobotTaskPool& pool, std::size_t nCapacity, tn::AtEnd eAtEnd)
        : m_open(m_gate),
          m_queue(
              std::in_place, pool, [this](int nItem) { Do(nItem); }, tn::WorkQueueOptions{1, nCapacity, eAtEnd}) {
        EXPECT_TRUE(m_queue->Push(0));
        m_gate.AwaitArrival();
    }
    HeldQueue(const HeldQueue&) = delete;
    HeldQueue& operator=(const HeldQueue&) = delete;
    ~HeldQueue() {
        m_gate.Open();
        m_queue.reset();
    }

    tn::WorkQueue<int>* operator->() { return &*m_queue; }
    void Destroy() { m_queue.reset(); }
    void Open() { m_gate.Open(); }
    std::vector<int> Done() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_done;
    }

private:
    void Do(int nItem) {
        m_gate.Pass();
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_done.push_back(nItem);
    }

    Gate m_gate;
    OpenAtEnd m_open;
    mutable std::mutex m_mutex;
    std::vector<int> m_done;  // guarded by m_mutex
    std::optional<tn::WorkQueue<int>> m_queue;
};

}  // namespace

TEST_F(WorkQueue, DoesEveryItemOnce) {
    std::vector<std::atomic<int>> calls(2000);
    tn::WorkQueue<std::size_t> queue(Pool(), [&calls](std::size_t nItem) { ++calls[nItem]; }, {4, 0, {}});
    for (std::size_t n = 0; n < calls.size(); ++n) {
        EXPECT_TRUE(queue.Push(n));
    }
    EXPECT_TRUE(queue.Wait());
    for (const std::atomic<int>& nCalls : calls) {
        EXPECT_EQ(nCalls, 1);
    }
    EXPECT_EQ(queue.Waiting(), 0U);
}

TEST_F(WorkQueue, RefusesMoreTasksThanAQueueMayHave) {
    for (const unsigned int nThreads : {tn::kMostQueueThreads + 1, 0xFFFFFFFFU}) {
        try {
            const tn::WorkQueue<int> queue(Pool(), [](int) {}, {nThreads, 0, {}});
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code(), std::errc::invalid_argument);
            EXPECT_NE(std::string(error.what()).find("a WorkQueue has at most 256 tasks"), std::string::npos);
        }
    }
    EXPECT_EQ(tn::kMostQueueThreads, 256U);  // as the text says
    EXPECT_EQ(Pool().GetTaskCount(), 0U);
    EXPECT_EQ(NewThreads(), kPoolThread);  // none was started
}

TEST_F(WorkQueue, BeginsItemsInTheirOrder) {
    HeldQueue queue(Pool(), 10, tn::AtEnd::kDrain);
    for (int n = 1; n <= 5; ++n) {
        EXPECT_TRUE(queue->Push(n));
    }
    queue.Open();
    EXPECT_TRUE(queue->Wait());
    EXPECT_EQ(queue.Done(), (std::vector<int>{0, 1, 2, 3, 4, 5}));
}

TEST_F(WorkQueue, WorksSideBySideOnAsManyTasksAsWereAskedFor) {
    constexpr int kThreads = 5;
    StartGate together(kThreads);
    tn::WorkQueue<int> queue(Pool(), [&together](int) { together.ArriveAndWait(); }, {kThreads, 0, {}});
    for (int n = 0; n < kThreads; ++n) {
        EXPECT_TRUE(queue.Push(n));
    }
    EXPECT_TRUE(queue.Wait());
}

TEST_F(WorkQueue, TakesItemsAndJobsThatCannotBeCopied) {
    std::atomic<int> nSum{0};
    tn::WorkQueue<std::unique_ptr<int>> queue(
        Pool(), [&nSum, factor = std::make_unique<int>(2)](std::unique_ptr<int> item) { nSum += *factor * *item; });
    for (int n = 1; n <= 10; ++n) {
        EXPECT_TRUE(queue.Push(std::make_unique<int>(n)));
    }
    EXPECT_TRUE(queue.Wait());
    EXPECT_EQ(nSum, 110);
}

TEST_F(WorkQueue, PushWaitsForRoom) {
    HeldQueue queue(Pool(), 2, tn::AtEnd::kDrain);
    EXPECT_TRUE(queue->Push(1));
    EXPECT_TRUE(queue->Push(2));
    EXPECT_EQ(queue->Waiting(), 2U);
    bool bTaken = false;
    Caller pusher([&] { bTaken = queue->Push(3); });
    EXPECT_TRUE(pusher.AwaitBlocked());
    queue.Open();
    EXPECT_TRUE(pusher.AwaitReturn());
    pusher.Join();
    EXPECT_TRUE(bTaken);
    EXPECT_TRUE(queue->Wait());
    EXPECT_EQ(queue.Done(), (std::vector<int>{0, 1, 2, 3}));
}

// The room that somebody was woken for is the next one's when his item cannot be copied after all.
TEST_F(WorkQueue, AnItemThatCannotBeCopiedLeavesItsRoomToTheNext) {
    struct Item {
        explicit Item(bool bFails) : m_bFails(bFails) {}
        Item(const Item& other) : m_bFails(other.m_bFails) {
            if (m_bFails) {
                throw Trouble(1);
            }
        }
        Item(Item&& other) noexcept : m_bFails(other.m_bFails) {}
        const bool m_bFails;
    };
    Gate gate;
    tn::WorkQueue<Item> queue(Pool(), [&gate](const Item&) { gate.Pass(); }, {1, 1, {}});
    const OpenAtEnd open(gate);
    EXPECT_TRUE(queue.Push(Item(false)));
    gate.AwaitArrival();
    EXPECT_TRUE(queue.Push(Item(false)));
    const Item bad(true);
    Caller failing([&] { EXPECT_THROW(queue.Push(bad), Trouble); });
    EXPECT_TRUE(failing.AwaitBlocked());
    Caller next([&] { EXPECT_TRUE(queue.Push(Item(false))); });
    EXPECT_TRUE(next.AwaitBlocked());
    gate.Open();
    const bool bBothReturn = failing.AwaitReturn() && next.AwaitReturn();
    EXPECT_TRUE(bBothReturn);
    queue.Cancel();  // lets go who is left
    failing.Join();
    next.Join();
}

TEST_F(WorkQueue, PushGivesUpWhenItsTimeHasPassed) {
    HeldQueue queue(Pool(), 1, tn::AtEnd::kDrain);
    EXPECT_TRUE(queue->Push(1));
    for (const std::chrono::milliseconds limit : {0ms, -1ms, 5ms}) {
        std::error_code ec;
        EXPECT_FALSE(queue->Push(2, limit, ec));
        EXPECT_EQ(ec, std::errc::timed_out);
    }
    EXPECT_FALSE(queue->Push(2, 0ms));
    queue.Open();
    std::error_code ec = std::make_error_code(std::errc::io_error);
    EXPECT_TRUE(queue->Push(2, 60s, ec));
    EXPECT_FALSE(ec);
}

TEST_F(WorkQueue, AnItemThatIsNotTakenStaysWithTheCaller) {
    Gate gate;
    const OpenAtEnd open(gate);
    tn::WorkQueue<std::unique_ptr<int>> queue(Pool(), [&gate](const std::unique_ptr<int>&) { gate.Pass(); },
                                              {1, 1, {}});
    EXPECT_TRUE(queue.Push(std::make_unique<int>(1)));
    gate.AwaitArrival();
    EXPECT_TRUE(queue.Push(std::make_unique<int>(2)));
    auto item = std::make_unique<int>(3);
    EXPECT_FALSE(queue.Push(std::move(item), 1ms));
    ASSERT_TRUE(item);  // NOLINT(bugprone-use-after-move): that is the promise
    EXPECT_EQ(*item, 3);
    gate.Open();
    queue.Finish();
    EXPECT_FALSE(queue.Push(std::move(item)));
    EXPECT_TRUE(item);  // NOLINT(bugprone-use-after-move): as above
}

TEST_F(WorkQueue, WaitTellsWhenItsTimeHasPassed) {
    HeldQueue queue(Pool(), 1, tn::AtEnd::kDrain);
    std::error_code ec;
    EXPECT_FALSE(queue->Wait(0ms, ec));
    EXPECT_EQ(ec, std::errc::timed_out);
    EXPECT_FALSE(queue->Wait(3ms));
    queue.Open();
    EXPECT_TRUE(queue->Wait(60s, ec));
    EXPECT_FALSE(ec);
    EXPECT_TRUE(queue->Wait(0ms));
}

TEST_F(WorkQueue, DeliversTheFirstExceptionOfEachWaitAndGoesOn) {
    std::atomic<int> nDone{0};
    tn::WorkQueue<int> queue(Pool(),
                             [&nDone](int nItem) {
                                 if (nItem < 0) {
                                     throw Trouble(nItem);
                                 }
                                 ++nDone;
                             },
                             {1, 20, {}});
    for (const int nItem : {1, -2, 3, -4, 5}) {
        EXPECT_TRUE(queue.Push(nItem));
    }
    try {
        queue.Wait();
        FAIL() << "nothing was thrown";
    } catch (const Trouble& trouble) {
        EXPECT_EQ(trouble.m_nNumber, -2);
    }
    EXPECT_EQ(nDone, 3);
    EXPECT_EQ(queue.Failures(), 2U);
    EXPECT_TRUE(queue.Wait());  // was delivered
    EXPECT_TRUE(queue.Push(-6));
    EXPECT_THROW(queue.Finish(), Trouble);
    EXPECT_TRUE(queue.Finish());
    EXPECT_EQ(queue.Failures(), 3U);
}

TEST_F(WorkQueue, WhatAnExceptionHoldsMayAskTheQueueWhenItGoes) {
    struct Asking {
        std::shared_ptr<int> m_held;
    };
    std::atomic<int> nAsked{0};
    std::atomic<tn::WorkQueue<int>*> pQueue{nullptr};
    const auto ask = [&](const int* pNumber) {
        delete pNumber;
        EXPECT_EQ(pQueue.load()->Waiting(), 0U);
        ++nAsked;
    };
    tn::WorkQueue<int> queue(Pool(), [&](int) { throw Asking{std::shared_ptr<int>(new int(1), ask)}; }, {1, 1, {}});
    pQueue = &queue;
    EXPECT_TRUE(queue.Push(1));
    EXPECT_TRUE(Eventually([&queue] { return queue.Failures() == 1; }));
    EXPECT_TRUE(queue.Push(2));  // its exception is one that nobody will see
    EXPECT_THROW(queue.Wait(), Asking);
    EXPECT_EQ(nAsked, 2);
}

TEST_F(WorkQueue, FinishTakesNothingMoreAndDoesWhatItHas) {
    HeldQueue queue(Pool(), 5, tn::AtEnd::kCancel);
    EXPECT_TRUE(queue->Push(1));
    EXPECT_TRUE(queue->Push(2));
    Caller finisher([&queue] { EXPECT_TRUE(queue->Finish()); });
    EXPECT_TRUE(finisher.AwaitBlocked());
    std::error_code ec;
    EXPECT_FALSE(queue->Push(3, 60s, ec));
    EXPECT_EQ(ec, std::errc::operation_canceled);
    queue.Open();
    EXPECT_TRUE(finisher.AwaitReturn());
    EXPECT_EQ(queue.Done(), (std::vector<int>{0, 1, 2}));
}

TEST_F(WorkQueue, CancelDropsWhatWaitsAndTellsWhatIsAtWork) {
    Gate gate;
    gate.Open();
    std::atomic<int> nAlive{0};
    std::atomic<int> nDone{0};
    tn::WorkQueue<Token> queue(Pool(),
                               [&](const Token&, const tn::CancelToken& cancel) {
                                   gate.Pass();
                                   EXPECT_TRUE(cancel.WaitFor(60s));
                                   ++nDone;
                               },
                               {2, 10, {}});
    for (int n = 0; n < 6; ++n) {
        EXPECT_TRUE(queue.Push(Token(nAlive)));
    }
    gate.AwaitArrival(2);
    queue.Cancel();
    std::error_code ec;
    EXPECT_FALSE(queue.Wait(tn::kNoLimit, ec));
    EXPECT_EQ(ec, std::errc::operation_canceled);
    EXPECT_EQ(nDone, 2);
    EXPECT_EQ(nAlive, 0);
    EXPECT_FALSE(queue.Push(Token(nAlive)));
    EXPECT_FALSE(queue.Finish());
}

TEST_F(WorkQueue, CancelOfAQueueThatIsDoneDropsNothing) {
    std::atomic<int> nDone{0};
    tn::WorkQueue<int> queue(Pool(), [&nDone](int) { ++nDone; });
    EXPECT_TRUE(queue.Push(1));
    EXPECT_TRUE(queue.Wait());
    queue.Cancel();
    EXPECT_TRUE(queue.Wait());
}

TEST_F(WorkQueue, ItsEndDoesWhatWaitsOrDropsIt) {
    const struct {
        tn::AtEnd eAtEnd;
        std::vector<int> done;
    } kCases[] = {{tn::AtEnd::kDrain, {0, 1, 2}}, {tn::AtEnd::kCancel, {0}}};
    for (const auto& each : kCases) {
        HeldQueue queue(Pool(), 5, each.eAtEnd);
        EXPECT_TRUE(queue->Push(1));
        EXPECT_TRUE(queue->Push(2));
        Caller destroyer([&queue] { queue.Destroy(); });
        EXPECT_TRUE(destroyer.AwaitBlocked());
        queue.Open();
        destroyer.Join();
        EXPECT_EQ(queue.Done(), each.done);
    }
}

// The queue is full and its producers are blocked when it goes.
TEST_F(WorkQueue, ItsEndLetsBlockedProducersAndWaitersGo) {
    for (const tn::AtEnd eAtEnd : {tn::AtEnd::kDrain, tn::AtEnd::kCancel}) {
        HeldQueue queue(Pool(), 1, eAtEnd);
        EXPECT_TRUE(queue->Push(1));
        std::atomic<int> nRefused{0};
        {
            std::vector<Caller> callers;
            for (int n = 0; n < 4; ++n) {
                callers.emplace_back([&] {
                    std::error_code ec;
                    EXPECT_FALSE(queue->Push(5, tn::kNoLimit, ec));
                    EXPECT_EQ(ec, std::errc::operation_canceled);
                    ++nRefused;
                });
            }
            callers.emplace_back([&] { queue->Wait(); });
            ASSERT_TRUE(Caller::AwaitAllBlocked(callers));
            callers.emplace_back([&queue] { queue.Destroy(); });
            EXPECT_TRUE(Eventually([&nRefused] { return nRefused == 4; }));
            queue.Open();
        }
        EXPECT_EQ(queue.Done().size(), eAtEnd == tn::AtEnd::kDrain ? 2U : 1U);
    }
}

TEST_F(WorkQueue, DropsExceptionsThatNobodyHasWaitedFor) {
    tn::WorkQueue<int> queue(Pool(), [](int nItem) { throw Trouble(nItem); });
    EXPECT_TRUE(queue.Push(1));
}

TEST_F(WorkQueue, JobsMayPushWhereThereIsRoomAndAreToldWhereThereIsNone) {
    std::atomic<int> nRefused{0};
    std::atomic<int> nDone{0};
    tn::WorkQueue<int>* pQueue = nullptr;
    tn::WorkQueue<int> queue(Pool(),
                             [&](int nItem) {
                                 for (int n = 0; n < nItem; ++n) {
                                     std::error_code ec;
                                     if (!pQueue->Push(0, tn::kNoLimit, ec)) {
                                         EXPECT_EQ(ec, std::errc::resource_deadlock_would_occur);
                                         ++nRefused;
                                     }
                                 }
                                 std::error_code ec;
                                 EXPECT_FALSE(pQueue->Wait(60s, ec));
                                 EXPECT_EQ(ec, std::errc::resource_deadlock_would_occur);
                                 ++nDone;
                             },
                             {1, 3, {}});
    pQueue = &queue;
    EXPECT_TRUE(queue.Push(5));
    EXPECT_TRUE(queue.Wait());
    EXPECT_EQ(nDone, 4);
    EXPECT_EQ(nRefused, 2);
}

TEST_F(WorkQueue, WhatItemsAndJobsHoldIsGoneInTime) {
    std::atomic<int> nItems{0};
    std::atomic<int> nJobs{0};
    {
        tn::WorkQueue<Token> queue(Pool(), [job = Token(nJobs)](const Token&) {});
        for (int n = 0; n < 20; ++n) {
            EXPECT_TRUE(queue.Push(Token(nItems)));
        }
        EXPECT_TRUE(queue.Wait());
        EXPECT_EQ(nItems, 0);
        EXPECT_GT(nJobs, 0);
    }
    EXPECT_EQ(nJobs, 0);  // idle tasks keep their runners, not the job
}

TEST_F(WorkQueue, GivesItsTasksBackAndTakesThemAgain) {
    for (int nRound = 0; nRound < 3; ++nRound) {
        {
            const tn::WorkQueue<int> queue(Pool(), [](int) {}, {3, 0, {}});
            EXPECT_EQ(Pool().GetTaskCount(), 0U);
        }
        EXPECT_EQ(Pool().GetTaskCount(), 3U);
    }
}

TEST_F(WorkQueue, GoesOnWhenThePoolGoesFirst) {
    std::atomic<int> nDone{0};
    tn::WorkQueue<int> queue(Pool(), [&nDone](int) { ++nDone; }, {2, 0, {}});
    m_pool.reset();
    for (int n = 0; n < 10; ++n) {
        EXPECT_TRUE(queue.Push(n));
    }
    EXPECT_TRUE(queue.Finish());
    EXPECT_EQ(nDone, 10);
}

TEST_F(WorkQueue, IsNotMadeWithFewerTasksThanAskedFor) {
    std::atomic<int> nJobs{0};
    const auto pool = tn::MakeObject<ShortTaskPool>(Pool(), 2);
    const auto make = [&] { const tn::WorkQueue<int> queue(*pool, [job = Token(nJobs)](int) {}, {3, 0, {}}); };
    try {
        make();
        FAIL() << "nothing was thrown";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
    }
    EXPECT_EQ(nJobs, 0);
    EXPECT_EQ(Pool().GetTaskCount(), 2U);
}

// Producers that throw items in while others wait, some jobs throw, some push, and the queue goes in the
// middle of it.
TEST_F(WorkQueue, SurvivesAStormAndItsEndInTheMiddleOfIt) {
    for (int nRound = 0; nRound < 6; ++nRound) {
        std::atomic<int> nAlive{0};
        std::atomic<int> nDone{0};
        struct Item {
            Token token;
            int nNumber;
        };
        tn::WorkQueue<Item>* pQueue = nullptr;
        auto queue = std::make_unique<tn::WorkQueue<Item>>(
            Pool(),
            [&](Item item) {
                ++nDone;
                if (item.nNumber % 7 == 0) {
                    throw Trouble(item.nNumber);
                }
                if (item.nNumber % 5 == 0) {
                    pQueue->Push(Item{Token(nAlive), 1});
                }
            },
            tn::WorkQueueOptions{3, 4, nRound % 2 == 0 ? tn::AtEnd::kDrain : tn::AtEnd::kCancel});
        pQueue = queue.get();
        constexpr int kThreads = 6;
        StartGate gate(kThreads + 1);
        std::atomic<int> nTaken{0};
        std::vector<std::thread> threads;
        for (int nThread = 0; nThread < kThreads; ++nThread) {
            threads.emplace_back([&, nThread] {
                gate.ArriveAndWait();
                for (int n = 1; n < 200; ++n) {
                    if (!pQueue->Push(Item{Token(nAlive), n})) {
                        return;
                    }
                    ++nTaken;
                    if (n % 50 == nThread) {
                        try {
                            pQueue->Wait();
                        } catch (const Trouble&) {
                        }
                    }
                }
            });
        }
        gate.ArriveAndWait();
        EXPECT_TRUE(Eventually([&nTaken] { return nTaken > 300; }));
        if (nRound % 3 == 0) {
            queue->Cancel();
        } else {
            try {
                queue->Finish();
            } catch (const Trouble&) {
            }
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        queue.reset();
        EXPECT_EQ(nAlive, 0);
        EXPECT_GT(nDone, 0);
    }
}
