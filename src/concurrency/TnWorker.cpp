// The end of a thread: joined by its owner, or, when its owner has ended on it, by those that come later.

#include "concurrency/TnWorker.h"

#include <pthread.h>

#include <mutex>

#include "concurrency/TnPolling.h"

namespace tnrobot {

namespace {

// Pointers and a lock that need no destructor: the library's last steps come after those of this file.
Mutex g_mutex;
Worker* g_pLeft = nullptr;  // guarded by g_mutex; owned, as is each one's next

const ForkSafe s_forkSafe(g_mutex);

}  // namespace

// A thread that is left behind by a fork can neither be joined nor be detached: its memory may be
// another's by now.
Worker::~Worker() {
    if (!IsHere()) {
        Forget(m_thread);
    } else if (m_thread.joinable() && !_IsOwn()) {
        SchedulePoint();
        m_thread.join();
    } else if (m_thread.joinable()) {
        m_thread.detach();  // the process is ended from within it
    }
}

// The caller holds the lock. @return the link to the first of those that have left which fits, or the last one.
template <typename Fits>
Worker** Worker::_Find(Fits fits) {
    Worker** ppNext = &g_pLeft;
    while (*ppNext != nullptr && !fits(**ppNext)) {
        ppNext = &(*ppNext)->m_pNext;
    }
    return ppNext;
}

// @return the first that fits, which has left the list, or null.
template <typename Fits>
std::unique_ptr<Worker> Worker::_Take(Fits fits) {
    const std::lock_guard<Mutex> lock(g_mutex);
    Worker** const ppLink = _Find(fits);
    std::unique_ptr<Worker> worker(*ppLink);
    if (worker) {
        *ppLink = worker->m_pNext;
    }
    return worker;
}

// Whoever leaves waits for nobody: others may be destroying what waits for this very thread to end.
Worker& Worker::_Add(std::unique_ptr<Worker> worker) {
    while (_Take([](Worker& other) { return other._HasEnded(); })) {
    }
    const std::lock_guard<Mutex> lock(g_mutex);
    worker->m_pNext = g_pLeft;
    g_pLeft = worker.release();
    return *g_pLeft;
}

// In a child, one of the parent's may be what its only thread was there, and is kept.
bool Worker::_HasEnded() {
    if (!IsHere() || pthread_tryjoin_np(m_thread.native_handle(), nullptr) != 0) {
        return false;
    }
    Forget(m_thread);  // it is joined, which only the system knows
    return true;
}

// Again and again: one may leave while another is waited for. On the thread of one that has left nobody waits for it.
void Worker::JoinLeft(std::chrono::milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    const auto isCleared = [](const Worker& any) { return any.IsHere() && (any.m_bCleared.load() || any._IsOwn()); };
    for (bool bMore = true; bMore;) {
        while (_Take(isCleared)) {
        }
        {
            const std::lock_guard<Mutex> lock(g_mutex);
            bMore = *_Find([](const Worker& any) { return any.IsHere(); }) != nullptr;
        }
        bMore = bMore && std::chrono::steady_clock::now() < end;
        if (bMore) {
            PollSleep();
        }
    }
}

}  // namespace tnrobot
