/// @file
/// The tasks that serve Run and ForEach of one pool. Used by tn/run.h and tn/for_each.h.

#ifndef TNROBOTKERNEL_TN_DETAIL_CREW_H_
#define TNROBOTKERNEL_TN_DETAIL_CREW_H_

#include <algorithm>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "TnRobotKernel/tn/detail/TaskStart.h"
#include "TnRobotKernel/tn/detail/Waiting.h"

namespace tn::detail {

// How long a worker waits for something to do before it gives its task back. Waiting costs nothing,
// while an idle task asks once a millisecond; so it is long enough for work that comes once a frame.
inline constexpr std::chrono::milliseconds kLinger{1000};

// No crew is larger, whatever is asked for.
inline constexpr unsigned int kMostWorkers = 64;

// How many threads do work of the processor side by side.
inline unsigned int Processors() {
    return std::max(1U, std::thread::hardware_concurrency());
}

// What a worker does. Do may be called by several workers, also when nobody waits for it any more.
class Errand {
public:
    Errand() = default;
    Errand(const Errand&) = delete;
    Errand& operator=(const Errand&) = delete;
    virtual ~Errand() = default;
    virtual void Do() noexcept = 0;
    // Whether nobody will do any of it any more, nor is at it.
    virtual bool IsOver() const = 0;
};

// Whether this thread is one of a crew's, which must not wait for errands that wait for a worker.
inline bool& IsCrewThread() {
    static thread_local bool s_bIs = false;
    return s_bIs;
}

// Workers of all crews that have left by themselves, by the marks of their tasks' runners: such a task is on its
// way back to its pool for a millisecond or two, and idle, with its runner, from then on.
//
// Lock order: m_mutex is innermost.
class Departures {
public:
    // A worker is about to leave. Without memory nobody waits for it.
    void Add(const void* pPool, const std::shared_ptr<const void>& mark) noexcept {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto isGone = [](const Departure& each) { return each.mark.expired(); };
        m_departures.erase(std::remove_if(m_departures.begin(), m_departures.end(), isGone), m_departures.end());
        try {
            m_departures.push_back({pPool, mark});
        } catch (const std::bad_alloc&) {
        }
    }

    // @return whether a task of that pool still has, or brings back, a runner of one that has left.
    bool HasAny(const void* pPool) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::any_of(m_departures.begin(), m_departures.end(),
                           [pPool](const Departure& each) { return each.pPool == pPool && !each.mark.expired(); });
    }

private:
    struct Departure {
        const void* pPool;  // only compared: the pool may be gone
        std::weak_ptr<const void> mark;
    };

    std::mutex m_mutex;
    std::vector<Departure> m_departures;  // guarded by m_mutex
};

// Workers on tasks of one pool, and the errands that wait for them.
//
// A worker is a task whose job takes errands until none has come for a while. Then it gives its own task
// back, so nobody needs to look after a crew. The pool is only used while a caller lends it: when it goes
// first, tasks stay with their workers and end with them.
//
// Invariants (under m_mutex): m_workers holds every worker that is or will be in Work and has not been
// sent home; there is no errand that nobody takes while it has room, but for those of which the next one
// to take an errand tells.
//
// Lock order: m_mutex is innermost but for those of Departures and of errands, which are asked with it whether they
// are over; no job, task or pool is called with it.
class Crew : public std::enable_shared_from_this<Crew> {
public:
    Crew(const void* pPool, Departures& departures) : m_pPool(pPool), m_departures(departures) {}

    // Adds an errand, as often as workers are to take it, and starts those that are missing. Their
    // starts take a millisecond each, so they end when the answer says that nobody is needed any more.
    // The caller withdraws the errand in the end: it may be that nobody comes for it.
    //
    // As many workers as nAwake are woken for it by the caller, and each of them wakes the next: waking one
    // takes longer than a short errand.
    //
    // nTimes is also how many workers the caller could do with: the crew stays as large as its largest.
    // Throws what kept a worker from starting.
    template <typename Answer>
    void Offer(ITnRobotTaskPool& pool, const std::shared_ptr<Errand>& errand, unsigned int nTimes, unsigned int nAwake,
               Answer isNeeded) {
        Add(errand, nTimes, nTimes, nAwake);
        StartMissing(pool, isNeeded);
    }

