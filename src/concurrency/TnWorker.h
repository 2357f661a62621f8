// The thread that an object of the library has for itself.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNWORKER_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNWORKER_H_

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

    /// Takes over a worker from its own thread, which cannot join itself and is about to end. From here on
    /// the next one that leaves so joins it, or the library when it goes: no thread outlives that. What an
    /// application may see go, and unload the library then, has to go after this call.
    /// @return the one that has left before, or null. Its end joins that thread, so it comes last, when
    ///         nothing of the application's is left that the other thread might wait for.
    [[nodiscard]] static std::unique_ptr<Worker> Leave(std::unique_ptr<Worker> worker);

    /// Joins the last one that has left.
    static void JoinLast();

private:
    HomeProcess m_home;
    std::thread m_thread;
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNWORKER_H_
