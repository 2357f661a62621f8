// The end of a thread: joined by its owner, or by the next worker that ends when its owner is itself.

#include "concurrency/TnWorker.h"

namespace tnrobot {

namespace {

// Owned. The one before it has been joined when its thread has ended.
Atomic<Worker*> g_pLast{nullptr};

}  // namespace

// A thread that is left behind by a fork can neither be joined nor be detached: its memory may be
// another's by now.
Worker::~Worker() {
    if (!IsHere()) {
        Forget(m_thread);
    } else if (m_thread.get_id() != std::this_thread::get_id()) {
        SchedulePoint();
        m_thread.join();
    } else {
        m_thread.detach();  // the process is ended from within it
    }
}

std::unique_ptr<Worker> Worker::Leave(std::unique_ptr<Worker> worker) {
    return std::unique_ptr<Worker>(g_pLast.exchange(worker.release()));
}

void Worker::JoinLast() {
    delete g_pLast.exchange(nullptr);
}

}  // namespace tnrobot