    // As Offer, once, for an errand that its owner leaves to the crew: when this returns, somebody has taken it
    // or is sure to. A worker that another thread starts may fail to start, so it is not relied upon before
    // it has begun.
    // Throws what kept a worker from starting, but only when there is nobody else: the errand is the caller's
    // again then.
    void Post(ITnRobotTaskPool& pool, const std::shared_ptr<Errand>& errand, unsigned int nMost) {
        Add(errand, 1, nMost, 1);
        bool bHasTaker = false;
        while (!bHasTaker) {
            try {
                StartMissing(pool, [&errand] { return !errand->IsOver(); });
                bHasTaker = AwaitTaker(*errand);
            } catch (...) {
                bHasTaker = AwaitTaker(*errand);
                if (!bHasTaker) {
                    Withdraw(*errand);
                    throw;
                }
            }
        }
    }

    // An errand that may still wait is over. Those are taken out before they are half of all that wait: so a
    // burst of jobs that are cancelled while all workers are busy leaves nothing behind, and costs no search each.
    void NoteOver() {
        std::vector<std::shared_ptr<Errand>> over;
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (++m_nOver * 2 <= m_errands.size()) {
            return;
        }
        try {
            TakeThoseOver(over);
        } catch (const std::bad_alloc&) {  // then they wait for a worker, as all others do
        }
    }

    // Takes an errand back from where it waits; those at work go on.
    void Withdraw(const Errand& errand) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_errands.erase(std::remove_if(m_errands.begin(), m_errands.end(), Is(errand)), m_errands.end());
        m_nUntold = std::min(m_nUntold, m_errands.size());
    }

    // Sends the workers home that have nothing to do, and waits until they have gone. The others follow
    // when they are done.
    void DismissIdle() {
        std::vector<TnRobotPtr<ITnRobotTask>> tasks;
        std::vector<std::shared_ptr<Errand>> over;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            TakeThoseOver(over);
            for (auto it = m_workers.begin(); it != m_workers.end();) {
                const std::shared_ptr<Worker> worker = *it;
                worker->bLeaves = true;
                if (worker->HasNothingToDo() && m_errands.empty()) {
                    tasks.push_back(std::move(worker->task));
                    it = m_workers.erase(it);
                } else {
                    ++it;
                }
            }
            m_posted.notify_all();
            m_begun.notify_all();
        }
    }

