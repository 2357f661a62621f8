// Tries other orders of threads than the system's own, by delays that follow from a seed. For checked builds.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_THREADS_SEEDEDSCHEDULER_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_THREADS_SEEDEDSCHEDULER_H_

#include <atomic>
#include <cstdint>

#include "core/TnSchedule.h"

namespace tntest {

/// What one thread does at its points, one after the other: it follows from the seed and the thread's number
/// alone, whatever other threads do.
///
/// A thread has a priority: first (it goes on), middle (it gives way now and then) or last (it also naps). After
/// a stretch of points, whose length is drawn from all magnitudes, comes a change point: the thread draws
/// another priority, and one that is not first now may be left behind for up to some milliseconds, as a thread
/// is that loses its processor at the worst moment.
class ThreadPlan {
public:
    static constexpr int kGoOn = -1;  ///< instead of a delay
    static constexpr int kGiveWay = 0;

    ThreadPlan() = default;
    ThreadPlan(unsigned int nSeed, unsigned int nThread) : m_nState(Mix((std::uint64_t{nSeed} << 32U) + nThread)) {}

    /// @return what the thread does at its next point: kGoOn, kGiveWay, or the microseconds that it sleeps.
    int Next();

    /// @return the number of the next thread that this one starts.
    unsigned int NextChild() { return static_cast<unsigned int>(_Draw()) | 1U; }

private:
    enum class Priority { kFirst, kMiddle, kLast };

    static std::uint64_t Mix(std::uint64_t nState);
    std::uint64_t _Draw() { return Mix(m_nState++); }
    int _DrawBelow(int nLimit) { return static_cast<int>(_Draw() % static_cast<unsigned int>(nLimit)); }
    int _Change();

    std::uint64_t m_nState = 0;
    Priority m_ePriority = Priority::kFirst;
    int m_nToChange = 0;
};

/// Delays threads at the library's points. Each thread has a plan of its own, by a number: that which the
/// library gave it at its start, or, for threads that tests start, its place in the order of arrival.
///
/// Decisions replay with their seed; what they lead to also depends on the system's own scheduler, so that a
/// rare failure may take some tries.
class SeededScheduler final : public tnrobot::Scheduler {
public:
    explicit SeededScheduler(unsigned int nSeed);
    SeededScheduler(const SeededScheduler&) = delete;
    SeededScheduler& operator=(const SeededScheduler&) = delete;
    ~SeededScheduler() = default;

    void Pass() override;
    unsigned int Announce() override;
    void Begin(unsigned int nThread) override;

    /// @return a digest of all decisions of the calling thread so far.
    std::uint64_t Decisions();

private:
    struct OfThread;
    OfThread& _Here();

    const unsigned int m_nSeed;
    const unsigned int m_nScheduler;           // tells the schedulers of one process apart
    std::atomic<unsigned int> m_nArrivals{0};  // relaxed, as everything here: nothing may be synchronised by it
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_THREADS_SEEDEDSCHEDULER_H_
