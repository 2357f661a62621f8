#include "support/threads/SeededScheduler.h"

#include <sched.h>
#include <time.h>

namespace tntest {

namespace {

constexpr int kMagnitudes = 9;        // stretches of 1 to 256 points
constexpr int kDelayMagnitudes = 12;  // delays of 1 to 2048 microseconds
constexpr int kOneIn = 4;             // how often lower priorities act
constexpr int kNapMicroseconds = 60;

std::atomic<unsigned int> g_nSchedulers{0};

// Not usleep and not std::this_thread: no more than the call itself.
void Sleep(int nMicroseconds) {
    const timespec span = {0, nMicroseconds * 1000L};
    nanosleep(&span, nullptr);
}

}  // namespace

// The finaliser of a well-known generator (splitmix64): neighbours have nothing in common.
std::uint64_t ThreadPlan::Mix(std::uint64_t nState) {
    std::uint64_t n = nState * 0x9E3779B97F4A7C15U;
    n = (n ^ (n >> 30U)) * 0xBF58476D1CE4E5B9U;
    n = (n ^ (n >> 27U)) * 0x94D049BB133111EBU;
    return n ^ (n >> 31U);
}

int ThreadPlan::Next() {
    if (m_nToChange-- <= 0) {
        return _Change();
    }
    if (m_ePriority == Priority::kFirst || _DrawBelow(kOneIn) != 0) {
        return kGoOn;
    }
    return m_ePriority == Priority::kMiddle ? kGiveWay : 1 + _DrawBelow(kNapMicroseconds);
}

int ThreadPlan::_Change() {
    m_nToChange = 1 << _DrawBelow(kMagnitudes);
    m_ePriority = static_cast<Priority>(_DrawBelow(3));
    return m_ePriority == Priority::kFirst ? kGoOn : 1 << _DrawBelow(kDelayMagnitudes);
}

struct SeededScheduler::OfThread {
    unsigned int m_nScheduler = 0;
    ThreadPlan m_plan;
    std::uint64_t m_nDecisions = 0;
};

SeededScheduler::SeededScheduler(unsigned int nSeed)
    : m_nSeed(nSeed), m_nScheduler(g_nSchedulers.fetch_add(1, std::memory_order_relaxed) + 1) {}

// Threads that come by themselves have even numbers, the library's odd ones.
SeededScheduler::OfThread& SeededScheduler::_Here() {
    thread_local OfThread t_here;
    if (t_here.m_nScheduler != m_nScheduler) {
        const unsigned int nArrival = m_nArrivals.fetch_add(1, std::memory_order_relaxed);
        t_here = {m_nScheduler, ThreadPlan(m_nSeed, 2 * nArrival), 0};
    }
    return t_here;
}

void SeededScheduler::Pass() {
    OfThread& here = _Here();
    const int nDelay = here.m_plan.Next();
    here.m_nDecisions = here.m_nDecisions * 31 + static_cast<unsigned int>(nDelay + 2);
    if (nDelay > 0) {
        Sleep(nDelay);
    } else if (nDelay == ThreadPlan::kGiveWay) {
        sched_yield();
    }
}

unsigned int SeededScheduler::Announce() {
    return _Here().m_plan.NextChild();
}

void SeededScheduler::Begin(unsigned int nThread) {
    _Here() = {m_nScheduler, ThreadPlan(m_nSeed, nThread), 0};
}

std::uint64_t SeededScheduler::Decisions() {
    return _Here().m_nDecisions;
}

}  // namespace tntest