private:
    // Finds an errand where it waits.
    class Is {
    public:
        explicit Is(const Errand& errand) : m_errand(errand) {}
        bool operator()(const std::shared_ptr<Errand>& waiting) const { return waiting.get() == &m_errand; }

    private:
        const Errand& m_errand;
    };

    struct Worker {
        // It waits, or will as soon as it has begun, or come back from an errand that others know to be over.
        bool HasNothingToDo() const { return task && (!errand || errand->IsOver()); }

        TnRobotPtr<ITnRobotTask> task;
        const std::shared_ptr<const void> mark = std::make_shared<char>();  // of its task's runner
        std::shared_ptr<Errand> errand;                                     // that it is at
        bool bHasBegun = false;                                             // its task has really started
        bool bLeaves = false;                                               // does not wait for another one
    };

    void Add(const std::shared_ptr<Errand>& errand, unsigned int nTimes, unsigned int nMost, unsigned int nAwake) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_nMost = std::max(m_nMost, std::min(nMost, kMostWorkers));
            m_errands.insert(m_errands.end(), nTimes, errand);
            m_nUntold += nTimes - nAwake;
        }
        for (unsigned int n = 0; n < nAwake; ++n) {
            m_posted.notify_one();
        }
    }

    // By who has just taken an errand.
    void TellNext() {
        if (m_nUntold != 0 && !m_errands.empty()) {
            --m_nUntold;
            m_posted.notify_one();
        }
    }

    // A worker that is about to begin, or was woken for an errand, is free until it has taken one.
    bool NeedsWorker() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto nFree = std::count_if(m_workers.begin(), m_workers.end(),
                                         [](const std::shared_ptr<Worker>& worker) { return !worker->errand; });
        return m_errands.size() > static_cast<std::size_t>(nFree) && m_workers.size() < m_nMost;
    }

    template <typename Answer>
    void StartMissing(ITnRobotTaskPool& pool, Answer isNeeded) {
        while (isNeeded() && NeedsWorker()) {
            StartWorker(pool);
        }
    }

    // Waits until a worker has begun or all starts have failed. One that has begun does not leave while an
    // errand waits. @return false when the errand waits for nobody.
    bool AwaitTaker(const Errand& errand) {
        std::unique_lock<std::mutex> lock(m_mutex);
        const auto hasTaker = [this, &errand] {
            return HasBegunLocked() || std::none_of(m_errands.begin(), m_errands.end(), Is(errand));
        };
        m_begun.wait(lock, [this, &hasTaker] { return hasTaker() || m_workers.empty(); });
        return hasTaker();
    }

    bool HasBegunLocked() const {
        return std::any_of(m_workers.begin(), m_workers.end(),
                           [](const std::shared_ptr<Worker>& worker) { return worker->bHasBegun; });
    }

    void StartWorker(ITnRobotTaskPool& pool) {
        const auto worker = std::make_shared<Worker>();
        Enlist(worker);
        try {
            StartWorkerTask(
                pool, [crew = shared_from_this(), worker] { crew->Work(*worker); },
                [&](const TnRobotPtr<ITnRobotTask>& task) { Hire(*worker, task); }, worker->mark);
        } catch (...) {
            Strike(*worker);
            throw;
        }
    }

    // Takes errands out that nobody needs any more: their owners have given them up.
    void TakeThoseOver(std::vector<std::shared_ptr<Errand>>& over) {
        const auto isNeeded = [](const std::shared_ptr<Errand>& errand) { return !errand->IsOver(); };
        const auto end = std::stable_partition(m_errands.begin(), m_errands.end(), isNeeded);
        over.assign(end, m_errands.end());
        m_errands.erase(end, m_errands.end());
        m_nOver = 0;
        m_nUntold = std::min(m_nUntold, m_errands.size());
    }

    void Enlist(const std::shared_ptr<Worker>& worker) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_workers.push_back(worker);
    }

    void Hire(Worker& worker, const TnRobotPtr<ITnRobotTask>& task) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        worker.task = task;
    }

    // @return the worker's task, which is the caller's to release; empty for one that was sent home.
    TnRobotPtr<ITnRobotTask> Strike(Worker& worker) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return StrikeLocked(worker);
    }

    TnRobotPtr<ITnRobotTask> StrikeLocked(Worker& worker) {
        m_workers.remove_if([&worker](const std::shared_ptr<Worker>& each) { return each.get() == &worker; });
        m_begun.notify_all();  // it may have been the last that somebody hopes for
        return std::move(worker.task);
    }

    // Those that were sent home leave their task to who did it. The others release their own, which a job
    // may: the task goes back when the job has returned.
    void Work(Worker& me) {
        IsCrewThread() = true;
        TnRobotPtr<ITnRobotTask> own;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            me.bHasBegun = true;
            m_begun.notify_all();
            while (AwaitErrand(lock, me)) {
                me.errand = std::move(m_errands.front());
                m_errands.pop_front();
                TellNext();
                lock.unlock();
                me.errand->Do();
                lock.lock();
                std::shared_ptr<Errand> done = std::move(me.errand);
                lock.unlock();
                done.reset();
                lock.lock();
            }
            if (me.task) {  // whoever does not find it here any more finds it there
                m_departures.Add(m_pPool, me.mark);
            }
            own = StrikeLocked(me);
        }
        IsCrewThread() = false;
    }

    bool AwaitErrand(std::unique_lock<std::mutex>& lock, Worker& me) {
        if (m_errands.empty() && !me.bLeaves) {
            WaitUntil(m_posted, lock, After(kLinger), [this, &me] { return !m_errands.empty() || me.bLeaves; });
        }
        // One without a task was sent home; it may have been the only one left that somebody hopes for.
        return !m_errands.empty() && me.task;
    }

    const void* const m_pPool;  // only compared: the pool may be gone
    Departures& m_departures;
    std::mutex m_mutex;
    std::condition_variable m_posted;               // there is an errand, or somebody is sent home
    std::condition_variable m_begun;                // a worker has begun, or there is one less
    std::deque<std::shared_ptr<Errand>> m_errands;  // guarded by m_mutex
    std::list<std::shared_ptr<Worker>> m_workers;   // guarded by m_mutex, and what they point to
    std::size_t m_nUntold = 0;                      // guarded by m_mutex; errands for which nobody was woken yet
    unsigned int m_nMost = 0;                       // guarded by m_mutex
    std::size_t m_nOver = 0;                        // at most so many errands that wait are over; guarded by m_mutex
};

