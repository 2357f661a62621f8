// Where threads meet: the lock, the condition and the atomic that src/concurrency and src/memory use, the
// start of a thread, and the points around reference counts. In checked builds each of them asks a test's
// scheduler whether the thread shall be delayed there; in all others these are the types of the standard
// library by another name, and a point is nothing.

#ifndef TNROBOTKERNEL_SRC_CORE_TNSCHEDULE_H_
#define TNROBOTKERNEL_SRC_CORE_TNSCHEDULE_H_

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "checked/TnChecked.h"

namespace tnrobot {

/// What a test installs to try other orders of threads than the system's own.
///
/// Threads: every operation is called by any thread, also while it holds locks of the library. It must not
///          synchronise with other threads: that would hide a race from ThreadSanitizer.
class Scheduler {
public:
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    /// The calling thread is at a point: it may be delayed, for a bounded time.
    virtual void Pass() = 0;

    /// The calling thread is about to start another. @return that thread's number, for Begin.
    virtual unsigned int Announce() = 0;

    /// The calling thread has just been started, and has this number.
    virtual void Begin(unsigned int nThread) = 0;

    /// Installs a scheduler until the end of the process, before there is a second thread; does nothing in
    /// other than checked builds. @param[in] pScheduler  borrowed; null for none.
    static void Install(Scheduler* pScheduler) { s_pScheduler.store(pScheduler, std::memory_order_relaxed); }

    /// @return what is installed, or null.
    static Scheduler* Installed() { return s_pScheduler.load(std::memory_order_relaxed); }

protected:
    Scheduler() = default;
    ~Scheduler() = default;

private:
    inline static std::atomic<Scheduler*> s_pScheduler{nullptr};
};

/// A place where another thread may come between: before something is read that others change, and behind
/// a change that others see.
inline void SchedulePoint() {
    if constexpr (kChecked) {
        if (Scheduler* pScheduler = Scheduler::Installed()) {
            pScheduler->Pass();
        }
    }
}

#ifdef TNROBOT_CHECKED

/// A mutex with a point before it is asked for and one behind its release.
class Mutex : public std::mutex {
public:
    void lock() {
        SchedulePoint();
        std::mutex::lock();
    }
    bool try_lock() {
        SchedulePoint();
        return std::mutex::try_lock();
    }
    void unlock() {
        std::mutex::unlock();
        SchedulePoint();
    }
};

/// A condition variable with a point before each wait, where the lock is held, and around notifications.
class ConditionVariable {
public:
    void notify_one() {
        SchedulePoint();
        m_condition.notify_one();
        SchedulePoint();
    }
    void notify_all() {
        SchedulePoint();
        m_condition.notify_all();
        SchedulePoint();
    }
    void wait(std::unique_lock<Mutex>& lock) {
        _Wait(lock, [this](std::unique_lock<std::mutex>& plain) { m_condition.wait(plain); });
    }
    template <typename Predicate>
    void wait(std::unique_lock<Mutex>& lock, Predicate predicate) {
        while (!predicate()) {
            wait(lock);
        }
    }
    template <typename Time>
    void wait_until(std::unique_lock<Mutex>& lock, const Time& time) {
        _Wait(lock, [&](std::unique_lock<std::mutex>& plain) { m_condition.wait_until(plain, time); });
    }

private:
    // The plain lock is lent for the wait.
    template <typename Wait>
    static void _Wait(std::unique_lock<Mutex>& lock, Wait waitWith) {
        SchedulePoint();
        std::unique_lock<std::mutex> plain(*lock.mutex(), std::adopt_lock);
        waitWith(plain);
        plain.release();
        SchedulePoint();
    }

    std::condition_variable m_condition;
};

/// An atomic with a point before each operation and one behind each change.
template <typename T>
class Atomic : public std::atomic<T> {
    using Base = std::atomic<T>;

public:
    using Base::Base;

    T load(std::memory_order order = std::memory_order_seq_cst) const {
        SchedulePoint();
        return Base::load(order);
    }
    void store(T value, std::memory_order order = std::memory_order_seq_cst) {
        _Change([&] {
            Base::store(value, order);
            return true;
        });
    }
    T exchange(T value, std::memory_order order = std::memory_order_seq_cst) {
        return _Change([&] { return Base::exchange(value, order); });
    }
    T fetch_add(T value, std::memory_order order = std::memory_order_seq_cst) {
        return _Change([&] { return Base::fetch_add(value, order); });
    }
    T fetch_sub(T value, std::memory_order order = std::memory_order_seq_cst) {
        return _Change([&] { return Base::fetch_sub(value, order); });
    }
    bool compare_exchange_strong(T& expected, T value, std::memory_order order = std::memory_order_seq_cst) {
        return _Change([&] { return Base::compare_exchange_strong(expected, value, order); });
    }

private:
    template <typename Change>
    static auto _Change(Change change) {
        SchedulePoint();
        const auto before = change();
        SchedulePoint();
        return before;
    }
};

/// Starts a thread that the scheduler knows from its beginning.
template <typename Work>
std::thread StartThread(Work work) {
    Scheduler* pScheduler = Scheduler::Installed();
    if (pScheduler == nullptr) {
        return std::thread(std::move(work));
    }
    return std::thread([pScheduler, nThread = pScheduler->Announce(), work = std::move(work)]() mutable {
        pScheduler->Begin(nThread);
        work();
    });
}

#else

using Mutex = std::mutex;
using ConditionVariable = std::condition_variable;
template <typename T>
using Atomic = std::atomic<T>;

/// Starts a thread.
template <typename Work>
std::thread StartThread(Work work) {
    return std::thread(std::move(work));
}

#endif

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CORE_TNSCHEDULE_H_
