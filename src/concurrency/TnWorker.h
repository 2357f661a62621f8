// The thread that an object of the library has for itself.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNWORKER_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNWORKER_H_

#include <chrono>
#include <memory>
#include <thread>
#include <utility>

#include "core/TnFork.h"
#include "core/TnSchedule.h"

namespace tnrobot {

/// A thread that is joined by its end. In a forked child it is not there: nothing waits for it then.
class Worker {
public:
    /// Throws std::system_error when the system has no thread left.
    template <typename Work>
    explicit Worker(Work work) : m_thread(StartThread(std::move(work))) {}
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    ~Worker();

    /// @return whether the thread is one of this process.
    bool IsHere() const { return m_home.IsHere(); }

    /// Takes over a worker from its own thread, which cannot join itself and is about to end. Whoever leaves
    /// later joins it when it has ended, and the library does when it goes: no thread outlives that.
    /// @param[in] clear  void(): destroys what the application has given to the worker, and may find out by that
    ///                   that it has gone. Called when the library knows of the worker.
    template <typename Clear>
    static void Leave(std::unique_ptr<Worker> worker, Clear clear) {
        Worker& self = _Add(std::move(worker));
        clear();
        self.m_bCleared.store(true);
    }

    /// Joins all that have left. Those whose application's objects do not go within the time are left alone: they
    /// may wait for the very thread that ends the process.
    static void JoinLeft(std::chrono::milliseconds patience = std::chrono::seconds(5));

private:
    static Worker& _Add(std::unique_ptr<Worker> worker);
    template <typename Fits>
    static Worker** _Find(Fits fits);
    template <typename Fits>
    static std::unique_ptr<Worker> _Take(Fits fits);
    bool _IsOwn() const { return m_thread.get_id() == std::this_thread::get_id(); }
    bool _HasEnded();

    HomeProcess m_home;
    std::thread m_thread;
    Atomic<bool> m_bCleared{false};
    Worker* m_pNext = nullptr;  // among those that have left
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNWORKER_H_