// Finds the crew of a pool. The registry knows crews, it does not keep them: a crew lives with its workers
// and with those who use it.
//
// A pool may go while its crew lingers, and another one be made at the same address: that finds the crew of
// the first, whose tasks are as good.
class CrewRegistry {
public:
    // The one of this process: what a child of fork has inherited may be locked, and its workers are not
    // there.
    static CrewRegistry& Here() {
        static Keeper s_keeper;
        return s_keeper.Registry();
    }

    std::shared_ptr<Crew> CrewOf(ITnRobotTaskPool& pool) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        DropTheGone();
        std::shared_ptr<Crew> crew = m_crews[&pool].lock();
        if (!crew) {
            crew = std::make_shared<Crew>(&pool, m_departures);
            m_crews[&pool] = crew;
        }
        return crew;
    }

    // Has the pool's idle tasks let go of their runners, those too whose workers are just leaving by themselves.
    // Only the pool knows when such a task is back, within a millisecond or two; a pool of the application's own
    // that keeps runners is not waited for longer than a worker lingers.
    void DropRunners(ITnRobotTaskPool& pool) {
        const Clock::time_point end = After(kLinger);
        DropIdleRunners(pool);
        while (m_departures.HasAny(&pool) && Clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            DropIdleRunners(pool);
        }
    }

    // Sends those of one pool home.
    void DismissIdle(ITnRobotTaskPool& pool) {
        if (std::shared_ptr<Crew> crew = Find(pool)) {
            crew->DismissIdle();
        }
        const std::lock_guard<std::mutex> lock(m_mutex);
        DropTheGone();
    }

private:
    // At the end of the program workers that have nothing to do are sent home, so that nothing of them is
    // left when the library goes. The registry itself stays, for objects that go later.
    class Keeper {
    public:
        Keeper() = default;
        Keeper(const Keeper&) = delete;
        Keeper& operator=(const Keeper&) = delete;
        ~Keeper() {
            CrewRegistry* pRegistry = m_pRegistry.load();
            if (pRegistry->m_home.IsHere()) {
                pRegistry->DismissIdle();
            }
        }

        CrewRegistry& Registry() {
            CrewRegistry* pRegistry = m_pRegistry.load();
            if (!pRegistry->m_home.IsHere()) {
                auto made = std::make_unique<CrewRegistry>();
                if (m_pRegistry.compare_exchange_strong(pRegistry, made.get())) {
                    pRegistry = made.release();
                }
            }
            return *pRegistry;
        }

    private:
        std::atomic<CrewRegistry*> m_pRegistry{new CrewRegistry};
    };

    // @return null for a pool without one.
    std::shared_ptr<Crew> Find(ITnRobotTaskPool& pool) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_crews.find(&pool);
        return found == m_crews.end() ? nullptr : found->second.lock();
    }

    void DismissIdle() {
        std::vector<std::shared_ptr<Crew>> crews;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            for (const auto& each : m_crews) {
                crews.push_back(each.second.lock());
            }
        }
        for (const std::shared_ptr<Crew>& crew : crews) {
            if (crew) {
                crew->DismissIdle();
            }
        }
    }

    void DropTheGone() {
        for (auto it = m_crews.begin(); it != m_crews.end();) {
            it = it->second.expired() ? m_crews.erase(it) : std::next(it);
        }
    }

    const Home m_home;
    Departures m_departures;  // before the crews, which refer to it
    std::mutex m_mutex;
    std::map<const ITnRobotTaskPool*, std::weak_ptr<Crew>> m_crews;  // guarded by m_mutex
};

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_CREW_H_
