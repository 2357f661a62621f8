// What happens around a fork: all registered mutexes are locked before and unlocked after it, in the
// parent and in the child, where the number of forks goes up.

#include "core/TnFork.h"

#include <pthread.h>

#include "checked/TnChecked.h"
#include "core/TnObjectWatcher.h"
#include "core/TnRegistrations.h"

namespace tnrobot {

std::atomic<unsigned int> g_nForks{0};

namespace {

std::mutex g_list;
ForkSafe* g_pOldest = nullptr;  // guarded by g_list
ForkSafe* g_pNewest = nullptr;  // guarded by g_list

}  // namespace

ForkSafe::ForkSafe(std::mutex& mutex) : m_mutex(mutex) {
    std::lock_guard<std::mutex> lock(g_list);
    ForkSafe* const pOlder = g_pNewest;
    m_pOlder = pOlder;
    (m_pOlder != nullptr ? m_pOlder->m_pNewer : g_pOldest) = this;
    g_pNewest = this;
}

ForkSafe::~ForkSafe() {
    std::lock_guard<std::mutex> lock(g_list);
    (m_pOlder != nullptr ? m_pOlder->m_pNewer : g_pOldest) = m_pNewer;
    (m_pNewer != nullptr ? m_pNewer->m_pOlder : g_pNewest) = m_pOlder;
}

// The system forgets the handlers when the library is closed, since they are registered from within
// it. Without memory for them there is no library either.
void ForkSafe::Install() {
    const int nError = pthread_atfork(_LockAll, _UnlockAll, [] {
        g_nForks.fetch_add(1, std::memory_order_relaxed);
        _UnlockAll();
    });
    if (nError != 0) {
        throw std::bad_alloc();
    }
}

// The single locks come after those of the list, under which they may be taken, and the checks' last.
void ForkSafe::_LockAll() {
    g_list.lock();
    for (ForkSafe* p = g_pOldest; p != nullptr; p = p->m_pNewer) {
        p->m_mutex.lock();
    }
    LockRegistrationForFork();
    ObjectWatcher::LockForFork();
    LockChecksForFork();
}

void ForkSafe::_UnlockAll() {
    UnlockChecksAfterFork();
    ObjectWatcher::UnlockAfterFork();
    UnlockRegistrationAfterFork();
    for (ForkSafe* p = g_pNewest; p != nullptr; p = p->m_pOlder) {
        p->m_mutex.unlock();
    }
    g_list.unlock();
}

}  // namespace tnrobot
