// Whether seeded schedules find what they are there for, on a protocol with a planted mistake, and whether they
// replay.

#include "support/threads/SeededScheduler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <set>
#include <vector>

#include "support/threads/StartGate.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

namespace {

constexpr unsigned int kSeeds = 20;

// Installs a scheduler for the scope, and afterwards the one that was there.
class UnderSeed {
public:
    explicit UnderSeed(unsigned int nSeed) : m_scheduler(nSeed) { tnrobot::Scheduler::Install(&m_scheduler); }
    UnderSeed(const UnderSeed&) = delete;
    UnderSeed& operator=(const UnderSeed&) = delete;
    ~UnderSeed() { tnrobot::Scheduler::Install(m_pBefore); }

    SeededScheduler& Scheduler() { return m_scheduler; }

private:
    tnrobot::Scheduler* const m_pBefore = tnrobot::Scheduler::Installed();
    SeededScheduler m_scheduler;
};

// One who waits for news and one who brings them. Nobody really sleeps, so a lost wake-up shows as a mark.
class News {
public:
    // The mistake: who is about to sleep says so after he has looked. In between the news may come, and
    // nobody is woken.
    void WaitHastily() {
        if (!m_bNews.load()) {
            m_bSleeps.store(true);
            m_bAsleep = true;
        }
    }
    void WaitCarefully() {
        m_bSleeps.store(true);
        m_bAsleep = !m_bNews.load();
    }
    void Bring() {
        m_bNews.store(true);
        m_bWoken = m_bSleeps.load();
    }

    bool IsLost() const { return m_bAsleep && !m_bWoken; }

private:
    tnrobot::Atomic<bool> m_bNews{false};
    tnrobot::Atomic<bool> m_bSleeps{false};
    bool m_bAsleep = false;  // the waiter's own
    bool m_bWoken = false;   // the bringer's own
};

// Two threads meet again and again, beginning each time together.
struct Round {
    News m_news;
    StartGate m_gate{2};
};

bool LosesNews(unsigned int nSeed, void (News::*pfnWait)()) {
    const UnderSeed underSeed(nSeed);
    std::array<Round, 40> rounds;
    std::thread waiter = tnrobot::StartThread([&] {
        for (Round& round : rounds) {
            round.m_gate.ArriveAndWait();
            (round.m_news.*pfnWait)();
        }
    });
    std::thread bringer = tnrobot::StartThread([&] {
        for (Round& round : rounds) {
            round.m_gate.ArriveAndWait();
            round.m_news.Bring();
        }
    });
    waiter.join();
    bringer.join();
    return std::any_of(rounds.begin(), rounds.end(), [](const Round& round) { return round.m_news.IsLost(); });
}

std::vector<unsigned int> SeedsThatLose(void (News::*pfnWait)()) {
    std::vector<unsigned int> losing;
    for (unsigned int nSeed = 1; nSeed <= kSeeds; ++nSeed) {
        if (LosesNews(nSeed, pfnWait)) {
            losing.push_back(nSeed);
        }
    }
    return losing;
}

// What two threads of the library's kind decide at a few hundred points each, taking turns as they like.
std::vector<std::uint64_t> DecisionsUnder(unsigned int nSeed) {
    UnderSeed underSeed(nSeed);
    std::vector<std::uint64_t> decisions(3);
    tnrobot::Mutex mutex;
    tnrobot::Atomic<int> nTurns{0};
    std::vector<std::thread> threads;
    for (std::uint64_t& ofThread : decisions) {
        threads.push_back(tnrobot::StartThread([&] {
            for (int n = 0; n < 100; ++n) {
                const std::lock_guard<tnrobot::Mutex> lock(mutex);
                nTurns.fetch_add(1);
            }
            ofThread = underSeed.Scheduler().Decisions();
        }));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(nTurns.load(), 300);
    return decisions;
}

class SeededSchedule : public ThreadTest {};

}  // namespace

TEST_F(SeededSchedule, FindsALostWakeUpAndFindsItAgainBySeed) {
    const std::vector<unsigned int> losing = SeedsThatLose(&News::WaitHastily);
    ASSERT_FALSE(losing.empty());
    RecordProperty("losing", static_cast<int>(losing.size()));
    EXPECT_TRUE(Eventually([&] { return LosesNews(losing.front(), &News::WaitHastily); }));
}

TEST_F(SeededSchedule, FindsNothingWhereNothingIsWrong) {
    EXPECT_TRUE(SeedsThatLose(&News::WaitCarefully).empty());
}

TEST_F(SeededSchedule, RepeatsItsDecisionsWithItsSeed) {
    std::set<std::vector<std::uint64_t>> distinct;
    for (unsigned int nSeed = 1; nSeed <= 8; ++nSeed) {
        const std::vector<std::uint64_t> decisions = DecisionsUnder(nSeed);
        EXPECT_EQ(DecisionsUnder(nSeed), decisions) << "seed " << nSeed;
        distinct.insert(decisions);
    }
    EXPECT_EQ(distinct.size(), 8U);
}

// Every kind of decision comes within some hundred points of most threads.
TEST_F(SeededSchedule, HasThreadsGoOnGiveWayAndSleep) {
    int nGoOn = 0;
    int nGiveWay = 0;
    int nSleep = 0;
    for (unsigned int nThread = 0; nThread < 10; ++nThread) {
        ThreadPlan plan(1, nThread);
        for (int n = 0; n < 300; ++n) {
            const int nDelay = plan.Next();
            nGoOn += nDelay == ThreadPlan::kGoOn ? 1 : 0;
            nGiveWay += nDelay == ThreadPlan::kGiveWay ? 1 : 0;
            nSleep += nDelay > 0 ? 1 : 0;
            EXPECT_LE(nDelay, 2048);
        }
    }
    EXPECT_GT(nGoOn, nGiveWay + nSleep);
    EXPECT_GT(nGiveWay, 50);
    EXPECT_GT(nSleep, 50);
}
